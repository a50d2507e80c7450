// cnr_sse2: generations of the interfaces this branch's kernels speak.
// One fixed GEMM routine and no service entries of its own: it answers as
// the kernel-table branches do, so callers take the first-generation drivers.
#include "kernels/generic/api_version.h"

TARN_API_VERSIONS(cnr_sse2, kDgemmApiKernelTable, kKernelApiFirst)
