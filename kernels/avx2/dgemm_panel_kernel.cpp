// tarn_avx2_dgemm_panel (see dgemm_panel_kernel.h), 64-bit mode: the C++
// entry turns the arguments into a plan of fixed trip counts
// (gemm_panel_plan); the assembly runs it. The compiled tile moved
// accumulators between registers inside its loop (GCC 12), where the
// assembly keeps every one in its register.
//
// Registers: rax the A panel (back to its start, r8, for each tile), rbx
// the B panels (they lie one after the other, so it just runs on), rcx the
// loop counter, rdx the tile's C, rsi the column stride of C in bytes, r13
// and r14 three and five times that, rdi the plan, r9 the tiles left, r10
// the prefetch pointer, r11 the cursor in the prefetch list, r12 the end
// of the C block, rbp the run; ymm0-11 the accumulators (ymm0-5 rows 0-3 of
// columns 0-5, ymm6-11 rows 4-7), ymm12-13 the A values of the current k,
// ymm14-15 the broadcast B values in turn.
#include "kernels/avx2/dgemm_panel_kernel.h"

#if defined(__x86_64__)

namespace {

constexpr int kTileCols = 6, kTileRows = 8;

}  // namespace

extern "C" void tarn_avx2_dgemm_walk(const GemmPanelPlan* plan);

extern "C" void tarn_avx2_dgemm_panel(const GemmPanelArgs* args) {
  static_assert(kTileRows * sizeof(double) == 64 && kTileCols * sizeof(double) == 48,
                "the routine's displacements");
  const GemmPanelPlan plan = gemm_panel_plan<kTileCols>(*args);
  tarn_avx2_dgemm_walk(&plan);
}

__asm__(R"asm(
  .pushsection .text
  .macro TARN2_COL j, j6, bj, s
  vbroadcastsd (\s*48+\j*8)(%rbx), %ymm\bj
  vfmadd231pd %ymm\bj, %ymm12, %ymm\j
  vfmadd231pd %ymm\bj, %ymm13, %ymm\j6
  .endm
  .macro TARN2_STEP s
  vmovupd (\s*64)(%rax), %ymm12
  vmovupd (\s*64+32)(%rax), %ymm13
  TARN2_COL 0, 6, 14, \s
  TARN2_COL 1, 7, 15, \s
  TARN2_COL 2, 8, 14, \s
  TARN2_COL 3, 9, 15, \s
  TARN2_COL 4, 10, 14, \s
  TARN2_COL 5, 11, 15, \s
  .endm
  .macro TARN2_GROUP
  TARN2_STEP 0
  TARN2_STEP 1
  TARN2_STEP 2
  TARN2_STEP 3
  TARN2_STEP 4
  TARN2_STEP 5
  TARN2_STEP 6
  TARN2_STEP 7
  addq $512, %rax
  addq $384, %rbx
  .endm
  .macro TARN2_ZERO
  .irp r, 0,1,2,3,4,5,6,7,8,9,10,11
  vxorpd %ymm\r, %ymm\r, %ymm\r
  .endr
  .endm
  .macro TARN2_COLUMN_UPDATE j, j6, base
  vaddpd \base, %ymm\j, %ymm\j
  vmovupd %ymm\j, \base
  vaddpd 32\base, %ymm\j6, %ymm\j6
  vmovupd %ymm\j6, 32\base
  .endm
  .macro TARN2_COLUMN_STORE j, j6, base
  vmovupd %ymm\j, \base
  vmovupd %ymm\j6, 32\base
  .endm

  .p2align 6
  .globl tarn_avx2_dgemm_walk
  .hidden tarn_avx2_dgemm_walk
  .type tarn_avx2_dgemm_walk, @function
tarn_avx2_dgemm_walk:
  pushq %rbx
  pushq %rbp
  pushq %r12
  pushq %r13
  pushq %r14
  movq 0(%rdi), %r8
  movq 8(%rdi), %rbx
  movq 16(%rdi), %rdx
  movq 24(%rdi), %rsi
  leaq (%rsi,%rsi,2), %r13
  leaq (%rsi,%rsi,4), %r14
  movq 32(%rdi), %r9
  leaq (%r9,%r9,2), %r12
  addq %r12, %r12
  imulq %rsi, %r12
  addq %rdx, %r12
  movq 88(%rdi), %r11
  movq 104(%rdi), %rbp
  TARN2_ZERO
  .p2align 4
.Ltarn2_tile:
  movq %r8, %rax
  leaq (%rdx,%r13,2), %r10
  cmpq %r12, %r10
  jb 1f
  subq %r12, %r10
  addq 16(%rdi), %r10
  addq $64, %r10
1:
  movq 40(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn2_c_done
  .p2align 4
.Ltarn2_c_loop:
  prefetcht0 (%r10)
  prefetcht0 63(%r10)
  addq %rsi, %r10
  TARN2_GROUP
  decq %rcx
  jnz .Ltarn2_c_loop
.Ltarn2_c_done:
  movq 48(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn2_list_done
  movq (%r11), %r10
  .p2align 4
.Ltarn2_list_loop:
  prefetcht1 (%r10)
  addq 96(%rdi), %r10
  prefetcht1 (%r10)
  addq 96(%rdi), %r10
  TARN2_GROUP
  decq %rcx
  jnz .Ltarn2_list_loop
.Ltarn2_list_done:
  movq 56(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn2_run_done
  .p2align 4
.Ltarn2_run_loop:
  prefetcht1 (%rbp)
  prefetcht1 64(%rbp)
  addq $128, %rbp
  TARN2_GROUP
  decq %rcx
  jnz .Ltarn2_run_loop
.Ltarn2_run_done:
  movq 64(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn2_plain_done
  .p2align 4
.Ltarn2_plain_loop:
  TARN2_GROUP
  decq %rcx
  jnz .Ltarn2_plain_loop
.Ltarn2_plain_done:
  movq 72(%rdi), %rcx
  testq %rcx, %rcx
  jz .Ltarn2_rest_done
.Ltarn2_rest_loop:
  TARN2_STEP 0
  addq $64, %rax
  addq $48, %rbx
  decq %rcx
  jnz .Ltarn2_rest_loop
.Ltarn2_rest_done:
  cmpq $0, 80(%rdi)
  jne .Ltarn2_store
  TARN2_COLUMN_UPDATE 0, 6, "(%rdx)"
  TARN2_COLUMN_UPDATE 1, 7, "(%rdx,%rsi)"
  TARN2_COLUMN_UPDATE 2, 8, "(%rdx,%rsi,2)"
  TARN2_COLUMN_UPDATE 3, 9, "(%rdx,%r13)"
  TARN2_COLUMN_UPDATE 4, 10, "(%rdx,%rsi,4)"
  TARN2_COLUMN_UPDATE 5, 11, "(%rdx,%r14)"
  jmp .Ltarn2_next
.Ltarn2_store:
  TARN2_COLUMN_STORE 0, 6, "(%rdx)"
  TARN2_COLUMN_STORE 1, 7, "(%rdx,%rsi)"
  TARN2_COLUMN_STORE 2, 8, "(%rdx,%rsi,2)"
  TARN2_COLUMN_STORE 3, 9, "(%rdx,%r13)"
  TARN2_COLUMN_STORE 4, 10, "(%rdx,%rsi,4)"
  TARN2_COLUMN_STORE 5, 11, "(%rdx,%r14)"
.Ltarn2_next:
  TARN2_ZERO
  leaq (%rdx,%r13,2), %rdx
  addq $8, %r11
  decq %r9
  jnz .Ltarn2_tile
  vzeroupper
  popq %r14
  popq %r13
  popq %r12
  popq %rbp
  popq %rbx
  ret
  .size tarn_avx2_dgemm_walk, .-tarn_avx2_dgemm_walk
  .purgem TARN2_COL
  .purgem TARN2_STEP
  .purgem TARN2_GROUP
  .purgem TARN2_ZERO
  .purgem TARN2_COLUMN_UPDATE
  .purgem TARN2_COLUMN_STORE
  .popsection
)asm");

#endif
