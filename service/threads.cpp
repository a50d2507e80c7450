// Thread-count policy: the counts a routine of each domain may use, and the
// machine facts behind them. The environment and the machine are read once,
// at the first question; setters stay possible at any time.

#include <pthread.h>

#include <cstdint>

#include "service/messages.h"
#include "service/threads.h"
#include "src/vos.h"

extern "C" {
int __tarn_num_threads = -1;
int __tarn_blas_num_threads = -1;
int __tarn_fft_num_threads = -1;
int __tarn_vml_num_threads = -1;
int __tarn_spsolve_num_threads = -1;
int __tarn_dynamic = -1;
int __tarn_num_stripes = -1;
int __omp_num_threads = -1;
int __tarn_mpi_ppn = -1;
int __tarn_mpi_thread_level = -1;
int __mpi_SAFETY_BLACS = -1;
int __threads_env_NOT_readed = 1;
int __N_Physical_Cores = -1;
int __N_Logical_Cores = 1;
int __N_CPU_Packages = -1;
int __N_Cores_per_Packages = -1;
int __HT = -1;
}

// Holds the thread-local count; created at the first local set.
tarn_tls_key_t tls_key_thr = {};

// Reset of the reader of tarn_serv_mpi_get_ppn (read_threads_env.cpp).
void tarn_serv_mpi_ppn_forget();

namespace {

// Guards the start step; nothing else takes it.
pthread_mutex_t g_start_lock = PTHREAD_MUTEX_INITIALIZER;
// Guards the creation of tls_key_thr.
pthread_mutex_t g_key_lock = PTHREAD_MUTEX_INITIALIZER;

constexpr int kDomainFirst = TARN_DOMAIN_ALL;
constexpr int kDomainLast = TARN_DOMAIN_SPSOLVE;

void threads_start() {
  if (__atomic_load_n(&__threads_env_NOT_readed, __ATOMIC_ACQUIRE) == 0) return;
  pthread_mutex_lock(&g_start_lock);
  if (__threads_env_NOT_readed != 0) {
    tarn_read_threads_env();
    int packages = 1, cores = 1, logical = 1;
    count_cores_impl(&packages, &cores, &logical);
    __N_Logical_Cores = logical;
    __N_Physical_Cores = cores;
    __N_CPU_Packages = packages;
    __N_Cores_per_Packages = packages > 0 ? cores / packages : cores;
    __HT = cores != logical ? 1 : 0;
    __atomic_store_n(&__threads_env_NOT_readed, 0, __ATOMIC_RELEASE);
  }
  pthread_mutex_unlock(&g_start_lock);
}

int local_count() {
  if ((__atomic_load_n(&tls_key_thr.flags, __ATOMIC_ACQUIRE) & 1) == 0) return 0;
  return static_cast<int>(reinterpret_cast<intptr_t>(pthread_getspecific(tls_key_thr.key)));
}

}  // namespace

extern "C" {

int* tarn_serv_domain_count(int domain) {
  switch (domain) {
    case TARN_DOMAIN_ALL: return &__tarn_num_threads;
    case TARN_DOMAIN_BLAS: return &__tarn_blas_num_threads;
    case TARN_DOMAIN_FFT: return &__tarn_fft_num_threads;
    case TARN_DOMAIN_VML: return &__tarn_vml_num_threads;
    case TARN_DOMAIN_SPSOLVE: return &__tarn_spsolve_num_threads;
    default: return nullptr;
  }
}

int tarn_serv_domain_get_max_threads(int domain) {
  // A thread-local count beats everything, also inside a parallel region.
  int local = local_count();
  if (local > 0) return local;
  threads_start();
  const bool dynamic = __tarn_dynamic != 0;
  if (dynamic && omp_in_parallel()) return 1;

  int count = -1;
  bool is_explicit = false;
  if (domain > TARN_DOMAIN_ALL && domain <= kDomainLast && *tarn_serv_domain_count(domain) > 0) {
    count = *tarn_serv_domain_count(domain);
    is_explicit = true;
  } else if (__tarn_num_threads > 0) {
    count = __tarn_num_threads;
    is_explicit = true;
  } else {
    count = omp_get_max_threads();
  }
  if (!dynamic) return count;

  // Dynamic mode never uses more threads than cores.
  int clipped = count;
  if (__N_Physical_Cores > 0 && clipped > __N_Physical_Cores) clipped = __N_Physical_Cores;
  if (__mpi_SAFETY_BLACS != -1) return __mpi_SAFETY_BLACS == 1 ? clipped : 1;
  if (__tarn_mpi_ppn == -1 || is_explicit || __omp_num_threads > 0) return clipped;
  if (__tarn_mpi_thread_level > 0) {
    int share = __N_Physical_Cores / __tarn_mpi_ppn;
    int result = share < clipped ? share : clipped;
    if (result > 0) return result;
  }
  // An MPI process on a shared node with no explicit request runs alone.
  return 1;
}

int tarn_serv_get_max_threads(void) { return tarn_serv_domain_get_max_threads(-1); }

void tarn_serv_set_num_threads(int count) {
  if (count > 0) __tarn_num_threads = count;
}

int tarn_serv_domain_set_num_threads(int count, int domain) {
  if (count < 0 || domain < kDomainFirst || domain > kDomainLast) return 0;
  *tarn_serv_domain_count(domain) = count;
  return 1;
}

int tarn_serv_set_num_threads_local(int count) {
  if ((__atomic_load_n(&tls_key_thr.flags, __ATOMIC_ACQUIRE) & 1) == 0) {
    pthread_mutex_lock(&g_key_lock);
    if ((tls_key_thr.flags & 1) == 0) {
      if (pthread_key_create(&tls_key_thr.key, nullptr) != 0) {
        pthread_mutex_unlock(&g_key_lock);
        return 0;
      }
      tarn_serv_thr_register_cleanup(tarn_tls_destroy, &tls_key_thr);
      __atomic_store_n(&tls_key_thr.flags, tls_key_thr.flags | 1, __ATOMIC_RELEASE);
    }
    pthread_mutex_unlock(&g_key_lock);
  }
  int previous = local_count();
  pthread_setspecific(tls_key_thr.key, reinterpret_cast<void*>(static_cast<intptr_t>(count)));
  return previous;
}

void tarn_serv_set_dynamic(int flag) { __tarn_dynamic = flag != 0 ? 1 : 0; }

int tarn_serv_get_dynamic(void) {
  threads_start();
  return __tarn_dynamic;
}

int tarn_serv_get_num_stripes(void) {
  threads_start();
  return __tarn_num_stripes;
}

void tarn_serv_set_num_stripes(int count) {
  if (count >= 0) __tarn_num_stripes = count;
}

void tarn_serv_mpi_safe(int flag) { __mpi_SAFETY_BLACS = flag == 1 ? 1 : 0; }

int tarn_serv_omp_in_parallel(void) { return omp_in_parallel(); }

int tarn_serv_get_thread_layer(void) { return 0; }

int tarn_serv_get_ncpus(void) {
  threads_start();
  return __N_CPU_Packages;
}

int tarn_serv_get_ncorespercpu(void) {
  threads_start();
  return __N_Cores_per_Packages;
}

int tarn_serv_get_ht(void) {
  threads_start();
  return __HT;
}

int tarn_serv_get_nlogicalcores(void) {
  threads_start();
  return __N_Logical_Cores;
}

void tarn_serv_threads_reset(void) {
  pthread_mutex_lock(&g_start_lock);
  for (int d = kDomainFirst; d <= kDomainLast; ++d) *tarn_serv_domain_count(d) = -1;
  __tarn_dynamic = -1;
  __tarn_num_stripes = -1;
  __omp_num_threads = -1;
  __tarn_mpi_ppn = -1;
  __tarn_mpi_thread_level = -1;
  __mpi_SAFETY_BLACS = -1;
  tarn_serv_mpi_ppn_forget();
  __threads_env_NOT_readed = 1;
  pthread_mutex_unlock(&g_start_lock);
  if ((tls_key_thr.flags & 1) != 0) pthread_setspecific(tls_key_thr.key, nullptr);
}

}  // extern "C"
