// Cache sizes for the blocking of the kernels.  A reproducible run uses
// fixed sizes so that it blocks identically on every machine; only with
// reproducibility off are the processor's own caches read (CPUID leaf 4).
#include "service/cpu.h"
#include "service/cpu_state.h"

namespace {

using namespace tarn_cpu;

constexpr int kMaxLevels = 4;
constexpr std::int64_t kFixedSizes[kMaxLevels + 1] = {0, 32768, 0x40000, 0x400000, 0};
constexpr int kModeSse42 = 8;
constexpr int kCodeSse42 = 5;

constexpr std::uint32_t kLeafCache = 4;
constexpr std::uint32_t kCacheTypeNone = 0, kCacheTypeInstruction = 2;
// More sub-leaves than any processor describes; guards a bad answer.
constexpr std::uint32_t kMaxSubleaves = 64;

std::int64_t field(std::uint32_t value, int low, int bits) {
  return static_cast<std::int64_t>((value >> low) & ((1u << bits) - 1u));
}

int read_leaf4(std::int64_t sizes[kMaxLevels + 1]) {
  int levels = 0;
  // Walk the cache descriptions until the null entry; instruction caches do
  // not hold matrix data.
  for (std::uint32_t sub = 0; sub < kMaxSubleaves && levels < kMaxLevels; ++sub) {
    std::uint32_t r[4];
    read_cpuid(kLeafCache, sub, r);
    const std::uint32_t type = r[0] & 0x1F;
    if (type == kCacheTypeNone) break;
    if (type == kCacheTypeInstruction) continue;
    const std::int64_t ways = field(r[1], 22, 10) + 1;
    const std::int64_t partitions = field(r[1], 12, 10) + 1;
    const std::int64_t line = field(r[1], 0, 12) + 1;
    const std::int64_t sets = static_cast<std::int64_t>(r[2]) + 1;
    sizes[++levels] = ways * partitions * line * sets;
  }
  return levels;
}

void find_cache_sizes() {
  if (cache_levels.load() >= 0) return;
  const int mode = tarn_serv_cbwr_get(1);
  LockGuard guard(&cache_lock);
  if (cache_levels.load() >= 0) return;
  int levels;
  if (mode != TARN_CBWR_OFF) {
    const bool three = mode >= kModeSse42 ||
                       (mode == TARN_CBWR_AUTO && tarn_serv_cpu_detect() >= kCodeSse42);
    levels = three ? 3 : 2;
    for (int i = 1; i <= kMaxLevels; ++i) cache_sizes[i] = i <= levels ? kFixedSizes[i] : 0;
  } else {
    levels = read_leaf4(cache_sizes);
  }
  cache_sizes[0] = levels;
  cache_levels = levels;
}

}  // namespace

extern "C" void tarn_serv_cache_info(std::int64_t sizes[5]) {
  find_cache_sizes();
  for (int i = 0; i <= kMaxLevels; ++i) sizes[i] = cache_sizes[i];
}

extern "C" std::int64_t tarn_serv_get_cache_size(int level) {
  find_cache_sizes();
  const int levels = cache_levels.load();
  if (level < 0 || level > levels) return -1;
  return cache_sizes[level == 0 ? levels : level];
}
