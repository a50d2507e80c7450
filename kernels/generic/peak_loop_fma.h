// Fused multiply-add peak loop of the avx2 and avx512 branches; each
// branch's peak_loop.cpp expands it with its register width under its own
// instruction-set flags.
//
// Independent chains, each register multiplied by itself and added to
// itself, all holding zeros, so that values stay fixed and no denormal ever
// arises: eight in 32-bit mode (all its registers), sixteen in 64-bit mode.
// Eight chains of four-cycle latency just cover two pipes and leave no
// slack: on an AMD family 26 processor they ran at 88-92 % of what twelve
// or more chains reach, so a 64-bit kernel must be set against the longer
// loop. Register operands only: the same loop with a broadcast memory
// operand measured up to 15 % slower here. Zeros do not flatter it: started
// from values in (-1, 0), which change at every step, the avx512 loop ran
// at the same rate (medians within 0.3 %), so the clock here does not follow
// the data.
#pragma once

#include "kernels/gemm_desc.h"

#if defined(__x86_64__)
#define TARN_FMA_PEAK_CHAINS 16
#define TARN_FMA_PEAK_REGS "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15"
#define TARN_FMA_PEAK_CLOBBERS                                                               \
  "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", \
      "xmm11", "xmm12", "xmm13", "xmm14", "xmm15"
#else
#define TARN_FMA_PEAK_CHAINS 8
#define TARN_FMA_PEAK_REGS "0,1,2,3,4,5,6,7"
#define TARN_FMA_PEAK_CLOBBERS "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7"
#endif

namespace {
// Multiply-adds a round: the chains, four times over.
constexpr int kFmaPeakPerRound = 4 * TARN_FMA_PEAK_CHAINS;
}  // namespace

// r: the register prefix ("ymm" or "zmm"); lanes: doubles per register. The
// zeroing is the VEX form, which any branch with fused multiply-add has and
// which clears the whole register.
#define TARN_FMA_PEAK_LOOP(br, r, lanes)                                      \
  extern "C" double tarn_blas_##br##_peak_loop(int rounds) {                  \
    if (rounds <= 0) return 0.0;                                              \
    int left = rounds;                                                        \
    __asm__ volatile(                                                         \
        "vxorpd %%xmm0, %%xmm0, %%xmm0\n\t"                                   \
        ".irp q, " TARN_FMA_PEAK_REGS "\n\t"                                  \
        "vmovapd %%" r "0, %%" r "\\q\n\t"                                    \
        ".endr\n\t"                                                           \
        ".p2align 5\n"                                                        \
        "1:\n\t"                                                              \
        ".rept 4\n\t"                                                         \
        ".irp q, " TARN_FMA_PEAK_REGS "\n\t"                                  \
        "vfmadd231pd %%" r "\\q, %%" r "\\q, %%" r "\\q\n\t"                  \
        ".endr\n\t"                                                           \
        ".endr\n\t"                                                           \
        "dec %0\n\t"                                                          \
        "jnz 1b\n\t"                                                          \
        "vzeroupper\n\t"                                                      \
        : "+r"(left)                                                          \
        :                                                                     \
        : TARN_FMA_PEAK_CLOBBERS, "memory", "cc");                            \
    return 2.0 * (lanes) * kFmaPeakPerRound * rounds;                         \
  }
