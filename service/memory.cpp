// Work memory of the numerics.
//
// The kernels ask on every call, on every thread, for the same few large
// workspaces. Each thread therefore keeps a table of five buffers; a released
// buffer stays with its thread, page-warm, and answers the next request of
// the same or a smaller size. There are no size classes: what does not fit the
// table (too large, a sixth live buffer, cache switched off) goes to a plain
// aligned allocator. A long factorization with constant blocks thus allocates
// nothing after its first call.
//
// Thread records are found through a book of slot tables indexed by a small
// per-thread id kept in a thread-local key. Ids 1 to 1024 each own a spin
// lock in a cache line of their own, so the hot path touches no shared line;
// other ids share the book lock as readers. Whole-book operations (thread
// exit, release of all caches, statistics) take the book lock as writer and
// then every slot lock in ascending order.
//
// Lock order: whole book (book lock, then slot locks ascending), then
// mm_vector_lock, then mm_fast_memory_update_limit_lock, mem_stat_lock and
// gc_stat_lock. The start lock and the key-record locks are only ever taken
// with none of these held.
#include "service/memory.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "service/cpu.h"
#include "service/messages.h"
#include "service/strings.h"
#include "service/verbose.h"

extern "C" {

// Public, replaceable before first use; see service/memory.h.
void* (*i_malloc)(size_t size) = std::malloc;
void* (*i_calloc)(size_t count, size_t size) = std::calloc;
void* (*i_realloc)(void* pointer, size_t size) = std::realloc;
void (*i_free)(void* pointer) = std::free;

}  // extern "C"

namespace {

// ---- Constants --------------------------------------------------------------

constexpr int kEntries = 5;                 // buffers in a thread's table
constexpr size_t kCacheSizeLimit = 0x2800000;  // 40 MiB: larger requests bypass the cache
constexpr size_t kMinAlignment = 64;
constexpr int kSlotIds = 1024;              // ids with a slot lock of their own
constexpr int kLevels = 22;                 // slot tables: table 0, then 2^10 .. 2^21
constexpr int kFirstHighLevel = 10;         // log2 of kSlotIds
constexpr size_t kSlotBytes = 64;
constexpr size_t kPageBytes = 4096;
constexpr size_t kHugePageBytes = 0x200000;
// Blocks from this size on are advised to huge pages: they hold at least one
// whole huge page wherever the allocator puts them.
constexpr size_t kHugePageAdviceBytes = 2 * kHugePageBytes;
constexpr size_t kTable0AllocBytes = 0x11000;  // 1024 slots plus room to align to a page
constexpr size_t kTable0ZeroBytes = 0x10000;
constexpr size_t kHighTableSlack = 8191;
constexpr int kSlotGap = 60;                // slot stride less 4, kept in the book

// Flags of mm_account_ptr_by_tid.
constexpr int kFlagCreate = 1;     // issue an id and a record if missing
constexpr int kFlagWholeBook = 2;  // exclude every other thread
constexpr int kFlagNoGrow = 4;     // do not create slot tables

constexpr int kEnvBufferBytes = 32;
constexpr int kDecimal = 10;
constexpr int kMebibyteShift = 20;

// memkind: mode 257 is RTLD_LAZY | RTLD_GLOBAL, page kinds as memkind numbers them.
constexpr int kDlopenMode = RTLD_LAZY | RTLD_GLOBAL;
static_assert(kDlopenMode == 257);
constexpr int kHbwPage4K = 1;
constexpr int kHbwPage2M = 2;
constexpr int kMemkindMinVersion = 1001000;  // 1.1.0
constexpr const char kMemkindName[] = "libmemkind.so";
constexpr const char kMemkindTooOld[] = "Minimal supported version of the memkind library is 1.1.0";

// Feature bits needed before memkind is even looked for: AVX512F in the low
// word, AVX512ER, AVX512PF and AVX512CD as bits 0 to 2 of the high word.
constexpr uint64_t kFeatureAvx512F = uint64_t{1} << 27;
constexpr uint64_t kFeatureErPfCd = uint64_t{7} << 32;

// ---- Records ----------------------------------------------------------------

// Header in front of every block of mm_internal_malloc.
struct BlockHeader {
  uintptr_t base;       // pointer as the allocator returned it
  uintptr_t fast;       // 1 from fast memory, 0 from malloc
  uintptr_t total;      // bytes, header included
  uintptr_t page_size;  // kHugePageBytes or kPageBytes
};
constexpr size_t kHeaderBytes = sizeof(BlockHeader);

// Words right below a pointer of tarn_serv_malloc: raw pointer, total
// requested from the allocator, alignment.
constexpr size_t kPlainWords = 3;
constexpr size_t kPlainHeaderBytes = kPlainWords * sizeof(uintptr_t);

// One thread's cache. Written by its owner under its slot lock; `busy` and
// `user` are also read by any thread that releases a buffer of it, and
// `busy` cleared by that thread (a handed-out buffer has one owner, so the
// two sides never write the same entry at once).
struct ThreadRecord {
  uintptr_t raw[kEntries];     // the block as allocated
  uintptr_t user[kEntries];    // the aligned address handed out
  size_t requested[kEntries];  // size asked for last
  size_t capacity[kEntries];   // requested size plus alignment when allocated
  int busy[kEntries];          // 1 while handed out
  int count;                   // entries in use of the table
  int plain_blocks;            // live plain and JIT blocks of this thread
  intptr_t plain_bytes;        // their bytes (signed: a block may be freed elsewhere)
  int orphaned;                // the owner ended while a buffer was busy
};
static_assert(sizeof(void*) != 4 || sizeof(ThreadRecord) == 116);

struct alignas(kSlotBytes) Slot {
  volatile int tid;              // id under which the current holder entered
  ThreadRecord* volatile record;
};
static_assert(sizeof(Slot) == kSlotBytes);

struct alignas(64) LockLine {
  volatile int word;
};

// Writers: ids are issued with an atomic increment; `level` grows under
// mm_vector_lock; `epoch`, `tid_count` reset and table frees happen only
// under the whole book. Readers hold a slot lock or a reader share.
struct alignas(64) MmBook {
  int slot_gap;
  volatile int epoch;
  volatile int tid_count;
  Slot* volatile level[kLevels];
  alignas(64) volatile int book_lock;  // bit 0 writer, readers count in steps of 2
  LockLine slot_lock[kSlotIds];        // index id - 1
};

MmBook mm_book = {kSlotGap, 0, 0, {}, 0, {}};
volatile int mm_vector_lock = 0;

// Thread-local keys: the thread's id, with the exit callback, and the epoch
// in which it was issued.
struct MmKey {
  tarn_tls_key_t tls;  // first, so that tarn_tls_destroy can take the record
  void (*destructor)(void*);
  volatile int lock;
};
void mm_cleanup_thread_cbk(void* value);
MmKey mm_tid = {{}, mm_cleanup_thread_cbk, 0};
MmKey mm_tepoch = {{}, nullptr, 0};

// Allocator chosen at start.
using AllocFn = void* (*)(size_t);
using ReallocFn = void* (*)(void*, size_t);
using FreeFn = void (*)(void*);
void* mm_internal_malloc(size_t size);
void* mm_internal_realloc(void* pointer, size_t size);
void mm_internal_free(void* pointer);
AllocFn sys_alloc = mm_internal_malloc;
ReallocFn sys_realloc = mm_internal_realloc;
FreeFn sys_free = mm_internal_free;
AllocFn sys_allocate = mm_internal_malloc;
FreeFn sys_deallocate = mm_internal_free;

// Statistics: (bytes, blocks).
struct MemPair {
  int64_t bytes;
  int64_t blocks;
};
MemPair current_stat = {0, 0};
MemPair max_stat = {0, 0};
MemPair gc_stat = {0, 0};  // left behind by records that were freed
volatile int mem_stat_lock = 0;
volatile int gc_stat_lock = 0;
volatile int enable_global_stat = -1;

// Switches and fast memory.
volatile int mm_start_lock = 0;
volatile int disable_fast_mm = -1;
volatile int env_has_been_cached = -1;
volatile int mm_fast_memory_initialized = -1;
// Bytes left; -1 no limit, 0 none. A word of the address's width, as the
// sizes it is weighed against.
volatile intptr_t mm_fast_memory_limit = -1;
volatile int mm_fast_memory_update_limit_lock = 0;

using HbwMemalignFn = int (*)(void**, size_t, size_t, int);
using HbwFreeFn = void (*)(void*);
using MemkindVersionFn = int (*)();
void* mm_memkind_handle = nullptr;
HbwMemalignFn hbw_posix_memalign_psize = nullptr;
HbwFreeFn hbw_free = nullptr;

// Directories searched for memkind before the bare name. A loader that this
// system does not exercise fills them; empty means not known.
char mm_library_dir[4096] = "";
char mm_executable_dir[4096] = "";

// ---- Small helpers ----------------------------------------------------------

template <class T>
T load(const volatile T& word) {
  return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}
template <class T>
void store(volatile T& word, T value) {
  __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}
template <class T>
T load(const T& word) {
  return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}
template <class T>
void store(T& word, T value) {
  __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

inline void cpu_relax() { __builtin_ia32_pause(); }

size_t mm_alignment(int alignment) {
  if (alignment < static_cast<int>(kMinAlignment) || (alignment & (alignment - 1)) != 0)
    return kMinAlignment;
  return static_cast<size_t>(alignment);
}

int floor_log2(unsigned v) { return 31 - __builtin_clz(v); }

// The fast-memory limit in bytes, shifted in the address's width: 4096 MiB
// and more wrap in the i386 build, as its address space does.
intptr_t mm_mebibytes_to_bytes(size_t mebibytes) {
  return static_cast<intptr_t>(static_cast<uintptr_t>(mebibytes) << kMebibyteShift);
}

// ---- Statistics -------------------------------------------------------------

void mm_stat_change(int64_t bytes, int64_t blocks) {
  if (load(enable_global_stat) != 1) return;
  tarn_serv_lock(&mem_stat_lock);
  current_stat.bytes += bytes;
  current_stat.blocks += blocks;
  if (current_stat.bytes > max_stat.bytes) max_stat = current_stat;
  tarn_serv_unlock(&mem_stat_lock);
}

// Moves what a record counts of plain blocks to gc_stat.
void mm_move_to_gc(ThreadRecord* r) {
  tarn_serv_lock(&gc_stat_lock);
  gc_stat.bytes += r->plain_bytes;
  gc_stat.blocks += r->plain_blocks;
  tarn_serv_unlock(&gc_stat_lock);
  r->plain_bytes = 0;
  r->plain_blocks = 0;
}

// ---- Raw allocator with block header ----------------------------------------

// Fast memory in huge pages, else in small ones; 1 on success.
uintptr_t mm_fast_block(void** block, size_t total, uintptr_t* page) {
  constexpr struct {
    size_t bytes;
    int kind;
  } kTries[] = {{kHugePageBytes, kHbwPage2M}, {kPageBytes, kHbwPage4K}};
  for (const auto& t : kTries) {
    void* p = nullptr;
    if (hbw_posix_memalign_psize(&p, t.bytes, total, t.kind) == 0 && p) {
      *block = p;
      *page = t.bytes;
      return 1;
    }
  }
  return 0;
}

void* mm_internal_malloc(size_t size) {
  const size_t total = size + kHeaderBytes;
  if (total < size) return nullptr;
  void* block = nullptr;
  uintptr_t fast = 0;
  uintptr_t page = kPageBytes;
  const intptr_t limit = load(mm_fast_memory_limit);
  bool limit_locked = false;
  if (load(mm_fast_memory_initialized) == 1 && limit != 0) {
    bool allowed = true;
    if (limit != -1) {
      tarn_serv_lock(&mm_fast_memory_update_limit_lock);
      limit_locked = true;
      allowed = static_cast<int64_t>(mm_fast_memory_limit) > static_cast<int64_t>(total);
    }
    if (allowed) fast = mm_fast_block(&block, total, &page);
  }
  if (!block) {
    block = std::malloc(total);
    if (block && total >= kHugePageAdviceBytes) tarn_serv_advise_huge_pages(block, total);
  }
  if (fast && limit_locked)
    mm_fast_memory_limit = mm_fast_memory_limit - static_cast<intptr_t>(total);
  if (limit_locked) tarn_serv_unlock(&mm_fast_memory_update_limit_lock);
  if (!block) return nullptr;
  BlockHeader* h = static_cast<BlockHeader*>(block);
  h->base = reinterpret_cast<uintptr_t>(block);
  h->fast = fast;
  h->total = total;
  h->page_size = page;
  return h + 1;
}

void mm_internal_free(void* pointer) {
  if (!pointer) return;
  BlockHeader* h = static_cast<BlockHeader*>(pointer) - 1;
  if (!h->base) return;
  void* base = reinterpret_cast<void*>(h->base);
  if (h->fast) {
    if (load(mm_fast_memory_limit) != -1) {
      tarn_serv_lock(&mm_fast_memory_update_limit_lock);
      mm_fast_memory_limit = mm_fast_memory_limit + static_cast<intptr_t>(h->total);
      tarn_serv_unlock(&mm_fast_memory_update_limit_lock);
    }
    hbw_free(base);
  } else {
    std::free(base);
  }
}

void* mm_internal_realloc(void* pointer, size_t size) {
  if (!pointer) return mm_internal_malloc(size);
  if (size == 0) {
    mm_internal_free(pointer);
    return nullptr;
  }
  void* fresh = mm_internal_malloc(size);
  if (!fresh) return nullptr;
  const BlockHeader* h = static_cast<BlockHeader*>(pointer) - 1;
  const size_t old_bytes = h->total - kHeaderBytes;
  std::memcpy(fresh, pointer, old_bytes < size ? old_bytes : size);
  mm_internal_free(pointer);
  return fresh;
}

// ---- Start sequence ---------------------------------------------------------

void* mm_open_library(const char* name) {
  if (!std::strchr(name, '/')) {
    char path[sizeof mm_library_dir + 64];
    if (mm_library_dir[0]) {
      std::snprintf(path, sizeof path, "%s/%s", mm_library_dir, name);
      if (void* h = dlopen(path, kDlopenMode)) return h;
    }
    if (mm_executable_dir[0] && std::strcmp(mm_executable_dir, mm_library_dir) != 0) {
      std::snprintf(path, sizeof path, "%s/%s", mm_executable_dir, name);
      if (void* h = dlopen(path, kDlopenMode)) return h;
    }
  }
  return dlopen(name, kDlopenMode);
}

// 1 when high-bandwidth memory can be had through memkind.
int mm_fast_memory_available() {
  const uint64_t features = tarn_serv_get_feature_word();
  if (!(features & kFeatureAvx512F) || (features & kFeatureErPfCd) != kFeatureErPfCd) return 0;
  // A statically linked C library cannot load shared objects.
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(&std::printf), &info)) return 0;
  void* handle = mm_open_library(kMemkindName);
  if (!handle) return 0;
  auto version = reinterpret_cast<MemkindVersionFn>(dlsym(handle, "memkind_get_version"));
  if (!version || version() < kMemkindMinVersion) {
    dlclose(handle);
    if (*tarn_serv_verbose_mode() == 1) tarn_serv_format_print(1, "%s\n", 1, kMemkindTooOld);
    return 0;
  }
  auto memalign = reinterpret_cast<HbwMemalignFn>(dlsym(handle, "hbw_posix_memalign_psize"));
  auto release = reinterpret_cast<HbwFreeFn>(dlsym(handle, "hbw_free"));
  if (!memalign || !release) {
    dlclose(handle);
    return 0;
  }
  mm_memkind_handle = handle;
  hbw_posix_memalign_psize = memalign;
  hbw_free = release;
  return 1;
}

void mm_read_switches() {
  char buffer[kEnvBufferBytes];
  if (disable_fast_mm != 1)
    disable_fast_mm = tarn_serv_getenv("TARN_DISABLE_FAST_MM", buffer, kEnvBufferBytes) != 0 ? 1 : 0;
  if (tarn_serv_getenv("TARN_FAST_MEMORY_LIMIT", buffer, kEnvBufferBytes) > 0) {
    const int32_t mebibytes = tarn_serv_strtol_as_long32(buffer, nullptr, kDecimal);
    mm_fast_memory_limit =
        mebibytes < 0 ? -1 : mm_mebibytes_to_bytes(static_cast<uint32_t>(mebibytes));
  }
}

void mm_choose_allocator() {
  const bool library = i_malloc == std::malloc && i_calloc == std::calloc &&
                       i_realloc == std::realloc && i_free == std::free;
  if (library) {
    sys_alloc = sys_allocate = mm_internal_malloc;
    sys_realloc = mm_internal_realloc;
    sys_free = sys_deallocate = mm_internal_free;
  } else {
    sys_alloc = sys_allocate = i_malloc;
    sys_realloc = i_realloc;
    sys_free = sys_deallocate = i_free;
  }
}

// Every public entry begins here.
void mm_start() {
  if (load(env_has_been_cached) == 1) return;
  tarn_serv_lock(&mm_start_lock);
  if (env_has_been_cached != 1) {
    mm_read_switches();
    store(mm_fast_memory_initialized, mm_fast_memory_available());
    mm_choose_allocator();
    store(env_has_been_cached, 1);
  }
  tarn_serv_unlock(&mm_start_lock);
}

// ---- Thread keys ------------------------------------------------------------

void mm_key_ensure(MmKey& k) {
  if (load(k.tls.flags) & 1) return;
  tarn_serv_lock(&k.lock);
  if (!(k.tls.flags & 1)) {
    if (pthread_key_create(&k.tls.key, k.destructor) == 0) {
      store(k.tls.flags, 1);
      tarn_serv_core_register_cleanup(tarn_tls_destroy, &k.tls);
    }
  }
  tarn_serv_unlock(&k.lock);
}

// The calling thread's id and epoch; id 0 when it has none. The id key is
// created first so that at thread exit, when keys are cleared in the order
// of creation, the epoch is still readable in the id's destructor.
void mm_thread_ids(int* tid, int* epoch) {
  mm_key_ensure(mm_tid);
  mm_key_ensure(mm_tepoch);
  *tid = (load(mm_tid.tls.flags) & 1)
             ? static_cast<int>(reinterpret_cast<intptr_t>(pthread_getspecific(mm_tid.tls.key)))
             : 0;
  *epoch = (load(mm_tepoch.tls.flags) & 1) ? static_cast<int>(reinterpret_cast<intptr_t>(
                                                 pthread_getspecific(mm_tepoch.tls.key)))
                                           : 0;
}

// ---- The book ---------------------------------------------------------------

void mm_book_read_lock() {
  __atomic_fetch_add(&mm_book.book_lock, 2, __ATOMIC_ACQ_REL);
  while (load(mm_book.book_lock) & 1) cpu_relax();
}
void mm_book_read_unlock() { __atomic_fetch_sub(&mm_book.book_lock, 2, __ATOMIC_RELEASE); }

void mm_book_take_whole() {
  for (;;) {
    int expected = 0;
    if (__atomic_compare_exchange_n(&mm_book.book_lock, &expected, 1, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE))
      break;
    cpu_relax();
  }
  // Wait for every holder of a slot lock, in ascending order.
  for (int i = 0; i < kSlotIds; ++i) tarn_serv_lock(&mm_book.slot_lock[i].word);
}

void mm_book_release_whole() {
  for (int i = 0; i < kSlotIds; ++i) tarn_serv_unlock(&mm_book.slot_lock[i].word);
  __atomic_fetch_sub(&mm_book.book_lock, 1, __ATOMIC_RELEASE);
}

// Drops the lock taken for `tid` by the non-whole paths.
void mm_release_id(int tid) {
  if (tid >= 1 && tid <= kSlotIds)
    tarn_serv_unlock(&mm_book.slot_lock[tid - 1].word);
  else
    mm_book_read_unlock();
}
void mm_release_slot(Slot* slot) { mm_release_id(slot->tid); }

// Slot tables are page aligned; the allocator's pointer sits in the word
// below the aligned address.
Slot* mm_table_create(int level) {
  size_t alloc_bytes, zero_bytes;
  if (level == 0) {
    alloc_bytes = kTable0AllocBytes;
    zero_bytes = kTable0ZeroBytes;
  } else {
    zero_bytes = (size_t{1} << level) * kSlotBytes;
    alloc_bytes = (zero_bytes + kHighTableSlack) & ~(kPageBytes - 1);
  }
  void* raw = sys_alloc(alloc_bytes);
  if (!raw) return nullptr;
  const uintptr_t aligned =
      (reinterpret_cast<uintptr_t>(raw) + sizeof(void*) + kPageBytes - 1) & ~(kPageBytes - 1);
  reinterpret_cast<void**>(aligned)[-1] = raw;
  std::memset(reinterpret_cast<void*>(aligned), 0, zero_bytes);
  return reinterpret_cast<Slot*>(aligned);
}

void mm_table_free(Slot* table) {
  if (table) sys_free(reinterpret_cast<void**>(table)[-1]);
}

// The slot of `id`, or null if its table is missing and may not be grown.
Slot* mm_slot_of(int id, bool grow) {
  if (id < 1) return nullptr;
  int level = 0;
  int first = 1;
  if (id > kSlotIds) {
    level = floor_log2(static_cast<unsigned>(id - 1));
    if (level >= kLevels) return nullptr;
    first = (1 << level) + 1;
  }
  Slot* table = load(mm_book.level[level]);
  if (!table) {
    if (!grow) return nullptr;
    tarn_serv_lock(&mm_vector_lock);
    table = mm_book.level[level];
    if (!table) {
      table = mm_table_create(level);
      store(mm_book.level[level], table);
    }
    tarn_serv_unlock(&mm_vector_lock);
    if (!table) return nullptr;
  }
  return table + (id - first);
}

// Finds (and with kFlagCreate makes) the calling thread's slot and leaves it
// locked; null when there is none, with nothing left locked. The slot's word
// 0 records the incoming id, whose lock the release step drops, even when a
// new id was issued on the way.
Slot* mm_account_ptr_by_tid(int tid, int epoch, int flags) {
  const bool whole = (flags & kFlagWholeBook) != 0;
  bool valid;
  if (whole) {
    mm_book_take_whole();
    valid = tid != 0 && epoch == mm_book.epoch;
  } else if (tid < 1 || tid > kSlotIds) {
    mm_book_read_lock();
    valid = tid != 0 && epoch == load(mm_book.epoch);
  } else {
    tarn_serv_lock(&mm_book.slot_lock[tid - 1].word);
    valid = epoch == load(mm_book.epoch);
  }
  auto give_up = [&]() -> Slot* {
    if (whole)
      mm_book_release_whole();
    else
      mm_release_id(tid);
    return nullptr;
  };
  int id = tid;
  if (!valid) {
    if (!(flags & kFlagCreate)) return give_up();
    id = __atomic_fetch_add(&mm_book.tid_count, 1, __ATOMIC_ACQ_REL) + 1;
    const int now = load(mm_book.epoch);
    pthread_setspecific(mm_tid.tls.key, reinterpret_cast<void*>(static_cast<intptr_t>(id)));
    pthread_setspecific(mm_tepoch.tls.key, reinterpret_cast<void*>(static_cast<intptr_t>(now)));
  }
  if (id > load(mm_book.tid_count)) return give_up();
  Slot* slot = mm_slot_of(id, !(flags & kFlagNoGrow));
  if (!slot) return give_up();
  slot->tid = tid;
  if ((flags & kFlagCreate) && !slot->record) {
    void* r = sys_alloc(sizeof(ThreadRecord));
    if (r) std::memset(r, 0, sizeof(ThreadRecord));
    store(slot->record, static_cast<ThreadRecord*>(r));
  }
  return slot;
}

// The caller's record, locked, for the accounting of the plain path; null
// (nothing locked) when the thread has none.
Slot* mm_own_slot() {
  int tid, epoch;
  mm_thread_ids(&tid, &epoch);
  if (tid == 0) return nullptr;
  Slot* slot = mm_account_ptr_by_tid(tid, epoch, 0);
  if (slot && !slot->record) {
    mm_release_slot(slot);
    return nullptr;
  }
  return slot;
}

void mm_count_plain(int blocks, intptr_t bytes) {
  if (Slot* slot = mm_own_slot()) {
    slot->record->plain_blocks += blocks;
    slot->record->plain_bytes += bytes;
    mm_release_slot(slot);
  }
  mm_stat_change(bytes, blocks);
}

// ---- Entries of a record ----------------------------------------------------

bool mm_entry_fill(ThreadRecord* r, int i, size_t need) {
  void* raw = sys_allocate(need);
  if (!raw) return false;
  store(r->user[i], uintptr_t{0});
  r->raw[i] = reinterpret_cast<uintptr_t>(raw);
  r->capacity[i] = need;
  r->requested[i] = 0;
  store(r->busy[i], 0);
  mm_stat_change(static_cast<int64_t>(need), 1);
  return true;
}

void mm_entry_drop(ThreadRecord* r, int i) {
  if (r->raw[i]) {
    mm_stat_change(-static_cast<int64_t>(r->capacity[i]), -1);
    sys_deallocate(reinterpret_cast<void*>(r->raw[i]));
  }
  store(r->user[i], uintptr_t{0});
  store(r->busy[i], 0);
  r->raw[i] = 0;
  r->capacity[i] = 0;
  r->requested[i] = 0;
}

// Frees the idle entries; true if one is still busy.
bool mm_record_drop_idle(ThreadRecord* r) {
  bool busy = false;
  for (int i = 0; i < r->count; ++i) {
    if (!r->raw[i]) continue;
    if (load(r->busy[i]))
      busy = true;
    else
      mm_entry_drop(r, i);
  }
  return busy;
}

// Clears the busy entry that handed out `pointer`; false if none did.
bool mm_record_release(ThreadRecord* r, uintptr_t pointer) {
  for (int i = 0; i < kEntries; ++i) {
    if (load(r->busy[i]) && load(r->user[i]) == pointer) {
      store(r->busy[i], 0);
      return true;
    }
  }
  return false;
}

// The orphaned record of `id` lost a busy buffer: free what is idle, and the
// record itself once nothing is busy.
void mm_reclaim_orphan(int id, ThreadRecord* r) {
  mm_book_take_whole();
  Slot* slot = mm_slot_of(id, false);
  if (slot && slot->record == r && r->orphaned && !mm_record_drop_idle(r)) {
    mm_move_to_gc(r);
    sys_free(r);
    store(slot->record, static_cast<ThreadRecord*>(nullptr));
  }
  mm_book_release_whole();
}

// Destructor of mm_tid: ends the thread's cache.
void mm_cleanup_thread_cbk(void* value) {
  const int tid = static_cast<int>(reinterpret_cast<intptr_t>(value));
  mm_start();
  const int epoch = (load(mm_tepoch.tls.flags) & 1)
                        ? static_cast<int>(reinterpret_cast<intptr_t>(
                              pthread_getspecific(mm_tepoch.tls.key)))
                        : 0;
  Slot* slot = mm_account_ptr_by_tid(tid, epoch, kFlagWholeBook | kFlagNoGrow);
  if (!slot) return;
  if (ThreadRecord* r = slot->record) {
    const bool busy = mm_record_drop_idle(r);
    mm_move_to_gc(r);
    if (busy) {
      store(r->orphaned, 1);
    } else {
      r->count = 0;
      sys_free(r);
      store(slot->record, static_cast<ThreadRecord*>(nullptr));
    }
  }
  mm_book_release_whole();
}

}  // namespace

// ---- Public entries ---------------------------------------------------------

extern "C" {

void* tarn_serv_allocate(size_t size, int alignment) {
  if (size == 0) return nullptr;
  mm_start();
  if (load(disable_fast_mm) == 1 || size > kCacheSizeLimit) return tarn_serv_malloc(size, alignment);
  const size_t align = mm_alignment(alignment);
  int tid, epoch;
  mm_thread_ids(&tid, &epoch);
  Slot* slot = mm_account_ptr_by_tid(tid, epoch, kFlagCreate);
  if (!slot) return tarn_serv_malloc(size, alignment);
  ThreadRecord* r = slot->record;
  if (!r) {
    mm_release_slot(slot);
    return tarn_serv_malloc(size, alignment);
  }
  const size_t need = size + align;

  // Exact fit at once; else the smallest larger entry (first of equals);
  // remember the first smaller one for replacement.
  int exact = -1, larger = -1, smaller = -1;
  for (int i = 0; i < r->count; ++i) {
    if (load(r->busy[i])) continue;
    if (r->capacity[i] == need) {
      exact = i;
      break;
    }
    if (r->capacity[i] > need) {
      if (larger < 0 || r->capacity[i] < r->capacity[larger]) larger = i;
    } else if (smaller < 0) {
      smaller = i;
    }
  }
  int take = exact >= 0 ? exact : larger;
  if (take < 0) {
    if (r->count < kEntries) {
      take = r->count;
      if (!mm_entry_fill(r, take, need)) {
        mm_release_slot(slot);
        return nullptr;
      }
      ++r->count;
    } else if (smaller >= 0) {
      take = smaller;
      mm_entry_drop(r, take);
      if (!mm_entry_fill(r, take, need)) {
        mm_release_slot(slot);
        return nullptr;
      }
    } else {
      // All five are busy: a full table never fails a request.
      mm_release_slot(slot);
      return tarn_serv_malloc(size, alignment);
    }
  }
  // A reused entry keeps its capacity: a larger buffer answers a smaller
  // request without shrinking.
  r->requested[take] = size;
  const uintptr_t raw = r->raw[take];
  const uintptr_t user = raw % align == 0 ? raw : raw + align - raw % align;
  store(r->user[take], user);
  store(r->busy[take], 1);
  mm_release_slot(slot);
  return reinterpret_cast<void*>(user);
}

void tarn_serv_deallocate(void* pointer) {
  if (!pointer) return;
  mm_start();
  if (load(disable_fast_mm) == 1) {
    tarn_serv_free(pointer);
    return;
  }
  const uintptr_t p = reinterpret_cast<uintptr_t>(pointer);
  int tid, epoch;
  mm_thread_ids(&tid, &epoch);
  Slot* own = mm_account_ptr_by_tid(tid, epoch, 0);
  // Without a slot of its own the caller still holds a reader share while
  // it scans, so that no table or record disappears under it.
  if (!own) mm_book_read_lock();
  auto release = [&]() {
    if (own)
      mm_release_slot(own);
    else
      mm_book_read_unlock();
  };
  ThreadRecord* own_record = own ? own->record : nullptr;
  if (own_record && mm_record_release(own_record, p)) {
    release();
    return;
  }
  // A buffer of another thread: table 0 in order, then the higher tables.
  int found_id = 0;
  ThreadRecord* found = nullptr;
  const int ids = load(mm_book.tid_count);
  for (int id = 1; id <= ids; ++id) {
    Slot* slot = mm_slot_of(id, false);
    if (!slot) continue;
    ThreadRecord* r = load(slot->record);
    if (r && r != own_record && mm_record_release(r, p)) {
      found = r;
      found_id = id;
      break;
    }
  }
  const bool orphan = found && load(found->orphaned);
  release();
  if (!found) {
    // A plain-path fallback of tarn_serv_allocate comes back this way.
    tarn_serv_free(pointer);
    return;
  }
  if (orphan) mm_reclaim_orphan(found_id, found);
}

void tarn_serv_advise_huge_pages(void* address, size_t bytes) {
  const uintptr_t start = reinterpret_cast<uintptr_t>(address);
  const uintptr_t first = (start + kHugePageBytes - 1) & ~uintptr_t{kHugePageBytes - 1};
  const uintptr_t end = (start + bytes) & ~uintptr_t{kHugePageBytes - 1};
  if (end <= first || first < start) return;
  // Advice only: a kernel without transparent huge pages refuses it, and the
  // block works the same on small pages.
  (void)madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

void* tarn_serv_malloc(size_t size, int alignment) {
  mm_start();
  const size_t align = mm_alignment(alignment);
  const size_t total = size + align + kPlainHeaderBytes;
  if (total < size) return nullptr;
  void* raw = sys_alloc(total);
  if (!raw) return nullptr;
  const uintptr_t user =
      (reinterpret_cast<uintptr_t>(raw) + align + kPlainHeaderBytes) & ~(uintptr_t{align} - 1);
  uintptr_t* words = reinterpret_cast<uintptr_t*>(user);
  words[-3] = reinterpret_cast<uintptr_t>(raw);
  words[-2] = total;
  words[-1] = align;
  mm_count_plain(1, static_cast<intptr_t>(total));
  return reinterpret_cast<void*>(user);
}

void tarn_serv_free(void* pointer) {
  if (!pointer) return;
  mm_start();
  uintptr_t* words = static_cast<uintptr_t*>(pointer);
  if (!words[-3]) return;
  const intptr_t total = static_cast<intptr_t>(words[-2]);
  sys_free(reinterpret_cast<void*>(words[-3]));
  mm_count_plain(-1, -total);
}

void* tarn_serv_calloc(size_t count, size_t size, int alignment) {
  const size_t bytes = count * size;  // no overflow test, as documented
  void* p = tarn_serv_malloc(bytes, alignment);
  if (p) std::memset(p, 0, bytes);
  return p;
}

void* tarn_serv_realloc(void* pointer, size_t size) {
  if (!pointer) return tarn_serv_malloc(size, static_cast<int>(kMinAlignment));
  mm_start();
  if (size == 0) {
    tarn_serv_free(pointer);
    return nullptr;
  }
  uintptr_t* words = static_cast<uintptr_t*>(pointer);
  const uintptr_t old_raw = words[-3];
  const size_t old_total = words[-2];
  const size_t align = words[-1];
  const size_t old_offset = reinterpret_cast<uintptr_t>(pointer) - old_raw;
  const size_t usable = old_total - old_offset;
  if (size <= usable) return pointer;  // a block never shrinks
  const size_t total = size + align + kPlainHeaderBytes;
  if (total < size) return nullptr;
  char* raw = static_cast<char*>(sys_realloc(reinterpret_cast<void*>(old_raw), total));
  if (!raw) return nullptr;
  const uintptr_t user =
      (reinterpret_cast<uintptr_t>(raw) + align + kPlainHeaderBytes) & ~(uintptr_t{align} - 1);
  const size_t new_offset = user - reinterpret_cast<uintptr_t>(raw);
  if (new_offset != old_offset) std::memmove(raw + new_offset, raw + old_offset, usable);
  uintptr_t* fresh = reinterpret_cast<uintptr_t*>(user);
  fresh[-3] = reinterpret_cast<uintptr_t>(raw);
  fresh[-2] = total;
  fresh[-1] = align;
  mm_count_plain(0, static_cast<intptr_t>(total) - static_cast<intptr_t>(old_total));
  return fresh;
}

int tarn_serv_free_buffers(void) {
  mm_start();
  mm_book_take_whole();
  bool clean = true;
  const int ids = mm_book.tid_count;
  for (int id = 1; id <= ids; ++id) {
    Slot* slot = mm_slot_of(id, false);
    ThreadRecord* r = slot ? slot->record : nullptr;
    if (!r) continue;
    if (r->orphaned) clean = false;
    if (mm_record_drop_idle(r)) {
      clean = false;
    } else {
      mm_move_to_gc(r);
      sys_free(r);
      store(slot->record, static_cast<ThreadRecord*>(nullptr));
    }
  }
  if (clean) {
    // Every thread receives a new id on its next call.
    for (int level = 0; level < kLevels; ++level) {
      mm_table_free(mm_book.level[level]);
      store(mm_book.level[level], static_cast<Slot*>(nullptr));
    }
    store(mm_book.epoch, mm_book.epoch + 1);
    store(mm_book.tid_count, 0);
  }
  mm_book_release_whole();
  return 0;
}

int tarn_serv_thread_free_buffers(void) {
  mm_start();
  int tid, epoch;
  mm_thread_ids(&tid, &epoch);
  Slot* slot = mm_account_ptr_by_tid(tid, epoch, kFlagNoGrow);
  if (!slot) return 0;
  if (ThreadRecord* r = slot->record) {
    if (!mm_record_drop_idle(r)) r->count = 0;
  }
  mm_release_slot(slot);
  return 0;
}

int tarn_serv_disable_fast_mm(void) {
  tarn_serv_lock(&mm_start_lock);
  int took = 0;
  if (env_has_been_cached != 1) {
    store(disable_fast_mm, 1);
    took = 1;
  }
  tarn_serv_unlock(&mm_start_lock);
  return took;
}

int tarn_serv_get_fast_mm_status(void) {
  mm_start();
  return load(disable_fast_mm);
}

int64_t tarn_serv_mem_stat(int* buffers) {
  if (!buffers) return 0;
  mm_start();
  int64_t bytes = 0, blocks = 0;
  mm_book_take_whole();
  const int ids = mm_book.tid_count;
  for (int id = 1; id <= ids; ++id) {
    Slot* slot = mm_slot_of(id, false);
    const ThreadRecord* r = slot ? slot->record : nullptr;
    if (!r) continue;
    bytes += r->plain_bytes;
    blocks += r->plain_blocks;
    for (int i = 0; i < r->count; ++i) {
      if (!r->raw[i]) continue;
      bytes += static_cast<int64_t>(r->capacity[i]);
      blocks += 1;
    }
  }
  tarn_serv_lock(&gc_stat_lock);
  bytes += gc_stat.bytes;
  blocks += gc_stat.blocks;
  tarn_serv_unlock(&gc_stat_lock);
  mm_book_release_whole();
  *buffers = static_cast<int>(blocks);
  return bytes;
}

int64_t tarn_serv_peak_mem_usage(int mode) {
  constexpr int kOff = 0, kOn = 1, kRead = 2, kReadAndReset = -1;
  mm_start();
  int64_t result = -1;
  tarn_serv_lock(&mem_stat_lock);
  switch (mode) {
    case kOn:
      store(enable_global_stat, 1);
      max_stat = {0, 0};
      result = 0;
      break;
    case kOff:
      store(enable_global_stat, 0);
      result = 0;
      break;
    case kRead:
      if (enable_global_stat == 1) result = max_stat.bytes;
      break;
    case kReadAndReset:
      if (enable_global_stat == 1) {
        result = max_stat.bytes;
        max_stat = current_stat;
      }
      break;
    default:
      break;
  }
  tarn_serv_unlock(&mem_stat_lock);
  return result;
}

int tarn_serv_set_memory_limit(int type, size_t megabytes) {
  constexpr int kFastMemory = 1;
  mm_start();
  if (type != kFastMemory || load(mm_fast_memory_initialized) != 1) return 0;
  tarn_serv_lock(&mm_fast_memory_update_limit_lock);
  if (mm_fast_memory_limit == -1)
    mm_fast_memory_limit = mm_mebibytes_to_bytes(megabytes);
  tarn_serv_unlock(&mm_fast_memory_update_limit_lock);
  return 1;
}

int64_t tarn_serv_check_fast_memory_size(void) {
  mm_start();
  return load(mm_fast_memory_limit);
}

void* tarn_serv_jit_alloc(size_t size) {
  mm_start();
  const size_t rounded = (size + kPageBytes - 1) & ~(kPageBytes - 1);
  if (rounded < size || rounded == 0) return nullptr;
  void* p = mmap(nullptr, rounded, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  mm_count_plain(1, static_cast<intptr_t>(rounded));
  return p;
}

int tarn_serv_jit_set_exec(void* address, size_t length, int exec) {
  const int protection = exec ? PROT_READ | PROT_EXEC : PROT_READ | PROT_WRITE;
  return mprotect(address, length, protection) == 0 ? 1 : 0;
}

void tarn_serv_jit_free(void* address, size_t size) {
  if (!address) return;
  mm_start();
  const size_t rounded = (size + kPageBytes - 1) & ~(kPageBytes - 1);
  if (munmap(address, rounded) == 0) mm_count_plain(-1, -static_cast<intptr_t>(rounded));
}

}  // extern "C"
