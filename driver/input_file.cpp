// Reading an input file (or standard input) of seven lines: a comment, the
// title, the number of tests, then one line each of sizes, leading
// dimensions, trials and alignments, one number a test.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "driver/driver.h"
#include "service/messages.h"
#include "service/strings.h"

namespace {

constexpr const char* kTokenDelimiter = " ";  // a tab does not separate
constexpr int kMinSlotValue = 1;              // sizes, leading dimensions, trials
constexpr int kAnyBase = 0;                   // the slots' numbers: "%i"'s rules
constexpr int kDecimal = 10;                  // the number of tests

[[noreturn]] void abort_unreadable(const char* name) {
  tarn_serv_print(kToStdout, drvmsg::kCannotOpenInput, 1, name);
  std::exit(-1);
}

// A missing line leaves the previous one in the buffer, to be parsed again.
void read_line(char* line, FILE* in) {
  if (std::fgets(line, kLineSize, in) == nullptr) return;
}

// Parses the first `ntests` blank-separated numbers of `line` into `slots`,
// each as "%i" reads it (decimal, octal or hex; saturated at the 32-bit
// limits). A missing or unreadable number reads as 0. Numbers beyond ntests,
// and whatever else the line holds after them, are not looked at.
void scan_slots(char* line, int ntests, int32_t* slots) {
  std::size_t left = tarn_serv_strnlen_s(line, kLineSize);
  char* next = nullptr;
  // Slot by slot, one token each.
  for (int i = 0; i < ntests; ++i) {
    const char* token = tarn_serv_strtok_s(i == 0 ? line : nullptr, &left, kTokenDelimiter, &next);
    int32_t value = 0;
    if (token != nullptr) {
      char* end = nullptr;
      value = tarn_serv_strtol_as_long32(token, &end, kAnyBase);
      if (end == token) value = 0;
    }
    slots[i] = value;
  }
}

// Sizes, leading dimensions, trials: a value not above 0 becomes 1.
void read_positive_slots(char* line, int ntests, int32_t* slots, const char* label) {
  scan_slots(line, ntests, slots);
  for (int i = 0; i < ntests; ++i) {
    if (slots[i] < kMinSlotValue) {
      warn_parameter(label, slots[i], true, kMinSlotValue, kMinSlotValue);
      slots[i] = kMinSlotValue;
    }
  }
}

}  // namespace

void read_input_file(FILE* in, const char* name, RunPlan& plan) {
  char line[kLineSize] = {};
  char title[kLineSize] = {};

  read_line(line, in);  // line 1: a comment
  read_line(title, in);

  // Line 3: the number of tests. Anything after the number is ignored.
  if (std::fgets(line, kLineSize, in) == nullptr) abort_unreadable(name);
  errno = 0;
  char* end = nullptr;
  const int32_t count = tarn_serv_strtol_as_long32(line, &end, kDecimal);
  if (end == line || errno == ERANGE) abort_unreadable(name);
  tarn_serv_print(kToStdout, drvmsg::kTitle, 1, title);
  int ntests = 0;
  if (count < 0) {
    warn_parameter(kLabelNtests, count, true, 0, 0);
  } else if (count > kMaxTests) {
    warn_parameter(kLabelNtests, count, false, kMaxTests, kMaxTests);
    ntests = kMaxTests;
  } else {
    ntests = count;
  }
  plan.ntests = ntests;

  read_line(line, in);
  read_positive_slots(line, ntests, plan.sizes, kLabelSize);
  read_line(line, in);
  read_positive_slots(line, ntests, plan.ldas, kLabelLda);

  // Each test: the size limit (a dropped test keeps its slot with size 0),
  // then the leading dimension against the size and against the limit.
  for (int i = 0; i < ntests; ++i) {
    int32_t& size = plan.sizes[i];
    int32_t& lda = plan.ldas[i];
    if (size > kMaxFileSize) {
      warn_parameter(kLabelProblemSize, size, false, kMaxFileSize, 0);
      size = 0;
    }
    if (lda < size) {
      warn_parameter(kLabelLda, lda, true, size, size);
      lda = size;
    }
    if (lda > kMaxFileSize) {
      warn_parameter(kLabelLda, lda, false, kMaxFileSize, size);
      lda = size;
    }
  }

  read_line(line, in);
  read_positive_slots(line, ntests, plan.trials, kLabelTrials);

  // Alignment: a missing or unreadable value silently means none.
  read_line(line, in);
  scan_slots(line, ntests, plan.aligns);
  for (int i = 0; i < ntests; ++i) {
    if (plan.aligns[i] < 0) {
      warn_parameter(kLabelAlign, plan.aligns[i], true, 0, 0);
      plan.aligns[i] = 0;
    }
  }
  for (int i = 0; i < ntests; ++i) {
    if (plan.aligns[i] > kMaxAlignKiB) {
      warn_parameter(kLabelAlign, plan.aligns[i], false, kMaxAlignKiB, kMaxAlignKiB);
      plan.aligns[i] = kMaxAlignKiB;
    }
  }

  tarn_serv_fclose(in);
}
