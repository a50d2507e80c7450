// ssse3: C := beta*C + alpha*x*y', the K = 1 product.
#include "kernels/generic/l2_xdgemmger.h"

TARN_XDGEMMGER_ENTRY(ssse3)
