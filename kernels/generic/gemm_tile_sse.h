// Packed tile records of the 128-bit branches without fused multiply-add:
// two rows by six columns, a multiply and an add per lane, on GemmLanes<2>
// (whose broadcast of a B value follows the branch's flags: a scalar load
// and a shuffle on sse2, the duplicating load from SSE3 on). Included only
// by kernel translation units, each compiled with its branch's flags
// (anonymous namespace).
#pragma once

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_microkernel.h"

namespace {

// Block sizes of the 2 by 6 tile, the same on every 128-bit branch.
struct GemmSseSizes {
  static constexpr int kc_min = 128, kc_low = 256, kc_high = 512, kc_large = 256;
  static constexpr int mc_max = 4992, nc_max = 192, nc_max_small_k = 24, small_k = 48;
  // Smallest M, N, K of the blocked path (first words of the kernel table).
  static constexpr int pst_m_limit = 2, pst_n_limit = 4, pst_k_limit = 4;
};

constexpr int kGemmSseTileColumns = 6;

}  // namespace
