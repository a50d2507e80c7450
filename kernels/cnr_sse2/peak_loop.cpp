// Multiply-and-add peak of the cnr_sse2 branch, for the benchmark's ratios.
#include "kernels/generic/peak_loop_sse.h"

TARN_SSE_PEAK_LOOP(cnr_sse2)
