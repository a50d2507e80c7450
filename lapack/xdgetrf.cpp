// Fall-back of the parallel driver: the recursive LU with threaded BLAS.
#include "lapack/lapack.h"

namespace {
constexpr int kInternalFailure = -1002;
constexpr int kNoProgressThread = 0;
constexpr int kNoProgressStep = 0;
}  // namespace

extern "C" int tarn_lapack_xdgetrf(const int* m, const int* n, double* a, const int* lda,
                                   int* ipiv, int* info) {
  const int r = tarn_lapack_dgetrf_local(m, n, a, lda, ipiv, info, &kNoProgressThread,
                                         &kNoProgressStep);
  if (r != 0) *info = kInternalFailure;
  return r;
}
