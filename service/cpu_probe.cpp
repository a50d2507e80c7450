// The real processor behind the detection seam, and the switch that lets a
// test put a simulated processor in its place.
#include "service/cpu_probe.h"

#include <cpuid.h>

#include <atomic>

#include "service/cpu_state.h"

namespace {

int hardware_has_cpuid() {
  // __get_cpuid_max toggles the EFLAGS ID bit first on 32-bit targets and
  // answers 0 when the bit does not move.
  return __get_cpuid_max(0, nullptr) != 0 ? 1 : 0;
}

void hardware_cpuid(std::uint32_t leaf, std::uint32_t subleaf, std::uint32_t regs[4]) {
  unsigned int a = 0, b = 0, c = 0, d = 0;
  __cpuid_count(leaf, subleaf, a, b, c, d);
  regs[0] = a;
  regs[1] = b;
  regs[2] = c;
  regs[3] = d;
}

std::uint64_t hardware_xgetbv(std::uint32_t xcr) {
  std::uint32_t lo = 0, hi = 0;
  // Spelled as bytes so that no -mxsave is needed in this unit.
  __asm__ volatile(".byte 0x0f, 0x01, 0xd0" : "=a"(lo), "=d"(hi) : "c"(xcr));
  return (static_cast<std::uint64_t>(hi) << 32) | lo;
}

constexpr tarn_cpu_probe kHardwareProbe = {hardware_has_cpuid, hardware_cpuid, hardware_xgetbv};

std::atomic<const tarn_cpu_probe*> installed_probe{&kHardwareProbe};

}  // namespace

namespace tarn_cpu {

const tarn_cpu_probe& probe() { return *installed_probe.load(std::memory_order_acquire); }

void read_cpuid(std::uint32_t leaf, std::uint32_t subleaf, std::uint32_t regs[4]) {
  const tarn_cpu_probe& p = probe();
  std::uint32_t top[4] = {0, 0, 0, 0};
  // Leaves above the top of their range answer with another leaf's data on
  // some processors; treat them as absent.
  p.cpuid(leaf & 0x80000000u, 0, top);
  if (leaf > top[0]) {
    regs[0] = regs[1] = regs[2] = regs[3] = 0;
    return;
  }
  p.cpuid(leaf, subleaf, regs);
}

}  // namespace tarn_cpu

extern "C" const tarn_cpu_probe* tarn_serv_cpu_set_probe(const tarn_cpu_probe* probe) {
  return installed_probe.exchange(probe != nullptr ? probe : &kHardwareProbe,
                                  std::memory_order_acq_rel);
}
