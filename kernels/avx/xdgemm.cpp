// One-thread DGEMM of the avx branch: the shared blocked driver with a 4 by
// 6 tile. Without fused multiply-add each product goes through a temporary
// (broadcast of B, multiply by the A vector, add into the accumulator), so
// six accumulators, the A vector and the temporary fill the eight registers.
// It runs through the branch's kernel table (dgemm_kernel_table.cpp) with
// the tuned block sizes; measured against the direct call of the shared
// driver (2000 cube, 1000 'T','N', 300 by 500 by 200 'N','T'): the same rate
// within the noise of this machine.
#include <immintrin.h>

#include "kernels/generic/gemm_table_driver.h"
#include "kernels/avx/dgemm_kernel_0.h"

TARN_GEMM_TABLE_XDGEMM(avx, AvxGemm, _mm256_zeroupper())
