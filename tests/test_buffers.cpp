// Work-buffer manager: the per-thread table of five cached buffers, release
// from any thread, orphaned records of finished threads, release of all
// caches, accounting, the plain aligned path, the switches read once per
// process (checked in child processes of this same program), and the pages
// for generated code.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "service/memory.h"
#include "tests/support/test_support.h"

namespace {

constexpr size_t KiB = 1024;
constexpr size_t MiB = 1024 * KiB;
constexpr int kAlign = 64;
constexpr size_t kPlainWords = 3 * sizeof(uintptr_t);

struct Stat {
  int64_t bytes;
  int blocks;
};
Stat stat_now() {
  int blocks = -1;
  const int64_t bytes = tarn_serv_mem_stat(&blocks);
  return {bytes, blocks};
}

// Runs f on a thread of its own, so that it starts with an empty table.
template <class F>
void on_fresh_thread(F f) {
  std::thread t(f);
  t.join();
}

// Holds one small cached buffer for its lifetime, so that the thread has a
// record to count its plain blocks in, and gives it back at the end.
class Anchor {
 public:
  Anchor() : p_(tarn_serv_allocate(1, kAlign)) {}
  ~Anchor() { tarn_serv_deallocate(p_); }
  Anchor(const Anchor&) = delete;
  Anchor& operator=(const Anchor&) = delete;

 private:
  void* p_;
};

bool aligned(const void* p, size_t a) { return reinterpret_cast<uintptr_t>(p) % a == 0; }

// Each test starts from a book with no idle buffer anywhere.
class BufferCache : public ::testing::Test {
 protected:
  void SetUp() override { tarn_serv_free_buffers(); }
  void TearDown() override { tarn_serv_free_buffers(); }
};

TEST_F(BufferCache, SameSizeComesBackWithoutNewAllocation) {
  on_fresh_thread([] {
    void* p = tarn_serv_allocate(100 * KiB, kAlign);
    ASSERT_NE(p, nullptr);
    std::memset(p, 1, 100 * KiB);
    tarn_serv_deallocate(p);
    const Stat before = stat_now();
    void* q = tarn_serv_allocate(100 * KiB, kAlign);
    const Stat after = stat_now();
    EXPECT_EQ(q, p);
    EXPECT_EQ(after.bytes, before.bytes);
    EXPECT_EQ(after.blocks, before.blocks);
    tarn_serv_deallocate(q);
  });
}

TEST_F(BufferCache, ZeroSizeGivesNull) {
  EXPECT_EQ(tarn_serv_allocate(0, kAlign), nullptr);
  tarn_serv_deallocate(nullptr);  // harmless
}

TEST_F(BufferCache, LargeIdleBufferAnswersSmallRequest) {
  on_fresh_thread([] {
    void* big = tarn_serv_allocate(1 * MiB, kAlign);
    ASSERT_NE(big, nullptr);
    tarn_serv_deallocate(big);
    const Stat before = stat_now();
    void* small = tarn_serv_allocate(4 * KiB, kAlign);
    EXPECT_EQ(small, big);
    EXPECT_EQ(stat_now().bytes, before.bytes);
    tarn_serv_deallocate(small);
    // The entry kept its capacity: the full megabyte answers again.
    void* again = tarn_serv_allocate(1 * MiB, kAlign);
    EXPECT_EQ(again, big);
    EXPECT_EQ(stat_now().bytes, before.bytes);
    tarn_serv_deallocate(again);
  });
}

TEST_F(BufferCache, SmallestLargerIdleEntryIsTaken) {
  on_fresh_thread([] {
    void* a4k = tarn_serv_allocate(4 * KiB, kAlign);
    void* a1m = tarn_serv_allocate(1 * MiB, kAlign);
    void* a256k = tarn_serv_allocate(256 * KiB, kAlign);
    void* a64k = tarn_serv_allocate(64 * KiB, kAlign);
    tarn_serv_deallocate(a4k);
    tarn_serv_deallocate(a1m);
    tarn_serv_deallocate(a256k);
    tarn_serv_deallocate(a64k);
    const Stat before = stat_now();
    void* p = tarn_serv_allocate(100 * KiB, kAlign);  // 256 KiB, not 1 MiB
    EXPECT_EQ(p, a256k);
    void* q = tarn_serv_allocate(8 * KiB, kAlign);  // 64 KiB is the smallest larger now
    EXPECT_EQ(q, a64k);
    void* r = tarn_serv_allocate(8 * KiB, kAlign);  // only 1 MiB is larger and idle
    EXPECT_EQ(r, a1m);
    EXPECT_EQ(stat_now().bytes, before.bytes);
    tarn_serv_deallocate(p);
    tarn_serv_deallocate(q);
    tarn_serv_deallocate(r);
  });
}

TEST_F(BufferCache, EqualCapacitiesTakeTheFirst) {
  on_fresh_thread([] {
    void* a = tarn_serv_allocate(32 * KiB, kAlign);
    void* b = tarn_serv_allocate(32 * KiB, kAlign);
    tarn_serv_deallocate(b);
    tarn_serv_deallocate(a);
    void* p = tarn_serv_allocate(16 * KiB, kAlign);
    EXPECT_EQ(p, a);
    tarn_serv_deallocate(p);
  });
}

TEST_F(BufferCache, FullTableReplacesFirstSmallerIdleEntry) {
  on_fresh_thread([] {
    void* p[5];
    for (int i = 0; i < 5; ++i) p[i] = tarn_serv_allocate((i + 1) * KiB, kAlign);
    for (void* x : p) tarn_serv_deallocate(x);
    const Stat before = stat_now();
    void* big = tarn_serv_allocate(64 * KiB, kAlign);
    ASSERT_NE(big, nullptr);
    // Entry 0 (1 KiB) was freed and its place holds the new block.
    const Stat after = stat_now();
    EXPECT_EQ(after.blocks, before.blocks);
    EXPECT_EQ(after.bytes - before.bytes,
              static_cast<int64_t>(64 * KiB + kAlign) - static_cast<int64_t>(1 * KiB + kAlign));
    tarn_serv_deallocate(big);
    // The remaining small entries are still there.
    for (int i = 1; i < 5; ++i) {
      void* x = tarn_serv_allocate((i + 1) * KiB, kAlign);
      EXPECT_EQ(x, p[i]) << "entry " << i;
      tarn_serv_deallocate(x);
    }
  });
}

TEST_F(BufferCache, SixthLiveBufferTakesPlainPathAndStillReleases) {
  on_fresh_thread([] {
    const Stat empty = stat_now();
    void* p[6];
    for (int i = 0; i < 6; ++i) {
      p[i] = tarn_serv_allocate(8 * KiB, kAlign);
      ASSERT_NE(p[i], nullptr);
      std::memset(p[i], i, 8 * KiB);
    }
    for (int i = 0; i < 6; ++i)
      for (int j = i + 1; j < 6; ++j) EXPECT_NE(p[i], p[j]);
    const Stat live = stat_now();
    EXPECT_EQ(live.blocks - empty.blocks, 6);
    // Five entries of size + alignment, one plain block with its words.
    EXPECT_EQ(live.bytes - empty.bytes,
              static_cast<int64_t>(5 * (8 * KiB + kAlign) + 8 * KiB + kAlign + kPlainWords));
    tarn_serv_deallocate(p[5]);
    const Stat five = stat_now();
    EXPECT_EQ(five.blocks - empty.blocks, 5);
    for (int i = 0; i < 5; ++i) tarn_serv_deallocate(p[i]);
    EXPECT_EQ(stat_now().blocks, five.blocks);  // the five stay cached
  });
}

TEST_F(BufferCache, RequestAbove40MiBIsNotCached) {
  on_fresh_thread([] {
    Anchor anchor;
    const Stat before = stat_now();
    const size_t size = 41 * MiB;
    void* p = tarn_serv_allocate(size, kAlign);
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(aligned(p, kAlign));
    const Stat live = stat_now();
    EXPECT_EQ(live.blocks - before.blocks, 1);
    EXPECT_EQ(live.bytes - before.bytes, static_cast<int64_t>(size + kAlign + kPlainWords));
    tarn_serv_deallocate(p);
    const Stat after = stat_now();
    EXPECT_EQ(after.bytes, before.bytes);
    EXPECT_EQ(after.blocks, before.blocks);
  });
}

TEST_F(BufferCache, AlignmentIsHonouredOrTakenAs64) {
  on_fresh_thread([] {
    struct Case {
      int asked;
      size_t expect;
    } cases[] = {{48, 64}, {0, 64}, {-8, 64}, {100, 64}, {64, 64}, {128, 128}, {4096, 4096}};
    std::vector<void*> held;
    for (const Case& c : cases) {
      for (size_t size : {size_t{1}, size_t{1000}, 3 * KiB + 7}) {
        void* p = tarn_serv_allocate(size, c.asked);
        ASSERT_NE(p, nullptr);
        EXPECT_TRUE(aligned(p, c.expect)) << "alignment " << c.asked << " size " << size;
        std::memset(p, 0x5a, size);
        tarn_serv_deallocate(p);
        void* q = tarn_serv_malloc(size, c.asked);
        ASSERT_NE(q, nullptr);
        EXPECT_TRUE(aligned(q, c.expect)) << "plain, alignment " << c.asked;
        held.push_back(q);
      }
    }
    // A cached entry handed out again under a stricter alignment.
    void* small = tarn_serv_allocate(10 * KiB, 64);
    tarn_serv_deallocate(small);
    void* strict = tarn_serv_allocate(2 * KiB, 4096);
    EXPECT_TRUE(aligned(strict, 4096));
    std::memset(strict, 1, 2 * KiB);
    tarn_serv_deallocate(strict);
    for (void* q : held) tarn_serv_free(q);
  });
}

TEST_F(BufferCache, ReleaseFromAnotherThreadLeavesBufferWithItsOwner) {
  std::mutex m;
  std::condition_variable cv;
  void* handed = nullptr;
  bool released = false;
  std::thread owner([&] {
    void* p = tarn_serv_allocate(200 * KiB, kAlign);
    {
      std::unique_lock<std::mutex> lock(m);
      handed = p;
      cv.notify_all();
      cv.wait(lock, [&] { return released; });
    }
    const Stat before = stat_now();
    void* q = tarn_serv_allocate(200 * KiB, kAlign);
    EXPECT_EQ(q, p);  // idle in the owner's table
    EXPECT_EQ(stat_now().bytes, before.bytes);
    tarn_serv_deallocate(q);
  });
  std::thread other([&] {
    void* mine = tarn_serv_allocate(4 * KiB, kAlign);  // the releaser has a table too
    std::unique_lock<std::mutex> lock(m);
    cv.wait(lock, [&] { return handed != nullptr; });
    tarn_serv_deallocate(handed);
    // Not adopted by this thread: its own request gets its own buffer.
    void* p = tarn_serv_allocate(200 * KiB, kAlign);
    EXPECT_NE(p, handed);
    tarn_serv_deallocate(p);
    tarn_serv_deallocate(mine);
    released = true;
    cv.notify_all();
  });
  owner.join();
  other.join();
}

TEST_F(BufferCache, ThreadEndingWithBusyBufferLeavesOrphanUntilRelease) {
  Anchor anchor;
  void* kept = nullptr;
  const Stat base = stat_now();
  on_fresh_thread([&] {
    kept = tarn_serv_allocate(300 * KiB, kAlign);
    void* idle = tarn_serv_allocate(100 * KiB, kAlign);
    tarn_serv_deallocate(idle);
  });
  ASSERT_NE(kept, nullptr);
  // The idle buffer went at thread exit; the busy one stays counted.
  const Stat orphan = stat_now();
  EXPECT_EQ(orphan.bytes - base.bytes, static_cast<int64_t>(300 * KiB + kAlign));
  EXPECT_EQ(orphan.blocks - base.blocks, 1);
  // An orphan keeps the book from being released.
  tarn_serv_free_buffers();
  EXPECT_EQ(stat_now().bytes - base.bytes, static_cast<int64_t>(300 * KiB + kAlign));
  std::memset(kept, 3, 300 * KiB);
  tarn_serv_deallocate(kept);
  const Stat after = stat_now();
  EXPECT_EQ(after.bytes, base.bytes);
  EXPECT_EQ(after.blocks, base.blocks);
}

TEST_F(BufferCache, EndingThreadsPlainBlocksMoveToTheBook) {
  Anchor anchor;  // this thread frees the block below with a record of its own
  const Stat base = stat_now();
  void* plain = nullptr;
  on_fresh_thread([&] {
    tarn_serv_deallocate(tarn_serv_allocate(1, kAlign));
    plain = tarn_serv_malloc(10 * KiB, kAlign);
  });
  // The thread's table is gone, its live plain block is still counted.
  const Stat after = stat_now();
  EXPECT_EQ(after.bytes - base.bytes, static_cast<int64_t>(10 * KiB + kAlign + kPlainWords));
  EXPECT_EQ(after.blocks - base.blocks, 1);
  tarn_serv_free(plain);
  EXPECT_EQ(stat_now().bytes, base.bytes);
  EXPECT_EQ(stat_now().blocks, base.blocks);
}

TEST_F(BufferCache, FreeBuffersReleasesEveryIdleTable) {
  const Stat base = stat_now();
  void* p = tarn_serv_allocate(512 * KiB, kAlign);
  tarn_serv_deallocate(p);
  EXPECT_GT(stat_now().bytes, base.bytes);
  EXPECT_EQ(tarn_serv_free_buffers(), 0);
  EXPECT_EQ(stat_now().bytes, base.bytes);
  // The thread gets a new id and a new table without noticing.
  void* q = tarn_serv_allocate(512 * KiB, kAlign);
  ASSERT_NE(q, nullptr);
  tarn_serv_deallocate(q);
  void* r = tarn_serv_allocate(512 * KiB, kAlign);
  EXPECT_EQ(r, q);
  tarn_serv_deallocate(r);
}

TEST_F(BufferCache, FreeBuffersWithBusyBufferKeepsEpochAndTables) {
  std::mutex m;
  std::condition_variable cv;
  int stage = 0;
  void* busy = nullptr;
  std::thread holder([&] {
    busy = tarn_serv_allocate(128 * KiB, kAlign);
    std::unique_lock<std::mutex> lock(m);
    stage = 1;
    cv.notify_all();
    cv.wait(lock, [&] { return stage == 2; });
    // Our table survived: the released buffer comes back to us.
    tarn_serv_deallocate(busy);
    void* again = tarn_serv_allocate(128 * KiB, kAlign);
    EXPECT_EQ(again, busy);
    tarn_serv_deallocate(again);
  });
  {
    std::unique_lock<std::mutex> lock(m);
    cv.wait(lock, [&] { return stage == 1; });
  }
  void* idle = tarn_serv_allocate(64 * KiB, kAlign);
  tarn_serv_deallocate(idle);
  const Stat before = stat_now();
  EXPECT_EQ(tarn_serv_free_buffers(), 0);
  // Idle entries anywhere are freed even so.
  EXPECT_EQ(stat_now().bytes, before.bytes - static_cast<int64_t>(64 * KiB + kAlign));
  {
    std::lock_guard<std::mutex> lock(m);
    stage = 2;
  }
  cv.notify_all();
  holder.join();
}

// A thread whose id was issued before the book was released must not touch
// the slot that the same id names in the new epoch.
TEST_F(BufferCache, StaleIdAtThreadExitLeavesNewOwnerAlone) {
  std::mutex m;
  std::condition_variable cv;
  int stage = 0;
  std::thread old_thread([&] {
    tarn_serv_deallocate(tarn_serv_allocate(16 * KiB, kAlign));  // first id of this epoch
    std::unique_lock<std::mutex> lock(m);
    stage = 1;
    cv.notify_all();
    cv.wait(lock, [&] { return stage == 2; });
  });
  {
    std::unique_lock<std::mutex> lock(m);
    cv.wait(lock, [&] { return stage == 1; });
  }
  tarn_serv_free_buffers();  // old_thread's table was idle: new epoch
  void* mine = tarn_serv_allocate(48 * KiB, kAlign);  // first id of the new epoch
  {
    std::lock_guard<std::mutex> lock(m);
    stage = 2;
  }
  cv.notify_all();
  old_thread.join();
  const Stat live = stat_now();
  EXPECT_GE(live.bytes, static_cast<int64_t>(48 * KiB + kAlign));
  // Released by a third thread, the buffer stays idle in this thread's
  // table; a record wrongly taken for an orphan would be dropped here.
  on_fresh_thread([mine] { tarn_serv_deallocate(mine); });
  EXPECT_EQ(stat_now().bytes, live.bytes);
  void* again = tarn_serv_allocate(48 * KiB, kAlign);
  EXPECT_EQ(again, mine);
  EXPECT_EQ(stat_now().bytes, live.bytes);
  tarn_serv_deallocate(again);
}

TEST_F(BufferCache, ThreadFreeBuffersDropsOnlyIdleEntriesOfCaller) {
  on_fresh_thread([] {
    void* busy = tarn_serv_allocate(20 * KiB, kAlign);
    void* idle = tarn_serv_allocate(30 * KiB, kAlign);
    tarn_serv_deallocate(idle);
    const Stat before = stat_now();
    EXPECT_EQ(tarn_serv_thread_free_buffers(), 0);
    const Stat after = stat_now();
    EXPECT_EQ(before.bytes - after.bytes, static_cast<int64_t>(30 * KiB + kAlign));
    EXPECT_EQ(before.blocks - after.blocks, 1);
    tarn_serv_deallocate(busy);
    void* again = tarn_serv_allocate(20 * KiB, kAlign);
    EXPECT_EQ(again, busy);
    tarn_serv_deallocate(again);
  });
}

// Ids above 1024 live in the higher slot tables and share the book lock.
TEST_F(BufferCache, ThreadsBeyondTheFirstTableWork) {
  constexpr int kThreads = 1100;
  void* last = nullptr;
  for (int i = 0; i < kThreads; ++i) {
    on_fresh_thread([&] {
      void* p = tarn_serv_allocate(256, kAlign);
      ASSERT_NE(p, nullptr);
      tarn_serv_deallocate(p);
      void* q = tarn_serv_allocate(256, kAlign);
      EXPECT_EQ(q, p);
      if (i == kThreads - 1)
        last = q;  // left busy: the thread's record is orphaned at exit
      else
        tarn_serv_deallocate(q);
    });
  }
  const Stat before = stat_now();
  tarn_serv_deallocate(last);  // from a thread of a low id
  const Stat after = stat_now();
  EXPECT_EQ(before.bytes - after.bytes, static_cast<int64_t>(256 + kAlign));
}

TEST_F(BufferCache, ConcurrentTrafficAcrossThreadsBalances) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  Anchor anchor;  // this thread releases leftovers, plain ones included
  const Stat base = stat_now();
  std::mutex m;
  std::vector<void*> shared;
  std::vector<std::thread> threads;
  std::atomic<int> bad{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      testsupport::Random rng(17 + t);
      std::vector<void*> mine;
      for (int round = 0; round < kRounds; ++round) {
        const size_t size = 64 + rng.next() % (64 * KiB);
        const int align = 64 << (rng.next() % 4);
        unsigned char* p = static_cast<unsigned char*>(tarn_serv_allocate(size, align));
        if (!p || !aligned(p, align)) {
          ++bad;
          continue;
        }
        p[0] = p[size - 1] = static_cast<unsigned char>(t);
        const unsigned action = rng.next() % 3;
        if (action == 0) {
          tarn_serv_deallocate(p);
        } else if (action == 1) {
          std::lock_guard<std::mutex> lock(m);
          shared.push_back(p);  // released later by whichever thread comes
        } else {
          mine.push_back(p);
        }
        if (mine.size() > 6) {
          tarn_serv_deallocate(mine.front());
          mine.erase(mine.begin());
        }
        void* foreign = nullptr;
        {
          std::lock_guard<std::mutex> lock(m);
          if (!shared.empty() && rng.next() % 2) {
            foreign = shared.back();
            shared.pop_back();
          }
        }
        tarn_serv_deallocate(foreign);
      }
      for (void* p : mine) tarn_serv_deallocate(p);
    });
  }
  for (auto& th : threads) th.join();
  for (void* p : shared) tarn_serv_deallocate(p);
  EXPECT_EQ(bad.load(), 0);
  tarn_serv_free_buffers();
  const Stat after = stat_now();
  EXPECT_EQ(after.blocks, base.blocks);
  EXPECT_EQ(after.bytes, base.bytes);
}

// ---- Statistics ---------------------------------------------------------------

TEST(BufferStatistics, NullArgumentGivesZero) { EXPECT_EQ(tarn_serv_mem_stat(nullptr), 0); }

TEST(BufferStatistics, PeakFollowsNewAllocationsOnly) {
  tarn_serv_peak_mem_usage(0);
  EXPECT_EQ(tarn_serv_peak_mem_usage(2), -1);  // off
  EXPECT_EQ(tarn_serv_peak_mem_usage(-1), -1);
  EXPECT_EQ(tarn_serv_peak_mem_usage(7), -1);
  EXPECT_EQ(tarn_serv_peak_mem_usage(1), 0);
  EXPECT_EQ(tarn_serv_peak_mem_usage(2), 0);
  on_fresh_thread([] {
    void* p = tarn_serv_allocate(1 * MiB, kAlign);
    const int64_t peak = tarn_serv_peak_mem_usage(2);
    EXPECT_EQ(peak, static_cast<int64_t>(1 * MiB + kAlign));
    tarn_serv_deallocate(p);
    // Cached, not freed: still counted; reuse does not move the peak.
    void* q = tarn_serv_allocate(1 * MiB, kAlign);
    EXPECT_EQ(tarn_serv_peak_mem_usage(2), peak);
    tarn_serv_deallocate(q);
    void* plain = tarn_serv_malloc(2 * MiB, kAlign);
    const int64_t top = tarn_serv_peak_mem_usage(2);
    EXPECT_EQ(top, peak + static_cast<int64_t>(2 * MiB + kAlign + kPlainWords));
    tarn_serv_free(plain);
    tarn_serv_thread_free_buffers();
    EXPECT_EQ(tarn_serv_peak_mem_usage(-1), top);  // read, then reset to the present
    EXPECT_EQ(tarn_serv_peak_mem_usage(2), 0);
  });
  EXPECT_EQ(tarn_serv_peak_mem_usage(0), 0);
  EXPECT_EQ(tarn_serv_peak_mem_usage(2), -1);
}

// ---- Plain path -----------------------------------------------------------------

TEST(PlainPath, CallocZeroesReusedMemory) {
  constexpr size_t n = 3000;
  for (int round = 0; round < 4; ++round) {
    unsigned char* dirty = static_cast<unsigned char*>(tarn_serv_malloc(n * 8, 128));
    ASSERT_NE(dirty, nullptr);
    std::memset(dirty, 0xab, n * 8);
    tarn_serv_free(dirty);
    unsigned char* z = static_cast<unsigned char*>(tarn_serv_calloc(n, 8, 128));
    ASSERT_NE(z, nullptr);
    EXPECT_TRUE(aligned(z, 128));
    for (size_t i = 0; i < n * 8; ++i) ASSERT_EQ(z[i], 0) << "byte " << i;
    tarn_serv_free(z);
  }
}

TEST(PlainPath, ReallocKeepsContentAndAlignment) {
  unsigned char* p = static_cast<unsigned char*>(tarn_serv_malloc(1000, 4096));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 1000; ++i) p[i] = static_cast<unsigned char>(i * 7);
  // Growth in steps, some of which move the block to a new offset.
  for (size_t size : {size_t{2000}, size_t{100000}, 3 * MiB, 5 * MiB}) {
    p = static_cast<unsigned char*>(tarn_serv_realloc(p, size));
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(aligned(p, 4096)) << size;
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(p[i], static_cast<unsigned char>(i * 7)) << size;
    std::memset(p + 1000, 0x11, size - 1000);
  }
  // A block never shrinks.
  EXPECT_EQ(tarn_serv_realloc(p, 10), p);
  EXPECT_EQ(tarn_serv_realloc(p, 0), nullptr);  // frees
  void* fresh = tarn_serv_realloc(nullptr, 100);
  ASSERT_NE(fresh, nullptr);
  EXPECT_TRUE(aligned(fresh, 64));
  tarn_serv_free(fresh);
}

TEST(PlainPath, AccountingFollowsReallocAndFree) {
  on_fresh_thread([] {
    Anchor anchor;
    const Stat base = stat_now();
    void* p = tarn_serv_malloc(1000, kAlign);
    EXPECT_EQ(stat_now().bytes - base.bytes, static_cast<int64_t>(1000 + kAlign + kPlainWords));
    p = tarn_serv_realloc(p, 50000);
    EXPECT_EQ(stat_now().bytes - base.bytes, static_cast<int64_t>(50000 + kAlign + kPlainWords));
    EXPECT_EQ(stat_now().blocks - base.blocks, 1);
    tarn_serv_free(p);
    EXPECT_EQ(stat_now().bytes, base.bytes);
    EXPECT_EQ(stat_now().blocks, base.blocks);
  });
}

TEST(PlainPath, SizeThatWrapsGivesNull) {
  EXPECT_EQ(tarn_serv_malloc(SIZE_MAX - 16, kAlign), nullptr);
  tarn_serv_free(nullptr);
}

// ---- Pages for generated code --------------------------------------------------

std::string mapping_of(const void* address) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  const uintptr_t a = reinterpret_cast<uintptr_t>(address);
  while (std::getline(maps, line)) {
    uintptr_t lo = 0, hi = 0;
    char dash;
    std::istringstream in(line);
    in >> std::hex >> lo >> dash >> hi;
    if (a >= lo && a < hi) {
      std::string perms;
      in >> perms;
      return perms;
    }
  }
  return "";
}

TEST(JitPages, WrittenThenExecutedNeverBoth) {
  on_fresh_thread([] {
    Anchor anchor;
    const Stat base = stat_now();
    unsigned char* code = static_cast<unsigned char*>(tarn_serv_jit_alloc(100));
    ASSERT_NE(code, nullptr);
    EXPECT_TRUE(aligned(code, 4096));
    EXPECT_EQ(stat_now().bytes - base.bytes, 4096);
    EXPECT_EQ(stat_now().blocks - base.blocks, 1);
    EXPECT_EQ(mapping_of(code).substr(0, 3), "rw-");
    // mov eax, 42; ret
    const unsigned char body[] = {0xb8, 0x2a, 0x00, 0x00, 0x00, 0xc3};
    std::memcpy(code, body, sizeof body);
    EXPECT_EQ(tarn_serv_jit_set_exec(code, 4096, 1), 1);
    EXPECT_EQ(mapping_of(code).substr(0, 3), "r-x");
    int (*fn)() = reinterpret_cast<int (*)()>(code);
    EXPECT_EQ(fn(), 42);
    EXPECT_EQ(tarn_serv_jit_set_exec(code, 4096, 0), 1);
    EXPECT_EQ(mapping_of(code).substr(0, 3), "rw-");
    code[1] = 7;
    EXPECT_EQ(tarn_serv_jit_set_exec(code, 4096, 1), 1);
    EXPECT_EQ(fn(), 7);
    tarn_serv_jit_free(code, 100);
    EXPECT_EQ(stat_now().bytes, base.bytes);
    EXPECT_EQ(stat_now().blocks, base.blocks);
  });
}

TEST(JitPages, LargeRequestRoundsToPages) {
  void* p = tarn_serv_jit_alloc(4097);
  ASSERT_NE(p, nullptr);
  static_cast<unsigned char*>(p)[8191] = 1;  // the second page is there
  tarn_serv_jit_free(p, 4097);
}

TEST(JitPages, UnmappedPageCannotBeMadeExecutable) {
  if (mprotect(nullptr, 4096, PROT_READ) == 0)
    GTEST_SKIP() << "this system protects the unmapped first page without complaint "
                    "(user-mode emulation does)";
  EXPECT_EQ(tarn_serv_jit_set_exec(nullptr, 4096, 1), 0);
}

// ---- Switches read once per process: checked in child processes ----------------
// The child halves are disabled in a normal run; the parent runs each of them
// in a fresh process of this program with the environment under test.

bool in_child() { return std::getenv("TARN_BUFFERS_CHILD") != nullptr; }

// This program's own path; read through the link rather than executing it,
// so that a run under a dynamic checker starts the real program again.
std::string own_path() {
  char path[4096];
  const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string("/proc/self/exe");
}

testsupport::RunResult run_child(const std::string& test, std::vector<std::string> env) {
  env.push_back("TARN_BUFFERS_CHILD=1");
  return testsupport::run_program(own_path(),
                                  {"--gtest_also_run_disabled_tests", "--gtest_filter=" + test}, "",
                                  env);
}

void expect_child_passes(const std::string& test, const std::vector<std::string>& env) {
  const testsupport::RunResult r = run_child(test, env);
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("[  PASSED  ] 1 test"), std::string::npos) << r.out;
}

TEST(BufferSwitchesChild, DISABLED_CacheOffServesAllEntriesOnPlainPath) {
  if (!in_child()) GTEST_SKIP() << "runs in a child process";
  EXPECT_EQ(tarn_serv_get_fast_mm_status(), 1);
  EXPECT_EQ(tarn_serv_disable_fast_mm(), 0);  // switches already read
  EXPECT_EQ(tarn_serv_peak_mem_usage(1), 0);
  void* p = tarn_serv_allocate(100 * KiB, 4096);
  ASSERT_NE(p, nullptr);
  EXPECT_TRUE(aligned(p, 4096));
  std::memset(p, 1, 100 * KiB);
  EXPECT_EQ(tarn_serv_peak_mem_usage(2), static_cast<int64_t>(100 * KiB + 4096 + kPlainWords));
  tarn_serv_deallocate(p);
  // Really freed, not cached: the present level is back at zero.
  tarn_serv_peak_mem_usage(-1);
  EXPECT_EQ(tarn_serv_peak_mem_usage(2), 0);
  void* c = tarn_serv_calloc(10, 10, 64);
  ASSERT_NE(c, nullptr);
  c = tarn_serv_realloc(c, 1000);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(static_cast<unsigned char*>(c)[99], 0);
  tarn_serv_free(c);
  // Cross-thread release on the plain path.
  void* q = tarn_serv_allocate(5000, 64);
  on_fresh_thread([q] { tarn_serv_deallocate(q); });
  tarn_serv_peak_mem_usage(-1);
  EXPECT_EQ(tarn_serv_peak_mem_usage(2), 0);
}

TEST(BufferSwitchesChild, DISABLED_ProgrammerSwitchBeatsFirstUse) {
  if (!in_child()) GTEST_SKIP() << "runs in a child process";
  EXPECT_EQ(tarn_serv_disable_fast_mm(), 1);
  EXPECT_EQ(tarn_serv_get_fast_mm_status(), 1);
  EXPECT_EQ(tarn_serv_disable_fast_mm(), 0);
}

TEST(BufferSwitchesChild, DISABLED_CacheOnByDefault) {
  if (!in_child()) GTEST_SKIP() << "runs in a child process";
  EXPECT_EQ(tarn_serv_get_fast_mm_status(), 0);
  EXPECT_EQ(tarn_serv_disable_fast_mm(), 0);
  EXPECT_EQ(tarn_serv_get_fast_mm_status(), 0);
}

TEST(BufferSwitchesChild, DISABLED_FastMemoryLimitWithoutMemkind) {
  if (!in_child()) GTEST_SKIP() << "runs in a child process";
  const char* expect = std::getenv("EXPECT_LIMIT");
  ASSERT_NE(expect, nullptr);
  EXPECT_EQ(tarn_serv_check_fast_memory_size(), std::atoll(expect));
  // No memkind in this process: no limit can be set.
  EXPECT_EQ(tarn_serv_set_memory_limit(1, 100), 0);
  EXPECT_EQ(tarn_serv_set_memory_limit(2, 100), 0);
  void* p = tarn_serv_allocate(1000, 64);
  ASSERT_NE(p, nullptr);
  tarn_serv_deallocate(p);
}

// A replacement allocator installed before first use is called directly:
// every pointer it sees come back is one it gave out, with no header before.
std::mutex replaced_mutex;
std::vector<void*> replaced_live;
int replaced_calls = 0;
void* replaced_malloc(size_t n) {
  void* p = std::malloc(n);
  std::lock_guard<std::mutex> lock(replaced_mutex);
  ++replaced_calls;
  replaced_live.push_back(p);
  return p;
}
void* replaced_calloc(size_t n, size_t m) {
  void* p = replaced_malloc(n * m);
  if (p) std::memset(p, 0, n * m);
  return p;
}
bool replaced_forget(void* p) {
  std::lock_guard<std::mutex> lock(replaced_mutex);
  for (auto it = replaced_live.begin(); it != replaced_live.end(); ++it)
    if (*it == p) {
      replaced_live.erase(it);
      return true;
    }
  return false;
}
void replaced_free(void* p) {
  if (!p) return;
  EXPECT_TRUE(replaced_forget(p)) << "freed a pointer the replacement never gave";
  std::free(p);
}
void* replaced_realloc(void* p, size_t n) {
  if (p) {
    EXPECT_TRUE(replaced_forget(p)) << "reallocated a foreign pointer";
  }
  void* q = std::realloc(p, n);
  std::lock_guard<std::mutex> lock(replaced_mutex);
  ++replaced_calls;
  replaced_live.push_back(q);
  return q;
}

TEST(BufferSwitchesChild, DISABLED_ReplacedAllocatorIsCalledDirectly) {
  if (!in_child()) GTEST_SKIP() << "runs in a child process";
  i_malloc = replaced_malloc;
  i_calloc = replaced_calloc;
  i_realloc = replaced_realloc;
  i_free = replaced_free;
  void* p = tarn_serv_allocate(1000, 128);
  ASSERT_NE(p, nullptr);
  EXPECT_TRUE(aligned(p, 128));
  EXPECT_GE(replaced_calls, 1);
  tarn_serv_deallocate(p);
  const int before = replaced_calls;
  void* q = tarn_serv_malloc(5000, 256);
  ASSERT_NE(q, nullptr);
  EXPECT_TRUE(aligned(q, 256));
  EXPECT_EQ(replaced_calls, before + 1);
  std::memset(q, 9, 5000);
  q = tarn_serv_realloc(q, 1 << 20);
  ASSERT_NE(q, nullptr);
  EXPECT_TRUE(aligned(q, 256));
  EXPECT_EQ(static_cast<unsigned char*>(q)[4999], 9);
  EXPECT_EQ(replaced_calls, before + 2);
  tarn_serv_free(q);
  on_fresh_thread([] { tarn_serv_deallocate(tarn_serv_allocate(3000, 64)); });
  tarn_serv_free_buffers();
  // Tables and records went back through the replacement as well.
  std::lock_guard<std::mutex> lock(replaced_mutex);
  EXPECT_TRUE(replaced_live.empty()) << replaced_live.size() << " blocks still held";
}

TEST(BufferSwitches, ReplacementAllocatorBeforeFirstUse) {
  if (in_child()) GTEST_SKIP();
  expect_child_passes("BufferSwitchesChild.DISABLED_ReplacedAllocatorIsCalledDirectly", {});
}

TEST(BufferSwitches, DisableFastMmSendsEverythingToPlainPath) {
  if (in_child()) GTEST_SKIP();
  expect_child_passes("BufferSwitchesChild.DISABLED_CacheOffServesAllEntriesOnPlainPath",
                      {"TARN_DISABLE_FAST_MM=1"});
  expect_child_passes("BufferSwitchesChild.DISABLED_CacheOffServesAllEntriesOnPlainPath",
                      {"TARN_DISABLE_FAST_MM=no"});  // any non-empty value
  expect_child_passes("BufferSwitchesChild.DISABLED_CacheOnByDefault", {"TARN_DISABLE_FAST_MM"});
  expect_child_passes("BufferSwitchesChild.DISABLED_CacheOnByDefault", {"TARN_DISABLE_FAST_MM="});
}

TEST(BufferSwitches, ProgrammerCallBeforeFirstUseTakesEffect) {
  if (in_child()) GTEST_SKIP();
  expect_child_passes("BufferSwitchesChild.DISABLED_ProgrammerSwitchBeatsFirstUse", {"TARN_DISABLE_FAST_MM"});
}

TEST(BufferSwitches, FastMemoryLimitParsesMebibytes) {
  if (in_child()) GTEST_SKIP();
  // The mebibytes are a 32-bit integer in both builds (saturated beyond it);
  // the bytes are shifted in the address's width, so that from 4096 MiB on
  // the i386 build wraps where the x86-64 build does not.
  struct {
    const char* setting;
    const char* limit_32;
    const char* limit_64;
  } const cases[] = {
      {"TARN_FAST_MEMORY_LIMIT", "-1", "-1"},
      {"TARN_FAST_MEMORY_LIMIT=5", "5242880", "5242880"},
      {"TARN_FAST_MEMORY_LIMIT=-3", "-1", "-1"},
      {"TARN_FAST_MEMORY_LIMIT=0", "0", "0"},
      {"TARN_FAST_MEMORY_LIMIT=2047", "2146435072", "2146435072"},
      {"TARN_FAST_MEMORY_LIMIT=2048", "-2147483648", "2147483648"},
      {"TARN_FAST_MEMORY_LIMIT=4096", "0", "4294967296"},
      {"TARN_FAST_MEMORY_LIMIT=4097", "1048576", "4296015872"},
      {"TARN_FAST_MEMORY_LIMIT=2147483648", "-1048576", "2251799812636672"},
      {"TARN_FAST_MEMORY_LIMIT=99999999999", "-1048576", "2251799812636672"},
      {"TARN_FAST_MEMORY_LIMIT=-4294967296", "-1", "-1"},
  };
  for (const auto& c : cases) {
    const std::string expect = sizeof(void*) == 4 ? c.limit_32 : c.limit_64;
    SCOPED_TRACE(c.setting);
    expect_child_passes("BufferSwitchesChild.DISABLED_FastMemoryLimitWithoutMemkind",
                        {c.setting, "EXPECT_LIMIT=" + expect});
  }
}

TEST(BufferSwitches, MissingMemkindIsSilentEvenWhenVerbose) {
  if (in_child()) GTEST_SKIP();
  const testsupport::RunResult r = run_child("BufferSwitchesChild.DISABLED_CacheOnByDefault",
                                             {"TARN_VERBOSE=1", "TARN_DISABLE_FAST_MM"});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(r.err, "");
}

// The kernel's huge-page counter for the mapping that holds `address`, in
// KiB, from /proc/self/smaps; -1 if the mapping is not found.
long anon_huge_kib_of(const void* address) {
  std::ifstream smaps("/proc/self/smaps");
  std::string line;
  const uintptr_t a = reinterpret_cast<uintptr_t>(address);
  bool inside = false;
  while (std::getline(smaps, line)) {
    unsigned long lo = 0, hi = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx ", &lo, &hi) == 2 && line.find(':') > line.find(' ')) {
      inside = a >= lo && a < hi;
      continue;
    }
    long kib = 0;
    if (inside && std::sscanf(line.c_str(), "AnonHugePages: %ld kB", &kib) == 1) return kib;
  }
  return -1;
}

TEST(HugePages, AdviceOnRangesWithoutWholePageIsHarmless) {
  tarn_serv_advise_huge_pages(nullptr, 0);
  char small[64];
  tarn_serv_advise_huge_pages(small, sizeof small);
  // A range reaching past the end of the address space holds no page.
  tarn_serv_advise_huge_pages(reinterpret_cast<void*>(~uintptr_t{0} - 100), 4096);
  small[0] = 1;
  EXPECT_EQ(small[0], 1);
}

TEST(HugePages, LargePlainBlockIsBackedByHugePagesWhereTheKernelAllows) {
  if (testsupport::under_emulation())
    GTEST_SKIP() << "under user-mode emulation the emulator, not the program, maps the pages";
  constexpr size_t kBytes = size_t{16} << 20;
  char* p = static_cast<char*>(tarn_serv_malloc(kBytes, 64));
  ASSERT_NE(p, nullptr);
  std::memset(p, 1, kBytes);
  std::ifstream mode_file("/sys/kernel/mm/transparent_hugepage/enabled");
  std::string mode;
  std::getline(mode_file, mode);
  const long kib = anon_huge_kib_of(p + kBytes / 2);
  tarn_serv_free(p);
  if (mode.find("[never]") != std::string::npos || mode.empty())
    GTEST_SKIP() << "transparent huge pages are off here";
  // Under "madvise" only the advice gives huge pages; at least one of the
  // whole 2 MiB pages inside the block should have one.
  EXPECT_GT(kib, 0) << "mode: " << mode;
}

}  // namespace
