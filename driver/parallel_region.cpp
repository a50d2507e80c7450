// Forking the benchmark's helper regions through the runtime.
#include "driver/parallel_region.h"

namespace {
ident_t region_loc = {0, 0, 0, 0, ";driver;run_parallel_region;0;0;;"};
}  // namespace

ident_t driver_loop_loc = {0, VOS_IDENT_WORK_LOOP, 0, 0, ";driver;static_loop;0;0;;"};

void run_parallel_region(int32_t nthreads, vosc_micro microtask, void* args) {
  int32_t gtid = __vosc_global_thread_num(&region_loc);
  if (__vosc_ok_to_fork(&region_loc)) {
    __vosc_push_num_threads(&region_loc, gtid, nthreads);
    __vosc_fork_call(&region_loc, 1, microtask, args);
    return;
  }
  __vosc_serialized_parallel(&region_loc, gtid);
  int32_t tid = 0;
  microtask(&gtid, &tid, args);
  __vosc_end_serialized_parallel(&region_loc, gtid);
}

int32_t region_threads(int32_t nblocks) {
  const int32_t limit = omp_get_max_threads();
  const int32_t n = nblocks < limit ? nblocks : limit;
  return n > 0 ? n : 1;
}
