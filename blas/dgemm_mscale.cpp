// Dispatching stub of C := beta*C of the GEMM services.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_dgemm_mscale), tarn_dgemm_mscale_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_dgemm_mscale_fn* dgemm_mscale_cell = nullptr;
tarn_dgemm_mscale_fn* const dgemm_mscale_candidates[] = TARN_BRANCH_CANDIDATES(dgemm_mscale);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const int* m, const int* n, const double* beta,
                                                double* c, const int* ldc) {
  tarn_dgemm_mscale_fn* f = tarn_dispatch::resolve(&dgemm_mscale_cell, dgemm_mscale_candidates);
  if (f == nullptr) return;
  f(m, n, beta, c, ldc);
}

}  // namespace

extern "C" void tarn_blas_dgemm_mscale(const int* m, const int* n, const double* beta, double* c,
                                       const int* ldc) {
  tarn_dgemm_mscale_fn* f = __atomic_load_n(&dgemm_mscale_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(m, n, beta, c, ldc);
  f(m, n, beta, c, ldc);
}
