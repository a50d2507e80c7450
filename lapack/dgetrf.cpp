// LU factorization: the choice of road for one matrix.
#include <algorithm>

#include "lapack/lapack.h"
#include "lapack/ps_small.h"

namespace {
constexpr int kInternalFailure = -1002;
constexpr int kNoProgressThread = 0;
constexpr int kNoProgressStep = 0;
}  // namespace

extern "C" void tarn_lapack_dgetrf(const int* m, const int* n, double* a, const int* lda,
                                   int* ipiv, int* info) {
  *info = 0;
  if (*m == 0 || *n == 0) return;

  // Orders up to 16: straight-line code, no BLAS, no threads, no heap.
  if (std::max(*m, *n) <= tarn_ps_small::kDgetrfMaxOrder) {
    tarn_lapack_ps_dgetrf_small(m, n, a, lda, ipiv, info);
    return;
  }

  // Seam: shapes that tarn_lapack_ilaenv(3, "DGETRF", " ", m, n, -1, -1)
  // answers with 0 will go to the parallel driver with its thread teams.
  // Until it stands, every larger shape takes the sequential recursive LU,
  // which is correct for all of them.
  if (tarn_lapack_xdgetrf_local(m, n, a, lda, ipiv, info, &kNoProgressThread,
                                &kNoProgressStep) != 0)
    *info = kInternalFailure;
}
