/*
 * rqcore dates: a Gregorian calendar date in a fixed 24-byte record, its day
 * ID, day of week and weeks, arithmetic by days, weeks, months and years,
 * comparison and printing through two-letter field words.
 *
 * The record is a plain value: callers own it (usually on the stack) and
 * copy it whole.  The month is 0-based (0 = January .. 11 = December).  The
 * day ID counts days from 1 January 1991 (day ID 1) in 16 bits: 5 June 2170
 * is day 65535 and later dates wrap silently; dates before 1991 have none.
 * Day of week: 0 = Sunday .. 6 = Saturday.
 *
 * Null pointers: a null date record (or null output where the result is not
 * optional) gives DX_DATE_ERR_NULL (0x15605) and writes nothing, except
 * that DX_DateSet accepts a null record and only validates, and that
 * DX_DateLeapYear and DX_DateCopy never fail (a null pointer does nothing).
 * A record whose month was set to 12 or more behind the functions' back
 * gives 0x15603 (or 0x15602 where the record's month is checked first).
 */
#ifndef RQCORE_DATE_H
#define RQCORE_DATE_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_CODES {
    DX_DATE_ERR_DAY = 0x15601,          /* day is 0 or greater than 31 */
    DX_DATE_ERR_MONTH = 0x15602,        /* month is 12 or more (set, previous / next month) */
    DX_DATE_ERR_MONTH_DAYS = 0x15603,   /* month is 12 or more (month length) */
    DX_DATE_ERR_DAY_RANGE = 0x15604,    /* day beyond the length of its month */
    DX_DATE_ERR_NULL = 0x15605,         /* null date record or output */
    DX_DATE_ERR_UNIT = 0x15606,         /* unknown unit (DX_DateCompute) */
    DX_RECUR_ERR_NO_OUTPUT = 0x15607,   /* recurrence: neither create (1) nor reuse (2) */
    DX_RECUR_ERR_LIST_SIZE = 0x15608,   /* recurrence: a list's sizes could not be read */
    DX_RECUR_ERR_LIST_TYPE = 0x15609,   /* recurrence: days list ids not 2 bytes, or output data not 24 */
    DX_RECUR_ERR_KIND = 0x1560A,        /* recurrence: unknown kind */
    DX_RECUR_ERR_NO_DAYS = 0x1560B,     /* recurrence: kind 2, 3 or 4 without a days list */
    DX_DATE_ERR_BEFORE_EPOCH = 0x1560C, /* year before 1991: no day ID */
    DX_DATE_ERR_FORMAT = 0x16001,       /* format: unknown field word, or a trailing backslash */
    DX_DATE_ERR_FULL = 0x16002          /* format: buffer of size 0, or buffer full */
};

/* Cached-value flags of DX_DATE.flags. */
#define DX_DATE_HAS_WEEK_OF_YEAR 0x01u
#define DX_DATE_HAS_DAY_OF_WEEK 0x02u
#define DX_DATE_HAS_DAY_ID 0x04u

/* Units of DX_DateCompute. */
#define DX_DATE_UNIT_DAYS 1u
#define DX_DATE_UNIT_WEEKS 2u
#define DX_DATE_UNIT_MONTHS 3u
#define DX_DATE_UNIT_YEARS 4u

typedef struct DX_DATE {
    U32 flags;      /* which cached values are valid (DX_DATE_HAS_*); DX_DateSet clears them */
    U32 reserved;   /* not used by the date functions; copied with the record */
    U16 day;        /* 1..31 */
    U16 month;      /* 0 = January .. 11 = December */
    U16 year;       /* full year */
    U16 dayId;      /* cached day ID */
    U16 reserved2;
    U16 dayOfWeek;  /* cached day of week, 0 = Sunday */
    U16 weekOfYear; /* cached week of year */
    U16 reserved3;
} DX_DATE;

#ifdef __cplusplus
static_assert(sizeof(DX_DATE) == 24, "DX_DATE is 24 bytes on every target");
#else
typedef char DX_DATE_size_check[(sizeof(DX_DATE) == 24) ? 1 : -1];
#endif

/* ---- Setting and reading -------------------------------------------------- */

/* Checks month (< 12, else 0x15602), day (1..31, else 0x15601), then the
 * month's length (0x15604); on success stores the date and clears the
 * cached values.  A null record only validates.  On failure nothing changes. */
RQ_API U32 DX_DateSet(DX_DATE *date, U16 day, U16 month, U16 year) RQ_NOEXCEPT;
/* Each output may be null. */
RQ_API U32 DX_DateGet(const DX_DATE *date, U16 *day, U16 *month, U16 *year) RQ_NOEXCEPT;
/* Cached or computed (and cached).  Years before 1991: 0x1560C.  *dayId is
 * written only when the ID is not 0 (it is 0 where the 16-bit count wraps). */
RQ_API U32 DX_DateGetDayId(DX_DATE *date, U16 *dayId) RQ_NOEXCEPT;
/* Cached value, else (dayId + 1) mod 7 (not cached). */
RQ_API U32 DX_DateGetDayOfWeek(DX_DATE *date, U16 *dow) RQ_NOEXCEPT;
/* ISO 8601 week (Monday to Sunday, week 1 holds the first Thursday); stored
 * in the record.  week may be null. */
RQ_API U32 DX_DateGetWeekOfYear(DX_DATE *date, U16 *week) RQ_NOEXCEPT;
/* Weeks start on Sunday and count from 0: the days up to the first Saturday
 * are week 0. */
RQ_API U32 DX_DateGetWeekOfMonth(DX_DATE *date, U16 *week) RQ_NOEXCEPT;
/* month 0..11, else 0x15603; *days written only on success. */
RQ_API U32 DX_DateGetNumDaysInMonth(U16 month, U16 year, U16 *days) RQ_NOEXCEPT;
RQ_API U32 DX_DateGetNumDaysInYear(U16 year, U16 *days) RQ_NOEXCEPT;
/* Gregorian rule for every year; *isLeap = 1 or 0.  Always 0. */
RQ_API U32 DX_DateLeapYear(U16 year, U16 *isLeap) RQ_NOEXCEPT;

/* ---- Moving --------------------------------------------------------------- */

/* Moves by whole days, month by month (so it works before 1991 and after
 * 2170); the year wraps in 16 bits.  0 days does nothing. */
RQ_API U32 DX_DateOffset(DX_DATE *date, S16 days) RQ_NOEXCEPT;
RQ_API U32 DX_DateOffsetFar(DX_DATE *date, S32 days) RQ_NOEXCEPT;
RQ_API U32 DX_DateTomorrow(DX_DATE *date) RQ_NOEXCEPT;
RQ_API U32 DX_DateYesterday(DX_DATE *date) RQ_NOEXCEPT;
/* The day is clamped to the new month's length. */
RQ_API U32 DX_DatePrevMonth(DX_DATE *date) RQ_NOEXCEPT;
RQ_API U32 DX_DateNextMonth(DX_DATE *date) RQ_NOEXCEPT;
RQ_API U32 DX_DateSetToFirstDayOfMonth(DX_DATE *date) RQ_NOEXCEPT;
RQ_API U32 DX_DateSetToLastDayOfMonth(DX_DATE *date) RQ_NOEXCEPT;
/* result = source moved forward by amount units (DX_DATE_UNIT_*).  Days go
 * through DX_DateOffset, so an amount above 32767 moves backwards; weeks are
 * amount * 7 in 16 bits; months clamp the day; years do not (29 February into
 * a common year: 0x15604).  Unknown unit: 0x15606 (result holds the copy).
 * result may be source. */
RQ_API U32 DX_DateCompute(const DX_DATE *source, U16 amount, U16 unit, DX_DATE *result) RQ_NOEXCEPT;

/* ---- Comparing and copying ------------------------------------------------ */

/* *diff = the raw 16-bit difference of the years, else of the months, else of
 * the days: test its sign, not its value. */
RQ_API U32 DX_DateCompare(const DX_DATE *a, const DX_DATE *b, S16 *diff) RQ_NOEXCEPT;
/* *same = 1 when the dates (day, month, year) are equal, else 0. */
RQ_API U32 DX_DateIdentical(const DX_DATE *a, const DX_DATE *b, U16 *same) RQ_NOEXCEPT;
/* Copies the whole record, cached values included. */
RQ_API U32 DX_DateCopy(DX_DATE *dest, const DX_DATE *source) RQ_NOEXCEPT;

/* A list of 2-byte days of week (flag 8); dataSize is passed on as the list's
 * data size.  Returns DX_ListCreate's status. */
RQ_API U32 DX_DateListOfWeekDaysCreate(HLIST *list, U32 dataSize) RQ_NOEXCEPT;

/* Recurrence */

/* The description read by DX_DateGenRecur. */
typedef struct DX_RECUR {
    U32 reserved;           /* not read */
    U16 interval;           /* step between periods, in the kind's unit */
    U16 kind;               /* 1 daily, 2 weekly, 3 monthly by day, 4 monthly by weekday, 5 yearly */
    HLIST days;             /* 2-byte ids of the chosen days (kinds 2, 3, 4) */
    DX_DATE start;          /* first date */
    DX_DATE end;            /* last date, inclusive */
    HLIST excludedWeekdays; /* 2-byte days of week never produced; may be 0 */
    HLIST excludedDates;    /* dates never produced (the DX_DATE is the id); may be 0 */
} DX_RECUR;

#ifdef __cplusplus
static_assert(sizeof(DX_RECUR) == 68, "DX_RECUR is 68 bytes on every target");
#else
typedef char DX_RECUR_size_check[(sizeof(DX_RECUR) == 68) ? 1 : -1];
#endif

RQ_END_DECLS

#endif
