// Register tile of one vector of rows by NR columns, for the branches whose
// tile is a single A vector against broadcast B values: the A vector of the
// current k in one register, each B value broadcast into a temporary and
// multiplied into its column's accumulator. With NR = 6 this takes all
// eight registers of 32-bit mode (six accumulators, A, temporary).
//
// V supplies the vector type and its operations (GemmLanes of gemm_lanes.h):
//   using T; static constexpr int width;
//   zero(), load(p), splat(p) (broadcast of *p), madd(a, b, acc) (acc + a*b),
//   add(x, y), store(p, x)
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include "kernels/generic/gemm_driver.h"

namespace {

// Depth steps per prefetch issued by a tile.
constexpr int kGemmStepsPerPrefetch = 8;

template <class V, int NR, bool B0>
inline void gemm_vector_tile(int kc, const double* __restrict a, const double* __restrict b,
                             double* c, int ldc, const GemmPrefetch& pf) {
  constexpr int CL = gemm_c_lines(V::width);
  typename V::T acc[NR];
#pragma GCC unroll 16
  for (int j = 0; j < NR; ++j) acc[j] = V::zero();
  auto step = [&] {
    const typename V::T av = V::load(a);
#pragma GCC unroll 16
    for (int j = 0; j < NR; ++j) acc[j] = V::madd(av, V::splat(b + j), acc[j]);
    a += V::width;
    b += NR;
  };
  // Loop over the depth, eight k at a time, with one prefetch each. (Fully
  // unrolled, the eight steps of the multiply-and-add branches were
  // reordered by the compiler into spills: avx fell from 77 % to 45 %.)
  int p = 0, q = 0;
  for (; p + kGemmStepsPerPrefetch <= kc; p += kGemmStepsPerPrefetch, ++q) {
    gemm_prefetch_item<CL>(pf, q);
#pragma GCC unroll 2
    for (int u = 0; u < kGemmStepsPerPrefetch; ++u) step();
  }
  for (; p < kc; ++p) step();
  gemm_prefetch_rest<CL>(pf, q);
#pragma GCC unroll 16
  for (int j = 0; j < NR; ++j) {
    double* cj = c + j * static_cast<ptrdiff_t>(ldc);
    if (B0)
      V::store(cj, acc[j]);
    else
      V::store(cj, V::add(acc[j], V::load(cj)));
  }
}

// Register tile of MV vectors of rows by NR columns with A taken straight
// from memory as the multiply-add's operand: NR broadcast registers and
// MV*NR accumulators. With a fused multiply-add, MV = 7 and NR = 1 gives
// seven accumulators in eight registers.
template <class V, int MV, int NR, bool B0>
inline void gemm_memory_a_tile(int kc, const double* __restrict a, const double* __restrict b,
                               double* c, int ldc, const GemmPrefetch& pf) {
  constexpr int CL = gemm_c_lines(MV * V::width);
  typename V::T acc[MV][NR];
#pragma GCC unroll 16
  for (int i = 0; i < MV; ++i)
#pragma GCC unroll 16
    for (int j = 0; j < NR; ++j) acc[i][j] = V::zero();
  auto step = [&] {
    typename V::T bb[NR];
#pragma GCC unroll 16
    for (int j = 0; j < NR; ++j) bb[j] = V::splat(b + j);
#pragma GCC unroll 16
    for (int i = 0; i < MV; ++i)
#pragma GCC unroll 16
      for (int j = 0; j < NR; ++j) acc[i][j] = V::madd(V::load(a + i * V::width), bb[j], acc[i][j]);
    a += MV * V::width;
    b += NR;
  };
  // Loop over the depth, eight k at a time, with one prefetch each.
  int p = 0, q = 0;
  for (; p + kGemmStepsPerPrefetch <= kc; p += kGemmStepsPerPrefetch, ++q) {
    gemm_prefetch_item<CL>(pf, q);
#pragma GCC unroll 8
    for (int u = 0; u < kGemmStepsPerPrefetch; ++u) step();
  }
  for (; p < kc; ++p) step();
  gemm_prefetch_rest<CL>(pf, q);
#pragma GCC unroll 16
  for (int j = 0; j < NR; ++j)
#pragma GCC unroll 16
    for (int i = 0; i < MV; ++i) {
      double* cc = c + j * static_cast<ptrdiff_t>(ldc) + i * V::width;
      if (B0)
        V::store(cc, acc[i][j]);
      else
        V::store(cc, V::add(acc[i][j], V::load(cc)));
    }
}

// Register tile of MV vectors of rows by NR columns with the A vectors of
// the current k held in registers: MV*NR accumulators, MV A registers and a
// broadcast register or two. Needs the sixteen or thirty-two vector
// registers of 64-bit mode for tiles of more than one vector (3 by 8 in
// 512-bit registers, 2 by 6 in 256-bit ones).
template <class V, int MV, int NR, bool B0>
inline void gemm_register_tile(int kc, const double* __restrict a, const double* __restrict b,
                               double* c, int ldc, const GemmPrefetch& pf) {
  constexpr int CL = gemm_c_lines(MV * V::width);
  typename V::T acc[MV][NR];
#pragma GCC unroll 32
  for (int i = 0; i < MV; ++i)
#pragma GCC unroll 32
    for (int j = 0; j < NR; ++j) acc[i][j] = V::zero();
  auto step = [&] {
    typename V::T av[MV];
#pragma GCC unroll 32
    for (int i = 0; i < MV; ++i) av[i] = V::load(a + i * V::width);
#pragma GCC unroll 32
    for (int j = 0; j < NR; ++j) {
      const typename V::T bj = V::splat(b + j);
#pragma GCC unroll 32
      for (int i = 0; i < MV; ++i) acc[i][j] = V::madd(av[i], bj, acc[i][j]);
    }
    a += MV * V::width;
    b += NR;
  };
  // Loop over the depth, eight k at a time, with one prefetch each.
  int p = 0, q = 0;
  for (; p + kGemmStepsPerPrefetch <= kc; p += kGemmStepsPerPrefetch, ++q) {
    gemm_prefetch_item<CL>(pf, q);
#pragma GCC unroll 8
    for (int u = 0; u < kGemmStepsPerPrefetch; ++u) step();
  }
  for (; p < kc; ++p) step();
  gemm_prefetch_rest<CL>(pf, q);
#pragma GCC unroll 32
  for (int j = 0; j < NR; ++j)
#pragma GCC unroll 32
    for (int i = 0; i < MV; ++i) {
      double* cc = c + j * (ptrdiff_t)ldc + i * V::width;
      if (B0)
        V::store(cc, acc[i][j]);
      else
        V::store(cc, V::add(acc[i][j], V::load(cc)));
    }
}

template <class V, int MV, int NR, class Sizes>
struct GemmRegisterTileRecord : Sizes {
  static constexpr int mr = MV * V::width, nr = NR;
  // Out of line, so that the tile's loop has the general registers to
  // itself.
  __attribute__((noinline)) static void kernel(int kc, const double* a, const double* b,
                                               double* c, int ldc, const GemmPrefetch& pf) {
    gemm_register_tile<V, MV, NR, false>(kc, a, b, c, ldc, pf);
  }
  __attribute__((noinline)) static void kernel_b0(int kc, const double* a, const double* b,
                                                  double* c, int ldc, const GemmPrefetch& pf) {
    gemm_register_tile<V, MV, NR, true>(kc, a, b, c, ldc, pf);
  }
};

template <class V, int MV, int NR, class Sizes>
struct GemmMemoryATileRecord : Sizes {
  static constexpr int mr = MV * V::width, nr = NR;
  // Out of line, so that the tile's loop has the general registers to
  // itself.
  __attribute__((noinline)) static void kernel(int kc, const double* a, const double* b,
                                               double* c, int ldc, const GemmPrefetch& pf) {
    gemm_memory_a_tile<V, MV, NR, false>(kc, a, b, c, ldc, pf);
  }
  __attribute__((noinline)) static void kernel_b0(int kc, const double* a, const double* b,
                                                  double* c, int ldc, const GemmPrefetch& pf) {
    gemm_memory_a_tile<V, MV, NR, true>(kc, a, b, c, ldc, pf);
  }
};

// The record of the shared driver for a branch with a single-vector tile.
template <class V, int NR, class Sizes>
struct GemmVectorTileRecord : Sizes {
  static constexpr int mr = V::width, nr = NR;
  // Out of line, so that the tile's loop has the general registers to
  // itself.
  __attribute__((noinline)) static void kernel(int kc, const double* a, const double* b,
                                               double* c, int ldc, const GemmPrefetch& pf) {
    gemm_vector_tile<V, NR, false>(kc, a, b, c, ldc, pf);
  }
  __attribute__((noinline)) static void kernel_b0(int kc, const double* a, const double* b,
                                                  double* c, int ldc, const GemmPrefetch& pf) {
    gemm_vector_tile<V, NR, true>(kc, a, b, c, ldc, pf);
  }
};

}  // namespace
