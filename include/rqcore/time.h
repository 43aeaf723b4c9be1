/*
 * rqcore times and local times.
 *
 * A time is a calendar date (DX_DATE) plus the seconds of that day.  A time ID
 * counts seconds from 1 January 1991 00:00:00: (dayId - 1) * 86400 + seconds,
 * in 32 bits (the last one, 4294967295, falls on 7 February 2127; later dates
 * wrap).  A local time adds a zone name and a local-time type and converts to
 * and from UTC through a time-zone rule set (tz.h), which works in minutes.
 *
 * Include this header as "rqcore/time.h"; <time.h> stays the C library's.
 *
 * Printing: DX_TimeFormat walks a format as DX_DateFormat does (backslash
 * escapes, "%" fields, the output cut to empty on error) and adds the words
 *   ap  "AM"/"PM"                h1  hour 1..12        h2  hour 0..23
 *   mi  minutes, two digits      se  seconds, two digits (widths ignored)
 *   ti / TI  the catalog layouts "time" / "TIME" of section "timef"
 * and hands every other word to DX_DateFormat.  DX_LocalTimeFormat adds
 *   TZ  the zone name            tz  the abbreviation of the record's type
 * and hands every other word to DX_TimeFormat.  A word is recognised by the
 * product of its two character codes, so "pa" prints as "ap".
 *
 * A null record or required output pointer is refused with the date family's
 * code DX_DATE_ERR_NULL (the time functions hand their date part to the date
 * functions, which would refuse it there).
 */
#ifndef RQCORE_TIME_H
#define RQCORE_TIME_H

#include "types.h"
#include "date.h"

RQ_BEGIN_DECLS

RQ_CODES {
    TIME_ERR_HOUR = 0x15C01,          /* hour greater than 23 */
    TIME_ERR_MINUTE = 0x15C02,        /* minute 60 or more */
    TIME_ERR_SECOND = 0x15C03,        /* second 60 or more */
    TIME_ERR_BEFORE_EPOCH = 0x15C04,  /* offset to before 1991 (noted, never returned: see DX_TimeOffset) */
    TIME_ERR_FORMAT = 0x15D01,        /* time format: a backslash at the end of the format */
    TIME_ERR_FORMAT_FULL = 0x15D02,   /* time format: output buffer of size 0, or full */
    LTIME_ERR_FORMAT = 0x15F01,       /* local-time format: a backslash at the end of the format */
    LTIME_ERR_FORMAT_FULL = 0x15F02,  /* local-time format: output buffer of size 0, or full */
    LTIME_ERR_TYPE = 0x16101          /* DX_LocalTimeSet: the type contradicts the zone's rules */
};

/* Local-time types. */
#define LTIME_TYPE_STANDARD 10u
#define LTIME_TYPE_DAYLIGHT 11u
#define LTIME_TYPE_EITHER 12u /* the wall-clock hour that occurs twice */

#define LTIME_ZONE_NAME_SIZE 20u

typedef struct DX_TIME {
    DX_DATE date;
    U32 seconds; /* since midnight, 0..86399 */
} DX_TIME;

typedef struct DX_LOCALTIME {
    DX_TIME time;                          /* the wall-clock time in the zone */
    char zoneName[LTIME_ZONE_NAME_SIZE];   /* always terminated */
    U32 type;                              /* LTIME_TYPE_* */
} DX_LOCALTIME;

#if defined(__cplusplus)
static_assert(sizeof(DX_TIME) == 28, "DX_TIME is 28 bytes on every target");
static_assert(sizeof(DX_LOCALTIME) == 52, "DX_LOCALTIME is 52 bytes on every target");
#endif

/* ---- times ---- */

/* Validates hour (> 23), minute (>= 60), second (>= 60) in that order.  On
 * failure *date is reset to 1 January 1991 and time->seconds to 0. */
RQ_API U32 DX_TimeSet(DX_TIME *time, DX_DATE *date, U16 hour, U16 minute, U16 second) RQ_NOEXCEPT;
/* Every output may be null. */
RQ_API U32 DX_TimeGet(const DX_TIME *time, DX_DATE *date, U16 *hour, U16 *minute, U16 *second) RQ_NOEXCEPT;
/* The date moves by timeId / 86400 days through DX_DateOffset's signed 16-bit
 * count: time IDs from 32768 days on (17 September 2080) come out wrong. */
RQ_API U32 DX_TimeSetFromTimeId(DX_TIME *time, U32 timeId) RQ_NOEXCEPT;
/* A date before 1991 fails with the date code and gives 0. */
RQ_API U32 DX_TimeGetTimeId(DX_TIME *time, U32 *timeId) RQ_NOEXCEPT;
RQ_API U32 DX_TimeGetTimeIdInMinutes(DX_TIME *time, U32 *minutes) RQ_NOEXCEPT;
/* time ID + seconds; a sum before the epoch is taken as an unsigned time ID
 * and does not fail. */
RQ_API U32 DX_TimeOffset(DX_TIME *time, S32 seconds) RQ_NOEXCEPT;
/* The address of the time's date part (null for a null time). */
RQ_API DX_DATE *DX_TimeGetDatePtr(DX_TIME *time) RQ_NOEXCEPT;
RQ_API U32 DX_TimeFormat(char *buffer, U32 size, const char *format, DX_TIME *time, HLIST nls) RQ_NOEXCEPT;
/* Appends to the text already in buffer (size is the whole buffer's). */
RQ_API U32 DX_TimeFormatCat(char *buffer, U32 size, const char *format, DX_TIME *time, HLIST nls) RQ_NOEXCEPT;

/* ---- local times ----
 * rules: a rule set of tz.h.  A null zoneName keeps (and uses) the record's
 * own zone name.  On failure the record is left as it was. */

/* Fails with LTIME_ERR_TYPE when the rules put the wall-clock time in the
 * other type; a doubled time accepts any type. */
RQ_API U32 DX_LocalTimeSet(DX_LOCALTIME *local, const DX_TIME *time, const char *zoneName, U32 type, HLIST rules) RQ_NOEXCEPT;
RQ_API U32 DX_LocalTimeSetFromTimeId(DX_LOCALTIME *local, U32 timeId, const char *zoneName, U32 type, HLIST rules) RQ_NOEXCEPT;
/* Every output may be null; zoneNameBuffer takes up to 20 bytes.  reserved: pass NULL. */
RQ_API U32 DX_LocalTimeGet(const DX_LOCALTIME *local, DX_TIME *time, char *zoneNameBuffer, U32 *type, void *reserved) RQ_NOEXCEPT;
/* The time ID of the wall-clock time. */
RQ_API U32 DX_LocalTimeGetTimeId(DX_LOCALTIME *local, U32 *timeId) RQ_NOEXCEPT;
RQ_API U32 DX_LocalTimeSetFromUTC(DX_LOCALTIME *local, DX_TIME *utcTime, const char *zoneName, HLIST rules) RQ_NOEXCEPT;
/* The record's type decides which offset a doubled wall-clock time takes. */
RQ_API U32 DX_LocalTimeGetUTC(DX_LOCALTIME *local, DX_TIME *utcTime, HLIST rules) RQ_NOEXCEPT;
/* Elapsed time: through UTC and back, so the type follows a change of clocks. */
RQ_API U32 DX_LocalTimeOffset(DX_LOCALTIME *local, S32 seconds, HLIST rules) RQ_NOEXCEPT;
/* reserved: pass NULL. */
RQ_API U32 DX_LocalTimeFormat(char *buffer, U32 size, const char *format, DX_LOCALTIME *local, HLIST nls, void *reserved) RQ_NOEXCEPT;
RQ_API U32 DX_LocalTimeFormatCat(char *buffer, U32 size, const char *format, DX_LOCALTIME *local, HLIST nls, void *reserved) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
