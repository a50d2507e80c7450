// Solve A * X = B or A**T * X = B with the LU factors of tarn_lapack_dgetrf.
#include <algorithm>

#include "blas/blas.h"
#include "lapack/lapack.h"
#include "lapack/ps_small.h"
#include "service/messages.h"
#include "service/strings.h"

namespace {

constexpr int kPosTrans = 1;
constexpr int kPosN = 2;
constexpr int kPosNrhs = 3;
constexpr int kPosLda = 5;
constexpr int kPosLdb = 8;
constexpr char kRoutine[] = "DGETRS";
constexpr int kRoutineLen = 6;

constexpr int kForward = 1;
constexpr int kBackward = -1;
constexpr int kFirstRow = 1;
constexpr int kUnitStride = 1;
constexpr double kOne = 1.0;
// The last argument of the small solve, fixed by its interface.
constexpr int kSmallPathOne = 1;

// One triangular solve: a vector solve for a single right-hand side, the
// blocked one for more.
void triangular_solve(const char* uplo, const char* trans, const char* diag, const int* n,
                      const int* nrhs, const double* a, const int* lda, double* b,
                      const int* ldb) {
  if (*nrhs == 1)
    tarn_blas_dtrsv(uplo, trans, diag, n, a, lda, b, &kUnitStride);
  else
    tarn_blas_dtrsm("L", uplo, trans, diag, n, nrhs, &kOne, a, lda, b, ldb);
}

}  // namespace

extern "C" void tarn_lapack_dgetrs(const char* trans, const int* n, const int* nrhs,
                                   const double* a, const int* lda, const int* ipiv, double* b,
                                   const int* ldb, int* info) {
  // Tiny systems go to straight-line code before any argument check: the
  // small path checks nothing.
  if (*n < tarn_ps_small::kDgetrsBelowN && *nrhs < tarn_ps_small::kDgetrsBelowNrhs) {
    tarn_lapack_ps_dgetrs_small(trans, n, nrhs, a, lda, ipiv, b, ldb, info, &kSmallPathOne);
    return;
  }

  *info = 0;
  const bool notran = tarn_serv_lsame(trans, "N") != 0;
  int fault = 0;
  if (!notran && tarn_serv_lsame(trans, "T") == 0 && tarn_serv_lsame(trans, "C") == 0)
    fault = kPosTrans;
  else if (*n < 0)
    fault = kPosN;
  else if (*nrhs < 0)
    fault = kPosNrhs;
  else if (*lda < std::max(1, *n))
    fault = kPosLda;
  else if (*ldb < std::max(1, *n))
    fault = kPosLdb;
  if (fault != 0) {
    *info = -fault;
    tarn_serv_xerbla(kRoutine, &fault, kRoutineLen);
    return;
  }
  if (*n == 0 || *nrhs == 0) return;

  if (notran) {
    // P * L * U * X = B: exchanges, then L (unit), then U.
    tarn_lapack_dlaswp(nrhs, b, ldb, &kFirstRow, n, ipiv, &kForward);
    triangular_solve("L", "N", "U", n, nrhs, a, lda, b, ldb);
    triangular_solve("U", "N", "N", n, nrhs, a, lda, b, ldb);
  } else {
    // U**T * L**T * P**T * X = B: U**T, then L**T (unit), then the
    // exchanges walked backward.
    triangular_solve("U", "T", "N", n, nrhs, a, lda, b, ldb);
    triangular_solve("L", "T", "U", n, nrhs, a, lda, b, ldb);
    tarn_lapack_dlaswp(nrhs, b, ldb, &kFirstRow, n, ipiv, &kBackward);
  }
}
