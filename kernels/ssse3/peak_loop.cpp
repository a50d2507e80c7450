// Multiply-and-add peak of the ssse3 branch, for the benchmark's ratios.
#include "kernels/generic/peak_loop_sse.h"

TARN_SSE_PEAK_LOOP(ssse3)
