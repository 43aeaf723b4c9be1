// The accounting allocator.  Each block is preceded by a header that records
// its size, source tag and line, and the allocator can find every live
// block, so that the test suite can prove that nothing leaks and name what
// did.
//
// Every thread allocates from a heap of its own: its pools and its list of
// large blocks are touched by that thread alone, so an allocation and the
// free of a block by the thread that allocated it take no lock and no atomic
// instruction (the containers allocate and free one small block per
// element; a locked global list cost more than the rest of the work).  A
// block freed by another thread is marked dead, counted free at once and
// pushed, lock-free, onto its heap's list of remote frees; the owner takes
// those back at its next allocation.  When a thread ends, its heap (with
// whatever it still holds) waits for the next new thread to adopt it.  A
// thread that allocates after its heap was given up (in its own exit-time
// destructors) uses one shared heap under a lock.
//
// Small blocks (container elements, list headers, short texts) come from
// pools: a free list per 8-byte size class, refilled from 64 KB slabs that
// the allocator maps itself, aligned on their size, so that a block finds
// its heap from its slab and its header stays 16 bytes (a list element
// takes 40 bytes in all, where a 32-byte header made it 56: a walk over a
// long list touches that much less memory).  The live report finds pooled
// blocks by walking the slabs.  A
// freed small block is kept for reuse by its class, as the C library keeps
// its own bins: peak small-block memory stays reserved.  Under
// AddressSanitizer every block comes from malloc, so that its red zones
// still catch an overrun of the block.

#include "rqsis/rqsis.h"
#include "rqsis/rqsis_test.h"

#include "internal/rq_spin.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>

namespace {

struct Heap;

// Every block's header, right before the block: 16 bytes on both targets.
// `word` holds the block's kind (pooled or large, live or dead) in its high
// bits and, for a pooled block, its size in the low ones.
struct alignas(16) Header {
    const char *tag;  // once freed: the next chunk in a free or remote list
    uint32_t line;
    uint32_t word;
};

constexpr uint32_t kSizeBits = 0x1FFu;  // a pooled size, at most 256
constexpr uint32_t kPooledLive = 0x5153A000u;
constexpr uint32_t kPooledDead = 0xDEADA000u;
constexpr uint32_t kLargeLive = 0x5153C000u;
constexpr uint32_t kLargeDead = 0xDEADC000u;

uint32_t kindOf(const Header *h) noexcept { return h->word & ~kSizeBits; }
bool isPooled(const Header *h) noexcept { return kindOf(h) == kPooledLive || kindOf(h) == kPooledDead; }
bool isLive(const Header *h) noexcept { return kindOf(h) == kPooledLive || kindOf(h) == kLargeLive; }

// Blocks too large for the pools carry their size and heap in front of the
// header, and sit in their heap's list so that the live report finds them.
struct alignas(16) Links {
    Links *prev;
    Links *next;
};

struct alignas(16) Large {
    Links links;
    size_t size;
    Heap *owner;
};

Large *largeOf(Header *h) noexcept { return reinterpret_cast<Large *>(h) - 1; }
const Large *largeOf(const Header *h) noexcept { return reinterpret_cast<const Large *>(h) - 1; }
Header *headerAfter(Large *l) noexcept { return reinterpret_cast<Header *>(l + 1); }
Links *linksOf(Header *h) noexcept { return &largeOf(h)->links; }

size_t sizeOf(const Header *h) noexcept { return isPooled(h) ? h->word & kSizeBits : largeOf(h)->size; }

// A slab starts on a multiple of its size, with the heap that carves it.
// Its mark lets free tell a block of ours from a stray pointer whose header
// happens to read as a pooled block's.
constexpr uint64_t kSlabMark = 0x51534C4142534953u;

struct alignas(64) Slab {
    Slab *next;
    Heap *owner;
    uint64_t mark;
};

#if defined(__SANITIZE_ADDRESS__)
#define RQSIS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define RQSIS_ASAN 1
#endif
#endif

#if defined(RQSIS_ASAN)
constexpr size_t kPoolMax = 0;
#else
constexpr size_t kPoolMax = 256;  // largest size served from the pools
#endif
// 8-byte classes: a block is 8-byte aligned, and 16-byte aligned when its
// size is a multiple of 16 (no object of another size needs more).
constexpr size_t kClassStep = 8;
constexpr size_t kClassCount = kPoolMax / kClassStep + 1;
constexpr size_t kSlabBytes = 64 * 1024;
constexpr size_t kRegionBytes = 16 * kSlabBytes;  // mapped at a time

Slab *slabOf(const Header *h) noexcept
{
    return reinterpret_cast<Slab *>(reinterpret_cast<uintptr_t>(h) & ~uintptr_t{kSlabBytes - 1});
}

// Whether a block of `size` bytes is served from a pool; its header then
// says so, and free and realloc read it there.
constexpr bool pooled(size_t size) noexcept { return size != 0 && size <= kPoolMax; }
constexpr size_t classOf(size_t size) noexcept { return (size + kClassStep - 1) / kClassStep; }
constexpr size_t chunkBytes(size_t cls) noexcept { return sizeof(Header) + cls * kClassStep; }

struct Pool {
    Header *free = nullptr;
    char *fresh = nullptr;  // the unused rest of the newest slab
    char *end = nullptr;
    Slab *slabs = nullptr;  // newest first
};

// The owner's counters are written by the owner alone (plain stores of
// atomics, so that a reader in another thread sees whole values); remote
// frees are counted apart, by the freeing thread.  Word-sized: no target
// holds more blocks or bytes than its addresses reach, and a 64-bit atomic
// on i386 goes through the x87 unit at every allocation.
using Count = std::atomic<size_t>;

struct Heap {
    Links big{};
    Pool pools[kClassCount];
    Count blocks{0};
    Count bytes{0};
    std::atomic<Header *> remote{nullptr};
    Count remoteBlocks{0};
    Count remoteBytes{0};
    std::atomic<bool> orphan{false};
    Heap *nextHeap = nullptr;  // the registry: every heap ever made
};

// Heaps are never freed: a block may outlive its thread and name its heap.
rq::SpinLock gRegistryLock;
std::atomic<Heap *> gHeaps{nullptr};

// The heap of threads that allocate after giving theirs up; under
// gSharedLock.  Constant-initialised (zero), its list set up on first use.
constinit Heap gShared;
rq::SpinLock gSharedLock;

__attribute__((tls_model("initial-exec"))) thread_local Heap *tHeap = nullptr;
__attribute__((tls_model("initial-exec"))) thread_local bool tDetached = false;

// Failure injection is per thread: a sweep fails the allocations of the
// operation under test and nothing that another thread is doing.
// Initial-exec: every allocation reads it, and the default model for a
// shared library looks it up through a call.
__attribute__((tls_model("initial-exec"))) thread_local long tFailAfter = -1;
__attribute__((tls_model("initial-exec"))) thread_local bool tFired = false;

// Work counts, per thread for the same reason.
__attribute__((tls_model("initial-exec"))) thread_local uint64_t tAllocatorCalls = 0;
__attribute__((tls_model("initial-exec"))) thread_local uint64_t tSteps = 0;

bool injectFailure() noexcept
{
    if (tFailAfter < 0)
        return false;
    if (tFailAfter == 0) {
        tFailAfter = -1;
        tFired = true;
        return true;
    }
    --tFailAfter;
    return false;
}

void initHeap(Heap &heap) noexcept
{
    heap.big.prev = heap.big.next = &heap.big;
}

// ---- the owner's side: no other thread touches these ----------------------

void add(Count &counter, size_t n) noexcept
{
    counter.store(counter.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
}

void sub(Count &counter, size_t n) noexcept
{
    counter.store(counter.load(std::memory_order_relaxed) - n, std::memory_order_relaxed);
}

void markLive(Heap &heap, Header *h, size_t size, const char *tag, uint32_t line) noexcept
{
    h->tag = tag;
    h->line = line;
    add(heap.blocks, 1);
    add(heap.bytes, size);
}

void linkBig(Heap &heap, Header *h) noexcept
{
    Links *l = linksOf(h);
    l->next = heap.big.next;
    l->prev = &heap.big;
    heap.big.next->prev = l;
    heap.big.next = l;
}

void unlinkBig(Header *h) noexcept
{
    Links *l = linksOf(h);
    l->prev->next = l->next;
    l->next->prev = l->prev;
}

// Slabs are cut from regions mapped a megabyte at a time, shared by every
// heap; they belong to the allocator for the life of the process.
rq::SpinLock gRegionLock;
char *gRegionNext = nullptr;
char *gRegionEnd = nullptr;

void *takeSlab() noexcept
{
    rq::SpinGuard guard(gRegionLock);
    if (gRegionNext == gRegionEnd) {
        // One slab more than the region, so that an aligned region fits;
        // the unaligned head and tail go back at once.
        size_t span = kRegionBytes + kSlabBytes;
        void *raw = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (raw == MAP_FAILED)
            return nullptr;
        uintptr_t start = reinterpret_cast<uintptr_t>(raw);
        uintptr_t first = (start + kSlabBytes - 1) & ~uintptr_t{kSlabBytes - 1};
        uintptr_t end = first + kRegionBytes;
        if (first != start)
            munmap(raw, first - start);
        if (start + span != end)
            munmap(reinterpret_cast<void *>(end), start + span - end);
        gRegionNext = reinterpret_cast<char *>(first);
        gRegionEnd = reinterpret_cast<char *>(end);
    }
    void *slab = gRegionNext;
    gRegionNext += kSlabBytes;
    return slab;
}

// A chunk of class `cls`; null when a new slab cannot be had.
[[gnu::noinline]] Header *carveChunk(Heap &heap, Pool &pool, size_t cls) noexcept
{
    size_t bytes = chunkBytes(cls);
    if (static_cast<size_t>(pool.end - pool.fresh) < bytes) {
        // Slabs and their header are 64-byte aligned, and so is the first
        // chunk.
        Slab *slab = static_cast<Slab *>(takeSlab());
        if (slab == nullptr)
            return nullptr;
        slab->owner = &heap;
        slab->mark = kSlabMark;
        slab->next = pool.slabs;
        pool.slabs = slab;
        pool.fresh = reinterpret_cast<char *>(slab + 1);
        pool.end = reinterpret_cast<char *>(slab) + kSlabBytes;
    }
    Header *h = reinterpret_cast<Header *>(pool.fresh);
    pool.fresh += bytes;
    return h;
}

inline Header *takeChunk(Heap &heap, size_t cls) noexcept
{
    Pool &pool = heap.pools[cls];
    if (Header *h = pool.free; h != nullptr) {
        Header *next = reinterpret_cast<Header *>(const_cast<char *>(h->tag));
        pool.free = next;
        // The next allocation of this class reads and writes that chunk:
        // fetching it now takes the miss off that allocation's path.
        __builtin_prefetch(next, 1);
        return h;
    }
    return carveChunk(heap, pool, cls);
}

// Gives a dead block back to its pool or, with its links, to the C library.
void dispose(Heap &heap, Header *h) noexcept
{
    if (isPooled(h)) {
        Pool &pool = heap.pools[classOf(h->word & kSizeBits)];
        h->tag = reinterpret_cast<const char *>(pool.free);
        pool.free = h;
    } else {
        unlinkBig(h);
        std::free(largeOf(h));
    }
}

// Calls visit(header) for every chunk carved from the heap's slabs.
template <typename Visit>
void forEachChunk(Heap &heap, Visit visit) noexcept
{
    for (size_t cls = 1; cls < kClassCount; ++cls) {
        const Pool &pool = heap.pools[cls];
        size_t bytes = chunkBytes(cls);
        for (Slab *slab = pool.slabs; slab != nullptr; slab = slab->next) {
            char *p = reinterpret_cast<char *>(slab + 1);
            char *stop = slab == pool.slabs ? pool.fresh : reinterpret_cast<char *>(slab) + kSlabBytes;
            for (; static_cast<size_t>(stop - p) >= bytes; p += bytes)
                visit(reinterpret_cast<Header *>(p));
        }
    }
}

// Takes back the blocks other threads freed: they are still in this heap's
// live list, marked dead, and chained through their tag field.
[[gnu::noinline, gnu::cold]] void drainRemote(Heap &heap) noexcept
{
    Header *h = heap.remote.exchange(nullptr, std::memory_order_acquire);
    size_t blocks = 0, bytes = 0;
    while (h != nullptr) {
        Header *after = reinterpret_cast<Header *>(const_cast<char *>(h->tag));
        size_t size = sizeOf(h);
        ++blocks;
        bytes += size;
        sub(heap.blocks, 1);
        sub(heap.bytes, size);
        dispose(heap, h);
        h = after;
    }
    if (blocks != 0) {
        heap.remoteBlocks.fetch_sub(blocks, std::memory_order_relaxed);
        heap.remoteBytes.fetch_sub(bytes, std::memory_order_relaxed);
    }
}

// Owner-side allocation and release.
[[gnu::noinline]] Header *allocateLarge(Heap &heap, size_t size, bool clear) noexcept
{
    size_t total = sizeof(Large) + sizeof(Header) + size;
    void *raw = clear ? std::calloc(1, total) : std::malloc(total);
    if (raw == nullptr)
        return nullptr;
    Large *large = static_cast<Large *>(raw);
    large->size = size;
    large->owner = &heap;
    Header *h = headerAfter(large);
    h->word = kLargeLive;
    linkBig(heap, h);
    return h;
}

inline Header *allocateIn(Heap &heap, size_t size, bool clear, const char *tag, uint32_t line) noexcept
{
    if (heap.remote.load(std::memory_order_relaxed) != nullptr)
        drainRemote(heap);
    Header *h;
    if (pooled(size)) {
        h = takeChunk(heap, classOf(size));
        if (h == nullptr)
            return nullptr;
        if (clear)
            std::memset(h + 1, 0, size);
        h->word = kPooledLive | static_cast<uint32_t>(size);
    } else {
        h = allocateLarge(heap, size, clear);
        if (h == nullptr)
            return nullptr;
    }
    markLive(heap, h, size, tag, line);
    return h;
}

// A dead block keeps its kind and size until it is taken back.
void markDead(Header *h) noexcept
{
    h->word = (isPooled(h) ? kPooledDead : kLargeDead) | (h->word & kSizeBits);
}

void releaseIn(Heap &heap, Header *h) noexcept
{
    sub(heap.blocks, 1);
    sub(heap.bytes, sizeOf(h));
    markDead(h);
    dispose(heap, h);
}

// ---- threads and their heaps ---------------------------------------------------

// Gives the heap up when its thread ends.
struct HeapHolder {
    Heap *heap = nullptr;
    ~HeapHolder()
    {
        tHeap = nullptr;
        tDetached = true;
        if (heap != nullptr)
            heap->orphan.store(true, std::memory_order_release);
    }
};

thread_local HeapHolder tHolder;

// The calling thread's heap: adopted from a thread that ended, or new; null
// when none can be had (the shared heap serves then).
[[gnu::noinline]] Heap *attach() noexcept
{
    if (tDetached)
        return nullptr;
    Heap *heap = nullptr;
    {
        rq::SpinGuard guard(gRegistryLock);
        for (Heap *h = gHeaps.load(std::memory_order_relaxed); h != nullptr; h = h->nextHeap) {
            if (h->orphan.load(std::memory_order_acquire)) {
                h->orphan.store(false, std::memory_order_relaxed);
                heap = h;
                break;
            }
        }
        if (heap == nullptr) {
            // The heap itself is the allocator's, outside the accounting.
            void *raw = std::calloc(1, sizeof(Heap));
            if (raw == nullptr)
                return nullptr;
            heap = new (raw) Heap;
            initHeap(*heap);
            heap->nextHeap = gHeaps.load(std::memory_order_relaxed);
            gHeaps.store(heap, std::memory_order_release);
        }
    }
    tHolder.heap = heap;  // the first use registers its destructor
    tHeap = heap;
    return heap;
}

Heap *myHeap() noexcept
{
    Heap *heap = tHeap;
    return heap != nullptr ? heap : attach();
}

Header *headerOf(void *block) noexcept
{
    Header *h = static_cast<Header *>(block) - 1;
    if (kindOf(h) == kPooledLive)
        return slabOf(h)->mark == kSlabMark ? h : nullptr;
    return kindOf(h) == kLargeLive ? h : nullptr;
}

[[gnu::noinline]] Header *allocateShared(size_t size, bool clear, const char *tag, uint32_t line) noexcept
{
    rq::SpinGuard guard(gSharedLock);
    if (gShared.big.next == nullptr)
        initHeap(gShared);
    return allocateIn(gShared, size, clear, tag, line);
}

inline Header *allocateHeader(size_t size, bool clear, const char *tag, uint32_t line) noexcept
{
    if (Heap *heap = myHeap(); heap != nullptr)
        return allocateIn(*heap, size, clear, tag, line);
    return allocateShared(size, clear, tag, line);
}

void *allocate(size_t size, bool clear, const char *tag, uint32_t line) noexcept
{
    ++tAllocatorCalls;
    if (injectFailure() || size > SIZE_MAX - sizeof(Large) - sizeof(Header))
        return nullptr;
    Header *h = allocateHeader(size, clear, tag, line);
    return h != nullptr ? h + 1 : nullptr;
}

Heap *ownerOf(const Header *h) noexcept
{
    return isPooled(h) ? slabOf(h)->owner : largeOf(h)->owner;
}

// Frees a live block from whichever thread.
void release(Header *h) noexcept
{
    Heap *owner = ownerOf(h);
    if (owner == tHeap) {
        releaseIn(*owner, h);
        return;
    }
    if (owner == &gShared) {
        rq::SpinGuard guard(gSharedLock);
        releaseIn(gShared, h);
        return;
    }
    // Another thread's block: counted free now, taken back by its owner.
    size_t size = sizeOf(h);
    markDead(h);
    owner->remoteBlocks.fetch_add(1, std::memory_order_relaxed);
    owner->remoteBytes.fetch_add(size, std::memory_order_relaxed);
    Header *head = owner->remote.load(std::memory_order_relaxed);
    do
        h->tag = reinterpret_cast<const char *>(head);
    while (!owner->remote.compare_exchange_weak(head, h, std::memory_order_release, std::memory_order_relaxed));
}

template <typename Visit>
void forEachHeap(Visit visit) noexcept
{
    if (gShared.big.next != nullptr)
        visit(gShared);
    for (Heap *h = gHeaps.load(std::memory_order_acquire); h != nullptr; h = h->nextHeap)
        visit(*h);
}

}  // namespace

extern "C" {

void *SIS_MemMalloc(void *, size_t size, uint32_t, uint32_t, const char *tag, const char *,
                    uint32_t line) noexcept
{
    return allocate(size, false, tag, line);
}

void *SIS_MemCalloc(void *, size_t count, size_t size, uint32_t, uint32_t, const char *tag,
                    const char *, uint32_t line) noexcept
{
    if (size != 0 && count > SIZE_MAX / size)
        return nullptr;
    return allocate(count * size, true, tag, line);
}

void *SIS_MemRealloc(void *, void *block, size_t size, uint32_t, uint32_t, const char *tag,
                     const char *, uint32_t line) noexcept
{
    if (block == nullptr)
        return allocate(size, false, tag, line);
    ++tAllocatorCalls;
    Header *old = headerOf(block);
    if (old == nullptr || injectFailure() || size > SIZE_MAX - sizeof(Large) - sizeof(Header))
        return nullptr;
    Heap *heap = myHeap();
    size_t oldSize = sizeOf(old);
    if (heap == nullptr || isPooled(old) || largeOf(old)->owner != heap || pooled(size)) {
        // Another heap's block, or a pooled one (its class is fixed by its
        // size): move it.
        Header *h = allocateHeader(size, false, tag, line);
        if (h == nullptr)
            return nullptr;
        std::memcpy(h + 1, block, oldSize < size ? oldSize : size);
        release(old);
        return h + 1;
    }
    // Unlink first: realloc may move the block, and the list must never
    // point at a block that is being moved.
    unlinkBig(old);
    void *raw = std::realloc(largeOf(old), sizeof(Large) + sizeof(Header) + size);
    if (raw == nullptr) {
        linkBig(*heap, old);
        return nullptr;
    }
    Header *h = headerAfter(static_cast<Large *>(raw));
    linkBig(*heap, h);
    sub(heap->bytes, oldSize);
    add(heap->bytes, size);
    largeOf(h)->size = size;
    h->tag = tag;
    h->line = line;
    return h + 1;
}

char *SIS_MemStrdup(void *, const char *text, uint32_t, uint32_t, const char *tag, const char *,
                    uint32_t line) noexcept
{
    if (text == nullptr)
        return nullptr;
    size_t n = std::strlen(text) + 1;
    char *copy = static_cast<char *>(allocate(n, false, tag, line));
    if (copy != nullptr)
        std::memcpy(copy, text, n);
    return copy;
}

SIS_STATUS SIS_MemFree(void *, void *block, uint32_t, uint32_t, const char *, const char *,
                       uint32_t) noexcept
{
    if (block == nullptr)
        return 0;
    ++tAllocatorCalls;
    Header *h = static_cast<Header *>(block) - 1;
    uint32_t word = h->word;
    if ((word & ~kSizeBits) == kPooledLive) {
        // The common case in line: a small block freed by its own thread.
        Slab *slab = slabOf(h);
        if (Heap *heap = tHeap; slab->owner == heap && heap != nullptr) {
            size_t size = word & kSizeBits;
            sub(heap->blocks, 1);
            sub(heap->bytes, size);
            h->word = kPooledDead | static_cast<uint32_t>(size);
            Pool &pool = heap->pools[classOf(size)];
            h->tag = reinterpret_cast<const char *>(pool.free);
            pool.free = h;
            return 0;
        }
        // Not this thread's: ours at all?  (A slab naming this thread's
        // heap is taken as ours without looking further.)
        if (slab->mark != kSlabMark)
            return 1;
    } else if ((word & ~kSizeBits) != kLargeLive) {
        return 1;  // not one of ours, or freed twice: refuse rather than corrupt
    }
    release(h);
    return 0;
}

// The test interface reads every heap while their threads may run: the
// counts are each a consistent snapshot of one heap, and the report is meant
// for a moment when no other thread allocates.
void SIS_TestLiveGet(uint64_t *blocks, uint64_t *bytes) noexcept
{
    // Summed modulo the word: a heap's share may dip below zero while its
    // owner takes remote frees back, the total never does.
    size_t nBlocks = 0, nBytes = 0;
    forEachHeap([&](Heap &heap) {
        nBlocks += heap.blocks.load(std::memory_order_relaxed) - heap.remoteBlocks.load(std::memory_order_relaxed);
        nBytes += heap.bytes.load(std::memory_order_relaxed) - heap.remoteBytes.load(std::memory_order_relaxed);
    });
    if (blocks != nullptr)
        *blocks = nBlocks;
    if (bytes != nullptr)
        *bytes = nBytes;
}

uint64_t SIS_TestLiveReport(FILE *out) noexcept
{
    uint64_t n = 0;
    auto report = [&](const Header *h) {
        // Freed blocks (and those freed by another thread, not yet taken
        // back) are passed over.
        if (!isLive(h))
            return;
        ++n;
        if (out != nullptr)
            std::fprintf(out, "live block %p: %zu bytes from %s:%u\n", static_cast<const void *>(h + 1), sizeOf(h),
                         h->tag != nullptr ? h->tag : "?", h->line);
    };
    forEachHeap([&](Heap &heap) {
        for (Links *l = heap.big.next; l != &heap.big; l = l->next)
            report(headerAfter(reinterpret_cast<Large *>(l)));
        forEachChunk(heap, report);
    });
    return n;
}

void SIS_TestWorkGet(uint64_t *allocatorCalls, uint64_t *steps) noexcept
{
    if (allocatorCalls != nullptr)
        *allocatorCalls = tAllocatorCalls;
    if (steps != nullptr)
        *steps = tSteps;
}

void SIS_TestStepsAdd(uint64_t steps) noexcept
{
    tSteps += steps;
}

void SIS_TestFailAfter(long succeed) noexcept
{
    tFailAfter = succeed < 0 ? -1 : succeed;
    tFired = false;
}

int SIS_TestFailFired(void) noexcept
{
    return tFired ? 1 : 0;
}

}  // extern "C"
