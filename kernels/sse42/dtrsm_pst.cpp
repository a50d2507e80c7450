// sse42: dtrsm_pst, the solve with no packing and true division.
#include "kernels/generic/trsm_frame.h"

TARN_DTRSM_PST_ENTRY(sse42)
