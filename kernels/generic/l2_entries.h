// The level-2 entries of every branch beyond the dispatched ones (those are
// in kernels/kernels.h): the fixed-order matrix-vector product that a
// reproducibility mode runs, and the eight leaves of the triangular solve.
// Arguments by reference, as every kernel entry.
#pragma once

#include "kernels/kernels.h"

// One leaf: op(A)*x = b for a triangle A of order *n, x overwriting b.
typedef void tarn_dtrsv_leaf_fn(const int* n, const double* a, const int* lda, double* x,
                                const int* incx);

#define TARN_L2_BRANCH_ENTRIES(br)                                                      \
  tarn_xdgemv_fn tarn_blas_##br##_xdgemv_cnr;                                          \
  tarn_dtrsv_leaf_fn tarn_blas_##br##_dtrsv_utu, tarn_blas_##br##_dtrsv_utn,            \
      tarn_blas_##br##_dtrsv_unu, tarn_blas_##br##_dtrsv_unn, tarn_blas_##br##_dtrsv_ltu, \
      tarn_blas_##br##_dtrsv_ltn, tarn_blas_##br##_dtrsv_lnu, tarn_blas_##br##_dtrsv_lnn;

extern "C" {
TARN_L2_BRANCH_ENTRIES(sse2)
TARN_L2_BRANCH_ENTRIES(cnr_sse2)
TARN_L2_BRANCH_ENTRIES(ssse3)
TARN_L2_BRANCH_ENTRIES(sse42)
TARN_L2_BRANCH_ENTRIES(avx)
TARN_L2_BRANCH_ENTRIES(avx2)
TARN_L2_BRANCH_ENTRIES(avx512)
}  // extern "C"

#undef TARN_L2_BRANCH_ENTRIES
