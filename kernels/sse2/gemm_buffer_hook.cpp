// The pack-buffer allocator of the tuned GEMM of every branch (data only:
// no code of this file depends on the branch it is compiled for).
#include "kernels/gemm_desc.h"
#include "service/memory.h"

extern "C" {
void* (*tarn_blas_gemm_buffer_allocate)(size_t size, int alignment) = tarn_serv_allocate;
void (*tarn_blas_gemm_buffer_deallocate)(void* pointer) = tarn_serv_deallocate;
}
