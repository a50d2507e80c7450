// sse2: dtrsm_has_denormal, the diagonal test that sends a solve to the dividing path.
#include "kernels/generic/trsm_frame.h"

TARN_DTRSM_HAS_DENORMAL_ENTRY(sse2)
