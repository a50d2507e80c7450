// The benchmark's entry point: processor gate, input, thread count, header,
// memory, the timed run and the summary. Exit status 0 when every trial
// passed (or none ran), 1 after a failed residual check, 255 on an abort.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "driver/driver.h"
#include "service/messages.h"
#include "service/strings.h"
#include "src/vos.h"

namespace {

ident_t main_loc = {0, 0, 0, 0, ";driver;main;0;0;;"};

// Names of 256 characters or more are refused before any open.
FILE* open_input(const InputSource& src) {
  if (src.use_stdin) return stdin;
  if (src.name == nullptr) return nullptr;
  if (tarn_serv_strnlen_s(src.name, kLineSize) >= static_cast<size_t>(kLineSize)) return nullptr;
  return tarn_serv_fopen(src.name, "r");
}

int end_with_help(const char* file) {
  print_help_file(file);
  __vosc_end(&main_loc);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  __vosc_begin(&main_loc, 0);
  if (!vendor_gate_passes()) {
    tarn_serv_print(kToStdout, drvmsg::kNotGenuine, 1, "");
    std::exit(-1);
  }

  RunPlan plan;
  const InputSource src = choose_input(argc, argv, isatty(STDIN_FILENO) != 0,
                                       isatty(STDOUT_FILENO) != 0);
  switch (src.choice) {
    case InputChoice::kHelp:
      return end_with_help(kHelpFile);
    case InputChoice::kExtendedHelp:
      return end_with_help(kExtendedHelpFile);
    case InputChoice::kDialogue:
      if (!run_dialogue(plan)) {
        __vosc_end(&main_loc);
        return 0;
      }
      break;
    case InputChoice::kFile: {
      FILE* in = open_input(src);
      if (in == nullptr) {
        tarn_serv_print(kToStdout, drvmsg::kCannotOpenInput, 1,
                        src.name != nullptr ? src.name : "(null)");
        std::exit(-1);
      }
      read_input_file(in, src.name, plan);
      break;
    }
  }

  choose_thread_count();
  print_header(plan);
  void* block = size_memory(plan, argv[0]);
  const int failed = run_tests(plan, block);
  __vosc_end(&main_loc);
  return failed;
}
