// avx512: the one-thread triangular solve. Narrow orders go to xdtrsm_v1;
// the rest is described by the product's records and solved by the packed
// drivers, whose tiles and updates run this branch's 8 by 7 DGEMM
// micro-kernel and its DGEMM.
#include <immintrin.h>

#include "kernels/avx512/dgemm_kernel_0.h"
#include "kernels/generic/trsm_descriptors.h"
#include "kernels/trsm_desc.h"

extern "C" void tarn_blas_avx512_xdtrsm(const char* side, const char* uplo, const char* transa,
                                        const char* diag, const int* m, const int* n,
                                        const double* alpha, const double* a, const int* lda,
                                        double* b, const int* ldb) {
  xdtrsm_descriptor_impl<Avx512GemmDesc, Avx512Gemm, tarn_blas_avx512_xdgemm,
                         tarn_blas_avx512_xdtrsm_v1>(side, uplo, transa, diag, m, n, alpha, a,
                                                     lda, b, ldb);
  _mm256_zeroupper();
}
