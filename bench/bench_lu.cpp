// The lu row of bench_blas: DGETRF of an n by n random matrix, as the
// benchmark's trials call it, against the peak loop of the branch the
// dispatch chose for this process (the top one, or the one the instruction
// ceiling allows: TARN_ENABLE_INSTRUCTIONS=AVX2 ...), with peak windows of
// the factorization's length before and after each call (bench_bracketed).
//
//   bench_blas lu 10000 3
//
// Flops: 2n^3/3 - n^2/2 - n/6. The factorization runs on the threads the
// solver takes; the times are the calling thread's processor time, so the
// figure is that of a one-thread solver (OMP_NUM_THREADS=1) until the
// solver uses more.

#include <cstdio>
#include <cstring>
#include <vector>

#include "bench/bench_common.h"
#include "blas/dispatch.h"
#include "lapack/lapack.h"

double bench_lu(int n, int reps) {
  static_assert(kBenchBranchCount == tarn_dispatch::kBranchCount,
                "the benchmark's branches in the dispatch's order");
  const int branch = tarn_dispatch::select_branch();
  if (branch < 0 || branch >= kBenchBranchCount) return 0.0;
  const BenchBranch* br = &kBenchBranches[branch];
  const size_t count = (size_t)n * n;
  BenchBuffer a0(count), a(count);
  std::vector<int> ipiv(n > 0 ? n : 1);
  bench_fill(a0.data(), count, 11);
  const double nd = n;
  const double flops = 2.0 * nd * nd * nd / 3.0 - nd * nd / 2.0 - nd / 6.0;
  int info = 0;
  // The matrix is restored before every call, outside the timed part.
  const BenchRate r = bench_bracketed(
      *br, reps, flops, [&] { DGETRF(&n, &n, a.data(), &n, ipiv.data(), &info); },
      [&] { std::memcpy(a.data(), a0.data(), count * sizeof(double)); });
  std::printf("  %-8s dgetrf %6d %10.2f GFlops, best %5.1f%% of peak %.2f, median %5.1f%%%s\n",
              br->name, n, r.rate * 1e-9, 100.0 * r.rate / r.peak, r.peak * 1e-9,
              100.0 * r.median_ratio, info == 0 ? "" : "  (info not 0: singular)");
  std::fflush(stdout);
  return r.rate;
}
