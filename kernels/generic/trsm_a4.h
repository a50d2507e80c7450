// The narrow solve of the descriptor branches (xdtrsm_v1) and its leaves:
// the diagonal block packed in 4 by 4 units in solve order
// (dtrsm_copya_a4, with reciprocals, or dtrsm_copya_a4_rf, without), and
// the leaf kernels that walk that buffer once, forward, for 8 or 4
// right-hand sides at a time (dtrsm_ker_<side><uplo><diag>_a4_b8, _b4, and
// their _rf forms). Everything works in the left frame of trsm_frame.h.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/generic/trsm_frame.h"
#include "kernels/gemm_desc.h"
#include "service/messages.h"
#include "kernels/trsm_desc.h"

namespace {

constexpr int kTrsmUnit = 4;        // rows of a packed unit
constexpr int kTrsmUnitSize = kTrsmUnit * kTrsmUnit;
constexpr int kTrsmWide = 8;        // right-hand sides of a _b8 kernel
constexpr int kTrsmNarrow = 4;      // right-hand sides of a _b4 kernel
// Largest order a leaf takes; larger blocks are halved at multiples of a
// unit, with a product between the halves. Measured with m = 64, n = 4000:
// leaves of 32 ran at 17.3 GFlops on avx512 and 9.1 on avx2, leaves of 88
// (no halving) at 18.4 and 7.7.
constexpr int kTrsmV1Leaf = 32;
constexpr int kTrsmV1LeafUnits = kTrsmV1Leaf / kTrsmUnit;
// Doubles of a packed leaf: units on and below (or above) the diagonal.
constexpr int kTrsmV1LeafPacked = kTrsmV1LeafUnits * (kTrsmV1LeafUnits + 1) / 2 * kTrsmUnitSize;

// dtrsm_copya_a4 (Recip) and dtrsm_copya_a4_rf: op'(A) of the frame, order
// s <= kTrsmV1Leaf, into units of 4 by 4 in the order the leaf kernel walks
// them: for each unit row in solve order, the units left of (lower) or right
// of (upper) the diagonal in solve order, then the diagonal unit. Unit values are stored column by column, [c*4 + r]. Rows
// and columns beyond s are an identity, so every unit is whole. The
// diagonal holds 1/A(i,i) (the only divisions of the form), A(i,i) in the
// _rf form, and 1 for a unit diagonal, which is not read.
template <bool Recip>
void trsm_copya_a4(const TrsmFrame& f, double* __restrict dst) {
  const int s = f.order;
  const int nu = (s + kTrsmUnit - 1) / kTrsmUnit;
  // Loop over the unit rows, in solve order.
  for (int step = 0; step < nu; ++step) {
    const int ui = f.lower ? step : nu - 1 - step;
    // Loop over the units solved before this row, in solve order.
    for (int q = 0; q < step; ++q) {
      const int uj = f.lower ? q : nu - 1 - q;
      for (int c = 0; c < kTrsmUnit; ++c)
        for (int r = 0; r < kTrsmUnit; ++r) {
          const int i = ui * kTrsmUnit + r, j = uj * kTrsmUnit + c;
          dst[c * kTrsmUnit + r] = (i < s && j < s) ? f.at(i, j) : 0.0;
        }
      dst += kTrsmUnitSize;
    }
    for (int c = 0; c < kTrsmUnit; ++c)
      for (int r = 0; r < kTrsmUnit; ++r) {
        const int i = ui * kTrsmUnit + r, j = ui * kTrsmUnit + c;
        double v = 0.0;
        if (i >= s || j >= s) {
          v = r == c ? 1.0 : 0.0;
        } else if (r == c) {
          v = f.unit ? 1.0 : (Recip ? 1.0 / f.at(i, i) : f.at(i, i));
        } else if (f.lower ? r > c : r < c) {
          v = f.at(i, j);
        }
        dst[c * kTrsmUnit + r] = v;
      }
    dst += kTrsmUnitSize;
  }
}

inline void dtrsm_copya_a4(const TrsmFrame& f, double* dst) { trsm_copya_a4<true>(f, dst); }
inline void dtrsm_copya_a4_rf(const TrsmFrame& f, double* dst) { trsm_copya_a4<false>(f, dst); }

// A row of NB right-hand sides as one value: the compiler maps it onto the
// branch's vector registers (one zmm for 8 on avx512, two ymm on avx and
// avx2, four xmm below). Measured on avx512 (m = 64, n = 4000): the same
// loops written on scalars stayed scalar and ran at 5 GFlops.
template <int NB>
struct TrsmRow {
  typedef double type __attribute__((vector_size(NB * sizeof(double))));
};

// The leaf: frame columns [c0, c0+cols), cols <= NB, of a frame of order at
// most kTrsmV1Leaf, against its packed triangle. The right-hand sides are
// copied into a row-major tile so that every step is a whole row of NB
// values: per unit, the packed units before it are applied with
// multiply-adds, then the diagonal unit, and each row is multiplied by its
// stored reciprocal (Rf: divided by the stored value; Unit: neither).
template <bool Lower, bool Unit, bool Rf, int NB>
void trsm_a4_kernel(const TrsmFrame& f, const double* __restrict packed, int c0, int cols) {
  using Row = typename TrsmRow<NB>::type;
  const int s = f.order;
  const int nu = (s + kTrsmUnit - 1) / kTrsmUnit;
  Row x[kTrsmV1Leaf];
  for (int i = 0; i < nu * kTrsmUnit; ++i) {
    Row v = {};
    if (i < s)
      for (int j = 0; j < cols; ++j) v[j] = *f.bp(i, c0 + j);
    x[i] = v;
  }
  // Loop over the unit rows, in solve order; the buffer is read forward.
  for (int step = 0; step < nu; ++step) {
    const int ui = Lower ? step : nu - 1 - step;
    Row* xi = x + ui * kTrsmUnit;
    Row a0 = xi[0], a1 = xi[1], a2 = xi[2], a3 = xi[3];
    // Loop over the units solved before, one 4 by 4 product each.
    for (int q = 0; q < step; ++q) {
      const int uj = Lower ? q : nu - 1 - q;
      const Row* xj = x + uj * kTrsmUnit;
#pragma GCC unroll 4
      for (int c = 0; c < kTrsmUnit; ++c) {
        const Row v = xj[c];
        const double* t = packed + c * kTrsmUnit;
        a0 -= t[0] * v;
        a1 -= t[1] * v;
        a2 -= t[2] * v;
        a3 -= t[3] * v;
      }
      packed += kTrsmUnitSize;
    }
    Row acc[kTrsmUnit] = {a0, a1, a2, a3};
    // The diagonal unit, row by row in solve order.
#pragma GCC unroll 4
    for (int rs = 0; rs < kTrsmUnit; ++rs) {
      const int r = Lower ? rs : kTrsmUnit - 1 - rs;
#pragma GCC unroll 4
      for (int cs = 0; cs < rs; ++cs) {
        const int c = Lower ? cs : kTrsmUnit - 1 - cs;
        acc[r] -= packed[c * kTrsmUnit + r] * acc[c];
      }
      if (!Unit) {
        const double d = packed[r * kTrsmUnit + r];
        acc[r] = Rf ? acc[r] / d : acc[r] * d;
      }
    }
#pragma GCC unroll 4
    for (int r = 0; r < kTrsmUnit; ++r) xi[r] = acc[r];
    packed += kTrsmUnitSize;
  }
  for (int i = 0; i < s; ++i)
    for (int j = 0; j < cols; ++j) *f.bp(i, c0 + j) = x[i][j];
}

using TrsmA4Kernel = void(const TrsmFrame& f, const double* packed, int c0, int cols);

// The leaf kernels by name: <side><uplo><diag> of the caller's arguments,
// uplo being the triangle of op(A). On the right side the frame solves
// op(A)^T, whose triangle is the other one.
constexpr TrsmA4Kernel* dtrsm_ker_lln_a4_b8 = trsm_a4_kernel<true, false, false, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_lln_a4_b4 = trsm_a4_kernel<true, false, false, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_lln_a4_b8_rf = trsm_a4_kernel<true, false, true, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_lln_a4_b4_rf = trsm_a4_kernel<true, false, true, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_llu_a4_b8 = trsm_a4_kernel<true, true, false, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_llu_a4_b4 = trsm_a4_kernel<true, true, false, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_lun_a4_b8 = trsm_a4_kernel<false, false, false, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_lun_a4_b4 = trsm_a4_kernel<false, false, false, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_lun_a4_b8_rf = trsm_a4_kernel<false, false, true, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_lun_a4_b4_rf = trsm_a4_kernel<false, false, true, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_luu_a4_b8 = trsm_a4_kernel<false, true, false, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_luu_a4_b4 = trsm_a4_kernel<false, true, false, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_rln_a4_b8 = trsm_a4_kernel<false, false, false, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_rln_a4_b4 = trsm_a4_kernel<false, false, false, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_rln_a4_b8_rf = trsm_a4_kernel<false, false, true, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_rln_a4_b4_rf = trsm_a4_kernel<false, false, true, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_rlu_a4_b8 = trsm_a4_kernel<false, true, false, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_rlu_a4_b4 = trsm_a4_kernel<false, true, false, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_run_a4_b8 = trsm_a4_kernel<true, false, false, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_run_a4_b4 = trsm_a4_kernel<true, false, false, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_run_a4_b8_rf = trsm_a4_kernel<true, false, true, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_run_a4_b4_rf = trsm_a4_kernel<true, false, true, kTrsmNarrow>;
constexpr TrsmA4Kernel* dtrsm_ker_ruu_a4_b8 = trsm_a4_kernel<true, true, false, kTrsmWide>;
constexpr TrsmA4Kernel* dtrsm_ker_ruu_a4_b4 = trsm_a4_kernel<true, true, false, kTrsmNarrow>;

// The four kernels of one case: b8, b4 with reciprocals, then the _rf pair
// (the unit cases, which divide by nothing, repeat the first pair).
struct TrsmA4Table {
  TrsmA4Kernel* b8;
  TrsmA4Kernel* b4;
  TrsmA4Kernel* b8_rf;
  TrsmA4Kernel* b4_rf;
};

// Indexed by [op(A) lower][unit].
constexpr TrsmA4Table kTrsmLeftTables[2][2] = {
    {{dtrsm_ker_lun_a4_b8, dtrsm_ker_lun_a4_b4, dtrsm_ker_lun_a4_b8_rf, dtrsm_ker_lun_a4_b4_rf},
     {dtrsm_ker_luu_a4_b8, dtrsm_ker_luu_a4_b4, dtrsm_ker_luu_a4_b8, dtrsm_ker_luu_a4_b4}},
    {{dtrsm_ker_lln_a4_b8, dtrsm_ker_lln_a4_b4, dtrsm_ker_lln_a4_b8_rf, dtrsm_ker_lln_a4_b4_rf},
     {dtrsm_ker_llu_a4_b8, dtrsm_ker_llu_a4_b4, dtrsm_ker_llu_a4_b8, dtrsm_ker_llu_a4_b4}},
};
constexpr TrsmA4Table kTrsmRightTables[2][2] = {
    {{dtrsm_ker_run_a4_b8, dtrsm_ker_run_a4_b4, dtrsm_ker_run_a4_b8_rf, dtrsm_ker_run_a4_b4_rf},
     {dtrsm_ker_ruu_a4_b8, dtrsm_ker_ruu_a4_b4, dtrsm_ker_ruu_a4_b8, dtrsm_ker_ruu_a4_b4}},
    {{dtrsm_ker_rln_a4_b8, dtrsm_ker_rln_a4_b4, dtrsm_ker_rln_a4_b8_rf, dtrsm_ker_rln_a4_b4_rf},
     {dtrsm_ker_rlu_a4_b8, dtrsm_ker_rlu_a4_b4, dtrsm_ker_rlu_a4_b8, dtrsm_ker_rlu_a4_b4}},
};

// dtrsm_left_ker and dtrsm_right_ker: a leaf block of the frame. The
// diagonal test picks the pair: any value without a safe reciprocal (zero,
// denormal, one whose reciprocal is denormal, not finite) takes the _rf
// copy and kernels, which divide as the plain solve does.
inline void trsm_a4_leaf(const TrsmFrame& f, double* packed) {
  const bool op_lower = f.right ? !f.lower : f.lower;
  const TrsmA4Table& t = (f.right ? kTrsmRightTables : kTrsmLeftTables)[op_lower][f.unit];
  const bool safe = trsm_diagonal_safe(f, 0, f.order);
  if (safe)
    dtrsm_copya_a4(f, packed);
  else
    dtrsm_copya_a4_rf(f, packed);
  TrsmA4Kernel* wide = safe ? t.b8 : t.b8_rf;
  TrsmA4Kernel* narrow = safe ? t.b4 : t.b4_rf;
  int c = 0;
  // Loop over the right-hand sides, 8 at a time, then 4 at a time.
  for (; c + kTrsmWide <= f.rhs; c += kTrsmWide) wide(f, packed, c, kTrsmWide);
  for (; c < f.rhs; c += kTrsmNarrow) narrow(f, packed, c, trsm_min(kTrsmNarrow, f.rhs - c));
}
inline void dtrsm_left_ker(const TrsmFrame& f, double* packed) { trsm_a4_leaf(f, packed); }
inline void dtrsm_right_ker(const TrsmFrame& f, double* packed) { trsm_a4_leaf(f, packed); }

// dtrsm_left and dtrsm_right: halve the order at a multiple of a unit, solve
// the half the triangle starts from, update the other half with the
// branch's product (alpha -1, beta 1), solve it.
template <tarn_xdgemm_fn* Gemm>
void trsm_a4_recursive(const TrsmFrame& f, double* packed) {
  const int s = f.order;
  if (s <= kTrsmV1Leaf) {
    if (f.right)
      dtrsm_right_ker(f, packed);
    else
      dtrsm_left_ker(f, packed);
    return;
  }
  const int h = trsm_round_up(s / 2, kTrsmUnit);
  const int first = f.lower ? 0 : h, first_len = f.lower ? h : s - h;
  const int second = f.lower ? h : 0, second_len = s - first_len;
  trsm_a4_recursive<Gemm>(trsm_sub_frame(f, first, first_len, 0, f.rhs), packed);
  trsm_update<Gemm>(f, second, second_len, first, first_len);
  trsm_a4_recursive<Gemm>(trsm_sub_frame(f, second, second_len, 0, f.rhs), packed);
}
template <tarn_xdgemm_fn* Gemm>
void dtrsm_left(const TrsmFrame& f, double* packed) {
  trsm_a4_recursive<Gemm>(f, packed);
}
template <tarn_xdgemm_fn* Gemm>
void dtrsm_right(const TrsmFrame& f, double* packed) {
  trsm_a4_recursive<Gemm>(f, packed);
}

// Block sizes of xdtrsm_v1, by the side and the other dimension.
struct TrsmV1Blocks {
  int cols;   // right-hand sides of the left side per pass
  int rows;   // rows of B per pass on the right side
  int inner;  // inner block of the right side
  int k;      // depth block
};

constexpr int kTrsmV1Small = 256, kTrsmV1Mid = 128, kTrsmV1Large = 512, kTrsmV1Inner = 32;
constexpr int kTrsmV1ColsMidLimit = 4096;  // left: N below this takes the middle column block
constexpr int kTrsmV1RightMid = 512, kTrsmV1RightLarge = 2048, kTrsmV1RightHuge = 4096;
constexpr int kTrsmV1NarrowN = 200;
constexpr size_t kTrsmV1HugePage = size_t(2) << 20;  // the B part starts on such a boundary

inline TrsmV1Blocks trsm_v1_blocks(bool right, int m, int n) {
  TrsmV1Blocks b;
  b.k = kTrsmV1Large;
  if (!right) {
    b.cols = n < kTrsmV1Small ? kTrsmV1Small : (n < kTrsmV1ColsMidLimit ? kTrsmV1Mid : kTrsmV1Large);
    b.rows = n < kTrsmV1Small ? kTrsmV1Small : kTrsmV1Mid;
    b.inner = b.rows;
    return b;
  }
  b.cols = kTrsmV1Small;
  if (m < kTrsmV1Small) {
    b.rows = b.inner = b.k = kTrsmV1Small;
  } else if (m < kTrsmV1RightMid) {
    b.rows = b.inner = b.k = kTrsmV1Mid;
  } else if (m < kTrsmV1RightLarge) {
    b.rows = kTrsmV1Mid;
    b.inner = kTrsmV1Inner;
  } else if (m < kTrsmV1RightHuge) {
    b.rows = n < kTrsmV1NarrowN ? kTrsmV1Mid : kTrsmV1Large;
    b.inner = n < kTrsmV1NarrowN ? kTrsmV1Inner : kTrsmV1Mid;
  } else {
    b.rows = kTrsmV1Large;
    b.inner = kTrsmV1Mid;
  }
  return b;
}

// xdtrsm_v1: the narrow solve with its own buffer. B is scaled by alpha
// through the branch's mscale (alpha 0 clears it and ends the call), the
// buffer is carved as the product's (B part on a 2 MiB boundary plus 768,
// A part a page further plus 1664; the packed leaf lies in the A part), and
// the right-hand sides are cut into passes of the block sizes. Without a
// buffer the whole solve goes to dtrsm_nobuf.
template <tarn_xdgemm_fn* Gemm, tarn_dgemm_mscale_fn* Mscale>
void xdtrsm_v1_impl(const char* side, const char* uplo, const char* transa, const char* diag,
                    const int* m, const int* n, const double* alpha, const double* a,
                    const int* lda, double* b, const int* ldb) {
  if (*m < 1 || *n < 1) return;
  if (*alpha == 0.0) {
    Mscale(m, n, alpha, b, ldb);
    return;
  }
  const TrsmFrame f = trsm_make_frame(trsm_fold(side), trsm_fold(uplo), trsm_fold(transa),
                                      trsm_fold(diag), *m, *n, a, *lda, b, *ldb);
  const TrsmV1Blocks blk = trsm_v1_blocks(f.right, *m, *n);
  constexpr size_t kPage = 4096, kBOffset = 768, kAOffset = 1664;
  const size_t b_bytes = static_cast<size_t>(blk.cols) * blk.k * sizeof(double);
  const size_t a_bytes = static_cast<size_t>(blk.rows) * blk.k * sizeof(double);
  const size_t a_need = a_bytes > kTrsmV1LeafPacked * sizeof(double) ? a_bytes
                                                                       : kTrsmV1LeafPacked * sizeof(double);
  const size_t bytes = kTrsmV1HugePage + b_bytes + kPage + kBOffset + a_need + kPage + kAOffset;
  if (*alpha != 1.0) Mscale(m, n, alpha, b, ldb);
  void* raw = tarn_blas_gemm_buffer_allocate(bytes, kPage);
  if (tarn_serv_check_ptr_and_warn(raw, "DTRSM")) {
    dtrsm_nobuf_impl<Gemm>(side, uplo, transa, diag, m, n, a, lda, b, ldb);
    return;
  }
  const uintptr_t bstart =
      ((reinterpret_cast<uintptr_t>(raw) + kTrsmV1HugePage - 1) & ~(uintptr_t)(kTrsmV1HugePage - 1)) +
      kBOffset;
  const uintptr_t astart = ((bstart + b_bytes + kPage - 1) & ~(uintptr_t)(kPage - 1)) + kAOffset;
  double* packed = reinterpret_cast<double*>(astart);
  const int pass = f.right ? blk.rows : blk.cols;
  // Loop over the right-hand sides of the frame (columns of B on the left,
  // rows of B on the right), one pass of the block size at a time.
  for (int c0 = 0; c0 < f.rhs; c0 += pass) {
    const TrsmFrame p = trsm_sub_frame(f, 0, f.order, c0, trsm_min(pass, f.rhs - c0));
    if (f.right)
      dtrsm_right<Gemm>(p, packed);
    else
      dtrsm_left<Gemm>(p, packed);
  }
  tarn_blas_gemm_buffer_deallocate(raw);
}

}  // namespace

// The entry of avx2 and avx512, kernels/<br>/xdtrsm_v1.cpp: the narrow solve
// with its own buffer, recursive halving with the branch's DGEMM between the
// halves, leaves packed in 4 by 4 units and solved by the a4 kernels.
#define TARN_XDTRSM_V1_ENTRY(br)                                                              \
  extern "C" void tarn_blas_##br##_xdtrsm_v1(                                                 \
      const char* side, const char* uplo, const char* transa, const char* diag, const int* m, \
      const int* n, const double* alpha, const double* a, const int* lda, double* b,          \
      const int* ldb) {                                                                       \
    xdtrsm_v1_impl<tarn_blas_##br##_xdgemm, tarn_blas_##br##_dgemm_mscale>(                   \
        side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);                               \
    trsm_leave_wide_registers();                                                              \
  }
