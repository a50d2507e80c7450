// cnr_sse2: the dot product x'y.
#include "kernels/kernels.h"
#include "kernels/generic/l1_xddot.h"

extern "C" double tarn_blas_cnr_sse2_xddot(const int* n, const double* x, const int* incx,
                                        const double* y, const int* incy) {
  return l1_xddot(*n, x, *incx, y, *incy);
}
