// avx512: C := beta*C + alpha*x*y', the K = 1 product. The transposition
// characters only tell where x and y came from; their strides say how to
// walk them.
#include "kernels/kernels.h"
#include "kernels/generic/l2_xdgemmger.h"

extern "C" void tarn_blas_avx512_xdgemmger(const char* /*transa*/, const char* /*transb*/,
                                          const int* m, const int* n, const double* alpha,
                                          const double* x, const int* incx, const double* y,
                                          const int* incy, const double* beta, double* c,
                                          const int* ldc) {
  l2_xdgemmger(*m, *n, *alpha, x, *incx, y, *incy, *beta, c, *ldc);
}
