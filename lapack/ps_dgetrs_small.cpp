// Dispatching stub of the small-matrix solve.
#include "lapack/ps_small.h"
#include "service/cpu.h"

namespace {

// The chosen member; null until the first call, then never changed.
tarn_ps_dgetrs_small_fn* dgetrs_small_cell = nullptr;

int service_detect() { return tarn_serv_cpu_detect(); }

// Steps of the first call only: choose, store, read back. Two threads racing
// here store the same member, since detection answers the same after its
// first call; the store of one aligned pointer is atomic.
__attribute__((noinline, cold)) tarn_ps_dgetrs_small_fn* resolve_dgetrs_small() {
  const int code = tarn_ps_small::checked_code(service_detect);
  if (code < 0) return nullptr;
  __atomic_store_n(&dgetrs_small_cell, tarn_ps_small::dgetrs_member(code), __ATOMIC_RELAXED);
  return __atomic_load_n(&dgetrs_small_cell, __ATOMIC_RELAXED);
}

}  // namespace

extern "C" void tarn_lapack_ps_dgetrs_small(const char* trans, const int* n, const int* nrhs,
                                            const double* a, const int* lda, const int* ipiv,
                                            double* b, const int* ldb, int* info, const int* one) {
  tarn_ps_dgetrs_small_fn* f = __atomic_load_n(&dgetrs_small_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) {
    f = resolve_dgetrs_small();
    if (f == nullptr) return;
  }
  f(trans, n, nrhs, a, lda, ipiv, b, ldb, info, one);
}

extern "C" tarn_ps_dgetrs_small_fn* tarn_lapack_ps_dgetrs_small_member(void) {
  return __atomic_load_n(&dgetrs_small_cell, __ATOMIC_RELAXED);
}
