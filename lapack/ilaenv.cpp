// Block sizes and cross-over points, LAPACK's ILAENV with this system's
// tuning. The LU's three questions are answered from lapack/tuning/; other
// routine names get the classic defaults.
#include <algorithm>
#include <cstddef>

#include "lapack/lapack.h"
#include "lapack/tuning/ilaenv_getrf.h"
#include "service/cpu.h"

namespace {

// ispec values of ILAENV.
constexpr int kSpecBlock = 1;
constexpr int kSpecMinBlock = 2;
constexpr int kSpecCrossover = 3;
constexpr int kSpecShifts = 4;
constexpr int kSpecMinColumn = 5;
constexpr int kSpecSvdCrossover = 6;
constexpr int kSpecProcessors = 7;
constexpr int kSpecMultishift = 8;
constexpr int kSpecTreeLeaf = 9;
constexpr int kSpecIeeeNan = 10;
constexpr int kSpecIeeeInf = 11;
constexpr int kSpecTeamCrossover = 18;

// Short way for problems with both sizes at most this bound.
constexpr int kSmallProblem = 10;
constexpr int kSmallBlock = 1;
constexpr int kSmallMinBlock = 2;
constexpr int kSmallCrossover = 22;
constexpr int kSmallCrossoverNegN2 = 32;
constexpr int kSmallShifts = 6;
constexpr int kSmallMultishift = 50;
constexpr int kSmallTreeLeaf = 25;

// Classic answers for names without a tuned case.
constexpr int kDefaultBlock = 32;
constexpr int kDefaultMinBlock = 2;
constexpr int kDefaultCrossover = 128;
constexpr int kDefaultShifts = 6;
constexpr int kDefaultMinColumn = 2;
constexpr double kSvdCrossoverFactor = 1.6;
constexpr int kDefaultProcessors = 1;
constexpr int kDefaultMultishift = 50;
constexpr int kDefaultTreeLeaf = 25;
constexpr int kIeeeYes = 1;
constexpr int kUnknownSpec = -1;

// ASCII upper case; names and options are compared without regard to case.
char upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - ('a' - 'A')) : c; }

// True when `name` begins with `word`, ignoring case; `name` may be shorter
// (terminated) but is never read past its terminator.
bool name_starts_with(const char* name, const char* word) {
  if (name == nullptr) return false;
  for (std::size_t i = 0; word[i] != 0; ++i)
    if (name[i] == 0 || upper(name[i]) != word[i]) return false;
  return true;
}

// The full routine name: the word and then the end of the text or a blank
// (Fortran callers pad with blanks).
bool name_is(const char* name, const char* word) {
  if (!name_starts_with(name, word)) return false;
  std::size_t len = 0;
  while (word[len] != 0) ++len;
  return name[len] == 0 || name[len] == ' ';
}

int small_problem_answer(int ispec, int n2) {
  switch (ispec) {
    case kSpecBlock: return kSmallBlock;
    case kSpecMinBlock:
    case kSpecMinColumn: return kSmallMinBlock;
    case kSpecCrossover:
    case kSpecTeamCrossover: return n2 < 0 ? kSmallCrossoverNegN2 : kSmallCrossover;
    case kSpecShifts: return kSmallShifts;
    case kSpecMultishift: return kSmallMultishift;
    case kSpecTreeLeaf: return kSmallTreeLeaf;
    default: return kUnknownSpec;  // not covered by the short way
  }
}

int default_answer(int ispec, int n1, int n2) {
  switch (ispec) {
    case kSpecBlock: return kDefaultBlock;
    case kSpecMinBlock: return kDefaultMinBlock;
    case kSpecCrossover: return kDefaultCrossover;
    case kSpecShifts: return kDefaultShifts;
    case kSpecMinColumn: return kDefaultMinColumn;
    case kSpecSvdCrossover:
      return static_cast<int>(static_cast<double>(std::min(n1, n2)) * kSvdCrossoverFactor);
    case kSpecProcessors: return kDefaultProcessors;
    case kSpecMultishift: return kDefaultMultishift;
    case kSpecTreeLeaf: return kDefaultTreeLeaf;
    case kSpecIeeeNan:
    case kSpecIeeeInf: return kIeeeYes;
    default: return kUnknownSpec;
  }
}

}  // namespace

extern "C" int tarn_lapack_ilaenv(const int* ispec, const char* name, const char* opts,
                                  const int* n1, const int* n2, const int* n3,
                                  const int* /*n4*/) {
  if (name_starts_with(name, "CPU")) return tarn_serv_cpu_detect();

  const int question = *ispec;
  const int size1 = *n1;
  const int size2 = *n2;
  if (size1 <= kSmallProblem && size2 <= kSmallProblem) {
    const int answer = small_problem_answer(question, size2);
    if (answer != kUnknownSpec) return answer;
  }

  if (name_is(name, "DGETRF")) {
    namespace tuning = tarn_lapack_tuning;
    switch (question) {
      case kSpecBlock: {
        // "S": the caller is the sequential recursive LU.
        const bool sequential = opts != nullptr && upper(*opts) == 'S';
        return tuning::getrf_block_width(tarn_serv_cpu_detect(), sequential, size1, size2,
                                         *n3);
      }
      case kSpecMinBlock: return kDefaultMinBlock;
      case kSpecCrossover: return tuning::getrf_crossover(size1, size2);
      default: break;
    }
  }
  return default_answer(question, size1, size2);
}
