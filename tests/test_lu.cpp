// LU factorization through DGETRF against the plain reference loop: random,
// singular, NaN and tiny-pivot matrices, rectangular shapes, padded leading
// dimensions, the info and ipiv rules, argument faults and the progress
// callback's stop.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include "lapack/lapack.h"
#include "service/messages.h"
#include "tests/support/test_support.h"
#include "tests/xerbla_log.h"

using testsupport::Matrix;
using testsupport::Random;

namespace {

using namespace xerbla_log;

// Marker in the rows between m and lda: the factorization must not touch it.
constexpr double kPad = -777.0;

std::vector<int> g_progress_steps;
int g_progress_stop_at = -1;  // step at or beyond which the hook asks to stop

int record_progress(const int* /*thread*/, const int* step, const char* stage, int stagelen) {
  EXPECT_EQ(std::string(stage, static_cast<size_t>(stagelen)), "DGETRF");
  g_progress_steps.push_back(*step);
  return (g_progress_stop_at >= 0 && *step >= g_progress_stop_at) ? 1 : 0;
}

class LuTest : public ::testing::Test {
 protected:
  static Matrix random_matrix(int m, int n, int ld, uint64_t seed) {
    return testsupport::random_matrix(m, n, ld, seed, kPad);
  }

  // Factors a copy with DGETRF and one with the reference; expects the same
  // info and pivots, factors equal to rounding, the padding untouched.
  static void expect_matches_reference(const Matrix& a0, double tol = 1e-11) {
    const int m = a0.m, n = a0.n, mn = std::min(m, n);
    Matrix got = a0, want = a0;
    std::vector<int> ipiv(static_cast<size_t>(std::max(mn, 1)), -5);
    std::vector<int> ref_ipiv(ipiv.size(), -5);
    int info = -99;
    DGETRF(&m, &n, got.data(), &got.ld, ipiv.data(), &info);
    const int ref_info = testsupport::ref_dgetrf(m, n, want.data(), want.ld, ref_ipiv.data());
    EXPECT_EQ(info, ref_info) << m << "x" << n << " lda " << a0.ld;
    for (int j = 0; j < mn; ++j) ASSERT_EQ(ipiv[j], ref_ipiv[j]) << "pivot " << j;
    EXPECT_LE(testsupport::max_rel_diff(got, want), tol) << m << "x" << n << " lda " << a0.ld;
    for (int j = 0; j < n; ++j)
      for (int i = m; i < a0.ld; ++i) ASSERT_EQ(got(i, j), kPad) << "padding " << i << "," << j;
  }

  // || P*A - L*U || / (||A|| * max(m, n)) in the max norm.
  static double reconstruction_error(const Matrix& a0, const Matrix& lu, const int* ipiv) {
    const int m = a0.m, n = a0.n, mn = std::min(m, n);
    Matrix pa = a0;
    for (int j = 0; j < mn; ++j)
      if (ipiv[j] - 1 != j)
        for (int c = 0; c < n; ++c) std::swap(pa(j, c), pa(ipiv[j] - 1, c));
    double err = 0.0, scale = 0.0;
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < m; ++i) {
        double s = 0.0;
        for (int k = 0; k <= std::min({i, j, mn - 1}); ++k) {
          const double l = (k == i) ? 1.0 : lu(i, k);
          s += l * lu(k, j);
        }
        err = std::max(err, std::fabs(s - pa(i, j)));
        scale = std::max(scale, std::fabs(a0(i, j)));
      }
    return err / (scale * std::max(m, n));
  }

 private:
  xerbla_log::XerblaRecording xerbla_recording_;
};

TEST_F(LuTest, RandomSquareMatchesReference) {
  uint64_t seed = 11;
  for (int n : {1, 2, 3, 5, 8, 16, 17, 31, 48, 49, 64, 100, 130, 200})
    expect_matches_reference(random_matrix(n, n, n, seed++));
}

TEST_F(LuTest, RectangularShapesMatchReference) {
  uint64_t seed = 101;
  const int shapes[][2] = {{300, 120}, {120, 300}, {1, 50}, {50, 1}, {17, 1},
                           {97, 60},   {60, 97},   {2, 3},  {250, 49}, {49, 250}};
  for (const auto& s : shapes) expect_matches_reference(random_matrix(s[0], s[1], s[0], seed++));
}

TEST_F(LuTest, PaddedLeadingDimensionsLeaveThePaddingAlone) {
  uint64_t seed = 201;
  for (int n : {7, 60, 150})
    for (int extra : {1, 3, n + 1}) expect_matches_reference(random_matrix(n, n, n + extra, seed++));
  expect_matches_reference(random_matrix(90, 130, 101, seed++));
}

TEST_F(LuTest, FactorsReconstructThePermutedMatrix) {
  for (int n : {33, 120, 257}) {
    const Matrix a0 = random_matrix(n, n, n, 300 + n);
    Matrix lu = a0;
    std::vector<int> ipiv(n);
    int info = -1;
    DGETRF(&n, &n, lu.data(), &lu.ld, ipiv.data(), &info);
    ASSERT_EQ(info, 0);
    EXPECT_LT(reconstruction_error(a0, lu, ipiv.data()), 1e-14) << n;
    for (int j = 0; j < n; ++j) {
      EXPECT_GE(ipiv[j], j + 1);
      EXPECT_LE(ipiv[j], n);
    }
  }
}

TEST_F(LuTest, ZeroColumnGivesFirstZeroPivotAndFullPivotVector) {
  // Columns in the first block, in a later block, and two zero columns.
  for (int n : {12, 150}) {
    for (const std::vector<int>& zero_cols :
         std::vector<std::vector<int>>{{3}, {n - 40 > 0 ? n - 40 : 5}, {n / 2, 2}}) {
      Matrix a = random_matrix(n, n, n, 400 + n);
      for (int c : zero_cols)
        for (int i = 0; i < n; ++i) a(i, c) = 0.0;
      Matrix lu = a;
      std::vector<int> ipiv(n, -5);
      int info = -1;
      DGETRF(&n, &n, lu.data(), &lu.ld, ipiv.data(), &info);
      EXPECT_EQ(info, *std::min_element(zero_cols.begin(), zero_cols.end()) + 1);
      for (int j = 0; j < n; ++j) {
        EXPECT_GE(ipiv[j], 1) << j;
        EXPECT_LE(ipiv[j], n) << j;
      }
      expect_matches_reference(a);
    }
  }
}

TEST_F(LuTest, AllZeroMatrixReportsColumnOne) {
  const int m = 70, n = 55;
  Matrix a(m, n, m, 0.0);
  std::vector<int> ipiv(n, -5);
  int info = -1;
  DGETRF(&m, &n, a.data(), &a.ld, ipiv.data(), &info);
  EXPECT_EQ(info, 1);
  for (int j = 0; j < n; ++j) EXPECT_EQ(ipiv[j], j + 1);
}

TEST_F(LuTest, NanIsAPivotLikeAnyNonZero) {
  for (int n : {6, 80}) {
    Matrix a = random_matrix(n, n, n, 500 + n);
    a(n / 2, 1) = NAN;
    const int m = n;
    Matrix got = a, want = a;
    std::vector<int> ipiv(n), ref_ipiv(n);
    int info = -1;
    DGETRF(&m, &n, got.data(), &got.ld, ipiv.data(), &info);
    const int ref_info = testsupport::ref_dgetrf(m, n, want.data(), want.ld, ref_ipiv.data());
    EXPECT_EQ(info, ref_info);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(ipiv, ref_ipiv);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < m; ++i) {
        ASSERT_EQ(std::isnan(got(i, j)), std::isnan(want(i, j))) << i << "," << j;
        if (!std::isnan(want(i, j))) {
          EXPECT_NEAR(got(i, j), want(i, j), 1e-10);
        }
      }
  }
}

TEST_F(LuTest, TinyPivotIsDividedNotInverted) {
  // p below the safe minimum: 1/p overflows, so multipliers formed with the
  // reciprocal would be infinite. Division gives them exactly. One column,
  // so that no later exchange moves the multipliers.
  const double p = std::ldexp(1.0, -1060);
  ASSERT_LT(p, DBL_MIN);
  ASSERT_TRUE(std::isinf(1.0 / p));
  const int m = 4, n = 1;
  Matrix a(m, n);
  a(0, 0) = 0.25 * p;
  a(1, 0) = p;
  a(2, 0) = 0.75 * p;
  a(3, 0) = -0.5 * p;
  int ipiv = 0, info = -1;
  DGETRF(&m, &n, a.data(), &a.ld, &ipiv, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(ipiv, 2);
  EXPECT_EQ(a(0, 0), p);
  EXPECT_EQ(a(1, 0), 0.25);
  EXPECT_EQ(a(2, 0), 0.75);
  EXPECT_EQ(a(3, 0), -0.5);
}

TEST_F(LuTest, TinyPivotInsideABlockedFactorization) {
  // A matrix scaled far below the safe minimum in its first column: every
  // multiplier of that column comes from a division.
  const int n = 120;
  Matrix a = random_matrix(n, n, n, 650);
  for (int i = 0; i < n; ++i) a(i, 0) = std::ldexp(a(i, 0), -1040);
  expect_matches_reference(a, 1e-10);
}

TEST_F(LuTest, PivotJustAboveSafeMinimumUsesTheReciprocal) {
  const double p = DBL_MIN;  // |p| >= sfmin: scaled by 1/p, still exact here
  const int m = 3, n = 1;
  Matrix a(m, n);
  a(0, 0) = p;
  a(1, 0) = 0.5 * p;
  a(2, 0) = -0.25 * p;
  int ipiv = 0, info = -1;
  DGETRF(&m, &n, a.data(), &a.ld, &ipiv, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(a(1, 0), 0.5);
  EXPECT_EQ(a(2, 0), -0.25);
}

TEST_F(LuTest, EmptyShapesTouchNothing) {
  double a[4] = {1, 2, 3, 4};
  int ipiv[2] = {-5, -5};
  const int zero = 0, two = 2;
  int info = -1;
  DGETRF(&zero, &two, a, &two, ipiv, &info);
  EXPECT_EQ(info, 0);
  info = -1;
  DGETRF(&two, &zero, a, &two, ipiv, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(a[0], 1.0);
  EXPECT_EQ(a[3], 4.0);
  EXPECT_EQ(ipiv[0], -5);
  EXPECT_TRUE(g_xerbla_calls.empty());
}

TEST_F(LuTest, ArgumentFaultsReportPositionAndLeaveMatrix) {
  double a[4] = {1, 2, 3, 4};
  int ipiv[2] = {-5, -5};
  struct Case {
    int m, n, lda, info;
  };
  const Case cases[] = {
      {-1, 2, 2, -1}, {-1, -1, 0, -1},  // m checked first
      {2, -1, 2, -2}, {2, -1, 0, -2},   // then n
      {2, 2, 1, -4},  {1, 2, 0, -4},    // lda below max(1, m)
  };
  for (const Case& c : cases) {
    g_xerbla_calls.clear();
    int info = 12345;
    DGETRF(&c.m, &c.n, a, &c.lda, ipiv, &info);
    EXPECT_EQ(info, c.info) << c.m << " " << c.n << " " << c.lda;
    ASSERT_EQ(g_xerbla_calls.size(), 1u);
    EXPECT_EQ(g_xerbla_calls[0].name, "DGETRF");
    EXPECT_EQ(g_xerbla_calls[0].info, -c.info);
  }
  EXPECT_EQ(a[0], 1.0);
  EXPECT_EQ(ipiv[0], -5);
}

TEST_F(LuTest, LeadingDimensionIsComparedWithAtLeastOne) {
  // lda is compared with max(1, m): with m = 0, lda 1 is legal and lda 0
  // is not.
  const int m = 0, n = 3, one = 1, zero = 0;
  int info = -1;
  int ipiv = -5;
  double a = 1.0;
  DGETRF(&m, &n, &a, &one, &ipiv, &info);
  EXPECT_EQ(info, 0);
  EXPECT_TRUE(g_xerbla_calls.empty());
  DGETRF(&m, &n, &a, &zero, &ipiv, &info);
  EXPECT_EQ(info, -4);
  ASSERT_EQ(g_xerbla_calls.size(), 1u);
  EXPECT_EQ(g_xerbla_calls[0].info, 4);
  int k = -1;
  EXPECT_EQ(tarn_lapack_errchk_dgetrf(&m, &n, &a, &one, &ipiv, &k), 0);
  EXPECT_EQ(k, 0);
  EXPECT_EQ(tarn_lapack_errchk_dgetrf(&one, &n, &a, &zero, &ipiv, &k), 1);
  EXPECT_EQ(k, -4);
  EXPECT_EQ(a, 1.0);
}

class LuProgressTest : public LuTest {
 protected:
  void SetUp() override {
    LuTest::SetUp();
    g_progress_steps.clear();
    g_progress_stop_at = -1;
    old_progress_ = tarn_serv_set_progress(record_progress);
  }
  void TearDown() override {
    tarn_serv_set_progress(old_progress_);
    LuTest::TearDown();
  }

 private:
  tarn_progress_fn old_progress_ = nullptr;
};

TEST_F(LuProgressTest, StepsAdvanceToTheColumnCount) {
  const int n = 150;
  Matrix a = random_matrix(n, n, n, 600);
  std::vector<int> ipiv(n);
  int info = -1;
  DGETRF(&n, &n, a.data(), &a.ld, ipiv.data(), &info);
  EXPECT_EQ(info, 0);
  ASSERT_FALSE(g_progress_steps.empty());
  EXPECT_TRUE(std::is_sorted(g_progress_steps.begin(), g_progress_steps.end()));
  EXPECT_EQ(g_progress_steps.back(), n);
}

TEST_F(LuProgressTest, StopFromTheCallbackIsAnInternalFailure) {
  const int n = 150;
  Matrix a = random_matrix(n, n, n, 601);
  std::vector<int> ipiv(n);
  g_progress_stop_at = 1;
  int info = 0;
  DGETRF(&n, &n, a.data(), &a.ld, ipiv.data(), &info);
  EXPECT_EQ(info, -1002);
  EXPECT_EQ(g_progress_steps.size(), 1u) << "the first stop ends the recursion";

  g_progress_steps.clear();
  const int zero = 0;
  int local_info = 0;
  Matrix b = random_matrix(n, n, n, 602);
  EXPECT_EQ(tarn_lapack_xdgetrf_local(&n, &n, b.data(), &b.ld, ipiv.data(), &local_info, &zero,
                                      &zero),
            1);
  g_progress_steps.clear();
  Matrix c = random_matrix(n, n, n, 603);
  EXPECT_EQ(tarn_lapack_xdgetrf(&n, &n, c.data(), &c.ld, ipiv.data(), &local_info), 1);
  EXPECT_EQ(local_info, -1002);
}

TEST_F(LuTest, ThreadedAndOneThreadRecursionsAgree) {
  const int m = 180, n = 140;
  const Matrix a0 = random_matrix(m, n, m + 2, 700);
  Matrix x = a0, y = a0;
  std::vector<int> px(n), py(n);
  int ix = -1, iy = -1;
  const int zero = 0;
  EXPECT_EQ(tarn_lapack_xdgetrf_local(&m, &n, x.data(), &x.ld, px.data(), &ix, &zero, &zero), 0);
  EXPECT_EQ(tarn_lapack_xdgetrf(&m, &n, y.data(), &y.ld, py.data(), &iy), 0);
  EXPECT_EQ(ix, 0);
  EXPECT_EQ(iy, 0);
  EXPECT_EQ(px, py);
  EXPECT_LE(testsupport::max_rel_diff(x, y), 1e-12);
}

// Columns this far apart lie beyond 2^31 elements (and 2^32 bytes) from the
// first from column 6 on: the factorization reaches them in a 64-bit build.
constexpr int kFarLd = 400000009;

TEST_F(LuTest, ColumnsBeyond32BitOffsetsFactorAsCompactOnes) {
  if (!testsupport::FarMatrix::possible()) GTEST_SKIP() << "a 32-bit address space";
  // Several panels and their updates: the same pivots and factors as the
  // compact matrix, through the entry and through both recursions.
  const int n = 300, zero = 0;
  const Matrix a0 = random_matrix(n, n, n, 900);
  for (int road = 0; road < 3; ++road) {
    Matrix want = a0;
    testsupport::FarMatrix far(n, n, kFarLd);
    ASSERT_NE(far.data(), nullptr);
    far.load(a0);
    std::vector<int> ipiv(n, -5), far_ipiv(n, -5);
    int info = -1, far_info = -1;
    if (road == 0) {
      DGETRF(&n, &n, want.data(), &want.ld, ipiv.data(), &info);
      DGETRF(&n, &n, far.data(), &far.ld, far_ipiv.data(), &far_info);
    } else if (road == 1) {
      tarn_lapack_xdgetrf_local(&n, &n, want.data(), &want.ld, ipiv.data(), &info, &zero, &zero);
      tarn_lapack_xdgetrf_local(&n, &n, far.data(), &far.ld, far_ipiv.data(), &far_info, &zero,
                                &zero);
    } else {
      tarn_lapack_dgetrf_local(&n, &n, want.data(), &want.ld, ipiv.data(), &info, &zero, &zero);
      tarn_lapack_dgetrf_local(&n, &n, far.data(), &far.ld, far_ipiv.data(), &far_info, &zero,
                               &zero);
    }
    EXPECT_EQ(far_info, info) << "road " << road;
    EXPECT_EQ(far_ipiv, ipiv) << "road " << road;
    EXPECT_LE(testsupport::max_rel_diff(far.compact(), want), 1e-12) << "road " << road;
  }
}

TEST_F(LuTest, UnblockedKernelMatchesReference) {
  for (int shape : {0, 1, 2}) {
    const int m = shape == 1 ? 40 : 25, n = shape == 2 ? 40 : 25;
    Matrix got = random_matrix(m, n, m + 1, 800 + shape), want = got;
    std::vector<int> ipiv(std::min(m, n)), ref_ipiv(std::min(m, n));
    int info = -1;
    tarn_lapack_dgetf2(&m, &n, got.data(), &got.ld, ipiv.data(), &info);
    EXPECT_EQ(info, testsupport::ref_dgetrf(m, n, want.data(), want.ld, ref_ipiv.data()));
    EXPECT_EQ(ipiv, ref_ipiv);
    EXPECT_LE(testsupport::max_rel_diff(got, want), 1e-12);
  }
}

}  // namespace
