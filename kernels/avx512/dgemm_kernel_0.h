// Packed micro-kernel of the avx512 branch and the records that drive the
// shared blocked GEMM, the packing-free driver and the descriptor layer
// with it.
//
// Tile: 8 rows by 7 columns of C in seven 512-bit accumulators; the eighth
// register holds the 8 values of A for the current k, and every B value
// enters its multiply-add as a broadcast memory operand ({1to8}), so no
// register is spent on broadcasts. Seven chains of four-cycle latency on two
// pipes bound the tile at 7/8 of the fused multiply-add peak, against 6/8
// for the 8 by 6 tile with a broadcast register; eight accumulators cannot
// be had (a multiply-add needs one multiplicand in a register). The walk
// of a full panel over the B block is the assembly routine of
// dgemm_panel_kernel.cpp; the narrower panels at a block's edges have the
// shared driver's edge tiles, and the shared vector tile (gemm_microkernel.h)
// serves the triangular solve's updates.
//
// Measured here, one thread, each figure against the peak loop of the same
// run (the clock of this machine moves by up to 15 % from one second to the
// next, so single figures differ by 2-3 points; best of many short runs):
// - Loops of the tile's instructions alone, operands in the first-level
//   cache: seven register-only chains 87.5-89 % (the 7/8 bound); seven
//   chains with broadcast memory operands and a fixed A register 87-90 %;
//   the same with the A register loaded every k, as the tile must, 81-83 %.
//   Any rewrite of that register per k costs: a zeroing idiom instead of
//   the load 83-84 %, one load per two k (not a valid product) 85-87 %.
//   Other orders of the seven multiply-adds, A and accumulator trading
//   registers (132 form), a 256-bit or broadcast A load: no gain. This is
//   the ceiling of the tile on this processor.
// - The assembly walk: 80-82 % with the panels in cache; over 500 A panels
//   with C a fresh 4000-row block each time 78.5-81 % (C held in cache
//   80.5-82 %); the compiled tile with its call per tile was at 74-77 %.
// - The whole product at m=n=k=4000 (bench_blas): 72-77 % before the
//   assembly walk, now 77-80 % for both 'N','N' and 'T','N' (1.86-1.95 s,
//   68-70 GF/s). Of its time 98.8 % is inside the panel routine: the
//   copies take 13-15 ms (A 4-5, B 8-9), most of their sources fetched
//   during the walk (before that: A 9-26 ms, B 13-14 ms). The rest of the
//   gap to the walk alone is C and A coming from memory.
// Tried without a gain: depth blocks 256 and 320 (the same), 512 and 768
// (66.0 and 64.9 GF/s against 66.7; at 768 the A panel no longer fits the
// first-level cache and is read from the second); a walk unrolled by 16
// (a point slower in cache); C fetched one tile ahead or late in the tile
// (1-2 points slower), or with prefetchw; column blocks 96, 280, 392, row
// blocks 336 and 1000 (B packed more often); the other loop order (B panel
// resident, A block in the second-level cache); the next A panel fetched
// into the first-level cache. Without the C fetch the product lost a
// quarter of its rate, without the next-A-panel fetch 2-5 points.
// Where the last points go, measured with each sample between two peak
// windows of its own length, medians of 30-300 samples (steadier than the
// best of a few): the walk over 500 A panels 79-80 %, and the same with one
// A panel and one C tile used over and over, with one B panel for every
// tile, or with the update of C left out, so neither memory nor C is what
// is left. Loops of the tile's instructions alone (peak windows as long
// as the sample; windows shorter than it had read the loops 2-3 points
// high): seven register-only chains 88 %, the 7/8 bound; seven multiply-
// adds a step with their broadcast operands 83.6 %, with the A load 81 %,
// with one more no-op 78 %. So the walk in cache (80-81 %) and the product
// (79-80 %) stand at 97-99 % of the tile's own loop: 60 no-ops more per
// tile cost 0.3 points. The loop's rate is not a matter of its instruction
// count: the same 64-step block, data in cache, runs at either 80.5 % or
// 86.8 % from one call to the next (two steady schedules of the seven
// chains on the two pipes; a fence before the block did not choose
// between them), but in the tile's setting (accumulators zeroed per tile,
// B from the second-level cache) every arrangement measured stays at
// 81-83 %: loops of 8 to 64 steps, no-ops at 40 random places in the
// 8-step loop (all slower), the same number of no-ops after every step
// (one to six: 77-80 % against 82 %) or before its load, accumulators
// cleared by a dependent instruction or not at all instead of the zeroing
// idiom (the same), C loaded at the tile's start instead of added at its
// end; a fully unrolled tile falls to the legacy decoders (66 %).
// With every operand held in cache the walk's fetches cost 1.3 points
// (80.5 % with them, 81.8 % without, measured on another day); in the
// product they are what keep it from losing a quarter of its rate. The
// walk is also sensitive to where its loops lie: 64-byte alignment of the
// loops, padding before them, or the plain loop unrolled by 16 cost 1-3
// points; A addressed through the loop counter (one instruction less per
// eight steps, +0.4 points) and depth blocks of equal size (11 of 364
// rather than ten of 384 and one of 160) stayed within this machine's
// noise.
//
// Included only by kernels/avx512/*.cpp (anonymous namespace).
#pragma once

#include <immintrin.h>

#include "kernels/avx512/dgemm_pack.h"
#include "kernels/avx512/dgemm_panel_kernel.h"
#include "kernels/generic/gemm_microkernel.h"
#include "kernels/generic/gemm_nocopy.h"

namespace {

struct Avx512Sizes {
  static constexpr int kc_min = 128, kc_low = 384, kc_high = 768, kc_large = 384;
  // The narrow B block holds up to K below 80, not 48: with a shallow
  // depth each tile is short and the C of a 196-column block, one line in
  // each of 196 columns per A panel, is more streams than the hardware
  // follows. Measured at m=n=2000, 'N','N', against the peak: K=48 28-35 %
  // with 196 columns, 67-68 % with 28 (the LU's update depth up to order
  // 2000); K=64 65 % against 74-75 %; K=80 75 % against 72-74 %; from 96 on
  // the wide block is as good or better.
  static constexpr int mc_max = 4992, nc_max = 192, nc_max_small_k = 24, small_k = 80;
  static constexpr int pst_m_limit = 8, pst_n_limit = 6;
};

// The tile record: 8 by 7, its whole tile the shared vector tile.
struct Avx512Gemm : GemmVectorTileRecord<GemmLanes<8>, 7, Avx512Sizes> {
  // Whole tiles of one full panel: the assembly walk of dgemm_panel_kernel,
  // at most kPanelTilesPerCall tiles a call. Each tile fetches its share of
  // the next A panel into the second-level cache: of the packed panel, or,
  // before it is packed, of its source (a line for each k of a row panel
  // of A; a run of lines along a row of A, transposed) and of where it will
  // be packed; in the last panels of a block also its share of the next B
  // block's source.
  static constexpr int kPanelTilesPerCall = 32;
#if defined(__i386__)
  static void panel(int kc, const double* a, const double* b, double* c, int ldc, bool b0,
                    int ntiles, int ntiles_all, const double* next_a, const GemmNextSource* src) {
    constexpr int kRowsOfSource = 8;
    const char* starts[kPanelTilesPerCall];
    Avx512PanelArgs args;
    args.a = a;
    args.ldc_bytes = ldc * (int)sizeof(double);
    args.kc = kc;
    args.b0 = b0 ? 1 : 0;
    args.pf_starts = nullptr;
    args.pf_stride = kGemmLine;
    args.pf_count = 0;
    args.run = nullptr;
    args.run_count = 0;
    if (src != nullptr && src->run != nullptr) {
      args.run = static_cast<const char*>(src->run);
      args.run_count = (src->run_lines + ntiles_all - 1) / ntiles_all;
    }
    const int nlist = gemm_min(ntiles_all, kPanelTilesPerCall);
    if (src != nullptr && src->b_cols != nullptr) {
      // Columns of the next B block's source on the list, the same number of
      // tiles on each, and the packed next A panel, if any, as the run.
      const int per_col = gemm_max(1, nlist / src->b_count);
      args.pf_count = (src->b_lines + per_col - 1) / per_col;
      for (int t = 0; t < nlist; ++t) {
        const int col = gemm_min(t / per_col, src->b_count - 1);
        const int part = t / per_col < src->b_count ? t % per_col : per_col - 1;
        starts[t] = reinterpret_cast<const char*>(src->b_cols + (ptrdiff_t)col * src->ldb) +
                    (ptrdiff_t)part * args.pf_count * kGemmLine;
      }
      if (next_a != nullptr) {
        args.run = reinterpret_cast<const char*>(next_a);
        args.run_count = (kc + ntiles_all - 1) / ntiles_all;
      }
    } else if (next_a != nullptr) {
      // The packed next A panel, its kc lines in order, as the run.
      args.run = reinterpret_cast<const char*>(next_a);
      args.run_count = (kc + ntiles_all - 1) / ntiles_all;
    } else if (src != nullptr && src->a != nullptr && !src->ta) {
      // One line per k, lda apart.
      args.pf_count = (kc + nlist - 1) / nlist;
      args.pf_stride = src->lda * (int)sizeof(double);
      for (int t = 0; t < nlist; ++t)
        starts[t] = reinterpret_cast<const char*>(
            src->a + (ptrdiff_t)gemm_min(t * args.pf_count, kc - 1) * src->lda);
    } else if (src != nullptr && src->a != nullptr) {
      // Eight rows of kc values each, the same number of tiles on each row,
      // each tile a run along its row (tiles past the last row repeat its
      // last run).
      const int row_lines = gemm_lines(kc * (int)sizeof(double)) + 1;
      const int tiles_per_row = gemm_max(1, nlist / kRowsOfSource);
      args.pf_count = (row_lines + tiles_per_row - 1) / tiles_per_row;
      for (int t = 0; t < nlist; ++t) {
        const int row = gemm_min(t / tiles_per_row, kRowsOfSource - 1);
        const int run = t / tiles_per_row < kRowsOfSource ? t % tiles_per_row : tiles_per_row - 1;
        starts[t] = reinterpret_cast<const char*>(src->a + (ptrdiff_t)row * src->lda) +
                    (ptrdiff_t)run * args.pf_count * kGemmLine;
      }
    }
    if (args.pf_count > 0) args.pf_starts = starts;
    // Loop over the tiles, kPanelTilesPerCall at a time.
    for (int t0 = 0; t0 < ntiles; t0 += kPanelTilesPerCall) {
      args.b = b + (ptrdiff_t)t0 * nr * kc;
      args.c = c + (ptrdiff_t)t0 * nr * ldc;
      args.ntiles = gemm_min(kPanelTilesPerCall, ntiles - t0);
      tarn_avx512_dgemm_panel(&args);
      args.run = nullptr;
    }
  }
#endif
  static void pack_a_panel(bool ta, int rows, int kc, const double* a, int lda, double alpha,
                           double* dst) {
    avx512_pack_a_panel(ta, rows, kc, a, lda, alpha, dst);
  }
  static_assert(nr == kPackCols, "the B copy of dgemm_pack.h fills panels of nr columns");
  static void pack_b_panel(bool tb, int kc, int cols, const double* b, int ldb, double* dst) {
    avx512_pack_b_panel(tb, kc, cols, b, ldb, dst);
  }
};

struct Avx512GemmNocopy : Avx512Gemm {
  static constexpr int nocopy_max_k = 384;
  static constexpr int nocopy_max_cols = 98;
};

// The branch as the descriptor layer sees it.
struct Avx512GemmDesc {
  using Packed = Avx512Gemm;
  using Nocopy = Avx512GemmNocopy;
  static constexpr int align_hint = 8;
  // K, M, N limits of the packing-free driver, (a, b, c) as in gemm_nocopy.h.
  static GemmNocopyLimits nocopy_limits(bool ta, bool /*tb*/) {
    constexpr GemmNocopyLimits kAN = {{768, 384, 384}, {8064, 4032, 6048}, {128, 64, 96}};
    constexpr GemmNocopyLimits kAT = {{384, 192, 192}, {8064, 4032, 6048}, {768, 384, 576}};
    return ta ? kAT : kAN;
  }
};

}  // namespace
