// avx: the pivot search assuming no NaN (see xidamax for the NaN rule).
#include "kernels/generic/l1_entries.h"
#include "kernels/generic/l1_xidamax.h"

extern "C" int tarn_blas_avx_xidamax_nonan(const int* n, const double* x, const int* incx) {
  return l1_iamax_nonan(*n, x, *incx);
}
