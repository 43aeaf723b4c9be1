// The library frame: start-up, banner, memory handles and thread-local storage.
#include "rqtest.h"

#include "rqcore/frame.h"
#include "rqcore/sys.h"
#include "rqsis/rqsis.h"
#include "rqsis/rqsis_test.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <regex>
#include <thread>
#include <vector>

namespace {

TEST(Frame, StartsThePlatformOncePerLoad)
{
    // The library started the platform when it was loaded; asking again
    // neither restarts it nor fails.
    EXPECT_EQ(SIS_TestInitDepth(), 1u);
    EXPECT_EQ(runInitCode(), 0u);
    EXPECT_EQ(runInitCode(), 0u);
    EXPECT_EQ(SIS_TestInitDepth(), 1u);
}

TEST(Frame, BannerIsTheConstantText)
{
    const char *id = GetRqCoreVerID();
    EXPECT_STREQ(id, "\nVarnelLibrary:rqcore version:007.000.5180.0 date:20050629\n");
    EXPECT_EQ(id, GetRqCoreVerID()) << "the banner is a constant, not a copy";
    EXPECT_TRUE(std::regex_search(id, std::regex("version:[0-9]{3}\\.[0-9]{3}\\.[0-9]{4}\\.[0-9] date:[0-9]{8}\n$")));
}

TEST(Frame, HandlesAreFourBytes)
{
    static_assert(sizeof(HLIST) == 4 && sizeof(RQHANDLE) == 4);
}

TEST(MemoryHandles, BlocksAreDistinctWritableAndAccounted)
{
    rqtest::LeakCheck leaks;
    std::vector<RQHANDLE> handles;
    for (U32 i = 0; i < 3000; ++i) {  // crosses no chunk, but reuses freed indices below
        RQHANDLE h = MemAlloc(8 + i % 7);
        ASSERT_NE(h, 0u);
        auto *p = static_cast<U32 *>(MemLock(h));
        ASSERT_NE(p, nullptr);
        *p = i;
        MemUnlock();
        handles.push_back(h);
    }
    // Free every other one, reallocate, and check that nobody's block changed.
    for (size_t i = 0; i < handles.size(); i += 2)
        EXPECT_EQ(MemFree(handles[i]), 0u);
    for (size_t i = 0; i < handles.size(); i += 2) {
        handles[i] = MemAlloc(4);
        ASSERT_NE(handles[i], 0u);
        *static_cast<U32 *>(MemLock(handles[i])) = static_cast<U32>(i);
    }
    for (size_t i = 0; i < handles.size(); ++i)
        EXPECT_EQ(*static_cast<U32 *>(MemLock(handles[i])), static_cast<U32>(i));
    for (RQHANDLE h : handles)
        MemFree(h);
}

TEST(MemoryHandles, NullAndStaleHandles)
{
    EXPECT_EQ(MemLock(0), nullptr) << "containers report their own code when the lock fails";
    EXPECT_EQ(MemFree(0), 0u);
    SIS_TestFailAfter(0);
    EXPECT_EQ(MemAlloc(16), 0u) << "exhausted memory gives handle 0";
    SIS_TestFailAfter(-1);
}

TEST(MemoryHandles, ConcurrentAllocationKeepsBlocksApart)
{
    rqtest::LeakCheck leaks;
    auto worker = [](U32 seed, bool *ok) {
        std::vector<RQHANDLE> mine;
        for (U32 i = 0; i < 20000; ++i) {
            RQHANDLE h = MemAlloc(4);
            *static_cast<U32 *>(MemLock(h)) = seed + i;
            mine.push_back(h);
            if (i % 3 == 0) {
                MemFree(mine.front());
                mine.erase(mine.begin());
            }
        }
        U32 expected = 0;
        for (RQHANDLE h : mine) {
            U32 v = *static_cast<U32 *>(MemLock(h));
            if ((v - seed) < expected)
                *ok = false;
            expected = v - seed;
            MemFree(h);
        }
    };
    bool ok1 = true, ok2 = true;
    std::thread a(worker, 0u, &ok1), b(worker, 1000000u, &ok2);
    a.join();
    b.join();
    EXPECT_TRUE(ok1 && ok2);
}

TEST(MemoryHandles, BlocksCrossThreadsBothWays)
{
    // Each thread allocates from a heap of its own: blocks freed by another
    // thread, or outliving the thread that made them, must still be counted,
    // reported and reusable, and handles refused when freed twice.
    rqtest::LeakCheck leaks;
    const uint64_t start = rqtest::live().blocks;
    constexpr U32 kSizes[] = {4, 20, 256, 257, 4000};  // pooled classes and plain blocks
    std::vector<void *> made;
    for (int round = 0; round < 3; ++round) {  // ended threads' heaps are adopted by new ones
        std::thread([&] {
            for (U32 i = 0; i < 3000; ++i) {
                void *p = SIS_MemMalloc(nullptr, kSizes[i % 5], 0, 0, "t", "v", i);
                std::memset(p, static_cast<int>(i & 0xFF), kSizes[i % 5]);
                made.push_back(p);
            }
        }).join();
    }
    rqtest::Live during = rqtest::live();
    EXPECT_GE(during.blocks, 9000u);
    EXPECT_GE(SIS_TestLiveReport(nullptr), 9000u) << "an ended thread's blocks are still reported";
    // Grow every tenth one here: moved out of the ended thread's heap, content kept.
    for (size_t i = 0; i < made.size(); i += 10) {
        U32 size = kSizes[(i % 3000) % 5];
        void *q = SIS_MemRealloc(nullptr, made[i], size + 100, 0, 0, "t", "v", 1);
        ASSERT_NE(q, nullptr);
        EXPECT_EQ(static_cast<unsigned char *>(q)[size - 1], (i % 3000) & 0xFF);
        made[i] = q;
    }
    for (void *p : made)
        EXPECT_EQ(SIS_MemFree(nullptr, p, 0, 0, "t", "v", 2), 0u);
    RQHANDLE h = 0;
    std::thread([&h] { h = MemAlloc(20); }).join();
    EXPECT_NE(MemLock(h), nullptr);
    EXPECT_EQ(MemFree(h), 0u);
    EXPECT_EQ(MemFree(h), 1u) << "freed twice across threads";

    // The other way: blocks made here, freed by a worker, then reused here.
    made.clear();
    for (U32 i = 0; i < 3000; ++i)
        made.push_back(SIS_MemMalloc(nullptr, kSizes[i % 5], 0, 0, "t", "v", i));
    std::thread([&] {
        for (void *p : made)
            SIS_MemFree(nullptr, p, 0, 0, "t", "v", 4);
    }).join();
    EXPECT_EQ(rqtest::live().blocks, start) << "remote frees are counted at once";
    for (int i = 0; i < 100; ++i)
        SIS_MemFree(nullptr, SIS_MemMalloc(nullptr, 20, 0, 0, "t", "v", 5), 0, 0, "t", "v", 6);
}

TEST(MemoryHandles, ProducerAndConsumerThreads)
{
    // One thread allocates while another frees what it made: the frees race
    // with the owner taking them back at its next allocation.
    rqtest::LeakCheck leaks;
    std::mutex m;
    std::condition_variable cv;
    std::deque<void *> queue;
    bool done = false;
    std::thread consumer([&] {
        for (;;) {
            std::unique_lock<std::mutex> lock(m);
            cv.wait(lock, [&] { return done || !queue.empty(); });
            if (queue.empty())
                return;
            void *p = queue.front();
            queue.pop_front();
            lock.unlock();
            EXPECT_EQ(static_cast<unsigned char *>(p)[0], 0x5A);
            SIS_MemFree(nullptr, p, 0, 0, "t", "v", 1);
        }
    });
    for (U32 i = 0; i < 50000; ++i) {
        U32 size = i % 7 == 0 ? 600 : 8 + i % 64;
        auto *p = static_cast<unsigned char *>(SIS_MemMalloc(nullptr, size, 0, 0, "t", "v", i));
        ASSERT_NE(p, nullptr);
        std::memset(p, 0x5A, size);
        {
            std::lock_guard<std::mutex> lock(m);
            queue.push_back(p);
        }
        cv.notify_one();
    }
    {
        std::lock_guard<std::mutex> lock(m);
        done = true;
    }
    cv.notify_one();
    consumer.join();
}

#if UINTPTR_MAX != 0xFFFFFFFFu
TEST(MemoryHandles, IndicesFreedByAThreadThatOnlyFreesAreReused)
{
    // Handles are table indices here: a thread that frees handles made
    // elsewhere and then ends must hand the indices back, or the table
    // grows by up to a cache's worth for every such thread.
    std::vector<RQHANDLE> made(2000);
    RQHANDLE first = 0, last = 0;
    for (int round = 0; round < 20; ++round) {
        for (RQHANDLE &h : made)
            h = MemAlloc(16);
        last = *std::max_element(made.begin(), made.end());
        if (round == 0)
            first = last;
        std::thread([&] {
            for (RQHANDLE h : made)
                MemFree(h);
        }).join();
    }
    EXPECT_LE(last, first + 512);
}
#endif

TEST(MemoryHandles, AllocationInAThreadsExitDestructors)
{
    // A thread-local object made before the thread's first allocation is
    // destroyed after the allocator gave the thread's heap up: what it
    // allocates and frees then must still be accounted.
    rqtest::LeakCheck leaks;
    struct Late {
        void *early = nullptr;
        ~Late()
        {
            void *late = SIS_MemMalloc(nullptr, 24, 0, 0, "t", "v", 1);
            std::memset(late, 1, 24);
            SIS_MemFree(nullptr, early, 0, 0, "t", "v", 2);
            SIS_MemFree(nullptr, SIS_MemRealloc(nullptr, late, 5000, 0, 0, "t", "v", 3), 0, 0, "t", "v", 4);
        }
    };
    std::thread([] {
        static thread_local Late late;
        Late &first = late;  // made before the first allocation below
        first.early = SIS_MemMalloc(nullptr, 24, 0, 0, "t", "v", 5);
    }).join();
}

TEST(MemoryHandles, EverySizeKeepsItsAlignmentSizeTagAndLine)
{
    // Around each boundary of the small-block classes and of the pools: the
    // block is aligned as promised, counted by its exact size and reported
    // with its tag and line.
    rqtest::LeakCheck leaks;
    const rqtest::Live before = rqtest::live();
    for (size_t size : {size_t{1}, size_t{8}, size_t{9}, size_t{16}, size_t{24}, size_t{32}, size_t{48},
                        size_t{255}, size_t{256}, size_t{257}, size_t{4096}}) {
        SCOPED_TRACE(size);
        void *p = SIS_MemMalloc(nullptr, size, 0, 0, "sized", "v", static_cast<uint32_t>(size) + 7);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % (size % 16 == 0 ? 16 : 8), 0u);
        std::memset(p, 0xA5, size);
        rqtest::Live now = rqtest::live();
        EXPECT_EQ(now.blocks - before.blocks, 1u);
        EXPECT_EQ(now.bytes - before.bytes, size);
        char line[128];
        std::snprintf(line, sizeof line, "live block %p: %zu bytes from sized:%zu\n", p, size, size + 7);
        EXPECT_NE(rqtest::liveReport().find(line), std::string::npos);
        EXPECT_EQ(SIS_MemFree(nullptr, p, 0, 0, "t", "v", 1), 0u);
#if !defined(__SANITIZE_ADDRESS__)
        // A small block stays with the allocator once freed, so a second
        // free reads its header safely (a large one went back to malloc).
        if (size <= 256) {
            EXPECT_EQ(SIS_MemFree(nullptr, p, 0, 0, "t", "v", 1), 1u) << "freed twice";
        }
#endif
    }
}

TEST(MemoryHandles, ReleaseFunctionRefusesForeignBlocks)
{
    EXPECT_EQ(RQCORE_free(nullptr), 0u);
    alignas(16) char notOurs[64] = {};
    EXPECT_NE(RQCORE_free(notOurs + 32), 0u);
#if !defined(__SANITIZE_ADDRESS__)
    // A stray block whose header reads as a small block of ours: its slab
    // (the 64 KB boundary below it) is not one of ours either.
    void *area = std::aligned_alloc(65536, 131072);
    ASSERT_NE(area, nullptr);
    std::memset(area, 0, 131072);
    char *stray = static_cast<char *>(area) + 65536 + 128;
    const uint32_t pooledWord = 0x5153A000u | 20u;
    std::memcpy(stray - 4, &pooledWord, 4);
    EXPECT_EQ(SIS_MemFree(nullptr, stray, 0, 0, "t", "v", 1), 1u);
    EXPECT_EQ(SIS_MemRealloc(nullptr, stray, 40, 0, 0, "t", "v", 1), nullptr);
    std::free(area);
#endif
}

// ---- thread-local storage ---------------------------------------------------

TEST(ThreadLocalLowerLayer, Codes)
{
    U32 key = ZOL_TLS_NO_KEY;
    void *value = reinterpret_cast<void *>(0x1234);
    EXPECT_EQ(ZOL_TLS_Impl_AllocKey(nullptr, nullptr), 0x16C26u);
    EXPECT_EQ(ZOL_TLS_Impl_GetValue(key, &value), 0x16C29u);
    EXPECT_EQ(ZOL_TLS_Impl_SetValue(key, value), 0x16C29u);
    ASSERT_EQ(ZOL_TLS_Impl_AllocKey(&key, nullptr), 0u);
    EXPECT_NE(key, ZOL_TLS_NO_KEY);
    EXPECT_EQ(ZOL_TLS_Impl_GetValue(key, nullptr), 0x16C26u);
    // A null value in this thread is "no value", and the out-pointer is untouched.
    EXPECT_EQ(ZOL_TLS_Impl_GetValue(key, &value), 0x16C29u);
    EXPECT_EQ(value, reinterpret_cast<void *>(0x1234));
    int here = 0;
    EXPECT_EQ(ZOL_TLS_Impl_SetValue(key, &here), 0u);
    EXPECT_EQ(ZOL_TLS_Impl_GetValue(key, &value), 0u);
    EXPECT_EQ(value, &here);
    std::thread([key] {
        void *other = nullptr;
        EXPECT_EQ(ZOL_TLS_Impl_GetValue(key, &other), 0x16C29u) << "values are per thread";
    }).join();
    EXPECT_EQ(ZOL_TLS_Impl_FreeKey(key), 0u);
}

TEST(ThreadLocalUpperLayer, BlockPerThreadOnOneKey)
{
    rqtest::LeakCheck leaks;
    static U32 key = ZOL_TLS_NO_KEY;
    EXPECT_EQ(ZOL_TLSAlloc(nullptr, 16, nullptr), 0x16C26u);
    EXPECT_EQ(ZOL_TLSGetValue(key), nullptr);
    ASSERT_EQ(ZOL_TLSAlloc(&key, 16, nullptr), 0u);
    U32 first = key;
    void *mine = ZOL_TLSGetValue(key);
    ASSERT_NE(mine, nullptr);
    std::thread([] {
        EXPECT_EQ(ZOL_TLSGetValue(key), nullptr);
        U32 before = key;
        ASSERT_EQ(ZOL_TLSAlloc(&key, 32, nullptr), 0u);
        EXPECT_EQ(key, before) << "an allocated key is reused";
        EXPECT_NE(ZOL_TLSGetValue(key), nullptr);
        EXPECT_EQ(ZOL_TLSFree(key, 0), 0u);
    }).join();
    EXPECT_EQ(key, first);
    EXPECT_EQ(ZOL_TLSGetValue(key), mine) << "another thread's block does not replace ours";
    SIS_TestFailAfter(0);
    EXPECT_EQ(ZOL_TLSAlloc(&key, 16, nullptr), 0x16C18u);
    SIS_TestFailAfter(-1);
    EXPECT_EQ(ZOL_TLSFree(key, 1), 0u);
    EXPECT_EQ(ZOL_TLSFree(key, 0), 1u) << "the read fails once the value is gone";
}

}  // namespace
