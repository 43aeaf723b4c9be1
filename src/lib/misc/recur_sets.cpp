// Recurrence generation: the caller's lists read once per call (the chosen
// days, the excluded weekdays and the excluded dates), so that the periods
// test each candidate in constant or logarithmic time.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/recur_sets"
#include "internal/rq_mem.h"
#include "lib/gen/list_internal.h"
#include "recur_internal.h"
#include "rqcore/lists.h"

#include <algorithm>
#include <cstdint>

namespace rq::recur {

uint64_t codeSet(HLIST list, unsigned limit) noexcept
{
    U32 idSize = 0;
    if (list == 0 || DX_ListGetIdSize(list, &idSize) != 0 || idSize != sizeof(U16))
        return 0;
    uint64_t bits = 0;
    for (unsigned code = 0; code < limit; ++code) {
        U16 id = static_cast<U16>(code);
        if (DX_ListFind(list, &id, nullptr, nullptr, nullptr) == 0)
            bits |= uint64_t{1} << code;
    }
    return bits;
}

namespace {

bool keyLess(const ExcludedDates::Key &a, const ExcludedDates::Key &b) noexcept
{
    return std::memcmp(a.bytes, b.bytes, sizeof a.bytes) < 0;
}

// Copies an identifier of `size` bytes into a key, zero-filled; a text
// identifier ends at its first NUL, as DX_MemStrnCmp compares it.
void fillKey(ExcludedDates::Key *key, const void *id, U32 size, bool text) noexcept
{
    std::memset(key->bytes, 0, sizeof key->bytes);
    U32 n = text ? static_cast<U32>(strnlen(static_cast<const char *>(id), size)) : size;
    std::memcpy(key->bytes, id, n);
}

}  // namespace

ExcludedDates::~ExcludedDates()
{
    if (keys_ != nullptr)
        RQ_FREE(keys_);
}

void ExcludedDates::load(HLIST list) noexcept
{
    list_ = list;
    if (DX_ListGetIdSize(list, &idSize_) != 0 || idSize_ == 0 || idSize_ > sizeof(DX_DATE)) {
        idSize_ = 0;  // nothing can match a date record
        return;
    }
    rq::list::HeaderLock h(list);
    if (!h)
        return;
    bool stringIds = (h->flags & DX_LIST_STRING_ID) != 0;
    if (h->idCmp == DX_MemStrnCmp)
        text_ = true;
    else if (h->idCmp != DX_MemCmp || stringIds)
        return;  // the caller's own comparison: ask the list each time
    // The allocator refuses a count whose size overflows (i386).
    rq::Block<Key> keys(RQ_CALLOC(std::max<U32>(1, h->count), sizeof(Key)));
    if (!keys)
        return;
    uint32_t n = 0;
    for (RQHANDLE e = h->first; e != 0 && n < h->count; ++n) {
        rq::list::ElementLock el(e);
        if (!el)
            return;  // an unreadable element: let DX_ListFind report it per date
        fillKey(&keys[n], rq::list::idOf(*h.get(), el.get()), idSize_, text_);
        e = rq::list::nextOf(el.get());
    }
    std::sort(keys.get(), keys.get() + n, keyLess);
    keys_ = keys.release();
    count_ = n;
}

ExcludedDates::Key ExcludedDates::keyOf(const DX_DATE &date) const noexcept
{
    Key key;
    fillKey(&key, &date, idSize_, text_);
    return key;
}

bool ExcludedDates::contains(const DX_DATE &date) const noexcept
{
    if (idSize_ == 0)
        return false;
    if (keys_ == nullptr)
        return DX_ListFind(list_, &date, nullptr, nullptr, nullptr) == 0;
    Key key = keyOf(date);
    return std::binary_search(keys_, keys_ + count_, key, keyLess);
}

}  // namespace rq::recur
