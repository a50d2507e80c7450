// The avx2 macro-kernel of 64-bit mode: one packed A panel (8 rows) against
// a run of whole packed B panels (6 columns each), the walk over the tiles
// and the updates of C in one routine (dgemm_panel_kernel.cpp). Only the
// avx2 kernel files include this header and call it.
#pragma once

#include "kernels/generic/gemm_panel.h"

extern "C" {

// C(8 x 6*ntiles) (+)= A panel * B panels. Each tile first fetches the
// next tile's C into the first-level cache, one column per eight k steps
// (past the last tile: the first tile's columns 8 rows down, the next
// panel's); then pf_count lines from pf_starts[t] on, pf_stride apart, into
// the second-level cache, then run_count lines of the run, one after the
// other from tile to tile, two lines per eight k steps; counts a tile has
// no room for are cut. 64-bit mode only.
void tarn_avx2_dgemm_panel(const GemmPanelArgs* args);

}  // extern "C"
