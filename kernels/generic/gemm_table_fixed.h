// The named pieces of the fixed GEMM driver of sse2 and cnr_sse2: clearing
// and scaling C, the copy of a transposed B into the tile layout, and the
// thin product. They are the shared driver's own routines (gemm_driver.h,
// gemm_pack.h) under the names the fixed driver gives them, so that the
// branch's xdgemm and these entries cannot drift apart.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set; the entries are written by the macro.
#pragma once

#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_table.h"
#include "kernels/generic/gemm_table_driver.h"

// The pieces of branch br over its tile record R.
#define TARN_GEMM_FIXED_PIECES(br, R)                                                          \
  extern "C" void tarn_blas_##br##_dgemm_zerom(const int* m, const int* n, double* c,          \
                                               const int* ldc) {                               \
    if (*m <= 0 || *n <= 0) return;                                                            \
    gemm_scale_c(*m, *n, 0.0, c, *ldc);                                                        \
  }                                                                                            \
  extern "C" void tarn_blas_##br##_dgemm_scalm(const int* m, const int* n, const double* beta, \
                                               double* c, const int* ldc) {                    \
    if (*m <= 0 || *n <= 0) return;                                                            \
    gemm_scale_c(*m, *n, *beta, c, *ldc);                                                      \
  }                                                                                            \
  extern "C" void tarn_blas_##br##_dgemm_copybt(const int* rows, const int* cols,              \
                                                const double* src, const int* ld,              \
                                                const double* mult, double* dst) {             \
    gemm_table_copy_b<R>(true, *rows, *cols, src, *ld, *mult, dst);                            \
  }                                                                                            \
  extern "C" void tarn_blas_##br##_dgemm_pst(                                                  \
      const char* transa, const char* transb, const int* m, const int* n, const int* k,        \
      const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,   \
      const double* beta, double* c, const int* ldc) {                                         \
    gemm_thin(gemm_is_trans(transa), gemm_is_trans(transb), *m, *n, gemm_max(*k, 0), *alpha,   \
              a, *lda, b, *ldb, *beta, c, *ldc);                                               \
  }
