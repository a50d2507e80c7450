// Counting packages, cores and logical processors. The processor's own
// topology fields are read by pinning the calling thread to each logical
// processor in turn and reading its initial APIC id; /proc/cpuinfo then
// overrides that estimate when its numbers are consistent. The probe moves
// the calling thread, so the mask is saved and restored and the probe runs
// once per process; later calls get the same answer.

#include <cpuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "service/strings.h"
#include "service/threads.h"
#include "src/vos.h"

extern "C" {
int api_probe_is_called = 0;
int tarnaff_len = 0;
}

namespace {

constexpr int kAffinityBytes = 1024;
constexpr int kMaxProbedProcessors = 8192;
constexpr int kMaxDistinctIds = 4096;
constexpr int kCpuinfoLineBytes = 512;
constexpr int kDecimal = 10;

constexpr unsigned kLeafBasic = 0;
constexpr unsigned kLeafFeatures = 1;
constexpr unsigned kLeafCacheParams = 4;
constexpr unsigned kHttBit = 1u << 28;  // leaf 1 EDX
// Fields of leaf 1 EBX and leaf 4 EAX.
constexpr int kLogicalPerPackageShift = 16;  // leaf 1 EBX bits 16-23
constexpr int kInitialApicIdShift = 24;      // leaf 1 EBX bits 24-31
constexpr int kCoresPerPackageShift = 26;    // leaf 4 EAX bits 26-31, minus one
constexpr unsigned kByteMask = 0xFF;
constexpr unsigned kCoresPerPackageMask = 0x3F;

// Results of the one probe, handed out again to later callers.
int g_packages = 1, g_cores = 1, g_logical = 1;

// Bits needed to number x items: the top bit of x - 1, plus one; 0 for 1.
int field_width(unsigned x) {
  if (x <= 1) return 0;
  return 32 - __builtin_clz(x - 1);
}

unsigned initial_apic_id() {
  unsigned a, b, c, d;
  __cpuid(kLeafFeatures, a, b, c, d);
  return (b >> kInitialApicIdShift) & kByteMask;
}

// Adds v to the list unless present; returns the list's new size.
int add_distinct(unsigned* list, int size, unsigned v) {
  for (int i = 0; i < size; ++i)
    if (list[i] == v) return size;
  if (size < kMaxDistinctIds) list[size++] = v;
  return size;
}

// Processors, packages, cores per package and siblings as the kernel lists
// them; 0 where a number is missing.
void read_cpuinfo(int* processors, int* packages, int* cpu_cores, int* siblings) {
  *processors = *packages = *cpu_cores = *siblings = 0;
  FILE* f = std::fopen("/proc/cpuinfo", "r");
  if (f == nullptr) return;
  static unsigned ids[kMaxDistinctIds];
  int nids = 0;
  char line[kCpuinfoLineBytes];
  while (std::fgets(line, sizeof(line), f) != nullptr) {
    const char* colon = std::strchr(line, ':');
    if (std::strncmp(line, "processor", 9) == 0) {
      ++*processors;
    } else if (colon != nullptr && std::strncmp(line, "physical id", 11) == 0) {
      nids = add_distinct(ids, nids, tarn_serv_strtoul_as_ulong32(colon + 1, nullptr, kDecimal));
    } else if (colon != nullptr && *processors == 1 && std::strncmp(line, "cpu cores", 9) == 0) {
      *cpu_cores = tarn_serv_strtol_as_long32(colon + 1, nullptr, kDecimal);
    } else if (colon != nullptr && *processors == 1 && std::strncmp(line, "siblings", 8) == 0) {
      *siblings = tarn_serv_strtol_as_long32(colon + 1, nullptr, kDecimal);
    }
  }
  std::fclose(f);
  *packages = nids;
}

}  // namespace

extern "C" void count_cores_impl(int* packages, int* cores, int* logical) {
  *packages = *cores = *logical = 1;
  const int nprocs = omp_get_num_procs();
  if (api_probe_is_called != 0) {
    *packages = g_packages;
    *cores = g_cores;
    *logical = g_logical;
    return;
  }
  api_probe_is_called = 1;

  static unsigned char saved[kAffinityBytes];
  long got = syscall(SYS_sched_getaffinity, 0, kAffinityBytes, saved);
  if (got < 0) return;
  const int len = got == 0 ? kAffinityBytes : static_cast<int>(got);
  if (syscall(SYS_sched_setaffinity, 0, len, saved) != 0) return;
  tarnaff_len = len;

  // What is common to every package. The vendor condition of these leaves
  // holds on every x86 processor here.
  unsigned a, b, c, d;
  __cpuid(kLeafBasic, a, b, c, d);
  const unsigned max_leaf = a;
  __cpuid(kLeafFeatures, a, b, c, d);
  const bool htt = (d & kHttBit) != 0;
  unsigned logical_per_package = htt ? (b >> kLogicalPerPackageShift) & kByteMask : 1;
  if (logical_per_package == 0) logical_per_package = 1;
  unsigned cores_per_package = 1;
  if (htt && max_leaf >= kLeafCacheParams) {
    __cpuid_count(kLeafCacheParams, 0, a, b, c, d);
    cores_per_package = ((a >> kCoresPerPackageShift) & kCoresPerPackageMask) + 1;
  }
  unsigned threads_per_core = logical_per_package / cores_per_package;
  if (threads_per_core == 0) threads_per_core = 1;
  const int smt = field_width(threads_per_core);
  const int core = field_width(cores_per_package);
  const int pkg = field_width(logical_per_package);
  const unsigned core_mask = (kByteMask << smt) ^ (kByteMask << (smt + core));
  const unsigned pkg_mask = kByteMask << pkg;

  static unsigned package_ids[kMaxDistinctIds];
  static unsigned core_ids[kMaxDistinctIds];
  int npackages = 0, ncores = 0, nlogical = 0;
  // Walk the processors of the saved mask, which are the ones this process
  // may be pinned to.
  const int limit = nprocs < kMaxProbedProcessors ? nprocs : kMaxProbedProcessors;
  for (int cpu = 0, seen = 0; cpu < len * 8 && seen < limit; ++cpu) {
    if ((saved[cpu / 8] & (1u << (cpu % 8))) == 0) continue;
    ++seen;
    unsigned char one[kAffinityBytes] = {};
    one[cpu / 8] = static_cast<unsigned char>(1u << (cpu % 8));
    if (syscall(SYS_sched_setaffinity, 0, len, one) != 0) continue;
    sleep(0);
    const unsigned id = initial_apic_id();
    const unsigned core_field = id & core_mask;
    const unsigned pkg_field = id & pkg_mask;
    ++nlogical;
    npackages = add_distinct(package_ids, npackages, pkg_field);
    ncores = add_distinct(core_ids, ncores, core_field | pkg_field);
  }
  syscall(SYS_sched_setaffinity, 0, len, saved);
  sleep(0);

  int out_packages = npackages > 0 ? npackages : 1;
  int out_cores = ncores > 0 ? ncores : 1;
  int out_logical = nlogical > 0 ? nlogical : 1;

  // The kernel's numbers win when they agree with each other.
  int p, k, cc, s;
  read_cpuinfo(&p, &k, &cc, &s);
  if (p >= 1 && k >= 1 && cc >= 1 && s >= 1) {
    if ((k * cc == p && cc == s) || (k * s == p && cc != s)) {
      out_cores = k * cc;
      out_logical = p;
      out_packages = k;
    }
  }
  if (out_packages < 1) out_packages = out_cores;

  g_packages = *packages = out_packages;
  g_cores = *cores = out_cores;
  g_logical = *logical = out_logical;
}
