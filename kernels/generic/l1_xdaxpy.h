// y := alpha*x + y, the branch-generic body of every branch's xdaxpy.
#pragma once

#include "kernels/generic/l1_stream.h"
#include "kernels/kernels.h"

namespace {

// Returns at once for n below 1 or alpha 0 (y is not even read). The
// alignment peel is on y, the operand written.
inline void l1_xdaxpy(int n, double alpha, const double* x, int incx, double* y, int incy) {
  if (n < 1 || alpha == 0.0) return;
  if (incx == 1 && incy == 1) {
    const L12Vec::V va = L12Vec::set1(alpha);
    l1_stream_unit(
        n, y, [=](int i) { y[i] = l12_fma1(alpha, x[i], y[i]); },
        [=](auto aligned, int i) {
          l12_store(aligned, y + i,
                    L12Vec::fmadd(va, L12Vec::load(x + i), l12_load(aligned, y + i)));
        });
    return;
  }
  const double* xs = l12_vector_base(x, n, incx);
  double* ys = l12_vector_base(y, n, incy);
  const ptrdiff_t ix = incx, iy = incy;
  l1_stream_strided(n, [=](int i) { ys[i * iy] = l12_fma1(alpha, xs[i * ix], ys[i * iy]); });
}

}  // namespace

// The entry of a branch, kernels/<br>/xdaxpy.cpp.
#define TARN_XDAXPY_ENTRY(br)                                                                 \
  extern "C" void tarn_blas_##br##_xdaxpy(const int* n, const double* alpha, const double* x, \
                                          const int* incx, double* y, const int* incy) {      \
    l1_xdaxpy(*n, *alpha, x, *incx, y, *incy);                                                \
  }
