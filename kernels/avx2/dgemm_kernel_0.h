// Packed micro-kernel of the avx2 branch and the records that drive the
// shared blocked GEMM, the packing-free driver and the descriptor layer
// with it. The target decides the tile; everything around it is shared.
//
// 64-bit mode, sixteen registers: 8 rows by 6 columns, twelve accumulators
// in two vectors per column, the two A vectors of the current k and two
// broadcast registers; the walk of a full panel is the assembly routine of
// dgemm_panel_kernel.cpp.
//
// 32-bit mode, eight registers: 28 by 1, seven accumulators of four rows, A
// taken from memory as the fused multiply-add's operand, one register for
// the broadcast B value. Seven chains bound it at 7/8 of the peak, where six
// accumulators (the 12 by 2 and 4 by 6 tiles) stop at 6/8.
//
// Either way the A panel must stay in the first-level cache, so the depth
// block follows that cache's size (gemm_depth_for_l1). The figures behind
// these choices are in bench/PERFORMANCE.md.
//
// Included only by kernels/avx2/*.cpp (anonymous namespace).
#pragma once

#include "kernels/avx2/dgemm_panel_kernel.h"
#include "kernels/generic/gemm_microkernel.h"
#include "kernels/generic/gemm_nocopy.h"

namespace {

#if defined(__x86_64__)

// 64-bit mode: sixteen registers.
struct Avx2Sizes {
  static constexpr int kc_l1_max = 256;
  static constexpr int mc_max = 5000, nc_max = 256, nc_max_small_k = 24, small_k = 48;
  static constexpr int pst_m_limit = 8, pst_n_limit = 2;
};

// The tile record with its panel walk.
struct Avx2Gemm : GemmRegisterTileRecord<GemmLanes<4>, 2, 6, Avx2Sizes> {
  static void panel(int kc, const double* a, const double* b, double* c, int ldc, bool b0,
                    int ntiles, int ntiles_all, const double* next_a, const GemmNextSource* src) {
    gemm_panel_walk<Avx2Gemm>(tarn_avx2_dgemm_panel, kc, a, b, c, ldc, b0, ntiles, ntiles_all,
                              next_a, src);
  }
};

#else

struct Avx2Sizes {
  static constexpr int kc_l1_max = 192;
  static constexpr int mc_max = 5000, nc_max = 512, nc_max_small_k = 24, small_k = 48;
  static constexpr int pst_m_limit = 8, pst_n_limit = 2;
};

using Avx2Gemm = GemmMemoryATileRecord<GemmLanes<4>, 7, 1, Avx2Sizes>;

#endif

struct Avx2GemmNocopy : Avx2Gemm {
  static constexpr int nocopy_max_k = 256;
  static constexpr int nocopy_max_cols = 96;
};

// The branch as the descriptor layer sees it.
struct Avx2GemmDesc {
  using Packed = Avx2Gemm;
  using Nocopy = Avx2GemmNocopy;
  static constexpr int align_hint = 4;
  // K, M, N limits of the packing-free driver by transposition, (a, b, c)
  // as in gemm_nocopy.h.
  static constexpr GemmNocopyLimits nocopy_limits(bool ta, bool tb) {
    constexpr GemmNocopyLimit kM = {8064, 4032, 6048};
    constexpr GemmNocopyLimits kNN = {{192, 96, 96}, kM, {192, 96, 144}};
    constexpr GemmNocopyLimits kNT = {{384, 192, 192}, kM, {192, 96, 144}};
    constexpr GemmNocopyLimits kTN = {{192, 96, 96}, kM, {96, 48, 72}};
    constexpr GemmNocopyLimits kTT = {{512, 256, 256}, kM, {96, 48, 72}};
    return ta ? (tb ? kTT : kTN) : (tb ? kNT : kNN);
  }
};

}  // namespace
