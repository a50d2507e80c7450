// avx2: op(A)*x = b for a triangular A, blocked over this branch's leaves.
#include "kernels/generic/l2_dtrsv.h"

TARN_XDTRSV_ENTRY(avx2)
