// Multiply-and-add peak loop of the 128-bit branches without fused
// multiply-add (sse2, cnr_sse2, ssse3, sse42); each branch's peak_loop.cpp
// expands it under its own instruction-set flags.
//
// The loop issues equal numbers of multiplies and adds, none depending on
// another (each starts from a copy of a fixed register, a move the
// processor resolves at renaming), so only the ports bound the rate.
// Register operands only: with a memory operand the loop ran slower here. One
// multiply and one add count as two operations per lane, as in the kernels.
#pragma once

#include "kernels/gemm_desc.h"

namespace {
constexpr int kSsePeakPairsPerRound = 24;
constexpr int kSsePeakLanes = 2;
alignas(64) const double kSsePeakOne[2] = {1.0, 1.0};
}  // namespace

#define TARN_SSE_PEAK_LOOP(br)                                                             \
  extern "C" double tarn_blas_##br##_peak_loop(int rounds) {                               \
    if (rounds <= 0) return 0.0;                                                           \
    int left = rounds;                                                                     \
    __asm__ volatile(                                                                      \
        "movapd (%1), %%xmm7\n\t"                                                          \
        "movapd (%1), %%xmm6\n\t"                                                          \
        ".p2align 5\n"                                                                     \
        "1:\n\t"                                                                           \
        ".rept 4\n\t"                                                                      \
        "movapd %%xmm7, %%xmm0\n\tmulpd %%xmm6, %%xmm0\n\t"                                \
        "movapd %%xmm7, %%xmm1\n\taddpd %%xmm6, %%xmm1\n\t"                                \
        "movapd %%xmm7, %%xmm2\n\tmulpd %%xmm6, %%xmm2\n\t"                                \
        "movapd %%xmm7, %%xmm3\n\taddpd %%xmm6, %%xmm3\n\t"                                \
        "movapd %%xmm7, %%xmm4\n\tmulpd %%xmm6, %%xmm4\n\t"                                \
        "movapd %%xmm7, %%xmm5\n\taddpd %%xmm6, %%xmm5\n\t"                                \
        "movapd %%xmm7, %%xmm0\n\tmulpd %%xmm6, %%xmm0\n\t"                                \
        "movapd %%xmm7, %%xmm0\n\taddpd %%xmm6, %%xmm0\n\t"                                \
        "movapd %%xmm7, %%xmm1\n\tmulpd %%xmm6, %%xmm1\n\t"                                \
        "movapd %%xmm7, %%xmm2\n\taddpd %%xmm6, %%xmm2\n\t"                                \
        "movapd %%xmm7, %%xmm3\n\tmulpd %%xmm6, %%xmm3\n\t"                                \
        "movapd %%xmm7, %%xmm4\n\taddpd %%xmm6, %%xmm4\n\t"                                \
        ".endr\n\t"                                                                        \
        "dec %0\n\t"                                                                       \
        "jnz 1b\n\t"                                                                       \
        : "+r"(left)                                                                       \
        : "r"(kSsePeakOne)                                                                 \
        : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "memory", "cc"); \
    return 2.0 * kSsePeakLanes * kSsePeakPairsPerRound * rounds;                           \
  }
