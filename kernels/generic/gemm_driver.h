// The blocked one-thread DGEMM shared by every branch. A branch supplies a
// record (a struct of constants and two micro-kernels):
//
//   mr, nr              register tile: C rows and columns per kernel call
//   kc_min, kc_low, kc_high, kc_large
//                       depth block: K (at least kc_min) up to kc_low, half
//                       of K (rounded up) below kc_high, else kc_large; or
//                       instead kc_l1_max, for limits that follow the
//                       first-level cache (gemm_depth_for_l1)
//   mc_max, nc_max      row block of A and column block of B
//   nc_max_small_k, small_k   narrower B block when K is below small_k
//   pst_m_limit, pst_n_limit  below these the thin path is taken: M for
//                       'T','N' and N for the other pairs; a record that
//                       also has pst_k_limit (the kernel-table branches)
//                       takes it when M, N or K is below its limit
//   kernel(kc, a, b, c, ldc, pf)    C(mr x nr) += Apanel * Bpanel
//   kernel_b0(kc, a, b, c, ldc, pf) C(mr x nr)  = Apanel * Bpanel, C not read
//                       (pf: what to prefetch meanwhile, see GemmPrefetch)
//
// and everything else (beta pre-scaling, alpha through the packed A, the
// loops, the pack buffers, the narrower panels at the edges with their
// tiles, the thin path and the fallback when memory cannot be had) is here,
// written once.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_edge_tile.h"
#include "kernels/generic/gemm_pack.h"
#include "service/cpu.h"
#include "service/messages.h"

namespace {

// Loop orders of the packed driver: 4 row block outermost (the default),
// 32 depth block outermost, 128 depth block outermost with the whole A block
// packed before the column loop.
constexpr int kGemmLoopOrderRowsFirst = 4;
constexpr int kGemmLoopOrderDepthFirst = 32;
constexpr int kGemmLoopOrderDepthFirstWholeA = 128;

// Pack buffer layout: B and A start at these offsets past a page boundary so
// that the two buffers' first lines do not fall on the same cache sets.
constexpr size_t kGemmPage = 4096;
constexpr size_t kGemmBOffset = 768;
constexpr size_t kGemmAOffset = 1664;
constexpr size_t kGemmBothBuffersSlack = 18816;
constexpr int kGemmBufferAlignment = 128;

// Cache line, the unit of every prefetch plan below.
constexpr int kGemmLine = 64;
// Lines that `bytes` bytes from a line boundary take.
constexpr int gemm_lines(int bytes) { return (bytes + kGemmLine - 1) / kGemmLine; }

inline int gemm_min(int x, int y) { return x < y ? x : y; }
inline int gemm_max(int x, int y) { return x > y ? x : y; }
inline int gemm_round_up(int x, int unit) { return (x + unit - 1) / unit * unit; }
inline uintptr_t gemm_up4k(uintptr_t x) {
  return (x + kGemmPage - 1) & ~(uintptr_t)(kGemmPage - 1);
}

// 'T', 't', 'C' and 'c' transpose (the data are real); anything else not.
inline bool gemm_is_trans(const char* t) {
  if (t == nullptr) return false;
  const char folded = (char)(*t & ~0x20);
  return folded == 'T' || folded == 'C';
}

// C := beta * C over m by n; beta 0 writes zeros without reading C, so NaN
// in C does not survive it.
inline void gemm_scale_c(int m, int n, double beta, double* c, int ldc) {
  if (beta == 1.0) return;
  for (int j = 0; j < n; ++j) {
    double* col = c + (ptrdiff_t)j * ldc;
    if (beta == 0.0) {
      for (int i = 0; i < m; ++i) col[i] = 0.0;
    } else {
      for (int i = 0; i < m; ++i) col[i] *= beta;
    }
  }
}

// The thin path: plain loops on the operands, no buffers. Taken when the
// product is too narrow to fill a register tile, and when pack buffers
// cannot be had. Beta is applied per column first (0 never reads C).
inline void gemm_thin(bool ta, bool tb, int m, int n, int k, double alpha, const double* a,
                      int lda, const double* b, int ldb, double beta, double* c, int ldc) {
  if (m <= 0 || n <= 0) return;
  // Loop over the columns of C, one at a time.
  for (int j = 0; j < n; ++j) {
    double* cj = c + (ptrdiff_t)j * ldc;
    gemm_scale_c(m, 1, beta, cj, ldc);
    if (alpha == 0.0) continue;
    const ptrdiff_t bstep = tb ? ldb : 1;
    const double* bj = tb ? b + j : b + (ptrdiff_t)j * ldb;
    if (!ta) {
      // Column j of C gathers the columns of A, weighted by column j of op(B).
      for (int p = 0; p < k; ++p) {
        const double t = alpha * bj[p * bstep];
        const double* ap = a + (ptrdiff_t)p * lda;
        for (int i = 0; i < m; ++i) cj[i] += t * ap[i];
      }
    } else {
      // Each entry is a dot product of a column of A with column j of op(B).
      for (int i = 0; i < m; ++i) {
        const double* ai = a + (ptrdiff_t)i * lda;
        double s = 0.0;
        for (int p = 0; p < k; ++p) s += ai[p] * bj[p * bstep];
        cj[i] += alpha * s;
      }
    }
  }
}

struct GemmBlocks {
  int mc, nc, kc;
};

struct GemmDepth {
  int kc_min, kc_low, kc_high, kc_large;
};

// Depth limits for a tile whose A panel of MR rows must stay in the
// first-level data cache while B streams past it: the deepest block, in
// steps of 16 and at most KcMax, whose panel takes no more than 7/8 of that
// cache (the rest holds the B column and C in flight). The size is the
// service layer's, fixed at 32 KiB in a reproducible run, so that such runs
// block alike everywhere; 32 KiB also where the processor does not describe
// its caches the way the service layer reads them. Found once per process.
constexpr std::int64_t kGemmDefaultL1 = 32768;
constexpr int kGemmDepthStep = 16, kGemmDepthFloor = 64, kGemmDepthMin = 128;

template <int MR, int KcMax>
GemmDepth gemm_depth_for_l1() {
  static const GemmDepth d = [] {
    std::int64_t l1 = tarn_serv_get_cache_size(1);
    if (l1 <= 0) l1 = kGemmDefaultL1;
    const std::int64_t fit = l1 * 7 / 8 / (MR * (std::int64_t)sizeof(double));
    int kc = (int)(fit < KcMax ? fit : KcMax) / kGemmDepthStep * kGemmDepthStep;
    kc = gemm_max(kc, kGemmDepthFloor);
    return GemmDepth{kGemmDepthMin, kc, 2 * kc, kc};
  }();
  return d;
}

// The depth limits of a record: its constants, or those of its first-level
// cache for a record with kc_l1_max.
template <class R>
GemmDepth gemm_depth() {
  if constexpr (requires { R::kc_l1_max; })
    return gemm_depth_for_l1<R::mr, R::kc_l1_max>();
  else
    return {R::kc_min, R::kc_low, R::kc_high, R::kc_large};
}

template <class R>
GemmBlocks gemm_block_sizes(int m, int n, int k) {
  const GemmDepth depth = gemm_depth<R>();
  GemmBlocks s;
  if (k <= depth.kc_low)
    s.kc = gemm_max(k, depth.kc_min);
  else if (k < depth.kc_high)
    s.kc = (k + 1) / 2;
  else
    s.kc = depth.kc_large;
  s.mc = gemm_round_up(gemm_min(gemm_max(m, R::mr), R::mc_max), R::mr);
  const int nc_cap = k < R::small_k ? R::nc_max_small_k : R::nc_max;
  s.nc = gemm_round_up(gemm_min(gemm_max(n, R::nr), nc_cap), R::nr);
  return s;
}

// What a tile fetches for the tiles after it while its products run, one
// line per eight k steps, so that the fetches hide among the multiply-adds
// (issued all at once before the tile, they stalled on the line-fill
// buffers: 9 % of the avx512 time went to that burst). First the lines of
// the next tile's C (c_lines per column), then lines of the next A panel,
// into the second-level cache only: the current panel fills much of the
// first. Measured on m=n=k=4000, avx512: without any of these the C and A
// traffic cost about a quarter of the kernel's rate.
struct GemmPrefetch {
  const double* c;  // next tile of C, or null
  int c_cols;       // its columns
  int ldc;
  const double* a;  // lines of the next A panel, or null
  int a_lines;
};

// Prefetch into all cache levels, and into the second level only. Written
// as instructions: GCC 12 emitted nothing for __builtin_prefetch in
// gemm_prefetch_item below.
inline void gemm_prefetch(const void* p) {
  __asm__ volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(p)));
}
inline void gemm_prefetch_l2(const void* p) {
  __asm__ volatile("prefetcht1 %0" : : "m"(*static_cast<const char*>(p)));
}

// Prefetch number q of a tile whose C columns take CL lines each.
template <int CL>
inline void gemm_prefetch_item(const GemmPrefetch& pf, int q) {
  constexpr int kDoublesPerLine = kGemmLine / (int)sizeof(double);
  if (q < pf.c_cols * CL) {
    const int col = q / CL, line = q - col * CL;
    gemm_prefetch(pf.c + (ptrdiff_t)col * pf.ldc + line * kDoublesPerLine);
    return;
  }
  q -= pf.c_cols * CL;
  if (q < pf.a_lines) gemm_prefetch_l2(pf.a + (ptrdiff_t)q * kDoublesPerLine);
}

// Those of the prefetches that a tile of kc steps had no room for.
template <int CL>
inline void gemm_prefetch_rest(const GemmPrefetch& pf, int from) {
  for (int q = from; q < pf.c_cols * CL + pf.a_lines; ++q) gemm_prefetch_item<CL>(pf, q);
}

// Lines of C one column of a tile of mr rows can touch.
constexpr int gemm_c_lines(int mr) { return gemm_lines(mr * (int)sizeof(double)) + 1; }

// Panels of a packed block. A block of rows (columns) is packed as whole
// panels of the tile's mr rows (nr columns) and, past the last of them,
// panels of the binary digits of what is left, largest first: 13 rows of
// an 8-row tile are a panel of 8, then 4, then 1. So no panel is padded,
// and the panel at row i of a block of depth kc starts at i*kc whatever the
// heights before it. gemm_panel_size is the size of the panel that begins
// with `left` rows (columns) to go. (A loop and not std::bit_floor: with
// that, the avx branch's panel walk as GCC 12 compiled it at -O3 sent a
// 4-column edge panel to the 1-column tile.)
template <int Tile>
constexpr int gemm_panel_size(int left) {
  if (left >= Tile) return Tile;
  int size = 1;
  while (2 * size <= left) size *= 2;
  return size;
}

// The size after `size` in that order (0: none): after the whole panel the
// largest power of two below it, then halves.
template <int Tile>
constexpr int gemm_next_panel_size(int size) {
  return size == Tile ? (int)std::bit_floor((unsigned)(Tile - 1)) : size / 2;
}

// The tile of an h-row A panel against a w-column B panel: the record's
// kernels for the whole tile, an edge tile for the others.
template <class R, int H = R::mr, int W = R::nr>
void gemm_tile(int h, int w, bool b0, int kc, const double* a, const double* b, double* c,
               int ldc, const GemmPrefetch& pf) {
  if constexpr (H > 0 && W > 0) {
    if (h != H) {
      gemm_tile<R, gemm_next_panel_size<R::mr>(H), W>(h, w, b0, kc, a, b, c, ldc, pf);
    } else if (w != W) {
      gemm_tile<R, H, gemm_next_panel_size<R::nr>(W)>(h, w, b0, kc, a, b, c, ldc, pf);
    } else if constexpr (H == R::mr && W == R::nr) {
      if (b0)
        R::kernel_b0(kc, a, b, c, ldc, pf);
      else
        R::kernel(kc, a, b, c, ldc, pf);
    } else if (b0) {
      gemm_edge_tile<H, W, true>(kc, a, b, c, ldc);
    } else {
      gemm_edge_tile<H, W, false>(kc, a, b, c, ldc);
    }
  }
}

// One packed row panel of A (rows high: mr, or an edge panel) against a
// packed block of B (ncols columns): the register tile walks the column
// panels, the A panel stays in the first-level cache. Each tile prefetches
// the C of the tile two places on (in the next row panel, next_rows, past
// the last column: one place was too close for depth blocks of 96 to 192,
// where m=n=4000 ran at 50 to 56 % on avx512), and its share of the next A
// panel (next_a, null when there is none yet: on the later column blocks
// the A panels come back from the outer caches); the edge tiles skip their
// share.
//
// A record with a panel routine (panel(kc, a, b, c, ldc, b0, ntiles,
// ntiles_all, next_a, next_src)) runs the whole tiles of a full-height
// panel through it, the walk and its prefetches included; the loop below
// then does only the narrower panels of the last columns. Such a routine
// can also fetch the source of a next panel that is still to be packed
// (next_src, from the packed driver's first column block): the copy that
// follows then reads it from the second-level cache; a run of memory to
// fetch line by line (where that copy will write); and columns of the next
// B block's source.
struct GemmNextSource {
  bool ta;          // op(A) is A transposed
  const double* a;  // first element of the next panel's rows of op(A), or null
  int lda;
  const void* run;  // start of the run, or null
  int run_lines;
  const double* b_cols;  // first of b_count source columns of op(B), ldb apart, or null
  int b_count, ldb, b_lines;
};

template <class R>
concept GemmHasPanelRoutine = requires(const double* p, double* q, const GemmNextSource* s) {
  R::panel(0, p, p, q, 0, false, 0, 0, p, s);
};

template <class R>
void gemm_panel_times_block(int rows, int ncols, int kc, const double* apanel,
                            const double* bblock, double* c, int ldc, bool b0,
                            const double* next_a, bool next_rows = false,
                            const GemmNextSource* next_src = nullptr) {
  constexpr int kCAhead = 2;
  const int ntiles = (ncols + R::nr - 1) / R::nr;
  const int a_lines = next_a ? gemm_lines(R::mr * kc * (int)sizeof(double)) : 0;
  const int a_lines_per_tile = (a_lines + ntiles - 1) / ntiles;
  int first = 0;
  if constexpr (GemmHasPanelRoutine<R>) {
    if (rows == R::mr && ncols >= R::nr) {
      first = ncols / R::nr;
      R::panel(kc, apanel, bblock, c, ldc, b0, first, ntiles, next_a, next_src);
      if (first == ntiles) return;
    }
  } else {
    (void)next_src;
  }
  GemmPrefetch pf;
  pf.ldc = ldc;
  pf.a = next_a;
  // Loop over the column panels of the B block: nr wide, then the edge.
  for (int jr = first * R::nr, t = first, cols; jr < ncols; jr += cols, ++t) {
    cols = gemm_panel_size<R::nr>(ncols - jr);
    const double* bpanel = bblock + (ptrdiff_t)jr * kc;
    double* ct = c + (ptrdiff_t)jr * ldc;
    const int jt = jr + kCAhead * R::nr;
    if (jt < ncols) {
      pf.c = c + (ptrdiff_t)jt * ldc;
      pf.c_cols = gemm_min(R::nr, ncols - jt);
    } else if (next_rows && jt - ntiles * R::nr < ncols) {
      const int jn = jt - ntiles * R::nr;
      pf.c = c + rows + (ptrdiff_t)jn * ldc;
      pf.c_cols = gemm_min(R::nr, ncols - jn);
    } else {
      pf.c = nullptr;
      pf.c_cols = 0;
    }
    const int a_first = t * a_lines_per_tile;
    pf.a_lines = gemm_max(0, gemm_min(a_lines_per_tile, a_lines - a_first));
    if (pf.a_lines > 0) pf.a = next_a + (ptrdiff_t)a_first * (kGemmLine / (int)sizeof(double));
    gemm_tile<R>(rows, cols, b0, kc, apanel, bpanel, ct, ldc, pf);
  }
}

// Packs the column block [j0, j0+ncols) x depth [p0, p0+kc) of op(B), with
// the record's own panel copy (pack_b_panel, same format) if it has one.
template <class R>
void gemm_pack_b_block(bool tb, int kc, int ncols, const double* b, int ldb, int p0, int j0,
                       double* bbuf) {
  // Loop over the column panels of the block: nr wide, then the edge.
  for (int jr = 0, cols; jr < ncols; jr += cols) {
    cols = gemm_panel_size<R::nr>(ncols - jr);
    const int j = j0 + jr;
    const double* src = tb ? b + j + (ptrdiff_t)p0 * ldb : b + p0 + (ptrdiff_t)j * ldb;
    if constexpr (requires { R::pack_b_panel(tb, kc, cols, src, ldb, bbuf); })
      R::pack_b_panel(tb, kc, cols, src, ldb, bbuf + (ptrdiff_t)jr * kc);
    else
      gemm_pack_b_panel<R::nr>(tb, kc, cols, src, ldb, bbuf + (ptrdiff_t)jr * kc);
  }
}

template <class R>
const double* gemm_a_source(bool ta, const double* a, int lda, int i, int p) {
  return ta ? a + p + (ptrdiff_t)i * lda : a + i + (ptrdiff_t)p * lda;
}

// The A copy of a record: its own (pack_a_panel, same format) if it has one.
template <class R>
void gemm_pack_a_panel_of(bool ta, int rows, int kc, const double* a, int lda, double alpha,
                          double* dst) {
  if constexpr (requires { R::pack_a_panel(ta, rows, kc, a, lda, alpha, dst); })
    R::pack_a_panel(ta, rows, kc, a, lda, alpha, dst);
  else
    gemm_pack_a_panel<R::mr>(ta, rows, kc, a, lda, alpha, dst);
}

// Rows [0, rows) of op(A) (a at op(A)(0, 0)) over depth kc, times alpha, as
// the row panels of a packed block at dst.
template <class R>
void gemm_pack_a_block(bool ta, int rows, int kc, const double* a, int lda, double alpha,
                       double* dst) {
  // Loop over the row panels.
  for (int ir = 0, h; ir < rows; ir += h) {
    h = gemm_panel_size<R::mr>(rows - ir);
    gemm_pack_a_panel_of<R>(ta, h, kc, gemm_a_source<R>(ta, a, lda, ir, 0), lda, alpha,
                            dst + (ptrdiff_t)ir * kc);
  }
}

// A packed block of A (rows by depth kc) against a packed block of B: C
// (rows x ncols) += A*B, or = with b0 (C not read).
template <class R>
void gemm_block_times_block(int rows, int ncols, int kc, const double* abuf, const double* bbuf,
                            double* c, int ldc, bool b0) {
  // Loop over the row panels.
  for (int ir = 0, h; ir < rows; ir += h) {
    h = gemm_panel_size<R::mr>(rows - ir);
    const double* ap = abuf + (ptrdiff_t)ir * kc;
    const bool more = ir + h < rows;
    gemm_panel_times_block<R>(h, ncols, kc, ap, bbuf, c + ir, ldc, b0,
                              more ? ap + (ptrdiff_t)h * kc : nullptr, more);
  }
}

// What a panel's kernel may fetch of the next panel's source while that one
// is still to be packed: its rows of op(A), when there is a next panel.
template <class R>
GemmNextSource gemm_next_source(bool more, bool ta, const double* a, int lda, int next_row,
                                int p) {
  return GemmNextSource{ta, more ? gemm_a_source<R>(ta, a, lda, next_row, p) : nullptr, lda,
                        nullptr, 0, nullptr, 0, 0, 0};
}

// Where the panel at row ir of a block fetches its share of the next B
// block's source, op(B) not transposed: the last panels of the block take
// kGemmNextBColumns columns of it each, so that it arrives in the caches
// shortly before it is packed. nb_next columns of depth kc_next from
// b_next; none for op(B) transposed or when there is no next block.
constexpr int kGemmNextBColumns = 4;
inline void gemm_next_b_cols(GemmNextSource& src, bool tb, int ir, int mr, int mcur,
                             const double* b_next, int ldb, int nb_next, int kc_next) {
  if (tb || b_next == nullptr) return;
  const int panels = (mcur + mr - 1) / mr, q = ir / mr;
  const int first = panels - (nb_next + kGemmNextBColumns - 1) / kGemmNextBColumns;
  if (q < first) return;
  const int col = (q - first) * kGemmNextBColumns;
  src.b_cols = b_next + (ptrdiff_t)col * ldb;
  src.b_count = gemm_min(kGemmNextBColumns, nb_next - col);
  src.ldb = ldb;
  src.b_lines = gemm_lines(kc_next * (int)sizeof(double)) + 1;
}

// The packed product proper: beta is 0 or 1 here (other values were applied
// to C already), alpha is not 0, and m, n, k are positive. The A buffer of
// a depth block of kcur holds the panel at row ir of the row block at
// ir * kcur (gemm_panel_size).
template <class R>
void gemm_packed_loops(int loop_order, bool ta, bool tb, int m, int n, int k, double alpha,
                       const double* a, int lda, const double* b, int ldb, bool beta0,
                       double* c, int ldc, const GemmBlocks& s, double* abuf, double* bbuf) {
  if (loop_order == kGemmLoopOrderRowsFirst) {
    // Loop over the rows of C, mc at a time.
    for (int ic = 0; ic < m; ic += s.mc) {
      const int mcur = gemm_min(s.mc, m - ic);
      // Loop over the depth, kc at a time; only the first block sees beta 0.
      for (int pc = 0; pc < k; pc += s.kc) {
        const int kcur = gemm_min(s.kc, k - pc);
        const bool b0 = beta0 && pc == 0;
        // Loop over the columns of C, nc at a time; pack B here.
        for (int jc = 0; jc < n; jc += s.nc) {
          const int ncur = gemm_min(s.nc, n - jc);
          gemm_pack_b_block<R>(tb, kcur, ncur, b, ldb, pc, jc, bbuf);
          double* cblock = c + ic + (ptrdiff_t)jc * ldc;
          // The next B block: the next columns, or the next depth block's first.
          const double* b_next = nullptr;
          int nb_next = 0, kc_next = 0;
          if (jc + s.nc < n) {
            b_next = b + pc + (ptrdiff_t)(jc + s.nc) * ldb;
            nb_next = gemm_min(s.nc, n - jc - s.nc);
            kc_next = kcur;
          } else if (pc + s.kc < k) {
            b_next = b + pc + s.kc;
            nb_next = gemm_min(s.nc, n);
            kc_next = gemm_min(s.kc, k - pc - s.kc);
          }
          // Loop over the row panels of the block; the first column block
          // packs each A panel just before its first use.
          for (int ir = 0, rows; ir < mcur; ir += rows) {
            rows = gemm_panel_size<R::mr>(mcur - ir);
            double* ap = abuf + (ptrdiff_t)ir * kcur;
            double* next_ap = ap + (ptrdiff_t)rows * kcur;
            const bool pack_now = jc == 0;
            if (pack_now)
              gemm_pack_a_panel_of<R>(ta, rows, kcur, gemm_a_source<R>(ta, a, lda, ic + ir, pc),
                                      lda, alpha, ap);
            const bool more = ir + rows < mcur;
            const double* next_a = !pack_now && more ? next_ap : nullptr;
            GemmNextSource src =
                gemm_next_source<R>(more && pack_now, ta, a, lda, ic + ir + rows, pc);
            if (pack_now && more) {
              src.run = next_ap;
              src.run_lines =
                  gemm_lines(gemm_panel_size<R::mr>(mcur - ir - rows) * kcur * (int)sizeof(double));
            } else {
              gemm_next_b_cols(src, tb, ir, R::mr, mcur, b_next, ldb, nb_next, kc_next);
            }
            gemm_panel_times_block<R>(rows, ncur, kcur, ap, bbuf, cblock + ir, ldc, b0, next_a,
                                      more, &src);
          }
        }
      }
    }
    return;
  }
  // Loop orders 32 and 128: loop over the depth, kc at a time, outermost.
  for (int pc = 0; pc < k; pc += s.kc) {
    const int kcur = gemm_min(s.kc, k - pc);
    const bool b0 = beta0 && pc == 0;
    // Loop over the rows of C, mc at a time.
    for (int ic = 0; ic < m; ic += s.mc) {
      const int mcur = gemm_min(s.mc, m - ic);
      if (loop_order == kGemmLoopOrderDepthFirstWholeA) {
        // Loop over the row panels of the block: all of A first.
        for (int ir = 0, rows; ir < mcur; ir += rows) {
          rows = gemm_panel_size<R::mr>(mcur - ir);
          gemm_pack_a_panel_of<R>(ta, rows, kcur, gemm_a_source<R>(ta, a, lda, ic + ir, pc), lda,
                                  alpha, abuf + (ptrdiff_t)ir * kcur);
        }
      }
      // Loop over the columns of C, nc at a time; pack B here.
      for (int jc = 0; jc < n; jc += s.nc) {
        const int ncur = gemm_min(s.nc, n - jc);
        gemm_pack_b_block<R>(tb, kcur, ncur, b, ldb, pc, jc, bbuf);
        double* cblock = c + ic + (ptrdiff_t)jc * ldc;
        // Loop over the row panels of the block.
        for (int ir = 0, rows; ir < mcur; ir += rows) {
          rows = gemm_panel_size<R::mr>(mcur - ir);
          double* ap = abuf + (ptrdiff_t)ir * kcur;
          const bool pack_now = jc == 0 && loop_order != kGemmLoopOrderDepthFirstWholeA;
          if (pack_now)
            gemm_pack_a_panel_of<R>(ta, rows, kcur, gemm_a_source<R>(ta, a, lda, ic + ir, pc),
                                    lda, alpha, ap);
          const bool more = ir + rows < mcur;
          const double* next_a = !pack_now && more ? ap + (ptrdiff_t)rows * kcur : nullptr;
          const GemmNextSource src = gemm_next_source<R>(more, ta, a, lda, ic + ir + rows, pc);
          gemm_panel_times_block<R>(rows, ncur, kcur, ap, bbuf, cblock + ir, ldc, b0, next_a,
                                    more, pack_now && more ? &src : nullptr);
        }
      }
    }
  }
}

// Bytes of the one pack block for both buffers, and where A and B lie in it.
inline size_t gemm_buffer_bytes(const GemmBlocks& s) {
  return ((size_t)s.mc + (size_t)s.nc) * (size_t)s.kc * sizeof(double) + kGemmBothBuffersSlack;
}
inline void gemm_carve_buffers(void* raw, const GemmBlocks& s, double** abuf, double** bbuf) {
  const uintptr_t bstart = gemm_up4k((uintptr_t)raw) + kGemmBOffset;
  const uintptr_t bend = bstart + (uintptr_t)s.nc * (uintptr_t)s.kc * sizeof(double);
  *bbuf = reinterpret_cast<double*>(bstart);
  *abuf = reinterpret_cast<double*>(gemm_up4k(bend) + kGemmAOffset);
}

// The packed path of a branch, from the caller's arguments: beta applied
// first (pre-scaling unless 0 or 1), alpha 0 or k 0 end there; the thin path
// for narrow shapes and when the buffers cannot be had.
template <class R>
void gemm_packed_path(int loop_order, bool ta, bool tb, int m, int n, int k, double alpha,
                      const double* a, int lda, const double* b, int ldb, double beta, double* c,
                      int ldc) {
  if (m <= 0 || n <= 0) return;
  if (alpha == 0.0 || k <= 0) {
    gemm_scale_c(m, n, beta, c, ldc);
    return;
  }
  bool thin;
  if constexpr (requires { R::pst_k_limit; })
    thin = m < R::pst_m_limit || n < R::pst_n_limit || k < R::pst_k_limit;
  else
    thin = (ta && !tb) ? m < R::pst_m_limit : n < R::pst_n_limit;
  if (thin) {
    gemm_thin(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  const GemmBlocks s = gemm_block_sizes<R>(m, n, k);
  void* raw = tarn_blas_gemm_buffer_allocate(gemm_buffer_bytes(s), kGemmBufferAlignment);
  if (tarn_serv_check_ptr_and_warn(raw)) {
    gemm_thin(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  const bool beta0 = beta == 0.0;
  if (!beta0) gemm_scale_c(m, n, beta, c, ldc);
  double* abuf;
  double* bbuf;
  gemm_carve_buffers(raw, s, &abuf, &bbuf);
  gemm_packed_loops<R>(loop_order, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta0, c, ldc, s,
                       abuf, bbuf);
  tarn_blas_gemm_buffer_deallocate(raw);
}

}  // namespace
