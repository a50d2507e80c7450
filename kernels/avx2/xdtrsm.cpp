// avx2: the one-thread triangular solve. Narrow orders go to xdtrsm_v1;
// the rest is described by the product's records and solved by the packed
// drivers: the updates beyond each diagonal block run this branch's DGEMM,
// the tiles of the block a micro-kernel whose height is a power of two (the
// tile's inverse triangle is applied as one vector per column): in 64-bit
// mode the product's own 8 by 6 tile, compiled; in 32-bit mode a 4 by 6
// tile of the product's vector record, as the product's 28 by 1 tile would
// make every tile a 28-row triangle against a single right-hand side.
#include <immintrin.h>

#include "kernels/avx2/dgemm_kernel_0.h"
#include "kernels/generic/gemm_microkernel.h"
#include "kernels/generic/trsm_descriptors.h"
#include "kernels/trsm_desc.h"

namespace {

// The diagonal block of the solve, the product's depth block with a 48 KiB
// first-level cache (the 8- and 4-row panels of these tiles fit any such
// cache at this depth); nc_max bounds its column block.
struct Avx2TrsmSizes {
  static constexpr int kc_large = 192, nc_max = 192;
};

#if defined(__x86_64__)
using Avx2TrsmGemm = GemmRegisterTileRecord<GemmLanes<4>, 2, 6, Avx2TrsmSizes>;
#else
using Avx2TrsmGemm = GemmVectorTileRecord<GemmLanes<4>, 6, Avx2TrsmSizes>;
#endif

}  // namespace

extern "C" void tarn_blas_avx2_xdtrsm(const char* side, const char* uplo, const char* transa,
                                      const char* diag, const int* m, const int* n,
                                      const double* alpha, const double* a, const int* lda,
                                      double* b, const int* ldb) {
  xdtrsm_descriptor_impl<Avx2GemmDesc, Avx2TrsmGemm, tarn_blas_avx2_xdgemm,
                         tarn_blas_avx2_xdtrsm_v1>(side, uplo, transa, diag, m, n, alpha, a, lda,
                                                   b, ldb);
  _mm256_zeroupper();
}
