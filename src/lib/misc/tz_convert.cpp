// Conversions: the daylight-saving interval of a year, the local-time type
// at a wall-clock time (with its skipped and doubled hours), the adjust of a
// type, and UTC to local time and back.
//
// The steps are those of the product, kept exactly: the change is always
// taken to be one hour whatever the two adjusts; the entries' times are
// wall-clock times after each change; a year is decided by the wall-clock
// date.  Conversions go through the zone's year table (tz_internal.h), so a
// repeated conversion costs a hash look-up and two comparisons.
// GetTypeAndAdjust walks the same steps the long way, through the date
// functions (DX_DateOffsetFar, DX_DateCompare) and without the table.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/tz_convert"
#include "internal/rq_mem.h"
#include "tz_internal.h"
#include "date_internal.h"

#include <cstring>

namespace rq::tz {
namespace {

constexpr int64_t kMaxMinutes = 0xFFFFFFFFll;

constexpr int64_t leapsUpTo(int64_t year) noexcept { return year / 4 - year / 100 + year / 400; }

// Days from 1 January 1991 to 1 January of year.
constexpr S32 daysBeforeYear(U32 year) noexcept
{
    return static_cast<S32>(365 * (static_cast<int64_t>(year) - date::kEpochYear) + leapsUpTo(year - 1) -
                            leapsUpTo(date::kEpochYear - 1));
}

S32 dayIndex(const DX_DATE &d) noexcept
{
    S32 days = daysBeforeYear(d.year);
    for (U16 m = 0; m < d.month && m < 12; ++m)
        days += date::monthLength(m, d.year);
    return days + d.day - 1;
}

// The year of day index day (0 = 1 January 1991).
U32 yearOfDay(S32 day) noexcept
{
    U32 year = date::kEpochYear + static_cast<U32>(static_cast<int64_t>(day) * 400 / 146097);
    while (year > date::kEpochYear && daysBeforeYear(year) > day)
        --year;
    while (daysBeforeYear(year + 1) <= day)
        ++year;
    return year;
}

void reportAdjusts(const Interval &iv, S16 *daylight, S16 *standard) noexcept
{
    bool normal = iv.beginAdjust < iv.endAdjust;
    if (daylight != nullptr)
        *daylight = normal ? iv.beginAdjust : iv.endAdjust;
    if (standard != nullptr)
        *standard = normal ? iv.endAdjust : iv.beginAdjust;
}

// The type at minute m of day `day`, given cb and cd (the comparisons of the
// begin with the date and of the date with the end, decided by the minutes
// on the same day) and whether the day is the begin or the end day.
U32 decide(const Interval &iv, bool beginDay, bool endDay, int cb, int cd, S32 m, U32 *type) noexcept
{
    if (iv.beginAdjust == iv.endAdjust) {
        *type = DX_TZ_STANDARD;
        return 0;
    }
    bool normal = iv.beginAdjust < iv.endAdjust;
    if (normal && beginDay && iv.beginTime - 60 <= m && m < iv.beginTime)
        return DX_TZ_ERR_SKIPPED;
    if (normal && endDay && iv.endTime <= m && m < iv.endTime + 60) {
        *type = DX_TZ_EITHER;
        return 0;
    }
    if (!normal && endDay && iv.endTime - 60 <= m && m < iv.endTime)
        return DX_TZ_ERR_SKIPPED;
    if (!normal && beginDay && iv.beginTime <= m && m < iv.beginTime + 60) {
        *type = DX_TZ_EITHER;
        return 0;
    }
    if (normal ? (cb <= 0 && cd < 0) : (cb > 0 || cd >= 0))
        *type = DX_TZ_DAYLIGHT;
    else
        *type = DX_TZ_STANDARD;
    return 0;
}

int sign(S32 v) noexcept { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

// The interval of a year through the zone's table, filling the slot when empty.
U32 cachedInterval(const Zone &zone, U32 year, Interval *iv) noexcept
{
    if (year - kFirstCachedYear >= kCachedYears)
        return zoneInterval(zone, static_cast<U16>(year), iv);
    YearSlot *years = zone.years.load(std::memory_order_acquire);
    if (years == nullptr) {
        auto *fresh = static_cast<YearSlot *>(RQ_CALLOC(kCachedYears, sizeof(YearSlot)));
        if (fresh == nullptr)
            return zoneInterval(zone, static_cast<U16>(year), iv);
        if (zone.years.compare_exchange_strong(years, fresh, std::memory_order_acq_rel))
            years = fresh;
        else
            RQ_FREE(fresh);  // another thread's table won; `years` holds it
    }
    YearSlot &slot = years[year - kFirstCachedYear];
    U32 state = slot.state.load(std::memory_order_acquire);
    if (state == 0) {
        U32 status = zoneInterval(zone, static_cast<U16>(year), iv);
        if (status == 0) {
            slot.beginDay.store(static_cast<U32>(iv->beginDay), std::memory_order_relaxed);
            slot.endDay.store(static_cast<U32>(iv->endDay), std::memory_order_relaxed);
            slot.times.store(static_cast<U32>(iv->beginTime) | static_cast<U32>(iv->endTime) << 16,
                             std::memory_order_relaxed);
            slot.adjusts.store(static_cast<U16>(iv->beginAdjust) | static_cast<U32>(static_cast<U16>(iv->endAdjust)) << 16,
                               std::memory_order_relaxed);
        }
        slot.state.store(kReady | status, std::memory_order_release);
        return status;
    }
    U32 status = state & ~kReady;
    if (status != 0)
        return status;
    iv->beginDay = static_cast<S32>(slot.beginDay.load(std::memory_order_relaxed));
    iv->endDay = static_cast<S32>(slot.endDay.load(std::memory_order_relaxed));
    U32 times = slot.times.load(std::memory_order_relaxed);
    iv->beginTime = static_cast<S32>(times & 0xFFFF);
    iv->endTime = static_cast<S32>(times >> 16);
    U32 adjusts = slot.adjusts.load(std::memory_order_relaxed);
    iv->beginAdjust = static_cast<S16>(static_cast<U16>(adjusts & 0xFFFF));
    iv->endAdjust = static_cast<S16>(static_cast<U16>(adjusts >> 16));
    return 0;
}

U32 inRange(int64_t minutes, U32 *out) noexcept
{
    if (minutes < 0 || minutes > kMaxMinutes)
        return DX_TZ_ERR_NO_ENTRY;
    *out = static_cast<U32>(minutes);
    return 0;
}

}  // namespace

U32 FindEntryByYear(const DX_TZENTRY *entries, U32 count, U16 year, DX_TZENTRY *found) noexcept
{
    for (U32 i = 0; i < count; ++i) {
        const DX_TZENTRY &e = entries[i];
        if (e.from.year > year || year > e.to.year)
            continue;
        DX_TZENTRY moved = e;
        if (U32 status = DX_DateSet(&moved.from, e.from.day, e.from.month, year); status != 0)
            return status;
        if (U32 status = DX_DateSet(&moved.to, e.to.day, e.to.month, year); status != 0)
            return status;
        *found = moved;
        return 0;
    }
    return DX_TZ_ERR_NO_ENTRY;
}

U32 FromEntryToDate(const DX_TZENTRY &entry, DX_DATE *date) noexcept
{
    *date = entry.from;
    if (entry.weekday >= 7)
        return 0;
    for (int step = 0; step < 7; ++step) {
        U16 dow = 0;
        if (U32 status = DX_DateGetDayOfWeek(date, &dow); status != 0)
            return status;
        if (dow == entry.weekday)
            return 0;
        if (U32 status = DX_DateTomorrow(date); status != 0)
            return status;
    }
    return 0;
}

U32 zoneInterval(const Zone &zone, U16 year, Interval *iv) noexcept
{
    DX_TZENTRY begin, end;
    if (U32 status = FindEntryByYear(zone.entries, zone.beginCount, year, &begin); status != 0)
        return status;
    if (U32 status = FindEntryByYear(zone.entries + zone.beginCount, zone.endCount, year, &end); status != 0)
        return status;
    if (U32 status = FromEntryToDate(begin, &iv->beginDate); status != 0)
        return status;
    if (U32 status = FromEntryToDate(end, &iv->endDate); status != 0)
        return status;
    iv->beginDay = dayIndex(iv->beginDate);
    iv->endDay = dayIndex(iv->endDate);
    iv->beginTime = begin.time;
    iv->endTime = end.time;
    iv->beginAdjust = begin.adjust;
    iv->endAdjust = end.adjust;
    return 0;
}

U32 FindInterval(HLIST rules, const char *zoneName, U16 year, Interval *interval) noexcept
{
    SetLock set(rules);
    const Zone *zone = set ? findZone(*set.get(), zoneName) : nullptr;
    if (zone == nullptr)
        return DX_TZ_ERR_NO_ZONE;
    return zoneInterval(*zone, year, interval);
}

U32 GetTypeAndAdjust(HLIST rules, const char *zoneName, U32 t, U32 *type, S16 *daylight, S16 *standard) noexcept
{
    DX_DATE date;
    DX_DateSet(&date, 1, 0, date::kEpochYear);
    if (U32 status = DX_DateOffsetFar(&date, static_cast<S32>(t / kMinutesPerDay)); status != 0)
        return status;
    S32 m = static_cast<S32>(t % kMinutesPerDay);
    Interval iv;
    if (U32 status = FindInterval(rules, zoneName, date.year, &iv); status != 0)
        return status;
    S16 rawB = 0, rawE = 0;
    DX_DateCompare(&iv.beginDate, &date, &rawB);
    DX_DateCompare(&date, &iv.endDate, &rawE);
    int cb = rawB != 0 ? sign(rawB) : (iv.beginTime < m ? -1 : (iv.beginTime > m ? 1 : 0));
    int cd = rawE != 0 ? sign(rawE) : (m < iv.endTime ? -1 : (m > iv.endTime ? 1 : 0));
    U32 found = 0;
    if (U32 status = decide(iv, rawB == 0, rawE == 0, cb, cd, m, &found); status != 0)
        return status;
    *type = found;
    reportAdjusts(iv, daylight, standard);
    return 0;
}

U32 typeAt(const Zone &zone, U32 t, U32 *type, S16 *daylight, S16 *standard) noexcept
{
    S32 day = static_cast<S32>(t / kMinutesPerDay);
    S32 m = static_cast<S32>(t % kMinutesPerDay);
    Interval iv;
    if (U32 status = cachedInterval(zone, yearOfDay(day), &iv); status != 0)
        return status;
    int cb = iv.beginDay != day ? sign(iv.beginDay - day) : sign(iv.beginTime - m);
    int cd = day != iv.endDay ? sign(day - iv.endDay) : sign(m - iv.endTime);
    if (U32 status = decide(iv, iv.beginDay == day, iv.endDay == day, cb, cd, m, type); status != 0)
        return status;
    reportAdjusts(iv, daylight, standard);
    return 0;
}

void GetTypeName(const Zone &zone, U32 type, char *buffer, U32 size) noexcept
{
    if (buffer == nullptr || size == 0)
        return;
    const char *from = zone.key;
    U32 length = zone.standardAbbrLength;
    if (type == DX_TZ_DAYLIGHT && zone.hasDaylightPart) {
        from = zone.key + zone.daylightAbbrStart;
        length = zone.daylightAbbrLength;
    }
    if (length > size - 1)
        length = size - 1;
    std::memcpy(buffer, from, length);
    buffer[length] = '\0';
}

U32 zoneTimeAdjust(const Zone &zone, S16 *adjust, char *nameBuffer, U32 nameSize, U32 t, U32 type) noexcept
{
    U32 found = 0;
    S16 daylight = 0, standard = 0;
    U32 status = typeAt(zone, t, &found, &daylight, &standard);
    if (status == 0 && type != 0) {
        // In the doubled hour the caller's type decides; elsewhere it must agree.
        if (found == DX_TZ_EITHER)
            found = type;
        else if (found != type)
            status = DX_TZ_ERR_WRONG_TYPE;
    }
    S16 a = 0;
    if (status == 0) {
        if (found == DX_TZ_DAYLIGHT)
            a = daylight;
        else if (found == DX_TZ_STANDARD)
            a = standard;
        else
            status = DX_TZ_ERR_NO_TYPE;
    }
    if (adjust != nullptr)
        *adjust = a;
    if (status == 0)
        GetTypeName(zone, found, nameBuffer, nameSize);
    else if (nameBuffer != nullptr && nameSize != 0)
        nameBuffer[0] = '\0';
    return status;
}

U32 GetTimeAdjust(HLIST rules, const char *zoneName, S16 *adjust, char *nameBuffer, U32 nameSize, U32 t,
                  U32 type) noexcept
{
    SetLock set(rules);
    const Zone *zone = set ? findZone(*set.get(), zoneName) : nullptr;
    if (zone == nullptr) {
        if (adjust != nullptr)
            *adjust = 0;
        if (nameBuffer != nullptr && nameSize != 0)
            nameBuffer[0] = '\0';
        return DX_TZ_ERR_NO_ZONE;
    }
    return zoneTimeAdjust(*zone, adjust, nameBuffer, nameSize, t, type);
}

}  // namespace rq::tz

using namespace rq::tz;

extern "C" {

RQ_API U32 DX_TZGetLocalType(HLIST rules, const char *zoneName, U32 *type, U32 minutes) noexcept
{
    SetLock set(rules);
    const Zone *zone = set ? findZone(*set.get(), zoneName) : nullptr;
    if (zone == nullptr)
        return DX_TZ_ERR_NO_ZONE;
    U32 found = 0;
    if (U32 status = typeAt(*zone, minutes, &found, nullptr, nullptr); status != 0)
        return status;
    if (type != nullptr)
        *type = found;
    return 0;
}

RQ_API U32 DX_TZFromLocalTimeToUTC(HLIST rules, const char *zoneName, U32 *utcMinutes, U32 localMinutes,
                                   U32 type) noexcept
{
    SetLock set(rules);
    const Zone *zone = set ? findZone(*set.get(), zoneName) : nullptr;
    if (zone == nullptr)
        return DX_TZ_ERR_NO_ZONE;
    S16 adjust = 0;
    if (U32 status = zoneTimeAdjust(*zone, &adjust, nullptr, 0, localMinutes, type); status != 0)
        return status;
    U32 utc = 0;
    if (U32 status = inRange(static_cast<int64_t>(localMinutes) + adjust, &utc); status != 0)
        return status;
    if (utcMinutes != nullptr)
        *utcMinutes = utc;
    return 0;
}

RQ_API U32 DX_TZFromUTCToLocalTime(HLIST rules, const char *zoneName, U32 *localMinutes, U32 *type,
                                   U32 utcMinutes, char *abbreviation, U32 abbreviationSize) noexcept
{
    if (abbreviation != nullptr && abbreviationSize != 0)
        abbreviation[0] = '\0';
    SetLock set(rules);
    const Zone *zone = set ? findZone(*set.get(), zoneName) : nullptr;
    if (zone == nullptr)
        return DX_TZ_ERR_NO_ZONE;
    // Ask at the local standard time first.
    int64_t utc = utcMinutes;
    int64_t s = zone->standardOffset;
    U32 at = 0, found = 0;
    U32 status = inRange(utc - s, &at);
    if (status == 0)
        status = typeAt(*zone, at, &found, nullptr, nullptr);
    if (status == DX_TZ_ERR_SKIPPED) {
        // Standard time lands in the skipped hour: one hour later the clock
        // shows daylight time, and that answer stands.
        s -= 60;
        status = inRange(utc - s, &at);
        if (status == 0)
            status = typeAt(*zone, at, &found, nullptr, nullptr);
    } else if (status == 0 && found == DX_TZ_EITHER) {
        // Standard time lands in the doubled hour: past it the clock shows
        // standard time, so the adjust is asked two hours later.
        s -= 120;
        found = DX_TZ_STANDARD;
    }
    S16 adjust = 0;
    if (status == 0)
        status = inRange(utc - s, &at);
    if (status == 0)
        status = zoneTimeAdjust(*zone, &adjust, abbreviation, abbreviationSize, at, found);
    U32 local = 0;
    if (status == 0)
        status = inRange(utc - adjust, &local);
    if (status != 0) {
        if (abbreviation != nullptr && abbreviationSize != 0)
            abbreviation[0] = '\0';
        return status;
    }
    if (localMinutes != nullptr)
        *localMinutes = local;
    if (type != nullptr)
        *type = found;
    return 0;
}

}  // extern "C"
