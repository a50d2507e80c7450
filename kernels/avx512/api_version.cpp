// avx512: generations of the interfaces this branch's kernels speak.
#include "kernels/kernels.h"

namespace {

constexpr int kDgemmApiSupport = 4;      // GEMM service interface
constexpr int kKernelApiVersion = 2;     // kernel set: decides the threaded drivers
constexpr int kSubKernelApiVersion = 1;  // the two sub-interfaces, the same everywhere

}  // namespace

extern "C" int tarn_blas_avx512_dgemm_api_support(void) { return kDgemmApiSupport; }
extern "C" int tarn_blas_avx512_get_kernel_api_version(void) { return kKernelApiVersion; }
extern "C" int tarn_blas_avx512_get_ikernel_api_version(void) { return kSubKernelApiVersion; }
extern "C" int tarn_blas_avx512_get_bkernel_api_version(void) { return kSubKernelApiVersion; }
