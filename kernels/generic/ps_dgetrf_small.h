// Branch-generic small-matrix LU, compiled into each branch by
// kernels/<branch>/ps_dgetrf_small.cpp with that branch's instruction set.
//
// The steps are those of tarn_lapack_dgetf2 (pivot rule, exchange over all
// columns, reciprocal or division by the safe minimum, zero pivot noted once
// and the elimination continued), laid out right-looking: step j pivots and
// scales column j and subtracts its rank-one product from the trailing
// block. Every element thus receives the same products as in the
// left-looking form, summed in another order, so the two agree up to
// rounding.
//
// The matrix is copied into a block on the stack whose columns have room for
// one vector beyond the last row. The column operations then run in whole
// vectors from the row below the diagonal and may spill into that room, so
// there is no scalar tail; what lands there is never copied back. The vectors
// are written out explicitly and the compiler's own vectorizer is kept off:
// on these short columns it mixed scalar stores with wider reloads of the
// same bytes, and the failed store forwarding cost more than the arithmetic.
// Measured here (one thread, avx2 member, copy of the matrix excluded): the
// in-place form with the compiler's vectors took 83 ns for order 4, 253 ns
// for order 7 and 1.42 us for order 16; this form takes 61 ns, 128 ns and
// 0.83 us, against 0.65, 1.27 and 3.96 us for the general road.
//
// Square orders 1 to 7 run fully unrolled: the order is a template argument,
// every step is instantiated by its index and every loop bound is a constant.
// Every other shape up to 16 runs the same steps with run-time bounds.
//
// Inside an anonymous namespace: each branch's translation unit gets its own
// copy, so no other unit can end up calling a copy built for a higher branch.
#pragma once

#include <cstddef>

#include "lapack/lapack.h"
#include "lapack/ps_small.h"

namespace {

// Largest square order with a fully unrolled version of its own, and the
// largest m and n of the path.
constexpr int kPsUnrolledMaxOrder = 7;
constexpr int kPsMaxOrder = 16;

// The widest vector of the branch being compiled.
#if defined(__AVX512F__)
constexpr int kPsWidth = 8;
#elif defined(__AVX__)
constexpr int kPsWidth = 4;
#else
constexpr int kPsWidth = 2;
#endif

// The compiler's own vectorizer stays off in this family (see above).
#ifndef TARN_PS_NOVEC
#define TARN_PS_NOVEC __attribute__((optimize("no-tree-vectorize")))
#endif

// kPsWidth doubles at any 8-byte boundary, read and written in place of the
// doubles themselves. (Copying through memcpy instead made the avx member
// bounce every 256-bit access through the stack in two halves.)
typedef double PsVec __attribute__((vector_size(kPsWidth * sizeof(double)), aligned(8), may_alias));

TARN_PS_NOVEC __attribute__((always_inline)) inline PsVec ps_load(const double* p) {
  return *reinterpret_cast<const PsVec*>(p);
}
TARN_PS_NOVEC __attribute__((always_inline)) inline void ps_store(double* p, PsVec v) {
  *reinterpret_cast<PsVec*>(p) = v;
}

// Rows of one column of the stack block: room for a whole vector started on
// the last row.
constexpr int ps_block_ld(int rows) { return rows + kPsWidth; }

// 0-based row index in [from, m) of the pivot of `col`: the first NaN if there
// is one, else the first element of largest magnitude. Only quiet compares are
// made on a NaN, so it raises no flag.
template <int kRows>
TARN_PS_NOVEC __attribute__((always_inline)) inline int ps_pivot_row(const double* col, int from,
                                                                     int m_in) {
  const int m = kRows > 0 ? kRows : m_in;
  double best = __builtin_fabs(col[from]);
  if (__builtin_isnan(best)) return from;
  int p = from;
  // down the column from the row below the diagonal
  for (int i = from + 1; i < m; ++i) {
    const double v = __builtin_fabs(col[i]);
    if (__builtin_isnan(v)) return i;
    p = v > best ? i : p;
    best = v > best ? v : best;  // neither is a NaN here
  }
  return p;
}

// Step j on the stack block t (leading dimension kLd) of an m by n matrix.
template <int kRows, int kLd>
TARN_PS_NOVEC __attribute__((always_inline)) inline void ps_step(int j, int m, int n, double* t,
                                                                 int* ipiv, int* first_zero,
                                                                 double sfmin) {
  double* cj = t + j * kLd;
  const int p = ps_pivot_row<kRows>(cj, j, m);
  ipiv[j] = p + 1;
  // Vectors that cover the rows below the diagonal, from row j + 1.
  const int nvec = (m - j - 1 + kPsWidth - 1) / kPsWidth;

  if (cj[p] != 0.0) {  // a NaN pivot counts as non-zero
    if (p != j) {
      // across all n columns: exchange rows j and p
      for (int k = 0; k < n; ++k) {
        double* ck = t + k * kLd;
        const double s = ck[j];
        ck[j] = ck[p];
        ck[p] = s;
      }
    }
    const double d = cj[j];
    if (__builtin_isgreaterequal(__builtin_fabs(d), sfmin)) {
      const double r = 1.0 / d;
      // down column j below the diagonal, a vector at a time: scale
      for (int v = 0; v < nvec; ++v) {
        double* x = cj + j + 1 + v * kPsWidth;
        ps_store(x, ps_load(x) * r);
      }
    } else {
      // 1/d would overflow: divide instead
      for (int v = 0; v < nvec; ++v) {
        double* x = cj + j + 1 + v * kPsWidth;
        ps_store(x, ps_load(x) / d);
      }
    }
  } else if (*first_zero == 0) {
    *first_zero = j + 1;
  }

  // across the columns right of j: subtract column j times row j
  for (int k = j + 1; k < n; ++k) {
    double* ck = t + k * kLd;
    const double u = ck[j];
    // down the rows below the diagonal, a vector at a time
    for (int v = 0; v < nvec; ++v) {
      const int i = j + 1 + v * kPsWidth;
      ps_store(ck + i, ps_load(ck + i) - ps_load(cj + i) * u);
    }
  }
}

// Copies the m by n matrix a into the block t and zeroes the room below each
// column, so that the vectors that reach into it start from finite values.
template <int kLd>
TARN_PS_NOVEC __attribute__((always_inline)) inline void ps_copy_in(int m, int n, const double* a,
                                                                    int lda, double* t) {
  // over the columns
  for (int k = 0; k < n; ++k) {
    const double* src = a + static_cast<std::ptrdiff_t>(k) * lda;
    double* dst = t + k * kLd;
    int i = 0;
    // down the rows: whole vectors, then one by one
    for (; i + kPsWidth <= m; i += kPsWidth) ps_store(dst + i, ps_load(src + i));
    for (; i < m; ++i) dst[i] = src[i];
    ps_store(dst + m, PsVec{});
  }
}

template <int kLd>
TARN_PS_NOVEC __attribute__((always_inline)) inline void ps_copy_out(int m, int n, const double* t,
                                                                     double* a, int lda) {
  // over the columns
  for (int k = 0; k < n; ++k) {
    const double* src = t + k * kLd;
    double* dst = a + static_cast<std::ptrdiff_t>(k) * lda;
    int i = 0;
    // down the rows: whole vectors, then one by one
    for (; i + kPsWidth <= m; i += kPsWidth) ps_store(dst + i, ps_load(src + i));
    for (; i < m; ++i) dst[i] = src[i];
  }
}

// Steps J to kOrder - 1 of a square matrix, each with its index fixed.
template <int kOrder, int J>
TARN_PS_NOVEC __attribute__((always_inline)) inline void ps_fixed_steps(double* t, int* ipiv,
                                                                        int* first_zero,
                                                                        double sfmin) {
  if constexpr (J < kOrder) {
    ps_step<kOrder, ps_block_ld(kOrder)>(J, kOrder, kOrder, t, ipiv, first_zero, sfmin);
    ps_fixed_steps<kOrder, J + 1>(t, ipiv, first_zero, sfmin);
  }
}

template <int kOrder>
TARN_PS_NOVEC __attribute__((noinline)) void ps_getrf_unrolled(double* a, int lda, int* ipiv,
                                                               int* info) {
  constexpr int kLd = ps_block_ld(kOrder);
  alignas(64) double t[kOrder * kLd];
  const double sfmin = tarn_lapack_dlamch("S");
  int first_zero = 0;
  ps_copy_in<kLd>(kOrder, kOrder, a, lda, t);
  ps_fixed_steps<kOrder, 0>(t, ipiv, &first_zero, sfmin);
  ps_copy_out<kLd>(kOrder, kOrder, t, a, lda);
  *info = first_zero;
}

TARN_PS_NOVEC inline __attribute__((noinline)) void ps_getrf_general(int m, int n, double* a,
                                                                     int lda, int* ipiv,
                                                                     int* info) {
  constexpr int kLd = ps_block_ld(kPsMaxOrder);
  alignas(64) double t[kPsMaxOrder * kLd];
  const double sfmin = tarn_lapack_dlamch("S");
  int first_zero = 0;
  const int mn = m < n ? m : n;
  ps_copy_in<kLd>(m, n, a, lda, t);
  // loop over the diagonal, one column of L and one row of U per step
  for (int j = 0; j < mn; ++j) ps_step<0, kLd>(j, m, n, t, ipiv, &first_zero, sfmin);
  ps_copy_out<kLd>(m, n, t, a, lda);
  *info = first_zero;
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
  if (m > kPsMaxOrder || n > kPsMaxOrder) {
    // Never entered from the solver; a direct caller still gets the result.
    tarn_lapack_dgetf2(&m, &n, a, &lda, ipiv, info);
    return;
  }
  ps_getrf_general(m, n, a, lda, ipiv, info);
}

}  // namespace

// The entry of a branch, kernels/<br>/ps_dgetrf_small.cpp: the steps above,
// compiled with the branch's instruction set.
#define TARN_PS_DGETRF_SMALL_ENTRY(br)                                                       \
  extern "C" void tarn_lapack_ps_##br##_dgetrf_small(const int* m, const int* n, double* a,  \
                                                     const int* lda, int* ipiv, int* info) { \
    ps_dgetrf_small(*m, *n, a, *lda, ipiv, info);                                            \
  }
