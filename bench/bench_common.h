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

// Best rate of the branch's register-only peak loop over a few short
// windows, in flop/s.
double bench_peak(const BenchBranch& br);

// Rate of the branch's peak loop over one window of about `flops` flops.
double bench_peak_window(const BenchBranch& br, double flops);

// A rate and the peak it is set against, in flop/s.
struct BenchRate {
  double rate;
  double peak;
  double median_ratio = 0.0;  // of all repetitions, where there are several; else 0
};

// The middle value (the mean of the two middle ones for an even count); 0
// for fewer than two values.
double bench_median(std::vector<double> v);

// Times `reps` calls of f, each of `flops` flops, with a window of the peak
// loop of the same flops before and after each call; each call is set
// against the mean of the two windows beside it, and the call with the best
// ratio is returned, with the median ratio of all calls beside it. The
// clock of this machine moves by up to 15 % within a second: the best of a
// few short peak windows catches a high moment that a call of seconds
// cannot, and understates every ratio by several points. `prepare` runs
// before each call, untimed (restoring operands the call overwrites).
struct BenchNothing {
  void operator()() const {}
};
template <class F, class P = BenchNothing>
BenchRate bench_bracketed(const BenchBranch& br, int reps, double flops, F f, P prepare = {}) {
  BenchRate best = {0.0, 0.0};
  std::vector<double> ratios;
  double before = bench_peak_window(br, flops);
  for (int r = 0; r < reps; ++r) {
    prepare();
    const double t0 = bench_thread_seconds();
    f();
    const double dt = bench_thread_seconds() - t0;
    const double after = bench_peak_window(br, flops);
    const BenchRate now = {dt > 0.0 ? flops / dt : 0.0, 0.5 * (before + after)};
    if (best.peak == 0.0 || now.rate * best.peak > best.rate * now.peak) best = now;
    if (now.peak > 0.0) ratios.push_back(now.rate / now.peak);
    before = after;
  }
  best.median_ratio = bench_median(ratios);
  return best;
}

// Operands of the benchmark: from the system's own allocator, so that large
// ones lie on huge pages as the solver's matrix does.
class BenchBuffer {
 public:
  explicit BenchBuffer(size_t count);
  ~BenchBuffer();
  BenchBuffer(const BenchBuffer&) = delete;
  BenchBuffer& operator=(const BenchBuffer&) = delete;
  double* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  double* data_;
  size_t size_;
};

// The branch's one-thread DGEMM, op(A) m by k times op(B) k by n with beta 1,
// on random operands with the smallest leading dimensions, against the peak
// (see bench_bracketed).
BenchRate bench_dgemm_rate(const BenchBranch& br, char ta, char tb, int m, int n, int k,
                           int reps);

// Values in [-0.5, 0.5) from a fixed seed.
void bench_fill(double* v, size_t count, unsigned seed);
inline void bench_fill(std::vector<double>& v, unsigned seed) { bench_fill(v.data(), v.size(), seed); }

// The trsm and dgemv rows (bench_trsm.cpp, bench_dgemv.cpp): each prints its
// own table and returns its headline rate in flop/s.
double bench_trsm(const BenchBranch& br, int m, int n, int reps);
double bench_dgemv(const BenchBranch& br, int m, int n, int reps);
// The lu row (bench_lu.cpp): DGETRF of order n on the branch the dispatch
// chose, against that branch's peak; prints its own line.
double bench_lu(int n, int reps);
