// One-thread DGEMM of the cnr_sse2 branch: the shared blocked driver with a 2 by
// 6 tile. Each product goes through a temporary (the B value loaded into both lanes, multiplied by
// the A vector, added into the accumulator), so six accumulators, the A
// vector and the temporary fill the eight registers.
#include "kernels/cnr_sse2/dgemm_kernel_0.h"

extern "C" void tarn_blas_cnr_sse2_xdgemm(const char* transa, const char* transb, const int* m,
                                      const int* n, const int* k, const double* alpha,
                                      const double* a, const int* lda, const double* b,
                                      const int* ldb, const double* beta, double* c,
                                      const int* ldc) {
  gemm_packed_path<CnrSse2Gemm>(kGemmLoopOrderRowsFirst, gemm_is_trans(transa),
                              gemm_is_trans(transb), *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta,
                              c, *ldc);
}
