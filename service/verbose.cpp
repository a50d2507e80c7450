// Verbose mode: with TARN_VERBOSE=1 every top-level numerical entry reports
// its call, its time and the state of the library on one line, after a
// header line that appears once per process. Also the version record and
// the version texts.
#include "service/verbose.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "service/cpu.h"
#include "service/memory.h"
#include "service/messages.h"
#include "service/strings.h"
#include "service/threads.h"
#include "service/timers.h"
#include "src/vos.h"

namespace {

constexpr int kVerboseEnvBytes = 128;
constexpr int kAnyBase = 0;  // TARN_VERBOSE=0x1 counts
constexpr int kPathBytes = 4096;
constexpr int kStatusBytes = 400;
constexpr int kLineBytes = 1024;
constexpr int kVersionTextBytes = 512;

constexpr int kVersionMajor = 2020;
constexpr int kVersionMinor = 0;
constexpr int kVersionUpdate = 2;
constexpr const char kProductStatus[] = "Product";
constexpr const char kBuild[] = "20200624";
// The platform the build runs on, in the version texts and the header.
constexpr const char* kPlatform = sizeof(void*) == 8 ? "64-bit" : "32-bit";
constexpr const char kDefaultProcessor[] = "Vexan(R) Architecture processors";
constexpr const char kThreadingLayer[] = "vexan_thread";

constexpr const char kWarningFormat[] = "TARN_VERBOSE WARNING: %s\n";
constexpr const char kBadFileName[] = "incorrect output filename: too long or empty";
constexpr const char kCannotOpen[] = "Unable to open verbose output file.";
constexpr const char kFallbackToStdout[] = "unable to open output file. Print to STDOUT";

// Processor texts of the version record, by branch code (after the raise of
// codes 8 and 9); null rows keep the default text.
constexpr const char* kProcessorText[] = {
    nullptr,                                                                   // 0
    nullptr,                                                                   // 1
    "Vexan(R) Streaming SIMD Extensions 2 (Vexan(R) SSE2) enabled processors",  // 2
    "Vexan(R) Streaming SIMD Extensions 2 (Vexan(R) SSE2) enabled processors",  // 3
    "Vexan(R) Supplemental Streaming SIMD Extensions 3 (Vexan(R) SSSE3) enabled processors",
    "Vexan(R) Streaming SIMD Extensions 4.2 (Vexan(R) SSE4.2) enabled processors",
    "Vexan(R) Advanced Vector Extensions (Vexan(R) AVX) enabled processors",
    "Vexan(R) Advanced Vector Extensions 2 (Vexan(R) AVX2) enabled processors",
    nullptr,  // 8
    "Vexan(R) Advanced Vector Extensions 512 (Vexan(R) AVX-512) enabled processors",
    nullptr,  // 10
    "Vexan(R) Advanced Vector Extensions 512 (Vexan(R) AVX-512) with support of Vector Neural "
    "Network Instructions enabled processors",
    "E2: Vexan(R) Advanced Vector Extensions 512 (Vexan(R) AVX-512) enabled processors",
    "Vexan(R) Advanced Vector Extensions 512 (Vexan(R) AVX-512) with support of Vector Neural "
    "Network Instructions supporting BF16 enabled processors",
};
constexpr int kProcessorRows = sizeof kProcessorText / sizeof kProcessorText[0];

// Names of the reproducibility modes in the status line, by mode number.
constexpr const char* kCbwrName[] = {
    nullptr, "OFF",  "AUTO", "COMPATIBLE", "SSE2",       "?",      "SSSE3",
    "SSE4_1", "SSE4_2", "AVX", "AVX2", "AVX512_MCX", "AVX512", "AVX512_MCX_E1",
};
constexpr int kCbwrNames = sizeof kCbwrName / sizeof kCbwrName[0];
constexpr int kCbwrNoName = 5;  // mode 5 has no name of its own

// Thread domains reported when their count differs from the general one.
struct DomainLabel {
  int domain;
  const char* format;
};
constexpr DomainLabel kDomainLabels[] = {
    {TARN_DOMAIN_BLAS, ",BLAS:%d"},
    {TARN_DOMAIN_FFT, ",FFT:%d"},
    {TARN_DOMAIN_VML, ",VML:%d"},
    {TARN_DOMAIN_SPSOLVE, ",SPSOLVE:%d"},
};

// Mode word: -1 until read. Written under verbose_val_lock on first read,
// or by tarn_serv_verbose at any time; read without a lock by callers.
int tarn_verbose_val = -1;
volatile int verbose_val_lock = 0;
// Output file: empty for standard output. Written under verbose_file_lock.
char verbose_file_val[kPathBytes] = "";
volatile int verbose_file_read = 0;
volatile int verbose_file_lock = 0;

volatile int header_printed = 0;
volatile int header_lock = 0;
volatile int line_lock = 0;

void warn(const char* text) { tarn_serv_format_print(1, kWarningFormat, 1, text); }

// Appends to a fixed buffer and stops quietly when it is full.
struct Appender {
  char* buffer;
  int left;
  void add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    if (left <= 1) return;
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(buffer, static_cast<size_t>(left), format, args);
    va_end(args);
    if (n < 0) return;
    const int used = n < left ? n : left - 1;
    buffer += used;
    left -= used;
  }
};

void append_time(Appender& out, double seconds) {
  constexpr double kMilli = 1e3, kMicro = 1e6, kNano = 1e9;
  if (seconds <= 0.0)
    out.add("%.2fs", 0.0);
  else if (seconds > 1.0)
    out.add("%.2fs", seconds);
  else if (seconds * kMilli > 1.0)
    out.add("%.2fms", seconds * kMilli);
  else if (seconds * kMicro > 1.0)
    out.add("%.2fus", seconds * kMicro);
  else
    out.add("%.0fns", seconds * kNano);
}

void append_cbwr(Appender& out) {
  const int mode = tarn_serv_cbwr_get(1);
  if (mode >= 1 && mode < kCbwrNames && mode != kCbwrNoName)
    out.add(" CNR:%s", kCbwrName[mode]);
  else
    out.add(" CNR:?%x", static_cast<unsigned>(mode));
  if (tarn_serv_cbwr_get(-1) & TARN_CBWR_STRICT) out.add(",STRICT");
}

void append_threads(Appender& out) {
  const int general = tarn_serv_get_max_threads();
  out.add(" NThr:%d", general);
  for (const DomainLabel& d : kDomainLabels) {
    const int n = tarn_serv_domain_get_max_threads(d.domain);
    if (n != general) out.add(d.format, n);
  }
}

const char* iface_name(int iface, char* scratch, int size) {
  switch (iface) {
    case -2: return "stdcall";
    case -1: return "cdecl";
    case 1: return "lp64";
    case 2: return "ilp64";
    default: std::snprintf(scratch, static_cast<size_t>(size), "iface%x", static_cast<unsigned>(iface));
  }
  return scratch;
}

// Writes one complete line to the output file, or to standard output when
// there is none or it cannot be opened.
void emit(const char* line, volatile int* stdout_lock) {
  const char* path = tarn_serv_verbose_output_file_mode();
  if (path[0]) {
    if (FILE* f = tarn_serv_fopen(path, "a")) {
      std::fputs(line, f);
      tarn_serv_fclose(f);
      return;
    }
    warn(kFallbackToStdout);
  }
  if (stdout_lock) tarn_serv_lock(stdout_lock);
  std::fputs(line, stdout);
  std::fflush(stdout);
  if (stdout_lock) tarn_serv_unlock(stdout_lock);
}

void print_header(int iface) {
  if (__atomic_load_n(&header_printed, __ATOMIC_ACQUIRE)) return;
  tarn_serv_lock(&header_lock);
  if (!header_printed) {
    tarn_version v;
    tarn_serv_get_version(&v);
    char line[kLineBytes];
    Appender out{line, kLineBytes};
    out.add("TARN_VERBOSE Vexan(R) TARN %d.%d", v.major_version, v.minor_version);
    if (v.update_version > 0) out.add(" Update %d", v.update_version);
    out.add(" %s build %s for %s %s", v.product_status, v.build, v.platform, v.processor);
    out.add(" %.2fGHz", tarn_serv_get_max_cpu_frequency());
    char scratch[32];
    if (iface != 0) out.add(" %s", iface_name(iface, scratch, sizeof scratch));
    out.add(" %s\n", kThreadingLayer);
    emit(line, nullptr);
    __atomic_store_n(&header_printed, 1, __ATOMIC_RELEASE);
  }
  tarn_serv_unlock(&header_lock);
}

// Stores a checked output path; 0 on success, 1 on failure (with a warning).
int set_output_file(const char* path, int length) {
  if (length <= 0 || length >= kPathBytes) {
    verbose_file_val[0] = 0;
    warn(kBadFileName);
    return 1;
  }
  std::memcpy(verbose_file_val, path, static_cast<size_t>(length));
  verbose_file_val[length] = 0;
  FILE* f = tarn_serv_fopen(verbose_file_val, "a");
  if (!f) {
    verbose_file_val[0] = 0;
    warn(kCannotOpen);
    return 1;
  }
  tarn_serv_fclose(f);
  return 0;
}

const char* processor_text() {
  int code = tarn_serv_cpu_detect();
  constexpr int kManyCore = 8, kManyCoreE1 = 10, kAvx512 = 9, kAvx512E1 = 11, kAvx512E2 = 12,
                kAvx512E3 = 13;
  if (code == kManyCore && tarn_serv_cpuis_mcx_e1()) {
    code = kManyCoreE1;
  } else if (code == kAvx512) {
    if (tarn_serv_cpuis_avx512_e2())
      code = kAvx512E2;
    else if (tarn_serv_cpuis_avx512_e3())
      code = kAvx512E3;
    else if (tarn_serv_cpuis_avx512_e1())
      code = kAvx512E1;
  }
  if (code >= 0 && code < kProcessorRows && kProcessorText[code]) return kProcessorText[code];
  return kDefaultProcessor;
}

}  // namespace

extern "C" {

int* tarn_serv_verbose_mode(void) {
  if (__atomic_load_n(&tarn_verbose_val, __ATOMIC_ACQUIRE) == -1) {
    tarn_serv_lock(&verbose_val_lock);
    if (tarn_verbose_val == -1) {
      char buffer[kVerboseEnvBytes];
      int value = 0;
      if (tarn_serv_getenv("TARN_VERBOSE", buffer, kVerboseEnvBytes) > 0) {
        char* end = nullptr;
        const int32_t v = tarn_serv_strtol_as_long32(buffer, &end, kAnyBase);
        if (end && *end == 0 && (v == 0 || v == 1)) value = v;
      }
      __atomic_store_n(&tarn_verbose_val, value, __ATOMIC_RELEASE);
    }
    tarn_serv_unlock(&verbose_val_lock);
  }
  return &tarn_verbose_val;
}

int* tarn_serv_iface_verbose_mode(void) { return tarn_serv_verbose_mode(); }

int tarn_serv_verbose(int mode) {
  if (mode != 0 && mode != 1) return -1;
  tarn_serv_lock(&verbose_val_lock);
  __atomic_store_n(&tarn_verbose_val, mode, __ATOMIC_RELEASE);
  tarn_serv_unlock(&verbose_val_lock);
  return tarn_verbose_val;
}

const char* tarn_serv_verbose_output_file_mode(void) {
  if (!__atomic_load_n(&verbose_file_read, __ATOMIC_ACQUIRE)) {
    tarn_serv_lock(&verbose_file_lock);
    if (!verbose_file_read) {
      char buffer[kPathBytes];
      const int n = tarn_serv_getenv("TARN_VERBOSE_OUTPUT_FILE", buffer, kPathBytes);
      // Unset is the normal case; a value that did not fit is refused.
      if (n != 0) set_output_file(buffer, n);
      __atomic_store_n(&verbose_file_read, 1, __ATOMIC_RELEASE);
    }
    tarn_serv_unlock(&verbose_file_lock);
  }
  return verbose_file_val;
}

int tarn_serv_verbose_output_file(const char* path) {
  const int length =
      path ? static_cast<int>(tarn_serv_strnlen_s(path, static_cast<size_t>(kPathBytes))) : 0;
  tarn_serv_lock(&verbose_file_lock);
  const int result = set_output_file(path, length);
  __atomic_store_n(&verbose_file_read, 1, __ATOMIC_RELEASE);
  tarn_serv_unlock(&verbose_file_lock);
  return result;
}

void tarn_serv_print_verbose_info(int iface, const char* text, double seconds) {
  char status[kStatusBytes];
  status[0] = 0;
  Appender out{status, kStatusBytes};
  append_time(out, seconds);
  append_cbwr(out);
  out.add(" Dyn:%d", tarn_serv_get_dynamic());
  out.add(" FastMM:%d", tarn_serv_get_fast_mm_status() == 1 ? 0 : 1);
  out.add(" TID:%-2d", omp_get_thread_num());
  append_threads(out);

  print_header(iface);

  char line[kLineBytes];
  std::snprintf(line, sizeof line, "TARN_VERBOSE %s %s\n", text ? text : "", status);
  emit(line, &line_lock);
}

void tarn_serv_iface_print_verbose_info(int iface, const char* text, double seconds) {
  tarn_serv_print_verbose_info(iface, text, seconds);
}

void tarn_serv_get_version(tarn_version* record) {
  if (!record) return;
  record->major_version = kVersionMajor;
  record->minor_version = kVersionMinor;
  record->update_version = kVersionUpdate;
  record->product_status = kProductStatus;
  record->build = kBuild;
  record->processor = processor_text();
  record->platform = kPlatform;
}

void TarnGetVerItems(char* buffer) {
  std::snprintf(buffer, kVersionTextBytes,
                "Vexan(R) Tarn Library Version %d.%d.%d %s Build %s for %s applications",
                kVersionMajor, kVersionMinor, kVersionUpdate, kProductStatus, kBuild, kPlatform);
}

void tarn_serv_get_version_string(char* buffer, int length) {
  char text[kVersionTextBytes];
  TarnGetVerItems(text);
  const int n = static_cast<int>(std::strlen(text));
  for (int i = 0; i < length; ++i) buffer[i] = i < n ? text[i] : ' ';
}

void tarn_serv_get_version_string_c(char* buffer, int length) {
  char text[kVersionTextBytes];
  TarnGetVerItems(text);
  const int n = static_cast<int>(std::strlen(text));
  if (length >= 1 && length <= n) {
    std::memcpy(buffer, text, static_cast<size_t>(length - 1));
    buffer[length - 1] = 0;
  } else {
    std::memcpy(buffer, text, static_cast<size_t>(n) + 1);
  }
}

}  // extern "C"
