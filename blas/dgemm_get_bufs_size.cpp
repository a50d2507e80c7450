// Dispatching stub of the legacy GEMM service that sizes the work memory.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_dgemm_get_bufs_size), tarn_dgemm_get_bufs_size_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_dgemm_get_bufs_size_fn* dgemm_get_bufs_size_cell = nullptr;
tarn_dgemm_get_bufs_size_fn* const dgemm_get_bufs_size_candidates[] =
    TARN_BRANCH_CANDIDATES(dgemm_get_bufs_size);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) int first_call(const int* m, const int* n, const int* k,
                                               void* desc) {
  tarn_dgemm_get_bufs_size_fn* f =
      tarn_dispatch::resolve(&dgemm_get_bufs_size_cell, dgemm_get_bufs_size_candidates);
  if (f == nullptr) return 0;
  return f(m, n, k, desc);
}

}  // namespace

extern "C" int tarn_blas_dgemm_get_bufs_size(const int* m, const int* n, const int* k, void* desc) {
  tarn_dgemm_get_bufs_size_fn* f = __atomic_load_n(&dgemm_get_bufs_size_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(m, n, k, desc);
  return f(m, n, k, desc);
}
