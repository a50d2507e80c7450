// Products with two or three columns, straight from the operands: every
// column of A (or row of op(A)) is read once for all columns of C, where the
// thin path would read it once per column.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include "kernels/generic/gemm_driver.h"

namespace {

// 'T','N' with N columns (2 or 3): each C(i, j) is a dot product of column i
// of A with column j of B; the N dot products of one i share the pass over A.
template <int N>
void gemm_t_smalln(int m, int k, double alpha, const double* a, int lda, const double* b,
                   int ldb, double beta, double* c, int ldc) {
  if (alpha == 0.0) {
    gemm_scale_c(m, N, beta, c, ldc);
    return;
  }
  // Loop over the rows of C, one at a time.
  for (int i = 0; i < m; ++i) {
    const double* ai = a + (ptrdiff_t)i * lda;
    double s[N] = {};
    for (int p = 0; p < k; ++p)
#pragma GCC unroll 4
      for (int j = 0; j < N; ++j) s[j] += ai[p] * b[p + (ptrdiff_t)j * ldb];
#pragma GCC unroll 4
    for (int j = 0; j < N; ++j) {
      double& cij = c[i + (ptrdiff_t)j * ldc];
      cij = beta == 0.0 ? alpha * s[j] : alpha * s[j] + beta * cij;
    }
  }
}

// 'N','N' with N columns (2): the columns of A are added into both columns
// of C at once.
template <int N>
void gemm_n_smalln(int m, int k, double alpha, const double* a, int lda, const double* b,
                   int ldb, double beta, double* c, int ldc) {
  gemm_scale_c(m, N, beta, c, ldc);
  if (alpha == 0.0) return;
  // Loop over the depth, one column of A at a time.
  for (int p = 0; p < k; ++p) {
    const double* ap = a + (ptrdiff_t)p * lda;
    double t[N];
#pragma GCC unroll 4
    for (int j = 0; j < N; ++j) t[j] = alpha * b[p + (ptrdiff_t)j * ldb];
    for (int i = 0; i < m; ++i)
#pragma GCC unroll 4
      for (int j = 0; j < N; ++j) c[i + (ptrdiff_t)j * ldc] += t[j] * ap[i];
  }
}

}  // namespace
