// Dispatching stub of the matrix-vector product.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdgemv), tarn_xdgemv_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdgemv_fn* xdgemv_cell = nullptr;
tarn_xdgemv_fn* const xdgemv_candidates[] = TARN_BRANCH_CANDIDATES(xdgemv);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const char* trans, const int* m, const int* n,
                                                const double* alpha, const double* a,
                                                const int* lda, const double* x, const int* incx,
                                                const double* beta, double* y, const int* incy,
                                                const int* mode) {
  tarn_xdgemv_fn* f = tarn_dispatch::resolve(&xdgemv_cell, xdgemv_candidates);
  if (f == nullptr) return;
  f(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, mode);
}

}  // namespace

extern "C" void tarn_blas_xdgemv(const char* trans, const int* m, const int* n, const double* alpha,
                                 const double* a, const int* lda, const double* x, const int* incx,
                                 const double* beta, double* y, const int* incy, const int* mode) {
  tarn_xdgemv_fn* f = __atomic_load_n(&xdgemv_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0))
    return first_call(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, mode);
  f(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, mode);
}
