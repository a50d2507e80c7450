// linpack_: one trial. Generates the system, times its solution by LU
// factorization and the two triangular solves, regenerates the system and
// measures the residual of the solution found.
#include <bit>
#include <cstddef>
#include <cstring>

#include "driver/driver.h"
#include "lapack/lapack.h"
#include "src/vos.h"

namespace {

// 1.0e-9 as it comes out after a round trip through single precision
// (0x3E112E0BE0000000). The rate reads about 2.8e-8 low against an exact
// 1.0e-9; rates are comparable only with this very constant, so it stays.
constexpr double kGiga = static_cast<double>(1.0e-9f);
static_assert(std::bit_cast<uint64_t>(kGiga) == 0x3E112E0BE0000000ull);

}  // namespace

extern "C" void linpack_(const int32_t* n, double* a, const int32_t* lda, double* b, double* x,
                         int32_t* ipvt, double* time, double* gflops, double* resid,
                         double* residn, int32_t* info) {
  *info = 0;
  matgen_(n, n, a, lda, b);

  // Only the factorization and the solve are timed.
  const double t0 = omp_get_wtime();
  DGETRF(n, n, a, lda, ipvt, info);
  const int32_t nrhs = 1;
  // The solve writes its own info over that of the factorization: a zero
  // pivot shows up in the residual, not as an error.
  DGETRS("No transpose", n, &nrhs, a, lda, ipvt, b, lda, info);
  *time = omp_get_wtime() - t0;

  // A clock too coarse to see the run leaves the previous trial's figures.
  if (!(0 < *time)) return;

  // Operation count 2n^2 + 2n^3/3, in extended precision.
  const long double ln = static_cast<long double>(*n);
  const long double flops = 2.0L * ln * ln + (2.0L * ln * ln * ln) / 3.0L;
  *gflops = static_cast<double>(flops * static_cast<long double>(kGiga) /
                                static_cast<long double>(*time));

  if (*n > 0) std::memcpy(x, b, static_cast<size_t>(*n) * sizeof(double));

  matgen_(n, n, a, lda, b);
  const int32_t one = 1;
  const double normb = normi_(n, &one, b, n);
  const double normx = normi_(n, &one, x, n);
  mxpy_(n, n, a, lda, x, b);
  const double anorm = norm1_(n, n, a, lda);
  *resid = normi_(n, &one, b, n);
  const double eps = DLAMCH("EPSILON");
  *residn = *resid / eps / static_cast<double>(*n) / (normb + normx * anorm);
}
