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

}  // namespace

extern "C" void tarn_blas_xdcopy(const int* n, const double* x, const int* incx, double* y,
                                 const int* incy) {
  tarn_xdcopy_fn* f = __atomic_load_n(&xdcopy_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) {
    f = tarn_dispatch::resolve(&xdcopy_cell, xdcopy_candidates);
    if (f == nullptr) return;
  }
  f(n, x, incx, y, incy);
}
