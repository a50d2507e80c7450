// One-thread DGEMM of the sse42 branch: the shared blocked driver with a 2 by
// 6 tile. Each product goes through a temporary (a load that duplicates the B value, multiplied by
// the A vector, added into the accumulator), so six accumulators, the A
// vector and the temporary fill the eight registers.
#include "kernels/sse42/dgemm_kernel_0.h"

extern "C" void tarn_blas_sse42_xdgemm(const char* transa, const char* transb, const int* m,
                                      const int* n, const int* k, const double* alpha,
                                      const double* a, const int* lda, const double* b,
                                      const int* ldb, const double* beta, double* c,
                                      const int* ldc) {
  gemm_packed_path<Sse42Gemm>(kGemmLoopOrderRowsFirst, gemm_is_trans(transa),
                              gemm_is_trans(transb), *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta,
                              c, *ldc);
}
