// The team barrier of the parallel LU: members other than 0 count their
// arrival, member 0 waits for all of them and releases the round. The
// counters only grow, so a round needs no reset and a member may enter the
// next round while member 0 is still leaving this one.
#include "lapack/lu_team.h"

extern "C" const int spin_limit = 5000;

namespace {

uint64_t load_acquire(const uint64_t* word) { return __atomic_load_n(word, __ATOMIC_ACQUIRE); }

// Waits until *word reaches target.
void wait_until_at_least(const uint64_t* word, uint64_t target) {
  int rounds = 0;
  while (load_acquire(word) < target) tarn_spin_wait_step(&rounds);
}

}  // namespace

extern "C" void tarn_barrier_wait(tarn_team_barrier* barrier, int ithr, int nthr) {
  if (nthr <= 1) return;
  // Every member reads the same value here: release changes only after all
  // of this round's arrivals, and member 0 stores it before its next round.
  const uint64_t target = load_acquire(&barrier->release) + (uint64_t)(nthr - 1);
  if (ithr != 0) {
    // A compare-and-swap loop: in a 32-bit build this is the double-width
    // cmpxchg8b, the only atomic read-modify-write of 64 bits there.
    uint64_t seen = __atomic_load_n(&barrier->arrive, __ATOMIC_RELAXED);
    while (!__atomic_compare_exchange_n(&barrier->arrive, &seen, seen + 1, true, __ATOMIC_ACQ_REL,
                                        __ATOMIC_RELAXED)) {
    }
    wait_until_at_least(&barrier->release, target);
    return;
  }
  wait_until_at_least(&barrier->arrive, target);
  __atomic_store_n(&barrier->release, target, __ATOMIC_RELEASE);
}
