// The thread teams of the parallel LU: the spinning team barrier, the wait
// step every spinning loop of the teams uses, and the GEMM part of the team
// record, which the LU hands to tarn_lapack_dgemm_team and through it to the
// branch's team entry tarn_blas_xdgemm_internal_team. Plain structs, so that
// the kernels of every branch read them as they stand.
//
// The shared pack ring of the team entry, and the rule that keeps a ring
// slot from being refilled while another team still reads it:
//
//  - Mode 0 (allocate): gemm_nthr members call it with m, k the largest L
//    block any later pack will hold (rows below the first panel, widest
//    panel) and gemm_ring the ring size. Member 0 allocates gemm_ring slots
//    of that size and stores the state in gemm_shared; the members pass
//    gemm_barrier; every member answers 0, or non-zero when the state could
//    not be had (then gemm_shared is null and nothing is allocated). The LU
//    copies gemm_shared into every team record that is to use the ring.
//  - Mode 1 (pack): the members pack op(A)*alpha into slot gemm_slot, each
//    a share of the row panels. Member 0 first claims the slot: it waits
//    until no reader is inside it and marks it as being filled, so a slot is
//    never overwritten under a reader. The members pass gemm_barrier, pack,
//    pass it again, and member 0 publishes what the slot now holds: the
//    operands (a, lda, m, k, transa, alpha) it was packed from. The slot is
//    readable once member 0 has returned. A shape larger than mode 0's, a
//    slot outside the ring or no state: every member answers non-zero, no
//    barrier is passed and the slot keeps what it held.
//  - Mode 2 (multiply), with gemm_shared set: each member takes its share
//    of C's rows, in whole row panels, and looks into slot gemm_slot. If the
//    slot holds exactly this product's A (same a, lda, transa, alpha and k,
//    at least m rows) the member enters it as a reader, multiplies with the
//    packed A and leaves; otherwise (the slot was refilled by a later
//    panel, or never filled) the member multiplies its rows with the
//    one-thread GEMM, packing A itself. Either way the result is right: a
//    reader that comes late only loses the saving. With gemm_shared null,
//    mode 2 is the plain split: each member its share of C's rows through
//    the one-thread GEMM.
//  - Mode 4 (free): one caller frees the state and clears gemm_shared.
//
// So the LU needs no count of the readers a panel will have: packing panel
// j into slot j % ring waits only for the readers of panel j - ring that are
// inside the slot at that moment (one update's product at most), and later
// readers of panel j - ring fall back. The packed A stays valid only while
// the L block it came from is unchanged (the deferred interchanges to the
// left of the panels run after the task loop, when the ring is no longer
// read).
#pragma once

#include <cstdint>

#include "service/cpu.h"

extern "C" {

// Two counters that only grow, each on a cache line of its own so that the
// spinning readers of one do not collide with the atomic writers of the
// other. Zero at the start; never reset.
struct tarn_team_barrier {
  alignas(64) uint64_t arrive;
  alignas(64) uint64_t release;
};

// Rounds of `pause` a spinning wait makes before it starts to yield the
// processor between reads.
extern const int spin_limit;

// Passes the barrier with nthr members numbered 0 to nthr - 1; the same set
// of threads must use a barrier in the same order. nthr <= 1 returns at once
// without touching it.
void tarn_barrier_wait(tarn_team_barrier* barrier, int ithr, int nthr);

// Values of tarn_gemm_record::gemm_mode: how tarn_lapack_dgemm_team splits a
// product among the team.
enum : int32_t {
  kGemmTeamOneThread = 0,
  kGemmTeamByRows = 1,
  kGemmTeamByColumns = 2,
  kGemmTeamByDepth = 3,
  kGemmTeamPackRing = 4,
};

// Mode words of tarn_blas_xdgemm_internal_team.
enum : int32_t {
  kGemmTeamEntryAllocate = 0,
  kGemmTeamEntryPack = 1,
  kGemmTeamEntryMultiply = 2,
  kGemmTeamEntryFree = 4,
};

// The GEMM part of an LU team record; the `void* team` of the team entry
// points at one. gemm_nthr, gemm_slot and gemm_shared are read by the entry
// and must be in place before the members call it (the team's leader
// prepares them, as it prepares the rest of the record, before a barrier).
struct tarn_gemm_record {
  int32_t gemm_state;  // initially 1; not read by the LU
  tarn_team_barrier gemm_barrier;
  int32_t gemm_mode;        // kGemmTeam*, initially 2
  double* gemm_work;        // partial products of the depth split
  int32_t gemm_use_work;    // initially 0
  int32_t gemm_work_size;   // doubles in gemm_work, initially 1
  int32_t gemm_work_owned;  // gemm_work allocated by the depth split
  void* gemm_shared;        // the pack ring of the team entry, or null
  int32_t gemm_slot;        // ring slot to pack into or multiply from
  int32_t gemm_ring;        // slots of the ring
  int32_t gemm_top;         // thread number of the team's top
  int32_t gemm_units;       // units of the team context
  int32_t gemm_nthr;        // members of the team that calls the entry
};

}  // extern "C"

// One step of a spinning wait: `pause` for the first spin_limit rounds,
// then a yield of the processor between reads. *rounds starts at 0 for each
// wait. Internal linkage: kernel files compiled for other instruction sets
// include this header too.
static inline void tarn_spin_wait_step(int* rounds) {
  if (*rounds < spin_limit) {
    ++*rounds;
    __asm__ volatile("pause" ::: "memory");
  } else {
    tarn_serv_thread_yield();
  }
}

// A record as a team starts with it: no work buffer, no ring, column split.
static inline void tarn_gemm_record_init(tarn_gemm_record* r, int nthr) {
  *r = tarn_gemm_record{};
  r->gemm_state = 1;
  r->gemm_mode = kGemmTeamByColumns;
  r->gemm_work_size = 1;
  r->gemm_nthr = nthr;
}
