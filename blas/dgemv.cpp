// Front of the matrix-vector product.
//
// Seam: the thresholds and the parallel form come in front of the call
// below; until then every call runs the dispatched kernel straight.
#include "blas/blas.h"

namespace {

constexpr int kGemvMode = 1;  // the mode word of every call in this system

}  // namespace

extern "C" void tarn_blas_dgemv(const char* trans, const int* m, const int* n, const double* alpha,
                                const double* a, const int* lda, const double* x, const int* incx,
                                const double* beta, double* y, const int* incy) {
  if (*m < 1 || *n < 1) return;
  tarn_blas_xdgemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, &kGemvMode);
}
