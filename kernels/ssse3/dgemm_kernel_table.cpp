// The kernel table of the ssse3 branch and its GEMM services: row 0 for
// processors without SSE4.1, row 1 (the _quad set, larger row blocks) for
// those with it. Both rows run the branch's tuned 2 by 6 tile.
#include "kernels/generic/gemm_table_driver.h"
#include "kernels/ssse3/dgemm_kernel_0.h"
#include "service/cpu.h"

namespace {

// Row 0: 512 rows whatever the caches; nc not rounded.
constexpr GemmTableBlocking kSsse3Blocking = {512, 512, 2, 0, false};
// Row 1: 960 rows, 448 where the second-level cache holds at most 3 MiB.
constexpr GemmTableBlocking kSsse3QuadBlocking = {960, 448, 2, 3145728, true};

constexpr int kSsse3RowPlain = 0;
constexpr int kSsse3RowQuad = 1;

struct Ssse3Table {
  using R = Ssse3Gemm;
  static constexpr int rows = 2;
  // The wide variant while the B block stays within 4 MiB.
  static constexpr int version_limit = 4194304;
  static int optimal_row() { return tarn_serv_cpuhas_sse41() ? kSsse3RowQuad : kSsse3RowPlain; }
  static void leave() {}
};

}  // namespace

TARN_GEMM_TABLE_ROUTINES(ssse3, , Ssse3Table, kSsse3Blocking)
TARN_GEMM_TABLE_ROUTINES(ssse3, _quad, Ssse3Table, kSsse3QuadBlocking)
TARN_GEMM_TABLE_SERVICES(ssse3, Ssse3Table)

extern "C" {
int tarn_ssse3_d_opt_gemm_ker = 0;
const gemm_kernel_row tarn_ssse3_d_all_gemm_ker[Ssse3Table::rows] = {
    TARN_GEMM_TABLE_ROW(ssse3, , 2, 2, 2, 4, 2, 8, 2, kGemmTableKindAllSse),
    TARN_GEMM_TABLE_ROW(ssse3, _quad, 2, 4, 4, 1, 2, 4, 4, kGemmTableKindAllSse),
};
}
