// Internal to the time-zone family: the rule-set block, its zone index and
// per-year interval cache, the file reader's entry parser and the steps of a
// conversion.
//
// A rule set is one memory-handle block (Set) holding the list of zone rules
// that callers know of, and an index derived from it: one Zone per distinct
// zone name, in the order the zones were added, found through an
// open-addressing hash of the names.  A Zone carries a copy of its rule
// record, copies of its entries (so that conversions never walk, and never
// move the walking position of, a list) and, once a conversion has asked, a
// table of the interval of each year from kFirstCachedYear on.  A slot is
// filled with atomic stores and published by its state word (release);
// threads that race to fill one compute the same values, so no lock is
// needed.  A table that cannot be allocated is simply not used: the interval
// is then computed on every call, with the same result.
#ifndef RQ_TZ_INTERNAL_H
#define RQ_TZ_INTERNAL_H

#include "rqcore/date.h"
#include "rqcore/lists.h"
#include "rqcore/tz.h"

#include <atomic>

namespace rq::tz {

constexpr U32 kZoneKeySize = DX_TZ_ZONE_SIZE;
constexpr U32 kEntrySize = sizeof(DX_TZENTRY);
constexpr U32 kRuleSize = sizeof(DX_TZRULE);
constexpr U32 kEntryListFlags = 8;
constexpr U32 kRuleListFlags = DX_LIST_STRING_ID;  // names compared with DX_MemStrnCmp
constexpr U32 kSetMagic = 0x545A5253u;
constexpr U16 kFirstCachedYear = 1991;
constexpr U32 kCachedYears = 256;
constexpr U32 kMinutesPerDay = 1440;

// The daylight-saving interval of one year.  Days count from 1 January 1991
// (day 0); times are the entries' wall-clock minutes (possibly 1440 or more:
// they are compared with the minute of the day, never carried into the day).
struct Interval {
    DX_DATE beginDate;
    DX_DATE endDate;
    S32 beginDay;
    S32 endDay;
    S32 beginTime;
    S32 endTime;
    S16 beginAdjust;
    S16 endAdjust;
};

struct YearSlot {
    std::atomic<U32> state;  // 0: empty; else kReady | status
    std::atomic<U32> beginDay;
    std::atomic<U32> endDay;
    std::atomic<U32> times;    // beginTime | endTime << 16
    std::atomic<U32> adjusts;  // (U16) beginAdjust | (U16) endAdjust << 16
};
constexpr U32 kReady = 0x80000000u;

struct Zone {
    char key[kZoneKeySize];
    U32 hash;
    DX_TZRULE rule;  // as stored in the set's list
    S16 standardOffset;
    U16 standardAbbrLength;   // leading capitals of the zone name
    U16 daylightAbbrStart;    // the capitals after the standard offset
    U16 daylightAbbrLength;
    bool hasDaylightPart;     // anything follows the standard offset
    U32 beginCount;
    U32 endCount;
    DX_TZENTRY *entries;  // beginCount begin entries, then endCount end entries
    mutable std::atomic<YearSlot *> years;
};

struct Index {
    Zone **zones;  // in the order of addition
    U32 count;
    U32 capacity;
    U32 *slots;  // open addressing: zone number + 1, 0 empty
    U32 slotCount;
};

struct Set {
    U32 magic;
    HLIST list;
    Index index;
};

// ---- tz_index.cpp ------------------------------------------------------------

// The lookup key of a name: at most 19 characters, zero-padded to 20 bytes.
void zoneKey(const char *name, char key[kZoneKeySize]) noexcept;
// The set behind a handle, locked for the guard's life; null when the handle
// is 0, not lockable or not a rule set.
class SetLock {
public:
    explicit SetLock(HLIST rules) noexcept;
    ~SetLock();
    SetLock(const SetLock &) = delete;
    SetLock &operator=(const SetLock &) = delete;
    Set *get() const noexcept { return set_; }
    Set *operator->() const noexcept { return set_; }
    explicit operator bool() const noexcept { return set_ != nullptr; }

private:
    bool locked_ = false;
    Set *set_ = nullptr;
};
const Zone *findZone(const Set &set, const char *zoneName) noexcept;
// Indexes a rule (already in the set's list under key, or about to be):
// copies its entries.  DX_TZ_ERR_NO_MEMORY, DX_LIST_ERR_TYPE_DIFFERS (entry
// lists not of 56-byte items), DX_LIST_ERR_DUPLICATE.  reserveZone first
// makes room so that commitZone cannot fail.
U32 makeZone(const char key[kZoneKeySize], const DX_TZRULE &rule, Zone **zone) noexcept;
U32 reserveZone(Index &index) noexcept;
void commitZone(Index &index, Zone *zone) noexcept;
void freeZone(Zone *zone) noexcept;
void freeIndex(Index &index) noexcept;
// Adds a rule under a name: duplicate check, list append, index.  On success
// the set owns the rule's lists; on failure nothing changed.
U32 addRule(Set &set, const char *zoneName, const DX_TZRULE &rule) noexcept;

// ---- tz_read.cpp -------------------------------------------------------------

// One entry value of the file: "minute hour day month year weekday ABBRadjust".
U32 ParseEntry(const char *text, DX_TZENTRY *entry) noexcept;
// Reads one section's keyword list into a rule added under sectionName.
U32 ReadOneSection(HLIST rules, const char *sectionName, HLIST keywords) noexcept;
// The adjust at text (optional "-", hours, optional ":" and minutes);
// *end is set past it.
S16 readAdjust(const char *text, const char **end) noexcept;

// ---- tz_convert.cpp ----------------------------------------------------------

// The first entry covering year, with its dates moved into that year.
U32 FindEntryByYear(const DX_TZENTRY *entries, U32 count, U16 year, DX_TZENTRY *found) noexcept;
// The date of the change an entry (moved into its year) describes.
U32 FromEntryToDate(const DX_TZENTRY &entry, DX_DATE *date) noexcept;
// The interval of a year: begin and end date and time, both adjusts.
U32 FindInterval(HLIST rules, const char *zoneName, U16 year, Interval *interval) noexcept;
U32 zoneInterval(const Zone &zone, U16 year, Interval *interval) noexcept;
// The type in force at wall-clock minutes t, as the steps of the rules say,
// through the date functions and without the year table.
U32 GetTypeAndAdjust(HLIST rules, const char *zoneName, U32 t, U32 *type, S16 *daylight, S16 *standard) noexcept;
// The same through the zone's year table.
U32 typeAt(const Zone &zone, U32 t, U32 *type, S16 *daylight, S16 *standard) noexcept;
U32 GetTimeAdjust(HLIST rules, const char *zoneName, S16 *adjust, char *nameBuffer, U32 nameSize, U32 t, U32 type) noexcept;
U32 zoneTimeAdjust(const Zone &zone, S16 *adjust, char *nameBuffer, U32 nameSize, U32 t, U32 type) noexcept;
// The abbreviation of a type (see tz.h) into a buffer of size bytes.
void GetTypeName(const Zone &zone, U32 type, char *buffer, U32 size) noexcept;

}  // namespace rq::tz

#endif
