// The GEMM of the LU's thread teams on avx2 and avx512: the mode-4 driver
// on a packed A set of several row and depth blocks, read from any row
// panel on; the team barrier; and the team entry run by real teams of 1 to
// 4 threads sharing one record: allocating, packing and multiplying from a
// ring of 2 slots, the plain split without a ring, and a slot refilled
// while another team reads it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "kernels/gemm_desc.h"
#include "lapack/lu_team.h"
#include "tests/kernel_sets.h"
#include "tests/support/test_support.h"

using testsupport::Matrix;

namespace {

constexpr double kMarker = -7777.0;
const double kNaN = std::numeric_limits<double>::quiet_NaN();

struct TeamBranch {
  const char* name;
  bool (*runs_here)();
  tarn_dgemm_map_thread_to_kernel_fn* map;
  tarn_dgemm_initialize_kernel_info_fn* kernel_info;
  tarn_dgemm_initialize_buffers_fn* buffers;
  tarn_xdgemm_internal_team_fn* team;
  int mr;        // rows of a packed A panel
  int mc;        // the largest row block
};

// The tiles of each target: sixteen and thirty-two registers in 64-bit
// mode, eight in 32-bit mode.
#if defined(__x86_64__)
constexpr int kAvx2Rows = 8, kAvx2Block = 5000, kAvx512Rows = 24, kAvx512Block = 4992;
#else
constexpr int kAvx2Rows = 28, kAvx2Block = 5012, kAvx512Rows = 8, kAvx512Block = 4992;
#endif

const TeamBranch kTeamBranches[] = {
    {"avx2", kernel_sets::has_avx2, tarn_blas_avx2_dgemm_map_thread_to_kernel,
     tarn_blas_avx2_dgemm_initialize_kernel_info, tarn_blas_avx2_dgemm_initialize_buffers,
     tarn_blas_avx2_xdgemm_internal_team, kAvx2Rows, kAvx2Block},
    {"avx512", kernel_sets::has_avx512, tarn_blas_avx512_dgemm_map_thread_to_kernel,
     tarn_blas_avx512_dgemm_initialize_kernel_info, tarn_blas_avx512_dgemm_initialize_buffers,
     tarn_blas_avx512_xdgemm_internal_team, kAvx512Rows, kAvx512Block},
};

void* element_notrans(int i, int j, const blas_matrix* x) {
  return static_cast<double*>(x->base) + i + static_cast<ptrdiff_t>(j) * x->ld;
}
void* element_trans(int i, int j, const blas_matrix* x) {
  return static_cast<double*>(x->base) + j + static_cast<ptrdiff_t>(i) * x->ld;
}

// op(X) of rows x cols on the data of x, as the descriptor layer sees it.
blas_matrix describe(char t, int rows, int cols, double* data, int ld) {
  blas_matrix d{};
  d.base = data;
  d.rows = d.rows2 = rows;
  d.cols = cols;
  d.ld = ld;
  d.element_size = 8;
  d.flags = t == 'N' ? kBlasMatrixNoTrans : kBlasMatrixTrans;
  d.get_pointer = t == 'N' ? element_notrans : element_trans;
  return d;
}

// The branch's depth block of deep products, which is also the deepest
// product of a single block (the avx2 one follows the first-level cache).
int depth_block(const TeamBranch& d) {
  double one = 1.0;
  blas_matrix a = describe('N', 100, 100000, &one, 100);
  blas_matrix b = describe('N', 100000, 100, &one, 100000);
  gemm_thread_opts opts{};
  blas_strategy s{};
  d.map(&opts, &s);
  blas_buffers bufs{};
  d.buffers(&a, &b, &s, &bufs);
  return bufs.kc;
}

// The rows of op(A) that begin at `row` of a matrix stored as op(A) (t 'N')
// or as its transpose.
double* rows_from(char t, Matrix& a, int row) {
  return t == 'N' ? a.data() + row : a.data() + static_cast<ptrdiff_t>(row) * a.ld;
}

double tolerance(int k) { return 16.0 * std::numeric_limits<double>::epsilon() * (k + 4); }

// C outside its m rows keeps the marker.
void expect_padding_kept(const Matrix& c, int m, const std::string& what) {
  for (int j = 0; j < c.n; ++j)
    for (int i = m; i < c.ld; ++i)
      if (c.v[static_cast<size_t>(i) + static_cast<size_t>(j) * c.ld] != kMarker) {
        ADD_FAILURE() << what << ": padding of C written at row " << i << " column " << j;
        return;
      }
}

using DriverFixture = kernel_sets::BranchFixture<TeamBranch>;

// ---- The mode-4 driver on a packed A set -----------------------------------

class GemmPackedASet : public DriverFixture {
 protected:
  // Packs op(A) (M by K) times alpha as a set, one depth block after the
  // other, each with the branch's own copy routine over all M rows (the
  // layout the set promises), then multiplies rows [row0, row0 + m) of it
  // with op(B) (K by n) through the mode-4 driver, B packed into a buffer of
  // the test's (shared_b) or of the driver's own.
  void check(char ta, char tb, int M, int row0, int m, int n, int K, double alpha, double beta,
             bool shared_b, uint64_t seed) {
    const TeamBranch& d = k();
    const std::string what = std::string(d.name) + " " + ta + tb + " M=" + std::to_string(M) +
                             " rows " + std::to_string(row0) + "+" + std::to_string(m) +
                             " n=" + std::to_string(n) + " K=" + std::to_string(K) +
                             " beta=" + std::to_string(beta) + (shared_b ? " shared B" : "");
    SCOPED_TRACE(what);
    Matrix a = ta == 'N' ? testsupport::random_matrix(M, K, M + 3, seed)
                         : testsupport::random_matrix(K, M, K + 1, seed);
    Matrix b = tb == 'N' ? testsupport::random_matrix(K, n, K + 2, seed + 1)
                         : testsupport::random_matrix(n, K, n, seed + 1);
    Matrix c = testsupport::random_matrix(m, n, m + 2, seed + 2, kMarker);
    if (beta == 0.0)
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) c(i, j) = kNaN;
    Matrix want = c;
    testsupport::ref_dgemm(ta, tb, m, n, K, alpha, rows_from(ta, a, row0), a.ld, b.data(), b.ld,
                           beta, want.data(), want.ld);

    blas_op_params op{};
    op.transa = &ta;
    op.transb = &tb;
    // Alpha is in the set: another value here shows that the set was used
    // and A not packed again.
    op.alpha = 1234.5;
    op.beta = beta;
    op.transa_code = ta == 'N' ? 0 : 1;
    op.transb_code = tb == 'N' ? 0 : 1;
    blas_matrix ma = describe(ta, m, K, a.data(), a.ld);
    ma.row_offset = row0;
    blas_matrix mb = describe(tb, K, n, b.data(), b.ld);
    blas_matrix mc = describe('N', m, n, c.data(), c.ld);
    gemm_thread_opts opts{};
    opts.copy_kernel = 1;  // A packed already
    blas_strategy s{};
    d.map(&opts, &s);
    ASSERT_EQ(s.mode, kGemmModeAPacked);
    blas_kernel_info info{};
    d.kernel_info(&op, &ma, &mb, &mc, &s, &info);
    blas_buffers bufs{};
    d.buffers(&ma, &mb, &info.strategy, &bufs);
    const int kc = bufs.kc;

    // No padding anywhere: the depth block at p0 starts at p0 * M, and
    // the doubles past the set stay NaN.
    std::vector<double> set(static_cast<size_t>(M) * K + 64, kNaN);
    // Loop over the depth of the set, kc at a time.
    for (int p0 = 0; p0 < K; p0 += kc) {
      const int depth = K - p0 < kc ? K - p0 : kc;
      const double* src = ta == 'N' ? a.data() + static_cast<ptrdiff_t>(p0) * a.ld : a.data() + p0;
      info.copy_a(M, depth, src, a.ld, alpha, set.data() + static_cast<ptrdiff_t>(p0) * M);
    }
    if (shared_b) {
      ASSERT_EQ(bufs.get_bufs(&bufs), 0);
      ASSERT_NE(bufs.b_desc.pointer, nullptr);
    }
    bufs.a_desc.pointer = set.data();
    bufs.a_desc.block = M;
    bufs.a_desc.kc = kc;
    bufs.a_desc.kc_rounded = K;
    info.driver(&op, &ma, &mb, &mc, &bufs, &info);
    if (shared_b) bufs.free_bufs(&bufs);
    EXPECT_LE(testsupport::max_rel_diff(c, want), tolerance(K));
    expect_padding_kept(c, m, what);
  }
};

TEST_P(GemmPackedASet, OneBlockAsTheOneThreadDriverPacksIt) {
  uint64_t seed = 100;
  for (char ta : {'N', 'T'})
    for (char tb : {'N', 'T'}) {
      check(ta, tb, 45, 0, 45, 33, 70, 1.5, 2.0, true, seed++);
      check(ta, tb, 45, 0, 45, 33, 70, -1.0, 0.0, false, seed++);
    }
}

TEST_P(GemmPackedASet, SeveralDepthBlocks) {
  const int kc = depth_block(k());
  uint64_t seed = 200;
  for (char ta : {'N', 'T'})
    for (char tb : {'N', 'T'}) {
      // Two halves of K just above one block, then three blocks with a
      // short last one.
      check(ta, tb, 61, 0, 61, 19, kc + 7, -1.0, 1.0, seed % 2 == 0, seed);
      ++seed;
      check(ta, tb, 37, 0, 37, 13, 2 * kc + 41, 0.75, 0.0, seed % 2 == 0, seed);
      ++seed;
    }
}

TEST_P(GemmPackedASet, SeveralRowBlocks) {
  const TeamBranch& d = k();
  // Just above the largest row block: a second block of a few rows.
  check('N', 'N', d.mc + 18, 0, d.mc + 18, 40, 20, -1.0, 1.0, true, 300);
  check('T', 'N', d.mc + 18, 0, d.mc + 18, 9, 20, 2.0, 0.0, false, 301);
  // Rows and depth both blocked.
  check('N', 'T', d.mc + 18, 0, d.mc + 18, 7, depth_block(d) + 31, 1.0, 0.5, false, 302);
}

TEST_P(GemmPackedASet, ProductFromARowPanelInsideTheSet) {
  const TeamBranch& d = k();
  const int kc = depth_block(d);
  uint64_t seed = 400;
  for (char ta : {'N', 'T'}) {
    // A share of a team: from the third row panel to the end, and a share
    // that ends inside the set.
    check(ta, 'N', 97, 2 * d.mr, 97 - 2 * d.mr, 11, kc + 5, -1.0, 1.0, true, seed++);
    check(ta, 'T', 5 * d.mr + 3, d.mr, 3 * d.mr, 6, 30, 1.0, 0.0, false, seed++);
    check(ta, 'N', d.mc + 40, d.mr, d.mc, 5, kc + 9, -0.5, 2.0, false, seed++);
    // Rows that end inside a whole panel of the set: its edge panels lie
    // elsewhere, so the product must not read the set there but pack A
    // itself (with the operation's alpha, here the one of the set).
    check(ta, 'N', 5 * d.mr + 3, d.mr, 2 * d.mr + 3, 6, 30, 1234.5, 1.0, true, seed++);
  }
}

TEST_P(GemmPackedASet, EdgeShapes) {
  uint64_t seed = 500;
  // Columns below and around the register tile, rows below one panel.
  for (int n : {1, 2, 5, 6, 7, 8, 15})
    check('N', 'N', 23, 0, 23, n, 17, -1.0, seed % 2 ? 0.0 : 1.0, seed % 3 == 0, seed), ++seed;
  for (int m : {1, 3, 9, 29}) check('N', 'T', m, 0, m, 4, 50, 1.0, 0.0, false, seed++);
}

INSTANTIATE_TEST_SUITE_P(Branches, GemmPackedASet, ::testing::ValuesIn(kTeamBranches),
                         kernel_sets::branch_name<TeamBranch>);

// ---- The team barrier --------------------------------------------------------

// Runs body(ithr) on nthr threads of their own; their answers, by rank.
template <class F>
std::vector<int> run_team(int nthr, F body) {
  std::vector<int> answers(nthr, -99);
  std::vector<std::thread> threads;
  for (int t = 0; t < nthr; ++t)
    threads.emplace_back([&answers, &body, t] { answers[t] = body(t); });
  for (std::thread& th : threads) th.join();
  return answers;
}

// Every member counts itself in before the barrier and checks after it
// that all of this round are in; a second barrier keeps the next round's
// counts out of the check.
void barrier_rounds(tarn_team_barrier* barrier, int nthr, int rounds) {
  std::atomic<int> count{0}, early{0};
  run_team(nthr, [&](int ithr) {
    for (int r = 0; r < rounds; ++r) {
      count.fetch_add(1);
      tarn_barrier_wait(barrier, ithr, nthr);
      if (count.load() != (r + 1) * nthr) early.fetch_add(1);
      tarn_barrier_wait(barrier, ithr, nthr);
    }
    return 0;
  });
  EXPECT_EQ(early.load(), 0) << nthr << " threads: a member left a round before all arrived";
  EXPECT_EQ(count.load(), rounds * nthr);
}

TEST(TeamBarrier, NoMemberLeavesARoundEarly) {
  constexpr int kRounds = 1500;
  for (int nthr = 2; nthr <= 4; ++nthr) {
    tarn_team_barrier barrier{};
    barrier_rounds(&barrier, nthr, kRounds);
    // Each round adds a member's arrival for each member but 0.
    const uint64_t total = 2ull * kRounds * (nthr - 1);
    EXPECT_EQ(barrier.arrive, total);
    EXPECT_EQ(barrier.release, total);
  }
}

TEST(TeamBarrier, CountersCrossThirtyTwoBits) {
  // Started just below 2^32 the counters pass it within a few rounds: the
  // arrival and the comparisons are of 64 bits in a 32-bit build too.
  const uint64_t start = (1ull << 32) - 5;
  tarn_team_barrier barrier{};
  barrier.arrive = barrier.release = start;
  barrier_rounds(&barrier, 3, 20);
  EXPECT_EQ(barrier.arrive, start + 2 * 20 * 2);
  EXPECT_EQ(barrier.release, start + 2 * 20 * 2);
}

TEST(TeamBarrier, ASingleMemberTouchesNothing) {
  tarn_team_barrier barrier{};
  barrier.arrive = 7;
  barrier.release = 3;  // a state no team could leave: any wait would hang
  tarn_barrier_wait(&barrier, 0, 1);
  tarn_barrier_wait(&barrier, 0, 0);
  EXPECT_EQ(barrier.arrive, 7u);
  EXPECT_EQ(barrier.release, 3u);
}

// ---- The team entry -------------------------------------------------------------

// Operands of one team product: op(A) m by k, op(B) k by n, C m by n with
// padding rows that must keep a marker; want is the reference result.
struct Product {
  char ta, tb;
  int m, n, k;
  double alpha, beta;
  Matrix a, b, c, want;
  Matrix a_ref;  // A as it was packed, for the reference

  Product(char ta_, char tb_, int m_, int n_, int k_, double alpha_, double beta_, uint64_t seed)
      : ta(ta_), tb(tb_), m(m_), n(n_), k(k_), alpha(alpha_), beta(beta_) {
    a = ta == 'N' ? testsupport::random_matrix(m, k, m + 1, seed)
                  : testsupport::random_matrix(k, m, k + 3, seed);
    a_ref = a;
    b = tb == 'N' ? testsupport::random_matrix(k, n, k, seed + 1)
                  : testsupport::random_matrix(n, k, n + 2, seed + 1);
    fresh_c(beta, seed + 2);
  }

  // A new C (NaN under beta 0) and its reference result, from the current A.
  void fresh_c(double beta_, uint64_t seed) {
    beta = beta_;
    c = testsupport::random_matrix(m, n, m + 2, seed, kMarker);
    if (beta == 0.0)
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) c(i, j) = kNaN;
    want = c;
    testsupport::ref_dgemm(ta, tb, m, n, k, alpha, a_ref.data(), a_ref.ld, b.data(), b.ld, beta,
                           want.data(), want.ld);
  }

  // Overwrites A where it stands (the reference keeps the old one): a
  // product that still gives `want` took A from the ring.
  void spoil_a() {
    for (double& v : a.v) v = kNaN;
  }

  int call(const TeamBranch& d, tarn_gemm_record* rec, int mode, int ithr) {
    return d.team(&ta, &tb, &m, &n, &k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(),
                  &c.ld, rec, &ithr, &mode);
  }

  std::string describe() const {
    return std::string(1, ta) + tb + " m=" + std::to_string(m) + " n=" + std::to_string(n) +
           " k=" + std::to_string(k) + " beta=" + std::to_string(beta);
  }

  void expect_match(const std::string& what) const {
    EXPECT_LE(testsupport::max_rel_diff(c, want), tolerance(k)) << what << " " << describe();
    expect_padding_kept(c, m, what + " " + describe());
  }
};

// A team's GEMM record as its leader prepares it.
struct TeamRecord {
  tarn_gemm_record r;
  TeamRecord(int nthr, int ring) {
    tarn_gemm_record_init(&r, nthr);
    r.gemm_ring = ring;
  }
};

// All members call the entry in `mode` on the product; the answers by rank.
std::vector<int> team_call(const TeamBranch& d, TeamRecord& rec, int mode, Product& p) {
  return run_team(rec.r.gemm_nthr, [&](int ithr) { return p.call(d, &rec.r, mode, ithr); });
}

std::vector<int> all(int nthr, int answer) { return std::vector<int>(nthr, answer); }

struct Shape {
  int m, n, k;
};

// Frees the ring of a record at the end of a test, whatever happened.
struct RingGuard {
  const TeamBranch& d;
  TeamRecord& rec;
  ~RingGuard() {
    if (rec.r.gemm_shared == nullptr) return;
    Product none('N', 'N', 1, 1, 1, 1.0, 1.0, 1);
    EXPECT_EQ(none.call(d, &rec.r, kGemmTeamEntryFree, 0), 0);
    EXPECT_EQ(rec.r.gemm_shared, nullptr);
  }
};

using GemmTeamEntry = DriverFixture;

TEST_P(GemmTeamEntry, PlainSplitWithoutARing) {
  const TeamBranch& d = k();
  uint64_t seed = 600;
  for (int nthr = 1; nthr <= 4; ++nthr)
    for (char ta : {'N', 'T'})
      for (char tb : {'N', 'T'}) {
        // Shapes with fewer rows or fewer columns than members, and rows
        // that no member count divides.
        for (Shape s : {Shape{301, 45, 37}, Shape{3, 17, 9}, Shape{97, 2, 120}}) {
          Product p(ta, tb, s.m, s.n, s.k, -1.0, seed % 3 == 0 ? 0.0 : 0.5, seed);
          ++seed;
          TeamRecord rec(nthr, 2);
          EXPECT_EQ(team_call(d, rec, kGemmTeamEntryMultiply, p), all(nthr, 0));
          p.expect_match(std::to_string(nthr) + " members, no ring");
        }
      }
}

// What the LU does with one L block: the team allocates the ring, packs the
// block, and multiplies from it; the source is then spoilt, so a right
// result shows that the members took A from the ring.
void pack_then_multiply(const TeamBranch& d, int nthr, Product& p, const std::vector<double>& betas,
                        uint64_t seed) {
  const std::string what = std::to_string(nthr) + " members";
  TeamRecord rec(nthr, 2);
  RingGuard guard{d, rec};
  ASSERT_EQ(team_call(d, rec, kGemmTeamEntryAllocate, p), all(nthr, 0)) << what;
  ASSERT_NE(rec.r.gemm_shared, nullptr);
  rec.r.gemm_slot = 1;
  ASSERT_EQ(team_call(d, rec, kGemmTeamEntryPack, p), all(nthr, 0)) << what;
  p.spoil_a();
  for (double beta : betas) {
    p.fresh_c(beta, seed++);
    EXPECT_EQ(team_call(d, rec, kGemmTeamEntryMultiply, p), all(nthr, 0)) << what;
    p.expect_match(what);
  }
}

TEST_P(GemmTeamEntry, OneDepthBlock) {
  uint64_t seed = 700;
  for (int nthr = 1; nthr <= 4; ++nthr)
    for (char ta : {'N', 'T'})
      for (char tb : {'N', 'T'}) {
        Product p(ta, tb, 203, 37, 70, -1.0, 1.0, seed);
        pack_then_multiply(k(), nthr, p, {0.0, 1.0, -0.5}, seed + 10);
        seed += 20;
      }
}

TEST_P(GemmTeamEntry, SeveralDepthBlocks) {
  const TeamBranch& d = k();
  const int kc = depth_block(d);
  uint64_t seed = 800;
  for (int nthr = 1; nthr <= 4; ++nthr) {
    Product p('N', 'N', 150, 29, kc + 11, -1.0, 1.0, seed);
    pack_then_multiply(d, nthr, p, {1.0, 0.0}, seed + 10);
    Product q('T', 'N', 61, 8, 2 * kc + 5, 0.5, 1.0, seed + 20);
    pack_then_multiply(d, nthr, q, {2.0}, seed + 30);
    seed += 40;
  }
}

TEST_P(GemmTeamEntry, RowsAboveTheRowBlock) {
  const TeamBranch& d = k();
  uint64_t seed = 900;
  for (int nthr : {1, 3, 4}) {
    Product p('N', 'N', d.mc + 18, 40, 20, -1.0, 1.0, seed);
    pack_then_multiply(d, nthr, p, {1.0, 0.0}, seed + 10);
    seed += 20;
  }
}

TEST_P(GemmTeamEntry, EdgeShapes) {
  const TeamBranch& d = k();
  uint64_t seed = 1000;
  for (int nthr = 1; nthr <= 4; ++nthr) {
    // Fewer row panels than members; fewer columns than members; one row.
    for (Shape s :
         {Shape{d.mr + 3, 11, 9}, Shape{3 * d.mr + 5, 2, 40}, Shape{1, 5, 7}, Shape{53, 1, 33}}) {
      Product p('N', 'T', s.m, s.n, s.k, 1.25, 1.0, seed);
      pack_then_multiply(d, nthr, p, {0.0, 0.75}, seed + 10);
      seed += 20;
    }
  }
}

TEST_P(GemmTeamEntry, RingOfTwoSlotsUsedAlternately) {
  // As the LU: panel j goes into slot j % 2; updates multiply from the slot
  // of their source panel; the third panel refills slot 0, after which a
  // late update of panel 0 falls back to packing A itself.
  const TeamBranch& d = k();
  constexpr int kTeam = 3;
  TeamRecord rec(kTeam, 2);
  RingGuard guard{d, rec};
  std::vector<Product> panels;
  for (int j = 0; j < 3; ++j)
    panels.emplace_back('N', 'N', 180 - 20 * j, 24, 32, -1.0, 1.0, 1100 + 10 * j);
  ASSERT_EQ(team_call(d, rec, kGemmTeamEntryAllocate, panels[0]), all(kTeam, 0));
  for (int j = 0; j < 2; ++j) {
    rec.r.gemm_slot = j % 2;
    ASSERT_EQ(team_call(d, rec, kGemmTeamEntryPack, panels[j]), all(kTeam, 0));
  }
  panels[1].spoil_a();
  uint64_t seed = 1200;
  for (int round = 0; round < 4; ++round)
    for (int j = 0; j < 2; ++j) {
      Product& p = panels[j];
      p.fresh_c(round % 2 ? 0.0 : 1.0, seed++);
      rec.r.gemm_slot = j % 2;
      EXPECT_EQ(team_call(d, rec, kGemmTeamEntryMultiply, p), all(kTeam, 0));
      p.expect_match("panel " + std::to_string(j) + " round " + std::to_string(round));
    }
  rec.r.gemm_slot = 0;
  ASSERT_EQ(team_call(d, rec, kGemmTeamEntryPack, panels[2]), all(kTeam, 0));
  panels[2].spoil_a();
  panels[2].fresh_c(1.0, seed++);
  EXPECT_EQ(team_call(d, rec, kGemmTeamEntryMultiply, panels[2]), all(kTeam, 0));
  panels[2].expect_match("panel 2 from the refilled slot");
  // Panel 0's A is intact: a product of it now must not take panel 2's set.
  panels[0].fresh_c(1.0, seed++);
  EXPECT_EQ(team_call(d, rec, kGemmTeamEntryMultiply, panels[0]), all(kTeam, 0));
  panels[0].expect_match("panel 0 after its slot was refilled");
  // A product of another alpha than the packed one is not served from it.
  panels[1].alpha = 1.0;
  for (double& v : panels[1].a.v) v = 0.25;
  panels[1].a_ref = panels[1].a;
  panels[1].fresh_c(1.0, seed++);
  rec.r.gemm_slot = 1;
  EXPECT_EQ(team_call(d, rec, kGemmTeamEntryMultiply, panels[1]), all(kTeam, 0));
  panels[1].expect_match("panel 1 with another alpha");
}

TEST_P(GemmTeamEntry, SlotIsNotRefilledUnderItsReaders) {
  // Two teams share the ring: one multiplies from slot 0 again and again,
  // the other packs other blocks into slot 0 and the readers' block back,
  // meanwhile. Every product of the readers must be right, whether it found
  // its block in the slot or packed A itself.
  const TeamBranch& d = k();
  constexpr int kRounds = 60;
  TeamRecord readers(2, 1), writers(2, 1);
  RingGuard guard{d, readers};
  Product mine('N', 'N', 260, 14, 24, -1.0, 1.0, 1300);
  Product other('N', 'N', 260, 14, 24, -1.0, 1.0, 1310);
  ASSERT_EQ(team_call(d, readers, kGemmTeamEntryAllocate, mine), all(2, 0));
  writers.r.gemm_shared = readers.r.gemm_shared;
  ASSERT_EQ(team_call(d, readers, kGemmTeamEntryPack, mine), all(2, 0));
  // Reader products accumulate into one C with beta 1; the reference is
  // the same sum.
  mine.fresh_c(1.0, 1320);
  Matrix want = mine.c;
  for (int r = 0; r < kRounds; ++r)
    testsupport::ref_dgemm('N', 'N', mine.m, mine.n, mine.k, mine.alpha, mine.a.data(), mine.a.ld,
                           mine.b.data(), mine.b.ld, 1.0, want.data(), want.ld);
  std::atomic<int> failures{0};
  std::thread writer_team([&] {
    const std::vector<int> answers = run_team(2, [&](int ithr) {
      int bad = 0;
      for (int r = 0; r < kRounds; ++r) {
        bad += other.call(d, &writers.r, kGemmTeamEntryPack, ithr) != 0;
        bad += mine.call(d, &writers.r, kGemmTeamEntryPack, ithr) != 0;
      }
      return bad;
    });
    for (int a : answers) failures += a;
  });
  const std::vector<int> answers = run_team(2, [&](int ithr) {
    int bad = 0;
    for (int r = 0; r < kRounds; ++r) {
      bad += mine.call(d, &readers.r, kGemmTeamEntryMultiply, ithr) != 0;
      // Both members finish a round before the next starts, as in a task.
      tarn_barrier_wait(&readers.r.gemm_barrier, ithr, 2);
    }
    return bad;
  });
  writer_team.join();
  EXPECT_EQ(answers, all(2, 0));
  EXPECT_EQ(failures.load(), 0);
  EXPECT_LE(testsupport::max_rel_diff(mine.c, want), kRounds * tolerance(mine.k));
}

TEST_P(GemmTeamEntry, PackWaitsForAReaderInsideTheSlot) {
  // One member multiplies from slot 0 for a long while (C has many column
  // blocks, each of which reads all of the packed A again); another team
  // starts packing another block into slot 0 meanwhile. The pack must wait
  // until the reader is out: had it overwritten the set under the reader,
  // the reader's later column blocks would use the other block. (A reader
  // that comes only after the claim packs A itself, so the result is right
  // either way when the rule holds.)
  const TeamBranch& d = k();
  TeamRecord reader(1, 1), writers(2, 1);
  RingGuard guard{d, reader};
  Product mine('N', 'N', 600, 3000, 48, -1.0, 1.0, 1350);
  Product other('N', 'N', 600, 3000, 48, -1.0, 1.0, 1360);
  ASSERT_EQ(team_call(d, reader, kGemmTeamEntryAllocate, mine), all(1, 0));
  writers.r.gemm_shared = reader.r.gemm_shared;
  ASSERT_EQ(team_call(d, reader, kGemmTeamEntryPack, mine), all(1, 0));
  for (int attempt = 0; attempt < 3; ++attempt) {
    mine.fresh_c(1.0, 1370 + attempt);
    ASSERT_EQ(team_call(d, writers, kGemmTeamEntryPack, mine), all(2, 0));
    std::thread reading([&] { EXPECT_EQ(mine.call(d, &reader.r, kGemmTeamEntryMultiply, 0), 0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    EXPECT_EQ(team_call(d, writers, kGemmTeamEntryPack, other), all(2, 0));
    reading.join();
    mine.expect_match("reader of a slot packed over, attempt " + std::to_string(attempt));
  }
}

void* no_memory(size_t, int) { return nullptr; }

TEST_P(GemmTeamEntry, RingThatCannotBeHadOrCannotHoldTheBlock) {
  const TeamBranch& d = k();
  constexpr int kTeam = 3;
  Product p('N', 'N', 120, 10, 16, -1.0, 1.0, 1400);
  {
    TeamRecord rec(kTeam, 2);
    void* (*saved)(size_t, int) = tarn_blas_gemm_buffer_allocate;
    tarn_blas_gemm_buffer_allocate = no_memory;
    const std::vector<int> answers = team_call(d, rec, kGemmTeamEntryAllocate, p);
    tarn_blas_gemm_buffer_allocate = saved;
    for (int a : answers) EXPECT_NE(a, 0) << "every member learns of the failure";
    EXPECT_EQ(rec.r.gemm_shared, nullptr);
    EXPECT_NE(team_call(d, rec, kGemmTeamEntryPack, p), all(kTeam, 0));
    for (int a : team_call(d, rec, kGemmTeamEntryPack, p)) EXPECT_NE(a, 0);
  }
  TeamRecord rec(kTeam, 2);
  RingGuard guard{d, rec};
  ASSERT_EQ(team_call(d, rec, kGemmTeamEntryAllocate, p), all(kTeam, 0));
  rec.r.gemm_slot = 0;
  ASSERT_EQ(team_call(d, rec, kGemmTeamEntryPack, p), all(kTeam, 0));
  // A block larger than the slots, and a slot outside the ring: refused by
  // every member, and slot 0 still serves its block.
  Product big('N', 'N', 120 + 2 * d.mr, 10, 16, -1.0, 1.0, 1410);
  for (int a : team_call(d, rec, kGemmTeamEntryPack, big)) EXPECT_NE(a, 0);
  rec.r.gemm_slot = 2;
  for (int a : team_call(d, rec, kGemmTeamEntryPack, p)) EXPECT_NE(a, 0);
  rec.r.gemm_slot = 0;
  p.spoil_a();
  p.fresh_c(0.0, 1420);
  EXPECT_EQ(team_call(d, rec, kGemmTeamEntryMultiply, p), all(kTeam, 0));
  p.expect_match("slot 0 after refused packs");
}

TEST_P(GemmTeamEntry, RefusesWhatIsNotATeamCall) {
  const TeamBranch& d = k();
  Product p('N', 'N', 4, 4, 4, 1.0, 1.0, 1500);
  const Matrix before = p.c;
  TeamRecord rec(2, 1);
  EXPECT_EQ(p.call(d, nullptr, kGemmTeamEntryMultiply, 0), -1);
  EXPECT_EQ(p.call(d, &rec.r, kGemmTeamEntryMultiply, 2), -1) << "rank beyond the team";
  EXPECT_EQ(p.call(d, &rec.r, kGemmTeamEntryMultiply, -1), -1);
  EXPECT_EQ(p.call(d, &rec.r, 3, 0), -1) << "no such mode";
  EXPECT_EQ(p.call(d, &rec.r, kGemmTeamEntryFree, 0), 0) << "freeing no ring is harmless";
  EXPECT_EQ(p.c.v, before.v) << "C untouched";
}

INSTANTIATE_TEST_SUITE_P(Branches, GemmTeamEntry, ::testing::ValuesIn(kTeamBranches),
                         kernel_sets::branch_name<TeamBranch>);

}  // namespace
