// Dispatching stub of the generation of the GEMM service interface (4 or 1).
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_dgemm_api_support), tarn_api_version_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_api_version_fn* dgemm_api_support_cell = nullptr;
tarn_api_version_fn* const dgemm_api_support_candidates[] =
    TARN_BRANCH_CANDIDATES(dgemm_api_support);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) int first_call(void) {
  tarn_api_version_fn* f =
      tarn_dispatch::resolve(&dgemm_api_support_cell, dgemm_api_support_candidates);
  if (f == nullptr) return 0;
  return f();
}

}  // namespace

extern "C" int tarn_blas_dgemm_api_support(void) {
  tarn_api_version_fn* f = __atomic_load_n(&dgemm_api_support_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call();
  return f();
}
