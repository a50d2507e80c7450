// The timed run: every trial of every test on the one work block, a row per
// trial, then the summary by test.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "driver/driver.h"
#include "service/messages.h"

namespace {

constexpr int kKiBShift = 10;

struct TestResult {
  double avg_gflops = 0.0;
  double max_gflops = 0.0;
};

// The matrix base of a test: the block's address rounded up to a multiple
// of the alignment unit (any positive unit, a power of two or not).
double* aligned_base(void* block, int32_t align_kib) {
  if (align_kib <= 0) return static_cast<double*>(block);
  const uintptr_t unit = static_cast<uintptr_t>(align_kib) << kKiBShift;
  const uintptr_t addr = reinterpret_cast<uintptr_t>(block);
  const uintptr_t rem = addr % unit;
  return reinterpret_cast<double*>(rem == 0 ? addr : addr + (unit - rem));
}

// Runs the trials of test i; returns its average and maximum rate and
// raises `failed` on a failed residual check.
TestResult run_test(const RunPlan& plan, int i, void* block, int& failed) {
  TestResult result;
  int32_t n = plan.sizes[i];
  int32_t lda = plan.ldas[i];
  const int32_t align = plan.aligns[i];
  const int32_t trials = plan.trials[i];

  // Work block layout: A (n by lda), b, x (lda each), the pivots (lda).
  double* a = aligned_base(block, align);
  double* b = a + static_cast<size_t>(n) * static_cast<size_t>(lda);
  double* x = b + lda;
  int32_t* ipvt = reinterpret_cast<int32_t*>(x + lda);

  // A trial too quick for the clock keeps the previous trial's figures.
  double time = 0.0, gflops = 0.0, resid = 0.0, residn = 0.0;
  double sum = 0.0, max = 0.0;
  for (int32_t t = 0; t < trials; ++t) {
    int32_t info = 0;
    linpack_(&n, a, &lda, b, x, ipvt, &time, &gflops, &resid, &residn, &info);
    if (info != 0) tarn_serv_print(kToStdout, drvmsg::kInfoReturned, 1, info);
    const bool pass = residual_check_passes(resid, residn);
    if (!pass) failed = 1;
    tarn_serv_print(kToStdout, pass ? drvmsg::kRowPass : drvmsg::kRowFail, 7, n, lda, align,
                    time, gflops, resid, residn);
    std::fflush(nullptr);
    sum += gflops;
    // A NaN rate makes the maximum NaN: the comparison fails.
    max = (max > gflops) ? max : gflops;
  }
  // Failed trials count in the average too.
  if (trials > 1) sum /= trials;
  result.avg_gflops = sum;
  result.max_gflops = max;
  return result;
}

}  // namespace

int run_tests(const RunPlan& plan, void* block) {
  TestResult results[kMaxTests];
  int failed = 0;

  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  tarn_serv_print(kToStdout, drvmsg::kTimingBanner, 0);
  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  tarn_serv_print(kToStdout, drvmsg::kRowHead, 0);
  std::fflush(stdout);
  // Tests in input order; a size of 0 marks a dropped test.
  for (int i = 0; i < plan.ntests; ++i) {
    if (plan.sizes[i] <= 0) continue;
    results[i] = run_test(plan, i, block, failed);
  }
  std::free(block);

  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  tarn_serv_print(kToStdout, drvmsg::kSummaryTitle, 0);
  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  tarn_serv_print(kToStdout, drvmsg::kSummaryHead, 0);
  for (int i = 0; i < plan.ntests; ++i) {
    if (plan.sizes[i] <= 0) continue;
    tarn_serv_print(kToStdout, drvmsg::kSummaryRow, 5, plan.sizes[i], plan.ldas[i],
                    plan.aligns[i], results[i].avg_gflops, results[i].max_gflops);
  }
  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  tarn_serv_print(kToStdout, failed == 0 ? drvmsg::kChecksPassed : drvmsg::kChecksFailed, 0);
  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  tarn_serv_print(kToStdout, drvmsg::kEndOfTests, 0);
  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  return failed;
}
