// The character-set map-file reader: one mapping a line, "native unicode",
// each side hexadecimal numbers joined by "+", "#" starting a comment.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/unicode_mapfile"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"

namespace {

constexpr int kMaxLine = 1023;
constexpr int kMaxNumbers = 31;

enum class Line { Mapping, Ignored, Malformed };

bool isBlank(char c) noexcept
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

int hexValue(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

// Reads one side starting at *p into values (zero-terminated).  Characters
// that are neither hexadecimal digits, "+" nor white space are skipped
// without ending the number, so "0x41" and "U+0041" read as 0x41.  Returns
// the count of numbers, or -1 when the side is malformed.
int readSide(const char **p, U32 *values, bool *endOfLine) noexcept
{
    const char *s = *p;
    int count = 0;
    bool inNumber = false;  // digits seen for the current number
    bool wantNumber = false;  // a "+" after a number asks for another
    uint64_t value = 0;
    *endOfLine = false;
    for (;; ++s) {
        char c = *s;
        if (c == '\0' || c == '#' || isBlank(c)) {
            *endOfLine = c == '\0' || c == '#';
            break;
        }
        int digit = hexValue(c);
        if (digit >= 0) {
            if (!inNumber) {
                if (count == kMaxNumbers)
                    return -1;
                inNumber = true;
                wantNumber = false;
                value = 0;
            }
            value = value * 16 + static_cast<uint64_t>(digit);
            if (value > 0xFFFFFFFFu)
                return -1;
        } else if (c == '+' && inNumber) {
            values[count++] = static_cast<U32>(value);
            inNumber = false;
            wantNumber = true;
        }
        // Any other byte is skipped.
    }
    if (inNumber)
        values[count++] = static_cast<U32>(value);
    else if (wantNumber)
        return -1;
    values[count] = 0;
    *p = s;
    return count;
}

Line parseLine(const char *line, U32 *native, U32 *unicode) noexcept
{
    const char *p = line;
    while (isBlank(*p))
        ++p;
    if (*p == '\0' || *p == '#')
        return Line::Ignored;
    bool endOfLine = false;
    if (readSide(&p, native, &endOfLine) <= 0 || endOfLine)
        return Line::Malformed;
    while (isBlank(*p))
        ++p;
    if (*p == '\0' || *p == '#')
        return Line::Malformed;
    // Whatever follows the second side is a comment.
    if (readSide(&p, unicode, &endOfLine) <= 0)
        return Line::Malformed;
    return Line::Mapping;
}

U32 load(UNICODE_CONVERTER *converter, const char *path, bool skipBadLines) noexcept
{
    if (converter == nullptr) {
        UNICODE_LogError("UNICODE_LoadConverter", UNICODE_ERR_NO_CONVERTER, rq::unicode::kNoConverterMessage);
        return UNICODE_ERR_NO_CONVERTER;
    }
    if (path == nullptr)
        return UNICODE_ERR_NULL;
    if (converter->addMapping == nullptr)
        return UNICODE_ERR_UNREGISTERED;
    rq::File file(std::fopen(path, "re"));
    // A missing map is not logged: it is a normal answer for a character
    // set that the site does not ship.
    if (!file)
        return UNICODE_ERR_MAP_ACCESS;
    char line[kMaxLine + 1];
    U32 native[kMaxNumbers + 1];
    U32 unicode[kMaxNumbers + 1];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        // A line is read up to its first 1023 characters; the rest of a
        // longer one (a long comment, say) is passed over, not taken as a
        // line of its own.
        if (std::strchr(line, '\n') == nullptr) {
            int c;
            while ((c = std::fgetc(file.get())) != EOF && c != '\n') {
            }
        }
        Line kind = parseLine(line, native, unicode);
        if (kind == Line::Ignored)
            continue;
        if (kind == Line::Malformed) {
            if (skipBadLines)
                continue;
            return UNICODE_ERR_MAP_SYNTAX;
        }
        U32 rc = converter->addMapping(converter->state, native, unicode);
        if (rc != 0 && !(skipBadLines && rc != UNICODE_ERR_MEMORY))
            return rc;
    }
    return 0;
}

}  // namespace

extern "C" {

RQ_API U32 UNICODE_LoadConverter(UNICODE_CONVERTER *converter, const char *mapFilePath) noexcept
{
    return load(converter, mapFilePath, false);
}

RQ_API U32 UNICODE_LoadConverter2(UNICODE_CONVERTER *converter, const char *mapFilePath) noexcept
{
    return load(converter, mapFilePath, true);
}

}  // extern "C"
