// cnr_sse2: y := alpha*op(A)*x + beta*y in one order of summation fixed by the shape.
#include "kernels/generic/l2_xdgemv.h"

TARN_XDGEMV_CNR_ENTRY(cnr_sse2)
