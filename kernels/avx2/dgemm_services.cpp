// The descriptor services of the avx2 GEMM: strategy from a thread plan,
// kernel information, buffers, the strategy-driven one-thread product, and
// the team entry.
#include "kernels/avx2/dgemm_kernel_0.h"
#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_descriptors.h"

extern "C" void tarn_blas_avx2_dgemm_map_thread_to_kernel(const gemm_thread_opts* opts,
                                                        blas_strategy* strategy) {
  dgemm_map_thread_to_kernel<Avx2GemmDesc>(opts, strategy);
}

extern "C" void tarn_blas_avx2_dgemm_initialize_kernel_info(const blas_op_params* op,
                                                           blas_matrix* a, blas_matrix* b,
                                                           blas_matrix* c, blas_strategy* strategy,
                                                           blas_kernel_info* info) {
  dgemm_initialize_kernel_info<Avx2GemmDesc>(op, a, b, c, strategy, info);
}

extern "C" void tarn_blas_avx2_dgemm_initialize_buffers(blas_matrix* a, blas_matrix* b,
                                                       blas_strategy* strategy, blas_buffers* bufs) {
  dgemm_initialize_buffers<Avx2GemmDesc>(a, b, strategy, bufs);
}

extern "C" void tarn_blas_avx2_xdgemm_internal(const char* transa, const char* transb,
                                               const int* m, const int* n, const int* k,
                                               const double* alpha, const double* a, const int* lda,
                                               const double* b, const int* ldb, const double* beta,
                                               double* c, const int* ldc, const blas_strategy* strategy) {
  dgemm_run_with_strategy<Avx2GemmDesc>(transa, transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c,
                              *ldc, strategy);
  _mm256_zeroupper();
}

// The team entry (shared packing among the members of an LU team) is not
// built: it declines, and the caller keeps to its path without it.
extern "C" int tarn_blas_avx2_xdgemm_internal_team(const char* /*transa*/,
                                                   const char* /*transb*/, const int* /*m*/,
                                                   const int* /*n*/, const int* /*k*/,
                                                   const double* /*alpha*/, const double* /*a*/,
                                                   const int* /*lda*/, const double* /*b*/,
                                                   const int* /*ldb*/, const double* /*beta*/,
                                                   double* /*c*/, const int* /*ldc*/,
                                                   void* /*team*/, const int* /*ithr*/,
                                                   const int* /*mode*/) {
  return -1;
}
