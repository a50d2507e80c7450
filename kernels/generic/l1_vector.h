// The vector unit the level-1 and level-2 kernels are written against, as
// one record of operations, chosen by the instruction set the including
// kernel file is compiled with: 512-bit on avx512, 256-bit on avx and avx2
// (fused multiply-add only where the flags have it), 128-bit on the SSE
// branches. Inside an anonymous namespace: every kernel file gets its own
// copy, compiled for its own branch, and no other translation unit can
// share (and so replace) it.
//
// The scalar forms fma1/fnma1 round exactly as one lane of the vector
// forms, so a peel or a tail done in scalar gives the same bits as the
// vector loop would have given for the same element.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace {

// |x| by clearing the sign bit: an and with a constant, no flag raised.
constexpr long long kAbsMask = 0x7fffffffffffffffLL;

#if defined(__AVX512F__)

struct L12Vec {
  using V = __m512d;
  using Mask = __mmask8;
  static constexpr int kWidth = 8;
  static V zero() { return _mm512_setzero_pd(); }
  static V set1(double x) { return _mm512_set1_pd(x); }
  static V load(const double* p) { return _mm512_loadu_pd(p); }
  static V loada(const double* p) { return _mm512_load_pd(p); }
  static void store(double* p, V v) { _mm512_storeu_pd(p, v); }
  static void storea(double* p, V v) { _mm512_store_pd(p, v); }
  static V add(V a, V b) { return _mm512_add_pd(a, b); }
  static V mul(V a, V b) { return _mm512_mul_pd(a, b); }
  static V fmadd(V a, V b, V c) { return _mm512_fmadd_pd(a, b, c); }   // a*b + c
  static V fnmadd(V a, V b, V c) { return _mm512_fnmadd_pd(a, b, c); } // c - a*b
  static V abs(V a) { return _mm512_abs_pd(a); }
  // Signalling compare: a NaN operand raises Invalid, which is how the
  // pivot search learns of a NaN without a test in its loop.
  static Mask gt_signal(V a, V b) { return _mm512_cmp_pd_mask(a, b, _CMP_GT_OS); }
  static V select(Mask m, V a, V b) { return _mm512_mask_blend_pd(m, b, a); }  // m ? a : b
  static V clear_where(Mask m, V a) { return _mm512_maskz_mov_pd(static_cast<Mask>(~m), a); }
};

#elif defined(__AVX__)

struct L12Vec {
  using V = __m256d;
  using Mask = __m256d;
  static constexpr int kWidth = 4;
#if defined(__FMA__)
#else
#endif
  static V zero() { return _mm256_setzero_pd(); }
  static V set1(double x) { return _mm256_set1_pd(x); }
  static V load(const double* p) { return _mm256_loadu_pd(p); }
  static V loada(const double* p) { return _mm256_load_pd(p); }
  static void store(double* p, V v) { _mm256_storeu_pd(p, v); }
  static void storea(double* p, V v) { _mm256_store_pd(p, v); }
  static V add(V a, V b) { return _mm256_add_pd(a, b); }
  static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
#if defined(__FMA__)
  static V fmadd(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
  static V fnmadd(V a, V b, V c) { return _mm256_fnmadd_pd(a, b, c); }
#else
  static V fmadd(V a, V b, V c) { return _mm256_add_pd(_mm256_mul_pd(a, b), c); }
  static V fnmadd(V a, V b, V c) { return _mm256_sub_pd(c, _mm256_mul_pd(a, b)); }
#endif
  static V abs(V a) { return _mm256_and_pd(a, _mm256_castsi256_pd(_mm256_set1_epi64x(kAbsMask))); }
  static Mask gt_signal(V a, V b) { return _mm256_cmp_pd(a, b, _CMP_GT_OS); }
  static V select(Mask m, V a, V b) { return _mm256_blendv_pd(b, a, m); }
  static V clear_where(Mask m, V a) { return _mm256_andnot_pd(m, a); }  // m ? 0 : a
};

#else

struct L12Vec {
  using V = __m128d;
  using Mask = __m128d;
  static constexpr int kWidth = 2;
  static V zero() { return _mm_setzero_pd(); }
  static V set1(double x) { return _mm_set1_pd(x); }
  static V load(const double* p) { return _mm_loadu_pd(p); }
  static V loada(const double* p) { return _mm_load_pd(p); }
  static void store(double* p, V v) { _mm_storeu_pd(p, v); }
  static void storea(double* p, V v) { _mm_store_pd(p, v); }
  static V add(V a, V b) { return _mm_add_pd(a, b); }
  static V mul(V a, V b) { return _mm_mul_pd(a, b); }
  static V fmadd(V a, V b, V c) { return _mm_add_pd(_mm_mul_pd(a, b), c); }
  static V fnmadd(V a, V b, V c) { return _mm_sub_pd(c, _mm_mul_pd(a, b)); }
  static V abs(V a) { return _mm_and_pd(a, _mm_castsi128_pd(_mm_set1_epi64x(kAbsMask))); }
  // cmpltpd with the operands swapped: the ordered, signalling form.
  static Mask gt_signal(V a, V b) { return _mm_cmpgt_pd(a, b); }
#if defined(__SSE4_1__)
  static V select(Mask m, V a, V b) { return _mm_blendv_pd(b, a, m); }
#else
  static V select(Mask m, V a, V b) { return _mm_or_pd(_mm_and_pd(m, a), _mm_andnot_pd(m, b)); }
#endif
  static V clear_where(Mask m, V a) { return _mm_andnot_pd(m, a); }  // m ? 0 : a
};

#endif

constexpr int kL12VecBytes = L12Vec::kWidth * static_cast<int>(sizeof(double));

// a*b + c and c - a*b in scalar, rounded as one lane of the vector forms.
inline double l12_fma1(double a, double b, double c) {
#if defined(__FMA__)
  return _mm_cvtsd_f64(_mm_fmadd_sd(_mm_set_sd(a), _mm_set_sd(b), _mm_set_sd(c)));
#else
  return a * b + c;
#endif
}
inline double l12_fnma1(double a, double b, double c) {
#if defined(__FMA__)
  return _mm_cvtsd_f64(_mm_fnmadd_sd(_mm_set_sd(a), _mm_set_sd(b), _mm_set_sd(c)));
#else
  return c - a * b;
#endif
}

// Sum of the lanes, always left to right: a result depends on the data only.
inline double l12_sum_lanes(L12Vec::V v) {
  alignas(64) double lanes[L12Vec::kWidth];
  L12Vec::storea(lanes, v);
  double s = lanes[0];
  for (int i = 1; i < L12Vec::kWidth; ++i) s += lanes[i];
  return s;
}

// Tags of the alignment promise (own types, so that no library template is
// instantiated in a kernel file).
struct L12Aligned {
  static constexpr bool value = true;
};
struct L12Unaligned {
  static constexpr bool value = false;
};

// Load or store with the alignment promised by the tag.
template <class A>
inline L12Vec::V l12_load(A, const double* p) {
  if constexpr (A::value) return L12Vec::loada(p);
  else return L12Vec::load(p);
}
template <class A>
inline void l12_store(A, double* p, L12Vec::V v) {
  if constexpr (A::value) L12Vec::storea(p, v);
  else L12Vec::store(p, v);
}

inline int l12_min(int a, int b) { return a < b ? a : b; }

// Elements to step over, one by one, before p lies on a vector boundary; -1
// when p is not even 8-byte aligned (possible on i386, where the ABI aligns
// doubles to 4 bytes) and no peel can ever reach the boundary.
inline int l12_peel_to_boundary(const double* p) {
  const uintptr_t addr = reinterpret_cast<uintptr_t>(p);
  if (addr % sizeof(double) != 0) return -1;
  const uintptr_t off = addr % kL12VecBytes;
  return off == 0 ? 0 : static_cast<int>((kL12VecBytes - off) / sizeof(double));
}

// The first element a BLAS vector walk touches lies at the far end when the
// increment is negative: base pointer such that element i is at base[i*inc].
template <class T>
inline T* l12_vector_base(T* p, int n, int inc) {
  return inc >= 0 ? p : p + static_cast<ptrdiff_t>(1 - n) * inc;
}

// The BLAS pointer of the sub-vector of length len that starts at element
// `first` of a walk with base `base`: its lowest address.
template <class T>
inline T* l12_sub_vector(T* base, int first, int len, int inc) {
  return inc >= 0 ? base + static_cast<ptrdiff_t>(first) * inc
                  : base + static_cast<ptrdiff_t>(first + len - 1) * inc;
}

// BLAS characters fold their case.
inline char l12_upper(const char* c) {
  const char ch = *c;
  return (ch >= 'a' && ch <= 'z') ? static_cast<char>(ch - 'a' + 'A') : ch;
}

}  // namespace
