// The trsm row of bench_blas: one-thread triangular solves of a chosen
// branch, left side, lower unit and upper non-unit, against that branch's
// DGEMM of the same order and its peak loop, all measured in this run.
//
//   bench_blas trsm avx512 4000 4000 4000 2
//
// m is the order of A, n the number of right-hand sides (k is not used by
// the solve; the DGEMM is m by n by m). Flops of a left solve: m*m*n. Times
// are the thread's processor time; each figure is the best of the
// repetitions, with B restored (untimed) before every solve.
//
// Measured here (one thread, m = n = 4000, best of 2):
//   avx512: dgemm 60.9 GFlops; LLNU 59.7 (98 % of dgemm), LUNN 57.9 (95 %)
//   avx2:   dgemm 31.6 GFlops; LLNU 30.9 (98 % of dgemm), LUNN 29.9 (95 %)
// and at m = n = 2000, one repetition: avx 13.3 and 12.9 GFlops against a
// dgemm of 16.4 (81 %, 79 %). The target is 75 % on avx2 and avx512.
#include <time.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "kernels/gemm_desc.h"

namespace {

struct TrsmBranch {
  const char* name;
  tarn_xdtrsm_fn* xdtrsm;
  tarn_xdgemm_fn* xdgemm;
  double (*peak_loop)(int rounds);
};

const TrsmBranch kTrsmBranches[] = {
    {"sse2", tarn_blas_sse2_xdtrsm, tarn_blas_sse2_xdgemm, tarn_blas_sse2_peak_loop},
    {"cnr_sse2", tarn_blas_cnr_sse2_xdtrsm, tarn_blas_cnr_sse2_xdgemm,
     tarn_blas_cnr_sse2_peak_loop},
    {"ssse3", tarn_blas_ssse3_xdtrsm, tarn_blas_ssse3_xdgemm, tarn_blas_ssse3_peak_loop},
    {"sse42", tarn_blas_sse42_xdtrsm, tarn_blas_sse42_xdgemm, tarn_blas_sse42_peak_loop},
    {"avx", tarn_blas_avx_xdtrsm, tarn_blas_avx_xdgemm, tarn_blas_avx_peak_loop},
    {"avx2", tarn_blas_avx2_xdtrsm, tarn_blas_avx2_xdgemm, tarn_blas_avx2_peak_loop},
    {"avx512", tarn_blas_avx512_xdtrsm, tarn_blas_avx512_xdgemm, tarn_blas_avx512_peak_loop},
};

double thread_seconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return (double)ts.tv_sec + 1e-9 * (double)ts.tv_nsec;
}

double trsm_peak(const TrsmBranch& br) {
  constexpr int kRounds = 1 << 20;
  constexpr int kTries = 5;
  double best = 0.0;
  for (int t = 0; t < kTries; ++t) {
    const double t0 = thread_seconds();
    const double flops = br.peak_loop(kRounds);
    const double dt = thread_seconds() - t0;
    if (dt > 0.0 && flops / dt > best) best = flops / dt;
  }
  return best;
}

struct Lcg {
  unsigned x = 12345;
  double next() {
    x = x * 1103515245u + 12345u;
    return (double)((x >> 8) & 0xffff) / 65536.0 - 0.5;
  }
};

double best_gemm(const TrsmBranch& br, int m, int n, int reps) {
  const int k = m;
  std::vector<double> a((size_t)m * k), b((size_t)k * n), c((size_t)m * n);
  Lcg r;
  for (double& v : a) v = r.next();
  for (double& v : b) v = r.next();
  for (double& v : c) v = r.next();
  const double alpha = 1.0, beta = 1.0, flops = 2.0 * m * (double)n * k;
  double best = 0.0;
  for (int t = 0; t < reps; ++t) {
    const double t0 = thread_seconds();
    br.xdgemm("N", "N", &m, &n, &k, &alpha, a.data(), &m, b.data(), &k, &beta, c.data(), &m);
    const double dt = thread_seconds() - t0;
    if (dt > 0.0 && flops / dt > best) best = flops / dt;
  }
  return best;
}

// A well-conditioned triangle in both halves (off-diagonal values of order
// 1/m, diagonal between 1 and 1.5), so that repeated solves stay finite.
double best_trsm(const TrsmBranch& br, char uplo, char diag, int m, int n, int reps) {
  std::vector<double> a((size_t)m * m), b0((size_t)m * n), b;
  Lcg r;
  for (double& v : a) v = r.next() / m;
  for (int i = 0; i < m; ++i) a[(size_t)i * m + i] = 1.25 + r.next();
  for (double& v : b0) v = r.next();
  const double alpha = 1.0, flops = (double)m * m * n;
  const char side = 'L', trans = 'N';
  double best = 0.0;
  for (int t = 0; t < reps; ++t) {
    b = b0;
    const double t0 = thread_seconds();
    br.xdtrsm(&side, &uplo, &trans, &diag, &m, &n, &alpha, a.data(), &m, b.data(), &m);
    const double dt = thread_seconds() - t0;
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
// solve's rate in flop/s (0 for an unknown branch).
double bench_trsm(const char* branch, int m, int n, int reps) {
  for (const TrsmBranch& br : kTrsmBranches) {
    if (std::strcmp(br.name, branch) != 0) continue;
    const double gemm = best_gemm(br, m, n, reps);
    const double lower_unit = best_trsm(br, 'L', 'U', m, n, reps);
    const double upper_nonunit = best_trsm(br, 'U', 'N', m, n, reps);
    const double peak = trsm_peak(br);
    std::printf("  %-8s dgemm NN  %5d %5d %5d %8.2f GFlops %6.1f%% of peak %.2f\n", br.name, m, n,
                m, gemm * 1e-9, 100.0 * gemm / peak, peak * 1e-9);
    std::printf("  %-8s dtrsm LLNU %5d %5d       %8.2f GFlops %6.1f%% of dgemm %6.1f%% of peak\n",
                br.name, m, n, lower_unit * 1e-9, 100.0 * lower_unit / gemm,
                100.0 * lower_unit / peak);
    std::printf("  %-8s dtrsm LUNN %5d %5d       %8.2f GFlops %6.1f%% of dgemm %6.1f%% of peak\n",
                br.name, m, n, upper_nonunit * 1e-9, 100.0 * upper_nonunit / gemm,
                100.0 * upper_nonunit / peak);
    std::fflush(stdout);
    return lower_unit < upper_nonunit ? lower_unit : upper_nonunit;
  }
  return 0.0;
}
