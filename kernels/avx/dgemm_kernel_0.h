// The packed tile record of the avx branch, shared by its one-thread
// DGEMM (xdgemm.cpp) and its kernel-table services (dgemm_kernel_table.cpp).
// Included only by kernels/avx/*.cpp (anonymous namespace).
#pragma once

#include <immintrin.h>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_microkernel.h"

namespace {

struct AvxVector {
  using T = __m256d;
  static constexpr int width = 4;
  static T zero() { return _mm256_setzero_pd(); }
  static T load(const double* p) { return _mm256_loadu_pd(p); }
  static T splat(const double* p) { return _mm256_broadcast_sd(p); }
  static T madd(T a, T b, T acc) { return _mm256_add_pd(acc, _mm256_mul_pd(a, b)); }
  static T add(T x, T y) { return _mm256_add_pd(x, y); }
  static void store(double* p, T x) { _mm256_storeu_pd(p, x); }
};

struct AvxSizes {
  static constexpr int kc_min = 128, kc_low = 256, kc_high = 512, kc_large = 256;
  static constexpr int mc_max = 4992, nc_max = 192, nc_max_small_k = 24, small_k = 48;
  // Smallest M, N, K of the blocked path (first words of the kernel table).
  static constexpr int pst_m_limit = 4, pst_n_limit = 4, pst_k_limit = 4;
};

using AvxGemm = GemmVectorTileRecord<AvxVector, 6, AvxSizes>;

}  // namespace
