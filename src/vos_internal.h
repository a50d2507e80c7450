// State shared by the runtime's translation units. The runtime runs every
// parallel region on the thread that opens it, as thread 0 of a team of one;
// each thread that enters from outside is a root with its own gtid and its
// own chain of serialized regions, so roots never share team state.
#pragma once

#include <cstdint>

#include "src/vos.h"

// Reserved gtid values.
inline constexpr int32_t VOS_GTID_DNE = -2;
inline constexpr int32_t VOS_GTID_SHUTDOWN = -3;
inline constexpr int32_t VOS_GTID_MONITOR = -4;

// Reduction methods as kept in the thread between a reduction's entry and end.
inline constexpr int32_t vos_reduction_critical = 256;
inline constexpr int32_t vos_reduction_atomic = 512;
inline constexpr int32_t vos_reduction_tree = 768;
inline constexpr int32_t vos_reduction_empty = 1024;

// Internal controls of one implicit task that a thread may change and that a
// serialized region must give back at its end.
struct vos_internal_control_t {
  int32_t serial_nesting_level;
  int32_t nproc;  // threads wanted for the next parallel region; 0: default
  int32_t dynamic;
  vos_internal_control_t* next;  // saved records of enclosing levels
};

// One thread of the runtime. Only the owning thread reads or writes it.
struct vos_info_t {
  int32_t gtid;              // VOS_GTID_DNE until the first runtime call
  int32_t set_nproc;         // pushed count for the next fork; 0: none
  int32_t team_serialized;   // depth of serialized regions around the thread
  int32_t packed_reduction_method;
  int32_t begin;             // __vosc_begin ran for this root
  vos_internal_control_t icvs;
};

// The calling thread's record, registering the thread on first use.
vos_info_t* __vos_thread_self();
int32_t __vos_get_global_thread_id_reg();

// Processors the process may run on (placement mask), counted once.
int32_t __vos_avail_proc_count();

// Default team size when nothing was requested.
int32_t __vos_default_team_nth();
// First count of OMP_NUM_THREADS, 0 when unset or malformed.
int32_t __vos_env_default_team_nth();

// Stops the program with "assertion failure" and the source name.
[[noreturn]] void __vos_debug_assert(const char* source, int line);

#define VOS_ASSERT(cond, source) \
  do { \
    if (!(cond)) __vos_debug_assert(source, __LINE__); \
  } while (0)

// Calls microtask(&gtid, &tid, argv[0], ..., argv[argc - 1]); returns 1.
int __vos_invoke_microtask(vosc_micro microtask, int32_t gtid, int32_t tid, int32_t argc,
                           void** argv);

// Plain static strategy: 41 balanced (default) or 40 greedy.
extern int32_t __vos_static;

// The static worksharing split of one thread: thread tid of nth, with the
// bounds and outputs of __vosc_for_static_init_*. ST is the signed type of
// the stride. Instantiated for the four integer forms.
template <typename T, typename ST>
void __vos_static_split(int32_t tid, int32_t nth, int32_t static_mode, int32_t schedtype,
                        int32_t* plastiter, T* plower, T* pupper, ST* pstride, ST incr,
                        ST chunk);
extern template void __vos_static_split<int32_t, int32_t>(int32_t, int32_t, int32_t, int32_t,
                                                          int32_t*, int32_t*, int32_t*,
                                                          int32_t*, int32_t, int32_t);
extern template void __vos_static_split<uint32_t, int32_t>(int32_t, int32_t, int32_t, int32_t,
                                                           int32_t*, uint32_t*, uint32_t*,
                                                           int32_t*, int32_t, int32_t);
extern template void __vos_static_split<int64_t, int64_t>(int32_t, int32_t, int32_t, int32_t,
                                                          int32_t*, int64_t*, int64_t*,
                                                          int64_t*, int64_t, int64_t);
extern template void __vos_static_split<uint64_t, int64_t>(int32_t, int32_t, int32_t, int32_t,
                                                           int32_t*, uint64_t*, uint64_t*,
                                                           int64_t*, int64_t, int64_t);
