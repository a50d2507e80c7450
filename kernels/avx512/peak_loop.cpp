// Fused multiply-add throughput of the branch: eight independent chains
// (all eight registers of 32-bit mode), each register multiplied by itself
// and added to itself, all holding zeros, so that values stay fixed and no
// denormal ever arises. Eight chains of four-cycle latency keep two fused
// multiply-add pipes busy. Register operands only: the same loop with a
// broadcast memory operand measured up to 15 % slower here. Zeros do not
// flatter it: started from values in (-1, 0), which change at every step,
// the loop ran at the same rate (medians within 0.3 %), so the clock here
// does not follow the data.
#include "kernels/gemm_desc.h"

namespace {
constexpr int kFmasPerRound = 32;
constexpr int kLanes = 8;
}  // namespace

extern "C" double tarn_blas_avx512_peak_loop(int rounds) {
  if (rounds <= 0) return 0.0;
  int left = rounds;
  __asm__ volatile(
      "vpxorq %%zmm0, %%zmm0, %%zmm0\n\t"
      "vmovapd %%zmm0, %%zmm1\n\tvmovapd %%zmm0, %%zmm2\n\tvmovapd %%zmm0, %%zmm3\n\t"
      "vmovapd %%zmm0, %%zmm4\n\tvmovapd %%zmm0, %%zmm5\n\tvmovapd %%zmm0, %%zmm6\n\t"
      "vmovapd %%zmm0, %%zmm7\n\t"
      ".p2align 5\n"
      "1:\n\t"
      ".rept 4\n\t"
      "vfmadd231pd %%zmm0, %%zmm0, %%zmm0\n\t"
      "vfmadd231pd %%zmm1, %%zmm1, %%zmm1\n\t"
      "vfmadd231pd %%zmm2, %%zmm2, %%zmm2\n\t"
      "vfmadd231pd %%zmm3, %%zmm3, %%zmm3\n\t"
      "vfmadd231pd %%zmm4, %%zmm4, %%zmm4\n\t"
      "vfmadd231pd %%zmm5, %%zmm5, %%zmm5\n\t"
      "vfmadd231pd %%zmm6, %%zmm6, %%zmm6\n\t"
      "vfmadd231pd %%zmm7, %%zmm7, %%zmm7\n\t"
      ".endr\n\t"
      "dec %0\n\t"
      "jnz 1b\n\t"
      "vzeroupper\n\t"
      : "+r"(left)
      :
      : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "memory", "cc");
  return 2.0 * kLanes * kFmasPerRound * rounds;
}
