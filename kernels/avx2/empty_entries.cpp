// avx2: entries that return at once without doing anything, so that every
// dispatching stub finds a function in this branch.
// The legacy GEMM services of the kernel-table branches and the ..._bdz
// names: this branch drives its GEMM by descriptors and has none of them.
#include "kernels/generic/empty_entries.h"

TARN_EMPTY_LEGACY_GEMM_SERVICES(avx2)
TARN_EMPTY_BDZ_SERVICES(avx2)
