// Static worksharing: each thread computes its own range of a loop from
// (tid, nproc, lower, upper, stride, chunk) alone; nothing is shared and no
// state survives the call. All bound arithmetic wraps in the unsigned type
// of the loop variable, so that a range near the type's ends behaves as the
// hardware does rather than as undefined overflow.

#include <limits>
#include <type_traits>

#include "src/vos_internal.h"

int32_t __vos_static = vos_sch_static_balanced;

namespace {

// Kinds of 73 and above are distribute kinds; this offset maps them onto
// the plain kinds.
constexpr int32_t kDistributeKindBase = 73;
constexpr int32_t kDistributeKindOffset = 58;

template <typename T>
using unsigned_of = std::make_unsigned_t<T>;

// a + b, wrapping, with b of the signed stride type.
template <typename T, typename ST>
T wrap_add(T a, ST b) {
  using UT = unsigned_of<T>;
  return static_cast<T>(static_cast<UT>(a) + static_cast<UT>(b));
}

// a - b of two bounds, as a value of the stride type.
template <typename T, typename ST>
ST wrap_diff(T a, T b) {
  using UT = unsigned_of<T>;
  return static_cast<ST>(static_cast<UT>(a) - static_cast<UT>(b));
}

// a - b, wrapping.
template <typename T, typename ST>
T wrap_sub(T a, ST b) {
  using UT = unsigned_of<T>;
  return static_cast<T>(static_cast<UT>(a) - static_cast<UT>(b));
}

template <typename UT, typename ST>
ST wrap_mul(UT a, ST b) {
  using UST = unsigned_of<ST>;
  return static_cast<ST>(static_cast<UST>(a) * static_cast<UST>(b));
}

}  // namespace

template <typename T, typename ST>
void __vos_static_split(int32_t tid, int32_t nth, int32_t static_mode, int32_t schedtype,
                        int32_t* plastiter, T* plower, T* pupper, ST* pstride, ST incr,
                        ST chunk) {
  using UT = unsigned_of<T>;
  // Zero trips: the bounds stay as they came so that the caller's loop falls
  // through.
  if (incr > 0 ? *pupper < *plower : *plower < *pupper) {
    if (plastiter != nullptr) *plastiter = 0;
    *pstride = incr;
    return;
  }
  if (schedtype >= kDistributeKindBase) schedtype -= kDistributeKindOffset;

  // A team of one takes the whole range.
  if (nth == 1) {
    if (plastiter != nullptr) *plastiter = 1;
    *pstride = incr > 0 ? static_cast<ST>(wrap_diff<T, ST>(*pupper, *plower) + 1)
                        : static_cast<ST>(wrap_diff<T, ST>(*pupper, *plower) - 1);
    return;
  }

  UT trip;
  if (incr == 1) {
    trip = static_cast<UT>(static_cast<UT>(*pupper) - static_cast<UT>(*plower)) + 1;
  } else if (incr == -1) {
    trip = static_cast<UT>(static_cast<UT>(*plower) - static_cast<UT>(*pupper)) + 1;
  } else if (incr > 0) {
    trip = static_cast<UT>(static_cast<UT>(*pupper) - static_cast<UT>(*plower)) /
               static_cast<UT>(incr) + 1;
  } else {
    trip = static_cast<UT>(static_cast<UT>(*plower) - static_cast<UT>(*pupper)) /
               static_cast<UT>(-static_cast<unsigned_of<ST>>(incr)) + 1;
  }
  const UT utid = static_cast<UT>(tid);
  const UT unth = static_cast<UT>(nth);

  switch (schedtype) {
    case vos_sch_static: {
      if (trip < unth) {
        // One iteration to each of the first trip threads.
        if (utid < trip) {
          *plower = wrap_add(*plower, wrap_mul(utid, incr));
          *pupper = *plower;
        } else {
          *plower = wrap_add(*pupper, incr);
        }
        if (plastiter != nullptr) *plastiter = (utid == trip - 1);
      } else if (static_mode == vos_sch_static_balanced) {
        UT small = trip / unth;
        UT extras = trip % unth;
        UT before = utid * small + (utid < extras ? utid : extras);
        *plower = wrap_add(*plower, wrap_mul(before, incr));
        *pupper = wrap_add(*plower, wrap_mul(small, incr));
        if (utid >= extras) *pupper = wrap_sub(*pupper, incr);
        if (plastiter != nullptr) *plastiter = (tid == nth - 1);
      } else {
        // Greedy: ceil(trip / nth) iterations each, the last thread the rest.
        const T old_upper = *pupper;
        ST big = wrap_mul(static_cast<UT>(trip / unth + (trip % unth != 0 ? 1 : 0)), incr);
        *plower = wrap_add(*plower, wrap_mul(utid, big));
        *pupper = wrap_sub(wrap_add(*plower, big), incr);
        if (incr > 0) {
          if (*pupper < *plower) *pupper = std::numeric_limits<T>::max();
          if (plastiter != nullptr)
            *plastiter = *plower <= old_upper && *pupper > wrap_sub(old_upper, incr);
          if (*pupper > old_upper) *pupper = old_upper;
        } else {
          if (*pupper > *plower) *pupper = std::numeric_limits<T>::min();
          if (plastiter != nullptr)
            *plastiter = *plower >= old_upper && *pupper < wrap_sub(old_upper, incr);
          if (*pupper < old_upper) *pupper = old_upper;
        }
      }
      *pstride = static_cast<ST>(trip);
      break;
    }
    case vos_sch_static_chunked: {
      if (chunk < 2) chunk = 1;
      ST span = wrap_mul(static_cast<unsigned_of<ST>>(chunk), incr);
      *pstride = wrap_mul(unth, span);
      *plower = wrap_add(*plower, wrap_mul(utid, span));
      *pupper = wrap_sub(wrap_add(*plower, span), incr);
      if (plastiter != nullptr)
        *plastiter = ((trip - 1) / static_cast<UT>(chunk)) % unth == utid;
      break;
    }
    case vos_sch_static_balanced_chunked: {
      // chunk is a power of two here: the share is rounded up to whole chunks.
      const T old_upper = *pupper;
      UT span_chunks = ((trip + unth - 1) / unth + static_cast<UT>(chunk) - 1) &
                       ~(static_cast<UT>(chunk) - 1);
      ST span = wrap_mul(span_chunks, incr);
      *plower = wrap_add(*plower, wrap_mul(utid, span));
      *pupper = wrap_sub(wrap_add(*plower, span), incr);
      if (incr > 0 ? *pupper > old_upper : *pupper < old_upper) *pupper = old_upper;
      *pstride = wrap_mul(unth, span);
      if (plastiter != nullptr) *plastiter = (trip - 1) / span_chunks == utid;
      break;
    }
    default:
      __vos_debug_assert("vos_sched", __LINE__);
  }
}

template void __vos_static_split<int32_t, int32_t>(int32_t, int32_t, int32_t, int32_t,
                                                   int32_t*, int32_t*, int32_t*, int32_t*,
                                                   int32_t, int32_t);
template void __vos_static_split<uint32_t, int32_t>(int32_t, int32_t, int32_t, int32_t,
                                                    int32_t*, uint32_t*, uint32_t*, int32_t*,
                                                    int32_t, int32_t);
template void __vos_static_split<int64_t, int64_t>(int32_t, int32_t, int32_t, int32_t,
                                                   int32_t*, int64_t*, int64_t*, int64_t*,
                                                   int64_t, int64_t);
template void __vos_static_split<uint64_t, int64_t>(int32_t, int32_t, int32_t, int32_t,
                                                    int32_t*, uint64_t*, uint64_t*, int64_t*,
                                                    int64_t, int64_t);

// Every team is of one thread: the caller is thread 0 of 1.
extern "C" void __vosc_for_static_init_4(ident_t*, int32_t, int32_t schedtype,
                                         int32_t* plastiter, int32_t* plower, int32_t* pupper,
                                         int32_t* pstride, int32_t incr, int32_t chunk) {
  __vos_static_split<int32_t, int32_t>(0, 1, __vos_static, schedtype, plastiter, plower,
                                       pupper, pstride, incr, chunk);
}

extern "C" void __vosc_for_static_init_4u(ident_t*, int32_t, int32_t schedtype,
                                          int32_t* plastiter, uint32_t* plower,
                                          uint32_t* pupper, int32_t* pstride, int32_t incr,
                                          int32_t chunk) {
  __vos_static_split<uint32_t, int32_t>(0, 1, __vos_static, schedtype, plastiter, plower,
                                        pupper, pstride, incr, chunk);
}

extern "C" void __vosc_for_static_init_8(ident_t*, int32_t, int32_t schedtype,
                                         int32_t* plastiter, int64_t* plower, int64_t* pupper,
                                         int64_t* pstride, int64_t incr, int64_t chunk) {
  __vos_static_split<int64_t, int64_t>(0, 1, __vos_static, schedtype, plastiter, plower,
                                       pupper, pstride, incr, chunk);
}

extern "C" void __vosc_for_static_init_8u(ident_t*, int32_t, int32_t schedtype,
                                          int32_t* plastiter, uint64_t* plower,
                                          uint64_t* pupper, int64_t* pstride, int64_t incr,
                                          int64_t chunk) {
  __vos_static_split<uint64_t, int64_t>(0, 1, __vos_static, schedtype, plastiter, plower,
                                        pupper, pstride, incr, chunk);
}

// Nothing to announce: no tool is attached and no consistency stack is kept.
extern "C" void __vosc_for_static_fini(ident_t*, int32_t) {}
