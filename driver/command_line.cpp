// Choosing the input from the command line and the terminals.
#include <cstring>

#include "driver/driver.h"
#include "service/strings.h"

namespace {

constexpr int kMinOptionLength = 2;
constexpr const char* kOptionHelp = "-help";
constexpr const char* kOptionExtendedHelp = "-extended_help";
constexpr const char* kOptionInputFile = "-input_file";
constexpr const char* kStdinName = "stdin";

}  // namespace

// The argument is the needle and the option word the haystack: any prefix
// of two or more characters matches ("-h", "-hel", "-help"), while a piece
// from inside the word ("help", "input") does not and is a file name.
bool matches_option(const char* word, const char* arg) {
  if (arg == nullptr) return false;
  return std::strstr(word, arg) == word &&
         tarn_serv_strnlen_s(arg, kLineSize) >= static_cast<size_t>(kMinOptionLength);
}

InputSource choose_input(int argc, char** argv, bool stdin_is_tty, bool stdout_is_tty) {
  InputSource src;
  if (argc <= 1) {
    if (!stdin_is_tty) {
      src.choice = InputChoice::kFile;
      src.name = kStdinName;
      src.use_stdin = true;
    } else if (!stdout_is_tty) {
      src.choice = InputChoice::kHelp;
    } else {
      src.choice = InputChoice::kDialogue;
    }
    return src;
  }
  if (matches_option(kOptionHelp, argv[1])) {
    src.choice = InputChoice::kHelp;
  } else if (matches_option(kOptionExtendedHelp, argv[1])) {
    src.choice = InputChoice::kExtendedHelp;
  } else if (matches_option(kOptionInputFile, argv[1])) {
    src.choice = InputChoice::kFile;
    src.name = argv[2];  // null when the option stands alone
  } else {
    src.choice = InputChoice::kFile;
    src.name = argv[1];
  }
  return src;
}
