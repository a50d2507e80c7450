// xdtrsm of the descriptor branches (avx2, avx512): the solve described by
// the records of a product (kernels/gemm_desc.h) with op_kind 8, its kernel
// information (the product's, with the triangular fields and the case's
// driver filled in) and the four xdtrsm_<side>_<uplo>_fullacopybcopy
// drivers over the packed solve of trsm_packed.h.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_descriptors.h"
#include "kernels/generic/trsm_packed.h"

namespace {

// The left frame of a solve given by records: a is the triangle (flags 8
// lower, 16 upper, 64 unit diagonal, 1/2/4 its transposition), b the
// right-hand sides, and the operation's side_right the side.
inline TrsmFrame trsm_frame_of(const blas_op_params* op, const blas_matrix* a,
                               const blas_matrix* b) {
  const char side = op->side_right ? 'R' : 'L';
  const char uplo = (a->flags & kBlasMatrixLower) ? 'L' : 'U';
  const char trans = blas_matrix_trans(a) ? 'T' : 'N';
  const char diag = (a->flags & kBlasMatrixUnitDiag) ? 'U' : 'N';
  return trsm_make_frame(side, uplo, trans, diag, b->rows, b->cols,
                         static_cast<const double*>(a->base), a->ld,
                         static_cast<double*>(b->base), b->ld);
}

// dtrxm_initialize_buffers: the dgemm_initialize_buffers of triangular
// operations. The same records; the depth block is the diagonal block of
// the solve, the A buffer holds its packed triangles (micro-panels of the
// triangular operand's panel height, each followed by its mr by mr
// triangle), the B buffer one column block of the right-hand sides.
template <class D, class R>
void dtrxm_initialize_buffers(blas_matrix* a, blas_matrix* b, blas_strategy* strategy,
                              blas_buffers* bufs) {
  dgemm_initialize_buffers<D>(a, b, strategy, bufs);
  using P = TrsmPackedBlocks<R>;
  const int rhs = b->cols;
  bufs->kc = P::kb;
  bufs->mc = static_cast<int32_t>((P::a_doubles() + P::kb - 1) / P::kb);
  bufs->nc = P::nc(rhs);
  blas_fill_pack_desc(&bufs->a_desc, bufs->kc, bufs->mc, R::mr);
  bufs->a_desc.panel_stride = trsm_panel_doubles<R>(P::kb);
  blas_fill_pack_desc(&bufs->b_desc, bufs->kc, bufs->nc, R::nr);
  bufs->buffer_kind = kGemmBuffersBoth;
}

// The four drivers; B is already multiplied by alpha. Buffers come from the
// caller (shared_buffers) or from dtrxm_initialize_buffers and get_bufs;
// without them the blocked substitution runs, after a warning with the
// operation's name.
template <class D, class R, tarn_xdgemm_fn* Gemm>
void trsm_descriptor_driver(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                            blas_buffers* shared_buffers, blas_kernel_info* info) {
  const TrsmFrame f = trsm_frame_of(op, a, b);
  if (f.order <= 0 || f.rhs <= 0) return;
  blas_buffers own;
  blas_buffers* bufs = shared_buffers;
  if (bufs == nullptr) {
    // The rows of op(B) on the left, its columns on the right, are what a
    // column block of the frame cuts.
    blas_matrix frame_b = *b;
    frame_b.cols = f.rhs;
    dtrxm_initialize_buffers<D, R>(a, &frame_b, &info->strategy, &own);
    own.get_bufs(&own);
    bufs = &own;
  }
  if (tarn_serv_check_ptr_and_warn(bufs->a_desc.pointer, info->name)) {
    trsm_blocked_substitute<Gemm>(f);
  } else {
    trsm_packed_loops<R, Gemm>(f, bufs->a_desc.pointer, bufs->b_desc.pointer);
  }
  if (bufs == &own) own.free_bufs(&own);
}

template <class D, class R, tarn_xdgemm_fn* Gemm>
void xdtrsm_left_upper_fullacopybcopy(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                                      blas_matrix*, blas_buffers* shared, blas_kernel_info* info) {
  trsm_descriptor_driver<D, R, Gemm>(op, a, b, shared, info);
}
template <class D, class R, tarn_xdgemm_fn* Gemm>
void xdtrsm_left_lower_fullacopybcopy(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                                      blas_matrix*, blas_buffers* shared, blas_kernel_info* info) {
  trsm_descriptor_driver<D, R, Gemm>(op, a, b, shared, info);
}
template <class D, class R, tarn_xdgemm_fn* Gemm>
void xdtrsm_right_upper_fullacopybcopy(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                                       blas_matrix*, blas_buffers* shared,
                                       blas_kernel_info* info) {
  trsm_descriptor_driver<D, R, Gemm>(op, a, b, shared, info);
}
template <class D, class R, tarn_xdgemm_fn* Gemm>
void xdtrsm_right_lower_fullacopybcopy(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                                       blas_matrix*, blas_buffers* shared,
                                       blas_kernel_info* info) {
  trsm_descriptor_driver<D, R, Gemm>(op, a, b, shared, info);
}

// The kernel information of a solve: the product's (name "DTRSM" from the
// op_kind, mscale, packing, thin path), and the case's packed-diagonal
// preparation, tile kernel and driver. The case follows A's flags: with no
// transposition upper means the upper form; with one, upper means the lower
// form, since op(A) flips the triangle.
template <class D, class R, tarn_xdgemm_fn* Gemm>
void dtrsm_initialize_kernel_info(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                                  blas_matrix* c, blas_strategy* strategy,
                                  blas_kernel_info* info) {
  dgemm_initialize_kernel_info<D>(op, a, b, c, strategy, info);
  const bool upper = (a->flags & kBlasMatrixUpper) != 0;
  const bool op_upper = blas_matrix_trans(a) ? !upper : upper;
  const bool unit = (a->flags & kBlasMatrixUnitDiag) != 0;
  constexpr int mr = R::mr;
  TrsmDiagScaleFn* scale;
  TrsmTileFn* tile;
  if (!op->side_right) {
    if (op_upper)
      scale = unit ? dtrsm_scale_left_unit<mr, false> : dtrsm_scale_left<mr, false>;
    else
      scale = unit ? dtrsm_scale_left_unit<mr, true> : dtrsm_scale_left<mr, true>;
    tile = trsm_pick_tile<R>(!op_upper, unit, false);  // dtrsm_kernel_left_<uplo>
    info->driver = op_upper ? xdtrsm_left_upper_fullacopybcopy<D, R, Gemm>
                            : xdtrsm_left_lower_fullacopybcopy<D, R, Gemm>;
  } else {
    if (op_upper)
      scale = unit ? dtrsm_scale_right_unit<mr, true> : dtrsm_scale_right<mr, true>;
    else
      scale = unit ? dtrsm_scale_right_unit<mr, false> : dtrsm_scale_right<mr, false>;
    tile = trsm_pick_tile<R>(op_upper, unit, false);  // dtrsm_kernel_right_<uplo>
    info->driver = op_upper ? xdtrsm_right_upper_fullacopybcopy<D, R, Gemm>
                            : xdtrsm_right_lower_fullacopybcopy<D, R, Gemm>;
  }
  info->diag_scale = reinterpret_cast<void*>(scale);
  info->tri_kernel = reinterpret_cast<void*>(tile);
}

// xdtrsm of the descriptor branches:
//  1. nothing to do for an empty B;
//  2. narrow orders (up to kTrsmNarrowAny, or multiples of four up to
//     kTrsmNarrowUnits) go to xdtrsm_v1;
//  3. otherwise the records and kernel information are built, B is scaled
//     by alpha through mscale (alpha 0 clears it and ends the call, A not
//     read), and the case's driver runs.
template <class D, class R, tarn_xdgemm_fn* Gemm, tarn_xdtrsm_fn* V1>
void xdtrsm_descriptor_impl(const char* side, const char* uplo, const char* transa,
                            const char* diag, const int* m, const int* n, const double* alpha,
                            const double* a, const int* lda, double* b, const int* ldb) {
  if (*m <= 0 || *n <= 0) return;
  const bool right = trsm_fold(side) != 'L';
  const int order = right ? *n : *m;
  if (order <= kTrsmNarrowAny || (order % kTrsmUnit == 0 && order <= kTrsmNarrowUnits)) {
    V1(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
    return;
  }
  blas_op_params op;
  blas_initialize_op_params(kBlasOpDtrsm, transa, nullptr, *alpha, 1.0, &op);
  op.side_right = right ? 1 : 0;
  blas_matrix ma, mb, mc;
  blas_initialize_matrix(transa, order, order, a, *lda, &ma);
  ma.flags |= trsm_fold(uplo) == 'L' ? kBlasMatrixLower : kBlasMatrixUpper;
  if (trsm_fold(diag) == 'U') ma.flags |= kBlasMatrixUnitDiag;
  blas_initialize_matrix("N", *m, *n, b, *ldb, &mb);
  mc = mb;
  blas_strategy strategy;
  dgemm_initialize_strategy<D>(&strategy);
  blas_kernel_info info;
  dtrsm_initialize_kernel_info<D, R, Gemm>(&op, &ma, &mb, &mc, &strategy, &info);
  if (*alpha != 1.0) info.mscale(m, n, alpha, b, ldb);
  if (*alpha == 0.0) return;
  info.driver(&op, &ma, &mb, &mc, nullptr, &info);
}

}  // namespace
