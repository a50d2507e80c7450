// ssse3: stand-ins for the kernel-table GEMM services until the tuned GEMM
// of this branch brings them. The tuned GEMM replaces this file: delete it
// and define the same symbols beside the routines they serve.
// Until then the descriptor is not used, no work memory is asked for, and
// the legacy driver runs the branch's one-thread product.
#include "kernels/kernels.h"

extern "C" void tarn_blas_ssse3_dgemm_zero_desc(void* /*desc*/) { return; }

extern "C" void tarn_blas_ssse3_dgemm_set_blks_size(const int* /*mc*/, const int* /*nc*/,
                                                    const int* /*kc*/, void* /*desc*/) {
  return;
}

extern "C" void tarn_blas_ssse3_dgemm_get_optimal_kernel(const int* /*m*/, const int* /*n*/,
                                                         const int* /*k*/, void* /*desc*/) {
  return;
}

extern "C" int tarn_blas_ssse3_dgemm_get_bufs_size(const int* /*m*/, const int* /*n*/,
                                                   const int* /*k*/, void* /*desc*/) {
  return 0;
}

extern "C" void tarn_blas_ssse3_xdgemm_par(const char* transa, const char* transb, const int* m,
                                           const int* n, const int* k, const double* alpha,
                                           const double* a, const int* lda, const double* b,
                                           const int* ldb, const double* beta, double* c,
                                           const int* ldc, void* /*desc*/) {
  tarn_blas_ssse3_xdgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
