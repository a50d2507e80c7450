// The pivot search: 1-based index of the element of largest |x|, the first
// of equal maxima, and the first NaN whenever there is one.
//
// The search loop pays nothing for the NaN rule. All its compares are the
// ordered, signalling forms, which raise the Invalid flag of the processor's
// status word (MXCSR) when they meet a NaN; the search itself assumes there
// is none. The wrapper clears the six flags first, reads Invalid afterwards,
// walks x once more for the first NaN only if it is set, and puts the
// caller's status word back. The search can only raise Invalid and Denormal,
// by its own compares, which tell the caller nothing: the flags after the
// call are exactly those of before.
#pragma once

#include <immintrin.h>

#include "kernels/generic/l1_vector.h"
#include "kernels/kernels.h"
#include "kernels/generic/l1_entries.h"

namespace {

constexpr unsigned kMxcsrFlags = 0x3f;   // the six exception flag bits
constexpr unsigned kMxcsrInvalid = 0x1;  // the Invalid flag

// Unit-stride searches: below this many elements after the first, scalar;
// up to kIamaxPeelFrom - 1, vectors from the start, unaligned; from
// kIamaxPeelFrom on, an alignment peel first (or all scalar when x is not
// even 8-byte aligned).
constexpr int kIamaxVectorFrom = 8;
constexpr int kIamaxPeelFrom = 29;
// Running maxima kept in vector registers, each with the age of its value.
// Two, not four: with i386's eight vector registers four maxima and their
// ages leave no register for the load and the compare, and the loop spills
// on every iteration (seen in objdump).
constexpr int kIamaxAccumulators = 2;

// a > b with the signalling scalar compare (comisd): a NaN raises Invalid.
inline bool l1_gt_signal1(double a, double b) {
  return _mm_comigt_sd(_mm_set_sd(a), _mm_set_sd(b)) != 0;
}

// Running scalar maximum over elements [from, to) of a walk.
struct L1IamaxBest {
  double value;
  int index;  // 0-based
  void scan(const double* x, ptrdiff_t inc, int from, int to) {
    for (int i = from; i < to; ++i) {
      const double v = __builtin_fabs(x[i * inc]);
      if (l1_gt_signal1(v, value)) {
        value = v;
        index = i;
      }
    }
  }
};

// Elements [from, from + blocks*2W) of a unit-stride x in vectors; merges
// the lanes into `best`, the lower index winning a tie. Every index here is
// above those `best` has seen, so a lane must be strictly larger to win.
//
// Each lane keeps, beside its maximum, the age of that maximum: elements
// walked since it was found, reset to 0 by the compare that found it. An
// age needs no index register to be kept up to date (one add and one
// and-not), which is what lets two maxima run in i386's eight registers.
template <class A>
inline void l1_iamax_vectors(const double* x, int from, int blocks, L1IamaxBest* best) {
  constexpr int W = L12Vec::kWidth;
  constexpr int K = kIamaxAccumulators;
  constexpr int kStep = K * W;
  L12Vec::V maxv[K], age[K];
  for (int k = 0; k < K; ++k) {
    maxv[k] = L12Vec::set1(-1.0);
    age[k] = L12Vec::zero();
  }
  const L12Vec::V step = L12Vec::set1(static_cast<double>(kStep));
  const double* p = x + from;
  // Elements of x, K vectors at a time.
  for (int b = 0; b < blocks; ++b, p += kStep) {
    for (int k = 0; k < K; ++k) {
      const L12Vec::V v = L12Vec::abs(l12_load(A{}, p + k * W));
      const L12Vec::Mask up = L12Vec::gt_signal(v, maxv[k]);
      maxv[k] = L12Vec::select(up, v, maxv[k]);
      age[k] = L12Vec::clear_where(up, L12Vec::add(age[k], step));
    }
  }
  alignas(64) double mv[K][W];
  alignas(64) double av[K][W];
  for (int k = 0; k < K; ++k) {
    L12Vec::storea(mv[k], maxv[k]);
    L12Vec::storea(av[k], age[k]);
  }
  // Lane l of maximum k in the last block is element last + k*W + l.
  const int last = from + (blocks - 1) * kStep;
  double vbest = -1.0;
  int ibest = 0;
  for (int k = 0; k < K; ++k) {
    for (int l = 0; l < W; ++l) {
      const double v = mv[k][l];
      const int i = last - static_cast<int>(av[k][l]) + k * W + l;
      if (v > vbest || (v == vbest && i < ibest)) {
        vbest = v;
        ibest = i;
      }
    }
  }
  // Signalling, as every compare of the search: a NaN first element is
  // seen here when no scalar step follows.
  if (l1_gt_signal1(vbest, best->value)) {
    best->value = vbest;
    best->index = ibest;
  }
}

// The search without the NaN rule: 1-based index of the first largest |x|
// when x holds no NaN; with a NaN its answer is worthless, but Invalid is
// raised. 0 for n or incx below 1, 1 for n 1.
inline int l1_iamax_nonan(int n, const double* x, int incx) {
  constexpr int kStep = kIamaxAccumulators * L12Vec::kWidth;
  if (n < 1 || incx < 1) return 0;
  if (n == 1) return 1;
  L1IamaxBest best{__builtin_fabs(x[0]), 0};
  if (incx != 1) {
    best.scan(x, incx, 1, n);
    return best.index + 1;
  }
  const int others = n - 1;
  int i = 1;
  if (others >= kIamaxVectorFrom && others < kIamaxPeelFrom) {
    const int blocks = others / kStep;
    l1_iamax_vectors<L12Unaligned>(x, i, blocks, &best);
    i += blocks * kStep;
  } else if (others >= kIamaxPeelFrom) {
    const int peel = l12_peel_to_boundary(x + 1);
    if (peel >= 0) {
      best.scan(x, 1, i, i + peel);
      i += peel;
      const int blocks = (n - i) / kStep;
      l1_iamax_vectors<L12Aligned>(x, i, blocks, &best);
      i += blocks * kStep;
    }
  }
  best.scan(x, 1, i, n);  // the remainder, on the same strict compare
  return best.index + 1;
}

// 1-based index of the first NaN among n elements of a walk, or 0.
inline int l1_first_nan(int n, const double* x, int incx) {
  const ptrdiff_t inc = incx;
  for (int i = 0; i < n; ++i) {
    const double v = x[i * inc];
    if (v != v) return i + 1;
  }
  return 0;
}

// The NaN rule around a search `search(n, x, incx)` that assumes no NaN
// and signals Invalid when it meets one.
template <class Search>
inline int l1_xidamax_nan_rule(int n, const double* x, int incx, Search search) {
  if (n < 1 || incx < 1) return 0;
  const unsigned csr = _mm_getcsr();
  _mm_setcsr(csr & ~kMxcsrFlags);
  int index = search(n, x, incx);
  if ((_mm_getcsr() & kMxcsrInvalid) != 0) {
    const int nan = l1_first_nan(n, x, incx);
    if (nan != 0) index = nan;
  }
  _mm_setcsr(csr);
  return index;
}

inline int l1_xidamax(int n, const double* x, int incx) {
  return l1_xidamax_nan_rule(n, x, incx, l1_iamax_nonan);
}

#if defined(__AVX512F__)

// The two-pass search of the 512-bit branch. damax: the largest |x|, 32
// values at a time in four registers, then 16, 8 and a masked tail;
// vmaxpd raises Invalid on a NaN (and keeps the other operand).
constexpr int kDamaxAccumulators = 4;

// max(a, b) lane by lane (b where a is NaN). The merge-masked form with a
// full mask is the plain vmaxpd; the unmasked intrinsic of this compiler
// passes an undefined merge source that -Wmaybe-uninitialized rejects.
inline __m512d l1_max512(__m512d a, __m512d b) {
  return _mm512_mask_max_pd(b, static_cast<__mmask8>(0xff), a, b);
}

inline double l1_damax(int n, const double* x, int incx) {
  constexpr int W = 8;
  if (n < 1 || incx < 1) return 0.0;
  if (incx != 1) {
    __m128d m = _mm_setzero_pd();
    const ptrdiff_t inc = incx;
    for (int i = 0; i < n; ++i) m = _mm_max_sd(_mm_set_sd(__builtin_fabs(x[i * inc])), m);
    return _mm_cvtsd_f64(m);
  }
  __m512d m0 = _mm512_setzero_pd(), m1 = m0, m2 = m0, m3 = m0;
  int i = 0;
  // Elements i, four vectors at a time.
  for (; i + kDamaxAccumulators * W <= n; i += kDamaxAccumulators * W) {
    m0 = l1_max512(_mm512_abs_pd(_mm512_loadu_pd(x + i)), m0);
    m1 = l1_max512(_mm512_abs_pd(_mm512_loadu_pd(x + i + W)), m1);
    m2 = l1_max512(_mm512_abs_pd(_mm512_loadu_pd(x + i + 2 * W)), m2);
    m3 = l1_max512(_mm512_abs_pd(_mm512_loadu_pd(x + i + 3 * W)), m3);
  }
  if (i + 2 * W <= n) {
    m0 = l1_max512(_mm512_abs_pd(_mm512_loadu_pd(x + i)), m0);
    m1 = l1_max512(_mm512_abs_pd(_mm512_loadu_pd(x + i + W)), m1);
    i += 2 * W;
  }
  if (i + W <= n) {
    m2 = l1_max512(_mm512_abs_pd(_mm512_loadu_pd(x + i)), m2);
    i += W;
  }
  if (i < n) {
    const __mmask8 tail = static_cast<__mmask8>((1u << (n - i)) - 1u);
    m3 = l1_max512(_mm512_abs_pd(_mm512_maskz_loadu_pd(tail, x + i)), m3);
  }
  alignas(64) double lanes[W];
  _mm512_store_pd(lanes, l1_max512(l1_max512(m0, m1), l1_max512(m2, m3)));
  double largest = lanes[0];
  for (int l = 1; l < W; ++l) largest = lanes[l] > largest ? lanes[l] : largest;
  return largest;
}

// dfind_idx: 1-based index of the first element with |x| equal to value,
// 8 at a time with a masked tail; 0 if there is none.
inline int l1_dfind_idx(int n, const double* x, int incx, double value) {
  constexpr int W = 8;
  if (n < 1 || incx < 1) return 0;
  if (incx != 1) {
    const ptrdiff_t inc = incx;
    for (int i = 0; i < n; ++i)
      if (__builtin_fabs(x[i * inc]) == value) return i + 1;
    return 0;
  }
  const __m512d v = _mm512_set1_pd(value);
  int i = 0;
  // Elements i, one vector at a time.
  for (; i + W <= n; i += W) {
    const __mmask8 eq =
        _mm512_cmp_pd_mask(_mm512_abs_pd(_mm512_loadu_pd(x + i)), v, _CMP_EQ_OQ);
    if (eq != 0) return i + __builtin_ctz(eq) + 1;
  }
  if (i < n) {
    const __mmask8 tail = static_cast<__mmask8>((1u << (n - i)) - 1u);
    const __mmask8 eq = _mm512_mask_cmp_pd_mask(
        tail, _mm512_abs_pd(_mm512_maskz_loadu_pd(tail, x + i)), v, _CMP_EQ_OQ);
    if (eq != 0) return i + __builtin_ctz(eq) + 1;
  }
  return 0;
}

#endif

}  // namespace

// The entries of a branch. xidamax: the search and its NaN rule in one
// (kernels/<br>/xidamax.cpp of sse2 to sse42).
#define TARN_XIDAMAX_ENTRY(br)                                                              \
  extern "C" int tarn_blas_##br##_xidamax(const int* n, const double* x, const int* incx) { \
    return l1_xidamax(*n, x, *incx);                                                        \
  }

// avx and avx2: the search proper is the entry xidamax_nonan, and xidamax
// wraps it in the NaN rule (a NaN only shows in the Invalid flag it raises).
#define TARN_XIDAMAX_NONAN_ENTRY(br)                                                              \
  extern "C" int tarn_blas_##br##_xidamax_nonan(const int* n, const double* x, const int* incx) { \
    return l1_iamax_nonan(*n, x, *incx);                                                          \
  }
#define TARN_XIDAMAX_OVER_NONAN_ENTRY(br)                                                   \
  extern "C" int tarn_blas_##br##_xidamax(const int* n, const double* x, const int* incx) { \
    return l1_xidamax_nan_rule(*n, x, *incx, [](int nn, const double* xx, int inc) {        \
      return tarn_blas_##br##_xidamax_nonan(&nn, xx, &inc);                                 \
    });                                                                                     \
  }
