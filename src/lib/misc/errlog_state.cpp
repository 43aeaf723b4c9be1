// The logging state: per thread in thread-local data, or the process
// default; enabling and disabling, errlog ids, levels, message types,
// callbacks, the signal-handler depth and the errno helpers.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/errlog_state"
#include "internal/rq_mem.h"
#include "errlog_internal.h"
#include "rqcore/frame.h"
#include "rqcore/lists.h"
#include "rqcore/sys.h"

#include <pthread.h>
#include <cerrno>

extern "C" {
RQ_API U32 gDX_LogStateLogEnabled = 0;
RQ_API U32 gDX_LogDebugLogEnabled = 0;
RQ_API U32 gDX_LogTraceLogEnabled = 0;
RQ_API U32 gDX_LogActivityLogEnabled = 0;
}

namespace rq::errlog {
namespace {

DX_LOGSTATE gDefault{};  // used by threads without their own state; state 0 writes nothing
U32 gKey = ZOL_TLS_NO_KEY;
pthread_mutex_t gKeyMutex = PTHREAD_MUTEX_INITIALIZER;

constexpr U32 kIdListFlags = 0x04;        // unique ids
constexpr U32 kOverrideListFlags = 0x80;  // ids repeated in the caller's list are taken once

U32 *const kGlobalSwitches[4] = {&gDX_LogStateLogEnabled, &gDX_LogDebugLogEnabled, &gDX_LogTraceLogEnabled,
                                 &gDX_LogActivityLogEnabled};

void setUp(DX_LOGSTATE *st) noexcept
{
    std::memset(st, 0, sizeof *st);
    st->initialised = 1;
    st->state = kDisabled;
    st->level = kDefaultLevel;
}

RQHANDLE copyName(const char *name) noexcept
{
    size_t n = std::strlen(name) + 1;
    RQHANDLE h = MemAlloc(static_cast<U32>(n));
    if (h == 0)
        return 0;
    std::memcpy(MemLock(h), name, n);
    MemUnlock();
    return h;
}

// Frees the file names held by an id list; false if the walk failed.
U32 freeNames(HLIST ids, const char **failedCall) noexcept
{
    IdRecord rec{};
    U32 rc = DX_ListGetFirst(ids, nullptr, &rec);
    *failedCall = "DX_ListGetFirst";
    while (rc == 0) {
        if (rec.name != 0)
            MemFree(rec.name);
        rc = DX_ListGetNext(ids, nullptr, &rec);
        *failedCall = "DX_ListGetNext";
    }
    return rc == DX_LIST_END ? 0 : rc;
}

// Adds one id with a copy of its file name.
U32 addId(HLIST ids, U32 id, const char *file, U32 logIt, const char **failure) noexcept
{
    IdRecord rec{id, copyName(file), logIt};
    if (rec.name == 0) {
        *failure = "malloc";
        return ERRLOG_ERR_NO_MEMORY;
    }
    U32 rc = DX_ListAddTo(ids, &id, &rec);
    if (rc != 0) {
        MemFree(rec.name);
        *failure = "DX_ListAddTo";
    }
    return rc;
}

bool enabled(const DX_LOGSTATE *st, const char *function) noexcept
{
    if (st->state == kEnabled)
        return true;
    char message[128];
    Out out(message, sizeof message);
    out.copystring(function);
    out.copystring(": logging system not enabled");
    message[out.size()] = '\0';
    logFailure(ERRLOG_ERR_NOT_ENABLED, message);
    return false;
}

void logCall(U32 code, const char *function, const char *what) noexcept
{
    char message[160];
    Out out(message, sizeof message);
    out.copystring(function);
    out.copystring(": ");
    out.copystring(what);
    message[out.size()] = '\0';
    logFailure(code, message);
}

U32 setContext(ContextKind kind, const char *function, DX_LOG_CONTEXT_CALLBACK callback, void *userData) noexcept
{
    DX_LOGSTATE *st = state();
    if (!enabled(st, function))
        return ERRLOG_ERR_NOT_ENABLED;
    st->context[kind].callback = callback;
    st->context[kind].userData = userData;
    return 0;
}

void destroyLists(DX_LOGSTATE *st) noexcept
{
    const char *call = nullptr;
    if (st->ids != 0) {
        freeNames(st->ids, &call);
        DX_ListDestroy(&st->ids);
    }
    for (auto &type : st->types)
        if (type.overrides != 0)
            DX_ListDestroy(&type.overrides);
}

}  // namespace

DX_LOGSTATE *state() noexcept
{
    return DX_LogGetTlsData();
}

}  // namespace rq::errlog

using namespace rq::errlog;

extern "C" {

RQ_API S32 DX_LogErrLogIdCmp(const void *a, const void *b, U32) noexcept
{
    U32 x = 0, y = 0;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return x < y ? -1 : x > y ? 1 : 0;
}

RQ_API U32 DX_ErrLogInitializeTLS(void) noexcept
{
    {
        // The mutex guards only the creation of the shared key.
        pthread_mutex_lock(&gKeyMutex);
        U32 rc = 0;
        if (gKey == ZOL_TLS_NO_KEY)
            rc = SIS_ThreadTsdAllocKey(&gKey, DX_ErrLogFreeTLS);
        pthread_mutex_unlock(&gKeyMutex);
        if (rc != 0)
            return rc;
    }
    if (ZOL_TLSGetValue(gKey) != nullptr)
        return 0;  // this thread is already set up
    U32 rc = ZOL_TLSAlloc(&gKey, sizeof(DX_LOGSTATE), DX_ErrLogFreeTLS);
    if (rc != 0)
        return rc;
    setUp(static_cast<DX_LOGSTATE *>(ZOL_TLSGetValue(gKey)));
    return 0;
}

RQ_API void DX_ErrLogDestroyTLS(DX_LOGSTATE *st) noexcept
{
    if (st == nullptr)
        return;
    destroyLists(st);
    st->state = kDisabled;
    st->level = kDefaultLevel;
}

RQ_API void DX_ErrLogFreeTLS(void *arg) noexcept
{
    if (arg == nullptr)
        return;
    DX_ErrLogDestroyTLS(static_cast<DX_LOGSTATE *>(arg));
    RQ_FREE(arg);
}

RQ_API DX_LOGSTATE *DX_LogGetTlsData(void) noexcept
{
    if (gKey == ZOL_TLS_NO_KEY)
        return &gDefault;
    void *st = ZOL_TLSGetValue(gKey);
    return st != nullptr ? static_cast<DX_LOGSTATE *>(st) : &gDefault;
}

RQ_API U32 DX_LogInternalEnableLogging(DX_LOG_PROVIDER provider, DX_LOGSTATE *st) noexcept
{
    static constexpr char kFn[] = "DX_LogInternalEnableLogging";
    if (st == nullptr)
        st = state();
    if (st->state == kEnabled) {
        logFailure(ERRLOG_ERR_ALREADY_ENABLED, "DX_LogInternalEnableLogging: logging system already enabled");
        return ERRLOG_ERR_ALREADY_ENABLED;
    }
    HLIST ids = 0;
    U32 rc = DX_ListCreate(&ids, sizeof(U32), sizeof(IdRecord), kIdListFlags, DX_LogErrLogIdCmp, nullptr);
    if (rc != 0) {
        logCall(rc, kFn, "DX_ListCreate");
        return rc;
    }
    const char *failure = nullptr;
    U32 code = 0;
    static constexpr struct {
        U32 id;
        const char *file;
        U32 logIt;
    } kBuiltIn[] = {{0, "/dev/console", 1}, {1, "/dev/tty", 1}, {2, "", 0}, {3, "", 0}, {4, "", 0}};
    for (const auto &b : kBuiltIn)
        if ((code = addId(ids, b.id, b.file, b.logIt, &failure)) != 0)
            break;
    if (code == 0 && provider != nullptr) {
        U32 count = 0;
        U32 *pids = nullptr;
        U32 *logits = nullptr;
        char **files = nullptr;
        provider(&count, &pids, &logits, &files);
        for (U32 i = 0; i < count && code == 0; ++i) {
            if (pids == nullptr || pids[i] <= 255) {
                code = ERRLOG_ERR_BAD_ID;
                failure = "bad errlogid";
            } else if (logits == nullptr || logits[i] > 1) {
                code = ERRLOG_ERR_NOT_BOOLEAN;
                failure = "not a boolean";
            } else if (files == nullptr || files[i] == nullptr) {
                code = ERRLOG_ERR_NO_FILE_NAME;
                failure = "missing file name";
            } else if ((code = addId(ids, pids[i], files[i], logits[i], &failure)) == DX_LIST_ERR_DUPLICATE) {
                code = ERRLOG_ERR_DUPLICATE_ID;
                failure = "duplicate errlogid";
            }
        }
    }
    if (code != 0) {
        // All names are freed and the state stays as it was.
        const char *call = nullptr;
        freeNames(ids, &call);
        DX_ListDestroy(&ids);
        logCall(code, kFn, failure);
        return code;
    }
    if (st->state == kNotSetUp)
        setUp(st);
    st->ids = ids;
    st->state = kEnabled;
    return 0;
}

RQ_API U32 DX_LogInternalDisableLogging(DX_LOGSTATE *st) noexcept
{
    static constexpr char kFn[] = "DX_LogInternalDisableLogging";
    if (st == nullptr)
        st = state();
    if (!enabled(st, kFn))
        return ERRLOG_ERR_NOT_ENABLED;
    const char *call = nullptr;
    U32 rc = freeNames(st->ids, &call);
    if (rc != 0)
        logCall(rc, kFn, call);
    U32 destroyed = DX_ListDestroy(&st->ids);
    if (destroyed != 0) {
        logCall(destroyed, kFn, "DX_ListDestroy(1)");
        rc = rc != 0 ? rc : destroyed;
    }
    st->ids = 0;
    for (auto &type : st->types) {
        if (type.overrides == 0)
            continue;
        destroyed = DX_ListDestroy(&type.overrides);
        if (destroyed != 0) {
            logCall(destroyed, kFn, "DX_ListDestroy(2)");
            rc = rc != 0 ? rc : destroyed;
        }
        type.overrides = 0;
    }
    st->state = kDisabled;
    st->level = kDefaultLevel;
    return rc;
}

RQ_API U32 EnableLogging(DX_LOG_PROVIDER provider) noexcept
{
    // A thread enabling logging gets its own state, so that its settings
    // never reach other threads.
    if (DX_LogGetTlsData() == &gDefault) {
        U32 rc = DX_ErrLogInitializeTLS();
        if (rc != 0)
            return rc;
    }
    return DX_LogInternalEnableLogging(provider, state());
}

RQ_API U32 DisableLogging(void) noexcept
{
    return DX_LogInternalDisableLogging(state());
}

RQ_API U32 DX_LogEnableGlobalLogging(DX_LOG_PROVIDER provider) noexcept
{
    return DX_LogInternalEnableLogging(provider, &gDefault);
}

RQ_API U32 DX_LogDisableGlobalLogging(void) noexcept
{
    return DX_LogInternalDisableLogging(&gDefault);
}

RQ_API U32 SetLogLevel(U32 bits) noexcept
{
    DX_LOGSTATE *st = state();
    if (!enabled(st, "SetLogLevel"))
        return ERRLOG_ERR_NOT_ENABLED;
    st->level = bits & 0x7;
    return 0;
}

RQ_API U32 SetLog(U32 errlogId, U32 logIt, const char *file) noexcept
{
    DX_LOGSTATE *st = state();
    if (!enabled(st, "SetLog"))
        return ERRLOG_ERR_NOT_ENABLED;
    IdRecord rec{};
    U32 key = errlogId;
    U32 rc = DX_ListGet(st->ids, &key, &rec);
    if (rc == DX_LIST_ERR_NOT_FOUND) {
        logFailure(ERRLOG_ERR_BAD_ID, "SetLog: unknown errlogid");
        return ERRLOG_ERR_BAD_ID;
    }
    if (rc != 0) {
        logFailure(rc, "SetLog: DX_ListGet");
        return rc;
    }
    if (logIt == 0 || logIt == 1)
        rec.logIt = logIt;  // any other value leaves the flag as it was
    RQHANDLE old = rec.name;
    if (file != nullptr) {
        rec.name = copyName(file);
        if (rec.name == 0) {
            logFailure(ERRLOG_ERR_NO_MEMORY, "SetLog: malloc");
            return ERRLOG_ERR_NO_MEMORY;
        }
    }
    rc = DX_ListChangeData(st->ids, &key, nullptr, &rec);
    if (rc != 0) {
        if (rec.name != old)
            MemFree(rec.name);
        logFailure(rc, "SetLog: DX_ListChangeData");
        return rc;
    }
    if (rec.name != old && old != 0)
        MemFree(old);
    return 0;
}

RQ_API U32 AddLog(U32 errlogId) noexcept
{
    DX_LOGSTATE *st = state();
    // Reports the SetLog text on purpose: callers' log scanners look for it.
    if (!enabled(st, "SetLog"))
        return ERRLOG_ERR_NOT_ENABLED;
    const char *failure = nullptr;
    U32 rc = addId(st->ids, errlogId, "", 0, &failure);
    if (rc != 0)
        logCall(rc, "AddLog", failure);
    return rc;
}

RQ_API U32 FilterWriteErrLog(U32 on) noexcept
{
    DX_LOGSTATE *st = state();
    if (!enabled(st, "FilterWriteErrLog"))
        return ERRLOG_ERR_NOT_ENABLED;
    st->filterOn = on != 0 ? 1 : 0;
    return 0;
}

RQ_API U32 WriteErrLogFilterIt(DX_LOG_FILTER_CALLBACK filter) noexcept
{
    DX_LOGSTATE *st = state();
    if (!enabled(st, "WriteErrLogFilterIt"))
        return ERRLOG_ERR_NOT_ENABLED;
    st->filter = filter;
    return 0;
}

RQ_API U32 DX_LogSetMsgTypeLog(U32 msgType, U32 defaultEnabled, HLIST overrides) noexcept
{
    static constexpr char kFn[] = "DX_LogSetMsgTypeLog";
    DX_LOGSTATE *st = state();
    if (!enabled(st, kFn))
        return ERRLOG_ERR_NOT_ENABLED;
    if (msgType >= 4) {
        logFailure(ERRLOG_ERR_BAD_MSG_TYPE, "DX_LogSetMsgTypeLog: invalid MsgType");
        return ERRLOG_ERR_BAD_MSG_TYPE;
    }
    // The copy is built aside and replaces the old list only when complete,
    // so a failure leaves the type's settings as they were.
    HLIST copy = 0;
    U32 rc = DX_ListCreate(&copy, sizeof(U32), sizeof(U32), kOverrideListFlags, nullptr, nullptr);
    if (rc != 0) {
        logCall(rc, kFn, "DX_ListCreate");
        return rc;
    }
    if (overrides != 0) {
        U32 id = 0, on = 0;
        for (rc = DX_ListGetFirst(overrides, &id, &on); rc == 0; rc = DX_ListGetNext(overrides, &id, &on)) {
            U32 added = DX_ListAddLast(copy, &id, &on);
            if (added != 0) {
                DX_ListDestroy(&copy);
                logCall(added, kFn, "DX_ListAddLast");
                return added;
            }
        }
        if (rc != DX_LIST_END) {
            DX_ListDestroy(&copy);
            logCall(rc, kFn, "DX_ListGet(First|Next)");
            return rc;
        }
    }
    if (st->types[msgType].overrides != 0)
        DX_ListDestroy(&st->types[msgType].overrides);
    st->types[msgType].overrides = copy;
    st->types[msgType].enabled = defaultEnabled;
    if (defaultEnabled != 0 || overrides != 0)
        *kGlobalSwitches[msgType] = 1;
    return 0;
}

RQ_API U32 DX_LogSetStateLog(U32 defaultEnabled, HLIST overrides) noexcept
{
    return DX_LogSetMsgTypeLog(DX_LOG_MSGTYPE_STATE, defaultEnabled, overrides);
}

RQ_API U32 DX_LogSetDebugLog(U32 defaultEnabled, HLIST overrides) noexcept
{
    return DX_LogSetMsgTypeLog(DX_LOG_MSGTYPE_DEBUG, defaultEnabled, overrides);
}

RQ_API U32 DX_LogSetTraceLog(U32 defaultEnabled, HLIST overrides) noexcept
{
    return DX_LogSetMsgTypeLog(DX_LOG_MSGTYPE_TRACE, defaultEnabled, overrides);
}

RQ_API U32 DX_LogSetActivityLog(U32 defaultEnabled, HLIST overrides) noexcept
{
    return DX_LogSetMsgTypeLog(DX_LOG_MSGTYPE_ACTIVITY, defaultEnabled, overrides);
}

RQ_API U32 DX_LogIsMsgTypeLogEnabled(U32 msgType, U32 errlogId) noexcept
{
    DX_LOGSTATE *st = state();
    if (!enabled(st, "DX_LogIsMsgTypeLogEnabled"))
        return 0;
    if (msgType >= 4) {
        logFailure(ERRLOG_ERR_BAD_MSG_TYPE, "DX_LogIsMsgTypeLogEnabled: invalid MsgType");
        return 0;
    }
    const auto &type = st->types[msgType];
    if (type.overrides == 0)
        return type.enabled;
    U32 key = errlogId, on = 0;
    U32 rc = DX_ListGet(type.overrides, &key, &on);
    if (rc == 0)
        return on;
    if (rc == DX_LIST_ERR_NOT_FOUND)
        return type.enabled;
    logFailure(rc, "DX_LogIsMsgTypeLogEnabled: DX_ListGet");
    return 0;
}

RQ_API U32 DX_LogIsStateLogEnabled(U32 errlogId) noexcept
{
    return DX_LogIsMsgTypeLogEnabled(DX_LOG_MSGTYPE_STATE, errlogId);
}

RQ_API U32 DX_LogIsDebugLogEnabled(U32 errlogId) noexcept
{
    return DX_LogIsMsgTypeLogEnabled(DX_LOG_MSGTYPE_DEBUG, errlogId);
}

RQ_API U32 DX_LogIsTraceLogEnabled(U32 errlogId) noexcept
{
    return DX_LogIsMsgTypeLogEnabled(DX_LOG_MSGTYPE_TRACE, errlogId);
}

RQ_API U32 DX_LogIsActivityLogEnabled(U32 errlogId) noexcept
{
    return DX_LogIsMsgTypeLogEnabled(DX_LOG_MSGTYPE_ACTIVITY, errlogId);
}

RQ_API U32 DX_LogSetErrLogIdToNameCallback(DX_LOG_ID_TO_NAME_CALLBACK callback) noexcept
{
    DX_LOGSTATE *st = state();
    if (!enabled(st, "DX_LogSetErrLogIdToNameCallback"))
        return ERRLOG_ERR_NOT_ENABLED;
    st->idToName = callback;
    return 0;
}

RQ_API U32 DX_LogSetLogInfoContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) noexcept
{
    return setContext(kInfo, "DX_LogSetLogInfoContextCallback", callback, userData);
}

RQ_API U32 DX_LogSetLogErrorContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) noexcept
{
    return setContext(kError, "DX_LogSetLogErrorContextCallback", callback, userData);
}

RQ_API U32 DX_LogSetLogWarningContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) noexcept
{
    return setContext(kWarning, "DX_LogSetLogWarningContextCallback", callback, userData);
}

RQ_API U32 DX_LogSetLogActivityContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) noexcept
{
    return setContext(kActivity, "DX_LogSetLogActivityContextCallback", callback, userData);
}

RQ_API U32 DX_LogSetLogStateContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) noexcept
{
    return setContext(kState, "DX_LogSetLogStateContextCallback", callback, userData);
}

RQ_API U32 DX_LogSetLogDebugContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) noexcept
{
    return setContext(kDebug, "DX_LogSetLogDebugContextCallback", callback, userData);
}

RQ_API U32 DX_LogSetLogTraceContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) noexcept
{
    return setContext(kTrace, "DX_LogSetLogTraceContextCallback", callback, userData);
}

RQ_API U32 DX_LogEnterSignalHandler(void) noexcept
{
    ++state()->signalDepth;
    return 0;
}

RQ_API U32 DX_LogLeaveSignalHandler(void) noexcept
{
    DX_LOGSTATE *st = state();
    if (st->signalDepth == 0)
        return ERRLOG_ERR_SIGNAL_DEPTH;
    --st->signalDepth;
    return 0;
}

RQ_API U32 DX_LogGetLoggingState(void) noexcept
{
    return state()->state;
}

RQ_API U32 DX_LogGetGlobalLoggingState(void) noexcept
{
    return gDefault.state;
}

RQ_API int dx_errnoget(void) noexcept
{
    return errno;
}

RQ_API void dx_errnoset(int value) noexcept
{
    errno = value;
}

RQ_API const char *dx_errnogetstr(int e) noexcept
{
    DX_LOGSTATE *st = state();
    Out out(st->errnoText, sizeof st->errnoText);
    out.copystring(errnoText(e));
    st->errnoText[out.size()] = '\0';
    return st->errnoText;
}

RQ_API const char *errlog_DxVersionGet(void) noexcept
{
    return "A.01.02";
}

}  // extern "C"
