// Local times: a wall-clock time in a named zone with its local-time type,
// converted to and from UTC through a time-zone rule set.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/time_local"
#include "internal/rq_mem.h"
#include "rqcore/lists.h"
#include "rqcore/tz.h"
#include "time_internal.h"

using namespace rq::time;

namespace {

// The zone a call works on: the caller's, or the record's own when none is
// given.
const char *zoneOf(const DX_LOCALTIME *local, const char *zoneName) noexcept
{
    return zoneName != nullptr ? zoneName : local->zoneName;
}

void setZone(DX_LOCALTIME *local, const char *zoneName) noexcept
{
    if (zoneName != nullptr && zoneName != local->zoneName)
        DX_MemStrnCopy(local->zoneName, zoneName, LTIME_ZONE_NAME_SIZE);
}

}  // namespace

RQ_API U32 DX_LocalTimeSet(DX_LOCALTIME *local, const DX_TIME *time, const char *zoneName, U32 type, HLIST rules) noexcept
{
    if (local == nullptr || time == nullptr)
        return kNullRecord;
    DX_TIME wall = *time;
    U32 minutes = 0;
    U32 rc = DX_TimeGetTimeIdInMinutes(&wall, &minutes);
    if (rc != 0)
        return rc;
    U32 found = 0;
    rc = DX_TZGetLocalType(rules, zoneOf(local, zoneName), &found, minutes);
    if (rc != 0)
        return rc;
    // A doubled wall-clock time (12) takes whichever type the caller names.
    if ((found == LTIME_TYPE_STANDARD || found == LTIME_TYPE_DAYLIGHT) && found != type)
        return LTIME_ERR_TYPE;
    local->time = wall;
    local->type = type;
    setZone(local, zoneName);
    return 0;
}

RQ_API U32 DX_LocalTimeSetFromTimeId(DX_LOCALTIME *local, U32 timeId, const char *zoneName, U32 type, HLIST rules) noexcept
{
    if (local == nullptr)
        return kNullRecord;
    DX_TIME time{};
    U32 rc = DX_TimeSetFromTimeId(&time, timeId);
    if (rc != 0)
        return rc;
    return DX_LocalTimeSet(local, &time, zoneName, type, rules);
}

RQ_API U32 DX_LocalTimeGet(const DX_LOCALTIME *local, DX_TIME *time, char *zoneNameBuffer, U32 *type, void *reserved) noexcept
{
    (void)reserved;
    if (local == nullptr)
        return kNullRecord;
    if (time != nullptr)
        *time = local->time;
    if (zoneNameBuffer != nullptr)
        DX_MemStrnCopy(zoneNameBuffer, local->zoneName, LTIME_ZONE_NAME_SIZE);
    if (type != nullptr)
        *type = local->type;
    return 0;
}

RQ_API U32 DX_LocalTimeGetTimeId(DX_LOCALTIME *local, U32 *timeId) noexcept
{
    if (local == nullptr)
        return kNullRecord;
    return DX_TimeGetTimeId(&local->time, timeId);
}

RQ_API U32 DX_LocalTimeSetFromUTC(DX_LOCALTIME *local, DX_TIME *utcTime, const char *zoneName, HLIST rules) noexcept
{
    if (local == nullptr || utcTime == nullptr)
        return kNullRecord;
    U32 utcId = 0;
    U32 rc = DX_TimeGetTimeId(utcTime, &utcId);
    if (rc != 0)
        return rc;
    U32 localMinutes = 0, type = 0;
    rc = DX_TZFromUTCToLocalTime(rules, zoneOf(local, zoneName), &localMinutes, &type, utcId / 60, nullptr, 0);
    if (rc != 0)
        return rc;
    DX_TIME wall{};
    rc = DX_TimeSetFromTimeId(&wall, localMinutes * 60u + utcId % 60);
    if (rc != 0)
        return rc;
    local->time = wall;
    local->type = type;
    setZone(local, zoneName);
    return 0;
}

RQ_API U32 DX_LocalTimeGetUTC(DX_LOCALTIME *local, DX_TIME *utcTime, HLIST rules) noexcept
{
    if (local == nullptr || utcTime == nullptr)
        return kNullRecord;
    U32 localId = 0;
    U32 rc = DX_TimeGetTimeId(&local->time, &localId);
    if (rc != 0)
        return rc;
    U32 utcMinutes = 0;
    // The record's own type picks the offset of a doubled wall-clock time.
    rc = DX_TZFromLocalTimeToUTC(rules, local->zoneName, &utcMinutes, localId / 60, local->type);
    if (rc != 0)
        return rc;
    return DX_TimeSetFromTimeId(utcTime, utcMinutes * 60u + localId % 60);
}

RQ_API U32 DX_LocalTimeOffset(DX_LOCALTIME *local, S32 seconds, HLIST rules) noexcept
{
    if (local == nullptr)
        return kNullRecord;
    DX_TIME utc{};
    U32 rc = DX_LocalTimeGetUTC(local, &utc, rules);
    if (rc == 0)
        rc = DX_TimeOffset(&utc, seconds);
    if (rc == 0)
        rc = DX_LocalTimeSetFromUTC(local, &utc, nullptr, rules);
    return rc;
}
