// Fused multiply-add peak of the avx2 branch, for the benchmark's ratios.
#include "kernels/generic/peak_loop_fma.h"

TARN_FMA_PEAK_LOOP(avx2, "ymm", 4)
