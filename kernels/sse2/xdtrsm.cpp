// sse2: the one-thread triangular solve on this branch's DGEMM.
#include "kernels/generic/trsm_legacy.h"

TARN_XDTRSM_LEGACY_ENTRY(sse2)
