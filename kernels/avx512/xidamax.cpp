// avx512: the pivot search in two passes, the largest |x| (damax) and then the
// first element that has it (dfind_idx); the first NaN wins, shown by the
// Invalid flag damax raises; the caller's exception flags are left as they
// were.
#include "kernels/kernels.h"
#include "kernels/generic/l1_entries.h"
#include "kernels/generic/l1_xidamax.h"

extern "C" int tarn_blas_avx512_xidamax(const int* n, const double* x, const int* incx) {
  return l1_xidamax_nan_rule(*n, x, *incx, [](int nn, const double* xx, int inc) {
    if (nn == 1) return 1;
    const double largest = tarn_blas_avx512_damax(&nn, xx, &inc);
    return tarn_blas_avx512_dfind_idx(&nn, xx, &inc, &largest);
  });
}
