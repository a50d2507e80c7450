// Branch-generic one-thread triangular solve with several right-hand sides,
// op(A)*X = alpha*B or X*op(A) = alpha*B, B overwritten by X.
//
// Left side (the solver's case): the order is halved recursively, the half
// solved first updates the other through the branch's own DGEMM (a template
// argument, so a branch's tuned GEMM serves its solve too), down to leaves
// of at most kTrsmLeaf. A leaf with many right-hand sides and a diagonal
// whose reciprocals are safe is inverted once and applied as a product; any
// other leaf is solved by substitution with true divisions. Measured here
// (avx512, m = 256, n = 2000): substitution leaves ran the whole solve at
// 4.5 GFlops, inverted leaves at 15 (the product itself at 19 to 26).
// Right side: blocks of kTrsmNb columns, substitution inside a block (each
// step an update of a whole column, long and unit-stride), DGEMM between.
//
// A zero on the diagonal gives infinities and a denormal what division
// gives, since such a leaf is never inverted; diag 'U' never reads the
// diagonal.
#pragma once

#include <cfloat>
#include <cstddef>

#include "kernels/generic/simd.h"
#include "kernels/kernels.h"
#include "service/memory.h"
#include "service/messages.h"

namespace {

constexpr int kTrsmNb = 64;        // right side: columns of a diagonal block
constexpr int kTrsmLeaf = 64;      // left side: largest order solved without halving
constexpr int kTrsmSplitUnit = 8;  // halves are cut at multiples of this
// Fewer right-hand sides than this: inverting a leaf costs more than it saves.
constexpr int kTrsmInverseMinCols = 16;
// Columns of B per product with an inverted leaf: 32 ran at 4.3 GFlops, 128
// at 5.7 and 256 at 7.1 on avx512 with m = 64, n = 4000, as the inverse is
// packed once per product.
constexpr int kTrsmChunk = 256;
constexpr int kTrsmBufferAlign = 128;

struct TrsmShape {
  bool trans;  // op(A) = A'
  bool unit;   // unit diagonal, never read
  const double* a;
  int lda;
  // op(A)(i, j)
  double at(int i, int j) const {
    return trans ? a[j + static_cast<ptrdiff_t>(i) * lda] : a[i + static_cast<ptrdiff_t>(j) * lda];
  }
  // Address of op(A)(i, j) as the start of an op(A) block for DGEMM.
  const double* block(int i, int j) const {
    return trans ? a + j + static_cast<ptrdiff_t>(i) * lda
                 : a + i + static_cast<ptrdiff_t>(j) * lda;
  }
};

// Left side, op(A) lower on rows [k0, k0+nb): forward substitution, one
// column of B at a time.
inline void trsm_diag_left_lower(const TrsmShape& s, int k0, int nb, int n, double* b, int ldb) {
  for (int j = 0; j < n; ++j) {
    double* x = b + k0 + static_cast<ptrdiff_t>(j) * ldb;
    if (!s.trans) {
      // Column form: A(k0+i.., k0+k) is contiguous.
      for (int k = 0; k < nb; ++k) {
        if (!s.unit) x[k] /= s.at(k0 + k, k0 + k);
        const double xk = x[k];
        const double* col = s.a + k0 + static_cast<ptrdiff_t>(k0 + k) * s.lda;
        for (int i = k + 1; i < nb; ++i) x[i] -= xk * col[i];
      }
    } else {
      // Dot form: op(A)(i, k) = A(k, i), contiguous in k.
      for (int i = 0; i < nb; ++i) {
        const double* row = s.a + k0 + static_cast<ptrdiff_t>(k0 + i) * s.lda;
        double t = x[i];
        for (int k = 0; k < i; ++k) t -= row[k] * x[k];
        x[i] = s.unit ? t : t / row[i];
      }
    }
  }
}

// Left side, op(A) upper on rows [k0, k0+nb): backward substitution.
inline void trsm_diag_left_upper(const TrsmShape& s, int k0, int nb, int n, double* b, int ldb) {
  for (int j = 0; j < n; ++j) {
    double* x = b + k0 + static_cast<ptrdiff_t>(j) * ldb;
    if (!s.trans) {
      for (int k = nb - 1; k >= 0; --k) {
        if (!s.unit) x[k] /= s.at(k0 + k, k0 + k);
        const double xk = x[k];
        const double* col = s.a + k0 + static_cast<ptrdiff_t>(k0 + k) * s.lda;
        for (int i = 0; i < k; ++i) x[i] -= xk * col[i];
      }
    } else {
      for (int i = nb - 1; i >= 0; --i) {
        const double* row = s.a + k0 + static_cast<ptrdiff_t>(k0 + i) * s.lda;
        double t = x[i];
        for (int k = i + 1; k < nb; ++k) t -= row[k] * x[k];
        x[i] = s.unit ? t : t / row[i];
      }
    }
  }
}

// Right side: column k0+j of X from the columns k0+k, k in [k_begin, k_end),
// already solved, then the division by the diagonal.
inline void trsm_right_column(const TrsmShape& s, int k0, int j, int k_begin, int k_end, int m,
                              double* b, int ldb) {
  double* xj = b + static_cast<ptrdiff_t>(k0 + j) * ldb;
  for (int k = k_begin; k < k_end; ++k) {
    const double t = s.at(k0 + k, k0 + j);
    const double* xk = b + static_cast<ptrdiff_t>(k0 + k) * ldb;
    for (int i = 0; i < m; ++i) xj[i] -= t * xk[i];
  }
  if (!s.unit) {
    const double d = s.at(k0 + j, k0 + j);
    for (int i = 0; i < m; ++i) xj[i] /= d;
  }
}

// Right side, op(A) upper on columns [k0, k0+nb): X(:, j) from the columns
// before it, left to right.
inline void trsm_diag_right_upper(const TrsmShape& s, int k0, int nb, int m, double* b, int ldb) {
  for (int j = 0; j < nb; ++j) trsm_right_column(s, k0, j, 0, j, m, b, ldb);
}

// Right side, op(A) lower on columns [k0, k0+nb): right to left.
inline void trsm_diag_right_lower(const TrsmShape& s, int k0, int nb, int m, double* b, int ldb) {
  for (int j = nb - 1; j >= 0; --j) trsm_right_column(s, k0, j, j + 1, nb, m, b, ldb);
}

// True when every reciprocal of the diagonal of op(A) on [k0, k0+len) is
// exact enough to multiply by: no zero, no denormal, no value whose
// reciprocal would be denormal, nothing that is not finite.
inline bool trsm_diagonal_invertible(const TrsmShape& s, int k0, int len) {
  if (s.unit) return true;
  for (int i = 0; i < len; ++i) {
    const double d = __builtin_fabs(s.at(k0 + i, k0 + i));
    if (!(d >= DBL_MIN && d <= 1.0 / DBL_MIN)) return false;
  }
  return true;
}

// inv := op(A)[k0:k0+len, k0:k0+len]^-1, dense, column-major with leading
// dimension len, by solving for each unit vector.
inline void trsm_invert_leaf(const TrsmShape& s, bool lower, int k0, int len, double* inv) {
  for (int j = 0; j < len; ++j) {
    double* x = inv + static_cast<ptrdiff_t>(j) * len;
    for (int i = 0; i < len; ++i) x[i] = i == j ? 1.0 : 0.0;
    if (lower) {
      for (int i = j; i < len; ++i) {
        double t = x[i];
        for (int k = j; k < i; ++k) t -= s.at(k0 + i, k0 + k) * x[k];
        x[i] = s.unit ? t : t / s.at(k0 + i, k0 + i);
      }
    } else {
      for (int i = j; i >= 0; --i) {
        double t = x[i];
        for (int k = i + 1; k <= j; ++k) t -= s.at(k0 + i, k0 + k) * x[k];
        x[i] = s.unit ? t : t / s.at(k0 + i, k0 + i);
      }
    }
  }
}

template <tarn_xdgemm_fn* Gemm>
void trsm_left_leaf(const TrsmShape& s, bool lower, int k0, int len, int n, double* b, int ldb) {
  if (n < kTrsmInverseMinCols || !trsm_diagonal_invertible(s, k0, len)) {
    if (lower)
      trsm_diag_left_lower(s, k0, len, n, b, ldb);
    else
      trsm_diag_left_upper(s, k0, len, n, b, ldb);
    return;
  }
  // The inverse and a chunk of right-hand sides, from the thread's cached
  // work memory; without it the leaf is solved by substitution.
  void* work =
      tarn_serv_allocate(sizeof(double) * kTrsmLeaf * (kTrsmLeaf + kTrsmChunk), kTrsmBufferAlign);
  if (tarn_serv_check_ptr_and_warn(work, "DTRSM")) {
    if (lower)
      trsm_diag_left_lower(s, k0, len, n, b, ldb);
    else
      trsm_diag_left_upper(s, k0, len, n, b, ldb);
    return;
  }
  double* inv = static_cast<double*>(work);
  double* rhs = inv + kTrsmLeaf * kTrsmLeaf;
  trsm_invert_leaf(s, lower, k0, len, inv);
  const double one = 1.0, zero = 0.0;
  for (int j0 = 0; j0 < n; j0 += kTrsmChunk) {  // right-hand sides, kTrsmChunk at a time
    const int cols = generic_min(kTrsmChunk, n - j0);
    double* bj = b + k0 + static_cast<ptrdiff_t>(j0) * ldb;
    for (int j = 0; j < cols; ++j)
      for (int i = 0; i < len; ++i) rhs[i + j * len] = bj[i + static_cast<ptrdiff_t>(j) * ldb];
    // X = inv * B; beta 0 so that B is only written.
    Gemm("N", "N", &len, &cols, &len, &one, inv, &len, rhs, &len, &zero, bj, &ldb);
  }
  tarn_serv_deallocate(work);
}

// Left side on rows [k0, k0+len): halve, solve the half the triangle starts
// from, update the other half with one product, solve it.
template <tarn_xdgemm_fn* Gemm>
void trsm_left_recursive(const TrsmShape& s, bool lower, int k0, int len, int n, double* b,
                         int ldb) {
  if (len <= kTrsmLeaf) {
    trsm_left_leaf<Gemm>(s, lower, k0, len, n, b, ldb);
    return;
  }
  const int h = (len / 2 + kTrsmSplitUnit - 1) / kTrsmSplitUnit * kTrsmSplitUnit;
  const int rest = len - h;
  const char ta = s.trans ? 'T' : 'N';
  const double minus_one = -1.0, one = 1.0;
  if (lower) {
    trsm_left_recursive<Gemm>(s, lower, k0, h, n, b, ldb);
    // B(k0+h:k0+len, :) -= op(A)(k0+h:, k0:k0+h) * X(k0:k0+h, :)
    Gemm(&ta, "N", &rest, &n, &h, &minus_one, s.block(k0 + h, k0), &s.lda, b + k0, &ldb, &one,
         b + k0 + h, &ldb);
    trsm_left_recursive<Gemm>(s, lower, k0 + h, rest, n, b, ldb);
  } else {
    trsm_left_recursive<Gemm>(s, lower, k0 + h, rest, n, b, ldb);
    // B(k0:k0+h, :) -= op(A)(k0:k0+h, k0+h:) * X(k0+h:k0+len, :)
    Gemm(&ta, "N", &h, &n, &rest, &minus_one, s.block(k0, k0 + h), &s.lda, b + k0 + h, &ldb, &one,
         b + k0, &ldb);
    trsm_left_recursive<Gemm>(s, lower, k0, h, n, b, ldb);
  }
}

template <tarn_xdgemm_fn* Gemm>
void generic_xdtrsm(char side, char uplo, char transa, char diag, int m, int n, double alpha,
                    const double* a, int lda, double* b, int ldb) {
  if (m <= 0 || n <= 0) return;
  if (alpha == 0.0) {
    // Cleared without reading A or B: NaNs in B go too.
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < m; ++i) b[i + static_cast<ptrdiff_t>(j) * ldb] = 0.0;
    return;
  }
  if (alpha != 1.0) {
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < m; ++i) b[i + static_cast<ptrdiff_t>(j) * ldb] *= alpha;
  }
  const TrsmShape s{transa != 'N', diag == 'U', a, lda};
  const char ta = s.trans ? 'T' : 'N';
  // op(A) flips the triangle.
  const bool lower = (uplo == 'L') != s.trans;
  const double minus_one = -1.0;
  const double one = 1.0;

  if (side == 'L') {
    trsm_left_recursive<Gemm>(s, lower, 0, m, n, b, ldb);
    return;
  }

  if (!lower) {
    for (int k0 = 0; k0 < n; k0 += kTrsmNb) {  // order N, kTrsmNb columns at a time, rightward
      const int nb = generic_min(kTrsmNb, n - k0);
      trsm_diag_right_upper(s, k0, nb, m, b, ldb);
      const int rest = n - k0 - nb;
      if (rest > 0) {
        // B(:, k0+nb:) -= X(:, k0:k0+nb) * op(A)(k0:k0+nb, k0+nb:)
        Gemm("N", &ta, &m, &rest, &nb, &minus_one, b + static_cast<ptrdiff_t>(k0) * ldb, &ldb,
             s.block(k0, k0 + nb), &lda, &one, b + static_cast<ptrdiff_t>(k0 + nb) * ldb, &ldb);
      }
    }
  } else {
    for (int end = n; end > 0; end -= kTrsmNb) {  // order N, kTrsmNb columns at a time, leftward
      const int k0 = generic_max(0, end - kTrsmNb);
      const int nb = end - k0;
      trsm_diag_right_lower(s, k0, nb, m, b, ldb);
      if (k0 > 0) {
        // B(:, 0:k0) -= X(:, k0:end) * op(A)(k0:end, 0:k0)
        Gemm("N", &ta, &m, &k0, &nb, &minus_one, b + static_cast<ptrdiff_t>(k0) * ldb, &ldb,
             s.block(k0, 0), &lda, &one, b, &ldb);
      }
    }
  }
}

}  // namespace
