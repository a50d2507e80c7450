// Row interchanges on the caller's thread; the LU driver calls it on
// column slices it has already dealt out.
#include "lapack/lapack.h"
#include "lapack/laswp_walk.h"
#include "service/messages.h"

extern "C" void tarn_lapack_xdlaswp(const int* n, double* a, const int* lda, const int* k1,
                                    const int* k2, const int* ipiv, const int* incx) {
  namespace lw = tarn_lapack_laswp;
  if (*n <= 0) return;
  if (!lw::laswp_columns(a, *lda, 0, *n, *k1, *k2, ipiv, *incx)) {
    const int position = lw::kPivotPosition;
    tarn_serv_xerbla(lw::kRoutine, &position, lw::kRoutineLen);
  }
}
