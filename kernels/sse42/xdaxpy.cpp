// sse42: y := alpha*x + y.
#include "kernels/generic/l1_xdaxpy.h"

TARN_XDAXPY_ENTRY(sse42)
