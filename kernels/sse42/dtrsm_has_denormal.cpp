// sse42: dtrsm_has_denormal, the diagonal test that sends a solve to the
// dividing path.
#include "kernels/generic/trsm_frame.h"
#include "kernels/trsm_desc.h"

extern "C" int tarn_blas_sse42_dtrsm_has_denormal(const int* count, const double* a,
                                                  const int* stride) {
  return dtrsm_has_denormal_impl(*count, a, *stride);
}
