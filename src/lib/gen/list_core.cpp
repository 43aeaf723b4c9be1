// The list container: creation and release, elements, adding, finding and
// getting by identifier, deleting, and the list's flags.
//
// Every header or element access is bracketed by a lock and an unlock of its
// handle (the Locked guards, through the hidden forms of MemLock/MemUnlock),
// so that a moving allocator could be put underneath.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/list_core"
#include "internal/rq_mem.h"

#include "list_internal.h"

#include <cstdint>
#include <cstring>

namespace rq::list {

namespace {

template <typename Match>
bool findMatching(const Header &h, Match match, RQHANDLE *before, RQHANDLE *found, bool *lockFailed) noexcept
{
    U32 hints = hintOffset(h);
    RQHANDLE prev = 0, cur = h.first;
    const U8 *e = cur != 0 ? static_cast<const U8 *>(rq::handle::lock(cur)) : nullptr;
    while (cur != 0) {
        if (e == nullptr) {
            *lockFailed = true;
            return false;
        }
        bool hit = match(e);
        rq::handle::unlock();
        if (hit) {
            *before = prev;
            *found = cur;
            return true;
        }
        prev = cur;
        cur = nextOf(e);
        e = follow(hints, e, cur);
    }
    return false;
}

}  // namespace

bool findElement(const Header &h, const void *id, const void *refData, RQHANDLE *before, RQHANDLE *found,
                 bool *lockFailed) noexcept
{
    *lockFailed = false;
    if (id == nullptr)
        return false;
    if (refData == nullptr)
        return withOrder(h.idCmp, [&](auto order) noexcept {
            auto match = [&](const U8 *e) noexcept { return order(idOf(h, e), id, h.idSize) == 0; };
            return findMatching(h, match, before, found, lockFailed);
        });
    return withCellOrder(h, [&](auto cell) noexcept {
        auto match = [&](const U8 *e) noexcept { return cell(idOf(h, e), dataOf(e), id, refData) == 0; };
        return findMatching(h, match, before, found, lockFailed);
    });
}

// Writes data and identifier into an element; the identifier goes after the
// data as now stored.  Null data or identifier leave that part as it is.
void writeContents(const Header &h, U8 *e, const void *id, const void *data) noexcept
{
    if (data != nullptr && h.dataSize != 0) {
        if ((h.flags & DX_LIST_STRING_DATA) != 0)
            DX_MemStrnCopy(dataOf(e), data, textLength(data, h.dataSize));
        else
            copyFixed(dataOf(e), data, h.dataSize);
    }
    if (id != nullptr) {
        if ((h.flags & DX_LIST_STRING_ID) != 0)
            DX_MemStrnCopy(idOf(h, e), id, textLength(id, h.idSize));
        else
            copyFixed(idOf(h, e), id, h.idSize);
    }
}

static U32 elementIdLength(const Header &h, const void *id) noexcept
{
    return (h.flags & DX_LIST_STRING_ID) != 0 ? textLength(id, h.idSize) : h.idSize;
}

// A missing data item is stored as zero bytes (an empty text for string data).
static U32 elementDataLength(const Header &h, const void *data) noexcept
{
    if (h.dataSize == 0)
        return 0;
    if ((h.flags & DX_LIST_STRING_DATA) != 0)
        return data != nullptr ? textLength(data, h.dataSize) : 1;
    return h.dataSize;
}

// An element's block size: link, data, padding, identifier and the spare
// bytes; above UINT32_MAX when the sizes cannot make one.
static uint64_t elementSize(const Header &h, const void *id, const void *data) noexcept
{
    U32 dataLen = elementDataLength(h, data);
    return 4ull + dataLen + pad4(dataLen) + elementIdLength(h, id) + kElementSlack;
}

U32 makeElement(const Header &h, RQHANDLE *element, const void *id, const void *data, RQHANDLE next) noexcept
{
    *element = 0;
    if (id == nullptr)
        return DX_LIST_ERR_ELEMENT_HEADER;
    uint64_t size = elementSize(h, id, data);
    if (size > UINT32_MAX)
        return DX_LIST_ERR_ELEMENT_HEADER;
    RQHANDLE handle = rq::handle::alloc(static_cast<U32>(size));
    if (handle == 0)
        return DX_LIST_ERR_ELEMENT_NO_MEMORY;
    {
        ElementLock e(handle);
        if (!e) {
            rq::handle::release(handle);
            return DX_LIST_ERR_ELEMENT_LOCK;
        }
        // Clear everything past the link: a missing data item reads as zeros,
        // and padding never holds stale bytes.
        std::memset(e.get(), 0, static_cast<size_t>(size));
        setNext(h, e.get(), next);
        writeContents(h, e.get(), id, data);
    }
    *element = handle;
    return 0;
}

bool linkElement(Header &h, RQHANDLE before, RQHANDLE e) noexcept
{
    RQHANDLE after;
    {
        ElementLock el(e);
        if (!el)
            return false;
        after = nextOf(el.get());
    }
    if (before == 0) {
        h.first = e;
    } else {
        ElementLock b(before);
        if (!b)
            return false;
        setNext(h, b.get(), e);
    }
    if (after == 0)
        h.last = e;
    ++h.count;
    // The position stays on the same element; only its remembered
    // predecessor changes when the new element goes right before it.
    if (h.current != 0 && h.current != h.prev && after == h.current)
        h.prev = e;
    return true;
}

bool unlinkElement(Header &h, RQHANDLE before, RQHANDLE e) noexcept
{
    RQHANDLE after;
    {
        ElementLock el(e);
        if (!el)
            return false;
        after = nextOf(el.get());
    }
    if (before == 0) {
        h.first = after;
    } else {
        ElementLock b(before);
        if (!b)
            return false;
        setNext(h, b.get(), after);
    }
    if (h.last == e)
        h.last = before;
    --h.count;
    if (h.current == e) {
        // Callers rely on this: current == predecessor marks the current
        // element as deleted, and the next step lands on its successor.
        h.current = before;
        h.prev = before;
    } else if (h.prev == e) {
        h.prev = before;
    }
    rq::handle::release(e);
    return true;
}

U32 addFirst(Header &h, const void *id, const void *data) noexcept
{
    RQHANDLE e;
    if (makeElement(h, &e, id, data, h.first) != 0)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    linkElement(h, 0, e);  // cannot fail: no predecessor to lock
    return 0;
}

// Links the new element (handle, address e) after the last one and makes
// it the last; there is no successor, so the position cannot move.
static inline U32 linkLast(Header &h, RQHANDLE handle, U8 *e, U32 hints) noexcept
{
    if (h.first == 0) {
        h.first = handle;
    } else {
        U8 *last = static_cast<U8 *>(rq::handle::lock(h.last));
        if (last == nullptr) {
            rq::handle::release(handle);
            return DX_LIST_ERR_ADDLAST_LAST_LOCK;
        }
        setNext(last, handle);
        setHint(hints, last, e);
        rq::handle::unlock();
    }
    h.last = handle;
    ++h.count;
    return 0;
}

// A new element block of `size` bytes and its address (what MemLock of the
// handle gives); 0 when the size does not fit a block or none can be had.
static inline RQHANDLE newElement(uint64_t size, U8 **e) noexcept
{
    *e = nullptr;
    if (size > UINT32_MAX)
        return 0;
    void *block;
    RQHANDLE handle = rq::handle::alloc(static_cast<U32>(size), &block);
    *e = static_cast<U8 *>(block);
    return handle;
}

// Appends to a list holding texts: made as makeElement makes an element.
[[gnu::noinline]] static U32 appendVarying(Header &h, const void *id, const void *data) noexcept
{
    uint64_t size = elementSize(h, id, data);
    U8 *e;
    RQHANDLE handle = newElement(size, &e);
    if (handle == 0)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    std::memset(e, 0, static_cast<size_t>(size));
    writeContents(h, e, id, data);
    rq::handle::unlock();
    return linkLast(h, handle, e, hintOffset(h));
}

// Writes a new fixed-layout element with no successor (see appendLast).
[[gnu::noinline]] static void fillFixed(const Header &h, U8 *e, const void *id, const void *data) noexcept
{
    U32 dataSize = h.dataSize, idSize = h.idSize;
    U32 idAt = 4 + dataSize + pad4(dataSize);
    setNext(e, 0);
    if (pad4(dataSize) != 0)
        std::memset(e + idAt - 4, 0, 4);  // the padding; the data goes over the rest
    if (data != nullptr)
        copyFixed(dataOf(e), data, dataSize);
    else if (dataSize != 0)
        std::memset(dataOf(e), 0, dataSize);
    copyFixed(e + idAt, id, idSize);
    std::memset(e + idAt + idSize, 0, kElementSlack);
}

// Appends in one pass what makeElement and linkElement would do: the new
// element's address stays in hand for filling it and for the last
// element's hint.  The same codes, the same allocation, the same bytes:
// a fixed-layout element is written byte for byte (link 0, data or zeros,
// padding zeros, identifier, zeros in the spare bytes: no successor, no
// hint) as makeElement's clearing and writing would leave it.
[[gnu::always_inline]] static inline U32 appendLast(Header &h, const void *id, const void *data) noexcept
{
    if (id == nullptr)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    if (!fixedLayout(h))
        return appendVarying(h, id, data);
    U8 *e;
    RQHANDLE handle = newElement(4ull + h.dataSize + pad4(h.dataSize) + h.idSize + kElementSlack, &e);
    if (handle == 0)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    if (h.dataSize == 4 && h.idSize == 4 && data != nullptr) {
        // The common 32-bit cell, written in line with no call left for
        // which to keep registers.
        setNext(e, 0);
        std::memcpy(dataOf(e), data, 4);
        std::memcpy(e + 8, id, 4);
        std::memset(e + 12, 0, kElementSlack);
    } else {
        fillFixed(h, e, id, data);
    }
    rq::handle::unlock();
    return linkLast(h, handle, e, hintOffset(h));
}

U32 alwaysAddLast(Header &h, const void *id, const void *data) noexcept { return appendLast(h, id, data); }

}  // namespace rq::list

using namespace rq::list;

namespace {

// 0, DX_LIST_ERR_ID_PRESENT, or the get's lock failure.
U32 permission(const Header &h, const void *id) noexcept
{
    if ((h.flags & (DX_LIST_UNIQUE | DX_LIST_IGNORE_DUP)) == 0)
        return 0;
    if ((h.flags & DX_LIST_SORTED) != 0 && h.last != 0) {
        // A sorted list whose last identifier sorts first cannot hold id:
        // in-order loading (copies of sorted lists) stays linear.
        ElementLock last(h.last);
        if (last && h.idCmp(idOf(h, last.get()), id, h.idSize) < 0)
            return 0;
    }
    RQHANDLE before, found;
    bool lockFailed;
    if (findElement(h, id, nullptr, &before, &found, &lockFailed))
        return DX_LIST_ERR_ID_PRESENT;
    return lockFailed ? U32{DX_LIST_ERR_GET_LOCK} : 0;
}

// The duplicate rule of the checked adds: 0 with *skip set means "present,
// silently not added" (ignore-duplicates lists).
U32 duplicateRule(const Header &h, const void *id, bool *skip) noexcept
{
    *skip = false;
    U32 status = permission(h, id);
    if (status != DX_LIST_ERR_ID_PRESENT)
        return status;
    if ((h.flags & DX_LIST_UNIQUE) != 0)
        return DX_LIST_ERR_DUPLICATE;
    *skip = true;
    return 0;
}

// DX_ListAddLast on a list with a duplicate rule or an order: out of line,
// so that the plain append keeps a small frame.
[[gnu::noinline]] U32 checkedAddLast(Header &h, const void *id, const void *data) noexcept
{
    bool skip;
    if (U32 status = duplicateRule(h, id, &skip); status != 0 || skip)
        return status;
    if ((h.flags & DX_LIST_SORTED) != 0)
        return DX_LIST_ERR_ADDLAST_SORTED;
    return alwaysAddLast(h, id, data);
}

U32 alwaysAddBefore(Header &h, const void *refId, const void *refData, const void *id, const void *data) noexcept
{
    RQHANDLE before = 0, found = 0;
    bool lockFailed;
    if (!findElement(h, refId, refData, &before, &found, &lockFailed) || before == 0)
        return addFirst(h, id, data);  // not found, or the first: at the front
    RQHANDLE e;
    if (makeElement(h, &e, id, data, found) != 0)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    if (!linkElement(h, before, e)) {
        rq::handle::release(e);
        return DX_LIST_ERR_ADDBEFORE_PRED_LOCK;
    }
    return 0;
}

U32 alwaysAddAfter(Header &h, const void *refId, const void *refData, const void *id, const void *data) noexcept
{
    RQHANDLE before = 0, found = 0;
    bool lockFailed;
    if (!findElement(h, refId, refData, &before, &found, &lockFailed) || found == h.last)
        return alwaysAddLast(h, id, data);  // not found, or the last: at the end
    RQHANDLE after;
    {
        ElementLock ref(found);
        if (!ref)
            return DX_LIST_ERR_ADDAFTER_REF_LOCK;
        after = nextOf(ref.get());
    }
    RQHANDLE e;
    if (makeElement(h, &e, id, data, after) != 0)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    if (!linkElement(h, found, e)) {
        rq::handle::release(e);
        return DX_LIST_ERR_ADDAFTER_REF_LOCK;
    }
    return 0;
}

// Frees a chain of elements from `e` along the links, each reached through
// its predecessor's hint where the list keeps them (`hints`, see
// hintOffset); false if a lock failed.
bool freeChain(RQHANDLE e, U32 hints) noexcept
{
    const U8 *at = e != 0 ? static_cast<const U8 *>(rq::handle::lock(e)) : nullptr;
    while (e != 0) {
        if (at == nullptr)
            return false;
        RQHANDLE next = nextOf(at);
        // The successor is looked up before e is freed; an element linked
        // to itself must find its block gone, as a lookup after would.
        const U8 *nextAt = next != e ? follow(hints, at, next) : nullptr;
        rq::handle::unlock();
        rq::handle::release(e);
        e = next;
        at = nextAt;
    }
    return true;
}

// Checks that a list holds no two equal identifiers: a copy into a list
// with unique identifiers refuses the first duplicate.
U32 checkUnique(HLIST list, const Header &h) noexcept
{
    HLIST copy = 0;
    U32 status = DX_ListCreate(&copy, h.idSize, h.dataSize, (h.flags | DX_LIST_UNIQUE) & ~DX_LIST_IGNORE_DUP,
                               h.idCmp, h.dataCmp);
    if (status != 0)
        return status;
    status = DX_ListMerge(copy, list);
    DX_ListDestroy(&copy);
    return status;
}

}  // namespace

extern "C" {

RQ_API U32 DX_ListCreate(HLIST *list, U32 idSize, U32 dataSize, U32 flags, DX_LIST_CMPFCT idCompare,
                         DX_LIST_CMPFCT dataCompare) noexcept
{
    if (list == nullptr)
        return DX_LIST_ERR_CREATE_NO_MEMORY;
    *list = 0;
    if (idSize == 0)
        return DX_LIST_ERR_CREATE_ID_SIZE;
    if (dataSize == 0)
        flags |= DX_LIST_NODATA;
    RQHANDLE handle = rq::handle::alloc(sizeof(Header));
    if (handle == 0)
        return DX_LIST_ERR_CREATE_NO_MEMORY;
    {
        HeaderLock h(handle);
        if (!h) {
            rq::handle::release(handle);
            return DX_LIST_ERR_CREATE_NO_MEMORY;
        }
        *h.get() = Header{};
        h->flags = flags;
        h->dataSize = dataSize;
        h->idSize = idSize;
        h->idCmp = idCompare != nullptr ? idCompare : (flags & DX_LIST_STRING_ID) != 0 ? DX_MemStrnCmp : DX_MemCmp;
        h->dataCmp = dataCompare != nullptr ? dataCompare
                                            : (flags & DX_LIST_STRING_DATA) != 0 ? DX_MemStrnCmp : DX_MemCmp;
    }
    *list = handle;
    return 0;
}

RQ_API U32 DX_ListDestroy(HLIST *list) noexcept
{
    if (list == nullptr || *list == 0)
        return DX_LIST_ERR_NO_LIST;
    RQHANDLE first;
    U32 hints;
    {
        HeaderLock h(*list);
        if (!h)
            return DX_LIST_ERR_NO_LIST;
        first = h->first;
        hints = hintOffset(*h.get());
    }
    rq::handle::release(*list);
    *list = 0;
    return freeChain(first, hints) ? 0 : U32{DX_LIST_ERR_NO_LIST};
}

RQ_API U32 DX_ListDeleteAll(HLIST list) noexcept
{
    RQHANDLE first;
    U32 hints;
    {
        HeaderLock h(list);
        if (!h)
            return DX_LIST_ERR_DELETEALL_LOCK;
        hints = hintOffset(*h.get());
        // Detach first, so that the list is consistent (and empty) even if
        // freeing stops half-way.
        first = h->first;
        h->first = h->prev = h->current = h->last = 0;
        h->count = 0;
    }
    return freeChain(first, hints) ? 0 : U32{DX_LIST_ERR_DELETEALL_LOCK};
}

RQ_API U32 DX_ListAlloc(HLIST list, RQHANDLE *handle, void **address, U32 which) noexcept
{
    if (address != nullptr)
        *address = nullptr;
    if (handle == nullptr)
        return DX_LIST_ERR_ALLOC_SELECTOR;
    *handle = 0;
    uint64_t size;
    {
        HeaderLock h(list);
        if (!h || (which != DX_LIST_ALLOC_DATA && which != DX_LIST_ALLOC_ID))
            return DX_LIST_ERR_ALLOC_SELECTOR;
        size = uint64_t{which == DX_LIST_ALLOC_DATA ? h->dataSize : h->idSize} + 1;
    }
    if (size > UINT32_MAX)
        return DX_LIST_ERR_ALLOC_NO_MEMORY;
    RQHANDLE block = rq::handle::alloc(static_cast<U32>(size));
    if (block == 0)
        return DX_LIST_ERR_ALLOC_NO_MEMORY;
    // Stays locked while the caller uses it; DX_ListFree unlocks it.
    void *p = rq::handle::lock(block);
    if (p == nullptr) {
        rq::handle::release(block);
        return DX_LIST_ERR_ALLOC_NO_MEMORY;
    }
    *handle = block;
    if (address != nullptr)
        *address = p;
    return 0;
}

RQ_API U32 DX_ListFree(RQHANDLE handle) noexcept
{
    if (handle == 0)
        return 0;
    rq::handle::unlock();
    return rq::handle::release(handle);
}

RQ_API U32 DX_ListCreateElement(HLIST list, RQHANDLE *element, const void *id, const void *data,
                                RQHANDLE next) noexcept
{
    if (element == nullptr)
        return DX_LIST_ERR_ELEMENT_HEADER;
    *element = 0;
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ELEMENT_HEADER;
    return makeElement(*h.get(), element, id, data, next);
}

RQ_API U32 DX_ListAddPermission(HLIST list, const void *id) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_FIND_LOCK;
    if (id == nullptr)
        return 0;
    return permission(*h.get(), id);
}

RQ_API U32 DX_ListAddFirst(HLIST list, const void *id, const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDFIRST_LOCK;
    return addFirst(*h.get(), id, data);
}

RQ_API U32 DX_ListAddLast(HLIST list, const void *id, const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDLAST_LOCK;
    if (id == nullptr)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    // With no duplicate rule and no order there is nothing to check.
    if ((h->flags & (DX_LIST_UNIQUE | DX_LIST_IGNORE_DUP | DX_LIST_SORTED)) != 0)
        return checkedAddLast(*h.get(), id, data);
    return appendLast(*h.get(), id, data);
}

RQ_API U32 DX_ListAlwaysAddLast(HLIST list, const void *id, const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDLAST_LOCK;
    return appendLast(*h.get(), id, data);
}

RQ_API U32 DX_ListAddTo(HLIST list, const void *id, const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDFIRST_LOCK;
    if (id == nullptr)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    bool skip;
    if (U32 status = duplicateRule(*h.get(), id, &skip); status != 0 || skip)
        return status;
    if ((h->flags & DX_LIST_SORTED) != 0)
        return addSorted(*h.get(), id, data);
    return addFirst(*h.get(), id, data);
}

RQ_API U32 DX_ListAddBefore(HLIST list, const void *refId, const void *refData, const void *id,
                            const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDBEFORE_LOCK;
    if ((h->flags & DX_LIST_SORTED) != 0)
        return DX_LIST_ERR_ADDBEFORE_SORTED;
    if (id == nullptr)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    bool skip;
    if (U32 status = duplicateRule(*h.get(), id, &skip); status != 0 || skip)
        return status;
    return alwaysAddBefore(*h.get(), refId, refData, id, data);
}

RQ_API U32 DX_ListAlwaysAddBefore(HLIST list, const void *refId, const void *refData, const void *id,
                                  const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDBEFORE_LOCK;
    return alwaysAddBefore(*h.get(), refId, refData, id, data);
}

RQ_API U32 DX_ListAddAfter(HLIST list, const void *refId, const void *refData, const void *id,
                           const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDAFTER_LOCK;
    if ((h->flags & DX_LIST_SORTED) != 0)
        return DX_LIST_ERR_ADDAFTER_SORTED;
    if (id == nullptr)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    bool skip;
    if (U32 status = duplicateRule(*h.get(), id, &skip); status != 0 || skip)
        return status;
    return alwaysAddAfter(*h.get(), refId, refData, id, data);
}

RQ_API U32 DX_ListAlwaysAddAfter(HLIST list, const void *refId, const void *refData, const void *id,
                                 const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDAFTER_LOCK;
    return alwaysAddAfter(*h.get(), refId, refData, id, data);
}

RQ_API U32 DX_ListFind(HLIST list, const void *id, const void *refData, RQHANDLE *before, RQHANDLE *found) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_FIND_LOCK;
    RQHANDLE b = 0, f = 0;
    bool lockFailed;
    if (!findElement(*h.get(), id, refData, &b, &f, &lockFailed))
        return lockFailed ? U32{DX_LIST_ERR_FIND_LOCK} : U32{DX_LIST_ERR_NOT_FOUND};
    if (before != nullptr)
        *before = b;
    if (found != nullptr)
        *found = f;
    return 0;
}

RQ_API U32 DX_ListAlwaysGet(HLIST list, const void *id, void *dataOut) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_FIND_LOCK;
    RQHANDLE before, found;
    bool lockFailed;
    if (!findElement(*h.get(), id, nullptr, &before, &found, &lockFailed))
        return lockFailed ? U32{DX_LIST_ERR_GET_LOCK} : U32{DX_LIST_ERR_NOT_FOUND};
    ElementLock e(found);
    if (!e)
        return DX_LIST_ERR_GET_LOCK;
    readElement(*h.get(), e.get(), nullptr, dataOut);
    return 0;
}

RQ_API U32 DX_ListPriorityGet(HLIST list, const void *id, void *dataOut) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_PRIORITY_LOCK;
    RQHANDLE before, found;
    bool lockFailed;
    if (!findElement(*h.get(), id, nullptr, &before, &found, &lockFailed))
        return lockFailed ? U32{DX_LIST_ERR_PRIORITY_LOCK} : U32{DX_LIST_ERR_NOT_FOUND};
    ElementLock e(found);
    if (!e)
        return DX_LIST_ERR_PRIORITY_LOCK;
    readElement(*h.get(), e.get(), nullptr, dataOut);
    if (before == 0)
        return 0;  // already at the front
    ElementLock b(before);
    if (!b)
        return DX_LIST_ERR_PRIORITY_LOCK;
    RQHANDLE after = nextOf(e.get());
    RQHANDLE oldFirst = h->first;
    setNext(*h.get(), b.get(), after);
    setNext(*h.get(), e.get(), oldFirst);
    h->first = found;
    if (h->last == found)
        h->last = before;
    // The walking position stays on its element; its remembered predecessor
    // follows the move, so that deleting it later unlinks the right element.
    if (h->current != 0 && h->current != h->prev) {
        if (h->current == found)
            h->prev = 0;
        else if (h->current == after)
            h->prev = before;
        else if (h->current == oldFirst)
            h->prev = found;
    }
    return 0;
}

RQ_API U32 DX_ListGet(HLIST list, const void *id, void *dataOut) noexcept
{
    U32 err = 0;
    if (DX_ListFlagDetect(list, DX_LIST_PRIORITY, &err) != 0)
        return DX_ListPriorityGet(list, id, dataOut);
    return err != 0 ? U32{DX_LIST_ERR_FIND_LOCK} : DX_ListAlwaysGet(list, id, dataOut);
}

RQ_API U32 DX_ListDeleteCurrent(HLIST list) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_DELETE_LOCK;
    if (h->current == 0)
        return DX_LIST_END;
    if (h->current == h->prev)
        return DX_LIST_ERR_DELETE_DELETED;
    return unlinkElement(*h.get(), h->prev, h->current) ? 0 : U32{DX_LIST_ERR_DELETE_LOCK};
}

RQ_API U32 DX_ListDeleteFrom(HLIST list, const void *id, const void *refData) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_DELETEFROM_LOCK;
    if (id == nullptr)
        return DX_LIST_ERR_NOT_FOUND;
    // One pass does what repeated searches from the front would: elements
    // before a match have already been found not to match.
    U32 deleted = 0;
    RQHANDLE prev = 0;
    for (RQHANDLE cur = h->first; cur != 0;) {
        RQHANDLE next;
        bool match;
        {
            ElementLock e(cur);
            if (!e)
                return DX_LIST_ERR_DELETEFROM_LOCK;
            next = nextOf(e.get());
            match = refData == nullptr
                        ? h->idCmp(idOf(*h.get(), e.get()), id, h->idSize) == 0
                        : cellCompare(*h.get(), idOf(*h.get(), e.get()), dataOf(e.get()), id, refData) == 0;
        }
        if (match) {
            if (!unlinkElement(*h.get(), prev, cur))
                return DX_LIST_ERR_DELETEFROM_LOCK;
            ++deleted;
        } else {
            prev = cur;
        }
        cur = next;
    }
    return deleted != 0 ? 0 : U32{DX_LIST_ERR_NOT_FOUND};
}

RQ_API U32 DX_ListSetFlag(HLIST list, U32 flag, U8 on) noexcept
{
    if ((flag != DX_LIST_SORTED && flag != DX_LIST_UNIQUE && flag != DX_LIST_PRIORITY &&
         flag != DX_LIST_IGNORE_DUP) ||
        on > 1)
        return DX_LIST_ERR_FLAG_NOT_ALLOWED;
    Header snapshot;
    {
        HeaderLock h(list);
        if (!h)
            return DX_LIST_ERR_FLAG_LOCK;
        if (on == 0 || flag == DX_LIST_PRIORITY) {
            h->flags = on != 0 ? h->flags | flag : h->flags & ~flag;
            return 0;
        }
        snapshot = *h.get();
    }
    U32 status = flag == DX_LIST_SORTED ? DX_ListQuickSort(list, nullptr, nullptr) : checkUnique(list, snapshot);
    if (status != 0)
        return status;  // the flag stays as it was
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_FLAG_LOCK;
    h->flags |= flag;
    return 0;
}

RQ_API U32 DX_ListFlagDetect(HLIST list, U32 flags, U32 *err) noexcept
{
    HeaderLock h(list);
    if (err != nullptr)
        *err = h ? 0 : U32{DX_LIST_ERR_VALUE_LOCK};
    return h && (h->flags & flags) == flags ? 1 : 0;
}

RQ_API U32 DX_ListVerifyType(HLIST a, HLIST b) noexcept
{
    HeaderLock ha(a);
    HeaderLock hb(b);
    if (!ha || !hb)
        return DX_LIST_ERR_TYPE_LOCK;
    bool same = ha->idSize == hb->idSize && ha->dataSize == hb->dataSize && ha->idCmp == hb->idCmp &&
                ha->dataCmp == hb->dataCmp;
    return same ? 0 : U32{DX_LIST_ERR_TYPE_DIFFERS};
}

}  // extern "C"
