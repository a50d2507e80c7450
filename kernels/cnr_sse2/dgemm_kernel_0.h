// The packed tile record of the cnr_sse2 branch, shared by its one-thread DGEMM
// (xdgemm.cpp) and its fixed driver's named pieces (dgemm_fixed_pieces.cpp).
// Included only by kernels/cnr_sse2/*.cpp (anonymous namespace).
#pragma once

#include "kernels/generic/gemm_tile_sse.h"

namespace {
using CnrSse2Gemm = GemmVectorTileRecord<GemmLanes<2>, kGemmSseTileColumns, GemmSseSizes>;
}  // namespace
