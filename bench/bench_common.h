// What every operation of bench_blas shares: the table of branches with the
// entries the benchmark times, the thread's processor clock, best-of timing
// and the peak loop of a branch. Times are the thread's own processor time,
// not the wall clock: on a machine shared with other work the wall clock
// also counts the time this thread waited to be scheduled.
#pragma once

#include <vector>

#include "kernels/gemm_desc.h"

struct BenchBranch {
  const char* name;
  tarn_xdgemm_fn* xdgemm;
  tarn_xdtrsm_fn* xdtrsm;
  tarn_xdgemv_fn* xdgemv;
  tarn_xdcopy_fn* xdcopy;
  double (*peak_loop)(int rounds);
};

constexpr int kBenchBranchCount = 7;
extern const BenchBranch kBenchBranches[kBenchBranchCount];

double bench_thread_seconds();

// Shortest of `reps` runs of f, in seconds.
template <class F>
double bench_best_time(int reps, F f) {
  double best = 1e30;
  for (int r = 0; r < reps; ++r) {
    const double t0 = bench_thread_seconds();
    f();
    const double dt = bench_thread_seconds() - t0;
    if (dt < best) best = dt;
  }
  return best;
}

// Best rate of the branch's register-only peak loop over a few tenths of a
// second, in flop/s.
double bench_peak(const BenchBranch& br);

// Best rate of the branch's one-thread DGEMM, op(A) m by k times op(B) k by
// n with beta 1, on random operands with the smallest leading dimensions,
// in flop/s.
double bench_dgemm_rate(const BenchBranch& br, char ta, char tb, int m, int n, int k, int reps);

// Values in [-0.5, 0.5) from a fixed seed.
void bench_fill(std::vector<double>& v, unsigned seed);

// The trsm and dgemv rows (bench_trsm.cpp, bench_dgemv.cpp): each prints its
// own table and returns its headline rate in flop/s.
double bench_trsm(const BenchBranch& br, int m, int n, int reps);
double bench_dgemv(const BenchBranch& br, int m, int n, int reps);
