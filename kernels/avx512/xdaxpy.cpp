// avx512: y := alpha*x + y.
#include "kernels/kernels.h"
#include "kernels/generic/l1_xdaxpy.h"

extern "C" void tarn_blas_avx512_xdaxpy(const int* n, const double* alpha, const double* x,
                                       const int* incx, double* y, const int* incy) {
  l1_xdaxpy(*n, *alpha, x, *incx, y, *incy);
}
