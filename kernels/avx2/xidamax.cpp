// avx2: the pivot search, 1-based index of the first largest |x|; the first
// NaN wins; the caller's exception flags are left as they were. The search
// proper is xidamax_nonan; a NaN only shows in the Invalid flag it raises.
#include "kernels/kernels.h"
#include "kernels/generic/l1_entries.h"
#include "kernels/generic/l1_xidamax.h"

extern "C" int tarn_blas_avx2_xidamax(const int* n, const double* x, const int* incx) {
  return l1_xidamax_nan_rule(*n, x, *incx, [](int nn, const double* xx, int inc) {
    return tarn_blas_avx2_xidamax_nonan(&nn, xx, &inc);
  });
}
