// Compiler-facing synchronisation entries. Every team is of one thread, so
// the team-wide constructs (barrier, master, single, reduction) have nothing
// to wait for; critical sections still exclude each other across roots,
// which run concurrently when the program has several threads of its own.

#include <sched.h>

#include <atomic>

#include "src/vos_internal.h"

namespace {

// The lock word of a critical section: 0 until first use, then the direct
// test-and-set tag while free, and the holder's gtid + 1 above the tag
// while held.
constexpr int32_t kLockseqTas = 1;
constexpr int32_t kTasFreeWord = kLockseqTas * 2 + 1;
constexpr int32_t kTasOwnerShift = 8;
// Spins with pause before each try starts yielding the processor.
constexpr int kSpinsBeforeYield = 5000;

std::atomic_ref<int32_t> lock_word(vosc_critical_name* crit) {
  return std::atomic_ref<int32_t>((*crit)[0]);
}

void cpu_relax() {
#if defined(__i386__) || defined(__x86_64__)
  __builtin_ia32_pause();
#endif
}

}  // namespace

extern "C" void __vosc_barrier(ident_t*, int32_t) {}

extern "C" int32_t __vosc_master(ident_t*, int32_t) { return 1; }

extern "C" void __vosc_end_master(ident_t*, int32_t) {}

// A serialized team wins every single.
extern "C" int32_t __vosc_single(ident_t*, int32_t) { return 1; }

extern "C" void __vosc_end_single(ident_t*, int32_t) {}

extern "C" void __vosc_critical(ident_t*, int32_t global_tid, vosc_critical_name* crit) {
  VOS_ASSERT(crit != nullptr, "vos_csupport");
  auto word = lock_word(crit);
  int32_t expected = 0;
  word.compare_exchange_strong(expected, kTasFreeWord, std::memory_order_relaxed);
  const int32_t held = ((global_tid + 1) << kTasOwnerShift) | kTasFreeWord;
  for (int tries = 0;; ++tries) {
    expected = kTasFreeWord;
    if (word.load(std::memory_order_relaxed) == kTasFreeWord &&
        word.compare_exchange_weak(expected, held, std::memory_order_acquire,
                                   std::memory_order_relaxed))
      return;
    if (tries < kSpinsBeforeYield)
      cpu_relax();
    else
      sched_yield();
  }
}

extern "C" void __vosc_end_critical(ident_t*, int32_t, vosc_critical_name* crit) {
  VOS_ASSERT(crit != nullptr, "vos_csupport");
  lock_word(crit).store(kTasFreeWord, std::memory_order_release);
}

extern "C" void __vosc_flush(ident_t*) { std::atomic_thread_fence(std::memory_order_seq_cst); }

// ---- Reductions -------------------------------------------------------------------

// A team of one combines on its own, without a lock: the caller adds its
// value to the shared one and calls the end entry.
extern "C" int32_t __vosc_reduce_nowait(ident_t*, int32_t, int32_t, size_t, void*,
                                        vosc_reduce_func, vosc_critical_name*) {
  __vos_thread_self()->packed_reduction_method = vos_reduction_empty;
  return VOS_REDUCE_COMBINE;
}

extern "C" void __vosc_end_reduce_nowait(ident_t*, int32_t, vosc_critical_name*) {
  VOS_ASSERT(__vos_thread_self()->packed_reduction_method == vos_reduction_empty,
             "vos_csupport");
}

extern "C" int32_t __vosc_reduce(ident_t*, int32_t, int32_t, size_t, void*, vosc_reduce_func,
                                 vosc_critical_name*) {
  __vos_thread_self()->packed_reduction_method = vos_reduction_empty;
  return VOS_REDUCE_COMBINE;
}

// The closing barrier of a team of one has nobody to wait for.
extern "C" void __vosc_end_reduce(ident_t*, int32_t, vosc_critical_name*) {
  VOS_ASSERT(__vos_thread_self()->packed_reduction_method == vos_reduction_empty,
             "vos_csupport");
}
