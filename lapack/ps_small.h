// The small-matrix path of the solver: LU and solve for tiny systems in
// straight-line code, without BLAS calls, threads, locks or heap memory.
// tarn_lapack_dgetrf enters it for max(m, n) <= 16, tarn_lapack_dgetrs for
// n < 9 and nrhs < 9. Each of the two names is a dispatching stub over one
// member per processor branch; the members compute the same thing, each in
// its branch's instruction set.
#pragma once

extern "C" {

// LU with partial pivoting of an m by n matrix, as tarn_lapack_dgetf2: the
// first element of largest magnitude is the pivot (the first NaN if there is
// one), rows are exchanged over all columns, a zero pivot sets info once and
// the elimination goes on. Shapes are not checked.
typedef void tarn_ps_dgetrf_small_fn(const int* m, const int* n, double* a, const int* lda,
                                     int* ipiv, int* info);

// Solve with the factors of the above, as tarn_lapack_dgetrs does: trans "N"
// (either case) solves A*X = B, anything else A**T*X = B. Nothing is checked;
// info is set to 0. `one` is always 1 from tarn_lapack_dgetrs and is not read.
typedef void tarn_ps_dgetrs_small_fn(const char* trans, const int* n, const int* nrhs,
                                     const double* a, const int* lda, const int* ipiv, double* b,
                                     const int* ldb, int* info, const int* one);

// The stubs: the branch's member is found at the first call and kept.
tarn_ps_dgetrf_small_fn tarn_lapack_ps_dgetrf_small;
tarn_ps_dgetrs_small_fn tarn_lapack_ps_dgetrs_small;

// The members, one per branch (codes 1 and 2 share sse2; the reproducible
// set of the BLAS dispatch has no member of its own here).
tarn_ps_dgetrf_small_fn tarn_lapack_ps_sse2_dgetrf_small, tarn_lapack_ps_ssse3_dgetrf_small,
    tarn_lapack_ps_sse42_dgetrf_small, tarn_lapack_ps_avx_dgetrf_small,
    tarn_lapack_ps_avx2_dgetrf_small, tarn_lapack_ps_avx512_dgetrf_small;
tarn_ps_dgetrs_small_fn tarn_lapack_ps_sse2_dgetrs_small, tarn_lapack_ps_ssse3_dgetrs_small,
    tarn_lapack_ps_sse42_dgetrs_small, tarn_lapack_ps_avx_dgetrs_small,
    tarn_lapack_ps_avx2_dgetrs_small, tarn_lapack_ps_avx512_dgetrs_small;

// What a stub's cell holds now: null before its first call, then the member
// it settled on. For tests and traces; it does not resolve anything.
tarn_ps_dgetrf_small_fn* tarn_lapack_ps_dgetrf_small_member(void);
tarn_ps_dgetrs_small_fn* tarn_lapack_ps_dgetrs_small_member(void);

}  // extern "C"

namespace tarn_ps_small {

// Thresholds at which the general routines hand over to this path.
constexpr int kDgetrfMaxOrder = 16;  // max(m, n) <= 16
constexpr int kDgetrsBelowN = 9;     // n < 9
constexpr int kDgetrsBelowNrhs = 9;  // nrhs < 9

// The member of a branch code, null for a code without one (0, 3, 8, 10
// and above).
tarn_ps_dgetrf_small_fn* dgetrf_member(int code);
tarn_ps_dgetrs_small_fn* dgetrs_member(int code);

// The branch code as a stub needs it: asks `detect`, and for a code without
// a member reports message 1213 with a second answer of `detect` and ends the
// process with status 1. Returns the code, or -1 if an installed exit
// handler came back.
int checked_code(int (*detect)());

}  // namespace tarn_ps_small
