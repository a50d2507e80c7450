// Dispatching stub of y := alpha*x + y.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdaxpy), tarn_xdaxpy_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdaxpy_fn* xdaxpy_cell = nullptr;
tarn_xdaxpy_fn* const xdaxpy_candidates[] = TARN_BRANCH_CANDIDATES(xdaxpy);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const int* n, const double* alpha, const double* x,
                                                const int* incx, double* y, const int* incy) {
  tarn_xdaxpy_fn* f = tarn_dispatch::resolve(&xdaxpy_cell, xdaxpy_candidates);
  if (f == nullptr) return;
  f(n, alpha, x, incx, y, incy);
}

}  // namespace

extern "C" void tarn_blas_xdaxpy(const int* n, const double* alpha, const double* x,
                                 const int* incx, double* y, const int* incy) {
  tarn_xdaxpy_fn* f = __atomic_load_n(&xdaxpy_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(n, alpha, x, incx, y, incy);
  f(n, alpha, x, incx, y, incy);
}
