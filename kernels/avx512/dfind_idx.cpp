// avx512: the first element of largest |x|, second pass of the pivot search.
#include "kernels/generic/l1_entries.h"
#include "kernels/generic/l1_xidamax.h"

extern "C" int tarn_blas_avx512_dfind_idx(const int* n, const double* x, const int* incx,
                                         const double* value) {
  return l1_dfind_idx(*n, x, *incx, *value);
}
