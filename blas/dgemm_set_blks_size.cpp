// Dispatching stub of the legacy GEMM service that sets block sizes.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_dgemm_set_blks_size), tarn_dgemm_set_blks_size_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_dgemm_set_blks_size_fn* dgemm_set_blks_size_cell = nullptr;
tarn_dgemm_set_blks_size_fn* const dgemm_set_blks_size_candidates[] =
    TARN_BRANCH_CANDIDATES(dgemm_set_blks_size);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const int* mc, const int* nc, const int* kc,
                                                void* desc) {
  tarn_dgemm_set_blks_size_fn* f =
      tarn_dispatch::resolve(&dgemm_set_blks_size_cell, dgemm_set_blks_size_candidates);
  if (f == nullptr) return;
  f(mc, nc, kc, desc);
}

}  // namespace

extern "C" void tarn_blas_dgemm_set_blks_size(const int* mc, const int* nc, const int* kc,
                                              void* desc) {
  tarn_dgemm_set_blks_size_fn* f = __atomic_load_n(&dgemm_set_blks_size_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(mc, nc, kc, desc);
  f(mc, nc, kc, desc);
}
