// Thread-count policy of the numerics: how many threads a routine of a
// domain may use, and what the machine holds (packages, cores, logical
// processors). Facts are found on first use and kept; setters may be called
// at any time and beat the environment when called before the first query.
#pragma once

extern "C" {

// Domains of tarn_serv_domain_get_max_threads / _set_num_threads.
enum : int {
  TARN_DOMAIN_ALL = 0,
  TARN_DOMAIN_BLAS = 1,
  TARN_DOMAIN_FFT = 2,
  TARN_DOMAIN_VML = 3,
  TARN_DOMAIN_SPSOLVE = 4,
};

// Process-wide state; -1 means "not set" (or not read yet) unless noted.
extern int __tarn_num_threads;
extern int __tarn_blas_num_threads;
extern int __tarn_fft_num_threads;
extern int __tarn_vml_num_threads;
extern int __tarn_spsolve_num_threads;
extern int __tarn_dynamic;
extern int __tarn_num_stripes;
extern int __omp_num_threads;
extern int __tarn_mpi_ppn;
extern int __tarn_mpi_thread_level;
extern int __mpi_SAFETY_BLACS;        // -1 unknown, 1 safe, 0 not
extern int __threads_env_NOT_readed;  // 1 until environment and machine are read
extern int api_probe_is_called;
extern int __N_Physical_Cores;
extern int __N_Logical_Cores;
extern int __N_CPU_Packages;
extern int __N_Cores_per_Packages;
extern int __HT;
extern int tarnaff_len;

int tarn_serv_get_max_threads(void);
int tarn_serv_domain_get_max_threads(int domain);
void tarn_serv_set_num_threads(int count);
int tarn_serv_domain_set_num_threads(int count, int domain);
int tarn_serv_set_num_threads_local(int count);  // returns the previous local count

void tarn_serv_set_dynamic(int flag);
int tarn_serv_get_dynamic(void);
int tarn_serv_get_num_stripes(void);
void tarn_serv_set_num_stripes(int count);
void tarn_serv_mpi_safe(int flag);
int tarn_serv_omp_in_parallel(void);
int tarn_serv_get_thread_layer(void);

int tarn_serv_get_ncpus(void);  // packages
int tarn_serv_get_ncorespercpu(void);
int tarn_serv_get_ht(void);
int tarn_serv_get_nlogicalcores(void);

int tarn_serv_mpi_get_ppn(void);

// Internal steps, shared by the service files and reachable for tests.
// Where the count of a domain is kept (TARN_DOMAIN_ALL: the general
// count); null for an unknown domain.
int* tarn_serv_domain_count(int domain);
void tarn_read_threads_env(void);
void count_cores_impl(int* packages, int* cores, int* logical);
// Forgets everything the environment and the setters stored and the calling
// thread's local count, so that the next query reads the environment again.
// The core probe is not repeated: its results are kept. For tests only.
void tarn_serv_threads_reset(void);

}  // extern "C"
