// Which member of the small-matrix path a branch code selects, and the stop
// for a processor that has none. Unlike the BLAS stubs, the small path does
// not look at the reproducibility mode: it has no reproducible set of its
// own, and its members compute the same thing on every branch.
#include "lapack/ps_small.h"
#include "service/messages.h"

namespace tarn_ps_small {

namespace {

// "Vexan TARN ERROR: CPU %d is not supported."
constexpr int kMsgCpuNotSupported = 1213;
// Severity argument of the report: the first argument of tarn_serv_print.
constexpr int kReportSeverity = 0;
constexpr int kExitUnsupported = 1;
constexpr int kHighestCode = 9;

// Members by branch code; null where a code has no branch.
tarn_ps_dgetrf_small_fn* const kDgetrfByCode[kHighestCode + 1] = {
    nullptr,                             // 0
    tarn_lapack_ps_sse2_dgetrf_small,    // 1
    tarn_lapack_ps_sse2_dgetrf_small,    // 2
    nullptr,                             // 3
    tarn_lapack_ps_ssse3_dgetrf_small,   // 4
    tarn_lapack_ps_sse42_dgetrf_small,   // 5
    tarn_lapack_ps_avx_dgetrf_small,     // 6
    tarn_lapack_ps_avx2_dgetrf_small,    // 7
    nullptr,                             // 8: the many-core line
    tarn_lapack_ps_avx512_dgetrf_small,  // 9
};
tarn_ps_dgetrs_small_fn* const kDgetrsByCode[kHighestCode + 1] = {
    nullptr,                             // 0
    tarn_lapack_ps_sse2_dgetrs_small,    // 1
    tarn_lapack_ps_sse2_dgetrs_small,    // 2
    nullptr,                             // 3
    tarn_lapack_ps_ssse3_dgetrs_small,   // 4
    tarn_lapack_ps_sse42_dgetrs_small,   // 5
    tarn_lapack_ps_avx_dgetrs_small,     // 6
    tarn_lapack_ps_avx2_dgetrs_small,    // 7
    nullptr,                             // 8: the many-core line
    tarn_lapack_ps_avx512_dgetrs_small,  // 9
};

bool has_member(int code) {
  return code >= 0 && code <= kHighestCode && kDgetrfByCode[code] != nullptr;
}

}  // namespace

tarn_ps_dgetrf_small_fn* dgetrf_member(int code) {
  return has_member(code) ? kDgetrfByCode[code] : nullptr;
}

tarn_ps_dgetrs_small_fn* dgetrs_member(int code) {
  return has_member(code) ? kDgetrsByCode[code] : nullptr;
}

int checked_code(int (*detect)()) {
  const int code = detect();
  if (has_member(code)) return code;
  tarn_serv_print(kReportSeverity, kMsgCpuNotSupported, 1, detect());
  tarn_serv_exit(kExitUnsupported);
  return -1;
}

}  // namespace tarn_ps_small
