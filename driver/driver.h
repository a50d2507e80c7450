// The benchmark's own declarations: the plan of a run, the message numbers
// and labels it prints, and the steps main() strings together. The Fortran-
// named routines (linpack_, matgen_, ...) take every argument by reference.
#pragma once

#include <cstdint>
#include <cstdio>

// At most this many tests in one run; the slots of a plan.
inline constexpr int kMaxTests = 32;

// Longest line of an input file or of the dialogue, terminator included.
inline constexpr int kLineSize = 256;

// Largest problem size and leading dimension an input file may ask for.
// The dialogue does not apply it.
inline constexpr int kMaxFileSize = 22000;

// Largest data alignment, in KiB.
inline constexpr int kMaxAlignKiB = 64;

// The plan of a run: one slot a test, in input order.
struct RunPlan {
  int32_t ntests = 0;
  int32_t sizes[kMaxTests] = {};
  int32_t ldas[kMaxTests] = {};
  int32_t trials[kMaxTests] = {};
  int32_t aligns[kMaxTests] = {};  // KiB
};

// Message numbers of the benchmark (texts live in the service layer's table).
namespace drvmsg {
inline constexpr int kNewline = 0;
inline constexpr int kNotGenuine = 1057;
inline constexpr int kTitle = 1058;
inline constexpr int kParametersAreSet = 1059;
inline constexpr int kNumberOfTests = 1060;
inline constexpr int kNotEnoughMemory = 1061;
inline constexpr int kMaxMemory = 1062;
inline constexpr int kFinalAllocFailed = 1063;
inline constexpr int kTimingBanner = 1064;
inline constexpr int kInfoReturned = 1066;
inline constexpr int kSummaryTitle = 1068;
inline constexpr int kSummaryHead = 1069;
inline constexpr int kSummaryRow = 1070;
inline constexpr int kEndOfTests = 1071;
inline constexpr int kDataOrHelp = 1072;
inline constexpr int kCannotOpenHelp = 1073;
inline constexpr int kDateTime = 1074;
inline constexpr int kCpuFrequency = 1075;
inline constexpr int kNumberOfCpus = 1076;
inline constexpr int kNumberOfThreads = 1077;
inline constexpr int kWarnIncorrect = 1078;
inline constexpr int kWarnNotLess = 1079;
inline constexpr int kWarnSetTo = 1080;
inline constexpr int kWarnNotBigger = 1081;
inline constexpr int kCannotOpenInput = 1082;
inline constexpr int kNumberOfCores = 1090;
inline constexpr int kChecksPassed = 1238;
inline constexpr int kChecksFailed = 1239;
inline constexpr int kRowPass = 1240;
inline constexpr int kRowFail = 1241;
inline constexpr int kRowHead = 1242;
}  // namespace drvmsg

// Everything the driver prints goes to standard output.
inline constexpr int kToStdout = 0;

// Labels of the parameters, in warnings, prompts and the header table.
inline constexpr const char* kLabelSize = "Number of equations to solve (problem size)";
inline constexpr const char* kLabelLda = "Leading dimension of array";
inline constexpr const char* kLabelTrials = "Number of trials to run";
inline constexpr const char* kLabelAlign = "Data alignment value (in Kbytes)";
inline constexpr const char* kLabelNtests = "Number of tests";
inline constexpr const char* kLabelProblemSize = "Problem size";

inline constexpr const char* kHelpFile = "help.lpk";
inline constexpr const char* kExtendedHelpFile = "xhelp.lpk";

// ---- steps of main --------------------------------------------------------

// True when this processor may run the benchmark.
bool vendor_gate_passes();

// What the command line and the terminals ask for.
enum class InputChoice { kHelp, kExtendedHelp, kDialogue, kFile };
struct InputSource {
  InputChoice choice = InputChoice::kFile;
  const char* name = nullptr;  // file name, "stdin", or null for "-i" alone
  bool use_stdin = false;
};
// True when `arg` is a prefix of `word` of at least two characters: the
// argument is looked for inside the word and must stand at its start.
bool matches_option(const char* word, const char* arg);
InputSource choose_input(int argc, char** argv, bool stdin_is_tty, bool stdout_is_tty);

// Prints a help file beside the program (1073 if it cannot be opened).
void print_help_file(const char* name);

// A clamp warning: 1078 with the label and the offending value, then 1079
// (bound_is_lower) or 1081 with the bound, then 1080 with what takes effect.
void warn_parameter(const char* label, int value, bool bound_is_lower, int bound,
                    int value_set);

// The console dialogue. Returns false when the user asked for help (already
// printed), true when `plan` holds one test.
bool run_dialogue(RunPlan& plan);

// Reads an input file (or standard input) into `plan`; aborts with 1082.
void read_input_file(FILE* in, const char* name, RunPlan& plan);

// One thread a core unless OMP_NUM_THREADS asks otherwise.
void choose_thread_count();

void print_header(const RunPlan& plan);

// Probes the memory the tests need, drops tests that cannot get it, and
// returns the one block that serves all of them (aborts on failure).
void* size_memory(RunPlan& plan, const char* program);

// The verdict of one trial.
bool residual_check_passes(double resid, double residn);

// Runs every test on the block, prints rows and the summary; returns the
// failed flag (0 or 1). Frees the block.
int run_tests(const RunPlan& plan, void* block);

// ---- the Fortran-named benchmark routines -----------------------------------
extern "C" {
void linpack_(const int32_t* n, double* a, const int32_t* lda, double* b, double* x,
              int32_t* ipvt, double* time, double* gflops, double* resid, double* residn,
              int32_t* info);
void matgen_(const int32_t* m, const int32_t* n, double* a, const int32_t* lda, double* b);
double ran_(int32_t* iseed);
void mxpy_(const int32_t* m, const int32_t* n, const double* a, const int32_t* lda,
           const double* x, double* y);
double norm1_(const int32_t* m, const int32_t* n, const double* a, const int32_t* lda);
double normi_(const int32_t* m, const int32_t* n, const double* a, const int32_t* lda);
}
