// avx: x := alpha*x.
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level1.h"

extern "C" void tarn_blas_avx_xdscal(const int* n, const double* alpha, double* x,
                                     const int* incx) {
  generic_xdscal(*n, *alpha, x, *incx);
}
