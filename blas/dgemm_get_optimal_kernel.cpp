// Dispatching stub of the legacy GEMM service that picks the kernel row.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(
    std::is_same_v<decltype(tarn_blas_dgemm_get_optimal_kernel), tarn_dgemm_get_optimal_kernel_fn>,
    "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_dgemm_get_optimal_kernel_fn* dgemm_get_optimal_kernel_cell = nullptr;
tarn_dgemm_get_optimal_kernel_fn* const dgemm_get_optimal_kernel_candidates[] =
    TARN_BRANCH_CANDIDATES(dgemm_get_optimal_kernel);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const int* m, const int* n, const int* k,
                                                void* desc) {
  tarn_dgemm_get_optimal_kernel_fn* f =
      tarn_dispatch::resolve(&dgemm_get_optimal_kernel_cell, dgemm_get_optimal_kernel_candidates);
  if (f == nullptr) return;
  f(m, n, k, desc);
}

}  // namespace

extern "C" void tarn_blas_dgemm_get_optimal_kernel(const int* m, const int* n, const int* k,
                                                   void* desc) {
  tarn_dgemm_get_optimal_kernel_fn* f =
      __atomic_load_n(&dgemm_get_optimal_kernel_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(m, n, k, desc);
  f(m, n, k, desc);
}
