// Front of the pivot search.
//
// Short vectors never reach the dispatch: a plain walk with the same rule
// (first NaN wins, else the first of equal maxima) costs less than the call.
// Seam: the split of long vectors across threads comes in front of the
// kernel call below; until then longer vectors go to the kernel straight.
#include "blas/blas.h"

namespace {

constexpr int kInlineLength = 20;  // at most this many elements: no dispatch

int inline_idamax(int n, const double* x, int incx) {
  // The sign bit cleared, and NaN found by the quiet self-compare, so that
  // no exception flag is raised.
  double best = __builtin_fabs(x[0]);
  if (best != best) return 1;
  int index = 1;
  for (int i = 1; i < n; ++i) {
    const double v = __builtin_fabs(x[i * incx]);
    if (v != v) return i + 1;
    if (v > best) {
      best = v;
      index = i + 1;
    }
  }
  return index;
}

}  // namespace

extern "C" int tarn_blas_idamax(const int* n, const double* x, const int* incx) {
  if (*n < 1 || *incx < 1) return 0;
  if (*n <= kInlineLength) return inline_idamax(*n, x, *incx);
  return tarn_blas_xidamax(n, x, incx);
}
