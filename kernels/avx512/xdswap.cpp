// avx512: x <-> y.
#include "kernels/kernels.h"
#include "kernels/generic/l1_xdswap.h"

extern "C" void tarn_blas_avx512_xdswap(const int* n, double* x, const int* incx, double* y,
                                       const int* incy) {
  l1_xdswap(*n, x, *incx, y, *incy);
}
