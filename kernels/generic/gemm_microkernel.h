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

// The record of the shared driver for a branch with such a tile.
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
