// Process-wide state of processor detection, statically initialised, and
// its reset for tests.  Lock discipline is documented in cpu_state.h.
#include "service/cpu_state.h"

namespace tarn_cpu {

volatile int TARN_Detect_Cpu_Global_Lock = 0;
std::atomic<int> tarn_cpu_type{-1};
std::atomic<int> tarn_vml_cpu_type{-1};
std::atomic<int> tarn_cbwr{-1};

volatile int ceiling_lock = 0;
std::atomic<int> enable_level{-1};
std::atomic<int> mei_was_called{0};
std::atomic<int> ceiling_done{0};
std::atomic<int> __sngl_was_called{0};
std::atomic<int> _ENABLED_SSE4_2{1};
std::atomic<int> _ENABLED_AVX{1};
std::atomic<int> _ENABLED_AVX2{1};
std::atomic<int> _ENABLED_AVX512_MCX{1};
std::atomic<int> _ENABLED_AVX512{1};
std::atomic<int> _ENABLED_AVX512_MCX_E1{1};
std::atomic<int> _ENABLED_AVX512_E1{1};
std::atomic<int> _ENABLED_AVX512_E2{1};
std::atomic<int> _ENABLED_AVX512_E3{1};

volatile int predicate_lock = 0;
std::atomic<int> __TARN_CPU_MicroArchitecture{-1};
std::atomic<int> vexan_cpu_cache{-1};
std::atomic<int> vexan_cpu_true_cache{-1};
std::atomic<int> bulldozer_cache{-1};
std::atomic<int> zen_cache{-1};
std::atomic<int> lowpower_sse42_cache{-1};
std::atomic<int> lowpower_ssse3_cache{-1};
std::atomic<int> mcx_e1_cache{-1};
std::atomic<int> avx512_e1_cache{-1};
std::atomic<int> avx512_e2_cache{-1};
std::atomic<int> avx512_e3_cache{-1};

volatile int cache_lock = 0;
std::atomic<int> cache_levels{-1};
std::int64_t cache_sizes[5] = {0, 0, 0, 0, 0};

std::atomic<std::uint32_t> feature_low{0};
std::atomic<std::uint32_t> feature_high{0};

}  // namespace tarn_cpu

extern "C" void tarn_serv_cpu_reset_state(void) {
  using namespace tarn_cpu;
  tarn_cpu_type = -1;
  tarn_vml_cpu_type = -1;
  tarn_cbwr = -1;

  enable_level = -1;
  mei_was_called = 0;
  ceiling_done = 0;
  __sngl_was_called = 0;
  for (std::atomic<int>* flag :
       {&_ENABLED_SSE4_2, &_ENABLED_AVX, &_ENABLED_AVX2, &_ENABLED_AVX512_MCX, &_ENABLED_AVX512,
        &_ENABLED_AVX512_MCX_E1, &_ENABLED_AVX512_E1, &_ENABLED_AVX512_E2, &_ENABLED_AVX512_E3})
    *flag = 1;

  for (std::atomic<int>* cache :
       {&__TARN_CPU_MicroArchitecture, &vexan_cpu_cache, &vexan_cpu_true_cache, &bulldozer_cache,
        &zen_cache, &lowpower_sse42_cache, &lowpower_ssse3_cache, &mcx_e1_cache,
        &avx512_e1_cache, &avx512_e2_cache, &avx512_e3_cache})
    *cache = -1;

  cache_levels = -1;
  for (std::int64_t& size : cache_sizes) size = 0;

  feature_low = 0;
  feature_high = 0;
}
