// Dispatching stub of x := alpha*x.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdscal), tarn_xdscal_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdscal_fn* xdscal_cell = nullptr;
tarn_xdscal_fn* const xdscal_candidates[] = TARN_BRANCH_CANDIDATES(xdscal);

}  // namespace

extern "C" void tarn_blas_xdscal(const int* n, const double* alpha, double* x, const int* incx) {
  tarn_xdscal_fn* f = __atomic_load_n(&xdscal_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) {
    f = tarn_dispatch::resolve(&xdscal_cell, xdscal_candidates);
    if (f == nullptr) return;
  }
  f(n, alpha, x, incx);
}
