// Simulated processors for the detection tests: a table of CPUID answers and
// an XCR0 value, installed through the detection seam in place of the real
// processor.  Each builder step adds one capability the way the hardware
// reports it, so a test reads like the processor it describes.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "service/cpu.h"
#include "service/cpu_probe.h"
#include "tests/support/test_support.h"

namespace fakecpu {

enum Reg { kEax = 0, kEbx = 1, kEcx = 2, kEdx = 3 };

struct Processor {
  bool has_cpuid = true;
  std::uint64_t xcr0 = 0;
  // (leaf, subleaf) -> EAX EBX ECX EDX; subleaf matters for leaves 4 and 7.
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::array<std::uint32_t, 4>> leaves;

  std::array<std::uint32_t, 4>& leaf(std::uint32_t l, std::uint32_t sub = 0) {
    auto& r = leaves[{l, sub}];
    return r;
  }
  Processor& set(std::uint32_t l, std::uint32_t sub, int reg, int bit) {
    leaf(l, sub)[reg] |= 1u << bit;
    return *this;
  }
  Processor& clear(std::uint32_t l, std::uint32_t sub, int reg, int bit) {
    leaf(l, sub)[reg] &= ~(1u << bit);
    return *this;
  }

  // A vendor with basic leaves up to 0x14 and extended leaves up to
  // 0x80000008; family 6, model 0x55 unless changed.
  explicit Processor(const char* vendor = "GenuineVexan") {
    auto& l0 = leaf(0);
    l0[kEax] = 0x14;
    std::memcpy(&l0[kEbx], vendor, 4);
    std::memcpy(&l0[kEdx], vendor + 4, 4);
    std::memcpy(&l0[kEcx], vendor + 8, 4);
    leaf(0x80000000)[kEax] = 0x80000008;
    family_model(6, 0x55);
  }

  Processor& family_model(std::uint32_t family, std::uint32_t model) {
    auto& l1 = leaf(1);
    l1[kEax] = (family << 8) | ((model & 0xF) << 4) | ((model >> 4) << 16);
    return *this;
  }

  // x87 CMOV MMX FXSR SSE SSE2
  Processor& sse2() {
    for (int b : {0, 15, 23, 24, 25, 26}) set(1, 0, kEdx, b);
    return *this;
  }
  Processor& sse3() { return sse2().set(1, 0, kEcx, 0); }
  Processor& ssse3() { return sse3().set(1, 0, kEcx, 9); }
  Processor& sse41() { return ssse3().set(1, 0, kEcx, 19); }
  Processor& sse42() { return sse41().set(1, 0, kEcx, 20).set(1, 0, kEcx, 23); }  // + POPCNT
  Processor& aes() { return set(1, 0, kEcx, 25).set(1, 0, kEcx, 1); }              // + PCLMULQDQ
  // AVX with the operating system saving the YMM state.
  Processor& avx() {
    sse42().aes().set(1, 0, kEcx, 28).set(1, 0, kEcx, 29).set(1, 0, kEcx, 27);
    xcr0 |= 0x7;
    return *this;
  }
  // FMA, BMI1/2, LZCNT, AVX2.
  Processor& avx2() {
    avx().set(1, 0, kEcx, 12);
    for (int b : {3, 8, 5}) set(7, 0, kEbx, b);
    return set(0x80000001, 0, kEcx, 5);
  }
  // F, DQ, BW, VL with the ZMM state saved.
  Processor& avx512() {
    avx2();
    for (int b : {16, 17, 30, 31}) set(7, 0, kEbx, b);
    xcr0 |= 0xE0;
    return *this;
  }
  Processor& vnni() { return set(7, 0, kEcx, 11); }
  Processor& vaes() { return set(7, 0, kEcx, 9).set(7, 0, kEcx, 10); }
  Processor& bf16() {
    leaf(7, 0)[kEax] = 1;  // sub-leaf 1 exists
    return set(7, 1, kEax, 5);
  }
  Processor& fma4() { return set(0x80000001, 0, kEcx, 16); }
  Processor& mpx() {
    xcr0 |= 0x18;
    set(1, 0, kEcx, 27);
    return set(7, 0, kEbx, 14);
  }
  // A data or unified cache description in leaf 4, appended in order.
  Processor& cache(std::uint32_t type, std::uint32_t level, std::uint32_t ways,
                   std::uint32_t line, std::uint32_t sets, std::uint32_t partitions = 1) {
    std::uint32_t sub = 0;
    while (leaves.count({4, sub}) != 0) ++sub;
    auto& r = leaf(4, sub);
    r[kEax] = type | (level << 5);
    r[kEbx] = (line - 1) | ((partitions - 1) << 12) | ((ways - 1) << 22);
    r[kEcx] = sets - 1;
    return *this;
  }
};

// Standard processors.
inline Processor no_sse2() { return Processor().family_model(6, 0x0D).set(1, 0, kEdx, 0); }
inline Processor sse2_only() { return Processor().family_model(15, 0x02).sse2(); }
inline Processor ssse3_only() { return Processor().family_model(6, 0x0F).ssse3(); }
inline Processor sse41_ssse3() { return Processor().family_model(6, 0x17).sse41(); }
inline Processor sse42_only() { return Processor().family_model(6, 0x1A).sse42().aes(); }
inline Processor avx_only() { return Processor().family_model(6, 0x2A).avx(); }
inline Processor avx2_only() { return Processor().family_model(6, 0x5E).avx2(); }
inline Processor avx512_plain() { return Processor().family_model(6, 0x55).avx512(); }
inline Processor avx512_vnni() { return avx512_plain().vnni(); }
inline Processor avx512_vaes() { return avx512_vnni().vaes(); }
inline Processor avx512_bf16() { return avx512_vaes().bf16(); }
// AVX and AVX2 reported by the processor, the YMM state not enabled.
inline Processor avx2_without_os_state() {
  Processor p = avx2_only();
  p.xcr0 = 0x3;
  return p;
}

// The installed processor and a count of CPUID leaf-1 reads (one per
// filling of the feature word).
inline Processor* current = nullptr;
inline std::atomic<int> leaf1_reads{0};
inline std::atomic<int> leaf1_delay_ms{0};

inline int probe_has_cpuid() { return current->has_cpuid ? 1 : 0; }
inline void probe_cpuid(std::uint32_t leaf, std::uint32_t subleaf, std::uint32_t regs[4]) {
  if (leaf == 1) {
    ++leaf1_reads;
    if (leaf1_delay_ms.load() > 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(leaf1_delay_ms.load()));
  }
  const bool by_subleaf = leaf == 4 || leaf == 7;
  auto it = current->leaves.find({leaf, by_subleaf ? subleaf : 0});
  for (int i = 0; i < 4; ++i) regs[i] = it == current->leaves.end() ? 0 : it->second[i];
}
inline std::uint64_t probe_xgetbv(std::uint32_t) { return current->xcr0; }
inline constexpr tarn_cpu_probe kProbe = {probe_has_cpuid, probe_cpuid, probe_xgetbv};

// One fixture for every family of detection tests: a clean detection state,
// no reproducibility or ceiling variable unless a test sets one, and the
// real processor back at the end.
class FakeCpuTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tarn_serv_cpu_reset_state();
    leaf1_reads = 0;
    leaf1_delay_ms = 0;
  }
  void TearDown() override {
    tarn_serv_cpu_set_probe(nullptr);
    current = nullptr;
    tarn_serv_cpu_reset_state();
  }
  // Detection sees this processor from now on, with nothing cached.
  void use(const Processor& p) {
    processor_ = std::make_unique<Processor>(p);
    current = processor_.get();
    tarn_serv_cpu_set_probe(&kProbe);
    tarn_serv_cpu_reset_state();
  }
  void cbwr(const char* value) { cbwr_.emplace("TARN_CBWR", value); }
  void ceiling(const char* value) { ceiling_.emplace("TARN_ENABLE_INSTRUCTIONS", value); }

 private:
  std::unique_ptr<Processor> processor_;
  std::optional<testsupport::EnvGuard> cbwr_{std::in_place, "TARN_CBWR", nullptr};
  std::optional<testsupport::EnvGuard> ceiling_{std::in_place, "TARN_ENABLE_INSTRUCTIONS", nullptr};
};

}  // namespace fakecpu
