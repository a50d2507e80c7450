// The level-1 kernels of every branch, called directly, against plain
// loops: every length around the vector, unroll and peel thresholds, every
// placement of the data relative to a 64-byte boundary (and the 4-byte
// misplacement i386 allows), strides other than 1 and negative ones,
// nothing written outside the operands, and the pivot search's rules: the
// first NaN wins, the first of equal maxima wins, and the caller's
// exception flags are what they were.
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kernels/generic/l1_entries.h"
#include "kernels/kernels.h"
#include "tests/kernel_sets.h"
#include "tests/support/test_support.h"

namespace {

using namespace kernel_sets;
using testsupport::Random;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kGuard = -911.5;  // around every operand: must survive each call

// Lengths around the thresholds of the loops: one vector (2, 4, 8), the
// four-vector step, the dot's vector start (16), the peel start (49).
const int kLengths[] = {0,  1,  2,  3,  4,  5,  7,  8,  9,  15, 16,  17,  31,  32,
                        33, 47, 48, 49, 50, 63, 64, 65, 97, 128, 129, 255, 1000};
const int kStrides[] = {1, 2, -1, -3};

struct Branch {
  const char* name;
  bool (*runs_here)();
  tarn_xdscal_fn* xdscal;
  tarn_xdaxpy_fn* xdaxpy;
  tarn_xdcopy_fn* xdcopy;
  tarn_xddot_fn* xddot;
  tarn_xdswap_fn* xdswap;
  tarn_xidamax_fn* xidamax;
};

#define L1_BRANCH(br, runs)                                                                   \
  Branch {                                                                                    \
    #br, runs, tarn_blas_##br##_xdscal, tarn_blas_##br##_xdaxpy, tarn_blas_##br##_xdcopy,     \
        tarn_blas_##br##_xddot, tarn_blas_##br##_xdswap, tarn_blas_##br##_xidamax            \
  }

const Branch kBranches[] = {
    L1_BRANCH(sse2, always), L1_BRANCH(cnr_sse2, always), L1_BRANCH(ssse3, has_ssse3),
    L1_BRANCH(sse42, has_sse42), L1_BRANCH(avx, has_avx), L1_BRANCH(avx2, has_avx2),
    L1_BRANCH(avx512, has_avx512),
};

class Level1 : public kernel_sets::BranchFixture<Branch> {};

INSTANTIATE_TEST_SUITE_P(AllBranches, Level1, ::testing::ValuesIn(kBranches),
                         kernel_sets::branch_name<Branch>);

// A BLAS vector of n elements with stride inc placed `offset` doubles past
// a 64-byte boundary (or, with `half`, 4 bytes further: a double that is
// not 8-byte aligned, legal on i386), with guard cells before and after.
class Placed {
 public:
  Placed(int n, int inc, int offset, bool half = false)
      : n_(n), inc_(inc), span_(n > 0 ? 1 + (n - 1) * std::abs(inc) : 0),
        raw_((span_ + 2 * kPad) * sizeof(double) + 128 + 8) {
    uintptr_t p = reinterpret_cast<uintptr_t>(raw_.data());
    p = (p + 63) / 64 * 64 + static_cast<uintptr_t>(offset) * sizeof(double) + (half ? 4 : 0);
    base_ = reinterpret_cast<unsigned char*>(p);
    for (int i = -kPad; i < span_ + kPad; ++i) set_raw(i, kGuard);
  }
  // The BLAS pointer: the lowest address of the walk.
  double* data() { return reinterpret_cast<double*>(base_ + kPad * sizeof(double)); }
  // Element i of the walk (negative strides start at the far end).
  double get(int i) const { return get_raw(raw_index(i)); }
  void set(int i, double v) { set_raw(raw_index(i), v); }
  std::vector<double> values() const {
    std::vector<double> v(n_);
    for (int i = 0; i < n_; ++i) v[i] = get(i);
    return v;
  }
  void fill(const std::vector<double>& v) {
    for (int i = 0; i < n_; ++i) set(i, v[i]);
  }
  // Every cell that is not an element of the walk still holds the guard.
  bool guards_kept() const {
    for (int i = -kPad; i < span_ + kPad; ++i) {
      const bool element = i >= 0 && i < span_ && i % std::abs(inc_) == 0;
      if (!element && std::memcmp(&kGuardBits, bytes(i), sizeof(double)) != 0) return false;
    }
    return true;
  }

 private:
  static constexpr int kPad = 9;
  static constexpr double kGuardBits = kGuard;
  int raw_index(int i) const { return inc_ > 0 ? i * inc_ : (n_ - 1 - i) * -inc_; }
  const unsigned char* bytes(int r) const { return base_ + (kPad + r) * sizeof(double); }
  double get_raw(int r) const {
    double v;
    std::memcpy(&v, bytes(r), sizeof v);
    return v;
  }
  void set_raw(int r, double v) { std::memcpy(base_ + (kPad + r) * sizeof(double), &v, sizeof v); }
  int n_, inc_, span_;
  std::vector<unsigned char> raw_;
  unsigned char* base_ = nullptr;
};

std::vector<double> random_values(int n, Random& r) {
  std::vector<double> v(n);
  for (double& x : v) x = r.uniform();
  return v;
}

// One axpy element, rounded once (fused) or twice: both are right.
bool axpy_close(double got, double alpha, double x, double y) {
  return got == std::fma(alpha, x, y) || got == alpha * x + y;
}

// Placements: every double offset from a 64-byte boundary, then 4 bytes off.
struct Placement {
  int offset;
  bool half;
};
std::vector<Placement> placements() {
  std::vector<Placement> p;
  for (int o = 0; o < 8; ++o) p.push_back({o, false});
  p.push_back({0, true});
  p.push_back({3, true});
  return p;
}

// ---- scal, axpy, copy, swap ----------------------------------------------

TEST_P(Level1, ScalMatchesLoopsAtEveryPlacementLengthAndStride) {
  Random r(101);
  for (const Placement& pl : placements())
    for (int n : kLengths)
      for (int inc : {1, 2, 3}) {
        Placed x(n, inc, pl.offset, pl.half);
        const std::vector<double> v = random_values(n, r);
        x.fill(v);
        const double alpha = -1.375;
        k().xdscal(&n, &alpha, x.data(), &inc);
        for (int i = 0; i < n; ++i)
          ASSERT_EQ(x.get(i), alpha * v[i]) << "n " << n << " inc " << inc << " at " << pl.offset;
        ASSERT_TRUE(x.guards_kept()) << "n " << n << " inc " << inc << " at " << pl.offset;
      }
}

TEST_P(Level1, ScalByZeroStoresZerosOverNaNAndNonPositiveStridesDoNothing) {
  for (const Placement& pl : placements())
    for (int n : {1, 7, 49, 100}) {
      Placed x(n, 1, pl.offset, pl.half);
      for (int i = 0; i < n; ++i) x.set(i, i % 2 ? kNaN : kInf);
      const double zero = 0.0;
      const int one = 1;
      k().xdscal(&n, &zero, x.data(), &one);
      for (int i = 0; i < n; ++i) ASSERT_TRUE(same_bits(x.get(i), 0.0)) << "n " << n;
      ASSERT_TRUE(x.guards_kept());
    }
  double v[3] = {1.0, 2.0, 3.0};
  const int three = 3, zero_inc = 0, neg = -1, none = 0;
  const double two = 2.0;
  k().xdscal(&three, &two, v, &zero_inc);
  k().xdscal(&three, &two, v, &neg);
  k().xdscal(&none, &two, v, &three);
  EXPECT_EQ(v[0], 1.0);
  EXPECT_EQ(v[2], 3.0);
}

TEST_P(Level1, AxpyCopySwapMatchLoopsAtEveryPlacementLengthAndStride) {
  Random r(102);
  for (const Placement& pl : placements())
    for (int n : kLengths)
      for (int incx : kStrides)
        for (int incy : kStrides) {
          if (incx != 1 && incy != 1 && n > 64) continue;  // the strided walk is one loop
          const std::vector<double> xv = random_values(n, r), yv = random_values(n, r);
          // x sits on another placement than y, so that their offsets differ.
          const int xoff = (pl.offset * 3 + 1) % 8;
          Placed x(n, incx, xoff), y(n, incy, pl.offset, pl.half);
          x.fill(xv);
          y.fill(yv);
          const double alpha = 0.8125;
          k().xdaxpy(&n, &alpha, x.data(), &incx, y.data(), &incy);
          for (int i = 0; i < n; ++i)
            ASSERT_TRUE(axpy_close(y.get(i), alpha, xv[i], yv[i]))
                << "axpy n " << n << " incx " << incx << " incy " << incy << " at " << pl.offset
                << (pl.half ? "+4 bytes" : "") << " element " << i;
          ASSERT_TRUE(y.guards_kept()) << "axpy n " << n << " incy " << incy;
          ASSERT_EQ(x.values(), xv);

          y.fill(yv);
          k().xdcopy(&n, x.data(), &incx, y.data(), &incy);
          ASSERT_EQ(y.values(), xv) << "copy n " << n << " incx " << incx << " incy " << incy;
          ASSERT_TRUE(y.guards_kept()) << "copy n " << n;

          y.fill(yv);
          k().xdswap(&n, x.data(), &incx, y.data(), &incy);
          ASSERT_EQ(y.values(), xv) << "swap n " << n << " incx " << incx << " incy " << incy;
          ASSERT_EQ(x.values(), yv) << "swap n " << n << " incx " << incx << " incy " << incy;
          ASSERT_TRUE(x.guards_kept() && y.guards_kept()) << "swap n " << n;
        }
}

TEST_P(Level1, AxpyByZeroDoesNotReadYAndEmptyCallsTouchNothing) {
  const int n = 60, one = 1, none = 0, neg = -5;
  Placed x(n, 1, 1), y(n, 1, 2);
  for (int i = 0; i < n; ++i) {
    x.set(i, kInf);
    y.set(i, kNaN);
  }
  const double zero = 0.0, alpha = 2.0;
  k().xdaxpy(&n, &zero, x.data(), &one, y.data(), &one);
  for (int i = 0; i < n; ++i) ASSERT_TRUE(std::isnan(y.get(i)));
  for (const int* len : {&none, &neg}) {
    k().xdaxpy(len, &alpha, x.data(), &one, y.data(), &one);
    k().xdcopy(len, x.data(), &one, y.data(), &one);
    k().xdswap(len, x.data(), &one, y.data(), &one);
  }
  for (int i = 0; i < n; ++i) ASSERT_TRUE(std::isnan(y.get(i)) && std::isinf(x.get(i)));
}

TEST_P(Level1, CopyWithZeroStrideBroadcastsAndSwapOfOneElementWorks) {
  double x = 4.5, y[5] = {0, 0, 0, 0, 0};
  const int five = 5, zero = 0, one = 1;
  k().xdcopy(&five, &x, &zero, y, &one);
  for (double v : y) EXPECT_EQ(v, 4.5);
  double a = 1.0, b = 2.0;
  k().xdswap(&one, &a, &one, &b, &one);
  EXPECT_EQ(a, 2.0);
  EXPECT_EQ(b, 1.0);
}

// ---- dot -------------------------------------------------------------------

TEST_P(Level1, DotMatchesLoopsAtEveryPlacementLengthAndStride) {
  Random r(103);
  for (const Placement& pl : placements())
    for (int n : kLengths)
      for (int incx : kStrides)
        for (int incy : kStrides) {
          const std::vector<double> xv = random_values(n, r), yv = random_values(n, r);
          Placed x(n, incx, pl.offset, pl.half), y(n, incy, (pl.offset + 5) % 8);
          x.fill(xv);
          y.fill(yv);
          long double want = 0.0L, mag = 0.0L;
          for (int i = 0; i < n; ++i) {
            want += static_cast<long double>(xv[i]) * yv[i];
            mag += std::fabs(xv[i] * yv[i]);
          }
          const double got = k().xddot(&n, x.data(), &incx, y.data(), &incy);
          ASSERT_LE(std::fabs(got - static_cast<double>(want)), 1e-15 * (n + 1) * static_cast<double>(mag) + 1e-300)
              << "n " << n << " incx " << incx << " incy " << incy << " at " << pl.offset;
        }
  const int none = 0, neg = -3, one = 1;
  const double v = 2.0;
  EXPECT_EQ(k().xddot(&none, &v, &one, &v, &one), 0.0);
  EXPECT_EQ(k().xddot(&neg, &v, &one, &v, &one), 0.0);
  EXPECT_EQ(k().xddot(&one, &v, &one, &v, &one), 4.0);
}

TEST_P(Level1, DotGivesTheSameBitsAtEveryPlacement) {
  Random r(104);
  for (int n : {16, 17, 49, 100, 1000}) {
    const std::vector<double> xv = random_values(n, r), yv = random_values(n, r);
    double first = 0.0;
    for (const Placement& pl : placements()) {
      const int one = 1;
      Placed x(n, 1, pl.offset, pl.half), y(n, 1, 7 - pl.offset);
      x.fill(xv);
      y.fill(yv);
      const double got = k().xddot(&n, x.data(), &one, y.data(), &one);
      if (pl.offset == 0 && !pl.half) first = got;
      ASSERT_TRUE(same_bits(got, first)) << "n " << n << " at " << pl.offset;
    }
  }
}

// ---- idamax ----------------------------------------------------------------

// The plain rule: first NaN, else first of the largest |x|; 1-based.
int ref_idamax(const std::vector<double>& v) {
  if (v.empty()) return 0;
  int best = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    if (std::isnan(v[i])) return static_cast<int>(i) + 1;
    if (std::fabs(v[i]) > std::fabs(v[best])) best = static_cast<int>(i);
  }
  return best + 1;
}

int idamax_at(const Branch& b, const std::vector<double>& v, int inc, Placement pl) {
  const int n = static_cast<int>(v.size());
  Placed x(n, inc, pl.offset, pl.half);
  x.fill(v);
  return b.xidamax(&n, x.data(), &inc);
}

TEST_P(Level1, IdamaxEdgeCasesOfTheRule) {
  const Placement p0{0, false};
  EXPECT_EQ(idamax_at(k(), {}, 1, p0), 0);
  EXPECT_EQ(idamax_at(k(), {kNaN}, 1, p0), 1);
  EXPECT_EQ(idamax_at(k(), {1.0, kNaN, 3.0, kNaN}, 1, p0), 2);
  EXPECT_EQ(idamax_at(k(), {3.0, -3.0, 1.0}, 1, p0), 1);
  EXPECT_EQ(idamax_at(k(), {2.0, kInf, -kInf}, 1, p0), 2);
  EXPECT_EQ(idamax_at(k(), {2.0, -kInf, kInf}, 1, p0), 2);
  EXPECT_EQ(idamax_at(k(), {-0.0, 0.0}, 1, p0), 1);
  const double tiny = std::numeric_limits<double>::denorm_min();
  EXPECT_EQ(idamax_at(k(), {tiny, -2 * tiny, 2 * tiny}, 1, p0), 2);
  const double x[3] = {1.0, 5.0, 2.0};
  const int three = 3, zero = 0, neg = -1;
  EXPECT_EQ(k().xidamax(&three, x, &zero), 0);
  EXPECT_EQ(k().xidamax(&three, x, &neg), 0);
}

TEST_P(Level1, IdamaxFirstMaximumAndFirstNaNAtEveryPlacementAndLength) {
  Random r(105);
  for (const Placement& pl : placements())
    for (int n : kLengths) {
      if (n < 2 || n > 300) continue;
      const std::vector<double> base = random_values(n, r);
      for (int p = 0; p < n; p += (n > 40 ? 7 : 1)) {
        std::vector<double> v = base;
        v[p] = p % 2 ? 7.0 : -7.0;
        for (int q = p + 1; q < n; q += 5) v[q] = (q % 3) ? 7.0 : -7.0;  // later equal maxima
        ASSERT_EQ(idamax_at(k(), v, 1, pl), p + 1) << "n " << n << " max at " << p << " placed " << pl.offset;
        std::vector<double> w = base;
        w[p] = kNaN;
        if (p > 0) w[p - 1] = kInf;  // the largest number, just before
        for (int q = p + 2; q < n; q += 4) w[q] = kNaN;
        ASSERT_EQ(idamax_at(k(), w, 1, pl), p + 1) << "n " << n << " NaN at " << p << " placed " << pl.offset;
        ASSERT_EQ(idamax_at(k(), w, 1, pl), ref_idamax(w));
      }
    }
}

// A NaN in the first element is never compared inside the vector loop; it
// must still win whatever length and placement leave no scalar step after.
TEST_P(Level1, IdamaxNaNFirstWinsOnEveryLengthAndPlacement) {
  Random r(109);
  for (const Placement& pl : placements())
    for (int n = 2; n <= 140; ++n) {
      std::vector<double> v = random_values(n, r);
      v[0] = kNaN;
      v[n - 1] = 1e300;
      ASSERT_EQ(idamax_at(k(), v, 1, pl), 1) << "n " << n << " placed " << pl.offset;
      v[0] = -kNaN;
      ASSERT_EQ(idamax_at(k(), v, 1, pl), 1) << "n " << n << " placed " << pl.offset;
    }
}

TEST_P(Level1, IdamaxWithStridesOtherThanOne) {
  Random r(106);
  for (int inc : {2, 3, 7})
    for (int n : {2, 5, 17, 64, 129}) {
      std::vector<double> v = random_values(n, r);
      v[n / 2] = -3.0;
      v[n - 1] = 3.0;
      EXPECT_EQ(idamax_at(k(), v, inc, {1, false}), n / 2 + 1) << "inc " << inc << " n " << n;
      v[n - 1] = kNaN;
      EXPECT_EQ(idamax_at(k(), v, inc, {2, false}), n) << "inc " << inc << " n " << n;
    }
}

// The caller's flags, whatever they are, are what the call leaves, on every
// placement and whether or not the data hold a NaN.
TEST_P(Level1, IdamaxLeavesTheCallersExceptionFlags) {
  const int flag_sets[] = {0, FE_INEXACT, FE_INVALID, FE_DIVBYZERO | FE_OVERFLOW,
                           FE_UNDERFLOW | FE_INEXACT, FE_ALL_EXCEPT};
  for (const Placement& pl : placements())
    for (int n : {2, 9, 30, 100})
      for (int nan_at : {-1, 0, n / 2, n - 1})
        for (int flags : flag_sets) {
          std::vector<double> v(n, 1.0);
          v[n / 3] = -4.0;
          v[(n * 2) / 3] = std::numeric_limits<double>::denorm_min();
          if (nan_at >= 0) v[nan_at] = kNaN;
          Placed x(n, 1, pl.offset, pl.half);
          x.fill(v);
          const int one = 1;
          std::feclearexcept(FE_ALL_EXCEPT);
          if (flags) std::feraiseexcept(flags);
          const int got = k().xidamax(&n, x.data(), &one);
          const int after = std::fetestexcept(FE_ALL_EXCEPT);
          std::feclearexcept(FE_ALL_EXCEPT);
          ASSERT_EQ(after, flags) << "n " << n << " NaN at " << nan_at << " placed " << pl.offset;
          ASSERT_EQ(got, ref_idamax(v)) << "n " << n << " NaN at " << nan_at;
        }
}

// ---- the two passes of the 512-bit search --------------------------------

TEST(Avx512PivotPasses, DamaxAndFindIdxOnEveryTailLength) {
  if (!has_avx512()) GTEST_SKIP() << "avx512 does not run here";
  Random r(107);
  for (int n = 1; n <= 80; ++n)
    for (int inc : {1, 2}) {
      std::vector<double> v = random_values(n, r);
      const int p = (n * 7) % n;
      v[p] = -0.75;
      Placed x(n, inc, n % 8);
      x.fill(v);
      const double largest = tarn_blas_avx512_damax(&n, x.data(), &inc);
      EXPECT_EQ(largest, 0.75) << "n " << n;
      EXPECT_EQ(tarn_blas_avx512_dfind_idx(&n, x.data(), &inc, &largest), p + 1) << "n " << n;
      const double absent = 9.0;
      EXPECT_EQ(tarn_blas_avx512_dfind_idx(&n, x.data(), &inc, &absent), 0) << "n " << n;
    }
}

TEST(AvxPivotSearch, NonanFormFindsTheFirstMaximumAndSignalsANaN) {
  Random r(108);
  for (auto* nonan : {tarn_blas_avx_xidamax_nonan, tarn_blas_avx2_xidamax_nonan}) {
    if (nonan == tarn_blas_avx_xidamax_nonan ? !has_avx() : !has_avx2()) continue;
    std::vector<double> v = random_values(77, r);
    v[40] = 2.0;
    v[60] = -2.0;
    const int n = 77, one = 1;
    std::feclearexcept(FE_ALL_EXCEPT);
    EXPECT_EQ(nonan(&n, v.data(), &one), 41);
    EXPECT_EQ(std::fetestexcept(FE_INVALID), 0);
    v[10] = kNaN;
    nonan(&n, v.data(), &one);
    EXPECT_NE(std::fetestexcept(FE_INVALID), 0) << "a NaN must show in the Invalid flag";
    std::feclearexcept(FE_ALL_EXCEPT);
  }
}

}  // namespace
