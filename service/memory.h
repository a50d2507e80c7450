// Work memory of the numerics: per-thread caches of five buffers for the
// large workspaces that every call asks for again (pack buffers, panel
// copies, pivot arrays), a plain aligned allocator beside them, accounting,
// optional high-bandwidth memory and pages for generated code.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

// Cached work buffer of the calling thread. Null for size 0 or on failure.
// The alignment is a power of two of at least 64; anything else counts as 64.
void* tarn_serv_allocate(size_t size, int alignment);
// Releases what tarn_serv_allocate gave, from any thread.
void tarn_serv_deallocate(void* pointer);

// Asks the kernel to back the whole 2 MiB pages inside [address, address +
// bytes) with huge pages; call it before the memory is first touched. The
// walks of the packed GEMM operands and of the solver's matrix otherwise miss
// the TLB on almost every column. Does nothing for ranges that hold no whole
// huge page, or where the kernel declines.
void tarn_serv_advise_huge_pages(void* address, size_t bytes);

// Plain aligned path: never cached, always counted.
void* tarn_serv_malloc(size_t size, int alignment);
void tarn_serv_free(void* pointer);
// Zeroes count * size bytes; the product is not checked for overflow.
void* tarn_serv_calloc(size_t count, size_t size, int alignment);
// Null pointer: tarn_serv_malloc(size, 64). Size 0: free, returns null.
// A block never shrinks.
void* tarn_serv_realloc(void* pointer, size_t size);

// All caches of all threads, when no buffer is busy anywhere. Returns 0.
int tarn_serv_free_buffers(void);
// The idle buffers of the calling thread. Returns 0.
int tarn_serv_thread_free_buffers(void);

// Switches the cache off: 1 if it took effect, 0 if the switches were read.
int tarn_serv_disable_fast_mm(void);
// 1 when the cache is off, reading the switches on first use.
int tarn_serv_get_fast_mm_status(void);

// Bytes held now; the number of blocks goes to *buffers. Null gives 0.
int64_t tarn_serv_mem_stat(int* buffers);
// 1 on (clears the peak), 0 off, 2 the peak, -1 the peak then reset to the
// present level; anything else, or a read while off, gives -1.
int64_t tarn_serv_peak_mem_usage(int mode);

// Type 1: fast-memory limit in mebibytes, stored once and only with
// memkind usable. 1 if a limit exists or was stored, else 0.
int tarn_serv_set_memory_limit(int type, size_t megabytes);
// Remaining bytes of fast memory: -1 no limit, 0 none at all.
int64_t tarn_serv_check_fast_memory_size(void);

// Pages for generated code: written while read-write, switched to
// read-execute before use, never both at once.
void* tarn_serv_jit_alloc(size_t size);
// exec non-zero: read and execute, else read and write. 1 on success.
int tarn_serv_jit_set_exec(void* address, size_t length, int exec);
void tarn_serv_jit_free(void* address, size_t size);

// Replaceable allocator of the library, statically the C library's. An
// application that replaces any of them before first use makes the manager
// call them directly, without block headers.
extern void* (*i_malloc)(size_t size);
extern void* (*i_calloc)(size_t count, size_t size);
extern void* (*i_realloc)(void* pointer, size_t size);
extern void (*i_free)(void* pointer);

}  // extern "C"
