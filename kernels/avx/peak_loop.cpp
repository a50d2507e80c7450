// Multiply-and-add throughput of the branch, which has no fused
// multiply-add: equal numbers of multiplies and adds, none depending on
// another (each writes a fresh register from two fixed ones), so only the
// ports bound the rate. Register operands only: the same loop with a memory
// operand ran at little more than half this rate here. One multiply and one add count as two operations
// per lane, as in the GEMM kernels.
#include "kernels/gemm_desc.h"

namespace {
constexpr int kPairsPerRound = 24;
constexpr int kLanes = 4;
alignas(64) const double kOne[4] = {1.0, 1.0, 1.0, 1.0};
}  // namespace

extern "C" double tarn_blas_avx_peak_loop(int rounds) {
  if (rounds <= 0) return 0.0;
  int left = rounds;
  __asm__ volatile(
      "vmovapd (%1), %%ymm7\n\t"
      "vmovapd (%1), %%ymm6\n\t"
      ".p2align 5\n"
      "1:\n\t"
      ".rept 4\n\t"
      "vmulpd %%ymm6, %%ymm7, %%ymm0\n\t"
      "vaddpd %%ymm6, %%ymm7, %%ymm1\n\t"
      "vmulpd %%ymm6, %%ymm7, %%ymm2\n\t"
      "vaddpd %%ymm6, %%ymm7, %%ymm3\n\t"
      "vmulpd %%ymm6, %%ymm7, %%ymm4\n\t"
      "vaddpd %%ymm6, %%ymm7, %%ymm5\n\t"
      "vmulpd %%ymm6, %%ymm7, %%ymm0\n\t"
      "vaddpd %%ymm6, %%ymm7, %%ymm0\n\t"
      "vmulpd %%ymm6, %%ymm7, %%ymm1\n\t"
      "vaddpd %%ymm6, %%ymm7, %%ymm2\n\t"
      "vmulpd %%ymm6, %%ymm7, %%ymm3\n\t"
      "vaddpd %%ymm6, %%ymm7, %%ymm4\n\t"
      ".endr\n\t"
      "dec %0\n\t"
      "jnz 1b\n\t"
      "vzeroupper\n\t"
      : "+r"(left)
      : "r"(kOne)
      : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "memory", "cc");
  return 2.0 * kLanes * kPairsPerRound * rounds;
}
