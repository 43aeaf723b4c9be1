// Order and equality over lists: the ordered insert behind sorted lists,
// the cell comparison, whole-list comparison as a sequence and as a
// multiset, membership counts, selection, merging and copying, and changing
// a list's compare functions.
//
// These walk the chain by its links rather than with the list's own walking
// functions, so a caller's walk position is never disturbed.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/list_order"
#include "internal/rq_mem.h"

#include "list_internal.h"

namespace rq::list {

namespace {

// The place for (id, data) in a sorted list: after *prev, before *cur.
// False when an element could not be locked.
template <typename Compare>
bool sortedPlace(const Header &h, Compare compare, RQHANDLE *prevOut, RQHANDLE *curOut) noexcept
{
    U32 hints = hintOffset(h);
    RQHANDLE prev = 0, cur = h.first;
    const U8 *e = cur != 0 ? static_cast<const U8 *>(rq::handle::lock(cur)) : nullptr;
    while (cur != 0) {
        if (e == nullptr)
            return false;
        bool here = compare(e) >= 0;
        rq::handle::unlock();
        if (here)
            break;
        prev = cur;
        cur = nextOf(e);
        e = follow(hints, e, cur);
    }
    *prevOut = prev;
    *curOut = cur;
    return true;
}

#if UINTPTR_MAX != 0xFFFFFFFFu
// sortedPlace for fixed-size items where every element carries its hint:
// the identifier and the hint sit at one offset in every element, and the
// hint is compared with the successor's table slot as it stands (a free
// slot is odd and never equals an element's address).  Anything the hints
// cannot settle is looked up as in sortedPlace.
template <typename Compare>
bool sortedPlaceFixed(const Header &h, Compare compare, U32 hintAt, RQHANDLE *prevOut, RQHANDLE *curOut) noexcept
{
    using rq::handle::Slot;
    RQHANDLE prev = 0, cur = h.first;
    const U8 *e = static_cast<const U8 *>(rq::handle::lock(cur));
    if (e == nullptr)
        return false;
    while (compare(e) < 0) {
        RQHANDLE next = nextOf(e);
        prev = cur;
        cur = next;
        if (next == 0)
            break;
        const Slot *slot = rq::handle::slotOf(next);
        U8 *hint;
        std::memcpy(&hint, e + hintAt, sizeof hint);
        U8 *ahead = hint;
        __asm__("" : "+r"(ahead));  // see follow
        if (__builtin_expect(slot != nullptr && hint != nullptr && reinterpret_cast<Slot>(hint) == *slot, 1)) {
            e = ahead;
            continue;
        }
        e = lookUp(next);
        if (e == nullptr)
            return false;
    }
    *prevOut = prev;
    *curOut = cur;
    return true;
}
#endif

}  // namespace

U32 addSorted(Header &h, const void *id, const void *data) noexcept
{
    if (h.first == 0)
        return addFirst(h, id, data);
    // Lists that refuse or ignore duplicate identifiers order on the
    // identifier alone.
    bool idOnly = (h.flags & (DX_LIST_UNIQUE | DX_LIST_IGNORE_DUP)) != 0;
    // Fixed-size items: the identifier's offset is the same in every element.
    const U32 idAt = fixedLayout(h) ? 4 + h.dataSize + pad4(h.dataSize) : 0;
    RQHANDLE prev = 0, cur = 0;
    U32 status = withCellOrder(h, [&](auto cell) noexcept -> U32 {
        auto compare = [&](const U8 *e) noexcept {
            const U8 *eid = idAt != 0 ? e + idAt : idOf(h, e);
            return idOnly ? cell.idOrder(eid, id, h.idSize) : cell(eid, dataOf(e), id, data);
        };
        {
            // Sorting after the last element needs no walk: in-order loading
            // (copies of sorted lists) stays linear.
            ElementLock last(h.last);
            if (!last)
                return DX_LIST_ERR_ADDSORT;
            if (compare(last.get()) < 0) {
                prev = h.last;
                return 0;
            }
        }
        // Callers rely on this: a new element equal to existing ones goes
        // before the first of them.
#if UINTPTR_MAX != 0xFFFFFFFFu
        if (U32 hintAt = hintOffset(h); hintAt != 0) {
            auto fixed = [&](const U8 *e) noexcept {
                return idOnly ? cell.idOrder(e + idAt, id, h.idSize) : cell(e + idAt, dataOf(e), id, data);
            };
            return sortedPlaceFixed(h, fixed, hintAt, &prev, &cur) ? 0 : U32{DX_LIST_ERR_ADDSORT};
        }
#endif
        return sortedPlace(h, compare, &prev, &cur) ? 0 : U32{DX_LIST_ERR_ADDSORT};
    });
    if (status != 0)
        return status;
    if (cur == 0)
        return alwaysAddLast(h, id, data);
    if (prev == 0)
        return addFirst(h, id, data);
    RQHANDLE fresh;
    if (makeElement(h, &fresh, id, data, cur) != 0)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    if (!linkElement(h, prev, fresh)) {
        rq::handle::release(fresh);
        return DX_LIST_ERR_ADDSORT;
    }
    return 0;
}

}  // namespace rq::list

using namespace rq::list;

namespace {

// Elements equal to (id, data), or to id alone when data is null; false if
// an element could not be locked.
bool countEqual(const Header &h, const void *id, const void *data, U32 *count) noexcept
{
    *count = 0;
    for (RQHANDLE cur = h.first; cur != 0;) {
        ElementLock e(cur);
        if (!e)
            return false;
        if (cellCompare(h, idOf(h, e.get()), dataOf(e.get()), id, data) == 0)
            ++*count;
        cur = nextOf(e.get());
    }
    return true;
}

}  // namespace

extern "C" {

RQ_API S32 DX_ListCmpCell(HLIST list, const void *idA, const void *dataA, const void *idB, const void *dataB,
                          U32 *err) noexcept
{
    HeaderLock h(list);
    bool ok = h && idA != nullptr && idB != nullptr;
    if (err != nullptr)
        *err = ok ? 0 : U32{DX_LIST_ERR_CMPCELL_LOCK};
    return ok ? cellCompare(*h.get(), idA, dataA, idB, dataB) : 0;
}

RQ_API U32 DX_ListAlwaysTrueFct(HLIST, const void *, const void *, void *) noexcept
{
    return 1;
}

RQ_API U32 DX_ListIdCmpFct(HLIST list, const void *id, const void *, void *argument) noexcept
{
    HeaderLock h(list);
    if (!h || id == nullptr || argument == nullptr)
        return 0;
    return h->idCmp(id, argument, h->idSize) == 0 ? 1 : 0;
}

RQ_API U32 DX_ListAddSort(HLIST list, const void *id, const void *data) noexcept
{
    HeaderLock h(list);
    if (!h)
        return DX_LIST_ERR_ADDSORT;
    if (id == nullptr)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    return addSorted(*h.get(), id, data);
}

RQ_API U32 DX_ListCompare(HLIST a, HLIST b, S32 *result) noexcept
{
    if (result == nullptr)
        return DX_LIST_ERR_COMPARE_LOCK;
    *result = 0;
    if (U32 status = DX_ListVerifyType(a, b); status != 0)
        return status;
    HeaderLock ha(a), hb(b);
    if (!ha || !hb)
        return DX_LIST_ERR_COMPARE_LOCK;
    RQHANDLE ea = ha->first, eb = hb->first;
    while (ea != 0 && eb != 0) {
        ElementLock la(ea), lb(eb);
        if (!la || !lb)
            return DX_LIST_ERR_COMPARE_LOCK;
        S32 c = cellCompare(*ha.get(), idOf(*ha.get(), la.get()), dataOf(la.get()), idOf(*hb.get(), lb.get()),
                            dataOf(lb.get()));
        if (c != 0) {
            *result = c;
            return 0;
        }
        ea = nextOf(la.get());
        eb = nextOf(lb.get());
    }
    // All compared cells equal: the shorter list sorts first.
    *result = ea == eb ? 0 : (ea == 0 ? -1 : 1);
    return 0;
}

RQ_API U32 DX_ListMember(HLIST list, const void *id, const void *data, U32 *count) noexcept
{
    if (count == nullptr)
        return DX_LIST_ERR_MEMBER;
    *count = 0;
    HeaderLock h(list);
    if (!h || id == nullptr)
        return DX_LIST_ERR_MEMBER;
    return countEqual(*h.get(), id, data, count) ? 0 : U32{DX_LIST_ERR_MEMBER};
}

RQ_API U32 DX_ListInclude(HLIST a, HLIST b, U32 *result) noexcept
{
    if (result == nullptr)
        return DX_LIST_ERR_INCLUDE_LOCK;
    *result = 0;
    if (U32 status = DX_ListVerifyType(a, b); status != 0)
        return status;
    HeaderLock ha(a), hb(b);
    if (!ha || !hb)
        return DX_LIST_ERR_INCLUDE_LOCK;
    for (RQHANDLE cur = ha->first; cur != 0;) {
        ElementLock e(cur);
        if (!e)
            return DX_LIST_ERR_INCLUDE_LOCK;
        const void *id = idOf(*ha.get(), e.get());
        const void *data = dataOf(e.get());
        U32 inA, inB;
        if (!countEqual(*ha.get(), id, data, &inA) || !countEqual(*hb.get(), id, data, &inB))
            return DX_LIST_ERR_INCLUDE_LOCK;
        if (inB < inA)
            return 0;
        cur = nextOf(e.get());
    }
    *result = 1;
    return 0;
}

RQ_API U32 DX_ListCompareAsSet(HLIST a, HLIST b, U32 *equal) noexcept
{
    if (equal == nullptr)
        return DX_LIST_ERR_INCLUDE_LOCK;
    *equal = 0;
    if (U32 status = DX_ListVerifyType(a, b); status != 0)
        return status;
    U32 countA, countB;
    if (DX_ListGetElemNum(a, &countA) != 0 || DX_ListGetElemNum(b, &countB) != 0)
        return DX_LIST_ERR_INCLUDE_LOCK;
    if (countA != countB)
        return 0;
    return DX_ListInclude(a, b, equal);
}

RQ_API U32 DX_ListMergeSelect(HLIST destination, HLIST source, DX_LIST_SELECTFCT predicate, void *argument) noexcept
{
    if (U32 status = DX_ListVerifyType(destination, source); status != 0)
        return status;
    HeaderLock hs(source);
    if (!hs)
        return DX_LIST_ERR_MERGE_LOCK;
    U32 destFlags;
    if (DX_ListGetFlags(destination, &destFlags) != 0)
        return DX_LIST_ERR_MERGE_LOCK;
    // A string item handed to a list that stores fixed-size items would be
    // read past its end: such lists are not of one type.
    if (((destFlags ^ hs->flags) & (DX_LIST_STRING_ID | DX_LIST_STRING_DATA)) != 0)
        return DX_LIST_ERR_TYPE_DIFFERS;
    if (predicate == nullptr)
        predicate = DX_ListAlwaysTrueFct;
    bool sorted = (destFlags & DX_LIST_SORTED) != 0;
    // Bounded by the count at the start, so merging a list into itself ends.
    U32 remaining = hs->count;
    for (RQHANDLE cur = hs->first; cur != 0 && remaining != 0; --remaining) {
        ElementLock e(cur);
        if (!e)
            return DX_LIST_ERR_MERGE_LOCK;
        RQHANDLE next = nextOf(e.get());
        const void *id = idOf(*hs.get(), e.get());
        const void *data = dataOf(e.get());
        if (predicate(source, id, data, argument) != 0) {
            U32 status = sorted ? DX_ListAddTo(destination, id, data) : DX_ListAddLast(destination, id, data);
            if (status != 0)
                return status;
        }
        cur = next;
    }
    return 0;
}

RQ_API U32 DX_ListMerge(HLIST destination, HLIST source) noexcept
{
    return DX_ListMergeSelect(destination, source, DX_ListAlwaysTrueFct, nullptr);
}

RQ_API U32 DX_ListGetSelection(HLIST *result, HLIST source, DX_LIST_SELECTFCT predicate, void *argument) noexcept
{
    if (result == nullptr)
        return DX_LIST_ERR_SELECTION_LOCK;
    *result = 0;
    Header s;
    {
        HeaderLock hs(source);
        if (!hs)
            return DX_LIST_ERR_SELECTION_LOCK;
        s = *hs.get();
    }
    if (U32 status = DX_ListCreate(result, s.idSize, s.dataSize, s.flags, s.idCmp, s.dataCmp); status != 0)
        return status;
    // On a failed merge the new list stays in *result for the caller to destroy.
    return DX_ListMergeSelect(*result, source, predicate, argument);
}

RQ_API U32 DX_ListCopy(HLIST *result, HLIST source) noexcept
{
    return DX_ListGetSelection(result, source, DX_ListAlwaysTrueFct, nullptr);
}

RQ_API U32 DX_ListGetIdSelection(HLIST *result, HLIST source, const void *id) noexcept
{
    return DX_ListGetSelection(result, source, DX_ListIdCmpFct, const_cast<void *>(id));
}

RQ_API U32 DX_ListChangeCmpFct(HLIST list, DX_LIST_CMPFCT idCompare, DX_LIST_CMPFCT dataCompare) noexcept
{
    DX_LIST_CMPFCT oldId, oldData;
    U32 flags;
    {
        HeaderLock h(list);
        if (!h)
            return DX_LIST_ERR_CMPFCT_LOCK;
        oldId = h->idCmp;
        oldData = h->dataCmp;
        flags = h->flags;
        if (idCompare != nullptr)
            h->idCmp = idCompare;
        if (dataCompare != nullptr)
            h->dataCmp = dataCompare;
    }
    auto restore = [&]() noexcept {
        HeaderLock h(list);
        if (h) {
            h->idCmp = oldId;
            h->dataCmp = oldData;
        }
    };
    if ((flags & DX_LIST_UNIQUE) != 0) {
        // Identifiers that the new functions find equal are refused by a copy.
        HLIST copy = 0;
        U32 status = DX_ListCopy(&copy, list);
        if (copy != 0)
            DX_ListDestroy(&copy);
        if (status != 0) {
            restore();
            return status;
        }
    }
    if ((flags & DX_LIST_SORTED) != 0) {
        U32 status = DX_ListQuickSort(list, nullptr, nullptr);
        if (status != 0) {
            restore();
            return status;
        }
    }
    return 0;
}

}  // extern "C"
