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

#include "kernels/kernels.h"

namespace {

constexpr double kMinCacheMultiple = 2.5;  // the matrix must outsize the last cache by this
constexpr double kMaxMatrixBytes = 900e6;  // stay under 1 GB with vectors and DGEMM operands
constexpr int kLargeOrder = 10000;         // order used when the given one fits in cache
constexpr int kGemmOrder = 1000;           // DGEMM order of the reference rate

struct GemvBranch {
  const char* name;
  tarn_xdgemv_fn* xdgemv;
  tarn_xdcopy_fn* xdcopy;
  tarn_xdgemm_fn* xdgemm;
};

const GemvBranch kGemvBranches[] = {
    {"sse2", tarn_blas_sse2_xdgemv, tarn_blas_sse2_xdcopy, tarn_blas_sse2_xdgemm},
    {"cnr_sse2", tarn_blas_cnr_sse2_xdgemv, tarn_blas_cnr_sse2_xdcopy, tarn_blas_cnr_sse2_xdgemm},
    {"ssse3", tarn_blas_ssse3_xdgemv, tarn_blas_ssse3_xdcopy, tarn_blas_ssse3_xdgemm},
    {"sse42", tarn_blas_sse42_xdgemv, tarn_blas_sse42_xdcopy, tarn_blas_sse42_xdgemm},
    {"avx", tarn_blas_avx_xdgemv, tarn_blas_avx_xdcopy, tarn_blas_avx_xdgemm},
    {"avx2", tarn_blas_avx2_xdgemv, tarn_blas_avx2_xdcopy, tarn_blas_avx2_xdgemm},
    {"avx512", tarn_blas_avx512_xdgemv, tarn_blas_avx512_xdcopy, tarn_blas_avx512_xdgemm},
};

double thread_seconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// Best time of `reps` runs of f.
template <class F>
double best_time(int reps, F f) {
  double best = 1e30;
  for (int r = 0; r < reps; ++r) {
    const double t0 = thread_seconds();
    f();
    const double dt = thread_seconds() - t0;
    if (dt < best) best = dt;
  }
  return best;
}

void fill(std::vector<double>& v, unsigned seed) {
  unsigned x = seed;
  for (double& e : v) {
    x = x * 1103515245u + 12345u;
    e = static_cast<double>((x >> 8) & 0xffff) / 65536.0 - 0.5;
  }
}

double gemm_rate(const GemvBranch& br, int reps) {
  const int n = kGemmOrder;
  std::vector<double> a(static_cast<size_t>(n) * n), b(a.size()), c(a.size());
  fill(a, 1);
  fill(b, 2);
  fill(c, 3);
  const double one = 1.0;
  const double t = best_time(reps, [&] {
    br.xdgemm("N", "N", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &one, c.data(), &n);
  });
  return 2.0 * n * static_cast<double>(n) * n / t;
}

long last_cache_bytes() {
  long llc = sysconf(_SC_LEVEL3_CACHE_SIZE);
  if (llc <= 0) llc = sysconf(_SC_LEVEL2_CACHE_SIZE);
  return llc > 0 ? llc : 0;
}

}  // namespace

// Times one branch; returns the better DGEMV rate of the two forms in
// flop/s (for the common row of bench_blas) after printing its own table.
double bench_dgemv(const char* branch, int m, int n, int reps) {
  const GemvBranch* br = nullptr;
  for (const GemvBranch& b : kGemvBranches)
    if (std::strcmp(b.name, branch) == 0) br = &b;
  if (br == nullptr || m < 2 || n < 1 || reps < 1) return 0.0;

  const long llc = last_cache_bytes();
  double bytes = 8.0 * m * static_cast<double>(n);
  if (bytes < kMinCacheMultiple * static_cast<double>(llc) || bytes > kMaxMatrixBytes) {
    std::printf("dgemv: %d x %d (%.0f MB) against a %.0f MB last cache: taking %d x %d\n", m, n,
                bytes * 1e-6, static_cast<double>(llc) * 1e-6, kLargeOrder, kLargeOrder);
    m = n = kLargeOrder;
    bytes = 8.0 * m * static_cast<double>(n);
  }
  m &= ~1;  // the copy moves two equal halves of the matrix

  const double gemm = gemm_rate(*br, reps);

  std::vector<double> a(static_cast<size_t>(m) * n), x(m > n ? m : n), y(m > n ? m : n);
  fill(a, 4);
  fill(x, 5);
  fill(y, 6);

  // Streaming copy of the same bytes: first half of A onto the second.
  const size_t half = a.size() / 2;
  const double t_memcpy =
      best_time(reps, [&] { std::memcpy(a.data() + half, a.data(), half * sizeof(double)); });
  const int len = static_cast<int>(half), one = 1;
  const double t_xdcopy =
      best_time(reps, [&] { br->xdcopy(&len, a.data(), &one, a.data() + half, &one); });
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
    const double t = best_time(reps, [&] {
      br->xdgemv(trans, &m, &n, &alpha, a.data(), &m, x.data(), &one, &beta, y.data(), &one,
                 &mode);
    });
    const double gbs = bytes / t, flops = 2.0 * m * static_cast<double>(n) / t;
    if (flops > best_flops) best_flops = flops;
    std::printf("  %-5s %9.4f %9.2f %9.2f %11.1f%% %11.2f%%\n", trans, t, gbs * 1e-9,
                flops * 1e-9, 100.0 * gbs / copy, 100.0 * flops / gemm);
  }
  std::fflush(stdout);
  return best_flops;
}
