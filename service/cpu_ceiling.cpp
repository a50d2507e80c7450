// The instruction ceiling: TARN_ENABLE_INSTRUCTIONS or a call of
// tarn_serv_enable_instructions forbids the tiers above a level, so that a
// run can be limited to, say, AVX2 code on an AVX-512 machine.
#include <cstring>

#include "service/cpu.h"
#include "service/cpu_state.h"
#include "service/messages.h"

namespace {

using namespace tarn_cpu;

constexpr int kCeilingBufferSize = 30;
constexpr int kNoCeiling = -1;
constexpr int kHighestLevel = TARN_ENABLE_AVX512_E3;

// Names of TARN_ENABLE_INSTRUCTIONS, compared exactly, in this order.
struct CeilingName {
  const char* name;
  int level;
};
constexpr CeilingName kCeilingNames[] = {
    {"AVX512_E3", TARN_ENABLE_AVX512_E3},
    {"AVX512_E2", TARN_ENABLE_AVX512_E2},
    {"AVX512_E1", TARN_ENABLE_AVX512_E1},
    {"AVX512_MCX_E1", TARN_ENABLE_AVX512_MCX_E1},
    {"AVX512_MCX", TARN_ENABLE_AVX512_MCX},
    {"AVX512", TARN_ENABLE_AVX512},
    {"AVX2", TARN_ENABLE_AVX2},
    {"AVX", TARN_ENABLE_AVX},
    {"SSE4_2", TARN_ENABLE_SSE4_2},
};

int parse_ceiling(const char* value) {
  for (const CeilingName& c : kCeilingNames)
    if (std::strcmp(value, c.name) == 0) return c.level;
  return kNoCeiling;
}

// Each tier's permission flag with the level it belongs to; a ceiling
// permits its own level and every lower one.
struct TierFlag {
  std::atomic<int>* flag;
  int level;
};
const TierFlag kTierFlags[] = {
    {&_ENABLED_SSE4_2, TARN_ENABLE_SSE4_2},
    {&_ENABLED_AVX, TARN_ENABLE_AVX},
    {&_ENABLED_AVX2, TARN_ENABLE_AVX2},
    {&_ENABLED_AVX512_MCX, TARN_ENABLE_AVX512_MCX},
    {&_ENABLED_AVX512, TARN_ENABLE_AVX512},
    {&_ENABLED_AVX512_MCX_E1, TARN_ENABLE_AVX512_MCX_E1},
    {&_ENABLED_AVX512_E1, TARN_ENABLE_AVX512_E1},
    {&_ENABLED_AVX512_E2, TARN_ENABLE_AVX512_E2},
    {&_ENABLED_AVX512_E3, TARN_ENABLE_AVX512_E3},
};

// The hardware a level asks for.  The many-core levels have none here and
// are refused.  E1 to E3 test their own bits only.
bool level_hardware_present(int level) {
  switch (level) {
    case TARN_ENABLE_SSE4_2: return hw_sse42();
    case TARN_ENABLE_AVX: return hw_avx();
    case TARN_ENABLE_AVX2: return hw_avx2();
    case TARN_ENABLE_AVX512: return hw_avx512();
    case TARN_ENABLE_AVX512_E1: return hw_avx512_e1();
    case TARN_ENABLE_AVX512_E2: return hw_avx512_e2();
    case TARN_ENABLE_AVX512_E3: return hw_avx512_e3();
    default: return false;
  }
}

int flag_after_ceiling(std::atomic<int>& flag) {
  evaluate_ceiling();
  return flag.load();
}

}  // namespace

namespace tarn_cpu {

void evaluate_ceiling() {
  // ceiling_done, not mei_was_called, opens the fast path: the latter is
  // raised before the tier flags are written, and a reader must not see the
  // flags of before the ceiling.
  if (ceiling_done.load() != 0) return;
  LockGuard guard(&ceiling_lock);
  if (ceiling_done.load() != 0) return;
  if (mei_was_called.load() == 0) {
    char value[kCeilingBufferSize];
    if (tarn_serv_getenv("TARN_ENABLE_INSTRUCTIONS", value, kCeilingBufferSize) > 0)
      enable_level = parse_ceiling(value);
    tarn_serv_enable_instructions(enable_level.load());
  }
  ceiling_done = 1;
}

}  // namespace tarn_cpu

extern "C" int tarn_serv_enable_instructions(int level) {
  mei_was_called = 1;
  if (!vexan_vendor()) return 0;
  if (static_cast<unsigned>(level) > static_cast<unsigned>(kHighestLevel)) {
    // Negative levels and levels above the table land here; only the
    // special value pins the compatible mode.
    if (level == TARN_ENABLE_SINGLE_PATH && tarn_serv_cbwr_set(TARN_CBWR_COMPATIBLE) == 0) {
      __sngl_was_called = 1;
      return 1;
    }
    return 0;
  }
  // A ceiling above the machine leaves every flag as it was.
  if (!level_hardware_present(level)) return 0;
  for (const TierFlag& t : kTierFlags) *t.flag = t.level <= level ? 1 : 0;
  return 1;
}

extern "C" int tarn_serv_is_sse4_2_enabled(void) { return flag_after_ceiling(_ENABLED_SSE4_2); }
extern "C" int tarn_serv_is_avx_enabled(void) { return flag_after_ceiling(_ENABLED_AVX); }
extern "C" int tarn_serv_is_avx2_enabled(void) { return flag_after_ceiling(_ENABLED_AVX2); }
extern "C" int tarn_serv_is_avx512_enabled(void) { return flag_after_ceiling(_ENABLED_AVX512); }
extern "C" int tarn_serv_is_avx512_mcx_enabled(void) {
  return flag_after_ceiling(_ENABLED_AVX512_MCX);
}

extern "C" int tarn_serv_sngl_was_called(void) { return __sngl_was_called.load(); }
