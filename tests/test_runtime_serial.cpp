// The runtime's compiler-facing interface with teams of one thread: regions,
// thread counts, static loop bounds, reductions, critical sections, atomics.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <thread>
#include <vector>

#include "src/vos.h"
#include "src/vos_internal.h"

namespace {

ident_t loc_plain = {0, 0, 0, 0, ";test;region;1;1;;"};
ident_t loc_nothing = {0, VOS_IDENT_NOTHING_TO_DO, 0, 0, ";test;empty;1;1;;"};

// ---- Regions ------------------------------------------------------------------

struct RegionRecord {
  int calls = 0;
  int32_t gtid = -99, tid = -99;
  int thread_num = -1, num_threads = -1, in_parallel = -1;
  pthread_t thread{};
};

void record_region(int32_t* gtid, int32_t* tid, void* arg) {
  auto* r = static_cast<RegionRecord*>(arg);
  ++r->calls;
  r->gtid = *gtid;
  r->tid = *tid;
  r->thread_num = omp_get_thread_num();
  r->num_threads = omp_get_num_threads();
  r->in_parallel = omp_in_parallel();
  r->thread = pthread_self();
}

TEST(RuntimeRegion, RunsOnceOnCallerAsThreadZeroOfOne) {
  RegionRecord r;
  int32_t gtid = __vosc_global_thread_num(&loc_plain);
  __vosc_fork_call(&loc_plain, 1, reinterpret_cast<vosc_micro>(record_region), &r);
  EXPECT_EQ(r.calls, 1);
  EXPECT_EQ(r.gtid, gtid);
  EXPECT_EQ(r.tid, 0);
  EXPECT_EQ(r.thread_num, 0);
  EXPECT_EQ(r.num_threads, 1);
  EXPECT_EQ(r.in_parallel, 0);
  EXPECT_TRUE(pthread_equal(r.thread, pthread_self()));
}

TEST(RuntimeRegion, PushedCountStillGivesOneThread) {
  RegionRecord r;
  int before = omp_get_max_threads();
  __vosc_push_num_threads(&loc_plain, __vosc_global_thread_num(&loc_plain), 4);
  __vosc_fork_call(&loc_plain, 1, reinterpret_cast<vosc_micro>(record_region), &r);
  EXPECT_EQ(r.calls, 1);
  EXPECT_EQ(r.num_threads, 1);
  // A push is for one fork only and does not touch the thread's request.
  EXPECT_EQ(omp_get_max_threads(), before);
}

constexpr int kMaxArgs = 64;
int64_t g_arg_sum = 0;
int g_arg_count = 0;

// Arguments are words 1, 2, 3, ... as pointers; the region checks order.
#define ARG(i) reinterpret_cast<intptr_t>(a##i)
void sum_args_10(int32_t*, int32_t*, void* a0, void* a1, void* a2, void* a3, void* a4, void* a5,
                 void* a6, void* a7, void* a8, void* a9) {
  intptr_t v[] = {ARG(0), ARG(1), ARG(2), ARG(3), ARG(4), ARG(5), ARG(6), ARG(7), ARG(8), ARG(9)};
  g_arg_count = 0;
  g_arg_sum = 0;
  for (int i = 0; i < 10; ++i) {
    if (v[i] == i + 1) ++g_arg_count;
    g_arg_sum += v[i];
  }
}
#undef ARG

void no_args(int32_t* gtid, int32_t* tid) {
  g_arg_count = (*gtid >= 0 && *tid == 0) ? 1 : -1;
}

TEST(RuntimeRegion, ArgumentsArriveInOrder) {
  g_arg_count = 0;
  __vosc_fork_call(&loc_plain, 0, reinterpret_cast<vosc_micro>(no_args));
  EXPECT_EQ(g_arg_count, 1);

  auto w = [](intptr_t v) { return reinterpret_cast<void*>(v); };
  __vosc_fork_call(&loc_plain, 10, reinterpret_cast<vosc_micro>(sum_args_10), w(1), w(2), w(3),
                   w(4), w(5), w(6), w(7), w(8), w(9), w(10));
  EXPECT_EQ(g_arg_count, 10);
  EXPECT_EQ(g_arg_sum, 55);
}

TEST(RuntimeRegion, InvokerHandlesEveryArgumentCountUpToLimit) {
  // The callee reads only its first ten words; with the caller cleaning the
  // stack, the words behind them are simply not looked at. Each size of the
  // invoker table must still deliver the first ten in order.
  std::vector<void*> argv(kMaxArgs);
  for (int i = 0; i < kMaxArgs; ++i) argv[i] = reinterpret_cast<void*>(intptr_t{i + 1});
  for (int argc = 10; argc <= kMaxArgs; argc += 9) {
    g_arg_count = 0;
    EXPECT_EQ(__vos_invoke_microtask(reinterpret_cast<vosc_micro>(sum_args_10), 0, 0, argc,
                                     argv.data()),
              1);
    EXPECT_EQ(g_arg_count, 10) << "argc " << argc;
  }
}

struct NestRecord {
  int outer_calls = 0, inner_calls = 0;
  int max_inside_inner = -1, max_inside_outer_after = -1;
};

void inner_region(int32_t*, int32_t*, void* arg) {
  auto* r = static_cast<NestRecord*>(arg);
  ++r->inner_calls;
  omp_set_num_threads(7);
  r->max_inside_inner = omp_get_max_threads();
}

void outer_region(int32_t*, int32_t*, void* arg) {
  auto* r = static_cast<NestRecord*>(arg);
  ++r->outer_calls;
  omp_set_num_threads(5);
  __vosc_fork_call(&loc_plain, 1, reinterpret_cast<vosc_micro>(inner_region), arg);
  r->max_inside_outer_after = omp_get_max_threads();
}

TEST(RuntimeRegion, NestedRegionsKeepTheirOwnRequests) {
  omp_set_num_threads(3);
  NestRecord r;
  __vosc_fork_call(&loc_plain, 1, reinterpret_cast<vosc_micro>(outer_region), &r);
  EXPECT_EQ(r.outer_calls, 1);
  EXPECT_EQ(r.inner_calls, 1);
  EXPECT_EQ(r.max_inside_inner, 7);
  EXPECT_EQ(r.max_inside_outer_after, 5);  // the inner request ended with the inner region
  EXPECT_EQ(omp_get_max_threads(), 3);     // and the outer one with the outer region
  omp_set_num_threads(omp_get_num_procs());
}

TEST(RuntimeRegion, SerializedPairRestoresRequest) {
  int32_t gtid = __vosc_global_thread_num(&loc_plain);
  omp_set_num_threads(2);
  __vosc_serialized_parallel(&loc_plain, gtid);
  omp_set_num_threads(9);
  EXPECT_EQ(omp_get_max_threads(), 9);
  __vosc_end_serialized_parallel(&loc_plain, gtid);
  EXPECT_EQ(omp_get_max_threads(), 2);

  // A region marked as having nothing to do opens no level at all.
  __vosc_serialized_parallel(&loc_nothing, gtid);
  omp_set_num_threads(4);
  __vosc_end_serialized_parallel(&loc_nothing, gtid);
  EXPECT_EQ(omp_get_max_threads(), 4);
  omp_set_num_threads(omp_get_num_procs());
}

TEST(RuntimeApi, MaxThreadsDefaultsToProcessorsAndKeepsRequest) {
  cpu_set_t mask;
  ASSERT_EQ(sched_getaffinity(0, sizeof(mask), &mask), 0);
  EXPECT_EQ(omp_get_num_procs(), CPU_COUNT(&mask));
  // Another thread has never asked for anything: it sees the default.
  int fresh = 0;
  std::thread([&] { fresh = omp_get_max_threads(); }).join();
  EXPECT_EQ(fresh, omp_get_num_procs());

  omp_set_num_threads(6);
  EXPECT_EQ(omp_get_max_threads(), 6);
  omp_set_num_threads(0);
  EXPECT_EQ(omp_get_max_threads(), 1);
  omp_set_num_threads(-5);
  EXPECT_EQ(omp_get_max_threads(), 1);
  omp_set_num_threads(omp_get_num_procs());
}

TEST(RuntimeApi, OutsideRegionsTheThreadIsAloneAndSerial) {
  EXPECT_EQ(omp_get_thread_num(), 0);
  EXPECT_EQ(omp_get_num_threads(), 1);
  EXPECT_EQ(omp_in_parallel(), 0);
  EXPECT_EQ(__vosc_ok_to_fork(&loc_plain), 1);
}

TEST(RuntimeApi, WtimeIsMonotonicAndAdvances) {
  double prev = omp_get_wtime();
  for (int i = 0; i < 10000; ++i) {
    double t = omp_get_wtime();
    ASSERT_GE(t, prev);
    prev = t;
  }
  double t0 = omp_get_wtime();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  double dt = omp_get_wtime() - t0;
  EXPECT_GE(dt, 0.019);
  EXPECT_LT(dt, 5.0);
  EXPECT_GT(omp_get_wtick(), 0.0);
  EXPECT_LE(omp_get_wtick(), 0.01);
}

TEST(RuntimeApi, EveryThreadGetsItsOwnGtid) {
  int32_t mine = __vosc_global_thread_num(&loc_plain);
  EXPECT_GE(mine, 0);
  EXPECT_EQ(__vosc_global_thread_num(&loc_plain), mine);  // stable
  constexpr int kThreads = 6;
  std::vector<int32_t> ids(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&ids, i] { ids[i] = __vosc_global_thread_num(&loc_plain); });
  for (auto& t : threads) t.join();
  std::set<int32_t> distinct(ids.begin(), ids.end());
  distinct.insert(mine);
  EXPECT_EQ(distinct.size(), static_cast<size_t>(kThreads + 1));
  for (int32_t id : ids) EXPECT_GT(id, 0);  // slot 0 is the initial thread's
}

// ---- Static loop bounds for a team of one ----------------------------------------

constexpr int32_t kStaticKinds[] = {vos_sch_static_chunked, vos_sch_static,
                                    vos_sch_static_balanced_chunked,
                                    vos_distribute_static_chunked, vos_distribute_static};

TEST(RuntimeStaticInit, TeamOfOneTakesWholeRangeForEveryKind) {
  int32_t gtid = __vosc_global_thread_num(&loc_plain);
  for (int32_t kind : kStaticKinds) {
    for (int32_t incr : {1, 3, -1, -4}) {
      int32_t lo = incr > 0 ? -5 : 17, hi = incr > 0 ? 17 : -5;
      int32_t last = -1, stride = 0;
      __vosc_for_static_init_4(&loc_plain, gtid, kind, &last, &lo, &hi, &stride, incr, 4);
      EXPECT_EQ(lo, incr > 0 ? -5 : 17);
      EXPECT_EQ(hi, incr > 0 ? 17 : -5);
      EXPECT_EQ(last, 1);
      EXPECT_EQ(stride, incr > 0 ? 17 - (-5) + 1 : -5 - 17 - 1) << kind << " " << incr;
      __vosc_for_static_fini(&loc_plain, gtid);
    }
  }
}

TEST(RuntimeStaticInit, ZeroTripLeavesBoundsAndStrideIsIncrement) {
  int32_t gtid = __vosc_global_thread_num(&loc_plain);
  for (int32_t kind : kStaticKinds) {
    int32_t lo = 5, hi = 4, last = 7, stride = 0;
    __vosc_for_static_init_4(&loc_plain, gtid, kind, &last, &lo, &hi, &stride, 1, 1);
    EXPECT_EQ(lo, 5);
    EXPECT_EQ(hi, 4);
    EXPECT_EQ(last, 0);
    EXPECT_EQ(stride, 1);
    lo = 4, hi = 5, stride = 0;
    __vosc_for_static_init_4(&loc_plain, gtid, kind, nullptr, &lo, &hi, &stride, -2, 1);
    EXPECT_EQ(lo, 4);
    EXPECT_EQ(hi, 5);
    EXPECT_EQ(stride, -2);
  }
}

TEST(RuntimeStaticInit, WideAndUnsignedForms) {
  int32_t gtid = __vosc_global_thread_num(&loc_plain);
  uint32_t ulo = 10, uhi = 4000000000u;
  int32_t last = 0, stride32 = 0;
  __vosc_for_static_init_4u(&loc_plain, gtid, vos_sch_static, &last, &ulo, &uhi, &stride32, 2, 0);
  EXPECT_EQ(ulo, 10u);
  EXPECT_EQ(uhi, 4000000000u);
  EXPECT_EQ(last, 1);

  int64_t lo = -(int64_t{1} << 40), hi = int64_t{1} << 40, stride = 0;
  __vosc_for_static_init_8(&loc_plain, gtid, vos_sch_static, &last, &lo, &hi, &stride, 1, 0);
  EXPECT_EQ(lo, -(int64_t{1} << 40));
  EXPECT_EQ(hi, int64_t{1} << 40);
  EXPECT_EQ(stride, (int64_t{1} << 41) + 1);

  uint64_t ulo8 = 3, uhi8 = uint64_t{1} << 50;
  __vosc_for_static_init_8u(&loc_plain, gtid, vos_sch_static_chunked, &last, &ulo8, &uhi8,
                            &stride, 1, 8);
  EXPECT_EQ(ulo8, 3u);
  EXPECT_EQ(uhi8, uint64_t{1} << 50);
  EXPECT_EQ(stride, static_cast<int64_t>((uint64_t{1} << 50) - 3 + 1));
}

// ---- The split for larger teams (used once workers exist) ---------------------------

struct Range {
  int32_t lo, hi, stride, last;
};

Range split4(int32_t tid, int32_t nth, int32_t mode, int32_t kind, int32_t lo, int32_t hi,
             int32_t incr, int32_t chunk) {
  Range r{lo, hi, 0, -1};
  __vos_static_split<int32_t, int32_t>(tid, nth, mode, kind, &r.last, &r.lo, &r.hi, &r.stride,
                                       incr, chunk);
  return r;
}

int32_t count_of(const Range& r, int32_t incr) {
  if (incr > 0 ? r.hi < r.lo : r.hi > r.lo) return 0;
  return (incr > 0 ? r.hi - r.lo : r.lo - r.hi) / std::abs(incr) + 1;
}

TEST(RuntimeStaticSplit, TenOnFourBalancedAndGreedy) {
  const int32_t balanced[] = {3, 3, 2, 2};
  const int32_t greedy[] = {3, 3, 3, 1};
  for (int32_t t = 0; t < 4; ++t) {
    EXPECT_EQ(count_of(split4(t, 4, vos_sch_static_balanced, vos_sch_static, 0, 9, 1, 0), 1),
              balanced[t]);
    EXPECT_EQ(count_of(split4(t, 4, vos_sch_static_greedy, vos_sch_static, 0, 9, 1, 0), 1),
              greedy[t]);
  }
}

TEST(RuntimeStaticSplit, FewerTripsThanThreads) {
  for (int32_t t = 0; t < 4; ++t) {
    Range r = split4(t, 4, vos_sch_static_balanced, vos_sch_static, 100, 102, 1, 0);
    if (t < 3) {
      EXPECT_EQ(r.lo, 100 + t);
      EXPECT_EQ(r.hi, 100 + t);
    } else {
      EXPECT_GT(r.lo, r.hi);  // empty
    }
    EXPECT_EQ(r.last, t == 2 ? 1 : 0);
  }
}

TEST(RuntimeStaticSplit, NegativeIncrementFirstThreadTakesFirstValues) {
  Range r0 = split4(0, 2, vos_sch_static_balanced, vos_sch_static, 10, 6, -1, 0);
  Range r1 = split4(1, 2, vos_sch_static_balanced, vos_sch_static, 10, 6, -1, 0);
  EXPECT_EQ(r0.lo, 10);
  EXPECT_EQ(r0.hi, 8);
  EXPECT_EQ(r1.lo, 7);
  EXPECT_EQ(r1.hi, 6);
  EXPECT_EQ(r1.last, 1);
}

TEST(RuntimeStaticSplit, GreedySaturatesInsteadOfWrapping) {
  const int32_t max = std::numeric_limits<int32_t>::max();
  // Three threads over [max - 4, max]: chunks of 2; the last chunk's upper
  // would pass the largest value and is capped at the loop's own upper.
  Range r = split4(2, 3, vos_sch_static_greedy, vos_sch_static, max - 4, max, 1, 0);
  EXPECT_EQ(r.lo, max);
  EXPECT_EQ(r.hi, max);
  EXPECT_EQ(r.last, 1);
}

// Walks each thread's share as the caller would and checks that every
// iteration is run once and the last-iteration flag sits with the thread
// that runs the last one.
void check_cover(int32_t nth, int32_t mode, int32_t kind, int32_t lo, int32_t hi, int32_t incr,
                 int32_t chunk) {
  int32_t trip = incr > 0 ? (hi < lo ? 0 : (hi - lo) / incr + 1)
                          : (hi > lo ? 0 : (lo - hi) / -incr + 1);
  std::vector<int> seen(static_cast<size_t>(trip), 0);
  int last_owner = -1, flags = 0;
  for (int32_t t = 0; t < nth; ++t) {
    Range r = split4(t, nth, mode, kind, lo, hi, incr, chunk);
    if (trip == 0) {
      EXPECT_EQ(r.last, 0);
      EXPECT_EQ(r.stride, incr);
      continue;
    }
    flags += r.last;
    if (r.last) last_owner = t;
    const bool steps =
        (kind == vos_sch_static_chunked || kind == vos_distribute_static_chunked) && nth > 1;
    int64_t from = r.lo, to = r.hi;
    for (;;) {
      int64_t cap = incr > 0 ? std::min<int64_t>(to, hi) : std::max<int64_t>(to, hi);
      for (int64_t i = from; incr > 0 ? i <= cap : i >= cap; i += incr) {
        int64_t k = (i - lo) / incr;
        ASSERT_TRUE(k >= 0 && k < trip) << "outside at " << i;
        ++seen[static_cast<size_t>(k)];
        if (k == trip - 1) {
          EXPECT_EQ(r.last, 1) << "thread " << t;
        }
      }
      if (!steps) break;
      from += r.stride;
      to += r.stride;
      if (incr > 0 ? from > hi : from < hi) break;
    }
  }
  for (int32_t k = 0; k < trip; ++k) ASSERT_EQ(seen[static_cast<size_t>(k)], 1) << "iteration " << k;
  if (trip > 0) {
    EXPECT_EQ(flags, 1);
    EXPECT_GE(last_owner, 0);
  }
}

TEST(RuntimeStaticSplit, EveryIterationOnceForSmallLoops) {
  for (int32_t nth = 1; nth <= 6; ++nth)
    for (int32_t trip = 0; trip <= 20; ++trip)
      for (int32_t incr : {1, 2, -1, -3}) {
        int32_t lo = incr > 0 ? -7 : 40;
        int32_t hi = trip == 0 ? lo - incr : lo + (trip - 1) * incr;
        SCOPED_TRACE(testing::Message() << "nth " << nth << " trip " << trip << " incr " << incr);
        check_cover(nth, vos_sch_static_balanced, vos_sch_static, lo, hi, incr, 0);
        check_cover(nth, vos_sch_static_greedy, vos_sch_static, lo, hi, incr, 0);
        for (int32_t chunk : {1, 3})
          check_cover(nth, vos_sch_static_balanced, vos_sch_static_chunked, lo, hi, incr, chunk);
        for (int32_t chunk : {1, 2, 4})
          check_cover(nth, vos_sch_static_balanced, vos_sch_static_balanced_chunked, lo, hi,
                      incr, chunk);
        check_cover(nth, vos_sch_static_balanced, vos_distribute_static, lo, hi, incr, 0);
      }
}

// ---- Reductions, critical sections, atomics -----------------------------------------

vosc_critical_name g_reduce_lock = {};

TEST(RuntimeReduce, TeamOfOneCombinesItselfWithoutLock) {
  int32_t gtid = __vosc_global_thread_num(&loc_plain);
  double shared = 1.0, mine = 2.5;
  int32_t answer = __vosc_reduce_nowait(&loc_plain, gtid, 1, sizeof(mine), &mine, nullptr,
                                        &g_reduce_lock);
  ASSERT_EQ(answer, VOS_REDUCE_COMBINE);
  shared += mine;
  __vosc_end_reduce_nowait(&loc_plain, gtid, &g_reduce_lock);
  EXPECT_EQ(shared, 3.5);
  EXPECT_EQ(g_reduce_lock[0], 0);  // no lock was taken

  ident_t atomic_offer = {0, VOS_IDENT_ATOMIC_REDUCE, 0, 0, ";test;reduce;1;1;;"};
  EXPECT_EQ(__vosc_reduce(&atomic_offer, gtid, 2, 0, nullptr, nullptr, &g_reduce_lock),
            VOS_REDUCE_COMBINE);
  __vosc_end_reduce(&atomic_offer, gtid, &g_reduce_lock);
}

TEST(RuntimeSync, MasterSingleAndBarrierOfATeamOfOne) {
  int32_t gtid = __vosc_global_thread_num(&loc_plain);
  EXPECT_EQ(__vosc_master(&loc_plain, gtid), 1);
  __vosc_end_master(&loc_plain, gtid);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(__vosc_single(&loc_plain, gtid), 1);
    __vosc_end_single(&loc_plain, gtid);
  }
  __vosc_barrier(&loc_plain, gtid);
  __vosc_flush(&loc_plain);
}

TEST(RuntimeSync, CriticalSectionExcludesConcurrentRoots) {
  static vosc_critical_name name = {};
  constexpr int kThreads = 4, kRounds = 20000;
  int64_t counter = 0;  // plain, guarded only by the critical section
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      int32_t gtid = __vosc_global_thread_num(&loc_plain);
      for (int k = 0; k < kRounds; ++k) {
        __vosc_critical(&loc_plain, gtid, &name);
        int64_t v = counter;
        counter = v + 1;
        __vosc_end_critical(&loc_plain, gtid, &name);
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(counter, int64_t{kThreads} * kRounds);
}

TEST(RuntimeAtomic, ConcurrentAddsLoseNothing) {
  constexpr int kThreads = 4, kRounds = 50000;
  int32_t isum = 0;
  double dsum = 0.0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      for (int k = 0; k < kRounds; ++k) {
        __vosc_atomic_fixed4_add(&loc_plain, 0, &isum, 1);
        __vosc_atomic_float8_add(&loc_plain, 0, &dsum, 0.5);
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(isum, kThreads * kRounds);
  EXPECT_EQ(dsum, 0.5 * kThreads * kRounds);
}

TEST(RuntimeAtomic, MaxAndMinKeepTheWinnerAndIgnoreNaN) {
  double x = 1.0;
  __vosc_atomic_float8_max(&loc_plain, 0, &x, 0.5);
  EXPECT_EQ(x, 1.0);
  __vosc_atomic_float8_max(&loc_plain, 0, &x, 2.0);
  EXPECT_EQ(x, 2.0);
  __vosc_atomic_float8_max(&loc_plain, 0, &x, std::nan(""));
  EXPECT_EQ(x, 2.0);
  __vosc_atomic_float8_min(&loc_plain, 0, &x, -3.0);
  EXPECT_EQ(x, -3.0);
  __vosc_atomic_float8_min(&loc_plain, 0, &x, std::nan(""));
  EXPECT_EQ(x, -3.0);

  int32_t i = 5;
  __vosc_atomic_fixed4_max(&loc_plain, 0, &i, 5);
  EXPECT_EQ(i, 5);
  __vosc_atomic_fixed4_max(&loc_plain, 0, &i, 9);
  EXPECT_EQ(i, 9);
  __vosc_atomic_fixed4_min(&loc_plain, 0, &i, -2);
  EXPECT_EQ(i, -2);

  // The largest of many concurrent candidates wins.
  double best = -1.0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&best, t] {
      for (int k = 0; k < 10000; ++k)
        __vosc_atomic_float8_max(&loc_plain, 0, &best, static_cast<double>(k * 4 + t));
    });
  for (auto& th : threads) th.join();
  EXPECT_EQ(best, 9999.0 * 4 + 3);
}

}  // namespace
