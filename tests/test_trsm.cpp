// The one-thread triangular solve of every branch against a plain
// substitution: every side, triangle, transposition and diagonal kind,
// orders through every remainder of the tiles and across several diagonal
// blocks, padded leading dimensions, alpha 0 and other than 1, a denormal
// and a zero on the diagonal, a unit diagonal that is never read, and the
// paths behind the entry (narrow solve, unpacked solves, diagonal test,
// the fallback without a buffer).
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "kernels/gemm_desc.h"
#include "kernels/trsm_desc.h"
#include "tests/support/test_support.h"

using testsupport::Matrix;
using testsupport::Random;

namespace {

bool have_sse2() { return __builtin_cpu_supports("sse2"); }
bool have_ssse3() { return __builtin_cpu_supports("ssse3"); }
bool have_sse42() { return __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("popcnt"); }
bool have_avx() { return __builtin_cpu_supports("avx") && __builtin_cpu_supports("popcnt"); }
bool have_avx2() { return have_avx() && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"); }
bool have_avx512() {
  return have_avx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
}

struct BranchCase {
  const char* name;
  tarn_xdtrsm_fn* xdtrsm;
  tarn_dtrsm_pst_fn* pst;
  tarn_dtrsm_nobuf_fn* nobuf;
  tarn_xdtrsm_fn* v1;                         // null below avx2
  tarn_dtrsm_has_denormal_fn* has_denormal;   // null from avx2 on
  bool (*supported)();
};

const BranchCase kBranches[] = {
    {"sse2", tarn_blas_sse2_xdtrsm, tarn_blas_sse2_dtrsm_pst, tarn_blas_sse2_dtrsm_nobuf, nullptr,
     tarn_blas_sse2_dtrsm_has_denormal, have_sse2},
    {"cnr_sse2", tarn_blas_cnr_sse2_xdtrsm, tarn_blas_cnr_sse2_dtrsm_pst,
     tarn_blas_cnr_sse2_dtrsm_nobuf, nullptr, tarn_blas_cnr_sse2_dtrsm_has_denormal, have_sse2},
    {"ssse3", tarn_blas_ssse3_xdtrsm, tarn_blas_ssse3_dtrsm_pst, tarn_blas_ssse3_dtrsm_nobuf,
     nullptr, tarn_blas_ssse3_dtrsm_has_denormal, have_ssse3},
    {"sse42", tarn_blas_sse42_xdtrsm, tarn_blas_sse42_dtrsm_pst, tarn_blas_sse42_dtrsm_nobuf,
     nullptr, tarn_blas_sse42_dtrsm_has_denormal, have_sse42},
    {"avx", tarn_blas_avx_xdtrsm, tarn_blas_avx_dtrsm_pst, tarn_blas_avx_dtrsm_nobuf, nullptr,
     tarn_blas_avx_dtrsm_has_denormal, have_avx},
    {"avx2", tarn_blas_avx2_xdtrsm, tarn_blas_avx2_dtrsm_pst, tarn_blas_avx2_dtrsm_nobuf,
     tarn_blas_avx2_xdtrsm_v1, nullptr, have_avx2},
    {"avx512", tarn_blas_avx512_xdtrsm, tarn_blas_avx512_dtrsm_pst, tarn_blas_avx512_dtrsm_nobuf,
     tarn_blas_avx512_xdtrsm_v1, nullptr, have_avx512},
};

constexpr double kMarker = -7777.0;
constexpr double kTolerance = 1e-11;

struct Case {
  char side, uplo, trans, diag;
};

std::vector<Case> all_cases() {
  std::vector<Case> v;
  for (char side : {'L', 'R'})
    for (char uplo : {'L', 'U'})
      for (char trans : {'N', 'T'})
        for (char diag : {'N', 'U'}) v.push_back({side, uplo, trans, diag});
  return v;
}

std::string describe(const Case& c, int m, int n) {
  return std::string{c.side, c.uplo, c.trans, c.diag} + " m=" + std::to_string(m) +
         " n=" + std::to_string(n);
}

// X := solution of op(A)*X = alpha*B or X*op(A) = alpha*B by plain
// substitution with division, B overwritten. Unit diagonals are not read.
void ref_trsm(const Case& c, int m, int n, double alpha, const Matrix& a, Matrix& b) {
  const bool trans = c.trans != 'N', unit = c.diag == 'U';
  const bool lower = (c.uplo == 'L') != trans;  // triangle of op(A)
  auto op = [&](int i, int j) { return trans ? a(j, i) : a(i, j); };
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) b(i, j) = alpha == 0.0 ? 0.0 : alpha * b(i, j);
  if (alpha == 0.0) return;
  if (c.side == 'L') {
    for (int j = 0; j < n; ++j)
      for (int s = 0; s < m; ++s) {
        const int i = lower ? s : m - 1 - s;
        double t = b(i, j);
        if (lower)
          for (int k = 0; k < i; ++k) t -= op(i, k) * b(k, j);
        else
          for (int k = i + 1; k < m; ++k) t -= op(i, k) * b(k, j);
        b(i, j) = unit ? t : t / op(i, i);
      }
  } else {
    for (int i = 0; i < m; ++i)
      for (int s = 0; s < n; ++s) {
        const int j = lower ? n - 1 - s : s;
        double t = b(i, j);
        if (lower)
          for (int k = j + 1; k < n; ++k) t -= b(i, k) * op(k, j);
        else
          for (int k = 0; k < j; ++k) t -= b(i, k) * op(k, j);
        b(i, j) = unit ? t : t / op(j, j);
      }
  }
}

// A triangular matrix whose solves stay well conditioned: off-diagonal
// values of order 1/k, diagonal values between 1 and 1.5 in size with
// either sign. The other triangle holds garbage that must not be read.
Matrix make_triangle(int k, int pad, Random& r) {
  Matrix a(k, k, k + pad, kMarker);
  for (int j = 0; j < k; ++j)
    for (int i = 0; i < k; ++i) a(i, j) = r.uniform() / (k > 0 ? k : 1);
  for (int i = 0; i < k; ++i) {
    const double u = r.uniform();
    a(i, i) = (u < 0 ? -1.0 : 1.0) * (1.0 + std::fabs(u));
  }
  return a;
}

struct Problem {
  Case c;
  int m, n;
  double alpha;
  Matrix a, b, want;

  Problem(const Case& c_, int m_, int n_, double alpha_, int pad, uint64_t seed)
      : c(c_), m(m_), n(n_), alpha(alpha_) {
    Random r(seed);
    const int k = c.side == 'L' ? m : n;
    a = make_triangle(k, pad, r);
    b = Matrix(m, n, m + pad, kMarker);
    fill_random(b, r);
    want = b;
  }
  void reference() { ref_trsm(c, m, n, alpha, a, want); }
  void call(tarn_xdtrsm_fn* f) {
    f(&c.side, &c.uplo, &c.trans, &c.diag, &m, &n, &alpha, a.data(), &a.ld, b.data(), &b.ld);
  }
  // The result against the reference, and the padding of B untouched.
  void check(const std::string& where) {
    EXPECT_LE(testsupport::max_rel_diff(b, want), kTolerance) << where;
    for (int j = 0; j < n; ++j)
      for (int i = m; i < b.ld; ++i)
        if (b(i, j) != kMarker) {
          ADD_FAILURE() << where << ": padding written at " << i << "," << j;
          return;
        }
  }
};

class TrsmBranch : public ::testing::TestWithParam<BranchCase> {
 protected:
  void SetUp() override {
    if (!GetParam().supported()) GTEST_SKIP() << "processor lacks " << GetParam().name;
  }
  void solve_and_check(tarn_xdtrsm_fn* f, const Case& c, int m, int n, double alpha, int pad,
                       uint64_t seed) {
    Problem p(c, m, n, alpha, pad, seed);
    p.reference();
    p.call(f);
    p.check(std::string(GetParam().name) + " " + describe(c, m, n));
  }
};

TEST_P(TrsmBranch, EmptyShapesTouchNothing) {
  for (const Case& c : all_cases())
    for (int m : {0, 3})
      for (int n : {0, 3}) {
        if (m != 0 && n != 0) continue;
        Problem p(c, m, n, 1.0, 2, 1);
        p.call(GetParam().xdtrsm);
        p.check(describe(c, m, n));
      }
}

TEST_P(TrsmBranch, EverySmallShapeOfEveryCase) {
  // Orders and right-hand sides through every remainder of the 4-row units,
  // of the 8-wide tiles and of the narrow bound.
  uint64_t seed = 10;
  for (const Case& c : all_cases())
    for (int k = 1; k <= 17; ++k)
      for (int rhs : {1, 2, 3, 5, 8, 9, 13}) {
        const int m = c.side == 'L' ? k : rhs, n = c.side == 'L' ? rhs : k;
        solve_and_check(GetParam().xdtrsm, c, m, n, 1.0, 1, ++seed);
      }
}

TEST_P(TrsmBranch, LargerOrdersAcrossBlocksWithPadding) {
  // Around the narrow bound (88 takes the narrow path, 89 and 90 the packed
  // one), across the diagonal blocks of every branch (64 to 384), and right-
  // hand sides across the column blocks; alpha other than 1.
  const int orders[] = {23, 31, 33, 47, 64, 87, 88, 89, 90, 96, 100, 131, 200, 257, 401};
  const int rhs[] = {7, 50, 197, 12, 1, 33, 4, 200, 9, 65, 3, 30, 17, 6, 29};
  uint64_t seed = 1000;
  for (const Case& c : all_cases())
    for (size_t i = 0; i < sizeof orders / sizeof orders[0]; ++i) {
      const int k = orders[i], r = rhs[(i + (c.side == 'R') * 5) % (sizeof rhs / sizeof rhs[0])];
      const int m = c.side == 'L' ? k : r, n = c.side == 'L' ? r : k;
      solve_and_check(GetParam().xdtrsm, c, m, n, -0.75, 3, ++seed);
    }
}

TEST_P(TrsmBranch, ManyRightHandSidesOnNarrowAndWideOrders) {
  uint64_t seed = 5000;
  for (const Case& c : all_cases()) {
    if (c.diag == 'U') continue;
    for (int k : {8, 88, 130}) {
      const int r = 300;
      const int m = c.side == 'L' ? k : r, n = c.side == 'L' ? r : k;
      solve_and_check(GetParam().xdtrsm, c, m, n, 2.0, 0, ++seed);
    }
  }
}

TEST_P(TrsmBranch, LowerCaseAndConjugateCharacters) {
  // 'c' and 'C' transpose as 'T' does (the data are real); case is folded.
  uint64_t seed = 6000;
  for (const Case& c : all_cases())
    for (int k : {10, 97}) {
      const int m = c.side == 'L' ? k : 14, n = c.side == 'L' ? 14 : k;
      Problem p(c, m, n, 1.0, 1, ++seed);
      p.reference();
      const char side = static_cast<char>(c.side | 0x20), uplo = static_cast<char>(c.uplo | 0x20);
      const char trans = c.trans == 'T' ? (k == 10 ? 'c' : 'C') : 'n';
      const char diag = static_cast<char>(c.diag | 0x20);
      GetParam().xdtrsm(&side, &uplo, &trans, &diag, &p.m, &p.n, &p.alpha, p.a.data(), &p.a.ld,
                        p.b.data(), &p.b.ld);
      p.check(describe(c, m, n));
    }
}

TEST_P(TrsmBranch, UnitDiagonalIsNeverRead) {
  uint64_t seed = 7000;
  for (const Case& c : all_cases()) {
    if (c.diag != 'U') continue;
    for (int k : {5, 40, 93}) {
      const int m = c.side == 'L' ? k : 11, n = c.side == 'L' ? 11 : k;
      Problem p(c, m, n, 1.0, 2, ++seed);
      p.reference();
      for (int i = 0; i < k; ++i) p.a(i, i) = std::numeric_limits<double>::quiet_NaN();
      p.call(GetParam().xdtrsm);
      p.check(describe(c, m, n));
    }
  }
}

TEST_P(TrsmBranch, AlphaZeroClearsBWithoutReadingA) {
  for (const Case& c : all_cases())
    for (int k : {3, 13, 64, 150}) {
      const int m = c.side == 'L' ? k : 20, n = c.side == 'L' ? 20 : k;
      Problem p(c, m, n, 0.0, 2, 3);
      const double nan = std::numeric_limits<double>::quiet_NaN();
      for (int j = 0; j < p.a.n; ++j)
        for (int i = 0; i < p.a.m; ++i) p.a(i, j) = nan;
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) p.b(i, j) = nan;
      p.call(GetParam().xdtrsm);
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) ASSERT_EQ(p.b(i, j), 0.0) << describe(c, m, n);
      for (int j = 0; j < n; ++j) ASSERT_EQ(p.b(m, j), kMarker);
    }
}

// Row and column i0 of A hold nothing but the diagonal, so that component
// i0 of every solution is B's divided by A(i0,i0) and feeds nothing else.
void isolate_diagonal(Matrix& a, int i0, double d) {
  for (int k = 0; k < a.n; ++k) a(i0, k) = a(k, i0) = 0.0;
  a(i0, i0) = d;
}

TEST_P(TrsmBranch, DenormalOnTheDiagonalDividesTruly) {
  const double denormal = 3e-309;
  ASSERT_LT(denormal, DBL_MIN);
  uint64_t seed = 9000;
  for (const Case& c : all_cases()) {
    if (c.diag == 'U') continue;
    for (int k : {6, 40, 130}) {
      const int m = c.side == 'L' ? k : 21, n = c.side == 'L' ? 21 : k;
      Problem p(c, m, n, 1.0, 1, ++seed);
      const int i0 = k / 3;
      isolate_diagonal(p.a, i0, denormal);
      // Small right-hand sides in that component keep its solution finite.
      for (int r = 0; r < (c.side == 'L' ? n : m); ++r) {
        double& v = c.side == 'L' ? p.b(i0, r) : p.b(r, i0);
        v *= 1e-300;
      }
      p.want = p.b;
      p.reference();
      p.call(GetParam().xdtrsm);
      p.check(describe(c, m, n));
      for (int r = 0; r < (c.side == 'L' ? n : m); ++r) {
        const double got = c.side == 'L' ? p.b(i0, r) : p.b(r, i0);
        const double want = c.side == 'L' ? p.want(i0, r) : p.want(r, i0);
        ASSERT_TRUE(std::isfinite(got)) << describe(c, m, n);
        ASSERT_EQ(got, want) << describe(c, m, n);
      }
    }
  }
}

TEST_P(TrsmBranch, ZeroOnTheDiagonalGivesInfinities) {
  for (const Case& c : all_cases()) {
    if (c.diag == 'U') continue;
    for (int k : {7, 100}) {
      const int m = c.side == 'L' ? k : 9, n = c.side == 'L' ? 9 : k;
      Problem p(c, m, n, 1.0, 0, 77);
      const int i0 = k / 2;
      isolate_diagonal(p.a, i0, 0.0);
      p.call(GetParam().xdtrsm);
      for (int r = 0; r < (c.side == 'L' ? n : m); ++r) {
        const double got = c.side == 'L' ? p.b(i0, r) : p.b(r, i0);
        ASSERT_TRUE(std::isinf(got)) << describe(c, m, n) << " got " << got;
      }
    }
  }
}

TEST_P(TrsmBranch, UnpackedSolvesMatchTheReference) {
  uint64_t seed = 11000;
  for (const Case& c : all_cases())
    for (int k : {1, 9, 70, 150}) {
      const int m = c.side == 'L' ? k : 15, n = c.side == 'L' ? 15 : k;
      solve_and_check(GetParam().pst, c, m, n, 0.5, 2, ++seed);
      Problem p(c, m, n, 1.0, 2, ++seed);
      p.reference();
      GetParam().nobuf(&c.side, &c.uplo, &c.trans, &c.diag, &p.m, &p.n, p.a.data(), &p.a.ld,
                       p.b.data(), &p.b.ld);
      p.check("nobuf " + describe(c, m, n));
    }
}

TEST_P(TrsmBranch, NarrowSolveAtAnyOrder) {
  if (GetParam().v1 == nullptr) GTEST_SKIP() << "no narrow solve in this branch";
  uint64_t seed = 13000;
  for (const Case& c : all_cases())
    for (int k : {1, 4, 12, 33, 88, 91, 140}) {
      const int m = c.side == 'L' ? k : 19, n = c.side == 'L' ? 19 : k;
      solve_and_check(GetParam().v1, c, m, n, 1.5, 1, ++seed);
    }
}

TEST_P(TrsmBranch, DiagonalTestFindsOnlyDenormals) {
  if (GetParam().has_denormal == nullptr) GTEST_SKIP() << "no such test in this branch";
  auto test = [&](std::vector<double> v, int stride) {
    const int count = static_cast<int>(v.size()) / stride;
    return GetParam().has_denormal(&count, v.data(), &stride);
  };
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(test({1.0, 0.0, -0.0, inf, nan, DBL_MIN, -2.5}, 1), 0);
  EXPECT_EQ(test({1.0, 2.0, 4e-320}, 1), 1);
  EXPECT_EQ(test({1.0, -4e-320}, 1), 1);
  // Only every second value is a diagonal one.
  EXPECT_EQ(test({1.0, 4e-320, 2.0, 4e-320}, 2), 0);
  EXPECT_EQ(test({1.0, 0.0, 4e-320, 0.0}, 2), 1);
}

void* refuse(size_t, int) { return nullptr; }

// Without work memory every path still solves (and warns).
TEST_P(TrsmBranch, SolvesWithoutABuffer) {
  auto* const saved = tarn_blas_gemm_buffer_allocate;
  tarn_blas_gemm_buffer_allocate = refuse;
  testing::internal::CaptureStderr();
  uint64_t seed = 15000;
  for (const Case& c : all_cases()) {
    if (c.trans == 'T' && c.diag == 'U') continue;
    for (int k : {12, 64, 130}) {
      const int m = c.side == 'L' ? k : 10, n = c.side == 'L' ? 10 : k;
      solve_and_check(GetParam().xdtrsm, c, m, n, 1.0, 1, ++seed);
    }
  }
  testing::internal::GetCapturedStderr();
  tarn_blas_gemm_buffer_allocate = saved;
}

INSTANTIATE_TEST_SUITE_P(AllBranches, TrsmBranch, ::testing::ValuesIn(kBranches),
                         [](const ::testing::TestParamInfo<BranchCase>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
