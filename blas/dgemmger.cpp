// Front of the rank-one update that a K = 1 product becomes.
//
// Seam: the split of C's columns across threads comes in front of the call
// below; until then every call runs the dispatched kernel straight.
#include "blas/blas.h"

extern "C" void tarn_blas_dgemmger(const char* transa, const char* transb, const int* m,
                                   const int* n, const double* alpha, const double* x,
                                   const int* incx, const double* y, const int* incy,
                                   const double* beta, double* c, const int* ldc) {
  if (*m < 1 || *n < 1) return;
  tarn_blas_xdgemmger(transa, transb, m, n, alpha, x, incx, y, incy, beta, c, ldc);
}
