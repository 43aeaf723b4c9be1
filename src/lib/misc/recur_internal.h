// Internal to recurrence generation: the chosen-day and excluded-weekday
// sets read once from the caller's lists, and the excluded-dates lookup.
#ifndef RQ_RECUR_INTERNAL_H
#define RQ_RECUR_INTERNAL_H

#include "rqcore/date.h"

#include <cstdint>

namespace rq::recur {

// The codes 0..limit-1 (limit <= 64) that a list of 2-byte identifiers
// holds, as bits, each looked up with the list's own compare function (so
// the answer is the one a lookup per candidate would give).  A null list, a
// list that cannot be read or one whose identifiers are not 2 bytes holds
// none: such a list is never read past its identifier size.
uint64_t codeSet(HLIST list, unsigned limit) noexcept;

// Whether a candidate date is in the excluded-dates list, the record itself
// being the identifier.  Built once per call: with the list's default
// compare functions the identifiers are copied and sorted, so that each
// lookup is a binary search and the work stays linear in the list's length;
// with a compare function of the caller's (or when the copy cannot be
// allocated) each lookup is a DX_ListFind.  A list whose identifiers are
// longer than a date record never matches.
class ExcludedDates {
public:
    ExcludedDates() noexcept = default;
    ~ExcludedDates();
    ExcludedDates(const ExcludedDates &) = delete;
    ExcludedDates &operator=(const ExcludedDates &) = delete;

    void load(HLIST list) noexcept;
    bool active() const noexcept { return list_ != 0; }
    bool contains(const DX_DATE &date) const noexcept;

    struct Key {
        unsigned char bytes[sizeof(DX_DATE)];
    };

private:
    Key keyOf(const DX_DATE &date) const noexcept;

    HLIST list_ = 0;
    uint32_t idSize_ = 0;
    bool text_ = false;     // compared up to the first NUL (DX_MemStrnCmp)
    Key *keys_ = nullptr;   // sorted; null: look each date up in the list
    uint32_t count_ = 0;
};

}  // namespace rq::recur

#endif
