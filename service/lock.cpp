// The service layer's spin lock: a test-and-set word, 0 free and 1 held.
// Critical sections under it are short (a first-use step, a list append),
// so a waiter spins with pause for a while and only then gives its
// processor away on each failed try.
#include <sched.h>

#include "service/cpu.h"
#include "service/cpu_state.h"

namespace {

// Tries made with pause between them before a waiter starts yielding.
constexpr int kLockSpinLimit = 5000;

inline void cpu_pause() { __builtin_ia32_pause(); }

}  // namespace

extern "C" int tarn_serv_trylock(volatile int* word) {
  // Read first: a busy lock costs a shared load, not a locked bus cycle.
  if (__atomic_load_n(word, __ATOMIC_RELAXED) != 0) return 0;
  int expected = 0;
  return __atomic_compare_exchange_n(word, &expected, 1, false, __ATOMIC_ACQUIRE,
                                     __ATOMIC_RELAXED)
             ? 1
             : 0;
}

extern "C" void tarn_serv_lock(volatile int* word) {
  if (tarn_serv_trylock(word)) return;
  for (int round = 0;; ++round) {
    if (round < kLockSpinLimit)
      cpu_pause();
    else
      tarn_serv_thread_yield();
    if (tarn_serv_trylock(word)) return;
  }
}

extern "C" void tarn_serv_unlock(volatile int* word) { __atomic_store_n(word, 0, __ATOMIC_RELEASE); }

extern "C" int tarn_serv_cmpxchg(volatile int* pointer, int expected, int desired) {
  __atomic_compare_exchange_n(pointer, &expected, desired, false, __ATOMIC_ACQ_REL,
                              __ATOMIC_ACQUIRE);
  return expected;
}

extern "C" void tarn_serv_thread_yield(void) { sched_yield(); }

namespace tarn_cpu {

LockGuard::LockGuard(volatile int* word) : word_(word) { tarn_serv_lock(word_); }
LockGuard::~LockGuard() { tarn_serv_unlock(word_); }

}  // namespace tarn_cpu
