// The date record: setting, reading, the day ID and day of week, month and
// year lengths, comparison, copying and the weekday list.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/date_core"
#include "date_internal.h"
#include "internal/rq_mem.h"
#include "rqcore/lists.h"

#include <cstring>

namespace rq::date {
namespace {

// Days before month 0..11 of a common year.
constexpr U16 kDaysBeforeMonth[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};

// Leap years in 1..y.
constexpr U32 leapsThrough(U32 y) noexcept
{
    return y / 4 - y / 100 + y / 400;
}

}  // namespace

U32 ComputeDayId(const DX_DATE *date, U16 *dayId) noexcept
{
    if (date->year < kEpochYear)
        return DX_DATE_ERR_BEFORE_EPOCH;
    if (date->month >= 12)
        return DX_DATE_ERR_MONTH_DAYS;
    // Closed form of the sum of 365 or 366 per year from 1991 and the month
    // lengths, taken modulo 2^16 as the 16-bit sum is: 5 June 2170 is 65535
    // and later dates wrap.
    U32 y = date->year;
    U32 days = 365u * (y - kEpochYear) + leapsThrough(y - 1) - leapsThrough(kEpochYear - 1);
    days += kDaysBeforeMonth[date->month] + (date->month > 1 && isLeap(y) ? 1u : 0u);
    days += date->day;
    *dayId = static_cast<U16>(days);
    return 0;
}

void SetDayId(DX_DATE *date, U16 dayId) noexcept
{
    date->dayId = dayId;
    date->flags |= DX_DATE_HAS_DAY_ID;
}

void SetDayOfWeek(DX_DATE *date, U16 dow) noexcept
{
    date->dayOfWeek = dow;
    date->flags |= DX_DATE_HAS_DAY_OF_WEEK;
}

}  // namespace rq::date

using namespace rq::date;

RQ_API U32 DX_DateGetNumDaysInMonth(U16 month, U16 year, U16 *days) noexcept
{
    if (month >= 12)
        return DX_DATE_ERR_MONTH_DAYS;
    if (days == nullptr)
        return DX_DATE_ERR_NULL;
    *days = monthLength(month, year);
    return 0;
}

RQ_API U32 DX_DateGetNumDaysInYear(U16 year, U16 *days) noexcept
{
    if (days == nullptr)
        return DX_DATE_ERR_NULL;
    *days = isLeap(year) ? 366 : 365;
    return 0;
}

RQ_API U32 DX_DateLeapYear(U16 year, U16 *isLeapOut) noexcept
{
    if (isLeapOut != nullptr)
        *isLeapOut = isLeap(year) ? 1 : 0;
    return 0;
}

RQ_API U32 DX_DateSet(DX_DATE *date, U16 day, U16 month, U16 year) noexcept
{
    // The month is checked before the day: callers rely on month 12 giving
    // 0x15602 whatever the day.
    if (month >= 12)
        return DX_DATE_ERR_MONTH;
    if (day == 0 || day > 31)
        return DX_DATE_ERR_DAY;
    if (day > monthLength(month, year))
        return DX_DATE_ERR_DAY_RANGE;
    if (date != nullptr) {
        date->day = day;
        date->month = month;
        date->year = year;
        date->flags = 0;
    }
    return 0;
}

RQ_API U32 DX_DateGet(const DX_DATE *date, U16 *day, U16 *month, U16 *year) noexcept
{
    if (date == nullptr)
        return DX_DATE_ERR_NULL;
    if (day != nullptr)
        *day = date->day;
    if (month != nullptr)
        *month = date->month;
    if (year != nullptr)
        *year = date->year;
    return 0;
}

RQ_API U32 DX_DateGetDayId(DX_DATE *date, U16 *dayId) noexcept
{
    if (date == nullptr || dayId == nullptr)
        return DX_DATE_ERR_NULL;
    U16 id = 0;
    if (date->flags & DX_DATE_HAS_DAY_ID) {
        id = date->dayId;
    } else {
        if (U32 rc = ComputeDayId(date, &id))
            return rc;
        SetDayId(date, id);
    }
    // Callers rely on their variable being left alone when the ID is 0.
    if (id != 0)
        *dayId = id;
    return 0;
}

RQ_API U32 DX_DateGetDayOfWeek(DX_DATE *date, U16 *dow) noexcept
{
    if (date == nullptr || dow == nullptr)
        return DX_DATE_ERR_NULL;
    if (date->flags & DX_DATE_HAS_DAY_OF_WEEK) {
        *dow = date->dayOfWeek;
        return 0;
    }
    U16 id = 0;
    if (U32 rc = DX_DateGetDayId(date, &id))
        return rc;
    *dow = ComputeDayOfWeekFromId(id);  // not cached here: callers rely on flag 2 staying as it was
    return 0;
}

RQ_API U32 DX_DateCompare(const DX_DATE *a, const DX_DATE *b, S16 *diff) noexcept
{
    if (a == nullptr || b == nullptr || diff == nullptr)
        return DX_DATE_ERR_NULL;
    // The raw difference in 16 bits, not -1/0/1: callers test its sign.
    int d = a->year - b->year;
    if (d == 0)
        d = a->month - b->month;
    if (d == 0)
        d = a->day - b->day;
    *diff = static_cast<S16>(d);
    return 0;
}

RQ_API U32 DX_DateIdentical(const DX_DATE *a, const DX_DATE *b, U16 *same) noexcept
{
    if (same == nullptr)
        return DX_DATE_ERR_NULL;
    S16 diff = 0;
    if (U32 rc = DX_DateCompare(a, b, &diff))
        return rc;
    *same = diff == 0 ? 1 : 0;
    return 0;
}

RQ_API U32 DX_DateCopy(DX_DATE *dest, const DX_DATE *source) noexcept
{
    if (dest != nullptr && source != nullptr && dest != source)
        std::memcpy(dest, source, sizeof(DX_DATE));
    return 0;
}

RQ_API U32 DX_DateListOfWeekDaysCreate(HLIST *list, U32 dataSize) noexcept
{
    constexpr U32 kListFlags = 8;
    return DX_ListCreate(list, sizeof(U16), dataSize, kListFlags, nullptr, nullptr);
}
