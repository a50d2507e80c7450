// One-thread DGEMM of the avx branch: the shared blocked driver with a 4 by
// 6 tile. Without fused multiply-add each product goes through a temporary
// (broadcast of B, multiply by the A vector, add into the accumulator), so
// six accumulators, the A vector and the temporary fill the eight registers.
#include <immintrin.h>

#include "kernels/avx/dgemm_kernel_0.h"

extern "C" void tarn_blas_avx_xdgemm(const char* transa, const char* transb, const int* m,
                                     const int* n, const int* k, const double* alpha,
                                     const double* a, const int* lda, const double* b,
                                     const int* ldb, const double* beta, double* c,
                                     const int* ldc) {
  gemm_packed_path<AvxGemm>(kGemmLoopOrderRowsFirst, gemm_is_trans(transa), gemm_is_trans(transb),
                            *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
  _mm256_zeroupper();
}
