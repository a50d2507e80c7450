// avx: y := alpha*x + y.
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level1.h"

extern "C" void tarn_blas_avx_xdaxpy(const int* n, const double* alpha, const double* x,
                                     const int* incx, double* y, const int* incy) {
  generic_xdaxpy(*n, *alpha, x, *incx, y, *incy);
}
