// The console dialogue through the real binary, with a pseudo-terminal as
// its standard input (and output): the help answer, the prompts with their
// clamps, and the run that follows.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

constexpr int kReadTimeoutMs = 120000;

// The binary started with a pseudo-terminal as standard input, and as
// standard output too unless `pipe_stdout`, in which case its output is a
// pipe. Text read back has the terminal's carriage returns removed.
class PtyRun {
 public:
  explicit PtyRun(bool pipe_stdout = false) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) return;
    const std::string slave_name = ptsname(master_);
    int out_pipe[2] = {-1, -1};
    if (pipe_stdout && pipe(out_pipe) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      setsid();
      const int slave = open(slave_name.c_str(), O_RDWR);
      if (slave < 0) _exit(126);
      dup2(slave, 0);
      dup2(pipe_stdout ? out_pipe[1] : slave, 1);
      dup2(slave, 2);
      if (chdir(LINPACK_DIR) != 0) _exit(127);
      const std::vector<std::string> words = testsupport::command_for(LINPACK_BIN);
      std::vector<char*> argv;
      for (const std::string& w : words) argv.push_back(const_cast<char*>(w.c_str()));
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
    if (pipe_stdout) {
      close(out_pipe[1]);
      out_ = out_pipe[0];
    } else {
      out_ = master_;
    }
  }
  ~PtyRun() {
    if (pid_ > 0 && status_ < 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0 && out_ != master_) close(out_);
    if (master_ >= 0) close(master_);
  }
  PtyRun(const PtyRun&) = delete;
  PtyRun& operator=(const PtyRun&) = delete;

  bool started() const { return pid_ > 0; }

  // Reads until `text` has appeared since the last call (or the end).
  bool expect(const std::string& text) {
    while (true) {
      const size_t at = text_.find(text, consumed_);
      if (at != std::string::npos) {
        consumed_ = at + text.size();
        return true;
      }
      if (!read_some()) return false;
    }
  }

  void answer(const std::string& line) {
    const std::string with_end = line + "\n";
    (void)!write(master_, with_end.data(), with_end.size());
  }

  // Reads to the end of the output and returns the exit status.
  int finish() {
    while (read_some()) {
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return status_;
  }

  const std::string& text() const { return text_; }

 private:
  bool read_some() {
    pollfd p = {out_, POLLIN, 0};
    if (poll(&p, 1, kReadTimeoutMs) <= 0) return false;
    char buf[4096];
    const ssize_t k = read(out_, buf, sizeof buf);
    if (k <= 0) return false;  // EIO once the terminal's other end is closed
    for (ssize_t i = 0; i < k; ++i)
      if (buf[i] != '\r') text_ += buf[i];
    return true;
  }

  int master_ = -1, out_ = -1;
  pid_t pid_ = -1;
  int status_ = -1;
  std::string text_;
  size_t consumed_ = 0;
};

const std::string kQuestion = "Input data or print help ? Type [data]/help :";
const std::string kSizePrompt = "Number of equations to solve (problem size): ";
const std::string kLdaPrompt = "Leading dimension of array: ";
const std::string kTrialsPrompt = "Number of trials to run: ";
const std::string kAlignPrompt = "Data alignment value (in Kbytes): ";

std::string help_text() {
  std::ifstream f(std::string(LINPACK_DIR) + "/help.lpk");
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

std::string warning(const std::string& label, int value, const char* kind, int bound, int set_to) {
  return "Warning: incorrect parameter " + label + " (" + std::to_string(value) + "),\n" +
         "must be not " + kind + " than (" + std::to_string(bound) + "),\n" +
         "set to default value (" + std::to_string(set_to) + ").\n";
}

bool contains(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

TEST(DriverDialogue, AnswersAreClampedAndTheTestRuns) {
  PtyRun run;
  ASSERT_TRUE(run.started());
  ASSERT_TRUE(run.expect(kQuestion)) << run.text();
  run.answer("");
  ASSERT_TRUE(run.expect(kSizePrompt)) << run.text();
  run.answer("60");
  ASSERT_TRUE(run.expect(kLdaPrompt)) << run.text();
  run.answer("40");
  ASSERT_TRUE(run.expect(kTrialsPrompt)) << run.text();
  run.answer("2");
  ASSERT_TRUE(run.expect(kAlignPrompt)) << run.text();
  run.answer("100");
  EXPECT_EQ(run.finish(), 0) << run.text();
  const std::string& out = run.text();
  EXPECT_TRUE(contains(out, warning("Leading dimension of array", 40, "less", 60, 60))) << out;
  EXPECT_TRUE(contains(out, warning("Data alignment value (in Kbytes)", 100, "bigger", 64, 64)));
  EXPECT_TRUE(contains(out, "Number of tests: 1\n"));
  size_t rows = 0;
  for (size_t at = out.find("\n60     60     64 "); at != std::string::npos;
       at = out.find("\n60     60     64 ", at + 1))
    ++rows;
  EXPECT_EQ(rows, 3u) << out;  // two trials and the summary
  EXPECT_TRUE(contains(out, "Residual checks PASSED")) << out;
}

TEST(DriverDialogue, NonPositiveSizeAndNegativeAlignmentTakeDefaultsAndZeroTrialsRunNothing) {
  PtyRun run;
  ASSERT_TRUE(run.started());
  ASSERT_TRUE(run.expect(kQuestion));
  run.answer("Help");  // a capital is not the help answer
  ASSERT_TRUE(run.expect(kSizePrompt)) << run.text();
  run.answer("0");
  ASSERT_TRUE(run.expect(kLdaPrompt)) << run.text();
  run.answer("0");
  ASSERT_TRUE(run.expect(kTrialsPrompt)) << run.text();
  run.answer("0");
  ASSERT_TRUE(run.expect(kAlignPrompt)) << run.text();
  run.answer("-1");
  EXPECT_EQ(run.finish(), 0) << run.text();
  const std::string& out = run.text();
  EXPECT_TRUE(contains(out, warning("Number of equations to solve (problem size)", 0, "less", 1,
                                    1000)))
      << out;
  EXPECT_TRUE(contains(out, warning("Leading dimension of array", 0, "less", 1000, 1000)));
  EXPECT_FALSE(contains(out, "parameter Number of trials to run"));
  EXPECT_TRUE(contains(out, warning("Data alignment value (in Kbytes)", -1, "less", 0, 4)));
  EXPECT_FALSE(contains(out, "pass\n")) << out;
  EXPECT_TRUE(contains(out, "\n1000   1000   4       0.0000   0.0000")) << out;
  EXPECT_TRUE(contains(out, "Residual checks PASSED"));
}

TEST(DriverDialogue, SizeAboveTheFileLimitIsAccepted) {
  PtyRun run;
  ASSERT_TRUE(run.started());
  ASSERT_TRUE(run.expect(kQuestion));
  run.answer("data");
  ASSERT_TRUE(run.expect(kSizePrompt));
  run.answer("22001");
  ASSERT_TRUE(run.expect(kLdaPrompt));
  run.answer("22001");
  ASSERT_TRUE(run.expect(kTrialsPrompt));
  run.answer("0");
  ASSERT_TRUE(run.expect(kAlignPrompt));
  run.answer("0");
  run.finish();  // the memory may or may not be there
  EXPECT_FALSE(contains(run.text(), "Warning")) << run.text();
  EXPECT_TRUE(contains(run.text(), " 22001\n")) << run.text();
}

// Answers beyond the 32-bit range read as the 32-bit reader saturates them,
// in both builds, and are then clamped like any other answer. The memory such
// a test asks for is not there, so nothing runs.
TEST(DriverDialogue, AnswersBeyond32BitsSaturateThenClamp) {
  // Each answer, and the prompt that follows it.
  struct {
    const char* answer;
    const char* next_prompt;
  } const answers[] = {{"-4294967297", kLdaPrompt.c_str()},
                       {"4294967296", kTrialsPrompt.c_str()},
                       {"-99999999999", kAlignPrompt.c_str()},
                       {"-0x8000000000", nullptr}};
  PtyRun run;
  ASSERT_TRUE(run.started());
  ASSERT_TRUE(run.expect(kQuestion));
  run.answer("");
  ASSERT_TRUE(run.expect(kSizePrompt)) << run.text();
  for (const auto& a : answers) {
    run.answer(a.answer);
    if (a.next_prompt != nullptr) {
      ASSERT_TRUE(run.expect(a.next_prompt)) << run.text();
    }
  }
  run.finish();
  const std::string& out = run.text();
  EXPECT_TRUE(contains(out, warning("Number of equations to solve (problem size)", INT32_MIN, "less",
                                    1, 1000)))
      << out;
  EXPECT_FALSE(contains(out, "parameter Leading dimension of array")) << out;
  EXPECT_TRUE(contains(out, warning("Number of trials to run", INT32_MIN, "less", 0, 1))) << out;
  EXPECT_TRUE(contains(out, warning("Data alignment value (in Kbytes)", INT32_MIN, "less", 0, 4)))
      << out;
  EXPECT_TRUE(contains(out, "Leading dimension of array                  : 2147483647\n")) << out;
  EXPECT_TRUE(contains(out, "Number of trials to run                     : 1    \n")) << out;
}

// The need of a test is counted in the address's width: 23170 by 23170 needs
// 4295254600 bytes, which the i386 build counts modulo 2^32 (and the probe
// then passes) and the x86-64 build counts in full.
TEST(DriverDialogue, MemoryNeedIsCountedInTheAddressWidth) {
  PtyRun run;
  ASSERT_TRUE(run.started());
  ASSERT_TRUE(run.expect(kQuestion));
  run.answer("");
  ASSERT_TRUE(run.expect(kSizePrompt));
  run.answer("23170");
  ASSERT_TRUE(run.expect(kLdaPrompt));
  run.answer("23170");
  ASSERT_TRUE(run.expect(kTrialsPrompt));
  run.answer("0");
  ASSERT_TRUE(run.expect(kAlignPrompt));
  run.answer("0");
  EXPECT_EQ(run.finish(), 0) << run.text();
  const char* need = sizeof(void*) == 4 ? "287304" : "4295254600";
  EXPECT_TRUE(contains(run.text(), std::string("Maximum memory requested that can be used=") + need +
                                       ", at the size=23170\n"))
      << run.text();
}

TEST(DriverDialogue, HelpAnswerPrintsTheHelpFile) {
  for (const char* answer : {"help", "helpful"}) {
    PtyRun run;
    ASSERT_TRUE(run.started());
    ASSERT_TRUE(run.expect(kQuestion));
    run.answer(answer);
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(contains(run.text(), help_text())) << answer << ": " << run.text();
    EXPECT_FALSE(contains(run.text(), kSizePrompt));
  }
}

TEST(DriverDialogue, TerminalInputWithRedirectedOutputPrintsHelp) {
  PtyRun run(/*pipe_stdout=*/true);
  ASSERT_TRUE(run.started());
  EXPECT_EQ(run.finish(), 0);
  EXPECT_EQ(run.text(), help_text());
  EXPECT_FALSE(contains(run.text(), kQuestion));
}

}  // namespace
