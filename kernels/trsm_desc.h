// Entries of the triangular solve of every branch beyond the dispatched
// xdtrsm (which kernels/kernels.h declares): the narrow solve of the
// descriptor branches, the unpacked solves, and the diagonal test of the
// older branches. Tests reach each path through these directly.
#pragma once

#include "kernels/kernels.h"

extern "C" {

// The solve with no packing and true division; alpha applied here.
typedef tarn_xdtrsm_fn tarn_dtrsm_pst_fn;
// The same on a B already multiplied by alpha (the fallback of a solve whose
// buffer could not be had).
typedef void tarn_dtrsm_nobuf_fn(const char* side, const char* uplo, const char* transa,
                                 const char* diag, const int* m, const int* n, const double* a,
                                 const int* lda, double* b, const int* ldb);
// 1 when any of count values, stride apart, is denormal; else 0.
typedef int tarn_dtrsm_has_denormal_fn(const int* count, const double* a, const int* stride);

// Narrow solve with its own buffer (avx2, avx512).
tarn_xdtrsm_fn tarn_blas_avx2_xdtrsm_v1, tarn_blas_avx512_xdtrsm_v1;

tarn_dtrsm_pst_fn tarn_blas_sse2_dtrsm_pst, tarn_blas_cnr_sse2_dtrsm_pst, tarn_blas_ssse3_dtrsm_pst,
    tarn_blas_sse42_dtrsm_pst, tarn_blas_avx_dtrsm_pst, tarn_blas_avx2_dtrsm_pst,
    tarn_blas_avx512_dtrsm_pst;
tarn_dtrsm_nobuf_fn tarn_blas_sse2_dtrsm_nobuf, tarn_blas_cnr_sse2_dtrsm_nobuf,
    tarn_blas_ssse3_dtrsm_nobuf, tarn_blas_sse42_dtrsm_nobuf, tarn_blas_avx_dtrsm_nobuf,
    tarn_blas_avx2_dtrsm_nobuf, tarn_blas_avx512_dtrsm_nobuf;
// The older branches only (sse2 to avx).
tarn_dtrsm_has_denormal_fn tarn_blas_sse2_dtrsm_has_denormal, tarn_blas_cnr_sse2_dtrsm_has_denormal,
    tarn_blas_ssse3_dtrsm_has_denormal, tarn_blas_sse42_dtrsm_has_denormal,
    tarn_blas_avx_dtrsm_has_denormal;

}  // extern "C"
