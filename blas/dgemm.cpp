// Front of the matrix product that the rest of the library calls.
//
// Seam: the thread planning (recasting to level 2, choice of the thread
// count, the parallel drivers of both kernel generations) comes in front of
// the call below; until then every product runs on the calling thread
// through the dispatched one-thread kernel.
#include "blas/blas.h"

extern "C" void tarn_blas_dgemm(const char* transa, const char* transb, const int* m, const int* n,
                                const int* k, const double* alpha, const double* a, const int* lda,
                                const double* b, const int* ldb, const double* beta, double* c,
                                const int* ldc) {
  if (*m <= 0 || *n <= 0) return;
  tarn_blas_xdgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
