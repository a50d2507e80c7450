// Processor predicates for the tuning code.  Under a pinned reproducibility
// mode most of them answer from the mode, not from the machine, so that a
// reproducible run takes the same decisions everywhere.
#include "service/cpu.h"
#include "service/cpu_state.h"

namespace {

using namespace tarn_cpu;

constexpr int kModeSse41 = 7, kModeSse42 = 8, kModeMcxE1 = 13, kModeAvx512E1 = 14;
constexpr int kCodeSsse3 = 4, kCodeSse42 = 5, kCodeAvx = 6;
constexpr int kCodeMcxE1 = 10, kCodeAvx512E1 = 11, kCodeAvx512E2 = 12, kCodeAvx512E3 = 13;

// tarn_serv_get_microarchitecture answers.
constexpr int kMicroArchSsse3 = 32, kMicroArchSsse3Sse41 = 33, kMicroArchSse42 = 64,
              kMicroArchSse42Aes = 66, kMicroArchAvx = 128;

// Feature-word masks of the low-power lines and single bits.
constexpr std::uint32_t kLowPowerSse42 = 0x7F8B;
constexpr std::uint32_t kLowPowerSsse3 = 0x98B;
constexpr std::uint32_t kAesLow = 1u << 14;
constexpr std::uint32_t kAvx512DqLow = 1u << 24;
constexpr std::uint32_t kMpxHigh = 1u << (36 - 32);
constexpr std::uint32_t kFma4Bit = 16;  // CPUID 0x80000001 ECX

constexpr char kVendorAmd[] = "AuthenticAMD";

int mode() { return tarn_serv_cbwr_get(1); }
bool mode_is_native() { return mode() == TARN_CBWR_OFF || mode() == TARN_CBWR_AUTO; }

// Keeps the first answer of compute().
template <typename F>
int cached(std::atomic<int>& cache, F compute) {
  int value = cache.load();
  if (value < 0) {
    value = compute() ? 1 : 0;
    cache = value;
  }
  return value;
}

}  // namespace

extern "C" int tarn_serv_vexan_cpu(void) {
  if (vexan_cpu_cache.load() < 0) {
    LockGuard guard(&predicate_lock);
    if (vexan_cpu_cache.load() < 0) {
      // The vendor is looked at in the native modes and the answer dropped:
      // the vendor gate of the benchmark lies elsewhere.
      if (mode_is_native()) (void)vexan_vendor();
      vexan_cpu_cache = 1;
    }
  }
  return vexan_cpu_cache.load();
}

extern "C" int tarn_serv_vexan_cpu_true(void) {
  return cached(vexan_cpu_true_cache, [] { return vexan_vendor(); });
}

extern "C" int tarn_serv_cpuhas_sse41_true(void) { return hw_sse41() ? 1 : 0; }

extern "C" int tarn_serv_cpuhas_sse41(void) {
  if (mode_is_native()) return tarn_serv_cpuhas_sse41_true();
  return mode() >= kModeSse41 ? 1 : 0;
}

extern "C" int tarn_serv_cpuhas_sse42(void) {
  if (mode_is_native()) return tarn_serv_cpu_detect() >= kCodeSse42 ? 1 : 0;
  return mode() >= kModeSse42 ? 1 : 0;
}

extern "C" int tarn_serv_cpuisbulldozer(void) {
  return cached(bulldozer_cache, [] {
    if (!mode_is_native() || !vendor_is(kVendorAmd) || !hw_avx()) return false;
    std::uint32_t r[4];
    read_cpuid(0x80000001u, 0, r);
    return ((r[2] >> kFma4Bit) & 1u) != 0;
  });
}

extern "C" int tarn_serv_cpuiszen(void) {
  return cached(zen_cache, [] { return mode_is_native() && vendor_is(kVendorAmd) && hw_avx2(); });
}

extern "C" int tarn_serv_cpuisitbarcelona(void) { return 0; }

extern "C" int tarn_serv_cpuis_lowpower_sse42(void) {
  return cached(lowpower_sse42_cache,
                [] { return mode_is_native() && features_have(kLowPowerSse42, 0); });
}

extern "C" int tarn_serv_cpuis_lowpower_ssse3(void) {
  return cached(lowpower_ssse3_cache,
                [] { return mode_is_native() && features_have(kLowPowerSsse3, 0); });
}

extern "C" int tarn_serv_cpuis_mpx_client(void) {
  return mode_is_native() && features_have(1, kMpxHigh) && !features_have(kAvx512DqLow, 0) ? 1
                                                                                           : 0;
}

extern "C" int tarn_serv_cpuis_mcx_e1(void) {
  return cached(mcx_e1_cache, [] {
    const int m = mode();
    return tarn_serv_get_cpu_type(1) == kCodeMcxE1 &&
           (m == TARN_CBWR_OFF || m == TARN_CBWR_AUTO || m == kModeMcxE1);
  });
}

extern "C" int tarn_serv_cpuis_avx512_e1(void) {
  return cached(avx512_e1_cache, [] {
    const int m = mode();
    return tarn_serv_get_cpu_type(1) == kCodeAvx512E1 &&
           (m == TARN_CBWR_OFF || m == TARN_CBWR_AUTO || m == kModeAvx512E1);
  });
}

extern "C" int tarn_serv_cpuis_avx512_e2(void) {
  return cached(avx512_e2_cache, [] { return tarn_serv_get_cpu_type(1) == kCodeAvx512E2; });
}

extern "C" int tarn_serv_cpuis_avx512_e3(void) {
  return cached(avx512_e3_cache, [] { return tarn_serv_get_cpu_type(1) == kCodeAvx512E3; });
}

extern "C" int tarn_serv_get_microarchitecture(void) {
  int value = __TARN_CPU_MicroArchitecture.load();
  if (value >= 0) return value;
  switch (tarn_serv_cpu_detect()) {
    case kCodeSse42:
      value = features_have(kAesLow, 0) && mode() == TARN_CBWR_OFF ? kMicroArchSse42Aes
                                                                    : kMicroArchSse42;
      break;
    case kCodeAvx: value = kMicroArchAvx; break;
    case kCodeSsse3:
      value = tarn_serv_cpuhas_sse41() ? kMicroArchSsse3Sse41 : kMicroArchSsse3;
      break;
    default: value = 0; break;
  }
  __TARN_CPU_MicroArchitecture = value;
  return value;
}
