// sse2: y := x.
#include "kernels/generic/l1_xdcopy.h"

TARN_XDCOPY_ENTRY(sse2)
