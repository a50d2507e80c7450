// The console dialogue, when both standard input and output are terminals:
// one test, asked for value by value. It neither applies the file's size
// limit nor refuses zero trials.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "driver/driver.h"
#include "service/messages.h"
#include "service/strings.h"

namespace {

constexpr const char* kHelpAnswer = "help";
constexpr int kDefaultSize = 1000;
constexpr int kDefaultTrials = 1;
constexpr int kDefaultAlignKiB = 4;

// Prompts with the label and reads one integer as "%i" does (decimal, octal
// or hex; saturated at the 32-bit limits); a failed read leaves 0.
int32_t ask(const char* label) {
  std::printf("%s: ", label);
  std::fflush(stdout);
  int32_t value = 0;
  if (tarn_serv_fscanf_i_as_long32(stdin, &value) != 1) value = 0;
  return value;
}

}  // namespace

bool run_dialogue(RunPlan& plan) {
  tarn_serv_print(kToStdout, drvmsg::kDataOrHelp, 1, "");
  char line[kLineSize] = {};
  if (std::fgets(line, sizeof line, stdin) == nullptr) line[0] = '\0';
  // Only the first four letters count: "helpful" asks for help too.
  if (std::strncmp(line, kHelpAnswer, std::strlen(kHelpAnswer)) == 0) {
    print_help_file(kHelpFile);
    return false;
  }

  plan.ntests = 1;
  int32_t& size = plan.sizes[0];
  size = ask(kLabelSize);
  if (size <= 0) {
    warn_parameter(kLabelSize, size, true, 1, kDefaultSize);
    size = kDefaultSize;
  }
  int32_t& lda = plan.ldas[0];
  lda = ask(kLabelLda);
  if (lda < size) {
    warn_parameter(kLabelLda, lda, true, size, size);
    lda = size;
  }
  int32_t& trials = plan.trials[0];
  trials = ask(kLabelTrials);
  if (trials < 0) {
    warn_parameter(kLabelTrials, trials, true, 0, kDefaultTrials);
    trials = kDefaultTrials;
  }
  int32_t& align = plan.aligns[0];
  align = ask(kLabelAlign);
  if (align < 0) {
    warn_parameter(kLabelAlign, align, true, 0, kDefaultAlignKiB);
    align = kDefaultAlignKiB;
  } else if (align > kMaxAlignKiB) {
    warn_parameter(kLabelAlign, align, false, kMaxAlignKiB, kMaxAlignKiB);
    align = kMaxAlignKiB;
  }
  return true;
}
