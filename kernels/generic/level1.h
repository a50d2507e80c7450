// Branch-generic level-1 kernels: scal, axpy, copy, dot, swap and the pivot
// search. Unit strides take vector loops (the compiler's on the simple
// bodies, explicit ones where a reduction's order must stay fixed); other
// strides a plain walk with the BLAS rule for negative increments.
#pragma once

#include <cfenv>
#include <cstddef>

#include "kernels/generic/simd.h"

namespace {

// x := alpha*x. Alpha 0 stores zeros and reads nothing, so NaNs are cleared.
inline void generic_xdscal(int n, double alpha, double* x, ptrdiff_t incx) {
  if (n < 1 || incx < 1) return;
  if (incx == 1) {
    if (alpha == 0.0) {
      for (int i = 0; i < n; ++i) x[i] = 0.0;
    } else {
      for (int i = 0; i < n; ++i) x[i] *= alpha;
    }
    return;
  }
  if (alpha == 0.0) {
    for (int i = 0; i < n; ++i) x[i * incx] = 0.0;
  } else {
    for (int i = 0; i < n; ++i) x[i * incx] *= alpha;
  }
}

// y := alpha*x + y
inline void generic_xdaxpy(int n, double alpha, const double* x, ptrdiff_t incx, double* y,
                           ptrdiff_t incy) {
  if (n < 1 || alpha == 0.0) return;
  if (incx == 1 && incy == 1) {
    for (int i = 0; i < n; ++i) y[i] += alpha * x[i];
    return;
  }
  const double* xs = x + generic_vector_start(n, incx);
  double* ys = y + generic_vector_start(n, incy);
  for (int i = 0; i < n; ++i) ys[i * incy] += alpha * xs[i * incx];
}

// y := x
inline void generic_xdcopy(int n, const double* x, ptrdiff_t incx, double* y,
                           ptrdiff_t incy) {
  if (n < 1) return;
  if (incx == 1 && incy == 1) {
    for (int i = 0; i < n; ++i) y[i] = x[i];
    return;
  }
  const double* xs = x + generic_vector_start(n, incx);
  double* ys = y + generic_vector_start(n, incy);
  for (int i = 0; i < n; ++i) ys[i * incy] = xs[i * incx];
}

// x <-> y
inline void generic_xdswap(int n, double* x, ptrdiff_t incx, double* y, ptrdiff_t incy) {
  if (n < 1) return;
  if (incx == 1 && incy == 1) {
    for (int i = 0; i < n; ++i) {
      const double t = x[i];
      x[i] = y[i];
      y[i] = t;
    }
    return;
  }
  double* xs = x + generic_vector_start(n, incx);
  double* ys = y + generic_vector_start(n, incy);
  for (int i = 0; i < n; ++i) {
    const double t = xs[i * incx];
    xs[i * incx] = ys[i * incy];
    ys[i * incy] = t;
  }
}

// Sum of x(i)*y(i) for unit strides, four vector accumulators summed in a
// fixed order: the result depends on the data and the length only, never on
// where the data lie.
inline double generic_dot_unit(int n, const double* x, const double* y) {
  constexpr int W = Simd::kWidth;
  constexpr int kStep = 4 * W;
  Simd::V s0 = Simd::zero(), s1 = Simd::zero(), s2 = Simd::zero(), s3 = Simd::zero();
  int i = 0;
  for (; i + kStep <= n; i += kStep) {
    s0 = Simd::fmadd(Simd::load(x + i), Simd::load(y + i), s0);
    s1 = Simd::fmadd(Simd::load(x + i + W), Simd::load(y + i + W), s1);
    s2 = Simd::fmadd(Simd::load(x + i + 2 * W), Simd::load(y + i + 2 * W), s2);
    s3 = Simd::fmadd(Simd::load(x + i + 3 * W), Simd::load(y + i + 3 * W), s3);
  }
  for (; i + W <= n; i += W) s0 = Simd::fmadd(Simd::load(x + i), Simd::load(y + i), s0);
  double s = simd_sum_lanes(Simd::add(Simd::add(s0, s1), Simd::add(s2, s3)));
  for (; i < n; ++i) s += x[i] * y[i];
  return s;
}

inline double generic_xddot(int n, const double* x, ptrdiff_t incx, const double* y,
                            ptrdiff_t incy) {
  if (n < 1) return 0.0;
  if (incx == 1 && incy == 1) return generic_dot_unit(n, x, y);
  const double* xs = x + generic_vector_start(n, incx);
  const double* ys = y + generic_vector_start(n, incy);
  double s = 0.0;
  for (int i = 0; i < n; ++i) s += xs[i * incx] * ys[i * incy];
  return s;
}

// 0-based index of the first NaN among n strided values, or -1.
inline int generic_first_nan(int n, const double* x, ptrdiff_t incx) {
  for (int i = 0; i < n; ++i) {
    const double v = x[i * incx];
    if (v != v) return i;
  }
  return -1;
}

// Pivot search without the NaN rule: 0-based index of the first element of
// largest |x|, with `saw_nan` set when any element is NaN (a NaN never
// becomes the maximum here). Each vector lane keeps its own running maximum
// and the index where it was found, on a strict compare, so the lane keeps
// its first maximum; the lanes merge by value, then by lower index.
inline int generic_iamax_nonan(int n, const double* x, ptrdiff_t incx, bool* saw_nan) {
  constexpr int W = Simd::kWidth;
  // Absolute values by clearing the sign bit, and NaN tests by the quiet
  // unordered compare: only compares between two numbers are ever made.
  double best = __builtin_fabs(x[0]);
  int best_i = 0;
  bool nan = best != best;
  if (nan) best = 0.0;
  int i = 1;
  if (incx == 1 && n - 1 >= 2 * W) {
    alignas(64) double lane_index0[W];
    for (int l = 0; l < W; ++l) lane_index0[l] = static_cast<double>(1 + l);
    Simd::V vbest = Simd::abs(Simd::load(x + 1));
    Simd::V vidx = Simd::load(lane_index0);
    Simd::Mask vnan = Simd::is_nan(vbest);
    const Simd::V step = Simd::set1(static_cast<double>(W));
    Simd::V cur_idx = vidx;
    // Walk the rest W values at a time, from element 1 + W.
    for (i = 1 + W; i + W <= n; i += W) {
      cur_idx = Simd::add(cur_idx, step);
      const Simd::V v = Simd::abs(Simd::load(x + i));
      vnan = Simd::mask_or(vnan, Simd::is_nan(v));
      const Simd::Mask up = Simd::gt(v, vbest);
      vbest = Simd::select(up, v, vbest);
      vidx = Simd::select(up, cur_idx, vidx);
    }
    nan = nan || Simd::any(vnan);
    alignas(64) double lb[W];
    alignas(64) double li[W];
    Simd::store(lb, vbest);
    Simd::store(li, vidx);
    // NaN lanes stay at their starting value only if it was NaN; they are
    // settled by the caller's NaN walk, so skip them here.
    for (int l = 0; l < W; ++l) {
      const double v = lb[l];
      if (v != v) continue;
      const int idx = static_cast<int>(li[l]);
      if (v > best || (v == best && idx < best_i)) {
        best = v;
        best_i = idx;
      }
    }
  }
  // The rest one by one, on the same strict compare.
  for (; i < n; ++i) {
    const double v = __builtin_fabs(x[i * incx]);
    if (v != v) {
      nan = true;
    } else if (v > best) {
      best = v;
      best_i = i;
    }
  }
  *saw_nan = nan;
  return best_i;
}

// 1-based index of the largest |x(i)|: the first of equal maxima, and the
// first NaN whenever there is one. The search itself pays nothing for the
// NaN rule: it only notes that some lane saw a NaN, and a second walk finds
// the first one. Where the branch's vector compares signal on NaN, the
// caller's exception flags are put back exactly as they were.
inline int generic_xidamax(int n, const double* x, ptrdiff_t incx) {
  if (n < 1 || incx < 1) return 0;
  if (n == 1) return 1;
  fexcept_t saved_flags;
  if (!Simd::kQuietCompare) fegetexceptflag(&saved_flags, FE_ALL_EXCEPT);
  bool saw_nan = false;
  int index = generic_iamax_nonan(n, x, incx, &saw_nan);
  if (saw_nan) index = generic_first_nan(n, x, incx);
  if (!Simd::kQuietCompare) fesetexceptflag(&saved_flags, FE_ALL_EXCEPT);
  return index + 1;
}

}  // namespace
