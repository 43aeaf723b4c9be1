// Recurrence generation: DX_DateGenRecur expands a description (daily,
// weekly on chosen weekdays, monthly on chosen days of the month or chosen
// weekdays of a week, yearly) into a list of dates, period by period, with
// the date arithmetic of the date family.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/recur_gen"
#include "date_internal.h"
#include "internal/rq_mem.h"
#include "recur_internal.h"
#include "rqcore/date.h"
#include "rqcore/lists.h"

#include <algorithm>
#include <cstdint>

namespace rq::recur {
namespace {

constexpr U32 kFlagCreate = 0x01;
constexpr U32 kFlagReuse = 0x02;
constexpr U32 kFlagExcludeDates = 0x04;
constexpr U32 kOutputListFlags = 0x08;
constexpr U16 kNoWeekday = 0xFFFF;
constexpr unsigned kLastWeekCode = 28;  // 28 + day of week: the last such weekday

// Kind 1 steps by days, 2 by weeks, 3 and 4 by months; any other unit makes
// DX_DateCompute fail, which is how an unknown kind ends (0x15606).
constexpr U16 unitOf(U16 kind) noexcept
{
    switch (kind) {
    case 1:
        return DX_DATE_UNIT_DAYS;
    case 2:
        return DX_DATE_UNIT_WEEKS;
    case 3:
    case 4:
        return DX_DATE_UNIT_MONTHS;
    default:
        return 0;
    }
}

// The codes a candidate of each kind can have: weekdays, days of the month
// from 0, week * 7 + weekday (28..34 doubling as "the last").
constexpr unsigned codeLimit(U16 kind) noexcept
{
    return kind == 2 ? 7 : kind == 3 ? 31 : kind == 4 ? 35 : 0;
}

// (year, month, day) order, unsigned: the guard that every step moves on.
bool laterThan(const DX_DATE &a, const DX_DATE &b) noexcept
{
    if (a.year != b.year)
        return a.year > b.year;
    if (a.month != b.month)
        return a.month > b.month;
    return a.day > b.day;
}

// The loop's own test against the end date: the date family's comparison,
// whose 16-bit year difference callers see in the range they get.
bool after(const DX_DATE &a, const DX_DATE &b) noexcept
{
    S16 diff = 0;
    DX_DateCompare(&a, &b, &diff);
    return diff > 0;
}

// Step 1 of the preparation: the kind and its days list.
U32 checkKind(const DX_RECUR &d) noexcept
{
    if (d.kind >= 2 && d.kind <= 4) {
        if (d.days == 0)
            return DX_RECUR_ERR_NO_DAYS;
        U32 idSize = 0;
        if (DX_ListGetIdSize(d.days, &idSize) != 0)
            return DX_RECUR_ERR_LIST_SIZE;
        return idSize == sizeof(U16) ? 0 : U32{DX_RECUR_ERR_LIST_TYPE};
    }
    return d.kind == 1 || d.kind == 5 ? 0 : U32{DX_RECUR_ERR_KIND};
}

// A reused output list must take the records and the 2-byte sequence
// numbers that are appended to it (a wider identifier would be read past the
// number); it is emptied first.
U32 prepareReused(HLIST list) noexcept
{
    U32 dataSize = 0, idSize = 0;
    if (DX_ListGetDataSize(list, &dataSize) != 0 || DX_ListGetIdSize(list, &idSize) != 0)
        return DX_RECUR_ERR_LIST_SIZE;
    if (dataSize != sizeof(DX_DATE) || idSize != sizeof(U16))
        return DX_RECUR_ERR_LIST_TYPE;
    return DX_ListDeleteAll(list);
}

class Generator {
public:
    Generator(const DX_RECUR &d, HLIST out, U32 flags, U32 maxCount) noexcept
        : d_(d), out_(out), maxCount_(maxCount == 0 ? UINT32_MAX : maxCount)
    {
        days_ = codeSet(d.days, codeLimit(d.kind));
        excludedWeekdays_ = static_cast<unsigned>(codeSet(d.excludedWeekdays, 7));
        if ((flags & kFlagExcludeDates) != 0 && d.excludedDates != 0)
            excludedDates_.load(d.excludedDates);
    }

    U32 run() noexcept;

private:
    bool chosen(unsigned code) const noexcept { return ((days_ >> code) & 1) != 0; }
    bool weekdayNeeded() const noexcept { return d_.kind == 2 || d_.kind == 4 || excludedWeekdays_ != 0; }
    U32 firstWeekday(DX_DATE &day, U16 *dow) const noexcept;
    U32 nextDay(DX_DATE &day, U16 *dow, bool *wrapped) const noexcept;
    U32 produce(const DX_DATE &date, U16 dow) noexcept;
    U32 period(DX_DATE work, bool first) noexcept;
    U32 weekly(DX_DATE work) noexcept;
    U32 monthlyByDay(DX_DATE work) noexcept;
    U32 monthlyByWeekday(DX_DATE work, bool first) noexcept;

    const DX_RECUR &d_;
    HLIST out_;
    U32 maxCount_;
    U32 count_ = 0;
    U16 sequence_ = 0;
    uint64_t days_ = 0;
    unsigned excludedWeekdays_ = 0;
    ExcludedDates excludedDates_;
};

// The day of week of a period's first day, from the record's cache or its
// day ID (so a date before 1991 fails with 0x1560C); the days after it in
// the period are stepped from it rather than recomputed.
U32 Generator::firstWeekday(DX_DATE &day, U16 *dow) const noexcept
{
    if (!weekdayNeeded()) {
        *dow = kNoWeekday;
        return 0;
    }
    if (U32 rc = DX_DateGetDayOfWeek(&day, dow); rc != 0)
        return rc;
    *dow = static_cast<U16>(*dow % 7);  // a cache written behind the family's back
    return 0;
}

// Moves a period's walk on by one day; *wrapped when the year ran past 65535
// (the walk stops there, as at the end date).
U32 Generator::nextDay(DX_DATE &day, U16 *dow, bool *wrapped) const noexcept
{
    U16 year = day.year;
    if (U32 rc = DX_DateTomorrow(&day); rc != 0)
        return rc;
    *wrapped = day.year < year;
    if (*dow != kNoWeekday)
        *dow = static_cast<U16>((*dow + 1) % 7);
    return 0;
}

U32 Generator::produce(const DX_DATE &date, U16 dow) noexcept
{
    if (excludedWeekdays_ != 0 && ((excludedWeekdays_ >> dow) & 1) != 0)
        return 0;
    // What DX_DateSet makes of a zeroed record, with the start's reserved
    // fields: no cached value, so that callers can build the same records
    // for their excluded-dates lists whatever the identifier size.
    DX_DATE record{};
    record.reserved = d_.start.reserved;
    record.reserved2 = d_.start.reserved2;
    record.reserved3 = d_.start.reserved3;
    record.day = date.day;
    record.month = date.month;
    record.year = date.year;
    if (excludedDates_.active() && excludedDates_.contains(record))
        return 0;
    ++sequence_;  // 16 bits: the numbers wrap after 65535 dates
    U32 rc = DX_ListAlwaysAddLast(out_, &sequence_, &record);
    if (rc == 0)
        ++count_;
    return rc;
}

// Seven days from the anchor (not a calendar week), cut at the end date.
U32 Generator::weekly(DX_DATE work) noexcept
{
    U16 dow;
    if (U32 rc = firstWeekday(work, &dow); rc != 0)
        return rc;
    for (int i = 0; i < 7; ++i) {
        if (i > 0) {
            bool wrapped;
            if (U32 rc = nextDay(work, &dow, &wrapped); rc != 0 || wrapped)
                return rc;
        }
        if (after(work, d_.end))
            return 0;
        if (chosen(dow))
            if (U32 rc = produce(work, dow); rc != 0)
                return rc;
    }
    return 0;
}

// From the anchor to the day before the same day a month later: a sliding
// month, not a calendar month (callers rely on this span), cut at the end.
U32 Generator::monthlyByDay(DX_DATE work) noexcept
{
    DX_DATE last;
    if (U32 rc = DX_DateCompute(&work, 1, DX_DATE_UNIT_MONTHS, &last); rc != 0)
        return rc;
    if (U32 rc = DX_DateYesterday(&last); rc != 0)
        return rc;
    U16 dow;
    if (U32 rc = firstWeekday(work, &dow); rc != 0)
        return rc;
    while (!after(work, last) && !after(work, d_.end)) {
        if (chosen(work.day - 1u))
            if (U32 rc = produce(work, dow); rc != 0)
                return rc;
        bool wrapped;
        if (U32 rc = nextDay(work, &dow, &wrapped); rc != 0 || wrapped)
            return rc;
    }
    return 0;
}

// The start's month from the start day, later months from the 1st, to the
// month's last day, cut at the end date.  The days are stepped as numbers
// within the month: the family's comparison with the end gives the same
// answer for every day of another month, and orders by day in the end's own
// month, so the cut is one bound.
U32 Generator::monthlyByWeekday(DX_DATE work, bool first) noexcept
{
    if (!first)
        if (U32 rc = DX_DateSet(&work, 1, work.month, work.year); rc != 0)
            return rc;
    U16 length = 0;
    if (U32 rc = DX_DateGetNumDaysInMonth(work.month, work.year, &length); rc != 0)
        return rc;
    U16 dow;
    if (U32 rc = firstWeekday(work, &dow); rc != 0)
        return rc;
    unsigned last = length;
    if (work.year == d_.end.year && work.month == d_.end.month)
        last = std::min<unsigned>(length, d_.end.day);
    else if (after(work, d_.end))
        return 0;
    for (unsigned day = work.day; day <= last; ++day, dow = static_cast<U16>((dow + 1) % 7)) {
        // A day in the month's last seven is also "the last" of its weekday.
        if (chosen((day - 1) / 7 * 7 + dow) || (day + 7 > length && chosen(kLastWeekCode + dow))) {
            work.day = static_cast<U16>(day);
            if (U32 rc = produce(work, dow); rc != 0)
                return rc;
        }
    }
    return 0;
}

U32 Generator::period(DX_DATE work, bool first) noexcept
{
    U16 dow;
    switch (d_.kind) {
    case 1:
        if (U32 rc = firstWeekday(work, &dow); rc != 0)
            return rc;
        return produce(work, dow);
    case 2:
        return weekly(work);
    case 3:
        return monthlyByDay(work);
    case 4:
        return monthlyByWeekday(work, first);
    case 5:
        // A 29 February anchor produces in leap years only; the other years
        // are skipped, not moved to the 28th.
        if (work.month == 1 && work.day == 29 && !rq::date::isLeap(work.year))
            return 0;
        if (U32 rc = firstWeekday(work, &dow); rc != 0)
            return rc;
        return produce(work, dow);
    default:
        return 0;  // an unknown kind produces nothing
    }
}

U32 Generator::run() noexcept
{
    // The anchor must be a real date: the periods walk from it.
    if (U32 rc = DX_DateSet(nullptr, d_.start.day, d_.start.month, d_.start.year); rc != 0)
        return rc;
    DX_DATE cur = d_.start;
    for (bool first = true;; first = false) {
        if (U32 rc = period(cur, first); rc != 0)
            return rc;
        DX_DATE before = cur;
        if (d_.kind == 5) {
            // The year field alone moves: no validation, and the cached values
            // stay as they were (callers rely on both).
            cur.year = static_cast<U16>(cur.year + d_.interval);
        } else if (U32 rc = DX_DateCompute(&cur, d_.interval, unitOf(d_.kind), &cur); rc != 0) {
            return rc;
        }
        // Month steps clamp the day, so the anchor drifts to the shortest
        // month-end met (callers rely on it).  A step that does not move on
        // (interval 0, or a year run past 65535) ends the recurrence.
        if (!laterThan(cur, before))
            return 0;
        // The count is compared only after a whole period.
        if (after(cur, d_.end) || count_ >= maxCount_)
            return 0;
    }
}

}  // namespace
}  // namespace rq::recur

RQ_API U32 DX_DateGenRecur(U32 flags, const DX_RECUR *description, HLIST *output, U32 maxCount) noexcept
{
    if (description == nullptr || output == nullptr)
        return DX_DATE_ERR_NULL;
    // The output list's code replaces the kind's: with the list ready, a bad
    // kind or days list goes on into the loop (callers rely on this order).
    U32 rc = rq::recur::checkKind(*description);
    bool created = false;
    if ((flags & rq::recur::kFlagCreate) != 0) {
        rc = DX_ListCreate(output, sizeof(U16), sizeof(DX_DATE), rq::recur::kOutputListFlags, nullptr, nullptr);
        created = rc == 0;
    } else if ((flags & rq::recur::kFlagReuse) != 0) {
        rc = rq::recur::prepareReused(*output);
    } else {
        rc = DX_RECUR_ERR_NO_OUTPUT;
    }
    if (rc != 0)
        return rc;
    rc = rq::recur::Generator(*description, *output, flags, maxCount).run();
    if (rc != 0 && created)
        DX_ListDestroy(output);
    return rc;
}
