// Dispatching stub of the GEMM service that turns a thread plan into a strategy.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_dgemm_map_thread_to_kernel),
                             tarn_dgemm_map_thread_to_kernel_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_dgemm_map_thread_to_kernel_fn* dgemm_map_thread_to_kernel_cell = nullptr;
tarn_dgemm_map_thread_to_kernel_fn* const dgemm_map_thread_to_kernel_candidates[] =
    TARN_BRANCH_CANDIDATES(dgemm_map_thread_to_kernel);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const gemm_thread_opts* opts,
                                                blas_strategy* strategy) {
  tarn_dgemm_map_thread_to_kernel_fn* f = tarn_dispatch::resolve(
      &dgemm_map_thread_to_kernel_cell, dgemm_map_thread_to_kernel_candidates);
  if (f == nullptr) return;
  f(opts, strategy);
}

}  // namespace

extern "C" void tarn_blas_dgemm_map_thread_to_kernel(const gemm_thread_opts* opts,
                                                     blas_strategy* strategy) {
  tarn_dgemm_map_thread_to_kernel_fn* f =
      __atomic_load_n(&dgemm_map_thread_to_kernel_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(opts, strategy);
  f(opts, strategy);
}
