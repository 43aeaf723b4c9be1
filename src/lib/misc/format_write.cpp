// The formatting primitives that every printer shares: bounded writing of
// numbers, texts and blanks with a count of remaining places, the reading of
// widths, and the extraction of a braced argument.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/format_write"
#include "internal/rq_mem.h"
#include "rqcore/lists.h"
#include "rqcore/nls.h"

#include <string_view>

namespace rq::format {
namespace {

// Writes text into a field of |width| places.  Each character goes to *p and
// the position moves on only while places are left: once the counter is full
// the rest of the text lands on the same position, and the NUL written last
// replaces it.  Callers rely on that cut (the buffer holds counter + 1 bytes).
// Once full nothing but the NUL can change the result, so the loop stops.
char *writeField(char *buffer, U32 *remaining, std::string_view text, S16 width) noexcept
{
    if (buffer == nullptr)
        return nullptr;
    char *p = buffer;
    bool full = false;
    auto put = [&](char c) {
        *p = c;
        if (DX_FormatEmpty(remaining) == 0)
            ++p;
        else
            full = true;
    };
    long len = static_cast<long>(text.size());
    long blanks = width > 0 ? width - len : -static_cast<long>(width) - len;
    if (width > 0)
        for (long i = 0; i < blanks && !full; ++i)
            put(' ');
    for (size_t i = 0; i < text.size() && !full; ++i)
        put(text[i]);
    if (width < 0)
        for (long i = 0; i < blanks && !full; ++i)
            put(' ');
    *p = '\0';
    return p;
}

}  // namespace
}  // namespace rq::format

using namespace rq::format;

extern "C" {

RQ_API U32 DX_FormatEmpty(U32 *remaining) noexcept
{
    if (remaining == nullptr || *remaining == 0)
        return 1;
    --*remaining;
    return 0;
}

RQ_API const char *DX_FormatReadU16(const char *text, U16 *value) noexcept
{
    U16 v = 0;
    if (text != nullptr)
        for (; *text >= '0' && *text <= '9'; ++text)
            v = static_cast<U16>(v * 10u + static_cast<unsigned>(*text - '0'));
    if (value != nullptr)
        *value = v;
    return text;
}

RQ_API const char *DX_FormatReadS16(const char *text, S16 *value) noexcept
{
    bool negative = false;
    const char *p = text;
    if (p != nullptr && (*p == '-' || *p == '+') && p[1] >= '0' && p[1] <= '9') {
        negative = *p == '-';
        ++p;
    }
    U16 magnitude = 0;
    const char *end = DX_FormatReadU16(p, &magnitude);
    if (end == p)
        end = text;  // no digit: the sign stays unread
    if (value != nullptr)
        *value = static_cast<S16>(negative ? static_cast<U16>(0u - magnitude) : magnitude);
    return end;
}

RQ_API char *DX_FormatWriteU32F(char *buffer, U32 *remaining, U32 value, S16 width) noexcept
{
    char digits[10];
    size_t n = sizeof digits;
    do {
        digits[--n] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    return writeField(buffer, remaining, std::string_view(digits + n, sizeof digits - n), width);
}

RQ_API char *DX_FormatWriteStrF(char *buffer, U32 *remaining, const char *text, S16 width) noexcept
{
    return writeField(buffer, remaining, text != nullptr ? std::string_view(text) : std::string_view(), width);
}

RQ_API const char *DX_FormatArgumentGet(const char *text, char *out, U32 size, const char *defaultText) noexcept
{
    if (text == nullptr || *text != '{' || size == 0) {
        if (out != nullptr)
            DX_MemStrnCopy(out, defaultText != nullptr ? defaultText : "", size);
        return text;
    }
    const char *p = text + 1;
    U32 depth = 0;
    U32 n = 0;
    bool cut = false;
    for (; *p != '\0'; ++p) {
        if (*p == '}') {
            if (depth == 0)
                break;
            --depth;
        } else if (*p == '{') {
            ++depth;
        }
        if (cut)
            continue;  // past the room: walk on to the matching brace
        if (out != nullptr)
            out[n] = *p;
        if (++n == size) {
            --n;  // the last copied character gives its place to the NUL
            cut = true;
        }
    }
    if (out != nullptr)
        out[n] = '\0';
    return *p == '}' ? p + 1 : p;
}

}  // extern "C"
