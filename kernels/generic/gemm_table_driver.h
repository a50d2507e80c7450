// The kernel-table GEMM services of avx, sse42 and ssse3, written once over
// a branch's tile record R (see gemm_driver.h) and a table record T:
//
//   R            the tuned tile the branch's xdgemm runs on
//   rows         number of rows of the branch's kernel table
//   version_limit  bytes above which dgemm_get_kernel_version answers the
//                blocked variant; 0: always the blocked variant
//   optimal_row()  the row for this processor
//   leave()      what the branch does before returning to callers (avx:
//                vzeroupper)
//
// The table rows' routines (block sizes, buffers, copies, tiles) are thin
// wrappers of the shared packed driver, so xdgemm_par runs the same packing
// and the same tiles as xdgemm, only with the descriptor's block sizes.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace; the
// extern "C" entries are written by the macros at the end.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_pack.h"
#include "kernels/generic/gemm_table.h"
#include "service/cpu.h"
#include "service/messages.h"

namespace {

// Depth block: K below kc_low rounded up to the row's K unit, at least
// kc_min; up to kc_high half of K rounded up; else kc_large.
constexpr int kGemmTableKcMin = 128;
constexpr int kGemmTableKcLow = 256;
constexpr int kGemmTableKcHigh = 511;
constexpr int kGemmTableKcLarge = 256;
// Column block: N, at least the row's N unit, at most this.
constexpr int kGemmTableNcMax = 5000;
// Alignment of the buffers of xdgemm_par: A and B start 1664 and 768 bytes
// past a page, as in the shared driver, so that their first lines do not
// fall on the same cache sets (so xdgemm, which runs through xdgemm_par,
// keeps the shared driver's layout: best of five on the 2000 cube, avx 24.7
// against 24.9 GFlops, sse42 13.0 against 12.8); the unused third buffer at
// 128 bytes.
constexpr int kGemmTablePageShift = 12;
constexpr int kGemmTableAlignShift = 7;
// Bytes per element of the pack buffers in dgemm_get_kernel_version.
constexpr int kGemmTableElementBytes = 8;

// Row block of one table row: mc_large, or mc_small when the processor's
// cache table has levels and the given level holds at most cache_limit
// bytes; round_nc: nc rounded up to the row's N unit.
struct GemmTableBlocking {
  int mc_large, mc_small;
  int cache_level;
  int64_t cache_limit;
  bool round_nc;
};

inline gemm_table_desc* gemm_table_of(void* desc) { return static_cast<gemm_table_desc*>(desc); }

// dgemm_get_blks_size of one row: each size only if it is still 0.
inline void gemm_table_blks(const GemmTableBlocking& bl, int n, int k, gemm_table_desc* d) {
  const gemm_kernel_row& r = *d->row;
  if (d->kc == 0) {
    if (k < kGemmTableKcLow)
      d->kc = gemm_max(gemm_round_up(gemm_max(k, 1), r.min_k), kGemmTableKcMin);
    else if (k <= kGemmTableKcHigh && k > kGemmTableKcLow)
      d->kc = gemm_round_up(k / 2, r.min_k);
    else
      d->kc = kGemmTableKcLarge;
  }
  if (d->mc == 0) {
    int64_t sizes[5];
    tarn_serv_cache_info(sizes);
    const bool small = sizes[0] > 0 && sizes[bl.cache_level] <= bl.cache_limit;
    d->mc = small ? bl.mc_small : bl.mc_large;
  }
  if (d->nc == 0) {
    const int nc = gemm_min(gemm_max(n, r.min_n), kGemmTableNcMax);
    d->nc = bl.round_nc ? gemm_round_up(nc, r.min_n) : nc;
  }
}

// Which buffers (A, third, B) a kind asks for; false for a kind outside the
// list.
inline bool gemm_table_kind_buffers(int kind, bool used[kGemmTableBufCount]) {
  used[kGemmTableBufA] = kind == kGemmTableKindA || kind == kGemmTableKindAB ||
                         kind == kGemmTableKindAThird || kind == kGemmTableKindAll ||
                         kind == kGemmTableKindAllSse;
  used[kGemmTableBufThird] = kind == kGemmTableKindAThird || kind == kGemmTableKindAll ||
                             kind == kGemmTableKindAllSse;
  used[kGemmTableBufB] = kind == kGemmTableKindB || kind == kGemmTableKindAB ||
                         kind == kGemmTableKindAll || kind == kGemmTableKindAllSse;
  return kind == kGemmTableKindNone || used[kGemmTableBufA] || used[kGemmTableBufB] ||
         used[kGemmTableBufThird];
}

// Bytes one request takes: each buffer's size plus room to align it.
inline size_t gemm_table_request_bytes(const bool used[kGemmTableBufCount],
                                       const gemm_table_bufs& bufs) {
  size_t total = 0;
  // Loop over the three buffers.
  for (int i = 0; i < kGemmTableBufCount; ++i)
    if (used[i])
      total += ((size_t)2 << bufs.buf[i].align_shift) + (size_t)bufs.buf[i].offset +
               (size_t)bufs.buf[i].size;
  return total;
}

// dgemm_get_bufs: one block from the pack allocator, carved in the order A,
// third, B, each buffer aligned to its own power of two.
inline int gemm_table_get_bufs(int kind, gemm_table_bufs* bufs) {
  bool used[kGemmTableBufCount];
  if (!gemm_table_kind_buffers(kind, used)) return 1;
  bufs->raw = nullptr;
  // Loop over the three buffers.
  for (int i = 0; i < kGemmTableBufCount; ++i) bufs->buf[i].pointer = nullptr;
  const size_t total = gemm_table_request_bytes(used, *bufs);
  if (total == 0) return 0;
  void* raw = tarn_blas_gemm_buffer_allocate(total, kGemmBufferAlignment);
  if (tarn_serv_check_ptr_and_warn(raw, "DGEMM")) return 2;
  bufs->raw = raw;
  uintptr_t p = reinterpret_cast<uintptr_t>(raw);
  // Loop over the three buffers, carving each in turn.
  for (int i = 0; i < kGemmTableBufCount; ++i) {
    if (!used[i]) continue;
    const uintptr_t align = (uintptr_t)1 << bufs->buf[i].align_shift;
    p = ((p + align - 1) & ~(align - 1)) + (uintptr_t)bufs->buf[i].offset;
    bufs->buf[i].pointer = reinterpret_cast<double*>(p);
    p += (uintptr_t)bufs->buf[i].size;
  }
  return 0;
}

// The sizes of the A and B buffers for the descriptor's blocks: whole tile
// panels of depth kc.
template <class R>
void gemm_table_buffer_sizes(const gemm_table_desc& d, gemm_table_bufs* bufs) {
  const size_t bytes = sizeof(double) * (size_t)d.kc;
  bufs->raw = nullptr;
  bufs->buf[kGemmTableBufA] = {(int32_t)(gemm_round_up(d.mc, R::mr) * bytes),
                               kGemmTablePageShift, (int32_t)kGemmAOffset, nullptr};
  bufs->buf[kGemmTableBufThird] = {0, kGemmTableAlignShift, 0, nullptr};
  bufs->buf[kGemmTableBufB] = {(int32_t)(gemm_round_up(d.nc, R::nr) * bytes),
                               kGemmTablePageShift, (int32_t)kGemmBOffset, nullptr};
}

// copyan / copyat: rows of op(A) by depth `cols`, as the row panels of a
// packed block.
template <class R>
void gemm_table_copy_a(bool trans, int rows, int cols, const double* src, int ld, double mult,
                       double* dst) {
  if (rows <= 0 || cols <= 0) return;
  gemm_pack_a_block<R>(trans, rows, cols, src, ld, mult, dst);
}

// copybn / copybt: depth `rows` by columns of op(B), as the column panels of
// a packed block.
template <class R>
void gemm_table_copy_b(bool trans, int rows, int cols, const double* src, int ld, double mult,
                       double* dst) {
  if (rows <= 0 || cols <= 0) return;
  gemm_pack_b_block<R>(trans, rows, cols, src, ld, 0, 0, dst);
  if (mult == 1.0) return;
  const ptrdiff_t n = (ptrdiff_t)cols * rows;
  // Loop over the packed values: B is packed as it stands, so a multiplier
  // other than 1 is applied afterwards.
  for (ptrdiff_t i = 0; i < n; ++i) dst[i] *= mult;
}

// dgemm_ker0: the packed A block (row panels) against the packed B block.
template <class R>
void gemm_table_ker0(int rows, int cols, int kc, const double* abuf, const double* bbuf,
                     double beta, double* c, int ldc) {
  if (rows <= 0 || cols <= 0) return;
  if (beta != 0.0) gemm_scale_c(rows, cols, beta, c, ldc);
  gemm_block_times_block<R>(rows, cols, kc, abuf, bbuf, c, ldc, beta == 0.0);
}

// dgemm_get_kernel_version: the blocked variant (2) unless the B block
// (min(nc, K) by 8 bytes by min(mc, N), in 32-bit arithmetic as the table
// generation computes it) fits under the branch's limit.
inline int gemm_table_version(int limit, int n, int k, const gemm_table_desc& d) {
  if (limit == 0) return kGemmTableVersionBlocked;
  const uint32_t bytes = (uint32_t)gemm_min(d.nc, k) * (uint32_t)kGemmTableElementBytes *
                         (uint32_t)gemm_min(d.mc, n);
  const int32_t v = (int32_t)bytes;
  return v < 0 || v > limit ? kGemmTableVersionBlocked : kGemmTableVersionWide;
}

// xdgemm_par over a filled descriptor: the row's minima choose between the
// blocked product and the thin path; the row's buffer kind is asked of its
// get_bufs, and the thin path stands in when that fails.
template <class R>
void gemm_table_par(bool ta, bool tb, int m, int n, int k, double alpha, const double* a,
                    int lda, const double* b, int ldb, double beta, double* c, int ldc,
                    const gemm_table_desc& d) {
  if (m <= 0 || n <= 0) return;
  if (alpha == 0.0 || k <= 0) {
    gemm_scale_c(m, n, beta, c, ldc);
    return;
  }
  const gemm_kernel_row& r = *d.row;
  if (m < r.min_m || n < r.min_n || k < r.min_k) {
    gemm_thin(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  gemm_table_bufs bufs;
  gemm_table_buffer_sizes<R>(d, &bufs);
  int kind = r.buffer_kind;
  if (r.get_bufs(&kind, &bufs) != 0 || bufs.buf[kGemmTableBufA].pointer == nullptr ||
      bufs.buf[kGemmTableBufB].pointer == nullptr) {
    if (bufs.raw != nullptr) tarn_blas_gemm_buffer_deallocate(bufs.raw);
    gemm_thin(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  const bool beta0 = beta == 0.0;
  if (!beta0) gemm_scale_c(m, n, beta, c, ldc);
  const GemmBlocks s = {d.mc, d.nc, d.kc};
  gemm_packed_loops<R>(kGemmLoopOrderRowsFirst, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta0, c,
                       ldc, s, bufs.buf[kGemmTableBufA].pointer, bufs.buf[kGemmTableBufB].pointer);
  tarn_blas_gemm_buffer_deallocate(bufs.raw);
}

}  // namespace

// The routines of one table row over the table record T: block sizes,
// copies and tile driver, named tarn_blas_<br>_dgemm_<routine><sfx>.
#define TARN_GEMM_TABLE_ROUTINES(br, sfx, T, blocking)                                          \
  extern "C" void tarn_blas_##br##_dgemm_get_blks_size##sfx(const int* /*m*/, const int* n,     \
                                                            const int* k, void* desc) {         \
    gemm_table_blks(blocking, *n, *k, gemm_table_of(desc));                                     \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_copyan##sfx(const int* rows, const int* cols,          \
                                                     const double* src, const int* ld,          \
                                                     const double* mult, double* dst) {         \
    gemm_table_copy_a<typename T::R>(false, *rows, *cols, src, *ld, *mult, dst);                            \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_copyat##sfx(const int* rows, const int* cols,          \
                                                     const double* src, const int* ld,          \
                                                     const double* mult, double* dst) {         \
    gemm_table_copy_a<typename T::R>(true, *rows, *cols, src, *ld, *mult, dst);                             \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_copybn##sfx(const int* rows, const int* cols,          \
                                                     const double* src, const int* ld,          \
                                                     const double* mult, double* dst) {         \
    gemm_table_copy_b<typename T::R>(false, *rows, *cols, src, *ld, *mult, dst);                            \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_copybt##sfx(const int* rows, const int* cols,          \
                                                     const double* src, const int* ld,          \
                                                     const double* mult, double* dst) {         \
    gemm_table_copy_b<typename T::R>(true, *rows, *cols, src, *ld, *mult, dst);                             \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_ker0##sfx(const int* rows, const int* cols,            \
                                                   const int* kc, const double* abuf,           \
                                                   const double* bbuf, const double* beta,      \
                                                   double* c, const int* ldc) {                 \
    gemm_table_ker0<typename T::R>(*rows, *cols, *kc, abuf, bbuf, *beta, c, *ldc);                          \
    T::leave();                                                                                 \
  }

// One row of a branch's kernel table over the routines that
// TARN_GEMM_TABLE_ROUTINES(br, sfx, ...) defines: words 0-7 as given, each
// transposed copy in both of its slots.
#define TARN_GEMM_TABLE_ROW(br, sfx, min_m, min_n, min_k, generation, copy_m, copy_n, copy_k, \
                            kind)                                                               \
  {                                                                                             \
    min_m, min_n, min_k, generation, copy_m, copy_n, copy_k, kind,                              \
        tarn_blas_##br##_dgemm_get_blks_size##sfx, nullptr, tarn_blas_##br##_dgemm_get_bufs,    \
        tarn_blas_##br##_dgemm_copyan##sfx, tarn_blas_##br##_dgemm_copyat##sfx,                 \
        tarn_blas_##br##_dgemm_copyat##sfx, tarn_blas_##br##_dgemm_copybn##sfx,                 \
        tarn_blas_##br##_dgemm_copybt##sfx, tarn_blas_##br##_dgemm_copybt##sfx,                 \
        tarn_blas_##br##_dgemm_ker0##sfx, nullptr, nullptr                                      \
  }

// The services of a kernel-table branch over its table record T; the
// branch's file defines the table itself and tarn_<br>_d_opt_gemm_ker.
#define TARN_GEMM_TABLE_SERVICES(br, T)                                                         \
  extern "C" int tarn_blas_##br##_dgemm_num_kernels(void) { return T::rows; }                   \
  extern "C" const gemm_kernel_row* tarn_blas_##br##_dgemm_get_kernel(const int* index) {      \
    if (index == nullptr || *index < 0 || *index >= T::rows) return nullptr;                    \
    return &tarn_##br##_d_all_gemm_ker[*index];                                                 \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_zero_desc(void* desc) {                                \
    *gemm_table_of(desc) = gemm_table_desc{nullptr, 0, 0, 0, 0};                                \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_get_optimal_kernel(const int* /*m*/, const int* /*n*/, \
                                                            const int* /*k*/, void* desc) {     \
    const int row = T::optimal_row();                                                           \
    __atomic_store_n(&tarn_##br##_d_opt_gemm_ker, row, __ATOMIC_RELAXED);                      \
    gemm_table_of(desc)->kernel = row;                                                          \
    gemm_table_of(desc)->row = &tarn_##br##_d_all_gemm_ker[row];                                \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_dgemm_set_blks_size(const int* mc, const int* nc,            \
                                                       const int* kc, void* desc) {             \
    gemm_table_desc* d = gemm_table_of(desc);                                                   \
    if (mc != nullptr) d->mc = *mc;                                                             \
    if (nc != nullptr) d->nc = *nc;                                                             \
    if (kc != nullptr) d->kc = *kc;                                                             \
  }                                                                                             \
  extern "C" int tarn_blas_##br##_dgemm_get_kernel_version(const int* /*m*/, const int* n,      \
                                                           const int* k, void* desc) {          \
    return gemm_table_version(T::version_limit, *n, *k, *gemm_table_of(desc));                  \
  }                                                                                             \
  extern "C" int tarn_blas_##br##_dgemm_get_bufs(const int* kind, gemm_table_bufs* bufs) {      \
    return gemm_table_get_bufs(*kind, bufs);                                                    \
  }                                                                                             \
  /* A descriptor without a row gets the processor's; sizes not chosen yet   */                 \
  /* (or nonsensical) get the row's.                                          */                \
  static gemm_table_desc br##_gemm_table_complete(const int* m, const int* n, const int* k,     \
                                                  void* desc) {                                 \
    gemm_table_desc d = gemm_table_desc{nullptr, 0, 0, 0, 0};                                   \
    if (desc != nullptr) d = *gemm_table_of(desc);                                              \
    if (d.row == nullptr) tarn_blas_##br##_dgemm_get_optimal_kernel(m, n, k, &d);               \
    if (d.mc < 0) d.mc = 0;                                                                     \
    if (d.nc < 0) d.nc = 0;                                                                     \
    if (d.kc < 0) d.kc = 0;                                                                     \
    d.row->get_blks_size(m, n, k, &d);                                                          \
    return d;                                                                                   \
  }                                                                                             \
  extern "C" int tarn_blas_##br##_dgemm_get_bufs_size(const int* m, const int* n, const int* k, \
                                                      void* desc) {                             \
    const gemm_table_desc d = br##_gemm_table_complete(m, n, k, desc);                          \
    gemm_table_bufs bufs;                                                                       \
    gemm_table_buffer_sizes<T::R>(d, &bufs);                                                    \
    bool used[kGemmTableBufCount];                                                              \
    if (!gemm_table_kind_buffers(d.row->buffer_kind, used)) return 0;                           \
    return (int)gemm_table_request_bytes(used, bufs);                                           \
  }                                                                                             \
  extern "C" void tarn_blas_##br##_xdgemm_par(                                                  \
      const char* transa, const char* transb, const int* m, const int* n, const int* k,         \
      const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,    \
      const double* beta, double* c, const int* ldc, void* desc) {                              \
    if (*m <= 0 || *n <= 0) return;                                                             \
    const gemm_table_desc d = br##_gemm_table_complete(m, n, k, desc);                          \
    gemm_table_par<T::R>(gemm_is_trans(transa), gemm_is_trans(transb), *m, *n, *k, *alpha, a,   \
                         *lda, b, *ldb, *beta, c, *ldc, d);                                     \
    T::leave();                                                                                 \
  }

// xdgemm of a kernel-table branch over its tile record R: the descriptor is
// zeroed and given the processor's row; beta other than 0 and 1 is applied
// by dgemm_mscale first; alpha 0 (or K 0) ends there; shapes that reach the
// row's minima run xdgemm_par, the others the thin path. The block sizes
// are the tuned ones of R, set on the descriptor before dgemm_get_blks_size
// fills what is left; beta 0 reaches xdgemm_par unchanged so that its first
// depth block stores C without reading it (no clearing pass). `leave` is
// what the branch does before returning (avx: vzeroupper).
#define TARN_GEMM_TABLE_XDGEMM(br, R, leave)                                                   \
  static void br##_xdgemm_table(                                                               \
      const char* transa, const char* transb, const int* m, const int* n, const int* k,        \
      const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,   \
      const double* beta, double* c, const int* ldc) {                                         \
    if (*m <= 0 || *n <= 0) return;                                                            \
    gemm_table_desc d;                                                                         \
    tarn_blas_##br##_dgemm_zero_desc(&d);                                                      \
    tarn_blas_##br##_dgemm_get_optimal_kernel(m, n, k, &d);                                    \
    const double one = 1.0;                                                                    \
    const double* b_eff = beta;                                                                \
    if (*beta != 1.0 && *beta != 0.0) {                                                        \
      tarn_blas_##br##_dgemm_mscale(m, n, beta, c, ldc);                                       \
      b_eff = &one;                                                                            \
    }                                                                                          \
    if (*alpha == 0.0 || *k <= 0) {                                                            \
      if (*b_eff == 0.0) tarn_blas_##br##_dgemm_mscale(m, n, b_eff, c, ldc);                   \
      return;                                                                                  \
    }                                                                                          \
    if (*m < d.row->min_m || *n < d.row->min_n || *k < d.row->min_k) {                         \
      gemm_thin(gemm_is_trans(transa), gemm_is_trans(transb), *m, *n, *k, *alpha, a, *lda, b,  \
                *ldb, *b_eff, c, *ldc);                                                        \
      return;                                                                                  \
    }                                                                                          \
    const GemmBlocks s = gemm_block_sizes<R>(*m, *n, *k);                                      \
    tarn_blas_##br##_dgemm_set_blks_size(&s.mc, &s.nc, &s.kc, &d);                            \
    d.row->get_blks_size(m, n, k, &d);                                                         \
    tarn_blas_##br##_xdgemm_par(transa, transb, m, n, k, alpha, a, lda, b, ldb, b_eff, c, ldc, \
                                &d);                                                           \
  }                                                                                            \
  extern "C" void tarn_blas_##br##_xdgemm(                                                     \
      const char* transa, const char* transb, const int* m, const int* n, const int* k,        \
      const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,   \
      const double* beta, double* c, const int* ldc) {                                         \
    br##_xdgemm_table(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);           \
    leave;                                                                                     \
  }
