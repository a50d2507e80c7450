// Every branch's kernel entries called directly, against plain reference
// loops: edge shapes, leading dimensions above the row count, the special
// values of alpha and beta, the NaN rules of the pivot search, negative
// increments and the independence of results from data alignment.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "kernels/generic/level1.h"
#include "kernels/generic/level2.h"
#include "kernels/generic/xdgemm.h"
#include "kernels/generic/xdtrsm.h"
#include "kernels/kernels.h"
#include "service/cpu.h"
#include "tests/kernel_sets.h"
#include "tests/support/test_support.h"

namespace {

using namespace kernel_sets;
using testsupport::Matrix;
using testsupport::Random;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kMarker = -777.25;  // outside the operand: must survive every call

struct Branch {
  const char* name;
  bool (*runs_here)();
  tarn_xdgemm_fn* xdgemm;
  tarn_xdtrsm_fn* xdtrsm;
  tarn_xdscal_fn* xdscal;
  tarn_xdaxpy_fn* xdaxpy;
  tarn_xdcopy_fn* xdcopy;
  tarn_xddot_fn* xddot;
  tarn_xdswap_fn* xdswap;
  tarn_xidamax_fn* xidamax;
  tarn_xdgemv_fn* xdgemv;
  tarn_xdgemmger_fn* xdgemmger;
  tarn_xdtrsv_fn* xdtrsv;
  tarn_dgemm_mscale_fn* dgemm_mscale;
  tarn_xdgemm_internal_team_fn* xdgemm_internal_team;
  tarn_api_version_fn* dgemm_api_support;
  tarn_api_version_fn* get_kernel_api_version;
  tarn_api_version_fn* get_ikernel_api_version;
  tarn_api_version_fn* get_bkernel_api_version;
  int expected_api_support;
  int expected_kernel_api;
};

#define TARN_TEST_BRANCH(br, runs, support, version)                                        \
  Branch {                                                                                  \
#br, runs, tarn_blas_##br##_xdgemm, tarn_blas_##br##_xdtrsm, tarn_blas_##br##_xdscal,   \
        tarn_blas_##br##_xdaxpy, tarn_blas_##br##_xdcopy, tarn_blas_##br##_xddot,           \
        tarn_blas_##br##_xdswap, tarn_blas_##br##_xidamax, tarn_blas_##br##_xdgemv,         \
        tarn_blas_##br##_xdgemmger, tarn_blas_##br##_xdtrsv, tarn_blas_##br##_dgemm_mscale, \
        tarn_blas_##br##_xdgemm_internal_team, tarn_blas_##br##_dgemm_api_support,          \
        tarn_blas_##br##_get_kernel_api_version, tarn_blas_##br##_get_ikernel_api_version,  \
        tarn_blas_##br##_get_bkernel_api_version, support, version                          \
  }

// The branch-generic templates, instantiated here for the test's own
// instruction set, as one more kernel set under the same tests: the form a
// branch falls back to when it has no tuned kernel of its own.
void generic_gemm_entry(const char* transa, const char* transb, const int* m, const int* n,
                        const int* k, const double* alpha, const double* a, const int* lda,
                        const double* b, const int* ldb, const double* beta, double* c,
                        const int* ldc) {
  generic_xdgemm(generic_upper(transa), generic_upper(transb), *m, *n, *k, *alpha, a, *lda, b, *ldb,
                 *beta, c, *ldc);
}
const Branch kGeneric = {
    "generic",
    always,
    generic_gemm_entry,
    [](const char* side, const char* uplo, const char* transa, const char* diag, const int* m,
       const int* n, const double* alpha, const double* a, const int* lda, double* b,
       const int* ldb) {
      generic_xdtrsm<generic_gemm_entry>(generic_upper(side), generic_upper(uplo),
                                         generic_upper(transa), generic_upper(diag), *m, *n, *alpha,
                                         a, *lda, b, *ldb);
    },
    [](const int* n, const double* alpha, double* x, const int* incx) {
      generic_xdscal(*n, *alpha, x, *incx);
    },
    [](const int* n, const double* alpha, const double* x, const int* incx, double* y,
       const int* incy) { generic_xdaxpy(*n, *alpha, x, *incx, y, *incy); },
    [](const int* n, const double* x, const int* incx, double* y, const int* incy) {
      generic_xdcopy(*n, x, *incx, y, *incy);
    },
    [](const int* n, const double* x, const int* incx, const double* y, const int* incy) {
      return generic_xddot(*n, x, *incx, y, *incy);
    },
    [](const int* n, double* x, const int* incx, double* y, const int* incy) {
      generic_xdswap(*n, x, *incx, y, *incy);
    },
    [](const int* n, const double* x, const int* incx) { return generic_xidamax(*n, x, *incx); },
    [](const char* trans, const int* m, const int* n, const double* alpha, const double* a,
       const int* lda, const double* x, const int* incx, const double* beta, double* y,
       const int* incy, const int*) {
      generic_xdgemv(generic_upper(trans), *m, *n, *alpha, a, *lda, x, *incx, *beta, y, *incy);
    },
    [](const char*, const char*, const int* m, const int* n, const double* alpha, const double* x,
       const int* incx, const double* y, const int* incy, const double* beta, double* c,
       const int* ldc) { generic_xdgemmger(*m, *n, *alpha, x, *incx, y, *incy, *beta, c, *ldc); },
    [](const char* uplo, const char* trans, const char* diag, const int* n, const double* a,
       const int* lda, double* x, const int* incx) {
      generic_xdtrsv(generic_upper(uplo), generic_upper(trans), generic_upper(diag), *n, a, *lda, x,
                     *incx);
    },
    [](const int* m, const int* n, const double* beta, double* c, const int* ldc) {
      generic_scale_matrix(*m, *n, *beta, c, *ldc);
    },
    [](const char*, const char*, const int*, const int*, const int*, const double*, const double*,
       const int*, const double*, const int*, const double*, double*, const int*, void*, const int*,
       const int*) { return -1; },
    [] { return 1; },
    [] { return 1; },
    [] { return 1; },
    [] { return 1; },
    1,
    1,
};

const Branch kBranches[] = {
    TARN_TEST_BRANCH(sse2, always, 1, 1),       TARN_TEST_BRANCH(cnr_sse2, always, 1, 1),
    TARN_TEST_BRANCH(ssse3, has_ssse3, 1, 1),   TARN_TEST_BRANCH(sse42, has_sse42, 1, 1),
    TARN_TEST_BRANCH(avx, has_avx, 1, 1),       TARN_TEST_BRANCH(avx2, has_avx2, 4, 2),
    TARN_TEST_BRANCH(avx512, has_avx512, 4, 2), kGeneric,
};

class BranchKernels : public kernel_sets::BranchFixture<Branch> {};

INSTANTIATE_TEST_SUITE_P(AllBranches, BranchKernels, ::testing::ValuesIn(kBranches),
                         kernel_sets::branch_name<Branch>);

// ---- helpers ----------------------------------------------------------------

// Largest |x - y| relative to the largest |y| (or absolute when y is tiny).
double rel_diff(const std::vector<double>& x, const std::vector<double>& y) {
  double scale = 1e-300, diff = 0.0;
  for (size_t i = 0; i < y.size(); ++i) {
    scale = std::fmax(scale, std::fabs(y[i]));
    const double d = std::fabs(x[i] - y[i]);
    diff = std::isnan(d) ? INFINITY : std::fmax(diff, d);
  }
  return scale >= 1.0 ? diff / scale : diff;
}

// Every element outside rows [0, m) of each column still holds the marker.
void expect_margins_kept(const Matrix& c, const char* what) {
  for (int j = 0; j < c.n; ++j)
    for (int i = c.m; i < c.ld; ++i)
      ASSERT_EQ(c(i, j), kMarker) << what << ": wrote outside the operand at (" << i << "," << j
                                  << ")";
}

Matrix random_matrix(int m, int n, int ld, Random& r) {
  Matrix a(m, n, ld, kMarker);
  testsupport::fill_random(a, r);
  return a;
}

std::vector<double> random_vector(int n, Random& r) {
  std::vector<double> v(n);
  for (double& x : v) x = r.uniform();
  return v;
}

// ---- DGEMM --------------------------------------------------------------------

void check_gemm(const Branch& k, char ta, char tb, int m, int n, int kk, double alpha, double beta,
                Random& r, int pad = 3) {
  const int am = ta == 'N' ? m : kk, an = ta == 'N' ? kk : m;
  const int bm = tb == 'N' ? kk : n, bn = tb == 'N' ? n : kk;
  Matrix a = random_matrix(am, an, am + pad, r);
  Matrix b = random_matrix(bm, bn, bm + pad + 1, r);
  Matrix c = random_matrix(m, n, m + pad + 2, r);
  Matrix want = c;
  testsupport::ref_dgemm(ta, tb, m, n, kk, alpha, a.data(), a.ld, b.data(), b.ld, beta, want.data(),
                         want.ld);
  const char sa[2] = {ta, 0}, sb[2] = {tb, 0};
  k.xdgemm(sa, sb, &m, &n, &kk, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(), &c.ld);
  EXPECT_LE(testsupport::max_rel_diff(c, want), 1e-13 * (kk + 1))
      << ta << tb << " m=" << m << " n=" << n << " k=" << kk << " alpha=" << alpha
      << " beta=" << beta;
  expect_margins_kept(c, "xdgemm");
}

TEST_P(BranchKernels, GemmMatchesReferenceOnEveryTranspositionAndEdgeShape) {
  Random r(11);
  const int sizes[] = {1, 2, 3, 5, 7, 8, 9, 13, 17, 31};
  for (char ta : {'N', 'T'})
    for (char tb : {'N', 'T'})
      for (int m : sizes)
        for (int n : {1, 2, 6, 7, 13})
          for (int kk : {1, 4, 9}) check_gemm(k(), ta, tb, m, n, kk, 1.5, 0.5, r);
}

TEST_P(BranchKernels, GemmMatchesReferenceAcrossBlockBoundaries) {
  Random r(12);
  for (char ta : {'N', 'T'})
    for (char tb : {'N', 'T'}) {
      check_gemm(k(), ta, tb, 203, 77, 300, -1.0, 1.0, r);
      check_gemm(k(), ta, tb, 64, 200, 257, 0.75, 0.0, r);
    }
  check_gemm(k(), 'N', 'N', 517, 33, 129, 2.0, -1.0, r, 11);
}

TEST_P(BranchKernels, GemmTakesLowerCaseAndConjugateAsTranspose) {
  Random r(13);
  const int m = 9, n = 5, kk = 6;
  Matrix a = random_matrix(kk, m, kk, r), b = random_matrix(n, kk, n, r);
  Matrix c1(m, n), c2(m, n);
  const double alpha = 1.0, beta = 0.0;
  k().xdgemm("t", "c", &m, &n, &kk, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c1.data(),
             &c1.ld);
  k().xdgemm("T", "T", &m, &n, &kk, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c2.data(),
             &c2.ld);
  EXPECT_EQ(testsupport::max_rel_diff(c1, c2), 0.0);
}

TEST_P(BranchKernels, GemmBetaZeroNeverReadsC) {
  Random r(14);
  for (int m : {1, 5, 12, 40})
    for (int n : {1, 3, 8}) {
      const int kk = 7;
      Matrix a = random_matrix(m, kk, m, r), b = random_matrix(kk, n, kk, r);
      Matrix c(m, n, m + 2, kMarker), want(m, n, m + 2, kMarker);
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) c(i, j) = kNaN;
      const double alpha = 1.0, beta = 0.0;
      testsupport::ref_dgemm('N', 'N', m, n, kk, alpha, a.data(), a.ld, b.data(), b.ld, beta,
                             want.data(), want.ld);
      k().xdgemm("N", "N", &m, &n, &kk, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(),
                 &c.ld);
      EXPECT_LE(testsupport::max_rel_diff(c, want), 1e-14) << "m=" << m << " n=" << n;
      expect_margins_kept(c, "beta 0");
    }
}

TEST_P(BranchKernels, GemmAlphaZeroOnlyScalesC) {
  const int m = 6, n = 4, kk = 3;
  Matrix a(m, kk, m, kNaN), b(kk, n, kk, kNaN);  // never read
  Matrix c(m, n, m, 0.0);
  c(0, 0) = kNaN;
  c(1, 0) = 2.0;
  double alpha = 0.0, beta = 1.0;
  k().xdgemm("N", "N", &m, &n, &kk, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(),
             &c.ld);
  EXPECT_TRUE(std::isnan(c(0, 0))) << "alpha 0, beta 1 must leave C untouched";
  EXPECT_EQ(c(1, 0), 2.0);
  beta = 3.0;
  k().xdgemm("N", "N", &m, &n, &kk, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(),
             &c.ld);
  EXPECT_EQ(c(1, 0), 6.0);
  beta = 0.0;
  k().xdgemm("N", "N", &m, &n, &kk, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(),
             &c.ld);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) EXPECT_EQ(c(i, j), 0.0) << "alpha 0, beta 0 clears C, NaN included";
}

TEST_P(BranchKernels, GemmEmptyShapesTouchNothing) {
  Matrix c(4, 4, 4, kMarker);
  Matrix a(4, 4, 4, 1.0), b(4, 4, 4, 1.0);
  const double alpha = 1.0, beta = 0.0;
  const int four = 4, zero = 0, ld = 4;
  k().xdgemm("N", "N", &zero, &four, &four, &alpha, a.data(), &ld, b.data(), &ld, &beta, c.data(),
             &ld);
  k().xdgemm("N", "N", &four, &zero, &four, &alpha, a.data(), &ld, b.data(), &ld, &beta, c.data(),
             &ld);
  for (double v : c.v) EXPECT_EQ(v, kMarker);
  // K = 0: C := beta*C.
  k().xdgemm("N", "N", &four, &four, &zero, &alpha, a.data(), &ld, b.data(), &ld, &beta, c.data(),
             &ld);
  for (double v : c.v) EXPECT_EQ(v, 0.0);
}

TEST_P(BranchKernels, MscaleScalesAndClearsWithoutReading) {
  Matrix c(5, 3, 7, kMarker);
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 5; ++i) c(i, j) = i + 10 * j;
  const int m = 5, n = 3;
  double beta = -2.0;
  k().dgemm_mscale(&m, &n, &beta, c.data(), &c.ld);
  EXPECT_EQ(c(4, 2), -2.0 * 24);
  c(0, 0) = kNaN;
  beta = 0.0;
  k().dgemm_mscale(&m, &n, &beta, c.data(), &c.ld);
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 5; ++i) EXPECT_EQ(c(i, j), 0.0);
  expect_margins_kept(c, "mscale");
}

// ---- DTRSM --------------------------------------------------------------------

// A triangular matrix whose unused triangle (and, for a unit diagonal, its
// diagonal) holds NaN: any read of them shows in the result.
Matrix triangle(int n, char uplo, char diag, Random& r, int pad = 2) {
  Matrix a(n, n, n + pad, kMarker);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const bool in = uplo == 'L' ? i > j : i < j;
      if (i == j)
        a(i, j) = diag == 'U' ? kNaN : 2.0 + r.uniform();
      else
        a(i, j) = in ? r.uniform() / n : kNaN;
    }
  return a;
}

// op(A)(i, j) of a triangle, with the unit diagonal and the zero triangle
// made explicit.
double op_tri(const Matrix& a, char uplo, char trans, char diag, int i, int j) {
  const int r = trans == 'N' ? i : j, c = trans == 'N' ? j : i;
  if (r == c) return diag == 'U' ? 1.0 : a(r, c);
  const bool in = uplo == 'L' ? r > c : r < c;
  return in ? a(r, c) : 0.0;
}

void check_trsm(const Branch& k, char side, char uplo, char trans, char diag, int m, int n,
                double alpha, Random& r) {
  const int order = side == 'L' ? m : n;
  Matrix a = triangle(order, uplo, diag, r);
  Matrix b = random_matrix(m, n, m + 3, r);
  Matrix x = b;
  const char s[2] = {side, 0}, u[2] = {uplo, 0}, t[2] = {trans, 0}, d[2] = {diag, 0};
  k.xdtrsm(s, u, t, d, &m, &n, &alpha, a.data(), &a.ld, x.data(), &x.ld);
  expect_margins_kept(x, "xdtrsm");
  // op(A)*X or X*op(A) must give back alpha*B.
  Matrix back(m, n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) {
      double sum = 0.0;
      for (int l = 0; l < order; ++l)
        sum += side == 'L' ? op_tri(a, uplo, trans, diag, i, l) * x(l, j)
                           : x(i, l) * op_tri(a, uplo, trans, diag, l, j);
      back(i, j) = sum;
    }
  Matrix want(m, n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) want(i, j) = alpha * b(i, j);
  EXPECT_LE(testsupport::max_rel_diff(back, want), 1e-13)
      << side << uplo << trans << diag << " m=" << m << " n=" << n;
}

TEST_P(BranchKernels, TrsmSolvesEveryCaseAndShape) {
  Random r(21);
  for (char side : {'L', 'R'})
    for (char uplo : {'L', 'U'})
      for (char trans : {'N', 'T'})
        for (char diag : {'N', 'U'})
          for (auto [m, n] :
               {std::pair{1, 1}, {3, 5}, {13, 4}, {4, 13}, {70, 9}, {9, 70}, {131, 66}})
            check_trsm(k(), side, uplo, trans, diag, m, n, side == 'L' ? 1.0 : -0.5, r);
}

TEST_P(BranchKernels, TrsmAlphaZeroClearsBWithoutReadingA) {
  const int m = 6, n = 3;
  Matrix b(m, n, m + 1, kMarker);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) b(i, j) = j == 1 ? kNaN : 1.0;
  const double alpha = 0.0;
  for (const char* side : {"L", "R"}) {
    const int order = *side == 'L' ? m : n;
    Matrix aa(order, order, order, kNaN);
    k().xdtrsm(side, "U", "N", "N", &m, &n, &alpha, aa.data(), &aa.ld, b.data(), &b.ld);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < m; ++i) EXPECT_EQ(b(i, j), 0.0);
    expect_margins_kept(b, "trsm alpha 0");
  }
}

TEST_P(BranchKernels, TrsmZeroDiagonalGivesInfinitiesAndDenormalDividesExactly) {
  const int m = 2, n = 1, ld = 2;
  // Lower: x0 = b0 / 0.
  double a[4] = {0.0, 1.0, 0.0, 1.0};
  double b[2] = {1.0, 1.0};
  const double alpha = 1.0;
  k().xdtrsm("L", "L", "N", "N", &m, &n, &alpha, a, &ld, b, &ld);
  EXPECT_TRUE(std::isinf(b[0]));
  EXPECT_FALSE(std::isfinite(b[1]));
  // A denormal on the diagonal: the result is what division gives.
  const double tiny = std::numeric_limits<double>::denorm_min() * 3;
  double ad[4] = {tiny, 0.0, 0.0, 1.0};
  double bd[2] = {tiny * 2, 5.0};
  k().xdtrsm("L", "L", "N", "N", &m, &n, &alpha, ad, &ld, bd, &ld);
  EXPECT_EQ(bd[0], (tiny * 2) / tiny);
  EXPECT_EQ(bd[1], 5.0);
}

TEST_P(BranchKernels, TrsmNeverMultipliesByAnUnsafeReciprocal) {
  // Many right-hand sides, where a leaf with a safe diagonal would be
  // inverted: a zero or a denormal on the diagonal must still divide.
  const int m = 3, n = 40, ld = 3;
  const double tiny = std::numeric_limits<double>::denorm_min() * 5;
  const double alpha = 1.0;
  double a[9] = {2.0, 0.0, 0.0, 0.0, tiny, 0.0, 0.0, 0.0, 4.0};  // diagonal
  std::vector<double> b(m * n);
  for (int j = 0; j < n; ++j) {
    b[0 + j * m] = 2.0;
    b[1 + j * m] = tiny * 3;
    b[2 + j * m] = 8.0;
  }
  k().xdtrsm("L", "L", "N", "N", &m, &n, &alpha, a, &ld, b.data(), &ld);
  for (int j = 0; j < n; ++j) {
    EXPECT_EQ(b[0 + j * m], 1.0);
    EXPECT_EQ(b[1 + j * m], (tiny * 3) / tiny) << "column " << j;
    EXPECT_EQ(b[2 + j * m], 2.0);
  }
  a[4] = 0.0;
  for (int j = 0; j < n; ++j) b[1 + j * m] = 1.0;
  k().xdtrsm("L", "U", "N", "N", &m, &n, &alpha, a, &ld, b.data(), &ld);
  for (int j = 0; j < n; ++j) EXPECT_TRUE(std::isinf(b[1 + j * m])) << "column " << j;
}

// ---- Level 1 ------------------------------------------------------------------

TEST_P(BranchKernels, ScalAxpyCopySwapDotMatchLoopsOnEveryStride) {
  Random r(31);
  for (int n : {0, 1, 2, 3, 7, 16, 17, 33, 100, 1001})
    for (int incx : {1, 2, -1, -3})
      for (int incy : {1, 3, -2}) {
        const int lx = 1 + (n > 0 ? (n - 1) * std::abs(incx) : 0);
        const int ly = 1 + (n > 0 ? (n - 1) * std::abs(incy) : 0);
        std::vector<double> x = random_vector(lx, r), y = random_vector(ly, r);
        auto xi = [&](std::vector<double>& v, int i) -> double& {
          return v[incx > 0 ? i * incx : (n - 1 - i) * -incx];
        };
        auto yi = [&](std::vector<double>& v, int i) -> double& {
          return v[incy > 0 ? i * incy : (n - 1 - i) * -incy];
        };
        // axpy
        std::vector<double> want = y, got = y;
        const double alpha = 0.625;
        for (int i = 0; i < n; ++i) yi(want, i) += alpha * xi(x, i);
        k().xdaxpy(&n, &alpha, x.data(), &incx, got.data(), &incy);
        EXPECT_LE(rel_diff(got, want), 1e-15)
            << "axpy n=" << n << " incx=" << incx << " incy=" << incy;
        // copy
        want = y;
        got = y;
        for (int i = 0; i < n; ++i) yi(want, i) = xi(x, i);
        k().xdcopy(&n, x.data(), &incx, got.data(), &incy);
        EXPECT_EQ(got, want) << "copy n=" << n;
        // dot
        double dot = 0.0;
        for (int i = 0; i < n; ++i) dot += xi(x, i) * yi(y, i);
        EXPECT_NEAR(k().xddot(&n, x.data(), &incx, y.data(), &incy), dot, 1e-13 * (n + 1))
            << "dot n=" << n << " incx=" << incx << " incy=" << incy;
        // swap
        std::vector<double> x2 = x, y2 = y, wx = x, wy = y;
        for (int i = 0; i < n; ++i) std::swap(xi(wx, i), yi(wy, i));
        k().xdswap(&n, x2.data(), &incx, y2.data(), &incy);
        EXPECT_EQ(x2, wx) << "swap n=" << n;
        EXPECT_EQ(y2, wy) << "swap n=" << n;
        // scal (positive strides only)
        if (incx > 0) {
          want = x;
          got = x;
          const double s = -1.75;
          for (int i = 0; i < n; ++i) want[i * incx] *= s;
          k().xdscal(&n, &s, got.data(), &incx);
          EXPECT_EQ(got, want) << "scal n=" << n << " incx=" << incx;
        }
      }
}

TEST_P(BranchKernels, ScalByZeroClearsNaNAndAxpyByZeroLeavesY) {
  std::vector<double> x(37, kNaN);
  const int n = 37, one = 1;
  const double zero = 0.0;
  k().xdscal(&n, &zero, x.data(), &one);
  for (double v : x) EXPECT_EQ(v, 0.0);
  std::vector<double> y(37, kNaN), src(37, 1.0);
  k().xdaxpy(&n, &zero, src.data(), &one, y.data(), &one);
  for (double v : y) EXPECT_TRUE(std::isnan(v));
  EXPECT_EQ(k().xddot(&one, src.data(), &one, src.data(), &one), 1.0);
  const int none = 0, neg = -4;
  EXPECT_EQ(k().xddot(&none, src.data(), &one, src.data(), &one), 0.0);
  EXPECT_EQ(k().xddot(&neg, src.data(), &one, src.data(), &one), 0.0);
}

// ---- IDAMAX -------------------------------------------------------------------

int call_idamax(const Branch& k, const std::vector<double>& x, int inc = 1) {
  const int n = inc > 0 ? static_cast<int>((x.size() + inc - 1) / inc) : static_cast<int>(x.size());
  return k.xidamax(&n, x.data(), &inc);
}

TEST_P(BranchKernels, IdamaxNaNRuleOnShortVectors) {
  EXPECT_EQ(call_idamax(k(), {}), 0);
  EXPECT_EQ(call_idamax(k(), {kNaN}), 1);
  EXPECT_EQ(call_idamax(k(), {-4.0}), 1);
  EXPECT_EQ(call_idamax(k(), {1.0, kNaN, 3.0, kNaN}), 2);
  EXPECT_EQ(call_idamax(k(), {3.0, -3.0, 1.0}), 1);
  EXPECT_EQ(call_idamax(k(), {1.0, kInf, -kInf}), 2);
  EXPECT_EQ(call_idamax(k(), {1.0, -kInf, kInf}), 2);
  EXPECT_EQ(call_idamax(k(), {kInf, kNaN}), 2);
  EXPECT_EQ(call_idamax(k(), {0.0, -0.0, 0.0}), 1);
  const std::vector<double> x = {1.0, 2.0, 3.0};
  const int three = 3, zero = 0, neg = -1;
  EXPECT_EQ(k().xidamax(&three, x.data(), &zero), 0);
  EXPECT_EQ(k().xidamax(&three, x.data(), &neg), 0);
}

TEST_P(BranchKernels, IdamaxFirstNaNAndFirstMaximumAtEveryPositionAndLength) {
  Random r(41);
  for (int n : {2, 3, 5, 8, 9, 16, 17, 18, 31, 32, 33, 64, 65, 100, 257}) {
    std::vector<double> base = random_vector(n, r);
    for (int p = 0; p < n; ++p) {
      // A unique largest value at p, then a tie with a later copy.
      std::vector<double> x = base;
      x[p] = p % 2 ? 9.0 : -9.0;
      EXPECT_EQ(call_idamax(k(), x), p + 1) << "n=" << n << " max at " << p;
      for (int q = p + 1; q < n; q += 3) {
        std::vector<double> y = x;
        y[q] = 9.0;
        ASSERT_EQ(call_idamax(k(), y), p + 1) << "n=" << n << " tie at " << p << "," << q;
      }
      // A NaN at p wins over a larger number anywhere, and over a later NaN.
      std::vector<double> z = base;
      z[p] = kNaN;
      z[(p + 1) % n] = 1e300;
      if (p + 2 < n) z[p + 2] = kNaN;
      ASSERT_EQ(call_idamax(k(), z), p + 1) << "n=" << n << " NaN at " << p;
    }
  }
}

TEST_P(BranchKernels, IdamaxWithStrideAndAtEveryAlignment) {
  Random r(42);
  std::vector<double> storage(300 + 8);
  for (int offset = 0; offset < 8; ++offset) {
    double* x = storage.data() + offset;
    const int n = 150;
    for (int i = 0; i < n * 2; ++i) x[i] = r.uniform();
    x[2 * 77] = -5.0;
    x[2 * 100] = 5.0;
    x[2 * 10 + 1] = 50.0;  // between the strided elements: not seen
    const int two = 2, one = 1;
    EXPECT_EQ(k().xidamax(&n, x, &two), 78) << "offset " << offset;
    const int n2 = 2 * n;
    EXPECT_EQ(k().xidamax(&n2, x, &one), 22) << "offset " << offset;
    x[2 * 120] = kNaN;
    EXPECT_EQ(k().xidamax(&n, x, &two), 121) << "offset " << offset;
  }
}

TEST_P(BranchKernels, IdamaxKeepsTheCallersExceptionFlags) {
  std::vector<double> x(100, 1.0);
  x[37] = kNaN;
  x[60] = 4.0;
  const int n = 100, one = 1;
  std::feclearexcept(FE_ALL_EXCEPT);
  std::feraiseexcept(FE_INEXACT | FE_DIVBYZERO);
  EXPECT_EQ(k().xidamax(&n, x.data(), &one), 38);
  EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), FE_INEXACT | FE_DIVBYZERO);
  std::feclearexcept(FE_ALL_EXCEPT);
  std::feraiseexcept(FE_OVERFLOW);
  x[37] = 2.0;
  EXPECT_EQ(k().xidamax(&n, x.data(), &one), 61);
  EXPECT_TRUE(std::fetestexcept(FE_OVERFLOW));
  std::feclearexcept(FE_ALL_EXCEPT);
}

// ---- Level 2 ------------------------------------------------------------------

void ref_gemv(char trans, int m, int n, double alpha, const Matrix& a, const std::vector<double>& x,
              int incx, double beta, std::vector<double>& y, int incy) {
  const int leny = trans == 'N' ? m : n, lenx = trans == 'N' ? n : m;
  auto xi = [&](int i) { return x[incx > 0 ? i * incx : (lenx - 1 - i) * -incx]; };
  auto yi = [&](int i) -> double& { return y[incy > 0 ? i * incy : (leny - 1 - i) * -incy]; };
  for (int i = 0; i < leny; ++i) {
    double s = 0.0;
    for (int l = 0; l < lenx; ++l) s += (trans == 'N' ? a(i, l) : a(l, i)) * xi(l);
    yi(i) = beta == 0.0 ? alpha * s : alpha * s + beta * yi(i);
  }
}

TEST_P(BranchKernels, GemvMatchesLoopsForBothFormsAndStrides) {
  Random r(51);
  const int mode = 1;
  for (char trans : {'N', 'T'})
    for (auto [m, n] : {std::pair{1, 1}, {7, 3}, {3, 9}, {33, 17}, {130, 5}})
      for (int incx : {1, -2})
        for (int incy : {1, 3, -1})
          for (double beta : {0.0, 1.0, -0.5}) {
            Matrix a = random_matrix(m, n, m + 2, r);
            const int lenx = trans == 'N' ? n : m, leny = trans == 'N' ? m : n;
            std::vector<double> x = random_vector(1 + (lenx - 1) * std::abs(incx), r);
            std::vector<double> y = random_vector(1 + (leny - 1) * std::abs(incy), r);
            if (beta == 0.0)
              for (int i = 0; i < leny; ++i) y[i * std::abs(incy)] = kNaN;
            std::vector<double> want = y;
            const double alpha = 1.25;
            ref_gemv(trans, m, n, alpha, a, x, incx, beta, want, incy);
            const char t[2] = {trans, 0};
            k().xdgemv(t, &m, &n, &alpha, a.data(), &a.ld, x.data(), &incx, &beta, y.data(), &incy,
                       &mode);
            EXPECT_LE(rel_diff(y, want), 1e-13)
                << trans << " m=" << m << " n=" << n << " incx=" << incx << " incy=" << incy
                << " beta=" << beta;
          }
}

// Under a fixed reproducibility mode the product must not depend on where
// the data lie. The mode is fixed once per process, so this runs in a child
// started by GemvReproducibility below.
TEST_P(BranchKernels, GemvGivesTheSameBitsAtEveryAlignmentInAFixedMode) {
  if (tarn_serv_cbwr_get(1) == TARN_CBWR_OFF) GTEST_SKIP() << "needs a fixed reproducibility mode";
  Random r(52);
  const int m = 203, n = 37, lda = 211, mode = 1, one = 1;
  std::vector<double> a0(lda * n), x0(m), y0(m);
  for (double& v : a0) v = r.uniform();
  for (double& v : x0) v = r.uniform();
  for (double& v : y0) v = r.uniform();
  const double alpha = 0.3, beta = 0.7;
  for (char trans : {'N', 'T'}) {
    const int leny = trans == 'N' ? m : n;
    std::vector<double> first;
    for (int offset = 0; offset < 8; ++offset) {
      std::vector<double> a(a0.size() + 8), x(m + 8), y(m + 8);
      std::copy(a0.begin(), a0.end(), a.begin() + offset);
      std::copy(x0.begin(), x0.end(), x.begin() + (7 - offset));
      std::copy(y0.begin(), y0.end(), y.begin() + offset);
      const char t[2] = {trans, 0};
      k().xdgemv(t, &m, &n, &alpha, a.data() + offset, &lda, x.data() + (7 - offset), &one, &beta,
                 y.data() + offset, &one, &mode);
      std::vector<double> got(y.begin() + offset, y.begin() + offset + leny);
      if (offset == 0) {
        first = got;
        continue;
      }
      for (int i = 0; i < leny; ++i)
        ASSERT_TRUE(same_bits(got[i], first[i])) << trans << " offset " << offset << " i " << i;
    }
  }
}

TEST(GemvReproducibility, HoldsOnEveryBranchInAProcessWithAFixedMode) {
  char self[4096];
  const ssize_t len = readlink("/proc/self/exe", self, sizeof self - 1);
  ASSERT_GT(len, 0);
  self[len] = '\0';
  const testsupport::RunResult r = testsupport::run_program(
      self, {"--gtest_filter=*GemvGivesTheSameBitsAtEveryAlignmentInAFixedMode*"}, "",
      {"TARN_CBWR=COMPATIBLE"});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(r.out.find("needs a fixed reproducibility mode"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("PASSED"), std::string::npos) << r.out;
}

TEST_P(BranchKernels, GemmgerIsTheRankOneUpdate) {
  Random r(61);
  for (int m : {1, 5, 16, 29})
    for (int n : {1, 4, 9})
      for (int incx : {1, 2, -1})
        for (int incy : {1, -3})
          for (double beta : {0.0, 1.0, 2.5}) {
            Matrix c = random_matrix(m, n, m + 1, r);
            if (beta == 0.0) c(0, 0) = kNaN;
            std::vector<double> x = random_vector(1 + (m - 1) * std::abs(incx), r);
            std::vector<double> y = random_vector(1 + (n - 1) * std::abs(incy), r);
            Matrix want = c;
            const double alpha = -0.75;
            for (int j = 0; j < n; ++j)
              for (int i = 0; i < m; ++i) {
                const double xv = x[incx > 0 ? i * incx : (m - 1 - i) * -incx];
                const double yv = y[incy > 0 ? j * incy : (n - 1 - j) * -incy];
                want(i, j) = beta == 0.0 ? alpha * xv * yv : beta * want(i, j) + alpha * xv * yv;
              }
            k().xdgemmger("N", "N", &m, &n, &alpha, x.data(), &incx, y.data(), &incy, &beta,
                          c.data(), &c.ld);
            EXPECT_LE(testsupport::max_rel_diff(c, want), 1e-15)
                << "m=" << m << " n=" << n << " beta=" << beta;
            expect_margins_kept(c, "gemmger");
          }
}

TEST_P(BranchKernels, TrsvSolvesAllEightFormsWithAnyStride) {
  Random r(71);
  for (char uplo : {'L', 'U'})
    for (char trans : {'N', 'T'})
      for (char diag : {'N', 'U'})
        for (int n : {1, 2, 5, 33, 70})
          for (int incx : {1, 2, -1, -3}) {
            Matrix a = triangle(n, uplo, diag, r);
            std::vector<double> b = random_vector(n, r);
            std::vector<double> x(1 + (n - 1) * std::abs(incx), kMarker);
            auto xi = [&](int i) -> double& {
              return x[incx > 0 ? i * incx : (n - 1 - i) * -incx];
            };
            for (int i = 0; i < n; ++i) xi(i) = b[i];
            const char u[2] = {uplo, 0}, t[2] = {trans, 0}, d[2] = {diag, 0};
            k().xdtrsv(u, t, d, &n, a.data(), &a.ld, x.data(), &incx);
            std::vector<double> back(n);
            for (int i = 0; i < n; ++i) {
              double s = 0.0;
              for (int l = 0; l < n; ++l) s += op_tri(a, uplo, trans, diag, i, l) * xi(l);
              back[i] = s;
            }
            EXPECT_LE(rel_diff(back, b), 1e-13)
                << uplo << trans << diag << " n=" << n << " incx=" << incx;
            if (std::abs(incx) > 1) {
              for (size_t i = 0; i < x.size(); ++i) {
                if (i % std::abs(incx) != 0) {
                  ASSERT_EQ(x[i], kMarker);
                }
              }
            }
          }
}

TEST_P(BranchKernels, TrsvDividesByAZeroDiagonal) {
  const int n = 2, ld = 2, one = 1;
  double a[4] = {0.0, 1.0, 0.0, 2.0};
  double x[2] = {1.0, 1.0};
  k().xdtrsv("L", "N", "N", &n, a, &ld, x, &one);
  EXPECT_TRUE(std::isinf(x[0]));
}

// ---- Offsets beyond 32 bits ---------------------------------------------------

// Columns, and vector elements, this far apart put the later elements of every
// operand beyond 2^31 elements (and 2^32 bytes) from its start: in a 64-bit
// build the kernels must reach them, with int32 arguments all the same.
constexpr int kFarLd = 400000009;

using testsupport::FarMatrix;

// A far copy of a compact matrix, or of a vector taken as one row (its
// elements kFarLd apart).
std::unique_ptr<FarMatrix> far_copy(const Matrix& a) {
  auto f = std::make_unique<FarMatrix>(a.m, a.n, kFarLd);
  if (f->data() != nullptr) f->load(a);
  return f;
}
Matrix as_row(const std::vector<double>& v) {
  Matrix a(1, static_cast<int>(v.size()));
  for (size_t k = 0; k < v.size(); ++k) a(0, static_cast<int>(k)) = v[k];
  return a;
}

// Every entry, called once on compact operands and once on far ones with
// the same values, must give the same results.
constexpr double kFarAlpha = 0.75, kFarBeta = -0.5;

void check_far_gemm(const Branch& k, int m, int n, int kk, Random& r) {
  // Every transposition.
  for (char ta : {'N', 'T'})
    for (char tb : {'N', 'T'}) {
      Matrix a = random_matrix(ta == 'N' ? m : kk, ta == 'N' ? kk : m, 0, r);
      Matrix b = random_matrix(tb == 'N' ? kk : n, tb == 'N' ? n : kk, 0, r);
      Matrix c = random_matrix(m, n, 0, r);
      auto fa = far_copy(a), fb = far_copy(b), fc = far_copy(c);
      ASSERT_NE(fc->data(), nullptr);
      const char sa[2] = {ta, 0}, sb[2] = {tb, 0};
      k.xdgemm(sa, sb, &m, &n, &kk, &kFarAlpha, a.data(), &a.ld, b.data(), &b.ld, &kFarBeta,
               c.data(), &c.ld);
      k.xdgemm(sa, sb, &m, &n, &kk, &kFarAlpha, fa->data(), &fa->ld, fb->data(), &fb->ld,
               &kFarBeta, fc->data(), &fc->ld);
      EXPECT_LE(testsupport::max_rel_diff(fc->compact(), c), 1e-14)
          << "gemm " << ta << tb << " m=" << m << " n=" << n << " k=" << kk;
    }
}

void check_far_trsm(const Branch& k, int m, int n, Random& r) {
  // Every case.
  for (char side : {'L', 'R'})
    for (char uplo : {'L', 'U'})
      for (char trans : {'N', 'T'})
        for (char diag : {'N', 'U'}) {
          Matrix a = triangle(side == 'L' ? m : n, uplo, diag, r);
          Matrix b = random_matrix(m, n, 0, r);
          auto fa = far_copy(a), fb = far_copy(b);
          ASSERT_NE(fb->data(), nullptr);
          const char sd[2] = {side, 0}, ul[2] = {uplo, 0}, tr[2] = {trans, 0}, dg[2] = {diag, 0};
          k.xdtrsm(sd, ul, tr, dg, &m, &n, &kFarAlpha, a.data(), &a.ld, b.data(), &b.ld);
          k.xdtrsm(sd, ul, tr, dg, &m, &n, &kFarAlpha, fa->data(), &fa->ld, fb->data(), &fb->ld);
          EXPECT_LE(testsupport::max_rel_diff(fb->compact(), b), 1e-13)
              << "trsm " << side << uplo << trans << diag << " m=" << m << " n=" << n;
        }
}

TEST_P(BranchKernels, ReachesOperandsBeyond32BitOffsets) {
  if (!FarMatrix::possible()) GTEST_SKIP() << "a 32-bit address space";
  Random r(81);
  // The larger shapes take several blocks of rows and of depth, and several
  // diagonal blocks of the solve.
  check_far_gemm(k(), 37, 41, 43, r);
  check_far_gemm(k(), 300, 40, 300, r);
  check_far_trsm(k(), 37, 41, r);
  check_far_trsm(k(), 300, 300, r);

  const int m = 37, n = 41;  // columns from 6 on start beyond 2^31 elements
  const double alpha = kFarAlpha, beta = kFarBeta;

  // Matrix-vector forms, with far columns and far vector elements in both
  // directions.
  const int mode = 1;
  for (int sign : {1, -1}) {
    const int near_inc = sign, far_inc = sign * kFarLd;
    for (char trans : {'N', 'T'}) {
      Matrix a = random_matrix(m, n, 0, r);
      Matrix x = as_row(random_vector(trans == 'N' ? n : m, r));
      Matrix y = as_row(random_vector(trans == 'N' ? m : n, r));
      auto fa = far_copy(a), fx = far_copy(x), fy = far_copy(y);
      ASSERT_NE(fy->data(), nullptr);
      const char t[2] = {trans, 0};
      k().xdgemv(t, &m, &n, &alpha, a.data(), &a.ld, x.data(), &near_inc, &beta, y.data(),
                 &near_inc, &mode);
      k().xdgemv(t, &m, &n, &alpha, fa->data(), &fa->ld, fx->data(), &far_inc, &beta, fy->data(),
                 &far_inc, &mode);
      EXPECT_LE(testsupport::max_rel_diff(fy->compact(), y), 1e-14) << "gemv " << trans << sign;
    }
    {
      Matrix c = random_matrix(m, n, 0, r);
      Matrix x = as_row(random_vector(m, r)), y = as_row(random_vector(n, r));
      auto fc = far_copy(c), fx = far_copy(x), fy = far_copy(y);
      ASSERT_NE(fc->data(), nullptr);
      k().xdgemmger("N", "N", &m, &n, &alpha, x.data(), &near_inc, y.data(), &near_inc, &beta,
                    c.data(), &c.ld);
      k().xdgemmger("N", "N", &m, &n, &alpha, fx->data(), &far_inc, fy->data(), &far_inc, &beta,
                    fc->data(), &fc->ld);
      EXPECT_LE(testsupport::max_rel_diff(fc->compact(), c), 1e-14) << "gemmger " << sign;
    }
    for (char uplo : {'L', 'U'})
      for (char trans : {'N', 'T'}) {
        Matrix a = triangle(n, uplo, 'N', r);
        Matrix x = as_row(random_vector(n, r));
        auto fa = far_copy(a), fx = far_copy(x);
        ASSERT_NE(fx->data(), nullptr);
        const char ul[2] = {uplo, 0}, tr[2] = {trans, 0};
        k().xdtrsv(ul, tr, "N", &n, a.data(), &a.ld, x.data(), &near_inc);
        k().xdtrsv(ul, tr, "N", &n, fa->data(), &fa->ld, fx->data(), &far_inc);
        EXPECT_LE(testsupport::max_rel_diff(fx->compact(), x), 1e-14)
            << "trsv " << uplo << trans << sign;
      }

    // Level 1, far elements in both directions (scal takes positive strides).
    Matrix x = as_row(random_vector(n, r)), y = as_row(random_vector(n, r));
    x(0, n - 5) = 9.0;  // the largest, far out in either direction
    auto fx = far_copy(x), fy = far_copy(y);
    ASSERT_NE(fy->data(), nullptr);
    EXPECT_EQ(k().xidamax(&n, fx->data(), &far_inc), k().xidamax(&n, x.data(), &near_inc));
    EXPECT_NEAR(k().xddot(&n, fx->data(), &far_inc, fy->data(), &far_inc),
                k().xddot(&n, x.data(), &near_inc, y.data(), &near_inc), 1e-13);
    k().xdaxpy(&n, &alpha, x.data(), &near_inc, y.data(), &near_inc);
    k().xdaxpy(&n, &alpha, fx->data(), &far_inc, fy->data(), &far_inc);
    EXPECT_LE(testsupport::max_rel_diff(fy->compact(), y), 1e-15) << "axpy " << sign;
    k().xdswap(&n, x.data(), &near_inc, y.data(), &near_inc);
    k().xdswap(&n, fx->data(), &far_inc, fy->data(), &far_inc);
    EXPECT_EQ(testsupport::max_rel_diff(fx->compact(), x), 0.0) << "swap " << sign;
    k().xdcopy(&n, y.data(), &near_inc, x.data(), &near_inc);
    k().xdcopy(&n, fy->data(), &far_inc, fx->data(), &far_inc);
    EXPECT_EQ(testsupport::max_rel_diff(fx->compact(), x), 0.0) << "copy " << sign;
    if (sign > 0) {
      k().xdscal(&n, &beta, x.data(), &near_inc);
      k().xdscal(&n, &beta, fx->data(), &far_inc);
      EXPECT_EQ(testsupport::max_rel_diff(fx->compact(), x), 0.0) << "scal";
    }
  }

  // The scaling of C.
  Matrix c = random_matrix(m, n, 0, r);
  auto fc = far_copy(c);
  ASSERT_NE(fc->data(), nullptr);
  k().dgemm_mscale(&m, &n, &beta, c.data(), &c.ld);
  k().dgemm_mscale(&m, &n, &beta, fc->data(), &fc->ld);
  EXPECT_EQ(testsupport::max_rel_diff(fc->compact(), c), 0.0) << "mscale";
}

// ---- Interface generations and empty entries ------------------------------

TEST_P(BranchKernels, AnswersItsInterfaceGenerations) {
  EXPECT_EQ(k().dgemm_api_support(), k().expected_api_support);
  EXPECT_EQ(k().get_kernel_api_version(), k().expected_kernel_api);
  EXPECT_EQ(k().get_ikernel_api_version(), 1);
  EXPECT_EQ(k().get_bkernel_api_version(), 1);
}

TEST_P(BranchKernels, TeamGemmIsAnEmptyEntryBelowServiceGeneration4) {
  if (k().expected_api_support >= 4) GTEST_SKIP() << "the team entry is real here";
  Matrix c(2, 2, 2, kMarker);
  const int two = 2, ithr = 0, mode = 2;
  const double one = 1.0;
  EXPECT_EQ(k().xdgemm_internal_team("N", "N", &two, &two, &two, &one, c.data(), &two, c.data(),
                                     &two, &one, c.data(), &two, nullptr, &ithr, &mode),
            -1);
  for (double v : c.v) EXPECT_EQ(v, kMarker);
}

}  // namespace
