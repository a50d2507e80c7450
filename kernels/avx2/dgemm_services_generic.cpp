// avx2: stand-ins for the descriptor GEMM services until the tuned GEMM of
// this branch brings them. The tuned GEMM replaces this file: delete it and
// define the same symbols beside the routines they serve.
// Until then the team entry declines (the LU keeps to its plain path) and
// the plan-driven entry runs the branch's one-thread product.
#include "kernels/kernels.h"

extern "C" void tarn_blas_avx2_dgemm_map_thread_to_kernel(const gemm_thread_opts* /*opts*/,
                                                          blas_strategy* /*strategy*/) {
  return;
}

extern "C" void tarn_blas_avx2_dgemm_initialize_kernel_info(const blas_op_params* /*op*/,
                                                            blas_matrix* /*a*/, blas_matrix* /*b*/,
                                                            blas_matrix* /*c*/,
                                                            blas_strategy* /*strategy*/,
                                                            blas_kernel_info* /*info*/) {
  return;
}

extern "C" void tarn_blas_avx2_dgemm_initialize_buffers(blas_matrix* /*a*/, blas_matrix* /*b*/,
                                                        blas_strategy* /*strategy*/,
                                                        blas_buffers* /*bufs*/) {
  return;
}

extern "C" int tarn_blas_avx2_xdgemm_internal_team(const char* /*transa*/, const char* /*transb*/,
                                                   const int* /*m*/, const int* /*n*/,
                                                   const int* /*k*/, const double* /*alpha*/,
                                                   const double* /*a*/, const int* /*lda*/,
                                                   const double* /*b*/, const int* /*ldb*/,
                                                   const double* /*beta*/, double* /*c*/,
                                                   const int* /*ldc*/, void* /*team*/,
                                                   const int* /*ithr*/, const int* /*mode*/) {
  return -1;  // not done: the caller keeps to its path without shared packing
}

extern "C" void tarn_blas_avx2_xdgemm_internal(const char* transa, const char* transb, const int* m,
                                               const int* n, const int* k, const double* alpha,
                                               const double* a, const int* lda, const double* b,
                                               const int* ldb, const double* beta, double* c,
                                               const int* ldc, const blas_strategy* /*strategy*/) {
  tarn_blas_avx2_xdgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
