// The progress hook: the factorization reports each step through it, and a
// non-zero answer asks it to stop.
#include "service/messages.h"

namespace {

// Written by the setters, read at every step.
tarn_progress_fn tarn_progress_address = nullptr;

}  // namespace

extern "C" {

int tarn_serv_default_progress(const int*, const int*, const char*, int) { return 0; }

int tarn_serv_progress(const int* thread, const int* step, const char* stage, int stagelen) {
    const tarn_progress_fn hook = tarn_progress_address != nullptr ? tarn_progress_address : tarn_serv_default_progress;
    return hook(thread, step, stage, stagelen);
}

tarn_progress_fn tarn_serv_set_progress(tarn_progress_fn hook) {
    const tarn_progress_fn previous = tarn_progress_address;
    tarn_progress_address = hook;
    return previous != nullptr ? previous : tarn_serv_default_progress;
}

void tarn_serv_set_progress_interface(tarn_progress_fn hook) {
    // Runs at every top-level call: only the first one stores.
    if (tarn_progress_address == nullptr) tarn_progress_address = hook;
}

}  // extern "C"
