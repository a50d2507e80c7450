// The descriptor services of the avx512 GEMM, on its tile record.
#include "kernels/avx512/dgemm_kernel_0.h"
#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_descriptors.h"

TARN_GEMM_DESCRIPTOR_SERVICES(avx512, Avx512GemmDesc)
