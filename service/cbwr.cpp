// The reproducibility word.  TARN_CBWR (or tarn_serv_cbwr_set before the
// first detection) pins a code path so that results do not change between
// machines: low 16 bits the mode, bit 16 the strict flag.
#include <cstring>

#include "service/cpu.h"
#include "service/cpu_state.h"
#include "service/messages.h"

namespace {

using namespace tarn_cpu;

constexpr int kCbwrBufferSize = 128;
constexpr int kModeLast = 14;             // highest mode of the table (AVX512_E1)
constexpr int kModeLimit = 15;            // modes under this are table modes
constexpr int kWordLimit = 0x1FFFF;       // the strict flag and a mode
constexpr int kCheckBadMode = -2;
constexpr int kCheckRefused = -3;
constexpr int kSetAfterDetection = -8;
constexpr int kAskMode = 1, kAskWord = -1, kBadQuestion = -2;

// Mode numbers of the table below.
constexpr int kModeSse2 = 4, kModeSsse3 = 6, kModeSse41 = 7, kModeSse42 = 8, kModeAvx = 9,
              kModeAvx2 = 10, kModeMcx = 11, kModeAvx512 = 12, kModeMcxE1 = 13,
              kModeAvx512E1 = 14, kModeNone = -4;

// Values of TARN_CBWR, in search order.  "SSE3" shares its mode with
// "SSE2", and mode 5 has no name.
struct CbwrName {
  const char* name;
  int mode;
};
constexpr CbwrName kCbwrNames[] = {
    {"AUTO", TARN_CBWR_AUTO},
    {"COMPATIBLE", TARN_CBWR_COMPATIBLE},
    {"SSE2", kModeSse2},
    {"SSE3", kModeSse2},
    {"SSSE3", kModeSsse3},
    {"SSE4_1", kModeSse41},
    {"SSE4_2", kModeSse42},
    {"AVX", kModeAvx},
    {"AVX2", kModeAvx2},
    {"AVX512_MCX", kModeMcx},
    {"AVX512", kModeAvx512},
    {"AVX512_MCX_E1", kModeMcxE1},
    {"AVX512_E1", kModeAvx512E1},
    {nullptr, -1},
};

constexpr char kStrictSuffix[] = "STRICT";
constexpr int kStrictLength = sizeof kStrictSuffix - 1;
constexpr char kBranchPrefix[] = "BRANCH=";
constexpr int kBranchPrefixLength = sizeof kBranchPrefix - 1;

int lookup_mode(const char* value) {
  for (const CbwrName* n = kCbwrNames; n->name != nullptr; ++n)
    if (std::strcmp(value, n->name) == 0) return n->mode;
  return -1;
}

// Removes a ",STRICT" suffix and says whether there was one.  Walking back
// from the byte before "STRICT": a comma is cut off and marks the value
// strict, blanks are passed over (and cut off once a comma has been seen,
// so "AVX2 , STRICT" leaves "AVX2"), anything else ends the walk.  Without
// a comma nothing is cut: "AVX2 STRICT" stays as it is and matches nothing.
bool strip_strict(char* value, int length) {
  if (length <= kStrictLength || std::strcmp(value + length - kStrictLength, kStrictSuffix) != 0)
    return false;
  bool strict = false;
  for (int i = length - kStrictLength - 1; i >= 0; --i) {
    if (value[i] == ',') {
      value[i] = '\0';
      strict = true;
    } else if (value[i] == ' ' || value[i] == '\t') {
      if (strict) value[i] = '\0';
    } else {
      break;
    }
  }
  return strict;
}

// The word from TARN_CBWR.
int read_cbwr_word() {
  char value[kCbwrBufferSize];
  const int length = tarn_serv_getenv("TARN_CBWR", value, kCbwrBufferSize);
  if (length <= 0) return TARN_CBWR_OFF;
  const int flag = strip_strict(value, length) ? TARN_CBWR_STRICT : 0;
  const char* name = value;
  if (std::strncmp(name, kBranchPrefix, kBranchPrefixLength) == 0) name += kBranchPrefixLength;
  int mode = lookup_mode(name);
  if (mode < 0) return TARN_CBWR_AUTO;  // the strict flag goes with the name
  if (check_cbwr_settings(mode) != 0) mode = TARN_CBWR_AUTO;
  return mode | flag;
}

int answer(int what, int word) {
  if (what == kAskMode) return word & kCbwrModeMask;
  if (what == kAskWord) return word;
  return kBadQuestion;
}

int cbwr_word_nolock() {
  int word = tarn_cbwr.load();
  if (word == -1) {
    word = read_cbwr_word();
    tarn_cbwr = word;
  }
  return word;
}

}  // namespace

namespace tarn_cpu {

int check_cbwr_settings(int value) {
  const int mode = value & kCbwrModeMask;
  if (vexan_vendor()) {
    // AUTO and the mode compare as unsigned numbers: the newest AVX-512
    // generations have no AUTO mode of their own (-4), and on them every
    // table mode stays within reach instead of every one lying above.
    const int automatic = tarn_serv_cbwr_get_auto_branch();
    if (static_cast<unsigned>(mode) > static_cast<unsigned>(automatic) && mode < kModeLimit)
      return kCheckRefused;
    // Modes numbered below AUTO that this machine still cannot give: the
    // many-core modes beside the AVX-512 ones.
    if ((automatic == kModeAvx512 && mode == kModeMcx) ||
        (automatic == kModeMcxE1 && mode == kModeAvx512) ||
        (automatic == kModeAvx512E1 && (mode == kModeMcx || mode == kModeMcxE1)))
      return kCheckRefused;
  }
  if (value > kWordLimit) return kCheckRefused;
  if (mode < TARN_CBWR_AUTO || mode > kModeLast) return kCheckBadMode;
  if (mode == TARN_CBWR_AUTO || mode == TARN_CBWR_COMPATIBLE) return 0;
  return vexan_vendor() ? 0 : kCheckRefused;
}

}  // namespace tarn_cpu

extern "C" int tarn_serv_cbwr_get(int what) {
  int word = tarn_cbwr.load();
  if (word == -1) {
    LockGuard guard(&TARN_Detect_Cpu_Global_Lock);
    word = cbwr_word_nolock();
  }
  return answer(what, word);
}

extern "C" int tarn_serv_cbwr_get_nolock(int what) { return answer(what, cbwr_word_nolock()); }

extern "C" int tarn_serv_cbwr_set(int value) {
  if (tarn_cpu_type.load() < 0) {
    LockGuard guard(&TARN_Detect_Cpu_Global_Lock);
    if (tarn_cpu_type.load() < 0) {
      if (value < TARN_CBWR_AUTO) {
        tarn_cbwr = TARN_CBWR_OFF;
        return 0;
      }
      if (value == TARN_CBWR_AUTO) {
        tarn_cbwr = TARN_CBWR_AUTO;
        return 0;
      }
      const int check = check_cbwr_settings(value);
      if (check == 0) tarn_cbwr = value;
      return check;
    }
  }
  // Once the branch is chosen the word can only be confirmed.
  return value == tarn_serv_cbwr_get(kAskWord) ? 0 : kSetAfterDetection;
}

extern "C" int tarn_serv_cbwr_get_auto_branch(void) {
  if (!vexan_vendor()) return TARN_CBWR_AUTO;
  // By the raw hardware code 0 to 13; the AVX-512 extensions have no mode.
  switch (tarn_serv_get_cpu_type(1)) {
    case 0: case 1: case 2: case 3: return kModeSse2;
    case 4: return tarn_serv_cpuhas_sse41_true() ? kModeSse41 : kModeSsse3;
    case 5: return kModeSse42;
    case 6: return kModeAvx;
    case 7: return kModeAvx2;
    case 8: return kModeMcx;
    case 9: return kModeAvx512;
    case 10: return kModeMcxE1;
    case 11: return kModeAvx512E1;
    default: return kModeNone;
  }
}
