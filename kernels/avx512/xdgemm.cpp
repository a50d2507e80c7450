// One-thread DGEMM of the avx512 branch: path choice, then the shared
// blocked driver with this branch's 8 by 7 kernel.
#include "kernels/avx512/dgemm_kernel_0.h"
#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"

extern "C" void tarn_blas_avx512_xdgemm(const char* transa, const char* transb, const int* m,
                                        const int* n, const int* k, const double* alpha,
                                        const double* a, const int* lda, const double* b,
                                        const int* ldb, const double* beta, double* c,
                                        const int* ldc) {
  const bool ta = gemm_is_trans(transa), tb = gemm_is_trans(transb);
  gemm_packed_path<Avx512Gemm>(kGemmLoopOrderRowsFirst, ta, tb, *m, *n, *k, *alpha, a, *lda, b,
                               *ldb, *beta, c, *ldc);
  _mm256_zeroupper();
}
