// The level-1 entries of the branches beyond the dispatched ones (those are
// in kernels/kernels.h): the NaN-free pivot search of avx and avx2, and the
// two passes of the avx512 pivot search. Arguments by reference, as every
// kernel entry.
#pragma once

extern "C" {

// 1-based index of the first largest |x| assuming x holds no NaN; a NaN
// makes the answer worthless and raises the Invalid flag.
int tarn_blas_avx_xidamax_nonan(const int* n, const double* x, const int* incx);
int tarn_blas_avx2_xidamax_nonan(const int* n, const double* x, const int* incx);

// The largest |x| (Invalid raised on a NaN, which is passed over).
double tarn_blas_avx512_damax(const int* n, const double* x, const int* incx);
// 1-based index of the first element with |x| equal to *value, or 0.
int tarn_blas_avx512_dfind_idx(const int* n, const double* x, const int* incx,
                               const double* value);

}  // extern "C"
