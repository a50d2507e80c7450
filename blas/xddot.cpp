// Dispatching stub of the dot product.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xddot), tarn_xddot_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xddot_fn* xddot_cell = nullptr;
tarn_xddot_fn* const xddot_candidates[] = TARN_BRANCH_CANDIDATES(xddot);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) double first_call(const int* n, const double* x, const int* incx,
                                                  const double* y, const int* incy) {
  tarn_xddot_fn* f = tarn_dispatch::resolve(&xddot_cell, xddot_candidates);
  if (f == nullptr) return 0;
  return f(n, x, incx, y, incy);
}

}  // namespace

extern "C" double tarn_blas_xddot(const int* n, const double* x, const int* incx, const double* y,
                                  const int* incy) {
  tarn_xddot_fn* f = __atomic_load_n(&xddot_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(n, x, incx, y, incy);
  return f(n, x, incx, y, incy);
}
