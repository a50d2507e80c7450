// One-thread DGEMM of the avx2 branch: the choice between the packed and
// the packing-free path, both on the 28 by 1 tile of dgemm_kernel_0.h.
#include "kernels/avx2/dgemm_kernel_0.h"
#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_nocopy.h"

namespace {

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
    gemm_nocopy_driver<Avx2GemmDesc::Nocopy>(ta, tb, mm, nn, kk, *alpha, a, *lda, b, *ldb,
                                             *beta, c, *ldc, Avx2GemmDesc::nocopy_limits(ta, tb));
  } else {
    gemm_packed_path<Avx2Gemm>(kGemmLoopOrderRowsFirst, ta, tb, mm, nn, kk, *alpha, a, *lda, b,
                               *ldb, *beta, c, *ldc);
  }
  _mm256_zeroupper();
}
