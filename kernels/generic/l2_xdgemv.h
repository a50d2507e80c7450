// y := alpha*op(A)*x + beta*y, the branch-generic body of every branch's
// xdgemv (kFixedOrder false) and xdgemv_cnr (kFixedOrder true).
//
// 'N' takes the columns of A four at a time: each element of y gets
// ((((y + a0*t0) + a1*t1) + a2*t2) + a3*t3) with t = alpha*x, in vector or
// scalar alike, so its bits never depend on where a vector starts; the peel
// that puts the stores of y on a vector boundary changes nothing but speed,
// and both forms share it.
//
// 'T' takes four dot products at once. The free form first steps, one row
// at a time, to the next vector boundary of the first of the four columns
// (or of the column alone), so that its loads are aligned; its sums then
// depend on that address. Measured on a 1024 x 128 'T' product in cache,
// one thread: avx512 about 23 GFlops with the peel against 12 without (a
// 64-byte load across two lines costs twice), avx2 about 17 against 13 when
// lda keeps the columns aligned together; the 128-bit branches the same. The fixed form never peels: lane l of each sum
// holds the rows l, l+W, l+2W, ... of the column, the lanes are added left
// to right and the last rows after them, an order fixed by m alone, so a
// reproducibility mode gets the same bits for copies of the same data at
// any address.
#pragma once

#include "kernels/generic/l1_stream.h"
#include "kernels/generic/l1_xddot.h"
#include "kernels/generic/l1_xdscal.h"
#include "kernels/kernels.h"
#include "kernels/generic/l2_entries.h"
#include "service/cpu.h"

namespace {

constexpr int kGemvColumns = 4;  // columns of A per pass, both forms

// Software prefetch of the four columns, once per cache line, this many
// elements ahead. Measured on a 10000 x 10000 product on one thread: the
// 128-bit branches went from about 70 % of a streaming copy to 85-90 %
// with 1 KB ahead (512 bytes and 2 KB were a little worse); the 256- and
// 512-bit ones, near 90 % already, did not change.
constexpr int kGemvPrefetch = 128;
constexpr int kGemvLine = 8;  // doubles per cache line

inline void l2_gemv_prefetch4(const double* a0, const double* a1, const double* a2,
                              const double* a3) {
  _mm_prefetch(reinterpret_cast<const char*>(a0 + kGemvPrefetch), _MM_HINT_T0);
  _mm_prefetch(reinterpret_cast<const char*>(a1 + kGemvPrefetch), _MM_HINT_T0);
  _mm_prefetch(reinterpret_cast<const char*>(a2 + kGemvPrefetch), _MM_HINT_T0);
  _mm_prefetch(reinterpret_cast<const char*>(a3 + kGemvPrefetch), _MM_HINT_T0);
}

// y(0:m) += A(:, 0:4) * t, unit stride in y; ai are the four columns.
// Rows one by one up to a vector boundary of y (when y is 8-byte aligned
// and m is worth it), then a cache line of rows per iteration with aligned
// stores of y, then single vectors, then single rows.
inline void l2_gemv_n4(int m, const double* a0, const double* a1, const double* a2,
                       const double* a3, const double t[kGemvColumns], double* y) {
  constexpr int W = L12Vec::kWidth;
  const double t0 = t[0], t1 = t[1], t2 = t[2], t3 = t[3];
  const L12Vec::V v0 = L12Vec::set1(t0), v1 = L12Vec::set1(t1), v2 = L12Vec::set1(t2),
                  v3 = L12Vec::set1(t3);
  auto one = [=](int i) {
    double s = l12_fma1(a0[i], t0, y[i]);
    s = l12_fma1(a1[i], t1, s);
    s = l12_fma1(a2[i], t2, s);
    y[i] = l12_fma1(a3[i], t3, s);
  };
  auto vec = [=](auto aligned, int i) {
    L12Vec::V s = L12Vec::fmadd(L12Vec::load(a0 + i), v0, l12_load(aligned, y + i));
    s = L12Vec::fmadd(L12Vec::load(a1 + i), v1, s);
    s = L12Vec::fmadd(L12Vec::load(a2 + i), v2, s);
    l12_store(aligned, y + i, L12Vec::fmadd(L12Vec::load(a3 + i), v3, s));
  };
  int i = 0;
  const int peel = m < kL1PeelFrom ? -1 : l12_peel_to_boundary(y);
  if (peel >= 0) {
    for (; i < peel; ++i) one(i);
    // Rows i, one cache line at a time.
    for (; i + kGemvLine <= m; i += kGemvLine) {
      l2_gemv_prefetch4(a0 + i, a1 + i, a2 + i, a3 + i);
      for (int r = 0; r < kGemvLine; r += W) vec(L12Aligned{}, i + r);
    }
  }
  for (; i + W <= m; i += W) vec(L12Unaligned{}, i);
  for (; i < m; ++i) one(i);
}

// y(0:m) += A(:, j) * t, unit stride in y.
inline void l2_gemv_n1(int m, const double* a0, double t, double* y) {
  const L12Vec::V v0 = L12Vec::set1(t);
  l1_stream_unit(
      m, y, [=](int i) { y[i] = l12_fma1(a0[i], t, y[i]); },
      [=](auto aligned, int i) {
        l12_store(aligned, y + i, L12Vec::fmadd(L12Vec::load(a0 + i), v0, l12_load(aligned, y + i)));
      });
}

// s[k] = A(:, k)' x for the four columns ai, unit stride in x; rows below
// `peel` are summed first, one by one, then the vector rows (a cache line
// per iteration, then single vectors), then the rest.
inline void l2_gemv_t4(int m, int peel, const double* a0, const double* a1, const double* a2,
                       const double* a3, const double* x, double s[kGemvColumns]) {
  constexpr int W = L12Vec::kWidth;
  double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
  int i = 0;
  for (; i < peel; ++i) {
    s0 = l12_fma1(a0[i], x[i], s0);
    s1 = l12_fma1(a1[i], x[i], s1);
    s2 = l12_fma1(a2[i], x[i], s2);
    s3 = l12_fma1(a3[i], x[i], s3);
  }
  if (i + W <= m) {
    L12Vec::V c0 = L12Vec::zero(), c1 = c0, c2 = c0, c3 = c0;
    auto vec = [&](int r) {
      const L12Vec::V xv = L12Vec::load(x + r);
      c0 = L12Vec::fmadd(L12Vec::load(a0 + r), xv, c0);
      c1 = L12Vec::fmadd(L12Vec::load(a1 + r), xv, c1);
      c2 = L12Vec::fmadd(L12Vec::load(a2 + r), xv, c2);
      c3 = L12Vec::fmadd(L12Vec::load(a3 + r), xv, c3);
    };
    // Rows i, one cache line at a time.
    for (; i + kGemvLine <= m; i += kGemvLine) {
      l2_gemv_prefetch4(a0 + i, a1 + i, a2 + i, a3 + i);
      for (int r = 0; r < kGemvLine; r += W) vec(i + r);
    }
    for (; i + W <= m; i += W) vec(i);
    s0 += l12_sum_lanes(c0);
    s1 += l12_sum_lanes(c1);
    s2 += l12_sum_lanes(c2);
    s3 += l12_sum_lanes(c3);
  }
  for (; i < m; ++i) {
    s0 = l12_fma1(a0[i], x[i], s0);
    s1 = l12_fma1(a1[i], x[i], s1);
    s2 = l12_fma1(a2[i], x[i], s2);
    s3 = l12_fma1(a3[i], x[i], s3);
  }
  s[0] = s0;
  s[1] = s1;
  s[2] = s2;
  s[3] = s3;
}

// Rows the free 'T' form steps over before the column at p is aligned.
template <bool kFixedOrder>
inline int l2_gemv_t_peel(int m, const double* p) {
  if (kFixedOrder || m < kL1PeelFrom) return 0;
  const int peel = l12_peel_to_boundary(p);
  return peel < 0 ? 0 : peel;
}

template <bool kFixedOrder>
inline void l2_xdgemv(char trans, int m, int n, double alpha, const double* a, int lda,
                      const double* x, int incx, double beta, double* y, int incy) {
  if (m < 1 || n < 1) return;
  const bool tr = trans != 'N';
  const int leny = tr ? n : m, lenx = tr ? m : n;
  const double* xs = l12_vector_base(x, lenx, incx);
  double* ys = l12_vector_base(y, leny, incy);
  const ptrdiff_t ix = incx, iy = incy, ld = lda;

  // y := beta*y first; beta 0 stores zeros and does not read y.
  if (beta != 1.0) {
    if (incy == 1) {
      l1_xdscal(leny, beta, y, 1);
    } else {
      for (int i = 0; i < leny; ++i) ys[i * iy] = beta == 0.0 ? 0.0 : beta * ys[i * iy];
    }
  }
  if (alpha == 0.0) return;

  if (!tr) {
    int j = 0;
    // Columns of A, four at a time.
    for (; j + kGemvColumns <= n; j += kGemvColumns) {
      const double* a0 = a + j * ld;
      const double t[kGemvColumns] = {alpha * xs[j * ix], alpha * xs[(j + 1) * ix],
                                      alpha * xs[(j + 2) * ix], alpha * xs[(j + 3) * ix]};
      if (incy == 1) {
        l2_gemv_n4(m, a0, a0 + ld, a0 + 2 * ld, a0 + 3 * ld, t, y);
      } else {
        for (int i = 0; i < m; ++i) {
          double s = l12_fma1(a0[i], t[0], ys[i * iy]);
          s = l12_fma1(a0[ld + i], t[1], s);
          s = l12_fma1(a0[2 * ld + i], t[2], s);
          ys[i * iy] = l12_fma1(a0[3 * ld + i], t[3], s);
        }
      }
    }
    // The last columns, one by one.
    for (; j < n; ++j) {
      const double* a0 = a + j * ld;
      const double t = alpha * xs[j * ix];
      if (incy == 1) {
        l2_gemv_n1(m, a0, t, y);
      } else {
        for (int i = 0; i < m; ++i) ys[i * iy] = l12_fma1(a0[i], t, ys[i * iy]);
      }
    }
    return;
  }

  int j = 0;
  if (incx == 1) {
    // Columns of A, four dot products at a time.
    for (; j + kGemvColumns <= n; j += kGemvColumns) {
      const double* a0 = a + j * ld;
      double s[kGemvColumns];
      l2_gemv_t4(m, l2_gemv_t_peel<kFixedOrder>(m, a0), a0, a0 + ld, a0 + 2 * ld, a0 + 3 * ld, x,
                 s);
      for (int k = 0; k < kGemvColumns; ++k)
        ys[(j + k) * iy] = l12_fma1(alpha, s[k], ys[(j + k) * iy]);
    }
  }
  // The last columns (all of them for other strides), one dot product each.
  for (; j < n; ++j) {
    const double* aj = a + j * ld;
    double s;
    if (incx == 1) {
      const int peel = l2_gemv_t_peel<kFixedOrder>(m, aj);
      s = 0.0;
      for (int i = 0; i < peel; ++i) s = l12_fma1(aj[i], x[i], s);
      s += l1_dot_unit(m - peel, aj + peel, x + peel);
    } else {
      s = l1_dot_strided(m, aj, 1, xs, ix);
    }
    ys[j * iy] = l12_fma1(alpha, s, ys[j * iy]);
  }
}

}  // namespace

// The entries of a branch. xdgemv (kernels/<br>/xdgemv.cpp): a
// reproducibility mode other than off goes to the fixed-order form;
// otherwise the 'T' sums start on a vector boundary of A, wherever that lies.
#define TARN_XDGEMV_ENTRY(br)                                                                   \
  extern "C" void tarn_blas_##br##_xdgemv(const char* trans, const int* m, const int* n,        \
                                          const double* alpha, const double* a, const int* lda, \
                                          const double* x, const int* incx, const double* beta, \
                                          double* y, const int* incy, const int* mode) {        \
    if (*m < 1 || *n < 1) return;                                                               \
    if (tarn_serv_cbwr_get(1) != TARN_CBWR_OFF) {                                               \
      tarn_blas_##br##_xdgemv_cnr(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, mode);    \
      return;                                                                                   \
    }                                                                                           \
    l2_xdgemv<false>(l12_upper(trans), *m, *n, *alpha, a, *lda, x, *incx, *beta, y, *incy);     \
  }

// xdgemv_cnr (kernels/<br>/xdgemv_cnr.cpp): one order of summation fixed by
// the shape alone, the same bits for copies of the same data at any address.
#define TARN_XDGEMV_CNR_ENTRY(br)                                                               \
  extern "C" void tarn_blas_##br##_xdgemv_cnr(const char* trans, const int* m, const int* n,    \
                                              const double* alpha, const double* a,             \
                                              const int* lda, const double* x, const int* incx, \
                                              const double* beta, double* y, const int* incy,   \
                                              const int* /*mode*/) {                            \
    l2_xdgemv<true>(l12_upper(trans), *m, *n, *alpha, a, *lda, x, *incx, *beta, y, *incy);      \
  }
