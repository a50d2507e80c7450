// cnr_sse2: C := beta*C + alpha*x*y', the K = 1 product.
#include "kernels/generic/l2_xdgemmger.h"

TARN_XDGEMMGER_ENTRY(cnr_sse2)
