// avx: y := x.
#include "kernels/kernels.h"
#include "kernels/generic/l1_xdcopy.h"

extern "C" void tarn_blas_avx_xdcopy(const int* n, const double* x, const int* incx, double* y,
                                       const int* incy) {
  l1_xdcopy(*n, x, *incx, y, *incy);
}
