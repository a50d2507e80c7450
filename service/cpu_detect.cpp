// Branch selection: which kernel set runs in this process.  The hardware
// proposes a code, the ceiling may lower it, and a reproducibility mode
// other than off or AUTO replaces it by the code the mode pins.
#include "service/cpu.h"
#include "service/cpu_state.h"
#include "service/messages.h"

namespace {

using namespace tarn_cpu;

// Raw codes of the hardware detection (0 to 13).
constexpr int kCodeCompatible = 1;
constexpr int kCodeSse2 = 2;
constexpr int kCodeSsse3 = 4;
constexpr int kCodeSse42 = 5;
constexpr int kCodeAvx = 6;
constexpr int kCodeAvx2 = 7;
constexpr int kCodeMcx = 8;
constexpr int kCodeAvx512 = 9;
constexpr int kCodeMcxE1 = 10;
constexpr int kCodeAvx512E1 = 11;
constexpr int kCodeAvx512E2 = 12;
constexpr int kCodeAvx512E3 = 13;
constexpr int kCodeCount = 14;
constexpr int kNoCode = -4;

// dll_cfg_names: which codes have a kernel set.  Only whether a row's two
// fields (the numerical set and the vector math set) are filled matters;
// the many-core rows are empty.
struct BranchRow {
  const char* blas;
  const char* vml;
};
constexpr BranchRow dll_cfg_names[kCodeCount] = {
    {"sse2", "sse2"},     {"sse2", "sse2"},     {"sse2", "sse2"},     {"sse2", "sse2"},
    {"ssse3", "ssse3"},   {"sse42", "sse42"},   {"avx", "avx"},       {"avx2", "avx2"},
    {"", ""},             {"avx512", "avx512"}, {"", ""},             {"avx512", "avx512"},
    {"avx512", "avx512"}, {"avx512", "avx512"},
};

bool filled(const char* field) { return field != nullptr && field[0] != '\0'; }

// The code a pinned reproducibility mode requests, by mode 0 to 14.
constexpr int kCodeOfMode[] = {
    kNoCode,        kNoCode,   kNoCode,  kCodeCompatible, kCodeSse2,
    kCodeSse2,      kCodeSsse3, kCodeSsse3, kCodeSse42,   kCodeAvx,
    kCodeAvx2,      kCodeMcx,  kCodeAvx512, kCodeMcxE1,   kCodeAvx512E1,
};
constexpr int kModeCount = static_cast<int>(sizeof kCodeOfMode / sizeof kCodeOfMode[0]);

int requested_code(int mode) { return mode >= 0 && mode < kModeCount ? kCodeOfMode[mode] : kNoCode; }

// The detected-only AVX-512 extensions and the first many-core extension
// run the kernel set of their base.
int stored_code(int code) {
  if (code == kCodeMcxE1) return kCodeMcx;
  if (code >= kCodeAvx512E1 && code <= kCodeAvx512E3) return kCodeAvx512;
  return code;
}

// The hardware tier behind a ceiling number read as a branch code.  The
// ceiling's scale (0 to 8) differs from the codes' and the comparison is
// made all the same; only these numbers have a tier, the others none.
bool ceiling_tier_present(int number) {
  switch (number) {
    case kCodeSse42: return hw_sse42();
    case kCodeAvx: return hw_avx();
    case kCodeAvx2: return hw_avx2();
    case kCodeAvx512: return hw_avx512();
    case kCodeAvx512E1: return hw_avx512_e1();
    case kCodeAvx512E2: return hw_avx512_e2();
    case kCodeAvx512E3: return hw_avx512_e3();
    default: return false;
  }
}

constexpr int kDestStderr = 1;

// The tiers below AVX, common to every vendor.
int sse_tiers(bool consult_ceiling, int* error) {
  if ((!consult_ceiling || _ENABLED_SSE4_2.load() != 0) && hw_sse42()) return kCodeSse42;
  if (hw_ssse3()) return kCodeSsse3;
  if (hw_sse2()) return kCodeSse2;
  tarn_serv_print(kDestStderr, kTarnMsgMinRequirements, 0);
  tarn_serv_print(kDestStderr, kTarnMsgNeedSse2, 0);
  *error = 1;
  return -1;
}

// __tarn_cpu_detect_and_load_dll; the caller holds the detection lock.
// Returns 0, or the exit code of a failed detection.
int __tarn_cpu_detect_and_load_dll() {
  if (tarn_cpu_type.load() >= 0 && tarn_vml_cpu_type.load() >= 0) return 0;

  const int mode = tarn_serv_cbwr_get_nolock(1);
  int code = kNoCode;
  bool detect = mode == TARN_CBWR_OFF || mode == TARN_CBWR_AUTO;
  if (!detect) {
    code = requested_code(mode);
    const int row = stored_code(code);
    evaluate_ceiling();
    if (row < 0 || row >= kCodeCount || !filled(dll_cfg_names[row].blas)) {
      tarn_serv_print(kDestStderr, kTarnMsgCbwrBadMode, 0);
      detect = true;
    } else if (!filled(dll_cfg_names[row].vml)) {
      detect = true;
    } else {
      // A ceiling below the request whose tier the hardware has sends the
      // choice back to the hardware, where the ceiling applies.
      const int ceiling = enable_level.load();
      if (ceiling != -1 && code > ceiling && ceiling_tier_present(ceiling)) detect = true;
    }
  }
  if (detect) {
    int error = 0;
    code = real_detection(&error);
    if (error != 0) return error;
    if (code < 0 || code >= kCodeCount) return 1;
  }
  code = stored_code(code);

  tarn_vml_cpu_type = code + (code >= 1 ? 1 : 0) + (code > kCodeSsse3 ? 1 : 0);
  tarn_cpu_type = code == kCodeCompatible ? kCodeSse2 : code;
  return 0;
}

// The slow path of both public detection entries: the lock, a second test,
// selection; a failure ends the process.  Kept out of line so that the
// entries themselves stay one load and one compare.
__attribute__((noinline)) int detect_into(std::atomic<int>& type) {
  int status;
  {
    LockGuard guard(&TARN_Detect_Cpu_Global_Lock);
    status = type.load() >= 0 ? 0 : __tarn_cpu_detect_and_load_dll();
  }
  if (status != 0) tarn_serv_exit(status);
  return type.load();
}

}  // namespace

namespace tarn_cpu {

int real_detection(int* error) {
  *error = 0;
  if (!probe().has_cpuid()) return kCodeSse2;
  evaluate_ceiling();
  if (!vexan_vendor()) return sse_tiers(false, error);

  // From the top, stopping at the first tier the hardware lacks.
  if (hw_avx()) {
    if (!hw_avx2()) {
      if (_ENABLED_AVX.load() != 0) return kCodeAvx;
    } else {
      if (_ENABLED_AVX512.load() != 0 && hw_avx512()) {
        if (_ENABLED_AVX512_E3.load() != 0 && hw_avx512_e3()) return kCodeAvx512E3;
        if (_ENABLED_AVX512_E2.load() != 0 && hw_avx512_e2()) return kCodeAvx512E2;
        if (_ENABLED_AVX512_E1.load() == 0) return kCodeAvx512;
        return hw_avx512_e1() ? kCodeAvx512E1 : kCodeAvx512;
      }
      if (_ENABLED_AVX2.load() != 0) return kCodeAvx2;
      if (_ENABLED_AVX.load() != 0) return kCodeAvx;
    }
  }
  return sse_tiers(true, error);
}

}  // namespace tarn_cpu

extern "C" int tarn_serv_cpu_detect(void) {
  const int code = tarn_cpu_type.load(std::memory_order_acquire);
  return code >= 0 ? code : detect_into(tarn_cpu_type);
}

extern "C" int tarn_serv_vml_cpu_detect(void) {
  const int code = tarn_vml_cpu_type.load(std::memory_order_acquire);
  return code >= 0 ? code : detect_into(tarn_vml_cpu_type);
}

extern "C" int tarn_serv_get_cpu_type(int real) {
  if (real == 0) return tarn_cpu_type.load();
  int error = 0;
  const int code = real_detection(&error);
  if (error != 0) tarn_serv_exit(error);
  return code;
}
