// Walking a list: first, next, current, previous and last.  The list keeps
// one position (the current element and the one before it), so a walk can
// delete or replace the element it stands on.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/list_walk"
#include "internal/rq_mem.h"

#include "list_internal.h"

#include <cstring>

using namespace rq::list;

namespace {

// Landing on nothing clears the caller's identifier and reports the end.
[[gnu::noinline]] U32 end(const Header &h, void *idOut) noexcept
{
    if (idOut != nullptr)
        std::memset(idOut, 0, h.idSize);
    return DX_LIST_END;
}

// Reads the element that has just become current, remembering its address
// for the next step.
U32 land(Header &h, RQHANDLE e, void *idOut, void *dataOut, U32 lockCode) noexcept
{
    ElementLock el(e);
    if (!el)
        return lockCode;
    h.currentAt = el.get();
    readElement(h, el.get(), idOut, dataOut);
    return 0;
}

// One step forward: the successor of current becomes current, its address
// remembered for the step after.
inline void moveTo(Header &h, RQHANDLE next, U8 *at) noexcept
{
    h.prev = h.current;
    // Kept a store of its own: merged with the next one into a wider store,
    // the next step's read of `current` could not be forwarded from it.
    __asm__("" : "+m"(h.prev));
    h.current = next;
    h.currentAt = at;
}

#if UINTPTR_MAX != 0xFFFFFFFFu
// The fixed-size step's copy of items other than 32-bit ones.
[[gnu::noinline]] U32 readOut(const Header &h, const U8 *e, void *idOut, void *dataOut) noexcept
{
    readElement(h, e, idOut, dataOut);
    return 0;
}
#endif

// One step of a walk, for every layout and every case.
[[gnu::noinline]] U32 step(Header &h, void *idOut, void *dataOut) noexcept
{
    const U8 *cur = landedAt(h);
    if (cur == nullptr)
        return DX_LIST_ERR_NEXT_ELEMENT_LOCK;
    RQHANDLE next = nextOf(cur);
    U8 *to = follow(hintOffset(h), cur, next);
    rq::handle::unlock();
    moveTo(h, next, to);
    if (next == 0)
        return end(h, idOut);
    if (to == nullptr)
        return DX_LIST_ERR_NEXT_ELEMENT_LOCK;
    readElement(h, to, idOut, dataOut);
    rq::handle::unlock();
    return 0;
}

#if UINTPTR_MAX != 0xFFFFFFFFu
// The step over fixed-size elements (identifier at idAt, hint at hintAt)
// from both remembered addresses, the current element's and its
// successor's (the hint).  Anything else (a guess that does not hold, the
// end, a failed lock) is the general step's, which starts over: nothing is
// changed before.
// Cells32: the identifier and data are known to be 32-bit items.
template <bool Cells32>
[[gnu::always_inline]] inline U32 stepFixed(Header &hd, void *idOut, void *dataOut, U32 idAt, U32 hintAt) noexcept
{
    U8 *real = static_cast<U8 *>(rq::handle::lock(hd.current));
    U8 *cur = hd.currentAt;
    U8 *ahead = cur;
    __asm__("" : "+r"(ahead));  // see follow
    if (__builtin_expect(cur != real || cur == nullptr, 0))
        return step(hd, idOut, dataOut);
    RQHANDLE next = nextOf(ahead);
    U8 *realNext = static_cast<U8 *>(rq::handle::lock(next));
    U8 *to;
    std::memcpy(&to, ahead + hintAt, sizeof to);
    U8 *toAhead = to;
    __asm__("" : "+r"(toAhead));
    if (__builtin_expect(to != realNext || to == nullptr, 0))
        return step(hd, idOut, dataOut);
    moveTo(hd, next, toAhead);
    if (!Cells32 && __builtin_expect(hd.idSize != 4 || (hd.dataSize != 4 && hd.dataSize != 0), 0))
        return readOut(hd, toAhead, idOut, dataOut);
    // 32-bit identifier and data (or none): copied in line, with no call
    // left for which to keep registers.
    if (idOut != nullptr)
        std::memcpy(idOut, toAhead + idAt, 4);
    if (dataOut != nullptr && (Cells32 || hd.dataSize != 0))
        std::memcpy(dataOut, dataOf(toAhead), 4);
    return 0;
}
#endif

[[gnu::noinline]] U32 first(Header &h, void *idOut, void *dataOut) noexcept
{
    h.current = h.first;
    h.prev = 0;
    if (h.current == 0)
        return end(h, idOut);
    return land(h, h.current, idOut, dataOut, DX_LIST_ERR_FIRST_ELEMENT_LOCK);
}

}  // namespace

extern "C" {

RQ_API U32 DX_ListGetFirst(HLIST list, void *idOut, void *dataOut) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_FIRST_LOCK;
    return first(*h.get(), idOut, dataOut);
}

RQ_API U32 DX_ListGetNext(HLIST list, void *idOut, void *dataOut) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_NEXT_LOCK;
    Header &hd = *h.get();
    // Callers rely on this: after the end (or before any step) the walk
    // starts again at the first element.
    if (hd.current == 0)
        return first(hd, idOut, dataOut);
#if UINTPTR_MAX == 0xFFFFFFFFu
    return step(hd, idOut, dataOut);
#else
    if (__builtin_expect(!fixedLayout(hd), 0))
        return step(hd, idOut, dataOut);
    // The common 32-bit cell gets its offsets as constants: the walk's one
    // dependent load then needs no index.
    if (hd.idSize == 4 && hd.dataSize == 4)
        return stepFixed<true>(hd, idOut, dataOut, 8, 12);
    return stepFixed<false>(hd, idOut, dataOut, 4 + hd.dataSize + pad4(hd.dataSize),
                            4 + hd.dataSize + pad4(hd.dataSize) + hd.idSize);
#endif
}

RQ_API U32 DX_ListGetCurrent(HLIST list, void *idOut, void *dataOut) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_NEXT_LOCK;
    if (h->current == 0)
        return end(*h.get(), idOut);
    return land(*h.get(), h->current, idOut, dataOut, DX_LIST_ERR_NEXT_ELEMENT_LOCK);
}

RQ_API U32 DX_ListGetPrev(HLIST list, void *idOut, void *dataOut) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_PREV_LOCK;
    if (h->prev == 0)
        return end(*h.get(), idOut);
    // The element before is found again by value, searching from the front:
    // callers rely on a walk back over equal cells landing on the first one.
    RQHANDLE before = 0, found = 0;
    bool lockFailed;
    {
        ElementLock target(h->prev);
        if (!target)
            return DX_LIST_ERR_PREV_LOCK;
        const void *id = idOf(*h.get(), target.get());
        const void *data = dataOf(target.get());
        if (!findElement(*h.get(), id, data, &before, &found, &lockFailed))
            return DX_LIST_ERR_PREV_LOCK;
    }
    h->current = found;
    h->prev = before;
    return land(*h.get(), found, idOut, dataOut, DX_LIST_ERR_PREV_LOCK);
}

RQ_API U32 DX_ListGetLast(HLIST list, void *idOut, void *dataOut) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_LAST_LOCK;
    if (h->last == 0) {
        h->current = 0;
        return end(*h.get(), idOut);
    }
    // The predecessor of the last element by its link, so that the position
    // stays on the last element even when an equal cell comes earlier.
    RQHANDLE before = 0;
    for (RQHANDLE cur = h->first; cur != h->last;) {
        ElementLock e(cur);
        if (!e)
            return DX_LIST_ERR_LAST_LOCK;
        before = cur;
        cur = nextOf(e.get());
        if (cur == 0)
            return DX_LIST_ERR_LAST_LOCK;  // last not on the chain
    }
    h->current = h->last;
    h->prev = before;
    return land(*h.get(), h->last, idOut, dataOut, DX_LIST_ERR_LAST_LOCK);
}

}  // extern "C"
