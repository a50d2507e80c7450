// normi_: the largest absolute value of any element; for one column the
// infinity norm of a vector. Threaded over blocks of rows.
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <limits>

#include "driver/driver.h"
#include "driver/max_reduction.h"
#include "driver/parallel_region.h"

namespace {

constexpr int32_t kNormiRowBlock = 64;

struct NormiArgs {
  int32_t m, n;
  const double* a;
  int32_t lda;
  int32_t nblocks;
  double result;  // shared maximum, starts at 0.0
};

void normi_region(int32_t* gtid, int32_t* tid, ...) {
  va_list ap;
  va_start(ap, tid);
  NormiArgs& p = *region_args<NormiArgs>(ap);
  va_end(ap);
  // A value replaces the maximum unless it is below it, so a NaN takes the
  // place and the next number removes it again.
  double thread_max = -std::numeric_limits<double>::infinity();
  // This thread's row blocks, kNormiRowBlock rows at a time.
  for_each_static_block(*gtid, p.nblocks, [&](int32_t block) {
    const int32_t i0 = block * kNormiRowBlock;
    const int32_t rows = p.m - i0 < kNormiRowBlock ? p.m - i0 : kNormiRowBlock;
    // Walk the columns in rising order, the block's rows within each.
    for (int32_t j = 0; j < p.n; ++j) {
      const double* col = p.a + i0 + static_cast<size_t>(j) * static_cast<size_t>(p.lda);
      for (int32_t i = 0; i < rows; ++i) {
        const double v = std::fabs(col[i]);
        if (!(v < thread_max)) thread_max = v;
      }
    }
  });
  reduce_strict_max(*gtid, &thread_max, &p.result);
}

}  // namespace

extern "C" double normi_(const int32_t* m, const int32_t* n, const double* a,
                         const int32_t* lda) {
  NormiArgs args{*m, *n, a, *lda, blocks_of(*m, kNormiRowBlock), 0.0};
  if (args.nblocks > 0)
    run_parallel_region(region_threads(args.nblocks), normi_region, &args);
  return args.result;
}
