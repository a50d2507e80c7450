// avx2: dtrsm_nobuf, the unpacked solve of a B already multiplied by alpha,
// taken when a solve's buffer cannot be had.
#include <immintrin.h>

#include "kernels/generic/trsm_frame.h"
#include "kernels/trsm_desc.h"

extern "C" void tarn_blas_avx2_dtrsm_nobuf(const char* side, const char* uplo, const char* transa,
                                           const char* diag, const int* m, const int* n, const double* a,
                                           const int* lda, double* b, const int* ldb) {
  dtrsm_nobuf_impl<tarn_blas_avx2_xdgemm>(side, uplo, transa, diag, m, n, a, lda, b, ldb);
  _mm256_zeroupper();
}
