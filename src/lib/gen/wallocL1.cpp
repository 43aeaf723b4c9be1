// The memory-handle layer under the containers.  Handles are 32 bits so that
// every record holding one (list headers, elements, section lists, zone
// rules) has one size on every target.  On i386 a handle is the block's
// address.  Where addresses are wider, a handle is an index into a table of
// addresses: the table grows in chunks that never move, so MemLock reads it
// without a lock; only handing indices out and taking them back is guarded.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/wallocL1"
#include "internal/rq_mem.h"
#include "rqcore/frame.h"

#include "internal/rq_spin.h"

#include <cstdint>
#include <cstdlib>

#if UINTPTR_MAX == 0xFFFFFFFFu

extern "C" {

RQ_API RQHANDLE MemAlloc(U32 size) noexcept
{
    return static_cast<RQHANDLE>(reinterpret_cast<uintptr_t>(RQ_MALLOC(size)));
}

RQ_API void *MemLock(RQHANDLE handle) noexcept
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(handle));
}

RQ_API U32 MemFree(RQHANDLE handle) noexcept
{
    return handle != 0 ? RQ_FREE(reinterpret_cast<void *>(static_cast<uintptr_t>(handle))) : 0;
}

}  // extern "C"

#else

namespace {

constexpr U32 kChunkBits = 14;
constexpr U32 kChunkSize = 1u << kChunkBits;
constexpr U32 kChunkCount = 1u << (32 - kChunkBits);

// A free slot holds the next free index, shifted left and tagged with bit 0;
// a live slot holds a block address, which is always even.
using Slot = uintptr_t;

Slot *gChunks[kChunkCount];
rq::SpinLock gTableLock;
U32 gNextFresh = 1;  // handle 0 is never issued
U32 gFreeHead = 0;   // 0: no free index

class TableLock : public rq::SpinGuard {
public:
    TableLock() noexcept : rq::SpinGuard(gTableLock) {}
};

Slot *slotOf(RQHANDLE handle) noexcept
{
    Slot *chunk = __atomic_load_n(&gChunks[handle >> kChunkBits], __ATOMIC_ACQUIRE);
    return chunk != nullptr ? &chunk[handle & (kChunkSize - 1)] : nullptr;
}

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

extern "C" {

RQ_API RQHANDLE MemAlloc(U32 size) noexcept
{
    void *block = RQ_MALLOC(size);
    if (block == nullptr)
        return 0;
    RQHANDLE h = issue(block);
    if (h == 0)
        RQ_FREE(block);
    return h;
}

RQ_API void *MemLock(RQHANDLE handle) noexcept
{
    if (handle == 0)
        return nullptr;
    Slot *slot = slotOf(handle);
    if (slot == nullptr || (*slot & 1) != 0)
        return nullptr;
    return reinterpret_cast<void *>(*slot);
}

RQ_API U32 MemFree(RQHANDLE handle) noexcept
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

}  // extern "C"

#endif

extern "C" RQ_API void MemUnlock(void) noexcept
{
    // Handles never move, so there is nothing to undo; the containers still
    // pair every lock with an unlock so that a moving allocator could be
    // put underneath.
}
