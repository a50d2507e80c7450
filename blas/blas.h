// The BLAS layer as the solver sees it. Two families of names, all with the
// BLAS argument order and every argument by reference:
//  - tarn_blas_x<op>: the dispatching stubs. Each forwards, untouched, to the
//    one-thread kernel of the processor branch chosen at its first call.
//  - tarn_blas_<op>: the threaded fronts. They decide whether a call is worth
//    threads and otherwise call the stub.
// No name here says which branch runs; kernels/kernels.h has the branches.
#pragma once

struct blas_op_params;
struct blas_matrix;
struct blas_strategy;
struct blas_kernel_info;
struct blas_buffers;
struct gemm_thread_opts;

extern "C" {

// ---- Dispatching stubs: level 3 -------------------------------------------

void tarn_blas_xdgemm(const char* transa, const char* transb, const int* m, const int* n,
                      const int* k, const double* alpha, const double* a, const int* lda,
                      const double* b, const int* ldb, const double* beta, double* c,
                      const int* ldc);
// Team DGEMM of the LU driver: the 13 DGEMM arguments, then the team's shared
// GEMM record, the member's rank and the mode word (0 allocate, 1 pack,
// 2 multiply, 4 free). 0 on success. On a branch whose
// tarn_blas_dgemm_api_support is below 4 it is an empty entry answering -1.
int tarn_blas_xdgemm_internal_team(const char* transa, const char* transb, const int* m,
                                   const int* n, const int* k, const double* alpha, const double* a,
                                   const int* lda, const double* b, const int* ldb,
                                   const double* beta, double* c, const int* ldc, void* team,
                                   const int* ithr, const int* mode);
void tarn_blas_xdgemm_par(const char* transa, const char* transb, const int* m, const int* n,
                          const int* k, const double* alpha, const double* a, const int* lda,
                          const double* b, const int* ldb, const double* beta, double* c,
                          const int* ldc, void* desc);
void tarn_blas_xdtrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                      const int* m, const int* n, const double* alpha, const double* a,
                      const int* lda, double* b, const int* ldb);

// ---- Dispatching stubs: GEMM services and interface generations -----------

void tarn_blas_dgemm_mscale(const int* m, const int* n, const double* beta, double* c,
                            const int* ldc);
void tarn_blas_dgemm_map_thread_to_kernel(const gemm_thread_opts* opts, blas_strategy* strategy);
void tarn_blas_dgemm_initialize_kernel_info(const blas_op_params* op, blas_matrix* a,
                                            blas_matrix* b, blas_matrix* c, blas_strategy* strategy,
                                            blas_kernel_info* info);
void tarn_blas_dgemm_initialize_buffers(blas_matrix* a, blas_matrix* b, blas_strategy* strategy,
                                        blas_buffers* bufs);
void tarn_blas_dgemm_zero_desc(void* desc);
void tarn_blas_dgemm_set_blks_size(const int* mc, const int* nc, const int* kc, void* desc);
void tarn_blas_dgemm_get_optimal_kernel(const int* m, const int* n, const int* k, void* desc);
int tarn_blas_dgemm_get_bufs_size(const int* m, const int* n, const int* k, void* desc);
// 4 on avx512 and avx2, 1 on the others.
int tarn_blas_dgemm_api_support(void);
// 2 on avx512 and avx2, 1 on the others: which generation of threaded
// drivers runs.
int tarn_blas_get_kernel_api_version(void);

// ---- Dispatching stubs: levels 1 and 2 ------------------------------------

void tarn_blas_xdscal(const int* n, const double* alpha, double* x, const int* incx);
void tarn_blas_xdaxpy(const int* n, const double* alpha, const double* x, const int* incx,
                      double* y, const int* incy);
void tarn_blas_xdcopy(const int* n, const double* x, const int* incx, double* y, const int* incy);
double tarn_blas_xddot(const int* n, const double* x, const int* incx, const double* y,
                       const int* incy);
void tarn_blas_xdswap(const int* n, double* x, const int* incx, double* y, const int* incy);
// 1-based index of the first largest |x(i)|; the first NaN wins; 0 when
// n < 1 or incx < 1; 1 when n is 1.
int tarn_blas_xidamax(const int* n, const double* x, const int* incx);
// `mode` is 1 in every call of this system.
void tarn_blas_xdgemv(const char* trans, const int* m, const int* n, const double* alpha,
                      const double* a, const int* lda, const double* x, const int* incx,
                      const double* beta, double* y, const int* incy, const int* mode);
void tarn_blas_xdgemmger(const char* transa, const char* transb, const int* m, const int* n,
                         const double* alpha, const double* x, const int* incx, const double* y,
                         const int* incy, const double* beta, double* c, const int* ldc);
void tarn_blas_xdtrsv(const char* uplo, const char* trans, const char* diag, const int* n,
                      const double* a, const int* lda, double* x, const int* incx);

// ---- Threaded fronts ------------------------------------------------------

void tarn_blas_dgemm(const char* transa, const char* transb, const int* m, const int* n,
                     const int* k, const double* alpha, const double* a, const int* lda,
                     const double* b, const int* ldb, const double* beta, double* c,
                     const int* ldc);
void tarn_blas_dtrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                     const int* m, const int* n, const double* alpha, const double* a,
                     const int* lda, double* b, const int* ldb);
void tarn_blas_dtrsv(const char* uplo, const char* trans, const char* diag, const int* n,
                     const double* a, const int* lda, double* x, const int* incx);
void tarn_blas_dscal(const int* n, const double* alpha, double* x, const int* incx);
void tarn_blas_dcopy(const int* n, const double* x, const int* incx, double* y, const int* incy);
int tarn_blas_idamax(const int* n, const double* x, const int* incx);
void tarn_blas_dgemv(const char* trans, const int* m, const int* n, const double* alpha,
                     const double* a, const int* lda, const double* x, const int* incx,
                     const double* beta, double* y, const int* incy);
void tarn_blas_dgemmger(const char* transa, const char* transb, const int* m, const int* n,
                        const double* alpha, const double* x, const int* incx, const double* y,
                        const int* incy, const double* beta, double* c, const int* ldc);

}  // extern "C"
