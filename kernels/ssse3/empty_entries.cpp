// ssse3: entries that return at once without doing anything, so that every
// dispatching stub finds a function in this branch.
// The descriptor-generation GEMM services and the ..._bdz names: this branch
// drives its GEMM by a kernel table and has none of them.
#include "kernels/generic/empty_entries.h"

TARN_EMPTY_NEW_GEMM_SERVICES(ssse3)
TARN_EMPTY_BDZ_SERVICES(ssse3)
