// Internal to the date, recurrence and time families: the day-ID helpers and
// the format walk that the date, time and local-time printers share.
#ifndef RQ_DATE_INTERNAL_H
#define RQ_DATE_INTERNAL_H

#include "rqcore/date.h"

namespace rq::date {

constexpr U16 kEpochYear = 1991;

constexpr bool isLeap(U32 year) noexcept
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Length of month 0..11 of year (the caller checks the month).
constexpr U16 monthLength(U16 month, U16 year) noexcept
{
    constexpr U8 kLengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return static_cast<U16>(kLengths[month] + (month == 1 && isLeap(year) ? 1 : 0));
}

// The day ID of the record's date, from its day, month and year (the cache is
// neither read nor written).  Years before 1991: DX_DATE_ERR_BEFORE_EPOCH.
U32 ComputeDayId(const DX_DATE *date, U16 *dayId) noexcept;
// Stores a day ID in the record's cache.
void SetDayId(DX_DATE *date, U16 dayId) noexcept;
// (dayId + 1) mod 7: day ID 1, 1 January 1991, was a Tuesday.
constexpr U16 ComputeDayOfWeekFromId(U16 dayId) noexcept
{
    return static_cast<U16>((dayId + 1u) % 7u);
}
// Stores a day of week in the record's cache.
void SetDayOfWeek(DX_DATE *date, U16 dow) noexcept;

// ---- The format walk --------------------------------------------------------
//
// The printers walk a format into a caller's buffer:
//   "\" takes the next character ("n" line feed, "t" tab, end of format:
//       the format code), "%" hands over to the printer's field handler, any
//       other character is copied;
//   the count of free places starts at size - 1 (size 0: the full code);
//   each step uses one place for the character it writes (the field handler
//       uses what its writers use) and one more in the check that closes the
//       step, which fails with the full code when none is left;
//   on any failure the whole output is cut to an empty string; the output is
//       always NUL-terminated.
// Callers rely on these buffer sizes (a literal character costs two places),
// so the accounting is kept exactly.

struct FormatCodes {
    U32 format;  // unknown field word, trailing backslash
    U32 full;    // size 0, or no free place left
};

// What a field handler works on: the write position and the free places,
// both advanced by the Part's writers (DX_FormatWriteU32F and friends take
// &free); the handler also advances fmt past its field.
struct FormatState {
    char *out;
    U32 free;
};

// Takes one place if any is left; true when the buffer is full (the rule of
// DX_FormatEmpty, inlined for the walk's own characters).
inline bool takePlace(U32 &free) noexcept
{
    if (free == 0)
        return true;
    --free;
    return false;
}

// field(const char *&fmt, FormatState &state) -> U32 status, called with fmt
// just after the "%".
template <typename Field>
U32 walkFormat(char *buffer, U32 size, const char *format, FormatCodes codes, Field &&field) noexcept
{
    if (size == 0)
        return codes.full;
    FormatState st{buffer, size - 1};
    const char *fmt = format;
    U32 rc = 0;
    while (rc == 0 && *fmt != '\0') {
        char c = *fmt++;
        if (c == '%') {
            rc = field(fmt, st);
        } else {
            if (c == '\\') {
                c = *fmt;
                if (c == '\0') {
                    rc = codes.format;
                    break;
                }
                ++fmt;
                c = c == 'n' ? '\n' : c == 't' ? '\t' : c;
            }
            *st.out = c;
            if (!takePlace(st.free))
                ++st.out;
        }
        if (rc == 0 && takePlace(st.free))
            rc = codes.full;
    }
    if (rc != 0)
        st.out = buffer;
    *st.out = '\0';
    return rc;
}

}  // namespace rq::date

#endif
