// The benchmark's command line through the real binary: option prefixes
// and their reversed matching, help files, input from a named file, from
// "-i", from standard input, and the ways a name is refused.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "driver/command_line.cpp"
#include "tests/support/test_support.h"

namespace {

using testsupport::RunResult;
using testsupport::run_program;
using testsupport::write_temp_file;

constexpr int kAbortStatus = 255;

// An input with no tests: everything but the timed part runs.
const char* const kNoTests = "comment\nNo tests at all\n0\n\n\n\n\n";

RunResult run_linpack(const std::vector<std::string>& args, const std::string& input = "",
                      const std::string& dir = LINPACK_DIR) {
  return run_program(LINPACK_BIN, args, input, {}, dir);
}

std::string read_file(const std::string& path) {
  std::ifstream f(path);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

bool contains(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

// A fresh directory for files with odd names; removed with its files.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/tarn_drv_XXXXXX";
    path_ = mkdtemp(tmpl);
  }
  ~TempDir() {
    for (auto it = files_.rbegin(); it != files_.rend(); ++it) std::remove(it->c_str());
    std::remove(path_.c_str());
  }
  const std::string& path() const { return path_; }
  std::string add_file(const std::string& name, const std::string& text) {
    const std::string full = path_ + "/" + name;
    std::ofstream(full) << text;
    files_.push_back(full);
    return full;
  }
  std::string add_dir(const std::string& name) {
    const std::string full = path_ + "/" + name;
    mkdir(full.c_str(), 0700);
    files_.push_back(full);
    return full;
  }

 private:
  std::string path_;
  std::vector<std::string> files_;
};

// ---- option matching ---------------------------------------------------------

TEST(OptionMatch, PrefixOfTwoOrMoreCharactersMatches) {
  EXPECT_TRUE(matches_option("-help", "-h"));
  EXPECT_TRUE(matches_option("-help", "-hel"));
  EXPECT_TRUE(matches_option("-help", "-help"));
  EXPECT_TRUE(matches_option("-extended_help", "-e"));
  EXPECT_TRUE(matches_option("-input_file", "-input"));
}

TEST(OptionMatch, InnerPiecesShortArgumentsAndLongerWordsDoNot) {
  EXPECT_FALSE(matches_option("-help", "help"));
  EXPECT_FALSE(matches_option("-input_file", "input"));
  EXPECT_FALSE(matches_option("-help", "-"));
  EXPECT_FALSE(matches_option("-help", ""));
  EXPECT_FALSE(matches_option("-help", "-helpx"));
  EXPECT_FALSE(matches_option("-help", "-H"));
  EXPECT_FALSE(matches_option("-help", nullptr));
}

TEST(OptionMatch, ArgumentsChooseHelpFilesOrInputInOrder) {
  char prog[] = "linpack";
  char h[] = "-h", e[] = "-e", i[] = "-i", f[] = "file", other[] = "-x";
  {
    char* argv[] = {prog, h, nullptr};
    EXPECT_EQ(choose_input(2, argv, false, false).choice, InputChoice::kHelp);
  }
  {
    char* argv[] = {prog, e, nullptr};
    EXPECT_EQ(choose_input(2, argv, true, true).choice, InputChoice::kExtendedHelp);
  }
  {
    char* argv[] = {prog, i, f, nullptr};
    const InputSource s = choose_input(3, argv, true, true);
    EXPECT_EQ(s.choice, InputChoice::kFile);
    EXPECT_STREQ(s.name, "file");
  }
  {
    char* argv[] = {prog, i, nullptr};
    EXPECT_EQ(choose_input(2, argv, true, true).name, nullptr);
  }
  {
    char* argv[] = {prog, other, nullptr};
    EXPECT_STREQ(choose_input(2, argv, true, true).name, "-x");
  }
}

TEST(OptionMatch, NoArgumentsDependOnTheTerminals) {
  char prog[] = "linpack";
  char* argv[] = {prog, nullptr};
  const InputSource piped = choose_input(1, argv, false, true);
  EXPECT_EQ(piped.choice, InputChoice::kFile);
  EXPECT_TRUE(piped.use_stdin);
  EXPECT_STREQ(piped.name, "stdin");
  EXPECT_EQ(choose_input(1, argv, true, false).choice, InputChoice::kHelp);
  EXPECT_EQ(choose_input(1, argv, true, true).choice, InputChoice::kDialogue);
}

// ---- help files ------------------------------------------------------------

TEST(DriverHelp, EveryPrefixOfHelpPrintsHelpFile) {
  const std::string help = read_file(std::string(LINPACK_DIR) + "/help.lpk");
  ASSERT_FALSE(help.empty());
  for (const char* opt : {"-h", "-he", "-hel", "-help"}) {
    const RunResult r = run_linpack({opt});
    EXPECT_EQ(r.status, 0) << opt;
    EXPECT_EQ(r.out, help) << opt;
  }
}

TEST(DriverHelp, EveryPrefixOfExtendedHelpPrintsXhelpFile) {
  const std::string xhelp = read_file(std::string(LINPACK_DIR) + "/xhelp.lpk");
  ASSERT_FALSE(xhelp.empty());
  for (const char* opt : {"-e", "-ext", "-extended_help"}) {
    const RunResult r = run_linpack({opt});
    EXPECT_EQ(r.status, 0) << opt;
    EXPECT_EQ(r.out, xhelp) << opt;
  }
}

TEST(DriverHelp, HelpFilesDescribeInputAndEnvironment) {
  const std::string help = read_file(std::string(LINPACK_DIR) + "/help.lpk");
  const std::string xhelp = read_file(std::string(LINPACK_DIR) + "/xhelp.lpk");
  for (const char* word : {"-i", "stdin", "22000", "alignment", "Example"})
    EXPECT_TRUE(contains(help, word) || contains(help, "standard input")) << word;
  for (const char* var : {"TARN_NUM_THREADS", "OMP_NUM_THREADS", "TARN_CBWR",
                          "TARN_ENABLE_INSTRUCTIONS", "TARN_VERBOSE", "TARN_VERBOSE_OUTPUT_FILE",
                          "TARN_DISABLE_FAST_MM", "TARN_FAST_MEMORY_LIMIT", "TARN_DYNAMIC"})
    EXPECT_TRUE(contains(xhelp, var)) << var;
}

TEST(DriverHelp, MissingHelpFileIsReportedWithStatusZero) {
  TempDir dir;
  RunResult r = run_linpack({"-help"}, "", dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "Could not open file help.lpk\n");
  r = run_linpack({"-e"}, "", dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "Could not open file xhelp.lpk\n");
}

// ---- choosing the input ------------------------------------------------------

TEST(DriverInputChoice, NamedFileAndInputOptionAndStdinAllRead) {
  const std::string path = write_temp_file(kNoTests, ".in");
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{path}, {"-i", path}, {"-in", path}, {"-input_file", path}}) {
    const RunResult r = run_linpack(args);
    EXPECT_EQ(r.status, 0) << args[0];
    EXPECT_TRUE(contains(r.out, "No tests at all\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "Residual checks PASSED")) << r.out;
  }
  const RunResult piped = run_linpack({}, kNoTests);
  EXPECT_EQ(piped.status, 0);
  EXPECT_TRUE(contains(piped.out, "No tests at all\n"));
  EXPECT_TRUE(contains(piped.out, "Residual checks PASSED"));
  std::remove(path.c_str());
}

TEST(DriverInputChoice, UnreadableStandardInputIsNamedStdin) {
  const RunResult r = run_linpack({}, "");
  EXPECT_EQ(r.status, kAbortStatus);
  EXPECT_EQ(r.out, "Could not open file stdin, aborted.\n");
}

TEST(DriverInputChoice, WordsThatDoNotBeginAnOptionAreFileNames) {
  TempDir dir;
  dir.add_file("help", kNoTests);
  dir.add_file("-", kNoTests);
  dir.add_file("-helpx", kNoTests);
  for (const char* name : {"help", "-", "-helpx"}) {
    const RunResult r = run_linpack({name}, "", dir.path());
    EXPECT_EQ(r.status, 0) << name;
    EXPECT_TRUE(contains(r.out, "No tests at all")) << name << ": " << r.out;
  }
  const RunResult missing = run_linpack({"-x"}, "", dir.path());
  EXPECT_EQ(missing.status, kAbortStatus);
  EXPECT_EQ(missing.out, "Could not open file -x, aborted.\n");
}

TEST(DriverInputChoice, InputOptionWithoutNameAborts) {
  const RunResult r = run_linpack({"-i"});
  EXPECT_EQ(r.status, kAbortStatus);
  EXPECT_TRUE(contains(r.out, "Could not open file")) << r.out;
  EXPECT_TRUE(contains(r.out, "aborted.")) << r.out;
}

TEST(DriverInputChoice, MissingFileAborts) {
  const RunResult r = run_linpack({"/nonexistent/lininput"});
  EXPECT_EQ(r.status, kAbortStatus);
  EXPECT_EQ(r.out, "Could not open file /nonexistent/lininput, aborted.\n");
}

TEST(DriverInputChoice, NameOf256CharactersIsRefusedEvenIfTheFileExists) {
  TempDir dir;
  // Build a path of existing directories, then names of exactly 255 and
  // 256 characters in it.
  const std::string& base = dir.path();
  std::string rel;
  while (base.size() + 1 + rel.size() < 200) {
    rel += (rel.empty() ? "" : "/") + std::string(10, 'd');
    dir.add_dir(rel);
  }
  const std::string name255 = rel + "/" + std::string(255 - base.size() - 1 - rel.size() - 1, 'f');
  const std::string name256 = name255 + "g";
  const std::string full255 = dir.add_file(name255, kNoTests);
  const std::string full256 = dir.add_file(name256, kNoTests);
  ASSERT_EQ(full255.size(), 255u);
  ASSERT_EQ(full256.size(), 256u);

  const RunResult ok = run_linpack({full255});
  EXPECT_EQ(ok.status, 0) << ok.out;
  EXPECT_TRUE(contains(ok.out, "No tests at all"));

  const RunResult refused = run_linpack({full256});
  EXPECT_EQ(refused.status, kAbortStatus);
  EXPECT_EQ(refused.out, "Could not open file " + full256 + ", aborted.\n");
}

}  // namespace
