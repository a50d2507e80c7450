// sse42: the eight leaves of the triangular solve, dtrsv_<uplo><trans><diag>.
#include "kernels/generic/l2_dtrsv.h"

TARN_DTRSV_LEAVES(sse42)
