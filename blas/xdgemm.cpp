// Dispatching stub of the one-thread DGEMM.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdgemm), tarn_xdgemm_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdgemm_fn* xdgemm_cell = nullptr;
tarn_xdgemm_fn* const xdgemm_candidates[] = TARN_BRANCH_CANDIDATES(xdgemm);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const char* transa, const char* transb,
                                                const int* m, const int* n, const int* k,
                                                const double* alpha, const double* a,
                                                const int* lda, const double* b, const int* ldb,
                                                const double* beta, double* c, const int* ldc) {
  tarn_xdgemm_fn* f = tarn_dispatch::resolve(&xdgemm_cell, xdgemm_candidates);
  if (f == nullptr) return;
  f(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace

extern "C" void tarn_blas_xdgemm(const char* transa, const char* transb, const int* m, const int* n,
                                 const int* k, const double* alpha, const double* a, const int* lda,
                                 const double* b, const int* ldb, const double* beta, double* c,
                                 const int* ldc) {
  tarn_xdgemm_fn* f = __atomic_load_n(&xdgemm_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0))
    return first_call(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  f(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
