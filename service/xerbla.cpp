// The xerbla error handler: the handler slot, its setters, the default
// report and the pointer checks that report through it.
#include "service/cpu.h"
#include "service/messages.h"
#include "service/strings.h"

namespace {

// Names longer than this are cut silently in the report.
constexpr int kNameMax = 20;
constexpr int kNameBuffer = 22;

// Written by the setters (the interface setter under the lock), read by
// every report.
tarn_xerbla_fn tarn_xerbla_address = nullptr;
volatile int xerbla_slot_lock = 0;

}  // namespace

extern "C" {

void tarn_serv_default_xerbla(const char* name, const int* info, int namelen) {
    if (name == nullptr || info == nullptr || namelen < 0) return;
    const int length = namelen < kNameMax ? namelen : kNameMax;
    char shown[kNameBuffer];
    tarn_serv_strncpy_s(shown, kNameBuffer, name, static_cast<std::size_t>(length) + 1);
    shown[length] = '\0';

    tarn_serv_print(0, kTarnMsgNewline, 0);
    const int code = *info;
    switch (code) {
        case kTarnXerblaNoWorkspace:
            tarn_serv_print(0, kTarnMsgNoWorkspace, 1, shown);
            break;
        case kTarnXerblaIncompatible:
            tarn_serv_print(0, kTarnMsgIncompatibleOptions, 1, shown);
            break;
        case kTarnMsgCoprocessor:
            tarn_serv_print(0, kTarnMsgCoprocessor, 1, shown);
            break;
        case kTarnMsgNotEnoughWorkMemory:
            tarn_serv_print(0, kTarnMsgNotEnoughWorkMemory, 1, shown);
            break;
        default:
            // Zero counts as an internal condition, not as a parameter.
            if (code < 1)
                tarn_serv_print(0, kTarnMsgCondition, 2, -code, shown);
            else
                tarn_serv_print(0, kTarnMsgBadParameter, 2, code, shown);
            break;
    }
}

void tarn_serv_xerbla(const char* name, const int* info, int namelen) {
    if (name == nullptr || info == nullptr) return;
    const tarn_xerbla_fn handler = tarn_xerbla_address != nullptr ? tarn_xerbla_address : tarn_serv_default_xerbla;
    handler(name, info, namelen);
}

tarn_xerbla_fn tarn_serv_set_xerbla(tarn_xerbla_fn handler) {
    const tarn_xerbla_fn previous = tarn_xerbla_address;
    tarn_xerbla_address = handler;
    return previous != nullptr ? previous : tarn_serv_default_xerbla;
}

void tarn_serv_set_xerbla_interface(tarn_xerbla_fn handler) {
    // Runs at every top-level call: only the first one stores.
    if (tarn_xerbla_address != nullptr) return;
    tarn_serv_lock(&xerbla_slot_lock);
    if (tarn_xerbla_address == nullptr) tarn_xerbla_address = handler;
    tarn_serv_unlock(&xerbla_slot_lock);
}

void tarn_set_xerbla_interface(tarn_xerbla_fn handler) { tarn_serv_set_xerbla_interface(handler); }

void tarn_serv_iface_xerbla(const char* name, const int* info, int namelen) { tarn_serv_xerbla(name, info, namelen); }

int tarn_serv_check_ptr(const void* pointer, const char* name) {
    if (pointer != nullptr) return 0;
    const int code = kTarnMsgNotEnoughWorkMemory;
    tarn_serv_xerbla(name, &code, static_cast<int>(tarn_serv_strnlen_s(name, kTarnStrMaxLen)));
    return 1;
}

int tarn_serv_check_ptr_and_warn(const void* pointer, const char* /*name*/) { return pointer == nullptr ? 1 : 0; }

}  // extern "C"
