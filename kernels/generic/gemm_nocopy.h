// The packing-free path of the descriptor branches (avx2, avx512): no heap
// buffer and no cached work memory, only the stack. Each block of B (at
// most nocopy_max_cols columns) is copied into a stack area in the packed
// panel format, and each slab of mr rows of A, times alpha, into another,
// then the packed tile runs on them. Reading B in place from the tile was
// tried first: with seven columns at the caller's stride the 32-bit mode
// has too few general registers for the addresses, and the compiler
// reloaded every column offset from the stack on each k (24 % of peak on
// avx512 for m=4000, n=k=128, against about twice that with the copy).
//
// Three loops cut K, M and N, outermost first. Each limit comes as three
// numbers (a, b, c): a remaining length of at least a takes a block of b;
// above c (but below a) it takes half the remainder, rounded up, so that a
// last block is never a sliver; otherwise it takes the remainder.
//
// The branch record adds, to what the packed driver needs:
//   nocopy_max_k       the largest K block of its limits
//   nocopy_max_cols    the widest B block copied at once (a multiple of nr)
//
// The two stack areas take at most about 330 KiB (avx512; 250 KiB on avx2),
// well inside the 2 MiB a worker has by default. Narrower B copies (a third
// as wide) would use less, but measured slower on avx2 (m=60, n=4000,
// k=128: 23 to 41 % of peak against 46 to 47 %).
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

// The deepest K block a limit can give, and whether the branch D's limits
// keep every K block within its stack copies.
constexpr int gemm_nocopy_largest(const GemmNocopyLimit& l) {
  const int half = l.a / 2;
  return l.b > l.c ? (l.b > half ? l.b : half) : (l.c > half ? l.c : half);
}
template <class D>
constexpr bool gemm_nocopy_limits_fit() {
  for (int t = 0; t < 4; ++t)
    if (gemm_nocopy_largest(D::nocopy_limits(t & 1, t & 2).k) > D::Nocopy::nocopy_max_k)
      return false;
  return true;
}

// One (K, M, N) block: C(mb x nb) (+)= alpha * op(A) * op(B) over kb.
template <class R>
void gemm_nocopy_block_product(bool ta, bool tb, int mb, int nb, int kb, double alpha,
                               const double* a, int lda, const double* b, int ldb, bool b0,
                               double* c, int ldc) {
  static_assert(R::nocopy_max_cols % R::nr == 0, "B copies hold whole panels");
  alignas(64) double aslab[R::mr * R::nocopy_max_k];
  alignas(64) double bcopy[R::nocopy_max_cols * R::nocopy_max_k];
  // Loop over the columns of the block, nocopy_max_cols at a time; copy B.
  for (int jc = 0; jc < nb; jc += R::nocopy_max_cols) {
    const int ncur = gemm_min(R::nocopy_max_cols, nb - jc);
    gemm_pack_b_block<R>(tb, kb, ncur, b, ldb, 0, jc, bcopy);
    // Loop over the row panels of the block; copy the A slab.
    for (int ir = 0, rows; ir < mb; ir += rows) {
      rows = gemm_panel_size<R::mr>(mb - ir);
      gemm_pack_a_panel_of<R>(ta, rows, kb, gemm_a_source<R>(ta, a, lda, ir, 0), lda, alpha,
                              aslab);
      gemm_panel_times_block<R>(rows, ncur, kb, aslab, bcopy, c + ir + (ptrdiff_t)jc * ldc, ldc,
                                b0, nullptr, ir + rows < mb);
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
