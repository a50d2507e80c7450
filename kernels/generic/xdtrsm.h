// Branch-generic one-thread triangular solve with several right-hand sides,
// op(A)*X = alpha*B or X*op(A) = alpha*B, B overwritten by X. A blocked
// substitution: diagonal blocks of kTrsmNb are solved by plain loops, all
// the rest is a product through the branch's own DGEMM (a template
// argument, so a branch's tuned GEMM serves its solve too). Divisions are
// true divisions: a zero on the diagonal gives infinities, a denormal gives
// what division gives, and diag 'U' never reads the diagonal.
#pragma once

#include <cstddef>

#include "kernels/generic/simd.h"
#include "kernels/kernels.h"

namespace {

constexpr int kTrsmNb = 64;  // order of a diagonal block

struct TrsmShape {
  bool trans;     // op(A) = A'
  bool unit;      // unit diagonal, never read
  const double* a;
  int lda;
  // op(A)(i, j)
  double at(int i, int j) const {
    return trans ? a[j + static_cast<ptrdiff_t>(i) * lda] : a[i + static_cast<ptrdiff_t>(j) * lda];
  }
  // Address of op(A)(i, j) as the start of an op(A) block for DGEMM.
  const double* block(int i, int j) const {
    return trans ? a + j + static_cast<ptrdiff_t>(i) * lda : a + i + static_cast<ptrdiff_t>(j) * lda;
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

// Right side, op(A) upper on columns [k0, k0+nb): X(:, j) from the columns
// before it, left to right.
inline void trsm_diag_right_upper(const TrsmShape& s, int k0, int nb, int m, double* b, int ldb) {
  for (int j = 0; j < nb; ++j) {
    double* xj = b + static_cast<ptrdiff_t>(k0 + j) * ldb;
    for (int k = 0; k < j; ++k) {
      const double t = s.at(k0 + k, k0 + j);
      const double* xk = b + static_cast<ptrdiff_t>(k0 + k) * ldb;
      for (int i = 0; i < m; ++i) xj[i] -= t * xk[i];
    }
    if (!s.unit) {
      const double d = s.at(k0 + j, k0 + j);
      for (int i = 0; i < m; ++i) xj[i] /= d;
    }
  }
}

// Right side, op(A) lower on columns [k0, k0+nb): right to left.
inline void trsm_diag_right_lower(const TrsmShape& s, int k0, int nb, int m, double* b, int ldb) {
  for (int j = nb - 1; j >= 0; --j) {
    double* xj = b + static_cast<ptrdiff_t>(k0 + j) * ldb;
    for (int k = j + 1; k < nb; ++k) {
      const double t = s.at(k0 + k, k0 + j);
      const double* xk = b + static_cast<ptrdiff_t>(k0 + k) * ldb;
      for (int i = 0; i < m; ++i) xj[i] -= t * xk[i];
    }
    if (!s.unit) {
      const double d = s.at(k0 + j, k0 + j);
      for (int i = 0; i < m; ++i) xj[i] /= d;
    }
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
    if (lower) {
      for (int k0 = 0; k0 < m; k0 += kTrsmNb) {  // order M, kTrsmNb rows at a time, downward
        const int nb = generic_min(kTrsmNb, m - k0);
        trsm_diag_left_lower(s, k0, nb, n, b, ldb);
        const int rest = m - k0 - nb;
        if (rest > 0) {
          // B(k0+nb:, :) -= op(A)(k0+nb:, k0:k0+nb) * X(k0:k0+nb, :)
          Gemm(&ta, "N", &rest, &n, &nb, &minus_one, s.block(k0 + nb, k0), &lda, b + k0, &ldb,
               &one, b + k0 + nb, &ldb);
        }
      }
    } else {
      for (int end = m; end > 0; end -= kTrsmNb) {  // order M, kTrsmNb rows at a time, upward
        const int k0 = generic_max(0, end - kTrsmNb);
        const int nb = end - k0;
        trsm_diag_left_upper(s, k0, nb, n, b, ldb);
        if (k0 > 0) {
          // B(0:k0, :) -= op(A)(0:k0, k0:end) * X(k0:end, :)
          Gemm(&ta, "N", &k0, &n, &nb, &minus_one, s.block(0, k0), &lda, b + k0, &ldb, &one, b,
               &ldb);
        }
      }
    }
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
