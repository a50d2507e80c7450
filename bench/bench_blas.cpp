// Times one-thread BLAS kernels of a chosen branch against that branch's
// arithmetic peak, measured in the same run by a register-only loop.
//
//   bench_blas [op] [branch|all] [transa transb] [m n k] [repetitions]
//   bench_blas dgemm avx512 N N 4000 4000 4000 3
//   bench_blas trsm avx2 4000 4000 4000 2
//   bench_blas dgemv all N N 10000 10000 1 3
//   bench_blas lu n [repetitions]
//
// op is dgemm, trsm or dgemv (a row of kOps each; the last two live in
// bench_trsm.cpp and bench_dgemv.cpp), or lu (bench_lu.cpp: DGETRF on the
// branch the dispatch chose). Times are
// the thread's own processor time, not the wall clock: on a machine shared
// with other work the wall clock also counts the time this thread waited to
// be scheduled, which the processor time leaves out. A DGEMM call is set
// against windows of the peak loop of the same length run just before and
// after it (bench_bracketed), and the best ratio of the repetitions is
// shown, with the median of all of them where there are several; the other
// operations take the best of their repetitions against the best of short
// peak windows before and after. Prints GFlops and the ratio to peak.

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_common.h"

namespace {

struct Shape {
  char ta = 'N', tb = 'N';
  int m = 4000, n = 4000, k = 4000;
  int reps = 3;
};

// One operation of the benchmark: prepares its operands once, then times
// single calls. Returns the best flop/s and its peak.
struct Op {
  const char* name;
  BenchRate (*run)(const BenchBranch& br, const Shape& s);
};

BenchRate run_dgemm(const BenchBranch& br, const Shape& s) {
  return bench_dgemm_rate(br, s.ta, s.tb, s.m, s.n, s.k, s.reps);
}

// The best of short peak windows before and after the operation.
template <class F>
BenchRate with_short_peak(const BenchBranch& br, F f) {
  const double peak0 = bench_peak(br);
  const double rate = f();
  const double peak1 = bench_peak(br);
  return {rate, peak0 > peak1 ? peak0 : peak1};
}

// bench_trsm.cpp: left solves of the branch against its DGEMM and peak.
BenchRate run_trsm(const BenchBranch& br, const Shape& s) {
  return with_short_peak(br, [&] { return bench_trsm(br, s.m, s.n, s.reps); });
}

// bench_dgemv.cpp: 'N' and 'T' over a matrix far larger than the caches,
// against a streaming copy of the same bytes and the branch's DGEMM.
BenchRate run_dgemv(const BenchBranch& br, const Shape& s) {
  return with_short_peak(br, [&] { return bench_dgemv(br, s.m, s.n, s.reps); });
}

const Op kOps[] = {{"dgemm", run_dgemm}, {"trsm", run_trsm}, {"dgemv", run_dgemv}};

void usage() {
  std::fprintf(stderr,
               "usage: bench_blas [op] [branch|all] [transa transb] [m n k] [repetitions]\n"
               "       bench_blas lu n [repetitions]\n"
               "  op: dgemm trsm dgemv; branch: sse2 cnr_sse2 ssse3 sse42 avx avx2 avx512 all\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::strcmp(argv[1], "lu") == 0) {
    const int n = std::atoi(argv[2]), reps = argc > 3 ? std::atoi(argv[3]) : 3;
    if (n < 1 || reps < 1) {
      usage();
      return 1;
    }
    return bench_lu(n, reps) > 0.0 ? 0 : 1;
  }
  const Op* op = &kOps[0];
  std::string branch = "avx512";
  Shape s;
  std::vector<std::string> rest;
  for (int i = 1; i < argc; ++i) rest.emplace_back(argv[i]);
  size_t i = 0;
  if (i < rest.size()) {
    for (const Op& o : kOps)
      if (rest[i] == o.name) {
        op = &o;
        ++i;
      }
  }
  if (i < rest.size()) branch = rest[i++];
  if (i + 1 < rest.size() && rest[i].size() == 1 && !std::isdigit((unsigned char)rest[i][0])) {
    s.ta = rest[i][0];
    s.tb = rest[i + 1][0];
    i += 2;
  }
  if (i + 2 < rest.size()) {
    s.m = std::atoi(rest[i].c_str());
    s.n = std::atoi(rest[i + 1].c_str());
    s.k = std::atoi(rest[i + 2].c_str());
    i += 3;
  }
  if (i < rest.size()) s.reps = std::atoi(rest[i++].c_str());
  if (i != rest.size() || s.reps < 1) {
    usage();
    return 1;
  }
  bool any = false;
  std::printf("%-8s %-6s %2s %2s %6s %6s %6s %10s %10s %7s %7s\n", "branch", "op", "ta", "tb",
              "m", "n", "k", "GFlops", "peak", "ratio", "median");
  for (const BenchBranch& br : kBenchBranches) {
    if (branch != "all" && branch != br.name) continue;
    any = true;
    const BenchRate r = op->run(br, s);
    const double rate = r.rate, peak = r.peak;
    std::printf("%-8s %-6s %2c %2c %6d %6d %6d %10.2f %10.2f %6.1f%%", br.name, op->name, s.ta,
                s.tb, s.m, s.n, s.k, rate * 1e-9, peak * 1e-9, 100.0 * rate / peak);
    if (r.median_ratio > 0.0)
      std::printf(" %6.1f%%\n", 100.0 * r.median_ratio);
    else
      std::printf(" %7s\n", "-");
    std::fflush(stdout);
  }
  if (!any) {
    usage();
    return 1;
  }
  return 0;
}
