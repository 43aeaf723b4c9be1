// Identifiers and data of list elements: copying in and out, sizes, the
// header's values, and replacing an element's contents (change data,
// update current).

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/list_data"
#include "internal/rq_mem.h"

#include "list_internal.h"

#include <cstring>

using namespace rq::list;

namespace {

// Puts a new element with (id, data) in the place of `old` (whose
// predecessor is `before`); null id or data keep the old ones.  Everything
// that named the old element names the new one.
U32 replaceElement(Header &h, RQHANDLE before, RQHANDLE old, const void *id, const void *data,
                   U32 lockCode) noexcept
{
    RQHANDLE fresh;
    {
        ElementLock o(old);
        if (!o)
            return lockCode;
        U32 status = makeElement(h, &fresh, id != nullptr ? id : idOf(h, o.get()),
                                 data != nullptr ? data : dataOf(o.get()), nextOf(o.get()));
        if (status != 0)
            return status;
    }
    if (before == 0) {
        h.first = fresh;
    } else {
        ElementLock b(before);
        if (!b) {
            rq::handle::release(fresh);
            return lockCode;
        }
        setNext(h, b.get(), fresh);
    }
    if (h.last == old)
        h.last = fresh;
    if (h.current == old)
        h.current = fresh;
    if (h.prev == old)
        h.prev = fresh;
    rq::handle::release(old);
    return 0;
}

// Overwrites in place (fixed-size layouts) or rebuilds (string layouts,
// whose element size follows the stored texts).
U32 replaceContents(Header &h, RQHANDLE before, RQHANDLE e, const void *id, const void *data,
                    U32 lockCode) noexcept
{
    if ((h.flags & (DX_LIST_STRING_ID | DX_LIST_STRING_DATA)) != 0)
        return replaceElement(h, before, e, id, data, lockCode);
    ElementLock el(e);
    if (!el)
        return lockCode;
    writeContents(h, el.get(), id, data);
    return 0;
}

U32 updateCurrent(HLIST list, const void *id, const void *data, bool refuseSorted) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_UPDATE_LOCK;
    if (refuseSorted && (h->flags & DX_LIST_SORTED) != 0)
        return DX_LIST_ERR_UPDATE_REFUSED;
    if (h->current == 0)
        return DX_LIST_END;
    if (h->current == h->prev)
        return DX_LIST_ERR_UPDATE_REFUSED;  // the current element was deleted
    // A replacement element that cannot be built reports the element's code
    // (0x15019 when memory is short); the list is then unchanged.
    return replaceContents(*h.get(), h->prev, h->current, id, data, DX_LIST_ERR_UPDATE_LOCK);
}

}  // namespace

extern "C" {

RQ_API U32 DX_ListSetData(HLIST list, void *element, const void *id, const void *data) noexcept
{
    HeaderLock h(list);
    if (!h || element == nullptr)
        return DX_LIST_ERR_ELEMENT_HEADER;
    writeContents(*h.get(), static_cast<U8 *>(element), id, data);
    return 0;
}

RQ_API U32 DX_ListGetData(HLIST list, void *idOut, void *dataOut, const void *element) noexcept
{
    HeaderLock h(list);
    if (!h || element == nullptr)
        return DX_LIST_ERR_VALUE_LOCK;
    readElement(*h.get(), static_cast<const U8 *>(element), idOut, dataOut);
    return 0;
}

RQ_API U32 DX_ListCopyData(HLIST list, void *destination, const void *source) noexcept
{
    HeaderLock h(list);
    if (!h || destination == nullptr || source == nullptr)
        return DX_LIST_ERR_VALUE_LOCK;
    copyItem(destination, source, h->dataSize, (h->flags & DX_LIST_STRING_DATA) != 0);
    return 0;
}

RQ_API U32 DX_ListCopyId(HLIST list, void *destination, const void *source) noexcept
{
    HeaderLock h(list);
    if (!h || destination == nullptr || source == nullptr)
        return DX_LIST_ERR_VALUE_LOCK;
    copyItem(destination, source, h->idSize, (h->flags & DX_LIST_STRING_ID) != 0);
    return 0;
}

RQ_API U32 DX_ListGetIdPtr(HLIST list, const void *element, void **idAddress) noexcept
{
    if (idAddress == nullptr)
        return DX_LIST_ERR_ELEMENT_HEADER;
    *idAddress = nullptr;
    HeaderLock h(list);
    if (!h || element == nullptr)
        return DX_LIST_ERR_ELEMENT_HEADER;
    *idAddress = const_cast<U8 *>(idOf(*h.get(), static_cast<const U8 *>(element)));
    return 0;
}

RQ_API S32 DX_ListCmpId(HLIST list, const void *a, const void *b, U32 *err) noexcept
{
    HeaderLock h(list);
    bool ok = h && a != nullptr && b != nullptr;
    if (err != nullptr)
        *err = ok ? 0 : U32{DX_LIST_ERR_CMPID_LOCK};
    return ok ? h->idCmp(a, b, h->idSize) : 0;
}

RQ_API U32 DX_ListZeroId(HLIST list, void *id) noexcept
{
    HeaderLock h(list);
    if (!h || id == nullptr)
        return DX_LIST_ERR_VALUE_LOCK;
    std::memset(id, 0, h->idSize);
    return 0;
}

RQ_API U32 DX_ListGetValue(HLIST list, U32 *out, U32 which) noexcept
{
    if (out == nullptr)
        return DX_LIST_ERR_VALUE_LOCK;
    *out = 0;
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_VALUE_LOCK;
    switch (which) {
    case DX_LIST_VALUE_COUNT: *out = h->count; return 0;
    case DX_LIST_VALUE_DATA_SIZE: *out = h->dataSize; return 0;
    case DX_LIST_VALUE_FLAGS: *out = h->flags; return 0;
    case DX_LIST_VALUE_ID_SIZE: *out = h->idSize; return 0;
    default: return DX_LIST_ERR_VALUE_LOCK;
    }
}

RQ_API U32 DX_ListGetElemNum(HLIST list, U32 *out) noexcept { return DX_ListGetValue(list, out, DX_LIST_VALUE_COUNT); }
RQ_API U32 DX_ListGetDataSize(HLIST list, U32 *out) noexcept { return DX_ListGetValue(list, out, DX_LIST_VALUE_DATA_SIZE); }
RQ_API U32 DX_ListGetFlags(HLIST list, U32 *out) noexcept { return DX_ListGetValue(list, out, DX_LIST_VALUE_FLAGS); }
RQ_API U32 DX_ListGetIdSize(HLIST list, U32 *out) noexcept { return DX_ListGetValue(list, out, DX_LIST_VALUE_ID_SIZE); }

RQ_API U32 DX_ListGetElemIdSize(HLIST list, U32 *out, const void *id) noexcept
{
    if (out == nullptr)
        return DX_LIST_ERR_ELEMENT_HEADER;
    *out = 0;
    HeaderLock h(list);
    if (!h || id == nullptr)
        return DX_LIST_ERR_ELEMENT_HEADER;
    *out = (h->flags & DX_LIST_STRING_ID) != 0 ? textLength(id, h->idSize) : h->idSize;
    return 0;
}

RQ_API U32 DX_ListGetElemDataSize(HLIST list, U32 *out, const void *data) noexcept
{
    if (out == nullptr)
        return DX_LIST_ERR_ELEMENT_HEADER;
    *out = 0;
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ELEMENT_HEADER;
    if ((h->flags & DX_LIST_STRING_DATA) != 0 && h->dataSize != 0)
        *out = data != nullptr ? textLength(data, h->dataSize) : 1;  // no data: an empty text
    else
        *out = h->dataSize;
    return 0;
}

RQ_API U32 DX_ListChangeData(HLIST list, const void *id, const void *refData, const void *newData) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_CHANGEDATA_LOCK;
    if ((h->flags & DX_LIST_SORTED) != 0)
        return DX_LIST_ERR_CHANGEDATA_SORTED;
    RQHANDLE before, found;
    bool lockFailed;
    if (!findElement(*h.get(), id, refData, &before, &found, &lockFailed))
        return lockFailed ? U32{DX_LIST_ERR_CHANGEDATA_LOCK} : U32{DX_LIST_ERR_NOT_FOUND};
    return replaceContents(*h.get(), before, found, id, newData, DX_LIST_ERR_CHANGEDATA_LOCK);
}

RQ_API U32 DX_ListUpdateCurrent(HLIST list, const void *id, const void *data) noexcept
{
    return updateCurrent(list, id, data, true);
}

RQ_API U32 DX_ListForceUpdateCurrent(HLIST list, const void *id, const void *data) noexcept
{
    return updateCurrent(list, id, data, false);
}

}  // extern "C"
