// Dispatching stub of the triangular solve with one right-hand side.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdtrsv), tarn_xdtrsv_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdtrsv_fn* xdtrsv_cell = nullptr;
tarn_xdtrsv_fn* const xdtrsv_candidates[] = TARN_BRANCH_CANDIDATES(xdtrsv);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const char* uplo, const char* trans,
                                                const char* diag, const int* n, const double* a,
                                                const int* lda, double* x, const int* incx) {
  tarn_xdtrsv_fn* f = tarn_dispatch::resolve(&xdtrsv_cell, xdtrsv_candidates);
  if (f == nullptr) return;
  f(uplo, trans, diag, n, a, lda, x, incx);
}

}  // namespace

extern "C" void tarn_blas_xdtrsv(const char* uplo, const char* trans, const char* diag,
                                 const int* n, const double* a, const int* lda, double* x,
                                 const int* incx) {
  tarn_xdtrsv_fn* f = __atomic_load_n(&xdtrsv_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(uplo, trans, diag, n, a, lda, x, incx);
  f(uplo, trans, diag, n, a, lda, x, incx);
}
