// avx512: the one-thread triangular solve, with this branch's DGEMM for the updates.
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/kernels.h"
#include "kernels/generic/xdtrsm.h"

extern "C" void tarn_blas_avx512_xdtrsm(const char* side, const char* uplo, const char* transa,
                                        const char* diag, const int* m, const int* n,
                                        const double* alpha, const double* a, const int* lda,
                                        double* b, const int* ldb) {
  generic_xdtrsm<tarn_blas_avx512_xdgemm>(generic_upper(side), generic_upper(uplo),
                                          generic_upper(transa), generic_upper(diag), *m, *n, *alpha, a,
                                          *lda, b, *ldb);
}
