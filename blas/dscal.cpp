// Front of x := alpha*x.
//
// Seam: the split of long vectors across threads comes in front of the call
// below; until then every call runs the dispatched kernel straight.
#include "blas/blas.h"

extern "C" void tarn_blas_dscal(const int* n, const double* alpha, double* x, const int* incx) {
  tarn_blas_xdscal(n, alpha, x, incx);
}
