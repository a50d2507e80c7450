// One-thread DGEMM of the avx512 branch: the choice between the packed
// path, the packing-free path and the two-or-three-column routines, all on
// this branch's 8 by 7 tile.
#include "kernels/avx512/dgemm_kernel_0.h"
#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_driver.h"
#include "kernels/generic/gemm_smalln.h"

namespace {

// Below this many rows or columns the packing would not pay for itself. In
// 64-bit mode a deep product (K at least that) with one side that long and
// the other at least kNocopyBelowShort packs too: the packing-free path
// would copy its A panels again for every column block. Shallow ones stay
// packing-free: the LU's panel updates (K of 48) ran faster that way.
constexpr int kNocopyBelow = 192;
#if defined(__x86_64__)
constexpr int kNocopyBelowShort = 96;
#else
constexpr int kNocopyBelowShort = kNocopyBelow;
#endif

bool avx512_packs(int m, int n, int k) {
  const int lo = m < n ? m : n, hi = m < n ? n : m;
  if (lo >= kNocopyBelow) return true;
  return hi >= kNocopyBelow && lo >= kNocopyBelowShort && k >= kNocopyBelow;
}

}  // namespace

extern "C" void tarn_blas_avx512_xdgemm(const char* transa, const char* transb, const int* m,
                                        const int* n, const int* k, const double* alpha,
                                        const double* a, const int* lda, const double* b,
                                        const int* ldb, const double* beta, double* c,
                                        const int* ldc) {
  const int mm = *m, nn = *n, kk = *k;
  if (mm <= 0 || nn <= 0) return;
  const bool ta = gemm_is_trans(transa), tb = gemm_is_trans(transb);
  if (kk > 0 && ta && !tb && (nn == 2 || nn == 3)) {
    if (nn == 2)
      gemm_t_smalln<2>(mm, kk, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
    else
      gemm_t_smalln<3>(mm, kk, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
    return;
  }
  if (kk > 0 && !ta && !tb && nn == 2) {
    gemm_n_smalln<2>(mm, kk, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
    return;
  }
  bool packed;
  if (*alpha == 0.0)
    packed = true;
  else if (!ta)
    packed = avx512_packs(mm, nn, kk);
  else if (mm > nn && mm >= kk)
    packed = true;
  else
    packed = avx512_packs(mm, nn, kk);
  if (packed)
    gemm_packed_path<Avx512Gemm>(kGemmLoopOrderRowsFirst, ta, tb, mm, nn, kk, *alpha, a, *lda, b,
                                 *ldb, *beta, c, *ldc);
  else
    gemm_nocopy_driver<Avx512GemmDesc::Nocopy>(ta, tb, mm, nn, kk, *alpha, a, *lda, b, *ldb,
                                               *beta, c, *ldc,
                                               Avx512GemmDesc::nocopy_limits(ta, tb));
  _mm256_zeroupper();
}
