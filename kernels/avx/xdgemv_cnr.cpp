// avx: y := alpha*op(A)*x + beta*y in one order of summation fixed by the
// shape alone: the same bits for copies of the same data at any address.
#include "kernels/generic/l2_entries.h"
#include "kernels/generic/l2_xdgemv.h"

extern "C" void tarn_blas_avx_xdgemv_cnr(const char* trans, const int* m, const int* n,
                                           const double* alpha, const double* a, const int* lda,
                                           const double* x, const int* incx, const double* beta,
                                           double* y, const int* incy, const int* /*mode*/) {
  l2_xdgemv<true>(l12_upper(trans), *m, *n, *alpha, a, *lda, x, *incx, *beta, y, *incy);
}
