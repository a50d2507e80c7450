// Front of y := x.
//
// Seam: the split of long vectors across threads comes in front of the call
// below; until then every call runs the dispatched kernel straight.
#include "blas/blas.h"

extern "C" void tarn_blas_dcopy(const int* n, const double* x, const int* incx, double* y,
                                const int* incy) {
  tarn_blas_xdcopy(n, x, incx, y, incy);
}
