// Processor detection, kernel branch selection, reproducibility mode,
// instruction ceiling, processor predicates, cache sizes and the service
// layer's spin lock.
//
// Branch codes returned by tarn_serv_cpu_detect(): 2 sse2, 4 ssse3,
// 5 sse42, 6 avx, 7 avx2, 9 avx512.  Reproducibility mode returned by
// tarn_serv_cbwr_get(1): 1 off, 2 AUTO, 3 COMPATIBLE, 4 to 14 pinned.
#pragma once

#include <cstdint>

extern "C" {

// Reproducibility word: low 16 bits the mode, this bit the strict flag.
constexpr int TARN_CBWR_STRICT = 0x10000;
constexpr int TARN_CBWR_OFF = 1;
constexpr int TARN_CBWR_AUTO = 2;
constexpr int TARN_CBWR_COMPATIBLE = 3;

// Values of the instruction ceiling (TARN_ENABLE_INSTRUCTIONS and
// tarn_serv_enable_instructions).
constexpr int TARN_ENABLE_SSE4_2 = 0;
constexpr int TARN_ENABLE_AVX = 1;
constexpr int TARN_ENABLE_AVX2 = 2;
constexpr int TARN_ENABLE_AVX512_MCX = 3;
constexpr int TARN_ENABLE_AVX512 = 4;
constexpr int TARN_ENABLE_AVX512_MCX_E1 = 5;
constexpr int TARN_ENABLE_AVX512_E1 = 6;
constexpr int TARN_ENABLE_AVX512_E2 = 7;
constexpr int TARN_ENABLE_AVX512_E3 = 8;
// The special ceiling value that pins the compatible mode instead.
constexpr int TARN_ENABLE_SINGLE_PATH = 1536;

// Branch selection.  The first call detects (under a lock); later calls
// cost one load and one compare.  A processor without SSE2 ends the
// process with code 1 after messages 1210 and 1211.
int tarn_serv_cpu_detect(void);
int tarn_serv_vml_cpu_detect(void);
// real == 0: the stored branch code as it stands (maybe -1).  Otherwise
// runs the hardware detection afresh and returns its raw result, 0 to 13.
int tarn_serv_get_cpu_type(int real);

// Instruction ceiling: 1 if the level is accepted, else 0.
int tarn_serv_enable_instructions(int level);
int tarn_serv_is_sse4_2_enabled(void);
int tarn_serv_is_avx_enabled(void);
int tarn_serv_is_avx2_enabled(void);
int tarn_serv_is_avx512_enabled(void);
int tarn_serv_is_avx512_mcx_enabled(void);

// Reproducibility: what == 1 the mode, what == -1 the full word, else -2.
int tarn_serv_cbwr_get(int what);
// The same without the detection lock, for callers already under it.
int tarn_serv_cbwr_get_nolock(int what);
// 0 on success; -8 after detection if the value differs from the word;
// otherwise the result of the mode check (-2, -3).
int tarn_serv_cbwr_set(int value);
// The mode that AUTO stands for on this machine.
int tarn_serv_cbwr_get_auto_branch(void);
int tarn_serv_sngl_was_called(void);

// 0, or 32/33 (ssse3 without/with SSE4.1), 64/66 (sse42, 66 with AES in
// mode 1), 128 (avx).  Cached.
int tarn_serv_get_microarchitecture(void);

// Processor predicates, each 0 or 1.
int tarn_serv_vexan_cpu(void);
int tarn_serv_vexan_cpu_true(void);
int tarn_serv_cpuhas_sse41(void);
int tarn_serv_cpuhas_sse41_true(void);
int tarn_serv_cpuhas_sse42(void);
int tarn_serv_cpuisbulldozer(void);
int tarn_serv_cpuiszen(void);
int tarn_serv_cpuisitbarcelona(void);
int tarn_serv_cpuis_lowpower_sse42(void);
int tarn_serv_cpuis_lowpower_ssse3(void);
int tarn_serv_cpuis_mpx_client(void);
int tarn_serv_cpuis_mcx_e1(void);
int tarn_serv_cpuis_avx512_e1(void);
int tarn_serv_cpuis_avx512_e2(void);
int tarn_serv_cpuis_avx512_e3(void);

// Cache sizes.  sizes[0] is the number of cache levels, sizes[1..4] the
// sizes of levels 1 to 4 in bytes.
void tarn_serv_cache_info(std::int64_t sizes[5]);
// Size of one level in bytes; level 0 means the last level; -1 if level
// is negative or above the number of levels.
std::int64_t tarn_serv_get_cache_size(int level);

// Service spin lock on a 32-bit word, 0 free.  tarn_serv_lock spins 5000
// tries with pause, then yields the processor on each failed try.
void tarn_serv_lock(volatile int* word);
// 1 if the lock was taken, 0 if it was busy.
int tarn_serv_trylock(volatile int* word);
void tarn_serv_unlock(volatile int* word);
// Atomic compare-and-swap: stores desired if *pointer equals expected.
// Returns the value found in *pointer (equal to expected on success).
int tarn_serv_cmpxchg(volatile int* pointer, int expected, int desired);
void tarn_serv_thread_yield(void);

// The feature word: bit 0 set once initialised, then one bit per
// capability (SSE2 bit 6, SSE4.1 bit 9, SSE4.2 bit 10, AVX bit 16,
// AVX2 bit 23, AVX512F bit 27, ...).  Filled on first use.
std::uint64_t tarn_serv_get_feature_word(void);
void __vexan_tarn_features_init_x(void);

}  // extern "C"
