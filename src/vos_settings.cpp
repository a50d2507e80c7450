// Runtime settings read from the environment at the first question.
//
// Only the default team size is read so far: the first count of
// OMP_NUM_THREADS. The rest of the settings table arrives with the settings
// work; until then an unknown or malformed value leaves the default alone.

#include <cctype>
#include <cstdlib>

#include "src/vos_internal.h"

namespace {

// Counts above this are cut to it, as the runtime never forms larger teams.
constexpr long kMaxTeamCount = 32768;

// The first element of a list "n1[,n2...]" with blanks allowed around the
// numbers; 0 when the list is empty, starts with a comma or holds a word.
int32_t first_count_of_list(const char* text) {
  const char* p = text;
  while (*p == ' ' || *p == '\t') ++p;
  if (!std::isdigit(static_cast<unsigned char>(*p))) return 0;
  long value = 0;
  while (std::isdigit(static_cast<unsigned char>(*p))) {
    value = value * 10 + (*p - '0');
    if (value > kMaxTeamCount) value = kMaxTeamCount;
    ++p;
  }
  while (*p == ' ' || *p == '\t') ++p;
  if (*p != '\0' && *p != ',') return 0;
  return static_cast<int32_t>(value);
}

}  // namespace

int32_t __vos_env_default_team_nth() {
  const char* value = std::getenv("OMP_NUM_THREADS");
  return value ? first_count_of_list(value) : 0;
}
