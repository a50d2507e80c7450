// avx512: the small-matrix solve.
// The branch-generic steps, compiled with this branch's instruction set.
#include "kernels/generic/ps_dgetrs_small.h"

#include "lapack/ps_small.h"

extern "C" void tarn_lapack_ps_avx512_dgetrs_small(const char* trans, const int* n, const int* nrhs,
                                                   const double* a, const int* lda, const int* ipiv,
                                                   double* b, const int* ldb, int* info,
                                                   const int*) {
  ps_dgetrs_small(*trans, *n, *nrhs, a, *lda, ipiv, b, *ldb, info);
}
