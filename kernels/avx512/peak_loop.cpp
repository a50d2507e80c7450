// Fused multiply-add peak of the avx512 branch, for the benchmark's ratios.
#include "kernels/generic/peak_loop_fma.h"

TARN_FMA_PEAK_LOOP(avx512, "zmm", 8)
