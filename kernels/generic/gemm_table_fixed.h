// The fixed GEMM driver of sse2 and cnr_sse2 and its named pieces: clearing
// and scaling C (dgemm_zerom, dgemm_scalm), the copy of a transposed B into
// the tile layout (dgemm_copybt) and the thin product (dgemm_pst). The
// pieces are the shared driver's own routines (gemm_driver.h, gemm_pack.h)
// under the names the fixed driver gives them, and xdgemm is written in
// those names: beta through zerom and scalm, narrow shapes and a failed
// allocation through pst, a transposed B packed by copybt, the rest the
// shared blocked loops.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set; the entries are written by the macros.
#pragma once

#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_table.h"
#include "kernels/generic/gemm_table_driver.h"

namespace {

// The tile record R with its transposed-B panels packed by the branch's
// copybt entry. (The entry itself is built on R's own copy, not on this
// record's, so the two do not call each other.)
template <class R, gemm_table_copy_fn* CopyBt>
struct GemmFixedRecord : R {
  static void pack_b_panel(bool tb, int kc, int cols, const double* b, int ldb, double* dst) {
    if (tb) {
      const double one = 1.0;
      CopyBt(&kc, &cols, b, &ldb, &one, dst);
    } else {
      gemm_pack_b_panel<R::nr>(false, kc, cols, b, ldb, dst);
    }
  }
};

using GemmZeromFn = void(const int* m, const int* n, double* c, const int* ldc);
using GemmScalmFn = void(const int* m, const int* n, const double* beta, double* c,
                         const int* ldc);
using GemmPstFn = void(const char* transa, const char* transb, const int* m, const int* n,
                       const int* k, const double* alpha, const double* a, const int* lda,
                       const double* b, const int* ldb, const double* beta, double* c,
                       const int* ldc);

// xdgemm of a fixed-driver branch over its record F (a GemmFixedRecord).
template <class F, GemmZeromFn* Zerom, GemmScalmFn* Scalm, GemmPstFn* Pst>
void gemm_fixed_xdgemm(const char* transa, const char* transb, const int* m, const int* n,
                       const int* k, const double* alpha, const double* a, const int* lda,
                       const double* b, const int* ldb, const double* beta, double* c,
                       const int* ldc) {
  if (*m <= 0 || *n <= 0) return;
  if (*alpha == 0.0 || *k <= 0) {
    if (*beta == 0.0)
      Zerom(m, n, c, ldc);
    else if (*beta != 1.0)
      Scalm(m, n, beta, c, ldc);
    return;
  }
  if (*m < F::pst_m_limit || *n < F::pst_n_limit || *k < F::pst_k_limit) {
    Pst(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  const GemmBlocks s = gemm_block_sizes<F>(*m, *n, *k);
  void* raw = tarn_blas_gemm_buffer_allocate(gemm_buffer_bytes(s), kGemmBufferAlignment);
  if (tarn_serv_check_ptr_and_warn(raw)) {
    Pst(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  // Beta 0 stays for the first depth block, whose tiles store without
  // reading C; any other value but 1 is applied first.
  if (*beta != 0.0 && *beta != 1.0) Scalm(m, n, beta, c, ldc);
  double* abuf;
  double* bbuf;
  gemm_carve_buffers(raw, s, &abuf, &bbuf);
  gemm_packed_loops<F>(kGemmLoopOrderRowsFirst, gemm_is_trans(transa), gemm_is_trans(transb), *m,
                       *n, *k, *alpha, a, *lda, b, *ldb, *beta == 0.0, c, *ldc, s, abuf, bbuf);
  tarn_blas_gemm_buffer_deallocate(raw);
}

}  // namespace

// The pieces of branch br over its tile record R.
#define TARN_GEMM_FIXED_PIECES(br, R)                                                          \
  extern "C" void tarn_blas_##br##_dgemm_zerom(const int* m, const int* n, double* c,          \
                                               const int* ldc) {                               \
    if (*m <= 0 || *n <= 0) return;                                                            \
    gemm_scale_c(*m, *n, 0.0, c, *ldc);                                                        \
  }                                                                                            \
  extern "C" void tarn_blas_##br##_dgemm_scalm(const int* m, const int* n, const double* beta, \
                                               double* c, const int* ldc) {                    \
    if (*m <= 0 || *n <= 0) return;                                                            \
    gemm_scale_c(*m, *n, *beta, c, *ldc);                                                      \
  }                                                                                            \
  extern "C" void tarn_blas_##br##_dgemm_copybt(const int* rows, const int* cols,              \
                                                const double* src, const int* ld,              \
                                                const double* mult, double* dst) {             \
    gemm_table_copy_b<R>(true, *rows, *cols, src, *ld, *mult, dst);                            \
  }                                                                                            \
  extern "C" void tarn_blas_##br##_dgemm_pst(                                                  \
      const char* transa, const char* transb, const int* m, const int* n, const int* k,        \
      const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,   \
      const double* beta, double* c, const int* ldc) {                                         \
    gemm_thin(gemm_is_trans(transa), gemm_is_trans(transb), *m, *n, gemm_max(*k, 0), *alpha,   \
              a, *lda, b, *ldb, *beta, c, *ldc);                                               \
  }

// xdgemm of branch br over its tile record R, in the names of its pieces.
#define TARN_GEMM_FIXED_XDGEMM(br, R)                                                          \
  extern "C" void tarn_blas_##br##_xdgemm(                                                     \
      const char* transa, const char* transb, const int* m, const int* n, const int* k,        \
      const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,   \
      const double* beta, double* c, const int* ldc) {                                         \
    gemm_fixed_xdgemm<GemmFixedRecord<R, tarn_blas_##br##_dgemm_copybt>,                       \
                      tarn_blas_##br##_dgemm_zerom, tarn_blas_##br##_dgemm_scalm,              \
                      tarn_blas_##br##_dgemm_pst>(transa, transb, m, n, k, alpha, a, lda, b,   \
                                                  ldb, beta, c, ldc);                          \
  }
