// Branch-generic level-2 kernels: the matrix-vector product, the rank-one
// update of a K = 1 product and the triangular solve with one right-hand
// side. Every sum is taken in an order fixed by the indices alone (no peel
// that depends on where the data lie), so the results are the same bits for
// copies of the same data at any alignment: the reproducible form is the
// only form here.
#pragma once

#include <cstddef>

#include "kernels/generic/level1.h"
#include "kernels/generic/simd.h"

namespace {

// y := alpha*op(A)*x + beta*y. Beta 0 does not read y.
inline void generic_xdgemv(char trans, int m, int n, double alpha, const double* a, int lda,
                           const double* x, ptrdiff_t incx, double beta, double* y,
                           ptrdiff_t incy) {
  if (m < 1 || n < 1) return;
  if (alpha == 0.0 && beta == 1.0) return;
  const bool t = trans != 'N';
  const int leny = t ? n : m;
  const int lenx = t ? m : n;
  double* ys = y + generic_vector_start(leny, incy);
  const double* xs = x + generic_vector_start(lenx, incx);
  if (beta != 1.0) {
    for (int i = 0; i < leny; ++i) ys[i * incy] = beta == 0.0 ? 0.0 : beta * ys[i * incy];
  }
  if (alpha == 0.0) return;

  if (!t) {
    // y += A * (alpha*x), four columns at a time.
    int j = 0;
    for (; j + 4 <= n; j += 4) {  // columns of A, 4 at a time
      const double t0 = alpha * xs[j * incx], t1 = alpha * xs[(j + 1) * incx];
      const double t2 = alpha * xs[(j + 2) * incx], t3 = alpha * xs[(j + 3) * incx];
      const double* a0 = a + static_cast<ptrdiff_t>(j) * lda;
      const double* a1 = a0 + lda;
      const double* a2 = a1 + lda;
      const double* a3 = a2 + lda;
      if (incy == 1) {
        for (int i = 0; i < m; ++i) ys[i] += ((a0[i] * t0 + a1[i] * t1) + a2[i] * t2) + a3[i] * t3;
      } else {
        for (int i = 0; i < m; ++i)
          ys[i * incy] += ((a0[i] * t0 + a1[i] * t1) + a2[i] * t2) + a3[i] * t3;
      }
    }
    for (; j < n; ++j) {  // the last columns one by one
      const double t0 = alpha * xs[j * incx];
      const double* a0 = a + static_cast<ptrdiff_t>(j) * lda;
      for (int i = 0; i < m; ++i) ys[i * incy] += a0[i] * t0;
    }
    return;
  }

  // y(j) += alpha * A(:, j)' x
  for (int j = 0; j < n; ++j) {  // columns of A, one dot product each
    const double* aj = a + static_cast<ptrdiff_t>(j) * lda;
    double s;
    if (incx == 1) {
      s = generic_dot_unit(m, aj, xs);
    } else {
      s = 0.0;
      for (int i = 0; i < m; ++i) s += aj[i] * xs[i * incx];
    }
    ys[j * incy] += alpha * s;
  }
}

// C := beta*C + alpha*x*y'. Beta 0 does not read C.
inline void generic_xdgemmger(int m, int n, double alpha, const double* x, ptrdiff_t incx,
                              const double* y, ptrdiff_t incy, double beta, double* c, int ldc) {
  if (m < 1 || n < 1) return;
  if (alpha == 0.0 && beta == 1.0) return;
  const double* xs = x + generic_vector_start(m, incx);
  const double* ys = y + generic_vector_start(n, incy);
  for (int j = 0; j < n; ++j) {  // columns of C
    double* cj = c + static_cast<ptrdiff_t>(j) * ldc;
    const double t = alpha * ys[j * incy];
    if (beta == 0.0) {
      if (alpha == 0.0) {
        for (int i = 0; i < m; ++i) cj[i] = 0.0;
      } else {
        for (int i = 0; i < m; ++i) cj[i] = t * xs[i * incx];
      }
    } else if (beta == 1.0) {
      for (int i = 0; i < m; ++i) cj[i] += t * xs[i * incx];
    } else if (alpha == 0.0) {
      for (int i = 0; i < m; ++i) cj[i] *= beta;
    } else {
      for (int i = 0; i < m; ++i) cj[i] = beta * cj[i] + t * xs[i * incx];
    }
  }
}

// op(A)*x = b for triangular A, x overwriting b. Lower 'N' and upper 'T'
// walk forward, the other two backward; the 'N' forms work by columns
// (an update of the rest of x per solved value), the 'T' forms by dot
// products down a column. Each value is divided by its diagonal with a true
// division; 'U' never reads the diagonal.
inline void generic_xdtrsv(char uplo, char trans, char diag, int n, const double* a, int lda,
                           double* x, ptrdiff_t incx) {
  if (n < 1 || incx == 0) return;
  const bool t = trans != 'N';
  const bool unit = diag == 'U';
  const bool lower = uplo == 'L';
  double* xs = x + generic_vector_start(n, incx);
  const ptrdiff_t ld = lda;
  const ptrdiff_t inc = incx;
  if (!t) {
    if (lower) {
      for (int j = 0; j < n; ++j) {
        const double* col = a + j * ld;
        if (!unit) xs[j * inc] /= col[j];
        const double xj = xs[j * inc];
        if (inc == 1) {
          for (int i = j + 1; i < n; ++i) xs[i] -= xj * col[i];
        } else {
          for (int i = j + 1; i < n; ++i) xs[i * inc] -= xj * col[i];
        }
      }
    } else {
      for (int j = n - 1; j >= 0; --j) {
        const double* col = a + j * ld;
        if (!unit) xs[j * inc] /= col[j];
        const double xj = xs[j * inc];
        if (inc == 1) {
          for (int i = 0; i < j; ++i) xs[i] -= xj * col[i];
        } else {
          for (int i = 0; i < j; ++i) xs[i * inc] -= xj * col[i];
        }
      }
    }
    return;
  }
  if (!lower) {
    // op(A) = U' is lower: x(j) = (b(j) - U(0:j, j)' x(0:j)) / U(j, j)
    for (int j = 0; j < n; ++j) {
      const double* col = a + j * ld;
      double s = (inc == 1) ? generic_dot_unit(j, col, xs) : 0.0;
      if (inc != 1)
        for (int i = 0; i < j; ++i) s += col[i] * xs[i * inc];
      const double v = xs[j * inc] - s;
      xs[j * inc] = unit ? v : v / col[j];
    }
  } else {
    // op(A) = L' is upper: x(j) = (b(j) - L(j+1:n, j)' x(j+1:n)) / L(j, j)
    for (int j = n - 1; j >= 0; --j) {
      const double* col = a + j * ld;
      double s = (inc == 1) ? generic_dot_unit(n - j - 1, col + j + 1, xs + j + 1) : 0.0;
      if (inc != 1)
        for (int i = j + 1; i < n; ++i) s += col[i] * xs[i * inc];
      const double v = xs[j * inc] - s;
      xs[j * inc] = unit ? v : v / col[j];
    }
  }
}

}  // namespace
