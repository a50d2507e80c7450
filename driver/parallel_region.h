// How the benchmark's helpers open their parallel regions: an outlined
// microtask that takes one pointer to its argument record, forked with an
// exact thread count, and a static split of a range of row or column blocks.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "src/vos.h"

// Runs `microtask(&gtid, &tid, args)` on a team of `nthreads` threads (or
// serialized on this thread alone when the runtime refuses the fork).
void run_parallel_region(int32_t nthreads, vosc_micro microtask, void* args);

// The argument record of a microtask started by run_parallel_region.
template <class Args>
Args* region_args(va_list ap) {
  return static_cast<Args*>(va_arg(ap, void*));
}

// Location record of the worksharing loops of the driver.
extern ident_t driver_loop_loc;

// This thread's share of blocks 0 .. nblocks-1 under the plain static
// schedule (even chunks), as the runtime deals it out; calls body(block)
// for each block of the share in rising order.
template <class Body>
void for_each_static_block(int32_t gtid, int32_t nblocks, Body&& body) {
  int32_t last = 0, lower = 0, upper = nblocks - 1, stride = 1;
  __vosc_for_static_init_4(&driver_loop_loc, gtid, vos_sch_static, &last, &lower, &upper,
                           &stride, 1, 1);
  for (int32_t block = lower; block <= upper; ++block) body(block);
  __vosc_for_static_fini(&driver_loop_loc, gtid);
}

// Smallest of the block count and the thread limit, at least 1.
int32_t region_threads(int32_t nblocks);

// Number of blocks of `block` rows that cover `rows` rows.
constexpr int32_t blocks_of(int32_t rows, int32_t block) {
  return rows <= 0 ? 0 : rows / block + (rows % block != 0 ? 1 : 0);
}
