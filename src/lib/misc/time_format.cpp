// Printing times and local times.  Both printers walk their format with the
// date printer's walk (date_internal.h) and add their own field words; every
// word they do not know is rebuilt as "%" and its two characters and handed
// down a layer (local time -> time -> date), whose text is then written with
// the field's width.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/time_format"
#include "date_internal.h"
#include "internal/rq_mem.h"
#include "rqcore/lists.h"
#include "rqcore/nls.h"
#include "time_internal.h"

namespace rq::time {
namespace {

using rq::date::FormatField;
using rq::date::fieldWord;
using rq::date::FormatState;

constexpr U32 kAmPm = fieldWord('a', 'p');
constexpr U32 kHour12 = fieldWord('h', '1');
constexpr U32 kHour24 = fieldWord('h', '2');
constexpr U32 kMinute = fieldWord('m', 'i');
constexpr U32 kSecond = fieldWord('s', 'e');
constexpr U32 kTimeLayout = fieldWord('t', 'i');
constexpr U32 kTimeLayoutLong = fieldWord('T', 'I');
constexpr U32 kZoneName = fieldWord('T', 'Z');
constexpr U32 kZoneAbbrev = fieldWord('t', 'z');

// Areas the product's printers use for text printed a layer down.
constexpr U32 kLayoutSize = 50;
constexpr U32 kShortLayoutArea = 100;
constexpr U32 kDownArea = 200;
// A catalog layout may name a layout word itself; nesting stops here.
constexpr int kMaxLayoutDepth = 8;

// A field as read after its "%", with the word's two characters kept so
// that an unknown word can be handed down.
struct Field {
    FormatField read;
    char word[2] = {0, 0};
};

// Time fields take "*" for the word's standard width; local-time fields do
// not (there "*" becomes part of the word), as callers have always seen.
Field readField(const char *&fmt, bool allowStar) noexcept
{
    Field f;
    fmt = rq::date::readField(fmt, allowStar, &f.read);
    // A word cut short by the format's end has product 0 and is handed down
    // as a bare "%", which every layer refuses.
    if (f.read.product != 0) {
        f.word[0] = fmt[-2];
        f.word[1] = fmt[-1];
    }
    return f;
}

U32 writeText(FormatState &st, const char *text, S16 width) noexcept
{
    st.out = DX_FormatWriteStrF(st.out, &st.free, text, width);
    return 0;
}

U32 writeNumber(FormatState &st, U32 value, S16 width) noexcept
{
    st.out = DX_FormatWriteU32F(st.out, &st.free, value, width);
    return 0;
}

// Minutes and seconds always print two digits; the width is ignored, which
// callers' fixed layouts rely on.
U32 writeTwoDigits(FormatState &st, U32 value) noexcept
{
    if (value <= 9)
        writeText(st, "0", 0);
    return writeNumber(st, value, 0);
}

// An unknown word handed down: printed by `print` into an area, then
// written with the field's width.
template <typename Print>
U32 handDown(FormatState &st, const Field &f, Print &&print) noexcept
{
    const char down[4] = {'%', f.word[0], f.word[1], '\0'};
    char area[kDownArea];
    U32 rc = print(area, kDownArea, down);
    if (rc != 0)
        return rc;
    return writeText(st, area, f.read.widthFor(0));
}

U32 timePrint(char *buffer, U32 size, const char *format, DX_TIME *time, HLIST nls, int depth) noexcept;

// "ti"/"TI": a catalog layout of section "timef" printed as a time format.
U32 layout(FormatState &st, const Field &f, DX_TIME *time, HLIST nls, const char *key, U32 areaSize, int depth) noexcept
{
    if (depth >= kMaxLayoutDepth)
        return TIME_ERR_FORMAT;
    char format[kLayoutSize];
    U32 rc = DX_NLSGet(nls, format, kLayoutSize, "timef", key);
    if (rc != 0)
        return rc;
    char area[kDownArea];
    rc = timePrint(area, areaSize, format, time, nls, depth + 1);
    if (rc != 0)
        return rc;
    return writeText(st, area, f.read.widthFor(0));
}

// TimeFormatPrint: the time printer's field handler.
U32 timeField(const char *&fmt, FormatState &st, DX_TIME *time, HLIST nls, int depth) noexcept
{
    Field f = readField(fmt, true);
    U32 hour = time->seconds / 3600;
    switch (f.read.product) {
    case kAmPm:
        return writeText(st, hour < 12 ? "AM" : "PM", f.read.widthFor(2));
    case kHour12:
        return writeNumber(st, hour % 12 == 0 ? 12 : hour % 12, f.read.widthFor(2));
    case kHour24:
        return writeNumber(st, hour, f.read.widthFor(2));
    case kMinute:
        return writeTwoDigits(st, time->seconds / 60 % 60);
    case kSecond:
        return writeTwoDigits(st, time->seconds % 60);
    case kTimeLayout:
        return layout(st, f, time, nls, "time", kShortLayoutArea, depth);
    case kTimeLayoutLong:
        return layout(st, f, time, nls, "TIME", kDownArea, depth);
    default:
        // Every date word works in a time format; an unknown one fails with
        // the date printer's code.
        return handDown(st, f, [&](char *area, U32 size, const char *down) noexcept {
            return DX_DateFormat(area, size, down, &time->date, nls);
        });
    }
}

U32 timePrint(char *buffer, U32 size, const char *format, DX_TIME *time, HLIST nls, int depth) noexcept
{
    return rq::date::walkFormat(buffer, size, format, {TIME_ERR_FORMAT, TIME_ERR_FORMAT_FULL},
                                [&](const char *&fmt, FormatState &st) noexcept {
                                    return timeField(fmt, st, time, nls, depth);
                                });
}

// "tz": the abbreviation of the record's type, read from the zone name.
// Daylight time skips only the leading capitals and then digits, so a name
// whose standard offset carries a sign or minutes gives an empty text; callers
// rely on this, although the zone rules read such an offset whole.
void abbreviation(const DX_LOCALTIME *local, char *out) noexcept
{
    const char *name = local->zoneName;
    const char *end = name + LTIME_ZONE_NAME_SIZE - 1;
    auto capital = [](char c) { return c >= 'A' && c <= 'Z'; };
    const char *p = name;
    if (local->type == LTIME_TYPE_DAYLIGHT) {
        while (p < end && capital(*p))
            ++p;
        while (p < end && *p >= '0' && *p <= '9')
            ++p;
    } else if (local->type != LTIME_TYPE_STANDARD) {
        p = end;  // either type: no abbreviation
    }
    while (p < end && capital(*p))
        *out++ = *p++;
    *out = '\0';
}

// LTimeFormatPrint: the local-time printer's field handler.
U32 localField(const char *&fmt, FormatState &st, DX_LOCALTIME *local, HLIST nls) noexcept
{
    Field f = readField(fmt, false);
    char text[LTIME_ZONE_NAME_SIZE];
    switch (f.read.product) {
    case kZoneName:
        DX_MemStrnCopy(text, local->zoneName, LTIME_ZONE_NAME_SIZE);
        return writeText(st, text, f.read.widthFor(0));
    case kZoneAbbrev:
        abbreviation(local, text);
        return writeText(st, text, f.read.widthFor(0));
    default:
        return handDown(st, f, [&](char *area, U32 size, const char *down) noexcept {
            return DX_TimeFormat(area, size, down, &local->time, nls);
        });
    }
}

U32 localPrint(char *buffer, U32 size, const char *format, DX_LOCALTIME *local, HLIST nls) noexcept
{
    return rq::date::walkFormat(buffer, size, format, {LTIME_ERR_FORMAT, LTIME_ERR_FORMAT_FULL},
                                [&](const char *&fmt, FormatState &st) noexcept {
                                    return localField(fmt, st, local, nls);
                                });
}

// The common checks of the entry points, in the date printer's order: no
// buffer, no room, then a missing format or record, which leaves an empty
// text.
U32 checkArguments(char *buffer, U32 size, const char *format, const void *record, U32 fullCode) noexcept
{
    if (buffer == nullptr)
        return kNullRecord;
    if (size == 0)
        return fullCode;
    if (format == nullptr || record == nullptr) {
        *buffer = '\0';
        return kNullRecord;
    }
    return 0;
}

// The Cat variants format after the text already in the buffer.
U32 textLength(const char *buffer, U32 size) noexcept
{
    return buffer == nullptr ? 0 : static_cast<U32>(strnlen(buffer, size));
}

}  // namespace
}  // namespace rq::time

using namespace rq::time;

RQ_API U32 DX_TimeFormat(char *buffer, U32 size, const char *format, DX_TIME *time, HLIST nls) noexcept
{
    U32 rc = checkArguments(buffer, size, format, time, TIME_ERR_FORMAT_FULL);
    return rc != 0 ? rc : timePrint(buffer, size, format, time, nls, 0);
}

RQ_API U32 DX_TimeFormatCat(char *buffer, U32 size, const char *format, DX_TIME *time, HLIST nls) noexcept
{
    U32 len = textLength(buffer, size);
    return DX_TimeFormat(buffer + len, size - len, format, time, nls);
}

RQ_API U32 DX_LocalTimeFormat(char *buffer, U32 size, const char *format, DX_LOCALTIME *local, HLIST nls,
                              void *reserved) noexcept
{
    (void)reserved;
    U32 rc = checkArguments(buffer, size, format, local, LTIME_ERR_FORMAT_FULL);
    return rc != 0 ? rc : localPrint(buffer, size, format, local, nls);
}

RQ_API U32 DX_LocalTimeFormatCat(char *buffer, U32 size, const char *format, DX_LOCALTIME *local, HLIST nls,
                                 void *reserved) noexcept
{
    U32 len = textLength(buffer, size);
    return DX_LocalTimeFormat(buffer + len, size - len, format, local, nls, reserved);
}
