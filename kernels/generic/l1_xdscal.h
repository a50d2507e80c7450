// x := alpha*x, the branch-generic body of every branch's xdscal.
#pragma once

#include "kernels/generic/l1_stream.h"
#include "kernels/kernels.h"

namespace {

// Alpha 0 stores zeros and reads nothing, so NaNs in x are cleared; alpha
// 1 is not special (it still multiplies, and quiets signalling NaNs).
inline void l1_xdscal(int n, double alpha, double* x, int incx) {
  if (n < 1 || incx < 1) return;
  if (incx == 1) {
    const L12Vec::V va = L12Vec::set1(alpha);
    const L12Vec::V vz = L12Vec::zero();
    if (alpha == 0.0) {
      l1_stream_unit(
          n, x, [=](int i) { x[i] = 0.0; },
          [=](auto aligned, int i) { l12_store(aligned, x + i, vz); });
    } else {
      l1_stream_unit(
          n, x, [=](int i) { x[i] *= alpha; },
          [=](auto aligned, int i) {
            l12_store(aligned, x + i, L12Vec::mul(va, l12_load(aligned, x + i)));
          });
    }
    return;
  }
  const ptrdiff_t inc = incx;
  if (alpha == 0.0) {
    l1_stream_strided(n, [=](int i) { x[i * inc] = 0.0; });
  } else {
    l1_stream_strided(n, [=](int i) { x[i * inc] *= alpha; });
  }
}

}  // namespace

// The entry of a branch, kernels/<br>/xdscal.cpp.
#define TARN_XDSCAL_ENTRY(br)                                                           \
  extern "C" void tarn_blas_##br##_xdscal(const int* n, const double* alpha, double* x, \
                                          const int* incx) {                            \
    l1_xdscal(*n, *alpha, x, *incx);                                                    \
  }
