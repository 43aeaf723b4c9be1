// Typed records (info, warning, error, activity, state, debug, trace) and
// their own formatter, which writes into the record buffer without the C
// library's formatted output.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/errlog_print"
#include "internal/rq_mem.h"
#include "errlog_internal.h"

#include <cerrno>
#include <cstdarg>

namespace rq::errlog {
namespace {

constexpr size_t kMaxWidth = DX_LOG_RECORD_SIZE;
constexpr U32 kContextText = 512;

struct Directive {
    bool left = false;
    bool zero = false;
    size_t width = 0;
};

void pad(Out &out, size_t n, char c) noexcept
{
    for (; n > 0; --n)
        out.copychar(c);
}

void field(Out &out, std::string_view text, const Directive &s) noexcept
{
    size_t fill = s.width > text.size() ? s.width - text.size() : 0;
    if (!s.left)
        pad(out, fill, ' ');
    out.copystring(text);
    if (s.left)
        pad(out, fill, ' ');
}

void number(Out &out, unsigned long long v, unsigned base, bool upper, bool negative, const Directive &s) noexcept
{
    const char *digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char text[24];
    size_t n = 0;
    do
        text[sizeof text - 1 - n++] = digits[v % base];
    while ((v /= base) != 0);
    size_t len = n + (negative ? 1 : 0);
    size_t fill = s.width > len ? s.width - len : 0;
    if (!s.left && !s.zero)
        pad(out, fill, ' ');
    if (negative)
        out.copychar('-');
    if (!s.left && s.zero)
        pad(out, fill, '0');
    out.copystring(std::string_view(text + sizeof text - n, n));
    if (s.left)
        pad(out, fill, ' ');
}

// One line per 16 bytes: 8-digit offset, then " XX" per byte and three
// blanks per missing byte of the last line.
void dump(Out &out, const U8 *bytes, U32 length) noexcept
{
    if (bytes == nullptr) {
        out.copystring("(null)");
        return;
    }
    for (U32 offset = 0; offset < length; offset += 16) {
        out.U32toX(offset);
        for (U32 i = 0; i < 16; ++i) {
            if (offset + i < length) {
                out.copychar(' ');
                out.U8toX(bytes[offset + i]);
            } else {
                out.copystring("   ");
            }
        }
        out.copychar('\n');
        if (offset > 0xFFFFFFFFu - 16)
            break;
    }
}

void format(Out &out, const char *fmt, va_list ap) noexcept
{
    if (fmt == nullptr)
        return;
    for (const char *p = fmt; *p != '\0'; ++p) {
        if (*p != '%') {
            out.copychar(*p);
            continue;
        }
        const char *start = p++;
        Directive s;
        for (;; ++p) {
            if (*p == '-')
                s.left = true;
            else if (*p == '0')
                s.zero = true;
            else
                break;
        }
        if (*p == '*') {
            int w = va_arg(ap, int);
            if (w < 0) {
                s.left = true;
                w = -w;
            }
            s.width = static_cast<size_t>(w);
            ++p;
        } else {
            for (; *p >= '0' && *p <= '9'; ++p)
                s.width = s.width * 10 + static_cast<size_t>(*p - '0');
        }
        if (s.width > kMaxWidth)
            s.width = kMaxWidth;
        int size = 0;  // -1 short, 0 int, 1 long, 2 long long
        if (*p == 'h') {
            size = -1;
            if (*++p == 'h')
                ++p;
        } else if (*p == 'l') {
            size = 1;
            if (*++p == 'l') {
                size = 2;
                ++p;
            }
        }
        switch (*p) {
        case 'd':
        case 'i': {
            long long v = size == 2 ? va_arg(ap, long long) : size == 1 ? va_arg(ap, long) : va_arg(ap, int);
            if (size < 0)
                v = static_cast<short>(v);
            unsigned long long mag = v < 0 ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
            number(out, mag, 10, false, v < 0, s);
            break;
        }
        case 'u':
        case 'o':
        case 'x':
        case 'X': {
            unsigned long long v = size == 2   ? va_arg(ap, unsigned long long)
                                   : size == 1 ? va_arg(ap, unsigned long)
                                               : va_arg(ap, unsigned);
            if (size < 0)
                v = static_cast<unsigned short>(v);
            unsigned base = *p == 'u' ? 10 : *p == 'o' ? 8 : 16;
            number(out, v, base, *p == 'X', false, s);
            break;
        }
        case 'c': {
            char c = static_cast<char>(va_arg(ap, int));
            field(out, std::string_view(&c, 1), s);
            break;
        }
        case 's': {
            const char *text = va_arg(ap, const char *);
            field(out, text != nullptr ? text : "(null)", s);
            break;
        }
        case 'p': {
            out.copystring("0x");
            number(out, reinterpret_cast<uintptr_t>(va_arg(ap, void *)), 16, false, false, s);
            break;
        }
        case 'H': {
            const U8 *bytes = va_arg(ap, const U8 *);
            U32 length = va_arg(ap, U32);
            dump(out, bytes, length);
            break;
        }
        case '%':
            out.copychar('%');
            break;
        case '\0':
            out.copystring(std::string_view(start, static_cast<size_t>(p - start)));
            return;
        default:
            // An unknown directive is copied as it stands.
            out.copystring(std::string_view(start, static_cast<size_t>(p - start + 1)));
            break;
        }
    }
}

ContextKind contextOf(U32 msgType, U32 severity) noexcept
{
    switch (msgType) {
    case DX_LOG_MSGTYPE_STATE:
        return kState;
    case DX_LOG_MSGTYPE_DEBUG:
        return kDebug;
    case DX_LOG_MSGTYPE_TRACE:
        return kTrace;
    case DX_LOG_MSGTYPE_ACTIVITY:
        return kActivity;
    default:
        return severity == 2 ? kError : severity == 1 ? kWarning : kInfo;
    }
}

constexpr const char *kTypeLines[] = {"LOG TYPE      -> STATE\n", "LOG TYPE      -> DEBUG\n",
                                      "LOG TYPE      -> TRACE\n", "LOG TYPE      -> ACTIVITY\n"};

}  // namespace
}  // namespace rq::errlog

using namespace rq::errlog;

extern "C" {

RQ_API void DX_LogVargPrintLog(const char *functionName, U32 errlogId, U32 msgType, U32 enterExit, U32 severity,
                               U32 code, const char *fmt, va_list args) noexcept
{
    int err = errno;
    const DX_LOGSTATE *st = state();
    if (st->state != kEnabled)
        return;
    if (msgType < 4 && DX_LogIsMsgTypeLogEnabled(msgType, errlogId) == 0)
        return;
    if (suppressed(st, code, fmt != nullptr ? fmt : "", err))
        return;
    Targets t;
    chooseFiles(st, errlogId, t);
    Record r;
    Out &out = r.out;
    head(out, st, &t);
    const auto &context = st->context[contextOf(msgType, severity)];
    if (context.callback != nullptr) {
        char text[kContextText] = "";
        context.callback(context.userData, text, sizeof text);
        text[sizeof text - 1] = '\0';
        if (text[0] != '\0') {
            out.copystring(text);
            if (out.last() != '\n')
                out.copychar('\n');
        }
    }
    if (msgType < 4) {
        if (st->idToName != nullptr) {
            out.copystring("LOG MODULE    -> ");
            out.copystring(st->idToName(errlogId));
            out.copychar('\n');
        }
        out.copystring(kTypeLines[msgType]);
    }
    errnoLine(out, err);
    if (severity == 1)
        codeLine(out, "WARNING CODE  -> ", code);
    else if (severity == 2)
        codeLine(out, "ERROR CODE    -> ", code);
    if (enterExit == 1 || enterExit == 2 || functionName != nullptr) {
        out.copystring(enterExit == 1   ? "ENTERING      -> "
                       : enterExit == 2 ? "EXITING       -> "
                                        : "FUNCTION NAME -> ");
        out.copystring(functionName);
        out.copychar('\n');
    }
    format(out, fmt, args);
    out.copychar('\n');
    writeAll(t, out);
    errno = 0;
}

RQ_API void DX_LogPrintInfoLog(U32 errlogId, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(nullptr, errlogId, 4, 0, 0, 0, fmt, ap);
    va_end(ap);
}

RQ_API void DumpErrLog(U32 errlogId, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(nullptr, errlogId, 4, 0, 0, 0, fmt, ap);
    va_end(ap);
}

RQ_API void DumpStderr(const char *fmt, ...) noexcept
{
    Record r;
    head(r.out, state(), nullptr);
    va_list ap;
    va_start(ap, fmt);
    format(r.out, fmt, ap);
    va_end(ap);
    r.out.copychar('\n');
    ssize_t n = ::write(STDERR_FILENO, r.out.data(), r.out.size());
    (void)n;
}

RQ_API void DX_LogPrintWarningLog(const char *functionName, U32 errlogId, U32 code, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(functionName, errlogId, 4, 0, 1, code, fmt, ap);
    va_end(ap);
}

RQ_API void DX_LogPrintErrorLog(const char *functionName, U32 errlogId, U32 code, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(functionName, errlogId, 4, 0, 2, code, fmt, ap);
    va_end(ap);
}

RQ_API void DX_LogPrintActivityLog(const char *functionName, U32 errlogId, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(functionName, errlogId, DX_LOG_MSGTYPE_ACTIVITY, 0, 0, 0, fmt, ap);
    va_end(ap);
}

RQ_API void DX_LogPrintStateLog(const char *functionName, U32 errlogId, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(functionName, errlogId, DX_LOG_MSGTYPE_STATE, 0, 0, 0, fmt, ap);
    va_end(ap);
}

RQ_API void DX_LogPrintDebugLog(const char *functionName, U32 errlogId, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(functionName, errlogId, DX_LOG_MSGTYPE_DEBUG, 0, 0, 0, fmt, ap);
    va_end(ap);
}

RQ_API void DX_LogPrintTraceLog(const char *functionName, U32 errlogId, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(functionName, errlogId, DX_LOG_MSGTYPE_TRACE, 0, 0, 0, fmt, ap);
    va_end(ap);
}

RQ_API void DX_LogPrintTraceLogEntering(const char *functionName, U32 errlogId, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(functionName, errlogId, DX_LOG_MSGTYPE_TRACE, 1, 0, 0, fmt, ap);
    va_end(ap);
}

RQ_API void DX_LogPrintTraceLogExiting(const char *functionName, U32 errlogId, const char *fmt, ...) noexcept
{
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(functionName, errlogId, DX_LOG_MSGTYPE_TRACE, 2, 0, 0, fmt, ap);
    va_end(ap);
}

}  // extern "C"
