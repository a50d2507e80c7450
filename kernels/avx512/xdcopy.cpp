// avx512: y := x.
#include "kernels/generic/l1_xdcopy.h"

TARN_XDCOPY_ENTRY(avx512)
