// Solves with DGETRS after DGETRF in the three forms (N, T, C, either case):
// residuals against plain products, argument faults and quick returns.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "lapack/lapack.h"
#include "service/messages.h"
#include "tests/support/test_support.h"
#include "tests/xerbla_log.h"

using testsupport::Matrix;
using testsupport::Random;
using testsupport::random_matrix;

namespace {

using namespace xerbla_log;

class GetrsTest : public ::testing::Test {
 protected:

  // Factors A, solves op(A) X = B for B = op(A) * X0, and returns the scaled
  // residual ||op(A) X - B|| / (||A|| ||X|| n eps) in the max norm.
  static double solve_residual(char trans, int n, int nrhs, int lda, int ldb, uint64_t seed) {
    const Matrix a0 = random_matrix(n, n, lda, seed);
    const Matrix x0 = random_matrix(n, nrhs, ldb, seed + 1000);
    const char t = static_cast<char>(std::toupper(static_cast<unsigned char>(trans)));
    const char op = t == 'N' ? 'N' : 'T';
    Matrix b(n, nrhs, ldb);
    testsupport::ref_dgemm(op, 'N', n, nrhs, n, 1.0, a0.data(), a0.ld, x0.data(), x0.ld, 0.0,
                           b.data(), b.ld);
    const Matrix b0 = b;

    Matrix lu = a0;
    std::vector<int> ipiv(n);
    int info = -1;
    DGETRF(&n, &n, lu.data(), &lu.ld, ipiv.data(), &info);
    EXPECT_EQ(info, 0);
    const char tr[2] = {trans, 0};
    info = -1;
    DGETRS(tr, &n, &nrhs, lu.data(), &lu.ld, ipiv.data(), b.data(), &b.ld, &info);
    EXPECT_EQ(info, 0);

    Matrix r = b0;  // r = op(A) * X - B
    testsupport::ref_dgemm(op, 'N', n, nrhs, n, 1.0, a0.data(), a0.ld, b.data(), b.ld, -1.0,
                           r.data(), r.ld);
    double rmax = 0.0, amax = 0.0, xmax = 0.0;
    for (int j = 0; j < nrhs; ++j)
      for (int i = 0; i < n; ++i) {
        rmax = std::max(rmax, std::fabs(r(i, j)));
        xmax = std::max(xmax, std::fabs(b(i, j)));
      }
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) amax = std::max(amax, std::fabs(a0(i, j)));
    return rmax / (amax * xmax * n * 2.220446049250313e-16);
  }

 private:
  xerbla_log::XerblaRecording xerbla_recording_;
};

TEST_F(GetrsTest, AllFormsSolveWithSmallResidual) {
  uint64_t seed = 1;
  for (char trans : {'N', 'T', 'C', 'n', 't', 'c'})
    for (int n : {1, 5, 9, 40, 150})
      for (int nrhs : {1, 3, 12}) {
        const double res = solve_residual(trans, n, nrhs, n, n, seed++);
        EXPECT_LT(res, 50.0) << trans << " n=" << n << " nrhs=" << nrhs;
      }
}

TEST_F(GetrsTest, PaddedLeadingDimensions) {
  EXPECT_LT(solve_residual('N', 70, 4, 75, 81, 77), 50.0);
  EXPECT_LT(solve_residual('T', 70, 1, 71, 90, 78), 50.0);
  EXPECT_LT(solve_residual('c', 33, 2, 40, 33, 79), 50.0);
}

TEST_F(GetrsTest, TransposedSolveAppliesExchangesLast) {
  // A permutation matrix: L = U = I after pivoting, so the solve is pure
  // row exchanges and exact.
  const int n = 12, nrhs = 2;
  Matrix a(n, n, n, 0.0);
  for (int j = 0; j < n; ++j) a((j * 5 + 3) % n, j) = 1.0;  // 5 is prime to 12
  std::vector<int> ipiv(n);
  int info = -1;
  Matrix lu = a;
  DGETRF(&n, &n, lu.data(), &lu.ld, ipiv.data(), &info);
  ASSERT_EQ(info, 0);
  for (const char* tr : {"N", "T"}) {
    Matrix b(n, nrhs);
    for (int j = 0; j < nrhs; ++j)
      for (int i = 0; i < n; ++i) b(i, j) = 100.0 * j + i;
    Matrix want(n, nrhs);  // x with op(A) x = b
    for (int j = 0; j < nrhs; ++j)
      for (int c = 0; c < n; ++c) {
        const int r = (c * 5 + 3) % n;  // A(r, c) = 1
        if (tr[0] == 'N')
          want(c, j) = b(r, j);
        else
          want(r, j) = b(c, j);
      }
    DGETRS(tr, &n, &nrhs, lu.data(), &lu.ld, ipiv.data(), b.data(), &b.ld, &info);
    ASSERT_EQ(info, 0);
    EXPECT_EQ(testsupport::max_rel_diff(b, want), 0.0) << tr;
  }
}

TEST_F(GetrsTest, ArgumentFaultsReportPosition) {
  const int n = 10;
  std::vector<double> a(200, 1.0), b(200, 2.0);
  std::vector<int> ipiv(n, 1);
  struct Case {
    const char* trans;
    int n, nrhs, lda, ldb, info;
  };
  // n and nrhs below 9 together would take the small path, which checks
  // nothing: every case keeps one of them at 9 or more.
  const Case cases[] = {
      {"X", n, 1, n, n, -1},  {"", n, 1, n, n, -1},   {"N", -1, 9, 1, 1, -2},
      {"T", n, -1, n, n, -3}, {"C", n, 1, n - 1, n, -5}, {"N", n, 1, n, n - 1, -8},
      {"N", 0, 9, 0, 1, -5},  {"N", 0, 9, 1, 0, -8},
  };
  for (const Case& c : cases) {
    g_xerbla_calls.clear();
    int info = 0;
    DGETRS(c.trans, &c.n, &c.nrhs, a.data(), &c.lda, ipiv.data(), b.data(), &c.ldb, &info);
    EXPECT_EQ(info, c.info) << c.trans << " " << c.n << " " << c.nrhs;
    ASSERT_EQ(g_xerbla_calls.size(), 1u);
    EXPECT_EQ(g_xerbla_calls[0].name, "DGETRS");
    EXPECT_EQ(g_xerbla_calls[0].info, -c.info);
  }
  EXPECT_EQ(b[0], 2.0);
}

TEST_F(GetrsTest, EmptyProblemsReturnUntouched) {
  std::vector<double> a(16, 1.0), b(16, 2.0);
  std::vector<int> ipiv(4, 99);  // out of range: must not be read
  const int zero = 0, four = 4;
  int info = -1;
  DGETRS("N", &zero, &four, a.data(), &four, ipiv.data(), b.data(), &four, &info);
  EXPECT_EQ(info, 0);
  info = -1;
  DGETRS("T", &four, &zero, a.data(), &four, ipiv.data(), b.data(), &four, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(b[0], 2.0);
  EXPECT_TRUE(g_xerbla_calls.empty());
}

// Columns of A and of B this far apart lie beyond 2^31 elements from the
// first: the solve reaches them in a 64-bit build, as it does compact ones.
TEST_F(GetrsTest, ColumnsBeyond32BitOffsetsSolveAsCompactOnes) {
  if (!testsupport::FarMatrix::possible()) GTEST_SKIP() << "a 32-bit address space";
  constexpr int kFarLd = 400000009;
  const int n = 300, nrhs = 9;
  Matrix lu = random_matrix(n, n, n, 950);
  std::vector<int> ipiv(n);
  int info = -1;
  DGETRF(&n, &n, lu.data(), &lu.ld, ipiv.data(), &info);
  ASSERT_EQ(info, 0);
  testsupport::FarMatrix far_lu(n, n, kFarLd);
  ASSERT_NE(far_lu.data(), nullptr);
  far_lu.load(lu);
  for (const char* trans : {"N", "T"}) {
    Matrix b = random_matrix(n, nrhs, n, 951);
    testsupport::FarMatrix far_b(n, nrhs, kFarLd);
    ASSERT_NE(far_b.data(), nullptr);
    far_b.load(b);
    int far_info = -1;
    DGETRS(trans, &n, &nrhs, lu.data(), &lu.ld, ipiv.data(), b.data(), &b.ld, &info);
    DGETRS(trans, &n, &nrhs, far_lu.data(), &far_lu.ld, ipiv.data(), far_b.data(), &far_b.ld,
           &far_info);
    EXPECT_EQ(far_info, info);
    EXPECT_LE(testsupport::max_rel_diff(far_b.compact(), b), 1e-12) << trans;
  }
}

TEST_F(GetrsTest, SingleAndManyRightHandSidesAgree) {
  // nrhs == 1 takes the vector solves, nrhs > 1 the blocked ones.
  const int n = 60, nrhs = 5;
  Matrix lu = random_matrix(n, n, n, 900);
  std::vector<int> ipiv(n);
  int info = -1;
  DGETRF(&n, &n, lu.data(), &lu.ld, ipiv.data(), &info);
  ASSERT_EQ(info, 0);
  for (const char* tr : {"N", "T"}) {
    Matrix b = random_matrix(n, nrhs, n, 901), one_by_one = b;
    DGETRS(tr, &n, &nrhs, lu.data(), &lu.ld, ipiv.data(), b.data(), &b.ld, &info);
    const int one = 1;
    for (int j = 0; j < nrhs; ++j)
      DGETRS(tr, &n, &one, lu.data(), &lu.ld, ipiv.data(), &one_by_one(0, j), &one_by_one.ld,
             &info);
    EXPECT_LE(testsupport::max_rel_diff(one_by_one, b), 1e-12) << tr;
  }
}

}  // namespace
