// The public LAPACK names: DLAMCH's table, ILAENV's answers for the LU's
// three questions, the trace lines of verbose mode and the default error
// report reached through the installed callbacks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <cmath>
#include <string>
#include <vector>

#include "lapack/lapack.h"
#include "lapack/tuning/ilaenv_getrf.h"
#include "service/cpu.h"
#include "service/verbose.h"

namespace {

double dlamch(const char* key) { return DLAMCH(key); }

TEST(Dlamch, TableValuesByKey) {
  EXPECT_EQ(dlamch("E"), std::ldexp(1.0, -53));
  EXPECT_EQ(dlamch("S"), DBL_MIN);
  EXPECT_EQ(dlamch("B"), 2.0);
  EXPECT_EQ(dlamch("P"), DBL_EPSILON);
  EXPECT_EQ(dlamch("N"), 53.0);
  EXPECT_EQ(dlamch("R"), 1.0);
  EXPECT_EQ(dlamch("M"), -1021.0);
  EXPECT_EQ(dlamch("U"), DBL_MIN);
  EXPECT_EQ(dlamch("L"), 1024.0);
  EXPECT_EQ(dlamch("O"), DBL_MAX);
  EXPECT_EQ(dlamch("T"), 98.70149282610821);
  EXPECT_EQ(dlamch("F"), std::ldexp(1.0, -484));
  EXPECT_EQ(dlamch("X"), std::ldexp(1.0, 484));
  EXPECT_EQ(dlamch("A"), std::ldexp(1.0, -340));
  EXPECT_EQ(dlamch("I"), std::ldexp(1.0, 340));
}

TEST(Dlamch, OnlyTheFirstCharacterCountsAndCaseIsIgnored) {
  EXPECT_EQ(dlamch("e"), dlamch("EPSILON"));
  EXPECT_EQ(dlamch("safe minimum"), DBL_MIN);
  EXPECT_EQ(dlamch("o"), DBL_MAX);
  EXPECT_EQ(tarn_lapack_dlamch("p"), DBL_EPSILON);
}

TEST(Dlamch, UnknownKeysGiveZero) {
  for (const char* key : {"Z", "z", "?", "1", " ", ""}) EXPECT_EQ(dlamch(key), 0.0) << key;
  EXPECT_EQ(tarn_lapack_dlamch(nullptr), 0.0);
}

int ilaenv(int ispec, const char* name, const char* opts, int n1, int n2, int n3, int n4) {
  return ILAENV(&ispec, name, opts, &n1, &n2, &n3, &n4);
}

TEST(Ilaenv, CpuQueryAnswersTheBranch) {
  EXPECT_EQ(ilaenv(1, "CPU", " ", 0, 0, 0, 0), tarn_serv_cpu_detect());
  EXPECT_EQ(ilaenv(1, "CPUID", " ", 5000, 5000, 0, 0), tarn_serv_cpu_detect());
}

TEST(Ilaenv, SmallProblemsTakeTheShortWay) {
  for (const char* name : {"DGETRF", "DPOTRF", "XYZ"}) {
    EXPECT_EQ(ilaenv(1, name, " ", 10, 10, -1, -1), 1) << name;
    EXPECT_EQ(ilaenv(1, name, "S", 3, 7, -1, -1), 1) << name;
    EXPECT_EQ(ilaenv(2, name, " ", 5, 5, -1, -1), 2) << name;
    EXPECT_EQ(ilaenv(5, name, " ", 5, 5, -1, -1), 2) << name;
    EXPECT_EQ(ilaenv(3, name, " ", 10, 10, -1, -1), 22) << name;
    EXPECT_EQ(ilaenv(3, name, " ", 10, -1, -1, -1), 32) << name;
    EXPECT_EQ(ilaenv(18, name, " ", 4, 4, -1, -1), 22) << name;
    EXPECT_EQ(ilaenv(4, name, " ", 4, 4, -1, -1), 6) << name;
    EXPECT_EQ(ilaenv(8, name, " ", 4, 4, -1, -1), 50) << name;
    EXPECT_EQ(ilaenv(9, name, " ", 4, 4, -1, -1), 25) << name;
  }
}

TEST(Ilaenv, CrossoverKeepsOnlyNarrowShapesSequential) {
  EXPECT_NE(ilaenv(3, "DGETRF", " ", 17, 17, -1, -1), 0);
  EXPECT_NE(ilaenv(3, "DGETRF", " ", 149, 149, -1, -1), 0);
  EXPECT_EQ(ilaenv(3, "DGETRF", " ", 150, 150, -1, -1), 0);
  EXPECT_EQ(ilaenv(3, "DGETRF", " ", 5000, 5000, -1, -1), 0);
  EXPECT_NE(ilaenv(3, "DGETRF", " ", 5000, 63, -1, -1), 0);
  EXPECT_EQ(ilaenv(3, "DGETRF", " ", 5000, 64, -1, -1), 0);
  for (int m : {1, 11, 64, 149, 150, 5000, 20000})
    EXPECT_EQ(ilaenv(3, "DGETRF", " ", m, 5000, -1, -1), 0) << m;
  EXPECT_EQ(ilaenv(3, "dgetrf", " ", 300, 300, -1, -1), 0);
}

TEST(Ilaenv, SequentialWidthFollowsTheBranchTable) {
  const int branch = tarn_serv_cpu_detect();
  for (int n : {11, 16, 17, 40, 100, 129, 500, 1000, 1500, 2000, 2400, 3000, 5000, 15000})
    EXPECT_EQ(ilaenv(1, "DGETRF", "S", n, n, -1, -1),
              tarn_lapack_tuning::getrf_block_width(branch, true, n, n, -1))
        << n;
}

TEST(IlaenvTuning, Avx512Widths) {
  for (int branch : {8, 9}) {
    EXPECT_EQ(tarn_lapack_tuning::getrf_block_width(branch, true, 2000, 2000, -1), 48);
    EXPECT_EQ(tarn_lapack_tuning::getrf_block_width(branch, true, 4000, 4000, -1), 96);
    EXPECT_EQ(tarn_lapack_tuning::getrf_block_width(branch, true, 14000, 14000, -1), 224);
    EXPECT_EQ(tarn_lapack_tuning::getrf_block_width(branch, true, 14001, 14001, -1), 336);
    EXPECT_EQ(tarn_lapack_tuning::getrf_block_width(branch, false, 3000, 3000, 8), 96);
  }
}

TEST(IlaenvTuning, Avx2Widths) {
  using tarn_lapack_tuning::getrf_block_width;
  const int avx2 = 7;
  EXPECT_EQ(getrf_block_width(avx2, true, 1000, 1000, -1), 24);
  EXPECT_EQ(getrf_block_width(avx2, true, 2000, 2000, -1), 128);
  EXPECT_EQ(getrf_block_width(avx2, true, 2500, 2500, -1), 160);
  EXPECT_EQ(getrf_block_width(avx2, true, 2501, 2501, -1), 240);
  for (int m : {241, 1000, 10000}) EXPECT_EQ(getrf_block_width(avx2, true, m, 240, -1), 24);
  // With a thread count: the 8-thread and 32-thread tables.
  EXPECT_EQ(getrf_block_width(avx2, false, 1500, 1500, 8), 24);
  EXPECT_EQ(getrf_block_width(avx2, false, 2199, 2199, 8), 64);
  EXPECT_EQ(getrf_block_width(avx2, false, 2699, 2699, 8), 128);
  EXPECT_EQ(getrf_block_width(avx2, false, 2700, 2700, 8), 240);
  EXPECT_EQ(getrf_block_width(avx2, false, 2500, 2500, 32), 24);
  EXPECT_EQ(getrf_block_width(avx2, false, 3499, 3499, 32), 48);
  EXPECT_EQ(getrf_block_width(avx2, false, 4499, 4499, 32), 64);
  EXPECT_EQ(getrf_block_width(avx2, false, 9499, 9499, 32), 120);
  EXPECT_EQ(getrf_block_width(avx2, false, 10499, 10499, 32), 144);
  EXPECT_EQ(getrf_block_width(avx2, false, 10500, 10500, 32), 160);
}

TEST(IlaenvTuning, AvxThreadedWidths) {
  using tarn_lapack_tuning::getrf_block_width;
  const int avx = 6;
  const int want[][2] = {{700, 16},   {1700, 24},   {2400, 80},   {2800, 128},
                         {10000, 200}, {10001, 400}, {701, 24}};
  for (const auto& w : want) EXPECT_EQ(getrf_block_width(avx, false, w[0], w[0], 8), w[1]) << w[0];
}

TEST(IlaenvTuning, PowerOfTwoRuleBelowAvx) {
  using tarn_lapack_tuning::getrf_block_width;
  const int want[][2] = {{11, 8},    {16, 8},    {17, 8},     {32, 8},     {33, 32},
                         {128, 32},  {129, 128}, {256, 128},  {257, 256},  {1000, 512},
                         {1024, 512}, {1025, 1024}, {5000, 4096}};
  for (int branch : {2, 4, 5})
    for (const auto& w : want) EXPECT_EQ(getrf_block_width(branch, true, w[0], w[0], -1), w[1]) << w[0];
  // avx shares the rule for the sequential recursion.
  EXPECT_EQ(getrf_block_width(6, true, 1000, 1000, -1), 512);
  EXPECT_EQ(getrf_block_width(2, true, 1, 1, -1), 1);
}

TEST(IlaenvTuning, SequentialRecursionAlwaysEnds) {
  // Each level asks again for its panel (rows, width): the width must fall
  // below the panel's smaller size or reach it, within a few levels.
  for (int branch : {2, 4, 5, 6, 7, 8, 9})
    for (int n : {11, 20, 100, 241, 999, 4097, 20000}) {
      int m = n, w = n, levels = 0;
      for (;;) {
        const int nb = tarn_lapack_tuning::getrf_block_width(branch, true, m, w, -1);
        if (nb <= 1 || nb >= std::min(m, w)) break;
        w = nb;
        ASSERT_LT(++levels, 20) << branch << " " << n;
      }
    }
}

TEST(Ilaenv, GeneratorWidthIsPositiveAndStable) {
  for (int n : {1, 10, 11, 100, 1000, 3000, 12000})
    for (int threads : {1, 2, 8, 32}) {
      const int a = ilaenv(1, "DGETRF", " ", n, n, threads, -1);
      EXPECT_GT(a, 0) << n;
      EXPECT_EQ(a, ilaenv(1, "DGETRF", " ", n, n, threads, -1));
    }
}

// ---- Trace lines and callbacks ---------------------------------------------

class WrapperTraceTest : public ::testing::Test {
 protected:
  void TearDown() override { tarn_serv_verbose(0); }
};

TEST_F(WrapperTraceTest, EachEntryWritesOneLineInVerboseMode) {
  ASSERT_EQ(tarn_serv_verbose(1), 1);
  const int n = 3, one = 1;
  double a[9] = {4, 1, 2, 1, 5, 3, 2, 3, 6};
  double b[3] = {1, 2, 3};
  int ipiv[3];
  int info = -1;
  ::testing::internal::CaptureStdout();
  DGETRF(&n, &n, a, &n, ipiv, &info);
  DGETRS("t", &n, &one, a, &n, ipiv, b, &n, &info);
  (void)ilaenv(1, "DGETRF", "S", 500, 400, -1, -1);
  (void)dlamch("eps");
  std::fflush(stdout);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("DGETRF(3,3,"), std::string::npos) << out;
  EXPECT_NE(out.find(",3,"), std::string::npos) << out;
  EXPECT_NE(out.find("DGETRS(t,3,1,"), std::string::npos) << out;
  EXPECT_NE(out.find("ILAENV(1,D,S,500,400,-1,-1)"), std::string::npos) << out;
  EXPECT_NE(out.find("DLAMCH(e)"), std::string::npos) << out;
  // One line per call (the service may add its header line once).
  for (const char* entry : {"DGETRF(", "DGETRS(", "ILAENV(", "DLAMCH("}) {
    const size_t first = out.find(entry);
    EXPECT_EQ(out.find(entry, first + 1), std::string::npos) << entry << "\n" << out;
  }
}

TEST_F(WrapperTraceTest, FaultIsTracedWithItsInfo) {
  ASSERT_EQ(tarn_serv_verbose(1), 1);
  const int m = -2, n = 3, lda = 1;
  int info = 0;
  ::testing::internal::CaptureStdout();
  DGETRF(&m, &n, nullptr, &lda, nullptr, &info);
  std::fflush(stdout);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(info, -1);
  EXPECT_NE(out.find("DGETRF(-2,3,"), std::string::npos) << out;
  EXPECT_NE(out.find(",1,"), std::string::npos) << out;
  EXPECT_NE(out.find(",-1)"), std::string::npos) << out;
}

TEST_F(WrapperTraceTest, SilentWhenVerboseIsOff) {
  ASSERT_EQ(tarn_serv_verbose(0), 0);
  const int n = 2;
  double a[4] = {1, 2, 3, 4};
  int ipiv[2], info = -1;
  ::testing::internal::CaptureStdout();
  DGETRF(&n, &n, a, &n, ipiv, &info);
  (void)dlamch("E");
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(info, 0);
}

TEST(WrapperCallbacks, DefaultErrorReportNamesRoutineAndPosition) {
  // No handler of ours is installed here: the entry installs the chain that
  // ends in the default report.
  const int n = 3, lda = 3, bad = -1;
  int info = 0;
  ::testing::internal::CaptureStdout();
  DGETRF(&n, &bad, nullptr, &lda, nullptr, &info);
  std::fflush(stdout);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(info, -2);
  EXPECT_NE(out.find("Parameter 2 was incorrect on entry to DGETRF"), std::string::npos) << out;
}

}  // namespace
