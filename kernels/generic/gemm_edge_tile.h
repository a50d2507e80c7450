// The tiles of the narrower panels at the edges of a packed block: H rows
// of A (a panel of H values per k) by W columns of B (W values per k), for
// every height and width a block's remainder breaks into (see
// gemm_panel_size in gemm_driver.h). A tile keeps W accumulators of H
// lanes, in the widest registers the branch has that are not wider than H
// (two halves where H is wider than a register: the 16-row panels of avx2),
// and writes exactly its H by W values of C.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <immintrin.h>

namespace {

// H doubles and their operations: zero, load, splat (broadcast of *p),
// madd (a*b + acc, fused where the branch has it), add, store.
template <int H>
struct GemmLanes {
  using Half = GemmLanes<H / 2>;
  struct T {
    typename Half::T lo, hi;
  };
  static T zero() { return {Half::zero(), Half::zero()}; }
  static T load(const double* p) { return {Half::load(p), Half::load(p + H / 2)}; }
  static T splat(const double* p) { return {Half::splat(p), Half::splat(p)}; }
  static T madd(T a, T b, T acc) {
    return {Half::madd(a.lo, b.lo, acc.lo), Half::madd(a.hi, b.hi, acc.hi)};
  }
  static T add(T x, T y) { return {Half::add(x.lo, y.lo), Half::add(x.hi, y.hi)}; }
  static void store(double* p, T x) {
    Half::store(p, x.lo);
    Half::store(p + H / 2, x.hi);
  }
};

template <>
struct GemmLanes<1> {
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
  using T = __m128d;
  static T zero() { return _mm_setzero_pd(); }
  static T load(const double* p) { return _mm_loadu_pd(p); }
  static T splat(const double* p) { return _mm_load1_pd(p); }
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
  using T = __m512d;
  static T zero() { return _mm512_setzero_pd(); }
  static T load(const double* p) { return _mm512_loadu_pd(p); }
  static T splat(const double* p) { return _mm512_set1_pd(*p); }
  static T madd(T a, T b, T acc) { return _mm512_fmadd_pd(a, b, acc); }
  static T add(T x, T y) { return _mm512_add_pd(x, y); }
  static void store(double* p, T x) { _mm512_storeu_pd(p, x); }
};
#endif

// C(H x W) (+)= Apanel * Bpanel over kc steps; B0 stores without reading C.
// Out of line, so that its loop has the general registers to itself; not
// vectorized by the compiler, which turned the one-row tiles into pairs of
// k steps in 128-bit registers and spilled their accumulators.
template <int H, int W, bool B0>
__attribute__((noinline, optimize("no-tree-vectorize"))) void gemm_edge_tile(int kc, const double* __restrict a,
                                              const double* __restrict b, double* c, int ldc) {
  using L = GemmLanes<H>;
  typename L::T acc[W];
#pragma GCC unroll 16
  for (int j = 0; j < W; ++j) acc[j] = L::zero();
  // Loop over the depth, one k at a time.
  for (int p = 0; p < kc; ++p) {
    const typename L::T av = L::load(a);
#pragma GCC unroll 16
    for (int j = 0; j < W; ++j) acc[j] = L::madd(av, L::splat(b + j), acc[j]);
    a += H;
    b += W;
  }
#pragma GCC unroll 16
  for (int j = 0; j < W; ++j) {
    double* cj = c + j * ldc;
    L::store(cj, B0 ? acc[j] : L::add(acc[j], L::load(cj)));
  }
}

}  // namespace
