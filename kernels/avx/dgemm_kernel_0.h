// The packed tile record of the avx branch, shared by its one-thread
// DGEMM (xdgemm.cpp) and its kernel-table services (dgemm_kernel_table.cpp).
// Included only by kernels/avx/*.cpp (anonymous namespace).
#pragma once

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_microkernel.h"

namespace {

struct AvxSizes {
  static constexpr int kc_min = 128, kc_low = 256, kc_high = 512, kc_large = 256;
  static constexpr int mc_max = 4992, nc_max = 192, nc_max_small_k = 24, small_k = 48;
  // Smallest M, N, K of the blocked path (first words of the kernel table).
  static constexpr int pst_m_limit = 4, pst_n_limit = 4, pst_k_limit = 4;
};

using AvxGemm = GemmVectorTileRecord<GemmLanes<4>, 6, AvxSizes>;

}  // namespace
