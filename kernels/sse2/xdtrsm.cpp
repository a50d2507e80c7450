// sse2: the one-thread triangular solve: recursive left solves and blocked
// right solves on this branch's DGEMM, reciprocals in place of division
// unless the diagonal holds a denormal.
#include "kernels/generic/trsm_legacy.h"
#include "kernels/trsm_desc.h"

extern "C" void tarn_blas_sse2_xdtrsm(const char* side, const char* uplo, const char* transa,
                                      const char* diag, const int* m, const int* n,
                                      const double* alpha, const double* a, const int* lda,
                                      double* b, const int* ldb) {
  xdtrsm_legacy_impl<tarn_blas_sse2_xdgemm, tarn_blas_sse2_dtrsm_pst, tarn_blas_sse2_dtrsm_has_denormal>(
      side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}
