// Dispatching stub of the rank-one update of a K = 1 product.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdgemmger), tarn_xdgemmger_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdgemmger_fn* xdgemmger_cell = nullptr;
tarn_xdgemmger_fn* const xdgemmger_candidates[] = TARN_BRANCH_CANDIDATES(xdgemmger);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const char* transa, const char* transb,
                                                const int* m, const int* n, const double* alpha,
                                                const double* x, const int* incx, const double* y,
                                                const int* incy, const double* beta, double* c,
                                                const int* ldc) {
  tarn_xdgemmger_fn* f = tarn_dispatch::resolve(&xdgemmger_cell, xdgemmger_candidates);
  if (f == nullptr) return;
  f(transa, transb, m, n, alpha, x, incx, y, incy, beta, c, ldc);
}

}  // namespace

extern "C" void tarn_blas_xdgemmger(const char* transa, const char* transb, const int* m,
                                    const int* n, const double* alpha, const double* x,
                                    const int* incx, const double* y, const int* incy,
                                    const double* beta, double* c, const int* ldc) {
  tarn_xdgemmger_fn* f = __atomic_load_n(&xdgemmger_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0))
    return first_call(transa, transb, m, n, alpha, x, incx, y, incy, beta, c, ldc);
  f(transa, transb, m, n, alpha, x, incx, y, incy, beta, c, ldc);
}
