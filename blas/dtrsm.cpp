// Front of the triangular solve with several right-hand sides.
//
// Seam: the cut of the right-hand sides across threads (and the drivers of
// both kernel generations) comes in front of the call below; until then
// every solve runs on the calling thread through the dispatched kernel.
#include "blas/blas.h"

extern "C" void tarn_blas_dtrsm(const char* side, const char* uplo, const char* transa,
                                const char* diag, const int* m, const int* n, const double* alpha,
                                const double* a, const int* lda, double* b, const int* ldb) {
  if (*m <= 0 || *n <= 0) return;
  tarn_blas_xdtrsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}
