// sse2: the exchange of two vectors.
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level1.h"

extern "C" void tarn_blas_sse2_xdswap(const int* n, double* x, const int* incx, double* y,
                                      const int* incy) {
  generic_xdswap(*n, x, *incx, y, *incy);
}
