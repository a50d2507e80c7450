// The column walk of the row interchanges, shared by the one-thread form
// and the threaded form's microtask.
//
// Pivots are taken four at a time: the four of a group are loaded and all
// checked before any of their exchanges is made; the remaining 0 to 3 are
// checked one by one. Exchanges within a column keep the plain sequential
// order, so the grouping shows only in where a bad pivot stops the work.
#pragma once

#include <cstddef>

namespace tarn_lapack_laswp {

// Argument position of ipiv, reported for a pivot outside 1..lda.
inline constexpr int kPivotPosition = 6;
inline constexpr char kRoutine[] = "DLASWP";
inline constexpr int kRoutineLen = 6;
inline constexpr int kGroup = 4;

inline bool pivot_ok(int p, int lda) { return p >= 1 && p <= lda; }

inline void exchange(double* col, int i, int p) {
  const double t = col[i - 1];
  col[i - 1] = col[p - 1];
  col[p - 1] = t;
}

// One column: `count` exchanges of rows i0, i0 + kDir, ... with the pivots
// at piv[0], piv[s], ... (s = kFixedStride, or `stride` when that is 0).
// Returns false at the first bad pivot, with the exchanges before its group
// made.
template <int kFixedStride, int kDir>
bool walk_column(double* col, int lda, int i0, int count, const int* piv, int stride) {
  const std::ptrdiff_t s = kFixedStride != 0 ? kFixedStride : stride;
  const int grouped = count / kGroup * kGroup;
  int i = i0;
  int t = 0;
  // loop over the pivots, four at a time, all four checked first
  for (; t < grouped; t += kGroup, piv += kGroup * s) {
    const int p0 = piv[0];
    const int p1 = piv[s];
    const int p2 = piv[2 * s];
    const int p3 = piv[3 * s];
    if (!pivot_ok(p0, lda) || !pivot_ok(p1, lda) || !pivot_ok(p2, lda) || !pivot_ok(p3, lda))
      return false;
    exchange(col, i, p0);
    exchange(col, i + kDir, p1);
    exchange(col, i + 2 * kDir, p2);
    exchange(col, i + 3 * kDir, p3);
    i += kGroup * kDir;
  }
  // loop over the remaining 0 to 3 pivots, one at a time
  for (; t < count; ++t, piv += s, i += kDir) {
    const int p = *piv;
    if (!pivot_ok(p, lda)) return false;
    exchange(col, i, p);
  }
  return true;
}

template <int kFixedStride, int kDir>
bool walk_columns(double* a, int lda, int c0, int c1, int i0, int count, const int* piv,
                  int stride) {
  // loop over the columns, one at a time, each walked top to bottom once
  for (int c = c0; c < c1; ++c)
    if (!walk_column<kFixedStride, kDir>(a + static_cast<std::ptrdiff_t>(c) * lda, lda, i0,
                                         count, piv, stride))
      return false;
  return true;
}

// Columns c0 to c1 - 1 (0-based) of a, pivots k1..k2 with step incx
// (LAPACK's indexing: rows upward from k1 with pivots from ipiv(k1) for
// incx > 0; rows downward from k2 with pivots from ipiv(1 + (1 - k2) * incx)
// stepping back by |incx| for incx < 0). Returns false after a bad pivot;
// incx 0 does nothing.
inline bool laswp_columns(double* a, int lda, int c0, int c1, int k1, int k2, const int* ipiv,
                          int incx) {
  const int count = k2 - k1 + 1;
  if (count <= 0 || c0 >= c1 || incx == 0) return true;
  if (incx == 1)
    return walk_columns<1, +1>(a, lda, c0, c1, k1, count, ipiv + (k1 - 1), 1);
  if (incx > 1)
    return walk_columns<0, +1>(a, lda, c0, c1, k1, count,
                               ipiv + static_cast<std::ptrdiff_t>(k1 - 1), incx);
  const std::ptrdiff_t ix0 = 1 + static_cast<std::ptrdiff_t>(1 - k2) * incx;
  return walk_columns<0, -1>(a, lda, c0, c1, k2, count, ipiv + (ix0 - 1), incx);
}

}  // namespace tarn_lapack_laswp
