// Branch-generic one-thread DGEMM: the five loops around a register-tiled
// micro-kernel. It is the correct form of the product in every branch and
// the fallback until a branch has its tuned GEMM.
//
// Tile: one vector of rows (the branch's width) by 6 columns. Six
// accumulators, one register for the A values and one for a broadcast B
// value make the eight vector registers of the 32-bit mode without a spill,
// and every operand of the loop is used exactly once per k step. Blocks: a
// KC by NC block of op(B) packed per k block, an MC by KC block of alpha*op(A)
// packed per row block (resident in the second-level cache), and the micro
// panel of B (KC by 6) in the first-level cache while the row panels stream.
#pragma once

#include <cstddef>

#include "kernels/generic/simd.h"
#include "service/memory.h"
#include "service/messages.h"

namespace {

constexpr int kGemmMr = Simd::kWidth;    // rows of the register tile
constexpr int kGemmNr = 6;               // columns of the register tile
constexpr int kGemmKc = 256;             // k block
constexpr int kGemmMc = 192;             // row block, a multiple of every kGemmMr
constexpr int kGemmNc = 1536;            // column block, a multiple of kGemmNr
constexpr int kGemmStackDoubles = 4096;  // packed data that fit on the stack
constexpr int kGemmBufferAlign = 128;

// C := beta*C on an m by n block; beta 0 stores zeros without reading C.
inline void generic_scale_matrix(int m, int n, double beta, double* c, int ldc) {
  if (beta == 1.0) return;
  for (int j = 0; j < n; ++j) {
    double* cj = c + static_cast<ptrdiff_t>(j) * ldc;
    if (beta == 0.0) {
      for (int i = 0; i < m; ++i) cj[i] = 0.0;
    } else {
      for (int i = 0; i < m; ++i) cj[i] *= beta;
    }
  }
}

// op(A)(i, p) for A with leading dimension lda.
inline const double* generic_op_at(bool trans, const double* a, int lda, int i, int p) {
  return trans ? a + p + static_cast<ptrdiff_t>(i) * lda : a + i + static_cast<ptrdiff_t>(p) * lda;
}

// Rows [0, mc) of op(A), k indices [0, kc), times alpha, as row panels of
// kGemmMr: dst[panel][p][i]. The last panel is padded with zeros.
inline void generic_pack_a(bool trans, int mc, int kc, const double* a, int lda, double alpha,
                           double* __restrict dst) {
  for (int i0 = 0; i0 < mc; i0 += kGemmMr) {  // row panels of kGemmMr
    const int rows = generic_min(kGemmMr, mc - i0);
    if (!trans) {
      for (int p = 0; p < kc; ++p) {
        const double* src = a + i0 + static_cast<ptrdiff_t>(p) * lda;
        int i = 0;
        for (; i < rows; ++i) dst[p * kGemmMr + i] = alpha * src[i];
        for (; i < kGemmMr; ++i) dst[p * kGemmMr + i] = 0.0;
      }
    } else {
      for (int i = 0; i < kGemmMr; ++i) {
        if (i < rows) {
          const double* src = a + static_cast<ptrdiff_t>(i0 + i) * lda;
          for (int p = 0; p < kc; ++p) dst[p * kGemmMr + i] = alpha * src[p];
        } else {
          for (int p = 0; p < kc; ++p) dst[p * kGemmMr + i] = 0.0;
        }
      }
    }
    dst += static_cast<ptrdiff_t>(kc) * kGemmMr;
  }
}

// k indices [0, kc), columns [0, nc) of op(B) as column panels of kGemmNr:
// dst[panel][p][j]. The last panel is padded with zeros.
inline void generic_pack_b(bool trans, int kc, int nc, const double* b, int ldb,
                           double* __restrict dst) {
  for (int j0 = 0; j0 < nc; j0 += kGemmNr) {  // column panels of kGemmNr
    const int cols = generic_min(kGemmNr, nc - j0);
    for (int j = 0; j < kGemmNr; ++j) {
      if (j < cols) {
        if (!trans) {
          const double* src = b + static_cast<ptrdiff_t>(j0 + j) * ldb;
          for (int p = 0; p < kc; ++p) dst[p * kGemmNr + j] = src[p];
        } else {
          const double* src = b + j0 + j;
          for (int p = 0; p < kc; ++p) dst[p * kGemmNr + j] = src[static_cast<ptrdiff_t>(p) * ldb];
        }
      } else {
        for (int p = 0; p < kc; ++p) dst[p * kGemmNr + j] = 0.0;
      }
    }
    dst += static_cast<ptrdiff_t>(kc) * kGemmNr;
  }
}

// C(0:rows, 0:cols) += Apanel * Bpanel over kc steps. A full tile adds
// straight into C; a cut tile goes through a small buffer so that nothing
// outside the rows and columns asked for is touched.
inline void generic_micro_tile(int kc, const double* __restrict a, const double* __restrict b,
                               double* c, int ldc, int rows, int cols) {
  Simd::V acc0 = Simd::zero(), acc1 = Simd::zero(), acc2 = Simd::zero();
  Simd::V acc3 = Simd::zero(), acc4 = Simd::zero(), acc5 = Simd::zero();
#pragma GCC unroll 4
  for (int p = 0; p < kc; ++p) {  // k, one step at a time, 6 multiply-adds each
    const Simd::V av = Simd::load(a);
    acc0 = Simd::fmadd(av, Simd::set1(b[0]), acc0);
    acc1 = Simd::fmadd(av, Simd::set1(b[1]), acc1);
    acc2 = Simd::fmadd(av, Simd::set1(b[2]), acc2);
    acc3 = Simd::fmadd(av, Simd::set1(b[3]), acc3);
    acc4 = Simd::fmadd(av, Simd::set1(b[4]), acc4);
    acc5 = Simd::fmadd(av, Simd::set1(b[5]), acc5);
    a += kGemmMr;
    b += kGemmNr;
  }
  const ptrdiff_t ld = ldc;
  if (rows == kGemmMr && cols == kGemmNr) {
    Simd::store(c, Simd::add(Simd::load(c), acc0));
    Simd::store(c + ld, Simd::add(Simd::load(c + ld), acc1));
    Simd::store(c + 2 * ld, Simd::add(Simd::load(c + 2 * ld), acc2));
    Simd::store(c + 3 * ld, Simd::add(Simd::load(c + 3 * ld), acc3));
    Simd::store(c + 4 * ld, Simd::add(Simd::load(c + 4 * ld), acc4));
    Simd::store(c + 5 * ld, Simd::add(Simd::load(c + 5 * ld), acc5));
    return;
  }
  alignas(64) double tile[kGemmNr][kGemmMr];
  Simd::store(tile[0], acc0);
  Simd::store(tile[1], acc1);
  Simd::store(tile[2], acc2);
  Simd::store(tile[3], acc3);
  Simd::store(tile[4], acc4);
  Simd::store(tile[5], acc5);
  for (int j = 0; j < cols; ++j)
    for (int i = 0; i < rows; ++i) c[i + j * ld] += tile[j][i];
}

// The product without packing, for when no work memory can be had:
// column by column, C(:, j) += op(A)(:, p) * alpha*op(B)(p, j).
inline void generic_gemm_unpacked(bool ta, bool tb, int m, int n, int k, double alpha,
                                  const double* a, int lda, const double* b, int ldb, double* c,
                                  int ldc) {
  for (int j = 0; j < n; ++j) {
    double* cj = c + static_cast<ptrdiff_t>(j) * ldc;
    for (int p = 0; p < k; ++p) {
      const double t = alpha * *generic_op_at(tb, b, ldb, p, j);
      if (!ta) {
        const double* ap = a + static_cast<ptrdiff_t>(p) * lda;
        for (int i = 0; i < m; ++i) cj[i] += t * ap[i];
      } else {
        for (int i = 0; i < m; ++i) cj[i] += t * a[p + static_cast<ptrdiff_t>(i) * lda];
      }
    }
  }
}

inline int generic_round_up(int x, int unit) { return (x + unit - 1) / unit * unit; }

// C := alpha*op(A)*op(B) + beta*C. Beta 0 never reads C; alpha 0 or k 0
// only scales C; m or n not positive returns at once.
inline void generic_xdgemm(char transa, char transb, int m, int n, int k, double alpha,
                           const double* a, int lda, const double* b, int ldb, double beta,
                           double* c, int ldc) {
  if (m <= 0 || n <= 0) return;
  generic_scale_matrix(m, n, beta, c, ldc);
  if (alpha == 0.0 || k <= 0) return;
  const bool ta = transa != 'N';
  const bool tb = transb != 'N';

  const int kc_max = generic_min(k, kGemmKc);
  const int mc_max = generic_round_up(generic_min(m, kGemmMc), kGemmMr);
  const int nc_max = generic_round_up(generic_min(n, kGemmNc), kGemmNr);
  const size_t a_doubles = static_cast<size_t>(mc_max) * kc_max;
  const size_t b_doubles = static_cast<size_t>(nc_max) * kc_max;
  const size_t total = a_doubles + b_doubles;

  alignas(64) double stack_buffer[kGemmStackDoubles];
  double* work = stack_buffer;
  void* heap = nullptr;
  if (total > static_cast<size_t>(kGemmStackDoubles)) {
    heap = tarn_serv_allocate(total * sizeof(double), kGemmBufferAlign);
    if (tarn_serv_check_ptr_and_warn(heap, "DGEMM")) {
      // No memory: slower, never fatal.
      generic_gemm_unpacked(ta, tb, m, n, k, alpha, a, lda, b, ldb, c, ldc);
      return;
    }
    work = static_cast<double*>(heap);
  }
  double* pack_a = work;
  double* pack_b = work + a_doubles;

  for (int jc = 0; jc < n; jc += kGemmNc) {  // loop over N, kGemmNc columns at a time
    const int nc = generic_min(kGemmNc, n - jc);
    for (int pc = 0; pc < k; pc += kGemmKc) {  // loop over K, kGemmKc at a time; pack B here
      const int kc = generic_min(kGemmKc, k - pc);
      generic_pack_b(tb, kc, nc, generic_op_at(tb, b, ldb, pc, jc), ldb, pack_b);
      for (int ic = 0; ic < m; ic += kGemmMc) {  // loop over M, kGemmMc rows; pack alpha*A here
        const int mc = generic_min(kGemmMc, m - ic);
        generic_pack_a(ta, mc, kc, generic_op_at(ta, a, lda, ic, pc), lda, alpha, pack_a);
        for (int jr = 0; jr < nc; jr += kGemmNr) {  // column panels of B, kGemmNr wide
          const double* bp = pack_b + static_cast<ptrdiff_t>(jr) * kc;
          const int cols = generic_min(kGemmNr, nc - jr);
          for (int ir = 0; ir < mc; ir += kGemmMr) {  // row panels of A, kGemmMr high
            const double* ap = pack_a + static_cast<ptrdiff_t>(ir) * kc;
            double* cp = c + (ic + ir) + static_cast<ptrdiff_t>(jc + jr) * ldc;
            generic_micro_tile(kc, ap, bp, cp, ldc, generic_min(kGemmMr, mc - ir), cols);
          }
        }
      }
    }
  }
  if (heap != nullptr) tarn_serv_deallocate(heap);
}

}  // namespace
