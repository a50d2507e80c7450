// Declarations shared by the tuned one-thread DGEMM of every branch, whose
// entry points kernels/kernels.h declares: the five records that describe
// one level-3 operation on the descriptor branches (avx2, avx512) and the
// thread plan that selects a strategy, the throughput loops the benchmark
// measures the kernels against, and the test hook for the work-buffer
// allocator.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/kernels.h"

extern "C" {

// ---- Descriptor records (avx2, avx512) ---------------------------------------
// All five are built on the caller's stack for one call; no field is shared
// between calls.

// Values of blas_op_params::op_kind.
enum : uint32_t {
  kBlasOpDgemm = 0,
  kBlasOpDsymm = 1,
  kBlasOpDsyrk = 3,
  kBlasOpDsyr2k = 5,
  kBlasOpDtrmm = 7,
  kBlasOpDtrsm = 8,
  kBlasOpDgemmt = 9,
};

// Transposition codes: 0 'N', 1 'T', 2 'C', -1 anything else, 3 no character.
enum : int32_t {
  kBlasTransN = 0,
  kBlasTransT = 1,
  kBlasTransC = 2,
  kBlasTransBad = -1,
  kBlasTransNone = 3,
};

struct blas_op_params {
  uint32_t reserved[3];  // zero
  const char* transa;
  const char* transb;
  double alpha, beta;
  uint32_t twos[3];  // always 2
  int32_t transa_code, transb_code;
  uint32_t op_kind;
  uint32_t side_right;  // right-sided DSYMM, DTRMM, DTRSM
  uint32_t lower;       // lower triangle in the DSYRK family
};

// Values of blas_matrix::flags.
enum : uint32_t {
  kBlasMatrixNoTrans = 1,
  kBlasMatrixTrans = 2,
  kBlasMatrixConjTrans = 4,
  kBlasMatrixLower = 8,
  kBlasMatrixUpper = 16,
  kBlasMatrixUnitDiag = 64,
};

struct blas_matrix {
  void* base;            // first element
  int32_t rows, cols;    // logical size of op(X)
  int32_t ld;
  int32_t row_offset, col_offset;
  int32_t rows2;         // copy of rows
  int32_t element_size;  // 8
  uint32_t flags;
  // Address of op(X)(i, j): getPointer_notrans or getPointer_trans.
  void* (*get_pointer)(int i, int j, const blas_matrix* m);
};

struct blas_strategy;
typedef int blas_check_strategy_fn(blas_strategy* s);

// Values of blas_strategy::mode.
enum : int32_t {
  kGemmModePackBoth = 2,
  kGemmModeAPacked = 4,
  kGemmModeNocopy = 16,
  kGemmModeThreaded = 32,
};

struct blas_strategy {
  int32_t buffer_api;  // 2, or 4 for the packing-free mode
  int32_t mode;        // kGemmMode*
  int32_t loop_order;  // 4, 32 or 128
  int32_t pack_api;    // 2: the dgemm_get_bufs_pack family
  int32_t m_unroll, n_unroll, k_unroll;
  int32_t m_unroll8, n_unroll8, k_unroll8;  // the three rounded up to 8
  int32_t align_hint;
  blas_check_strategy_fn* check;  // 1: unrolls were right, 0: corrected
};

// One pack buffer: pointer, depth block, block length (mc or nc), panel
// stride in elements, k_unroll, panel height, rounded depth, element size,
// alignment, and the address of an element.
struct blas_pack_desc {
  double* pointer;
  int32_t kc;
  int32_t block;
  int32_t panel_stride;
  int32_t k_unroll;
  int32_t panel_height;
  int32_t kc_rounded;
  int32_t element_size;
  int32_t alignment;
  double* (*get_pointer)(int k_index, int row, const blas_pack_desc* d);
};

struct blas_buffers;
struct blas_kernel_info;

// C := beta*C, m by n.
typedef void blas_mscale_fn(const int* m, const int* n, const double* beta, double* c,
                            const int* ldc);
// Packs rows x cols of a source with leading dimension ld, times mult.
typedef void blas_copy_fn(int rows, int cols, const double* src, int ld, double mult,
                          double* dst);
// C rows x cols (at c's descriptor offsets) (+)= packed A times packed B;
// beta is 0 (C not read) or 1.
typedef void blas_kernel_fn(const int* rows, const double* a_buffer, const blas_pack_desc* b,
                            const double* beta, blas_matrix* c);
// Runs the whole operation; shared_buffers null makes it allocate its own.
typedef void blas_driver_fn(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                            blas_matrix* c, blas_buffers* shared_buffers,
                            blas_kernel_info* info);
typedef void blas_pst_fn(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                         blas_matrix* c);

struct blas_kernel_info {
  int32_t pst_m_limit, pst_n_limit;  // thin-shape limits
  int32_t third_limit;               // 4
  const char* name;                  // "DGEMM", ...: used in allocation warnings
  blas_mscale_fn* mscale;
  blas_copy_fn* copy_a;
  blas_copy_fn* copy_b;
  void* diag_scale;  // TRSM and TRMM only
  blas_kernel_fn* kernel;
  void* tri_kernel;  // TRSM and TRMM only
  blas_driver_fn* driver;
  blas_pst_fn* pst;
  void* syrk_mscale;  // DSYRK, DSYR2K, DGEMMT only
  void* syrk_driver;
  blas_strategy strategy;
};

// Values of blas_buffers::buffer_kind.
enum : int32_t {
  kGemmBuffersAOnly = 1,
  kGemmBuffersBOnly = 2,
  kGemmBuffersBoth = 3,
  kGemmBuffersPerThreadB = 4,
  kGemmBuffersPerThreadA = 5,
};

typedef int blas_get_bufs_fn(blas_buffers* bufs);
typedef size_t blas_get_size_bufs_fn(const blas_buffers* bufs);
typedef int blas_set_bufs_fn(blas_buffers* bufs, void* block);
typedef void blas_free_bufs_fn(blas_buffers* bufs);

struct blas_buffers {
  void* raw;  // what the allocator returned
  blas_pack_desc a_desc, b_desc;
  int32_t buffer_kind;
  int32_t mc, nc, kc;
  int32_t a_offset, a_align, b_offset, b_align;
  int32_t threads;
  blas_get_bufs_fn* get_bufs;
  blas_get_size_bufs_fn* get_size_bufs;
  blas_set_bufs_fn* set_bufs;
  blas_free_bufs_fn* free_bufs;
};

// The thread plan of one product (filled by the threaded layer's planning
// routine); map_thread_to_kernel reads copy_kernel.
struct gemm_thread_opts {
  int32_t thread_id;
  int32_t threads;
  int32_t threads_asked;
  int32_t groups;
  int32_t grid_rows, grid_cols, grid_k;
  int32_t group_copy_depth;
  int32_t look_ahead;
  int32_t layout_hint;
  int32_t k_limit;
  int32_t partition;
  int32_t copy_kernel;
  int32_t partition_style;
  int32_t partition_flag;
  int32_t block_m, block_n, block_k;
  int32_t no_small_plan;
};

// Register-only loops at the branch's arithmetic limit: fused multiply-adds
// on avx2 and avx512, independent multiply and add pairs below. Each runs
// `rounds` rounds and returns the number of floating-point operations done.
double tarn_blas_sse2_peak_loop(int rounds);
double tarn_blas_cnr_sse2_peak_loop(int rounds);
double tarn_blas_ssse3_peak_loop(int rounds);
double tarn_blas_sse42_peak_loop(int rounds);
double tarn_blas_avx_peak_loop(int rounds);
double tarn_blas_avx2_peak_loop(int rounds);
double tarn_blas_avx512_peak_loop(int rounds);

// Where the tuned GEMM of every branch takes its pack buffers: the cached
// per-thread allocator and its release. Tests point these elsewhere to see
// the fallback taken when memory cannot be had; nothing else changes them.
extern void* (*tarn_blas_gemm_buffer_allocate)(size_t size, int alignment);
extern void (*tarn_blas_gemm_buffer_deallocate)(void* pointer);

}  // extern "C"
