// Dispatching stub of the legacy GEMM service that clears a kernel descriptor.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_dgemm_zero_desc), tarn_dgemm_zero_desc_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_dgemm_zero_desc_fn* dgemm_zero_desc_cell = nullptr;
tarn_dgemm_zero_desc_fn* const dgemm_zero_desc_candidates[] =
    TARN_BRANCH_CANDIDATES(dgemm_zero_desc);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(void* desc) {
  tarn_dgemm_zero_desc_fn* f =
      tarn_dispatch::resolve(&dgemm_zero_desc_cell, dgemm_zero_desc_candidates);
  if (f == nullptr) return;
  f(desc);
}

}  // namespace

extern "C" void tarn_blas_dgemm_zero_desc(void* desc) {
  tarn_dgemm_zero_desc_fn* f = __atomic_load_n(&dgemm_zero_desc_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(desc);
  f(desc);
}
