// Dispatching stub of y := x.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdcopy), tarn_xdcopy_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdcopy_fn* xdcopy_cell = nullptr;
tarn_xdcopy_fn* const xdcopy_candidates[] = TARN_BRANCH_CANDIDATES(xdcopy);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const int* n, const double* x, const int* incx,
                                                double* y, const int* incy) {
  tarn_xdcopy_fn* f = tarn_dispatch::resolve(&xdcopy_cell, xdcopy_candidates);
  if (f == nullptr) return;
  f(n, x, incx, y, incy);
}

}  // namespace

extern "C" void tarn_blas_xdcopy(const int* n, const double* x, const int* incx, double* y,
                                 const int* incy) {
  tarn_xdcopy_fn* f = __atomic_load_n(&xdcopy_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(n, x, incx, y, incy);
  f(n, x, incx, y, incy);
}
