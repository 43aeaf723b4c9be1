// Weeks: the ISO 8601 week of the year and the Sunday-based week of the month.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/date_week"
#include "date_internal.h"

using namespace rq::date;

RQ_API U32 DX_DateGetWeekOfYear(DX_DATE *date, U16 *weekOut) noexcept
{
    if (date == nullptr)
        return DX_DATE_ERR_NULL;
    U16 dayId = 0;
    if (U32 rc = DX_DateGetDayId(date, &dayId))
        return rc;
    DX_DATE first{};
    if (U32 rc = DX_DateSet(&first, 1, 0, date->year))
        return rc;
    U16 j = 0;
    U16 w = 0;
    if (U32 rc = DX_DateGetDayId(&first, &j))
        return rc;
    if (U32 rc = DX_DateGetDayOfWeek(&first, &w))
        return rc;
    // S, the Monday that starts week 1 (the week of the year's first Thursday).
    U16 start = w == 0 ? static_cast<U16>(j + 1) : w <= 4 ? static_cast<U16>(j - w + 1) : static_cast<U16>(j - w + 8);
    // dayId - S + 7 is at least 4, so 16-bit arithmetic gives the true
    // difference even where the day IDs wrap.
    U16 week = static_cast<U16>(static_cast<U16>(dayId - start + 7u) / 7u);
    if (week == 0) {
        // Before week 1: the last week of the year before.
        DX_DATE last{};
        if (U32 rc = DX_DateSet(&last, 31, 11, static_cast<U16>(date->year - 1)))
            return rc;
        if (U32 rc = DX_DateGetWeekOfYear(&last, &week))
            return rc;
    } else if (week == 53) {
        // Monday to Wednesday whose Thursday lies in the next year: week 1 of it.
        U16 dow = 0;
        if (U32 rc = DX_DateGetDayOfWeek(date, &dow))
            return rc;
        if (dow >= 1 && dow <= 3 && 4 - dow > 31 - date->day)
            week = 1;
    }
    date->weekOfYear = week;
    date->flags |= DX_DATE_HAS_WEEK_OF_YEAR;
    if (weekOut != nullptr)
        *weekOut = week;
    return 0;
}

RQ_API U32 DX_DateGetWeekOfMonth(DX_DATE *date, U16 *week) noexcept
{
    if (date == nullptr || week == nullptr)
        return DX_DATE_ERR_NULL;
    DX_DATE first{};
    if (U32 rc = DX_DateSet(&first, 1, date->month, date->year))
        return rc;
    U16 f = 0;
    if (U32 rc = DX_DateGetDayOfWeek(&first, &f))
        return rc;
    *week = static_cast<U16>((date->day + f - 1) / 7);
    return 0;
}
