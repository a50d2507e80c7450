// The branch table of the dispatching stubs and the stop for a processor
// that has no branch.
#include "blas/dispatch.h"

#include "service/cpu.h"
#include "service/messages.h"

namespace tarn_dispatch {

namespace {

// "Vexan TARN ERROR: CPU %d is not supported."
constexpr int kMsgCpuNotSupported = 1213;
// Severity argument of the report: the first argument of tarn_serv_print.
constexpr int kReportSeverity = 0;
constexpr int kExitUnsupported = 1;
// The reproducibility mode with no request (TARN_CBWR_OFF): the oldest
// branches keep their own kernels only then.
constexpr int kCbwrAutomatic = TARN_CBWR_OFF;

constexpr int kLowestCode = 1;
constexpr int kHighestCode = 9;

// Branch by code for the codes that do not look at the reproducibility mode;
// codes 1, 2 and 4 are decided in branch_for.
constexpr int kBranchByCode[kHighestCode + 1] = {
    kNoBranch,  // 0: not a processor this library runs on
    kSse2,      // 1: compatible form of 2 (mode decides)
    kSse2,      // 2 (mode decides)
    kNoBranch,  // 3: no branch
    kSsse3,     // 4 (mode decides)
    kSse42,     // 5
    kAvx,       // 6
    kAvx2,      // 7
    kNoBranch,  // 8: the many-core line has no case here
    kAvx512,    // 9
};

// Normally does not return; an installed exit handler may, and then the
// stub stays unresolved and returns without doing anything.
void stop_unsupported(int (*detect)()) {
  tarn_serv_print(kReportSeverity, kMsgCpuNotSupported, 1, detect());
  tarn_serv_exit(kExitUnsupported);
}

int service_detect() { return tarn_serv_cpu_detect(); }
int service_cbwr(int what) { return tarn_serv_cbwr_get(what); }

}  // namespace

bool code_reads_cbwr(int code) { return code == 1 || code == 2 || code == 4; }

int branch_for(int code, int cbwr_mode) {
  if (code < kLowestCode || code > kHighestCode) return kNoBranch;
  // On the oldest codes any fixed mode falls to the reproducible set.
  if (code_reads_cbwr(code) && cbwr_mode != kCbwrAutomatic) return kCnrSse2;
  return kBranchByCode[code];
}

int select_branch_with(int (*detect)(), int (*cbwr)(int)) {
  const int code = detect();
  if (code < kLowestCode || code > kHighestCode) {
    stop_unsupported(detect);
    return kNoBranch;
  }
  const int mode = code_reads_cbwr(code) ? cbwr(1) : kCbwrAutomatic;
  const int branch = branch_for(code, mode);
  if (branch == kNoBranch) stop_unsupported(detect);
  return branch;
}

int select_branch() { return select_branch_with(service_detect, service_cbwr); }

}  // namespace tarn_dispatch
