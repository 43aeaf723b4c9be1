// Messages: the "%N" / "%(W)N" notation over positional arguments, sized,
// printed into a caller's buffer or appended to a growing string.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/nls_format"
#include "internal/rq_mem.h"
#include "nls_internal.h"
#include "rqcore/lists.h"

#include <cstdint>
#include <string_view>

namespace rq::nls {
namespace {

constexpr uint64_t kMaxMessage = 0x7FFFFFFEu;

uint64_t fieldLength(const char *arg, S16 width) noexcept
{
    uint64_t len = std::strlen(arg);
    uint64_t w = width < 0 ? static_cast<uint64_t>(-static_cast<int32_t>(width)) : static_cast<uint64_t>(width);
    return len > w ? len : w;
}

// Walks format, handing literal runs to sink.text and arguments to
// sink.field; stops at the first error.  Work is linear in the format and
// the arguments it names.
template <typename Sink>
U32 walk(const char *format, const char *const *args, U32 count, Sink &sink) noexcept
{
    if (format == nullptr || (args == nullptr && count != 0))
        return NLS_ERR_NULL_POINTER;
    const char *run = format;
    const char *p = format;
    while (*p != '\0') {
        if (*p != '%') {
            ++p;
            continue;
        }
        if (U32 rc = sink.text(std::string_view(run, static_cast<size_t>(p - run))); rc != 0)
            return rc;
        ++p;
        S16 width = 0;
        if (*p == '%') {
            run = p++;  // the second "%" starts the next literal run
            continue;
        }
        if (*p == '(') {
            const char *end = DX_FormatReadS16(p + 1, &width);
            if (end == p + 1 || *end != ')')
                return NLS_ERR_FORMAT;
            p = end + 1;
        }
        if (*p < '1' || *p > '9' || static_cast<U32>(*p - '0') > count)
            return NLS_ERR_FORMAT;
        const char *arg = args[*p - '1'];
        if (U32 rc = sink.field(arg != nullptr ? arg : "", width); rc != 0)
            return rc;
        run = ++p;
    }
    return sink.text(std::string_view(run, static_cast<size_t>(p - run)));
}

struct Counter {
    uint64_t total = 0;
    U32 add(uint64_t n) noexcept
    {
        total += n;
        return total > kMaxMessage ? U32{NLS_ERR_NO_MEMORY} : 0u;
    }
    U32 text(std::string_view t) noexcept { return add(t.size()); }
    U32 field(const char *arg, S16 width) noexcept { return add(fieldLength(arg, width)); }
};

// Writes through the bounded primitives; `total` counts what was wanted so
// that a cut is seen.
struct Printer {
    char *p;
    U32 remaining;
    uint64_t total = 0;
    U32 text(std::string_view t) noexcept
    {
        total += t.size();
        for (char c : t) {
            if (DX_FormatEmpty(&remaining) != 0)
                break;
            *p++ = c;
        }
        *p = '\0';
        return 0;
    }
    U32 field(const char *arg, S16 width) noexcept
    {
        total += fieldLength(arg, width);
        p = DX_FormatWriteStrF(p, &remaining, arg, width);
        return 0;
    }
};

struct Appender {
    ZOL_EXTSTR *s;
    U32 text(std::string_view t) noexcept { return ZOL_ExtstrAddLen(s, t.data(), static_cast<U32>(t.size())); }
    U32 field(const char *arg, S16 width) noexcept
    {
        size_t len = std::strlen(arg);
        size_t w = width < 0 ? static_cast<size_t>(-static_cast<int32_t>(width)) : static_cast<size_t>(width);
        size_t pad = w > len ? w - len : 0;
        U32 rc = width > 0 ? blanks(pad) : 0;
        if (rc == 0)
            rc = ZOL_ExtstrAddLen(s, arg, static_cast<U32>(len));
        if (rc == 0 && width < 0)
            rc = blanks(pad);
        return rc;
    }
    U32 blanks(size_t n) noexcept
    {
        static constexpr char kBlanks[] = "                                                                ";
        U32 rc = 0;
        for (; n > 0 && rc == 0; n -= n < sizeof kBlanks - 1 ? n : sizeof kBlanks - 1)
            rc = ZOL_ExtstrAddLen(s, kBlanks, static_cast<U32>(n < sizeof kBlanks - 1 ? n : sizeof kBlanks - 1));
        return rc;
    }
};

}  // namespace
}  // namespace rq::nls

using namespace rq::nls;

extern "C" {

RQ_API U32 FormatSizeGet(const char *format, const char *const *args, U32 count, U32 *size) noexcept
{
    if (size == nullptr)
        return NLS_ERR_NULL_POINTER;
    Counter counter;
    U32 rc = walk(format, args, count, counter);
    if (rc == 0)
        *size = static_cast<U32>(counter.total + 1);
    return rc;
}

RQ_API U32 FormatPrint(char *out, U32 size, const char *format, const char *const *args, U32 count) noexcept
{
    if (out == nullptr)
        return NLS_ERR_NULL_POINTER;
    if (size == 0) {
        // No room even for the NUL: only the status tells what was needed.
        Counter counter;
        U32 rc = walk(format, args, count, counter);
        return rc != 0 ? rc : NLS_ERR_TRUNCATED;
    }
    out[0] = '\0';
    Printer printer{out, size - 1};
    U32 rc = walk(format, args, count, printer);
    if (rc != 0) {
        out[0] = '\0';
        return rc;
    }
    return printer.total > size - 1 ? U32{NLS_ERR_TRUNCATED} : 0u;
}

RQ_API U32 DX_NLSFormat(HLIST catalog, char *out, U32 size, const char *section, const char *key,
                        const char *const *args, U32 count) noexcept
{
    if (out == nullptr)
        return NLS_ERR_NULL_POINTER;
    char message[NLS_VALUE_SIZE];
    U32 rc = DX_NLSGet(catalog, message, sizeof message, section, key);
    if (rc != 0) {
        if (size != 0)
            out[0] = '\0';
        return rc;
    }
    return FormatPrint(out, size, message, args, count);
}

RQ_API U32 DX_NLSFormatCat(HLIST catalog, ZOL_EXTSTR *string, const char *section, const char *key,
                           const char *const *args, U32 count) noexcept
{
    if (string == nullptr || string->text == nullptr)
        return NLS_ERR_NULL_POINTER;
    char message[NLS_VALUE_SIZE];
    U32 rc = DX_NLSGet(catalog, message, sizeof message, section, key);
    if (rc != 0)
        return rc;
    // A failure part way (bad format, no memory) takes back what was appended.
    U32 before = string->length;
    Appender appender{string};
    rc = walk(message, args, count, appender);
    if (rc != 0) {
        string->length = before;
        string->text[before] = '\0';
    }
    return rc;
}

}  // extern "C"
