// Dispatching stub of the team DGEMM of the LU driver (an empty entry answering -1 below api
// support 4).
#include <type_traits>

#include "blas/blas.h"
#include "blas/dispatch.h"

static_assert(
    std::is_same_v<decltype(tarn_blas_xdgemm_internal_team), tarn_xdgemm_internal_team_fn>,
    "the stub must have exactly the signature of its targets");

namespace {

// The chosen branch entry; null until the first call, then never changed.
tarn_xdgemm_internal_team_fn* xdgemm_internal_team_cell = nullptr;
tarn_xdgemm_internal_team_fn* const xdgemm_internal_team_candidates[] =
    TARN_BRANCH_CANDIDATES(xdgemm_internal_team);

// The first call: choose the branch, then make the call. Kept out of line so
// that the stub itself is a load, a test and a jump.
__attribute__((noinline, cold)) int first_call(const char* transa, const char* transb, const int* m,
                                               const int* n, const int* k, const double* alpha,
                                               const double* a, const int* lda, const double* b,
                                               const int* ldb, const double* beta, double* c,
                                               const int* ldc, void* team, const int* ithr,
                                               const int* mode) {
  tarn_xdgemm_internal_team_fn* f =
      tarn_dispatch::resolve(&xdgemm_internal_team_cell, xdgemm_internal_team_candidates);
  if (f == nullptr) return 0;
  return f(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, team, ithr, mode);
}

}  // namespace

extern "C" int tarn_blas_xdgemm_internal_team(const char* transa, const char* transb, const int* m,
                                              const int* n, const int* k, const double* alpha,
                                              const double* a, const int* lda, const double* b,
                                              const int* ldb, const double* beta, double* c,
                                              const int* ldc, void* team, const int* ithr,
                                              const int* mode) {
  tarn_xdgemm_internal_team_fn* f = __atomic_load_n(&xdgemm_internal_team_cell, __ATOMIC_RELAXED);
  if (__builtin_expect(f == nullptr, 0))
    return first_call(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, team, ithr,
                      mode);
  return f(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, team, ithr, mode);
}
