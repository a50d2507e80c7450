// Branch selection shared by the dispatching stubs. Each stub owns its cell
// (one pointer-sized word, zero until its first call) and its own list of
// the seven branch candidates; this header only holds the choice itself, so
// that one operation can be resolved while others are still unresolved.
#pragma once

#include "kernels/kernels.h"

namespace tarn_dispatch {

// Index of a branch in every candidate list, in the order of the list.
enum Branch : int {
  kSse2 = 0,
  kCnrSse2 = 1,
  kSsse3 = 2,
  kSse42 = 3,
  kAvx = 4,
  kAvx2 = 5,
  kAvx512 = 6,
  kBranchCount = 7,
};
constexpr int kNoBranch = -1;

// The mapping table: which branch a branch code selects, given the
// reproducibility mode (read only for codes 1, 2 and 4; 1 means automatic).
// kNoBranch for the codes that have no branch (0, 3, 8, 10 and above).
int branch_for(int code, int cbwr_mode);
// True for the codes whose branch depends on the reproducibility mode.
bool code_reads_cbwr(int code);

// The whole selection with the services passed in: asks `detect` for the
// code, `cbwr` only where the table needs it, and for an unsupported code
// reports message 1213 with a second answer of `detect` and ends the process
// with status 1. The stubs pass the service layer's functions; tests pass
// their own to simulate other processors.
int select_branch_with(int (*detect)(), int (*cbwr)(int));
// select_branch_with on tarn_serv_cpu_detect and tarn_serv_cbwr_get.
int select_branch();

// What a stub does while its cell is empty: choose, store, read back. The
// store of one aligned pointer is atomic here; two threads racing store the
// same value, since the services answer the same after their first call.
template <class Fn>
__attribute__((noinline, cold)) Fn* resolve(Fn** cell, Fn* const (&candidates)[kBranchCount]) {
  const int branch = select_branch();
  if (branch < 0 || branch >= kBranchCount) return nullptr;  // unsupported, and not stopped
  __atomic_store_n(cell, candidates[branch], __ATOMIC_RELAXED);
  return __atomic_load_n(cell, __ATOMIC_RELAXED);
}

}  // namespace tarn_dispatch

// The seven candidates of an operation, in the order of tarn_dispatch::Branch.
#define TARN_BRANCH_CANDIDATES(op)                                                            \
  {                                                                                           \
    tarn_blas_sse2_##op, tarn_blas_cnr_sse2_##op, tarn_blas_ssse3_##op, tarn_blas_sse42_##op, \
        tarn_blas_avx_##op, tarn_blas_avx2_##op, tarn_blas_avx512_##op                        \
  }
