// Moving a date: by days (month by month, so any year works), by months and
// years, to the first or last day of its month.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/date_move"
#include "date_internal.h"

#include <cstdint>

using namespace rq::date;

namespace {

// Days in 400 Gregorian years: a date moved by this many days keeps its day
// and month and gains 400 years.
constexpr int64_t kDaysPer400Years = 146097;

// The month-by-month walk.  Forward by n: while day + n passes the month's
// end, n -= (length - day), day = 0 and on to the next month; backward by n:
// while day <= n, n -= day and back to the last day of the month before.
// The year wraps in 16 bits.  Sum is the type in which the forward test
// day + n is taken (16 bits for DX_DateOffset, as callers rely on).
template <typename Sum>
U32 offsetBy(DX_DATE *date, int64_t n) noexcept
{
    if (date == nullptr)
        return DX_DATE_ERR_NULL;
    if (n == 0)
        return 0;
    U16 month = date->month;
    U16 year = date->year;
    if (month >= 12)
        return DX_DATE_ERR_MONTH_DAYS;
    int64_t day = date->day;
    if (n > 0) {
        for (;;) {
            int64_t length = monthLength(month, year);
            if (static_cast<Sum>(day + n) <= length) {
                day = static_cast<Sum>(day + n);
                break;
            }
            n -= length - day;
            day = 0;
            if (++month == 12) {
                month = 0;
                ++year;
            }
            // Day 0 of a month is the last day of the one before, a real
            // date: whole 400-year cycles can be stepped over at once as
            // long as the year does not wrap on the way.
            if (n > kDaysPer400Years && year <= 65535 - 400) {
                int64_t cycles = n / kDaysPer400Years;
                if (cycles > (65535 - 400 - year) / 400 + 1)
                    cycles = (65535 - 400 - year) / 400 + 1;
                n -= cycles * kDaysPer400Years;
                year = static_cast<U16>(year + cycles * 400);
            }
        }
    } else {
        n = -n;
        for (;;) {
            if (day > n) {
                day -= n;
                break;
            }
            n -= day;
            if (month-- == 0) {
                month = 11;
                --year;
            }
            day = monthLength(month, year);
            // The last day of a month: the same cycles backwards.
            if (n > kDaysPer400Years && year >= 400) {
                int64_t cycles = n / kDaysPer400Years;
                if (cycles > year / 400)
                    cycles = year / 400;
                n -= cycles * kDaysPer400Years;
                year = static_cast<U16>(year - cycles * 400);
            }
        }
    }
    return DX_DateSet(date, static_cast<U16>(day), month, year);
}

// The record's month moved by one and its day clamped to the new month.
U32 stepMonth(DX_DATE *date, bool forward) noexcept
{
    if (date == nullptr)
        return DX_DATE_ERR_NULL;
    U16 month = date->month;
    U16 year = date->year;
    if (month >= 12)
        return DX_DATE_ERR_MONTH;
    if (forward) {
        if (++month == 12) {
            month = 0;
            ++year;
        }
    } else if (month-- == 0) {
        month = 11;
        --year;
    }
    U16 length = monthLength(month, year);
    return DX_DateSet(date, date->day < length ? date->day : length, month, year);
}

}  // namespace

RQ_API U32 DX_DateOffset(DX_DATE *date, S16 days) noexcept
{
    return offsetBy<U16>(date, days);
}

RQ_API U32 DX_DateOffsetFar(DX_DATE *date, S32 days) noexcept
{
    return offsetBy<int64_t>(date, days);
}

RQ_API U32 DX_DateTomorrow(DX_DATE *date) noexcept
{
    return DX_DateOffset(date, 1);
}

RQ_API U32 DX_DateYesterday(DX_DATE *date) noexcept
{
    if (date == nullptr)
        return DX_DATE_ERR_NULL;
    if (date->day >= 2)
        return DX_DateSet(date, static_cast<U16>(date->day - 1), date->month, date->year);
    if (U32 rc = DX_DatePrevMonth(date))
        return rc;
    return DX_DateSetToLastDayOfMonth(date);
}

RQ_API U32 DX_DatePrevMonth(DX_DATE *date) noexcept
{
    return stepMonth(date, false);
}

RQ_API U32 DX_DateNextMonth(DX_DATE *date) noexcept
{
    return stepMonth(date, true);
}

RQ_API U32 DX_DateSetToFirstDayOfMonth(DX_DATE *date) noexcept
{
    if (date == nullptr)
        return DX_DATE_ERR_NULL;
    return DX_DateSet(date, 1, date->month, date->year);
}

RQ_API U32 DX_DateSetToLastDayOfMonth(DX_DATE *date) noexcept
{
    if (date == nullptr)
        return DX_DATE_ERR_NULL;
    U16 length = 0;
    if (U32 rc = DX_DateGetNumDaysInMonth(date->month, date->year, &length))
        return rc;
    return DX_DateSet(date, length, date->month, date->year);
}

RQ_API U32 DX_DateCompute(const DX_DATE *source, U16 amount, U16 unit, DX_DATE *result) noexcept
{
    if (source == nullptr || result == nullptr)
        return DX_DATE_ERR_NULL;
    DX_DateCopy(result, source);
    switch (unit) {
    case DX_DATE_UNIT_DAYS:
        // Through the signed 16-bit offset: amounts above 32767 move back, as callers rely on.
        return DX_DateOffset(result, static_cast<S16>(amount));
    case DX_DATE_UNIT_WEEKS:
        return DX_DateOffset(result, static_cast<S16>(static_cast<U16>(amount * 7u)));
    case DX_DATE_UNIT_MONTHS: {
        U32 m = result->month + static_cast<U32>(amount);
        U16 year = static_cast<U16>(result->year + m / 12);
        U16 month = static_cast<U16>(m % 12);
        U16 length = monthLength(month, year);
        return DX_DateSet(result, result->day < length ? result->day : length, month, year);
    }
    case DX_DATE_UNIT_YEARS:
        // No clamping: 29 February into a common year fails, as callers rely on.
        return DX_DateSet(result, result->day, result->month, static_cast<U16>(result->year + amount));
    default:
        return DX_DATE_ERR_UNIT;
    }
}
