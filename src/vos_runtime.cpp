// Life cycle, thread registry and parallel regions of the runtime.
//
// Every region runs on the thread that opens it, as thread 0 of a team of
// one: a fork is a serialized region around one call of the microtask. What a
// thread may change inside a region (its thread-count request) is saved when
// the serialized region opens and given back when it closes, so a request
// made inside a region reaches only the regions nested in it.

#include <sched.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "src/vos_internal.h"

namespace {

constexpr int32_t kFallbackProcessors = 2;  // when the system cannot say
constexpr int32_t kMaxThreadsLimit = 2147483647;
// Arguments a microtask can receive through one invocation.
constexpr int32_t kMaxMicrotaskArgs = 64;

// Next gtid to hand out. The first thread that calls the runtime is the
// initial thread and gets 0; roots that come later count up from 1. Written
// only by fetch_add at registration.
std::atomic<int32_t> g_next_gtid{0};

// Processors of the placement mask, counted at the first question (before
// anyone moves the calling thread); -1 until then.
std::atomic<int32_t> g_avail_proc{-1};

thread_local vos_info_t t_self = {VOS_GTID_DNE, 0, 0, 0, 0, {0, 0, 0, nullptr}};

int32_t count_available_processors() {
  cpu_set_t mask;
  CPU_ZERO(&mask);
  if (sched_getaffinity(0, sizeof(mask), &mask) == 0) {
    int n = CPU_COUNT(&mask);
    if (n > 0) return n;
  }
  long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<int32_t>(online) : kFallbackProcessors;
}

// Calls f(&gtid, &tid, argv[0], ..., argv[N - 1]) for a fixed N.
template <size_t... I>
void invoke_with(vosc_micro f, int32_t* gtid, int32_t* tid, void** argv,
                 std::index_sequence<I...>) {
  f(gtid, tid, argv[I]...);
}

template <size_t N>
void invoke_n(vosc_micro f, int32_t* gtid, int32_t* tid, void** argv) {
  invoke_with(f, gtid, tid, argv, std::make_index_sequence<N>{});
}

using invoke_fn = void (*)(vosc_micro, int32_t*, int32_t*, void**);

template <size_t... N>
constexpr auto make_invokers(std::index_sequence<N...>) {
  return std::array<invoke_fn, sizeof...(N)>{&invoke_n<N>...};
}

constexpr auto kInvokers = make_invokers(std::make_index_sequence<kMaxMicrotaskArgs + 1>{});
}  // namespace

// ---- Registry ----------------------------------------------------------------

vos_info_t* __vos_thread_self() {
  vos_info_t* self = &t_self;
  if (self->gtid == VOS_GTID_DNE) {
    // The count of processors is fixed before any thread can be moved by a
    // probe of the numerics.
    __vos_avail_proc_count();
    self->gtid = g_next_gtid.fetch_add(1, std::memory_order_relaxed);
  }
  return self;
}

int32_t __vos_get_global_thread_id_reg() { return __vos_thread_self()->gtid; }

int32_t __vos_avail_proc_count() {
  int32_t n = g_avail_proc.load(std::memory_order_acquire);
  if (n < 0) {
    n = count_available_processors();
    g_avail_proc.store(n, std::memory_order_release);
  }
  return n;
}

// Default size of a team: the first count of OMP_NUM_THREADS, else one
// thread a processor of the placement mask. Read once.
int32_t __vos_default_team_nth() {
  static const int32_t from_env = __vos_env_default_team_nth();
  return from_env > 0 ? from_env : __vos_avail_proc_count();
}

void __vos_debug_assert(const char* source, int line) {
  std::fprintf(stderr, "OMP: Error #13: Assertion failure at %s(%d).\n", source, line);
  std::fflush(stderr);
  std::abort();
}

int __vos_invoke_microtask(vosc_micro microtask, int32_t gtid, int32_t tid, int32_t argc,
                           void** argv) {
  VOS_ASSERT(argc >= 0 && argc <= kMaxMicrotaskArgs, "vos_runtime");
  kInvokers[static_cast<size_t>(argc)](microtask, &gtid, &tid, argv);
  return 1;
}

// ---- Life cycle -----------------------------------------------------------------

extern "C" void __vosc_begin(ident_t* /*loc*/, int32_t /*flags*/) {
  __vos_thread_self()->begin = 1;
}

// Shutdown happens at process exit; with nothing but the calling thread in
// any team there are no workers to release here.
extern "C" void __vosc_end(ident_t* /*loc*/) {}

extern "C" int32_t __vosc_global_thread_num(ident_t* /*loc*/) {
  return __vos_get_global_thread_id_reg();
}

// ---- Parallel regions -------------------------------------------------------------

extern "C" int32_t __vosc_ok_to_fork(ident_t* /*loc*/) { return 1; }

extern "C" void __vosc_push_num_threads(ident_t* /*loc*/, int32_t /*global_tid*/,
                                        int32_t num_threads) {
  if (num_threads > 0) __vos_thread_self()->set_nproc = num_threads;
}

extern "C" void __vosc_serialized_parallel(ident_t* loc, int32_t /*global_tid*/) {
  if (loc != nullptr && (loc->flags & VOS_IDENT_NOTHING_TO_DO) != 0) return;
  vos_info_t* self = __vos_thread_self();
  // The enclosing level's controls are kept so that the region's own changes
  // end with it.
  auto* saved = static_cast<vos_internal_control_t*>(std::malloc(sizeof(vos_internal_control_t)));
  VOS_ASSERT(saved != nullptr, "vos_runtime");
  *saved = self->icvs;
  self->icvs.next = saved;
  self->icvs.serial_nesting_level = ++self->team_serialized;
}

extern "C" void __vosc_end_serialized_parallel(ident_t* loc, int32_t /*global_tid*/) {
  if (loc != nullptr && (loc->flags & VOS_IDENT_NOTHING_TO_DO) != 0) return;
  vos_info_t* self = __vos_thread_self();
  VOS_ASSERT(self->team_serialized > 0 && self->icvs.next != nullptr, "vos_runtime");
  vos_internal_control_t* saved = self->icvs.next;
  self->icvs = *saved;
  std::free(saved);
  --self->team_serialized;
}

extern "C" void __vosc_fork_call(ident_t* loc, int32_t argc, vosc_micro microtask, ...) {
  int32_t gtid = __vos_get_global_thread_id_reg();
  VOS_ASSERT(argc >= 0 && argc <= kMaxMicrotaskArgs, "vos_runtime");
  void* argv[kMaxMicrotaskArgs > 0 ? kMaxMicrotaskArgs : 1];
  va_list ap;
  va_start(ap, microtask);
  for (int32_t i = 0; i < argc; ++i) argv[i] = va_arg(ap, void*);
  va_end(ap);

  // The pushed count is consumed by this fork whatever it asked for; the
  // team is of one thread either way.
  __vos_thread_self()->set_nproc = 0;
  __vosc_serialized_parallel(loc, gtid);
  __vos_invoke_microtask(microtask, gtid, 0, argc, argv);
  __vosc_end_serialized_parallel(loc, gtid);
}

// ---- OpenMP API -------------------------------------------------------------------

extern "C" int omp_get_max_threads(void) {
  vos_info_t* self = __vos_thread_self();
  return self->icvs.nproc > 0 ? self->icvs.nproc : __vos_default_team_nth();
}

extern "C" void omp_set_num_threads(int num_threads) {
  vos_info_t* self = __vos_thread_self();
  int32_t n = num_threads < 1 ? 1 : num_threads;
  if (n > kMaxThreadsLimit) n = kMaxThreadsLimit;
  self->icvs.nproc = n;
}

extern "C" int omp_get_thread_num(void) {
  __vos_thread_self();
  return 0;
}

extern "C" int omp_get_num_threads(void) {
  __vos_thread_self();
  return 1;
}

extern "C" int omp_get_num_procs(void) { return __vos_avail_proc_count(); }

// Only a team of more than one thread makes a region active; every region
// here is serialized.
extern "C" int omp_in_parallel(void) {
  __vos_thread_self();
  return 0;
}

extern "C" void omp_set_dynamic(int dynamic_threads) {
  __vos_thread_self()->icvs.dynamic = dynamic_threads != 0 ? 1 : 0;
}

extern "C" int omp_get_dynamic(void) { return __vos_thread_self()->icvs.dynamic; }

extern "C" double omp_get_wtime(void) {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

extern "C" double omp_get_wtick(void) {
  timespec ts;
  if (clock_getres(CLOCK_MONOTONIC, &ts) != 0) return 1e-9;
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}
