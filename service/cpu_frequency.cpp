// Clock rates: the time-stamp rate that turns ticks into seconds, the core
// rate measured by a spin of known length, and the nominal rate from the
// brand string or the kernel.

#include <cpuid.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "service/timers.h"

extern "C" {
double tarn_clocks_freq = -1.0;
double tarn_cpu_freq = -1.0;
}

namespace {

constexpr unsigned kLeafExtendedMax = 0x80000000u;
constexpr unsigned kLeafBrandLast = 0x80000004u;
constexpr int kBrandTailBytes = 16;
constexpr int kCpuinfoLineBytes = 512;
// Shortest wait on time() that means a new second began.
constexpr double kSecondTick = 0.005;
// Shortest elapsed time that gives a usable rate.
constexpr double kMinElapsed = 0.0001;
constexpr int kFixedLoopDecrements = 1000000;
constexpr int kFrequencyTrials = 3;

int digit(char c) { return c >= '0' && c <= '9' ? c - '0' : 0; }

double wall_seconds(const timeval& tv) {
  return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6;
}

}  // namespace

extern "C" double tarn_serv_brand_frequency(const char* b) {
  if (b[0] == '\0') return 0.0;
  for (int i = 4; i <= 13; ++i) {
    if (b[i + 1] != 'H' || b[i + 2] != 'z') continue;
    int scale;
    switch (b[i]) {
      case 'M': scale = 1; break;
      case 'G': scale = 1000; break;
      case 'T': scale = 1000000; break;
      default: continue;
    }
    double mhz;
    if (b[i - 3] == '.') {
      // d.dd in units of the scale
      mhz = digit(b[i - 4]) * scale + digit(b[i - 2]) * (scale / 10) +
            digit(b[i - 1]) * (scale / 100);
    } else {
      // dddd, read as megahertz whatever the letter
      mhz = digit(b[i - 4]) * 1000 + digit(b[i - 3]) * 100 + digit(b[i - 2]) * 10 +
            digit(b[i - 1]);
    }
    return mhz > 0.0 ? mhz * 0.001 : 0.0;
  }
  return 0.0;
}

extern "C" void fixedloop(int count) {
  (void)count;  // the length is fixed: the estimate counts one decrement per clock
  static_assert(kFixedLoopDecrements == 1000 * 1000, "1000 rounds of 1000 decrements");
  unsigned a, b, c, d;
  __cpuid(0, a, b, c, d);
  int value = kFixedLoopDecrements;
  int rounds = 1000;
  const int minus_one = -1;
  // One chain of dependent LEA decrements; the round counter is a separate
  // chain that the processor runs alongside. The decrement is taken from a
  // register, not an immediate: recent cores fold chains of small immediate
  // additions in the renamer (measured here: "lea -1(r), r" ran at about 8
  // per clock, "lea (r,s), r" at one per clock), which would turn the
  // estimate into several times the real rate.
  __asm__ volatile(
      "1:\n\t"
      ".rept 1000\n\t"
      "lea (%0,%2), %0\n\t"
      ".endr\n\t"
      "dec %1\n\t"
      "jnz 1b\n\t"
      : "+r"(value), "+r"(rounds)
      : "r"(minus_one)
      : "cc");
}

extern "C" double tarn_serv_get_cpu_frequency(void) {
  double best;
  for (;;) {
    double t[kFrequencyTrials];
    bool all_positive = true;
    for (int i = 0; i < kFrequencyTrials; ++i) {
      double start = dsecnd();
      fixedloop(kFixedLoopDecrements);
      t[i] = dsecnd() - start;
      if (!(t[i] > 0.0)) all_positive = false;
    }
    if (!all_positive) continue;
    best = t[0];
    for (int i = 1; i < kFrequencyTrials; ++i)
      if (t[i] < best) best = t[i];
    break;
  }
  tarn_cpu_freq = kFixedLoopDecrements / best;
  return 1e-9 * tarn_cpu_freq;
}

extern "C" double tarn_serv_get_max_cpu_frequency(void) {
  unsigned a, b, c, d;
  __cpuid(kLeafExtendedMax, a, b, c, d);
  if (a >= kLeafBrandLast) {
    __cpuid(kLeafBrandLast, a, b, c, d);
    char tail[kBrandTailBytes];
    std::memcpy(tail, &a, 4);
    std::memcpy(tail + 4, &b, 4);
    std::memcpy(tail + 8, &c, 4);
    std::memcpy(tail + 12, &d, 4);
    double ghz = tarn_serv_brand_frequency(tail);
    if (ghz > 0.0) return ghz;
  }
  if (FILE* f = std::fopen("/proc/cpuinfo", "r")) {
    char line[kCpuinfoLineBytes];
    double ghz = 0.0;
    while (std::fgets(line, sizeof(line), f) != nullptr) {
      if (std::strncmp(line, "cpu MHz", 7) != 0) continue;
      if (const char* colon = std::strchr(line, ':')) ghz = std::strtod(colon + 1, nullptr) * 0.001;
      break;
    }
    std::fclose(f);
    if (ghz > 0.0) return ghz;
  }
  return tarn_serv_get_cpu_frequency();
}

// No lock: two first callers both measure and the last store stands.
extern "C" double tarn_serv_get_clocks_frequency(void) {
  if (tarn_clocks_freq != -1.0) return tarn_clocks_freq;
  time_t t0 = time(nullptr);
  uint64_t ticks0 = 0, ticks1 = 0;
  tarn_serv_get_cpu_clocks(&ticks0);
  timeval w0, w1;
  gettimeofday(&w0, nullptr);
  // time() has whole seconds: this waits for the next one to begin.
  while (difftime(time(nullptr), t0) <= kSecondTick) {
  }
  tarn_serv_get_cpu_clocks(&ticks1);
  gettimeofday(&w1, nullptr);
  double elapsed = wall_seconds(w1) - wall_seconds(w0);
  double rate;
  if (elapsed > kMinElapsed && ticks1 - ticks0 >= 1)
    rate = static_cast<double>(ticks1 - ticks0) / elapsed * 1e-9;
  else
    rate = tarn_serv_get_max_cpu_frequency();
  tarn_clocks_freq = rate;
  return rate;
}
