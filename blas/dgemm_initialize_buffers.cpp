// Dispatching stub of the GEMM service that sizes the pack buffers.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(
    std::is_same_v<decltype(tarn_blas_dgemm_initialize_buffers), tarn_dgemm_initialize_buffers_fn>,
    "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_dgemm_initialize_buffers_fn* dgemm_initialize_buffers_cell = nullptr;
tarn_dgemm_initialize_buffers_fn* const dgemm_initialize_buffers_candidates[] =
    TARN_BRANCH_CANDIDATES(dgemm_initialize_buffers);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(blas_matrix* a, blas_matrix* b,
                                                blas_strategy* strategy, blas_buffers* bufs) {
  tarn_dgemm_initialize_buffers_fn* f =
      tarn_dispatch::resolve(&dgemm_initialize_buffers_cell, dgemm_initialize_buffers_candidates);
  if (f == nullptr) return;
  f(a, b, strategy, bufs);
}

}  // namespace

extern "C" void tarn_blas_dgemm_initialize_buffers(blas_matrix* a, blas_matrix* b,
                                                   blas_strategy* strategy, blas_buffers* bufs) {
  tarn_dgemm_initialize_buffers_fn* f =
      __atomic_load_n(&dgemm_initialize_buffers_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(a, b, strategy, bufs);
  f(a, b, strategy, bufs);
}
