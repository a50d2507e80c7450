// sse2: dtrsm_pst, the solve with no packing and true division (the path of
// a diagonal that holds a denormal), on this branch's DGEMM.
#include "kernels/generic/trsm_frame.h"
#include "kernels/trsm_desc.h"

extern "C" void tarn_blas_sse2_dtrsm_pst(const char* side, const char* uplo, const char* transa,
                                         const char* diag, const int* m, const int* n,
                                         const double* alpha, const double* a, const int* lda,
                                         double* b, const int* ldb) {
  dtrsm_pst_impl<tarn_blas_sse2_xdgemm>(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}
