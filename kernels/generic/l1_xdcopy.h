// y := x, the branch-generic body of every branch's xdcopy.
#pragma once

#include "kernels/generic/l1_stream.h"
#include "kernels/kernels.h"

namespace {

// The alignment peel is on y, the operand written; other strides copy in
// scalar. A zero increment is the BLAS broadcast or repeated store.
inline void l1_xdcopy(int n, const double* x, int incx, double* y, int incy) {
  if (n < 1) return;
  if (incx == 1 && incy == 1) {
    l1_stream_unit(
        n, y, [=](int i) { y[i] = x[i]; },
        [=](auto aligned, int i) { l12_store(aligned, y + i, L12Vec::load(x + i)); });
    return;
  }
  const double* xs = l12_vector_base(x, n, incx);
  double* ys = l12_vector_base(y, n, incy);
  const ptrdiff_t ix = incx, iy = incy;
  l1_stream_strided(n, [=](int i) { ys[i * iy] = xs[i * ix]; });
}

}  // namespace

// The entry of a branch, kernels/<br>/xdcopy.cpp.
#define TARN_XDCOPY_ENTRY(br)                                                             \
  extern "C" void tarn_blas_##br##_xdcopy(const int* n, const double* x, const int* incx, \
                                          double* y, const int* incy) {                   \
    l1_xdcopy(*n, x, *incx, y, *incy);                                                    \
  }
