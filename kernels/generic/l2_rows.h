// The row walk of one column shared by the level-2 kernels (the rank-one
// update and the column forms of the triangular solve): a short column
// takes single vectors and then single rows; a longer one four vectors per
// iteration, then single vectors, then single rows. No alignment work: a
// column of A has whatever alignment lda gives it.
#pragma once

#include "kernels/generic/l1_vector.h"

namespace {

constexpr int kL2ShortColumn = 13;  // columns shorter than this take single vectors

// one(i) does row i in scalar, vec(i) rows i .. i+W-1.
template <class One, class Vec>
inline void l2_rows(int m, One one, Vec vec) {
  constexpr int W = L12Vec::kWidth;
  int i = 0;
  if (m >= kL2ShortColumn) {
    // Rows i, four vectors at a time.
    for (; i + 4 * W <= m; i += 4 * W) {
      vec(i);
      vec(i + W);
      vec(i + 2 * W);
      vec(i + 3 * W);
    }
  }
  for (; i + W <= m; i += W) vec(i);
  for (; i < m; ++i) one(i);
}

// y(0:m) -= s * a(0:m), unit strides, rounded alike in vector and scalar.
inline void l2_sub_scaled(int m, double s, const double* a, double* y) {
  const L12Vec::V vs = L12Vec::set1(s);
  l2_rows(
      m, [=](int i) { y[i] = l12_fnma1(s, a[i], y[i]); },
      [=](int i) { L12Vec::store(y + i, L12Vec::fnmadd(vs, L12Vec::load(a + i), L12Vec::load(y + i))); });
}

}  // namespace
