// avx2: the dot product x'y.
#include "kernels/generic/l1_xddot.h"

TARN_XDDOT_ENTRY(avx2)
