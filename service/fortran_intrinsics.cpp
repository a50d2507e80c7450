// Fortran intrinsics for the kernels, so that no compiler runtime is needed.

#include <cmath>

#include "service/timers.h"

namespace {

// a ** n by repeated squaring; a negative power inverts first.
template <typename T>
T power(T a, int n) {
  if (n == 0) return T(1);
  unsigned long long e;
  if (n < 0) {
    a = T(1) / a;
    e = static_cast<unsigned long long>(-static_cast<long long>(n));
  } else {
    e = static_cast<unsigned long long>(n);
  }
  T result = T(1);
  for (;;) {
    if (e & 1) result *= a;
    e >>= 1;
    if (e == 0) break;
    a *= a;
  }
  return result;
}

// Principal square root, without cancellation in the real or imaginary part.
template <typename T, typename C>
void complex_sqrt(C* result, const C* z) {
  const T mag = std::hypot(z->re, z->im);
  if (mag == T(0)) {
    result->re = result->im = T(0);
  } else if (z->re > T(0)) {
    const T t = std::sqrt(T(0.5) * (mag + z->re));
    result->re = t;
    result->im = T(0.5) * z->im / t;
  } else {
    T t = std::sqrt(T(0.5) * (mag - z->re));
    if (z->im < T(0)) t = -t;
    result->im = t;
    result->re = T(0.5) * z->im / t;
  }
}

}  // namespace

extern "C" {

float tarn_serv_s_sign(const float* a, const float* b) {
  float x = std::fabs(*a);
  return *b >= 0.0f ? x : -x;
}

double tarn_serv_d_sign(const double* a, const double* b) {
  double x = std::fabs(*a);
  return *b >= 0.0 ? x : -x;
}

float tarn_serv_s_powi(const float* a, const int* n) { return power(*a, *n); }
double tarn_serv_d_powi(const double* a, const int* n) { return power(*a, *n); }

float tarn_serv_s_int(const float* a) { return std::trunc(*a); }
double tarn_serv_d_int(const double* a) { return std::trunc(*a); }

float tarn_serv_s_round(const float* a) { return std::round(*a); }
double tarn_serv_d_round(const double* a) { return std::round(*a); }

float tarn_serv_s_cos(const float* a) { return std::cos(*a); }

double tarn_serv_z_abs(const tarn_complex16* z) { return std::hypot(z->re, z->im); }
float tarn_serv_c_abs(const tarn_complex8* z) { return std::hypot(z->re, z->im); }

void tarn_serv_z_sqrt(tarn_complex16* result, const tarn_complex16* z) {
  complex_sqrt<double>(result, z);
}

void tarn_serv_c_sqrt(tarn_complex8* result, const tarn_complex8* z) {
  complex_sqrt<float>(result, z);
}

int tarn_serv_int2f_ceil(const float* a) { return static_cast<int>(std::ceil(*a)); }
int tarn_serv_int2d_ceil(const double* a) { return static_cast<int>(std::ceil(*a)); }

}  // extern "C"
