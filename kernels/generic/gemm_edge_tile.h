// The tiles of the narrower panels at the edges of a packed block: H rows
// of A (a panel of H values per k) by W columns of B (W values per k), for
// every height and width a block's remainder breaks into (see
// gemm_panel_size in gemm_driver.h). A tile keeps W accumulators of H
// lanes (gemm_lanes.h: two halves where H is wider than a register, as in
// the 16-row panels of avx2), and writes exactly its H by W values of C.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include "kernels/generic/gemm_lanes.h"

namespace {

// C(H x W) (+)= Apanel * Bpanel over kc steps; B0 stores without reading C.
// Out of line, so that its loop has the general registers to itself; not
// vectorized by the compiler, which turned the one-row tiles into pairs of
// k steps in 128-bit registers and spilled their accumulators.
template <int H, int W, bool B0>
__attribute__((noinline, optimize("no-tree-vectorize"))) void gemm_edge_tile(
    int kc, const double* __restrict a, const double* __restrict b, double* c, int ldc) {
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
    double* cj = c + j * static_cast<ptrdiff_t>(ldc);
    L::store(cj, B0 ? acc[j] : L::add(acc[j], L::load(cj)));
  }
}

}  // namespace
