// Dispatching stub of the one-thread triangular solve with several right-hand sides.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdtrsm), tarn_xdtrsm_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdtrsm_fn* xdtrsm_cell = nullptr;
tarn_xdtrsm_fn* const xdtrsm_candidates[] = TARN_BRANCH_CANDIDATES(xdtrsm);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const char* side, const char* uplo,
                                                const char* transa, const char* diag, const int* m,
                                                const int* n, const double* alpha, const double* a,
                                                const int* lda, double* b, const int* ldb) {
  tarn_xdtrsm_fn* f = tarn_dispatch::resolve(&xdtrsm_cell, xdtrsm_candidates);
  if (f == nullptr) return;
  f(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}

}  // namespace

extern "C" void tarn_blas_xdtrsm(const char* side, const char* uplo, const char* transa,
                                 const char* diag, const int* m, const int* n, const double* alpha,
                                 const double* a, const int* lda, double* b, const int* ldb) {
  tarn_xdtrsm_fn* f = __atomic_load_n(&xdtrsm_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0))
    return first_call(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
  f(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}
