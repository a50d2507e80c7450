// The packed tile record of the cnr_sse2 branch, shared by its one-thread
// DGEMM (xdgemm.cpp) and the named pieces of its fixed driver
// (dgemm_fixed_pieces.cpp). Included only by kernels/cnr_sse2/*.cpp
// (anonymous namespace).
#pragma once

#include <emmintrin.h>
#include <pmmintrin.h>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_microkernel.h"

namespace {

struct CnrSse2Vector {
  using T = __m128d;
  static constexpr int width = 2;
  static T zero() { return _mm_setzero_pd(); }
  static T load(const double* p) { return _mm_loadu_pd(p); }
  static T splat(const double* p) { return _mm_load1_pd(p); }
  static T madd(T a, T b, T acc) { return _mm_add_pd(acc, _mm_mul_pd(a, b)); }
  static T add(T x, T y) { return _mm_add_pd(x, y); }
  static void store(double* p, T x) { _mm_storeu_pd(p, x); }
};

struct CnrSse2Sizes {
  static constexpr int kc_min = 128, kc_low = 256, kc_high = 512, kc_large = 256;
  static constexpr int mc_max = 4992, nc_max = 192, nc_max_small_k = 24, small_k = 48;
  // Smallest M, N, K of the blocked path (first words of the kernel table).
  static constexpr int pst_m_limit = 2, pst_n_limit = 4, pst_k_limit = 4;
};

using CnrSse2Gemm = GemmVectorTileRecord<CnrSse2Vector, 6, CnrSse2Sizes>;

}  // namespace
