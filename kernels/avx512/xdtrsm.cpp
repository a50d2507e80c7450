// avx512: the one-thread triangular solve. Narrow orders go to xdtrsm_v1;
// the rest is described by the product's records and solved by the packed
// drivers: the updates beyond each diagonal block run this branch's DGEMM,
// the tiles of the block a micro-kernel whose height is a power of two (the
// tile's inverse triangle is applied as one vector per column): in 32-bit
// mode the product's own 8 by 7 tile, in 64-bit mode a 16 by 8 tile of the
// product's vector record, as its 24 by 8 tile is not.
#include <immintrin.h>

#include "kernels/avx512/dgemm_kernel_0.h"
#include "kernels/generic/gemm_microkernel.h"
#include "kernels/generic/trsm_descriptors.h"
#include "kernels/trsm_desc.h"

namespace {

#if defined(__x86_64__)
// The diagonal block of the solve and the bound of its column block.
struct Avx512TrsmSizes {
  static constexpr int kc_large = 192, nc_max = 256;
};
using Avx512TrsmGemm = GemmRegisterTileRecord<GemmLanes<8>, 2, 8, Avx512TrsmSizes>;
#else
using Avx512TrsmGemm = Avx512Gemm;
#endif

}  // namespace

extern "C" void tarn_blas_avx512_xdtrsm(const char* side, const char* uplo, const char* transa,
                                        const char* diag, const int* m, const int* n,
                                        const double* alpha, const double* a, const int* lda,
                                        double* b, const int* ldb) {
  xdtrsm_descriptor_impl<Avx512GemmDesc, Avx512TrsmGemm, tarn_blas_avx512_xdgemm,
                         tarn_blas_avx512_xdtrsm_v1>(side, uplo, transa, diag, m, n, alpha, a,
                                                     lda, b, ldb);
  _mm256_zeroupper();
}
