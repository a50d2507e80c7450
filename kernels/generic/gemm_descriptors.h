// The descriptor layer of the avx2 and avx512 GEMM: operation, matrices,
// strategy, kernel information and buffers (the records of
// kernels/gemm_desc.h), the packing routines, kernel and drivers they name,
// and the strategy-driven entry. It sits on the shared blocked driver: a
// branch gives a record D with
//
//   Packed, Nocopy          its records of the packed and packing-free driver
//   nocopy_limits(ta, tb)   K, M, N limits of the packing-free driver
//   align_hint              4 on avx2, 8 on avx512
//
// The register tiles are this system's own (8 by 7 on avx512, 28 by 1 on
// avx2), so check_strategy corrects the unrolls of a strategy to them.
//
// Operations other than DGEMM (DSYMM, DSYRK, DTRMM, DTRSM, DGEMMT) are not
// built on this layer: their op_kind is recorded, their drivers are absent.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_nocopy.h"
#include "service/messages.h"

namespace {

constexpr int kBlasElementSize = 8;
constexpr int kBlasPackAlignment = 128;
constexpr int kBlasThirdLimit = 4;
constexpr uint32_t kBlasTwo = 2;
// Slack of the single-buffer kinds and of the per-thread kind.
constexpr size_t kGemmAOnlySlack = 9856, kGemmBOnlySlack = 8960, kGemmPerThreadSlack = 8192;
// Sizes of the pack family (dgemm_get_size_bufs).
constexpr size_t kGemmPackAOnlySlack = 14080, kGemmPackBOnlySlack = 13184;
constexpr size_t kGemmPackPerThreadSlack = 8320;

inline int32_t blas_trans_code(const char* t) {
  if (t == nullptr) return kBlasTransNone;
  switch (*t & ~0x20) {
    case 'N': return kBlasTransN;
    case 'T': return kBlasTransT;
    case 'C': return kBlasTransC;
    default: return kBlasTransBad;
  }
}

inline void blas_initialize_op_params(uint32_t op_kind, const char* transa, const char* transb,
                                      double alpha, double beta, blas_op_params* op) {
  *op = blas_op_params{};
  op->transa = transa;
  op->transb = transb;
  op->alpha = alpha;
  op->beta = beta;
  for (uint32_t& w : op->twos) w = kBlasTwo;
  op->transa_code = blas_trans_code(transa);
  op->transb_code = blas_trans_code(transb);
  op->op_kind = op_kind;
}

void* getPointer_notrans(int i, int j, const blas_matrix* m) {
  return static_cast<char*>(m->base) + ((ptrdiff_t)j * m->ld + i) * kBlasElementSize;
}
void* getPointer_trans(int i, int j, const blas_matrix* m) {
  return static_cast<char*>(m->base) + ((ptrdiff_t)i * m->ld + j) * kBlasElementSize;
}

// op(X) of rows x cols at base with leading dimension ld.
inline void blas_initialize_matrix(const char* trans, int rows, int cols, const double* base,
                                   int ld, blas_matrix* out) {
  *out = blas_matrix{};
  out->base = const_cast<double*>(base);
  out->rows = rows;
  out->cols = cols;
  out->ld = ld;
  out->rows2 = rows;
  out->element_size = kBlasElementSize;
  switch (blas_trans_code(trans)) {
    case kBlasTransN: out->flags = kBlasMatrixNoTrans; break;
    case kBlasTransT: out->flags = kBlasMatrixTrans; break;
    case kBlasTransC: out->flags = kBlasMatrixConjTrans; break;
    default: out->flags = 0; break;
  }
  out->get_pointer = (out->flags & (kBlasMatrixTrans | kBlasMatrixConjTrans)) ? getPointer_trans
                                                                              : getPointer_notrans;
}

inline bool blas_matrix_trans(const blas_matrix* m) {
  return (m->flags & (kBlasMatrixTrans | kBlasMatrixConjTrans)) != 0;
}

// Panels lie one after the other, each holding kc slices of panel_height.
double* getPointer_buffer(int k_index, int row, const blas_pack_desc* d) {
  const int slices = (d->kc + d->k_unroll - 1) / d->k_unroll;
  return d->pointer + ((ptrdiff_t)k_index * d->panel_height +
                       (ptrdiff_t)slices * row * d->k_unroll);
}

// ---- Strategy ----------------------------------------------------------------

template <class D>
int check_strategy(blas_strategy* s) {
  if (s->buffer_api == 0) s->buffer_api = 2;
  if (s->mode == 0) s->mode = kGemmModePackBoth;
  if (s->loop_order == 0) s->loop_order = kGemmLoopOrderRowsFirst;
  if (s->mode == kGemmModeNocopy) s->buffer_api = 4;
  const bool right = s->m_unroll == D::Packed::mr && s->n_unroll == D::Packed::nr &&
                     s->k_unroll == 1;
  s->m_unroll = D::Packed::mr;
  s->n_unroll = D::Packed::nr;
  s->k_unroll = 1;
  s->m_unroll8 = gemm_round_up(s->m_unroll, 8);
  s->n_unroll8 = gemm_round_up(s->n_unroll, 8);
  s->k_unroll8 = gemm_round_up(s->k_unroll, 8);
  return right ? 1 : 0;
}

template <class D>
void dgemm_initialize_strategy(blas_strategy* s) {
  *s = blas_strategy{};
  s->pack_api = 2;
  s->m_unroll = D::Packed::mr;
  s->n_unroll = D::Packed::nr;
  s->k_unroll = 1;
  s->align_hint = D::align_hint;
  s->check = check_strategy<D>;
}

// Plan kernel (copy_kernel of the thread plan) to strategy mode.
template <class D>
void dgemm_map_thread_to_kernel(const gemm_thread_opts* opts, blas_strategy* s) {
  dgemm_initialize_strategy<D>(s);
  switch (opts->copy_kernel) {
    case 0: s->mode = kGemmModePackBoth; break;
    case 1: s->mode = kGemmModeAPacked; break;
    case 3: s->mode = kGemmModeThreaded; break;
    case 5: s->mode = kGemmModeNocopy; break;
    default: break;
  }
  s->check(s);
}

// ---- Packing routines, kernel, scaling -----------------------------------------

// A block of op(A): rows x depth, as the row panels of a packed block
// (m_unroll high, then the edge panels), times mult.
template <class D, bool Trans>
void dgemm_copya(int rows, int depth, const double* src, int ld, double mult, double* dst) {
  gemm_pack_a_block<typename D::Packed>(Trans, rows, depth, src, ld, mult, dst);
}

// A block of op(B): depth x cols, as column panels of n_unroll and the edge
// panels, times mult (1 in every product: alpha enters through A).
template <class D, bool Trans>
void dgemm_copyb(int depth, int cols, const double* src, int ld, double mult, double* dst) {
  using R = typename D::Packed;
  gemm_pack_b_block<R>(Trans, depth, cols, src, ld, 0, 0, dst);
  if (mult != 1.0) {
    const ptrdiff_t len = (ptrdiff_t)cols * depth;
    for (ptrdiff_t i = 0; i < len; ++i) dst[i] *= mult;
  }
}

// C(rows x b->block) at the C descriptor's offsets (+)= packed A times the
// packed B block; beta 0 does not read C.
template <class D>
void dgemm_ker0(const int* rows, const double* a_buffer, const blas_pack_desc* b,
                const double* beta, blas_matrix* c) {
  double* cp = static_cast<double*>(c->get_pointer(c->row_offset, c->col_offset, c));
  gemm_block_times_block<typename D::Packed>(*rows, b->block, b->kc, a_buffer, b->pointer, cp,
                                             c->ld, *beta == 0.0);
}

void dgemm_mscale_wrapper(const int* m, const int* n, const double* beta, double* c,
                          const int* ldc) {
  if (*m <= 0 || *n <= 0) return;
  gemm_scale_c(*m, *n, *beta, c, *ldc);
}

// ---- Buffers -------------------------------------------------------------------

template <class D>
void dgemm_initialize_buffers(blas_matrix* a, blas_matrix* b, blas_strategy* strategy,
                              blas_buffers* bufs);

template <class D>
int dgemm_get_bufs(blas_buffers* bufs) {
  const size_t a_bytes = (size_t)bufs->mc * bufs->kc * kBlasElementSize;
  const size_t b_bytes = (size_t)bufs->nc * bufs->kc * kBlasElementSize;
  size_t bytes;
  switch (bufs->buffer_kind) {
    case kGemmBuffersBoth: bytes = a_bytes + b_bytes + kGemmBothBuffersSlack; break;
    case kGemmBuffersAOnly: bytes = a_bytes + kGemmAOnlySlack; break;
    case kGemmBuffersBOnly: bytes = b_bytes + kGemmBOnlySlack; break;
    case kGemmBuffersPerThreadB:
      bytes = (b_bytes + kGemmBOnlySlack) * bufs->threads + kGemmPerThreadSlack;
      break;
    default: return 1;
  }
  bufs->raw = tarn_blas_gemm_buffer_allocate(bytes, kBlasPackAlignment);
  bufs->a_desc.pointer = bufs->b_desc.pointer = nullptr;
  if (bufs->raw == nullptr) return 0;
  const uintptr_t base = gemm_up4k((uintptr_t)bufs->raw);
  switch (bufs->buffer_kind) {
    case kGemmBuffersBoth: {
      const uintptr_t bp = base + bufs->b_offset;
      bufs->b_desc.pointer = reinterpret_cast<double*>(bp);
      bufs->a_desc.pointer = reinterpret_cast<double*>(gemm_up4k(bp + b_bytes) + bufs->a_offset);
      break;
    }
    case kGemmBuffersAOnly:
      bufs->a_desc.pointer = reinterpret_cast<double*>(base + bufs->a_offset);
      break;
    case kGemmBuffersBOnly:
      bufs->b_desc.pointer = reinterpret_cast<double*>(base + bufs->b_offset);
      break;
    default:  // per-thread B: copies one after the other, the first here
      bufs->b_desc.pointer = reinterpret_cast<double*>(base);
      break;
  }
  return 0;
}

// Bytes the pack family needs for the kind (0 for both buffers at once).
template <class D>
size_t dgemm_get_size_bufs(const blas_buffers* bufs) {
  const size_t a_bytes = (size_t)bufs->mc * bufs->kc * kBlasElementSize;
  const size_t b_bytes = (size_t)bufs->nc * bufs->kc * kBlasElementSize;
  switch (bufs->buffer_kind) {
    case kGemmBuffersAOnly: return a_bytes + kGemmPackAOnlySlack;
    case kGemmBuffersBOnly: return b_bytes + kGemmPackBOnlySlack;
    case kGemmBuffersPerThreadB:
      return (b_bytes + kGemmBOnlySlack) * bufs->threads + kGemmPackPerThreadSlack;
    case kGemmBuffersPerThreadA:
      return (a_bytes + kGemmAOnlySlack) * bufs->threads + kGemmPackPerThreadSlack;
    default: return 0;
  }
}

// Lays the buffers out in a block the caller allocated (of at least
// dgemm_get_size_bufs bytes): aligned to 128, with the distance in doubles
// from the block's head to the data stored at the head.
template <class D>
int dgemm_set_bufs_pack(blas_buffers* bufs, void* block) {
  if (block == nullptr || dgemm_get_size_bufs<D>(bufs) == 0) return 1;
  const uintptr_t head = ((uintptr_t)block + kBlasPackAlignment - 1) &
                         ~(uintptr_t)(kBlasPackAlignment - 1);
  const uintptr_t data = head + kBlasPackAlignment;
  *reinterpret_cast<int32_t*>(head) = (int32_t)((data - (uintptr_t)block) / kBlasElementSize);
  double* p = reinterpret_cast<double*>(gemm_up4k(data));
  if (bufs->buffer_kind == kGemmBuffersAOnly || bufs->buffer_kind == kGemmBuffersPerThreadA)
    bufs->a_desc.pointer = p + bufs->a_offset / kBlasElementSize;
  else
    bufs->b_desc.pointer = p + bufs->b_offset / kBlasElementSize;
  return 0;
}

template <class D>
void dgemm_free_bufs(blas_buffers* bufs) {
  if (bufs->raw != nullptr) tarn_blas_gemm_buffer_deallocate(bufs->raw);
  bufs->raw = nullptr;
  bufs->a_desc.pointer = bufs->b_desc.pointer = nullptr;
}

inline void blas_fill_pack_desc(blas_pack_desc* d, int kc, int block, int height) {
  d->pointer = nullptr;
  d->kc = kc;
  d->block = block;
  d->panel_stride = height * kc;
  d->k_unroll = 1;
  d->panel_height = height;
  d->kc_rounded = kc;
  d->element_size = kBlasElementSize;
  d->alignment = kBlasPackAlignment;
  d->get_pointer = getPointer_buffer;
}

template <class D>
void dgemm_initialize_buffers(blas_matrix* a, blas_matrix* b, blas_strategy* strategy,
                              blas_buffers* bufs) {
  using R = typename D::Packed;
  *bufs = blas_buffers{};
  const GemmBlocks s = gemm_block_sizes<R>(a->rows, b->cols, a->cols);
  bufs->mc = s.mc;
  bufs->nc = s.nc;
  bufs->kc = s.kc;
  blas_fill_pack_desc(&bufs->a_desc, s.kc, s.mc, R::mr);
  blas_fill_pack_desc(&bufs->b_desc, s.kc, s.nc, R::nr);
  bufs->buffer_kind = strategy->mode == kGemmModeAPacked ? kGemmBuffersBOnly : kGemmBuffersBoth;
  bufs->a_offset = (int32_t)kGemmAOffset;
  bufs->a_align = (int32_t)kGemmPage;
  bufs->b_offset = (int32_t)kGemmBOffset;
  bufs->b_align = (int32_t)kGemmPage;
  bufs->threads = 1;
  bufs->get_bufs = dgemm_get_bufs<D>;
  bufs->get_size_bufs = dgemm_get_size_bufs<D>;
  bufs->set_bufs = dgemm_set_bufs_pack<D>;
  bufs->free_bufs = dgemm_free_bufs<D>;
}

// ---- Drivers ---------------------------------------------------------------------

struct BlasOperands {
  bool ta, tb;
  int m, n, k;
  const double *a, *b;
  double* c;
  int lda, ldb, ldc;
};

inline BlasOperands blas_operands(blas_matrix* a, blas_matrix* b, blas_matrix* c) {
  BlasOperands o;
  o.ta = blas_matrix_trans(a);
  o.tb = blas_matrix_trans(b);
  o.m = c->rows;
  o.n = c->cols;
  o.k = a->cols;
  o.a = static_cast<const double*>(a->get_pointer(a->row_offset, a->col_offset, a));
  o.b = static_cast<const double*>(b->get_pointer(b->row_offset, b->col_offset, b));
  o.c = static_cast<double*>(c->get_pointer(c->row_offset, c->col_offset, c));
  o.lda = a->ld;
  o.ldb = b->ld;
  o.ldc = c->ld;
  return o;
}

// Scales C by beta up front, so that the packed loops only add (beta 1) or
// store (beta 0); returns the beta they see. Where alpha or the depth leaves
// nothing to add, C is finished here and *done is set.
inline double blas_prescale_c(const blas_op_params* op, BlasOperands o,
                              const blas_kernel_info* info, bool* done) {
  double beta = op->beta;
  if (beta != 1.0 && beta != 0.0) {
    info->mscale(&o.m, &o.n, &beta, o.c, &o.ldc);
    beta = 1.0;
  }
  *done = op->alpha == 0.0 || o.k < 1;
  if (*done && beta == 0.0) info->mscale(&o.m, &o.n, &beta, o.c, &o.ldc);
  return beta;
}

// The thin path in descriptor form.
template <class D>
void d_pst_wrapper(const blas_op_params* op, blas_matrix* a, blas_matrix* b, blas_matrix* c) {
  const BlasOperands o = blas_operands(a, b, c);
  gemm_thin(o.ta, o.tb, o.m, o.n, o.k, op->alpha, o.a, o.lda, o.b, o.ldb, op->beta, o.c, o.ldc);
}

template <class D>
void d_generic_fullacopybcopy(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                              blas_matrix* c, blas_buffers* shared_buffers,
                              blas_kernel_info* info) {
  using R = typename D::Packed;
  const BlasOperands o = blas_operands(a, b, c);
  if (o.m < 1 || o.n < 1) return;
  bool done;
  const double beta = blas_prescale_c(op, o, info, &done);
  if (done) return;
  blas_buffers own;
  blas_buffers* bufs = shared_buffers;
  if (bufs == nullptr) {
    dgemm_initialize_buffers<D>(a, b, &info->strategy, &own);
    own.buffer_kind = kGemmBuffersBoth;
    own.get_bufs(&own);
    if (tarn_serv_check_ptr_and_warn(own.raw, info->name)) {
      blas_op_params scaled = *op;
      scaled.beta = beta;
      info->pst(&scaled, a, b, c);
      return;
    }
    bufs = &own;
  }
  const GemmBlocks s = {bufs->mc, bufs->nc, bufs->kc};
  gemm_packed_loops<R>(info->strategy.loop_order, o.ta, o.tb, o.m, o.n, o.k, op->alpha, o.a,
                       o.lda, o.b, o.ldb, beta == 0.0, o.c, o.ldc, s, bufs->a_desc.pointer,
                       bufs->b_desc.pointer);
  if (bufs == &own) own.free_bufs(&own);
}

// ---- Packed A set (mode 4) ---------------------------------------------------------
// op(A) times alpha for a whole product of M rows and K depth, packed once
// (by the members of a team, each a share of the row panels) and read by
// any number of products after. With kc the depth block (that of
// gemm_block_sizes for K: it depends on K alone), the depth block starting
// at p0, of d = min(kc, K - p0) slices, starts at p0 * M; within it the row
// panels of the M rows follow one another as in any packed block (whole
// panels of m_unroll, then the edge panels of the last M % m_unroll rows),
// the panel of the rows from i at i * d. So each row block of mc rows
// inside a depth block is exactly the A buffer the blocked driver packs
// for it, and a set of one depth block (K <= kc) is the single A buffer
// that mode 4 always took. Element (i, p) of a row i in a whole panel is at
//   p0 * M + (i - i % m_unroll) * d + (p - p0) * m_unroll + i % m_unroll.
// In a blas_buffers record the set is described by a_desc: pointer, kc the
// depth block, block the rows M of the set, kc_rounded its depth K; a
// product's A may start at any whole row panel of the set (the A matrix's
// row_offset) and end at a whole panel or at row M.

template <class D>
size_t dgemm_aset_doubles(int m, int k) {
  return (size_t)m * (size_t)k;
}

// First panel of the rows from `row` (a multiple of m_unroll) in the depth
// block that starts at p0, in the set of an m by k op(A) with depth block kc.
template <class D>
double* dgemm_aset_panel(double* set, int m, int k, int kc, int row, int p0) {
  const int d = gemm_min(kc, k - p0);
  return set + (ptrdiff_t)p0 * m + (ptrdiff_t)row * d;
}

// Packs rows [row0, row0 + rows) of op(A) times alpha into the set of the m
// by k op(A) at a, row0 a multiple of m_unroll and rows a multiple of it or
// reaching row m. Members of a team call it on disjoint row ranges of the
// same set.
template <class D>
void dgemm_pack_a_set(bool ta, int m, int k, int kc, const double* a, int lda, double alpha,
                      double* set, int row0, int rows) {
  // Loop over the depth, kc at a time.
  for (int p0 = 0; p0 < k; p0 += kc) {
    const int d = gemm_min(kc, k - p0);
    const double* src = ta ? a + p0 + (ptrdiff_t)row0 * lda : a + row0 + (ptrdiff_t)p0 * lda;
    double* dst = dgemm_aset_panel<D>(set, m, k, kc, row0, p0);
    if (ta)
      dgemm_copya<D, true>(rows, d, src, lda, alpha, dst);
    else
      dgemm_copya<D, false>(rows, d, src, lda, alpha, dst);
  }
}

// Mode 4: the A of the product is a packed A set (the shared buffers'
// a_desc, see above) filled beforehand, by another thread or by a team;
// only B is packed here, into the shared B buffer or, if there is none, a
// buffer of its own. Without a set that covers the product (rows from the
// A matrix's row_offset, whole row panels or the set's last rows, the
// set's depth or one block) it is the full driver on buffers of its own: a
// set is never used as scratch, another product may still read it.
//
// The loops run depth block, column block, rows: A is packed already, so
// nothing favours the row block outermost, and this way each B block is
// packed once and not once per row block.
template <class D>
void xdgemm_acopiedbcopy(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                         blas_matrix* c, blas_buffers* shared_buffers, blas_kernel_info* info) {
  using R = typename D::Packed;
  const BlasOperands o = blas_operands(a, b, c);
  if (o.m < 1 || o.n < 1) return;
  const blas_pack_desc* ad = shared_buffers ? &shared_buffers->a_desc : nullptr;
  const int row0 = a->row_offset;
  const bool one_block = ad != nullptr && o.k <= ad->kc;
  const int kc = one_block ? o.k : ad != nullptr ? ad->kc : 0;
  const bool covered = ad != nullptr && ad->pointer != nullptr && row0 >= 0 &&
                       row0 % R::mr == 0 && row0 + o.m <= ad->block &&
                       (o.m % R::mr == 0 || row0 + o.m == ad->block) && kc >= 1 &&
                       kc <= shared_buffers->kc && shared_buffers->nc >= 1 &&
                       (one_block || o.k == ad->kc_rounded);
  if (!covered) {
    d_generic_fullacopybcopy<D>(op, a, b, c, nullptr, info);
    return;
  }
  blas_buffers own = *shared_buffers;
  double* bbuf = shared_buffers->b_desc.pointer;
  const bool own_b = bbuf == nullptr;
  if (own_b) {
    own.buffer_kind = kGemmBuffersBOnly;
    own.threads = 1;
    dgemm_get_bufs<D>(&own);
    if (own.raw == nullptr) {
      d_generic_fullacopybcopy<D>(op, a, b, c, nullptr, info);
      return;
    }
    bbuf = own.b_desc.pointer;
  }
  bool done;
  const double beta = blas_prescale_c(op, o, info, &done);
  if (!done) {
    const int nc = shared_buffers->nc;
    // Whole row panels per row block, so that each block starts on a panel.
    const int mc = shared_buffers->mc >= R::mr ? shared_buffers->mc / R::mr * R::mr
                                               : gemm_round_up(o.m, R::mr);
    // Loop over the depth, kc at a time; only the first block sees beta 0.
    for (int pc = 0; pc < o.k; pc += kc) {
      const int kcur = gemm_min(kc, o.k - pc);
      const bool b0 = beta == 0.0 && pc == 0;
      const double* aset = dgemm_aset_panel<D>(ad->pointer, ad->block, o.k, kc, row0, pc);
      // Loop over the columns of C, nc at a time; pack B here.
      for (int jc = 0; jc < o.n; jc += nc) {
        const int ncur = gemm_min(nc, o.n - jc);
        gemm_pack_b_block<R>(o.tb, kcur, ncur, o.b, o.ldb, pc, jc, bbuf);
        // Loop over the rows of C, mc at a time.
        for (int ic = 0; ic < o.m; ic += mc) {
          const int mcur = gemm_min(mc, o.m - ic);
          double* cblock = o.c + ic + (ptrdiff_t)jc * o.ldc;
          gemm_block_times_block<R>(mcur, ncur, kcur, aset + (ptrdiff_t)ic * kcur, bbuf, cblock,
                                    o.ldc, b0);
        }
      }
    }
  }
  if (own_b) dgemm_free_bufs<D>(&own);
}

template <class D>
void xdgemm_nocopy_driver(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                          blas_matrix* c, blas_buffers* /*shared_buffers*/,
                          blas_kernel_info* /*info*/) {
  const BlasOperands o = blas_operands(a, b, c);
  gemm_nocopy_driver<typename D::Nocopy>(o.ta, o.tb, o.m, o.n, o.k, op->alpha, o.a, o.lda, o.b,
                                         o.ldb, op->beta, o.c, o.ldc,
                                         D::nocopy_limits(o.ta, o.tb));
}

inline const char* blas_op_name(uint32_t op_kind) {
  switch (op_kind) {
    case kBlasOpDsymm: return "DSYMM";
    case kBlasOpDsyrk: return "DSYRK";
    case kBlasOpDsyr2k: return "DSYR2K";
    case kBlasOpDtrmm: return "DTRMM";
    case kBlasOpDtrsm: return "DTRSM";
    case kBlasOpDgemmt: return "DGEMMT";
    default: return "DGEMM";
  }
}

template <class D>
void dgemm_initialize_kernel_info(const blas_op_params* op, blas_matrix* a, blas_matrix* b,
                                  blas_matrix* /*c*/, blas_strategy* strategy,
                                  blas_kernel_info* info) {
  *info = blas_kernel_info{};
  info->pst_m_limit = D::Packed::pst_m_limit;
  info->pst_n_limit = D::Packed::pst_n_limit;
  info->third_limit = kBlasThirdLimit;
  info->name = blas_op_name(op->op_kind);
  info->mscale = dgemm_mscale_wrapper;
  info->copy_a = blas_matrix_trans(a) ? dgemm_copya<D, true> : dgemm_copya<D, false>;
  info->copy_b = blas_matrix_trans(b) ? dgemm_copyb<D, true> : dgemm_copyb<D, false>;
  info->kernel = dgemm_ker0<D>;
  info->pst = d_pst_wrapper<D>;
  info->strategy = *strategy;
  info->strategy.check(&info->strategy);
  switch (info->strategy.mode) {
    case kGemmModeNocopy:
      info->copy_a = nullptr;
      info->driver = xdgemm_nocopy_driver<D>;
      break;
    case kGemmModeAPacked: info->driver = xdgemm_acopiedbcopy<D>; break;
    default: info->driver = d_generic_fullacopybcopy<D>; break;
  }
}

// The one-thread product run by a given strategy (its mode and loop order).
template <class D>
void dgemm_run_with_strategy(const char* transa, const char* transb, int m, int n, int k,
                             double alpha, const double* a, int lda, const double* b, int ldb,
                             double beta, double* c, int ldc, const blas_strategy* strategy) {
  if (m < 1 || n < 1) return;
  blas_op_params op;
  blas_initialize_op_params(kBlasOpDgemm, transa, transb, alpha, beta, &op);
  blas_matrix ma, mb, mc;
  blas_initialize_matrix(transa, m, k, a, lda, &ma);
  blas_initialize_matrix(transb, k, n, b, ldb, &mb);
  blas_initialize_matrix("N", m, n, c, ldc, &mc);
  blas_strategy s;
  if (strategy != nullptr) {
    s = *strategy;
    if (s.check == nullptr) s.check = check_strategy<D>;
  } else {
    dgemm_initialize_strategy<D>(&s);
  }
  blas_kernel_info info;
  dgemm_initialize_kernel_info<D>(&op, &ma, &mb, &mc, &s, &info);
  info.driver(&op, &ma, &mb, &mc, nullptr, &info);
}

}  // namespace

// The team entry of the LU's teams, built on the drivers above.
#include "kernels/generic/gemm_team.h"

// The descriptor services of one branch (avx2, avx512) on its record Desc:
// strategy from a thread plan, kernel information, buffers, the
// strategy-driven one-thread product, and the team entry (shared packing of
// L among the members of an LU team, gemm_team.h).
#define TARN_GEMM_DESCRIPTOR_SERVICES(br, Desc)                                                   \
  static_assert(gemm_nocopy_limits_fit<Desc>(), "a K block deeper than the stack copies");         \
  extern "C" void tarn_blas_##br##_dgemm_map_thread_to_kernel(const gemm_thread_opts* opts,       \
                                                              blas_strategy* strategy) {          \
    dgemm_map_thread_to_kernel<Desc>(opts, strategy);                                             \
  }                                                                                               \
  extern "C" void tarn_blas_##br##_dgemm_initialize_kernel_info(                                  \
      const blas_op_params* op, blas_matrix* a, blas_matrix* b, blas_matrix* c,                   \
      blas_strategy* strategy, blas_kernel_info* info) {                                          \
    dgemm_initialize_kernel_info<Desc>(op, a, b, c, strategy, info);                              \
  }                                                                                               \
  extern "C" void tarn_blas_##br##_dgemm_initialize_buffers(                                      \
      blas_matrix* a, blas_matrix* b, blas_strategy* strategy, blas_buffers* bufs) {              \
    dgemm_initialize_buffers<Desc>(a, b, strategy, bufs);                                         \
  }                                                                                               \
  extern "C" void tarn_blas_##br##_xdgemm_internal(                                               \
      const char* transa, const char* transb, const int* m, const int* n, const int* k,           \
      const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,      \
      const double* beta, double* c, const int* ldc, const blas_strategy* strategy) {             \
    dgemm_run_with_strategy<Desc>(transa, transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, \
                                  *ldc, strategy);                                                \
    _mm256_zeroupper();                                                                           \
  }                                                                                               \
  TARN_GEMM_TEAM_ENTRY(br, Desc)
