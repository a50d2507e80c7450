// Dispatching stub of the legacy blocked GEMM driver of the kernel-table branches.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdgemm_par), tarn_xdgemm_par_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdgemm_par_fn* xdgemm_par_cell = nullptr;
tarn_xdgemm_par_fn* const xdgemm_par_candidates[] = TARN_BRANCH_CANDIDATES(xdgemm_par);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const char* transa, const char* transb,
                                                const int* m, const int* n, const int* k,
                                                const double* alpha, const double* a,
                                                const int* lda, const double* b, const int* ldb,
                                                const double* beta, double* c, const int* ldc,
                                                void* desc) {
  tarn_xdgemm_par_fn* f = tarn_dispatch::resolve(&xdgemm_par_cell, xdgemm_par_candidates);
  if (f == nullptr) return;
  f(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, desc);
}

}  // namespace

extern "C" void tarn_blas_xdgemm_par(const char* transa, const char* transb, const int* m,
                                     const int* n, const int* k, const double* alpha,
                                     const double* a, const int* lda, const double* b,
                                     const int* ldb, const double* beta, double* c, const int* ldc,
                                     void* desc) {
  tarn_xdgemm_par_fn* f = __atomic_load_n(&xdgemm_par_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0))
    return first_call(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, desc);
  f(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, desc);
}
