// Packed tile records of the 128-bit branches without fused multiply-add:
// two rows by six columns, a multiply and an add per lane. The branches
// differ only in how a B value is broadcast, so each branch's
// dgemm_kernel_0.h names one of the two vector forms below. Included only by
// kernel translation units, each compiled with its branch's flags
// (anonymous namespace).
#pragma once

#include <emmintrin.h>
#include <pmmintrin.h>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_microkernel.h"

namespace {

// SSE2: the broadcast is a scalar load and a shuffle.
struct GemmSse2Vector {
  using T = __m128d;
  static constexpr int width = 2;
  static T zero() { return _mm_setzero_pd(); }
  static T load(const double* p) { return _mm_loadu_pd(p); }
  static T splat(const double* p) { return _mm_load1_pd(p); }
  static T madd(T a, T b, T acc) { return _mm_add_pd(acc, _mm_mul_pd(a, b)); }
  static T add(T x, T y) { return _mm_add_pd(x, y); }
  static void store(double* p, T x) { _mm_storeu_pd(p, x); }
};

// SSE3 and later: the duplicating load broadcasts in one instruction.
struct GemmSse3Vector : GemmSse2Vector {
  static T splat(const double* p) { return _mm_loaddup_pd(p); }
};

// Block sizes of the 2 by 6 tile, the same on every 128-bit branch.
struct GemmSseSizes {
  static constexpr int kc_min = 128, kc_low = 256, kc_high = 512, kc_large = 256;
  static constexpr int mc_max = 4992, nc_max = 192, nc_max_small_k = 24, small_k = 48;
  // Smallest M, N, K of the blocked path (first words of the kernel table).
  static constexpr int pst_m_limit = 2, pst_n_limit = 4, pst_k_limit = 4;
};

constexpr int kGemmSseTileColumns = 6;

}  // namespace
