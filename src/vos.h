// Public face of the parallel runtime: the OpenMP calls the program makes and
// the compiler-facing entries that outlined parallel code calls. Everything
// here is extern "C" and keeps its argument order; what lies behind it may
// change, these declarations do not.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

// Source location passed to every compiler-facing entry. Only `flags` is
// read by the runtime; `psource` is ";file;routine;line;column;;".
struct ident_t {
  int32_t reserved_1;
  int32_t flags;
  int32_t reserved_2;
  int32_t reserved_3;
  const char* psource;
};

// Bits of ident_t::flags the runtime looks at.
enum : int32_t {
  VOS_IDENT_NOTHING_TO_DO = 0x08,     // serialized region with no work
  VOS_IDENT_ATOMIC_REDUCE = 0x10,     // the caller offers atomic combining code
  VOS_IDENT_WORK_LOOP = 0x200,        // worksharing kind: loop
  VOS_IDENT_WORK_SECTIONS = 0x400,    // worksharing kind: sections
  VOS_IDENT_WORK_DISTRIBUTE = 0x800,  // worksharing kind: distribute
};

// An outlined parallel region. Called as microtask(&gtid, &tid, arg0, ...),
// each further argument one machine word as handed to __vosc_fork_call.
typedef void (*vosc_micro)(int32_t* global_tid, int32_t* bound_tid, ...);

// Combining function of a reduction: lhs_data op= rhs_data, both pointing
// at the reduce_data records of two threads.
typedef void (*vosc_reduce_func)(void* lhs_data, void* rhs_data);

// The compiler's lock word of a critical section or reduction (8 words,
// zeroed once by the compiler).
typedef int32_t vosc_critical_name[8];

// Schedule kinds of the worksharing entries.
enum vos_sched_type : int32_t {
  vos_sch_static_chunked = 33,
  vos_sch_static = 34,
  vos_sch_dynamic_chunked = 35,
  vos_sch_guided_chunked = 36,
  vos_sch_runtime = 37,
  vos_sch_auto = 38,
  vos_sch_trapezoidal = 39,
  vos_sch_static_greedy = 40,
  vos_sch_static_balanced = 41,
  vos_sch_guided_iterative_chunked = 42,
  vos_sch_guided_analytical_chunked = 43,
  vos_sch_static_steal = 44,
  vos_sch_static_balanced_chunked = 45,
  vos_sch_guided_simd = 46,
  vos_sch_runtime_simd = 47,
  vos_distribute_static_chunked = 91,
  vos_distribute_static = 92,
};

// Answers of __vosc_reduce_nowait / __vosc_reduce.
enum : int32_t {
  VOS_REDUCE_DONE = 0,     // another thread holds the total; do nothing
  VOS_REDUCE_COMBINE = 1,  // combine into the shared value, then call the end entry
  VOS_REDUCE_ATOMIC = 2,   // combine with the atomic entries
};

// ---- OpenMP API -----------------------------------------------------------
int omp_get_max_threads(void);
void omp_set_num_threads(int num_threads);
int omp_get_thread_num(void);
int omp_get_num_threads(void);
int omp_get_num_procs(void);
int omp_in_parallel(void);
double omp_get_wtime(void);
double omp_get_wtick(void);
void omp_set_dynamic(int dynamic_threads);
int omp_get_dynamic(void);

// ---- Life cycle -----------------------------------------------------------
void __vosc_begin(ident_t* loc, int32_t flags);
void __vosc_end(ident_t* loc);
int32_t __vosc_global_thread_num(ident_t* loc);

// ---- Parallel regions -----------------------------------------------------
int32_t __vosc_ok_to_fork(ident_t* loc);
void __vosc_push_num_threads(ident_t* loc, int32_t global_tid, int32_t num_threads);
void __vosc_fork_call(ident_t* loc, int32_t argc, vosc_micro microtask, ...);
void __vosc_serialized_parallel(ident_t* loc, int32_t global_tid);
void __vosc_end_serialized_parallel(ident_t* loc, int32_t global_tid);

// ---- Synchronisation ------------------------------------------------------
void __vosc_barrier(ident_t* loc, int32_t global_tid);
int32_t __vosc_master(ident_t* loc, int32_t global_tid);
void __vosc_end_master(ident_t* loc, int32_t global_tid);
int32_t __vosc_single(ident_t* loc, int32_t global_tid);
void __vosc_end_single(ident_t* loc, int32_t global_tid);
void __vosc_critical(ident_t* loc, int32_t global_tid, vosc_critical_name* crit);
void __vosc_end_critical(ident_t* loc, int32_t global_tid, vosc_critical_name* crit);
void __vosc_flush(ident_t* loc);

// ---- Static worksharing ---------------------------------------------------
void __vosc_for_static_init_4(ident_t* loc, int32_t global_tid, int32_t schedtype,
                              int32_t* plastiter, int32_t* plower, int32_t* pupper,
                              int32_t* pstride, int32_t incr, int32_t chunk);
void __vosc_for_static_init_4u(ident_t* loc, int32_t global_tid, int32_t schedtype,
                               int32_t* plastiter, uint32_t* plower, uint32_t* pupper,
                               int32_t* pstride, int32_t incr, int32_t chunk);
void __vosc_for_static_init_8(ident_t* loc, int32_t global_tid, int32_t schedtype,
                              int32_t* plastiter, int64_t* plower, int64_t* pupper,
                              int64_t* pstride, int64_t incr, int64_t chunk);
void __vosc_for_static_init_8u(ident_t* loc, int32_t global_tid, int32_t schedtype,
                               int32_t* plastiter, uint64_t* plower, uint64_t* pupper,
                               int64_t* pstride, int64_t incr, int64_t chunk);
void __vosc_for_static_fini(ident_t* loc, int32_t global_tid);

// ---- Reductions -----------------------------------------------------------
int32_t __vosc_reduce_nowait(ident_t* loc, int32_t global_tid, int32_t num_vars,
                             size_t reduce_size, void* reduce_data,
                             vosc_reduce_func reduce_func, vosc_critical_name* lck);
void __vosc_end_reduce_nowait(ident_t* loc, int32_t global_tid, vosc_critical_name* lck);
int32_t __vosc_reduce(ident_t* loc, int32_t global_tid, int32_t num_vars, size_t reduce_size,
                      void* reduce_data, vosc_reduce_func reduce_func,
                      vosc_critical_name* lck);
void __vosc_end_reduce(ident_t* loc, int32_t global_tid, vosc_critical_name* lck);

// ---- Atomics used by the numerics -----------------------------------------
void __vosc_atomic_float8_max(ident_t* loc, int32_t global_tid, double* lhs, double rhs);
void __vosc_atomic_float8_min(ident_t* loc, int32_t global_tid, double* lhs, double rhs);
void __vosc_atomic_float8_add(ident_t* loc, int32_t global_tid, double* lhs, double rhs);
void __vosc_atomic_fixed4_add(ident_t* loc, int32_t global_tid, int32_t* lhs, int32_t rhs);
void __vosc_atomic_fixed4_max(ident_t* loc, int32_t global_tid, int32_t* lhs, int32_t rhs);
void __vosc_atomic_fixed4_min(ident_t* loc, int32_t global_tid, int32_t* lhs, int32_t rhs);

}  // extern "C"
