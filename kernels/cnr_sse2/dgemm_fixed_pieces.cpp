// The named pieces of the fixed GEMM driver of the cnr_sse2 branch: dgemm_zerom,
// dgemm_scalm, dgemm_copybt (over the branch's 2 by 6 tile) and dgemm_pst.
#include "kernels/generic/gemm_table_fixed.h"
#include "kernels/cnr_sse2/dgemm_kernel_0.h"

TARN_GEMM_FIXED_PIECES(cnr_sse2, CnrSse2Gemm)
