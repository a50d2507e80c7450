// The small-matrix path: LU of every shape up to 16 and solve below order 9
// in every branch's member, against the general path (the sequential
// recursive LU, the exchanges and triangular solves of the BLAS layer) and the
// plain reference loops; singular and NaN matrices, pivots below the safe
// minimum; the thresholds at which the public routines hand over; the stubs'
// choice of member on simulated processors; and no heap memory on the way.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "blas/blas.h"
#include "lapack/lapack.h"
#include "lapack/ps_small.h"
#include "tests/kernel_sets.h"
#include "service/cpu.h"
#include "service/memory.h"
#include "service/messages.h"
#include "tests/fake_cpu.h"
#include "tests/support/test_support.h"
#include "tests/xerbla_log.h"

// ---- Counting the heap -------------------------------------------------------
//
// The allocation entries of the C library are replaced in this executable, so
// every allocation of the process, the libraries' included, passes here. While
// `g_counting` is set each one is counted; otherwise they only forward.

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {
std::atomic<bool> g_counting{false};
std::atomic<int> g_allocations{0};
void note_allocation() {
  if (g_counting.load(std::memory_order_relaxed)) g_allocations.fetch_add(1);
}
}  // namespace

extern "C" void* malloc(size_t size) {
  note_allocation();
  return __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
  note_allocation();
  return __libc_calloc(count, size);
}
extern "C" void* realloc(void* pointer, size_t size) {
  note_allocation();
  return __libc_realloc(pointer, size);
}
extern "C" void* memalign(size_t alignment, size_t size) {
  note_allocation();
  return __libc_memalign(alignment, size);
}
extern "C" void* aligned_alloc(size_t alignment, size_t size) {
  note_allocation();
  return __libc_memalign(alignment, size);
}
extern "C" int posix_memalign(void** out, size_t alignment, size_t size) {
  note_allocation();
  if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0) return EINVAL;
  void* p = __libc_memalign(alignment, size);
  if (p == nullptr) return ENOMEM;
  *out = p;
  return 0;
}

namespace {

using namespace kernel_sets;
using namespace xerbla_log;
using testsupport::Matrix;
using testsupport::Random;

// Marker in the rows between m and lda: nothing may touch it.
constexpr double kPad = -777.0;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kMaxOrder = tarn_ps_small::kDgetrfMaxOrder;
constexpr int kSolveMaxOrder = tarn_ps_small::kDgetrsBelowN - 1;
constexpr int kSolveMaxNrhs = tarn_ps_small::kDgetrsBelowNrhs - 1;
// Factors agree with the general path to rounding: a few ulps of growth for
// orders up to 16 on well-scaled random matrices.
constexpr double kFactorTol = 1e-13;
constexpr double kSolveTol = 1e-12;
const int kNoProgress = 0;

// ---- The members -------------------------------------------------------------

struct Member {
  const char* branch;
  int code;  // a branch code that selects it
  tarn_ps_dgetrf_small_fn* getrf;
  tarn_ps_dgetrs_small_fn* getrs;
  bool (*runs_here)();
};

const Member kMembers[] = {
    {"sse2", 2, tarn_lapack_ps_sse2_dgetrf_small, tarn_lapack_ps_sse2_dgetrs_small, always},
    {"ssse3", 4, tarn_lapack_ps_ssse3_dgetrf_small, tarn_lapack_ps_ssse3_dgetrs_small, has_ssse3},
    {"sse42", 5, tarn_lapack_ps_sse42_dgetrf_small, tarn_lapack_ps_sse42_dgetrs_small, has_sse42},
    {"avx", 6, tarn_lapack_ps_avx_dgetrf_small, tarn_lapack_ps_avx_dgetrs_small, has_avx},
    {"avx2", 7, tarn_lapack_ps_avx2_dgetrf_small, tarn_lapack_ps_avx2_dgetrs_small, has_avx2},
    {"avx512", 9, tarn_lapack_ps_avx512_dgetrf_small, tarn_lapack_ps_avx512_dgetrs_small,
     has_avx512},
};

std::vector<const Member*> members_here() {
  std::vector<const Member*> out;
  for (const Member& m : kMembers)
    if (m.runs_here()) out.push_back(&m);
  return out;
}

// ---- Matrices and the general path -------------------------------------------

Matrix random_matrix(int m, int n, int ld, uint64_t seed) {
  Matrix a(m, n, ld, kPad);
  Random r(seed);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) a(i, j) = r.uniform();
  return a;
}

struct Factored {
  Matrix lu;
  std::vector<int> ipiv;
  int info = -99;
};

Factored factor_with(tarn_ps_dgetrf_small_fn* f, const Matrix& a0) {
  Factored r{a0, std::vector<int>(static_cast<size_t>(std::max(1, std::min(a0.m, a0.n))), -5)};
  f(&a0.m, &a0.n, r.lu.data(), &a0.ld, r.ipiv.data(), &r.info);
  return r;
}

// The general road: the sequential recursive LU the larger shapes take.
Factored factor_general(const Matrix& a0) {
  Factored r{a0, std::vector<int>(static_cast<size_t>(std::max(1, std::min(a0.m, a0.n))), -5)};
  EXPECT_EQ(tarn_lapack_xdgetrf_local(&a0.m, &a0.n, r.lu.data(), &a0.ld, r.ipiv.data(), &r.info,
                                      &kNoProgress, &kNoProgress),
            0);
  return r;
}

Factored factor_reference(const Matrix& a0) {
  Factored r{a0, std::vector<int>(static_cast<size_t>(std::max(1, std::min(a0.m, a0.n))), -5)};
  r.info = testsupport::ref_dgetrf(a0.m, a0.n, r.lu.data(), r.lu.ld, r.ipiv.data());
  return r;
}

// Largest difference scaled by the largest entry of `want`; a NaN on one side
// only is an infinite difference, NaN on both sides agrees.
double nan_aware_diff(const Matrix& got, const Matrix& want) {
  double scale = 0.0, diff = 0.0;
  for (int j = 0; j < want.n; ++j)
    for (int i = 0; i < want.m; ++i) {
      const double x = got(i, j), y = want(i, j);
      if (std::isnan(x) || std::isnan(y)) {
        if (std::isnan(x) != std::isnan(y)) diff = INFINITY;
        continue;
      }
      if (std::isinf(x) || std::isinf(y)) {
        if (x != y) diff = INFINITY;
        continue;
      }
      scale = std::max(scale, std::fabs(y));
      diff = std::max(diff, std::fabs(x - y));
    }
  return scale > 0.0 ? diff / scale : diff;
}

void expect_same_factors(const Factored& got, const Factored& want, const std::string& what,
                         double tol = kFactorTol) {
  EXPECT_EQ(got.info, want.info) << what;
  EXPECT_EQ(got.ipiv, want.ipiv) << what;
  EXPECT_LE(nan_aware_diff(got.lu, want.lu), tol) << what;
  for (int j = 0; j < got.lu.n; ++j)
    for (int i = got.lu.m; i < got.lu.ld; ++i)
      ASSERT_EQ(got.lu(i, j), kPad) << what << ": padding " << i << "," << j;
}

std::string shape(const char* branch, int m, int n, int ld) {
  return std::string(branch) + " " + std::to_string(m) + "x" + std::to_string(n) + " lda " +
         std::to_string(ld);
}

// ---- LU --------------------------------------------------------------------

TEST(SmallLu, EveryOrderMatchesTheGeneralPathAndTheReference) {
  for (const Member* mb : members_here())
    for (int n = 1; n <= kMaxOrder; ++n)
      for (int pad : {0, 3}) {
        const Matrix a = random_matrix(n, n, n + pad, 100 + static_cast<uint64_t>(n));
        const Factored got = factor_with(mb->getrf, a);
        const std::string what = shape(mb->branch, n, n, n + pad);
        expect_same_factors(got, factor_general(a), what + " vs general");
        expect_same_factors(got, factor_reference(a), what + " vs reference");
        EXPECT_EQ(got.info, 0) << what;
      }
}

TEST(SmallLu, EveryRectangularShapeUpTo16MatchesTheGeneralPath) {
  for (const Member* mb : members_here())
    for (int m = 1; m <= kMaxOrder; ++m)
      for (int n = 1; n <= kMaxOrder; ++n) {
        if (m == n) continue;
        const Matrix a = random_matrix(m, n, m + 1, 1000 + static_cast<uint64_t>(m * 31 + n));
        const Factored got = factor_with(mb->getrf, a);
        const std::string what = shape(mb->branch, m, n, m + 1);
        expect_same_factors(got, factor_general(a), what + " vs general");
        expect_same_factors(got, factor_reference(a), what + " vs reference");
      }
}

TEST(SmallLu, OrderOneReportsAZeroEntryAndPivotsOnItself) {
  for (const Member* mb : members_here()) {
    for (double v : {0.0, -0.0, 3.5, kNaN, -HUGE_VAL}) {
      Matrix a(1, 1, 2, kPad);
      a(0, 0) = v;
      const Factored got = factor_with(mb->getrf, a);
      EXPECT_EQ(got.ipiv[0], 1) << mb->branch << " " << v;
      EXPECT_EQ(got.info, v == 0.0 ? 1 : 0) << mb->branch << " " << v;
      EXPECT_EQ(std::memcmp(&got.lu.v[0], &v, sizeof v), 0) << "the entry stays as it was";
      EXPECT_EQ(got.lu(1, 0), kPad);
    }
  }
}

TEST(SmallLu, ZeroColumnSetsInfoOnceAndTheEliminationGoesOn) {
  // Shapes on the unrolled and the general road; the zero column at the
  // front, in the middle and last.
  const int shapes[][2] = {{2, 2}, {5, 5}, {7, 7}, {8, 8}, {16, 16}, {16, 3}, {3, 16}, {12, 9}};
  for (const Member* mb : members_here())
    for (const auto& s : shapes) {
      const int m = s[0], n = s[1], mn = std::min(m, n);
      for (int zc : {0, mn / 2, mn - 1}) {
        Matrix a = random_matrix(m, n, m, 77 + static_cast<uint64_t>(zc));
        for (int i = 0; i < m; ++i) a(i, zc) = 0.0;
        const Factored got = factor_with(mb->getrf, a);
        const std::string what = shape(mb->branch, m, n, m) + " zero column " + std::to_string(zc);
        // The later column is still eliminated: only column zc is exactly
        // zero at its own step.
        EXPECT_EQ(got.info, zc + 1) << what;
        for (int j = 0; j < mn; ++j) {
          EXPECT_GE(got.ipiv[j], j + 1) << what;
          EXPECT_LE(got.ipiv[j], m) << what;
        }
        EXPECT_EQ(got.ipiv[zc], zc + 1) << what << ": a zero column pivots on the diagonal";
        expect_same_factors(got, factor_general(a), what + " vs general");
        expect_same_factors(got, factor_reference(a), what + " vs reference");
      }
    }
}

TEST(SmallLu, AllZeroMatrixReportsColumnOneAndFillsEveryPivot) {
  for (const Member* mb : members_here())
    for (int n : {2, 4, 7, 11, 16}) {
      Matrix a(n, n, n, 0.0);
      const Factored got = factor_with(mb->getrf, a);
      EXPECT_EQ(got.info, 1) << mb->branch << " " << n;
      for (int j = 0; j < n; ++j) EXPECT_EQ(got.ipiv[j], j + 1) << mb->branch << " " << n;
      for (double v : got.lu.v) EXPECT_EQ(v, 0.0);
    }
}

TEST(SmallLu, FirstNaNOfAColumnIsItsPivot) {
  // One NaN anywhere in the first column: it is taken as the pivot even where
  // a larger number stands before it, and NaN spreads as on the general road.
  for (const Member* mb : members_here())
    for (int n : {3, 6, 7, 9, 16})
      for (int row : {0, 1, n - 1}) {
        Matrix a = random_matrix(n, n, n, 5);
        a(0, 0) = 100.0;  // the largest number of the column
        a(row, 0) = kNaN;
        const Factored got = factor_with(mb->getrf, a);
        const std::string what = shape(mb->branch, n, n, n) + " NaN row " + std::to_string(row);
        EXPECT_EQ(got.ipiv[0], row + 1) << what;
        EXPECT_EQ(got.info, 0) << what << ": a NaN pivot is not a zero pivot";
        expect_same_factors(got, factor_general(a), what + " vs general");
        expect_same_factors(got, factor_reference(a), what + " vs reference");
      }
}

TEST(SmallLu, FirstOfEqualMagnitudesIsThePivot) {
  // |-3| = |3|: the earlier row wins, in the first column and in a later one.
  for (const Member* mb : members_here())
    for (int n : {4, 7, 10}) {
      Matrix a(n, n, n, 0.0);
      for (int j = 0; j < n; ++j) a(j, j) = 0.5;
      a(0, 0) = 1.0;
      a(1, 0) = -3.0;
      a(2, 0) = 3.0;
      a(3, 0) = -3.0;
      const Factored got = factor_with(mb->getrf, a);
      const std::string what = shape(mb->branch, n, n, n);
      EXPECT_EQ(got.ipiv[0], 2) << what;
      expect_same_factors(got, factor_general(a), what + " vs general");
      expect_same_factors(got, factor_reference(a), what + " vs reference");
      Matrix b(n, n, n, 0.0);
      for (int j = 0; j < n; ++j) b(j, j) = 8.0;
      b(n - 1, 1) = -8.0;  // ties the diagonal of column 1 from below
      const Factored gb = factor_with(mb->getrf, b);
      EXPECT_EQ(gb.ipiv[1], 2) << what;
    }
}

TEST(SmallLu, NaNInsideTheMatrixSpreadsAsOnTheGeneralRoad) {
  for (const Member* mb : members_here())
    for (int n : {4, 7, 10, 16}) {
      Matrix a = random_matrix(n, n, n, 9);
      a(n - 1, n / 2) = kNaN;
      const Factored got = factor_with(mb->getrf, a);
      const std::string what = shape(mb->branch, n, n, n) + " inner NaN";
      expect_same_factors(got, factor_general(a), what + " vs general");
      expect_same_factors(got, factor_reference(a), what + " vs reference");
    }
}

TEST(SmallLu, PivotBelowTheSafeMinimumDividesInsteadOfInverting) {
  // 1/4e-310 overflows: only division gives the multiplier 0.5.
  for (const Member* mb : members_here())
    for (int n : {2, 7, 9}) {
      Matrix a(n, n, n, 0.0);
      for (int j = 0; j < n; ++j) a(j, j) = 1.0;
      a(0, 0) = 4e-310;
      a(1, 0) = 2e-310;
      const Factored got = factor_with(mb->getrf, a);
      EXPECT_EQ(got.info, 0) << mb->branch << " " << n;
      EXPECT_EQ(got.ipiv[0], 1);
      EXPECT_EQ(got.lu(1, 0), 0.5) << mb->branch << " " << n;
      expect_same_factors(got, factor_general(a), std::string(mb->branch) + " tiny pivot");
    }
}

TEST(SmallLu, PivotJustAboveTheSafeMinimumUsesTheReciprocal) {
  // With the reciprocal, 3*sfmin * (1/(4*sfmin)) rounds as a product does; the
  // factor equals the general path's bit for bit.
  const double sfmin = DBL_MIN;
  for (const Member* mb : members_here()) {
    Matrix a(3, 3, 3, 0.0);
    a(0, 0) = 4 * sfmin;
    a(1, 0) = 3 * sfmin;
    a(2, 0) = sfmin * 0.7;
    a(1, 1) = a(2, 2) = 1.0;
    const Factored got = factor_with(mb->getrf, a);
    const double r = 1.0 / (4 * sfmin);
    EXPECT_EQ(got.lu(1, 0), 3 * sfmin * r) << mb->branch;
    EXPECT_EQ(got.lu(2, 0), sfmin * 0.7 * r) << mb->branch;
  }
}

TEST(SmallLu, EmptyShapesTouchNothing) {
  for (const Member* mb : members_here())
    for (const auto& s : {std::pair{0, 0}, std::pair{0, 5}, std::pair{5, 0}}) {
      std::vector<double> a(8, kPad);
      int ipiv[2] = {-5, -5}, info = -99;
      const int lda = 1;
      mb->getrf(&s.first, &s.second, a.data(), &lda, ipiv, &info);
      EXPECT_EQ(info, 0) << mb->branch;
      EXPECT_EQ(ipiv[0], -5);
      for (double v : a) EXPECT_EQ(v, kPad);
    }
}

TEST(SmallLu, MemberCalledBeyondOrder16StillFactors) {
  // The solver never does this; a direct caller still gets the general
  // road's result rather than an overrun of the member's stack block.
  for (const Member* mb : members_here())
    for (const auto& s : {std::pair{17, 17}, std::pair{20, 5}, std::pair{4, 30}}) {
      const Matrix a = random_matrix(s.first, s.second, s.first + 1, 55);
      expect_same_factors(factor_with(mb->getrf, a), factor_reference(a),
                          shape(mb->branch, a.m, a.n, a.ld));
    }
}

TEST(SmallLu, PublicRoutineTakesThisPathUpToOrder16) {
  // Through DGETRF: results as the members give them, for the shapes around
  // the threshold.
  for (const auto& s : {std::pair{16, 16}, std::pair{16, 3}, std::pair{1, 16}, std::pair{17, 17},
                        std::pair{17, 2}}) {
    const Matrix a = random_matrix(s.first, s.second, s.first + 2, 31);
    Factored got{a, std::vector<int>(static_cast<size_t>(std::min(s.first, s.second)), -5)};
    DGETRF(&a.m, &a.n, got.lu.data(), &a.ld, got.ipiv.data(), &got.info);
    expect_same_factors(got, factor_reference(a), shape("DGETRF", a.m, a.n, a.ld));
  }
}

// ---- Solve -----------------------------------------------------------------

// x := inv(op(P*L*U)) * x by plain loops, rows exchanged one by one.
void reference_solve(bool trans, int n, const Matrix& lu, const std::vector<int>& ipiv, double* x) {
  if (!trans) {
    for (int i = 0; i < n; ++i) std::swap(x[i], x[ipiv[i] - 1]);
    for (int i = 0; i < n; ++i)
      for (int k = 0; k < i; ++k) x[i] -= lu(i, k) * x[k];
    for (int i = n - 1; i >= 0; --i) {
      for (int k = i + 1; k < n; ++k) x[i] -= lu(i, k) * x[k];
      x[i] /= lu(i, i);
    }
  } else {
    for (int i = 0; i < n; ++i) {
      for (int k = 0; k < i; ++k) x[i] -= lu(k, i) * x[k];
      x[i] /= lu(i, i);
    }
    for (int i = n - 1; i >= 0; --i)
      for (int k = i + 1; k < n; ++k) x[i] -= lu(k, i) * x[k];
    for (int i = n - 1; i >= 0; --i) std::swap(x[i], x[ipiv[i] - 1]);
  }
}

// The general road's steps, taken directly through the BLAS layer.
void general_solve(bool trans, int n, int nrhs, const Matrix& lu, const std::vector<int>& ipiv,
                   Matrix& b) {
  const int one = 1, back = -1;
  const double alpha = 1.0;
  if (!trans) {
    tarn_lapack_dlaswp(&nrhs, b.data(), &b.ld, &one, &n, ipiv.data(), &one);
    tarn_blas_dtrsm("L", "L", "N", "U", &n, &nrhs, &alpha, lu.data(), &lu.ld, b.data(), &b.ld);
    tarn_blas_dtrsm("L", "U", "N", "N", &n, &nrhs, &alpha, lu.data(), &lu.ld, b.data(), &b.ld);
  } else {
    tarn_blas_dtrsm("L", "U", "T", "N", &n, &nrhs, &alpha, lu.data(), &lu.ld, b.data(), &b.ld);
    tarn_blas_dtrsm("L", "L", "T", "U", &n, &nrhs, &alpha, lu.data(), &lu.ld, b.data(), &b.ld);
    tarn_lapack_dlaswp(&nrhs, b.data(), &b.ld, &one, &n, ipiv.data(), &back);
  }
}

// A well-conditioned matrix: random with a heavy diagonal, factored by the
// reference so that the pivots are known to be exchanges somewhere.
Factored solvable(int n, uint64_t seed) {
  Matrix a = random_matrix(n, n, n + 1, seed);
  for (int i = 0; i < n; ++i) a(i, (i + 1) % n) += 2.0;  // pivots off the diagonal
  return factor_reference(a);
}

TEST(SmallSolve, EveryOrderAndRightHandSideCountInEveryForm) {
  const char* const forms[] = {"N", "n", "T", "t", "C", "c"};
  for (const Member* mb : members_here())
    for (int n = 1; n <= kSolveMaxOrder; ++n) {
      const Factored f = solvable(n, 400 + static_cast<uint64_t>(n));
      for (int nrhs = 1; nrhs <= kSolveMaxNrhs; ++nrhs)
        for (const char* tr : forms) {
          const bool trans = tr[0] != 'N' && tr[0] != 'n';
          const Matrix b0 = random_matrix(n, nrhs, n + 2, 500 + static_cast<uint64_t>(nrhs));
          Matrix got = b0, general = b0, want = b0;
          int info = -99;
          const int one = 1;
          mb->getrs(tr, &n, &nrhs, f.lu.data(), &f.lu.ld, f.ipiv.data(), got.data(), &got.ld, &info,
                    &one);
          general_solve(trans, n, nrhs, f.lu, f.ipiv, general);
          for (int c = 0; c < nrhs; ++c) reference_solve(trans, n, f.lu, f.ipiv, &want(0, c));
          const std::string what = std::string(mb->branch) + " " + tr + " n " + std::to_string(n) +
                                   " nrhs " + std::to_string(nrhs);
          EXPECT_EQ(info, 0) << what;
          EXPECT_LE(testsupport::max_rel_diff(got, general), kSolveTol) << what << " vs general";
          EXPECT_LE(testsupport::max_rel_diff(got, want), kSolveTol) << what << " vs reference";
          for (int c = 0; c < nrhs; ++c)
            for (int i = n; i < got.ld; ++i) ASSERT_EQ(got(i, c), kPad) << what;
        }
    }
}

TEST(SmallSolve, SolutionSatisfiesTheOriginalSystem) {
  // From the matrix itself, not only from its factors: factor with the
  // member, solve with the member, multiply back.
  for (const Member* mb : members_here())
    for (int n : {1, 4, 8}) {
      Matrix a = random_matrix(n, n, n, 600 + static_cast<uint64_t>(n));
      const Factored f = factor_with(mb->getrf, a);
      ASSERT_EQ(f.info, 0);
      for (const char* tr : {"N", "T"}) {
        const int nrhs = 3, one = 1;
        const Matrix b0 = random_matrix(n, nrhs, n, 700);
        Matrix x = b0;
        int info = -99;
        mb->getrs(tr, &n, &nrhs, f.lu.data(), &f.lu.ld, f.ipiv.data(), x.data(), &x.ld, &info,
                  &one);
        Matrix ax(n, nrhs, n, 0.0);
        testsupport::ref_dgemm(tr[0], 'N', n, nrhs, n, 1.0, a.data(), a.ld, x.data(), x.ld, 0.0,
                               ax.data(), ax.ld);
        EXPECT_LE(testsupport::max_rel_diff(ax, b0), 1e-12) << mb->branch << " " << tr << " " << n;
      }
    }
}

TEST(SmallSolve, EmptySizesSolveNothingAndReadNoPivot) {
  std::vector<double> a(16, 1.0), b(16, 2.0);
  const std::vector<int> ipiv(8, 99);  // out of range: must not be read
  const int zero = 0, four = 4, minus = -3, one = 1;
  for (const Member* mb : members_here())
    for (const auto& s : {std::pair{zero, four}, std::pair{four, zero}, std::pair{minus, four},
                          std::pair{four, minus}}) {
      int info = -1;
      mb->getrs("N", &s.first, &s.second, a.data(), &four, ipiv.data(), b.data(), &four, &info,
                &one);
      EXPECT_EQ(info, 0) << mb->branch;
      for (double v : b) EXPECT_EQ(v, 2.0);
    }
}

TEST(SmallSolve, MemberCalledBeyondOrder8StillSolves) {
  // The solver never does this; a direct caller gets the general road.
  for (const Member* mb : members_here())
    for (const char* tr : {"N", "T"}) {
      const int n = 12, nrhs = 3, one = 1;
      const Factored f = solvable(n, 1400);
      const Matrix b0 = random_matrix(n, nrhs, n, 1401);
      Matrix got = b0, want = b0;
      int info = -99;
      mb->getrs(tr, &n, &nrhs, f.lu.data(), &f.lu.ld, f.ipiv.data(), got.data(), &got.ld, &info,
                &one);
      for (int c = 0; c < nrhs; ++c) reference_solve(tr[0] == 'T', n, f.lu, f.ipiv, &want(0, c));
      EXPECT_EQ(info, 0);
      EXPECT_LE(testsupport::max_rel_diff(got, want), kSolveTol) << mb->branch << " " << tr;
    }
}

// ---- The hand-over from the public routines ---------------------------------

TEST(SmallSolveThreshold, Below9BothWaysNothingIsCheckedFrom9TheGeneralChecksRun) {
  const XerblaRecording recording;
  // A transposition letter the general road refuses: the small path takes it
  // for a transposed solve and reports nothing.
  const Factored f = solvable(9, 800);
  struct Case {
    int n, nrhs;
    bool small;
  };
  for (const Case c : {Case{8, 8, true}, Case{1, 1, true}, Case{8, 9, false}, Case{9, 8, false},
                       Case{9, 1, false}}) {
    g_xerbla_calls.clear();
    Matrix b = random_matrix(9, c.nrhs, 9, 801);
    int info = -99;
    DGETRS("X", &c.n, &c.nrhs, f.lu.data(), &f.lu.ld, f.ipiv.data(), b.data(), &b.ld, &info);
    if (c.small) {
      EXPECT_EQ(info, 0) << c.n << " " << c.nrhs;
      EXPECT_TRUE(g_xerbla_calls.empty()) << c.n << " " << c.nrhs;
    } else {
      EXPECT_EQ(info, -1) << c.n << " " << c.nrhs;
      ASSERT_EQ(g_xerbla_calls.size(), 1u) << c.n << " " << c.nrhs;
      EXPECT_EQ(g_xerbla_calls[0].name, "DGETRS");
    }
  }
}

TEST(SmallSolveThreshold, PublicSolveBelow9MatchesTheMembers) {
  for (const char* tr : {"N", "T", "C"})
    for (int n : {1, 5, 8}) {
      const Factored f = solvable(n, 900 + static_cast<uint64_t>(n));
      const int nrhs = 8, one = 1;
      const Matrix b0 = random_matrix(n, nrhs, n, 901);
      Matrix got = b0, want = b0;
      int info = -99, ref_info = -99;
      DGETRS(tr, &n, &nrhs, f.lu.data(), &f.lu.ld, f.ipiv.data(), got.data(), &got.ld, &info);
      tarn_lapack_ps_sse2_dgetrs_small(tr, &n, &nrhs, f.lu.data(), &f.lu.ld, f.ipiv.data(),
                                       want.data(), &want.ld, &ref_info, &one);
      EXPECT_EQ(info, 0);
      EXPECT_LE(testsupport::max_rel_diff(got, want), kSolveTol) << tr << " " << n;
    }
}

// ---- No heap -----------------------------------------------------------------

// Runs only when started by NoAllocationOnEitherPath, with the buffer cache
// switched off: every work buffer the service allocator hands out then comes
// from the C library's allocator, so a call to it cannot hide behind a cached
// block.
TEST(SmallPathMemoryChild, DISABLED_NoAllocationWithTheCacheOff) {
  if (std::getenv("TARN_TEST_SMALL_MEMORY") == nullptr) GTEST_SKIP();
  ASSERT_EQ(tarn_serv_get_fast_mm_status(), 1) << "the cache must be off here";
  // Everything resolved and warmed up first: the stubs, the wrappers' verbose
  // cells, the callbacks.
  std::vector<Matrix> as, bs;
  std::vector<std::vector<int>> pivots;
  for (int n = 1; n <= kMaxOrder; ++n) {
    as.push_back(random_matrix(n, n, n, 1100 + static_cast<uint64_t>(n)));
    as.push_back(random_matrix(kMaxOrder, n, kMaxOrder, 1200 + static_cast<uint64_t>(n)));
  }
  for (const Matrix& a : as) pivots.emplace_back(static_cast<size_t>(std::min(a.m, a.n)), 0);
  for (int n = 1; n <= kSolveMaxOrder; ++n) bs.push_back(random_matrix(n, kSolveMaxNrhs, n, 1300));
  std::vector<Matrix> work = as, rhs = bs;
  const std::vector<const Member*> here = members_here();
  auto run_all = [&]() {
    int info = 0;
    const int one = 1;
    for (size_t k = 0; k < as.size(); ++k) {
      std::copy(as[k].v.begin(), as[k].v.end(), work[k].v.begin());
      DGETRF(&work[k].m, &work[k].n, work[k].data(), &work[k].ld, pivots[k].data(), &info);
      std::copy(as[k].v.begin(), as[k].v.end(), work[k].v.begin());
      for (const Member* mb : here)
        mb->getrf(&work[k].m, &work[k].n, work[k].data(), &work[k].ld, pivots[k].data(), &info);
    }
    for (size_t k = 0; k < bs.size(); ++k) {
      const Matrix& lu = work[2 * k];  // square of order k + 1, factored
      const int n = static_cast<int>(k) + 1, nrhs = kSolveMaxNrhs;
      for (const char* tr : {"N", "T"}) {
        DGETRS(tr, &n, &nrhs, lu.data(), &lu.ld, pivots[2 * k].data(), rhs[k].data(), &rhs[k].ld,
               &info);
        for (const Member* mb : here)
          mb->getrs(tr, &n, &nrhs, lu.data(), &lu.ld, pivots[2 * k].data(), rhs[k].data(),
                    &rhs[k].ld, &info, &one);
      }
    }
  };
  run_all();
  int buffers_before = -1, buffers_after = -1;
  const int64_t bytes_before = tarn_serv_mem_stat(&buffers_before);
  g_allocations = 0;
  g_counting = true;
  run_all();
  g_counting = false;
  const int64_t bytes_after = tarn_serv_mem_stat(&buffers_after);
  EXPECT_EQ(g_allocations.load(), 0);
  EXPECT_EQ(bytes_after, bytes_before);
  EXPECT_EQ(buffers_after, buffers_before);

  // The counter itself sees an allocation.
  void* (*volatile allocate)(size_t) = malloc;
  g_counting = true;
  void* probe = allocate(64);
  g_counting = false;
  free(probe);
  EXPECT_EQ(g_allocations.load(), 1);

  // And the counter sees the service allocator with the cache off.
  g_allocations = 0;
  g_counting = true;
  void* buffer = tarn_serv_allocate(4096, 64);
  g_counting = false;
  tarn_serv_deallocate(buffer);
  EXPECT_GE(g_allocations.load(), 1);
}

TEST(SmallPathMemory, NoAllocationOnEitherPath) {
  char self[4096];
  const ssize_t len = readlink("/proc/self/exe", self, sizeof self - 1);
  ASSERT_GT(len, 0);
  self[len] = '\0';
  const testsupport::RunResult r = testsupport::run_program(
      self, {"--gtest_filter=SmallPathMemoryChild.*", "--gtest_also_run_disabled_tests"}, "",
      {"TARN_TEST_SMALL_MEMORY=1", "TARN_DISABLE_FAST_MM=1"});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("[  PASSED  ] 1 test"), std::string::npos) << r.out;
}

// ---- The stubs' choice -------------------------------------------------------

TEST(SmallPathBranches, EachCodeSelectsItsMember) {
  EXPECT_EQ(tarn_ps_small::dgetrf_member(1), tarn_lapack_ps_sse2_dgetrf_small);
  EXPECT_EQ(tarn_ps_small::dgetrs_member(1), tarn_lapack_ps_sse2_dgetrs_small);
  for (const Member& m : kMembers) {
    EXPECT_EQ(tarn_ps_small::dgetrf_member(m.code), m.getrf) << m.branch;
    EXPECT_EQ(tarn_ps_small::dgetrs_member(m.code), m.getrs) << m.branch;
  }
  for (int code : {-1, 0, 3, 8, 10, 11, 13}) {
    EXPECT_EQ(tarn_ps_small::dgetrf_member(code), nullptr) << code;
    EXPECT_EQ(tarn_ps_small::dgetrs_member(code), nullptr) << code;
  }
}

int g_fake_code = 0;
int g_fake_detect_calls = 0;
int fake_detect() {
  ++g_fake_detect_calls;
  return g_fake_code;
}

TEST(SmallPathBranches, UnsupportedCodeStopsWithMessage1213AndStatus1) {
  for (int code : {0, 3, 8, 10}) {
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
      dup2(out[1], 1);
      dup2(out[1], 2);
      close(out[0]);
      g_fake_code = code;
      tarn_ps_small::checked_code(fake_detect);
      std::fflush(nullptr);
      _exit(99);  // only if the check came back
    }
    close(out[1]);
    std::string text;
    char buf[512];
    ssize_t got;
    while ((got = read(out[0], buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(got));
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << code;
    EXPECT_EQ(WEXITSTATUS(status), 1) << code;
    EXPECT_NE(text.find("Vexan TARN ERROR: CPU " + std::to_string(code) + " is not supported."),
              std::string::npos)
        << code << ": " << text;
  }
}

int g_exit_status = -1;
void returning_exit(int status) { g_exit_status = status; }

TEST(SmallPathBranches, AnExitHandlerThatReturnsLeavesNoCode) {
  const tarn_exit_fn old = tarn_serv_set_exit_handler(returning_exit);
  g_fake_code = 8;
  g_fake_detect_calls = 0;
  EXPECT_EQ(tarn_ps_small::checked_code(fake_detect), -1);
  EXPECT_EQ(g_exit_status, 1);
  EXPECT_EQ(g_fake_detect_calls, 2) << "the report asks for the code a second time";
  g_fake_code = 6;
  EXPECT_EQ(tarn_ps_small::checked_code(fake_detect), 6);
  tarn_serv_set_exit_handler(old);
}

// Runs only when started by StubsSettleOnTheMemberOfTheProcessor, in a fresh
// process where neither stub has been called, on the simulated processor
// named by TARN_TEST_SMALL_CPU; TARN_TEST_SMALL_WANT names the branch whose
// member the stubs must settle on.
TEST(SmallPathChild, DISABLED_StubsResolveOnTheSimulatedProcessor) {
  const char* name = std::getenv("TARN_TEST_SMALL_CPU");
  if (name == nullptr) GTEST_SKIP();
  const std::string cpu = name;
  const char* want_name = std::getenv("TARN_TEST_SMALL_WANT");
  ASSERT_NE(want_name, nullptr);
  fakecpu::Processor p = cpu == "sse2"    ? fakecpu::sse2_only()
                         : cpu == "ssse3" ? fakecpu::ssse3_only()
                         : cpu == "sse42" ? fakecpu::sse42_only()
                         : cpu == "avx"   ? fakecpu::avx_only()
                         : cpu == "avx2"  ? fakecpu::avx2_only()
                                          : fakecpu::avx512_plain();
  const Member* want = nullptr;
  for (const Member& m : kMembers)
    if (std::strcmp(want_name, m.branch) == 0) want = &m;
  ASSERT_NE(want, nullptr);
  fakecpu::current = &p;
  tarn_serv_cpu_set_probe(&fakecpu::kProbe);
  tarn_serv_cpu_reset_state();

  ASSERT_EQ(tarn_lapack_ps_dgetrf_small_member(), nullptr);
  ASSERT_EQ(tarn_lapack_ps_dgetrs_small_member(), nullptr);
  // Above the thresholds the public routines leave the stubs alone.
  Matrix big = random_matrix(17, 2, 17, 3);
  std::vector<int> ipiv(17);
  int info = -99;
  DGETRF(&big.m, &big.n, big.data(), &big.ld, ipiv.data(), &info);
  EXPECT_EQ(tarn_lapack_ps_dgetrf_small_member(), nullptr) << "17 by 2 is not small";
  const Factored f9 = solvable(9, 5);
  const int nine = 9, one = 1, eight = 8;
  Matrix b9 = random_matrix(9, 9, 9, 6);
  DGETRS("N", &nine, &one, f9.lu.data(), &f9.lu.ld, f9.ipiv.data(), b9.data(), &b9.ld, &info);
  DGETRS("N", &one, &nine, f9.lu.data(), &f9.lu.ld, f9.ipiv.data(), b9.data(), &b9.ld, &info);
  EXPECT_EQ(tarn_lapack_ps_dgetrs_small_member(), nullptr) << "order 9 is not small";

  // At the thresholds the stubs settle on the simulated processor's member.
  Matrix a = random_matrix(16, 16, 16, 7);
  const Factored want_lu = factor_reference(a);
  Factored got{a, std::vector<int>(16)};
  DGETRF(&a.m, &a.n, got.lu.data(), &a.ld, got.ipiv.data(), &got.info);
  EXPECT_EQ(tarn_lapack_ps_dgetrf_small_member(), want->getrf) << cpu;
  expect_same_factors(got, want_lu, cpu + " through DGETRF");

  const Factored f8 = solvable(8, 8);
  Matrix b = random_matrix(8, 8, 8, 9), want_b = b;
  DGETRS("N", &eight, &eight, f8.lu.data(), &f8.lu.ld, f8.ipiv.data(), b.data(), &b.ld, &info);
  EXPECT_EQ(tarn_lapack_ps_dgetrs_small_member(), want->getrs) << cpu;
  for (int c = 0; c < 8; ++c) reference_solve(false, 8, f8.lu, f8.ipiv, &want_b(0, c));
  EXPECT_LE(testsupport::max_rel_diff(b, want_b), kSolveTol) << cpu;

  // The processor changes under the process: the stubs keep their member.
  fakecpu::Processor other = fakecpu::sse42_only();
  fakecpu::current = &other;
  tarn_serv_cpu_reset_state();
  DGETRF(&a.m, &a.n, got.lu.data(), &a.ld, got.ipiv.data(), &got.info);
  EXPECT_EQ(tarn_lapack_ps_dgetrf_small_member(), want->getrf) << cpu;
  tarn_serv_cpu_set_probe(nullptr);
  fakecpu::current = nullptr;
}

TEST(SmallPathBranches, StubsSettleOnTheMemberOfTheProcessor) {
  char self[4096];
  const ssize_t len = readlink("/proc/self/exe", self, sizeof self - 1);
  ASSERT_GT(len, 0);
  self[len] = '\0';
  struct Run {
    const char* cpu;
    const char* want;
    const char* cbwr;     // "TARN_CBWR" alone: unset
    const char* ceiling;  // "TARN_ENABLE_INSTRUCTIONS" alone: unset
  };
  // The child runs the member it settles on: only one this processor can.
  auto runs_here = [](const std::string& member) {
    if (member == "avx512") return kernel_sets::has_avx512();
    if (member == "avx2") return kernel_sets::has_avx2();
    if (member == "avx") return kernel_sets::has_avx();
    if (member == "sse42") return kernel_sets::has_sse42();
    if (member == "ssse3") return kernel_sets::has_ssse3();
    return true;
  };
  const Run runs[] = {
      {"sse2", "sse2", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS"},
      {"ssse3", "ssse3", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS"},
      {"sse42", "sse42", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS"},
      {"avx", "avx", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS"},
      {"avx2", "avx2", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS"},
      {"avx512", "avx512", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS"},
      // The BLAS stubs move codes 2 and 4 to their reproducible set under a
      // fixed mode; the small path has no such set and keeps the member of
      // the code (COMPATIBLE pins code 1, which shares sse2's).
      {"sse2", "sse2", "TARN_CBWR=SSE2", "TARN_ENABLE_INSTRUCTIONS"},
      {"ssse3", "ssse3", "TARN_CBWR=SSSE3", "TARN_ENABLE_INSTRUCTIONS"},
      {"ssse3", "sse2", "TARN_CBWR=COMPATIBLE", "TARN_ENABLE_INSTRUCTIONS"},
      // The instruction ceiling lowers the code, and the member with it.
      {"avx512", "avx2", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS=AVX2"},
      {"avx512", "sse42", "TARN_CBWR", "TARN_ENABLE_INSTRUCTIONS=SSE4_2"},
  };
  for (const Run& run : runs) {
    const std::string what = std::string(run.cpu) + " " + run.cbwr + " " + run.ceiling;
    if (!runs_here(run.want)) {
      std::printf("not run here (no %s instructions): %s\n", run.want, what.c_str());
      continue;
    }
    const testsupport::RunResult r = testsupport::run_program(
        self, {"--gtest_filter=SmallPathChild.*", "--gtest_also_run_disabled_tests"}, "",
        {std::string("TARN_TEST_SMALL_CPU=") + run.cpu,
         std::string("TARN_TEST_SMALL_WANT=") + run.want, run.cbwr, run.ceiling});
    EXPECT_EQ(r.status, 0) << what << "\n" << r.out << r.err;
    EXPECT_NE(r.out.find("[  PASSED  ] 1 test"), std::string::npos) << what << "\n" << r.out;
  }
}

}  // namespace
