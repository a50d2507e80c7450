// The avx512 macro-kernel: one packed A panel (8 rows) against a run of
// whole packed B panels (7 columns each), the walk over the tiles and the
// updates of C in one assembly routine (dgemm_panel_kernel.cpp). Only the
// avx512 kernel files include this header and call it.
#pragma once

extern "C" {

// Arguments of tarn_avx512_dgemm_panel, read once per call. The offsets of
// the fields are fixed in the routine; keep the order.
struct Avx512PanelArgs {
  const double* a;       // packed A panel: kc slices of 8 rows
  const double* b;       // ntiles packed B panels, kc slices of 7, one after the other
  double* c;             // top-left element of the first tile
  int ldc_bytes;         // column stride of C in bytes
  int kc;                // depth, at least 1
  int ntiles;            // tiles of 8 by 7, at least 1
  int b0;                // non-zero: store the product, C is not read
  const char* const* pf_starts;  // per tile, where its level-2 prefetches start, or null
  int pf_stride;                 // bytes from one prefetch to the next
  int pf_count;                  // prefetches per tile, one per eight k steps
  const char* run;               // a run of lines fetched into the second-level cache, or null
  int run_count;                 // lines of it per tile, one per eight k steps
};

// C(8 x 7*ntiles) (+)= A panel * B panels. Each tile fetches the C of the
// tile two places on into the second-level cache during its first 56 k
// steps (past the last tile: the same columns eight rows down, the next
// panel's first tiles), and the same columns 16 rows further down, then
// pf_count lines from pf_starts[t] on, pf_stride apart, also into the
// second-level cache: the next A panel, packed or still in the caller's
// matrix; then run_count lines of the run, one after the other from tile to
// tile (where the next A panel will be packed, or the source of the next B
// block).
void tarn_avx512_dgemm_panel(const Avx512PanelArgs* args);

}  // extern "C"
