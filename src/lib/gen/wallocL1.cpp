// The memory-handle layer under the containers.  Handles are 32 bits so that
// every record holding one (list headers, elements, section lists, zone
// rules) has one size on every target.  On i386 a handle is the block's
// address.  Where addresses are wider, a handle is an index into a table of
// addresses: the table grows in chunks that never move, so MemLock reads it
// without a lock; only handing indices out and taking them back is guarded.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/wallocL1"
#include "internal/rq_mem.h"
#include "rqcore/frame.h"

#include "internal/rq_handle.h"
#include "internal/rq_spin.h"

#include <cstdint>
#include <cstdlib>

namespace rq::handle {

#if UINTPTR_MAX == 0xFFFFFFFFu

RQHANDLE alloc(U32 size) noexcept
{
    return static_cast<RQHANDLE>(reinterpret_cast<uintptr_t>(RQ_MALLOC(size)));
}

U32 release(RQHANDLE handle) noexcept
{
    return handle != 0 ? RQ_FREE(reinterpret_cast<void *>(static_cast<uintptr_t>(handle))) : 0;
}

#else

Slot *gChunks[kChunkCount];

namespace {

rq::SpinLock gTableLock;
U32 gNextFresh = 1;  // handle 0 is never issued
U32 gFreeHead = 0;   // 0: no free index

class TableLock : public rq::SpinGuard {
public:
    TableLock() noexcept : rq::SpinGuard(gTableLock) {}
};

// Takes an index for `block`; 0 when the table is full or cannot grow.
RQHANDLE issue(void *block) noexcept
{
    TableLock guard;
    RQHANDLE h = gFreeHead;
    if (h != 0) {
        Slot *slot = slotOf(h);
        gFreeHead = static_cast<U32>(*slot >> 1);
        *slot = reinterpret_cast<Slot>(block);
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
    gChunks[chunkIndex][h & (kChunkSize - 1)] = reinterpret_cast<Slot>(block);
    return h;
}

}  // namespace

RQHANDLE alloc(U32 size) noexcept
{
    void *block = RQ_MALLOC(size);
    if (block == nullptr)
        return 0;
    RQHANDLE h = issue(block);
    if (h == 0)
        RQ_FREE(block);
    return h;
}

U32 release(RQHANDLE handle) noexcept
{
    if (handle == 0)
        return 0;
    void *block;
    {
        TableLock guard;
        Slot *slot = slotOf(handle);
        if (slot == nullptr || (*slot & 1) != 0 || *slot == 0)
            return 1;  // never issued, or already freed
        block = reinterpret_cast<void *>(*slot);
        *slot = (static_cast<Slot>(gFreeHead) << 1) | 1;
        gFreeHead = handle;
    }
    return RQ_FREE(block);
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
