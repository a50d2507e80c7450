// matgen_: the benchmark's random matrix and its right-hand side. Columns
// are dealt out block-cyclically, by the factorization's block width, to a
// fixed number of random streams; the seeds are fixed, so a second call
// with the same thread count and block width rebuilds the very same system.
// The right-hand side is the sum of the columns, so the exact solution is
// the vector of ones.
#include <cstdarg>
#include <cstddef>
#include <cstring>

#include "driver/driver.h"
#include "driver/parallel_region.h"
#include "lapack/lapack.h"

namespace {

// Seed of stream s is {s + 1, kSeed2, kSeed3, kSeed4}.
constexpr int32_t kSeed2 = 2;
constexpr int32_t kSeed3 = 3;
constexpr int32_t kSeed4 = 1325;
constexpr double kCentre = 0.5;

struct MatgenArgs {
  int32_t m, n;
  double* a;
  int32_t lda;
  int32_t nb;       // width of a column block
  int32_t streams;  // number of random streams = threads asked for
};

// Fills the columns of stream `s`: blocks s, s + streams, s + 2 streams ...
void generate_stream(const MatgenArgs& p, int32_t s) {
  int32_t iseed[4] = {s + 1, kSeed2, kSeed3, kSeed4};
  const int32_t stride = p.streams * p.nb;
  // Walk this stream's column blocks, nb columns each, in rising order.
  for (int32_t j0 = s * p.nb; j0 < p.n; j0 += stride) {
    const int32_t j1 = p.n - j0 < p.nb ? p.n : j0 + p.nb;
    for (int32_t j = j0; j < j1; ++j) {
      double* col = p.a + static_cast<size_t>(j) * static_cast<size_t>(p.lda);
      for (int32_t i = 0; i < p.m; ++i) col[i] = ran_(iseed) - kCentre;
    }
  }
}

void matgen_region(int32_t* gtid, int32_t* tid, ...) {
  (void)gtid;
  va_list ap;
  va_start(ap, tid);
  const MatgenArgs& p = *region_args<MatgenArgs>(ap);
  va_end(ap);
  // Stream s belongs to thread s. Should the team come out smaller than
  // asked (or serialized), each thread also takes the streams of the missing
  // ones, with their seeds, so the matrix is the same and complete.
  const int32_t team = omp_get_num_threads();
  for (int32_t s = omp_get_thread_num(); s < p.streams; s += team) generate_stream(p, s);
}

}  // namespace

extern "C" void matgen_(const int32_t* m, const int32_t* n, double* a, const int32_t* lda,
                        double* b) {
  const int32_t rows = *m, cols = *n;
  int32_t maxthr = omp_get_max_threads();
  // The width the factorization will use: the generators follow it.
  const int32_t ispec = 1, unused = -1;
  int32_t nb = ILAENV(&ispec, "DGETRF", " ", n, n, &maxthr, &unused);
  if (nb < 1) nb = 1;
  const int32_t nblocks = blocks_of(cols, nb);
  const int32_t streams = nblocks < maxthr ? nblocks : maxthr;
  if (streams > 0 && rows > 0) {
    MatgenArgs args{rows, cols, a, *lda, nb, streams};
    run_parallel_region(streams, matgen_region, &args);
  }

  if (rows <= 0) return;
  std::memset(b, 0, static_cast<size_t>(rows) * sizeof(double));
  // b = A e: add the columns in rising order.
  for (int32_t j = 0; j < cols; ++j) {
    const double* col = a + static_cast<size_t>(j) * static_cast<size_t>(*lda);
    for (int32_t i = 0; i < rows; ++i) b[i] += col[i];
  }
}
