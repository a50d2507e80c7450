// Front of the triangular solve with one right-hand side. It stays serial:
// the kernel's own updates are where any threading would go.
#include "blas/blas.h"

extern "C" void tarn_blas_dtrsv(const char* uplo, const char* trans, const char* diag, const int* n,
                                const double* a, const int* lda, double* x, const int* incx) {
  if (*n < 1) return;
  tarn_blas_xdtrsv(uplo, trans, diag, n, a, lda, x, incx);
}
