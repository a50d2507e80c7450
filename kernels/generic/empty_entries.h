// Entries that return at once without doing anything, so that every
// dispatching stub finds a function in every branch. A branch lacks whole
// families of GEMM entries at a time, so each family is one macro here and
// kernels/<branch>/empty_entries.cpp names the families that branch lacks.
//
// Each macro defines extern "C" functions tarn_blas_<br>_<op> with the
// parameter lists of the function types in kernels/kernels.h; as the branch's
// names are declared there through those types, a definition that drifted
// from its type would not compile. Everything here is a plain definition (no
// inline or template code), so nothing is shared between branches' objects.
#pragma once

#include "kernels/kernels.h"

// The legacy GEMM services of the kernel-table branches (ssse3, sse42, avx):
// the blocked driver over a kernel descriptor, the calls that fill the
// descriptor and size its buffers, and four legacy names that exist only so
// that the branch's set of entries is complete (nothing calls them).
#define TARN_EMPTY_LEGACY_GEMM_SERVICES(br)                                                      \
  extern "C" void tarn_blas_##br##_xdgemm_par(                                                   \
      const char* /*transa*/, const char* /*transb*/, const int* /*m*/, const int* /*n*/,        \
      const int* /*k*/, const double* /*alpha*/, const double* /*a*/, const int* /*lda*/,        \
      const double* /*b*/, const int* /*ldb*/, const double* /*beta*/, double* /*c*/,            \
      const int* /*ldc*/, void* /*desc*/) {}                                                     \
  extern "C" void tarn_blas_##br##_dgemm_zero_desc(void* /*desc*/) {}                            \
  extern "C" void tarn_blas_##br##_dgemm_get_optimal_kernel(const int* /*m*/, const int* /*n*/,  \
                                                            const int* /*k*/, void* /*desc*/) {} \
  extern "C" void tarn_blas_##br##_dgemm_set_blks_size(const int* /*mc*/, const int* /*nc*/,     \
                                                       const int* /*kc*/, void* /*desc*/) {}     \
  extern "C" int tarn_blas_##br##_dgemm_get_bufs_size(const int* /*m*/, const int* /*n*/,        \
                                                      const int* /*k*/, void* /*desc*/) {        \
    return 0; /* no work memory: the driver does nothing */                                      \
  }                                                                                              \
  extern "C" void tarn_blas_##br##_dgemm_get_kernel(void) {}                                     \
  extern "C" void tarn_blas_##br##_dgemm_get_kernel_version(void) {}                             \
  extern "C" void tarn_blas_##br##_dgemm_num_kernels(void) {}                                    \
  extern "C" void tarn_blas_##br##_dgemm_get_blks_size(void) {}

// The GEMM services of the descriptor generation (avx2, avx512): the thread
// plan, the strategy-driven product, the team product of the LU and the
// kernel-information and buffer set-up.
#define TARN_EMPTY_NEW_GEMM_SERVICES(br)                                                        \
  extern "C" void tarn_blas_##br##_dgemm_map_thread_to_kernel(const gemm_thread_opts* /*opts*/, \
                                                              blas_strategy* /*strategy*/) {}   \
  extern "C" void tarn_blas_##br##_xdgemm_internal(                                             \
      const char* /*transa*/, const char* /*transb*/, const int* /*m*/, const int* /*n*/,       \
      const int* /*k*/, const double* /*alpha*/, const double* /*a*/, const int* /*lda*/,       \
      const double* /*b*/, const int* /*ldb*/, const double* /*beta*/, double* /*c*/,           \
      const int* /*ldc*/, const blas_strategy* /*strategy*/) {}                                 \
  extern "C" int tarn_blas_##br##_xdgemm_internal_team(                                         \
      const char* /*transa*/, const char* /*transb*/, const int* /*m*/, const int* /*n*/,       \
      const int* /*k*/, const double* /*alpha*/, const double* /*a*/, const int* /*lda*/,       \
      const double* /*b*/, const int* /*ldb*/, const double* /*beta*/, double* /*c*/,           \
      const int* /*ldc*/, void* /*team*/, const int* /*ithr*/, const int* /*mode*/) {           \
    return -1; /* not done: the caller keeps to its path without shared packing */              \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_initialize_kernel_info(                                \
      const blas_op_params* /*op*/, blas_matrix* /*a*/, blas_matrix* /*b*/, blas_matrix* /*c*/, \
      blas_strategy* /*strategy*/, blas_kernel_info* /*info*/) {}                               \
  extern "C" void tarn_blas_##br##_dgemm_initialize_buffers(                                    \
      blas_matrix* /*a*/, blas_matrix* /*b*/, blas_strategy* /*strategy*/,                      \
      blas_buffers* /*bufs*/) {}

// The ..._bdz names: no branch implements them; they exist only so that
// every branch's set of entries is complete, and nothing calls them.
#define TARN_EMPTY_BDZ_SERVICES(br)                                   \
  extern "C" void tarn_blas_##br##_dgemm_blk_info_bdz(void) {}        \
  extern "C" void tarn_blas_##br##_dgemm_blk_info_hi_thr_bdz(void) {} \
  extern "C" void tarn_blas_##br##_dgemm_getbufs_bdz(void) {}         \
  extern "C" void tarn_blas_##br##_dgemm_kernel_0_bdz(void) {}        \
  extern "C" void tarn_blas_##br##_xdgemm_bdz(void) {}                \
  extern "C" void tarn_blas_##br##_xdgemm_hi_thr_bdz(void) {}
