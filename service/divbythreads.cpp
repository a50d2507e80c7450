// Splitting a range among threads: even shares, shares in whole blocks, and
// shares of equal area of a triangle. Fortran style: everything by
// reference, the result is the first index and *length the size.

#include <cmath>

#include "service/timers.h"

namespace {

int min_int(int a, int b) { return a < b ? a : b; }

// The rule for a single thread: thread 0 takes everything.
int single_thread_share(int thread, int n, int* length) {
  *length = thread == 0 ? n : 0;
  return 0;
}

// floor((sqrt(8 x + 1) - 1) / 2): the rows of a triangle that hold x elements.
int triangle_rows(double x) { return static_cast<int>((std::sqrt(8.0 * x + 1.0) - 1.0) / 2.0); }

}  // namespace

extern "C" int tarn_serv_divbythreads(const int* thread, const int* nthreads, const int* n,
                                      int* length) {
  const int t = *thread, nt = *nthreads;
  if (nt <= 1) return single_thread_share(t, *n, length);
  if (t < 0 || t >= nt) {
    *length = 0;
    return 0;
  }
  const int q = *n / nt, r = *n % nt;
  *length = t < r ? q + 1 : q;
  return q * t + min_int(t, r);
}

extern "C" int tarn_serv_divbythreadsnb(const int* thread, const int* nthreads, const int* n,
                                        const int* block, int* length) {
  const int t = *thread, nt = *nthreads, nb = *block;
  if (nt <= 1 || nb <= 0) return single_thread_share(t, *n, length);
  if (t < 0 || t >= nt) {
    *length = 0;
    return 0;
  }
  const int q = *n / (nt * nb), r = *n % (nt * nb);
  const int b = r / nb;
  // Whole blocks first; the last thread also takes the partial block.
  *length = (t < b ? q + 1 : q) * nb;
  if (t == nt - 1) *length += r % nb;
  return (q * t + min_int(t, b)) * nb;
}

extern "C" int tarn_serv_divbythreadstr(const int* thread, const int* nthreads, const int* n,
                                        const char* uplo, int* length) {
  const int t = *thread, nt = *nthreads, size = *n;
  if (nt <= 1) return single_thread_share(t, size, length);
  if (t < 0 || t >= nt) {
    *length = 0;
    return 0;
  }
  // Elements per thread, from a total that may pass 32 bits.
  const double w = static_cast<double>(static_cast<long long>(size) * (size + 1) / 2 / nt);
  int first, end;
  if (*uplo == 'U' || *uplo == 'u') {
    first = triangle_rows(w * t);
    end = triangle_rows(w * (t + 1));
  } else {
    first = size - triangle_rows(w * (nt - t));
    end = size - triangle_rows(w * (nt - t - 1));
  }
  if (t == 0) first = 0;
  if (t == nt - 1) end = size;
  *length = end - first;
  return first;
}
