/*
 * rqcore time-zone rules: for each zone name, the dates and wall-clock times
 * at which daylight-saving time begins and ends, year by year, with the
 * offset from UTC in force on each side.
 *
 * Times are minutes since 1 January 1991 00:00 (a time ID divided by 60).
 * An adjust is a signed offset in minutes with UTC = local + adjust, so zones
 * west of Greenwich have positive adjusts (5 hours west is 300).
 *
 * A zone name ("EST5EDT", "CET-1CEST") holds at most 19 characters: the
 * abbreviation of standard time in capitals, the standard offset read like an
 * adjust ("-", hours, optionally ":" and minutes), then the abbreviation of
 * daylight time.  A longer name is cut to 19 characters, both where a zone is
 * added and where one is looked up.
 *
 * A rule set is a 32-bit handle (HLIST) holding a list of zone rules keyed by
 * zone name.  Besides that list it keeps an index of its own: a hash of the
 * zone names (so that a look-up costs the same in a set of 10,000 zones as in
 * one of ten, and reading a file of n zones is linear in n), and, per zone,
 * a table of the daylight-saving interval of each year from 1991 to 2246,
 * filled on first use without a lock (each slot is written with atomic
 * stores, and any thread that fills it computes the same values).  A rule
 * set that is not being changed may therefore be used by several threads at
 * once for the look-ups and conversions; DX_TZEnum moves the list's walking
 * position and, like the functions that change a set, wants one thread.
 *
 * Zone rules (DX_TZRULE) are records of the platform allocator made by
 * DX_TZCreateTZRule; a rule owns its two entry lists (items of 56 bytes,
 * list flag 8, each item a DX_TZENTRY).
 *
 * The time-zone definition file is a profile file (see profiles.h) with one
 * section per zone, named after the zone, holding the keys "name",
 * "country", "begin1", "begin2", ... and "end1", "end2", ...  The numbered
 * keys are read from 1 until the first missing one, the number being one
 * character ('0' + n), so the key after "begin9" is "begin:".  An entry is
 *     minute hour day month year weekday ABBRadjust
 * each of the first six a number or a range "a-b" (day, month and year
 * ranges give the from and to dates, months 1..12; a weekday range with two
 * different ends means "on the from day itself"), e.g.
 *     begin1 = 0 3 25-31 3 1991-2037 0 CEST-2
 * Numbers above 65535 read as 65535; the time (hour * 60 + minute) and the
 * adjust are taken in 16 bits.  A from or to date that does not exist fails
 * the whole read with the date code (day 0: 0x15601, month 0 or 13: 0x15602,
 * 30 February: 0x15604).  A year range given backwards ("2037-1991") is
 * accepted and simply never covers a year.  Anything after the adjust is
 * ignored.
 */
#ifndef RQCORE_TZ_H
#define RQCORE_TZ_H

#include "types.h"
#include "date.h"

RQ_BEGIN_DECLS

RQ_CODES {
    DX_TZ_ERR_ENUM_MODE = 0x15701,  /* DX_TZEnum: mode is neither 13 nor 14 */
    DX_TZ_ERR_WRONG_TYPE = 0x15702, /* the caller's local-time type is not the one in force */
    DX_TZ_ERR_NO_TYPE = 0x15703,    /* the wall-clock time occurs twice and no type was given */
    DX_TZ_ERR_SKIPPED = 0x15704,    /* the wall-clock time does not exist (clocks went forward) */
    DX_TZ_ERR_NO_ZONE = 0x15705,    /* conversions: zone not in the rule set (or no rule set) */
    DX_TZ_ERR_NO_MEMORY = 0x15707,  /* out of memory */
    DX_TZ_ERR_NO_ENTRY = 0x15709,   /* no entry of the zone covers the year; also a time that
                                       would fall before 1991 or past the 32-bit minute range */
    DX_TZ_ERR_NULL = 0x1570A,       /* a required pointer argument is null */
    DX_TZ_ERR_NOT_FOUND = 0x15710   /* DX_TZFind: zone not in the set; DX_TZRulesCreate: no such section */
};

/* Local-time types. */
#define DX_TZ_STANDARD 10u
#define DX_TZ_DAYLIGHT 11u
#define DX_TZ_EITHER 12u /* the wall-clock hour that occurs twice */

/* Modes of DX_TZEnum. */
#define DX_TZ_ENUM_FIRST 13u
#define DX_TZ_ENUM_NEXT 14u

/* DX_TZENTRY.weekday: the change falls on the from day itself. */
#define DX_TZ_NO_WEEKDAY 99u

#define DX_TZ_ZONE_SIZE 20u /* zone names: 19 characters and a NUL */
#define DX_TZ_NAME_SIZE 81u /* long name and country: 80 characters and a NUL */

/* One change of clocks, valid from `from` to `to` (their years choose the
 * years it covers).  time: wall-clock minutes after midnight at which the
 * change takes effect, told as the time after the change.  weekday 0..6
 * (0 = Sunday): the first such day on or after the from day; any value of 7
 * or more (DX_TZ_NO_WEEKDAY): the from day itself.  adjust: the offset in
 * force after the change. */
typedef struct DX_TZENTRY {
    DX_DATE from;
    DX_DATE to;
    U16 time;
    U16 weekday;
    S16 adjust;
    U16 reserved;
} DX_TZENTRY;

/* A zone rule: the data of one rule-set element. */
typedef struct DX_TZRULE {
    char name[DX_TZ_NAME_SIZE];    /* long name of the zone */
    char country[DX_TZ_NAME_SIZE];
    U8 reserved[2];
    HLIST begin; /* DX_TZENTRY items: changes to daylight time (north of the equator) */
    HLIST end;   /* DX_TZENTRY items: changes back to standard time */
} DX_TZRULE;

#ifdef __cplusplus
static_assert(sizeof(DX_TZENTRY) == 56, "DX_TZENTRY is 56 bytes on every target");
static_assert(sizeof(DX_TZRULE) == 172, "DX_TZRULE is 172 bytes on every target");
#else
typedef char DX_TZENTRY_size_check[(sizeof(DX_TZENTRY) == 56) ? 1 : -1];
typedef char DX_TZRULE_size_check[(sizeof(DX_TZRULE) == 172) ? 1 : -1];
#endif

/* ---- Rule sets ------------------------------------------------------------ */

/* Reads the zone sectionName of the file, or every section when sectionName
 * is null.  A missing section gives 0x15710; profile codes pass through
 * (0x1520F for a section given twice); a duplicate zone name (two sections
 * alike in their first 19 characters) 0x15001.  On any failure nothing is
 * left behind and *rules is 0. */
RQ_API U32 DX_TZRulesCreate(HLIST *rules, const char *fileName, const char *sectionName) RQ_NOEXCEPT;
RQ_API U32 DX_TZCreateTZRulesEmpty(HLIST *rules) RQ_NOEXCEPT;
/* Wraps a list of zone rules (identifiers of 20 bytes, data of 172 bytes,
 * else 0x15061; entry lists of 56-byte items, else 0x15061); the rule
 * set takes the list over, and the caller must not change it afterwards.  A
 * zone name met twice: the first one wins.  On failure the list stays the
 * caller's. */
RQ_API U32 DX_TZRulesCreateFromList(HLIST *rules, HLIST list) RQ_NOEXCEPT;
/* Destroys every rule's entry lists, the list and the set; *rules = 0.  A
 * null pointer or a 0 handle is accepted (0). */
RQ_API U32 DX_TZRulesDestroy(HLIST *rules) RQ_NOEXCEPT;
/* The same for a bare list of zone rules. */
RQ_API U32 DX_TZRulesListDestroy(HLIST *list) RQ_NOEXCEPT;
/* Adds a copy of the rule under zoneName (cut to 19 characters; null:
 * 0x1570A); a name already present: 0x15001 and the caller's rule stays as it was.  On
 * success the rule's entry lists belong to the set and the rule record is
 * freed: the caller's pointer must not be used again. */
RQ_API U32 DX_TZAddTZRule(HLIST rules, const char *zoneName, DX_TZRULE *rule) RQ_NOEXCEPT;
/* An empty set holding one rule with one begin and one end entry. */
RQ_API U32 DX_TZCreateTZRulesSimple(HLIST *rules, const char *zoneName, const char *name, const char *country, const DX_TZENTRY *beginEntry, const DX_TZENTRY *endEntry) RQ_NOEXCEPT;
/* A new set with a deep copy of every rule; on failure *copy = 0. */
RQ_API U32 DX_TZRulesCopy(HLIST source, HLIST *copy) RQ_NOEXCEPT;

/* ---- Rules ---------------------------------------------------------------- */

/* A zero-filled rule with two empty entry lists; name and country (either may
 * be null) are copied with an 80-character limit. */
RQ_API U32 DX_TZCreateTZRule(DX_TZRULE **rule, const char *name, const char *country) RQ_NOEXCEPT;
/* Appends beginEntry to the begin list and endEntry to the end list; a null
 * entry leaves its list alone.  If the second append fails the first is
 * taken back. */
RQ_API U32 DX_TZAddTZEntry(DX_TZRULE *rule, const DX_TZENTRY *beginEntry, const DX_TZENTRY *endEntry) RQ_NOEXCEPT;
/* Destroys the entry lists, frees the rule, *rule = 0.  Null accepted. */
RQ_API U32 DX_TZDestroyTZRule(DX_TZRULE **rule) RQ_NOEXCEPT;
/* *equal = 1 when both rules have as many begin and as many end entries and
 * these match one by one (from and to day, month and year, time, weekday,
 * adjust); names and countries are not compared. */
RQ_API U32 DX_TZRuleEquals(const DX_TZRULE *ruleA, const DX_TZRULE *ruleB, U32 *equal) RQ_NOEXCEPT;
/* Fills *copy with source's names and copies of its entry lists (whatever
 * *copy held is overwritten, not destroyed); on failure the lists made so
 * far are destroyed and copy's list handles are 0. */
RQ_API U32 DX_TZRuleCopy(const DX_TZRULE *source, DX_TZRULE *copy) RQ_NOEXCEPT;

/* ---- Look-ups ------------------------------------------------------------- */

/* mode DX_TZ_ENUM_FIRST or DX_TZ_ENUM_NEXT; the buffers that are not null
 * receive the zone name, long name and country (empty texts at the end).
 * At the end *atEnd = 1 and the result is 0. */
RQ_API U32 DX_TZEnum(HLIST rules, U32 mode, char *zoneBuffer, U32 zoneSize, char *nameBuffer, U32 nameSize, char *countryBuffer, U32 countrySize, U32 *atEnd) RQ_NOEXCEPT;
/* Unknown zone: 0x15710 and empty texts. */
RQ_API U32 DX_TZFind(HLIST rules, const char *zoneName, char *nameBuffer, U32 nameSize, char *countryBuffer, U32 countrySize) RQ_NOEXCEPT;

/* ---- Conversions ----------------------------------------------------------
 * Outputs are written only on success and may be null.  A null rule set or
 * zone name gives 0x15705. */

/* The type in force at a wall-clock time: 10, 11 or 12; 0x15704 when the
 * time is skipped. */
RQ_API U32 DX_TZGetLocalType(HLIST rules, const char *zoneName, U32 *type, U32 minutes) RQ_NOEXCEPT;
/* UTC = local + the adjust of the type in force; type 0 takes whatever type
 * is in force (0x15703 in the doubled hour), 10 or 11 decides the doubled
 * hour and must otherwise be the one in force (else 0x15702). */
RQ_API U32 DX_TZFromLocalTimeToUTC(HLIST rules, const char *zoneName, U32 *utcMinutes, U32 localMinutes, U32 type) RQ_NOEXCEPT;
/* The wall-clock time and its type at a UTC time; the abbreviation of that
 * type is written when a buffer is given (emptied on failure). */
RQ_API U32 DX_TZFromUTCToLocalTime(HLIST rules, const char *zoneName, U32 *localMinutes, U32 *type, U32 utcMinutes, char *abbreviation, U32 abbreviationSize) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
