// The sequential LU under the power-of-two block rule of the branches below
// avx: the recursion then goes several levels deep (256, 128, 32, 8, 4, 2)
// before the unblocked kernel. The ceiling is set before anything in the
// process asks for the branch.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "lapack/lapack.h"
#include "service/cpu.h"
#include "tests/support/test_support.h"

using testsupport::Matrix;
using testsupport::Random;
using testsupport::random_matrix;

namespace {

const int g_ceiling_set = setenv("TARN_ENABLE_INSTRUCTIONS", "SSE4_2", 1);
constexpr int kBranchSse42 = 5;

class LowerBranchLuTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(g_ceiling_set, 0);
    if (tarn_serv_cpu_detect() != kBranchSse42)
      GTEST_SKIP() << "the instruction ceiling did not select the sse42 branch";
  }

};

TEST_F(LowerBranchLuTest, WidthsArePowersOfTwo) {
  const int one = 1, none = -1;
  for (int n : {300, 1000}) {
    const int w = ILAENV(&one, "DGETRF", "S", &n, &n, &none, &none);
    EXPECT_EQ(w & (w - 1), 0) << w;
    EXPECT_LT(w, n);
  }
}

TEST_F(LowerBranchLuTest, DeepRecursionMatchesReference) {
  uint64_t seed = 41;
  const int shapes[][3] = {{300, 300, 300}, {520, 260, 523}, {260, 520, 261}, {129, 129, 140}};
  for (const auto& s : shapes) {
    const int m = s[0], n = s[1];
    Matrix got = random_matrix(m, n, s[2], seed++), want = got;
    const int mn = std::min(m, n);
    std::vector<int> ipiv(mn), ref_ipiv(mn);
    int info = -1;
    DGETRF(&m, &n, got.data(), &got.ld, ipiv.data(), &info);
    EXPECT_EQ(info, testsupport::ref_dgetrf(m, n, want.data(), want.ld, ref_ipiv.data()));
    EXPECT_EQ(ipiv, ref_ipiv) << m << "x" << n;
    EXPECT_LE(testsupport::max_rel_diff(got, want), 1e-11) << m << "x" << n;
  }
}

TEST_F(LowerBranchLuTest, ZeroColumnDeepInsideTheRecursion) {
  const int n = 300;
  Matrix a = random_matrix(n, n, n, 77);
  for (int i = 0; i < n; ++i) a(i, 270) = 0.0;  // in the second top-level block
  for (int i = 0; i < n; ++i) a(i, 140) = 0.0;  // inside a nested panel
  std::vector<int> ipiv(n);
  int info = -1;
  Matrix lu = a;
  DGETRF(&n, &n, lu.data(), &lu.ld, ipiv.data(), &info);
  EXPECT_EQ(info, 141);
  for (int j = 0; j < n; ++j) {
    EXPECT_GE(ipiv[j], 1);
    EXPECT_LE(ipiv[j], n);
  }
}

}  // namespace
