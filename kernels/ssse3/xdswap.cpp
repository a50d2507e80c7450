// ssse3: x <-> y.
#include "kernels/generic/l1_xdswap.h"

TARN_XDSWAP_ENTRY(ssse3)
