// Branch detection on this machine and on simulated processors, the
// instruction ceiling, and detection from several threads at once.
#include <cpuid.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "service/cpu.h"
#include "service/cpu_probe.h"
#include "service/messages.h"
#include "tests/fake_cpu.h"

namespace {

using namespace fakecpu;

// The branch code this machine should get, from the kernel's own account of
// the processor (which leaves out what the operating system does not save).
int expected_code_from_proc_cpuinfo() {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  std::set<std::string> flags;
  while (std::getline(in, line)) {
    if (line.rfind("flags", 0) != 0) continue;
    std::istringstream words(line.substr(line.find(':') + 1));
    for (std::string w; words >> w;) flags.insert(w);
    break;
  }
  // Some kernels list LZCNT as "abm", others not at all (it needs no saved
  // state, so the processor's own word is as good as the kernel's).
  unsigned eax, ebx, ecx, edx;
  constexpr unsigned kLzcntBit = 1u << 5;  // CPUID 0x80000001 ECX
  if (__get_cpuid(0x80000001u, &eax, &ebx, &ecx, &edx) && (ecx & kLzcntBit) != 0)
    flags.insert("abm");
  auto all = [&](std::initializer_list<const char*> names) {
    for (const char* n : names)
      if (flags.count(n) == 0) return false;
    return true;
  };
  if (all({"avx512f", "avx512dq", "avx512bw", "avx512vl", "avx2", "fma", "bmi1", "bmi2", "abm",
           "pclmulqdq"}))
    return 9;
  if (all({"avx2", "fma", "bmi1", "bmi2", "abm", "pclmulqdq"})) return 7;
  if (all({"avx"})) return 6;
  if (all({"sse4_2"})) return 5;
  if (all({"ssse3"})) return 4;
  return 2;
}

using Detection = FakeCpuTest;

TEST_F(Detection, ThisMachineGetsTheBranchItsFlagsPromise) {
  if (testsupport::under_emulation())
    GTEST_SKIP() << "/proc/cpuinfo describes the host, not the emulated processor";
  testsupport::EnvGuard cbwr("TARN_CBWR", nullptr);
  testsupport::EnvGuard ceiling("TARN_ENABLE_INSTRUCTIONS", nullptr);
  const int expected = expected_code_from_proc_cpuinfo();
  EXPECT_EQ(tarn_serv_cpu_detect(), expected);
  EXPECT_EQ(tarn_serv_get_cpu_type(0), expected);
  // Branch code 9 on this machine is what the kernel set of the product is
  // tuned for; say so loudly if the machine changed.
  if (expected == 9) {
    EXPECT_EQ(tarn_serv_cpu_detect(), 9);
  }
  EXPECT_EQ(tarn_serv_vexan_cpu_true(), 1);
  EXPECT_EQ(tarn_serv_cbwr_get(1), TARN_CBWR_OFF);
}

TEST_F(Detection, SimulatedProcessorsGetTheirTier) {
  struct Case {
    const char* name;
    Processor p;
    int code;
    int raw;
  };
  const Case cases[] = {
      {"sse2", sse2_only(), 2, 2},
      {"ssse3", ssse3_only(), 4, 4},
      {"sse4.1", sse41_ssse3(), 4, 4},
      {"sse4.2", sse42_only(), 5, 5},
      {"avx", avx_only(), 6, 6},
      {"avx2", avx2_only(), 7, 7},
      {"avx512", avx512_plain(), 9, 9},
      {"avx512 vnni", avx512_vnni(), 9, 11},
      {"avx512 vaes", avx512_vaes(), 9, 12},
      {"avx512 bf16", avx512_bf16(), 9, 13},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    use(c.p);
    EXPECT_EQ(tarn_serv_get_cpu_type(0), -1);
    EXPECT_EQ(tarn_serv_cpu_detect(), c.code);
    EXPECT_EQ(tarn_serv_get_cpu_type(1), c.raw);
    EXPECT_EQ(tarn_serv_get_cpu_type(0), c.code);
  }
}

TEST_F(Detection, Avx2WithoutAvx512) {
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
  const std::uint64_t word = tarn_serv_get_feature_word();
  EXPECT_TRUE(word & (1u << 23));               // AVX2
  EXPECT_FALSE(word & (std::uint64_t{1} << 27));  // AVX512F
  // No ceiling: every permission flag stays up even above the machine.
  EXPECT_EQ(tarn_serv_is_avx512_enabled(), 1);
}

TEST_F(Detection, Sse42Only) {
  use(sse42_only());
  EXPECT_EQ(tarn_serv_cpu_detect(), 5);
  EXPECT_EQ(tarn_serv_get_microarchitecture(), 66);  // AES, reproducibility off
  EXPECT_EQ(tarn_serv_cpuhas_sse42(), 1);
}

TEST_F(Detection, AvxBitsWithoutOsStateFallToTheSseTiers) {
  use(avx2_without_os_state());
  EXPECT_EQ(tarn_serv_cpu_detect(), 5);
  const std::uint64_t word = tarn_serv_get_feature_word();
  for (int bit : {15, 16, 18, 23}) EXPECT_FALSE(word & (std::uint64_t{1} << bit)) << bit;
  // What needs no register state is still reported.
  EXPECT_TRUE(word & (1u << 19));  // BMI1 and BMI2
  EXPECT_TRUE(word & (1u << 20));  // LZCNT
}

TEST_F(Detection, Avx512WithoutZmmStateStaysOnAvx2) {
  Processor p = avx512_plain();
  p.xcr0 = 0x7;
  use(p);
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
}

TEST_F(Detection, NoCpuidInstructionMeansSse2) {
  Processor p = sse2_only();
  p.has_cpuid = false;
  use(p);
  EXPECT_EQ(tarn_serv_get_feature_word(), 1u);
  EXPECT_EQ(tarn_serv_cpu_detect(), 2);
  EXPECT_EQ(tarn_serv_vexan_cpu_true(), 0);
}

TEST_F(Detection, OtherVendorsRunAtFullSpeed) {
  // The placeholder vendor test passes on every x86 processor.
  Processor p("AuthenticAMD");
  p.family_model(0x17, 0x31).avx2();
  use(p);
  EXPECT_EQ(tarn_serv_vexan_cpu_true(), 1);
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
}

TEST_F(Detection, CodesOfTheVectorMathSide) {
  struct Case {
    Processor p;
    int vml;
  };
  for (const Case& c : {Case{sse2_only(), 3}, Case{ssse3_only(), 5}, Case{sse42_only(), 7},
                        Case{avx2_only(), 9}, Case{avx512_bf16(), 11}}) {
    use(c.p);
    EXPECT_EQ(tarn_serv_vml_cpu_detect(), c.vml);
  }
}

// ---- No SSE2 ----------------------------------------------------------------

int exit_code_seen = -1;
void record_exit(int code) { exit_code_seen = code; }

TEST_F(Detection, NoSse2PrintsBothRowsAndExitsWithOne) {
  use(no_sse2());
  exit_code_seen = -1;
  tarn_exit_fn old = tarn_serv_set_exit_handler(record_exit);
  testing::internal::CaptureStderr();
  const int code = tarn_serv_cpu_detect();
  const std::string err = testing::internal::GetCapturedStderr();
  tarn_serv_set_exit_handler(old);
  EXPECT_EQ(exit_code_seen, 1);
  EXPECT_EQ(code, -1);  // the handler returned: nothing was stored
  const std::string row1210 = tarn_serv_get_msg(kTarnMsgMinRequirements, 0);
  const std::string row1211 = tarn_serv_get_msg(kTarnMsgNeedSse2, 0);
  const auto at1210 = err.find(row1210);
  const auto at1211 = err.find(row1211);
  ASSERT_NE(at1210, std::string::npos) << err;
  ASSERT_NE(at1211, std::string::npos) << err;
  EXPECT_LT(at1210, at1211);
}

TEST_F(Detection, NoSse2EndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  use(no_sse2());
  EXPECT_EXIT(tarn_serv_cpu_detect(), testing::ExitedWithCode(1), "minimum requirements");
}

// ---- Instruction ceiling ----------------------------------------------------

using Ceiling = FakeCpuTest;

TEST_F(Ceiling, Avx2OnAnAvx512Machine) {
  ceiling("AVX2");
  use(avx512_bf16());
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
  EXPECT_EQ(tarn_serv_is_avx512_enabled(), 0);
  EXPECT_EQ(tarn_serv_is_avx2_enabled(), 1);
  EXPECT_EQ(tarn_serv_is_avx_enabled(), 1);
  EXPECT_EQ(tarn_serv_is_sse4_2_enabled(), 1);
}

TEST_F(Ceiling, Avx512OnAnAvx2MachineIsRefused) {
  use(avx2_only());
  EXPECT_EQ(tarn_serv_enable_instructions(TARN_ENABLE_AVX512), 0);
  EXPECT_EQ(tarn_serv_is_avx512_enabled(), 1);  // flags untouched
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
}

TEST_F(Ceiling, Avx512FromTheEnvironmentOnAnAvx2Machine) {
  ceiling("AVX512");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
}

TEST_F(Ceiling, EachNameLowersDetectionOnTheTopMachine) {
  struct Case {
    const char* value;
    int raw;
  };
  const Case cases[] = {
      {"AVX512_E3", 13}, {"AVX512_E2", 12}, {"AVX512_E1", 11}, {"AVX512", 9},
      {"AVX2", 7},       {"AVX", 6},        {"SSE4_2", 5},
      // Refused or unknown: no ceiling.
      {"AVX512_MCX", 13}, {"AVX512_MCX_E1", 13}, {"avx2", 13}, {"", 13},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    ceiling(c.value);
    use(avx512_bf16());
    EXPECT_EQ(tarn_serv_get_cpu_type(1), c.raw);
  }
}

TEST_F(Ceiling, ExtensionsTestOnlyTheirOwnBit) {
  // A VNNI bit without AVX-512 is enough for the E1 ceiling to be accepted,
  // and it lowers the flags above it.
  Processor p = avx2_only();
  p.vnni();
  use(p);
  EXPECT_EQ(tarn_serv_enable_instructions(TARN_ENABLE_AVX512_E1), 1);
  EXPECT_EQ(tarn_serv_enable_instructions(TARN_ENABLE_AVX512_E2), 0);
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
}

TEST_F(Ceiling, BelowTheMachineLowersEveryFlagAbove) {
  use(avx512_bf16());
  EXPECT_EQ(tarn_serv_enable_instructions(TARN_ENABLE_AVX), 1);
  EXPECT_EQ(tarn_serv_is_sse4_2_enabled(), 1);
  EXPECT_EQ(tarn_serv_is_avx_enabled(), 1);
  EXPECT_EQ(tarn_serv_is_avx2_enabled(), 0);
  EXPECT_EQ(tarn_serv_is_avx512_mcx_enabled(), 0);
  EXPECT_EQ(tarn_serv_is_avx512_enabled(), 0);
  // A later, higher ceiling raises them again.
  EXPECT_EQ(tarn_serv_enable_instructions(TARN_ENABLE_AVX512), 1);
  EXPECT_EQ(tarn_serv_is_avx512_enabled(), 1);
  EXPECT_EQ(tarn_serv_is_avx512_mcx_enabled(), 1);
  EXPECT_EQ(tarn_serv_cpu_detect(), 9);
  EXPECT_EQ(tarn_serv_get_cpu_type(1), 9);  // E1 to E3 still forbidden
}

TEST_F(Ceiling, BadLevelsAreRefused) {
  use(avx512_bf16());
  for (int level : {-1, 3, 5, 9, 1535, 1537}) {
    EXPECT_EQ(tarn_serv_enable_instructions(level), 0) << level;
  }
  EXPECT_EQ(tarn_serv_is_avx512_enabled(), 1);
  EXPECT_EQ(tarn_serv_sngl_was_called(), 0);
}

TEST_F(Ceiling, ACallBeforeDetectionBeatsTheEnvironment) {
  ceiling("SSE4_2");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_enable_instructions(TARN_ENABLE_AVX), 1);
  EXPECT_EQ(tarn_serv_cpu_detect(), 6);
}

TEST_F(Ceiling, TheEnvironmentIsReadOnce) {
  ceiling("AVX");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_is_avx2_enabled(), 0);
  ceiling("AVX2");
  EXPECT_EQ(tarn_serv_is_avx2_enabled(), 0);
  EXPECT_EQ(tarn_serv_cpu_detect(), 6);
}

TEST_F(Ceiling, SpecialValuePinsTheCompatibleMode) {
  use(avx2_only());
  EXPECT_EQ(tarn_serv_enable_instructions(TARN_ENABLE_SINGLE_PATH), 1);
  EXPECT_EQ(tarn_serv_sngl_was_called(), 1);
  EXPECT_EQ(tarn_serv_cbwr_get(1), TARN_CBWR_COMPATIBLE);
  EXPECT_EQ(tarn_serv_cpu_detect(), 2);
}

// ---- Concurrency ------------------------------------------------------------

TEST_F(Detection, TwoThreadsDetectOnce) {
  use(avx2_only());
  leaf1_delay_ms = 20;  // widen the window in which both are inside
  std::atomic<bool> go{false};
  int codes[2] = {-1, -1};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t)
    threads.emplace_back([&, t] {
      while (!go.load()) std::this_thread::yield();
      codes[t] = tarn_serv_cpu_detect();
    });
  go = true;
  for (auto& th : threads) th.join();
  EXPECT_EQ(codes[0], 7);
  EXPECT_EQ(codes[1], 7);
  EXPECT_EQ(leaf1_reads.load(), 1);  // the feature word was filled once
}

}  // namespace
