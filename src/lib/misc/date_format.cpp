// Printing a date through two-letter field words; names and layouts come
// from the "datef" section of a message catalog.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/date_format"
#include "date_internal.h"
#include "rqcore/nls.h"

#include <cstring>

using namespace rq::date;

namespace {

constexpr FormatCodes kDateCodes{DX_DATE_ERR_FORMAT, DX_DATE_ERR_FULL};
constexpr U32 kNameArea = 100;    // a name, or a layout printed out
constexpr U32 kLayoutArea = 50;   // a layout read from the catalog
constexpr int kMaxLayoutDepth = 8;  // layouts naming layouts: a catalog must not make the walk endless

U32 formatAt(char *buffer, U32 size, const char *format, DX_DATE *date, HLIST nls, int depth) noexcept;

// The catalog's element index of the list key in "datef", written with the field's width.
U32 writeName(FormatState &st, HLIST nls, const char *key, U32 index, S16 width) noexcept
{
    char name[kNameArea];
    if (U32 rc = DX_NLSGetElement(nls, name, sizeof name, "datef", key, index))
        return rc;
    st.out = DX_FormatWriteStrF(st.out, &st.free, name, width);
    return 0;
}

// The catalog's layout key of "datef", itself printed as a date format.
U32 writeLayout(FormatState &st, DX_DATE *date, HLIST nls, const char *key, S16 width, int depth) noexcept
{
    char layout[kLayoutArea];
    char area[kNameArea];
    if (depth >= kMaxLayoutDepth)
        return DX_DATE_ERR_FORMAT;
    if (U32 rc = DX_NLSGet(nls, layout, sizeof layout, "datef", key))
        return rc;
    if (U32 rc = formatAt(area, sizeof area, layout, date, nls, depth + 1))
        return rc;
    st.out = DX_FormatWriteStrF(st.out, &st.free, area, width);
    return 0;
}

U32 writeNumber(FormatState &st, U32 value, S16 width) noexcept
{
    st.out = DX_FormatWriteU32F(st.out, &st.free, value, width);
    return 0;
}

// One field, fmt just after the "%".
U32 dateField(const char *&fmt, FormatState &st, DX_DATE *date, HLIST nls, int depth) noexcept
{
    FormatField f;
    fmt = readField(fmt, true, &f);
    U16 v = 0;
    switch (f.product) {
    case fieldWord('d', 'm'):
        return writeNumber(st, date->day, f.widthFor(2));
    case fieldWord('d', 'w'):
        if (U32 rc = DX_DateGetDayOfWeek(date, &v))
            return rc;
        return writeNumber(st, v, f.widthFor(1));
    case fieldWord('d', 'n'):
    case fieldWord('D', 'N'):
        if (U32 rc = DX_DateGetDayOfWeek(date, &v))
            return rc;
        return writeName(st, nls, f.product == fieldWord('d', 'n') ? "day" : "DAY", v, f.widthFor(0));
    case fieldWord('m', 'n'):
        return writeName(st, nls, "month", date->month, f.widthFor(0));
    case fieldWord('M', 'N'):
        return writeName(st, nls, "MONTH", date->month, f.widthFor(0));
    case fieldWord('m', 'y'):
        // The month as stored, 0-based (January prints 0): callers rely on it.
        return writeNumber(st, date->month, f.widthFor(2));
    case fieldWord('y', 'e'):
        return writeNumber(st, date->year % 100u, f.widthFor(2));
    case fieldWord('Y', 'E'):
        return writeNumber(st, date->year, f.widthFor(4));
    case fieldWord('w', 'm'):
        if (U32 rc = DX_DateGetWeekOfMonth(date, &v))
            return rc;
        return writeNumber(st, v, f.widthFor(1));
    case fieldWord('d', 'a'):
        return writeLayout(st, date, nls, "date", f.widthFor(0), depth);
    case fieldWord('D', 'A'):
        return writeLayout(st, date, nls, "DATE", f.widthFor(0), depth);
    default:
        return DX_DATE_ERR_FORMAT;
    }
}

U32 formatAt(char *buffer, U32 size, const char *format, DX_DATE *date, HLIST nls, int depth) noexcept
{
    return walkFormat(buffer, size, format, kDateCodes,
                      [&](const char *&fmt, FormatState &st) { return dateField(fmt, st, date, nls, depth); });
}

}  // namespace

RQ_API U32 DX_DateFormat(char *buffer, U32 size, const char *format, DX_DATE *date, HLIST nls) noexcept
{
    if (buffer == nullptr)
        return DX_DATE_ERR_NULL;
    if (size == 0)
        return DX_DATE_ERR_FULL;
    if (format == nullptr || date == nullptr) {
        buffer[0] = '\0';
        return DX_DATE_ERR_NULL;
    }
    return formatAt(buffer, size, format, date, nls, 0);
}

RQ_API U32 DX_DateFormatCat(char *buffer, U32 size, const char *format, DX_DATE *date, HLIST nls) noexcept
{
    if (buffer == nullptr)
        return DX_DATE_ERR_NULL;
    // The existing text is kept; an unterminated buffer has no room left.
    size_t used = strnlen(buffer, size);
    return DX_DateFormat(buffer + used, static_cast<U32>(size - used), format, date, nls);
}
