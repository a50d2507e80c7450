// The large solve of the descriptor branches (avx2, avx512): the four
// xdtrsm_<side>_<uplo>_fullacopybcopy drivers, one template in the left
// frame of trsm_frame.h, over the branch's GEMM record R (register tile
// mr by nr, the packed micro-kernel, the depth block) and its DGEMM.
//
// The order is walked in diagonal blocks of R::kc_large rows, in solve
// order. Each block's triangle is packed once (dtrxm_copy_*: for every
// micro-panel of mr rows, the part left of the diagonal times -1 in the
// product's A format, then the mr by mr triangle with its diagonal prepared
// by dtrsm_scale_*). Then, for each column block of B, the block's rows of
// B are packed in the product's B format and solved tile by tile
// (dtrsm_kernel_<..>_0): the product micro-kernel applies the rows already
// solved in this block, the triangle is solved on the tile, and the result
// goes to B and into the packed B, where the next micro-panels read it.
// What lies beyond the block is one product of the branch, alpha -1, beta 1,
// with the block's depth: so nearly all the work runs in the DGEMM kernel.
//
// Measured (one thread, m = n = 4000, bench_blas trsm): 95 to 98 % of the
// branch's DGEMM rate on avx512 and on avx2.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_pack.h"
#include "kernels/generic/trsm_a4.h"  // TrsmRow, the narrow path
#include "kernels/generic/trsm_frame.h"
#include "service/messages.h"

namespace {

// Narrow solves go to xdtrsm_v1: an order up to kTrsmNarrowAny, or a
// multiple of kTrsmUnit up to kTrsmNarrowUnits. The same bounds serve avx512:
// its product's tile is twice as tall, so the packed driver's first micro-
// panels would be even emptier there.
constexpr int kTrsmNarrowAny = 12;
constexpr int kTrsmNarrowUnits = 88;

// The product micro-kernel of the record on a scratch tile: C = A*B, C not
// read, and nothing to prefetch for the next tile (records whose kernel
// takes a prefetch plan get an empty one).
template <class R>
inline void trsm_gemm_tile_b0(int k, const double* a, const double* b, double* c, int ldc) {
  if constexpr (requires { R::kernel_b0(k, a, b, c, ldc); })
    R::kernel_b0(k, a, b, c, ldc);
  else
    R::kernel_b0(k, a, b, c, ldc, {});
}

// Doubles of one packed micro-panel of a block of depth kb.
template <class R>
constexpr int trsm_panel_doubles(int kb) {
  return R::mr * kb + R::mr * R::mr;
}

// dtrsm_scale_*: prepare a packed mr by mr triangle of `rows` rows (row-
// major, [i*mr + c], an identity beyond `rows`) for the multiplying tile
// kernel: it is replaced by its inverse, column-major, [c*mr + i], built
// with the reciprocals of the diagonal (the only divisions of the form; a
// unit diagonal is 1 already). The tile is then solved as one small product
// with that inverse, whose operands the kernel reads by broadcasts, instead
// of a substitution through the lanes of its rows. Measured on avx512 with
// n = 4000, lower unit and upper non-unit: m = 96 went from 25.0 and 20.6
// GFlops (substitution on rows of right-hand sides) to 27.3 and 27.9,
// m = 256 from 40.4 and 35.8 to 40.1 and 37.8.
// The _rf form leaves the triangle as it is.
template <int MR, bool Lower>
void trsm_invert_triangle(double* tri) {
  double inv[MR][MR] = {};  // inv[c][i]: column c
  double recip[MR];
  for (int i = 0; i < MR; ++i) recip[i] = 1.0 / tri[i * MR + i];
  // Loop over the columns of the inverse.
  for (int c = 0; c < MR; ++c) {
    inv[c][c] = recip[c];
    // Loop over the rows of column c in solve order.
    for (int s = 1; s < MR; ++s) {
      const int i = Lower ? c + s : c - s;
      if (i < 0 || i >= MR) break;
      double t = 0.0;
      const int l0 = Lower ? c : i + 1, l1 = Lower ? i : c + 1;
      for (int l = l0; l < l1; ++l) t += tri[i * MR + l] * inv[c][l];
      inv[c][i] = -t * recip[i];
    }
  }
  for (int c = 0; c < MR; ++c)
    for (int i = 0; i < MR; ++i) tri[c * MR + i] = inv[c][i];
}
template <int MR, bool Lower>
void dtrsm_scale_left(double* tri, int) { trsm_invert_triangle<MR, Lower>(tri); }
template <int MR, bool Lower>
void dtrsm_scale_left_unit(double* tri, int) { trsm_invert_triangle<MR, Lower>(tri); }
template <int MR, bool Lower>
void dtrsm_scale_right(double* tri, int) { trsm_invert_triangle<MR, Lower>(tri); }
template <int MR, bool Lower>
void dtrsm_scale_right_unit(double* tri, int) { trsm_invert_triangle<MR, Lower>(tri); }

using TrsmDiagScaleFn = void(double* tri, int rows);

// dtrxm_copy_*: the triangle of the frame's diagonal block [r0, r0+len)
// (len <= R::kc_large), micro-panel by micro-panel at ir = 0, mr, 2mr, ...
// Each panel: -op'(A)(rows, solved part of the block) in the product's A
// format (k-major, mr values per k), then the mr by mr triangle row-major,
// [i*mr + k]; rows beyond the block are an identity. A unit diagonal is
// not read; `scale` (null in the _rf form) prepares the diagonal.
template <class R>
void dtrxm_copy_block(const TrsmFrame& f, int r0, int len, double* dst, TrsmDiagScaleFn* scale) {
  constexpr int mr = R::mr;
  const int stride = trsm_panel_doubles<R>(R::kc_large);
  // Loop over the block's rows, mr at a time.
  for (int ir = 0; ir < len; ir += mr) {
    const int rows = trsm_min(mr, len - ir);
    double* panel = dst + (ir / mr) * stride;
    const int k0 = f.lower ? r0 : r0 + ir + rows;
    const int k = f.lower ? ir : len - ir - rows;
    if (k > 0)
      gemm_pack_a_padded<mr>(f.ta, rows, k, gemm_a_source<R>(f.ta, f.a, f.lda, r0 + ir, k0),
                             f.lda, -1.0, panel);
    double* tri = panel + mr * k;
    for (int i = 0; i < mr; ++i)
      for (int c = 0; c < mr; ++c) {
        double v = 0.0;
        if (i >= rows || c >= rows) {
          v = i == c ? 1.0 : 0.0;
        } else if (i == c) {
          v = f.unit ? 1.0 : f.at(r0 + ir + i, r0 + ir + i);
        } else if (f.lower ? c < i : c > i) {
          v = f.at(r0 + ir + i, r0 + ir + c);
        }
        tri[i * mr + c] = v;
      }
    if (scale != nullptr) scale(tri, rows);
  }
}

// The packing routines by case (the frame has already turned the right
// side into a left one).
template <class R>
void dtrxm_copy_left_lower(const TrsmFrame& f, int r0, int len, double* dst,
                           TrsmDiagScaleFn* scale) {
  dtrxm_copy_block<R>(f, r0, len, dst, scale);
}
template <class R>
void dtrxm_copy_left_upper(const TrsmFrame& f, int r0, int len, double* dst,
                           TrsmDiagScaleFn* scale) {
  dtrxm_copy_block<R>(f, r0, len, dst, scale);
}
template <class R>
void dtrxm_copy_right_lower(const TrsmFrame& f, int r0, int len, double* dst,
                            TrsmDiagScaleFn* scale) {
  dtrxm_copy_block<R>(f, r0, len, dst, scale);
}
template <class R>
void dtrxm_copy_right_upper(const TrsmFrame& f, int r0, int len, double* dst,
                            TrsmDiagScaleFn* scale) {
  dtrxm_copy_block<R>(f, r0, len, dst, scale);
}

// The _rf tile (substitution with true division): one tile of rows x cols
// (at most mr by nr) of the block. bsolved/k: the packed rows of this column panel already solved in
// the block and their count; brow: the packed rows of the tile itself; out:
// B'(first row, first column) of the tile. The update runs in the product
// micro-kernel, the triangle on a copy of the tile.
template <class R, bool Lower, bool Unit, bool Rf>
void trsm_tile(int k, const double* apanel, const double* bsolved, const double* tri,
               double* brow, int rows, int cols, double* out, ptrdiff_t rs, ptrdiff_t cs) {
  constexpr int mr = R::mr, nr = R::nr;
  constexpr int width = nr <= 4 ? 4 : 8;  // nr columns padded to a vector
  static_assert(nr <= width, "tile wider than its row vector");
  using Row = typename TrsmRow<width>::type;
  alignas(64) double upd[mr * nr];
  trsm_gemm_tile_b0<R>(k, apanel, bsolved, upd, mr);
  // The tile as rows of right-hand sides: each solve step is then one
  // vector multiply-add with a value of the triangle, instead of nr scalar
  // ones.
  Row x[mr];
#pragma GCC unroll 8
  for (int i = 0; i < mr; ++i) {
    Row v = {};
    if (i < rows)
      for (int j = 0; j < nr; ++j) v[j] = brow[i * nr + j] + upd[j * mr + i];
    x[i] = v;
  }
  // Loop over the tile's rows in solve order.
#pragma GCC unroll 8
  for (int step = 0; step < mr; ++step) {
    const int i = Lower ? step : mr - 1 - step;
    if (i >= rows) continue;
    Row v = x[i];
#pragma GCC unroll 8
    for (int c = 0; c < mr; ++c)
      if (Lower ? c < i : (c > i && c < rows)) v -= tri[i * mr + c] * x[c];
    if (!Unit) v = Rf ? v / tri[i * mr + i] : v * tri[i * mr + i];
    x[i] = v;
  }
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < nr; ++j) brow[i * nr + j] = x[i][j];
    for (int j = 0; j < cols; ++j) out[i * rs + j * cs] = x[i][j];
  }
}

// dtrsm_kernel_<..>_0 with a prepared triangle: as above, but the tile is
// solved as X = inverse * (rows of B + update), column by column of
// right-hand sides, each a vector of mr rows: the values of B and of the
// update enter as broadcasts, so nothing is moved across vector lanes.
template <class R>
void trsm_tile_inverse(int k, const double* apanel, const double* bsolved, const double* tinv,
                       double* brow, int rows, int cols, double* out, ptrdiff_t rs,
                       ptrdiff_t cs) {
  constexpr int mr = R::mr, nr = R::nr;
  using Col = typename TrsmRow<mr>::type;
  alignas(64) double upd[mr * nr];
  trsm_gemm_tile_b0<R>(k, apanel, bsolved, upd, mr);
  alignas(64) double xt[mr * nr];
  // Loop over the tile's right-hand sides, one column at a time.
  for (int j = 0; j < nr; ++j) {
    Col x = {};
#pragma GCC unroll 8
    for (int c = 0; c < mr; ++c) {
      if (c >= rows) break;
      Col t;
      __builtin_memcpy(&t, tinv + c * mr, sizeof t);
      x += t * (brow[c * nr + j] + upd[j * mr + c]);
    }
    __builtin_memcpy(xt + j * mr, &x, sizeof x);
  }
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < nr; ++j) brow[i * nr + j] = xt[j * mr + i];
  for (int j = 0; j < cols; ++j)
    for (int i = 0; i < rows; ++i) out[i * rs + j * cs] = xt[j * mr + i];
}

using TrsmTileFn = void(int k, const double* apanel, const double* bsolved, const double* tri,
                        double* brow, int rows, int cols, double* out, ptrdiff_t rs,
                        ptrdiff_t cs);

// dtrsm_kernel_ll_0, _lu_0, _rl_0, _ru_0: with a prepared (inverted)
// triangle the four cases are one kernel, trsm_tile_inverse; a diagonal
// without safe reciprocals takes the substituting, dividing trsm_tile of
// the frame's triangle.
template <class R>
TrsmTileFn* trsm_pick_tile(bool frame_lower, bool unit, bool rf) {
  if (rf && !unit)
    return frame_lower ? trsm_tile<R, true, false, true> : trsm_tile<R, false, false, true>;
  return trsm_tile_inverse<R>;
}

// Block sizes of the packed solve: the diagonal block (the product's depth
// block at its high limit, a multiple of mr), the column block of B, and
// the doubles of the two buffers.
template <class R>
struct TrsmPackedBlocks {
  static constexpr int kb = R::kc_large;
  static_assert(kb % R::mr == 0, "diagonal block not a whole number of micro-panels");
  static int nc(int rhs) { return trsm_round_up(trsm_min(rhs, R::nc_max), R::nr); }
  static size_t a_doubles() {
    return static_cast<size_t>(kb / R::mr) * static_cast<size_t>(trsm_panel_doubles<R>(kb));
  }
  static size_t b_doubles(int rhs) { return static_cast<size_t>(kb) * nc(rhs); }
};

// The packed solve on a frame whose B is already multiplied by alpha, in
// buffers of TrsmPackedBlocks' sizes: abuf for the packed triangles of one
// diagonal block, bbuf for its rows of one column block of B.
template <class R, tarn_xdgemm_fn* Gemm>
void trsm_packed_loops(const TrsmFrame& f, double* abuf, double* bbuf) {
  constexpr int mr = R::mr, nr = R::nr, kb = TrsmPackedBlocks<R>::kb;
  const int s = f.order, n = f.rhs;
  if (s <= 0 || n <= 0) return;
  const int nc = TrsmPackedBlocks<R>::nc(n);
  const int stride = trsm_panel_doubles<R>(kb);
  const ptrdiff_t rs = f.rs(), cs = f.cs();

  // Loop over the order, kb rows at a time, in solve order (upper: from the
  // end, so that a short block is the last one solved).
  for (int done = 0; done < s; done += kb) {
    const int len = trsm_min(kb, s - done);
    const int r0 = f.lower ? done : s - done - len;
    const bool safe = trsm_diagonal_safe(f, r0, len);
    TrsmDiagScaleFn* scale = nullptr;
    if (f.unit)
      scale = f.right ? (f.lower ? dtrsm_scale_right_unit<mr, true> : dtrsm_scale_right_unit<mr, false>)
                      : (f.lower ? dtrsm_scale_left_unit<mr, true> : dtrsm_scale_left_unit<mr, false>);
    else if (safe)
      scale = f.right ? (f.lower ? dtrsm_scale_right<mr, true> : dtrsm_scale_right<mr, false>)
                      : (f.lower ? dtrsm_scale_left<mr, true> : dtrsm_scale_left<mr, false>);
    const bool op_lower = f.right ? !f.lower : f.lower;
    if (f.right)
      (op_lower ? dtrxm_copy_right_lower<R> : dtrxm_copy_right_upper<R>)(f, r0, len, abuf, scale);
    else
      (op_lower ? dtrxm_copy_left_lower<R> : dtrxm_copy_left_upper<R>)(f, r0, len, abuf, scale);
    TrsmTileFn* tile = trsm_pick_tile<R>(f.lower, f.unit, !safe);
    const int npanels = (len + mr - 1) / mr;
    // Loop over the right-hand sides, nc at a time; pack the block's rows of
    // B here.
    for (int jc = 0; jc < n; jc += nc) {
      const int ncur = trsm_min(nc, n - jc);
      // Loop over the column block, nr at a time.
      for (int jr = 0; jr < ncur; jr += nr)
        gemm_pack_b_padded<nr>(f.right, len, trsm_min(nr, ncur - jr), f.bp(r0, jc + jr), f.ldb,
                               bbuf + static_cast<ptrdiff_t>(jr) * len);
      // Loop over the block's micro-panels of mr rows, in solve order.
      for (int q = 0; q < npanels; ++q) {
        const int p = f.lower ? q : npanels - 1 - q;
        const int ir = p * mr, rows = trsm_min(mr, len - ir);
        const int k = f.lower ? ir : len - ir - rows;
        const int solved = f.lower ? 0 : ir + rows;
        const double* apanel = abuf + static_cast<ptrdiff_t>(p) * stride;
        const double* tri = apanel + mr * k;
        // Loop over the column block, one tile of nr columns at a time.
        for (int jr = 0; jr < ncur; jr += nr) {
          double* panel = bbuf + static_cast<ptrdiff_t>(jr) * len;
          tile(k, apanel, panel + solved * nr, tri, panel + ir * nr, rows,
               trsm_min(nr, ncur - jr), f.bp(r0 + ir, jc + jr), rs, cs);
        }
      }
    }
    // The rest of the order, from this block: one product.
    if (f.lower)
      trsm_update<Gemm>(f, r0 + len, s - r0 - len, r0, len);
    else
      trsm_update<Gemm>(f, 0, r0, r0, len);
  }
}

// The packed solve with buffers of its own, laid out as the product's (B a
// page boundary plus 768 in, A a page past B's end plus 1664); without them
// the blocked substitution.
template <class R, tarn_xdgemm_fn* Gemm>
void trsm_packed_driver(const TrsmFrame& f) {
  if (f.order <= 0 || f.rhs <= 0) return;
  const size_t b_bytes = TrsmPackedBlocks<R>::b_doubles(f.rhs) * sizeof(double);
  const size_t bytes =
      TrsmPackedBlocks<R>::a_doubles() * sizeof(double) + b_bytes + kGemmBothBuffersSlack;
  void* raw = tarn_blas_gemm_buffer_allocate(bytes, kGemmBufferAlignment);
  if (tarn_serv_check_ptr_and_warn(raw, "DTRSM")) {
    trsm_blocked_substitute<Gemm>(f);
    return;
  }
  const uintptr_t bstart = gemm_up4k(reinterpret_cast<uintptr_t>(raw)) + kGemmBOffset;
  double* bbuf = reinterpret_cast<double*>(bstart);
  double* abuf = reinterpret_cast<double*>(gemm_up4k(bstart + b_bytes) + kGemmAOffset);
  trsm_packed_loops<R, Gemm>(f, abuf, bbuf);
  tarn_blas_gemm_buffer_deallocate(raw);
}

}  // namespace
