// Records and entries of the kernel-table GEMM of avx, sse42 and ssse3, and
// the named pieces of the fixed GEMM of sse2 and cnr_sse2.
//
// A kernel-table branch describes its packed product by rows of a table:
// the smallest M, N, K worth the blocked path, copy units, the buffer kind
// and the routines that size the blocks, get the buffers, pack the operands
// and run the tiles. A caller fills a descriptor (dgemm_zero_desc,
// dgemm_get_optimal_kernel, optionally dgemm_set_blks_size, then
// dgemm_get_blks_size) and hands it to xdgemm_par.
//
// Declarations only (no code): the branch-generic bodies are in
// kernels/generic/gemm_table_driver.h and gemm_table_fixed.h.
#pragma once

#include <cstdint>

extern "C" {

// Fills the block sizes of `desc` that are still 0 for an M by N by K product.
typedef void gemm_table_blks_fn(const int* m, const int* n, const int* k, void* desc);

// One buffer of a dgemm_get_bufs request: bytes, alignment as a power of two,
// bytes past that boundary where the buffer starts, and where it landed.
struct gemm_table_buffer {
  int32_t size;
  int32_t align_shift;
  int32_t offset;
  double* pointer;
};

// Buffers of one legacy product, in the order A, a third buffer (unused by
// DGEMM, size 0), B; `raw` is the one block they were carved from.
enum { kGemmTableBufA = 0, kGemmTableBufThird = 1, kGemmTableBufB = 2, kGemmTableBufCount = 3 };
struct gemm_table_bufs {
  void* raw;
  gemm_table_buffer buf[kGemmTableBufCount];
};

// 0: buffers allocated; 1: a kind outside the list (nothing allocated);
// 2: the memory could not be had.
typedef int gemm_table_get_bufs_fn(const int* kind, gemm_table_bufs* bufs);

// Packs op(X) (rows by cols as the packed operand sees it) from `src` with
// leading dimension `ld`, times `mult`, into the tile layout at `dst`:
// A copies (copyan, copyat) take rows of op(A) by depth, in row panels of the
// tile height, each panel depth-major; B copies (copybn, copybt) take depth
// by columns of op(B), in column panels of the tile width. The 't' forms read
// a transposed operand.
typedef void gemm_table_copy_fn(const int* rows, const int* cols, const double* src,
                                const int* ld, const double* mult, double* dst);

// C(rows x cols) := beta*C + Apacked * Bpacked, the packed blocks of depth kc
// as the copy routines leave them; beta must be 0 (C not read) or 1.
typedef void gemm_table_ker0_fn(const int* rows, const int* cols, const int* kc,
                                const double* abuf, const double* bbuf, const double* beta,
                                double* c, const int* ldc);

// One row of a kernel table; twenty words on the 32-bit target.
struct gemm_kernel_row {
  int32_t min_m, min_n, min_k;     // words 0-2; N and K also round nc and kc
  int32_t generation;              // word 3
  int32_t copy_m, copy_n, copy_k;  // words 4-6: copy units
  int32_t buffer_kind;             // word 7: kind asked of get_bufs
  gemm_table_blks_fn* get_blks_size;  // word 8
  void* reserved9;
  gemm_table_get_bufs_fn* get_bufs;  // word 10
  gemm_table_copy_fn* copyan;        // words 11-16
  gemm_table_copy_fn* copyat;
  gemm_table_copy_fn* copyat2;
  gemm_table_copy_fn* copybn;
  gemm_table_copy_fn* copybt;
  gemm_table_copy_fn* copybt2;
  gemm_table_ker0_fn* ker0;  // word 17
  void* reserved18;
  void* reserved19;
};
static_assert(sizeof(void*) != 4 || sizeof(gemm_kernel_row) == 20 * 4,
              "a kernel row is twenty words on the 32-bit target");

// What dgemm_zero_desc clears and the services fill: the chosen row and its
// number, and the block sizes (0: not chosen yet).
struct gemm_table_desc {
  const gemm_kernel_row* row;
  int32_t kernel;
  int32_t mc, nc, kc;
};

// Buffer kinds of dgemm_get_bufs.
enum : int32_t {
  kGemmTableKindNone = 100,
  kGemmTableKindA = 101,
  kGemmTableKindB = 102,
  kGemmTableKindAB = 104,
  kGemmTableKindAThird = 105,
  kGemmTableKindAll = 106,
  // The sse42 and ssse3 rows' name of the three-buffer kind.
  kGemmTableKindAllSse = 126,
};

// Answers of dgemm_get_kernel_version: the xdgemm_par variant.
enum : int32_t { kGemmTableVersionBlocked = 2, kGemmTableVersionWide = 4 };

// ---- The kernel-table branches ----------------------------------------------
#define TARN_GEMM_TABLE_DECLARE(br)                                                            \
  extern const gemm_kernel_row tarn_##br##_d_all_gemm_ker[];                                   \
  extern int tarn_##br##_d_opt_gemm_ker;                                                       \
  int tarn_blas_##br##_dgemm_num_kernels(void);                                                \
  const gemm_kernel_row* tarn_blas_##br##_dgemm_get_kernel(const int* index);                  \
  int tarn_blas_##br##_dgemm_get_kernel_version(const int* m, const int* n, const int* k,      \
                                                void* desc);                                   \
  gemm_table_blks_fn tarn_blas_##br##_dgemm_get_blks_size;                                     \
  gemm_table_get_bufs_fn tarn_blas_##br##_dgemm_get_bufs;                                      \
  gemm_table_copy_fn tarn_blas_##br##_dgemm_copyan, tarn_blas_##br##_dgemm_copyat,             \
      tarn_blas_##br##_dgemm_copybn, tarn_blas_##br##_dgemm_copybt;                            \
  gemm_table_ker0_fn tarn_blas_##br##_dgemm_ker0;

TARN_GEMM_TABLE_DECLARE(avx)
TARN_GEMM_TABLE_DECLARE(sse42)
TARN_GEMM_TABLE_DECLARE(ssse3)

// ssse3 row 1 (processors with SSE4.1): its own block sizes and routine set.
gemm_table_blks_fn tarn_blas_ssse3_dgemm_get_blks_size_quad;
gemm_table_copy_fn tarn_blas_ssse3_dgemm_copyan_quad, tarn_blas_ssse3_dgemm_copyat_quad,
    tarn_blas_ssse3_dgemm_copybn_quad, tarn_blas_ssse3_dgemm_copybt_quad;
gemm_table_ker0_fn tarn_blas_ssse3_dgemm_ker0_quad;

// ---- The fixed driver of sse2 and cnr_sse2 ----------------------------------
// dgemm_zerom: C := 0 over m by n, C not read. dgemm_scalm: C := beta*C
// (beta 0 as dgemm_zerom). dgemm_copybt: the B copy of a transposed B, in
// the form of gemm_table_copy_fn. dgemm_pst: the thin product, with the
// arguments of xdgemm.
#define TARN_GEMM_FIXED_DECLARE(br)                                                            \
  void tarn_blas_##br##_dgemm_zerom(const int* m, const int* n, double* c, const int* ldc);     \
  void tarn_blas_##br##_dgemm_scalm(const int* m, const int* n, const double* beta, double* c, \
                                    const int* ldc);                                           \
  gemm_table_copy_fn tarn_blas_##br##_dgemm_copybt;                                            \
  void tarn_blas_##br##_dgemm_pst(const char* transa, const char* transb, const int* m,        \
                                  const int* n, const int* k, const double* alpha,             \
                                  const double* a, const int* lda, const double* b,            \
                                  const int* ldb, const double* beta, double* c,               \
                                  const int* ldc);

TARN_GEMM_FIXED_DECLARE(sse2)
TARN_GEMM_FIXED_DECLARE(cnr_sse2)

#undef TARN_GEMM_TABLE_DECLARE
#undef TARN_GEMM_FIXED_DECLARE

}  // extern "C"
