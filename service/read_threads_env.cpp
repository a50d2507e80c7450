// The environment of the thread-count policy, read once at the first
// question. A count is taken from the environment only if it is still
// negative, so that a programmer's call made before the first query wins.

#include <cstdint>
#include <cstring>

#include "service/messages.h"
#include "service/strings.h"
#include "service/threads.h"

void tarn_serv_mpi_ppn_forget();

namespace {

constexpr int kEnvBufferSize = 256;
constexpr int kDecimal = 10;
// Largest meaningful value of VX_MPI_THREAD_LEVEL.
constexpr int kMaxMpiThreadLevel = 3;

struct DomainKeyword {
  const char* keyword;
  int domain;
};
constexpr DomainKeyword kDomainKeywords[] = {
    {"TARN_DOMAIN_ALL", TARN_DOMAIN_ALL},   {"TARN_DOMAIN_BLAS", TARN_DOMAIN_BLAS},
    {"TARN_DOMAIN_FFT", TARN_DOMAIN_FFT},   {"TARN_DOMAIN_VML", TARN_DOMAIN_VML},
    {"TARN_DOMAIN_SPSOLVE", TARN_DOMAIN_SPSOLVE},
};

// Set once tarn_serv_mpi_get_ppn has looked, so that its variables are read
// once even when none of them helps.
int g_ppn_read = 0;

// The value of `name` in buf, or null when unset, empty or too long.
const char* read_env(const char* name, char* buf) {
  return tarn_serv_getenv(name, buf, kEnvBufferSize) > 0 ? buf : nullptr;
}

bool all_digits(const char* s) {
  if (*s == '\0') return false;
  for (; *s != '\0'; ++s)
    if (*s < '0' || *s > '9') return false;
  return true;
}

bool is_blank(char c) { return c == ' ' || c == '\t'; }
bool is_quote(char c) { return c == '"' || c == '\''; }
bool is_pair_separator(char c) {
  return is_blank(c) || c == ',' || c == ';' || c == ':' || is_quote(c);
}

// A count stored only if nothing set it before.
void store_if_unset(int* count, int value) {
  if (*count < 0) *count = value;
}

// TARN_DOMAIN_NUM_THREADS: pairs "keyword=value" or "keyword value",
// separated by blanks, ',', ';', ':' or quotes.
void parse_domain_list(const char* s) {
  const size_t n = std::strlen(s);
  size_t pos = 0;
  for (;;) {
    while (pos < n && is_pair_separator(s[pos])) ++pos;
    const size_t key_begin = pos;
    while (pos < n && s[pos] != '=' && !is_quote(s[pos]) && !is_blank(s[pos])) ++pos;
    const size_t key_len = pos - key_begin;
    if (key_len == 0) return;
    while (pos < n && (is_blank(s[pos]) || s[pos] == '=')) ++pos;
    const size_t value_begin = pos;
    while (pos < n && !is_pair_separator(s[pos])) ++pos;
    const size_t value_len = pos - value_begin;

    // An empty value or one with a non-digit counts as 1.
    int32_t value = 1;
    bool digits = value_len > 0;
    for (size_t i = value_begin; i < pos; ++i)
      if (s[i] < '0' || s[i] > '9') digits = false;
    if (digits) value = tarn_serv_strtol_as_long32(s + value_begin, nullptr, kDecimal);
    if (value < 1) continue;
    for (const DomainKeyword& k : kDomainKeywords) {
      if (std::strlen(k.keyword) == key_len && std::strncmp(k.keyword, s + key_begin, key_len) == 0) {
        store_if_unset(tarn_serv_domain_count(k.domain), value);
        break;
      }
    }
  }
}

// A whole positive number with nothing behind it, else 0.
int whole_number(const char* s) {
  char* end = nullptr;
  const int32_t v = tarn_serv_strtol_as_long32(s, &end, kDecimal);
  return end != s && *end == '\0' && v > 0 ? v : 0;
}

}  // namespace

void tarn_serv_mpi_ppn_forget() { g_ppn_read = 0; }

extern "C" int tarn_serv_mpi_get_ppn(void) {
  if (g_ppn_read != 0) return __tarn_mpi_ppn;
  char buf[kEnvBufferSize];
  int ppn = 0;
  const char* v;
  if ((v = read_env("TARN_MPI_PPN", buf)) != nullptr) ppn = whole_number(v);
  if (ppn <= 0 && (v = read_env("VX_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", buf)) != nullptr)
    ppn = whole_number(v);
  if (ppn <= 0 && (v = read_env("VX_MPI_PIN_MAPPING", buf)) != nullptr) {
    // "<processes>:<map>"
    char* end = nullptr;
    const int32_t n = tarn_serv_strtol_as_long32(v, &end, kDecimal);
    if (end != v && *end == ':' && n > 0) ppn = n;
  }
  if (ppn <= 0 && (v = read_env("OMPI_COMM_WORLD_LOCAL_SIZE", buf)) != nullptr)
    ppn = whole_number(v);
  if (ppn <= 0 && (v = read_env("MPI_LOCALNRANKS", buf)) != nullptr) ppn = whole_number(v);
  __tarn_mpi_ppn = ppn > 0 ? ppn : -1;
  g_ppn_read = 1;
  return __tarn_mpi_ppn;
}

extern "C" void tarn_read_threads_env(void) {
  char buf[kEnvBufferSize];
  const char* v;

  if ((v = read_env("TARN_NUM_THREADS", buf)) != nullptr) {
    if (all_digits(v)) {
      const int32_t n = tarn_serv_strtol_as_long32(v, nullptr, kDecimal);
      if (n > 0) store_if_unset(&__tarn_num_threads, n);
    } else {
      store_if_unset(&__tarn_num_threads, 1);
    }
  }

  if ((v = read_env("TARN_NUM_STRIPES", buf)) != nullptr && all_digits(v))
    store_if_unset(&__tarn_num_stripes, tarn_serv_strtol_as_long32(v, nullptr, kDecimal));

  if ((v = read_env("TARN_DOMAIN_NUM_THREADS", buf)) != nullptr) parse_domain_list(v);

  if (__tarn_dynamic < 0) {
    int dynamic = 1;
    if ((v = read_env("TARN_DYNAMIC", buf)) != nullptr) {
      while (is_blank(*v) || is_quote(*v)) ++v;
      size_t len = 0;
      while (v[len] != '\0' && !is_blank(v[len]) && !is_quote(v[len])) ++len;
      // Only the word false turns it off; "0" and "False" leave it on.
      if ((len == 5 && std::strncmp(v, "FALSE", 5) == 0) ||
          (len == 5 && std::strncmp(v, "false", 5) == 0))
        dynamic = 0;
    }
    __tarn_dynamic = dynamic;
  }

  if ((v = read_env("OMP_NUM_THREADS", buf)) != nullptr) {
    if (all_digits(v)) {
      const int32_t n = tarn_serv_strtol_as_long32(v, nullptr, kDecimal);
      if (n > 0) store_if_unset(&__omp_num_threads, n);
    } else {
      store_if_unset(&__omp_num_threads, 1);
    }
  }

  __tarn_mpi_ppn = tarn_serv_mpi_get_ppn();

  if ((v = read_env("VX_MPI_THREAD_LEVEL", buf)) != nullptr) {
    const int32_t level = all_digits(v) ? tarn_serv_strtol_as_long32(v, nullptr, kDecimal) : 0;
    __tarn_mpi_thread_level = level > kMaxMpiThreadLevel ? 0 : level;
  }
}
