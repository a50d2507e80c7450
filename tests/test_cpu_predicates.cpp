// Processor predicates, the microarchitecture code and the cache sizes, on
// simulated processors, natively and under pinned reproducibility modes.
#include <gtest/gtest.h>

#include <cstdint>

#include "service/cpu.h"
#include "service/cpu_probe.h"
#include "tests/fake_cpu.h"

namespace {

using namespace fakecpu;

Processor zen() { return Processor("AuthenticAMD").family_model(0x17, 0x31).avx2(); }
Processor bulldozer() { return Processor("AuthenticAMD").family_model(0x15, 0x01).avx().fma4(); }
// Low-power lines: family 6 with MOVBE.
Processor atom_ssse3() { return Processor().family_model(6, 0x1C).ssse3().set(1, 0, kEcx, 22); }
Processor atom_sse42() { return Processor().family_model(6, 0x37).sse42().aes().set(1, 0, kEcx, 22); }

using Predicates = FakeCpuTest;

TEST_F(Predicates, ZenAndBulldozerByVendorAndFeatures) {
  use(zen());
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);  // the vendor does not cap the branch
  EXPECT_EQ(tarn_serv_cpuiszen(), 1);
  EXPECT_EQ(tarn_serv_cpuisbulldozer(), 0);

  use(bulldozer());
  EXPECT_EQ(tarn_serv_cpuisbulldozer(), 1);
  EXPECT_EQ(tarn_serv_cpuiszen(), 0);

  // The same features under another vendor name are neither.
  Processor intel = avx2_only();
  intel.fma4();
  use(intel);
  EXPECT_EQ(tarn_serv_cpuiszen(), 0);
  EXPECT_EQ(tarn_serv_cpuisbulldozer(), 0);
  EXPECT_EQ(tarn_serv_cpuisitbarcelona(), 0);
}

TEST_F(Predicates, VendorPredicatesOnlyInNativeModes) {
  cbwr("AUTO");
  use(zen());
  EXPECT_EQ(tarn_serv_cpuiszen(), 1);
  cbwr("AVX2");
  use(zen());
  EXPECT_EQ(tarn_serv_cpuiszen(), 0);
  use(bulldozer());
  EXPECT_EQ(tarn_serv_cbwr_get(1), 2);  // AVX2 is above this machine
  EXPECT_EQ(tarn_serv_cpuisbulldozer(), 1);
}

TEST_F(Predicates, CachedAnswersKeepTheirFirstValue) {
  use(zen());
  EXPECT_EQ(tarn_serv_cpuiszen(), 1);
  // Another processor behind the probe, nothing forgotten.
  *current = avx2_only();
  EXPECT_EQ(tarn_serv_cpuiszen(), 1);
}

TEST_F(Predicates, VendorTestsPassOnEveryProcessor) {
  for (const Processor& p : {zen(), avx2_only(), Processor("SomeOtherCPU").sse2()}) {
    use(p);
    EXPECT_EQ(tarn_serv_vexan_cpu_true(), 1);
    EXPECT_EQ(tarn_serv_vexan_cpu(), 1);
  }
  Processor none = sse2_only();
  none.has_cpuid = false;
  use(none);
  EXPECT_EQ(tarn_serv_vexan_cpu(), 1);
}

TEST_F(Predicates, Sse41FollowsTheModeWhenPinned) {
  use(sse41_ssse3());
  EXPECT_EQ(tarn_serv_cpuhas_sse41(), 1);
  use(ssse3_only());
  EXPECT_EQ(tarn_serv_cpuhas_sse41(), 0);
  EXPECT_EQ(tarn_serv_cpuhas_sse41_true(), 0);

  cbwr("SSSE3");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cpuhas_sse41(), 0);
  EXPECT_EQ(tarn_serv_cpuhas_sse41_true(), 1);
  cbwr("SSE4_1");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cpuhas_sse41(), 1);
}

TEST_F(Predicates, Sse42FollowsTheBranchOrTheMode) {
  use(sse42_only());
  EXPECT_EQ(tarn_serv_cpuhas_sse42(), 1);
  use(sse41_ssse3());
  EXPECT_EQ(tarn_serv_cpuhas_sse42(), 0);
  struct Case {
    const char* mode;
    int answer;
  };
  for (const Case& c : {Case{"COMPATIBLE", 0}, Case{"SSE4_1", 0}, Case{"SSE4_2", 1}, Case{"AVX2", 1}}) {
    SCOPED_TRACE(c.mode);
    cbwr(c.mode);
    use(avx2_only());
    EXPECT_EQ(tarn_serv_cpuhas_sse42(), c.answer);
  }
}

TEST_F(Predicates, LowPowerLines) {
  use(atom_ssse3());
  EXPECT_TRUE(tarn_serv_get_feature_word() & (std::uint64_t{1} << 31));
  EXPECT_EQ(tarn_serv_cpuis_lowpower_ssse3(), 1);
  EXPECT_EQ(tarn_serv_cpuis_lowpower_sse42(), 0);
  use(atom_sse42());
  EXPECT_EQ(tarn_serv_cpuis_lowpower_sse42(), 1);
  use(sse42_only());  // no MOVBE
  EXPECT_EQ(tarn_serv_cpuis_lowpower_sse42(), 0);
  EXPECT_FALSE(tarn_serv_get_feature_word() & (std::uint64_t{1} << 31));
  cbwr("SSE4_2");
  use(atom_sse42());
  EXPECT_EQ(tarn_serv_cpuis_lowpower_sse42(), 0);
}

TEST_F(Predicates, MpxClient) {
  use(avx2_only().mpx());
  EXPECT_EQ(tarn_serv_cpuis_mpx_client(), 1);
  use(avx512_plain().mpx());
  EXPECT_EQ(tarn_serv_cpuis_mpx_client(), 0);  // a server part
  Processor no_state = avx2_only().mpx();
  no_state.xcr0 &= ~std::uint64_t{0x18};
  use(no_state);
  EXPECT_EQ(tarn_serv_cpuis_mpx_client(), 0);
}

TEST_F(Predicates, Avx512Extensions) {
  struct Case {
    const char* name;
    Processor p;
    int e1, e2, e3;
  };
  const Case cases[] = {
      {"plain", avx512_plain(), 0, 0, 0},
      {"vnni", avx512_vnni(), 1, 0, 0},
      {"vaes", avx512_vaes(), 0, 1, 0},
      {"bf16", avx512_bf16(), 0, 0, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    use(c.p);
    EXPECT_EQ(tarn_serv_cpuis_avx512_e1(), c.e1);
    EXPECT_EQ(tarn_serv_cpuis_avx512_e2(), c.e2);
    EXPECT_EQ(tarn_serv_cpuis_avx512_e3(), c.e3);
    EXPECT_EQ(tarn_serv_cpuis_mcx_e1(), 0);
  }
  cbwr("AVX512_E1");
  use(avx512_vnni());
  EXPECT_EQ(tarn_serv_cpuis_avx512_e1(), 1);
  cbwr("AVX512");
  use(avx512_vnni());
  EXPECT_EQ(tarn_serv_cpuis_avx512_e1(), 0);
}

TEST_F(Predicates, Microarchitecture) {
  struct Case {
    const char* name;
    Processor p;
    const char* mode;
    int code;
  };
  const Case cases[] = {
      {"ssse3", ssse3_only(), nullptr, 32},
      {"ssse3+sse4.1", sse41_ssse3(), nullptr, 33},
      {"sse4.2 aes", sse42_only(), nullptr, 66},
      {"sse4.2 aes auto", sse42_only(), "AUTO", 64},
      {"sse4.2", Processor().family_model(6, 0x1A).sse42(), nullptr, 64},
      {"avx", avx_only(), nullptr, 128},
      {"avx2", avx2_only(), nullptr, 0},
      {"avx2 as ssse3", avx2_only(), "SSSE3", 32},
      {"avx2 compatible", avx2_only(), "COMPATIBLE", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    cbwr(c.mode);
    use(c.p);
    EXPECT_EQ(tarn_serv_get_microarchitecture(), c.code);
  }
}

// ---- Cache sizes ------------------------------------------------------------

using CacheSizes = FakeCpuTest;

constexpr std::uint32_t kData = 1, kInstruction = 2, kUnified = 3;

TEST_F(CacheSizes, ReadFromTheProcessorWithReproducibilityOff) {
  Processor p = avx512_plain();
  p.cache(kData, 1, 12, 64, 64)
      .cache(kInstruction, 1, 8, 64, 64)
      .cache(kUnified, 2, 16, 64, 2048)
      .cache(kUnified, 3, 15, 64, 28672, 2);
  use(p);
  std::int64_t sizes[5] = {-9, -9, -9, -9, -9};
  tarn_serv_cache_info(sizes);
  EXPECT_EQ(sizes[0], 3);
  EXPECT_EQ(sizes[1], 49152);
  EXPECT_EQ(sizes[2], 2097152);
  EXPECT_EQ(sizes[3], std::int64_t{15} * 2 * 64 * 28672);
  EXPECT_EQ(sizes[4], 0);
  EXPECT_EQ(tarn_serv_get_cache_size(0), sizes[3]);
  EXPECT_EQ(tarn_serv_get_cache_size(2), sizes[2]);
  EXPECT_EQ(tarn_serv_get_cache_size(4), -1);
  EXPECT_EQ(tarn_serv_get_cache_size(-1), -1);
}

TEST_F(CacheSizes, SizesBeyondThirtyTwoBitsAndAtMostFourLevels) {
  Processor p = avx2_only();
  for (std::uint32_t level = 1; level <= 5; ++level) p.cache(kUnified, level, 1024, 4096, 1024);
  use(p);
  EXPECT_EQ(tarn_serv_get_cache_size(0), tarn_serv_get_cache_size(4));
  EXPECT_EQ(tarn_serv_get_cache_size(4), std::int64_t{1024} * 4096 * 1024);
  EXPECT_EQ(tarn_serv_get_cache_size(5), -1);
}

TEST_F(CacheSizes, NoCacheLeafMeansNoLevels) {
  use(avx2_only());
  EXPECT_EQ(tarn_serv_get_cache_size(1), -1);
  EXPECT_EQ(tarn_serv_get_cache_size(0), 0);
}

TEST_F(CacheSizes, FixedUnderReproducibility) {
  struct Case {
    const char* mode;
    Processor p;
    int levels;
  };
  const Case cases[] = {
      {"AUTO", sse42_only(), 3},      {"AUTO", ssse3_only(), 2},
      {"COMPATIBLE", avx2_only(), 2}, {"SSE4_1", avx2_only(), 2},
      {"SSE4_2", avx2_only(), 3},     {"AVX2", avx2_only(), 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.mode) + " " + std::to_string(c.levels));
    cbwr(c.mode);
    Processor p = c.p;
    p.cache(kData, 1, 12, 64, 64);  // ignored
    use(p);
    std::int64_t sizes[5];
    tarn_serv_cache_info(sizes);
    EXPECT_EQ(sizes[0], c.levels);
    EXPECT_EQ(sizes[1], 32768);
    EXPECT_EQ(sizes[2], 0x40000);
    EXPECT_EQ(sizes[3], c.levels == 3 ? 0x400000 : 0);
    EXPECT_EQ(tarn_serv_get_cache_size(0), c.levels == 3 ? 0x400000 : 0x40000);
    EXPECT_EQ(tarn_serv_get_cache_size(3), c.levels == 3 ? 0x400000 : -1);
  }
}

TEST_F(CacheSizes, ThisMachineReportsPlausibleSizes) {
  std::int64_t sizes[5];
  tarn_serv_cache_info(sizes);
  ASSERT_GE(sizes[0], 0);
  ASSERT_LE(sizes[0], 4);
  for (int level = 1; level <= sizes[0]; ++level) {
    EXPECT_GE(sizes[level], 4096) << level;
    if (level > 1) {
      EXPECT_GE(sizes[level], sizes[level - 1]) << level;
    }
  }
}

}  // namespace
