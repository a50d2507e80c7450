// Dispatching stub of the generation of the kernel set (2 or 1), which decides the threaded
// drivers.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_get_kernel_api_version), tarn_api_version_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_api_version_fn* get_kernel_api_version_cell = nullptr;
tarn_api_version_fn* const get_kernel_api_version_candidates[] =
    TARN_BRANCH_CANDIDATES(get_kernel_api_version);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) int first_call(void) {
  tarn_api_version_fn* f =
      tarn_dispatch::resolve(&get_kernel_api_version_cell, get_kernel_api_version_candidates);
  if (f == nullptr) return 0;
  return f();
}

}  // namespace

extern "C" int tarn_blas_get_kernel_api_version(void) {
  tarn_api_version_fn* f = __atomic_load_n(&get_kernel_api_version_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call();
  return f();
}
