// avx: dtrsm_nobuf, the unpacked solve of a B already multiplied by alpha.
#include "kernels/generic/trsm_frame.h"

TARN_DTRSM_NOBUF_ENTRY(avx)
