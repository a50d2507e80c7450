// cnr_sse2: y := alpha*op(A)*x + beta*y.
#include "kernels/generic/l2_xdgemv.h"

TARN_XDGEMV_ENTRY(cnr_sse2)
