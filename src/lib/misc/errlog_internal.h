// Internal to the error log: the per-thread state, the errlog id record and
// the record composer shared by the error and the typed records.
#ifndef RQ_ERRLOG_INTERNAL_H
#define RQ_ERRLOG_INTERNAL_H

#include "rqcore/log.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

// Context callbacks, in the state's order.
enum ContextKind : U32 { kInfo, kError, kWarning, kActivity, kState, kDebug, kTrace, kContextKinds };

struct DX_LOGSTATE {
    U32 initialised;  // 1 once set up
    U32 signalDepth;  // raised by DX_LogEnterSignalHandler
    U16 state;        // 0 not set up, 1 disabled, 2 enabled
    U16 reserved;
    HLIST ids;        // errlog id records, key = id
    U32 level;        // low three bits kept
    char errnoText[129];
    struct {
        U32 enabled;
        HLIST overrides;  // key id, data enabled flag
    } types[4];
    DX_LOG_ID_TO_NAME_CALLBACK idToName;
    struct {
        DX_LOG_CONTEXT_CALLBACK callback;
        void *userData;
    } context[kContextKinds];
    U32 filterOn;  // FilterWriteErrLog
    DX_LOG_FILTER_CALLBACK filter;  // WriteErrLogFilterIt
};
#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(DX_LOGSTATE) == 252, "the per-thread state keeps the product's size");
#endif

namespace rq::errlog {

constexpr U16 kNotSetUp = 0;
constexpr U16 kDisabled = 1;
constexpr U16 kEnabled = 2;
constexpr U32 kDefaultLevel = 4;
constexpr U32 kControlId = 256;  // control failures are logged under this id

// Element data of the id list.  The file name is a memory handle, so the
// record has 12 bytes on every target.
struct IdRecord {
    U32 id;
    RQHANDLE name;  // NUL-terminated text
    U32 logIt;
};
static_assert(sizeof(IdRecord) == 12);

// Appends to a buffer whose last byte holds the end mark 0xFF; nothing is
// ever written at or past the mark.
class Out {
public:
    Out(char *buffer, size_t size) noexcept : begin_(buffer), p_(buffer), mark_(buffer + size - 1)
    {
        *mark_ = static_cast<char>(0xFF);
    }
    void copychar(char c) noexcept
    {
        if (p_ != mark_)
            *p_++ = c;
    }
    void copystring(std::string_view s) noexcept
    {
        for (char c : s) {
            if (p_ == mark_)
                return;
            *p_++ = c;
        }
    }
    void copystring(const char *s) noexcept { copystring(std::string_view(s != nullptr ? s : "")); }
    // Radix 'D' decimal, 'O' octal, 'X' upper-case hexadecimal; no leading zeros.
    void U32toasci(U32 value, char radix) noexcept;
    void S32toasci(S32 value) noexcept;
    void U32toX(U32 value) noexcept;  // exactly 8 digits
    void U8toX(U8 value) noexcept;    // exactly 2 digits
    const char *data() const noexcept { return begin_; }
    size_t size() const noexcept { return static_cast<size_t>(p_ - begin_); }
    char last() const noexcept { return p_ == begin_ ? '\0' : p_[-1]; }

private:
    char *begin_;
    char *p_;
    char *mark_;
};

// A record on the stack.
struct Record {
    char buffer[DX_LOG_RECORD_SIZE];
    Out out{buffer, sizeof buffer};
};

// The files a record goes to, and what the notes block must say.
struct Targets {
    int fds[4];
    U32 count = 0;
    bool listError = false;
    const char *failed[4];
    U32 failedCount = 0;
};

DX_LOGSTATE *state() noexcept;
bool suppressed(const DX_LOGSTATE *st, U32 code, const char *message, int err) noexcept;
void chooseFiles(const DX_LOGSTATE *st, U32 errlogId, Targets &t) noexcept;
// Dashes, date, PID/TID and (when t is given) the notes block.
void head(Out &out, const DX_LOGSTATE *st, const Targets *t) noexcept;
void errnoLine(Out &out, int err) noexcept;
void codeLine(Out &out, std::string_view label, U32 code) noexcept;
void writeAll(Targets &t, const Out &out) noexcept;
const char *errnoText(int err) noexcept;
void logFailure(U32 code, const char *message) noexcept;

}  // namespace rq::errlog

#endif
