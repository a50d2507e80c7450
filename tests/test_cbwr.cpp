// The reproducibility word: TARN_CBWR parsing, the mode check against the
// machine, tarn_serv_cbwr_set before and after detection, and the branch a
// pinned mode selects.
#include <gtest/gtest.h>

#include <string>

#include "service/cpu.h"
#include "service/cpu_probe.h"
#include "service/messages.h"
#include "tests/fake_cpu.h"

namespace {

using namespace fakecpu;

constexpr int kStrict = TARN_CBWR_STRICT;

struct CbwrCase {
  const char* value;  // null: unset
  int word;
  int code;
};

class Cbwr : public FakeCpuTest {
 protected:
  // Each value on a fresh start of the given processor: the word it gives
  // and the branch detection then selects.
  void check(const Processor& p, std::initializer_list<CbwrCase> cases) {
    for (const CbwrCase& c : cases) {
      SCOPED_TRACE(c.value == nullptr ? "(unset)" : c.value);
      cbwr(c.value);
      use(p);
      EXPECT_EQ(tarn_serv_cbwr_get(-1), c.word);
      EXPECT_EQ(tarn_serv_cbwr_get(1), c.word & 0xFFFF);
      EXPECT_EQ(tarn_serv_cpu_detect(), c.code);
    }
  }
};

TEST_F(Cbwr, EveryNameOnAnAvx512Machine) {
  const std::string too_long(200, 'A');
  check(avx512_plain(), {
                            {nullptr, 1, 9},
                            {"", 1, 9},
                            {too_long.c_str(), 1, 9},
                            {"AUTO", 2, 9},
                            {"COMPATIBLE", 3, 2},
                            {"SSE2", 4, 2},
                            {"SSE3", 4, 2},
                            {"SSSE3", 6, 4},
                            {"SSE4_1", 7, 4},
                            {"SSE4_2", 8, 5},
                            {"AVX", 9, 6},
                            {"AVX2", 10, 7},
                            {"AVX512", 12, 9},
                            // AUTO here is 12: the many-core mode is absent
                            // and the modes above are out of reach.
                            {"AVX512_MCX", 2, 9},
                            {"AVX512_MCX_E1", 2, 9},
                            {"AVX512_E1", 2, 9},
                        });
}

TEST_F(Cbwr, SpellingsOfTheValue) {
  check(avx512_plain(), {
                            {"BRANCH=AVX", 9, 6},
                            {"BRANCH=AVX2,STRICT", 10 | kStrict, 7},
                            {"BRANCH=BRANCH=AVX", 2, 9},
                            {"bogus", 2, 9},
                            {"avx2", 2, 9},
                            {" AVX2", 2, 9},
                            {"AVX2,STRICT", 10 | kStrict, 7},
                            {"AVX2 , STRICT", 10 | kStrict, 7},
                            {"AVX2,,STRICT", 10 | kStrict, 7},
                            {"AVX2 STRICT", 2, 9},
                            {"AVX2,strict", 2, 9},
                            {"bogus,STRICT", 2, 9},
                            {"STRICT", 2, 9},
                            {",STRICT", 2, 9},
                            {"COMPATIBLE,STRICT", 3 | kStrict, 2},
                        });
}

TEST_F(Cbwr, ModeAboveTheMachineFallsToAutoKeepingStrict) {
  check(sse42_only(), {
                          {"AVX2,STRICT", 2 | kStrict, 5},
                          {"AVX2", 2, 5},
                          {"AVX", 2, 5},
                          {"SSE4_2", 8, 5},
                          {"SSE4_1", 7, 4},
                      });
}

TEST_F(Cbwr, ExtensionModesOnAVnniMachine) {
  // AUTO is 14 here; it refuses the many-core modes 11 and 13, and the
  // requested AVX512_E1 runs the AVX-512 kernels.
  check(avx512_vnni(), {
                           {"AVX512_E1", 14, 9},
                           {"AVX512_MCX_E1", 2, 9},
                           {"AVX512_MCX", 2, 9},
                           {"AVX512", 12, 9},
                           {"AVX2", 10, 7},
                       });
}

TEST_F(Cbwr, MachinesWhoseAutoHasNoModeAcceptEveryPin) {
  // The VAES and BF16 generations have no AUTO mode of their own (-4): no
  // table mode lies above it.
  for (const Processor& p : {avx512_vaes(), avx512_bf16()}) {
    check(p, {
                 {"AUTO", 2, 9},
                 {"COMPATIBLE", 3, 2},
                 {"SSE2", 4, 2},
                 {"SSE4_2", 8, 5},
                 {"AVX", 9, 6},
                 {"AVX2", 10, 7},
                 {"AVX512", 12, 9},
                 {"AVX512_E1", 14, 9},
             });
    use(p);
    EXPECT_EQ(tarn_serv_cbwr_set(TARN_CBWR_COMPATIBLE), 0);
  }
}

TEST_F(Cbwr, ModeWithoutKernelsWarnsAndDetects) {
  // The many-core modes pass the check here but have no kernel set.
  struct Case {
    const char* value;
    int mode;
  };
  for (const Case& c : {Case{"AVX512_MCX", 11}, Case{"AVX512_MCX_E1", 13}}) {
    SCOPED_TRACE(c.value);
    cbwr(c.value);
    use(avx512_bf16());
    testing::internal::CaptureStderr();
    const int code = tarn_serv_cpu_detect();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(code, 9);
    EXPECT_NE(err.find(tarn_serv_get_msg(kTarnMsgCbwrBadMode, 0)), std::string::npos) << err;
    EXPECT_EQ(tarn_serv_cbwr_get(1), c.mode);  // the mode itself stays
  }
}

TEST_F(Cbwr, QuestionsOtherThanModeAndWordAreRefused) {
  cbwr("AVX2,STRICT");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cbwr_get(5), -2);
  EXPECT_EQ(tarn_serv_cbwr_get(0), -2);
  EXPECT_EQ(tarn_serv_cbwr_get(1), 10);
  EXPECT_EQ(tarn_serv_cbwr_get(-1), 10 | kStrict);
  EXPECT_EQ(tarn_serv_cbwr_get_nolock(1), 10);
  EXPECT_EQ(tarn_serv_cbwr_get_nolock(7), -2);
}

TEST_F(Cbwr, AutoBranchByMachine) {
  struct Case {
    const char* name;
    Processor p;
    int automatic;
  };
  const Case cases[] = {
      {"sse2", sse2_only(), 4},     {"ssse3", ssse3_only(), 6}, {"ssse3+sse4.1", sse41_ssse3(), 7},
      {"sse4.2", sse42_only(), 8},  {"avx", avx_only(), 9},     {"avx2", avx2_only(), 10},
      {"avx512", avx512_plain(), 12}, {"vnni", avx512_vnni(), 14}, {"vaes", avx512_vaes(), -4},
      {"bf16", avx512_bf16(), -4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    use(c.p);
    EXPECT_EQ(tarn_serv_cbwr_get_auto_branch(), c.automatic);
  }
  // AUTO follows the ceiling.
  ceiling("AVX2");
  use(avx512_bf16());
  EXPECT_EQ(tarn_serv_cbwr_get_auto_branch(), 10);
}

// ---- tarn_serv_cbwr_set -----------------------------------------------------

TEST_F(Cbwr, SetBeforeDetection) {
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cbwr_set(12), -3);  // above AUTO (10)
  EXPECT_EQ(tarn_serv_cbwr_set(20), -2);  // no such mode
  EXPECT_EQ(tarn_serv_cbwr_set(0x20002), -3);
  EXPECT_EQ(tarn_serv_cbwr_set(10 | kStrict), 0);
  EXPECT_EQ(tarn_serv_cbwr_get(-1), 10 | kStrict);
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
}

TEST_F(Cbwr, SetBelowTwoTurnsReproducibilityOff) {
  for (int value : {1, 0, -5}) {
    use(avx2_only());
    EXPECT_EQ(tarn_serv_cbwr_set(value), 0);
    EXPECT_EQ(tarn_serv_cbwr_get(-1), TARN_CBWR_OFF);
  }
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cbwr_set(TARN_CBWR_AUTO), 0);
  EXPECT_EQ(tarn_serv_cbwr_get(-1), TARN_CBWR_AUTO);
}

TEST_F(Cbwr, NamelessModeFiveRunsSse2) {
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cbwr_set(5), 0);
  EXPECT_EQ(tarn_serv_cpu_detect(), 2);
}

TEST_F(Cbwr, ARefusedSetLeavesTheEnvironmentToDecide) {
  cbwr("SSE4_2");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cbwr_set(14), -3);
  EXPECT_EQ(tarn_serv_cbwr_get(1), 8);
}

TEST_F(Cbwr, SetBeatsTheEnvironment) {
  cbwr("SSE2");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cbwr_set(9), 0);
  EXPECT_EQ(tarn_serv_cbwr_get(1), 9);
  EXPECT_EQ(tarn_serv_cpu_detect(), 6);
}

TEST_F(Cbwr, AfterDetectionSetOnlyConfirms) {
  cbwr("AVX");
  use(avx2_only());
  EXPECT_EQ(tarn_serv_cpu_detect(), 6);
  EXPECT_EQ(tarn_serv_cbwr_set(9), 0);
  EXPECT_EQ(tarn_serv_cbwr_set(10), -8);
  EXPECT_EQ(tarn_serv_cbwr_set(1), -8);
  EXPECT_EQ(tarn_serv_cbwr_get(1), 9);
  // Nor is the environment read again.
  cbwr("AVX2");
  EXPECT_EQ(tarn_serv_cbwr_get(1), 9);
  EXPECT_EQ(tarn_serv_cpu_detect(), 6);
}

// ---- Pinned modes and the ceiling -------------------------------------------

TEST_F(Cbwr, CeilingBelowThePinnedModeRefusesIt) {
  // The check measures the pin against AUTO, and AUTO obeys the ceiling.
  ceiling("AVX2");
  cbwr("AVX512");
  use(avx512_plain());
  EXPECT_EQ(tarn_serv_cbwr_get(1), TARN_CBWR_AUTO);
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
}

TEST_F(Cbwr, CeilingNumberWithATierSendsThePinToTheHardware) {
  // AVX512_MCX_E1 is refused as a ceiling but its number (5) stays; read as
  // a branch code it names SSE4.2, which this machine has, so the pinned
  // AVX2 request goes back to detection.
  ceiling("AVX512_MCX_E1");
  cbwr("AVX2");
  use(avx512_plain());
  EXPECT_EQ(tarn_serv_cbwr_get(1), 10);
  EXPECT_EQ(tarn_serv_cpu_detect(), 9);
}

TEST_F(Cbwr, CeilingNumberWithoutATierKeepsThePin) {
  ceiling("AVX512_MCX");  // number 3: no tier
  cbwr("AVX2");
  use(avx512_plain());
  EXPECT_EQ(tarn_serv_cpu_detect(), 7);
}

TEST_F(Cbwr, PinnedModeBelowTheCeilingIsKept) {
  ceiling("SSE4_2");
  cbwr("SSE2");
  use(avx512_plain());
  EXPECT_EQ(tarn_serv_cpu_detect(), 2);
}

}  // namespace
