// The one-thread triangular solve of the avx branch and below: recursive
// left solves in blocks of 64 rows (dtrsm_lln_r and siblings) down to leaves
// of four rows, blocked right solves in steps of 256 columns (dtrsm_l1,
// dtrsm_l2, dtrsm_i), the branch's DGEMM for every update. Division is
// replaced by the reciprocal, taken once per row; a diagonal holding a
// denormal, whose reciprocal would overflow, sends the whole call to
// dtrsm_pst, which divides.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <cstddef>
#include <cstring>

#include "kernels/generic/trsm_frame.h"
#include "kernels/trsm_desc.h"

namespace {

constexpr int kTrsmLegacyLeftBlock = 64;     // left: order walked in blocks of this
constexpr int kTrsmLegacyLeaf = 16;          // left: recursion ends at this order
constexpr int kTrsmLegacyFour = 4;           // rows of a leaf step
constexpr int kTrsmLegacyRightBlock = 256;   // right: columns of a diagonal block
constexpr int kTrsmLegacyRightRows = 1024;   // right: rows of B per pass
constexpr int kTrsmLegacyVector = 16;        // values per step of the column loops
constexpr int kTrsmLegacyClearLong = 12;     // clearing: above this, one run per column
constexpr int kTrsmLegacyClearMid = 4;       // clearing: from this, four at a time

// B := 0 without reading it: one run per column for more than 12 rows, four
// values at a time from 4 to 12 rows, one at a time below.
inline void trsm_legacy_clear(int m, int n, double* b, int ldb) {
  // Loop over the columns of B, one at a time.
  for (int j = 0; j < n; ++j) {
    double* col = b + static_cast<ptrdiff_t>(j) * ldb;
    if (m > kTrsmLegacyClearLong) {
      std::memset(col, 0, sizeof(double) * static_cast<size_t>(m));
    } else if (m >= kTrsmLegacyClearMid) {
      int i = 0;
      for (; i + 4 <= m; i += 4) col[i] = col[i + 1] = col[i + 2] = col[i + 3] = 0.0;
      for (; i < m; ++i) col[i] = 0.0;
    } else {
      for (int i = 0; i < m; ++i) col[i] = 0.0;
    }
  }
}

// B := alpha*B, alpha neither 0 nor 1, column by column, 16 rows at a time.
inline void trsm_legacy_scale(int m, int n, double alpha, double* b, int ldb) {
  // Loop over the columns of B, one at a time.
  for (int j = 0; j < n; ++j) {
    double* col = b + static_cast<ptrdiff_t>(j) * ldb;
    int i = 0;
    for (; i + kTrsmLegacyVector <= m; i += kTrsmLegacyVector)
#pragma GCC unroll 16
      for (int v = 0; v < kTrsmLegacyVector; ++v) col[i + v] *= alpha;
    for (; i < m; ++i) col[i] *= alpha;
  }
}

// dtrsm_<..>_by_4_u and _by_4_a: the diagonal unit of at most four rows
// (rows [r0, r0+len)) of a left frame, for every right-hand side; Unit never
// reads the diagonal, the other form multiplies by the reciprocal.
template <bool Lower, bool Unit>
void trsm_legacy_by_4(const TrsmFrame& f, int r0, int len) {
  double l[kTrsmLegacyFour][kTrsmLegacyFour];
  double recip[kTrsmLegacyFour];
  for (int i = 0; i < len; ++i) {
    for (int c = 0; c < len; ++c) l[i][c] = (Lower ? c < i : c > i) ? f.at(r0 + i, r0 + c) : 0.0;
    recip[i] = Unit ? 1.0 : 1.0 / f.at(r0 + i, r0 + i);
  }
  // Loop over the right-hand sides, one column at a time.
  for (int j = 0; j < f.rhs; ++j) {
    double* x = f.bp(r0, j);
    for (int step = 0; step < len; ++step) {
      const int i = Lower ? step : len - 1 - step;
      double t = x[i];
      for (int c = 0; c < len; ++c) t -= l[i][c] * x[c];
      x[i] = Unit ? t : t * recip[i];
    }
  }
}

// dtrsm_<..>_4: rows [dst, dst+dst_len) of B' minus op'(A)(those rows, the
// solved unit [r0, r0+len)) times the unit's rows, for every right-hand side.
inline void trsm_legacy_apply_4(const TrsmFrame& f, int r0, int len, int dst, int dst_len) {
  // Loop over the right-hand sides, one column at a time.
  for (int j = 0; j < f.rhs; ++j) {
    const double* x = f.bp(r0, j);
    double* y = f.bp(dst, j);
    for (int c = 0; c < len; ++c) {
      const double t = x[c];
      for (int i = 0; i < dst_len; ++i) y[i] -= f.at(dst + i, r0 + c) * t;
    }
  }
}

// dtrsm_<..>_rec: a block of the left order, halved at multiples of four
// with a product between the halves, down to leaves of kTrsmLegacyLeaf
// rows, which go four rows at a time.
template <tarn_xdgemm_fn* Gemm, bool Lower, bool Unit>
void trsm_legacy_rec(const TrsmFrame& f) {
  const int s = f.order;
  if (s <= kTrsmLegacyLeaf) {
    // Loop over the leaf, four rows at a time, in solve order.
    for (int done = 0; done < s; done += kTrsmLegacyFour) {
      const int len = trsm_min(kTrsmLegacyFour, s - done);
      const int r0 = Lower ? done : s - done - len;
      trsm_legacy_by_4<Lower, Unit>(f, r0, len);
      if (Lower)
        trsm_legacy_apply_4(f, r0, len, r0 + len, s - r0 - len);
      else
        trsm_legacy_apply_4(f, r0, len, 0, r0);
    }
    return;
  }
  const int h = trsm_round_up(s / 2, kTrsmLegacyFour);
  const int first = Lower ? 0 : h, first_len = Lower ? h : s - h;
  const int second = Lower ? h : 0, second_len = s - first_len;
  trsm_legacy_rec<Gemm, Lower, Unit>(trsm_sub_frame(f, first, first_len, 0, f.rhs));
  trsm_update<Gemm>(f, second, second_len, first, first_len);
  trsm_legacy_rec<Gemm, Lower, Unit>(trsm_sub_frame(f, second, second_len, 0, f.rhs));
}

// dtrsm_<..>_r: the left order in blocks of kTrsmLegacyLeftBlock in solve
// order (the upper forms from the end), each solved by the recursion and
// applied to the rest of B by one product.
template <tarn_xdgemm_fn* Gemm, bool Lower>
void trsm_legacy_left(const TrsmFrame& f) {
  const int s = f.order;
  // Loop over the order, kTrsmLegacyLeftBlock rows at a time, in solve order.
  for (int done = 0; done < s; done += kTrsmLegacyLeftBlock) {
    const int len = trsm_min(kTrsmLegacyLeftBlock, s - done);
    const int r0 = Lower ? done : s - done - len;
    const TrsmFrame blk = trsm_sub_frame(f, r0, len, 0, f.rhs);
    if (f.unit)
      trsm_legacy_rec<Gemm, Lower, true>(blk);
    else
      trsm_legacy_rec<Gemm, Lower, false>(blk);
    if (Lower)
      trsm_update<Gemm>(f, r0 + len, s - r0 - len, r0, len);
    else
      trsm_update<Gemm>(f, 0, r0, r0, len);
  }
}

// The four left cases by name: op(A) = A or A', A lower or upper.
template <tarn_xdgemm_fn* Gemm>
void dtrsm_lln_r(const TrsmFrame& f) { trsm_legacy_left<Gemm, true>(f); }
template <tarn_xdgemm_fn* Gemm>
void dtrsm_llt_r(const TrsmFrame& f) { trsm_legacy_left<Gemm, false>(f); }
template <tarn_xdgemm_fn* Gemm>
void dtrsm_lun_r(const TrsmFrame& f) { trsm_legacy_left<Gemm, false>(f); }
template <tarn_xdgemm_fn* Gemm>
void dtrsm_lut_r(const TrsmFrame& f) { trsm_legacy_left<Gemm, true>(f); }

// dtrsm_l2: y -= t*x over a column of B, 16 values at a time.
inline void dtrsm_l2(int m, double t, const double* __restrict x, double* __restrict y) {
  int i = 0;
  for (; i + kTrsmLegacyVector <= m; i += kTrsmLegacyVector)
#pragma GCC unroll 16
    for (int v = 0; v < kTrsmLegacyVector; ++v) y[i + v] -= t * x[i + v];
  for (; i < m; ++i) y[i] -= t * x[i];
}

// dtrsm_i: a column of B times the reciprocal of its diagonal value, taken
// once, 16 values at a time.
inline void dtrsm_i(int m, double d, double* y) {
  const double r = 1.0 / d;
  int i = 0;
  for (; i + kTrsmLegacyVector <= m; i += kTrsmLegacyVector)
#pragma GCC unroll 16
    for (int v = 0; v < kTrsmLegacyVector; ++v) y[i + v] *= r;
  for (; i < m; ++i) y[i] *= r;
}

// dtrsm_l1: a diagonal block of a right frame (frame rows are columns of B),
// column by column in solve order: the columns solved before it subtracted,
// then the reciprocal.
inline void dtrsm_l1(const TrsmFrame& f) {
  const int s = f.order, m = f.rhs;
  // Loop over the block's columns of B, in solve order.
  for (int step = 0; step < s; ++step) {
    const int i = f.lower ? step : s - 1 - step;
    double* y = f.bp(i, 0);
    const int k0 = f.lower ? 0 : i + 1, k1 = f.lower ? i : s;
    for (int k = k0; k < k1; ++k) dtrsm_l2(m, f.at(i, k), f.bp(k, 0), y);
    if (!f.unit) dtrsm_i(m, f.at(i, i), y);
  }
}

// The right side: passes of at most kTrsmLegacyRightRows rows of B, each
// walking the columns in blocks of kTrsmLegacyRightBlock in solve order.
template <tarn_xdgemm_fn* Gemm>
void trsm_legacy_right(const TrsmFrame& f) {
  const int s = f.order;
  // Loop over the rows of B, kTrsmLegacyRightRows at a time.
  for (int c0 = 0; c0 < f.rhs; c0 += kTrsmLegacyRightRows) {
    const TrsmFrame pass = trsm_sub_frame(f, 0, s, c0, trsm_min(kTrsmLegacyRightRows, f.rhs - c0));
    // Loop over the columns of B, kTrsmLegacyRightBlock at a time, in solve order.
    for (int done = 0; done < s; done += kTrsmLegacyRightBlock) {
      const int len = trsm_min(kTrsmLegacyRightBlock, s - done);
      const int r0 = pass.lower ? done : s - done - len;
      dtrsm_l1(trsm_sub_frame(pass, r0, len, 0, pass.rhs));
      if (pass.lower)
        trsm_update<Gemm>(pass, r0 + len, s - r0 - len, r0, len);
      else
        trsm_update<Gemm>(pass, 0, r0, r0, len);
    }
  }
}

// xdtrsm of the avx branch and below.
template <tarn_xdgemm_fn* Gemm, tarn_xdtrsm_fn* Pst, tarn_dtrsm_has_denormal_fn* HasDenormal>
void xdtrsm_legacy_impl(const char* side, const char* uplo, const char* transa, const char* diag,
                        const int* m, const int* n, const double* alpha, const double* a,
                        const int* lda, double* b, const int* ldb) {
  if (*n <= 0 || *m <= 0) return;
  // Alpha 0 is served before the diagonal test, so that A is not read at
  // all: the result is the same either way.
  if (*alpha == 0.0) {
    trsm_legacy_clear(*m, *n, b, *ldb);
    return;
  }
  const TrsmFrame f = trsm_make_frame(trsm_fold(side), trsm_fold(uplo), trsm_fold(transa),
                                      trsm_fold(diag), *m, *n, a, *lda, b, *ldb);
  const int stride = *lda + 1;
  if (!f.unit && HasDenormal(&f.order, a, &stride)) {
    Pst(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
    return;
  }
  if (*alpha != 1.0) trsm_legacy_scale(*m, *n, *alpha, b, *ldb);
  if (f.right) {
    trsm_legacy_right<Gemm>(f);
    return;
  }
  if (!f.ta) {
    if (f.lower)
      dtrsm_lln_r<Gemm>(f);
    else
      dtrsm_lun_r<Gemm>(f);
  } else {
    // op(A) = A': A upper makes a lower op(A).
    if (f.lower)
      dtrsm_lut_r<Gemm>(f);
    else
      dtrsm_llt_r<Gemm>(f);
  }
}

}  // namespace

// The entry of a branch of sse2 to avx, kernels/<br>/xdtrsm.cpp: recursive
// left solves and blocked right solves on the branch's DGEMM, reciprocals in
// place of division unless the diagonal holds a denormal.
#define TARN_XDTRSM_LEGACY_ENTRY(br)                                                          \
  extern "C" void tarn_blas_##br##_xdtrsm(                                                    \
      const char* side, const char* uplo, const char* transa, const char* diag, const int* m, \
      const int* n, const double* alpha, const double* a, const int* lda, double* b,          \
      const int* ldb) {                                                                       \
    xdtrsm_legacy_impl<tarn_blas_##br##_xdgemm, tarn_blas_##br##_dtrsm_pst,                   \
                       tarn_blas_##br##_dtrsm_has_denormal>(side, uplo, transa, diag, m, n,   \
                                                            alpha, a, lda, b, ldb);           \
    trsm_leave_wide_registers();                                                              \
  }
