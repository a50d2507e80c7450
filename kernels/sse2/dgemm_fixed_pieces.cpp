// The named pieces of the fixed GEMM driver of the sse2 branch: dgemm_zerom,
// dgemm_scalm, dgemm_copybt (over the branch's 2 by 6 tile) and dgemm_pst.
#include "kernels/generic/gemm_table_fixed.h"
#include "kernels/sse2/dgemm_kernel_0.h"

TARN_GEMM_FIXED_PIECES(sse2, Sse2Gemm)
