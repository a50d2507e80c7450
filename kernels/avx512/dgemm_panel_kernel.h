// The avx512 macro-kernel: one packed A panel against a run of whole packed
// B panels, the walk over the tiles and the updates of C in one routine
// (dgemm_panel_kernel.cpp): 24 rows by 8 columns a tile in 64-bit mode, 8
// by 7 in 32-bit mode. Only the avx512 kernel files include this header
// and call it.
#pragma once

#include "kernels/generic/gemm_panel.h"

extern "C" {

// C(tile rows x tile columns*ntiles) (+)= A panel * B panels. Each tile
// first fetches C ahead: in 64-bit mode the next tile's C into the first-
// level cache, one column per eight k steps (past the last tile: the first
// tile's columns 24 rows down, the next panel's); in 32-bit mode the C of
// the tile two places on (past the last tile: eight rows down) and the same
// columns 16 rows further down, into the second-level cache during its
// first 56 k steps. Then pf_count lines from pf_starts[t] on, pf_stride
// apart, into the second-level cache: the next A panel, packed or still in
// the caller's matrix; then run_count lines of the run, one after the other
// from tile to tile (where the next A panel will be packed, or the source
// of the next B block). 64-bit mode fetches two lines per eight k steps,
// 32-bit mode one; counts a tile has no room for are cut.
void tarn_avx512_dgemm_panel(const GemmPanelArgs* args);

}  // extern "C"
