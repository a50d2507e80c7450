// Process exit and the clean-up lists: functions registered by the service
// layer (thread-local keys, caches) run in reverse order of registration.
#include <cstdlib>

#include "service/cpu.h"
#include "service/messages.h"

namespace {

struct CleanupEntry {
    tarn_cleanup_fn function;
    void* argument;
};

// A list with its two locks: one for registering, a distinct one for a run.
template <int Capacity>
struct CleanupList {
    CleanupEntry entries[Capacity];
    int items;
    volatile int register_lock;
    volatile int run_lock;
};

// custom_core_exit: written by tarn_serv_set_exit_handler, read at exit.
tarn_exit_fn custom_core_exit = nullptr;

CleanupList<kTarnCoreCleanupCapacity> cleanup_list{};
CleanupList<kTarnThrCleanupCapacity> thr_cleanup_list{};

template <int Capacity>
void register_entry(CleanupList<Capacity>& list, tarn_cleanup_fn function, void* argument) {
    tarn_serv_lock(&list.register_lock);
    if (list.items >= Capacity) {
        tarn_serv_unlock(&list.register_lock);
        tarn_serv_exit(kTarnCleanupOverflowExit);
        return;
    }
    list.entries[list.items++] = {function, argument};
    tarn_serv_unlock(&list.register_lock);
}

template <int Capacity>
void run_entries(CleanupList<Capacity>& list) {
    tarn_serv_lock(&list.run_lock);
    // Pop from the end so that later registrations are undone first.
    while (list.items > 0) {
        const CleanupEntry entry = list.entries[--list.items];
        if (entry.function != nullptr) entry.function(entry.argument);
    }
    tarn_serv_unlock(&list.run_lock);
}

}  // namespace

extern "C" {

void tarn_serv_exit(int code) {
    if (custom_core_exit != nullptr)
        custom_core_exit(code);
    else
        std::exit(code);
}

tarn_exit_fn tarn_serv_set_exit_handler(tarn_exit_fn handler) {
    const tarn_exit_fn previous = custom_core_exit;
    custom_core_exit = handler;
    return previous;
}

void tarn_serv_core_register_cleanup(tarn_cleanup_fn function, void* argument) {
    register_entry(cleanup_list, function, argument);
}

void tarn_serv_core_cleanup(void) { run_entries(cleanup_list); }

void tarn_serv_thr_register_cleanup(tarn_cleanup_fn function, void* argument) {
    register_entry(thr_cleanup_list, function, argument);
}

void tarn_serv_thr_cleanup(void) { run_entries(thr_cleanup_list); }

void tarn_tls_destroy(void* key_record) {
    auto* record = static_cast<tarn_tls_key_t*>(key_record);
    if (record == nullptr || (record->flags & 1) == 0) return;
    record->flags = 0;
    pthread_key_delete(record->key);
}

}  // extern "C"
