// The accounting allocator.  Each block is preceded by a header that links
// it into the list of live blocks and records its size, source tag and line,
// so that the test suite can prove that nothing leaks and name what did.

#include "rqsis/rqsis.h"
#include "rqsis/rqsis_test.h"

#include "internal/rq_spin.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kLiveMagic = 0x5153424Cu;  // "LBSQ"
constexpr uint32_t kDeadMagic = 0xDEADB10Cu;

struct alignas(16) Header {
    Header *prev;
    Header *next;
    size_t size;
    const char *tag;
    uint32_t line;
    uint32_t magic;
};

rq::SpinLock gLiveLock;
Header gLive = {&gLive, &gLive, 0, nullptr, 0, 0};
uint64_t gLiveBlocks = 0;
uint64_t gLiveBytes = 0;

// Failure injection is per thread: a sweep fails the allocations of the
// operation under test and nothing that another thread is doing.
// Initial-exec: every allocation reads it, and the default model for a
// shared library looks it up through a call.
__attribute__((tls_model("initial-exec"))) thread_local long tFailAfter = -1;
__attribute__((tls_model("initial-exec"))) thread_local bool tFired = false;

// Work counts, per thread for the same reason.
thread_local uint64_t tAllocatorCalls = 0;
thread_local uint64_t tSteps = 0;

class LiveLock : public rq::SpinGuard {
public:
    LiveLock() noexcept : rq::SpinGuard(gLiveLock) {}
};

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

void link(Header *h, size_t size, const char *tag, uint32_t line) noexcept
{
    h->size = size;
    h->tag = tag;
    h->line = line;
    h->magic = kLiveMagic;
    LiveLock guard;
    h->next = gLive.next;
    h->prev = &gLive;
    gLive.next->prev = h;
    gLive.next = h;
    ++gLiveBlocks;
    gLiveBytes += size;
}

void unlink(Header *h) noexcept
{
    LiveLock guard;
    h->prev->next = h->next;
    h->next->prev = h->prev;
    --gLiveBlocks;
    gLiveBytes -= h->size;
}

Header *headerOf(void *block) noexcept
{
    Header *h = static_cast<Header *>(block) - 1;
    return h->magic == kLiveMagic ? h : nullptr;
}

void *allocate(size_t size, bool clear, const char *tag, uint32_t line) noexcept
{
    ++tAllocatorCalls;
    if (injectFailure() || size > SIZE_MAX - sizeof(Header))
        return nullptr;
    void *raw = clear ? std::calloc(1, sizeof(Header) + size) : std::malloc(sizeof(Header) + size);
    if (raw == nullptr)
        return nullptr;
    Header *h = static_cast<Header *>(raw);
    link(h, size, tag, line);
    return h + 1;
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
    if (old == nullptr || injectFailure() || size > SIZE_MAX - sizeof(Header))
        return nullptr;
    // Unlink first: realloc may move the header, and the list must never
    // point at a block that is being moved.
    unlink(old);
    size_t oldSize = old->size;
    void *raw = std::realloc(old, sizeof(Header) + size);
    if (raw == nullptr) {
        link(old, oldSize, old->tag, old->line);
        return nullptr;
    }
    Header *h = static_cast<Header *>(raw);
    link(h, size, tag, line);
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
    Header *h = headerOf(block);
    if (h == nullptr)
        return 1;  // not one of ours, or freed twice: refuse rather than corrupt
    unlink(h);
    h->magic = kDeadMagic;
    std::free(h);
    return 0;
}

void SIS_TestLiveGet(uint64_t *blocks, uint64_t *bytes) noexcept
{
    LiveLock guard;
    if (blocks != nullptr)
        *blocks = gLiveBlocks;
    if (bytes != nullptr)
        *bytes = gLiveBytes;
}

uint64_t SIS_TestLiveReport(FILE *out) noexcept
{
    LiveLock guard;
    uint64_t n = 0;
    for (Header *h = gLive.next; h != &gLive; h = h->next, ++n) {
        if (out != nullptr)
            std::fprintf(out, "live block %p: %zu bytes from %s:%u\n", static_cast<void *>(h + 1),
                         h->size, h->tag != nullptr ? h->tag : "?", h->line);
    }
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
