// sse42: the small-matrix solve.
#include "kernels/generic/ps_dgetrs_small.h"

TARN_PS_DGETRS_SMALL_ENTRY(sse42)
