// Public LAPACK names of the solver and the internal tarn_lapack_* routines
// behind them. Every argument is passed by reference, LAPACK fashion;
// integers are signed 32-bit; matrices are column-major with the leading
// dimension in elements. Character arguments are plain pointers to their
// first character: no hidden length arguments are passed or expected.
#pragma once

#include <cstdint>

extern "C" {

// ---- Public entry points: install callbacks, check, trace, call through ----

void DGETRF(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void DGETRS(const char* trans, const int* n, const int* nrhs, const double* a, const int* lda,
            const int* ipiv, double* b, const int* ldb, int* info);
int ILAENV(const int* ispec, const char* name, const char* opts, const int* n1, const int* n2,
           const int* n3, const int* n4);
double DLAMCH(const char* cmach);

// ---- Factorization ----

// Chooses the road for one matrix: small path, sequential recursive LU, or
// the parallel driver. info = -1002 marks an internal failure.
void tarn_lapack_dgetrf(const int* m, const int* n, double* a, const int* lda, int* ipiv,
                        int* info);

// Argument check of DGETRF: 0 when fine, 1 after reporting the fault
// through xerbla ("DGETRF", position) with info = -position.
int tarn_lapack_errchk_dgetrf(const int* m, const int* n, const double* a, const int* lda,
                              const int* ipiv, int* info);

// Fall-back of the parallel driver: tarn_lapack_dgetrf_local with a zero
// progress pair; info = -1002 if the progress callback stopped it.
// Returns 0, or 1 on such a stop.
int tarn_lapack_xdgetrf(const int* m, const int* n, double* a, const int* lda, int* ipiv,
                        int* info);

// Recursive right-looking blocked LU. The x form calls one-thread BLAS
// only; the plain form lets its BLAS calls go parallel. progress_thread and
// progress_step are handed to the progress callback (step advanced by the
// columns finished). Return 0, or 1 when the callback asked to stop.
int tarn_lapack_xdgetrf_local(const int* m, const int* n, double* a, const int* lda, int* ipiv,
                              int* info, const int* progress_thread, const int* progress_step);
int tarn_lapack_dgetrf_local(const int* m, const int* n, double* a, const int* lda, int* ipiv,
                             int* info, const int* progress_thread, const int* progress_step);

// Unblocked LU (left-looking by columns, row-wise for U), matrix-vector
// products only. A zero pivot sets info once and does not stop it.
void tarn_lapack_dgetf2(const int* m, const int* n, double* a, const int* lda, int* ipiv,
                        int* info);

// ---- Solve ----

void tarn_lapack_dgetrs(const char* trans, const int* n, const int* nrhs, const double* a,
                        const int* lda, const int* ipiv, double* b, const int* ldb, int* info);

// ---- Row interchanges ----

// Exchanges rows i <-> ipiv[i] for the pivots k1..k2 taken with step incx
// (incx < 0 walks backward and undoes the forward walk) on n columns of a.
// A pivot outside 1..lda reports xerbla("DLASWP", 6) and stops. The plain
// form may fork over columns; the x form runs on the caller's thread.
void tarn_lapack_dlaswp(const int* n, double* a, const int* lda, const int* k1, const int* k2,
                        const int* ipiv, const int* incx);
void tarn_lapack_xdlaswp(const int* n, double* a, const int* lda, const int* k1, const int* k2,
                         const int* ipiv, const int* incx);

// ---- Machine constants and tuning ----

// Stored machine constants by key (first character, any case); 0.0 for an
// unknown key.
double tarn_lapack_dlamch(const char* cmach);

// Block sizes and cross-over points, LAPACK ILAENV semantics; a name that
// begins with "CPU" answers the processor branch code.
int tarn_lapack_ilaenv(const int* ispec, const char* name, const char* opts, const int* n1,
                       const int* n2, const int* n3, const int* n4);

}  // extern "C"
