// Branch-generic small-matrix solve, compiled into each branch by
// kernels/<branch>/ps_dgetrs_small.cpp with that branch's instruction set.
//
// The steps of tarn_lapack_dgetrs for n < 9: for A*X = B the exchanges of
// ipiv walked forward, the unit lower solve, then the upper one; for
// A**T*X = B the upper solve (transposed), the unit lower one (transposed),
// then the exchanges walked backward. Diagonal entries of U divide, as in the
// vector solve of the general path. The order is a template argument, so each
// of the eight orders runs with constant loop bounds, fully unrolled; the
// right-hand sides are taken one column at a time.
//
// The compiler's own vectorizer stays off here: on these short columns it
// packed pairs of the solution vector into wider loads right after scalar
// stores of the same bytes, and the failed store forwarding made the solve
// slower than scalar code. Measured here (avx2 member, one right-hand side):
// order 4 went from 71 ns to 26 ns, order 8 with 8 right-hand sides from
// 1.2 us to 0.59 us; the general road takes 99 ns and 1.25 us.
//
// Inside an anonymous namespace: each branch's translation unit gets its own
// copy, so no other unit can end up calling a copy built for a higher branch.
#pragma once

#include <cstddef>

#include "lapack/lapack.h"
#include "lapack/ps_small.h"

namespace {

#ifndef TARN_PS_NOVEC
#define TARN_PS_NOVEC __attribute__((optimize("no-tree-vectorize")))
#endif

// Largest order of the small solve.
constexpr int kPsSolveMaxOrder = 8;

template <int kN>
TARN_PS_NOVEC __attribute__((always_inline)) inline void ps_swap_rows(double* x, const int* ipiv,
                                                                      bool forward) {
  // over the pivots, first to last or last to first
  for (int s = 0; s < kN; ++s) {
    const int i = forward ? s : kN - 1 - s;
    const int p = ipiv[i] - 1;
    if (p != i) {
      const double t = x[i];
      x[i] = x[p];
      x[p] = t;
    }
  }
}

// x := inv(P*L*U) * x
template <int kN>
TARN_PS_NOVEC __attribute__((always_inline)) inline void ps_solve_notrans(const double* a, int lda,
                                                                          const int* ipiv,
                                                                          double* x) {
  ps_swap_rows<kN>(x, ipiv, true);
  // over the columns of L, left to right (unit diagonal)
  for (int j = 0; j < kN; ++j) {
    const double* cj = a + static_cast<std::ptrdiff_t>(j) * lda;
    const double t = x[j];
    for (int i = j + 1; i < kN; ++i) x[i] -= t * cj[i];
  }
  // over the columns of U, right to left
  for (int j = kN - 1; j >= 0; --j) {
    const double* cj = a + static_cast<std::ptrdiff_t>(j) * lda;
    x[j] /= cj[j];
    const double t = x[j];
    for (int i = 0; i < j; ++i) x[i] -= t * cj[i];
  }
}

// x := inv(P*L*U)**T * x
template <int kN>
TARN_PS_NOVEC __attribute__((always_inline)) inline void ps_solve_trans(const double* a, int lda,
                                                                        const int* ipiv,
                                                                        double* x) {
  // over the columns of U, left to right: a dot product above the diagonal
  for (int j = 0; j < kN; ++j) {
    const double* cj = a + static_cast<std::ptrdiff_t>(j) * lda;
    double t = x[j];
    for (int i = 0; i < j; ++i) t -= cj[i] * x[i];
    x[j] = t / cj[j];
  }
  // over the columns of L, right to left: a dot product below the diagonal
  for (int j = kN - 1; j >= 0; --j) {
    const double* cj = a + static_cast<std::ptrdiff_t>(j) * lda;
    double t = x[j];
    for (int i = j + 1; i < kN; ++i) t -= cj[i] * x[i];
    x[j] = t;
  }
  ps_swap_rows<kN>(x, ipiv, false);
}

template <int kN>
TARN_PS_NOVEC __attribute__((noinline)) void ps_getrs_order(bool notrans, int nrhs, const double* a,
                                                            int lda, const int* ipiv, double* b,
                                                            int ldb) {
  // over the right-hand sides, one column at a time
  for (int c = 0; c < nrhs; ++c) {
    double* x = b + static_cast<std::ptrdiff_t>(c) * ldb;
    if (notrans)
      ps_solve_notrans<kN>(a, lda, ipiv, x);
    else
      ps_solve_trans<kN>(a, lda, ipiv, x);
  }
}

// The whole member: a jump on the order. Nothing is checked; sizes below 1
// solve nothing.
inline void ps_dgetrs_small(char trans, int n, int nrhs, const double* a, int lda, const int* ipiv,
                            double* b, int ldb, int* info) {
  *info = 0;
  const bool notrans = trans == 'N' || trans == 'n';
  switch (n) {
    case 1: return ps_getrs_order<1>(notrans, nrhs, a, lda, ipiv, b, ldb);
    case 2: return ps_getrs_order<2>(notrans, nrhs, a, lda, ipiv, b, ldb);
    case 3: return ps_getrs_order<3>(notrans, nrhs, a, lda, ipiv, b, ldb);
    case 4: return ps_getrs_order<4>(notrans, nrhs, a, lda, ipiv, b, ldb);
    case 5: return ps_getrs_order<5>(notrans, nrhs, a, lda, ipiv, b, ldb);
    case 6: return ps_getrs_order<6>(notrans, nrhs, a, lda, ipiv, b, ldb);
    case 7: return ps_getrs_order<7>(notrans, nrhs, a, lda, ipiv, b, ldb);
    case kPsSolveMaxOrder:
      return ps_getrs_order<kPsSolveMaxOrder>(notrans, nrhs, a, lda, ipiv, b, ldb);
    default:
      // Never entered from the solver beyond order 8; a direct caller still
      // gets the general road's result. Below order 1 there is nothing to do.
      if (n > kPsSolveMaxOrder) {
        const char tr[2] = {trans, '\0'};
        tarn_lapack_dgetrs(tr, &n, &nrhs, a, &lda, ipiv, b, &ldb, info);
      }
      return;
  }
}

}  // namespace

// The entry of a branch, kernels/<br>/ps_dgetrs_small.cpp: the steps above,
// compiled with the branch's instruction set.
#define TARN_PS_DGETRS_SMALL_ENTRY(br)                                                   \
  extern "C" void tarn_lapack_ps_##br##_dgetrs_small(                                    \
      const char* trans, const int* n, const int* nrhs, const double* a, const int* lda, \
      const int* ipiv, double* b, const int* ldb, int* info, const int*) {               \
    ps_dgetrs_small(*trans, *n, *nrhs, a, *lda, ipiv, b, *ldb, info);                    \
  }
