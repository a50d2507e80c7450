// The walk of one full packed A panel over a block of whole packed B panels
// as one routine of a branch (its tiles, the updates of C and the
// prefetches in between), and what is shared around such routines: their
// arguments, the prefetch plan a record's panel() builds from what the
// driver says lies ahead (gemm_driver.h: next_a, GemmNextSource), and the
// fixed trip counts of a 64-bit walk.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <cstddef>

#include "kernels/generic/gemm_driver.h"

extern "C" {

// Arguments of a branch's panel routine, read once per call. The 32-bit
// avx512 routine reads them at fixed offsets; keep the order.
struct GemmPanelArgs {
  const double* a;       // packed A panel: kc slices of the tile's rows
  const double* b;       // ntiles packed B panels, kc slices of a tile's columns, one after the other
  double* c;             // top-left element of the first tile
  ptrdiff_t ldc_bytes;   // column stride of C in bytes
  int kc;                // depth, at least 1
  int ntiles;            // whole tiles, at least 1
  int b0;                // non-zero: store the product, C is not read
  const char* const* pf_starts;  // per tile, where its level-2 prefetches start, or null
  ptrdiff_t pf_stride;           // bytes from one prefetch to the next
  int pf_count;                  // prefetches per tile
  const char* run;               // a run of lines fetched into the second-level cache, or null
  int run_count;                 // lines of it per tile
};

// What a 64-bit walk in assembly reads: the same, as fixed trip counts of
// its depth loops, every field eight bytes wide.
struct GemmPanelPlan {
  const double* a;
  const double* b;
  double* c;
  ptrdiff_t ldc_bytes;
  ptrdiff_t ntiles;
  ptrdiff_t c_groups;     // groups of eight k steps that fetch a column of the next C
  ptrdiff_t list_groups;  // groups that fetch two listed lines
  ptrdiff_t run_groups;   // groups that fetch two lines of the run
  ptrdiff_t plain_groups;
  ptrdiff_t rest;  // single k steps after the groups
  ptrdiff_t b0;
  const char* const* pf_starts;
  ptrdiff_t pf_stride;
  const char* run;
};

}  // extern "C"

static_assert(sizeof(void*) != 8 ||
                  (offsetof(GemmPanelPlan, a) == 0 && offsetof(GemmPanelPlan, b) == 8 &&
                   offsetof(GemmPanelPlan, c) == 16 && offsetof(GemmPanelPlan, ldc_bytes) == 24 &&
                   offsetof(GemmPanelPlan, ntiles) == 32 &&
                   offsetof(GemmPanelPlan, c_groups) == 40 &&
                   offsetof(GemmPanelPlan, list_groups) == 48 &&
                   offsetof(GemmPanelPlan, run_groups) == 56 &&
                   offsetof(GemmPanelPlan, plain_groups) == 64 &&
                   offsetof(GemmPanelPlan, rest) == 72 && offsetof(GemmPanelPlan, b0) == 80 &&
                   offsetof(GemmPanelPlan, pf_starts) == 88 &&
                   offsetof(GemmPanelPlan, pf_stride) == 96 && offsetof(GemmPanelPlan, run) == 104),
              "the 64-bit walks read the plan at these offsets");

namespace {

using GemmPanelRoutine = void(const GemmPanelArgs* args);

// Tiles a panel routine takes in one call; the prefetch list has one entry
// for each.
constexpr int kGemmPanelTilesPerCall = 32;

// The whole tiles of one full panel of record R through its routine, at
// most kGemmPanelTilesPerCall tiles a call, with the prefetch plan: each
// tile fetches its share of the next A panel into the second-level cache,
// of the packed panel, or, before it is packed, of its source (a run of the
// panel's rows for each k of an A that is not transposed; a run along each
// row of a transposed one) and of where it will be packed; in the last
// panels of a block also its share of the next B block's source.
template <class R>
void gemm_panel_walk(GemmPanelRoutine* routine, int kc, const double* a, const double* b,
                     double* c, int ldc, bool b0, int ntiles, int ntiles_all,
                     const double* next_a, const GemmNextSource* src) {
  const char* starts[kGemmPanelTilesPerCall];
  const int panel_lines = gemm_lines(R::mr * kc * (int)sizeof(double));
  GemmPanelArgs args;
  args.a = a;
  args.ldc_bytes = ldc * (ptrdiff_t)sizeof(double);
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
  const int nlist = gemm_min(ntiles_all, kGemmPanelTilesPerCall);
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
      args.run_count = (panel_lines + ntiles_all - 1) / ntiles_all;
    }
  } else if (next_a != nullptr) {
    // The packed next A panel, its lines in order, as the run.
    args.run = reinterpret_cast<const char*>(next_a);
    args.run_count = (panel_lines + ntiles_all - 1) / ntiles_all;
  } else if (src != nullptr && src->a != nullptr && !src->ta) {
    // One run of the panel's rows per k, lda apart.
    args.pf_count = (kc + nlist - 1) / nlist;
    args.pf_stride = src->lda * (ptrdiff_t)sizeof(double);
    for (int t = 0; t < nlist; ++t)
      starts[t] = reinterpret_cast<const char*>(
          src->a + (ptrdiff_t)gemm_min(t * args.pf_count, kc - 1) * src->lda);
  } else if (src != nullptr && src->a != nullptr) {
    // The panel's rows of kc values each, the same number of tiles on each
    // row, each tile a run along its row (tiles past the last row repeat
    // its last run).
    const int row_lines = gemm_lines(kc * (int)sizeof(double)) + 1;
    const int tiles_per_row = gemm_max(1, nlist / R::mr);
    const int rows_listed = gemm_min(R::mr, nlist);
    args.pf_count = (row_lines + tiles_per_row - 1) / tiles_per_row;
    for (int t = 0; t < nlist; ++t) {
      const int row = gemm_min(t / tiles_per_row, rows_listed - 1);
      const int run = t / tiles_per_row < rows_listed ? t % tiles_per_row : tiles_per_row - 1;
      starts[t] = reinterpret_cast<const char*>(src->a + (ptrdiff_t)row * src->lda) +
                  (ptrdiff_t)run * args.pf_count * kGemmLine;
    }
  }
  if (args.pf_count > 0) args.pf_starts = starts;
  // Loop over the tiles, kGemmPanelTilesPerCall at a time.
  for (int t0 = 0; t0 < ntiles; t0 += kGemmPanelTilesPerCall) {
    args.b = b + (ptrdiff_t)t0 * R::nr * kc;
    args.c = c + (ptrdiff_t)t0 * R::nr * ldc;
    args.ntiles = gemm_min(kGemmPanelTilesPerCall, ntiles - t0);
    routine(&args);
    args.run = nullptr;
  }
}

// The fixed trip counts of a 64-bit walk of a tile NR columns wide: per
// tile, one group of eight k steps for each column of the next tile's C
// (as far as the depth goes), then groups fetching two listed lines each,
// then two lines of the run each, as many as the counts ask and the depth
// leaves room for, then plain groups and the single steps.
template <int NR>
GemmPanelPlan gemm_panel_plan(const GemmPanelArgs& args) {
  constexpr int kSteps = 8, kLines = 2;
  auto groups_for = [](ptrdiff_t lines, ptrdiff_t room) {
    const ptrdiff_t want = (lines + kLines - 1) / kLines;
    return want < room ? want : room;
  };
  GemmPanelPlan plan;
  plan.a = args.a;
  plan.b = args.b;
  plan.c = args.c;
  plan.ldc_bytes = args.ldc_bytes;
  plan.ntiles = args.ntiles;
  const ptrdiff_t groups = args.kc / kSteps;
  plan.rest = args.kc % kSteps;
  plan.c_groups = groups < NR ? groups : NR;
  ptrdiff_t left = groups - plan.c_groups;
  plan.list_groups = args.pf_starts != nullptr ? groups_for(args.pf_count, left) : 0;
  left -= plan.list_groups;
  plan.run_groups = args.run != nullptr ? groups_for(args.run_count, left) : 0;
  plan.plain_groups = left - plan.run_groups;
  plan.b0 = args.b0;
  plan.pf_starts = args.pf_starts;
  plan.pf_stride = args.pf_stride;
  plan.run = args.run;
  return plan;
}

}  // namespace
