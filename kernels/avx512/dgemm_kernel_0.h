// Packed micro-kernel of the avx512 branch and the records that drive the
// shared blocked GEMM, the packing-free driver and the descriptor layer
// with it. The target decides the tile; everything around it is shared.
//
// 64-bit mode, thirty-two registers: a tile of 24 rows by 8 columns, 24
// accumulators in three vectors per column, the three A vectors of the
// current k and a broadcast register for each B value. Eleven loads feed
// 24 multiply-adds, and the 24 chains leave the latency far behind. The A
// panel (24 by the depth) stays in the first-level cache while the B
// panels stream from the second (the depth follows that cache's size).
//
// 32-bit mode, eight registers: 8 rows by 7 columns in seven accumulators;
// the eighth register holds the 8 values of A for the current k, and every
// B value enters its multiply-add as a broadcast memory operand ({1to8}).
// Seven chains of four-cycle latency on two pipes bound it at 7/8 of the
// peak (eight accumulators cannot be had: a multiply-add needs one
// multiplicand in a register).
//
// Either way the walk of a full panel over the B block is
// tarn_avx512_dgemm_panel (dgemm_panel_kernel.cpp); the narrower panels at
// a block's edges have the shared driver's edge tiles. The figures behind
// these choices are in bench/PERFORMANCE.md.
//
// Included only by kernels/avx512/*.cpp (anonymous namespace).
#pragma once

#include <immintrin.h>

#include "kernels/avx512/dgemm_pack.h"
#include "kernels/avx512/dgemm_panel_kernel.h"
#include "kernels/generic/gemm_microkernel.h"
#include "kernels/generic/gemm_nocopy.h"

namespace {

#if defined(__x86_64__)

struct Avx512Sizes {
  // The depth: the A panel takes at most 7/8 of the first-level cache, up
  // to 192 (48 KiB: 192, 32 KiB: 144).
  static constexpr int kc_l1_max = 192;
  static constexpr int mc_max = 4992, nc_max = 256, nc_max_small_k = 32, small_k = 80;
  static constexpr int pst_m_limit = 8, pst_n_limit = 6;
};

using Avx512Tile = GemmRegisterTileRecord<GemmLanes<8>, 3, 8, Avx512Sizes>;
// The stack copies of the packing-free path: depth and B columns.
constexpr int kAvx512NocopyMaxK = 384, kAvx512NocopyMaxCols = 96;

#else

struct Avx512Sizes {
  static constexpr int kc_min = 128, kc_low = 384, kc_high = 768, kc_large = 384;
  // The narrow B block holds up to K below 80, not 48: with a shallow
  // depth each tile is short and the C of a 196-column block is more
  // streams than the hardware follows.
  static constexpr int mc_max = 4992, nc_max = 192, nc_max_small_k = 24, small_k = 80;
  static constexpr int pst_m_limit = 8, pst_n_limit = 6;
};

using Avx512Tile = GemmVectorTileRecord<GemmLanes<8>, 7, Avx512Sizes>;
constexpr int kAvx512NocopyMaxK = 384, kAvx512NocopyMaxCols = 98;

#endif

// The tile record with its panel walk and copies.
struct Avx512Gemm : Avx512Tile {
  // Whole tiles of one full panel: the walk of dgemm_panel_kernel.cpp.
  static void panel(int kc, const double* a, const double* b, double* c, int ldc, bool b0,
                    int ntiles, int ntiles_all, const double* next_a, const GemmNextSource* src) {
    gemm_panel_walk<Avx512Gemm>(tarn_avx512_dgemm_panel, kc, a, b, c, ldc, b0, ntiles,
                                ntiles_all, next_a, src);
  }
  static void pack_a_panel(bool ta, int rows, int kc, const double* a, int lda, double alpha,
                           double* dst) {
    avx512_pack_a_panel<mr>(ta, rows, kc, a, lda, alpha, dst);
  }
  static_assert(nr == kPackCols, "the B copy of dgemm_pack.h fills panels of nr columns");
  static void pack_b_panel(bool tb, int kc, int cols, const double* b, int ldb, double* dst) {
    avx512_pack_b_panel(tb, kc, cols, b, ldb, dst);
  }
};

struct Avx512GemmNocopy : Avx512Gemm {
  static constexpr int nocopy_max_k = kAvx512NocopyMaxK;
  static constexpr int nocopy_max_cols = kAvx512NocopyMaxCols;
};

// The branch as the descriptor layer sees it.
struct Avx512GemmDesc {
  using Packed = Avx512Gemm;
  using Nocopy = Avx512GemmNocopy;
  static constexpr int align_hint = 8;
  // K, M, N limits of the packing-free driver, (a, b, c) as in gemm_nocopy.h.
  static constexpr GemmNocopyLimits nocopy_limits(bool ta, bool /*tb*/) {
    constexpr GemmNocopyLimits kAN = {{768, 384, 384}, {8064, 4032, 6048}, {128, 64, 96}};
    constexpr GemmNocopyLimits kAT = {{384, 192, 192}, {8064, 4032, 6048}, {768, 384, 576}};
    return ta ? kAT : kAN;
  }
};

}  // namespace
