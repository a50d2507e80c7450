// DGEMV of one branch on one thread, 'N' and 'T', over a matrix far larger
// than the caches, against the two limits that matter for it, both measured
// in the same run:
//   - a streaming copy of the same number of bytes (the first half of the
//     matrix copied onto the second half, read plus written bytes counted),
//     by the C library's copy and by the branch's own xdcopy, the faster of
//     the two being the limit: a matrix-vector product reads each element
//     of A once, so memory bandwidth is all it can reach;
//   - the branch's DGEMM rate on a cache-friendly product, to show how far
//     below the arithmetic a memory-bound kernel stays.
// Times are the thread's processor time, best of the repetitions, as in
// the rest of bench_blas.
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "bench/bench_common.h"

namespace {

constexpr double kMinCacheMultiple = 2.5;  // the matrix must outsize the last cache by this
constexpr double kMaxMatrixBytes = 900e6;  // stay under 1 GB with vectors and DGEMM operands
constexpr int kLargeOrder = 10000;         // order used when the given one fits in cache
constexpr int kGemmOrder = 1000;           // DGEMM order of the reference rate

long last_cache_bytes() {
  long llc = sysconf(_SC_LEVEL3_CACHE_SIZE);
  if (llc <= 0) llc = sysconf(_SC_LEVEL2_CACHE_SIZE);
  return llc > 0 ? llc : 0;
}

}  // namespace

// Times one branch; returns the better DGEMV rate of the two forms in
// flop/s (for the common row of bench_blas) after printing its own table.
double bench_dgemv(const BenchBranch& branch, int m, int n, int reps) {
  const BenchBranch* br = &branch;
  if (m < 2 || n < 1 || reps < 1) return 0.0;

  const long llc = last_cache_bytes();
  double bytes = 8.0 * m * static_cast<double>(n);
  if (bytes < kMinCacheMultiple * static_cast<double>(llc) || bytes > kMaxMatrixBytes) {
    std::printf("dgemv: %d x %d (%.0f MB) against a %.0f MB last cache: taking %d x %d\n", m, n,
                bytes * 1e-6, static_cast<double>(llc) * 1e-6, kLargeOrder, kLargeOrder);
    m = n = kLargeOrder;
    bytes = 8.0 * m * static_cast<double>(n);
  }
  m &= ~1;  // the copy moves two equal halves of the matrix

  const double gemm = bench_dgemm_rate(*br, 'N', 'N', kGemmOrder, kGemmOrder, kGemmOrder, reps).rate;

  std::vector<double> a(static_cast<size_t>(m) * n), x(m > n ? m : n), y(m > n ? m : n);
  bench_fill(a, 4);
  bench_fill(x, 5);
  bench_fill(y, 6);

  // Streaming copy of the same bytes: first half of A onto the second.
  const size_t half = a.size() / 2;
  const double t_memcpy =
      bench_best_time(reps, [&] { std::memcpy(a.data() + half, a.data(), half * sizeof(double)); });
  const int len = static_cast<int>(half), one = 1;
  const double t_xdcopy =
      bench_best_time(reps, [&] { br->xdcopy(&len, a.data(), &one, a.data() + half, &one); });
  const double copy_memcpy = bytes / t_memcpy, copy_xdcopy = bytes / t_xdcopy;
  const double copy = copy_memcpy > copy_xdcopy ? copy_memcpy : copy_xdcopy;

  std::printf("dgemv %s: one thread, A %d x %d (%.0f MB), last cache %.0f MB, best of %d\n",
              br->name, m, n, bytes * 1e-6, static_cast<double>(llc) * 1e-6, reps);
  std::printf("  streaming copy of the same bytes: memcpy %.2f GB/s, xdcopy %.2f GB/s\n",
              copy_memcpy * 1e-9, copy_xdcopy * 1e-9);
  std::printf("  dgemm %d^3: %.2f GFlops\n", kGemmOrder, gemm * 1e-9);
  std::printf("  %-5s %9s %9s %9s %12s %12s\n", "trans", "seconds", "GB/s", "GFlops", "of copy",
              "of dgemm");
  double best_flops = 0.0;
  for (const char* trans : {"N", "T"}) {
    const double alpha = 1.0, beta = 0.5;
    const int mode = 1;
    const double t = bench_best_time(reps, [&] {
      br->xdgemv(trans, &m, &n, &alpha, a.data(), &m, x.data(), &one, &beta, y.data(), &one, &mode);
    });
    const double gbs = bytes / t, flops = 2.0 * m * static_cast<double>(n) / t;
    if (flops > best_flops) best_flops = flops;
    std::printf("  %-5s %9.4f %9.2f %9.2f %11.1f%% %11.2f%%\n", trans, t, gbs * 1e-9, flops * 1e-9,
                100.0 * gbs / copy, 100.0 * flops / gemm);
  }
  std::fflush(stdout);
  return best_flops;
}
