// Sizing the one work block that serves every test. The need of a test is
// computed in unsigned 32-bit arithmetic, as the address space is; a need
// that wraps is not caught, and only the probe decides.
#include <cstdint>
#include <cstdlib>

#include "driver/driver.h"
#include "service/memory.h"
#include "service/messages.h"

namespace {

// Bytes a test needs per leading-dimension element beyond the matrix column:
// b and x (8 each) and the pivot entry (4).
constexpr uint32_t kVectorBytes = 20;
constexpr uint32_t kMatrixBytes = sizeof(double);
constexpr int kKiBShift = 10;

}  // namespace

void* size_memory(RunPlan& plan, const char* program) {
  uint32_t maxmem = 0, maxsize = 0;
  // Walk the tests in order; only a need above the largest so far is probed,
  // since the block sized for an earlier test serves the smaller ones.
  for (int i = 0; i < plan.ntests; ++i) {
    const uint32_t need =
        (static_cast<uint32_t>(plan.sizes[i]) * kMatrixBytes + kVectorBytes) *
            static_cast<uint32_t>(plan.ldas[i]) +
        (static_cast<uint32_t>(plan.aligns[i]) << kKiBShift);
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
