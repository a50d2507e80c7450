// cnr_sse2: op(A)*x = b for a triangular A, blocked over this branch's leaves.
#include "kernels/kernels.h"
#include "kernels/generic/l2_dtrsv.h"
#include "kernels/generic/l2_entries.h"

namespace {

const L2DtrsvLeaves kLeaves = {{tarn_blas_cnr_sse2_dtrsv_utu, tarn_blas_cnr_sse2_dtrsv_utn,
                                tarn_blas_cnr_sse2_dtrsv_unu, tarn_blas_cnr_sse2_dtrsv_unn,
                                tarn_blas_cnr_sse2_dtrsv_ltu, tarn_blas_cnr_sse2_dtrsv_ltn,
                                tarn_blas_cnr_sse2_dtrsv_lnu, tarn_blas_cnr_sse2_dtrsv_lnn}};

}  // namespace

extern "C" void tarn_blas_cnr_sse2_xdtrsv(const char* uplo, const char* trans, const char* diag,
                                       const int* n, const double* a, const int* lda, double* x,
                                       const int* incx) {
  l2_xdtrsv(l12_upper(uplo), l12_upper(trans), l12_upper(diag), *n, a, *lda, x, *incx, kLeaves);
}
