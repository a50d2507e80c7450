// One-thread DGEMM of the avx2 branch: the choice between the packed and
// the packing-free path, both on a 28 by 1 tile: seven accumulators of four rows, A taken from memory as the
// fused multiply-add's operand, one register for the broadcast B value.
// Seven chains bound it at 7/8 of the peak, where six accumulators (the
// 12 by 2 and 4 by 6 tiles) stop at 6/8. Measured here on one packed panel
// in the first-level cache: 28x1 70 % of the peak loop, 4x6 50 %, 12x2 and
// 8x3 33 % (the compiler spills those). The A panel of 28 rows must stay in
// the first-level cache: with a depth block of 192 (42 KiB) the kernel ran
// at 78 %, with 128 at 70 % (the per-tile overhead weighs more), with 256 at
// 57 % (the panel no longer fits).
#include <immintrin.h>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_microkernel.h"
#include "kernels/generic/gemm_nocopy.h"

namespace {

struct Avx2Vector {
  using T = __m256d;
  static constexpr int width = 4;
  static T zero() { return _mm256_setzero_pd(); }
  static T load(const double* p) { return _mm256_loadu_pd(p); }
  static T splat(const double* p) { return _mm256_broadcast_sd(p); }
  static T madd(T a, T b, T acc) { return _mm256_fmadd_pd(a, b, acc); }
  static T add(T x, T y) { return _mm256_add_pd(x, y); }
  static void store(double* p, T x) { _mm256_storeu_pd(p, x); }
};

struct Avx2Sizes {
  static constexpr int kc_min = 128, kc_low = 192, kc_high = 384, kc_large = 192;
  static constexpr int mc_max = 5000, nc_max = 512, nc_max_small_k = 24, small_k = 48;
  static constexpr int pst_m_limit = 8, pst_n_limit = 2;
};

using Avx2Gemm = GemmMemoryATileRecord<Avx2Vector, 7, 1, Avx2Sizes>;

struct Avx2GemmNocopy : Avx2Gemm {
  static constexpr int nocopy_max_k = 256;
  static constexpr int nocopy_max_cols = 96;
};

// K, M, N limits of the packing-free driver by transposition: (a, b, c) as
// told there.
constexpr GemmNocopyLimit kNocopyM = {8064, 4032, 6048};
constexpr GemmNocopyLimits kNocopyLimitsNN = {{192, 96, 96}, kNocopyM, {192, 96, 144}};
constexpr GemmNocopyLimits kNocopyLimitsNT = {{384, 192, 192}, kNocopyM, {192, 96, 144}};
constexpr GemmNocopyLimits kNocopyLimitsTN = {{192, 96, 96}, kNocopyM, {96, 48, 72}};
constexpr GemmNocopyLimits kNocopyLimitsTT = {{512, 256, 256}, kNocopyM, {96, 48, 72}};

// Thresholds of the path choice.
constexpr int kSquareNocopyOrder1 = 9, kSquareNocopyOrder2 = 12;
constexpr int kShallowK = 128, kThinQ = 10, kThinNocopyMaxM = 100, kThinPackedMinN = 10;
constexpr int kVeryShallowK = 10, kTinyK = 6, kTinySide = 40;
constexpr int kNocopyBelowMN = 72, kNocopyBelowNN = 24, kNocopyBelowT = 56;

// True for the packing-free path, false for the packed one.
bool avx2_take_nocopy(bool ta, int m, int n, int k, double alpha, double beta) {
  if (m == k && (m == kSquareNocopyOrder1 || m == kSquareNocopyOrder2) && beta == 0.0)
    return true;
  if (alpha == 0.0) return false;
  if (k <= kShallowK) {
    const int q = (int)(((long long)m * n) / ((long long)m + n));
    if (q <= kThinQ) {
      if (m <= kThinNocopyMaxM) return true;
      if (n > kThinPackedMinN) return false;
      if (k <= kVeryShallowK) return true;
      return false;
    }
    if (k <= kTinyK && m <= kTinySide && n <= kTinySide) return true;
  }
  if (!ta) return m < kNocopyBelowMN || n < kNocopyBelowNN;
  return m < kNocopyBelowT || n < kNocopyBelowT;
}

}  // namespace

extern "C" void tarn_blas_avx2_xdgemm(const char* transa, const char* transb, const int* m,
                                      const int* n, const int* k, const double* alpha,
                                      const double* a, const int* lda, const double* b,
                                      const int* ldb, const double* beta, double* c,
                                      const int* ldc) {
  const int mm = *m, nn = *n, kk = *k;
  if (mm <= 0 || nn <= 0) return;
  const bool ta = gemm_is_trans(transa), tb = gemm_is_trans(transb);
  if (avx2_take_nocopy(ta, mm, nn, kk, *alpha, *beta)) {
    const GemmNocopyLimits& lim = ta ? (tb ? kNocopyLimitsTT : kNocopyLimitsTN)
                                     : (tb ? kNocopyLimitsNT : kNocopyLimitsNN);
    gemm_nocopy_driver<Avx2GemmNocopy>(ta, tb, mm, nn, kk, *alpha, a, *lda, b, *ldb, *beta, c,
                                       *ldc, lim);
  } else {
    gemm_packed_path<Avx2Gemm>(kGemmLoopOrderRowsFirst, ta, tb, mm, nn, kk, *alpha, a, *lda, b,
                               *ldb, *beta, c, *ldc);
  }
  _mm256_zeroupper();
}
