// Copy routines of the packed GEMM, for every branch: a row panel of op(A)
// times alpha, and a column panel of op(B), both laid out k-major so that
// the micro-kernel reads them with unit stride: for each k the panel's
// values of that k, as many as the panel is high (A) or wide (B).
//
// A block holds whole panels of the register tile and, past the last of
// them, narrower panels of the binary digits of what is left (see
// gemm_panel_size in gemm_driver.h); nothing is padded, each height has its
// own tile. The padded forms at the end keep a panel at the tile's size
// with zeros past the data, for the triangular solve's own packed format.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <cstddef>

namespace {

// Rows [0, rows) of op(A) for k indices [0, kc), into dst[p*height + i],
// multiplied by alpha, and zeros in rows [rows, height). op(A)(i, p) is
// a[i + p*lda] when A is not transposed and a[p + i*lda] when it is.
inline void gemm_pack_a_rows(bool trans, int rows, int height, int kc, const double* a, int lda,
                             double alpha, double* __restrict dst) {
  const ptrdiff_t ld = lda;  // a far column lies beyond 2^31 elements in a 64-bit build
  if (!trans) {
    // Loop over the depth: one column of the panel per k.
    for (int p = 0; p < kc; ++p) {
      for (int i = 0; i < rows; ++i) dst[p * height + i] = alpha * a[i + p * ld];
      for (int i = rows; i < height; ++i) dst[p * height + i] = 0.0;
    }
    return;
  }
  // Transposed: each row of op(A) is a contiguous column of A.
  for (int i = 0; i < rows; ++i) {
    const double* src = a + i * ld;
    for (int p = 0; p < kc; ++p) dst[p * height + i] = alpha * src[p];
  }
  for (int i = rows; i < height; ++i)
    for (int p = 0; p < kc; ++p) dst[p * height + i] = 0.0;
}

// Columns [0, cols) of op(B) for k indices [0, kc), into dst[p*width + j],
// zeros in columns [cols, width). op(B)(p, j) is b[p + j*ldb] when B is not
// transposed and b[j + p*ldb] when it is. B is copied as it stands: alpha is
// in A.
inline void gemm_pack_b_cols(bool trans, int kc, int cols, int width, const double* b, int ldb,
                             double* __restrict dst) {
  const ptrdiff_t ld = ldb;
  if (trans) {
    // Loop over the depth: one row of op(B) per k.
    for (int p = 0; p < kc; ++p) {
      const double* src = b + p * ld;
      for (int j = 0; j < cols; ++j) dst[p * width + j] = src[j];
      for (int j = cols; j < width; ++j) dst[p * width + j] = 0.0;
    }
    return;
  }
  for (int j = 0; j < cols; ++j) {
    const double* src = b + j * ld;
    for (int p = 0; p < kc; ++p) dst[p * width + j] = src[p];
  }
  for (int j = cols; j < width; ++j)
    for (int p = 0; p < kc; ++p) dst[p * width + j] = 0.0;
}

// A panel of the product's A block: MR rows (the whole panel, with a loop
// the compiler unrolls to the tile height), or fewer, a narrower panel of
// exactly `rows` values per k.
template <int MR>
void gemm_pack_a_panel(bool trans, int rows, int kc, const double* a, int lda, double alpha,
                       double* __restrict dst) {
  if (rows != MR || trans) {
    gemm_pack_a_rows(trans, rows, rows, kc, a, lda, alpha, dst);
    return;
  }
  // Whole panel: one contiguous run of MR values per k index.
  const ptrdiff_t ld = lda;
  if (alpha == 1.0) {
    for (int p = 0; p < kc; ++p)
      for (int i = 0; i < MR; ++i) dst[p * MR + i] = a[i + p * ld];
  } else {
    for (int p = 0; p < kc; ++p)
      for (int i = 0; i < MR; ++i) dst[p * MR + i] = alpha * a[i + p * ld];
  }
}

// A panel of the product's B block: NR columns, or fewer, a narrower panel
// of exactly `cols` values per k.
template <int NR>
void gemm_pack_b_panel(bool trans, int kc, int cols, const double* b, int ldb,
                       double* __restrict dst) {
  if (cols != NR || trans) {
    gemm_pack_b_cols(trans, kc, cols, cols, b, ldb, dst);
    return;
  }
  // Whole panel: NR source columns side by side, read four k at a time.
  const ptrdiff_t ld = ldb;
  int p = 0;
  for (; p + 4 <= kc; p += 4)
    for (int j = 0; j < NR; ++j) {
      const double* src = b + j * ld + p;
      dst[p * NR + j] = src[0];
      dst[(p + 1) * NR + j] = src[1];
      dst[(p + 2) * NR + j] = src[2];
      dst[(p + 3) * NR + j] = src[3];
    }
  for (; p < kc; ++p)
    for (int j = 0; j < NR; ++j) dst[p * NR + j] = b[j * ld + p];
}

// Padded panels: always MR values (NR) per k, zeros past the data.
template <int MR>
void gemm_pack_a_padded(bool trans, int rows, int kc, const double* a, int lda, double alpha,
                        double* __restrict dst) {
  if (rows == MR)
    gemm_pack_a_panel<MR>(trans, rows, kc, a, lda, alpha, dst);
  else
    gemm_pack_a_rows(trans, rows, MR, kc, a, lda, alpha, dst);
}
template <int NR>
void gemm_pack_b_padded(bool trans, int kc, int cols, const double* b, int ldb,
                        double* __restrict dst) {
  if (cols == NR)
    gemm_pack_b_panel<NR>(trans, kc, cols, b, ldb, dst);
  else
    gemm_pack_b_cols(trans, kc, cols, NR, b, ldb, dst);
}

}  // namespace
