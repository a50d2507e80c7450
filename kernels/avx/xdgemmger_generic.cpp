// avx: the rank-one update of a K = 1 product.
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level2.h"

extern "C" void tarn_blas_avx_xdgemmger(const char* /*transa*/, const char* /*transb*/,
                                        const int* m, const int* n, const double* alpha,
                                        const double* x, const int* incx, const double* y,
                                        const int* incy, const double* beta, double* c,
                                        const int* ldc) {
  generic_xdgemmger(*m, *n, *alpha, x, *incx, y, *incy, *beta, c, *ldc);
}
