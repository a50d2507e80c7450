// Fused multiply-add peak loop of the avx2 and avx512 branches; each
// branch's peak_loop.cpp expands it with its register width under its own
// instruction-set flags.
//
// Eight independent chains (all eight registers of 32-bit mode), each
// register multiplied by itself and added to itself, all holding zeros, so
// that values stay fixed and no denormal ever arises. Eight chains of
// four-cycle latency keep two fused multiply-add pipes busy. Register
// operands only: the same loop with a broadcast memory operand measured up
// to 15 % slower here. Zeros do not flatter it: started from values in
// (-1, 0), which change at every step, the avx512 loop ran at the same rate
// (medians within 0.3 %), so the clock here does not follow the data.
#pragma once

#include "kernels/gemm_desc.h"

namespace {
constexpr int kFmaPeakPerRound = 32;
}  // namespace

// r: the register prefix ("ymm" or "zmm"); lanes: doubles per register. The
// zeroing is the VEX form, which any branch with fused multiply-add has and
// which clears the whole register.
#define TARN_FMA_PEAK_LOOP(br, r, lanes)                                                   \
  extern "C" double tarn_blas_##br##_peak_loop(int rounds) {                               \
    if (rounds <= 0) return 0.0;                                                           \
    int left = rounds;                                                                     \
    __asm__ volatile(                                                                      \
        "vxorpd %%xmm0, %%xmm0, %%xmm0\n\t"                                                \
        "vmovapd %%" r "0, %%" r "1\n\tvmovapd %%" r "0, %%" r "2\n\t"                     \
        "vmovapd %%" r "0, %%" r "3\n\tvmovapd %%" r "0, %%" r "4\n\t"                     \
        "vmovapd %%" r "0, %%" r "5\n\tvmovapd %%" r "0, %%" r "6\n\t"                     \
        "vmovapd %%" r "0, %%" r "7\n\t"                                                   \
        ".p2align 5\n"                                                                     \
        "1:\n\t"                                                                           \
        ".rept 4\n\t"                                                                      \
        "vfmadd231pd %%" r "0, %%" r "0, %%" r "0\n\t"                                     \
        "vfmadd231pd %%" r "1, %%" r "1, %%" r "1\n\t"                                     \
        "vfmadd231pd %%" r "2, %%" r "2, %%" r "2\n\t"                                     \
        "vfmadd231pd %%" r "3, %%" r "3, %%" r "3\n\t"                                     \
        "vfmadd231pd %%" r "4, %%" r "4, %%" r "4\n\t"                                     \
        "vfmadd231pd %%" r "5, %%" r "5, %%" r "5\n\t"                                     \
        "vfmadd231pd %%" r "6, %%" r "6, %%" r "6\n\t"                                     \
        "vfmadd231pd %%" r "7, %%" r "7, %%" r "7\n\t"                                     \
        ".endr\n\t"                                                                        \
        "dec %0\n\t"                                                                       \
        "jnz 1b\n\t"                                                                       \
        "vzeroupper\n\t"                                                                   \
        : "+r"(left)                                                                       \
        :                                                                                  \
        : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "memory", "cc"); \
    return 2.0 * (lanes) * kFmaPeakPerRound * rounds;                                      \
  }
