// sse2: y := alpha*op(A)*x + beta*y. A reproducibility mode other than off
// goes to the fixed-order form; otherwise the 'T' sums start on a vector
// boundary of A, wherever that lies.
#include "kernels/kernels.h"
#include "kernels/generic/l2_entries.h"
#include "kernels/generic/l2_xdgemv.h"
#include "service/cpu.h"

extern "C" void tarn_blas_sse2_xdgemv(const char* trans, const int* m, const int* n,
                                       const double* alpha, const double* a, const int* lda,
                                       const double* x, const int* incx, const double* beta,
                                       double* y, const int* incy, const int* mode) {
  if (*m < 1 || *n < 1) return;
  if (tarn_serv_cbwr_get(1) != TARN_CBWR_OFF) {
    tarn_blas_sse2_xdgemv_cnr(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, mode);
    return;
  }
  l2_xdgemv<false>(l12_upper(trans), *m, *n, *alpha, a, *lda, x, *incx, *beta, y, *incy);
}
