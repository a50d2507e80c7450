// sse42: the matrix-vector product (one summation order, whatever the alignment).
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level2.h"

extern "C" void tarn_blas_sse42_xdgemv(const char* trans, const int* m, const int* n,
                                       const double* alpha, const double* a, const int* lda,
                                       const double* x, const int* incx, const double* beta,
                                       double* y, const int* incy, const int* /*mode*/) {
  generic_xdgemv(generic_upper(trans), *m, *n, *alpha, a, *lda, x, *incx, *beta, y, *incy);
}
