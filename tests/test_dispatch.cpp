// Branch dispatch: the mapping of branch codes and reproducibility modes to
// kernel sets, the stop for an unsupported processor, the choice under
// simulated processors, the stubs' forwarding on this machine and the rule
// that each stub keeps its first choice while stubs not yet called see the
// state of their own first call.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "blas/blas.h"
#include "blas/dispatch.h"
#include "service/cpu.h"
#include "service/messages.h"
#include "tests/fake_cpu.h"
#include "tests/support/test_support.h"

namespace {

using namespace tarn_dispatch;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---- The table --------------------------------------------------------------

TEST(DispatchTable, CodesAndModesSelectTheirBranches) {
  // Codes 1, 2 and 4 keep their own kernels only with no reproducibility
  // request (mode 1); any fixed mode gives the reproducible set.
  EXPECT_EQ(branch_for(1, 1), kSse2);
  EXPECT_EQ(branch_for(2, 1), kSse2);
  EXPECT_EQ(branch_for(4, 1), kSsse3);
  for (int mode = 2; mode <= 14; ++mode) {
    EXPECT_EQ(branch_for(1, mode), kCnrSse2) << mode;
    EXPECT_EQ(branch_for(2, mode), kCnrSse2) << mode;
    EXPECT_EQ(branch_for(4, mode), kCnrSse2) << mode;
  }
  // From code 5 upward the mode is not consulted at this level.
  for (int mode = 1; mode <= 14; ++mode) {
    EXPECT_EQ(branch_for(5, mode), kSse42) << mode;
    EXPECT_EQ(branch_for(6, mode), kAvx) << mode;
    EXPECT_EQ(branch_for(7, mode), kAvx2) << mode;
    EXPECT_EQ(branch_for(9, mode), kAvx512) << mode;
  }
  for (int code : {-1, 0, 3, 8, 10, 11, 13, INT_MAX})
    EXPECT_EQ(branch_for(code, 1), kNoBranch) << code;
}

int g_code = 0;
int g_mode = 1;
std::vector<int> g_cbwr_args;
int g_detect_calls = 0;
int fake_detect() {
  ++g_detect_calls;
  return g_code;
}
int fake_cbwr(int what) {
  g_cbwr_args.push_back(what);
  return g_mode;
}

TEST(DispatchTable, OnlyTheOldestCodesAskForTheMode) {
  for (int code : {1, 2, 4, 5, 6, 7, 9}) {
    g_code = code;
    g_mode = 3;
    g_cbwr_args.clear();
    g_detect_calls = 0;
    const int branch = select_branch_with(fake_detect, fake_cbwr);
    EXPECT_EQ(branch, branch_for(code, 3)) << code;
    EXPECT_EQ(g_detect_calls, 1) << code;
    if (code_reads_cbwr(code)) {
      ASSERT_EQ(g_cbwr_args.size(), 1u) << code;
      EXPECT_EQ(g_cbwr_args[0], 1) << "the mode is asked with argument 1";
    } else {
      EXPECT_TRUE(g_cbwr_args.empty()) << code;
    }
  }
}

// Runs select_branch_with for `code` in a child process and returns its exit
// status and standard output.
testsupport::RunResult select_in_child(int code) {
  int out[2];
  testsupport::RunResult result;
  if (pipe(out) != 0) return result;
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], 1);
    close(out[0]);
    g_code = code;
    select_branch_with(fake_detect, fake_cbwr);
    std::fflush(nullptr);
    _exit(99);  // only if the selection came back
  }
  close(out[1]);
  char buf[512];
  ssize_t got;
  while ((got = read(out[0], buf, sizeof buf)) > 0)
    result.out.append(buf, static_cast<size_t>(got));
  close(out[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

TEST(DispatchTable, UnsupportedCodeStopsWithMessage1213AndStatus1) {
  for (int code : {0, 3, 8, 10, 12}) {
    const testsupport::RunResult r = select_in_child(code);
    EXPECT_EQ(r.status, 1) << "code " << code;
    EXPECT_NE(r.out.find("Vexan TARN ERROR: CPU " + std::to_string(code) + " is not supported."),
              std::string::npos)
        << "code " << code << ": " << r.out;
  }
}

int g_exit_code = -1;
void returning_exit(int code) { g_exit_code = code; }

TEST(DispatchTable, AnExitHandlerThatReturnsGetsNoBranch) {
  const tarn_exit_fn old = tarn_serv_set_exit_handler(returning_exit);
  g_code = 3;
  g_detect_calls = 0;
  EXPECT_EQ(select_branch_with(fake_detect, fake_cbwr), kNoBranch);
  EXPECT_EQ(g_exit_code, 1);
  EXPECT_EQ(g_detect_calls, 2) << "the report asks for the code a second time";
  tarn_serv_set_exit_handler(old);
}

// ---- Simulated processors through the service layer -------------------------

class DispatchOnSimulatedProcessor : public fakecpu::FakeCpuTest {
 protected:
  void expect(int code, int branch) {
    EXPECT_EQ(tarn_serv_cpu_detect(), code);
    EXPECT_EQ(select_branch(), branch);
  }
};

TEST_F(DispatchOnSimulatedProcessor, AutomaticModeTakesEachProcessorsOwnBranch) {
  use(fakecpu::sse2_only());
  expect(2, kSse2);
  use(fakecpu::ssse3_only());
  expect(4, kSsse3);
  use(fakecpu::sse42_only());
  expect(5, kSse42);
  use(fakecpu::avx_only());
  expect(6, kAvx);
  use(fakecpu::avx2_only());
  expect(7, kAvx2);
  use(fakecpu::avx512_plain());
  expect(9, kAvx512);
}

TEST_F(DispatchOnSimulatedProcessor, FixedModeMovesOnlyTheOldestBranches) {
  use(fakecpu::ssse3_only());
  cbwr("SSSE3");
  expect(4, kCnrSse2);
  use(fakecpu::sse42_only());
  cbwr("SSE4_2");
  expect(5, kSse42);
  use(fakecpu::sse2_only());
  cbwr("SSE2");
  expect(2, kCnrSse2);
  use(fakecpu::avx512_plain());
  cbwr("AVX2");
  expect(7, kAvx2);
}

// ---- The stubs on this machine ---------------------------------------------

constexpr int kKernelApi[kBranchCount] = {1, 1, 1, 1, 1, 2, 2};
constexpr int kServiceApi[kBranchCount] = {1, 1, 1, 1, 1, 4, 4};

TEST(DispatchStubs, AnswerTheGenerationsOfThisProcessorsBranch) {
  const int branch = select_branch();
  ASSERT_GE(branch, 0);
  EXPECT_EQ(tarn_blas_get_kernel_api_version(), kKernelApi[branch]);
  EXPECT_EQ(tarn_blas_dgemm_api_support(), kServiceApi[branch]);
}

TEST(DispatchStubs, ForwardLevel1CallsWithTheirResults) {
  std::vector<double> x = {1.0, -7.0, 3.0, kNaN, 7.0}, y = {2.0, 2.0, 2.0, 2.0, 2.0};
  const int n = 5, one = 1, three = 3;
  EXPECT_EQ(tarn_blas_xidamax(&n, x.data(), &one), 4);
  EXPECT_EQ(tarn_blas_xidamax(&three, x.data(), &one), 2);
  EXPECT_EQ(tarn_blas_xddot(&three, x.data(), &one, y.data(), &one), -6.0);
  const double two = 2.0;
  tarn_blas_xdaxpy(&three, &two, x.data(), &one, y.data(), &one);
  EXPECT_EQ(y[1], -12.0);
  tarn_blas_xdscal(&three, &two, y.data(), &one);
  EXPECT_EQ(y[1], -24.0);
  tarn_blas_xdcopy(&three, x.data(), &one, y.data(), &one);
  EXPECT_EQ(y[1], -7.0);
  y[0] = 5.0;
  tarn_blas_xdswap(&one, x.data(), &one, y.data(), &one);
  EXPECT_EQ(x[0], 5.0);
  EXPECT_EQ(y[0], 1.0);
}

TEST(DispatchStubs, ForwardLevel2And3CallsUntouched) {
  testsupport::Random r(5);
  const int m = 19, n = 11, k = 7;
  testsupport::Matrix a(m, k), b(k, n), c(m, n), want(m, n);
  testsupport::fill_random(a, r);
  testsupport::fill_random(b, r);
  testsupport::fill_random(c, r);
  want = c;
  const double alpha = 1.5, beta = -1.0;
  testsupport::ref_dgemm('N', 'N', m, n, k, alpha, a.data(), a.ld, b.data(), b.ld, beta,
                         want.data(), want.ld);
  tarn_blas_xdgemm("N", "N", &m, &n, &k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(),
                   &c.ld);
  EXPECT_LE(testsupport::max_rel_diff(c, want), 1e-14);

  // Lower unit triangle solved, then multiplied back.
  const int order = 4, one = 1, mode = 1;
  double l[16] = {kNaN, 0.5,  0.25, 1.0, kNaN, kNaN, -1.0, 2.0,
                  kNaN, kNaN, kNaN, 0.5, kNaN, kNaN, kNaN, kNaN};
  double x[4] = {1.0, 2.0, 3.0, 4.0};
  tarn_blas_xdtrsv("L", "N", "U", &order, l, &order, x, &one);
  EXPECT_EQ(x[0], 1.0);
  EXPECT_EQ(x[1], 2.0 - 0.5 * 1.0);
  double bm[4] = {1.0, 2.0, 3.0, 4.0};
  const double unit = 1.0;
  tarn_blas_xdtrsm("L", "L", "N", "U", &order, &one, &unit, l, &order, bm, &order);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(bm[i], x[i]);

  double g[6] = {1, 2, 3, 4, 5, 6}, v[3] = {1, 1, 1}, w[2] = {kNaN, kNaN};
  const int two = 2, three = 3;
  const double zero = 0.0;
  tarn_blas_xdgemv("N", &two, &three, &unit, g, &two, v, &one, &zero, w, &one, &mode);
  EXPECT_EQ(w[0], 9.0);
  EXPECT_EQ(w[1], 12.0);
  double cc[4] = {kNaN, kNaN, kNaN, kNaN};
  tarn_blas_xdgemmger("N", "N", &two, &two, &unit, v, &one, g, &one, &zero, cc, &two);
  EXPECT_EQ(cc[3], 2.0);
  double s[2] = {kNaN, 3.0};
  tarn_blas_dgemm_mscale(&one, &two, &zero, s, &one);
  EXPECT_EQ(s[0], 0.0);
  EXPECT_EQ(s[1], 0.0);
}

TEST(DispatchStubs, ThreadedFrontsReachTheKernels) {
  // The pivot search of at most 20 elements never reaches the dispatch; both
  // sides of that line keep the NaN rule.
  std::vector<double> x(40, 1.0);
  x[4] = kNaN;
  x[9] = 100.0;
  const int twenty = 20, forty = 40, one = 1, zero = 0;
  EXPECT_EQ(tarn_blas_idamax(&twenty, x.data(), &one), 5);
  EXPECT_EQ(tarn_blas_idamax(&forty, x.data(), &one), 5);
  x[4] = 1.0;
  EXPECT_EQ(tarn_blas_idamax(&twenty, x.data(), &one), 10);
  EXPECT_EQ(tarn_blas_idamax(&forty, x.data(), &one), 10);
  EXPECT_EQ(tarn_blas_idamax(&zero, x.data(), &one), 0);
  const int neg = -1;
  EXPECT_EQ(tarn_blas_idamax(&forty, x.data(), &neg), 0);

  const double half = 0.5;
  tarn_blas_dscal(&forty, &half, x.data(), &one);
  EXPECT_EQ(x[9], 50.0);
  std::vector<double> y(40, 0.0);
  tarn_blas_dcopy(&forty, x.data(), &one, y.data(), &one);
  EXPECT_EQ(y[9], 50.0);

  const int two = 2;
  const double unit = 1.0, nil = 0.0;
  double a[4] = {1, 2, 3, 4}, b[4] = {1, 0, 0, 1}, c[4] = {kNaN, kNaN, kNaN, kNaN};
  tarn_blas_dgemm("N", "N", &two, &two, &two, &unit, a, &two, b, &two, &nil, c, &two);
  EXPECT_EQ(c[2], 3.0);
  double v[2] = {1, 1}, w[2] = {0, 0};
  tarn_blas_dgemv("T", &two, &two, &unit, a, &two, v, &one, &nil, w, &one);
  EXPECT_EQ(w[1], 7.0);
  double u[4] = {2, kNaN, 1, 4}, rhs[2] = {2, 8};
  tarn_blas_dtrsv("U", "N", "N", &two, u, &two, rhs, &one);
  EXPECT_EQ(rhs[1], 2.0);
  EXPECT_EQ(rhs[0], 0.0);
  double rhs2[2] = {2, 8};
  tarn_blas_dtrsm("L", "U", "N", "N", &two, &one, &unit, u, &two, rhs2, &two);
  EXPECT_EQ(rhs2[0], 0.0);
  double cc[4] = {kNaN, kNaN, kNaN, kNaN};
  tarn_blas_dgemmger("N", "N", &two, &two, &unit, v, &one, a, &one, &nil, cc, &two);
  EXPECT_EQ(cc[3], 2.0);
}

// ---- One cell per stub ------------------------------------------------------

// Runs only when started by EachStubKeepsItsFirstChoice, in a fresh process
// where no stub has been called yet.
TEST(DispatchChild, DISABLED_StubsResolveOnTheirOwnFirstCall) {
  if (std::getenv("TARN_TEST_DISPATCH_CHILD") == nullptr) GTEST_SKIP();
  fakecpu::Processor p = fakecpu::avx2_only();
  fakecpu::current = &p;
  tarn_serv_cpu_set_probe(&fakecpu::kProbe);
  tarn_serv_cpu_reset_state();
  EXPECT_EQ(tarn_blas_get_kernel_api_version(), 2);
  // The processor changes under the process: the called stub keeps its
  // branch, a stub called for the first time now sees the new one.
  p = fakecpu::sse42_only();
  tarn_serv_cpu_reset_state();
  EXPECT_EQ(tarn_blas_get_kernel_api_version(), 2);
  EXPECT_EQ(tarn_blas_dgemm_api_support(), 1);
  const int two = 2, ithr = 0, mode = 0;
  const double one = 1.0;
  double c[4] = {0, 0, 0, 0};
  EXPECT_EQ(tarn_blas_xdgemm_internal_team("N", "N", &two, &two, &two, &one, c, &two, c, &two, &one,
                                           c, &two, nullptr, &ithr, &mode),
            -1)
      << "the team entry of a kernel-table branch is empty";
  // Threads that meet an empty cell together all resolve it, and every one
  // of them gets a working entry.
  std::vector<double> v(1000, 1.0);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&] {
      const int len = 1000, inc = 1;
      if (tarn_blas_xddot(&len, v.data(), &inc, v.data(), &inc) != 1000.0) ++wrong;
    });
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
  tarn_serv_cpu_set_probe(nullptr);
  fakecpu::current = nullptr;
}

TEST(DispatchStubs, EachStubKeepsItsFirstChoice) {
  char self[4096];
  const ssize_t len = readlink("/proc/self/exe", self, sizeof self - 1);
  ASSERT_GT(len, 0);
  self[len] = '\0';
  const testsupport::RunResult r = testsupport::run_program(
      self, {"--gtest_filter=DispatchChild.*", "--gtest_also_run_disabled_tests"}, "",
      {"TARN_TEST_DISPATCH_CHILD=1", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS"});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("[  PASSED  ] 1 test"), std::string::npos) << r.out;
}

}  // namespace
