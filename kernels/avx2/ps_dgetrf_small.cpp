// avx2: the small-matrix LU.
// The branch-generic steps, compiled with this branch's instruction set.
#include "kernels/generic/ps_dgetrf_small.h"

#include "lapack/ps_small.h"

extern "C" void tarn_lapack_ps_avx2_dgetrf_small(const int* m, const int* n, double* a,
                                                 const int* lda, int* ipiv, int* info) {
  ps_dgetrf_small(*m, *n, a, *lda, ipiv, info);
}
