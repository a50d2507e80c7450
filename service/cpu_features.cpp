// The feature word: one bit per processor capability, filled once from
// CPUID and XGETBV, and the whole-tier tests that detection makes on it.
#include <cstring>

#include "service/cpu.h"
#include "service/cpu_state.h"

namespace {

using tarn_cpu::read_cpuid;

enum Reg { kEax = 0, kEbx = 1, kEcx = 2, kEdx = 3 };

// Which bit of which register of a CPUID leaf lights which bit of the word,
// and which operating-system state the capability needs besides.
enum class OsState { kNone, kAvx, kAvx512, kMpx };

struct FeatureSource {
  int reg;
  int cpuid_bit;
  int word_bit;
  OsState os;
};

constexpr FeatureSource kLeaf1[] = {
    {kEdx, 0, 1, OsState::kNone},    // x87
    {kEdx, 15, 2, OsState::kNone},   // CMOV
    {kEdx, 23, 3, OsState::kNone},   // MMX
    {kEdx, 24, 4, OsState::kNone},   // FXSR
    {kEdx, 25, 5, OsState::kNone},   // SSE
    {kEdx, 26, 6, OsState::kNone},   // SSE2
    {kEcx, 0, 7, OsState::kNone},    // SSE3
    {kEcx, 9, 8, OsState::kNone},    // SSSE3
    {kEcx, 19, 9, OsState::kNone},   // SSE4.1
    {kEcx, 20, 10, OsState::kNone},  // SSE4.2
    {kEcx, 22, 11, OsState::kNone},  // MOVBE
    {kEcx, 23, 12, OsState::kNone},  // POPCNT
    {kEcx, 1, 13, OsState::kNone},   // PCLMULQDQ
    {kEcx, 25, 14, OsState::kNone},  // AES
    {kEcx, 29, 15, OsState::kAvx},   // F16C
    {kEcx, 28, 16, OsState::kAvx},   // AVX
    {kEcx, 30, 17, OsState::kNone},  // RDRAND
    {kEcx, 12, 18, OsState::kAvx},   // FMA
};

constexpr FeatureSource kLeaf7[] = {
    {kEbx, 4, 21, OsState::kNone},     // HLE
    {kEbx, 11, 22, OsState::kNone},    // RTM
    {kEbx, 5, 23, OsState::kAvx},      // AVX2
    {kEbx, 17, 24, OsState::kAvx512},  // AVX512DQ
    {kEbx, 16, 27, OsState::kAvx512},  // AVX512F
    {kEbx, 19, 28, OsState::kNone},    // ADX
    {kEbx, 18, 29, OsState::kNone},    // RDSEED
    {kEbx, 21, 30, OsState::kNone},    // AVX512IFMA
    {kEbx, 27, 32, OsState::kNone},    // AVX512ER
    {kEbx, 26, 33, OsState::kNone},    // AVX512PF
    {kEbx, 28, 34, OsState::kNone},    // AVX512CD
    {kEbx, 14, 36, OsState::kMpx},     // MPX
    {kEbx, 30, 37, OsState::kNone},    // AVX512BW
    {kEbx, 31, 38, OsState::kNone},    // AVX512VL
    {kEcx, 1, 39, OsState::kNone},     // AVX512VBMI
    {kEdx, 3, 40, OsState::kNone},     // AVX512 4FMAPS
    {kEdx, 2, 41, OsState::kNone},     // AVX512 4VNNIW
    {kEcx, 14, 42, OsState::kNone},    // AVX512 VPOPCNTDQ
    {kEcx, 12, 43, OsState::kNone},    // AVX512 BITALG
    {kEcx, 6, 44, OsState::kNone},     // AVX512 VBMI2
    {kEcx, 9, 46, OsState::kNone},     // VAES
    {kEcx, 10, 47, OsState::kNone},    // VPCLMULQDQ
    {kEcx, 11, 48, OsState::kNone},    // AVX512_VNNI
};

constexpr int kBmi1Bit = 3, kBmi2Bit = 8, kBmiWordBit = 19;
constexpr int kLzcntBit = 5, kLzcntWordBit = 20;
constexpr int kPtwriteBit = 4, kPtwriteWordBit = 25;
constexpr int kLowPowerWordBit = 31;
constexpr int kOsxsaveBit = 27;

// XCR0: SSE and AVX register state; MPX bounds; AVX-512 opmask and upper
// registers.
constexpr std::uint64_t kXcr0Avx = 0x6;
constexpr std::uint64_t kXcr0Mpx = 0x18;
constexpr std::uint64_t kXcr0Avx512 = 0xE0;

// Family 6 models of the low-power line.
constexpr std::uint32_t kLowPowerModels[] = {0x1C, 0x26, 0x27};
constexpr std::uint32_t kFamilyWithExtendedModel = 6;

constexpr std::uint32_t kLeafBasic = 1, kLeafStructured = 7, kLeafTrace = 0x14,
                        kLeafExtended = 0x80000001;

bool bit(std::uint32_t value, int n) { return ((value >> n) & 1u) != 0; }

void set_bit(std::uint64_t& word, int n) { word |= std::uint64_t{1} << n; }

std::uint64_t compute_feature_word() {
  std::uint64_t word = 1;  // bit 0: initialised
  if (!tarn_cpu::probe().has_cpuid()) return word;

  std::uint32_t r1[4], r7[4], r14[4], rx[4];
  read_cpuid(kLeafBasic, 0, r1);
  read_cpuid(kLeafStructured, 0, r7);
  read_cpuid(kLeafTrace, 0, r14);
  read_cpuid(kLeafExtended, 0, rx);

  std::uint64_t xcr0 = 0;
  if (bit(r1[kEcx], kOsxsaveBit)) xcr0 = tarn_cpu::probe().xgetbv(0);
  const bool os_avx = (xcr0 & kXcr0Avx) == kXcr0Avx;
  const bool os_avx512 = os_avx && (xcr0 & kXcr0Avx512) == kXcr0Avx512;
  const bool os_mpx = (xcr0 & kXcr0Mpx) == kXcr0Mpx;
  auto os_allows = [&](OsState os) {
    switch (os) {
      case OsState::kNone: return true;
      case OsState::kAvx: return os_avx;
      case OsState::kAvx512: return os_avx512;
      case OsState::kMpx: return os_mpx;
    }
    return false;
  };

  for (const FeatureSource& f : kLeaf1)
    if (bit(r1[f.reg], f.cpuid_bit) && os_allows(f.os)) set_bit(word, f.word_bit);
  for (const FeatureSource& f : kLeaf7)
    if (bit(r7[f.reg], f.cpuid_bit) && os_allows(f.os)) set_bit(word, f.word_bit);
  if (bit(r7[kEbx], kBmi1Bit) && bit(r7[kEbx], kBmi2Bit)) set_bit(word, kBmiWordBit);
  if (bit(rx[kEcx], kLzcntBit)) set_bit(word, kLzcntWordBit);
  if (bit(r14[kEbx], kPtwriteBit)) set_bit(word, kPtwriteWordBit);

  const std::uint32_t family = (r1[kEax] >> 8) & 0xF;
  const std::uint32_t model = ((r1[kEax] >> 4) & 0xF) | (((r1[kEax] >> 16) & 0xF) << 4);
  if (family == kFamilyWithExtendedModel)
    for (std::uint32_t m : kLowPowerModels)
      if (model == m) set_bit(word, kLowPowerWordBit);
  return word;
}

std::uint64_t feature_word() {
  std::uint32_t low = tarn_cpu::feature_low.load(std::memory_order_acquire);
  if (low == 0) {
    __vexan_tarn_features_init_x();
    low = tarn_cpu::feature_low.load(std::memory_order_acquire);
  }
  const std::uint32_t high = tarn_cpu::feature_high.load(std::memory_order_relaxed);
  return (static_cast<std::uint64_t>(high) << 32) | low;
}

// Tier masks on the low and high halves of the word; each includes bit 0.
constexpr std::uint32_t kTierSse2 = 0x41;
constexpr std::uint32_t kTierSsse3 = 0x101;
constexpr std::uint32_t kTierSse41 = 0x201;
constexpr std::uint32_t kTierSse42 = 0x401;
constexpr std::uint32_t kTierAvx = 0x10001;
constexpr std::uint32_t kTierAvx2 = 0x9C2001;  // PCLMULQDQ FMA BMI1/2 LZCNT AVX2
constexpr std::uint32_t kTierAvx512Low = 0x9000001;  // AVX512F, AVX512DQ
constexpr std::uint32_t kTierAvx512High = 0x60;      // AVX512BW, AVX512VL
constexpr std::uint32_t kTierE1High = 0x10000;       // AVX512_VNNI
constexpr std::uint32_t kTierE2High = 0xC000;        // VAES, VPCLMULQDQ
constexpr int kBf16Bit = 5;                          // leaf 7.1 EAX

}  // namespace

extern "C" void __vexan_tarn_features_init_x(void) {
  const std::uint64_t word = compute_feature_word();
  tarn_cpu::feature_high.store(static_cast<std::uint32_t>(word >> 32), std::memory_order_relaxed);
  tarn_cpu::feature_low.store(static_cast<std::uint32_t>(word), std::memory_order_release);
}

extern "C" std::uint64_t tarn_serv_get_feature_word(void) { return feature_word(); }

namespace tarn_cpu {

bool features_have(std::uint32_t low_mask, std::uint32_t high_mask) {
  const std::uint64_t word = feature_word();
  const auto low = static_cast<std::uint32_t>(word);
  const auto high = static_cast<std::uint32_t>(word >> 32);
  return (low & 1u) != 0 && (low & low_mask) == low_mask && (high & high_mask) == high_mask;
}

bool hw_sse2() { return features_have(kTierSse2, 0); }
bool hw_ssse3() { return features_have(kTierSsse3, 0); }
bool hw_sse41() { return features_have(kTierSse41, 0); }
bool hw_sse42() { return features_have(kTierSse42, 0); }
bool hw_avx() { return features_have(kTierAvx, 0); }
bool hw_avx2() { return features_have(kTierAvx2, 0); }
bool hw_avx512() { return features_have(kTierAvx512Low, kTierAvx512High); }
bool hw_avx512_e1() { return features_have(1, kTierE1High); }
bool hw_avx512_e2() { return features_have(1, kTierE2High); }

bool hw_avx512_e3() {
  // BF16 is not in the word; it is read at the point of the test.
  if (!features_have(1, 0) || !probe().has_cpuid()) return false;
  std::uint32_t r[4];
  read_cpuid(kLeafStructured, 0, r);
  if (r[kEax] < 1) return false;  // no sub-leaf 1
  read_cpuid(kLeafStructured, 1, r);
  return bit(r[kEax], kBf16Bit);
}

bool vendor_is(const char* twelve) {
  if (!probe().has_cpuid()) return false;
  std::uint32_t r[4];
  probe().cpuid(0, 0, r);
  char vendor[12];
  std::memcpy(vendor, &r[kEbx], 4);
  std::memcpy(vendor + 4, &r[kEdx], 4);
  std::memcpy(vendor + 8, &r[kEcx], 4);
  return std::memcmp(vendor, twelve, sizeof vendor) == 0;
}

bool vexan_vendor() { return probe().has_cpuid() != 0; }

}  // namespace tarn_cpu
