// Recursive LU whose BLAS calls may go parallel: the fall-back of the
// parallel driver when teams do not pay.
#include "blas/blas.h"
#include "lapack/getrf_recursive.h"
#include "lapack/lapack.h"

namespace {

struct ThreadedBlas {
  static void trsm(const char* side, const char* uplo, const char* transa, const char* diag,
                   const int* m, const int* n, const double* alpha, const double* a,
                   const int* lda, double* b, const int* ldb) {
    tarn_blas_dtrsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
  }
  static void gemm(const char* transa, const char* transb, const int* m, const int* n,
                   const int* k, const double* alpha, const double* a, const int* lda,
                   const double* b, const int* ldb, const double* beta, double* c,
                   const int* ldc) {
    tarn_blas_dgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  }
  static void laswp(const int* n, double* a, const int* lda, const int* k1, const int* k2,
                    const int* ipiv, const int* incx) {
    tarn_lapack_dlaswp(n, a, lda, k1, k2, ipiv, incx);
  }
};

}  // namespace

extern "C" int tarn_lapack_dgetrf_local(const int* m, const int* n, double* a, const int* lda,
                                        int* ipiv, int* info, const int* progress_thread,
                                        const int* progress_step) {
  return tarn_lapack_getrf::getrf_recursive<ThreadedBlas>(m, n, a, lda, ipiv, info,
                                                          progress_thread, progress_step);
}
