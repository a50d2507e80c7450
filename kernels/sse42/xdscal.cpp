// sse42: x := alpha*x.
#include "kernels/generic/l1_xdscal.h"

TARN_XDSCAL_ENTRY(sse42)
