// The kernel-table GEMM services of avx, sse42 and ssse3 against their
// definitions (table rows, descriptor, block sizes, buffer requests, copy
// layouts, tiles), xdgemm_par against the plain reference for every
// transposition pair and remainder shapes, and the named pieces of the
// fixed driver of sse2 and cnr_sse2.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "kernels/gemm_desc.h"
#include "kernels/generic/gemm_table.h"
#include "kernels/kernels.h"
#include "service/cpu.h"
#include "tests/kernel_sets.h"
#include "tests/support/test_support.h"

namespace {

using namespace testsupport;

constexpr double kTol = 1e-12;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kGemmTableKcMin = 128;
constexpr int kAlignBytes = 128;

// One kernel-table branch: its entries, its table and what its rows must say.
struct TableSet {
  const char* name;
  bool (*runs_here)();
  int mr, nr;  // the tile the rows' copies pack for
  int rows;
  int version_limit;  // 0: always the blocked variant
  const gemm_kernel_row* all;
  int* opt;
  tarn_dgemm_zero_desc_fn* zero_desc;
  tarn_dgemm_get_optimal_kernel_fn* get_optimal_kernel;
  tarn_dgemm_set_blks_size_fn* set_blks_size;
  tarn_dgemm_get_bufs_size_fn* get_bufs_size;
  tarn_xdgemm_par_fn* xdgemm_par;
  int (*num_kernels)(void);
  const gemm_kernel_row* (*get_kernel)(const int*);
  int (*get_kernel_version)(const int*, const int*, const int*, void*);
};

#define TABLE_SET(br, pred, mr, rows, limit)                                                    \
  TableSet {                                                                                    \
    #br, pred, mr, 6, rows, limit, tarn_##br##_d_all_gemm_ker, &tarn_##br##_d_opt_gemm_ker,     \
        tarn_blas_##br##_dgemm_zero_desc, tarn_blas_##br##_dgemm_get_optimal_kernel,            \
        tarn_blas_##br##_dgemm_set_blks_size, tarn_blas_##br##_dgemm_get_bufs_size,             \
        tarn_blas_##br##_xdgemm_par, tarn_blas_##br##_dgemm_num_kernels,                        \
        tarn_blas_##br##_dgemm_get_kernel, tarn_blas_##br##_dgemm_get_kernel_version            \
  }

const TableSet kTableSets[] = {
    TABLE_SET(avx, kernel_sets::has_avx, 4, 1, 0),
    TABLE_SET(sse42, kernel_sets::has_sse42, 2, 1, 6291456),
    TABLE_SET(ssse3, kernel_sets::has_ssse3, 2, 2, 4194304),
};

// The words a row must hold: minima, generation, copy units, buffer kind.
struct RowWords {
  int min[3], generation, copy[3], kind;
};
RowWords expected_row(const std::string& branch, int row) {
  if (branch == "avx") return {{4, 4, 4}, 1, {4, 4, 4}, 106};
  if (branch == "sse42") return {{2, 4, 4}, 1, {2, 4, 4}, 126};
  if (row == 0) return {{2, 2, 2}, 4, {2, 8, 2}, 126};
  return {{2, 4, 4}, 1, {2, 4, 4}, 126};
}

int round_up(int x, int u) { return (x + u - 1) / u * u; }

// A filled descriptor for the processor's row.
gemm_table_desc filled_desc(const TableSet& s, int m, int n, int k) {
  gemm_table_desc d;
  std::memset(&d, 0x5a, sizeof d);
  s.zero_desc(&d);
  s.get_optimal_kernel(&m, &n, &k, &d);
  d.row->get_blks_size(&m, &n, &k, &d);
  return d;
}

class GemmTable : public kernel_sets::BranchFixture<TableSet> {};

TEST_P(GemmTable, RowsHoldTheirWordsAndGetKernelFindsThem) {
  ASSERT_EQ(k().num_kernels(), k().rows);
  for (int i = 0; i < k().rows; ++i) {
    const gemm_kernel_row* r = k().get_kernel(&i);
    ASSERT_EQ(r, &k().all[i]);
    const RowWords w = expected_row(k().name, i);
    EXPECT_EQ(r->min_m, w.min[0]);
    EXPECT_EQ(r->min_n, w.min[1]);
    EXPECT_EQ(r->min_k, w.min[2]);
    EXPECT_EQ(r->generation, w.generation);
    EXPECT_EQ(r->copy_m, w.copy[0]);
    EXPECT_EQ(r->copy_n, w.copy[1]);
    EXPECT_EQ(r->copy_k, w.copy[2]);
    EXPECT_EQ(r->buffer_kind, w.kind);
    EXPECT_NE(r->get_blks_size, nullptr);
    EXPECT_NE(r->get_bufs, nullptr);
    EXPECT_NE(r->ker0, nullptr);
  }
  const int below = -1, above = k().rows;
  EXPECT_EQ(k().get_kernel(&below), nullptr);
  EXPECT_EQ(k().get_kernel(&above), nullptr);
  EXPECT_EQ(k().get_kernel(nullptr), nullptr);
}

TEST_P(GemmTable, ZeroDescAndOptimalKernelChooseTheProcessorsRow) {
  gemm_table_desc d;
  std::memset(&d, 0x5a, sizeof d);
  k().zero_desc(&d);
  EXPECT_EQ(d.row, nullptr);
  EXPECT_EQ(d.mc, 0);
  EXPECT_EQ(d.nc, 0);
  EXPECT_EQ(d.kc, 0);
  const int m = 100, n = 100, kk = 100;
  k().get_optimal_kernel(&m, &n, &kk, &d);
  int want = 0;
  if (std::string(k().name) == "ssse3") want = tarn_serv_cpuhas_sse41() ? 1 : 0;
  EXPECT_EQ(d.kernel, want);
  EXPECT_EQ(*k().opt, want);
  EXPECT_EQ(d.row, k().get_kernel(&want));
}

TEST_P(GemmTable, BlockSizesFollowTheirRulesAndKeepWhatWasSet) {
  for (int row = 0; row < k().rows; ++row) {
    const gemm_kernel_row& r = k().all[row];
    const bool quad = std::string(k().name) == "ssse3" && row == 1;
    const bool plain = std::string(k().name) == "ssse3" && row == 0;
    int64_t sizes[5];
    tarn_serv_cache_info(sizes);
    int mc;
    if (plain)
      mc = 512;
    else if (quad)
      mc = sizes[0] > 0 && sizes[2] <= 3145728 ? 448 : 960;
    else
      mc = sizes[0] > 0 && sizes[3] <= 4194304 ? 384 : 640;
    struct Case {
      int n, k, kc;
    };
    const Case cases[] = {
        {3, 100, kGemmTableKcMin},
        {7, 255, round_up(255, r.min_k)},
        {4999, 256, 256},
        {5001, 300, round_up(150, r.min_k)},
        {64, 511, round_up(255, r.min_k)},
        {9, 512, 256},
        {10, 4000, 256},
    };
    for (const Case& c : cases) {
      gemm_table_desc d{&r, row, 0, 0, 0};
      const int m = 50;
      r.get_blks_size(&m, &c.n, &c.k, &d);
      SCOPED_TRACE(testing::Message() << "row " << row << " n " << c.n << " k " << c.k);
      EXPECT_EQ(d.kc, c.kc);
      EXPECT_EQ(d.mc, mc);
      int nc = std::min(std::max(c.n, r.min_n), 5000);
      if (!plain) nc = round_up(nc, r.min_n);
      EXPECT_EQ(d.nc, nc);
    }
    gemm_table_desc d{&r, row, 0, 0, 0};
    const int mc0 = 33, nc0 = 17, kc0 = 9, m = 1000, n = 1000, kk = 1000;
    k().set_blks_size(&mc0, &nc0, &kc0, &d);
    r.get_blks_size(&m, &n, &kk, &d);
    EXPECT_EQ(d.mc, mc0);
    EXPECT_EQ(d.nc, nc0);
    EXPECT_EQ(d.kc, kc0);
  }
}

TEST_P(GemmTable, KernelVersionWeighsTheBBlockAgainstTheLimit) {
  gemm_table_desc d = filled_desc(k(), 100, 100, 100);
  const int mc = 2048, nc = 768;
  k().set_blks_size(&mc, &nc, nullptr, &d);
  const int m = 1, kk = 768, n_fit = 1024, n_over = 1025;
  // 768 * 8 * 1024 is exactly 6 MiB; 4 MiB is below it.
  const int fit = k().get_kernel_version(&m, &n_fit, &kk, &d);
  const int over = k().get_kernel_version(&m, &n_over, &kk, &d);
  if (k().version_limit == 0) {
    EXPECT_EQ(fit, 2);
    EXPECT_EQ(over, 2);
    return;
  }
  EXPECT_EQ(fit, k().version_limit >= 6291456 ? 4 : 2);
  EXPECT_EQ(over, 2);
  const int small_k = 100;
  EXPECT_EQ(k().get_kernel_version(&m, &n_over, &small_k, &d), 4);
  // A product that wraps negative in 32 bits takes the blocked variant.
  const int big = 60000, bigk = 5000;
  const int bmc = 60000, bnc = 5000;
  k().set_blks_size(&bmc, &bnc, nullptr, &d);
  EXPECT_EQ(k().get_kernel_version(&m, &big, &bigk, &d), 2);
}

TEST_P(GemmTable, BufsSizeIsTheRequestOfTheRowsKind) {
  const int m = 700, n = 900, kk = 700;
  gemm_table_desc d;
  k().zero_desc(&d);
  const int bytes = k().get_bufs_size(&m, &n, &kk, &d);
  const gemm_table_desc f = filled_desc(k(), m, n, kk);
  // A and B each page-aligned plus their offset past the page, the unused
  // third buffer 128-aligned.
  const int a = round_up(f.mc, k().mr) * f.kc * 8, b = round_up(f.nc, k().nr) * f.kc * 8;
  EXPECT_EQ(bytes, (2 << 12) + 1664 + a + (2 << 7) + (2 << 12) + 768 + b);
}

TEST_P(GemmTable, GetBufsCarvesAlignedBuffersInOrderAndRejectsOtherKinds) {
  const gemm_kernel_row& r = k().all[0];
  struct Kind {
    int kind;
    bool a, third, b;
  };
  const Kind kinds[] = {{101, true, false, false}, {102, false, false, true},
                        {104, true, false, true},  {105, true, true, false},
                        {106, true, true, true},   {r.buffer_kind, true, true, true}};
  for (const Kind& kd : kinds) {
    gemm_table_bufs bufs;
    bufs.buf[0] = {1000, 7, 0, nullptr};
    bufs.buf[1] = {24, 6, 8, nullptr};
    bufs.buf[2] = {3000, 12, 768, nullptr};
    ASSERT_EQ(r.get_bufs(&kd.kind, &bufs), 0) << kd.kind;
    const bool used[3] = {kd.a, kd.third, kd.b};
    uintptr_t last = reinterpret_cast<uintptr_t>(bufs.raw);
    for (int i = 0; i < 3; ++i) {
      const uintptr_t p = reinterpret_cast<uintptr_t>(bufs.buf[i].pointer);
      if (!used[i]) {
        EXPECT_EQ(p, 0u) << kd.kind << " buffer " << i;
        continue;
      }
      EXPECT_EQ((p - bufs.buf[i].offset) % ((uintptr_t)1 << bufs.buf[i].align_shift), 0u);
      EXPECT_GE(p, last);
      std::memset(bufs.buf[i].pointer, 0x11, bufs.buf[i].size);  // writable, in the block
      last = p + bufs.buf[i].size;
    }
    tarn_blas_gemm_buffer_deallocate(bufs.raw);
  }
  for (int bad : {0, 99, 103, 107, 125, 127}) {
    gemm_table_bufs bufs{};
    bufs.buf[0] = {1000, 7, 0, nullptr};
    EXPECT_EQ(r.get_bufs(&bad, &bufs), 1) << bad;
    EXPECT_EQ(bufs.raw, nullptr);
  }
}

// op(X)(i, j) of a column-major X.
double op_at(bool trans, const Matrix& x, int i, int j) { return trans ? x(j, i) : x(i, j); }

TEST_P(GemmTable, CopiesLayOutTilePanelsAsDefined) {
  const int rows = 2 * k().mr + 1, depth = 7, cols = k().nr + 3;
  const double mult = -1.5;
  for (int row = 0; row < k().rows; ++row) {
    const gemm_kernel_row& r = k().all[row];
    for (bool trans : {false, true}) {
      // A: rows of op(A) by depth, row panels of mr and the edge panels,
      // depth-major, nothing written past rows * depth.
      const Matrix a = trans ? random_matrix(depth, rows, depth + 2, 11)
                             : random_matrix(rows, depth, rows + 2, 11);
      std::vector<double> dst(rows * depth + 8, kNaN);
      (trans ? r.copyat : r.copyan)(&rows, &depth, a.data(), &a.ld, &mult, dst.data());
      for (int i = 0; i < rows; ++i)
        for (int p = 0; p < depth; ++p)
          ASSERT_EQ(dst[testsupport::packed_offset(i, p, rows, depth, k().mr)],
                    mult * op_at(trans, a, i, p))
              << "A row " << i << " depth " << p << " trans " << trans;
      for (size_t e = rows * depth; e < dst.size(); ++e) ASSERT_TRUE(std::isnan(dst[e]));
      // B: depth by columns of op(B), column panels of nr and the edge.
      const Matrix b = trans ? random_matrix(cols, depth, cols + 1, 12)
                             : random_matrix(depth, cols, depth + 1, 12);
      std::vector<double> bdst(cols * depth + 8, kNaN);
      (trans ? r.copybt : r.copybn)(&depth, &cols, b.data(), &b.ld, &mult, bdst.data());
      for (int p = 0; p < depth; ++p)
        for (int j = 0; j < cols; ++j)
          ASSERT_EQ(bdst[testsupport::packed_offset(j, p, cols, depth, k().nr)],
                    mult * op_at(trans, b, p, j))
              << "B depth " << p << " column " << j << " trans " << trans;
      for (size_t e = cols * depth; e < bdst.size(); ++e) ASSERT_TRUE(std::isnan(bdst[e]));
    }
  }
}

TEST_P(GemmTable, Ker0MultipliesThePackedBlocksWithBeta) {
  const int m = 3 * k().mr + 1, n = 2 * k().nr + 1, kc = 13;
  const Matrix a = random_matrix(m, kc, m, 21), b = random_matrix(kc, n, kc, 22);
  for (int row = 0; row < k().rows; ++row) {
    const gemm_kernel_row& r = k().all[row];
    const double one = 1.0, alpha = 0.75;
    std::vector<double> ap(round_up(m, k().mr) * kc), bp(round_up(n, k().nr) * kc);
    r.copyan(&m, &kc, a.data(), &a.ld, &alpha, ap.data());
    r.copybn(&kc, &n, b.data(), &b.ld, &one, bp.data());
    for (double beta : {0.0, 1.0, -2.0}) {
      Matrix c = random_matrix(m, n, m + 3, 23);
      if (beta == 0.0)
        for (int j = 0; j < n; ++j)
          for (int i = 0; i < m; ++i) c(i, j) = kNaN;
      Matrix want = c;
      ref_dgemm('N', 'N', m, n, kc, alpha, a.data(), a.ld, b.data(), b.ld, beta, want.data(),
                want.ld);
      r.ker0(&m, &n, &kc, ap.data(), bp.data(), &beta, c.data(), &c.ld);
      EXPECT_LT(max_rel_diff(c, want), kTol) << "beta " << beta;
      EXPECT_EQ(c(m, 0), want(m, 0)) << "row below the block untouched";
    }
  }
}

struct Shape {
  int m, n, k;
};

// xdgemm_par with the descriptor as given, against the reference.
void check_par(const TableSet& s, char ta, char tb, Shape sh, double alpha, double beta,
               void* desc) {
  const int lda = (ta == 'N' ? sh.m : sh.k) + 2, ldb = (tb == 'N' ? sh.k : sh.n) + 1;
  const Matrix a = random_matrix(lda - 2, ta == 'N' ? sh.k : sh.m, lda, 31);
  const Matrix b = random_matrix(ldb - 1, tb == 'N' ? sh.n : sh.k, ldb, 32);
  Matrix c = random_matrix(sh.m, sh.n, sh.m + 1, 33, 7.0);
  if (beta == 0.0)
    for (int j = 0; j < sh.n; ++j)
      for (int i = 0; i < sh.m; ++i) c(i, j) = kNaN;
  Matrix want = c;
  ref_dgemm(ta, tb, sh.m, sh.n, sh.k, alpha, a.data(), a.ld, b.data(), b.ld, beta, want.data(),
            want.ld);
  const char cta[2] = {ta, 0}, ctb[2] = {tb, 0};
  s.xdgemm_par(cta, ctb, &sh.m, &sh.n, &sh.k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta,
               c.data(), &c.ld, desc);
  EXPECT_LT(max_rel_diff(c, want), kTol)
      << ta << tb << " " << sh.m << "x" << sh.n << "x" << sh.k << " beta " << beta;
  for (int j = 0; j < sh.n; ++j) ASSERT_EQ(c(sh.m, j), 7.0) << "padding row written";
}

const char kTrans[] = {'N', 'T', 'C'};

TEST_P(GemmTable, ParMatchesTheReferenceForEveryPairAndRemainder) {
  // Remainders of the tile in both directions, several row, column and
  // depth blocks (small blocks set on the descriptor), and the row's
  // minima both met and missed (thin path).
  const Shape shapes[] = {{1, 1, 1},   {2, 4, 4},    {4, 4, 4},    {3, 5, 3},
                          {37, 29, 41}, {64, 48, 300}, {131, 97, 17}};
  for (char ta : kTrans)
    for (char tb : kTrans)
      for (const Shape& sh : shapes)
        for (double beta : {0.0, 1.0, 0.5}) {
          // Every row of the table, whichever this processor would take.
          for (int row = 0; row < k().rows; ++row) {
            gemm_table_desc d{&k().all[row], row, 0, 0, 0};
            d.row->get_blks_size(&sh.m, &sh.n, &sh.k, &d);
            check_par(k(), ta, tb, sh, 1.25, beta, &d);
          }
          const int mc = 10, nc = 14, kc = 7;
          gemm_table_desc small;
          k().zero_desc(&small);
          k().set_blks_size(&mc, &nc, &kc, &small);
          check_par(k(), ta, tb, sh, -0.5, beta, &small);
        }
}

TEST_P(GemmTable, ParCompletesAnEmptyOrMissingDescriptor) {
  gemm_table_desc d;
  k().zero_desc(&d);
  check_par(k(), 'N', 'T', {45, 33, 260}, 2.0, 1.0, &d);
  check_par(k(), 'T', 'N', {45, 33, 260}, 2.0, 0.0, nullptr);
}

TEST_P(GemmTable, ParAlphaZeroOnlyScalesAndBetaZeroClearsNaN) {
  const int m = 20, n = 20, kk = 20;
  Matrix a(m, kk, m, 1.0), b(kk, n, kk, 1.0), c(m, n, m, kNaN);
  const double zero = 0.0, one = 1.0;
  gemm_table_desc d = filled_desc(k(), m, n, kk);
  k().xdgemm_par("N", "N", &m, &n, &kk, &zero, a.data(), &a.ld, b.data(), &b.ld, &zero, c.data(),
                 &c.ld, &d);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) ASSERT_EQ(c(i, j), 0.0);
  Matrix c1(m, n, m, kNaN);
  k().xdgemm_par("N", "N", &m, &n, &kk, &zero, a.data(), &a.ld, b.data(), &b.ld, &one, c1.data(),
                 &c1.ld, &d);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) ASSERT_TRUE(std::isnan(c1(i, j)));
}

// Pack buffers that cannot be had: the thin path gives the same product.
class NoPackMemory {
 public:
  NoPackMemory() : alloc_(tarn_blas_gemm_buffer_allocate) {
    tarn_blas_gemm_buffer_allocate = [](size_t, int) -> void* { return nullptr; };
  }
  ~NoPackMemory() { tarn_blas_gemm_buffer_allocate = alloc_; }
  NoPackMemory(const NoPackMemory&) = delete;
  NoPackMemory& operator=(const NoPackMemory&) = delete;

 private:
  void* (*alloc_)(size_t, int);
};

TEST_P(GemmTable, ParFallsBackToTheThinPathWithoutMemory) {
  NoPackMemory guard;
  gemm_table_desc d = filled_desc(k(), 50, 40, 30);
  check_par(k(), 'T', 'T', {50, 40, 30}, 1.0, 0.0, &d);
  check_par(k(), 'N', 'N', {50, 40, 30}, 1.0, 3.0, &d);
}

INSTANTIATE_TEST_SUITE_P(Branches, GemmTable, ::testing::ValuesIn(kTableSets),
                         kernel_sets::branch_name<TableSet>);

// ---- The fixed driver of sse2 and cnr_sse2 -----------------------------------

struct FixedSet {
  const char* name;
  bool (*runs_here)();
  void (*zerom)(const int*, const int*, double*, const int*);
  void (*scalm)(const int*, const int*, const double*, double*, const int*);
  gemm_table_copy_fn* copybt;
  tarn_xdgemm_fn* pst;
  tarn_xdgemm_fn* xdgemm;
};

#define FIXED_SET(br)                                                                         \
  FixedSet {                                                                                  \
    #br, kernel_sets::always, tarn_blas_##br##_dgemm_zerom, tarn_blas_##br##_dgemm_scalm,     \
        tarn_blas_##br##_dgemm_copybt, tarn_blas_##br##_dgemm_pst, tarn_blas_##br##_xdgemm    \
  }

const FixedSet kFixedSets[] = {FIXED_SET(sse2), FIXED_SET(cnr_sse2)};

class GemmFixed : public kernel_sets::BranchFixture<FixedSet> {};

TEST_P(GemmFixed, ZeromAndScalmTouchOnlyTheBlock) {
  const int m = 5, n = 4;
  Matrix c(m + 1, n, m + 1, kNaN);
  for (int j = 0; j < n; ++j) c(m, j) = 9.0;
  k().zerom(&m, &n, c.data(), &c.ld);
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < m; ++i) ASSERT_EQ(c(i, j), 0.0);
    ASSERT_EQ(c(m, j), 9.0);
  }
  Matrix s = random_matrix(m, n, m + 1, 41, 9.0), want = s;
  const double beta = -3.0;
  k().scalm(&m, &n, &beta, s.data(), &s.ld);
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < m; ++i) ASSERT_EQ(s(i, j), beta * want(i, j));
    ASSERT_EQ(s(m, j), 9.0);
  }
  const double zero = 0.0;
  Matrix z(m, n, m, kNaN);
  k().scalm(&m, &n, &zero, z.data(), &z.ld);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) ASSERT_EQ(z(i, j), 0.0);
}

TEST_P(GemmFixed, CopybtLaysOutColumnPanelsOfTheTransposedB) {
  constexpr int kNr = 6;
  const int depth = 9, cols = kNr + 4;
  const double mult = 2.0;
  const Matrix b = random_matrix(cols, depth, cols + 2, 42);
  std::vector<double> dst(cols * depth + 8, kNaN);
  k().copybt(&depth, &cols, b.data(), &b.ld, &mult, dst.data());
  for (int p = 0; p < depth; ++p)
    for (int j = 0; j < cols; ++j)
      ASSERT_EQ(dst[testsupport::packed_offset(j, p, cols, depth, kNr)], mult * b(j, p));
  for (size_t e = cols * depth; e < dst.size(); ++e) ASSERT_TRUE(std::isnan(dst[e]));
}

TEST_P(GemmFixed, PstAndXdgemmMatchTheReference) {
  const Shape shapes[] = {{1, 1, 1}, {3, 2, 5}, {13, 7, 300}, {61, 53, 29}};
  for (char ta : kTrans)
    for (char tb : kTrans)
      for (const Shape& sh : shapes)
        for (double beta : {0.0, 0.5}) {
          for (tarn_xdgemm_fn* f : {k().pst, k().xdgemm}) {
            const int lda = ta == 'N' ? sh.m : sh.k, ldb = tb == 'N' ? sh.k : sh.n;
            const Matrix a = random_matrix(lda, ta == 'N' ? sh.k : sh.m, lda, 51);
            const Matrix b = random_matrix(ldb, tb == 'N' ? sh.n : sh.k, ldb, 52);
            Matrix c = random_matrix(sh.m, sh.n, sh.m, 53);
            if (beta == 0.0)
              for (int j = 0; j < sh.n; ++j)
                for (int i = 0; i < sh.m; ++i) c(i, j) = kNaN;
            Matrix want = c;
            const double alpha = 0.5;
            ref_dgemm(ta, tb, sh.m, sh.n, sh.k, alpha, a.data(), a.ld, b.data(), b.ld, beta,
                      want.data(), want.ld);
            const char cta[2] = {ta, 0}, ctb[2] = {tb, 0};
            f(cta, ctb, &sh.m, &sh.n, &sh.k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta,
              c.data(), &c.ld);
            EXPECT_LT(max_rel_diff(c, want), kTol)
                << ta << tb << " " << sh.m << "x" << sh.n << "x" << sh.k;
          }
        }
}

INSTANTIATE_TEST_SUITE_P(Branches, GemmFixed, ::testing::ValuesIn(kFixedSets),
                         kernel_sets::branch_name<FixedSet>);

}  // namespace
