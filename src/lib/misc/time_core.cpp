// Times: a date plus the seconds of its day, and the time ID that counts
// seconds from 1 January 1991 00:00:00.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/time_core"
#include "internal/rq_mem.h"
#include "time_internal.h"

namespace rq::time {

U32 epochDate(DX_DATE *date) noexcept
{
    *date = DX_DATE{};
    return DX_DateSet(date, 1, 0, 1991);
}

U32 timeIdOf(DX_TIME *time, U32 *timeId, U32 unit) noexcept
{
    U16 dayId = 0;
    U32 rc = DX_DateGetDayId(&time->date, &dayId);
    if (rc != 0)
        return rc;
    // 32-bit arithmetic: dates past 7 February 2127 wrap, as the ID is a U32.
    *timeId = (static_cast<U32>(dayId) - 1u) * (kSecondsPerDay / unit) + time->seconds / unit;
    return 0;
}

}  // namespace rq::time

using namespace rq::time;

RQ_API U32 DX_TimeSet(DX_TIME *time, DX_DATE *date, U16 hour, U16 minute, U16 second) noexcept
{
    if (time == nullptr || date == nullptr)
        return kNullRecord;
    U32 rc = 0;
    if (hour > 23)
        rc = TIME_ERR_HOUR;
    else if (minute >= 60)
        rc = TIME_ERR_MINUTE;
    else if (second >= 60)
        rc = TIME_ERR_SECOND;
    if (rc != 0) {
        // Callers rely on a refused time resetting their own date argument.
        epochDate(date);
        time->seconds = 0;
        return rc;
    }
    DX_DateCopy(&time->date, date);
    time->seconds = hour * 3600u + minute * 60u + second;
    return 0;
}

RQ_API U32 DX_TimeGet(const DX_TIME *time, DX_DATE *date, U16 *hour, U16 *minute, U16 *second) noexcept
{
    if (time == nullptr)
        return kNullRecord;
    if (date != nullptr)
        DX_DateCopy(date, &time->date);
    if (hour != nullptr)
        *hour = static_cast<U16>(time->seconds / 3600);
    if (minute != nullptr)
        *minute = static_cast<U16>(time->seconds / 60 % 60);
    if (second != nullptr)
        *second = static_cast<U16>(time->seconds % 60);
    return 0;
}

RQ_API U32 DX_TimeSetFromTimeId(DX_TIME *time, U32 timeId) noexcept
{
    if (time == nullptr)
        return kNullRecord;
    DX_DATE date;
    U32 rc = epochDate(&date);
    // The day count goes through DX_DateOffset's signed 16 bits: from 32768
    // days on the date moves backwards.  Callers rely on this exact result.
    if (rc == 0)
        rc = DX_DateOffset(&date, static_cast<S16>(static_cast<U16>(timeId / kSecondsPerDay)));
    if (rc != 0)
        return rc;
    DX_DateCopy(&time->date, &date);
    time->seconds = timeId % kSecondsPerDay;
    return 0;
}

RQ_API U32 DX_TimeGetTimeId(DX_TIME *time, U32 *timeId) noexcept
{
    if (time == nullptr || timeId == nullptr)
        return kNullRecord;
    *timeId = 0;
    return timeIdOf(time, timeId, 1);
}

RQ_API U32 DX_TimeGetTimeIdInMinutes(DX_TIME *time, U32 *minutes) noexcept
{
    if (time == nullptr || minutes == nullptr)
        return kNullRecord;
    *minutes = 0;
    return timeIdOf(time, minutes, 60);
}

RQ_API U32 DX_TimeOffset(DX_TIME *time, S32 seconds) noexcept
{
    if (time == nullptr)
        return kNullRecord;
    U32 timeId = 0;
    U32 rc = timeIdOf(time, &timeId, 1);
    if (rc != 0)
        return rc;
    long long sum = static_cast<long long>(timeId) + seconds;
    if (sum < 0)
        rc = TIME_ERR_BEFORE_EPOCH;
    // The noted 0x15C04 is overwritten by the setting's own code: callers rely
    // on an offset to before the epoch not failing.
    rc = DX_TimeSetFromTimeId(time, static_cast<U32>(sum));
    return rc;
}

RQ_API DX_DATE *DX_TimeGetDatePtr(DX_TIME *time) noexcept
{
    return time == nullptr ? nullptr : &time->date;
}
