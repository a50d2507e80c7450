// cnr_sse2: x := alpha*x.
#include "kernels/generic/l1_xdscal.h"

TARN_XDSCAL_ENTRY(cnr_sse2)
