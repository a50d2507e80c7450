// ssse3: y := x.
#include "kernels/generic/l1_xdcopy.h"

TARN_XDCOPY_ENTRY(ssse3)
