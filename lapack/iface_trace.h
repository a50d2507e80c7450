// The common shape of the public LAPACK-named entries: a per-entry verbose
// cell resolved on first need, the clock around the call, and the one trace
// line handed to the verbose service.
#pragma once

#include <cstddef>

#include "service/strings.h"
#include "service/timers.h"
#include "service/verbose.h"

namespace tarn_lapack_iface {

// What a verbose cell points at before the service has been asked. Never
// written: every cell is redirected to the service's own word on first need.
inline int g_verbose_not_read = -1;
inline constexpr int kVerboseNotRead = -1;
inline constexpr int kVerboseOff = 0;
inline constexpr int kVerboseTimed = 1;  // other non-zero modes trace with 0.0 s

// Size of the trace line; the last byte is always the terminator.
inline constexpr std::size_t kTraceBufSize = 450;

// The mode as the entry's cell shows it now, without resolving it. The cell
// is read and written with relaxed atomics: concurrent first calls all store
// the same pointer, so it needs no lock, only untorn accesses.
inline int peek_mode(int* const& cell) { return *__atomic_load_n(&cell, __ATOMIC_RELAXED); }

// Reads the mode through the entry's cell, replacing the placeholder by the
// service's word the first time.
inline int verbose_mode(int*& cell) {
  int* word = __atomic_load_n(&cell, __ATOMIC_RELAXED);
  if (*word == kVerboseNotRead) {
    int* resolved = tarn_serv_iface_verbose_mode();
    if (resolved != nullptr) {
      __atomic_store_n(&cell, resolved, __ATOMIC_RELAXED);
      word = resolved;
    }
  }
  return *word;
}

// Clock start: only the timed mode reads the clock.
inline double trace_clock_start(int mode) {
  return mode == kVerboseTimed ? -tarn_serv_iface_dsecnd() : 0.0;
}

// Clock stop: a start of 0.0 means "untimed" and stays 0.0; a NaN start
// counts as started.
inline double trace_clock_stop(double t) {
  if (t != 0.0) t += tarn_serv_iface_dsecnd();
  return t;
}

// Formats the call's description and hands it to the verbose service.
template <class... Args>
void trace_emit(double seconds, const char* format, Args... args) {
  char buf[kTraceBufSize];
  buf[0] = 0;
  tarn_serv_snprintf_s(buf, kTraceBufSize, kTraceBufSize - 1, format, args...);
  buf[kTraceBufSize - 1] = 0;
  tarn_serv_iface_print_verbose_info(0, buf, seconds);
}

// Value behind an argument pointer, 0 for a null pointer.
template <class T>
T value_or_zero(const T* p) {
  return p != nullptr ? *p : T{0};
}

}  // namespace tarn_lapack_iface
