// Error records: choosing the files of a record, composing it in a fixed
// buffer with the copy-and-convert routines (no allocation, no formatted
// output, so records can be written from a signal handler) and writing it
// with one write per file.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/errlog_record"
#include "internal/rq_mem.h"
#include "errlog_internal.h"
#include "rqcore/frame.h"
#include "rqcore/lists.h"

#include <cerrno>
#include <ctime>

namespace rq::errlog {
namespace {

constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr const char *kConsoleLog = "console.log";
constexpr size_t kLongestPrintedName = 128;

constexpr const char *kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

bool leapYear(int64_t y) noexcept
{
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int64_t floorDiv(int64_t a, int64_t b) noexcept
{
    int64_t q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

void twoDigits(Out &out, int v) noexcept
{
    out.copychar(static_cast<char>('0' + v / 10));
    out.copychar(static_cast<char>('0' + v % 10));
}

void signedDecimal(Out &out, int64_t v) noexcept
{
    if (v < 0) {
        out.copychar('-');
        v = -v;
    }
    char digits[24];
    int n = 0;
    do
        digits[n++] = static_cast<char>('0' + v % 10);
    while ((v /= 10) != 0);
    while (n > 0)
        out.copychar(digits[--n]);
}

// "%s %s %d %02d:%02d:%02d %d\n" by integer arithmetic only.
void signalSafeDate(Out &out, int64_t when) noexcept
{
    int64_t days = floorDiv(when, 86400);
    int64_t secs = when - days * 86400;
    int weekday = static_cast<int>(((days % 7) + 11) % 7);  // day 0 was a Thursday
    // Any 400 consecutive years hold 146097 days.
    int64_t cycles = floorDiv(days, 146097);
    int64_t year = 1970 + 400 * cycles;
    days -= cycles * 146097;
    for (;;) {
        int64_t length = leapYear(year) ? 366 : 365;
        if (days < length)
            break;
        days -= length;
        ++year;
    }
    static constexpr int kMonthDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int month = 0;
    for (; month < 11; ++month) {
        int length = kMonthDays[month] + (month == 1 && leapYear(year) ? 1 : 0);
        if (days < length)
            break;
        days -= length;
    }
    out.copystring(kWeekdays[weekday]);
    out.copychar(' ');
    out.copystring(kMonths[month]);
    out.copychar(' ');
    signedDecimal(out, days + 1);
    out.copychar(' ');
    twoDigits(out, static_cast<int>(secs / 3600));
    out.copychar(':');
    twoDigits(out, static_cast<int>(secs / 60 % 60));
    out.copychar(':');
    twoDigits(out, static_cast<int>(secs % 60));
    out.copychar(' ');
    signedDecimal(out, year);
    out.copychar('\n');
}

void idLine(Out &out, std::string_view label, SIS_STATUS (*get)(uint32_t *)) noexcept
{
    uint32_t id = 0;
    out.copystring(label);
    if (get(&id) == 0)
        out.U32toasci(id, 'D');
    else
        out.copystring("N/A");
}

// Looks an id up in the list; a missing id of 256 or above is a silent
// log-it 0, anything else that fails is a list failure.
bool lookUp(HLIST ids, U32 id, IdRecord &rec) noexcept
{
    rec = IdRecord{id, 0, 0};
    U32 key = id;
    U32 rc = DX_ListGet(ids, &key, &rec);
    if (rc == 0)
        return true;
    if (rc == DX_LIST_ERR_NOT_FOUND && id >= 256) {
        rec = IdRecord{id, 0, 0};
        return true;
    }
    return false;
}

void openInto(Targets &t, const IdRecord &rec) noexcept
{
    const char *name = rec.name != 0 ? static_cast<const char *>(MemLock(rec.name)) : "";
    int fd = DxOpen(name, 1);
    MemUnlock();
    if (fd >= 0)
        t.fds[t.count++] = fd;
    else if (t.failedCount < 4)
        t.failed[t.failedCount++] = name;
}

}  // namespace

void Out::U32toasci(U32 value, char radix) noexcept
{
    U32 base = radix == 'O' ? 8 : radix == 'X' ? 16 : 10;
    char digits[12];
    int n = 0;
    do
        digits[n++] = kUpperDigits[value % base];
    while ((value /= base) != 0);
    while (n > 0)
        copychar(digits[--n]);
}

void Out::S32toasci(S32 value) noexcept
{
    if (value < 0)
        copychar('-');
    U32toasci(value < 0 ? 0u - static_cast<U32>(value) : static_cast<U32>(value), 'D');
}

void Out::U32toX(U32 value) noexcept
{
    for (int shift = 28; shift >= 0; shift -= 4)
        copychar(kUpperDigits[(value >> shift) & 0xF]);
}

void Out::U8toX(U8 value) noexcept
{
    copychar(kUpperDigits[value >> 4]);
    copychar(kUpperDigits[value & 0xF]);
}

const char *errnoText(int err) noexcept
{
    // strerrordesc_np reads a constant table: safe in a signal handler.
    const char *text = strerrordesc_np(err);
    return text != nullptr ? text : "Unknown error";
}

bool suppressed(const DX_LOGSTATE *st, U32 code, const char *message, int err) noexcept
{
    if (st->filterOn == 0)
        return false;
    if ((code == 0x11403 || code == 0x11906) && err == EPIPE)
        return true;
    if ((code == 0x11402 || code == 0x11905) && (err == ETIMEDOUT || err == ECONNRESET))
        return true;
    switch (code) {
    case 0x11401:
    case 0x11910:
    case 0x11402:
    case 0x11905:
    case 0x11403:
    case 0x11906: {
        std::string_view m(message);
        if (m == "ReadTrHeader: EOF returned by TrnDescRead" || m == "GetTrRequest: ReadTrHeader" ||
            m == "TrSysDaemon: TrEngine")
            return true;
        break;
    }
    default:
        break;
    }
    return st->filter != nullptr && st->filter(code, message) != 0;
}

void chooseFiles(const DX_LOGSTATE *st, U32 errlogId, Targets &t) noexcept
{
    IdRecord own{}, id2{}, secondary{};
    bool ok = lookUp(st->ids, errlogId, own);
    if (ok && (errlogId > 255 || errlogId == 3 || errlogId == 4))
        ok = lookUp(st->ids, 2, id2);
    if (ok && errlogId > 255)
        ok = lookUp(st->ids, errlogId > 0xFFFFFF ? 4 : 3, secondary);
    if (!ok) {
        // The record goes to "console.log" alone, with the failure noted.
        t.listError = true;
        int fd = DxOpen(kConsoleLog, 1);
        if (fd >= 0)
            t.fds[t.count++] = fd;
        return;
    }
    int slot = errlogId <= 2 ? static_cast<int>(errlogId) : errlogId <= 4 ? 3 : 4;
    if (own.logIt == 1)
        openInto(t, own);
    if (slot == 4 && (st->level & 0x2) != 0 && secondary.logIt == 1)
        openInto(t, secondary);
    if (slot >= 3 && (st->level & 0x4) != 0 && id2.logIt == 1)
        openInto(t, id2);
    if (t.count == 0) {
        int fd = DxOpen(kConsoleLog, 1);  // the last resort
        if (fd >= 0)
            t.fds[t.count++] = fd;
    }
}

void head(Out &out, const DX_LOGSTATE *st, const Targets *t) noexcept
{
    for (int i = 0; i < 79; ++i)
        out.copychar('-');
    out.copychar('\n');
    if (st->signalDepth > 0) {
        out.copystring("DATE-UTC = ");
        signalSafeDate(out, static_cast<int64_t>(time(nullptr)));  // time() is async-signal-safe
    } else {
        time_t now = time(nullptr);
        char text[64];
        out.copystring("DATE = ");
        const char *date = SIS_CrtCTime(&now, text, sizeof text);
        out.copystring(date != nullptr ? date : "?\n");  // ctime's text ends with a newline
    }
    idLine(out, "PID = ", SIS_ProcessRealIdGet);
    idLine(out, "; TID = ", SIS_ThreadIdGet);
    out.copychar('\n');
    if (t == nullptr)
        return;
    if (t->listError)
        out.copystring("LIST SYSTEM ERROR\n");
    for (U32 i = 0; i < t->failedCount; ++i) {
        out.copystring(i == 0 ? "UNABLE TO OPEN LOG FILE -> " : "                        -> ");
        std::string_view name(t->failed[i]);
        if (name.size() > kLongestPrintedName) {
            out.copystring("name too long to print");
        } else {
            out.copychar('"');
            out.copystring(name);
            out.copychar('"');
        }
        out.copychar('\n');
    }
}

void errnoLine(Out &out, int err) noexcept
{
    if (err == 0)
        return;
    out.copystring("SYSTEM ERRNO  -> ");
    out.S32toasci(err);
    out.copystring(" (");
    out.copystring(errnoText(err));
    out.copystring(")\n");
}

void codeLine(Out &out, std::string_view label, U32 code) noexcept
{
    out.copystring(label);
    out.copystring("0x");
    out.U32toasci(code, 'X');
    out.copychar('\n');
}

void writeAll(Targets &t, const Out &out) noexcept
{
    for (U32 i = 0; i < t.count; ++i) {
        // One write per file: appends from other writers never split a record.
        ssize_t n = ::write(t.fds[i], out.data(), out.size());
        (void)n;
        ::close(t.fds[i]);
    }
    t.count = 0;
}

void logFailure(U32 code, const char *message) noexcept
{
    WriteErrLog(kControlId, code, message);
}

}  // namespace rq::errlog

using namespace rq::errlog;

extern "C" {

RQ_API void WriteErrLog(U32 errlogId, U32 code, const char *message) noexcept
{
    int err = errno;
    const DX_LOGSTATE *st = state();
    if (st->state != kEnabled)
        return;
    if (message == nullptr)
        message = "WriteErrLog: errmesg is NULL";
    if (suppressed(st, code, message, err))
        return;
    Targets t;
    chooseFiles(st, errlogId, t);
    Record r;
    head(r.out, st, &t);
    errnoLine(r.out, err);
    codeLine(r.out, "ERROR CODE    -> ", code);
    r.out.copystring(message);
    r.out.copychar('\n');
    writeAll(t, r.out);
    errno = 0;
}

RQ_API void WriteStderr(U32 code, const char *message) noexcept
{
    int err = errno;
    Record r;
    head(r.out, state(), nullptr);
    errnoLine(r.out, err);
    codeLine(r.out, "ERROR CODE    -> ", code);
    r.out.copystring(message != nullptr ? message : "WriteErrLog: errmesg is NULL");
    r.out.copychar('\n');
    ssize_t n = ::write(STDERR_FILENO, r.out.data(), r.out.size());
    (void)n;
    errno = 0;
}

RQ_API char *DxLogSignalAsyncSafeGetTime(int64_t when, char *dst, U32 size) noexcept
{
    if (dst == nullptr || size == 0)
        return dst;
    // Out keeps its last byte for the mark; the NUL goes there afterwards.
    Out out(dst, size);
    signalSafeDate(out, when);
    dst[out.size()] = '\0';
    return dst;
}

}  // extern "C"
