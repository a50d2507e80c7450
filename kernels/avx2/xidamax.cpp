// avx2: the pivot search (the NaN rule around xidamax_nonan).
#include "kernels/generic/l1_xidamax.h"

TARN_XIDAMAX_OVER_NONAN_ENTRY(avx2)
