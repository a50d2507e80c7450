// Unblocked LU with partial pivoting. Left-looking for the columns and
// row-wise for U: step j finishes column j of L and row j of U with two
// matrix-vector products, so the pivot search of column j needs no update
// of its own. A zero pivot is recorded and the elimination goes on.
#include <algorithm>
#include <cmath>
#include <cstddef>

#include "blas/blas.h"
#include "lapack/lapack.h"

namespace {
constexpr int kOne = 1;
constexpr int kGemvMode = 1;
constexpr double kMinusOne = -1.0;
constexpr double kPlusOne = 1.0;
}  // namespace

extern "C" void tarn_lapack_dgetf2(const int* m, const int* n, double* a, const int* lda,
                                   int* ipiv, int* info) {
  *info = 0;
  const int rows = *m;
  const int cols = *n;
  const int ld = *lda;
  const double sfmin = tarn_lapack_dlamch("S");
  const int mn = std::min(rows, cols);
  if (mn < 1) return;

  // 1-based element (i, j), as the algorithm is written.
  auto at = [a, ld](int i, int j) -> double* {
    return a + (static_cast<std::ptrdiff_t>(i) - 1) + (static_cast<std::ptrdiff_t>(j) - 1) * ld;
  };

  // loop over the diagonal, one column of L and one row of U per step
  for (int j = 1; j <= mn; ++j) {
    const int below = rows - j + 1;
    const int jp = j - 1 + tarn_blas_xidamax(&below, at(j, j), &kOne);
    ipiv[j - 1] = jp;

    if (*at(jp, j) != 0.0) {  // a NaN pivot counts as non-zero
      if (jp != j) tarn_blas_xdswap(&cols, at(j, 1), lda, at(jp, 1), lda);
      if (j < rows) {
        const double p = *at(j, j);
        const int len = rows - j;
        if (std::fabs(p) >= sfmin) {
          const double r = 1.0 / p;
          tarn_blas_xdscal(&len, &r, at(j + 1, j), &kOne);
        } else {
          // 1/p would overflow: divide each entry instead.
          double* col = at(j + 1, j);
          for (int i = 0; i < len; ++i) col[i] /= p;
        }
      }
    } else if (*info == 0) {
      *info = j;
    }

    if (j > 1) {
      // Row j of U right of the diagonal: A(j, j+1:n) -= A(j, 1:j-1) * A(1:j-1, j+1:n).
      const int k = j - 1;
      const int right = cols - j;
      tarn_blas_xdgemv("T", &k, &right, &kMinusOne, at(1, j + 1), lda, at(j, 1), lda, &kPlusOne,
                       at(j, j + 1), lda, &kGemvMode);
    }
    if (j + 1 <= mn) {
      // Column j+1 below row j: A(j+1:m, j+1) -= A(j+1:m, 1:j) * A(1:j, j+1).
      const int len = rows - j;
      tarn_blas_xdgemv("N", &len, &j, &kMinusOne, at(j + 1, 1), lda, at(1, j + 1), &kOne,
                       &kPlusOne, at(j + 1, j + 1), &kOne, &kGemvMode);
    }
  }
}
