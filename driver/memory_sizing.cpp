// Sizing the one work block that serves every test. The need of a test is
// computed in the address's width: in 32 bits in the i386 build, where a need
// that wraps is not caught and only the probe decides; in 64 bits in the
// x86-64 build, where a problem of more than 4 GiB is a real one.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "driver/driver.h"
#include "service/memory.h"
#include "service/messages.h"

namespace {

// Bytes a test needs per leading-dimension element beyond the matrix column:
// b and x (8 each) and the pivot entry (4).
constexpr size_t kVectorBytes = 20;
constexpr size_t kMatrixBytes = sizeof(double);
constexpr int kKiBShift = 10;

// (size * 8 + 20) * lda + align KiB, the three taken as unsigned 32-bit words.
size_t need_of(int32_t size, int32_t lda, int32_t align_kib) {
  const size_t column =
      static_cast<size_t>(static_cast<uint32_t>(size)) * kMatrixBytes + kVectorBytes;
  const size_t ld = static_cast<uint32_t>(lda);
  const size_t slack = static_cast<size_t>(static_cast<uint32_t>(align_kib)) << kKiBShift;
  if constexpr (sizeof(size_t) > sizeof(uint32_t)) {
    // Beyond 64 bits no block can be had: the need saturates and the probe
    // refuses it, where a wrapped need could pass it.
    size_t need = 0;
    if (__builtin_mul_overflow(column, ld, &need) || __builtin_add_overflow(need, slack, &need))
      return SIZE_MAX;
    return need;
  } else {
    return column * ld + slack;
  }
}

}  // namespace

void* size_memory(RunPlan& plan, const char* program) {
  size_t maxmem = 0;
  uint32_t maxsize = 0;
  // Walk the tests in order; only a need above the largest so far is probed,
  // since the block sized for an earlier test serves the smaller ones.
  for (int i = 0; i < plan.ntests; ++i) {
    const size_t need = need_of(plan.sizes[i], plan.ldas[i], plan.aligns[i]);
    if (need <= maxmem) continue;
    void* probe = std::malloc(need);
    if (probe == nullptr) {
      plan.sizes[i] = 0;  // the test is dropped without a word
      continue;
    }
    std::free(probe);
    maxmem = need;
    maxsize = static_cast<uint32_t>(plan.sizes[i]);
  }
  if (plan.ntests > 0 && (maxsize == 0 || maxmem == 0)) {
    tarn_serv_print(kToStdout, drvmsg::kNotEnoughMemory, 1, program);
    std::exit(-1);
  }
  tarn_serv_print(kToStdout, drvmsg::kMaxMemory, 2, static_cast<unsigned long long>(maxmem),
                  static_cast<unsigned>(maxsize));
  void* block = std::malloc(maxmem);
  if (block == nullptr) {
    tarn_serv_print(kToStdout, drvmsg::kFinalAllocFailed, 1, program);
    std::exit(-1);
  }
  // Before the first touch, so that the factorization walks the matrix on
  // huge pages.
  tarn_serv_advise_huge_pages(block, maxmem);
  return block;
}
