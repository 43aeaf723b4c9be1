// Internal to librqcore: the memory-handle layer as the library's own code
// reaches it.  MemAlloc, MemLock and MemFree are exported, so a call to them
// from inside the library goes through the procedure linkage table and may
// not be inlined; the containers lock a handle for every element they touch,
// so they use these hidden forms instead.  Each behaves exactly as the
// exported function of the same name (which calls it).
#ifndef RQ_INTERNAL_HANDLE_H
#define RQ_INTERNAL_HANDLE_H

#include "rqcore/frame.h"
#include "rqsis/rqsis.h"

#include <cstdint>

namespace rq::handle {

// The blocks behind handles, accounted under the handle layer's own name on
// every target.
inline constexpr char kBlockTag[] = "src/lib/core/internal/rq_handle";
inline constexpr char kBlockVersion[] = "NO-VERSION-INFO";

RQHANDLE alloc(U32 size) noexcept;
#if UINTPTR_MAX == 0xFFFFFFFFu
// The same, handing back the new block's address as well (what lock() of
// the handle gives), so that a caller filling the block looks nothing up.
RQHANDLE alloc(U32 size, void **address) noexcept;
U32 release(RQHANDLE handle) noexcept;

// A handle is the block's address.
inline void *lock(RQHANDLE handle) noexcept { return reinterpret_cast<void *>(static_cast<uintptr_t>(handle)); }

#else

// A handle indexes a table of addresses kept in chunks that never move, so a
// lookup needs no lock.  A free slot holds the next free index, shifted left
// and tagged with bit 0; a live slot holds a block address, always even.
using Slot = uintptr_t;
constexpr U32 kChunkBits = 14;
constexpr U32 kChunkSize = 1u << kChunkBits;
constexpr U32 kChunkCount = 1u << (32 - kChunkBits);

extern Slot *gChunks[kChunkCount];

inline Slot *slotOf(RQHANDLE handle) noexcept
{
    Slot *chunk = __atomic_load_n(&gChunks[handle >> kChunkBits], __ATOMIC_ACQUIRE);
    return chunk != nullptr ? &chunk[handle & (kChunkSize - 1)] : nullptr;
}

inline void *lock(RQHANDLE handle) noexcept
{
    if (handle == 0)
        return nullptr;
    Slot *slot = slotOf(handle);
    if (slot == nullptr)
        return nullptr;
    Slot s = *slot;
    return (s & 1) != 0 ? nullptr : reinterpret_cast<void *>(s);
}

// Each thread keeps a few free indices of its own, so that issuing and
// taking back a handle (once per container element) takes no lock; the
// containers issue and take back in line.
constexpr U32 kCacheMax = 256;
constexpr U32 kBatch = 128;
constexpr Slot kFreeMark = 1;  // a free slot outside the shared free list

struct IndexCache {
    U32 count;
    RQHANDLE items[kCacheMax];
};

// Plain thread-locals of a trivial type: read in line with no wrapper call.
extern __thread IndexCache tCache __attribute__((tls_model("initial-exec")));
extern __thread bool tCacheGone __attribute__((tls_model("initial-exec")));

RQHANDLE refillAndTake() noexcept;
void takeBackSlow(RQHANDLE h, Slot *slot) noexcept;

// Takes an index for `block`; 0 when the table is full or cannot grow.
inline RQHANDLE issue(void *block) noexcept
{
    IndexCache &cache = tCache;
    RQHANDLE h = cache.count != 0 ? cache.items[--cache.count] : refillAndTake();
    if (h != 0)
        *slotOf(h) = reinterpret_cast<Slot>(block);
    return h;
}

// A block of `size` bytes and its handle, the block's address in *address;
// 0 (and null) when either cannot be had.
inline RQHANDLE alloc(U32 size, void **address) noexcept
{
    *address = nullptr;
    void *block = SIS_MemMalloc(nullptr, size, 0, 0, kBlockTag, kBlockVersion, __LINE__);
    if (block == nullptr)
        return 0;
    RQHANDLE h = issue(block);
    if (h == 0) {
        SIS_MemFree(nullptr, block, 0, 0, kBlockTag, kBlockVersion, __LINE__);
        return 0;
    }
    *address = block;
    return h;
}

// Frees the handle's block: 0, or 1 when the handle was never issued or is
// already free.
inline U32 release(RQHANDLE handle) noexcept
{
    if (handle == 0)
        return 0;
    Slot *slot = slotOf(handle);
    if (slot == nullptr || (*slot & 1) != 0 || *slot == 0)
        return 1;
    void *block = reinterpret_cast<void *>(*slot);
    IndexCache &cache = tCache;
    // An empty cache (perhaps never armed for the thread's exit) or a full
    // one is left to the slow path.
    if (__builtin_expect(cache.count - 1 < kCacheMax - 1 && !tCacheGone, 1)) {
        *slot = kFreeMark;
        cache.items[cache.count++] = handle;
    } else {
        takeBackSlow(handle, slot);
    }
    return SIS_MemFree(nullptr, block, 0, 0, kBlockTag, kBlockVersion, __LINE__);
}

#endif

// Handles never move: unlocking has nothing to undo (see MemUnlock).
inline void unlock() noexcept {}

}  // namespace rq::handle

#endif
