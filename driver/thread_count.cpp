// The benchmark's thread count: one thread a core, unless OMP_NUM_THREADS
// holds a well-formed non-negative number, which is honoured as it stands
// (even above the core count).
#include <cstdint>

#include "driver/driver.h"
#include "service/messages.h"
#include "service/strings.h"
#include "service/threads.h"
#include "src/vos.h"

namespace {
constexpr int kEnvBufferSize = 32;
constexpr int kDecimal = 10;
}  // namespace

void choose_thread_count() {
  const int maxthr = omp_get_max_threads();
  const int cores = tarn_serv_get_ncpus() * tarn_serv_get_ncorespercpu();
  char value[kEnvBufferSize] = {};
  bool use_cores = true;
  if (tarn_serv_getenv("OMP_NUM_THREADS", value, kEnvBufferSize) > 0 && value[0] != '\0') {
    char* end = nullptr;
    const int32_t n = tarn_serv_strtol_as_long32(value, &end, kDecimal);
    const bool well_formed = end != value && *end == '\0' && n >= 0;
    use_cores = !well_formed;
  }
  if (use_cores && cores < maxthr) omp_set_num_threads(cores);
}
