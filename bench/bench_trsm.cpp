// The trsm row of bench_blas: one-thread triangular solves of a chosen
// branch, left side, lower unit and upper non-unit, against that branch's
// DGEMM of the same order and its peak loop, all measured in this run.
//
//   bench_blas trsm avx512 4000 4000 4000 2
//
// m is the order of A, n the number of right-hand sides (k is not used by
// the solve; the DGEMM is m by n by m). Flops of a left solve: m*m*n. Times
// are the thread's processor time; each figure is the best of the
// repetitions, with B restored (untimed) before every solve. Figures are
// in bench/PERFORMANCE.md.

#include <cmath>
#include <cstdio>
#include <vector>

#include "bench/bench_common.h"

namespace {

// A well-conditioned triangle in both halves (off-diagonal values of order
// 1/m, diagonal between 1 and 1.5), so that repeated solves stay finite.
double best_trsm(const BenchBranch& br, char uplo, char diag, int m, int n, int reps) {
  std::vector<double> a((size_t)m * m), d(m), b0((size_t)m * n), b;
  bench_fill(a, 4);
  bench_fill(d, 5);
  bench_fill(b0, 6);
  for (double& v : a) v /= m;
  for (int i = 0; i < m; ++i) a[(size_t)i * m + i] = 1.25 + d[i];
  const double alpha = 1.0, flops = (double)m * m * n;
  const char side = 'L', trans = 'N';
  double best = 0.0;
  // B is restored before every solve, outside the timed part.
  for (int t = 0; t < reps; ++t) {
    b = b0;
    const double dt = bench_best_time(1, [&] {
      br.xdtrsm(&side, &uplo, &trans, &diag, &m, &n, &alpha, a.data(), &m, b.data(), &m);
    });
    if (dt > 0.0 && flops / dt > best) best = flops / dt;
  }
  for (double v : b)
    if (!std::isfinite(v)) {
      std::printf("  (solution not finite: the solve is wrong)\n");
      return 0.0;
    }
  return best;
}

}  // namespace

// Prints the two solves against DGEMM and the peak; returns the slower
// solve's rate in flop/s.
double bench_trsm(const BenchBranch& br, int m, int n, int reps) {
  const double gemm = bench_dgemm_rate(br, 'N', 'N', m, n, m, reps).rate;
  const double lower_unit = best_trsm(br, 'L', 'U', m, n, reps);
  const double upper_nonunit = best_trsm(br, 'U', 'N', m, n, reps);
  const double peak = bench_peak(br);
  std::printf("  %-8s dgemm NN  %5d %5d %5d %8.2f GFlops %6.1f%% of peak %.2f\n", br.name, m, n, m,
              gemm * 1e-9, 100.0 * gemm / peak, peak * 1e-9);
  std::printf("  %-8s dtrsm LLNU %5d %5d       %8.2f GFlops %6.1f%% of dgemm %6.1f%% of peak\n",
              br.name, m, n, lower_unit * 1e-9, 100.0 * lower_unit / gemm,
              100.0 * lower_unit / peak);
  std::printf("  %-8s dtrsm LUNN %5d %5d       %8.2f GFlops %6.1f%% of dgemm %6.1f%% of peak\n",
              br.name, m, n, upper_nonunit * 1e-9, 100.0 * upper_nonunit / gemm,
              100.0 * upper_nonunit / peak);
  std::fflush(stdout);
  return lower_unit < upper_nonunit ? lower_unit : upper_nonunit;
}
