// The benchmark's own numerics, checked against plain loops: the random
// generator, the matrix generator, y := y - A x, the two norms with their
// NaN rules, the residual verdict, and one whole trial of linpack_. The
// driver's routines live in the executable, so their sources are compiled
// into this test.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "driver/linpack_.cpp"
#include "driver/matgen_.cpp"
#include "driver/max_reduction.cpp"
#include "driver/mxpy_.cpp"
#include "driver/norm1_.cpp"
#include "driver/normi_.cpp"
#include "driver/parallel_region.cpp"
#include "driver/ran_.cpp"
#include "driver/residual_check.cpp"
#include "lapack/lapack.h"
#include "src/vos.h"
#include "tests/support/test_support.h"

namespace {

using testsupport::Matrix;
using testsupport::Random;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kSentinel = -777.0;

// Thread counts each threaded routine is tried with.
const int kThreadCounts[] = {1, 2, 3, 4};

// Restores the runtime's thread count after a test changed it.
class ThreadCountGuard {
 public:
  ThreadCountGuard() : saved_(omp_get_max_threads()) {}
  ~ThreadCountGuard() { omp_set_num_threads(saved_); }

 private:
  int saved_;
};

// ---- ran_ -----------------------------------------------------------------

// The generator as one 48-bit integer recurrence: s := s * a mod 2^48.
struct PlainLcg {
  static constexpr uint64_t kMultiplier =
      ((494ull * 4096 + 322) * 4096 + 2508) * 4096 + 2549;
  static constexpr uint64_t kMask = (1ull << 48) - 1;
  uint64_t s;
  double next() {
    s = (s * kMultiplier) & kMask;
    return std::ldexp(static_cast<double>(s), -48);
  }
};

uint64_t seed_value(const int32_t* iseed) {
  return ((static_cast<uint64_t>(iseed[0]) * 4096 + static_cast<uint64_t>(iseed[1])) * 4096 +
          static_cast<uint64_t>(iseed[2])) * 4096 + static_cast<uint64_t>(iseed[3]);
}

TEST(Ran, MatchesIntegerRecurrenceDigitForDigit) {
  const int32_t seeds[][4] = {{1, 2, 3, 1325}, {7, 2, 3, 1325}, {0, 0, 0, 1}, {4095, 4095, 4095, 4095}};
  for (const auto& seed : seeds) {
    int32_t iseed[4] = {seed[0], seed[1], seed[2], seed[3]};
    PlainLcg ref{seed_value(iseed)};
    for (int k = 0; k < 20000; ++k) {
      const double got = ran_(iseed);
      const double want = ref.next();
      ASSERT_EQ(got, want) << "step " << k;
      ASSERT_EQ(seed_value(iseed), ref.s) << "step " << k;
      ASSERT_GE(got, 0.0);
      ASSERT_LT(got, 1.0);
      for (int d = 0; d < 4; ++d) {
        ASSERT_GE(iseed[d], 0);
        ASSERT_LT(iseed[d], 4096);
      }
    }
  }
}

TEST(Ran, SeedsOfDifferentStreamsGiveDifferentSequences) {
  int32_t s1[4] = {1, 2, 3, 1325}, s2[4] = {2, 2, 3, 1325};
  int same = 0;
  for (int k = 0; k < 100; ++k) same += ran_(s1) == ran_(s2);
  EXPECT_LT(same, 2);
}

// ---- matgen_ --------------------------------------------------------------

// The generator by its definition: block-cyclic columns over nthr streams
// of width nb, each stream with its own seed, b the row sums.
void plain_matgen(int m, int n, double* a, int lda, double* b) {
  int32_t maxthr = omp_get_max_threads();
  const int32_t ispec = 1, unused = -1;
  int32_t nb = ILAENV(&ispec, "DGETRF", " ", &n, &n, &maxthr, &unused);
  if (nb < 1) nb = 1;
  const int nblocks = (n + nb - 1) / nb;
  const int nthr = nblocks < maxthr ? nblocks : maxthr;
  for (int t = 0; t < nthr; ++t) {
    int32_t iseed[4] = {t + 1, 2, 3, 1325};
    for (int j = 0; j < n; ++j)
      if ((j / nb) % nthr == t)
        for (int i = 0; i < m; ++i) a[i + j * lda] = ran_(iseed) - 0.5;
  }
  for (int i = 0; i < m; ++i) b[i] = 0.0;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) b[i] += a[i + j * lda];
}

TEST(Matgen, MatchesDefinitionForEveryThreadCount) {
  ThreadCountGuard guard;
  for (int threads : kThreadCounts) {
    omp_set_num_threads(threads);
    for (int n : {1, 5, 17, 100, 301}) {
      const int lda = n + 3;
      Matrix a(n, n, lda, kSentinel), ref(n, n, lda, kSentinel);
      std::vector<double> b(n + 1, kSentinel), bref(n + 1, kSentinel);
      matgen_(&n, &n, a.data(), &lda, b.data());
      plain_matgen(n, n, ref.data(), lda, bref.data());
      ASSERT_EQ(a.v, ref.v) << "n " << n << " threads " << threads;
      ASSERT_EQ(b, bref) << "n " << n << " threads " << threads;
      EXPECT_EQ(b[n], kSentinel);
    }
  }
}

TEST(Matgen, SecondCallRebuildsTheSameSystemInRange) {
  const int n = 257, lda = 260;
  Matrix a1(n, n, lda, kSentinel), a2(n, n, lda, 0.0);
  std::vector<double> b1(n), b2(n);
  matgen_(&n, &n, a1.data(), &lda, b1.data());
  matgen_(&n, &n, a2.data(), &lda, b2.data());
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < n; ++i) {
      ASSERT_EQ(a1(i, j), a2(i, j));
      ASSERT_GE(a1(i, j), -0.5);
      ASSERT_LT(a1(i, j), 0.5);
    }
    // Rows beyond the matrix are not written.
    for (int i = n; i < lda; ++i) ASSERT_EQ(a1.v[i + j * lda], kSentinel);
  }
  EXPECT_EQ(b1, b2);
}

// ---- mxpy_ ----------------------------------------------------------------

void plain_mxpy(int m, int n, const double* a, int lda, const double* x, double* y) {
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) y[i] = y[i] - x[j] * a[i + j * lda];
}

TEST(Mxpy, MatchesPlainLoopExactlyOnEdgeShapes) {
  ThreadCountGuard guard;
  Random rnd(11);
  for (int threads : kThreadCounts) {
    omp_set_num_threads(threads);
    for (int m : {1, 63, 64, 65, 130, 200}) {
      for (int n : {0, 1, 7, 64}) {
        const int lda = m + 5;
        Matrix a(m, n, lda);
        testsupport::fill_random(a, rnd);
        std::vector<double> x(n > 0 ? n : 1), y(m + 1), yref;
        for (double& v : x) v = rnd.uniform();
        for (int i = 0; i < m; ++i) y[i] = rnd.uniform();
        y[m] = kSentinel;
        yref = y;
        mxpy_(&m, &n, a.data(), &lda, x.data(), y.data());
        plain_mxpy(m, n, a.data(), lda, x.data(), yref.data());
        ASSERT_EQ(y, yref) << "m " << m << " n " << n << " threads " << threads;
      }
    }
  }
}

TEST(Mxpy, NaNStaysInItsRow) {
  const int m = 130, n = 3, lda = m;
  Matrix a(m, n, lda, 1.0);
  a(70, 1) = kNaN;
  std::vector<double> x = {1.0, 2.0, 3.0}, y(m, 10.0);
  mxpy_(&m, &n, a.data(), &lda, x.data(), y.data());
  for (int i = 0; i < m; ++i) {
    if (i == 70) EXPECT_TRUE(std::isnan(y[i]));
    else EXPECT_EQ(y[i], 4.0) << i;
  }
}

TEST(Mxpy, EmptyMatrixLeavesY) {
  const int m = 0, n = 5, lda = 1;
  double a = 1.0, x[5] = {1, 1, 1, 1, 1}, y = kSentinel;
  mxpy_(&m, &n, &a, &lda, x, &y);
  EXPECT_EQ(y, kSentinel);
}

// ---- norm1_ ---------------------------------------------------------------

double plain_max_row_sum(int m, int n, const double* a, int lda) {
  double best = 0.0;
  for (int i = 0; i < m; ++i) {
    double s = 0.0;
    for (int j = 0; j < n; ++j) s += std::fabs(a[i + j * lda]);
    if (s > best) best = s;
  }
  return best;
}

// A matrix with given row sums: column 0 holds the sum, sign alternating
// so that the absolute value matters.
Matrix rows_with_sums(const std::vector<double>& sums, int n) {
  const int m = static_cast<int>(sums.size());
  Matrix a(m, n, m, 0.0);
  for (int i = 0; i < m; ++i) a(i, 0) = (i % 2 ? -1.0 : 1.0) * sums[i];
  return a;
}

TEST(Norm1, IsTheLargestRowSumForEveryThreadCount) {
  ThreadCountGuard guard;
  Random rnd(5);
  for (int threads : kThreadCounts) {
    omp_set_num_threads(threads);
    for (int m : {1, 7, 8, 9, 64, 100}) {
      for (int n : {1, 8, 33}) {
        const int lda = m + 2;
        Matrix a(m, n, lda);
        testsupport::fill_random(a, rnd);
        EXPECT_EQ(norm1_(&m, &n, a.data(), &lda), plain_max_row_sum(m, n, a.data(), lda))
            << "m " << m << " n " << n << " threads " << threads;
      }
    }
  }
}

TEST(Norm1, NoRowsOrNoColumnsGiveZero) {
  double a = 5.0;
  int m = 0, n = 3, lda = 1;
  EXPECT_EQ(norm1_(&m, &n, &a, &lda), 0.0);
  m = 4;
  n = 0;
  lda = 4;
  EXPECT_EQ(norm1_(&m, &n, &a, &lda), 0.0);
}

TEST(Norm1, NaNRowDisplacesEarlierMaximumOfItsBlock) {
  // One block of eight rows: the NaN sum of row 1 replaces the 9 of row 0,
  // and row 2's sum 1 replaces the NaN.
  const std::vector<double> sums = {9, kNaN, 1, 0.5, 0.5, 0.5, 0.5, 0.5};
  const int m = 8, n = 2;
  Matrix a = rows_with_sums(sums, n);
  EXPECT_EQ(norm1_(&m, &n, a.data(), &m), 1.0);
}

TEST(Norm1, NaNInLastRowOfBlockDropsTheBlock) {
  // Block 0 ends in a NaN and is not taken over; block 1 gives 3.
  std::vector<double> sums(16, 0.25);
  sums[0] = 9;
  sums[7] = kNaN;
  sums[12] = 3;
  const int m = 16, n = 1;
  Matrix a = rows_with_sums(sums, n);
  EXPECT_EQ(norm1_(&m, &n, a.data(), &m), 3.0);

  // A single block ending in NaN leaves the shared start value 0.0.
  const int m1 = 8;
  std::vector<double> one(sums.begin(), sums.begin() + 8);
  Matrix b = rows_with_sums(one, n);
  EXPECT_EQ(norm1_(&m1, &n, b.data(), &m1), 0.0);
}

TEST(Norm1, InfinityIsALegalMaximum) {
  std::vector<double> sums = {1, kInf, 2};
  const int m = 3, n = 1;
  Matrix a = rows_with_sums(sums, n);
  EXPECT_EQ(norm1_(&m, &n, a.data(), &m), kInf);
}

// ---- normi_ ---------------------------------------------------------------

double plain_max_abs(int m, int n, const double* a, int lda) {
  double best = 0.0;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) best = std::fmax(best, std::fabs(a[i + j * lda]));
  return best;
}

TEST(Normi, IsTheLargestMagnitudeForEveryThreadCount) {
  ThreadCountGuard guard;
  Random rnd(9);
  for (int threads : kThreadCounts) {
    omp_set_num_threads(threads);
    for (int m : {1, 63, 64, 65, 129, 1000}) {
      for (int n : {1, 3}) {
        const int lda = m + 1;
        Matrix a(m, n, lda);
        testsupport::fill_random(a, rnd);
        a(m / 2, n - 1) = -0.75;  // the largest magnitude, negative
        EXPECT_EQ(normi_(&m, &n, a.data(), &lda), plain_max_abs(m, n, a.data(), lda))
            << "m " << m << " n " << n << " threads " << threads;
      }
    }
  }
}

TEST(Normi, ZeroVectorGivesZero) {
  std::vector<double> v(100, 0.0);
  const int m = 100, n = 1;
  EXPECT_EQ(normi_(&m, &n, v.data(), &m), 0.0);
}

TEST(Normi, NaNIsRemovedByTheNextNumber) {
  // 5 is displaced by the NaN, the NaN by 1.
  std::vector<double> v = {5.0, kNaN, 1.0};
  const int m = 3, n = 1;
  EXPECT_EQ(normi_(&m, &n, v.data(), &m), 1.0);
}

TEST(Normi, TrailingNaNIsNotTakenOverByTheReduction) {
  ThreadCountGuard guard;
  omp_set_num_threads(1);
  std::vector<double> v = {1.0, 5.0, kNaN};
  const int m = 3, n = 1;
  EXPECT_EQ(normi_(&m, &n, v.data(), &m), 0.0);
}

// ---- the verdict ----------------------------------------------------------

TEST(ResidualCheck, PassesOnlyBelowTheLimitAndWithoutNaN) {
  EXPECT_TRUE(residual_check_passes(1e-9, 0.01));
  EXPECT_TRUE(residual_check_passes(1e-9, 99.999));
  EXPECT_TRUE(residual_check_passes(1e300, 1.0));  // resid has no bound
  EXPECT_FALSE(residual_check_passes(1e-9, 100.0));
  EXPECT_FALSE(residual_check_passes(1e-9, 1000.0));
  EXPECT_FALSE(residual_check_passes(1e-9, kInf));
  EXPECT_FALSE(residual_check_passes(1e-9, kNaN));
  EXPECT_FALSE(residual_check_passes(kNaN, 0.01));
  EXPECT_TRUE(residual_check_passes(1e-9, -kInf));
}

// ---- linpack_ ---------------------------------------------------------------

TEST(Linpack, OneTrialSolvesToOnesAndPasses) {
  for (int n : {1, 16, 17, 100, 300}) {
    const int lda = n + 4;
    std::vector<double> a(static_cast<size_t>(n) * lda), b(lda), x(lda);
    std::vector<int32_t> ipvt(lda);
    double time = 0, gflops = 0, resid = -1, residn = -1;
    int32_t info = -5;
    linpack_(&n, a.data(), &lda, b.data(), x.data(), ipvt.data(), &time, &gflops, &resid,
             &residn, &info);
    EXPECT_EQ(info, 0) << n;
    if (time > 0) {
      EXPECT_TRUE(residual_check_passes(resid, residn)) << n << " residn " << residn;
      EXPECT_GT(gflops, 0.0);
      for (int i = 0; i < n; ++i) ASSERT_NEAR(x[i], 1.0, 1e-8) << "n " << n << " row " << i;
    }
  }
}

// A matrix whose columns lie beyond 2^31 elements (and 2^32 bytes) from the
// first, from column 6 on: generation, factorization, solve and residual
// reach them in a 64-bit build, and the trial gives what a compact one gives.
TEST(Linpack, TrialWithColumnsBeyond32BitOffsetsMatchesACompactOne) {
  if (!testsupport::FarMatrix::possible()) GTEST_SKIP() << "a 32-bit address space";
  constexpr int32_t kFarLd = 400000009;
  static constexpr int32_t n = 300;
  struct Trial {
    std::vector<double> b, x;
    std::vector<int32_t> ipvt;
    double time = 0, gflops = 0, resid = -1, residn = -1;
    int32_t info = -5;
    Trial() : b(n), x(n), ipvt(n) {}
    void run(double* a, int32_t lda) {
      linpack_(&n, a, &lda, b.data(), x.data(), ipvt.data(), &time, &gflops, &resid, &residn,
               &info);
    }
  };
  Trial compact, far;
  Matrix a(n, n);
  compact.run(a.data(), a.ld);
  testsupport::FarMatrix far_a(n, n, kFarLd);
  ASSERT_NE(far_a.data(), nullptr);
  far.run(far_a.data(), far_a.ld);
  ASSERT_GT(compact.time, 0.0);
  ASSERT_GT(far.time, 0.0);
  EXPECT_EQ(far.info, 0);
  EXPECT_EQ(far.ipvt, compact.ipvt);
  EXPECT_TRUE(residual_check_passes(far.resid, far.residn)) << far.residn;
  EXPECT_NEAR(far.residn, compact.residn, 0.5);
  for (int i = 0; i < n; ++i) ASSERT_NEAR(far.x[i], compact.x[i], 1e-12) << "row " << i;
}

TEST(Linpack, RateUsesTheSinglePrecisionGiga) {
  // The constant is 1e-9 widened from float.
  EXPECT_EQ(std::bit_cast<uint64_t>(kGiga), 0x3E112E0BE0000000ull);
  EXPECT_NEAR(kGiga / 1e-9 - 1.0, -2.8e-8, 0.1e-8);
}

}  // namespace
