// The packing-free path of the descriptor branches (avx2, avx512): no heap
// buffer at all. B is read in place by the register tile; each slab of mr
// rows of A is copied once, times alpha, into a scratch area on the stack
// and serves every column group of the block (so A costs one pass, as if
// packed during the first column group). Column groups narrower than the
// tile go through a small stack copy of their B columns.
//
// Three loops cut K, M and N, outermost first. Each limit comes as three
// numbers (a, b, c): a remaining length of at least a takes a block of b;
// above c (but below a) it takes half the remainder, rounded up, so that a
// last block is never a sliver; otherwise it takes the remainder.
//
// The branch record adds, to what the packed driver needs:
//   kernel_sb(kc, a, b, sk, sj, c, ldc), kernel_sb_b0(...)
//                      the tile with B(p, j) read at b[p*sk + j*sj]
//   nocopy_max_k       the largest K block of its limits (scratch size)
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include "kernels/generic/gemm_driver.h"

namespace {

struct GemmNocopyLimit {
  int a, b, c;
};

struct GemmNocopyLimits {
  GemmNocopyLimit k, m, n;
};

inline int gemm_nocopy_block(int remaining, const GemmNocopyLimit& l) {
  if (remaining >= l.a) return l.b;
  if (remaining > l.c) return (remaining + 1) / 2;
  return remaining;
}

// One (K, M, N) block: C(mb x nb) (+)= alpha * op(A) * op(B) over kb.
template <class R>
void gemm_nocopy_block_product(bool ta, bool tb, int mb, int nb, int kb, double alpha,
                               const double* a, int lda, const double* b, int ldb, bool b0,
                               double* c, int ldc) {
  alignas(64) double aslab[R::mr * R::nocopy_max_k];
  alignas(64) double bcols[R::nr * R::nocopy_max_k];
  alignas(64) double tile[R::mr * R::nr];
  const int sk = tb ? ldb : 1, sj = tb ? 1 : ldb;
  // Loop over the rows of the block, mr at a time; copy the A slab once.
  for (int ir = 0; ir < mb; ir += R::mr) {
    const int rows = gemm_min(R::mr, mb - ir);
    gemm_pack_a_panel<R::mr>(ta, rows, kb, gemm_a_source<R>(ta, a, lda, ir, 0), lda, alpha,
                             aslab);
    // Loop over the columns of the block, nr at a time; B read in place.
    for (int jr = 0; jr < nb; jr += R::nr) {
      const int cols = gemm_min(R::nr, nb - jr);
      const double* bsrc = tb ? b + jr : b + (ptrdiff_t)jr * ldb;
      double* ct = c + ir + (ptrdiff_t)jr * ldc;
      if (cols < R::nr) {
        gemm_pack_b_panel<R::nr>(tb, kb, cols, bsrc, ldb, bcols);
        R::kernel_b0(kb, aslab, bcols, tile, R::mr);
        gemm_merge_tile<R>(rows, cols, tile, ct, ldc, b0);
      } else if (rows < R::mr) {
        R::kernel_sb_b0(kb, aslab, bsrc, sk, sj, tile, R::mr);
        gemm_merge_tile<R>(rows, cols, tile, ct, ldc, b0);
      } else if (b0) {
        R::kernel_sb_b0(kb, aslab, bsrc, sk, sj, ct, ldc);
      } else {
        R::kernel_sb(kb, aslab, bsrc, sk, sj, ct, ldc);
      }
    }
  }
}

template <class R>
void gemm_nocopy_driver(bool ta, bool tb, int m, int n, int k, double alpha, const double* a,
                        int lda, const double* b, int ldb, double beta, double* c, int ldc,
                        const GemmNocopyLimits& lim) {
  if (m < 1 || n < 1) return;
  if (k < 1 || alpha == 0.0) {
    gemm_scale_c(m, n, beta, c, ldc);
    return;
  }
  const bool beta0 = beta == 0.0;
  if (!beta0) gemm_scale_c(m, n, beta, c, ldc);
  // Loop over the depth, by the K limits; only the first block sees beta 0.
  for (int pc = 0, kb; pc < k; pc += kb) {
    kb = gemm_nocopy_block(k - pc, lim.k);
    // Loop over the rows of C, by the M limits.
    for (int ic = 0, mb; ic < m; ic += mb) {
      mb = gemm_nocopy_block(m - ic, lim.m);
      // Loop over the columns of C, by the N limits.
      for (int jc = 0, nb; jc < n; jc += nb) {
        nb = gemm_nocopy_block(n - jc, lim.n);
        const double* bb = tb ? b + jc + (ptrdiff_t)pc * ldb : b + pc + (ptrdiff_t)jc * ldb;
        gemm_nocopy_block_product<R>(ta, tb, mb, nb, kb, alpha,
                                     gemm_a_source<R>(ta, a, lda, ic, pc), lda, bb,
                                     ldb, beta0 && pc == 0, c + ic + (ptrdiff_t)jc * ldc, ldc);
      }
    }
  }
}

}  // namespace
