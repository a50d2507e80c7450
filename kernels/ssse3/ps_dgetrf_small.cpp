// ssse3: the small-matrix LU.
#include "kernels/generic/ps_dgetrf_small.h"

TARN_PS_DGETRF_SMALL_ENTRY(ssse3)
