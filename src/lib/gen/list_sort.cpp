// Sorting a list in place, and testing whether it is sorted.
//
// The sort is a quicksort over the chain: the pivot of a segment is its
// last element, and contents (identifier and data) move between element
// blocks while the links stay put.  That is why lists whose elements vary in
// size (string identifiers or data) are refused.  Pending segments wait on a
// work list, itself a list of 12-byte identifiers (count, first, last) used
// as a stack.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/list_sort"
#include "internal/rq_mem.h"

#include "list_internal.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

using namespace rq::list;

namespace {

constexpr U32 kWorkListFlags = 0x08;

struct Segment {
    U32 count;
    RQHANDLE first;
    RQHANDLE last;
};
static_assert(sizeof(Segment) == 12);

// Fixed layouts put data and identifier at the same offsets in every
// element, so one contiguous swap after the link moves both.
void swapContents(const Header &h, U8 *a, U8 *b) noexcept
{
    U32 n = h.dataSize + pad4(h.dataSize) + h.idSize;
    U8 *pa = a + 4, *pb = b + 4;
    if (n == 8) {
        // A 32-bit identifier with 32-bit data: swapped in line.
        uint64_t x, y;
        std::memcpy(&x, pa, 8);
        std::memcpy(&y, pb, 8);
        std::memcpy(pa, &y, 8);
        std::memcpy(pb, &x, 8);
        return;
    }
    U8 tmp[64];
    while (n != 0) {
        U32 chunk = n < sizeof tmp ? n : static_cast<U32>(sizeof tmp);
        std::memcpy(tmp, pa, chunk);
        std::memcpy(pa, pb, chunk);
        std::memcpy(pb, tmp, chunk);
        pa += chunk;
        pb += chunk;
        n -= chunk;
    }
}

template <typename Cell>
S32 compareElements(const Header &h, const Cell &cell, const U8 *a, const U8 *b) noexcept
{
    return cell(idOf(h, a), dataOf(a), idOf(h, b), dataOf(b));
}

// Partitions one segment around its last element.  left/right get count 0
// when that part needs no further sorting.
template <typename Cell>
U32 partition(const Header &h, const Cell &cell, const Segment &seg, Segment *left, Segment *right) noexcept
{
    *left = Segment{};
    *right = Segment{};
    ElementLock pivot(seg.last);
    if (!pivot)
        return DX_LIST_ERR_PARTITION_LOCK_1;
    RQHANDLE store = seg.first, storePrev = 0, cur = seg.first;
    U32 leftCount = 0, rightCount = 0;
    bool anyUnequal = false;
    U32 hints = hintOffset(h);
    U8 *e = static_cast<U8 *>(rq::handle::lock(cur));
    // The block of `store`, followed along with it (through the hints where
    // the list keeps them) rather than looked up at every swap; null where
    // the lookup would fail, which is reported when a swap needs it.
    U8 *storeAt = e;
    for (U32 i = 0; i + 1 < seg.count; ++i) {
        if (e == nullptr)
            return DX_LIST_ERR_PARTITION_LOCK_2;
        RQHANDLE next = nextOf(e);
        S32 c = compareElements(h, cell, e, pivot.get());
        anyUnequal = anyUnequal || c != 0;
        U8 *afterStoreAt = nullptr;
        bool storeMovesWithCur = false;
        if (c <= 0) {
            RQHANDLE afterStore = next;
            if (cur != store) {
                if (storeAt == nullptr)
                    return DX_LIST_ERR_PARTITION_LOCK_3;
                swapContents(h, storeAt, e);
                afterStore = nextOf(storeAt);
                afterStoreAt = follow(hints, storeAt, afterStore);
            } else {
                storeMovesWithCur = true;
            }
            storePrev = store;
            store = afterStore;
            ++leftCount;
        } else {
            ++rightCount;
        }
        rq::handle::unlock();
        U8 *from = e;
        cur = next;
        if (cur == 0 && i + 2 < seg.count)
            return DX_LIST_ERR_PARTITION_LOCK_4;  // the chain ended inside the segment
        e = follow(hints, from, cur);
        if (storeMovesWithCur)
            storeAt = e;
        else if (c <= 0)
            storeAt = afterStoreAt;
    }
    // Every element equal to the pivot: the segment is done.
    if (!anyUnequal)
        return 0;
    RQHANDLE afterStore = 0;
    if (store != seg.last) {
        if (storeAt == nullptr)
            return DX_LIST_ERR_PARTITION_LOCK_5;
        swapContents(h, storeAt, pivot.get());
        afterStore = nextOf(storeAt);
    }
    if (leftCount > 1)
        *left = Segment{leftCount, seg.first, storePrev};
    if (rightCount > 1)
        *right = Segment{rightCount, afterStore, seg.last};
    return 0;
}

// ---- the common cell, sorted as keys ----------------------------------------
//
// A 32-bit identifier with 32-bit data (or none), ordered by the library's
// own exact functions (DX_MemS32Cmp, DX_MemCmp): two cells then compare
// equal only when they are the same bytes, so every correct sort leaves the
// same contents in the chain as the quicksort does.  Such lists are sorted
// as 64-bit keys in one buffer, with no work list and no compare per step
// through the chain.

constexpr U32 kNotTaken = 0xFFFFFFFFu;

// A 32-bit item as a key that orders as the function does, and back.
struct S32Key {
    static U32 to(U32 v) noexcept { return v ^ 0x80000000u; }
    static U32 from(U32 k) noexcept { return k ^ 0x80000000u; }
};
struct BytesKey {  // little-endian targets: the first byte is the most significant
    static U32 to(U32 v) noexcept { return __builtin_bswap32(v); }
    static U32 from(U32 k) noexcept { return __builtin_bswap32(k); }
};

template <typename IdKey, typename DataKey>
U32 sortByKeys(const Header &h) noexcept
{
    const U32 n = h.count;
    const bool withData = h.dataSize == 4;
    const U32 idAt = withData ? 8 : 4;
    if (n > SIZE_MAX / sizeof(uint64_t))
        return kNotTaken;
    // Contents move only once every element has been read: a chain that
    // does not hold `count` elements ending at `last`, or an element that
    // cannot be locked, is left to the quicksort, which reports it.
    rq::Block<uint64_t> keys(RQ_MALLOC(size_t{n} * sizeof(uint64_t)));
    if (!keys)
        return DX_LIST_ERR_ADDFIRST_ELEMENT;
    U32 hints = hintOffset(h);
    RQHANDLE cur = h.first;
    U8 *e = static_cast<U8 *>(rq::handle::lock(cur));
    for (U32 i = 0;; ++i) {
        if (e == nullptr)
            return kNotTaken;
        U32 id, data = 0;
        std::memcpy(&id, e + idAt, 4);
        if (withData)
            std::memcpy(&data, dataOf(e), 4);
        keys[i] = (uint64_t{IdKey::to(id)} << 32) | (withData ? DataKey::to(data) : 0u);
        if (i + 1 == n)
            break;
        RQHANDLE next = nextOf(e);
        if (next == 0)
            return kNotTaken;
        e = follow(hints, e, next);
        cur = next;
    }
    if (cur != h.last)
        return kNotTaken;
    std::sort(keys.get(), keys.get() + n);
    e = static_cast<U8 *>(rq::handle::lock(h.first));
    for (U32 i = 0; i < n; ++i) {
        U32 id = IdKey::from(static_cast<U32>(keys[i] >> 32));
        std::memcpy(e + idAt, &id, 4);
        if (withData) {
            U32 data = DataKey::from(static_cast<U32>(keys[i]));
            std::memcpy(dataOf(e), &data, 4);
        }
        if (i + 1 < n)
            e = follow(hints, e, nextOf(e));
    }
    return 0;
}

template <typename IdKey>
U32 sortByKeysWithData(const Header &h) noexcept
{
    if (h.dataCmp == DX_MemS32Cmp)
        return sortByKeys<IdKey, S32Key>(h);
    if (h.dataCmp == DX_MemCmp)
        return sortByKeys<IdKey, BytesKey>(h);
    return kNotTaken;
}

// 0 or a code when the list was sorted here, kNotTaken when it is the
// quicksort's.
U32 sortCommonCells(const Header &h) noexcept
{
    if (!fixedLayout(h) || h.idSize != 4 || (h.dataSize != 4 && h.dataSize != 0))
        return kNotTaken;
    if (h.idCmp == DX_MemS32Cmp)
        return sortByKeysWithData<S32Key>(h);
    if (h.idCmp == DX_MemCmp)
        return sortByKeysWithData<BytesKey>(h);
    return kNotTaken;
}

// The list's refusals; on success *h holds its header with the given
// compare functions in place of its own.
U32 prepare(HLIST list, DX_LIST_CMPFCT idCompare, DX_LIST_CMPFCT dataCompare, Header *h) noexcept
{
    HeaderLock lh(list);
    if (!lh)
        return DX_LIST_ERR_SORT_LOCK;
    if ((lh->flags & (DX_LIST_STRING_ID | DX_LIST_STRING_DATA)) != 0)
        return DX_LIST_ERR_SORT_REFUSED;
    // A sorted list keeps the order of its own functions.
    if ((lh->flags & DX_LIST_SORTED) != 0 && (idCompare != nullptr || dataCompare != nullptr))
        return DX_LIST_ERR_SORT_REFUSED;
    *h = *lh.get();
    if (idCompare != nullptr)
        h->idCmp = idCompare;
    if (dataCompare != nullptr)
        h->dataCmp = dataCompare;
    return 0;
}

// The work list is the sort's own, so its header stays locked for the whole
// sort and segments go on and off it through the list's internal operations:
// the same elements, codes and order as DX_ListAddTo (which adds at the
// front of an unsorted list: a stack), DX_ListGetFirst and
// DX_ListDeleteCurrent, without a call and a header lookup for each.
U32 pushSegment(Header &work, const Segment &seg) noexcept
{
    U32 id[3] = {seg.count, seg.first, seg.last};
    return addFirst(work, id, nullptr);
}

// DX_LIST_END when the work list is empty.
U32 popSegment(Header &work, Segment *seg) noexcept
{
    if (work.first == 0)
        return DX_LIST_END;
    {
        ElementLock e(work.first);
        if (!e)
            return DX_LIST_ERR_FIRST_ELEMENT_LOCK;
        U32 id[3];
        std::memcpy(id, idOf(work, e.get()), sizeof id);
        *seg = Segment{id[0], id[1], id[2]};
    }
    work.current = work.first;
    work.prev = 0;
    return unlinkElement(work, 0, work.first) ? 0 : U32{DX_LIST_ERR_DELETE_LOCK};
}

}  // namespace

extern "C" {

RQ_API U32 DX_ListQuickSort(HLIST list, DX_LIST_CMPFCT idCompare, DX_LIST_CMPFCT dataCompare) noexcept
{
    // The given functions stand in for the list's own during the sort only;
    // they are applied from a copy of the header, so the list's own stay.
    Header h;
    if (U32 status = prepare(list, idCompare, dataCompare, &h); status != 0)
        return status;
    if (h.count < 2)
        return 0;
    if (U32 status = sortCommonCells(h); status != kNotTaken)
        return status;
    HLIST work = 0;
    if (U32 status = DX_ListCreate(&work, sizeof(Segment), 0, kWorkListFlags, nullptr, nullptr); status != 0)
        return status;
    rq::ScopeExit dropWork([&]() noexcept { DX_ListDestroy(&work); });
    HeaderLock workHeader(work);
    if (!workHeader)
        return DX_LIST_ERR_ADDFIRST_LOCK;
    Header &stack = *workHeader.get();
    if (U32 status = pushSegment(stack, Segment{h.count, h.first, h.last}); status != 0)
        return status;
    for (;;) {
        Segment seg, left, right;
        U32 status = popSegment(stack, &seg);
        if (status == DX_LIST_END)
            return 0;  // the work list ran dry: sorted
        if (status != 0)
            return status;
        if (seg.count >= 2) {
            status = withCellOrder(
                h, [&](const auto &cell) noexcept { return partition(h, cell, seg, &left, &right); });
            if (status != 0)
                return status;
        } else {
            left = right = Segment{};
        }
        // Left first, then right: the right part is taken next.
        if (left.count > 1 && (status = pushSegment(stack, left)) != 0)
            return status;
        if (right.count > 1 && (status = pushSegment(stack, right)) != 0)
            return status;
    }
}

RQ_API U32 DX_ListIsSorted(HLIST list, DX_LIST_CMPFCT idCompare, DX_LIST_CMPFCT dataCompare, U32 *sorted) noexcept
{
    if (sorted == nullptr)
        return DX_LIST_ERR_SORT_LOCK;
    *sorted = 0;
    Header h;
    if (U32 status = prepare(list, idCompare, dataCompare, &h); status != 0)
        return status;
    RQHANDLE prev = h.first;
    RQHANDLE cur = 0;
    if (prev != 0) {
        ElementLock e(prev);
        if (!e)
            return DX_LIST_ERR_SORT_LOCK;
        cur = nextOf(e.get());
    }
    while (cur != 0) {
        ElementLock a(prev), b(cur);
        if (!a || !b)
            return DX_LIST_ERR_SORT_LOCK;
        if (cellCompare(h, idOf(h, a.get()), dataOf(a.get()), idOf(h, b.get()), dataOf(b.get())) > 0)
            return 0;
        prev = cur;
        cur = nextOf(b.get());
    }
    *sorted = 1;
    return 0;
}

}  // extern "C"
