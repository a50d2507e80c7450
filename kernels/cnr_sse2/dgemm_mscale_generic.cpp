// cnr_sse2: C := beta*C of the GEMM services (beta 0 stores zeros, reads nothing).
// The branch-generic template, compiled with this branch's instruction set.
#include "kernels/generic/xdgemm.h"
#include "kernels/kernels.h"

extern "C" void tarn_blas_cnr_sse2_dgemm_mscale(const int* m, const int* n, const double* beta,
                                                double* c, const int* ldc) {
  if (*m <= 0 || *n <= 0) return;
  generic_scale_matrix(*m, *n, *beta, c, *ldc);
}
