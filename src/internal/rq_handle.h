// Internal to librqcore: the memory-handle layer as the library's own code
// reaches it.  MemAlloc, MemLock and MemFree are exported, so a call to them
// from inside the library goes through the procedure linkage table and may
// not be inlined; the containers lock a handle for every element they touch,
// so they use these hidden forms instead.  Each behaves exactly as the
// exported function of the same name (which calls it).
#ifndef RQ_INTERNAL_HANDLE_H
#define RQ_INTERNAL_HANDLE_H

#include "rqcore/frame.h"

#include <cstdint>

namespace rq::handle {

RQHANDLE alloc(U32 size) noexcept;
// The same, handing back the new block's address as well (what lock() of
// the handle gives), so that a caller filling the block looks nothing up.
RQHANDLE alloc(U32 size, void **address) noexcept;
U32 release(RQHANDLE handle) noexcept;

#if UINTPTR_MAX == 0xFFFFFFFFu

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

#endif

// Handles never move: unlocking has nothing to undo (see MemUnlock).
inline void unlock() noexcept {}

}  // namespace rq::handle

#endif
