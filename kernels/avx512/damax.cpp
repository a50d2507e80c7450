// avx512: the largest |x|, first pass of the pivot search.
#include "kernels/generic/l1_entries.h"
#include "kernels/generic/l1_xidamax.h"

extern "C" double tarn_blas_avx512_damax(const int* n, const double* x, const int* incx) {
  return l1_damax(*n, x, *incx);
}
