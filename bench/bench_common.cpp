#include "bench/bench_common.h"

#include <time.h>

#define BENCH_BRANCH(br)                                                            \
  {                                                                                 \
#br, tarn_blas_##br##_xdgemm, tarn_blas_##br##_xdtrsm, tarn_blas_##br##_xdgemv, \
        tarn_blas_##br##_xdcopy, tarn_blas_##br##_peak_loop                         \
  }

const BenchBranch kBenchBranches[kBenchBranchCount] = {
    BENCH_BRANCH(sse2), BENCH_BRANCH(cnr_sse2), BENCH_BRANCH(ssse3),  BENCH_BRANCH(sse42),
    BENCH_BRANCH(avx),  BENCH_BRANCH(avx2),     BENCH_BRANCH(avx512),
};

double bench_thread_seconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

double bench_peak(const BenchBranch& br) {
  constexpr int kRounds = 1 << 20;
  constexpr int kTries = 5;
  double flops = 0.0;
  const double t = bench_best_time(kTries, [&] { flops = br.peak_loop(kRounds); });
  return t > 0.0 ? flops / t : 0.0;
}

double bench_dgemm_rate(const BenchBranch& br, char ta, char tb, int m, int n, int k, int reps) {
  const int lda = ta == 'N' ? m : k, acols = ta == 'N' ? k : m;
  const int ldb = tb == 'N' ? k : n, bcols = tb == 'N' ? n : k;
  const int ldc = m;
  std::vector<double> a(static_cast<size_t>(lda) * acols), b(static_cast<size_t>(ldb) * bcols),
      c(static_cast<size_t>(ldc) * n);
  bench_fill(a, 1);
  bench_fill(b, 2);
  bench_fill(c, 3);
  const double alpha = 1.0, beta = 1.0;
  const double flops = 2.0 * m * n * static_cast<double>(k);
  const double t = bench_best_time(reps, [&] {
    br.xdgemm(&ta, &tb, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(), &ldc);
  });
  return t > 0.0 ? flops / t : 0.0;
}

void bench_fill(std::vector<double>& v, unsigned seed) {
  unsigned x = seed;
  for (double& e : v) {
    x = x * 1103515245u + 12345u;
    e = static_cast<double>((x >> 8) & 0xffff) / 65536.0 - 0.5;
  }
}
