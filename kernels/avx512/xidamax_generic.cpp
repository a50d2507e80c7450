// avx512: the pivot search (first largest |x|, first NaN wins).
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level1.h"

extern "C" int tarn_blas_avx512_xidamax(const int* n, const double* x, const int* incx) {
  return generic_xidamax(*n, x, *incx);
}
