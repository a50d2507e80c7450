// The common frame of every branch's triangular solve.
//
// Every case is solved as a left-sided one, op'(A) * X' = B', in one frame:
//   left side:  op'(A) = op(A),     B' = B,   frame rows are rows of B;
//   right side: op'(A) = op(A)^T,   B' = B^T, frame rows are columns of B,
// since X*op(A) = B is op(A)^T * X^T = B^T. Transposing op(A) flips both its
// triangle and its transposition, and B' is B read with its strides
// swapped. So one set of packing routines, leaf kernels and drivers serves
// the four side/triangle cases; only the update products, which run on the
// caller's B as it lies in memory, look at the side again.
//
// Also here: the diagonal tests, the clearing and scaling of B, and the
// plain solves with true division (dtrsm_pst, dtrsm_nobuf).
//
// Branch-generic: included by the kernel files of each branch and compiled
// with that branch's instruction set, hence the anonymous namespace.
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

#include "kernels/kernels.h"
#include "kernels/trsm_desc.h"

namespace {

inline int trsm_min(int x, int y) { return x < y ? x : y; }
inline int trsm_max(int x, int y) { return x > y ? x : y; }
inline int trsm_round_up(int x, int unit) { return (x + unit - 1) / unit * unit; }

// BLAS characters fold their case.
inline char trsm_fold(const char* c) {
  const char ch = *c;
  return (ch >= 'a' && ch <= 'z') ? static_cast<char>(ch - 'a' + 'A') : ch;
}

// One solve in the left frame.
struct TrsmFrame {
  bool right;       // B' = B^T (the caller's side was right)
  bool lower;       // op'(A) is lower triangular
  bool ta;          // op'(A)(i, j) = A(j, i)
  bool unit;        // unit diagonal: never read
  int order;        // of op'(A): rows of B'
  int rhs;          // columns of B'
  const double* a;
  int lda;
  double* b;
  int ldb;

  // op'(A)(i, j)
  double at(int i, int j) const {
    return ta ? a[j + static_cast<ptrdiff_t>(i) * lda] : a[i + static_cast<ptrdiff_t>(j) * lda];
  }
  // Address of op'(A)(i, j) as the corner of a block of op'(A).
  const double* a_block(int i, int j) const {
    return ta ? a + j + static_cast<ptrdiff_t>(i) * lda : a + i + static_cast<ptrdiff_t>(j) * lda;
  }
  ptrdiff_t rs() const { return right ? ldb : 1; }
  ptrdiff_t cs() const { return right ? 1 : ldb; }
  // B'(i, j)
  double* bp(int i, int j) const { return b + i * rs() + j * cs(); }
};

// The frame of the caller's arguments (characters already folded).
inline TrsmFrame trsm_make_frame(char side, char uplo, char transa, char diag, int m, int n,
                                 const double* a, int lda, double* b, int ldb) {
  TrsmFrame f;
  const bool trans = transa != 'N';
  // op(A) flips the triangle of A.
  const bool op_lower = (uplo == 'L') != trans;
  f.right = side != 'L';
  f.lower = f.right ? !op_lower : op_lower;
  f.ta = f.right ? !trans : trans;
  f.unit = diag == 'U';
  f.order = f.right ? n : m;
  f.rhs = f.right ? m : n;
  f.a = a;
  f.lda = lda;
  f.b = b;
  f.ldb = ldb;
  return f;
}

// The sub-solve of frame rows [r0, r0+len) and frame columns [c0, c0+cols).
inline TrsmFrame trsm_sub_frame(const TrsmFrame& f, int r0, int len, int c0, int cols) {
  TrsmFrame s = f;
  s.a = f.a_block(r0, r0);
  s.b = f.bp(r0, c0);
  s.order = len;
  s.rhs = cols;
  return s;
}

// A reciprocal is safe to multiply by when it is as exact as the division it
// replaces: no zero, no denormal (whose reciprocal overflows), no value so
// large that its reciprocal is denormal, nothing that is not finite.
inline bool trsm_reciprocal_safe(double d) {
  const double x = __builtin_fabs(d);
  return x >= DBL_MIN && x <= 1.0 / DBL_MIN;
}

// True when every diagonal value of op'(A) on [r0, r0+len) has a safe
// reciprocal (always, for a unit diagonal, which is not read).
inline bool trsm_diagonal_safe(const TrsmFrame& f, int r0, int len) {
  if (f.unit) return true;
  const ptrdiff_t diagonal_step = static_cast<ptrdiff_t>(f.lda) + 1;
  for (int i = r0; i < r0 + len; ++i)
    if (!trsm_reciprocal_safe(f.a[i * diagonal_step])) return false;
  return true;
}

// 1 when any of count values, stride apart, is denormal (zero exponent field,
// not zero); else 0. The diagonal test of the avx branch and below.
inline int dtrsm_has_denormal_impl(int count, const double* a, int stride) {
  constexpr uint64_t kExponent = 0x7ff0000000000000ull;
  constexpr uint64_t kMagnitude = 0x7fffffffffffffffull;
  for (int i = 0; i < count; ++i) {
    uint64_t bits;
    std::memcpy(&bits, a + static_cast<ptrdiff_t>(i) * stride, sizeof bits);
    if ((bits & kExponent) == 0 && (bits & kMagnitude) != 0) return 1;
  }
  return 0;
}

// B' := alpha * B' over the whole frame; alpha 0 stores zeros and reads
// nothing, so NaN in B goes too.
inline void trsm_scale_b(int m, int n, double alpha, double* b, int ldb) {
  if (alpha == 1.0) return;
  // Loop over the columns of B, one at a time.
  for (int j = 0; j < n; ++j) {
    double* col = b + static_cast<ptrdiff_t>(j) * ldb;
    if (alpha == 0.0) {
      for (int i = 0; i < m; ++i) col[i] = 0.0;
    } else {
      for (int i = 0; i < m; ++i) col[i] *= alpha;
    }
  }
}

// B'(dst rows) -= op'(A)(dst rows, src rows) * X'(src rows), on the caller's
// B as it lies in memory: for the right side this is
// B(:, dst) -= X(:, src) * op'(A)(dst, src)^T.
template <tarn_xdgemm_fn* Gemm>
void trsm_update(const TrsmFrame& f, int dst, int dst_len, int src, int src_len) {
  if (dst_len <= 0 || src_len <= 0 || f.rhs <= 0) return;
  const double minus_one = -1.0, one = 1.0;
  const double* ablock = f.a_block(dst, src);
  if (!f.right) {
    const char ta = f.ta ? 'T' : 'N';
    Gemm(&ta, "N", &dst_len, &f.rhs, &src_len, &minus_one, ablock, &f.lda, f.bp(src, 0), &f.ldb,
         &one, f.bp(dst, 0), &f.ldb);
  } else {
    const char tb = f.ta ? 'N' : 'T';
    Gemm("N", &tb, &f.rhs, &dst_len, &src_len, &minus_one, f.bp(src, 0), &f.ldb, ablock, &f.lda,
         &one, f.bp(dst, 0), &f.ldb);
  }
}

// Substitution with true division on the whole frame, no packing. For the
// left side one column of B' at a time; for the right side (B' = B^T) one
// frame row at a time, so that the inner loop runs along a column of B.
inline void trsm_substitute(const TrsmFrame& f) {
  const int s = f.order;
  if (!f.right) {
    // Loop over the right-hand sides, one column at a time.
    for (int j = 0; j < f.rhs; ++j) {
      double* x = f.bp(0, j);
      if (f.lower) {
        for (int i = 0; i < s; ++i) {
          double t = x[i];
          for (int k = 0; k < i; ++k) t -= f.at(i, k) * x[k];
          x[i] = f.unit ? t : t / f.at(i, i);
        }
      } else {
        for (int i = s - 1; i >= 0; --i) {
          double t = x[i];
          for (int k = i + 1; k < s; ++k) t -= f.at(i, k) * x[k];
          x[i] = f.unit ? t : t / f.at(i, i);
        }
      }
    }
    return;
  }
  const int n = f.rhs;
  // Loop over the order, one frame row (a column of B) at a time.
  for (int step = 0; step < s; ++step) {
    const int i = f.lower ? step : s - 1 - step;
    double* xi = f.bp(i, 0);
    const int k0 = f.lower ? 0 : i + 1, k1 = f.lower ? i : s;
    for (int k = k0; k < k1; ++k) {
      const double t = f.at(i, k);
      const double* xk = f.bp(k, 0);
      for (int j = 0; j < n; ++j) xi[j] -= t * xk[j];
    }
    if (!f.unit) {
      const double d = f.at(i, i);
      for (int j = 0; j < n; ++j) xi[j] /= d;
    }
  }
}

// Blocks of the unpacked solves: the diagonal block solved by substitution,
// the rest of B updated by the branch's product.
constexpr int kTrsmNobufBlock = 64;

// The whole frame in blocks of kTrsmNobufBlock, substitution on each
// diagonal block and a product for the rest, in solve order.
template <tarn_xdgemm_fn* Gemm>
void trsm_blocked_substitute(const TrsmFrame& f) {
  const int s = f.order;
  // Loop over the order, kTrsmNobufBlock rows at a time, in solve order.
  for (int done = 0; done < s; done += kTrsmNobufBlock) {
    const int len = trsm_min(kTrsmNobufBlock, s - done);
    const int r0 = f.lower ? done : s - done - len;
    trsm_substitute(trsm_sub_frame(f, r0, len, 0, f.rhs));
    if (f.lower)
      trsm_update<Gemm>(f, r0 + len, s - r0 - len, r0, len);
    else
      trsm_update<Gemm>(f, 0, r0, r0, len);
  }
}

// dtrsm_pst: the solve with no packing and true division, the path of a
// diagonal that holds a denormal. Alpha is applied here.
template <tarn_xdgemm_fn* Gemm>
void dtrsm_pst_impl(const char* side, const char* uplo, const char* transa, const char* diag,
                    const int* m, const int* n, const double* alpha, const double* a,
                    const int* lda, double* b, const int* ldb) {
  if (*m <= 0 || *n <= 0) return;
  trsm_scale_b(*m, *n, *alpha, b, *ldb);
  if (*alpha == 0.0) return;
  const TrsmFrame f = trsm_make_frame(trsm_fold(side), trsm_fold(uplo), trsm_fold(transa),
                                      trsm_fold(diag), *m, *n, a, *lda, b, *ldb);
  trsm_blocked_substitute<Gemm>(f);
}

// dtrsm_nobuf: the fallback of a solve whose buffer could not be had; B is
// already multiplied by alpha.
template <tarn_xdgemm_fn* Gemm>
void dtrsm_nobuf_impl(const char* side, const char* uplo, const char* transa, const char* diag,
                      const int* m, const int* n, const double* a, const int* lda, double* b,
                      const int* ldb) {
  if (*m <= 0 || *n <= 0) return;
  const TrsmFrame f = trsm_make_frame(trsm_fold(side), trsm_fold(uplo), trsm_fold(transa),
                                      trsm_fold(diag), *m, *n, a, *lda, b, *ldb);
  trsm_blocked_substitute<Gemm>(f);
}

}  // namespace

namespace {

// The branches with 256-bit registers clear their upper halves before an
// entry returns, so that the caller's SSE code pays no transition.
inline void trsm_leave_wide_registers() {
#if defined(__AVX__)
  _mm256_zeroupper();
#endif
}

}  // namespace

// The entries of a branch. dtrsm_pst (kernels/<br>/dtrsm_pst.cpp): the solve
// with no packing and true division (the path of a diagonal that holds a
// denormal), on the branch's DGEMM.
#define TARN_DTRSM_PST_ENTRY(br)                                                              \
  extern "C" void tarn_blas_##br##_dtrsm_pst(                                                 \
      const char* side, const char* uplo, const char* transa, const char* diag, const int* m, \
      const int* n, const double* alpha, const double* a, const int* lda, double* b,          \
      const int* ldb) {                                                                       \
    dtrsm_pst_impl<tarn_blas_##br##_xdgemm>(                                                  \
        side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);                               \
    trsm_leave_wide_registers();                                                              \
  }

// dtrsm_nobuf (kernels/<br>/dtrsm_nobuf.cpp): the unpacked solve of a B
// already multiplied by alpha, taken when a solve's buffer cannot be had.
#define TARN_DTRSM_NOBUF_ENTRY(br)                                                                 \
  extern "C" void tarn_blas_##br##_dtrsm_nobuf(const char* side, const char* uplo,                 \
                                               const char* transa, const char* diag, const int* m, \
                                               const int* n, const double* a, const int* lda,      \
                                               double* b, const int* ldb) {                        \
    dtrsm_nobuf_impl<tarn_blas_##br##_xdgemm>(side, uplo, transa, diag, m, n, a, lda, b, ldb);     \
    trsm_leave_wide_registers();                                                                   \
  }

// dtrsm_has_denormal (kernels/<br>/dtrsm_has_denormal.cpp, sse2 to avx): the
// diagonal test that sends a solve to the dividing path.
#define TARN_DTRSM_HAS_DENORMAL_ENTRY(br)                                               \
  extern "C" int tarn_blas_##br##_dtrsm_has_denormal(const int* count, const double* a, \
                                                     const int* stride) {               \
    return dtrsm_has_denormal_impl(*count, a, *stride);                                 \
  }
