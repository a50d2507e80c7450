// Register tile of one vector of rows by NR columns, for the branches whose
// tile is a single A vector against broadcast B values: the A vector of the
// current k in one register, each B value broadcast into a temporary and
// multiplied into its column's accumulator. With NR = 6 this takes all
// eight registers of 32-bit mode (six accumulators, A, temporary).
//
// V supplies the vector type and its operations:
//   using T; static constexpr int width;
//   zero(), load(p), splat(p) (broadcast of *p), madd(a, b, acc) (acc + a*b),
//   add(x, y), store(p, x)
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

namespace {

template <class V, int NR, bool B0>
inline void gemm_vector_tile(int kc, const double* __restrict a, const double* __restrict b,
                             double* c, int ldc) {
  typename V::T acc[NR];
#pragma GCC unroll 16
  for (int j = 0; j < NR; ++j) acc[j] = V::zero();
  // Loop over the depth, one k at a time (unrolled by 4).
#pragma GCC unroll 4
  for (int p = 0; p < kc; ++p) {
    const typename V::T av = V::load(a);
#pragma GCC unroll 16
    for (int j = 0; j < NR; ++j) acc[j] = V::madd(av, V::splat(b + j), acc[j]);
    a += V::width;
    b += NR;
  }
#pragma GCC unroll 16
  for (int j = 0; j < NR; ++j) {
    double* cj = c + j * ldc;
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
                               double* c, int ldc) {
  typename V::T acc[MV][NR];
#pragma GCC unroll 16
  for (int i = 0; i < MV; ++i)
#pragma GCC unroll 16
    for (int j = 0; j < NR; ++j) acc[i][j] = V::zero();
  // Loop over the depth, one k at a time (unrolled by 4).
#pragma GCC unroll 4
  for (int p = 0; p < kc; ++p) {
    typename V::T bb[NR];
#pragma GCC unroll 16
    for (int j = 0; j < NR; ++j) bb[j] = V::splat(b + j);
#pragma GCC unroll 16
    for (int i = 0; i < MV; ++i)
#pragma GCC unroll 16
      for (int j = 0; j < NR; ++j) acc[i][j] = V::madd(V::load(a + i * V::width), bb[j], acc[i][j]);
    a += MV * V::width;
    b += NR;
  }
#pragma GCC unroll 16
  for (int j = 0; j < NR; ++j)
#pragma GCC unroll 16
    for (int i = 0; i < MV; ++i) {
      double* cc = c + j * ldc + i * V::width;
      if (B0)
        V::store(cc, acc[i][j]);
      else
        V::store(cc, V::add(acc[i][j], V::load(cc)));
    }
}

template <class V, int MV, int NR, class Sizes>
struct GemmMemoryATileRecord : Sizes {
  static constexpr int mr = MV * V::width, nr = NR;
  static void kernel(int kc, const double* a, const double* b, double* c, int ldc) {
    gemm_memory_a_tile<V, MV, NR, false>(kc, a, b, c, ldc);
  }
  static void kernel_b0(int kc, const double* a, const double* b, double* c, int ldc) {
    gemm_memory_a_tile<V, MV, NR, true>(kc, a, b, c, ldc);
  }
};

// The record of the shared driver for a branch with a single-vector tile.
template <class V, int NR, class Sizes>
struct GemmVectorTileRecord : Sizes {
  static constexpr int mr = V::width, nr = NR;
  static void kernel(int kc, const double* a, const double* b, double* c, int ldc) {
    gemm_vector_tile<V, NR, false>(kc, a, b, c, ldc);
  }
  static void kernel_b0(int kc, const double* a, const double* b, double* c, int ldc) {
    gemm_vector_tile<V, NR, true>(kc, a, b, c, ldc);
  }
};

}  // namespace
