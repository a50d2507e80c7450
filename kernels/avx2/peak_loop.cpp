// Fused multiply-add throughput of the branch: eight independent chains
// (all eight registers of 32-bit mode), each register multiplied by itself
// and added to itself, all holding zeros, so that values stay fixed and no
// denormal ever arises. Eight chains of four-cycle latency keep two fused
// multiply-add pipes busy. Register operands only: the same loop with a
// broadcast memory operand measured up to 15 % slower here.
#include "kernels/gemm_desc.h"

namespace {
constexpr int kFmasPerRound = 32;
constexpr int kLanes = 4;
}  // namespace

extern "C" double tarn_blas_avx2_peak_loop(int rounds) {
  if (rounds <= 0) return 0.0;
  int left = rounds;
  __asm__ volatile(
      "vxorpd %%ymm0, %%ymm0, %%ymm0\n\t"
      "vmovapd %%ymm0, %%ymm1\n\tvmovapd %%ymm0, %%ymm2\n\tvmovapd %%ymm0, %%ymm3\n\t"
      "vmovapd %%ymm0, %%ymm4\n\tvmovapd %%ymm0, %%ymm5\n\tvmovapd %%ymm0, %%ymm6\n\t"
      "vmovapd %%ymm0, %%ymm7\n\t"
      ".p2align 5\n"
      "1:\n\t"
      ".rept 4\n\t"
      "vfmadd231pd %%ymm0, %%ymm0, %%ymm0\n\t"
      "vfmadd231pd %%ymm1, %%ymm1, %%ymm1\n\t"
      "vfmadd231pd %%ymm2, %%ymm2, %%ymm2\n\t"
      "vfmadd231pd %%ymm3, %%ymm3, %%ymm3\n\t"
      "vfmadd231pd %%ymm4, %%ymm4, %%ymm4\n\t"
      "vfmadd231pd %%ymm5, %%ymm5, %%ymm5\n\t"
      "vfmadd231pd %%ymm6, %%ymm6, %%ymm6\n\t"
      "vfmadd231pd %%ymm7, %%ymm7, %%ymm7\n\t"
      ".endr\n\t"
      "dec %0\n\t"
      "jnz 1b\n\t"
      "vzeroupper\n\t"
      : "+r"(left)
      :
      : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "memory", "cc");
  return 2.0 * kLanes * kFmasPerRound * rounds;
}
