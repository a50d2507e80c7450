// Dispatching stub of the exchange of two vectors.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xdswap), tarn_xdswap_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdswap_fn* xdswap_cell = nullptr;
tarn_xdswap_fn* const xdswap_candidates[] = TARN_BRANCH_CANDIDATES(xdswap);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const int* n, double* x, const int* incx, double* y,
                                                const int* incy) {
  tarn_xdswap_fn* f = tarn_dispatch::resolve(&xdswap_cell, xdswap_candidates);
  if (f == nullptr) return;
  f(n, x, incx, y, incy);
}

}  // namespace

extern "C" void tarn_blas_xdswap(const int* n, double* x, const int* incx, double* y,
                                 const int* incy) {
  tarn_xdswap_fn* f = __atomic_load_n(&xdswap_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(n, x, incx, y, incy);
  f(n, x, incx, y, incy);
}
