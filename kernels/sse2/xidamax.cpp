// sse2: the pivot search, 1-based index of the first largest |x|, the first NaN
// winning; the caller's exception flags are left as they were.
#include "kernels/generic/l1_xidamax.h"

TARN_XIDAMAX_ENTRY(sse2)
