// Copy routines of the packed GEMM, for every branch: a row panel of op(A)
// times alpha, and a column panel of op(B), both laid out k-major so that
// the micro-kernel reads them with unit stride. A panel narrower than the
// register tile is padded with zeros, so that every tile runs the full
// kernel and only the write to C is cut to size.
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

namespace {

// Rows [0, rows) of op(A) for k indices [0, kc), rows <= MR, into
// dst[p*MR + i], multiplied by alpha. op(A)(i, p) is a[i + p*lda] when A is
// not transposed and a[p + i*lda] when it is.
template <int MR>
void gemm_pack_a_panel(bool trans, int rows, int kc, const double* a, int lda, double alpha,
                       double* __restrict dst) {
  if (!trans) {
    if (rows == MR) {
      // Whole panel: one contiguous run of MR values per k index.
      if (alpha == 1.0) {
        for (int p = 0; p < kc; ++p)
          for (int i = 0; i < MR; ++i) dst[p * MR + i] = a[i + p * lda];
      } else {
        for (int p = 0; p < kc; ++p)
          for (int i = 0; i < MR; ++i) dst[p * MR + i] = alpha * a[i + p * lda];
      }
      return;
    }
    for (int p = 0; p < kc; ++p) {
      for (int i = 0; i < rows; ++i) dst[p * MR + i] = alpha * a[i + p * lda];
      for (int i = rows; i < MR; ++i) dst[p * MR + i] = 0.0;
    }
    return;
  }
  // Transposed: each row of op(A) is a contiguous column of A.
  for (int i = 0; i < rows; ++i) {
    const double* src = a + i * lda;
    if (alpha == 1.0) {
      for (int p = 0; p < kc; ++p) dst[p * MR + i] = src[p];
    } else {
      for (int p = 0; p < kc; ++p) dst[p * MR + i] = alpha * src[p];
    }
  }
  for (int i = rows; i < MR; ++i)
    for (int p = 0; p < kc; ++p) dst[p * MR + i] = 0.0;
}

// Columns [0, cols) of op(B) for k indices [0, kc), cols <= NR, into
// dst[p*NR + j]. op(B)(p, j) is b[p + j*ldb] when B is not transposed and
// b[j + p*ldb] when it is. B is copied as it stands: alpha is in A.
template <int NR>
void gemm_pack_b_panel(bool trans, int kc, int cols, const double* b, int ldb,
                       double* __restrict dst) {
  if (trans) {
    for (int p = 0; p < kc; ++p) {
      const double* src = b + p * ldb;
      for (int j = 0; j < cols; ++j) dst[p * NR + j] = src[j];
      for (int j = cols; j < NR; ++j) dst[p * NR + j] = 0.0;
    }
    return;
  }
  if (cols == NR) {
    // Whole panel: NR source columns side by side, read four k at a time.
    int p = 0;
    for (; p + 4 <= kc; p += 4)
      for (int j = 0; j < NR; ++j) {
        const double* src = b + j * ldb + p;
        dst[p * NR + j] = src[0];
        dst[(p + 1) * NR + j] = src[1];
        dst[(p + 2) * NR + j] = src[2];
        dst[(p + 3) * NR + j] = src[3];
      }
    for (; p < kc; ++p)
      for (int j = 0; j < NR; ++j) dst[p * NR + j] = b[j * ldb + p];
    return;
  }
  for (int j = 0; j < cols; ++j) {
    const double* src = b + j * ldb;
    for (int p = 0; p < kc; ++p) dst[p * NR + j] = src[p];
  }
  for (int j = cols; j < NR; ++j)
    for (int p = 0; p < kc; ++p) dst[p * NR + j] = 0.0;
}

}  // namespace
