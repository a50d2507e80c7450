// One-thread DGEMM of the sse2 branch: the fixed driver (gemm_table_fixed.h)
// over the 2 by 6 tile, written in the names of the branch's pieces
// (dgemm_fixed_pieces.cpp). Each product of the tile goes through a
// temporary (the B value loaded into both lanes, multiplied by the A
// vector, added into the accumulator), so six accumulators, the A vector
// and the temporary fill the eight registers.
#include "kernels/sse2/dgemm_kernel_0.h"
#include "kernels/generic/gemm_table_fixed.h"

TARN_GEMM_FIXED_XDGEMM(sse2, Sse2Gemm)
