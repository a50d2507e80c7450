// The kernel table of the sse42 branch and its GEMM services: one row, over
// the branch's tuned 2 by 6 tile.
#include "kernels/sse42/dgemm_kernel_0.h"
#include "kernels/generic/gemm_table_driver.h"

namespace {

// Row block 640 rows, 384 where the third-level cache holds at most 4 MiB.
constexpr GemmTableBlocking kSse42Blocking = {640, 384, 3, 4194304, true};

struct Sse42Table {
  using R = Sse42Gemm;
  static constexpr int rows = 1;
  // The wide variant while the B block stays within 6 MiB.
  static constexpr int version_limit = 6291456;
  static int optimal_row() { return 0; }
  static void leave() {}
};

}  // namespace

TARN_GEMM_TABLE_ROUTINES(sse42, , Sse42Table, kSse42Blocking)
TARN_GEMM_TABLE_SERVICES(sse42, Sse42Table)

extern "C" {
int tarn_sse42_d_opt_gemm_ker = 0;
const gemm_kernel_row tarn_sse42_d_all_gemm_ker[Sse42Table::rows] = {
    TARN_GEMM_TABLE_ROW(sse42, , 2, 4, 4, 1, 2, 4, 4, kGemmTableKindAllSse),
};
}
