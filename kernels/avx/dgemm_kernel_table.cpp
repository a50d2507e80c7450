// The kernel table of the avx branch and its GEMM services: one row, over
// the branch's tuned 4 by 6 tile.
#include <immintrin.h>

#include "kernels/avx/dgemm_kernel_0.h"
#include "kernels/generic/gemm_table_driver.h"

namespace {

// Row block 640 rows, 384 where the third-level cache holds at most 4 MiB.
constexpr GemmTableBlocking kAvxBlocking = {640, 384, 3, 4194304, true};

struct AvxTable {
  using R = AvxGemm;
  static constexpr int rows = 1;
  // Always the blocked variant of xdgemm_par.
  static constexpr int version_limit = 0;
  static int optimal_row() { return 0; }
  static void leave() { _mm256_zeroupper(); }
};

}  // namespace

TARN_GEMM_TABLE_ROUTINES(avx, , AvxTable, kAvxBlocking)
TARN_GEMM_TABLE_SERVICES(avx, AvxTable)

extern "C" {
int tarn_avx_d_opt_gemm_ker = 0;
const gemm_kernel_row tarn_avx_d_all_gemm_ker[AvxTable::rows] = {
    TARN_GEMM_TABLE_ROW(avx, , 4, 4, 4, 1, 4, 4, 4, kGemmTableKindAll),
};
}
