// Timers and rates, the range splitting helpers against plain dealing
// loops, and the Fortran intrinsics.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <complex>
#include <cstring>
#include <thread>
#include <vector>

#include "service/timers.h"
#include "src/vos.h"

namespace {

// ---- Splitting a range ------------------------------------------------------------

struct Share {
  int first, length;
};

Share divide(int t, int nt, int n) {
  Share s{};
  s.first = tarn_serv_divbythreads(&t, &nt, &n, &s.length);
  return s;
}

Share divide_nb(int t, int nt, int n, int block) {
  Share s{};
  s.first = tarn_serv_divbythreadsnb(&t, &nt, &n, &block, &s.length);
  return s;
}

Share divide_tr(int t, int nt, int n, char uplo) {
  Share s{};
  s.first = tarn_serv_divbythreadstr(&t, &nt, &n, &uplo, &s.length);
  return s;
}

// Deals items one by one round the threads and returns the contiguous
// shares of that count.
std::vector<Share> dealt(const std::vector<int>& counts) {
  std::vector<Share> out;
  int at = 0;
  for (int c : counts) {
    out.push_back({at, c});
    at += c;
  }
  return out;
}

TEST(DivByThreads, TenOnFour) {
  const int first[] = {0, 3, 6, 8}, length[] = {3, 3, 2, 2};
  for (int t = 0; t < 4; ++t) {
    Share s = divide(t, 4, 10);
    EXPECT_EQ(s.first, first[t]);
    EXPECT_EQ(s.length, length[t]);
  }
}

TEST(DivByThreads, OutsideThreadsGetNothing) {
  EXPECT_EQ(divide(4, 4, 10).length, 0);
  EXPECT_EQ(divide(4, 4, 10).first, 0);
  EXPECT_EQ(divide(-1, 4, 10).length, 0);
  EXPECT_EQ(divide(1, 1, 10).length, 0);
  EXPECT_EQ(divide(1, 1, 10).first, 0);
  EXPECT_EQ(divide(0, 1, 10).length, 10);
  EXPECT_EQ(divide(0, 1, 10).first, 0);
}

TEST(DivByThreads, MatchesRoundRobinDealing) {
  for (int nt = 1; nt <= 9; ++nt)
    for (int n = 0; n <= 50; ++n) {
      std::vector<int> counts(static_cast<size_t>(nt), 0);
      for (int i = 0; i < n; ++i) ++counts[static_cast<size_t>(i % nt)];
      std::vector<Share> ref = dealt(counts);
      for (int t = 0; t < nt; ++t) {
        Share s = divide(t, nt, n);
        ASSERT_EQ(s.first, ref[t].first) << "t " << t << " nt " << nt << " n " << n;
        ASSERT_EQ(s.length, ref[t].length) << "t " << t << " nt " << nt << " n " << n;
      }
    }
}

TEST(DivByThreadsNb, MatchesBlockDealingWithRemainderOnLastThread) {
  for (int nt = 2; nt <= 6; ++nt)
    for (int block = 1; block <= 9; ++block)
      for (int n = 0; n <= 80; ++n) {
        // Whole blocks round the threads; the partial block to the last one.
        std::vector<int> counts(static_cast<size_t>(nt), 0);
        for (int b = 0; b < n / block; ++b) counts[static_cast<size_t>(b % nt)] += block;
        counts[static_cast<size_t>(nt - 1)] += n % block;
        std::vector<Share> ref = dealt(counts);
        for (int t = 0; t < nt; ++t) {
          Share s = divide_nb(t, nt, n, block);
          ASSERT_EQ(s.first, ref[t].first) << "t " << t << " nt " << nt << " n " << n << " nb " << block;
          ASSERT_EQ(s.length, ref[t].length) << "t " << t << " nt " << nt << " n " << n << " nb " << block;
        }
        EXPECT_EQ(divide_nb(nt, nt, n, block).length, 0);
      }
}

TEST(DivByThreadsNb, OneThreadOrNoBlockFollowsSingleThreadRule) {
  EXPECT_EQ(divide_nb(0, 1, 37, 8).length, 37);
  EXPECT_EQ(divide_nb(1, 1, 37, 8).length, 0);
  EXPECT_EQ(divide_nb(0, 4, 37, 0).length, 37);
  EXPECT_EQ(divide_nb(2, 4, 37, 0).length, 0);
}

// Largest k with k (k + 1) / 2 <= x: the rows of a triangle that hold x.
int triangle_rows_ref(long long x) {
  int k = 0;
  while (static_cast<long long>(k + 1) * (k + 2) / 2 <= x) ++k;
  return k;
}

TEST(DivByThreadsTr, MatchesPlainTriangleCount) {
  for (char uplo : {'U', 'u', 'L', 'x'})
    for (int nt = 1; nt <= 6; ++nt)
      for (int n = 0; n <= 60; ++n) {
        const long long w = static_cast<long long>(n) * (n + 1) / 2 / nt;
        const bool upper = uplo == 'U' || uplo == 'u';
        int at = 0;
        for (int t = 0; t < nt; ++t) {
          int first, end;
          if (nt == 1) {
            first = 0;
            end = n;
          } else if (upper) {
            first = triangle_rows_ref(w * t);
            end = triangle_rows_ref(w * (t + 1));
          } else {
            first = n - triangle_rows_ref(w * (nt - t));
            end = n - triangle_rows_ref(w * (nt - t - 1));
          }
          if (t == 0) first = 0;
          if (t == nt - 1) end = n;
          Share s = divide_tr(t, nt, n, uplo);
          ASSERT_EQ(s.first, first) << uplo << " t " << t << " nt " << nt << " n " << n;
          ASSERT_EQ(s.length, end - first) << uplo << " t " << t << " nt " << nt << " n " << n;
          // Shares are contiguous and cover the triangle.
          EXPECT_EQ(s.first, at);
          at += s.length;
        }
        EXPECT_EQ(at, n);
      }
}

TEST(DivByThreadsTr, OneThreadTakesAll) {
  Share s = divide_tr(0, 1, 25, 'L');
  EXPECT_EQ(s.first, 0);
  EXPECT_EQ(s.length, 25);
}

TEST(DivByThreadsTr, LargeTriangleBalancesElements) {
  const int n = 4000, nt = 4;
  for (char uplo : {'U', 'L'}) {
    for (int t = 0; t < nt; ++t) {
      Share s = divide_tr(t, nt, n, uplo);
      // Elements of rows [first, first + length) of the triangle.
      auto rows_area = [&](int a, int b) {
        auto tri = [](long long k) { return k * (k + 1) / 2; };
        return uplo == 'U' ? tri(b) - tri(a) : tri(n - a) - tri(n - b);
      };
      double share = static_cast<double>(rows_area(s.first, s.first + s.length));
      double even = static_cast<double>(n) * (n + 1) / 2 / nt;
      EXPECT_NEAR(share / even, 1.0, 0.01) << uplo << " t " << t;
    }
  }
}

// ---- Timers and rates ---------------------------------------------------------------

TEST(Dsecnd, NeverDecreasesAndAllEntriesAgree) {
  double prev = dsecnd();
  for (int i = 0; i < 20000; ++i) {
    double t = dsecnd();
    ASSERT_GE(t, prev);
    prev = t;
  }
  double a = tarn_serv_dsecnd();
  double b = tarn_serv_iface_dsecnd();
  double c = tarn_serv_second();
  EXPECT_LE(a, b);
  EXPECT_LE(b, c);
  EXPECT_LT(c - a, 0.1);
}

TEST(Dsecnd, CountsSecondsLikeTheMonotonicClock) {
  double d0 = dsecnd(), w0 = omp_get_wtime();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  double d1 = dsecnd(), w1 = omp_get_wtime();
  EXPECT_NEAR((d1 - d0) / (w1 - w0), 1.0, 0.05);
}

TEST(CpuClocks, NullIsIgnoredAndCounterAdvances) {
  tarn_serv_get_cpu_clocks(nullptr);
  uint64_t a = 0, b = 0;
  tarn_serv_get_cpu_clocks(&a);
  tarn_serv_get_cpu_clocks(&b);
  EXPECT_GT(a, 0u);
  EXPECT_GE(b, a);
}

TEST(Frequency, RatesArePlausible) {
  double clocks = tarn_serv_get_clocks_frequency();
  EXPECT_GT(clocks, 0.2);
  EXPECT_LT(clocks, 10.0);
  EXPECT_EQ(tarn_clocks_freq, clocks);
  EXPECT_EQ(tarn_serv_get_clocks_frequency(), clocks);  // cached

  double core = tarn_serv_get_cpu_frequency();
  EXPECT_GT(core, 0.2);
  EXPECT_LT(core, 10.0);
  EXPECT_NEAR(tarn_cpu_freq * 1e-9, core, 1e-9);

  double nominal = tarn_serv_get_max_cpu_frequency();
  EXPECT_GT(nominal, 0.2);
  EXPECT_LT(nominal, 10.0);
}

TEST(Frequency, FixedLoopIgnoresItsArgument) {
  // The same work whatever is asked: a long request takes no longer.
  auto time_of = [](int count) {
    double best = 1e30;
    for (int i = 0; i < 5; ++i) {
      double t0 = dsecnd();
      fixedloop(count);
      double t = dsecnd() - t0;
      if (t < best) best = t;
    }
    return best;
  };
  double normal = time_of(1000000);
  double asked_more = time_of(100000000);
  EXPECT_LT(asked_more, normal * 3 + 1e-3);
}

std::string brand_tail(const char* text) {
  std::string s(16, ' ');
  size_t len = std::strlen(text);
  s.replace(16 - len, len, text);
  return s;
}

TEST(Frequency, BrandStringForms) {
  EXPECT_DOUBLE_EQ(tarn_serv_brand_frequency(brand_tail("CPU @ 3.40GHz").c_str()), 3.4);
  EXPECT_DOUBLE_EQ(tarn_serv_brand_frequency(brand_tail("CPU @ 2400MHz").c_str()), 2.4);
  EXPECT_DOUBLE_EQ(tarn_serv_brand_frequency(brand_tail("    @ 2.93GHz").c_str()), 2.93);
  EXPECT_DOUBLE_EQ(tarn_serv_brand_frequency(brand_tail("  @ 1.50THz  ").c_str()), 1500.0);
  EXPECT_EQ(tarn_serv_brand_frequency(brand_tail("(R) Processor").c_str()), 0.0);
  EXPECT_EQ(tarn_serv_brand_frequency(brand_tail("@ 3.40KHz").c_str()), 0.0);
  std::string zero(16, '\0');
  zero.replace(6, 7, "3.40GHz");
  EXPECT_EQ(tarn_serv_brand_frequency(zero.c_str()), 0.0);  // a string that ended early
}

// ---- Fortran intrinsics --------------------------------------------------------------

TEST(FortranIntrinsics, SignIntRoundCeil) {
  float a = -3.5f, b = 2.0f, nb = -0.0f;
  EXPECT_EQ(tarn_serv_s_sign(&a, &b), 3.5f);
  EXPECT_EQ(tarn_serv_s_sign(&b, &a), -2.0f);
  EXPECT_EQ(tarn_serv_s_sign(&a, &nb), 3.5f);  // a negative zero counts as zero
  double da = 4.0, db = -1e-300;
  EXPECT_EQ(tarn_serv_d_sign(&da, &db), -4.0);

  const double values[] = {-2.5, -1.5, -0.5, 0.5, 1.5, 2.49, 2.5, 7.0};
  const double anint[] = {-3.0, -2.0, -1.0, 1.0, 2.0, 2.0, 3.0, 7.0};
  const double aint[] = {-2.0, -1.0, -0.0, 0.0, 1.0, 2.0, 2.0, 7.0};
  const int ceiling[] = {-2, -1, 0, 1, 2, 3, 3, 7};
  for (int i = 0; i < 8; ++i) {
    double x = values[i];
    float f = static_cast<float>(x);
    EXPECT_EQ(tarn_serv_d_round(&x), anint[i]) << x;
    EXPECT_EQ(tarn_serv_s_round(&f), static_cast<float>(anint[i])) << x;
    EXPECT_EQ(tarn_serv_d_int(&x), aint[i]) << x;
    EXPECT_EQ(tarn_serv_s_int(&f), static_cast<float>(aint[i])) << x;
    EXPECT_EQ(tarn_serv_int2d_ceil(&x), ceiling[i]) << x;
    EXPECT_EQ(tarn_serv_int2f_ceil(&f), ceiling[i]) << x;
  }
}

TEST(FortranIntrinsics, IntegerPowersMatchRepeatedProduct) {
  for (double base : {2.0, -1.5, 0.5, 3.0})
    for (int n = -8; n <= 12; ++n) {
      double ref = 1.0;
      for (int k = 0; k < std::abs(n); ++k) ref *= base;
      if (n < 0) ref = 1.0 / ref;
      EXPECT_NEAR(tarn_serv_d_powi(&base, &n), ref, 1e-12 * std::fabs(ref)) << base << "^" << n;
      float fb = static_cast<float>(base);
      EXPECT_NEAR(tarn_serv_s_powi(&fb, &n), static_cast<float>(ref), 1e-5f * std::fabs(ref));
    }
  double zero = 0.0;
  int n0 = 0;
  EXPECT_EQ(tarn_serv_d_powi(&zero, &n0), 1.0);
}

TEST(FortranIntrinsics, ComplexAbsAndSqrt) {
  const tarn_complex16 zs[] = {{3.0, 4.0}, {-4.0, 0.0}, {0.0, -2.0}, {-1e-3, 5.0}, {0.0, 0.0},
                               {-2.0, -7.0}};
  for (const tarn_complex16& z : zs) {
    EXPECT_DOUBLE_EQ(tarn_serv_z_abs(&z), std::abs(std::complex<double>(z.re, z.im)));
    tarn_complex16 r;
    tarn_serv_z_sqrt(&r, &z);
    std::complex<double> ref = std::sqrt(std::complex<double>(z.re, z.im));
    EXPECT_NEAR(r.re, ref.real(), 1e-14 * (1 + std::abs(ref)));
    EXPECT_NEAR(r.im, ref.imag(), 1e-14 * (1 + std::abs(ref)));
    EXPECT_GE(r.re, 0.0);  // the principal root

    tarn_complex8 c = {static_cast<float>(z.re), static_cast<float>(z.im)};
    EXPECT_NEAR(tarn_serv_c_abs(&c), std::abs(std::complex<float>(c.re, c.im)), 1e-6f);
    tarn_complex8 rc;
    tarn_serv_c_sqrt(&rc, &c);
    std::complex<float> refc = std::sqrt(std::complex<float>(c.re, c.im));
    EXPECT_NEAR(rc.re, refc.real(), 1e-5f * (1 + std::abs(refc)));
    EXPECT_NEAR(rc.im, refc.imag(), 1e-5f * (1 + std::abs(refc)));
  }
  float x = 0.0f;
  EXPECT_EQ(tarn_serv_s_cos(&x), 1.0f);
}

}  // namespace
