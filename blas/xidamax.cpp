// Dispatching stub of the pivot search (first largest |x|, first NaN wins).
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_xidamax), tarn_xidamax_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xidamax_fn* xidamax_cell = nullptr;
tarn_xidamax_fn* const xidamax_candidates[] = TARN_BRANCH_CANDIDATES(xidamax);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) int first_call(const int* n, const double* x, const int* incx) {
  tarn_xidamax_fn* f = tarn_dispatch::resolve(&xidamax_cell, xidamax_candidates);
  if (f == nullptr) return 0;
  return f(n, x, incx);
}

}  // namespace

extern "C" int tarn_blas_xidamax(const int* n, const double* x, const int* incx) {
  tarn_xidamax_fn* f = __atomic_load_n(&xidamax_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(n, x, incx);
  return f(n, x, incx);
}
