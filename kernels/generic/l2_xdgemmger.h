// C := beta*C + alpha*x*y', the K = 1 product, the branch-generic body of
// every branch's xdgemmger.
#pragma once

#include "kernels/generic/l2_rows.h"
#include "kernels/kernels.h"

namespace {

// Beta 0 does not read C; alpha 0 with beta 0 stores zeros (whatever x and
// y hold); alpha 0 with beta 1 returns at once.
inline void l2_xdgemmger(int m, int n, double alpha, const double* x, int incx, const double* y,
                         int incy, double beta, double* c, int ldc) {
  if (m < 1 || n < 1) return;
  if (alpha == 0.0 && beta == 1.0) return;
  const double* xs = l12_vector_base(x, m, incx);
  const double* ys = l12_vector_base(y, n, incy);
  const ptrdiff_t ix = incx;
  const L12Vec::V vb = L12Vec::set1(beta);
  // Columns of C, one at a time.
  for (int j = 0; j < n; ++j) {
    double* cj = c + static_cast<ptrdiff_t>(j) * ldc;
    const double t = alpha == 0.0 ? 0.0 : alpha * ys[static_cast<ptrdiff_t>(j) * incy];
    const L12Vec::V vt = L12Vec::set1(t);
    if (alpha == 0.0) {
      if (beta == 0.0) {
        l2_rows(m, [=](int i) { cj[i] = 0.0; }, [=](int i) { L12Vec::store(cj + i, L12Vec::zero()); });
      } else {
        l2_rows(
            m, [=](int i) { cj[i] *= beta; },
            [=](int i) { L12Vec::store(cj + i, L12Vec::mul(vb, L12Vec::load(cj + i))); });
      }
    } else if (incx != 1) {
      for (int i = 0; i < m; ++i) {
        const double xi = xs[i * ix];
        cj[i] = beta == 0.0   ? t * xi
                : beta == 1.0 ? l12_fma1(t, xi, cj[i])
                              : l12_fma1(t, xi, beta * cj[i]);
      }
    } else if (beta == 0.0) {
      l2_rows(
          m, [=](int i) { cj[i] = t * xs[i]; },
          [=](int i) { L12Vec::store(cj + i, L12Vec::mul(vt, L12Vec::load(xs + i))); });
    } else if (beta == 1.0) {
      l2_rows(
          m, [=](int i) { cj[i] = l12_fma1(t, xs[i], cj[i]); },
          [=](int i) {
            L12Vec::store(cj + i, L12Vec::fmadd(vt, L12Vec::load(xs + i), L12Vec::load(cj + i)));
          });
    } else {
      l2_rows(
          m, [=](int i) { cj[i] = l12_fma1(t, xs[i], beta * cj[i]); },
          [=](int i) {
            L12Vec::store(cj + i, L12Vec::fmadd(vt, L12Vec::load(xs + i),
                                                L12Vec::mul(vb, L12Vec::load(cj + i))));
          });
    }
  }
}

}  // namespace

// The entry of a branch, kernels/<br>/xdgemmger.cpp. The transposition
// characters only tell where x and y came from; their strides say how to
// walk them.
#define TARN_XDGEMMGER_ENTRY(br)                                                               \
  extern "C" void tarn_blas_##br##_xdgemmger(                                                  \
      const char* /*transa*/, const char* /*transb*/, const int* m, const int* n,              \
      const double* alpha, const double* x, const int* incx, const double* y, const int* incy, \
      const double* beta, double* c, const int* ldc) {                                         \
    l2_xdgemmger(*m, *n, *alpha, x, *incx, y, *incy, *beta, c, *ldc);                          \
  }
