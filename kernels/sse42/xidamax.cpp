// sse42: the pivot search, 1-based index of the first largest |x|; the first
// NaN wins; the caller's exception flags are left as they were.
#include "kernels/kernels.h"
#include "kernels/generic/l1_xidamax.h"

extern "C" int tarn_blas_sse42_xidamax(const int* n, const double* x, const int* incx) {
  return l1_xidamax(*n, x, *incx);
}
