// Entries of the seven kernel branches. Every operation that differs by
// processor generation exists once per branch as tarn_blas_<branch>_<op>, with
// the same signature in every branch; the dispatching stubs of blas/ pick one
// of them at first use. Each signature is given once as a function type
// (tarn_<op>_fn) and every branch's entry is declared through it, so a
// branch cannot drift from its siblings.
//
// Who defines what:
//  - kernels/<branch>/<op>.cpp define each branch's entry, mostly one line
//    that instantiates a template of kernels/generic/ (l1_*, l2_*, trsm_*,
//    gemm_*, ps_*) under the branch's instruction-set flags; only tiles and
//    constants that differ by branch live in the branch directory.
//  - The GEMM services: descriptors and buffers for avx2 and avx512
//    (kernels/<branch>/dgemm_services.cpp), the kernel table for avx, sse42
//    and ssse3 (dgemm_kernel_table.cpp), the fixed driver's pieces for sse2
//    and cnr_sse2 (dgemm_fixed_pieces.cpp).
//  - kernels/<branch>/empty_entries.cpp holds what the branch deliberately
//    lacks (an entry that returns at once); api_version.cpp answers the
//    interface generations.
//  - kernels/generic/level1.h, level2.h, xdtrsm.h and xdgemm.h are the plain
//    branch-generic forms: the tests run them as one more kernel set, and
//    dgemm_mscale still uses the last.
//
// All BLAS-shaped arguments are taken by reference, in BLAS order.
#pragma once

extern "C" {

// Records of the descriptor-driven GEMM generation (avx2, avx512); defined
// with the tuned GEMM. Only pointers to them cross the dispatch.
struct blas_op_params;
struct blas_matrix;
struct blas_strategy;
struct blas_kernel_info;
struct blas_buffers;
struct gemm_thread_opts;

// ---- Level 3 --------------------------------------------------------------

// C := alpha*op(A)*op(B) + beta*C on one thread.
typedef void tarn_xdgemm_fn(const char* transa, const char* transb, const int* m, const int* n,
                            const int* k, const double* alpha, const double* a, const int* lda,
                            const double* b, const int* ldb, const double* beta, double* c,
                            const int* ldc);

// DGEMM for one member of an LU thread team; every member of the team calls
// it. `team` is the team's GEMM record (tarn_gemm_record, lapack/lu_team.h:
// members, barrier, shared pack ring, slot), `ithr` the member's rank,
// `mode` the mode word: 0 allocate the ring (each slot an m by k packed A),
// 1 pack op(A)*alpha into the record's slot, 2 C := alpha*op(A)*op(B) +
// beta*C split by C's rows, multiplying from the slot when it holds this A
// (else, and without a ring, through the one-thread GEMM), 4 free the ring
// (one caller). Returns 0 on success, non-zero when the ring cannot be had
// (mode 0) or cannot take the block (mode 1); the empty entry of a branch
// without it returns -1 and does nothing.
typedef int tarn_xdgemm_internal_team_fn(const char* transa, const char* transb, const int* m,
                                         const int* n, const int* k, const double* alpha,
                                         const double* a, const int* lda, const double* b,
                                         const int* ldb, const double* beta, double* c,
                                         const int* ldc, void* team, const int* ithr,
                                         const int* mode);

// DGEMM driven by a thread plan's strategy (descriptor generation).
typedef void tarn_xdgemm_internal_fn(const char* transa, const char* transb, const int* m,
                                     const int* n, const int* k, const double* alpha,
                                     const double* a, const int* lda, const double* b,
                                     const int* ldb, const double* beta, double* c, const int* ldc,
                                     const blas_strategy* strategy);

// The legacy blocked driver of the kernel-table branches; `desc` is the
// branch's kernel descriptor as filled by dgemm_zero_desc and
// dgemm_get_optimal_kernel.
typedef void tarn_xdgemm_par_fn(const char* transa, const char* transb, const int* m, const int* n,
                                const int* k, const double* alpha, const double* a, const int* lda,
                                const double* b, const int* ldb, const double* beta, double* c,
                                const int* ldc, void* desc);

// op(A)*X = alpha*B or X*op(A) = alpha*B, B overwritten by X, one thread.
typedef void tarn_xdtrsm_fn(const char* side, const char* uplo, const char* transa,
                            const char* diag, const int* m, const int* n, const double* alpha,
                            const double* a, const int* lda, double* b, const int* ldb);

// ---- GEMM services --------------------------------------------------------

// C := beta*C for an m by n block; beta 0 stores zeros without reading C.
typedef void tarn_dgemm_mscale_fn(const int* m, const int* n, const double* beta, double* c,
                                  const int* ldc);
// Descriptor generation (avx2, avx512).
typedef void tarn_dgemm_map_thread_to_kernel_fn(const gemm_thread_opts* opts,
                                                blas_strategy* strategy);
typedef void tarn_dgemm_initialize_kernel_info_fn(const blas_op_params* op, blas_matrix* a,
                                                  blas_matrix* b, blas_matrix* c,
                                                  blas_strategy* strategy, blas_kernel_info* info);
typedef void tarn_dgemm_initialize_buffers_fn(blas_matrix* a, blas_matrix* b,
                                              blas_strategy* strategy, blas_buffers* bufs);
// Kernel-table generation (avx, sse42, ssse3); `desc` as for xdgemm_par.
typedef void tarn_dgemm_zero_desc_fn(void* desc);
typedef void tarn_dgemm_set_blks_size_fn(const int* mc, const int* nc, const int* kc, void* desc);
typedef void tarn_dgemm_get_optimal_kernel_fn(const int* m, const int* n, const int* k, void* desc);
// Bytes of work memory the legacy driver would ask for this shape.
typedef int tarn_dgemm_get_bufs_size_fn(const int* m, const int* n, const int* k, void* desc);

// Interface generations: GEMM services (4 or 1), kernel set (2 or 1), and
// the two sub-interfaces every branch answers 1 for.
typedef int tarn_api_version_fn(void);

// ---- Level 1 and 2 --------------------------------------------------------

typedef void tarn_xdscal_fn(const int* n, const double* alpha, double* x, const int* incx);
typedef void tarn_xdaxpy_fn(const int* n, const double* alpha, const double* x, const int* incx,
                            double* y, const int* incy);
typedef void tarn_xdcopy_fn(const int* n, const double* x, const int* incx, double* y,
                            const int* incy);
typedef double tarn_xddot_fn(const int* n, const double* x, const int* incx, const double* y,
                             const int* incy);
typedef void tarn_xdswap_fn(const int* n, double* x, const int* incx, double* y, const int* incy);
// 1-based index of the first element of largest |x|; the first NaN wins over
// every number; 0 for n < 1 or incx < 1. Leaves the caller's exception flags.
typedef int tarn_xidamax_fn(const int* n, const double* x, const int* incx);
// y := alpha*op(A)*x + beta*y; `mode` is 1 in every call of this system.
typedef void tarn_xdgemv_fn(const char* trans, const int* m, const int* n, const double* alpha,
                            const double* a, const int* lda, const double* x, const int* incx,
                            const double* beta, double* y, const int* incy, const int* mode);
// C := beta*C + alpha*x*y' (the K = 1 product); the transposition characters
// only tell where x and y came from, their strides say how to walk them.
typedef void tarn_xdgemmger_fn(const char* transa, const char* transb, const int* m, const int* n,
                               const double* alpha, const double* x, const int* incx,
                               const double* y, const int* incy, const double* beta, double* c,
                               const int* ldc);
typedef void tarn_xdtrsv_fn(const char* uplo, const char* trans, const char* diag, const int* n,
                            const double* a, const int* lda, double* x, const int* incx);

// Generic empty entry, for the legacy names that exist in a branch only so
// that the branch's set is complete (dgemm_get_kernel, ..._bdz).
typedef void tarn_empty_entry_fn(void);

// ---- The seven branches ---------------------------------------------------

tarn_xdgemm_fn tarn_blas_sse2_xdgemm, tarn_blas_cnr_sse2_xdgemm, tarn_blas_ssse3_xdgemm,
    tarn_blas_sse42_xdgemm, tarn_blas_avx_xdgemm, tarn_blas_avx2_xdgemm, tarn_blas_avx512_xdgemm;
tarn_xdgemm_internal_team_fn tarn_blas_sse2_xdgemm_internal_team,
    tarn_blas_cnr_sse2_xdgemm_internal_team, tarn_blas_ssse3_xdgemm_internal_team,
    tarn_blas_sse42_xdgemm_internal_team, tarn_blas_avx_xdgemm_internal_team,
    tarn_blas_avx2_xdgemm_internal_team, tarn_blas_avx512_xdgemm_internal_team;
tarn_xdgemm_internal_fn tarn_blas_sse2_xdgemm_internal, tarn_blas_cnr_sse2_xdgemm_internal,
    tarn_blas_ssse3_xdgemm_internal, tarn_blas_sse42_xdgemm_internal, tarn_blas_avx_xdgemm_internal,
    tarn_blas_avx2_xdgemm_internal, tarn_blas_avx512_xdgemm_internal;
tarn_xdgemm_par_fn tarn_blas_sse2_xdgemm_par, tarn_blas_cnr_sse2_xdgemm_par,
    tarn_blas_ssse3_xdgemm_par, tarn_blas_sse42_xdgemm_par, tarn_blas_avx_xdgemm_par,
    tarn_blas_avx2_xdgemm_par, tarn_blas_avx512_xdgemm_par;
tarn_xdtrsm_fn tarn_blas_sse2_xdtrsm, tarn_blas_cnr_sse2_xdtrsm, tarn_blas_ssse3_xdtrsm,
    tarn_blas_sse42_xdtrsm, tarn_blas_avx_xdtrsm, tarn_blas_avx2_xdtrsm, tarn_blas_avx512_xdtrsm;

tarn_dgemm_mscale_fn tarn_blas_sse2_dgemm_mscale, tarn_blas_cnr_sse2_dgemm_mscale,
    tarn_blas_ssse3_dgemm_mscale, tarn_blas_sse42_dgemm_mscale, tarn_blas_avx_dgemm_mscale,
    tarn_blas_avx2_dgemm_mscale, tarn_blas_avx512_dgemm_mscale;
tarn_dgemm_map_thread_to_kernel_fn tarn_blas_sse2_dgemm_map_thread_to_kernel,
    tarn_blas_cnr_sse2_dgemm_map_thread_to_kernel, tarn_blas_ssse3_dgemm_map_thread_to_kernel,
    tarn_blas_sse42_dgemm_map_thread_to_kernel, tarn_blas_avx_dgemm_map_thread_to_kernel,
    tarn_blas_avx2_dgemm_map_thread_to_kernel, tarn_blas_avx512_dgemm_map_thread_to_kernel;
tarn_dgemm_initialize_kernel_info_fn tarn_blas_sse2_dgemm_initialize_kernel_info,
    tarn_blas_cnr_sse2_dgemm_initialize_kernel_info, tarn_blas_ssse3_dgemm_initialize_kernel_info,
    tarn_blas_sse42_dgemm_initialize_kernel_info, tarn_blas_avx_dgemm_initialize_kernel_info,
    tarn_blas_avx2_dgemm_initialize_kernel_info, tarn_blas_avx512_dgemm_initialize_kernel_info;
tarn_dgemm_initialize_buffers_fn tarn_blas_sse2_dgemm_initialize_buffers,
    tarn_blas_cnr_sse2_dgemm_initialize_buffers, tarn_blas_ssse3_dgemm_initialize_buffers,
    tarn_blas_sse42_dgemm_initialize_buffers, tarn_blas_avx_dgemm_initialize_buffers,
    tarn_blas_avx2_dgemm_initialize_buffers, tarn_blas_avx512_dgemm_initialize_buffers;
tarn_dgemm_zero_desc_fn tarn_blas_sse2_dgemm_zero_desc, tarn_blas_cnr_sse2_dgemm_zero_desc,
    tarn_blas_ssse3_dgemm_zero_desc, tarn_blas_sse42_dgemm_zero_desc, tarn_blas_avx_dgemm_zero_desc,
    tarn_blas_avx2_dgemm_zero_desc, tarn_blas_avx512_dgemm_zero_desc;
tarn_dgemm_set_blks_size_fn tarn_blas_sse2_dgemm_set_blks_size,
    tarn_blas_cnr_sse2_dgemm_set_blks_size, tarn_blas_ssse3_dgemm_set_blks_size,
    tarn_blas_sse42_dgemm_set_blks_size, tarn_blas_avx_dgemm_set_blks_size,
    tarn_blas_avx2_dgemm_set_blks_size, tarn_blas_avx512_dgemm_set_blks_size;
tarn_dgemm_get_optimal_kernel_fn tarn_blas_sse2_dgemm_get_optimal_kernel,
    tarn_blas_cnr_sse2_dgemm_get_optimal_kernel, tarn_blas_ssse3_dgemm_get_optimal_kernel,
    tarn_blas_sse42_dgemm_get_optimal_kernel, tarn_blas_avx_dgemm_get_optimal_kernel,
    tarn_blas_avx2_dgemm_get_optimal_kernel, tarn_blas_avx512_dgemm_get_optimal_kernel;
tarn_dgemm_get_bufs_size_fn tarn_blas_sse2_dgemm_get_bufs_size,
    tarn_blas_cnr_sse2_dgemm_get_bufs_size, tarn_blas_ssse3_dgemm_get_bufs_size,
    tarn_blas_sse42_dgemm_get_bufs_size, tarn_blas_avx_dgemm_get_bufs_size,
    tarn_blas_avx2_dgemm_get_bufs_size, tarn_blas_avx512_dgemm_get_bufs_size;

tarn_api_version_fn tarn_blas_sse2_dgemm_api_support, tarn_blas_cnr_sse2_dgemm_api_support,
    tarn_blas_ssse3_dgemm_api_support, tarn_blas_sse42_dgemm_api_support,
    tarn_blas_avx_dgemm_api_support, tarn_blas_avx2_dgemm_api_support,
    tarn_blas_avx512_dgemm_api_support;
tarn_api_version_fn tarn_blas_sse2_get_kernel_api_version,
    tarn_blas_cnr_sse2_get_kernel_api_version, tarn_blas_ssse3_get_kernel_api_version,
    tarn_blas_sse42_get_kernel_api_version, tarn_blas_avx_get_kernel_api_version,
    tarn_blas_avx2_get_kernel_api_version, tarn_blas_avx512_get_kernel_api_version;
tarn_api_version_fn tarn_blas_sse2_get_ikernel_api_version,
    tarn_blas_cnr_sse2_get_ikernel_api_version, tarn_blas_ssse3_get_ikernel_api_version,
    tarn_blas_sse42_get_ikernel_api_version, tarn_blas_avx_get_ikernel_api_version,
    tarn_blas_avx2_get_ikernel_api_version, tarn_blas_avx512_get_ikernel_api_version;
tarn_api_version_fn tarn_blas_sse2_get_bkernel_api_version,
    tarn_blas_cnr_sse2_get_bkernel_api_version, tarn_blas_ssse3_get_bkernel_api_version,
    tarn_blas_sse42_get_bkernel_api_version, tarn_blas_avx_get_bkernel_api_version,
    tarn_blas_avx2_get_bkernel_api_version, tarn_blas_avx512_get_bkernel_api_version;

tarn_xdscal_fn tarn_blas_sse2_xdscal, tarn_blas_cnr_sse2_xdscal, tarn_blas_ssse3_xdscal,
    tarn_blas_sse42_xdscal, tarn_blas_avx_xdscal, tarn_blas_avx2_xdscal, tarn_blas_avx512_xdscal;
tarn_xdaxpy_fn tarn_blas_sse2_xdaxpy, tarn_blas_cnr_sse2_xdaxpy, tarn_blas_ssse3_xdaxpy,
    tarn_blas_sse42_xdaxpy, tarn_blas_avx_xdaxpy, tarn_blas_avx2_xdaxpy, tarn_blas_avx512_xdaxpy;
tarn_xdcopy_fn tarn_blas_sse2_xdcopy, tarn_blas_cnr_sse2_xdcopy, tarn_blas_ssse3_xdcopy,
    tarn_blas_sse42_xdcopy, tarn_blas_avx_xdcopy, tarn_blas_avx2_xdcopy, tarn_blas_avx512_xdcopy;
tarn_xddot_fn tarn_blas_sse2_xddot, tarn_blas_cnr_sse2_xddot, tarn_blas_ssse3_xddot,
    tarn_blas_sse42_xddot, tarn_blas_avx_xddot, tarn_blas_avx2_xddot, tarn_blas_avx512_xddot;
tarn_xdswap_fn tarn_blas_sse2_xdswap, tarn_blas_cnr_sse2_xdswap, tarn_blas_ssse3_xdswap,
    tarn_blas_sse42_xdswap, tarn_blas_avx_xdswap, tarn_blas_avx2_xdswap, tarn_blas_avx512_xdswap;
tarn_xidamax_fn tarn_blas_sse2_xidamax, tarn_blas_cnr_sse2_xidamax, tarn_blas_ssse3_xidamax,
    tarn_blas_sse42_xidamax, tarn_blas_avx_xidamax, tarn_blas_avx2_xidamax,
    tarn_blas_avx512_xidamax;
tarn_xdgemv_fn tarn_blas_sse2_xdgemv, tarn_blas_cnr_sse2_xdgemv, tarn_blas_ssse3_xdgemv,
    tarn_blas_sse42_xdgemv, tarn_blas_avx_xdgemv, tarn_blas_avx2_xdgemv, tarn_blas_avx512_xdgemv;
tarn_xdgemmger_fn tarn_blas_sse2_xdgemmger, tarn_blas_cnr_sse2_xdgemmger, tarn_blas_ssse3_xdgemmger,
    tarn_blas_sse42_xdgemmger, tarn_blas_avx_xdgemmger, tarn_blas_avx2_xdgemmger,
    tarn_blas_avx512_xdgemmger;
tarn_xdtrsv_fn tarn_blas_sse2_xdtrsv, tarn_blas_cnr_sse2_xdtrsv, tarn_blas_ssse3_xdtrsv,
    tarn_blas_sse42_xdtrsv, tarn_blas_avx_xdtrsv, tarn_blas_avx2_xdtrsv, tarn_blas_avx512_xdtrsv;

}  // extern "C"
