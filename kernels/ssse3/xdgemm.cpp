// One-thread DGEMM of the ssse3 branch: the shared blocked driver with a 2 by
// 6 tile. Each product goes through a temporary (a load that duplicates the B value, multiplied by
// the A vector, added into the accumulator), so six accumulators, the A
// vector and the temporary fill the eight registers.
// It runs through the branch's kernel table (dgemm_kernel_table.cpp) with
// the tuned block sizes; measured against the direct call of the shared
// driver (2000 cube, 1000 'T','N', 300 by 500 by 200 'N','T'): the same rate
// within the noise of this machine.
#include "kernels/generic/gemm_table_driver.h"
#include "kernels/ssse3/dgemm_kernel_0.h"

TARN_GEMM_TABLE_XDGEMM(ssse3, Ssse3Gemm, (void)0)
