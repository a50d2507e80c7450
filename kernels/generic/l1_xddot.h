// Sum of x(i)*y(i), the branch-generic body of every branch's xddot, and
// the unit-stride dot product the level-2 kernels take their sums with.
#pragma once

#include "kernels/generic/l1_vector.h"
#include "kernels/kernels.h"

namespace {

constexpr int kDotVectorFrom = 16;  // shortest unit-stride dot taken in vectors

// Unit strides: four vector accumulators, four vectors per iteration, then
// single vectors into the first, then single elements; the four are summed
// in a fixed order and the lanes left to right. No alignment peel: the
// order of the sum depends on n alone, never on where the data lie.
inline double l1_dot_unit(int n, const double* x, const double* y) {
  constexpr int W = L12Vec::kWidth;
  if (n < kDotVectorFrom) {
    double s = 0.0;
    for (int i = 0; i < n; ++i) s = l12_fma1(x[i], y[i], s);
    return s;
  }
  L12Vec::V s0 = L12Vec::zero(), s1 = L12Vec::zero(), s2 = L12Vec::zero(), s3 = L12Vec::zero();
  int i = 0;
  // Elements i, four vectors at a time.
  for (; i + 4 * W <= n; i += 4 * W) {
    s0 = L12Vec::fmadd(L12Vec::load(x + i), L12Vec::load(y + i), s0);
    s1 = L12Vec::fmadd(L12Vec::load(x + i + W), L12Vec::load(y + i + W), s1);
    s2 = L12Vec::fmadd(L12Vec::load(x + i + 2 * W), L12Vec::load(y + i + 2 * W), s2);
    s3 = L12Vec::fmadd(L12Vec::load(x + i + 3 * W), L12Vec::load(y + i + 3 * W), s3);
  }
  for (; i + W <= n; i += W) s0 = L12Vec::fmadd(L12Vec::load(x + i), L12Vec::load(y + i), s0);
  double s = l12_sum_lanes(L12Vec::add(L12Vec::add(s0, s1), L12Vec::add(s2, s3)));
  for (; i < n; ++i) s = l12_fma1(x[i], y[i], s);
  return s;
}

// Other strides: one scalar sum in element order.
inline double l1_dot_strided(int n, const double* xs, ptrdiff_t ix, const double* ys,
                             ptrdiff_t iy) {
  double s = 0.0;
  for (int i = 0; i < n; ++i) s = l12_fma1(xs[i * ix], ys[i * iy], s);
  return s;
}

// 0 for n below 1.
inline double l1_xddot(int n, const double* x, int incx, const double* y, int incy) {
  if (n < 1) return 0.0;
  if (incx == 1 && incy == 1) return l1_dot_unit(n, x, y);
  return l1_dot_strided(n, l12_vector_base(x, n, incx), incx, l12_vector_base(y, n, incy), incy);
}

}  // namespace

// The entry of a branch, kernels/<br>/xddot.cpp.
#define TARN_XDDOT_ENTRY(br)                                                               \
  extern "C" double tarn_blas_##br##_xddot(const int* n, const double* x, const int* incx, \
                                           const double* y, const int* incy) {             \
    return l1_xddot(*n, x, *incx, y, *incy);                                               \
  }
