// avx2: the pivot search assuming no NaN (see xidamax for the NaN rule).
#include "kernels/generic/l1_xidamax.h"

TARN_XIDAMAX_NONAN_ENTRY(avx2)
