// avx2: the one-thread triangular solve. Narrow orders go to xdtrsm_v1;
// the rest to the packed drivers, whose tiles and updates run this branch's
// DGEMM micro-kernel (the 4 by 6 tile of xdgemm.cpp: six accumulators, the
// A vector, one broadcast register) and its DGEMM.
#include <immintrin.h>

#include "kernels/generic/gemm_microkernel.h"
#include "kernels/generic/trsm_packed.h"
#include "kernels/trsm_desc.h"

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

// The depth block of the product (kc at the high limit) is the diagonal
// block of the solve; nc_max bounds its column block.
struct Avx2TrsmSizes {
  static constexpr int kc_large = 192, nc_max = 192;
};

using Avx2TrsmGemm = GemmVectorTileRecord<Avx2Vector, 6, Avx2TrsmSizes>;

}  // namespace

extern "C" void tarn_blas_avx2_xdtrsm(const char* side, const char* uplo, const char* transa,
                                      const char* diag, const int* m, const int* n,
                                      const double* alpha, const double* a, const int* lda,
                                      double* b, const int* ldb) {
  xdtrsm_descriptor_impl<Avx2TrsmGemm, tarn_blas_avx2_xdgemm, tarn_blas_avx2_dgemm_mscale,
                         tarn_blas_avx2_xdtrsm_v1>(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
  _mm256_zeroupper();
}
