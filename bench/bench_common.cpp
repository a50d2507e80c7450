#include "bench/bench_common.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "service/memory.h"

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

double bench_peak_window(const BenchBranch& br, double flops) {
  // One round, to learn the flops of a round of this branch's loop.
  const double per_round = br.peak_loop(1);
  const double rounds = flops / per_round;
  constexpr double kMaxRounds = 1 << 30;
  const int n = rounds < 1.0 ? 1 : rounds > kMaxRounds ? (int)kMaxRounds : (int)rounds;
  double done = 0.0;
  const double t = bench_best_time(1, [&] { done = br.peak_loop(n); });
  return t > 0.0 ? done / t : 0.0;
}

BenchBuffer::BenchBuffer(size_t count) : size_(count) {
  constexpr int kAlignment = 64;
  data_ = static_cast<double*>(tarn_serv_malloc(count * sizeof(double), kAlignment));
  if (data_ == nullptr) {
    std::fprintf(stderr, "bench: cannot allocate %zu doubles\n", count);
    std::exit(1);
  }
}

BenchBuffer::~BenchBuffer() { tarn_serv_free(data_); }

BenchRate bench_dgemm_rate(const BenchBranch& br, char ta, char tb, int m, int n, int k,
                           int reps) {
  const int lda = ta == 'N' ? m : k, acols = ta == 'N' ? k : m;
  const int ldb = tb == 'N' ? k : n, bcols = tb == 'N' ? n : k;
  const int ldc = m;
  BenchBuffer a(static_cast<size_t>(lda) * acols), b(static_cast<size_t>(ldb) * bcols),
      c(static_cast<size_t>(ldc) * n);
  bench_fill(a.data(), a.size(), 1);
  bench_fill(b.data(), b.size(), 2);
  bench_fill(c.data(), c.size(), 3);
  const double alpha = 1.0, beta = 1.0;
  const double flops = 2.0 * m * n * static_cast<double>(k);
  return bench_bracketed(br, reps, flops, [&] {
    br.xdgemm(&ta, &tb, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(), &ldc);
  });
}

double bench_median(std::vector<double> v) {
  if (v.size() < 2) return 0.0;
  std::sort(v.begin(), v.end());
  const size_t h = v.size() / 2;
  return v.size() % 2 ? v[h] : 0.5 * (v[h - 1] + v[h]);
}

void bench_fill(double* v, size_t count, unsigned seed) {
  unsigned x = seed;
  for (size_t i = 0; i < count; ++i) {
    x = x * 1103515245u + 12345u;
    v[i] = static_cast<double>((x >> 8) & 0xffff) / 65536.0 - 0.5;
  }
}
