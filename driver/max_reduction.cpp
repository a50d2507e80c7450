// The norms' maximum reduction through the runtime: the runtime picks a
// critical section, atomic combining, a tree in the barrier, or nothing for
// a team of one.
#include "driver/max_reduction.h"

#include <cstddef>

#include "src/vos.h"

namespace {

// Offers atomic combining: the runtime may answer VOS_REDUCE_ATOMIC.
ident_t reduce_loc = {0, VOS_IDENT_ATOMIC_REDUCE, 0, 0, ";driver;reduce_strict_max;0;0;;"};

vosc_critical_name reduce_lock = {};

// Tree combining: the left record takes the right one's value only when
// that is strictly greater.
void combine_strict_max(void* lhs, void* rhs) {
  double* l = static_cast<double*>(lhs);
  const double r = *static_cast<const double*>(rhs);
  if (r > *l) *l = r;
}

}  // namespace

void reduce_strict_max(int32_t gtid, double* partial, double* shared) {
  switch (__vosc_reduce_nowait(&reduce_loc, gtid, 1, sizeof(double), partial,
                               combine_strict_max, &reduce_lock)) {
    case VOS_REDUCE_COMBINE:
      if (*partial > *shared) *shared = *partial;
      __vosc_end_reduce_nowait(&reduce_loc, gtid, &reduce_lock);
      break;
    case VOS_REDUCE_ATOMIC:
      __vosc_atomic_float8_max(&reduce_loc, gtid, shared, *partial);
      break;
    default:  // another thread holds the total
      break;
  }
}
