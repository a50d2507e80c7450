// The GEMM entry of the LU's thread teams on the descriptor branches (avx2,
// avx512): tarn_blas_<branch>_xdgemm_internal_team. Every member of a team
// calls it with the same arguments, the team's GEMM record (lapack/lu_team.h,
// which also states the slot rule) and its own rank. The shared pack state
// is a ring of slots, each holding one packed A set (gemm_descriptors.h):
// an L block of the LU, packed once by the team that factored it and
// multiplied from by every update task of that panel, so that no update
// packs L again.
//
// How a product is split in the shared mode: by C's rows, in whole row
// panels. Each member then reads only its own panels of the packed A, the
// big operand (all rows below a panel by the panel's width), once; it packs
// the small B (panel width by panel width in the LU) into a buffer of its
// own. A split by columns would stream the whole of A through every member.
// The members need no synchronisation between them at all, and since the
// fallback of a member that finds the slot refilled is the one-thread GEMM
// on the same rows, members may decide differently and the rows still do
// not overlap.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_descriptors.h"
#include "lapack/lu_team.h"
#include "service/cpu.h"
#include "service/timers.h"

namespace {

// What a ring slot holds.
enum : int32_t {
  kTeamSlotEmpty = 0,
  kTeamSlotFilling = 1,  // claimed by a packing team
  kTeamSlotReady = 2,    // holds the set of the operands recorded
};

// One slot of the ring, on cache lines of its own: the words that readers
// and the packing team exchange, under the slot's service lock.
struct alignas(64) GemmTeamSlot {
  int lock;
  int32_t state;
  int32_t readers;  // members multiplying from the set now
  // The operands the set was packed from (state ready).
  const double* a;
  int32_t lda, m, k, trans;
  int32_t kc;  // the set's depth block
  double alpha;
  double* set;  // room for `capacity` doubles
};

struct GemmTeamShared {
  void* raw;  // the one block holding all of this
  int32_t ring;
  size_t capacity;  // doubles of each slot's set
  GemmTeamSlot* slots;
};

inline uintptr_t gemm_team_up(uintptr_t x, uintptr_t unit) { return (x + unit - 1) / unit * unit; }

// The state for `ring` slots of an m by k set each, in one block: the head,
// the slots, then each set at a page boundary plus the A buffers' offset.
// Null when the sizes are out of range or the memory cannot be had.
template <class D>
GemmTeamShared* gemm_team_allocate(int m, int k, int ring) {
  if (m < 1 || k < 1) return nullptr;
  if (ring < 1) ring = 1;
  const uint64_t capacity = dgemm_aset_doubles<D>(m, k);
  const uint64_t per_slot = capacity * sizeof(double) + kGemmPage + kGemmAOffset;
  const uint64_t bytes = kGemmBufferAlignment + sizeof(GemmTeamShared) + alignof(GemmTeamSlot) +
                         (uint64_t)ring * (sizeof(GemmTeamSlot) + per_slot);
  if (bytes != (uint64_t)(size_t)bytes || capacity != (uint64_t)(size_t)capacity) return nullptr;
  void* raw = tarn_blas_gemm_buffer_allocate((size_t)bytes, kGemmBufferAlignment);
  if (raw == nullptr) return nullptr;
  auto* shared =
      reinterpret_cast<GemmTeamShared*>(gemm_team_up((uintptr_t)raw, alignof(GemmTeamShared)));
  shared->raw = raw;
  shared->ring = ring;
  shared->capacity = (size_t)capacity;
  shared->slots =
      reinterpret_cast<GemmTeamSlot*>(gemm_team_up((uintptr_t)(shared + 1), alignof(GemmTeamSlot)));
  uintptr_t cursor = (uintptr_t)(shared->slots + ring);
  // Loop over the slots: clear each, give it its set.
  for (int i = 0; i < ring; ++i) {
    GemmTeamSlot* s = shared->slots + i;
    s->lock = 0;
    s->state = kTeamSlotEmpty;
    s->readers = 0;
    s->a = nullptr;
    s->lda = s->m = s->k = s->trans = s->kc = 0;
    s->alpha = 0.0;
    const uintptr_t set = gemm_up4k(cursor) + kGemmAOffset;
    s->set = reinterpret_cast<double*>(set);
    cursor = set + (uintptr_t)capacity * sizeof(double);
  }
  return shared;
}

// The packing team's member 0 takes the slot over: once no reader is inside
// and no other team fills it, it is marked as being filled, and from then on
// no reader enters.
inline void gemm_team_claim(GemmTeamSlot* s) {
  int rounds = 0;
  for (;;) {
    tarn_serv_lock(&s->lock);
    if (s->readers == 0 && s->state != kTeamSlotFilling) {
      s->state = kTeamSlotFilling;
      s->a = nullptr;
      tarn_serv_unlock(&s->lock);
      return;
    }
    tarn_serv_unlock(&s->lock);
    tarn_spin_wait_step(&rounds);
  }
}

inline void gemm_team_publish(GemmTeamSlot* s, bool ta, int m, int k, int kc, double alpha,
                              const double* a, int lda) {
  tarn_serv_lock(&s->lock);
  s->a = a;
  s->lda = lda;
  s->m = m;
  s->k = k;
  s->trans = ta ? 1 : 0;
  s->kc = kc;
  s->alpha = alpha;
  s->state = kTeamSlotReady;
  tarn_serv_unlock(&s->lock);
}

// A member enters the slot as a reader if it holds the set of exactly this
// A (at least m rows of it); *copy receives what the slot holds.
inline bool gemm_team_enter(GemmTeamSlot* s, bool ta, int m, int k, double alpha, const double* a,
                            int lda, GemmTeamSlot* copy) {
  tarn_serv_lock(&s->lock);
  const bool holds = s->state == kTeamSlotReady && s->a == a && s->lda == lda &&
                     s->trans == (ta ? 1 : 0) && s->k == k && s->m >= m && s->alpha == alpha;
  if (holds) {
    ++s->readers;
    *copy = *s;
  }
  tarn_serv_unlock(&s->lock);
  return holds;
}

inline void gemm_team_leave(GemmTeamSlot* s) {
  tarn_serv_lock(&s->lock);
  --s->readers;
  tarn_serv_unlock(&s->lock);
}

// Mode 1: the members pack op(A) times alpha into the record's slot.
template <class D>
int gemm_team_pack(tarn_gemm_record* t, int ithr, int nthr, bool ta, int m, int k, double alpha,
                   const double* a, int lda) {
  using R = typename D::Packed;
  auto* shared = static_cast<GemmTeamShared*>(t->gemm_shared);
  const int slot = t->gemm_slot;
  // Every member sees the same answer here, so they all leave together.
  if (shared == nullptr || slot < 0 || slot >= shared->ring || m < 1 || k < 1 ||
      dgemm_aset_doubles<D>(m, k) > shared->capacity)
    return 1;
  GemmTeamSlot* s = shared->slots + slot;
  const int kc = gemm_block_sizes<R>(m, 1, k).kc;
  if (ithr == 0) gemm_team_claim(s);
  tarn_barrier_wait(&t->gemm_barrier, ithr, nthr);
  int rows = 0;
  const int panel = R::mr;
  const int row0 = tarn_serv_divbythreadsnb(&ithr, &nthr, &m, &panel, &rows);
  if (rows > 0) dgemm_pack_a_set<D>(ta, m, k, kc, a, lda, alpha, s->set, row0, rows);
  tarn_barrier_wait(&t->gemm_barrier, ithr, nthr);
  if (ithr == 0) gemm_team_publish(s, ta, m, k, kc, alpha, a, lda);
  return 0;
}

// One member's rows [row0, row0 + rows) of C through the mode-4 driver on
// the set `held`; false when its B buffer cannot be had (nothing done then).
template <class D>
bool gemm_team_multiply_from_set(const char* transa, const char* transb, int row0, int rows, int n,
                                 int k, double alpha, const double* a, int lda, const double* b,
                                 int ldb, double beta, double* c, int ldc,
                                 const GemmTeamSlot& held) {
  blas_op_params op;
  blas_initialize_op_params(kBlasOpDgemm, transa, transb, alpha, beta, &op);
  blas_matrix ma, mb, mc;
  blas_initialize_matrix(transa, rows, k, a, lda, &ma);
  ma.row_offset = row0;
  blas_initialize_matrix(transb, k, n, b, ldb, &mb);
  blas_initialize_matrix("N", rows, n, c, ldc, &mc);
  mc.row_offset = row0;
  blas_strategy strategy;
  dgemm_initialize_strategy<D>(&strategy);
  strategy.mode = kGemmModeAPacked;
  blas_kernel_info info;
  dgemm_initialize_kernel_info<D>(&op, &ma, &mb, &mc, &strategy, &info);
  blas_buffers bufs;
  dgemm_initialize_buffers<D>(&ma, &mb, &info.strategy, &bufs);
  // The B block must be as deep as the set's depth blocks.
  if (bufs.kc < held.kc) bufs.kc = held.kc;
  bufs.get_bufs(&bufs);
  if (bufs.b_desc.pointer == nullptr) return false;
  bufs.a_desc.pointer = held.set;
  bufs.a_desc.block = held.m;
  bufs.a_desc.kc = held.kc;
  bufs.a_desc.kc_rounded = held.k;
  info.driver(&op, &ma, &mb, &mc, &bufs, &info);
  bufs.free_bufs(&bufs);
  return true;
}

// Rows [row0, row0 + rows) of C by the branch's one-thread GEMM.
inline void gemm_team_rows_alone(tarn_xdgemm_fn* xdgemm, const char* transa, const char* transb,
                                 int row0, int rows, const int* n, const int* k,
                                 const double* alpha, const double* a, const int* lda,
                                 const double* b, const int* ldb, const double* beta, double* c,
                                 const int* ldc) {
  if (rows < 1) return;
  const double* ar = gemm_is_trans(transa) ? a + (ptrdiff_t)row0 * *lda : a + row0;
  xdgemm(transa, transb, &rows, n, k, alpha, ar, lda, b, ldb, beta, c + row0, ldc);
}

// Mode 2: C := alpha*op(A)*op(B) + beta*C, each member its rows.
template <class D>
int gemm_team_multiply(tarn_xdgemm_fn* xdgemm, tarn_gemm_record* t, int ithr, int nthr,
                       const char* transa, const char* transb, const int* m, const int* n,
                       const int* k, const double* alpha, const double* a, const int* lda,
                       const double* b, const int* ldb, const double* beta, double* c,
                       const int* ldc) {
  using R = typename D::Packed;
  if (*m < 1 || *n < 1) return 0;
  auto* shared = static_cast<GemmTeamShared*>(t->gemm_shared);
  int rows = 0;
  if (shared == nullptr) {
    // The plain split: even shares of the rows.
    const int row0 = tarn_serv_divbythreads(&ithr, &nthr, m, &rows);
    gemm_team_rows_alone(xdgemm, transa, transb, row0, rows, n, k, alpha, a, lda, b, ldb, beta, c,
                         ldc);
    return 0;
  }
  const int panel = R::mr;
  const int row0 = tarn_serv_divbythreadsnb(&ithr, &nthr, m, &panel, &rows);
  if (rows < 1) return 0;
  const int slot = t->gemm_slot;
  GemmTeamSlot held;
  if (slot >= 0 && slot < shared->ring && *k >= 1 && *alpha != 0.0 &&
      gemm_team_enter(shared->slots + slot, gemm_is_trans(transa), *m, *k, *alpha, a, *lda,
                      &held)) {
    const bool done = gemm_team_multiply_from_set<D>(transa, transb, row0, rows, *n, *k, *alpha, a,
                                                     *lda, b, *ldb, *beta, c, *ldc, held);
    gemm_team_leave(shared->slots + slot);
    if (done) return 0;
  }
  gemm_team_rows_alone(xdgemm, transa, transb, row0, rows, n, k, alpha, a, lda, b, ldb, beta, c,
                       ldc);
  return 0;
}

// The team entry: the record's gemm_nthr members, this one of rank *ithr.
template <class D>
int gemm_team_entry(tarn_xdgemm_fn* xdgemm, const char* transa, const char* transb, const int* m,
                    const int* n, const int* k, const double* alpha, const double* a,
                    const int* lda, const double* b, const int* ldb, const double* beta, double* c,
                    const int* ldc, void* team, const int* ithr, const int* mode) {
  if (team == nullptr || ithr == nullptr || mode == nullptr) return -1;
  auto* t = static_cast<tarn_gemm_record*>(team);
  const int nthr = t->gemm_nthr > 1 ? t->gemm_nthr : 1;
  const int me = *ithr;
  if (me < 0 || me >= nthr) return -1;
  switch (*mode) {
    case kGemmTeamEntryAllocate:
      if (me == 0) t->gemm_shared = gemm_team_allocate<D>(*m, *k, t->gemm_ring);
      tarn_barrier_wait(&t->gemm_barrier, me, nthr);
      return t->gemm_shared != nullptr ? 0 : 1;
    case kGemmTeamEntryPack:
      return gemm_team_pack<D>(t, me, nthr, gemm_is_trans(transa), *m, *k, *alpha, a, *lda);
    case kGemmTeamEntryMultiply:
      return gemm_team_multiply<D>(xdgemm, t, me, nthr, transa, transb, m, n, k, alpha, a, lda, b,
                                   ldb, beta, c, ldc);
    case kGemmTeamEntryFree:
      if (t->gemm_shared != nullptr)
        tarn_blas_gemm_buffer_deallocate(static_cast<GemmTeamShared*>(t->gemm_shared)->raw);
      t->gemm_shared = nullptr;
      return 0;
    default:
      return -1;
  }
}

}  // namespace

// The team entry of one branch on its record Desc, with its one-thread GEMM
// as the members' fallback.
#define TARN_GEMM_TEAM_ENTRY(br, Desc)                                                           \
  extern "C" int tarn_blas_##br##_xdgemm_internal_team(                                          \
      const char* transa, const char* transb, const int* m, const int* n, const int* k,          \
      const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,     \
      const double* beta, double* c, const int* ldc, void* team, const int* ithr,                \
      const int* mode) {                                                                         \
    const int r = gemm_team_entry<Desc>(tarn_blas_##br##_xdgemm, transa, transb, m, n, k, alpha, \
                                        a, lda, b, ldb, beta, c, ldc, team, ithr, mode);         \
    _mm256_zeroupper();                                                                          \
    return r;                                                                                    \
  }
