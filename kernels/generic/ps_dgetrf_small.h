// Branch-generic small-matrix LU, compiled into each branch by
// kernels/<branch>/ps_dgetrf_small.cpp with that branch's instruction set.
//
// The steps are those of tarn_lapack_dgetf2 (pivot rule, exchange over all
// columns, reciprocal or division by the safe minimum, zero pivot noted once
// and the elimination continued), laid out right-looking: step j pivots and
// scales column j and subtracts its rank-one product from the trailing
// block. Every element thus receives the same products in the same order as
// in the left-looking form, so the two agree up to rounding.
//
// Square orders 1 to 7 run fully unrolled: the order is a template argument,
// every loop bound is a constant and the compiler peels the loops completely.
// Every other shape up to 16 runs the same steps with run-time bounds.
//
// Inside an anonymous namespace: each branch's translation unit gets its own
// copy, so no other unit can end up calling a copy built for a higher branch.
#pragma once

#include <cstddef>

#include "lapack/lapack.h"

namespace {

// Largest square order with a fully unrolled version of its own.
constexpr int kPsUnrolledMaxOrder = 7;

// 0-based row index in [from, m) of the pivot of `col`: the first NaN if there
// is one, else the first element of largest magnitude. Only quiet compares
// are made, so a NaN raises no flag.
template <int kRows>
__attribute__((always_inline)) inline int ps_pivot_row(const double* col, int from, int m_in) {
  const int m = kRows > 0 ? kRows : m_in;
  double best = __builtin_fabs(col[from]);
  if (__builtin_isnan(best)) return from;
  int p = from;
  // down column j from the row below the diagonal, one element at a time
  for (int i = from + 1; i < m; ++i) {
    const double v = __builtin_fabs(col[i]);
    if (__builtin_isnan(v)) return i;
    if (__builtin_isgreater(v, best)) {
      best = v;
      p = i;
    }
  }
  return p;
}

// The factorization itself. kOrder > 0: a square matrix of that order, the
// run-time shape ignored; kOrder == 0: an m by n matrix.
template <int kOrder>
__attribute__((always_inline)) inline void ps_getrf_steps(int m_in, int n_in, double* a, int lda,
                                                          int* ipiv, int* info) {
  const int m = kOrder > 0 ? kOrder : m_in;
  const int n = kOrder > 0 ? kOrder : n_in;
  const int mn = m < n ? m : n;
  const double sfmin = tarn_lapack_dlamch("S");
  int first_zero = 0;

  // loop over the diagonal, one column of L and one row of U per step
  for (int j = 0; j < mn; ++j) {
    double* cj = a + static_cast<std::ptrdiff_t>(j) * lda;
    const int p = ps_pivot_row<kOrder>(cj, j, m);
    ipiv[j] = p + 1;

    if (cj[p] != 0.0) {  // a NaN pivot counts as non-zero
      if (p != j) {
        // across all n columns: exchange rows j and p
        for (int k = 0; k < n; ++k) {
          double* ck = a + static_cast<std::ptrdiff_t>(k) * lda;
          const double t = ck[j];
          ck[j] = ck[p];
          ck[p] = t;
        }
      }
      const double d = cj[j];
      if (__builtin_fabs(d) >= sfmin) {
        const double r = 1.0 / d;
        // down column j below the diagonal: scale by the reciprocal
        for (int i = j + 1; i < m; ++i) cj[i] *= r;
      } else {
        // 1/d would overflow: divide one by one instead
        for (int i = j + 1; i < m; ++i) cj[i] /= d;
      }
    } else if (first_zero == 0) {
      first_zero = j + 1;
    }

    // across the columns right of j: subtract column j times row j
    for (int k = j + 1; k < n; ++k) {
      double* ck = a + static_cast<std::ptrdiff_t>(k) * lda;
      const double u = ck[j];
      // down the rows below the diagonal
      for (int i = j + 1; i < m; ++i) ck[i] -= cj[i] * u;
    }
  }
  *info = first_zero;
}

template <int kOrder>
__attribute__((noinline)) void ps_getrf_unrolled(double* a, int lda, int* ipiv, int* info) {
  ps_getrf_steps<kOrder>(kOrder, kOrder, a, lda, ipiv, info);
}

inline __attribute__((noinline)) void ps_getrf_general(int m, int n, double* a, int lda, int* ipiv,
                                                int* info) {
  ps_getrf_steps<0>(m, n, a, lda, ipiv, info);
}

// The whole member: a jump on the order for the unrolled square matrices,
// the general loop for every other shape.
inline void ps_dgetrf_small(int m, int n, double* a, int lda, int* ipiv, int* info) {
  if (m == n) {
    switch (n) {
      case 1:
        // Nothing to search or scale: the pivot is the element itself.
        ipiv[0] = 1;
        *info = a[0] == 0.0 ? 1 : 0;
        return;
      case 2: return ps_getrf_unrolled<2>(a, lda, ipiv, info);
      case 3: return ps_getrf_unrolled<3>(a, lda, ipiv, info);
      case 4: return ps_getrf_unrolled<4>(a, lda, ipiv, info);
      case 5: return ps_getrf_unrolled<5>(a, lda, ipiv, info);
      case 6: return ps_getrf_unrolled<6>(a, lda, ipiv, info);
      case kPsUnrolledMaxOrder: return ps_getrf_unrolled<kPsUnrolledMaxOrder>(a, lda, ipiv, info);
      default: break;
    }
  }
  if (m < 1 || n < 1) {
    *info = 0;
    return;
  }
  ps_getrf_general(m, n, a, lda, ipiv, info);
}

}  // namespace
