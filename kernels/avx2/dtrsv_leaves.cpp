// avx2: the eight leaves of the triangular solve, dtrsv_<uplo><trans><diag>,
// for the diagonal blocks of xdtrsv (and whole solves up to their order).
#include "kernels/generic/l2_dtrsv.h"
#include "kernels/generic/l2_entries.h"

extern "C" void tarn_blas_avx2_dtrsv_utu(const int* n, const double* a, const int* lda,
                                             double* x, const int* incx) {
  l2_dtrsv_leaf<false, true, true>(*n, a, *lda, x, *incx);
}

extern "C" void tarn_blas_avx2_dtrsv_utn(const int* n, const double* a, const int* lda,
                                             double* x, const int* incx) {
  l2_dtrsv_leaf<false, true, false>(*n, a, *lda, x, *incx);
}

extern "C" void tarn_blas_avx2_dtrsv_unu(const int* n, const double* a, const int* lda,
                                             double* x, const int* incx) {
  l2_dtrsv_leaf<false, false, true>(*n, a, *lda, x, *incx);
}

extern "C" void tarn_blas_avx2_dtrsv_unn(const int* n, const double* a, const int* lda,
                                             double* x, const int* incx) {
  l2_dtrsv_leaf<false, false, false>(*n, a, *lda, x, *incx);
}

extern "C" void tarn_blas_avx2_dtrsv_ltu(const int* n, const double* a, const int* lda,
                                             double* x, const int* incx) {
  l2_dtrsv_leaf<true, true, true>(*n, a, *lda, x, *incx);
}

extern "C" void tarn_blas_avx2_dtrsv_ltn(const int* n, const double* a, const int* lda,
                                             double* x, const int* incx) {
  l2_dtrsv_leaf<true, true, false>(*n, a, *lda, x, *incx);
}

extern "C" void tarn_blas_avx2_dtrsv_lnu(const int* n, const double* a, const int* lda,
                                             double* x, const int* incx) {
  l2_dtrsv_leaf<true, false, true>(*n, a, *lda, x, *incx);
}

extern "C" void tarn_blas_avx2_dtrsv_lnn(const int* n, const double* a, const int* lda,
                                             double* x, const int* incx) {
  l2_dtrsv_leaf<true, false, false>(*n, a, *lda, x, *incx);
}
