// avx512: xdtrsm_v1, the narrow solve with its own buffer.
#include "kernels/generic/trsm_a4.h"

TARN_XDTRSM_V1_ENTRY(avx512)
