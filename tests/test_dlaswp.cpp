// Row interchanges: agreement with the plain loop for every increment,
// forward then backward walks, the pivot checks with their stopping point,
// and the threaded entry against the one-thread one.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "lapack/lapack.h"
#include "service/messages.h"
#include "tests/support/test_support.h"
#include "tests/xerbla_log.h"

using testsupport::Matrix;
using testsupport::Random;

namespace {

using namespace xerbla_log;
using LaswpFn = void (*)(const int*, double*, const int*, const int*, const int*, const int*,
                         const int*);

// The plain loop, with LAPACK's indexing of the pivot vector.
void ref_laswp(int n, Matrix& a, int k1, int k2, const std::vector<int>& ipiv, int incx) {
  if (incx == 0) return;
  for (int c = 0; c < n; ++c) {
    if (incx > 0) {
      for (int i = k1, ix = k1; i <= k2; ++i, ix += incx) std::swap(a(i - 1, c), a(ipiv[ix - 1] - 1, c));
    } else {
      for (int i = k2, ix = 1 + (1 - k2) * incx; i >= k1; --i, ix += incx)
        std::swap(a(i - 1, c), a(ipiv[ix - 1] - 1, c));
    }
  }
}

class DlaswpTest : public ::testing::TestWithParam<LaswpFn> {
 protected:
  static Matrix numbered(int m, int n, int ld) {
    Matrix a(m, n, ld, -1.0);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < m; ++i) a(i, j) = 1000.0 * j + i;
    return a;
  }

  static std::vector<int> random_pivots(int count, int lo, int hi, uint64_t seed) {
    Random r(seed);
    std::vector<int> p(static_cast<size_t>(count));
    for (int& v : p) v = lo + static_cast<int>(r.next() % static_cast<uint64_t>(hi - lo + 1));
    return p;
  }

  static void call(int n, Matrix& a, int k1, int k2, const std::vector<int>& ipiv, int incx) {
    GetParam()(&n, a.data(), &a.ld, &k1, &k2, ipiv.data(), &incx);
  }

 private:
  xerbla_log::XerblaRecording xerbla_recording_;
};

TEST_P(DlaswpTest, MatchesPlainLoopForEveryIncrement) {
  const int m = 40, ld = 43;
  for (int n : {1, 5, 128, 129, 200})
    for (int incx : {1, 2, 3, -1, -2, -3})
      for (auto [k1, k2] : {std::pair{1, 40}, std::pair{3, 9}, std::pair{5, 5}, std::pair{2, 4}}) {
        const int abs_inc = incx > 0 ? incx : -incx;
        const auto ipiv = random_pivots(k2 * abs_inc + 1, 1, m, 17 + n + incx * 7 + k1);
        Matrix got = numbered(m, n, ld), want = got;
        call(n, got, k1, k2, ipiv, incx);
        ref_laswp(n, want, k1, k2, ipiv, incx);
        ASSERT_EQ(got.v, want.v) << "n=" << n << " incx=" << incx << " k=" << k1 << ".." << k2;
      }
  EXPECT_TRUE(g_xerbla_calls.empty());
}

TEST_P(DlaswpTest, BackwardWalkUndoesForward) {
  const int m = 64;
  for (int n : {3, 129, 150})
    for (int inc : {1, 2}) {
      const auto ipiv = random_pivots(m * inc, 1, m, 99 + n + inc);
      const Matrix start = numbered(m, n, m + 1);
      Matrix a = start;
      call(n, a, 1, m, ipiv, inc);
      EXPECT_NE(a.v, start.v);
      call(n, a, 1, m, ipiv, -inc);
      EXPECT_EQ(a.v, start.v) << "n=" << n << " inc=" << inc;
    }
}

TEST_P(DlaswpTest, DegenerateArgumentsChangeNothing) {
  Matrix a = numbered(6, 4, 6);
  const Matrix start = a;
  const std::vector<int> ipiv = {6, 5, 4, 3, 2, 1};
  call(4, a, 3, 2, ipiv, 1);   // k1 > k2
  call(4, a, 1, 6, ipiv, 0);   // incx 0
  call(0, a, 1, 6, ipiv, 1);   // no columns
  call(-3, a, 1, 6, ipiv, 1);
  EXPECT_EQ(a.v, start.v);
  // n <= 0 reads neither the matrix nor the pivots.
  int n = 0, lda = 1, k1 = 1, k2 = 5, inc = 1;
  GetParam()(&n, nullptr, &lda, &k1, &k2, nullptr, &inc);
  // A pivot equal to its row is a no-op exchange.
  const std::vector<int> ident = {1, 2, 3, 4, 5, 6};
  call(4, a, 1, 6, ident, 1);
  EXPECT_EQ(a.v, start.v);
  EXPECT_TRUE(g_xerbla_calls.empty());
}

TEST_P(DlaswpTest, BadPivotInAGroupStopsBeforeTheGroup) {
  const int m = 10;
  for (int bad : {0, m + 1, -4}) {
    // Eight pivots: the first group of four is fine, the second holds the
    // bad one in its last place. Column 0 gets the first group only; the
    // other columns nothing.
    std::vector<int> ipiv = {2, 3, 4, 5, 6, 7, 8, bad};
    Matrix a = numbered(m, 3, m), want = a;
    for (int i = 1; i <= 4; ++i) std::swap(want(i - 1, 0), want(ipiv[i - 1] - 1, 0));
    g_xerbla_calls.clear();
    call(3, a, 1, 8, ipiv, 1);
    EXPECT_EQ(a.v, want.v) << bad;
    ASSERT_EQ(g_xerbla_calls.size(), 1u);
    EXPECT_EQ(g_xerbla_calls[0].name, "DLASWP");
    EXPECT_EQ(g_xerbla_calls[0].info, 6);
  }
}

TEST_P(DlaswpTest, BadPivotInTheRemainderStopsThere) {
  const int m = 10;
  // Seven pivots: one group of four, then three singles, the second bad.
  std::vector<int> ipiv = {2, 3, 4, 5, 9, 11, 1};
  Matrix a = numbered(m, 2, m), want = a;
  for (int i = 1; i <= 5; ++i) std::swap(want(i - 1, 0), want(ipiv[i - 1] - 1, 0));
  call(2, a, 1, 7, ipiv, 1);
  EXPECT_EQ(a.v, want.v);
  ASSERT_EQ(g_xerbla_calls.size(), 1u);
  EXPECT_EQ(g_xerbla_calls[0].info, 6);
}

TEST_P(DlaswpTest, PivotIsCheckedAgainstLeadingDimension) {
  // Rows m..lda-1 are padding but inside the array: a pivot there is legal.
  const int m = 4, ld = 7;
  Matrix a = numbered(m, 2, ld);
  const std::vector<int> ipiv = {7};
  call(2, a, 1, 1, ipiv, 1);
  EXPECT_TRUE(g_xerbla_calls.empty());
  EXPECT_EQ(a(0, 1), -1.0);
  const std::vector<int> beyond = {8};
  call(2, a, 1, 1, beyond, 1);
  EXPECT_EQ(g_xerbla_calls.size(), 1u);
}

TEST_P(DlaswpTest, WideBlockWithBadPivotReportsOnce) {
  // 129 and more columns take the threaded path when threads are allowed.
  for (int n : {128, 129, 300}) {
    const int m = 12;
    std::vector<int> ipiv = {3, 1, 13, 2};  // 13 > lda
    Matrix a = numbered(m, n, m);
    g_xerbla_calls.clear();
    call(n, a, 1, 4, ipiv, 1);
    EXPECT_EQ(g_xerbla_calls.size(), 1u) << n;
    EXPECT_EQ(a(0, n - 1), 1000.0 * (n - 1)) << "the group holding the bad pivot is not applied";
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, DlaswpTest,
                         ::testing::Values(&tarn_lapack_dlaswp, &tarn_lapack_xdlaswp),
                         [](const ::testing::TestParamInfo<LaswpFn>& info) {
                           return info.param == &tarn_lapack_dlaswp ? std::string("Threaded")
                                                                    : std::string("OneThread");
                         });

}  // namespace
