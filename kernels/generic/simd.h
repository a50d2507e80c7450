// The vector unit of the branch being compiled, as one small record of
// operations. Kernel files of each branch are built with that branch's
// instruction set, so the widest form the flags allow is taken: 512-bit on
// avx512, 256-bit on avx and avx2 (fused multiply-add where the flags have
// it), 128-bit on the SSE branches. Inside an anonymous namespace: every
// translation unit gets its own copy, compiled for its own branch.
#pragma once

#include <immintrin.h>

#include <cstddef>

namespace {

#if defined(__AVX512F__)

struct Simd {
  using V = __m512d;
  using Mask = __mmask8;
  static constexpr int kWidth = 8;
  static constexpr bool kQuietCompare = true;
  static V zero() { return _mm512_setzero_pd(); }
  static V set1(double x) { return _mm512_set1_pd(x); }
  static V load(const double* p) { return _mm512_loadu_pd(p); }
  static void store(double* p, V v) { _mm512_storeu_pd(p, v); }
  static V add(V a, V b) { return _mm512_add_pd(a, b); }
  static V mul(V a, V b) { return _mm512_mul_pd(a, b); }
  // a*b + c
  static V fmadd(V a, V b, V c) { return _mm512_fmadd_pd(a, b, c); }
  static V abs(V a) { return _mm512_abs_pd(a); }
  // Quiet compares: a NaN answers false and raises no flag.
  static Mask gt(V a, V b) { return _mm512_cmp_pd_mask(a, b, _CMP_GT_OQ); }
  static Mask is_nan(V a) { return _mm512_cmp_pd_mask(a, a, _CMP_UNORD_Q); }
  static Mask mask_or(Mask a, Mask b) { return static_cast<Mask>(a | b); }
  static bool any(Mask m) { return m != 0; }
  // m ? a : b, lane by lane
  static V select(Mask m, V a, V b) { return _mm512_mask_blend_pd(m, b, a); }
};

#elif defined(__AVX__)

struct Simd {
  using V = __m256d;
  using Mask = __m256d;
  static constexpr int kWidth = 4;
  static constexpr bool kQuietCompare = true;
  static V zero() { return _mm256_setzero_pd(); }
  static V set1(double x) { return _mm256_set1_pd(x); }
  static V load(const double* p) { return _mm256_loadu_pd(p); }
  static void store(double* p, V v) { _mm256_storeu_pd(p, v); }
  static V add(V a, V b) { return _mm256_add_pd(a, b); }
  static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
#if defined(__FMA__)
  static V fmadd(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
#else
  static V fmadd(V a, V b, V c) { return _mm256_add_pd(_mm256_mul_pd(a, b), c); }
#endif
  static V abs(V a) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), a); }
  static Mask gt(V a, V b) { return _mm256_cmp_pd(a, b, _CMP_GT_OQ); }
  static Mask is_nan(V a) { return _mm256_cmp_pd(a, a, _CMP_UNORD_Q); }
  static Mask mask_or(Mask a, Mask b) { return _mm256_or_pd(a, b); }
  static bool any(Mask m) { return _mm256_movemask_pd(m) != 0; }
  static V select(Mask m, V a, V b) { return _mm256_blendv_pd(b, a, m); }
};

#else

struct Simd {
  using V = __m128d;
  using Mask = __m128d;
  static constexpr int kWidth = 2;
  // The 128-bit ordered compares signal on a quiet NaN: callers that compare
  // data which may hold NaN keep the exception flags around them.
  static constexpr bool kQuietCompare = false;
  static V zero() { return _mm_setzero_pd(); }
  static V set1(double x) { return _mm_set1_pd(x); }
  static V load(const double* p) { return _mm_loadu_pd(p); }
  static void store(double* p, V v) { _mm_storeu_pd(p, v); }
  static V add(V a, V b) { return _mm_add_pd(a, b); }
  static V mul(V a, V b) { return _mm_mul_pd(a, b); }
  static V fmadd(V a, V b, V c) { return _mm_add_pd(_mm_mul_pd(a, b), c); }
  static V abs(V a) { return _mm_andnot_pd(_mm_set1_pd(-0.0), a); }
  static Mask gt(V a, V b) { return _mm_cmpgt_pd(a, b); }
  static Mask is_nan(V a) { return _mm_cmpunord_pd(a, a); }
  static Mask mask_or(Mask a, Mask b) { return _mm_or_pd(a, b); }
  static bool any(Mask m) { return _mm_movemask_pd(m) != 0; }
  static V select(Mask m, V a, V b) { return _mm_or_pd(_mm_and_pd(m, a), _mm_andnot_pd(m, b)); }
};

#endif

// Sum of the lanes, always left to right, so that a result does not depend
// on anything but the data.
inline double simd_sum_lanes(Simd::V v) {
  alignas(64) double lanes[Simd::kWidth];
  Simd::store(lanes, v);
  double s = lanes[0];
  for (int i = 1; i < Simd::kWidth; ++i) s += lanes[i];
  return s;
}

inline int generic_min(int a, int b) { return a < b ? a : b; }
inline int generic_max(int a, int b) { return a > b ? a : b; }

// Offset of the first element a BLAS vector walk touches: with a negative
// increment the walk starts at the far end. Increments and offsets are
// ptrdiff_t in the generic forms: a far element lies beyond 2^31 in a 64-bit
// build.
inline ptrdiff_t generic_vector_start(int n, ptrdiff_t inc) {
  return inc >= 0 ? 0 : (1 - n) * inc;
}

// BLAS characters fold their case.
inline char generic_upper(const char* c) {
  const char ch = *c;
  return (ch >= 'a' && ch <= 'z') ? static_cast<char>(ch - 'a' + 'A') : ch;
}

}  // namespace
