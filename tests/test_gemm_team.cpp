// The GEMM of the LU's thread teams on avx2 and avx512: the mode-4 driver
// on a packed A set of several row and depth blocks, read from any row
// panel on.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "kernels/gemm_desc.h"
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
  int mr;        // rows of a packed A panel
  int mc;        // the largest row block
  int kc_low;    // deepest product of one depth block
  int kc_large;  // depth block of deep products
};

const TeamBranch kTeamBranches[] = {
    {"avx2", kernel_sets::has_avx2, tarn_blas_avx2_dgemm_map_thread_to_kernel,
     tarn_blas_avx2_dgemm_initialize_kernel_info,
     tarn_blas_avx2_dgemm_initialize_buffers, 28, 5012, 192, 192},
    {"avx512", kernel_sets::has_avx512, tarn_blas_avx512_dgemm_map_thread_to_kernel,
     tarn_blas_avx512_dgemm_initialize_kernel_info,
     tarn_blas_avx512_dgemm_initialize_buffers, 8, 4992, 384, 384},
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

    const int Mp = (M + d.mr - 1) / d.mr * d.mr;
    std::vector<double> set(static_cast<size_t>(Mp) * K + 64, kNaN);
    // Loop over the depth of the set, kc at a time.
    for (int p0 = 0; p0 < K; p0 += kc) {
      const int depth = K - p0 < kc ? K - p0 : kc;
      const double* src = ta == 'N' ? a.data() + static_cast<ptrdiff_t>(p0) * a.ld : a.data() + p0;
      info.copy_a(M, depth, src, a.ld, alpha, set.data() + static_cast<ptrdiff_t>(p0) * Mp);
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
  const TeamBranch& d = k();
  uint64_t seed = 200;
  for (char ta : {'N', 'T'})
    for (char tb : {'N', 'T'}) {
      // Two halves of K just above the low limit, then three large blocks
      // with a short last one.
      check(ta, tb, 61, 0, 61, 19, d.kc_low + 7, -1.0, 1.0, seed % 2 == 0, seed);
      ++seed;
      check(ta, tb, 37, 0, 37, 13, 2 * d.kc_large + 41, 0.75, 0.0, seed % 2 == 0, seed);
      ++seed;
    }
}

TEST_P(GemmPackedASet, SeveralRowBlocks) {
  const TeamBranch& d = k();
  // Just above the largest row block: a second block of a few rows.
  check('N', 'N', d.mc + 18, 0, d.mc + 18, 40, 20, -1.0, 1.0, true, 300);
  check('T', 'N', d.mc + 18, 0, d.mc + 18, 9, 20, 2.0, 0.0, false, 301);
  // Rows and depth both blocked.
  check('N', 'T', d.mc + 18, 0, d.mc + 18, 7, d.kc_low + 31, 1.0, 0.5, false, 302);
}

TEST_P(GemmPackedASet, ProductFromARowPanelInsideTheSet) {
  const TeamBranch& d = k();
  uint64_t seed = 400;
  for (char ta : {'N', 'T'}) {
    // A share of a team: from the third row panel to the end, and a share
    // that ends inside the set.
    check(ta, 'N', 97, 2 * d.mr, 97 - 2 * d.mr, 11, d.kc_low + 5, -1.0, 1.0, true, seed++);
    check(ta, 'T', 5 * d.mr + 3, d.mr, 3 * d.mr, 6, 30, 1.0, 0.0, false, seed++);
    check(ta, 'N', d.mc + 40, d.mr, d.mc, 5, d.kc_low + 9, -0.5, 2.0, false, seed++);
  }
}

TEST_P(GemmPackedASet, EdgeShapes) {
  uint64_t seed = 500;
  // Columns below and around the register tile, rows below one panel.
  for (int n : {1, 2, 5, 6, 7, 8, 15})
    check('N', 'N', 23, 0, 23, n, 17, -1.0, seed % 2 ? 0.0 : 1.0, seed % 3 == 0, seed), ++seed;
  for (int m : {1, 3, 9, 29})
    check('N', 'T', m, 0, m, 4, 50, 1.0, 0.0, false, seed++);
}

INSTANTIATE_TEST_SUITE_P(Branches, GemmPackedASet, ::testing::ValuesIn(kTeamBranches),
                         kernel_sets::branch_name<TeamBranch>);

}  // namespace
