// The recursive right-looking blocked LU shared by tarn_lapack_xdgetrf_local
// (one-thread BLAS) and tarn_lapack_dgetrf_local (threaded BLAS). The two
// differ only in the Blas policy: trsm, gemm and laswp.
//
// The panel recursion asks ILAENV afresh for its own shape, so the depth of
// the recursion is the tuning table's. Exchanges to the left of each panel
// are deferred to one pass at the end.
#pragma once

#include <algorithm>
#include <cstddef>

#include "lapack/lapack.h"
#include "service/messages.h"

namespace tarn_lapack_getrf {

inline constexpr int kSpecBlock = 1;
inline constexpr char kRoutine[] = "DGETRF";
inline constexpr int kRoutineLen = 6;
inline constexpr char kSequentialOpt[] = "S";
inline constexpr int kUnused = -1;

// Result of the recursion: the progress callback asked to stop.
inline constexpr int kStopped = 1;

template <class Blas>
int getrf_recursive(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info,
                    const int* progress_thread, const int* progress_step) {
  static constexpr int kIncOne = 1;
  static constexpr double kOne = 1.0;
  static constexpr double kMinusOne = -1.0;

  const int rows = *m;
  const int cols = *n;
  const int ld = *lda;
  const int nb = tarn_lapack_ilaenv(&kSpecBlock, kRoutine, kSequentialOpt, m, n, &kUnused,
                                    &kUnused);
  const int mn = std::min(rows, cols);

  if (nb <= 1 || nb >= mn) {
    tarn_lapack_dgetf2(m, n, a, lda, ipiv, info);
    const int step = *progress_step + cols;
    return tarn_serv_progress(progress_thread, &step, kRoutine, kRoutineLen) != 0 ? kStopped : 0;
  }

  auto at = [a, ld](int i, int j) -> double* {
    return a + (static_cast<std::ptrdiff_t>(i) - 1) + (static_cast<std::ptrdiff_t>(j) - 1) * ld;
  };

  *info = 0;
  // loop over the diagonal, nb columns at a time: factor the panel, then
  // update the columns right of it
  for (int j = 1; j <= mn; j += nb) {
    const int jb = std::min(mn - j + 1, nb);

    const int panel_rows = rows - j + 1;
    const int panel_step = *progress_step + j - 1;
    int iinfo = 0;
    if (getrf_recursive<Blas>(&panel_rows, &jb, at(j, j), lda, ipiv + j - 1, &iinfo,
                              progress_thread, &panel_step) != 0)
      return kStopped;
    if (*info == 0 && iinfo > 0) *info = iinfo + j - 1;

    // Panel pivots are relative to the panel's first row; make them global.
    const int last_pivot = std::min(rows, j + jb - 1);
    for (int i = j; i <= last_pivot; ++i) ipiv[i - 1] += j - 1;

    if (j + jb <= cols) {
      const int right = cols - j - jb + 1;
      const int k1 = j;
      const int k2 = j + jb - 1;
      Blas::laswp(&right, at(1, j + jb), lda, &k1, &k2, ipiv, &kIncOne);
      Blas::trsm("L", "L", "N", "U", &jb, &right, &kOne, at(j, j), lda, at(j, j + jb), lda);
      if (j + jb <= rows) {
        const int below = rows - j - jb + 1;
        Blas::gemm("N", "N", &below, &right, &jb, &kMinusOne, at(j + jb, j), lda, at(j, j + jb),
                   lda, &kOne, at(j + jb, j + jb), lda);
      }
    }
  }

  // loop over the panels but the last, nb columns at a time: the exchanges
  // of all later panels, deferred until now
  const int rounds = (mn - 1) / nb;
  for (int r = 0, j = 1; r < rounds; ++r, j += nb) {
    const int k1 = j + nb;
    Blas::laswp(&nb, at(1, j), lda, &k1, &mn, ipiv, &kIncOne);
  }
  return 0;
}

}  // namespace tarn_lapack_getrf
