// H doubles in the widest registers of the branch being compiled that are
// not wider than H (two parts where H is wider than a register: halves for
// a power of two, else the largest power of two below H and the rest, so
// that 24 rows are 16 + 8 and 12 rows 8 + 4), as the record of operations
// the GEMM tiles are written on: width, T, zero, load, splat (broadcast of
// *p), madd (a*b + acc, fused where the branch has it), add, store.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <immintrin.h>

#include <bit>

namespace {

template <int H>
struct GemmLanes {
  static constexpr int width = H;
  static constexpr int kLo = std::has_single_bit((unsigned)H) ? H / 2 : (int)std::bit_floor((unsigned)H);
  using Lo = GemmLanes<kLo>;
  using Hi = GemmLanes<H - kLo>;
  struct T {
    typename Lo::T lo;
    typename Hi::T hi;
  };
  static T zero() { return {Lo::zero(), Hi::zero()}; }
  static T load(const double* p) { return {Lo::load(p), Hi::load(p + kLo)}; }
  static T splat(const double* p) { return {Lo::splat(p), Hi::splat(p)}; }
  static T madd(T a, T b, T acc) {
    return {Lo::madd(a.lo, b.lo, acc.lo), Hi::madd(a.hi, b.hi, acc.hi)};
  }
  static T add(T x, T y) { return {Lo::add(x.lo, y.lo), Hi::add(x.hi, y.hi)}; }
  static void store(double* p, T x) {
    Lo::store(p, x.lo);
    Hi::store(p + kLo, x.hi);
  }
};

template <>
struct GemmLanes<1> {
  static constexpr int width = 1;
  using T = double;
  static T zero() { return 0.0; }
  static T load(const double* p) { return *p; }
  static T splat(const double* p) { return *p; }
#if defined(__FMA__)
  static T madd(T a, T b, T acc) { return __builtin_fma(a, b, acc); }
#else
  static T madd(T a, T b, T acc) { return acc + a * b; }
#endif
  static T add(T x, T y) { return x + y; }
  static void store(double* p, T x) { *p = x; }
};

template <>
struct GemmLanes<2> {
  static constexpr int width = 2;
  using T = __m128d;
  static T zero() { return _mm_setzero_pd(); }
  static T load(const double* p) { return _mm_loadu_pd(p); }
#if defined(__SSE3__)
  // The duplicating load broadcasts in one instruction.
  static T splat(const double* p) { return _mm_loaddup_pd(p); }
#else
  static T splat(const double* p) { return _mm_load1_pd(p); }
#endif
#if defined(__FMA__)
  static T madd(T a, T b, T acc) { return _mm_fmadd_pd(a, b, acc); }
#else
  static T madd(T a, T b, T acc) { return _mm_add_pd(acc, _mm_mul_pd(a, b)); }
#endif
  static T add(T x, T y) { return _mm_add_pd(x, y); }
  static void store(double* p, T x) { _mm_storeu_pd(p, x); }
};

#if defined(__AVX__)
template <>
struct GemmLanes<4> {
  static constexpr int width = 4;
  using T = __m256d;
  static T zero() { return _mm256_setzero_pd(); }
  static T load(const double* p) { return _mm256_loadu_pd(p); }
  static T splat(const double* p) { return _mm256_broadcast_sd(p); }
#if defined(__FMA__)
  static T madd(T a, T b, T acc) { return _mm256_fmadd_pd(a, b, acc); }
#else
  static T madd(T a, T b, T acc) { return _mm256_add_pd(acc, _mm256_mul_pd(a, b)); }
#endif
  static T add(T x, T y) { return _mm256_add_pd(x, y); }
  static void store(double* p, T x) { _mm256_storeu_pd(p, x); }
};
#endif

#if defined(__AVX512F__)
template <>
struct GemmLanes<8> {
  static constexpr int width = 8;
  using T = __m512d;
  static T zero() { return _mm512_setzero_pd(); }
  static T load(const double* p) { return _mm512_loadu_pd(p); }
  static T splat(const double* p) { return _mm512_set1_pd(*p); }
  static T madd(T a, T b, T acc) { return _mm512_fmadd_pd(a, b, acc); }
  static T add(T x, T y) { return _mm512_add_pd(x, y); }
  static void store(double* p, T x) { _mm512_storeu_pd(p, x); }
};
#endif

}  // namespace
