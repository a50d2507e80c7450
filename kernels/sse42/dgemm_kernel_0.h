// The packed tile record of the sse42 branch, shared by its one-thread DGEMM
// (xdgemm.cpp) and its kernel-table services (dgemm_kernel_table.cpp).
// Included only by kernels/sse42/*.cpp (anonymous namespace).
#pragma once

#include "kernels/generic/gemm_tile_sse.h"

namespace {
using Sse42Gemm = GemmVectorTileRecord<GemmLanes<2>, kGemmSseTileColumns, GemmSseSizes>;
}  // namespace
