// sse42: generations of the interfaces this branch's kernels speak.
// GEMM driven by a kernel table: the first generation of the services and
// of the threaded drivers.
#include "kernels/generic/api_version.h"

TARN_API_VERSIONS(sse42, kDgemmApiKernelTable, kKernelApiFirst)
