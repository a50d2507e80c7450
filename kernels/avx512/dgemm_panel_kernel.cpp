// tarn_avx512_dgemm_panel (see dgemm_panel_kernel.h), written as assembly:
// in 32-bit mode the compiled tile kept its depth counter and prefetch
// state on the stack and was called once per tile through a prefetch
// record, with a loop exit whose trip count varied with the prefetch work.
// Here the walk over the B panels is one routine, and each tile runs the
// same three depth loops of fixed trip counts (C prefetch, A prefetch,
// plain), so every branch repeats the same pattern from tile to tile.
//
// Registers: eax the A panel (back to its start for each tile), ebx the B
// panels (they lie one after the other, so it just runs on), ecx the loop
// counter, edx the tile's C, esi the column stride of C in bytes, edi three
// times that, ebp the prefetch pointer; zmm0-6 the seven accumulators,
// zmm7 the A values of the current k. The B values are broadcast memory
// operands. Accumulators are cleared after each update by a zeroing idiom,
// so the next tile's multiply-adds do not wait on the stores of the last.
//
// C: each tile fetches, during its first 56 k steps, the C lines of the
// tile two places on, and the same columns two row panels (16 rows)
// further down, into the second-level cache; the update's loads then find
// C there (their latency hides behind the next tile's multiply-adds) and
// the first-level cache keeps the A and B panels. Measured on the walk of
// 166 A panels against one B block of 28 panels (depth 384), C a fresh
// 4000-row matrix block each time, best of 150 runs against the best peak
// window, with the near lines fetched into the first-level cache: 78.7 %
// without the fetch 16 rows down, 79.9 % fetching 32 rows down, 80.7 % 16
// rows down, 80.6 % with C held in cache. Fetching the near lines into the
// second-level cache only then measured 0.3-0.8 points better on 500
// panels and the whole product (66.7 to 67.3 GF/s, 'N','N').
#include "kernels/avx512/dgemm_panel_kernel.h"

#if defined(__i386__)

#include <cstddef>

static_assert(offsetof(Avx512PanelArgs, a) == 0 && offsetof(Avx512PanelArgs, b) == 4 &&
                  offsetof(Avx512PanelArgs, c) == 8 &&
                  offsetof(Avx512PanelArgs, ldc_bytes) == 12 &&
                  offsetof(Avx512PanelArgs, kc) == 16 &&
                  offsetof(Avx512PanelArgs, ntiles) == 20 &&
                  offsetof(Avx512PanelArgs, b0) == 24 &&
                  offsetof(Avx512PanelArgs, pf_starts) == 28 &&
                  offsetof(Avx512PanelArgs, pf_stride) == 32 &&
                  offsetof(Avx512PanelArgs, pf_count) == 36 &&
                  offsetof(Avx512PanelArgs, run) == 40 &&
                  offsetof(Avx512PanelArgs, run_count) == 44,
              "the routine reads the arguments at these offsets");

// Stack frame after the four saved registers and 56 bytes of locals:
//   0 tiles left   4 A panel start   8 C prefetch loop count   12 A prefetch loop count
//   16 plain loop count   20 single steps   24 next prefetch start   28 b0
//   32 end of the C block   36 distance from a past-the-end prefetch to the next rows
//   40 prefetch stride   44 run pointer   48 run loop count
__asm__(R"(
  .pushsection .text
  .macro TARN512_STEP s
  vmovupd (\s*64)(%eax), %zmm7
  vfmadd231pd (\s*56)(%ebx){1to8}, %zmm7, %zmm0
  vfmadd231pd (\s*56+8)(%ebx){1to8}, %zmm7, %zmm1
  vfmadd231pd (\s*56+16)(%ebx){1to8}, %zmm7, %zmm2
  vfmadd231pd (\s*56+24)(%ebx){1to8}, %zmm7, %zmm3
  vfmadd231pd (\s*56+32)(%ebx){1to8}, %zmm7, %zmm4
  vfmadd231pd (\s*56+40)(%ebx){1to8}, %zmm7, %zmm5
  vfmadd231pd (\s*56+48)(%ebx){1to8}, %zmm7, %zmm6
  .endm
  .macro TARN512_EIGHT
  TARN512_STEP 0
  TARN512_STEP 1
  TARN512_STEP 2
  TARN512_STEP 3
  TARN512_STEP 4
  TARN512_STEP 5
  TARN512_STEP 6
  TARN512_STEP 7
  addl $512, %eax
  addl $448, %ebx
  .endm
  .macro TARN512_ZERO
  vpxord %zmm0, %zmm0, %zmm0
  vpxord %zmm1, %zmm1, %zmm1
  vpxord %zmm2, %zmm2, %zmm2
  vpxord %zmm3, %zmm3, %zmm3
  vpxord %zmm4, %zmm4, %zmm4
  vpxord %zmm5, %zmm5, %zmm5
  vpxord %zmm6, %zmm6, %zmm6
  .endm

  .p2align 6
  .globl tarn_avx512_dgemm_panel
  .hidden tarn_avx512_dgemm_panel
  .type tarn_avx512_dgemm_panel, @function
tarn_avx512_dgemm_panel:
  pushl %ebp
  pushl %ebx
  pushl %esi
  pushl %edi
  movl 20(%esp), %eax
  subl $56, %esp
  movl 20(%eax), %ecx
  movl %ecx, 0(%esp)
  movl 0(%eax), %ecx
  movl %ecx, 4(%esp)
  movl 24(%eax), %ecx
  movl %ecx, 28(%esp)
  movl 28(%eax), %ecx
  movl %ecx, 24(%esp)
  movl 16(%eax), %ecx
  movl %ecx, %edx
  andl $7, %edx
  movl %edx, 20(%esp)
  shrl $3, %ecx
  movl $7, %edx
  cmpl %edx, %ecx
  cmovbl %ecx, %edx
  movl %edx, 8(%esp)
  subl %edx, %ecx
  movl 36(%eax), %edx
  cmpl $0, 28(%eax)
  jne 1f
  xorl %edx, %edx
1:
  cmpl %edx, %ecx
  cmovbl %ecx, %edx
  movl %edx, 12(%esp)
  subl %edx, %ecx
  movl 44(%eax), %edx
  cmpl $0, 40(%eax)
  jne 2f
  xorl %edx, %edx
2:
  cmpl %edx, %ecx
  cmovbl %ecx, %edx
  movl %edx, 48(%esp)
  subl %edx, %ecx
  movl %ecx, 16(%esp)
  movl 40(%eax), %edx
  movl %edx, 44(%esp)
  movl 32(%eax), %esi
  movl %esi, 40(%esp)
  movl 12(%eax), %esi
  leal (%esi,%esi,2), %edi
  movl 20(%eax), %ecx
  imull $7, %ecx, %ecx
  imull %esi, %ecx
  movl 8(%eax), %edx
  leal (%edx,%ecx), %ebx
  movl %ebx, 32(%esp)
  subl $64, %ecx
  movl %ecx, 36(%esp)
  movl 4(%eax), %ebx
  TARN512_ZERO
  .p2align 4
.Ltarn512_tile:
  movl 4(%esp), %eax
  leal (%edx,%edi,4), %ebp
  leal (%ebp,%esi,2), %ebp
  movl %ebp, %ecx
  subl 36(%esp), %ecx
  cmpl 32(%esp), %ebp
  cmovael %ecx, %ebp
  movl 8(%esp), %ecx
  testl %ecx, %ecx
  jz .Ltarn512_c_done
  .p2align 4
.Ltarn512_c_loop:
  prefetcht1 (%ebp)
  prefetcht1 63(%ebp)
  prefetcht1 128(%ebp)
  addl %esi, %ebp
  TARN512_EIGHT
  decl %ecx
  jnz .Ltarn512_c_loop
.Ltarn512_c_done:
  movl 12(%esp), %ecx
  testl %ecx, %ecx
  jz .Ltarn512_a_done
  movl 24(%esp), %ebp
  addl $4, 24(%esp)
  movl (%ebp), %ebp
  .p2align 4
.Ltarn512_a_loop:
  prefetcht1 (%ebp)
  addl 40(%esp), %ebp
  TARN512_EIGHT
  decl %ecx
  jnz .Ltarn512_a_loop
.Ltarn512_a_done:
  movl 48(%esp), %ecx
  testl %ecx, %ecx
  jz .Ltarn512_run_done
  movl 44(%esp), %ebp
  .p2align 4
.Ltarn512_run_loop:
  prefetcht1 (%ebp)
  addl $64, %ebp
  TARN512_EIGHT
  decl %ecx
  jnz .Ltarn512_run_loop
  movl %ebp, 44(%esp)
.Ltarn512_run_done:
  movl 16(%esp), %ecx
  testl %ecx, %ecx
  jz .Ltarn512_k_done
  .p2align 4
.Ltarn512_k_loop:
  TARN512_EIGHT
  decl %ecx
  jnz .Ltarn512_k_loop
.Ltarn512_k_done:
  movl 20(%esp), %ecx
  testl %ecx, %ecx
  jz .Ltarn512_r_done
.Ltarn512_r_loop:
  TARN512_STEP 0
  addl $64, %eax
  addl $56, %ebx
  decl %ecx
  jnz .Ltarn512_r_loop
.Ltarn512_r_done:
  cmpl $0, 28(%esp)
  jne .Ltarn512_store
  vaddpd (%edx), %zmm0, %zmm0
  vmovupd %zmm0, (%edx)
  vaddpd (%edx,%esi), %zmm1, %zmm1
  vmovupd %zmm1, (%edx,%esi)
  vaddpd (%edx,%esi,2), %zmm2, %zmm2
  vmovupd %zmm2, (%edx,%esi,2)
  vaddpd (%edx,%edi), %zmm3, %zmm3
  vmovupd %zmm3, (%edx,%edi)
  vaddpd (%edx,%esi,4), %zmm4, %zmm4
  vmovupd %zmm4, (%edx,%esi,4)
  vaddpd (%edx,%edi,2), %zmm6, %zmm6
  vmovupd %zmm6, (%edx,%edi,2)
  addl %esi, %edx
  vaddpd (%edx,%esi,4), %zmm5, %zmm5
  vmovupd %zmm5, (%edx,%esi,4)
  jmp .Ltarn512_next
.Ltarn512_store:
  vmovupd %zmm0, (%edx)
  vmovupd %zmm1, (%edx,%esi)
  vmovupd %zmm2, (%edx,%esi,2)
  vmovupd %zmm3, (%edx,%edi)
  vmovupd %zmm4, (%edx,%esi,4)
  vmovupd %zmm6, (%edx,%edi,2)
  addl %esi, %edx
  vmovupd %zmm5, (%edx,%esi,4)
.Ltarn512_next:
  leal (%edx,%edi,2), %edx
  TARN512_ZERO
  decl 0(%esp)
  jnz .Ltarn512_tile
  addl $56, %esp
  popl %edi
  popl %esi
  popl %ebx
  popl %ebp
  ret
  .size tarn_avx512_dgemm_panel, .-tarn_avx512_dgemm_panel
  .purgem TARN512_STEP
  .purgem TARN512_EIGHT
  .purgem TARN512_ZERO
  .popsection
)");

#endif  // __i386__
