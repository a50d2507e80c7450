// The level-2 kernels of every branch, called directly, against plain
// loops: the matrix-vector product in both forms and its fixed-order form
// (the same bits at every placement of the data), the beta 0 and alpha 0
// rules, the rank-one update, and the triangular solve, each of its eight
// leaves by itself and the blocked driver over them, with strides other
// than 1 and negative ones.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kernels/generic/l2_entries.h"
#include "kernels/kernels.h"
#include "service/cpu.h"
#include "tests/kernel_sets.h"
#include "tests/support/test_support.h"

namespace {

using namespace kernel_sets;
using testsupport::Random;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kGuard = -911.5;  // outside the operands: must survive each call

struct Branch {
  const char* name;
  bool (*runs_here)();
  tarn_xdgemv_fn* xdgemv;
  tarn_xdgemv_fn* xdgemv_cnr;
  tarn_xdgemmger_fn* xdgemmger;
  tarn_xdtrsv_fn* xdtrsv;
  tarn_dtrsv_leaf_fn* leaf[8];  // utu utn unu unn ltu ltn lnu lnn
};

#define L2_BRANCH(br, runs)                                                                        \
  Branch {                                                                                         \
    #br, runs, tarn_blas_##br##_xdgemv, tarn_blas_##br##_xdgemv_cnr, tarn_blas_##br##_xdgemmger,   \
        tarn_blas_##br##_xdtrsv,                                                                   \
        {tarn_blas_##br##_dtrsv_utu, tarn_blas_##br##_dtrsv_utn, tarn_blas_##br##_dtrsv_unu,       \
         tarn_blas_##br##_dtrsv_unn, tarn_blas_##br##_dtrsv_ltu, tarn_blas_##br##_dtrsv_ltn,       \
         tarn_blas_##br##_dtrsv_lnu, tarn_blas_##br##_dtrsv_lnn }                                  \
  }

const Branch kBranches[] = {
    L2_BRANCH(sse2, always), L2_BRANCH(cnr_sse2, always), L2_BRANCH(ssse3, has_ssse3),
    L2_BRANCH(sse42, has_sse42), L2_BRANCH(avx, has_avx), L2_BRANCH(avx2, has_avx2),
    L2_BRANCH(avx512, has_avx512),
};

class Level2 : public kernel_sets::BranchFixture<Branch> {};

INSTANTIATE_TEST_SUITE_P(AllBranches, Level2, ::testing::ValuesIn(kBranches),
                         kernel_sets::branch_name<Branch>);

// Doubles placed `offset` elements past a 64-byte boundary, guards around.
class Placed {
 public:
  Placed(size_t count, int offset) : count_(count), raw_(count + 2 * kPad + 16, kGuard) {
    uintptr_t p = reinterpret_cast<uintptr_t>(raw_.data() + kPad);
    p = (p + 63) / 64 * 64 + static_cast<uintptr_t>(offset) * sizeof(double);
    data_ = reinterpret_cast<double*>(p);
  }
  double* data() { return data_; }
  double& operator[](size_t i) { return data_[i]; }
  bool guards_kept() const {
    for (const double* p = raw_.data(); p < data_; ++p)
      if (*p != kGuard) return false;
    for (const double* p = data_ + count_; p < raw_.data() + raw_.size(); ++p)
      if (*p != kGuard) return false;
    return true;
  }

 private:
  static constexpr size_t kPad = 8;
  size_t count_;
  std::vector<double> raw_;
  double* data_;
};

// Element i of a BLAS walk of n elements with stride inc over p.
double& at(double* p, int n, int inc, int i) {
  return p[inc > 0 ? static_cast<ptrdiff_t>(i) * inc : static_cast<ptrdiff_t>(n - 1 - i) * -inc];
}
size_t span(int n, int inc) { return n > 0 ? 1 + static_cast<size_t>(n - 1) * std::abs(inc) : 0; }

// ---- DGEMV -------------------------------------------------------------------

struct GemvCase {
  char trans;
  int m, n, lda, incx, incy;
  double alpha, beta;
};

// Runs one case on `fn` with A, x, y at the given offsets; returns y (the
// walk's elements) and checks that nothing outside y was written. beta 0
// fills y with NaN first: it must not be read.
std::vector<double> run_gemv(tarn_xdgemv_fn* fn, const GemvCase& c, const std::vector<double>& a,
                             const std::vector<double>& x, const std::vector<double>& y,
                             int aoff, int xoff, int yoff) {
  const bool t = c.trans != 'N' && c.trans != 'n';
  const int lenx = t ? c.m : c.n, leny = t ? c.n : c.m;
  Placed pa(a.size(), aoff), px(span(lenx, c.incx), xoff), py(span(leny, c.incy), yoff);
  for (size_t i = 0; i < a.size(); ++i) pa[i] = a[i];
  for (int i = 0; i < lenx; ++i) at(px.data(), lenx, c.incx, i) = x[i];
  for (int i = 0; i < leny; ++i) at(py.data(), leny, c.incy, i) = c.beta == 0.0 ? kNaN : y[i];
  const char tr[2] = {c.trans, 0};
  const int mode = 1;
  fn(tr, &c.m, &c.n, &c.alpha, pa.data(), &c.lda, px.data(), &c.incx, &c.beta, py.data(), &c.incy,
     &mode);
  EXPECT_TRUE(py.guards_kept()) << "gemv wrote outside y";
  std::vector<double> out(leny);
  for (int i = 0; i < leny; ++i) out[i] = at(py.data(), leny, c.incy, i);
  return out;
}

// The plain loop, in long double, and a bound of its rounding error.
void ref_gemv(const GemvCase& c, const std::vector<double>& a, const std::vector<double>& x,
              const std::vector<double>& y, std::vector<double>* want, std::vector<double>* tol) {
  const bool t = c.trans != 'N' && c.trans != 'n';
  const int lenx = t ? c.m : c.n, leny = t ? c.n : c.m;
  want->assign(leny, 0.0);
  tol->assign(leny, 0.0);
  for (int i = 0; i < leny; ++i) {
    long double s = 0.0L, mag = 0.0L;
    for (int l = 0; l < lenx; ++l) {
      const double aij = t ? a[l + static_cast<size_t>(i) * c.lda] : a[i + static_cast<size_t>(l) * c.lda];
      s += static_cast<long double>(aij) * x[l];
      mag += std::fabs(aij * x[l]);
    }
    const long double by = c.beta == 0.0 ? 0.0L : static_cast<long double>(c.beta) * y[i];
    (*want)[i] = static_cast<double>(c.alpha * s + by);
    (*tol)[i] = 4e-16 * (lenx + 2) * static_cast<double>(std::fabs(c.alpha) * mag + std::fabs(by)) + 1e-300;
  }
}

void check_gemv(const Branch& b, const GemvCase& c, Random& r, int aoff, int xoff, int yoff) {
  const bool t = c.trans != 'N' && c.trans != 'n';
  const int lenx = t ? c.m : c.n, leny = t ? c.n : c.m;
  std::vector<double> a(static_cast<size_t>(c.lda) * c.n), x(lenx), y(leny);
  for (double& v : a) v = r.uniform();
  for (double& v : x) v = r.uniform();
  for (double& v : y) v = r.uniform();
  std::vector<double> want, tol;
  ref_gemv(c, a, x, y, &want, &tol);
  for (tarn_xdgemv_fn* fn : {b.xdgemv, b.xdgemv_cnr}) {
    const std::vector<double> got = run_gemv(fn, c, a, x, y, aoff, xoff, yoff);
    for (int i = 0; i < leny; ++i)
      ASSERT_LE(std::fabs(got[i] - want[i]), tol[i])
          << (fn == b.xdgemv ? "xdgemv " : "xdgemv_cnr ") << c.trans << " m " << c.m << " n "
          << c.n << " lda " << c.lda << " incx " << c.incx << " incy " << c.incy << " alpha "
          << c.alpha << " beta " << c.beta << " offsets " << aoff << "," << xoff << "," << yoff
          << " element " << i;
  }
}

TEST_P(Level2, GemvMatchesLoopsOnEveryFormShapeAndStride) {
  Random r(201);
  const std::pair<int, int> shapes[] = {{1, 1},  {1, 9},  {9, 1},   {3, 4},   {5, 7},  {16, 5},
                                        {17, 8}, {33, 3}, {48, 13}, {49, 4},  {50, 6}, {64, 9},
                                        {65, 2}, {97, 5}, {130, 11}, {7, 130}, {301, 17}};
  for (char trans : {'N', 'T', 't', 'C'})
    for (auto [m, n] : shapes)
      for (int incx : {1, 2, -1, -3})
        for (int incy : {1, 3, -1})
          for (double beta : {0.0, 1.0, -0.5}) {
            const GemvCase c{trans, m, n, m + (m % 3), incx, incy, 1.25, beta};
            check_gemv(k(), c, r, (m + n) % 8, (m * 3) % 8, n % 8);
          }
}

TEST_P(Level2, GemvMatchesLoopsAtEveryPlacement) {
  Random r(202);
  for (int off = 0; off < 8; ++off)
    for (char trans : {'N', 'T'})
      for (int lda : {131, 136}) {
        const GemvCase c{trans, 129, 23, lda, 1, 1, -0.75, 0.5};
        check_gemv(k(), c, r, off, (off + 3) % 8, (off * 5) % 8);
      }
}

TEST_P(Level2, GemvAlphaZeroOnlyScalesYAndNeverReadsA) {
  for (tarn_xdgemv_fn* fn : {k().xdgemv, k().xdgemv_cnr})
    for (char trans : {'N', 'T'}) {
      const int m = 40, n = 21, lda = 40, one = 1, mode = 1;
      const int leny = trans == 'N' ? m : n;
      std::vector<double> a(lda * n, kNaN), x(60, kNaN), y(leny);
      for (int i = 0; i < leny; ++i) y[i] = i + 1.0;
      const double zero = 0.0, half = 0.5;
      const char t[2] = {trans, 0};
      fn(t, &m, &n, &zero, a.data(), &lda, x.data(), &one, &half, y.data(), &one, &mode);
      for (int i = 0; i < leny; ++i) ASSERT_EQ(y[i], 0.5 * (i + 1.0)) << trans;
      // beta 0 as well: zeros, even over NaN.
      std::fill(y.begin(), y.end(), kNaN);
      fn(t, &m, &n, &zero, a.data(), &lda, x.data(), &one, &zero, y.data(), &one, &mode);
      for (int i = 0; i < leny; ++i) ASSERT_TRUE(same_bits(y[i], 0.0)) << trans;
    }
}

TEST_P(Level2, GemvEmptyShapesTouchNothing) {
  std::vector<double> a(16, 1.0), x(8, 1.0), y(8, kNaN);
  const int four = 4, zero = 0, neg = -1, one = 1, mode = 1;
  const double alpha = 1.0, beta = 0.0;
  for (tarn_xdgemv_fn* fn : {k().xdgemv, k().xdgemv_cnr}) {
    fn("N", &zero, &four, &alpha, a.data(), &four, x.data(), &one, &beta, y.data(), &one, &mode);
    fn("T", &four, &zero, &alpha, a.data(), &four, x.data(), &one, &beta, y.data(), &one, &mode);
    fn("N", &neg, &four, &alpha, a.data(), &four, x.data(), &one, &beta, y.data(), &one, &mode);
  }
  for (double v : y) EXPECT_TRUE(std::isnan(v));
}

// The fixed-order form: copies of the same data at any placement of A, x
// and y give the same bits, in both forms and on every stride.
TEST_P(Level2, GemvFixedOrderGivesTheSameBitsAtEveryPlacement) {
  Random r(203);
  for (char trans : {'N', 'T'})
    for (int lda : {203, 208})
      for (int incx : {1, -2}) {
        const GemvCase c{trans, 203, 37, lda, incx, 1, 0.3, 0.7};
        const bool t = trans == 'T';
        std::vector<double> a(static_cast<size_t>(lda) * c.n), x(t ? c.m : c.n), y(t ? c.n : c.m);
        for (double& v : a) v = r.uniform();
        for (double& v : x) v = r.uniform();
        for (double& v : y) v = r.uniform();
        const std::vector<double> first = run_gemv(k().xdgemv_cnr, c, a, x, y, 0, 0, 0);
        for (int aoff = 0; aoff < 8; ++aoff)
          for (int yoff : {0, 3}) {
            const std::vector<double> got = run_gemv(k().xdgemv_cnr, c, a, x, y, aoff, 7 - aoff, yoff);
            for (size_t i = 0; i < got.size(); ++i)
              ASSERT_TRUE(same_bits(got[i], first[i]))
                  << trans << " lda " << lda << " A at " << aoff << " y at " << yoff << " element " << i;
          }
      }
}

// Under a fixed reproducibility mode the product goes to the fixed-order
// form. The mode is fixed at the first question of a process, so the check
// runs in a fresh process of its own.
TEST_P(Level2, GemvUnderAFixedModeIsTheFixedOrderForm) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const Branch b = k();
  auto body = [b] {
    if (tarn_serv_cbwr_set(TARN_CBWR_COMPATIBLE) != 0 || tarn_serv_cbwr_get(1) != TARN_CBWR_COMPATIBLE)
      std::_Exit(2);
    Random r(204);
    for (char trans : {'N', 'T'}) {
      const GemvCase c{trans, 150, 19, 151, 1, 1, 1.5, 0.25};
      std::vector<double> a(151 * 19), x(150), y(150);
      for (double& v : a) v = r.uniform();
      for (double& v : x) v = r.uniform();
      for (double& v : y) v = r.uniform();
      const std::vector<double> want = run_gemv(b.xdgemv_cnr, c, a, x, y, 0, 0, 0);
      for (int off = 1; off < 8; ++off) {
        const std::vector<double> got = run_gemv(b.xdgemv, c, a, x, y, off, 8 - off, off);
        for (size_t i = 0; i < got.size(); ++i)
          if (!same_bits(got[i], want[i])) std::_Exit(3);
      }
    }
    std::_Exit(0);
  };
  EXPECT_EXIT(body(), ::testing::ExitedWithCode(0), "");
}

// i386 aligns doubles to 4 bytes: operands that never reach a vector
// boundary take the unpeeled loops, and the fixed-order form still gives
// the bits it gives on aligned copies.
TEST_P(Level2, GemvOnOperandsFourBytesOffAVectorBoundary) {
  Random r(208);
  const int m = 157, n = 29, lda = 160, one = 1, mode = 1;
  const double alpha = 0.625, beta = -1.25;
  std::vector<double> a(static_cast<size_t>(lda) * n), x(m), y(m);
  for (double& v : a) v = r.uniform();
  for (double& v : x) v = r.uniform();
  for (double& v : y) v = r.uniform();
  // Byte buffers: each operand starts 4 bytes past a 64-byte boundary.
  auto off4 = [](std::vector<unsigned char>& buf, const std::vector<double>& v) {
    buf.assign(v.size() * sizeof(double) + 64 + 4, 0);
    uintptr_t p = reinterpret_cast<uintptr_t>(buf.data());
    p = (p + 63) / 64 * 64 + 4;
    std::memcpy(reinterpret_cast<void*>(p), v.data(), v.size() * sizeof(double));
    return reinterpret_cast<double*>(p);
  };
  for (char trans : {'N', 'T'}) {
    const char t[2] = {trans, 0};
    const int leny = trans == 'N' ? m : n;
    for (tarn_xdgemv_fn* fn : {k().xdgemv, k().xdgemv_cnr}) {
      std::vector<double> ya = y;
      fn(t, &m, &n, &alpha, a.data(), &lda, x.data(), &one, &beta, ya.data(), &one, &mode);
      std::vector<unsigned char> ba, bx, by;
      double* pa = off4(ba, a);
      double* px = off4(bx, x);
      double* py = off4(by, y);
      fn(t, &m, &n, &alpha, pa, &lda, px, &one, &beta, py, &one, &mode);
      for (int i = 0; i < leny; ++i) {
        double got;
        std::memcpy(&got, reinterpret_cast<unsigned char*>(py) + i * sizeof(double), sizeof got);
        if (fn == k().xdgemv_cnr) {
          ASSERT_TRUE(same_bits(got, ya[i])) << trans << " fixed order, element " << i;
        } else {
          ASSERT_NEAR(got, ya[i], 1e-13) << trans << " element " << i;
        }
      }
    }
  }
}

// ---- rank-one update ---------------------------------------------------------

TEST_P(Level2, GemmgerIsTheRankOneUpdateOnEveryStrideAndRowCount) {
  Random r(205);
  for (int m : {1, 3, 8, 12, 13, 16, 17, 31, 33, 64, 100})
    for (int n : {1, 3, 6})
      for (int incx : {1, 2, -1})
        for (int incy : {1, -2})
          for (double beta : {0.0, 1.0, -1.5})
            for (double alpha : {0.0, 0.625}) {
              const int ldc = m + 3;
              Placed c(static_cast<size_t>(ldc) * n, (m + n) % 8);
              std::vector<double> cv(static_cast<size_t>(ldc) * n);
              for (int j = 0; j < n; ++j)
                for (int i = 0; i < ldc; ++i) {
                  cv[i + j * ldc] = i < m ? (beta == 0.0 ? kNaN : r.uniform()) : kGuard;
                  c[i + j * ldc] = cv[i + j * ldc];
                }
              std::vector<double> x(span(m, incx)), y(span(n, incy));
              for (double& v : x) v = alpha == 0.0 ? kNaN : r.uniform();
              for (double& v : y) v = r.uniform();
              k().xdgemmger("N", "T", &m, &n, &alpha, x.data(), &incx, y.data(), &incy, &beta,
                            c.data(), &ldc);
              for (int j = 0; j < n; ++j)
                for (int i = 0; i < ldc; ++i) {
                  const double got = c[i + j * ldc];
                  if (i >= m) {
                    ASSERT_EQ(got, kGuard) << "wrote below the rows";
                    continue;
                  }
                  double want;
                  if (alpha == 0.0) {
                    want = beta == 0.0 ? 0.0 : beta * cv[i + j * ldc];
                  } else {
                    const double p = alpha * at(y.data(), n, incy, j) * at(x.data(), m, incx, i);
                    want = beta == 0.0 ? p : p + beta * cv[i + j * ldc];
                  }
                  ASSERT_NEAR(got, want, 4e-16 * (std::fabs(want) + 1.0))
                      << "m " << m << " n " << n << " incx " << incx << " incy " << incy
                      << " alpha " << alpha << " beta " << beta << " at " << i << "," << j;
                }
              ASSERT_TRUE(c.guards_kept());
            }
}

TEST_P(Level2, GemmgerAlphaZeroBetaOneLeavesCUnread) {
  std::vector<double> c(12, kNaN), x(4, 1.0), y(3, 1.0);
  const int m = 4, n = 3, one = 1;
  const double zero = 0.0, unit = 1.0;
  k().xdgemmger("N", "N", &m, &n, &zero, x.data(), &one, y.data(), &one, &unit, c.data(), &m);
  for (double v : c) EXPECT_TRUE(std::isnan(v));
}

// ---- triangular solve ------------------------------------------------------

// A well-conditioned triangle in a full array: off-diagonal entries small,
// the diagonal away from zero; a unit diagonal holds NaN, which must never
// be read; the other triangle holds NaN too.
std::vector<double> triangle(int n, int lda, bool lower, bool unit, Random& r) {
  std::vector<double> a(static_cast<size_t>(lda) * n, kNaN);
  for (int j = 0; j < n; ++j)
    for (int i = lower ? j : 0; i < (lower ? n : j + 1); ++i)
      a[i + static_cast<size_t>(j) * lda] =
          i == j ? (unit ? kNaN : (1.5 + r.uniform()) * (j % 2 ? -1 : 1)) : r.uniform() / n;
  return a;
}

// op(A) * x, plain loops, with the unit diagonal taken as 1.
std::vector<double> tri_apply(const std::vector<double>& a, int n, int lda, bool lower, bool trans,
                              bool unit, const std::vector<double>& x) {
  std::vector<double> b(n, 0.0);
  for (int i = 0; i < n; ++i) {
    long double s = 0.0L;
    for (int l = 0; l < n; ++l) {
      const int row = trans ? l : i, col = trans ? i : l;
      const bool inside = lower ? row >= col : row <= col;
      if (!inside) continue;
      const double v = row == col && unit ? 1.0 : a[row + static_cast<size_t>(col) * lda];
      s += static_cast<long double>(v) * x[l];
    }
    b[i] = static_cast<double>(s);
  }
  return b;
}

// Solves with `fn` (a leaf or the driver) and checks op(A) x = b back.
template <class Solve>
void check_trsv(Solve solve, int n, bool lower, bool trans, bool unit, int incx, Random& r,
                const std::string& what) {
  const int lda = n + 2;
  const std::vector<double> a = triangle(n, lda, lower, unit, r);
  std::vector<double> xtrue(n);
  for (double& v : xtrue) v = r.uniform() * 4.0;
  const std::vector<double> b = tri_apply(a, n, lda, lower, trans, unit, xtrue);
  Placed x(span(n, incx), n % 8);
  for (int i = 0; i < n; ++i) at(x.data(), n, incx, i) = b[i];
  // Cells between the strided elements keep a marker.
  for (size_t i = 0; i < span(n, incx); ++i)
    if (i % std::abs(incx) != 0) x[i] = kGuard;
  solve(n, a.data(), lda, x.data(), incx);
  for (int i = 0; i < n; ++i)
    ASSERT_NEAR(at(x.data(), n, incx, i), xtrue[i], 1e-12 * (1.0 + std::fabs(xtrue[i])))
        << what << " n " << n << " incx " << incx << " element " << i;
  for (size_t i = 0; i < span(n, incx); ++i)
    if (i % std::abs(incx) != 0) {
      ASSERT_EQ(x[i], kGuard) << what << " wrote between elements";
    }
  ASSERT_TRUE(x.guards_kept()) << what;
}

const char* const kLeafNames[8] = {"utu", "utn", "unu", "unn", "ltu", "ltn", "lnu", "lnn"};

TEST_P(Level2, EachTrsvLeafSolvesItsFormOnEveryOrderAndStride) {
  Random r(206);
  for (int f = 0; f < 8; ++f) {
    const bool lower = f >= 4, trans = (f / 2) % 2 == 0, unit = f % 2 == 0;
    tarn_dtrsv_leaf_fn* leaf = k().leaf[f];
    for (int n = 1; n <= 32; ++n)
      for (int incx : {1, 2, -1, -3})
        check_trsv(
            [leaf](int nn, const double* a, int lda, double* x, int inc) { leaf(&nn, a, &lda, x, &inc); },
            n, lower, trans, unit, incx, r, std::string("dtrsv_") + kLeafNames[f]);
  }
}

TEST_P(Level2, TrsvSolvesAllEightFormsAcrossBlocks) {
  Random r(207);
  const Branch& b = k();
  for (int f = 0; f < 8; ++f) {
    const bool lower = f >= 4, trans = (f / 2) % 2 == 0, unit = f % 2 == 0;
    const char u[2] = {lower ? 'L' : 'u', 0}, t[2] = {trans ? 't' : 'N', 0},
               d[2] = {unit ? 'U' : 'n', 0};
    for (int n : {1, 31, 32, 33, 64, 65, 100, 161})
      for (int incx : {1, 3, -1, -2})
        check_trsv(
            [&](int nn, const double* a, int lda, double* x, int inc) {
              b.xdtrsv(u, t, d, &nn, a, &lda, x, &inc);
            },
            n, lower, trans, unit, incx, r, std::string("xdtrsv ") + kLeafNames[f]);
  }
}

TEST_P(Level2, TrsvDividesTrulyByAZeroOrDenormalDiagonal) {
  const int n = 2, ld = 2, one = 1;
  double a[4] = {0.0, 1.0, 0.0, 2.0};
  double x[2] = {1.0, 1.0};
  k().xdtrsv("L", "N", "N", &n, a, &ld, x, &one);
  EXPECT_TRUE(std::isinf(x[0]));
  const double tiny = std::numeric_limits<double>::denorm_min() * 3;
  double ad[4] = {tiny, 0.0, 0.0, 1.0};
  double xd[2] = {tiny * 2, 5.0};
  k().xdtrsv("U", "T", "N", &n, ad, &ld, xd, &one);
  EXPECT_EQ(xd[0], 2.0);
  EXPECT_EQ(xd[1], 5.0);
}

TEST_P(Level2, TrsvOfOrderZeroOrZeroStrideTouchesNothing) {
  double a[1] = {2.0}, x[1] = {3.0};
  const int zero = 0, one = 1;
  k().xdtrsv("L", "N", "N", &zero, a, &one, x, &one);
  k().xdtrsv("L", "N", "N", &one, a, &one, x, &zero);
  EXPECT_EQ(x[0], 3.0);
}

}  // namespace
