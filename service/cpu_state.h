// State and helpers shared by the translation units of processor detection
// (cpu_*.cpp, cbwr.cpp, cache_size.cpp).  Not for other modules: they go
// through service/cpu.h.
//
// Every fact is found on first use and kept; -1 means not read yet.  Writers
// hold the lock named beside each group and test again under it; readers
// test the 32-bit value without a lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "service/cpu_probe.h"

namespace tarn_cpu {

// ---- Branch selection, under TARN_Detect_Cpu_Global_Lock ------------------
extern volatile int TARN_Detect_Cpu_Global_Lock;
extern std::atomic<int> tarn_cpu_type;      // branch code
extern std::atomic<int> tarn_vml_cpu_type;  // code of the vector math side
// Reproducibility word: low 16 bits the mode, bit 16 strict.
extern std::atomic<int> tarn_cbwr;

// ---- Instruction ceiling, under ceiling_lock -------------------------------
extern volatile int ceiling_lock;
extern std::atomic<int> enable_level;    // parsed ceiling, -1 none
extern std::atomic<int> mei_was_called;  // ceiling evaluated or set by a call
extern std::atomic<int> ceiling_done;    // tier flags final, read freely
extern std::atomic<int> __sngl_was_called;
// Permission per tier, all 1 until a ceiling is accepted.
extern std::atomic<int> _ENABLED_SSE4_2;
extern std::atomic<int> _ENABLED_AVX;
extern std::atomic<int> _ENABLED_AVX2;
extern std::atomic<int> _ENABLED_AVX512_MCX;
extern std::atomic<int> _ENABLED_AVX512;
extern std::atomic<int> _ENABLED_AVX512_MCX_E1;
extern std::atomic<int> _ENABLED_AVX512_E1;
extern std::atomic<int> _ENABLED_AVX512_E2;
extern std::atomic<int> _ENABLED_AVX512_E3;

// ---- Predicate caches, under predicate_lock where a first-use step needs one
extern volatile int predicate_lock;
extern std::atomic<int> __TARN_CPU_MicroArchitecture;
extern std::atomic<int> vexan_cpu_cache;
extern std::atomic<int> vexan_cpu_true_cache;
extern std::atomic<int> bulldozer_cache;
extern std::atomic<int> zen_cache;
extern std::atomic<int> lowpower_sse42_cache;
extern std::atomic<int> lowpower_ssse3_cache;
extern std::atomic<int> mcx_e1_cache;
extern std::atomic<int> avx512_e1_cache;
extern std::atomic<int> avx512_e2_cache;
extern std::atomic<int> avx512_e3_cache;

// ---- Cache sizes, under cache_lock -----------------------------------------
extern volatile int cache_lock;
extern std::atomic<int> cache_levels;  // -1 until found
extern std::int64_t cache_sizes[5];    // [0] levels, [1..4] bytes

// ---- Feature word (cpu_features.cpp) ---------------------------------------
// Split into halves so that a 32-bit reader never sees a torn 64-bit value:
// the high half is published first, the low half (holding bit 0) last.
extern std::atomic<std::uint32_t> feature_low;
extern std::atomic<std::uint32_t> feature_high;

const tarn_cpu_probe& probe();

// Cpuid through the probe; leaves above the processor's top give zeros.
void read_cpuid(std::uint32_t leaf, std::uint32_t subleaf, std::uint32_t regs[4]);

// All bits of both masks present (bit 0 included, so an uninitialised word
// passes nothing); fills the word first if it is still 0.
bool features_have(std::uint32_t low_mask, std::uint32_t high_mask);

// Whole-tier hardware tests.
bool hw_sse2();
bool hw_ssse3();
bool hw_sse41();
bool hw_sse42();
bool hw_avx();
bool hw_avx2();
bool hw_avx512();
bool hw_avx512_e1();
bool hw_avx512_e2();
bool hw_avx512_e3();

// Vendor string of CPUID leaf 0 equals the twelve characters given.
bool vendor_is(const char* twelve);
// The "GenuineVexan" test of detection, the ceiling and the reproducibility
// checks.  That vendor string is a placeholder no processor reports, and the
// product runs at full speed on every x86 processor: the test passes
// whenever CPUID exists.
bool vexan_vendor();

// Hardware detection with the ceiling: a code 0 to 13, or -1 with *error 1
// after messages 1210 and 1211 when there is no SSE2.
int real_detection(int* error);

// Reads TARN_ENABLE_INSTRUCTIONS and applies it, once.
void evaluate_ceiling();

// check_cbwr_settings: 0 if the reproducibility value may be used here,
// -2 for a mode outside the table, -3 for a mode this machine cannot give.
int check_cbwr_settings(int value);

// Mode part of the reproducibility word.
constexpr int kCbwrModeMask = 0xFFFF;

// Spin-lock guard for the service lock words above.
class LockGuard {
 public:
  explicit LockGuard(volatile int* word);
  ~LockGuard();
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  volatile int* word_;
};

}  // namespace tarn_cpu
