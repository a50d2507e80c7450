// The packed tile record of the ssse3 branch, shared by its one-thread DGEMM
// (xdgemm.cpp) and its kernel-table services (dgemm_kernel_table.cpp).
// Included only by kernels/ssse3/*.cpp (anonymous namespace).
#pragma once

#include "kernels/generic/gemm_tile_sse.h"

namespace {
using Ssse3Gemm = GemmVectorTileRecord<GemmLanes<2>, kGemmSseTileColumns, GemmSseSizes>;
}  // namespace
