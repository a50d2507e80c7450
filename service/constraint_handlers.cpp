// Constraint handlers of the bounded string and memory routines. The two
// slots are separate so that an application can watch one family only.
#include "service/strings.h"

namespace {

// Written by the setters, read by every failing bounded routine; an empty
// slot means "ignore".
tarn_constraint_handler_t str_handler = nullptr;
tarn_constraint_handler_t mem_handler = nullptr;

tarn_constraint_handler_t exchange(tarn_constraint_handler_t& slot, tarn_constraint_handler_t handler) {
    tarn_constraint_handler_t previous = slot;
    slot = handler != nullptr ? handler : tarn_serv_ignore_handler_s;
    return previous;
}

}  // namespace

extern "C" {

void tarn_serv_ignore_handler_s(const char*, void*, int) {}

tarn_constraint_handler_t tarn_serv_set_str_constraint_handler_s(tarn_constraint_handler_t handler) {
    return exchange(str_handler, handler);
}

tarn_constraint_handler_t tarn_serv_set_mem_constraint_handler_s(tarn_constraint_handler_t handler) {
    return exchange(mem_handler, handler);
}

void tarn_serv_invoke_safe_str_constraint_handler(const char* message, void* ptr, int error) {
    if (str_handler != nullptr) str_handler(message, ptr, error);
}

void tarn_serv_invoke_safe_mem_constraint_handler(const char* message, void* ptr, int error) {
    if (mem_handler != nullptr) mem_handler(message, ptr, error);
}

}  // extern "C"
