// The copies of the avx512 packed GEMM in 512-bit registers: the same
// formats as gemm_pack_a_panel (k-major, the tile's rows per k, times
// alpha) and gemm_pack_b_panel (k-major, the tile's columns per k), which
// they fall back to for a narrower panel. Panels whose rows are columns of
// the source are turned in registers 8 by 8, so that each k's row of eight
// is one 64-byte store (the plain loops wrote a transposed panel one row
// at a time, in scattered 8-byte stores); a plain copy is bound by reading
// its source, which the walk fetches ahead (gemm_panel.h).
//
// Included only by kernels/avx512/*.cpp (anonymous namespace).
#pragma once

#include <immintrin.h>

#include <cstddef>

#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_pack.h"

namespace {

// The shuffles through their masked forms with every lane selected: the
// plain forms of GCC 12's header start from an "undefined" register that
// -Wmaybe-uninitialized reports.
constexpr __mmask8 kAllLanes = 0xff;
inline __m512d avx512_unpacklo(__m512d x, __m512d y) {
  return _mm512_mask_unpacklo_pd(x, kAllLanes, x, y);
}
inline __m512d avx512_unpackhi(__m512d x, __m512d y) {
  return _mm512_mask_unpackhi_pd(x, kAllLanes, x, y);
}
template <int Imm>
inline __m512d avx512_quarters(__m512d x, __m512d y) {
  return _mm512_mask_shuffle_f64x2(x, kAllLanes, x, y, Imm);
}

template <bool One>
inline __m512d avx512_pack_scale(__m512d alpha, __m512d x) {
  return One ? x : _mm512_mul_pd(alpha, x);
}

// Eight rows of a panel whose rows are columns of the source (op(A) of a
// transposed A, or op(B) of a B that is not): 8 consecutive values of each
// of the 8 source columns, turned into 8 rows of the panel. Stride: doubles
// from one k of the panel to the next (its height).
template <bool One, int Stride>
inline void avx512_pack8_t(int kc, const double* a, int lda, double alpha, double* dst) {
  const __m512d al = _mm512_set1_pd(alpha);
  constexpr int kBlock = 8;
  // Lane selections of the 128-bit quarters: even quarters of both
  // operands, and odd quarters.
  constexpr int kEven = 0x88, kOdd = 0xdd;
  int p = 0;
  // Loop over the depth, 8 k at a time: one 8 by 8 block.
  for (; p + kBlock <= kc; p += kBlock) {
    const double* s = a + p;
    __m512d r0 = _mm512_loadu_pd(s), r1 = _mm512_loadu_pd(s + lda);
    __m512d r2 = _mm512_loadu_pd(s + 2 * (ptrdiff_t)lda);
    __m512d r3 = _mm512_loadu_pd(s + 3 * (ptrdiff_t)lda);
    __m512d t0 = avx512_unpacklo(r0, r1), t1 = avx512_unpackhi(r0, r1);
    __m512d t2 = avx512_unpacklo(r2, r3), t3 = avx512_unpackhi(r2, r3);
    // Rows 0-3, quarters: u0 k0 and k4, u1 k2 and k6, u2 k1 and k5, u3 k3 and k7.
    const __m512d u0 = avx512_quarters<kEven>(t0, t2), u1 = avx512_quarters<kOdd>(t0, t2);
    const __m512d u2 = avx512_quarters<kEven>(t1, t3), u3 = avx512_quarters<kOdd>(t1, t3);
    r0 = _mm512_loadu_pd(s + 4 * (ptrdiff_t)lda);
    r1 = _mm512_loadu_pd(s + 5 * (ptrdiff_t)lda);
    r2 = _mm512_loadu_pd(s + 6 * (ptrdiff_t)lda);
    r3 = _mm512_loadu_pd(s + 7 * (ptrdiff_t)lda);
    t0 = avx512_unpacklo(r0, r1);
    t1 = avx512_unpackhi(r0, r1);
    t2 = avx512_unpacklo(r2, r3);
    t3 = avx512_unpackhi(r2, r3);
    const __m512d v0 = avx512_quarters<kEven>(t0, t2), v1 = avx512_quarters<kOdd>(t0, t2);
    const __m512d v2 = avx512_quarters<kEven>(t1, t3), v3 = avx512_quarters<kOdd>(t1, t3);
    double* d = dst + (ptrdiff_t)p * Stride;
    _mm512_storeu_pd(d + 0 * Stride, avx512_pack_scale<One>(al, avx512_quarters<kEven>(u0, v0)));
    _mm512_storeu_pd(d + 4 * Stride, avx512_pack_scale<One>(al, avx512_quarters<kOdd>(u0, v0)));
    _mm512_storeu_pd(d + 2 * Stride, avx512_pack_scale<One>(al, avx512_quarters<kEven>(u1, v1)));
    _mm512_storeu_pd(d + 6 * Stride, avx512_pack_scale<One>(al, avx512_quarters<kOdd>(u1, v1)));
    _mm512_storeu_pd(d + 1 * Stride, avx512_pack_scale<One>(al, avx512_quarters<kEven>(u2, v2)));
    _mm512_storeu_pd(d + 5 * Stride, avx512_pack_scale<One>(al, avx512_quarters<kOdd>(u2, v2)));
    _mm512_storeu_pd(d + 3 * Stride, avx512_pack_scale<One>(al, avx512_quarters<kEven>(u3, v3)));
    _mm512_storeu_pd(d + 7 * Stride, avx512_pack_scale<One>(al, avx512_quarters<kOdd>(u3, v3)));
  }
  // The last k, one at a time.
  for (; p < kc; ++p)
    for (int i = 0; i < 8; ++i) {
      const double v = a[p + i * (ptrdiff_t)lda];
      dst[p * Stride + i] = One ? v : alpha * v;
    }
}

// Eight rows of a panel whose rows are rows of the source (op(A) of an A
// that is not transposed, or op(B) of a transposed B): one 64-byte run per
// k.
template <bool One, int Stride>
inline void avx512_pack8_n(int kc, const double* a, int lda, double alpha, double* dst) {
  const __m512d al = _mm512_set1_pd(alpha);
  // Loop over the depth, one k at a time.
  for (int p = 0; p < kc; ++p)
    _mm512_storeu_pd(dst + (ptrdiff_t)p * Stride,
                     avx512_pack_scale<One>(al, _mm512_loadu_pd(a + (ptrdiff_t)p * lda)));
}

// A whole panel of Rows rows of op(A) times alpha, eight rows at a time.
template <int Rows, bool One>
inline void avx512_pack_a_rows(bool trans, int kc, const double* a, int lda, double alpha,
                               double* dst) {
  static_assert(Rows % 8 == 0, "whole vectors of rows");
  // Loop over the panel's vectors of eight rows.
  for (int g = 0; g < Rows; g += 8) {
    if (trans)
      avx512_pack8_t<One, Rows>(kc, a + (ptrdiff_t)g * lda, lda, alpha, dst + g);
    else
      avx512_pack8_n<One, Rows>(kc, a + g, lda, alpha, dst + g);
  }
}

template <int Rows>
inline void avx512_pack_a_panel(bool trans, int rows, int kc, const double* a, int lda,
                                double alpha, double* dst) {
  if (rows != Rows)
    gemm_pack_a_panel<Rows>(trans, rows, kc, a, lda, alpha, dst);
  else if (alpha == 1.0)
    avx512_pack_a_rows<Rows, true>(trans, kc, a, lda, alpha, dst);
  else
    avx512_pack_a_rows<Rows, false>(trans, kc, a, lda, alpha, dst);
}

#if defined(__x86_64__)

// Columns of op(B), 8 per panel, into dst[p*8 + j]: the panel's rows are
// the source's columns when B is not transposed (8 by 8 turns in
// registers), its rows when it is.
constexpr int kPackCols = 8;

inline void avx512_pack_b_panel(bool trans, int kc, int cols, const double* b, int ldb,
                                double* dst) {
  if (cols != kPackCols)
    gemm_pack_b_panel<kPackCols>(trans, kc, cols, b, ldb, dst);
  else if (trans)
    avx512_pack8_n<true, kPackCols>(kc, b, ldb, 1.0, dst);
  else
    avx512_pack8_t<true, kPackCols>(kc, b, ldb, 1.0, dst);
}

#else

// Columns of op(B), 7 per panel, into dst[p*7 + j]. Not transposed: 8 k
// at a time, the 56 packed values are 7 gathers of 8 (the index of packed
// value e = 8q + l is (e % 7) columns and e / 7 k on), which measured
// faster than plain loops and than 8 by 8 turns with masked stores.
// Transposed: 7 contiguous values per k, one masked load and store.
constexpr int kPackCols = 7;
constexpr __mmask8 kPackColsMask = 0x7f;

struct Avx512GatherIndex {
  alignas(32) int v[kPackCols][8];
};

inline void avx512_pack_b_n(int kc, const double* b, int ldb, double* dst) {
  constexpr int kBlock = 8;
  Avx512GatherIndex ix;
  for (int q = 0; q < kPackCols; ++q)
    for (int l = 0; l < kBlock; ++l) {
      const int e = kBlock * q + l;
      ix.v[q][l] = (e % kPackCols) * ldb + e / kPackCols;
    }
  const __m512d zero = _mm512_setzero_pd();
  // The source of the next panel (the next 7 columns, or the first of the
  // next column block): one line of each of its columns per 8 k.
  const double* next = b + kPackCols * (ptrdiff_t)ldb;
  int p = 0;
  // Loop over the depth, 8 k at a time.
  for (; p + kBlock <= kc; p += kBlock) {
    const double* s = b + p;
    double* d = dst + (ptrdiff_t)p * kPackCols;
#pragma GCC unroll 7
    for (int j = 0; j < kPackCols; ++j) gemm_prefetch_l2(next + p + j * (ptrdiff_t)ldb);
#pragma GCC unroll 7
    for (int q = 0; q < kPackCols; ++q) {
      const __m256i idx = _mm256_load_si256(reinterpret_cast<const __m256i*>(ix.v[q]));
      _mm512_storeu_pd(d + kBlock * q, _mm512_mask_i32gather_pd(zero, kAllLanes, idx, s, 8));
    }
  }
  // The last k, one at a time.
  for (; p < kc; ++p)
    for (int j = 0; j < kPackCols; ++j) dst[p * kPackCols + j] = b[p + j * (ptrdiff_t)ldb];
}

inline void avx512_pack_b_t(int kc, const double* b, int ldb, double* dst) {
  // Loop over the depth, one k at a time.
  for (int p = 0; p < kc; ++p)
    _mm512_mask_storeu_pd(dst + (ptrdiff_t)p * kPackCols, kPackColsMask,
                          _mm512_maskz_loadu_pd(kPackColsMask, b + (ptrdiff_t)p * ldb));
}

inline void avx512_pack_b_panel(bool trans, int kc, int cols, const double* b, int ldb,
                                double* dst) {
  if (cols != kPackCols)
    gemm_pack_b_panel<kPackCols>(trans, kc, cols, b, ldb, dst);
  else if (trans)
    avx512_pack_b_t(kc, b, ldb, dst);
  else
    avx512_pack_b_n(kc, b, ldb, dst);
}

#endif

}  // namespace
