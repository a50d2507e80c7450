// The triangular solve op(A)*x = b with one right-hand side, x overwriting
// b: the eight leaves dtrsv_<uplo><trans><diag> for blocks of order up to
// kTrsvBlock, and the blocked driver xdtrsv over them.
#pragma once

#include "blas/blas.h"
#include "kernels/generic/l1_xddot.h"
#include "kernels/generic/l2_rows.h"
#include "kernels/kernels.h"
#include "kernels/generic/l2_entries.h"

namespace {

constexpr int kTrsvBlock = 32;  // order of the diagonal blocks the leaves solve

// One leaf. 'N' forms work by columns: each solved x(j) is taken out of the
// rest of x at once, rows 4 vectors, then single vectors, then single rows
// at a time. 'T' forms work by dot products of a column with the solved
// part. Lower 'N' and upper 'T' walk forward, the other two backward. A
// non-unit diagonal is applied with a true division; a unit one is never
// read.
template <bool kLower, bool kTrans, bool kUnit>
inline void l2_dtrsv_leaf(int n, const double* a, int lda, double* x, int incx) {
  if (n < 1 || incx == 0) return;
  const ptrdiff_t ld = lda, inc = incx;
  double* xs = l12_vector_base(x, n, incx);
  auto col = [=](int j) { return a + j * ld; };
  if (!kTrans) {
    // x(j) solved, then the rows still to come updated by column j.
    auto solve = [&](int j, int lo, int hi) {
      if (!kUnit) xs[j * inc] /= col(j)[j];
      const double xj = xs[j * inc];
      if (inc == 1) {
        l2_sub_scaled(hi - lo, xj, col(j) + lo, xs + lo);
      } else {
        for (int i = lo; i < hi; ++i) xs[i * inc] = l12_fnma1(xj, col(j)[i], xs[i * inc]);
      }
    };
    if (kLower) {
      for (int j = 0; j < n; ++j) solve(j, j + 1, n);  // columns, forward
    } else {
      for (int j = n - 1; j >= 0; --j) solve(j, 0, j);  // columns, backward
    }
    return;
  }
  // x(j) := (x(j) - A(lo:hi, j)' x(lo:hi)) / A(j, j)
  auto solve = [&](int j, int lo, int hi) {
    const double s = inc == 1 ? l1_dot_unit(hi - lo, col(j) + lo, xs + lo)
                              : l1_dot_strided(hi - lo, col(j) + lo, 1, xs + lo * inc, inc);
    const double v = xs[j * inc] - s;
    xs[j * inc] = kUnit ? v : v / col(j)[j];
  };
  if (kLower) {
    for (int j = n - 1; j >= 0; --j) solve(j, j + 1, n);  // columns, backward
  } else {
    for (int j = 0; j < n; ++j) solve(j, 0, j);  // columns, forward
  }
}

// The eight leaves of one branch, in the order of l2_dtrsv_leaf_index.
typedef void l2_dtrsv_leaf_fn(const int* n, const double* a, const int* lda, double* x,
                              const int* incx);
struct L2DtrsvLeaves {
  l2_dtrsv_leaf_fn* leaf[8];
};

// The tables of the branches list utu, utn, unu, unn, ltu, ltn, lnu, lnn.
inline int l2_dtrsv_leaf_index(bool lower, bool trans, bool unit) {
  return (lower ? 4 : 0) + (trans ? 0 : 2) + (unit ? 0 : 1);
}

// Blocked driver. Up to kTrsvBlock the leaf solves the whole; beyond, the
// order is cut into blocks of kTrsvBlock from the first row. Each block's
// leaf solves the diagonal block; the threaded matrix-vector product
// (alpha -1, beta 1) either takes the solved block out of the rows still to
// come ('N', right-looking), or takes all solved rows out of the block
// before its leaf runs ('T', left-looking).
inline void l2_xdtrsv(char uplo, char trans, char diag, int n, const double* a, int lda,
                      double* x, int incx, const L2DtrsvLeaves& leaves) {
  if (n < 1 || incx == 0) return;
  const bool lower = uplo == 'L', tr = trans != 'N', unit = diag == 'U';
  l2_dtrsv_leaf_fn* const leaf = leaves.leaf[l2_dtrsv_leaf_index(lower, tr, unit)];
  if (n <= kTrsvBlock) {
    leaf(&n, a, &lda, x, &incx);
    return;
  }
  const ptrdiff_t ld = lda;
  double* xs = l12_vector_base(x, n, incx);
  auto blk = [=](int i, int j) { return a + i + j * ld; };
  auto sub = [=](int first, int len) { return l12_sub_vector(xs, first, len, incx); };
  const double minus_one = -1.0, one = 1.0;
  const int nblocks = (n + kTrsvBlock - 1) / kTrsvBlock;
  const bool forward = lower != tr;
  // Diagonal blocks, kTrsvBlock rows each, forward or backward.
  for (int b = 0; b < nblocks; ++b) {
    const int k = forward ? b : nblocks - 1 - b;
    const int j0 = k * kTrsvBlock;
    const int nb = l12_min(kTrsvBlock, n - j0);
    // The rows before the block and those after it.
    const int before = j0, after_lo = j0 + nb, after = n - j0 - nb;
    if (tr) {
      // Rows already solved: A(solved, block)' x(solved) out of x(block).
      const int lo = forward ? 0 : after_lo, len = forward ? before : after;
      if (len > 0)
        tarn_blas_dgemv("T", &len, &nb, &minus_one, blk(lo, j0), &lda, sub(lo, len), &incx, &one,
                        sub(j0, nb), &incx);
    }
    leaf(&nb, blk(j0, j0), &lda, sub(j0, nb), &incx);
    if (!tr) {
      // Rows still to come: A(rest, block) x(block) out of x(rest).
      const int lo = forward ? after_lo : 0, len = forward ? after : before;
      if (len > 0)
        tarn_blas_dgemv("N", &len, &nb, &minus_one, blk(lo, j0), &lda, sub(j0, nb), &incx, &one,
                        sub(lo, len), &incx);
    }
  }
}

}  // namespace

// The entries of a branch. The eight leaves dtrsv_<uplo><trans><diag>
// (kernels/<br>/dtrsv_leaves.cpp), for the diagonal blocks of xdtrsv and
// whole solves up to their order.
#define TARN_DTRSV_LEAF(br, name, lower, trans, unit)                                          \
  extern "C" void tarn_blas_##br##_dtrsv_##name(const int* n, const double* a, const int* lda, \
                                                double* x, const int* incx) {                  \
    l2_dtrsv_leaf<lower, trans, unit>(*n, a, *lda, x, *incx);                                  \
  }
#define TARN_DTRSV_LEAVES(br)                   \
  TARN_DTRSV_LEAF(br, utu, false, true, true)   \
  TARN_DTRSV_LEAF(br, utn, false, true, false)  \
  TARN_DTRSV_LEAF(br, unu, false, false, true)  \
  TARN_DTRSV_LEAF(br, unn, false, false, false) \
  TARN_DTRSV_LEAF(br, ltu, true, true, true)    \
  TARN_DTRSV_LEAF(br, ltn, true, true, false)   \
  TARN_DTRSV_LEAF(br, lnu, true, false, true)   \
  TARN_DTRSV_LEAF(br, lnn, true, false, false)

// xdtrsv (kernels/<br>/xdtrsv.cpp): op(A)*x = b for a triangular A, blocked
// over the branch's leaves.
#define TARN_XDTRSV_ENTRY(br)                                                                    \
  namespace {                                                                                    \
  const L2DtrsvLeaves kLeaves = {{tarn_blas_##br##_dtrsv_utu, tarn_blas_##br##_dtrsv_utn,        \
                                  tarn_blas_##br##_dtrsv_unu, tarn_blas_##br##_dtrsv_unn,        \
                                  tarn_blas_##br##_dtrsv_ltu, tarn_blas_##br##_dtrsv_ltn,        \
                                  tarn_blas_##br##_dtrsv_lnu, tarn_blas_##br##_dtrsv_lnn}};      \
  }                                                                                              \
  extern "C" void tarn_blas_##br##_xdtrsv(const char* uplo, const char* trans, const char* diag, \
                                          const int* n, const double* a, const int* lda,         \
                                          double* x, const int* incx) {                          \
    l2_xdtrsv(l12_upper(uplo), l12_upper(trans), l12_upper(diag), *n, a, *lda, x, *incx,         \
              kLeaves);                                                                          \
  }
