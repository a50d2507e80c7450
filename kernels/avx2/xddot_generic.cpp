// avx2: the dot product.
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level1.h"

extern "C" double tarn_blas_avx2_xddot(const int* n, const double* x, const int* incx,
                                       const double* y, const int* incy) {
  return generic_xddot(*n, x, *incx, y, *incy);
}
