// The second counter: the processor's time stamp divided by its rate. The
// first call measures the rate and may take up to a second.

#include <cpuid.h>
#include <x86intrin.h>

#include "service/timers.h"

namespace {
constexpr long double kTwoPow64 = 18446744073709551616.0L;
}  // namespace

extern "C" void tarn_serv_get_cpu_clocks(uint64_t* value) {
  if (value == nullptr) return;
  // CPUID serialises: no earlier instruction is still in flight when the
  // counter is read.
  unsigned a, b, c, d;
  __cpuid(0, a, b, c, d);
  *value = __rdtsc();
}

extern "C" double tarn_serv_dsecnd(void) {
  tarn_serv_get_clocks_frequency();
  uint64_t ticks = 0;
  tarn_serv_get_cpu_clocks(&ticks);
  // Carried in extended precision, rounded to double once at the end.
  long double t = static_cast<long double>(static_cast<int64_t>(ticks));
  if (static_cast<int64_t>(ticks) < 0) t += kTwoPow64;
  return static_cast<double>(t / (static_cast<long double>(tarn_clocks_freq) / 1e-9L));
}

extern "C" double tarn_serv_second(void) { return tarn_serv_dsecnd(); }

extern "C" double tarn_serv_iface_dsecnd(void) { return tarn_serv_dsecnd(); }

extern "C" double dsecnd(void) { return tarn_serv_dsecnd(); }
