// cnr_sse2: x := alpha*x.
#include "kernels/kernels.h"
#include "kernels/generic/l1_xdscal.h"

extern "C" void tarn_blas_cnr_sse2_xdscal(const int* n, const double* alpha, double* x,
                                       const int* incx) {
  l1_xdscal(*n, *alpha, x, *incx);
}
