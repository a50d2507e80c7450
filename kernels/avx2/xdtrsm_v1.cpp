// avx2: xdtrsm_v1, the narrow solve with its own buffer: recursive halving
// with this branch's DGEMM between the halves, leaves packed in 4 by 4
// units and solved by the a4 kernels.
#include <immintrin.h>

#include "kernels/generic/trsm_a4.h"
#include "kernels/trsm_desc.h"

extern "C" void tarn_blas_avx2_xdtrsm_v1(const char* side, const char* uplo, const char* transa,
                                         const char* diag, const int* m, const int* n,
                                         const double* alpha, const double* a, const int* lda,
                                         double* b, const int* ldb) {
  xdtrsm_v1_impl<tarn_blas_avx2_xdgemm, tarn_blas_avx2_dgemm_mscale>(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
  _mm256_zeroupper();
}
