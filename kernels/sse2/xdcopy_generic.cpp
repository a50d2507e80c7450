// sse2: y := x.
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level1.h"

extern "C" void tarn_blas_sse2_xdcopy(const int* n, const double* x, const int* incx, double* y,
                                      const int* incy) {
  generic_xdcopy(*n, x, *incx, y, *incy);
}
