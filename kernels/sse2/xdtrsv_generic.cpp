// sse2: the triangular solve with one right-hand side.
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/level2.h"

extern "C" void tarn_blas_sse2_xdtrsv(const char* uplo, const char* trans, const char* diag,
                                      const int* n, const double* a, const int* lda, double* x,
                                      const int* incx) {
  generic_xdtrsv(generic_upper(uplo), generic_upper(trans), generic_upper(diag), *n, a, *lda, x,
                 *incx);
}
