// mxpy_: y := y - A x for the residual, threaded over blocks of rows. Each
// row's sum runs down the columns in order, whatever the thread count, so
// the residual does not depend on how the blocks were dealt out.
#include <cstdarg>
#include <cstddef>

#include "driver/driver.h"
#include "driver/parallel_region.h"

namespace {

constexpr int32_t kMxpyRowBlock = 64;

struct MxpyArgs {
  int32_t m, n;
  const double* a;
  int32_t lda;
  const double* x;
  double* y;
  int32_t nblocks;
};

void mxpy_region(int32_t* gtid, int32_t* tid, ...) {
  va_list ap;
  va_start(ap, tid);
  const MxpyArgs& p = *region_args<MxpyArgs>(ap);
  va_end(ap);
  // This thread's row blocks, kMxpyRowBlock rows at a time.
  for_each_static_block(*gtid, p.nblocks, [&](int32_t block) {
    const int32_t i0 = block * kMxpyRowBlock;
    const int32_t rows = p.m - i0 < kMxpyRowBlock ? p.m - i0 : kMxpyRowBlock;
    double* y = p.y + i0;
    // Walk the columns in rising order; each subtracts its share of A x.
    for (int32_t j = 0; j < p.n; ++j) {
      const double t = p.x[j];
      const double* col = p.a + i0 + static_cast<size_t>(j) * static_cast<size_t>(p.lda);
      for (int32_t i = 0; i < rows; ++i) y[i] = y[i] - t * col[i];
    }
  });
}

}  // namespace

extern "C" void mxpy_(const int32_t* m, const int32_t* n, const double* a, const int32_t* lda,
                      const double* x, double* y) {
  MxpyArgs args{*m, *n, a, *lda, x, y, blocks_of(*m, kMxpyRowBlock)};
  if (args.nblocks == 0) return;
  run_parallel_region(region_threads(args.nblocks), mxpy_region, &args);
}
