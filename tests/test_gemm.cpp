// The tuned one-thread DGEMM of every branch against the plain reference
// loops: every transposition pair, shapes through all remainders of the
// register tiles and across several depth, row and column blocks, padded
// leading dimensions, the special values of alpha and beta, and the
// fallback taken when no pack buffer can be had.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "kernels/gemm_desc.h"
#include "service/cpu.h"
#include "tests/support/test_support.h"

using testsupport::Matrix;
using testsupport::Random;

namespace {

struct BranchCase {
  const char* name;
  tarn_xdgemm_fn* xdgemm;
  bool (*supported)();
};

bool have_sse2() { return __builtin_cpu_supports("sse2"); }
bool have_ssse3() { return __builtin_cpu_supports("ssse3"); }
bool have_sse42() { return __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("popcnt"); }
bool have_avx() { return __builtin_cpu_supports("avx") && __builtin_cpu_supports("popcnt"); }
bool have_avx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"); }
bool have_avx512() {
  return have_avx2() && __builtin_cpu_supports("avx512f") &&
         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl");
}

const BranchCase kBranches[] = {
    {"sse2", tarn_blas_sse2_xdgemm, have_sse2},
    {"cnr_sse2", tarn_blas_cnr_sse2_xdgemm, have_sse2},
    {"ssse3", tarn_blas_ssse3_xdgemm, have_ssse3},
    {"sse42", tarn_blas_sse42_xdgemm, have_sse42},
    {"avx", tarn_blas_avx_xdgemm, have_avx},
    {"avx2", tarn_blas_avx2_xdgemm, have_avx2},
    {"avx512", tarn_blas_avx512_xdgemm, have_avx512},
};

constexpr double kMarker = -7777.0;
const char kTrans[2] = {'N', 'T'};

struct Shape {
  int m, n, k;
};

// Operands of one product, with leading dimensions `pad` beyond the rows;
// the padding and C beyond its rows hold a marker that must survive.
struct Problem {
  char ta, tb;
  int m, n, k;
  double alpha, beta;
  Matrix a, b, c, want;

  Problem(char ta_, char tb_, Shape s, double alpha_, double beta_, int pad, uint64_t seed)
      : ta(ta_), tb(tb_), m(s.m), n(s.n), k(s.k), alpha(alpha_), beta(beta_) {
    const int ar = ta == 'N' ? m : k, ac = ta == 'N' ? k : m;
    const int br = tb == 'N' ? k : n, bc = tb == 'N' ? n : k;
    a = Matrix(ar, ac, ar + pad, kMarker);
    b = Matrix(br, bc, br + pad, kMarker);
    c = Matrix(m, n, m + pad, kMarker);
    Random r(seed);
    fill_random(a, r);
    fill_random(b, r);
    fill_random(c, r);
    want = c;
  }

  void run(tarn_xdgemm_fn* f) {
    testsupport::ref_dgemm(ta, tb, m, n, k, alpha, a.data(), a.ld, b.data(), b.ld, beta,
                           want.data(), want.ld);
    f(&ta, &tb, &m, &n, &k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(), &c.ld);
  }

  // Rounding of k products and one update, with room for reordering.
  double tolerance() const {
    return 16.0 * std::numeric_limits<double>::epsilon() * (k + 4);
  }

  std::string describe() const {
    return std::string(1, ta) + tb + " m=" + std::to_string(m) + " n=" + std::to_string(n) +
           " k=" + std::to_string(k) + " alpha=" + std::to_string(alpha) +
           " beta=" + std::to_string(beta) + " ldc=" + std::to_string(c.ld);
  }

  void expect_match() const {
    EXPECT_LE(testsupport::max_rel_diff(c, want), tolerance()) << describe();
    // Nothing outside the m by n block of C was written.
    for (int j = 0; j < n; ++j)
      for (int i = m; i < c.ld; ++i)
        if (c.v[(size_t)i + (size_t)j * c.ld] != kMarker) {
          ADD_FAILURE() << describe() << ": padding of C written at row " << i << " col " << j;
          return;
        }
  }
};

class GemmBranch : public ::testing::TestWithParam<BranchCase> {
 protected:
  void SetUp() override {
    if (!GetParam().supported()) GTEST_SKIP() << "processor lacks " << GetParam().name;
  }
  void check(Shape s, double alpha = 1.0, double beta = 1.0, int pad = 0, uint64_t seed = 7) {
    for (char ta : kTrans)
      for (char tb : kTrans) {
        Problem p(ta, tb, s, alpha, beta, pad, seed++);
        p.run(GetParam().xdgemm);
        p.expect_match();
      }
  }
};

TEST_P(GemmBranch, EmptyAndUnitShapes) {
  for (Shape s : {Shape{0, 5, 5}, Shape{5, 0, 5}, Shape{0, 0, 0}, Shape{1, 1, 1},
                  Shape{1, 1, 9}, Shape{3, 2, 1}})
    check(s, 1.0, 1.0, 2);
}

TEST_P(GemmBranch, EveryRowRemainderOfTheTile) {
  // Tiles are at most 8 rows on every branch: two tiles and every remainder.
  for (int m = 1; m <= 33; ++m) check({m, 15, 11}, 1.0, 0.5);
}

TEST_P(GemmBranch, EveryColumnRemainderOfTheTile) {
  for (int n = 1; n <= 30; ++n) check({21, n, 9}, -1.0, 1.0);
}

TEST_P(GemmBranch, WideShapesThroughEveryTileRemainder) {
  // Large enough for the packed path on every branch (small shapes take the
  // packing-free path on avx2 and avx512), with every row remainder of tiles
  // up to 28 rows and every column remainder up to 8 columns.
  for (int r = 0; r <= 28; ++r) check({192 + r, 193 + r % 8, 13}, 1.0, r % 2 ? 0.0 : -1.0);
}

TEST_P(GemmBranch, DepthFromOneAcrossBlocks) {
  for (int k : {1, 2, 3, 4, 5, 7, 8, 9, 17, 47, 48, 129, 257, 383, 385}) check({13, 17, k}, 0.75, 0.25);
}

TEST_P(GemmBranch, SeveralBlocksInEveryDimension) {
  // Depth above every branch's high limit (several k blocks), columns across
  // several column blocks, rows across several row panels.
  check({97, 401, 801}, 1.5, -0.5, 3);
  check({230, 207, 260});
}

TEST_P(GemmBranch, RowsBeyondOneRowBlock) {
  check({5003, 9, 3}, 1.0, 0.0);
}

TEST_P(GemmBranch, LeadingDimensionsLargerThanRows) {
  for (int pad : {1, 7, 64}) check({37, 29, 23}, 2.0, 1.0, pad);
}

TEST_P(GemmBranch, BetaZeroNeverReadsC) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (Shape s : {Shape{41, 37, 19}, Shape{3, 2, 5}, Shape{40, 1, 300}, Shape{5, 30, 7},
                  Shape{250, 230, 9}, Shape{7, 6, 0}})
    for (char ta : kTrans)
      for (char tb : kTrans) {
        Problem p(ta, tb, s, 1.25, 0.0, 3, 11);
        for (int j = 0; j < s.n; ++j)
          for (int i = 0; i < s.m; ++i) p.c(i, j) = nan;
        p.run(GetParam().xdgemm);
        p.expect_match();
      }
}

TEST_P(GemmBranch, AlphaZeroOnlyScales) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Shape s{33, 21, 17};
  // Beta 1: C untouched, bit for bit, even NaN.
  {
    Problem p('N', 'N', s, 0.0, 1.0, 2, 3);
    p.c(4, 5) = nan;
    const Matrix before = p.c;
    p.run(GetParam().xdgemm);
    for (size_t i = 0; i < before.v.size(); ++i)
      ASSERT_TRUE(std::memcmp(&before.v[i], &p.c.v[i], sizeof(double)) == 0) << "entry " << i;
  }
  // Beta 0: zeros even over NaN.
  {
    Problem p('T', 'N', s, 0.0, 0.0, 2, 4);
    p.c(4, 5) = nan;
    p.run(GetParam().xdgemm);
    for (int j = 0; j < s.n; ++j)
      for (int i = 0; i < s.m; ++i) ASSERT_EQ(p.c(i, j), 0.0) << i << "," << j;
  }
  // Other beta: a plain scaling.
  check(s, 0.0, -3.0, 1);
  check({9, 8, 0}, 1.0, 0.5, 1);
}

TEST_P(GemmBranch, LowerCaseAndConjugateTranspose) {
  const Shape s{19, 23, 31};
  Problem p('c', 't', s, 1.0, 1.0, 0, 5);
  p.run(GetParam().xdgemm);
  p.expect_match();
  Problem q('n', 'C', s, 1.0, 1.0, 0, 6);
  q.run(GetParam().xdgemm);
  q.expect_match();
}

// Points the pack-buffer allocator at one that always fails, for the
// lifetime of the guard.
class FailingAllocator {
 public:
  FailingAllocator()
      : old_alloc_(tarn_blas_gemm_buffer_allocate), old_free_(tarn_blas_gemm_buffer_deallocate) {
    tarn_blas_gemm_buffer_allocate = [](size_t, int) -> void* {
      ++calls;
      return nullptr;
    };
    tarn_blas_gemm_buffer_deallocate = [](void*) { ADD_FAILURE() << "freed a null buffer"; };
  }
  ~FailingAllocator() {
    tarn_blas_gemm_buffer_allocate = old_alloc_;
    tarn_blas_gemm_buffer_deallocate = old_free_;
  }
  static inline int calls = 0;

 private:
  void* (*old_alloc_)(size_t, int);
  void (*old_free_)(void*);
};

TEST_P(GemmBranch, FailedAllocationStillGivesTheProduct) {
  FailingAllocator fail;
  FailingAllocator::calls = 0;
  // Shapes that take the packed path on every branch.
  check({250, 230, 300}, 1.5, 0.0, 1);
  check({201, 199, 30}, 1.0, 2.0);
  EXPECT_GT(FailingAllocator::calls, 0) << "the packed path never asked for memory";
}

INSTANTIATE_TEST_SUITE_P(Branches, GemmBranch, ::testing::ValuesIn(kBranches),
                         [](const ::testing::TestParamInfo<BranchCase>& info) {
                           return std::string(info.param.name);
                         });

// ---- The descriptor layer of avx2 and avx512 --------------------------------

struct DescriptorCase {
  const char* name;
  tarn_dgemm_map_thread_to_kernel_fn* map;
  tarn_dgemm_initialize_kernel_info_fn* kernel_info;
  tarn_dgemm_initialize_buffers_fn* buffers;
  tarn_xdgemm_internal_fn* internal;
  bool (*supported)();
  int m_unroll, n_unroll;  // the branch's register tile
  int kc_large;            // depth block of deep products; 0: sized to the L1 (below)
  int kc_l1_max;           // the deepest block sized to the L1
  int nc_max;
  int nc_max_small_k;      // the B block of shallow products
};

// The tiles and blocks of each target: sixteen and thirty-two registers in
// 64-bit mode, eight in 32-bit mode.
#if defined(__x86_64__)
const DescriptorCase kDescriptorBranches[] = {
    {"avx2", tarn_blas_avx2_dgemm_map_thread_to_kernel,
     tarn_blas_avx2_dgemm_initialize_kernel_info, tarn_blas_avx2_dgemm_initialize_buffers,
     tarn_blas_avx2_xdgemm_internal, have_avx2, 8, 6, 0, 256, 256, 24},
    {"avx512", tarn_blas_avx512_dgemm_map_thread_to_kernel,
     tarn_blas_avx512_dgemm_initialize_kernel_info, tarn_blas_avx512_dgemm_initialize_buffers,
     tarn_blas_avx512_xdgemm_internal, have_avx512, 24, 8, 0, 192, 256, 32},
};
#else
const DescriptorCase kDescriptorBranches[] = {
    {"avx2", tarn_blas_avx2_dgemm_map_thread_to_kernel,
     tarn_blas_avx2_dgemm_initialize_kernel_info, tarn_blas_avx2_dgemm_initialize_buffers,
     tarn_blas_avx2_xdgemm_internal, have_avx2, 28, 1, 0, 192, 512, 24},
    {"avx512", tarn_blas_avx512_dgemm_map_thread_to_kernel,
     tarn_blas_avx512_dgemm_initialize_kernel_info, tarn_blas_avx512_dgemm_initialize_buffers,
     tarn_blas_avx512_xdgemm_internal, have_avx512, 8, 7, 384, 0, 192, 24},
};
#endif

// Records of one product as a thread of the threaded layer builds them.
struct Records {
  blas_op_params op{};
  blas_matrix a{}, b{}, c{};
  blas_strategy strategy{};
  blas_kernel_info info{};

  Records(const DescriptorCase& d, Problem& p, int copy_kernel) {
    op.transa = &p.ta;
    op.transb = &p.tb;
    op.alpha = p.alpha;
    op.beta = p.beta;
    op.transa_code = p.ta == 'N' ? 0 : 1;
    op.transb_code = p.tb == 'N' ? 0 : 1;
    init_matrix(a, p.ta, p.m, p.k, p.a);
    init_matrix(b, p.tb, p.k, p.n, p.b);
    init_matrix(c, 'N', p.m, p.n, p.c);
    gemm_thread_opts opts{};
    opts.copy_kernel = copy_kernel;
    d.map(&opts, &strategy);
    d.kernel_info(&op, &a, &b, &c, &strategy, &info);
  }

  static void init_matrix(blas_matrix& x, char t, int rows, int cols, Matrix& data) {
    // The kernel information only reads the flags; the drivers read the
    // rest through get_pointer, which the test takes from a first product.
    x.base = data.data();
    x.rows = x.rows2 = rows;
    x.cols = cols;
    x.ld = data.ld;
    x.element_size = 8;
    x.flags = t == 'N' ? kBlasMatrixNoTrans : kBlasMatrixTrans;
  }
};

class GemmDescriptors : public ::testing::TestWithParam<DescriptorCase> {
 protected:
  void SetUp() override {
    if (!GetParam().supported()) GTEST_SKIP() << "processor lacks " << GetParam().name;
  }
};

TEST_P(GemmDescriptors, PlanKernelSelectsMode) {
  const DescriptorCase& d = GetParam();
  const struct {
    int copy_kernel, mode;
  } table[] = {{0, kGemmModePackBoth}, {1, kGemmModeAPacked}, {2, kGemmModePackBoth},
               {3, kGemmModeThreaded}, {4, kGemmModePackBoth}, {5, kGemmModeNocopy}};
  for (const auto& row : table) {
    gemm_thread_opts opts{};
    opts.copy_kernel = row.copy_kernel;
    blas_strategy s{};
    d.map(&opts, &s);
    EXPECT_EQ(s.mode, row.mode) << "copy_kernel " << row.copy_kernel;
    EXPECT_EQ(s.loop_order, 4);
    EXPECT_EQ(s.m_unroll, d.m_unroll);
    EXPECT_EQ(s.n_unroll, d.n_unroll);
    EXPECT_EQ(s.buffer_api, row.mode == kGemmModeNocopy ? 4 : 2);
    ASSERT_NE(s.check, nullptr);
    EXPECT_EQ(s.check(&s), 1) << "unrolls already right";
    s.m_unroll = d.m_unroll + 1;
    EXPECT_EQ(s.check(&s), 0) << "unrolls corrected";
    EXPECT_EQ(s.m_unroll, d.m_unroll);
  }
}

TEST_P(GemmDescriptors, BlockSizesFollowTheShape) {
  const DescriptorCase& d = GetParam();
  Matrix a(1, 1), b(1, 1);
  auto sizes = [&](int m, int n, int k) {
    blas_matrix ma{}, mb{};
    Records::init_matrix(ma, 'N', m, k, a);
    Records::init_matrix(mb, 'N', k, n, b);
    blas_strategy s{};
    gemm_thread_opts opts{};
    d.map(&opts, &s);
    blas_buffers bufs{};
    d.buffers(&ma, &mb, &s, &bufs);
    EXPECT_EQ(bufs.buffer_kind, 3);
    EXPECT_EQ(bufs.a_offset, 1664);
    EXPECT_EQ(bufs.b_offset, 768);
    EXPECT_EQ(bufs.threads, 1);
    return std::vector<int>{bufs.mc, bufs.nc, bufs.kc};
  };
  auto up = [](int x, int u) { return (x + u - 1) / u * u; };
  const int kc = sizes(10, 10, 100000)[2];
  if (d.kc_large != 0) {
    EXPECT_EQ(kc, d.kc_large);
  } else {
    // The A panel stays in the first-level cache with room to spare for B
    // and C, and is as deep as that allows, up to the branch's limit (32 KiB
    // where the processor does not describe its caches).
    std::int64_t l1 = tarn_serv_get_cache_size(1);
    if (l1 <= 0) l1 = 32768;
    const std::int64_t room = l1 * 7 / 8, panel = std::int64_t{8} * d.m_unroll;
    EXPECT_EQ(kc % 16, 0);
    EXPECT_LE(kc * panel, room);
    EXPECT_TRUE(kc == d.kc_l1_max || (kc + 16) * panel > room) << "kc " << kc << ", L1 " << l1;
  }
  // Rows round up to the tile; the depth is K, at least 128, up to the
  // block, half of K below twice the block, then the block.
  EXPECT_EQ(sizes(1000, 1000, 1000),
            (std::vector<int>{up(1000, d.m_unroll), up(d.nc_max, d.n_unroll),
                              1000 < 2 * kc ? 500 : kc}));
  EXPECT_EQ(sizes(10, 10, 40)[2], 128);
  EXPECT_EQ(sizes(10, 100, 40)[1], up(d.nc_max_small_k, d.n_unroll))
      << "K below 48 narrows the B block";
  EXPECT_EQ(sizes(10, 10, kc)[2], kc);
  EXPECT_EQ(sizes(10, 10, kc + 3)[2], (kc + 4) / 2);
  EXPECT_EQ(sizes(10, 10, 2 * kc - 1)[2], kc);
  EXPECT_EQ(sizes(10, 10, 2 * kc)[2], kc);
}

TEST_P(GemmDescriptors, EveryModeAndLoopOrderGivesTheProduct) {
  const DescriptorCase& d = GetParam();
  uint64_t seed = 40;
  for (int copy_kernel : {0, 1, 3, 5})
    for (int loop_order : {4, 32, 128})
      for (char ta : kTrans)
        for (char tb : kTrans) {
          // Depth over two blocks, rows and columns over several.
          Problem p(ta, tb, {97, 120, 800}, -0.75, seed % 2 ? 0.0 : 0.5, 2, seed);
          ++seed;
          gemm_thread_opts opts{};
          opts.copy_kernel = copy_kernel;
          blas_strategy s{};
          d.map(&opts, &s);
          s.loop_order = loop_order;
          testsupport::ref_dgemm(ta, tb, p.m, p.n, p.k, p.alpha, p.a.data(), p.a.ld, p.b.data(),
                                 p.b.ld, p.beta, p.want.data(), p.want.ld);
          d.internal(&p.ta, &p.tb, &p.m, &p.n, &p.k, &p.alpha, p.a.data(), &p.a.ld, p.b.data(),
                     &p.b.ld, &p.beta, p.c.data(), &p.c.ld, &s);
          SCOPED_TRACE("copy_kernel " + std::to_string(copy_kernel) + " loop order " +
                       std::to_string(loop_order));
          p.expect_match();
        }
}

TEST_P(GemmDescriptors, NothingToAddOnlyScalesC) {
  // Alpha 0 or depth 0: every mode only scales C, and beta 0 clears NaN.
  const DescriptorCase& d = GetParam();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (int copy_kernel : {0, 1, 3, 5})
    for (Shape s : {Shape{45, 30, 20}, Shape{45, 30, 0}})
      for (double beta : {0.0, -3.0, 1.0}) {
        Problem p('T', 'N', s, s.k > 0 ? 0.0 : 1.5, beta, 2, 7);
        p.c(3, 4) = beta == 0.0 ? nan : p.c(3, 4);
        testsupport::ref_dgemm(p.ta, p.tb, p.m, p.n, p.k, p.alpha, p.a.data(), p.a.ld,
                               p.b.data(), p.b.ld, p.beta, p.want.data(), p.want.ld);
        gemm_thread_opts opts{};
        opts.copy_kernel = copy_kernel;
        blas_strategy strategy{};
        d.map(&opts, &strategy);
        d.internal(&p.ta, &p.tb, &p.m, &p.n, &p.k, &p.alpha, p.a.data(), &p.a.ld, p.b.data(),
                   &p.b.ld, &p.beta, p.c.data(), &p.c.ld, &strategy);
        SCOPED_TRACE("copy_kernel " + std::to_string(copy_kernel) + " k " +
                     std::to_string(s.k) + " beta " + std::to_string(beta));
        p.expect_match();
      }
}

TEST_P(GemmDescriptors, PackingRoutinesAndKernelOfTheKernelInformation) {
  // What a thread of the threaded layer does with shared buffers: pack A and
  // B with the named routines, then run the named kernel on them, and run
  // the mode-4 driver on an A packed beforehand.
  const DescriptorCase& d = GetParam();
  for (char ta : kTrans)
    for (char tb : kTrans) {
      // One block in every direction: a depth past the narrow-B limit of
      // both branches, so that the B block holds all 33 columns.
      Problem p(ta, tb, {45, 33, 90}, 1.5, 0.0, 1, 77);
      Records r(d, p, 1);
      blas_buffers bufs{};
      d.buffers(&r.a, &r.b, &r.strategy, &bufs);
      ASSERT_EQ(bufs.buffer_kind, 2) << "mode 4 keeps B only";
      bufs.buffer_kind = 3;
      ASSERT_EQ(bufs.get_bufs(&bufs), 0);
      ASSERT_NE(bufs.raw, nullptr);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(bufs.b_desc.pointer) % 4096, 768u);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(bufs.a_desc.pointer) % 4096, 1664u);
      ASSERT_GE(bufs.kc, p.k);
      ASSERT_GE(bufs.mc, p.m);
      ASSERT_GE(bufs.nc, p.n);
      r.info.copy_a(p.m, p.k, p.a.data(), p.a.ld, p.alpha, bufs.a_desc.pointer);
      r.info.copy_b(p.k, p.n, p.b.data(), p.b.ld, 1.0, bufs.b_desc.pointer);
      blas_pack_desc bd = bufs.b_desc;
      bd.kc = p.k;
      bd.block = p.n;
      r.c.get_pointer = [](int i, int j, const blas_matrix* m) -> void* {
        return static_cast<double*>(m->base) + i + static_cast<ptrdiff_t>(j) * m->ld;
      };
      const double zero = 0.0;
      r.info.kernel(&p.m, bufs.a_desc.pointer, &bd, &zero, &r.c);
      testsupport::ref_dgemm(ta, tb, p.m, p.n, p.k, p.alpha, p.a.data(), p.a.ld, p.b.data(),
                             p.b.ld, 0.0, p.want.data(), p.want.ld);
      p.expect_match();

      // Mode 4 on the A packed above: B is packed by the driver.
      Problem q(ta, tb, {45, 33, 90}, 1.5, 2.0, 1, 77);
      Records rq(d, q, 1);
      rq.a.get_pointer = rq.b.get_pointer = rq.c.get_pointer = r.c.get_pointer;
      if (ta != 'N') rq.a.get_pointer = [](int i, int j, const blas_matrix* m) -> void* {
        return static_cast<double*>(m->base) + j + static_cast<ptrdiff_t>(i) * m->ld;
      };
      if (tb != 'N') rq.b.get_pointer = [](int i, int j, const blas_matrix* m) -> void* {
        return static_cast<double*>(m->base) + j + static_cast<ptrdiff_t>(i) * m->ld;
      };
      rq.info.driver(&rq.op, &rq.a, &rq.b, &rq.c, &bufs, &rq.info);
      testsupport::ref_dgemm(ta, tb, q.m, q.n, q.k, q.alpha, q.a.data(), q.a.ld, q.b.data(),
                             q.b.ld, q.beta, q.want.data(), q.want.ld);
      q.expect_match();
      bufs.free_bufs(&bufs);
      EXPECT_EQ(bufs.raw, nullptr);
    }
}

TEST_P(GemmDescriptors, OperationNameForWarnings) {
  const DescriptorCase& d = GetParam();
  Problem p('N', 'N', {4, 4, 4}, 1.0, 1.0, 0, 1);
  Records r(d, p, 0);
  EXPECT_STREQ(r.info.name, "DGEMM");
  EXPECT_EQ(r.info.third_limit, 4);
  r.op.op_kind = kBlasOpDtrsm;
  d.kernel_info(&r.op, &r.a, &r.b, &r.c, &r.strategy, &r.info);
  EXPECT_STREQ(r.info.name, "DTRSM");
}

INSTANTIATE_TEST_SUITE_P(Branches, GemmDescriptors, ::testing::ValuesIn(kDescriptorBranches),
                         [](const ::testing::TestParamInfo<DescriptorCase>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
