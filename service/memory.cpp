// Interim form of the work-memory manager: every request takes the plain
// aligned path. The per-thread cache replaces it.
#include "service/memory.h"

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

extern "C" {

void* (*i_malloc)(size_t) = std::malloc;
void* (*i_calloc)(size_t, size_t) = std::calloc;
void* (*i_realloc)(void*, size_t) = std::realloc;
void (*i_free)(void*) = std::free;

namespace {
constexpr size_t kWords = 3 * sizeof(uintptr_t);
size_t fix_alignment(int a) {
  return (a >= 64 && (a & (a - 1)) == 0) ? static_cast<size_t>(a) : 64;
}
}  // namespace

void* tarn_serv_malloc(size_t size, int alignment) {
  const size_t al = fix_alignment(alignment);
  const size_t total = size + al + kWords;
  if (total < size) return nullptr;
  char* raw = static_cast<char*>(i_malloc(total));
  if (!raw) return nullptr;
  uintptr_t user = (reinterpret_cast<uintptr_t>(raw) + al + kWords) & ~(al - 1);
  uintptr_t* w = reinterpret_cast<uintptr_t*>(user);
  w[-3] = reinterpret_cast<uintptr_t>(raw);
  w[-2] = total;
  w[-1] = al;
  return reinterpret_cast<void*>(user);
}
void tarn_serv_free(void* p) {
  if (!p) return;
  uintptr_t* w = static_cast<uintptr_t*>(p);
  if (w[-3]) i_free(reinterpret_cast<void*>(w[-3]));
}
void* tarn_serv_calloc(size_t count, size_t size, int alignment) {
  void* p = tarn_serv_malloc(count * size, alignment);
  if (p) std::memset(p, 0, count * size);
  return p;
}
void* tarn_serv_realloc(void* p, size_t size) {
  if (!p) return tarn_serv_malloc(size, 64);
  if (size == 0) { tarn_serv_free(p); return nullptr; }
  void* q = tarn_serv_malloc(size, 64);
  if (!q) return nullptr;
  uintptr_t* w = static_cast<uintptr_t*>(p);
  size_t old = w[-2] - (reinterpret_cast<uintptr_t>(p) - w[-3]);
  std::memcpy(q, p, old < size ? old : size);
  tarn_serv_free(p);
  return q;
}
void* tarn_serv_allocate(size_t size, int alignment) {
  return size ? tarn_serv_malloc(size, alignment) : nullptr;
}
void tarn_serv_deallocate(void* p) { tarn_serv_free(p); }
int tarn_serv_free_buffers(void) { return 0; }
int tarn_serv_thread_free_buffers(void) { return 0; }
int tarn_serv_disable_fast_mm(void) { return 0; }
int tarn_serv_get_fast_mm_status(void) { return 1; }
int64_t tarn_serv_mem_stat(int* buffers) {
  if (!buffers) return 0;
  *buffers = 0;
  return 0;
}
int64_t tarn_serv_peak_mem_usage(int) { return -1; }
int tarn_serv_set_memory_limit(int, size_t) { return 0; }
int64_t tarn_serv_check_fast_memory_size(void) { return -1; }
void* tarn_serv_jit_alloc(size_t size) {
  size = (size + 4095) & ~size_t{4095};
  void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}
int tarn_serv_jit_set_exec(void* a, size_t len, int exec) {
  return mprotect(a, len, exec ? PROT_READ | PROT_EXEC : PROT_READ | PROT_WRITE) == 0;
}
void tarn_serv_jit_free(void* a, size_t size) {
  munmap(a, (size + 4095) & ~size_t{4095});
}

}  // extern "C"
