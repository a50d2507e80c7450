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

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const int* n, const double* alpha, double* x,
                                                const int* incx) {
  tarn_xdscal_fn* f = tarn_dispatch::resolve(&xdscal_cell, xdscal_candidates);
  if (f == nullptr) return;
  f(n, alpha, x, incx);
}

}  // namespace

extern "C" void tarn_blas_xdscal(const int* n, const double* alpha, double* x, const int* incx) {
  tarn_xdscal_fn* f = __atomic_load_n(&xdscal_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(n, alpha, x, incx);
  f(n, alpha, x, incx);
}
