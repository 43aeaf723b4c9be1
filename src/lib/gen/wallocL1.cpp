// The memory-handle layer under the containers.  Handles are 32 bits so that
// every record holding one (list headers, elements, section lists, zone
// rules) has one size on every target.  On i386 a handle is the block's
// address.  Where addresses are wider, a handle is an index into a table of
// addresses: the table grows in chunks that never move, so MemLock reads it
// without a lock; the shared list of free indices is guarded, and each
// thread draws on it in batches.

#include "rqcore/frame.h"

#include "internal/rq_handle.h"
#include "internal/rq_spin.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace rq::handle {

#if UINTPTR_MAX == 0xFFFFFFFFu

RQHANDLE alloc(U32 size, void **address) noexcept
{
    void *block = SIS_MemMalloc(nullptr, size, 0, 0, kBlockTag, kBlockVersion, __LINE__);
    *address = block;
    return static_cast<RQHANDLE>(reinterpret_cast<uintptr_t>(block));
}

RQHANDLE alloc(U32 size) noexcept
{
    void *address;
    return alloc(size, &address);
}

U32 release(RQHANDLE handle) noexcept
{
    if (handle == 0)
        return 0;
    return SIS_MemFree(nullptr, reinterpret_cast<void *>(static_cast<uintptr_t>(handle)), 0, 0, kBlockTag,
                       kBlockVersion, __LINE__);
}

#else

Slot *gChunks[kChunkCount];

namespace {

rq::SpinLock gTableLock;
U32 gNextFresh = 1;  // handle 0 is never issued
// Freed indices shared between threads: a stack in one array, so that a
// batch is taken without walking the table; when the array cannot grow, the
// rest are chained through their slots from gFreeHead.
RQHANDLE *gFree = nullptr;
U32 gFreeCount = 0;
U32 gFreeCap = 0;
U32 gFreeHead = 0;  // 0: no chained free index

class TableLock : public rq::SpinGuard {
public:
    TableLock() noexcept : rq::SpinGuard(gTableLock) {}
};

// The per-thread caches take the table lock once per kBatch handles.  A
// cached index's slot is marked free like any other, so a lookup or a
// second free of it is refused.

// Puts a free index on the shared stack; the caller holds the table lock.
void putLocked(RQHANDLE h) noexcept
{
    if (gFreeCount == gFreeCap) {
        // The stack is the allocator's own, outside the accounting.
        U32 cap = gFreeCap != 0 ? gFreeCap * 2 : 1024;
        void *grown = cap > gFreeCap ? std::realloc(gFree, size_t{cap} * sizeof(RQHANDLE)) : nullptr;
        if (grown == nullptr) {
            *slotOf(h) = (static_cast<Slot>(gFreeHead) << 1) | 1;
            gFreeHead = h;
            return;
        }
        gFree = static_cast<RQHANDLE *>(grown);
        gFreeCap = cap;
    }
    gFree[gFreeCount++] = h;
}

// Puts `n` indices from the top of the cache back on the shared stack, in
// one copy when the stack has room.
void giveBack(IndexCache &cache, U32 n) noexcept
{
    TableLock guard;
    if (n != 0 && gFreeCap - gFreeCount >= n) {
        cache.count -= n;
        std::memcpy(gFree + gFreeCount, cache.items + cache.count, size_t{n} * sizeof(RQHANDLE));
        gFreeCount += n;
        return;
    }
    while (n-- != 0)
        putLocked(cache.items[--cache.count]);
}

// Returns the thread's indices when it ends; afterwards the thread takes
// and returns indices one by one under the lock.
struct CacheHolder {
    bool armed = false;
    ~CacheHolder()
    {
        if (armed)
            giveBack(tCache, tCache.count);
        tCacheGone = true;
    }
};

thread_local CacheHolder tHolder;

}  // namespace

__thread IndexCache tCache;
__thread bool tCacheGone = false;

namespace {

// Takes one index under the lock, growing the table when no freed index is
// left; 0 when the table is full or cannot grow.
RQHANDLE takeLocked() noexcept
{
    if (gFreeCount != 0)
        return gFree[--gFreeCount];
    RQHANDLE h = gFreeHead;
    if (h != 0) {
        gFreeHead = static_cast<U32>(*slotOf(h) >> 1);
        return h;
    }
    if (gNextFresh == 0)  // wrapped: every index is in use
        return 0;
    h = gNextFresh;
    U32 chunkIndex = h >> kChunkBits;
    if (gChunks[chunkIndex] == nullptr) {
        // The table lives as long as the process and is not a block of any
        // caller's, so it comes from the C library, outside the accounting.
        Slot *chunk = static_cast<Slot *>(std::calloc(kChunkSize, sizeof(Slot)));
        if (chunk == nullptr)
            return 0;
        __atomic_store_n(&gChunks[chunkIndex], chunk, __ATOMIC_RELEASE);
    }
    ++gNextFresh;
    return h;
}

}  // namespace

RQHANDLE refillAndTake() noexcept
{
    if (tCacheGone) {
        TableLock guard;
        return takeLocked();
    }
    tHolder.armed = true;  // the first use registers its destructor
    IndexCache &cache = tCache;
    TableLock guard;
    if (U32 n = gFreeCount < kBatch ? gFreeCount : kBatch; n != 0) {
        gFreeCount -= n;
        std::memcpy(cache.items, gFree + gFreeCount, size_t{n} * sizeof(RQHANDLE));
        cache.count = n;
    }
    while (cache.count < kBatch) {
        // A fresh index's slot is still zero, which reads as not issued.
        RQHANDLE h = takeLocked();
        if (h == 0)
            break;
        cache.items[cache.count++] = h;
    }
    return cache.count != 0 ? cache.items[--cache.count] : 0;
}

// Marks a freed index: on the shared list once the thread's cache is gone,
// else kept for this thread after giving a batch back.
void takeBackSlow(RQHANDLE h, Slot *slot) noexcept
{
    if (tCacheGone) {
        TableLock guard;
        *slot = kFreeMark;
        putLocked(h);
        return;
    }
    tHolder.armed = true;  // a thread that only frees hands its indices back too
    IndexCache &cache = tCache;
    if (cache.count == kCacheMax)
        giveBack(cache, kCacheMax - kBatch);
    *slot = kFreeMark;
    cache.items[cache.count++] = h;
}

RQHANDLE alloc(U32 size) noexcept
{
    void *address;
    return alloc(size, &address);
}

#endif

}  // namespace rq::handle

extern "C" {

RQ_API RQHANDLE MemAlloc(U32 size) noexcept
{
    return rq::handle::alloc(size);
}

RQ_API void *MemLock(RQHANDLE handle) noexcept
{
    return rq::handle::lock(handle);
}

RQ_API U32 MemFree(RQHANDLE handle) noexcept
{
    return rq::handle::release(handle);
}

RQ_API void MemUnlock(void) noexcept
{
    // Handles never move, so there is nothing to undo; the containers still
    // pair every lock with an unlock so that a moving allocator could be
    // put underneath.
    rq::handle::unlock();
}

}  // extern "C"
