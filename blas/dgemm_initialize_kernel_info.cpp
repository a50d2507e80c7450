// Dispatching stub of the GEMM service that fills the kernel information.
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(std::is_same_v<decltype(tarn_blas_dgemm_initialize_kernel_info),
                             tarn_dgemm_initialize_kernel_info_fn>,
              "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_dgemm_initialize_kernel_info_fn* dgemm_initialize_kernel_info_cell = nullptr;
tarn_dgemm_initialize_kernel_info_fn* const dgemm_initialize_kernel_info_candidates[] =
    TARN_BRANCH_CANDIDATES(dgemm_initialize_kernel_info);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) void first_call(const blas_op_params* op, blas_matrix* a,
                                                blas_matrix* b, blas_matrix* c,
                                                blas_strategy* strategy, blas_kernel_info* info) {
  tarn_dgemm_initialize_kernel_info_fn* f = tarn_dispatch::resolve(
      &dgemm_initialize_kernel_info_cell, dgemm_initialize_kernel_info_candidates);
  if (f == nullptr) return;
  f(op, a, b, c, strategy, info);
}

}  // namespace

extern "C" void tarn_blas_dgemm_initialize_kernel_info(const blas_op_params* op, blas_matrix* a,
                                                       blas_matrix* b, blas_matrix* c,
                                                       blas_strategy* strategy,
                                                       blas_kernel_info* info) {
  tarn_dgemm_initialize_kernel_info_fn* f =
      __atomic_load_n(&dgemm_initialize_kernel_info_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0)) return first_call(op, a, b, c, strategy, info);
  f(op, a, b, c, strategy, info);
}
