// sse2: entries that return at once without doing anything, so that every
// dispatching stub finds a function in this branch.
// This branch has one fixed GEMM routine and neither generation of GEMM
// services: every service entry is empty.
#include "kernels/kernels.h"

extern "C" void tarn_blas_sse2_xdgemm_par(const char* /*transa*/, const char* /*transb*/,
                                          const int* /*m*/, const int* /*n*/, const int* /*k*/,
                                          const double* /*alpha*/, const double* /*a*/,
                                          const int* /*lda*/, const double* /*b*/,
                                          const int* /*ldb*/, const double* /*beta*/, double* /*c*/,
                                          const int* /*ldc*/, void* /*desc*/) {
  return;
}

extern "C" void tarn_blas_sse2_dgemm_zero_desc(void* /*desc*/) { return; }

extern "C" void tarn_blas_sse2_dgemm_get_optimal_kernel(const int* /*m*/, const int* /*n*/,
                                                        const int* /*k*/, void* /*desc*/) {
  return;
}

extern "C" void tarn_blas_sse2_dgemm_set_blks_size(const int* /*mc*/, const int* /*nc*/,
                                                   const int* /*kc*/, void* /*desc*/) {
  return;
}

extern "C" int tarn_blas_sse2_dgemm_get_bufs_size(const int* /*m*/, const int* /*n*/,
                                                  const int* /*k*/, void* /*desc*/) {
  return 0;
}

extern "C" void tarn_blas_sse2_dgemm_map_thread_to_kernel(const gemm_thread_opts* /*opts*/,
                                                          blas_strategy* /*strategy*/) {
  return;
}

extern "C" void tarn_blas_sse2_xdgemm_internal(const char* /*transa*/, const char* /*transb*/,
                                               const int* /*m*/, const int* /*n*/, const int* /*k*/,
                                               const double* /*alpha*/, const double* /*a*/,
                                               const int* /*lda*/, const double* /*b*/,
                                               const int* /*ldb*/, const double* /*beta*/,
                                               double* /*c*/, const int* /*ldc*/,
                                               const blas_strategy* /*strategy*/) {
  return;
}

extern "C" int tarn_blas_sse2_xdgemm_internal_team(
    const char* /*transa*/, const char* /*transb*/, const int* /*m*/, const int* /*n*/,
    const int* /*k*/, const double* /*alpha*/, const double* /*a*/, const int* /*lda*/,
    const double* /*b*/, const int* /*ldb*/, const double* /*beta*/, double* /*c*/,
    const int* /*ldc*/, void* /*team*/, const int* /*ithr*/, const int* /*mode*/) {
  return -1;  // not done: the caller keeps to its path without shared packing
}

extern "C" void tarn_blas_sse2_dgemm_initialize_kernel_info(const blas_op_params* /*op*/,
                                                            blas_matrix* /*a*/, blas_matrix* /*b*/,
                                                            blas_matrix* /*c*/,
                                                            blas_strategy* /*strategy*/,
                                                            blas_kernel_info* /*info*/) {
  return;
}

extern "C" void tarn_blas_sse2_dgemm_initialize_buffers(blas_matrix* /*a*/, blas_matrix* /*b*/,
                                                        blas_strategy* /*strategy*/,
                                                        blas_buffers* /*bufs*/) {
  return;
}

// Named only so that the branch's set of entries is complete; nothing
// calls them.
extern "C" void tarn_blas_sse2_dgemm_get_kernel(void) {}
extern "C" void tarn_blas_sse2_dgemm_get_kernel_version(void) {}
extern "C" void tarn_blas_sse2_dgemm_num_kernels(void) {}
extern "C" void tarn_blas_sse2_dgemm_get_blks_size(void) {}
extern "C" void tarn_blas_sse2_dgemm_blk_info_bdz(void) {}
extern "C" void tarn_blas_sse2_dgemm_blk_info_hi_thr_bdz(void) {}
extern "C" void tarn_blas_sse2_dgemm_getbufs_bdz(void) {}
extern "C" void tarn_blas_sse2_dgemm_kernel_0_bdz(void) {}
extern "C" void tarn_blas_sse2_xdgemm_bdz(void) {}
extern "C" void tarn_blas_sse2_xdgemm_hi_thr_bdz(void) {}
