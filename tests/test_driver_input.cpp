// Input files through the real binary: the number of tests, the four lines
// of slots with their clamps and warnings, the memory sizing, and a short
// real run with its rows, summary and exit status.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using testsupport::RunResult;
using testsupport::run_program;
using testsupport::write_temp_file;

constexpr int kAbortStatus = 255;

// Runs the binary on an input file holding `text`.
RunResult run_input(const std::string& text) {
  const std::string path = write_temp_file(text, ".in");
  RunResult r = run_program(LINPACK_BIN, {path}, "", {}, LINPACK_DIR);
  std::remove(path.c_str());
  return r;
}

// Runs the binary on `text` under a virtual memory limit in KiB.
RunResult run_input_limited(const std::string& text, int limit_kib) {
  const std::string path = write_temp_file(text, ".in");
  RunResult r = run_program("/bin/sh",
                            {"-c", "ulimit -v " + std::to_string(limit_kib) + " && exec " +
                                       testsupport::shell_command_for(LINPACK_BIN) + " " + path},
                            "", {}, LINPACK_DIR);
  std::remove(path.c_str());
  return r;
}

// The seven lines of an input file.
std::string input(const std::string& ntests, const std::string& sizes, const std::string& ldas,
                  const std::string& trials, const std::string& aligns) {
  return "comment line\nTitle of the run\n" + ntests + "\n" + sizes + "\n" + ldas + "\n" +
         trials + "\n" + aligns + "\n";
}

bool contains(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

std::string warning(const std::string& label, int value, const char* bound_kind, int bound,
                    int set_to) {
  return "Warning: incorrect parameter " + label + " (" + std::to_string(value) + "),\n" +
         "must be not " + bound_kind + " than (" + std::to_string(bound) + "),\n" +
         "set to default value (" + std::to_string(set_to) + ").\n";
}

// The value row of the header table with one label.
std::string table_row(const std::string& label, const std::vector<int>& slots) {
  char head[64];
  std::snprintf(head, sizeof head, "%-43s :", label.c_str());
  std::string row = head;
  for (int v : slots) {
    char cell[16];
    std::snprintf(cell, sizeof cell, " %-5i", v);
    row += cell;
  }
  return row + "\n";
}

// Number of output lines that match `re` as a whole.
int count(const std::string& text, const std::regex& re) {
  int n = 0;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    if (std::regex_match(text.begin() + static_cast<std::ptrdiff_t>(start),
                         text.begin() + static_cast<std::ptrdiff_t>(end), re))
      ++n;
    start = end + 1;
  }
  return n;
}

const std::string kSizeLabel = "Number of equations to solve (problem size)";
const std::string kLdaLabel = "Leading dimension of array";
const std::string kTrialsLabel = "Number of trials to run";
const std::string kAlignLabel = "Data alignment value (in Kbytes)";

// ---- line 3: the number of tests ------------------------------------------------

TEST(DriverTestCount, MissingUnreadableOrHugeCountAborts) {
  for (const std::string& text : {std::string(""), std::string("only one line\n"),
                                 std::string("a\nb\n"), input("abc", "", "", "", ""),
                                 input("", "", "", "", ""), input("99999999999", "", "", "", ""),
                                 input("2147483648", "", "", "", ""), input("4294967296", "", "", "", ""),
                                 input("-2147483649", "", "", "", ""),
                                 input("-99999999999", "", "", "", "")}) {
    const RunResult r = run_input(text);
    EXPECT_EQ(r.status, kAbortStatus) << text;
    EXPECT_TRUE(contains(r.out, "Could not open file")) << r.out;
    EXPECT_TRUE(contains(r.out, ", aborted.\n")) << r.out;
    EXPECT_FALSE(contains(r.out, "Title of the run")) << r.out;
  }
}

TEST(DriverTestCount, NoTestsStillPrintsEverythingAndPasses) {
  const RunResult r = run_input(input("0   # nothing to do", "", "", "", ""));
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(contains(r.out, "Title of the run\n\n")) << r.out;
  EXPECT_TRUE(contains(r.out, "Number of tests: 0\n"));
  EXPECT_TRUE(contains(r.out, "Maximum memory requested that can be used=0, at the size=0\n"));
  EXPECT_TRUE(contains(r.out, "Timing linear equation system solver"));
  EXPECT_TRUE(contains(r.out, "Performance Summary (GFlops)"));
  EXPECT_TRUE(contains(r.out, "Residual checks PASSED"));
  EXPECT_TRUE(contains(r.out, "End of tests"));
}

TEST(DriverTestCount, CountsAtThe32BitLimitsAreCutLikeAnyOther) {
  RunResult r = run_input(input("2147483647", "", "", "", ""));
  EXPECT_TRUE(contains(r.out, warning("Number of tests", INT32_MAX, "bigger", 32, 32))) << r.out;
  EXPECT_TRUE(contains(r.out, "Number of tests: 32\n"));
  r = run_input(input("-2147483648", "", "", "", ""));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, warning("Number of tests", INT32_MIN, "less", 0, 0))) << r.out;
  EXPECT_TRUE(contains(r.out, "Number of tests: 0\n"));
}

TEST(DriverTestCount, NegativeCountWarnsAndRunsNothing) {
  const RunResult r = run_input(input("-3", "10 10 10", "10 10 10", "1 1 1", "0 0 0"));
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(contains(r.out, warning("Number of tests", -3, "less", 0, 0))) << r.out;
  EXPECT_TRUE(contains(r.out, "Number of tests: 0\n"));
}

TEST(DriverTestCount, CountAbove32IsCut) {
  std::string ones;
  for (int i = 0; i < 40; ++i) ones += "1 ";
  std::string sizes;
  for (int i = 0; i < 40; ++i) sizes += "2 ";
  const RunResult r = run_input(input("40", sizes, sizes, ones, "0"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, warning("Number of tests", 40, "bigger", 32, 32))) << r.out;
  EXPECT_TRUE(contains(r.out, "Number of tests: 32\n"));
  EXPECT_EQ(count(r.out, std::regex(R"(2      2      0  .*pass)")), 32) << r.out;
}

// ---- lines 4 to 7: the slots ---------------------------------------------------

TEST(DriverSlots, ExtraNumbersAndTrailingTextAreIgnored) {
  const RunResult r = run_input(input("2", "20 30 40 # sizes", "24 31 99 99", "1 2 3", "4 8 16"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_FALSE(contains(r.out, "Warning")) << r.out;
  EXPECT_TRUE(contains(r.out, table_row(kSizeLabel, {20, 30}))) << r.out;
  EXPECT_TRUE(contains(r.out, table_row(kLdaLabel, {24, 31})));
  EXPECT_TRUE(contains(r.out, table_row(kTrialsLabel, {1, 2})));
  EXPECT_TRUE(contains(r.out, table_row(kAlignLabel, {4, 8})));
}

TEST(DriverSlots, MissingNumbersWarnAndBecomeOneOrSilentlyZero) {
  const RunResult r = run_input(input("2", "20", "20", "1", "4"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, warning(kSizeLabel, 0, "less", 1, 1) +
                                  warning(kLdaLabel, 0, "less", 1, 1)))
      << r.out;
  EXPECT_TRUE(contains(r.out, warning(kTrialsLabel, 0, "less", 1, 1)));
  EXPECT_FALSE(contains(r.out, "parameter " + kAlignLabel));
  EXPECT_TRUE(contains(r.out, table_row(kSizeLabel, {20, 1})));
  EXPECT_TRUE(contains(r.out, table_row(kAlignLabel, {4, 0})));
}

TEST(DriverSlots, NumbersInHexAndOctalAndTabsDoNotSeparate) {
  const RunResult r = run_input(input("2", "0x20 010", "40\t50", "1 1", "0 0"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, table_row(kSizeLabel, {32, 8}))) << r.out;
  // "40<tab>50" is one token, read as 40; the second slot is missing.
  EXPECT_TRUE(contains(r.out, warning(kLdaLabel, 0, "less", 1, 1))) << r.out;
  EXPECT_TRUE(contains(r.out, warning(kLdaLabel, 1, "less", 8, 8))) << r.out;
  EXPECT_TRUE(contains(r.out, table_row(kLdaLabel, {40, 8})));
}

TEST(DriverSlots, SizeAbove22000IsDroppedWithItsLeadingDimension) {
  const RunResult r = run_input(input("2", "22001 10", "22001 10", "1 1", "0 0"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, warning("Problem size", 22001, "bigger", 22000, 0) +
                                  warning(kLdaLabel, 22001, "bigger", 22000, 0)))
      << r.out;
  EXPECT_TRUE(contains(r.out, table_row(kSizeLabel, {0, 10})));
  EXPECT_TRUE(contains(r.out, table_row(kLdaLabel, {0, 10})));
  // Only the second test runs and is summarised.
  EXPECT_EQ(count(r.out, std::regex(R"(10     10     0  .*pass)")), 1) << r.out;
  EXPECT_FALSE(contains(r.out, "\n0      0      0"));
}

TEST(DriverSlots, LeadingDimensionBelowSizeIsRaised) {
  const RunResult r = run_input(input("1", "50", "10", "1", "0"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, warning(kLdaLabel, 10, "less", 50, 50))) << r.out;
  EXPECT_TRUE(contains(r.out, table_row(kLdaLabel, {50})));
  EXPECT_EQ(count(r.out, std::regex(R"(50     50     0  .*pass)")), 1) << r.out;
}

TEST(DriverSlots, LeadingDimensionAbove22000FallsToTheSize) {
  const RunResult r = run_input(input("1", "30", "30000", "1", "0"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, warning(kLdaLabel, 30000, "bigger", 22000, 30))) << r.out;
  EXPECT_TRUE(contains(r.out, table_row(kLdaLabel, {30})));
}

TEST(DriverSlots, ZeroTrialsAreRefusedInAFile) {
  const RunResult r = run_input(input("1", "12", "12", "0", "0"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, warning(kTrialsLabel, 0, "less", 1, 1))) << r.out;
  EXPECT_EQ(count(r.out, std::regex(R"(.*pass)")), 1) << r.out;
}

TEST(DriverSlots, AlignmentIsClampedToZeroAnd64) {
  const RunResult r = run_input(input("3", "10 10 10", "10 10 10", "1 1 1", "-5 100 abc"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, warning(kAlignLabel, -5, "less", 0, 0))) << r.out;
  EXPECT_TRUE(contains(r.out, warning(kAlignLabel, 100, "bigger", 64, 64))) << r.out;
  EXPECT_TRUE(contains(r.out, table_row(kAlignLabel, {0, 64, 0})));
  EXPECT_EQ(count(r.out, std::regex(R"(10     10     64 .*pass)")), 1) << r.out;
}

// ---- numbers beyond 32 bits ------------------------------------------------------

// An input file with numbers beyond the 32-bit range in one of its lines, and
// pieces of the report it must give: every such number reads as the 32-bit
// reader saturates it, in both builds, and is then clamped like any other.
struct HugeSlotsCase {
  const char* name;
  std::string ntests, sizes, ldas, trials, aligns;
  std::vector<std::string> expected;
};

void PrintTo(const HugeSlotsCase& c, std::ostream* os) { *os << c.name; }

const HugeSlotsCase kHugeSlotsCases[] = {
    {"Sizes",
     "5",
     "99999999999 4294967296 -4294967297 0x100000000 040000000000",
     "10 10 10 10 10",
     "1 1 1 1 1",
     "0 0 0 0 0",
     {warning("Problem size", INT32_MAX, "bigger", 22000, 0) +
          warning("Problem size", INT32_MAX, "bigger", 22000, 0),
      warning(kSizeLabel, INT32_MIN, "less", 1, 1), table_row(kSizeLabel, {0, 0, 1, 0, 0})}},
    {"LeadingDimensions",
     "3",
     "10 10 10",
     "4294967296 -2147483649 99999999999",
     "1 1 1",
     "0 0 0",
     {warning(kLdaLabel, INT32_MIN, "less", 1, 1),
      warning(kLdaLabel, INT32_MAX, "bigger", 22000, 10) + warning(kLdaLabel, 1, "less", 10, 10) +
          warning(kLdaLabel, INT32_MAX, "bigger", 22000, 10),
      table_row(kLdaLabel, {10, 10, 10})}},
    {"Trials",
     "3",
     "30000 30000 10",
     "30000 30000 10",
     "4294967297 -4294967297 1",
     "0 0 0",
     {warning(kTrialsLabel, INT32_MIN, "less", 1, 1), table_row(kTrialsLabel, {INT32_MAX, 1, 1})}},
    {"Alignments",
     "3",
     "10 10 10",
     "10 10 10",
     "1 1 1",
     "4294967296 -4294967296 0x80000000",
     {warning(kAlignLabel, INT32_MIN, "less", 0, 0) +
          warning(kAlignLabel, INT32_MAX, "bigger", 64, 64) +
          warning(kAlignLabel, INT32_MAX, "bigger", 64, 64),
      table_row(kAlignLabel, {64, 0, 64})}},
};

class DriverHugeSlots : public ::testing::TestWithParam<HugeSlotsCase> {};

TEST_P(DriverHugeSlots, SaturateAtThe32BitLimitsThenClamp) {
  const HugeSlotsCase& c = GetParam();
  const RunResult r = run_input(input(c.ntests, c.sizes, c.ldas, c.trials, c.aligns));
  EXPECT_EQ(r.status, 0) << r.out;
  for (const std::string& piece : c.expected) EXPECT_TRUE(contains(r.out, piece)) << piece << "\n" << r.out;
  EXPECT_TRUE(contains(r.out, "Residual checks PASSED")) << r.out;
}

INSTANTIATE_TEST_SUITE_P(EachLine, DriverHugeSlots, ::testing::ValuesIn(kHugeSlotsCases),
                         [](const ::testing::TestParamInfo<HugeSlotsCase>& info) {
                           return std::string(info.param.name);
                         });

// ---- memory sizing -------------------------------------------------------------

TEST(DriverMemory, LargestNeedAndItsSizeAreReported) {
  // Needs: (10*8+20)*10+4096 = 5096, (20*8+20)*24+4096 = 8416, (15*8+20)*15 = 2100.
  const RunResult r = run_input(input("3", "10 20 15", "10 24 15", "1 1 1", "4 4 0"));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(contains(r.out, "Maximum memory requested that can be used=8416, at the size=20\n"))
      << r.out;
}

TEST(DriverMemory, TestThatCannotGetItsMemoryIsDroppedSilently) {
  if (testsupport::under_emulation())
    GTEST_SKIP() << "a limit on virtual memory binds the emulator's own reservation, not the program's";
  const RunResult r = run_input_limited(input("2", "20000 10", "20000 10", "1 1", "0 0"), 300000);
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_FALSE(contains(r.out, "Warning")) << r.out;
  // Still listed in the header, absent from the run and the summary.
  EXPECT_TRUE(contains(r.out, table_row(kSizeLabel, {20000, 10})));
  EXPECT_TRUE(contains(r.out, "at the size=10\n")) << r.out;
  EXPECT_FALSE(contains(r.out, "\n20000 ")) << r.out;
  EXPECT_EQ(count(r.out, std::regex(R"(10     10     0  .*pass)")), 1) << r.out;
}

TEST(DriverMemory, NoTestGettingMemoryAborts) {
  if (testsupport::under_emulation())
    GTEST_SKIP() << "a limit on virtual memory binds the emulator's own reservation, not the program's";
  const RunResult r = run_input_limited(input("1", "6000", "6000", "1", "0"), 150000);
  EXPECT_EQ(r.status, kAbortStatus) << r.out;
  EXPECT_TRUE(contains(r.out, std::string("Cannot run ") + LINPACK_BIN + " - not enough memory\n"))
      << r.out;
}

// ---- a real run ----------------------------------------------------------------

TEST(DriverRun, RowsSummaryAndStatusOfAPassingRun) {
  const RunResult r = run_input(input("2", "100 17", "104 17", "2 3", "4 1"));
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  const std::regex pass_row(
      R"((100    104    4  |17     17     1  ) +[0-9.]+ +[0-9.]+ +[0-9.]+e[-+][0-9]+ +[0-9.]+e[-+][0-9]+ +pass)");
  EXPECT_EQ(count(r.out, pass_row), 5) << r.out;
  EXPECT_FALSE(contains(r.out, "FAIL"));
  EXPECT_TRUE(contains(r.out, "Size   LDA    Align. Time(s)    GFlops   Residual     Residual(norm) Check\n"));
  EXPECT_TRUE(contains(r.out, "Size   LDA    Align.  Average  Maximal\n"));
  const std::regex summary_row(R"((100    104    4  |17     17     1  ) +[0-9.]+ +[0-9.]+ *)");
  EXPECT_EQ(count(r.out, summary_row), 2) << r.out;
  EXPECT_TRUE(contains(r.out, "\nResidual checks PASSED\n\nEnd of tests\n")) << r.out;
  // Header: date, frequency, counts.
  for (const char* line : {"Current date/time: ", "CPU frequency: ", "Number of CPUs: ",
                           "Number of cores: ", "Number of threads: ", "Parameters are set to:"})
    EXPECT_TRUE(contains(r.out, line)) << line;
}

TEST(DriverRun, ThreadCountFollowsOmpNumThreads) {
  const std::string path = write_temp_file(input("0", "", "", "", ""), ".in");
  RunResult r = run_program(LINPACK_BIN, {path}, "", {"OMP_NUM_THREADS=3"}, LINPACK_DIR);
  EXPECT_TRUE(contains(r.out, "Number of threads: 3\n")) << r.out;
  r = run_program(LINPACK_BIN, {path}, "", {"OMP_NUM_THREADS=1"}, LINPACK_DIR);
  EXPECT_TRUE(contains(r.out, "Number of threads: 1\n")) << r.out;
  std::remove(path.c_str());
}

}  // namespace
