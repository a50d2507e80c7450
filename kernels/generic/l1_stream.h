// The loop shape shared by the element-wise level-1 kernels (scal, axpy,
// copy, swap): one walk over n elements with the alignment handling of the
// written operand, the body supplied by the kernel.
//
// Unit strides: below one vector's worth, scalar; below kL1PeelFrom
// elements, vectors at once with no alignment work (the peel would cost
// more than the aligned stores save); otherwise single elements up to the
// next vector boundary of the written operand (only when it is 8-byte
// aligned: a 4-byte aligned double never reaches one), then four vectors per
// iteration with aligned stores, then single vectors, then single elements.
// Other strides: scalar, unrolled by kL1StridedUnroll.
#pragma once

#include "kernels/generic/l1_vector.h"

namespace {

constexpr int kL1PeelFrom = 49;       // shortest unit-stride walk worth an alignment peel
constexpr int kL1VectorsPerStep = 4;  // vectors per iteration of the aligned main loop
constexpr int kL1StridedUnroll = 8;   // scalar elements per iteration on other strides

// Unit strides. `w` is the operand written; one(i) does element i in
// scalar, vec(aligned, i) elements i .. i+W-1, where `aligned` (L12Aligned
// or L12Unaligned) tells whether w + i lies on a vector boundary.
template <class One, class Vec>
inline void l1_stream_unit(int n, const double* w, One one, Vec vec) {
  constexpr int W = L12Vec::kWidth;
  int i = 0;
  if (n < W) {
    for (; i < n; ++i) one(i);
    return;
  }
  if (n < kL1PeelFrom) {
    for (; i + W <= n; i += W) vec(L12Unaligned{}, i);
    for (; i < n; ++i) one(i);
    return;
  }
  const int peel = l12_peel_to_boundary(w);
  if (peel < 0) {
    // Elements i, W at a time, with no boundary in reach.
    for (; i + kL1VectorsPerStep * W <= n; i += kL1VectorsPerStep * W) {
      vec(L12Unaligned{}, i);
      vec(L12Unaligned{}, i + W);
      vec(L12Unaligned{}, i + 2 * W);
      vec(L12Unaligned{}, i + 3 * W);
    }
  } else {
    for (; i < peel; ++i) one(i);
    // Elements i, four aligned vectors at a time.
    for (; i + kL1VectorsPerStep * W <= n; i += kL1VectorsPerStep * W) {
      vec(L12Aligned{}, i);
      vec(L12Aligned{}, i + W);
      vec(L12Aligned{}, i + 2 * W);
      vec(L12Aligned{}, i + 3 * W);
    }
  }
  for (; i + W <= n; i += W) vec(L12Unaligned{}, i);
  for (; i < n; ++i) one(i);
}

// Other strides: one(i) on element i of the walk, unrolled.
template <class One>
inline void l1_stream_strided(int n, One one) {
  int i = 0;
  for (; i + kL1StridedUnroll <= n; i += kL1StridedUnroll) {
    one(i);
    one(i + 1);
    one(i + 2);
    one(i + 3);
    one(i + 4);
    one(i + 5);
    one(i + 6);
    one(i + 7);
  }
  for (; i < n; ++i) one(i);
}

}  // namespace
