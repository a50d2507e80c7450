// norm1_: despite its name, the largest row sum max_i sum_j |a(i,j)| (the
// infinity norm of the matrix), threaded over blocks of eight rows.
#include <atomic>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <limits>

#include "driver/driver.h"
#include "driver/max_reduction.h"
#include "driver/parallel_region.h"

namespace {

constexpr int32_t kNorm1RowBlock = 8;
constexpr int32_t kNaNSeen = -1;

struct Norm1Args {
  int32_t m, n;
  const double* a;
  int32_t lda;
  int32_t nblocks;
  double result;    // shared maximum, starts at 0.0
  int32_t nan_flag;  // kNaNSeen once a thread's maximum was NaN
};

void norm1_region(int32_t* gtid, int32_t* tid, ...) {
  va_list ap;
  va_start(ap, tid);
  Norm1Args& p = *region_args<Norm1Args>(ap);
  va_end(ap);
  double thread_max = -std::numeric_limits<double>::infinity();
  // This thread's row blocks, kNorm1RowBlock rows at a time.
  for_each_static_block(*gtid, p.nblocks, [&](int32_t block) {
    const int32_t i0 = block * kNorm1RowBlock;
    const int32_t rows = p.m - i0 < kNorm1RowBlock ? p.m - i0 : kNorm1RowBlock;
    double sums[kNorm1RowBlock] = {};
    // Walk the columns in rising order, adding to every row sum of the block.
    for (int32_t j = 0; j < p.n; ++j) {
      const double* col = p.a + i0 + static_cast<size_t>(j) * static_cast<size_t>(p.lda);
      for (int32_t i = 0; i < rows; ++i) sums[i] += std::fabs(col[i]);
    }
    // A sum replaces the block's maximum unless it is below it: a NaN sum
    // gets in, and the next row's sum pushes it out again.
    double block_max = 0.0;
    for (int32_t i = 0; i < rows; ++i)
      if (!(sums[i] < block_max)) block_max = sums[i];
    if (block_max > thread_max) thread_max = block_max;
    if (std::isnan(thread_max))
      std::atomic_ref<int32_t>(p.nan_flag).store(kNaNSeen, std::memory_order_relaxed);
  });
  reduce_strict_max(*gtid, &thread_max, &p.result);
}

}  // namespace

extern "C" double norm1_(const int32_t* m, const int32_t* n, const double* a,
                         const int32_t* lda) {
  Norm1Args args{*m, *n, a, *lda, blocks_of(*m, kNorm1RowBlock), 0.0, 0};
  if (args.nblocks > 0)
    run_parallel_region(region_threads(args.nblocks), norm1_region, &args);
  if (args.nan_flag == kNaNSeen) return std::numeric_limits<double>::quiet_NaN();
  return args.result;
}
