// Declarations shared by the tuned one-thread DGEMM of every branch, whose
// entry points kernels/kernels.h declares: the throughput loops the
// benchmark measures them against, and the test hook for the work-buffer
// allocator.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/kernels.h"

extern "C" {

// Register-only loops at the branch's arithmetic limit: fused multiply-adds
// on avx2 and avx512, independent multiply and add pairs below. Each runs
// `rounds` rounds and returns the number of floating-point operations done.
double tarn_blas_sse2_peak_loop(int rounds);
double tarn_blas_cnr_sse2_peak_loop(int rounds);
double tarn_blas_ssse3_peak_loop(int rounds);
double tarn_blas_sse42_peak_loop(int rounds);
double tarn_blas_avx_peak_loop(int rounds);
double tarn_blas_avx2_peak_loop(int rounds);
double tarn_blas_avx512_peak_loop(int rounds);

// Where the tuned GEMM of every branch takes its pack buffers: the cached
// per-thread allocator and its release. Tests point these elsewhere to see
// the fallback taken when memory cannot be had; nothing else changes them.
extern void* (*tarn_blas_gemm_buffer_allocate)(size_t size, int alignment);
extern void (*tarn_blas_gemm_buffer_deallocate)(void* pointer);

}  // extern "C"
