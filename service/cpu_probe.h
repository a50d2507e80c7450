// The one seam through which processor detection reads the hardware.
// Detection never executes CPUID or XGETBV itself: it asks the installed
// probe, which is the real processor unless a test has put a simulated one
// in its place.
#pragma once

#include <cstdint>

struct tarn_cpu_probe {
  // 1 if the EFLAGS ID bit can be toggled, that is if CPUID exists.
  int (*has_cpuid)(void);
  // regs receives EAX, EBX, ECX, EDX of CPUID (leaf, subleaf).
  void (*cpuid)(std::uint32_t leaf, std::uint32_t subleaf, std::uint32_t regs[4]);
  // Extended control register xcr; only asked when CPUID reports OSXSAVE.
  std::uint64_t (*xgetbv)(std::uint32_t xcr);
};

extern "C" {

// Installs a probe (null: the real processor) and returns the previous one.
// Does not forget what was detected: call tarn_serv_cpu_reset_state too.
const tarn_cpu_probe* tarn_serv_cpu_set_probe(const tarn_cpu_probe* probe);

// Returns every cached fact of processor detection to its start value: the
// branch codes, the reproducibility word, the ceiling and its tier flags,
// the feature word, the predicate caches and the cache sizes.  For tests
// only; no other thread may be inside detection meanwhile.
void tarn_serv_cpu_reset_state(void);

}  // extern "C"
