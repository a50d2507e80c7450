// Timers, clock rates and the small arithmetic helpers that split a range
// among threads. dsecnd and its relatives count seconds from the processor's
// time stamp; the origin is arbitrary and not shared with other processes.
#pragma once

#include <cstdint>

extern "C" {

// Time-stamp rate in GHz and last measured core rate in Hz; -1.0 until known.
extern double tarn_clocks_freq;
extern double tarn_cpu_freq;

double dsecnd(void);
double tarn_serv_dsecnd(void);
double tarn_serv_iface_dsecnd(void);
double tarn_serv_second(void);

void tarn_serv_get_cpu_clocks(uint64_t* value);
double tarn_serv_get_clocks_frequency(void);  // GHz, measured once
double tarn_serv_get_cpu_frequency(void);     // GHz, measured on each call
double tarn_serv_get_max_cpu_frequency(void); // GHz, nominal

// The nominal rate in GHz read from the last 16 bytes of the brand string
// ("... 3.40GHz", "... 2400MHz"); 0.0 when they name none.
double tarn_serv_brand_frequency(const char* brand_tail16);

// A timed spin of exactly 1,000,000 dependent decrements; count is ignored.
void fixedloop(int count);

// Split n items among nthreads; the result is the first index of the
// caller's part and *length its size. All arguments by reference.
int tarn_serv_divbythreads(const int* thread, const int* nthreads, const int* n, int* length);
int tarn_serv_divbythreadsnb(const int* thread, const int* nthreads, const int* n,
                             const int* block, int* length);
int tarn_serv_divbythreadstr(const int* thread, const int* nthreads, const int* n,
                             const char* uplo, int* length);

// Fortran intrinsics, so that no compiler runtime is needed.
struct tarn_complex8 {
  float re, im;
};
struct tarn_complex16 {
  double re, im;
};
float tarn_serv_s_sign(const float* a, const float* b);    // SIGN: |a| with the sign of b
double tarn_serv_d_sign(const double* a, const double* b);
float tarn_serv_s_powi(const float* a, const int* n);      // a ** n
double tarn_serv_d_powi(const double* a, const int* n);
float tarn_serv_s_int(const float* a);                     // AINT: truncate
double tarn_serv_d_int(const double* a);
float tarn_serv_s_round(const float* a);                   // ANINT: nearest, halves away
double tarn_serv_d_round(const double* a);
float tarn_serv_s_cos(const float* a);
double tarn_serv_z_abs(const tarn_complex16* z);
float tarn_serv_c_abs(const tarn_complex8* z);
void tarn_serv_z_sqrt(tarn_complex16* result, const tarn_complex16* z);
void tarn_serv_c_sqrt(tarn_complex8* result, const tarn_complex8* z);
int tarn_serv_int2f_ceil(const float* a);                  // CEILING to integer
int tarn_serv_int2d_ceil(const double* a);

}  // extern "C"
