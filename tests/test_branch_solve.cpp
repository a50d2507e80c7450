// The whole solve on every processor branch: the real program under the
// instruction ceiling and the reproducibility modes that move it down, and
// the two branches this machine cannot be moved to from the environment
// (sse2 and ssse3 without a fixed mode) through a simulated processor in a
// child process.

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "blas/dispatch.h"
#include "lapack/lapack.h"
#include "tests/fake_cpu.h"
#include "tests/kernel_sets.h"
#include "tests/support/test_support.h"

namespace {

using testsupport::run_program;

// Odd sizes and a padded leading dimension, so remainders of every tile and
// the recursive panels are crossed; small enough for the slowest branch.
constexpr const char* kInput =
    "branch check\n"
    "three sizes\n"
    "3\n"
    "37 300 641\n"
    "40 300 650\n"
    "1 1 1\n"
    "4 0 1\n";

struct BranchRun {
  const char* what;
  bool (*runs_here)();  // whether this processor has the branch's instructions
  std::vector<std::string> env;
  const char* header;  // words of the processor line of the trace header
};

const BranchRun kRuns[] = {
    {"avx512", kernel_sets::has_avx512, {}, "(Vexan(R) AVX-512)"},
    {"avx2", kernel_sets::has_avx2, {"TARN_ENABLE_INSTRUCTIONS=AVX2"}, "(Vexan(R) AVX2)"},
    {"avx", kernel_sets::has_avx, {"TARN_ENABLE_INSTRUCTIONS=AVX"}, "(Vexan(R) AVX)"},
    {"sse42", kernel_sets::has_sse42, {"TARN_ENABLE_INSTRUCTIONS=SSE4_2"}, "(Vexan(R) SSE4.2)"},
    {"sse42 pinned", kernel_sets::has_sse42, {"TARN_CBWR=SSE4_2"}, "(Vexan(R) SSE4.2)"},
    {"cnr_sse2 compatible", kernel_sets::always, {"TARN_CBWR=COMPATIBLE"}, "(Vexan(R) SSE2)"},
    {"cnr_sse2 from ssse3", kernel_sets::has_ssse3, {"TARN_CBWR=SSSE3"}, "(Vexan(R) SSSE3)"},
    {"avx2 pinned strict", kernel_sets::has_avx2, {"TARN_CBWR=AVX2,STRICT"}, "(Vexan(R) AVX2)"},
};

class BranchSolve : public ::testing::TestWithParam<BranchRun> {};

TEST_P(BranchSolve, RealProgramPassesOnTheBranch) {
  const BranchRun& r = GetParam();
  if (!r.runs_here()) GTEST_SKIP() << r.what << " does not run on this processor";
  // The unlimited run takes the top branch: only where that is avx512.
  if (r.env.empty() && !kernel_sets::has_avx512()) GTEST_SKIP() << "the top branch here is not avx512";
  const std::string input = testsupport::write_temp_file(kInput, ".lpk");
  std::vector<std::string> env = r.env;
  env.push_back("TARN_VERBOSE=1");
  const auto res = run_program(LINPACK_BIN, {input}, "", env, LINPACK_DIR);
  std::remove(input.c_str());
  EXPECT_EQ(res.status, 0) << res.out << res.err;
  EXPECT_NE(res.out.find("Residual checks PASSED"), std::string::npos) << res.out;
  EXPECT_EQ(res.out.find("FAIL"), std::string::npos) << res.out;
  EXPECT_NE(res.out.find(r.header), std::string::npos) << res.out;
}

INSTANTIATE_TEST_SUITE_P(EveryReachableBranch, BranchSolve, ::testing::ValuesIn(kRuns),
                         [](const ::testing::TestParamInfo<BranchRun>& info) {
                           std::string name = info.param.what;
                           for (char& c : name)
                             if (c == ' ') c = '_';
                           return name;
                         });

// Solves a random system with the public entries and returns the largest
// error of the solution against the vector of ones it was made from.
double solve_error(int n) {
  testsupport::Random rnd(77);
  testsupport::Matrix a(n, n, n + 3);
  testsupport::fill_random(a, rnd);
  std::vector<double> b(n, 0.0);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) b[i] += a(i, j);
  std::vector<int> ipiv(n);
  int info = -1, one = 1;
  DGETRF(&n, &n, a.data(), &a.ld, ipiv.data(), &info);
  if (info != 0) return INFINITY;
  DGETRS("N", &n, &one, a.data(), &a.ld, ipiv.data(), b.data(), &n, &info);
  if (info != 0) return INFINITY;
  double err = 0.0;
  for (double x : b) err = std::fmax(err, std::fabs(x - 1.0));
  return err;
}

class SimulatedBranchSolve : public fakecpu::FakeCpuTest {
 protected:
  // In a child: the processor p decides the branch; the child ends with 0
  // when that branch is `expected` and it solves the system.
  void expect_branch_solves(const fakecpu::Processor& p, int expected) {
    // A child started afresh: the dispatch cells are process-wide and must
    // not inherit a branch the parent resolved.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
          use(p);
          const int got = tarn_dispatch::select_branch();
          const double err = solve_error(211);
          std::exit(got == expected && err < 1e-9 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
  }
};

TEST_F(SimulatedBranchSolve, Sse2ProcessorRunsTheSse2Set) {
  expect_branch_solves(fakecpu::Processor().sse2(), tarn_dispatch::kSse2);
}

TEST_F(SimulatedBranchSolve, Ssse3ProcessorRunsTheSsse3Set) {
  expect_branch_solves(fakecpu::Processor().ssse3(), tarn_dispatch::kSsse3);
}

TEST_F(SimulatedBranchSolve, FixedModeMovesSsse3ToTheReproducibleSet) {
  cbwr("COMPATIBLE");
  expect_branch_solves(fakecpu::Processor().ssse3(), tarn_dispatch::kCnrSse2);
}

}  // namespace
