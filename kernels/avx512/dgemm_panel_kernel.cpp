// tarn_avx512_dgemm_panel (see dgemm_panel_kernel.h): in 64-bit mode a
// walk of the 24 by 8 tile in intrinsics, in 32-bit mode assembly around
// the 8 by 7 tile. Both run, for every tile, the same depth loops of fixed
// trip counts (C prefetch, listed prefetches, the run, plain), so every
// branch repeats the same pattern from tile to tile.
#include "kernels/avx512/dgemm_panel_kernel.h"

#include <immintrin.h>

#include <cstddef>

#if defined(__x86_64__)

// The 64-bit form. The C++ entry turns the arguments into a plan of fixed
// trip counts (gemm_panel_plan); the assembly runs it. (The walk compiled from intrinsics
// spilled accumulators to the stack.)
//
// Registers: rax the A panel (back to its start, r8, for each tile), rbx
// the B panels (they lie one after the other, so it just runs on), rcx the
// loop counter, rdx the tile's C, rsi the column stride of C in bytes, r13,
// r14, r15 three, five and seven times that, rdi the plan, r9 the tiles
// left, r10 the prefetch pointer, r11 the cursor in the prefetch list, r12
// the end of the C block, rbp the run; zmm0-23 the accumulators (zmm0-7
// rows 0-7 of columns 0-7, zmm8-15 rows 8-15, zmm16-23 rows 16-23),
// zmm24-26 the A values of the current k, zmm27-31 the broadcast B values
// in turn. Accumulators are cleared after each update by a zeroing idiom,
// so the next tile's multiply-adds do not wait on the stores of the last.

namespace {

constexpr int kTileCols = 8, kTileRows = 24;

}  // namespace

extern "C" void tarn_avx512_dgemm_walk(const GemmPanelPlan* plan);

extern "C" void tarn_avx512_dgemm_panel(const GemmPanelArgs* args) {
  static_assert(kTileRows * sizeof(double) == 192 && kTileCols * sizeof(double) == 64,
                "the routine's displacements");
  const GemmPanelPlan plan = gemm_panel_plan<kTileCols>(*args);
  tarn_avx512_dgemm_walk(&plan);
}

__asm__(R"asm(
  .pushsection .text
  .macro TARN64_COL j, j8, j16, bj, s
  vbroadcastsd (\s*64+\j*8)(%rbx), %zmm\bj
  vfmadd231pd %zmm\bj, %zmm24, %zmm\j
  vfmadd231pd %zmm\bj, %zmm25, %zmm\j8
  vfmadd231pd %zmm\bj, %zmm26, %zmm\j16
  .endm
  .macro TARN64_STEP s
  vmovupd (\s*192)(%rax), %zmm24
  vmovupd (\s*192+64)(%rax), %zmm25
  vmovupd (\s*192+128)(%rax), %zmm26
  TARN64_COL 0, 8, 16, 27, \s
  TARN64_COL 1, 9, 17, 28, \s
  TARN64_COL 2, 10, 18, 29, \s
  TARN64_COL 3, 11, 19, 30, \s
  TARN64_COL 4, 12, 20, 31, \s
  TARN64_COL 5, 13, 21, 27, \s
  TARN64_COL 6, 14, 22, 28, \s
  TARN64_COL 7, 15, 23, 29, \s
  .endm
  .macro TARN64_GROUP
  TARN64_STEP 0
  TARN64_STEP 1
  TARN64_STEP 2
  TARN64_STEP 3
  TARN64_STEP 4
  TARN64_STEP 5
  TARN64_STEP 6
  TARN64_STEP 7
  addq $1536, %rax
  addq $512, %rbx
  .endm
  .macro TARN64_ZERO
  .irp r, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23
  vpxord %zmm\r, %zmm\r, %zmm\r
  .endr
  .endm
  .macro TARN64_COLUMN_UPDATE j, j8, j16, base
  vaddpd \base, %zmm\j, %zmm\j
  vmovupd %zmm\j, \base
  vaddpd 64\base, %zmm\j8, %zmm\j8
  vmovupd %zmm\j8, 64\base
  vaddpd 128\base, %zmm\j16, %zmm\j16
  vmovupd %zmm\j16, 128\base
  .endm
  .macro TARN64_COLUMN_STORE j, j8, j16, base
  vmovupd %zmm\j, \base
  vmovupd %zmm\j8, 64\base
  vmovupd %zmm\j16, 128\base
  .endm

  .p2align 6
  .globl tarn_avx512_dgemm_walk
  .hidden tarn_avx512_dgemm_walk
  .type tarn_avx512_dgemm_walk, @function
tarn_avx512_dgemm_walk:
  pushq %rbx
  pushq %rbp
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  movq 0(%rdi), %r8
  movq 8(%rdi), %rbx
  movq 16(%rdi), %rdx
  movq 24(%rdi), %rsi
  leaq (%rsi,%rsi,2), %r13
  leaq (%rsi,%rsi,4), %r14
  leaq (%r13,%rsi,4), %r15
  movq 32(%rdi), %r9
  movq %r9, %r12
  shlq $3, %r12
  imulq %rsi, %r12
  addq %rdx, %r12
  movq 88(%rdi), %r11
  movq 104(%rdi), %rbp
  TARN64_ZERO
  .p2align 4
.Ltarn64_tile:
  movq %r8, %rax
  leaq (%rdx,%rsi,8), %r10
  cmpq %r12, %r10
  jb 1f
  subq %r12, %r10
  addq 16(%rdi), %r10
  addq $192, %r10
1:
  movq 40(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn64_c_done
  .p2align 4
.Ltarn64_c_loop:
  prefetcht0 (%r10)
  prefetcht0 64(%r10)
  prefetcht0 128(%r10)
  prefetcht0 191(%r10)
  addq %rsi, %r10
  TARN64_GROUP
  decq %rcx
  jnz .Ltarn64_c_loop
.Ltarn64_c_done:
  movq 48(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn64_list_done
  movq (%r11), %r10
  .p2align 4
.Ltarn64_list_loop:
  prefetcht1 (%r10)
  addq 96(%rdi), %r10
  prefetcht1 (%r10)
  addq 96(%rdi), %r10
  TARN64_GROUP
  decq %rcx
  jnz .Ltarn64_list_loop
.Ltarn64_list_done:
  movq 56(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn64_run_done
  .p2align 4
.Ltarn64_run_loop:
  prefetcht1 (%rbp)
  prefetcht1 64(%rbp)
  addq $128, %rbp
  TARN64_GROUP
  decq %rcx
  jnz .Ltarn64_run_loop
.Ltarn64_run_done:
  movq 64(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn64_plain_done
  .p2align 4
.Ltarn64_plain_loop:
  TARN64_GROUP
  decq %rcx
  jnz .Ltarn64_plain_loop
.Ltarn64_plain_done:
  movq 72(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn64_rest_done
.Ltarn64_rest_loop:
  TARN64_STEP 0
  addq $192, %rax
  addq $64, %rbx
  decq %rcx
  jnz .Ltarn64_rest_loop
.Ltarn64_rest_done:
  cmpq $0, 80(%rdi)
  jne .Ltarn64_store
  TARN64_COLUMN_UPDATE 0, 8, 16, "(%rdx)"
  TARN64_COLUMN_UPDATE 1, 9, 17, "(%rdx,%rsi)"
  TARN64_COLUMN_UPDATE 2, 10, 18, "(%rdx,%rsi,2)"
  TARN64_COLUMN_UPDATE 3, 11, 19, "(%rdx,%r13)"
  TARN64_COLUMN_UPDATE 4, 12, 20, "(%rdx,%rsi,4)"
  TARN64_COLUMN_UPDATE 5, 13, 21, "(%rdx,%r14)"
  TARN64_COLUMN_UPDATE 6, 14, 22, "(%rdx,%r13,2)"
  TARN64_COLUMN_UPDATE 7, 15, 23, "(%rdx,%r15)"
  jmp .Ltarn64_next
.Ltarn64_store:
  TARN64_COLUMN_STORE 0, 8, 16, "(%rdx)"
  TARN64_COLUMN_STORE 1, 9, 17, "(%rdx,%rsi)"
  TARN64_COLUMN_STORE 2, 10, 18, "(%rdx,%rsi,2)"
  TARN64_COLUMN_STORE 3, 11, 19, "(%rdx,%r13)"
  TARN64_COLUMN_STORE 4, 12, 20, "(%rdx,%rsi,4)"
  TARN64_COLUMN_STORE 5, 13, 21, "(%rdx,%r14)"
  TARN64_COLUMN_STORE 6, 14, 22, "(%rdx,%r13,2)"
  TARN64_COLUMN_STORE 7, 15, 23, "(%rdx,%r15)"
.Ltarn64_next:
  TARN64_ZERO
  leaq (%rdx,%rsi,8), %rdx
  addq $8, %r11
  decq %r9
  jnz .Ltarn64_tile
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbp
  popq %rbx
  ret
  .size tarn_avx512_dgemm_walk, .-tarn_avx512_dgemm_walk
  .purgem TARN64_COL
  .purgem TARN64_STEP
  .purgem TARN64_GROUP
  .purgem TARN64_ZERO
  .purgem TARN64_COLUMN_UPDATE
  .purgem TARN64_COLUMN_STORE
  .popsection
)asm");

#else

// The 32-bit form, in assembly: in 32-bit mode the compiled tile kept its depth counter and prefetch
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

static_assert(offsetof(GemmPanelArgs, a) == 0 && offsetof(GemmPanelArgs, b) == 4 &&
                  offsetof(GemmPanelArgs, c) == 8 &&
                  offsetof(GemmPanelArgs, ldc_bytes) == 12 &&
                  offsetof(GemmPanelArgs, kc) == 16 &&
                  offsetof(GemmPanelArgs, ntiles) == 20 &&
                  offsetof(GemmPanelArgs, b0) == 24 &&
                  offsetof(GemmPanelArgs, pf_starts) == 28 &&
                  offsetof(GemmPanelArgs, pf_stride) == 32 &&
                  offsetof(GemmPanelArgs, pf_count) == 36 &&
                  offsetof(GemmPanelArgs, run) == 40 &&
                  offsetof(GemmPanelArgs, run_count) == 44,
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

#endif
