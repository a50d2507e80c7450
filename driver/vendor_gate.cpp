// The processor gate at start-up. The benchmark was built for one vendor's
// processors; the vendor string it names is a placeholder that no real part
// reports, so the vendor half of the test counts as passed on every x86
// processor. What must hold is SSE2, below which nothing of the program runs.
#include <cpuid.h>

#include "driver/driver.h"

namespace {

constexpr unsigned kLeafFeatures = 1;
constexpr unsigned kEdxSse2 = 1u << 26;

}  // namespace

bool vendor_gate_passes() {
  // __get_cpuid checks that CPUID exists and reaches the leaf.
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (!__get_cpuid(kLeafFeatures, &eax, &ebx, &ecx, &edx)) return false;
  return (edx & kEdxSse2) != 0;
}
