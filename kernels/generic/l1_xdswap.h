// x <-> y, the branch-generic body of every branch's xdswap.
#pragma once

#include "kernels/generic/l1_stream.h"
#include "kernels/kernels.h"

namespace {

// Both operands are written; the alignment peel is on y, as for axpy.
inline void l1_xdswap(int n, double* x, int incx, double* y, int incy) {
  if (n < 1) return;
  if (incx == 1 && incy == 1) {
    l1_stream_unit(
        n, y,
        [=](int i) {
          const double t = x[i];
          x[i] = y[i];
          y[i] = t;
        },
        [=](auto aligned, int i) {
          const L12Vec::V vx = L12Vec::load(x + i);
          L12Vec::store(x + i, l12_load(aligned, y + i));
          l12_store(aligned, y + i, vx);
        });
    return;
  }
  double* xs = l12_vector_base(x, n, incx);
  double* ys = l12_vector_base(y, n, incy);
  const ptrdiff_t ix = incx, iy = incy;
  l1_stream_strided(n, [=](int i) {
    const double t = xs[i * ix];
    xs[i * ix] = ys[i * iy];
    ys[i * iy] = t;
  });
}

}  // namespace

// The entry of a branch, kernels/<br>/xdswap.cpp.
#define TARN_XDSWAP_ENTRY(br)                                                                  \
  extern "C" void tarn_blas_##br##_xdswap(const int* n, double* x, const int* incx, double* y, \
                                          const int* incy) {                                   \
    l1_xdswap(*n, x, *incx, y, *incy);                                                         \
  }
