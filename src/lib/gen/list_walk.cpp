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
U32 end(const Header &h, void *idOut) noexcept
{
    if (idOut != nullptr)
        std::memset(idOut, 0, h.idSize);
    return DX_LIST_END;
}

U32 land(const Header &h, RQHANDLE e, void *idOut, void *dataOut, U32 lockCode) noexcept
{
    ElementLock el(e);
    if (!el)
        return lockCode;
    readElement(h, el.get(), idOut, dataOut);
    return 0;
}

U32 first(Header &h, void *idOut, void *dataOut) noexcept
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
    // Callers rely on this: after the end (or before any step) the walk
    // starts again at the first element.
    if (h->current == 0)
        return first(*h.get(), idOut, dataOut);
    RQHANDLE next;
    U8 *to;
    {
        ElementLock cur(h->current);
        if (!cur)
            return DX_LIST_ERR_NEXT_ELEMENT_LOCK;
        next = nextOf(cur.get());
        to = follow(hintOffset(*h.get()), cur.get(), next);
    }
    h->prev = h->current;
    h->current = next;
    if (next == 0)
        return end(*h.get(), idOut);
    if (to == nullptr)
        return DX_LIST_ERR_NEXT_ELEMENT_LOCK;
    readElement(*h.get(), to, idOut, dataOut);
    rq::handle::unlock();
    return 0;
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
