// avx2: generations of the interfaces this branch's kernels speak.
// GEMM driven by descriptors: the descriptor-generation services and the
// second generation of the threaded drivers.
#include "kernels/generic/api_version.h"

TARN_API_VERSIONS(avx2, kDgemmApiDescriptors, kKernelApiSecond)
