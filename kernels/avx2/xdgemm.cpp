// One-thread DGEMM of the avx2 branch: the shared blocked driver with a 28
// by 1 tile: seven accumulators of four rows, A taken from memory as the
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

}  // namespace

extern "C" void tarn_blas_avx2_xdgemm(const char* transa, const char* transb, const int* m,
                                      const int* n, const int* k, const double* alpha,
                                      const double* a, const int* lda, const double* b,
                                      const int* ldb, const double* beta, double* c,
                                      const int* ldc) {
  gemm_packed_path<Avx2Gemm>(kGemmLoopOrderRowsFirst, gemm_is_trans(transa),
                             gemm_is_trans(transb), *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta,
                             c, *ldc);
  _mm256_zeroupper();
}
