// avx: x <-> y.
#include "kernels/generic/l1_xdswap.h"

TARN_XDSWAP_ENTRY(avx)
