// Atomic update entries the numerics use. 32-bit integer add is one locked
// instruction; the others read, compute and compare-and-swap until the swap
// holds (cmpxchg8b for the 64-bit operands). max and min leave without a
// swap when the stored value already wins, so a NaN operand never stores:
// its comparison fails.

#include <atomic>
#include <cstring>

#include "src/vos_internal.h"

namespace {

template <typename T, typename Op>
void swap_loop(T* lhs, T rhs, Op op) {
  std::atomic_ref<T> word(*lhs);
  T old = word.load(std::memory_order_relaxed);
  while (!word.compare_exchange_weak(old, op(old, rhs), std::memory_order_acq_rel,
                                     std::memory_order_relaxed)) {
  }
}

// Swaps in rhs while it beats the stored value by better(rhs, stored).
template <typename T, typename Better>
void swap_if_better(T* lhs, T rhs, Better better) {
  std::atomic_ref<T> word(*lhs);
  T old = word.load(std::memory_order_relaxed);
  while (better(rhs, old)) {
    if (word.compare_exchange_weak(old, rhs, std::memory_order_acq_rel,
                                   std::memory_order_relaxed))
      return;
  }
}

}  // namespace

extern "C" void __vosc_atomic_fixed4_add(ident_t*, int32_t, int32_t* lhs, int32_t rhs) {
  std::atomic_ref<int32_t>(*lhs).fetch_add(rhs, std::memory_order_acq_rel);
}

extern "C" void __vosc_atomic_fixed4_max(ident_t*, int32_t, int32_t* lhs, int32_t rhs) {
  swap_if_better(lhs, rhs, [](int32_t a, int32_t b) { return a > b; });
}

extern "C" void __vosc_atomic_fixed4_min(ident_t*, int32_t, int32_t* lhs, int32_t rhs) {
  swap_if_better(lhs, rhs, [](int32_t a, int32_t b) { return a < b; });
}

extern "C" void __vosc_atomic_float8_add(ident_t*, int32_t, double* lhs, double rhs) {
  swap_loop(lhs, rhs, [](double a, double b) { return a + b; });
}

extern "C" void __vosc_atomic_float8_max(ident_t*, int32_t, double* lhs, double rhs) {
  swap_if_better(lhs, rhs, [](double a, double b) { return a > b; });
}

extern "C" void __vosc_atomic_float8_min(ident_t*, int32_t, double* lhs, double rhs) {
  swap_if_better(lhs, rhs, [](double a, double b) { return a < b; });
}
