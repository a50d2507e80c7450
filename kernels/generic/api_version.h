// The generations of the interfaces a branch's kernels speak, answered by
// four extern "C" entries per branch. Only two numbers differ between
// branches, so kernels/<branch>/api_version.cpp names the branch's two
// generations and TARN_API_VERSIONS writes the entries.
#pragma once

#include "kernels/kernels.h"

namespace {

// GEMM service interface (dgemm_api_support): the kernel-table services or
// the descriptor-driven ones.
constexpr int kDgemmApiKernelTable = 1;
constexpr int kDgemmApiDescriptors = 4;

// Kernel set (get_kernel_api_version): decides which generation of the
// threaded GEMM and TRSM drivers runs.
constexpr int kKernelApiFirst = 1;
constexpr int kKernelApiSecond = 2;

// The two sub-interfaces (ikernel, bkernel): the same in every branch.
constexpr int kSubKernelApiVersion = 1;

}  // namespace

#define TARN_API_VERSIONS(br, dgemm_api_generation, kernel_api_generation)                       \
  extern "C" int tarn_blas_##br##_dgemm_api_support(void) { return dgemm_api_generation; }       \
  extern "C" int tarn_blas_##br##_get_kernel_api_version(void) { return kernel_api_generation; } \
  extern "C" int tarn_blas_##br##_get_ikernel_api_version(void) { return kSubKernelApiVersion; } \
  extern "C" int tarn_blas_##br##_get_bkernel_api_version(void) { return kSubKernelApiVersion; }
