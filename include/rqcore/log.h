/*
 * rqcore error log: records addressed to errlog ids, appended to log files.
 *
 * Record contract.  Every record (WriteErrLog, WriteStderr and the typed
 * DX_LogPrint* calls) is composed in a fixed buffer on the stack of
 * DX_LOG_RECORD_SIZE bytes whose end is marked by a byte 0xFF; the copy
 * routines stop at that mark, so an over-long record is cut, never overrun.
 * Composition allocates nothing, takes no lock and calls no formatted-output
 * function of the C library.  Each destination file is opened for append,
 * written with exactly one write(2) call and closed, so records from several
 * threads and processes never interleave.  Between DX_LogEnterSignalHandler
 * and DX_LogLeaveSignalHandler the date line is computed with integer
 * arithmetic only ("DATE-UTC = "), which makes records safe to write from a
 * signal handler.  Only the overflow rotation of DxOpen allocates.
 *
 * The typed records' formatter accepts:
 *   %d %i     signed decimal          %u   unsigned decimal
 *   %o        octal                   %x %X hexadecimal (lower, upper case)
 *   %c        character               %s   text ("(null)" for NULL)
 *   %p        pointer, "0x" and hexadecimal
 *   %%        a percent sign
 *   %H        hexadecimal memory dump; takes a pointer and a U32 length:
 *             one line per 16 bytes, the offset in 8 upper-case digits, then
 *             for each byte a blank and 2 digits, three blanks in place of
 *             each missing byte of the last line, then a newline
 * with the flags "-" (left-justify) and "0" (zero padding), a decimal field
 * width or "*", and the length modifiers "h", "l" and "ll" on the integer
 * conversions.  An unknown directive is copied as it stands.
 */
#ifndef RQCORE_LOG_H
#define RQCORE_LOG_H

#include <stdarg.h>

#include "types.h"

RQ_BEGIN_DECLS

#define DX_LOG_RECORD_SIZE 4096u

RQ_CODES {
    ERRLOG_ERR_NOT_ENABLED = 0x10101,      /* logging system not enabled */
    ERRLOG_ERR_ALREADY_ENABLED = 0x10102,  /* logging system already enabled */
    ERRLOG_ERR_BAD_ID = 0x10103,           /* bad or unknown errlog id */
    ERRLOG_ERR_DUPLICATE_ID = 0x10104,     /* duplicate errlog id */
    ERRLOG_ERR_NO_MEMORY = 0x10105,        /* out of memory */
    ERRLOG_ERR_NO_FILE_NAME = 0x10106,     /* missing file name */
    ERRLOG_ERR_NOT_BOOLEAN = 0x10107,      /* log-it flag not 0 or 1 */
    ERRLOG_ERR_BAD_MSG_TYPE = 0x10108,     /* message type 4 or above */
    ERRLOG_ERR_SIGNAL_DEPTH = 0x10109,     /* signal-handler depth already 0 */
    ERRLOG_ERR_CLOSE = 0x1010A,            /* DxOpen: close failed */
    ERRLOG_ERR_OPEN = 0x1010B,             /* DxOpen: open failed */
    ERRLOG_ERR_REOPEN = 0x1010C,           /* DxOpen: reopen failed */
    ERRLOG_ERR_RENAME = 0x1010D            /* DxOpen: rename failed */
};

/* Message types. */
#define DX_LOG_MSGTYPE_STATE 0u
#define DX_LOG_MSGTYPE_DEBUG 1u
#define DX_LOG_MSGTYPE_TRACE 2u
#define DX_LOG_MSGTYPE_ACTIVITY 3u

/* A file of DX_LOG_OVERFLOW_SIZE bytes or more is rotated by DxOpen. */
#define DX_LOG_OVERFLOW_SIZE 2000000000u

/* The per-thread logging state (opaque). */
typedef struct DX_LOGSTATE DX_LOGSTATE;

/* Supplies the program's ids: count entries of ids (each above 255),
 * log-it flags (0 or 1) and file names. */
typedef void (*DX_LOG_PROVIDER)(U32 *count, U32 **ids, U32 **logits, char ***files);
/* The module name printed in typed records of errlogId. */
typedef const char *(*DX_LOG_ID_TO_NAME_CALLBACK)(U32 errlogId);
/* Contributes context to a record: writes at most size-1 characters and a
 * NUL into buffer (which holds "" on entry).  Non-empty text is printed as
 * its own line (a newline is added when it does not end with one). */
typedef void (*DX_LOG_CONTEXT_CALLBACK)(void *userData, char *buffer, U32 size);
/* Returns non-zero to suppress a record (with FilterWriteErrLog on). */
typedef int (*DX_LOG_FILTER_CALLBACK)(U32 code, const char *message);

/* Process-wide switches, set to 1 the first time the matching type is
 * enabled with a non-zero default or an override list; never cleared. */
RQ_API extern U32 gDX_LogStateLogEnabled;
RQ_API extern U32 gDX_LogDebugLogEnabled;
RQ_API extern U32 gDX_LogTraceLogEnabled;
RQ_API extern U32 gDX_LogActivityLogEnabled;

/* ---- enabling and control (this thread's state, or the process default) ---- */
RQ_API U32 EnableLogging(DX_LOG_PROVIDER provider) RQ_NOEXCEPT;
RQ_API U32 DisableLogging(void) RQ_NOEXCEPT;
RQ_API U32 DX_LogInternalEnableLogging(DX_LOG_PROVIDER provider, DX_LOGSTATE *state) RQ_NOEXCEPT;
RQ_API U32 DX_LogInternalDisableLogging(DX_LOGSTATE *state) RQ_NOEXCEPT;
RQ_API U32 DX_LogEnableGlobalLogging(DX_LOG_PROVIDER provider) RQ_NOEXCEPT;
RQ_API U32 DX_LogDisableGlobalLogging(void) RQ_NOEXCEPT;
RQ_API U32 SetLogLevel(U32 bits) RQ_NOEXCEPT;
RQ_API U32 SetLog(U32 errlogId, U32 logIt, const char *file) RQ_NOEXCEPT;
RQ_API U32 AddLog(U32 errlogId) RQ_NOEXCEPT;
/* Suppression of known noise (broken pipes, timeouts, end-of-file messages)
 * and the caller's own test. */
RQ_API U32 FilterWriteErrLog(U32 on) RQ_NOEXCEPT;
RQ_API U32 WriteErrLogFilterIt(DX_LOG_FILTER_CALLBACK filter) RQ_NOEXCEPT;

/* overrides: a list of (errlog id, enabled) pairs, 4 bytes each, or 0. */
RQ_API U32 DX_LogSetMsgTypeLog(U32 msgType, U32 defaultEnabled, HLIST overrides) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetStateLog(U32 defaultEnabled, HLIST overrides) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetDebugLog(U32 defaultEnabled, HLIST overrides) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetTraceLog(U32 defaultEnabled, HLIST overrides) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetActivityLog(U32 defaultEnabled, HLIST overrides) RQ_NOEXCEPT;
RQ_API U32 DX_LogIsMsgTypeLogEnabled(U32 msgType, U32 errlogId) RQ_NOEXCEPT;
RQ_API U32 DX_LogIsStateLogEnabled(U32 errlogId) RQ_NOEXCEPT;
RQ_API U32 DX_LogIsDebugLogEnabled(U32 errlogId) RQ_NOEXCEPT;
RQ_API U32 DX_LogIsTraceLogEnabled(U32 errlogId) RQ_NOEXCEPT;
RQ_API U32 DX_LogIsActivityLogEnabled(U32 errlogId) RQ_NOEXCEPT;
/* Orders errlog id records by their 32-bit id. */
RQ_API S32 DX_LogErrLogIdCmp(const void *a, const void *b, U32 size) RQ_NOEXCEPT;

RQ_API U32 DX_LogSetErrLogIdToNameCallback(DX_LOG_ID_TO_NAME_CALLBACK callback) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetLogInfoContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetLogErrorContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetLogWarningContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetLogActivityContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetLogStateContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetLogDebugContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) RQ_NOEXCEPT;
RQ_API U32 DX_LogSetLogTraceContextCallback(DX_LOG_CONTEXT_CALLBACK callback, void *userData) RQ_NOEXCEPT;

RQ_API U32 DX_LogEnterSignalHandler(void) RQ_NOEXCEPT;
RQ_API U32 DX_LogLeaveSignalHandler(void) RQ_NOEXCEPT;

/* 0 not set up, 1 disabled, 2 enabled. */
RQ_API U32 DX_LogGetLoggingState(void) RQ_NOEXCEPT;
RQ_API U32 DX_LogGetGlobalLoggingState(void) RQ_NOEXCEPT;

/* Per-thread state: created by DX_ErrLogInitializeTLS (disabled, level 4),
 * released at thread exit through DX_ErrLogFreeTLS. */
RQ_API U32 DX_ErrLogInitializeTLS(void) RQ_NOEXCEPT;
RQ_API void DX_ErrLogFreeTLS(void *arg) RQ_NOEXCEPT;
RQ_API void DX_ErrLogDestroyTLS(DX_LOGSTATE *state) RQ_NOEXCEPT;
/* This thread's state, or the process default when it has none. */
RQ_API DX_LOGSTATE *DX_LogGetTlsData(void) RQ_NOEXCEPT;

RQ_API int dx_errnoget(void) RQ_NOEXCEPT;
RQ_API void dx_errnoset(int value) RQ_NOEXCEPT;
/* The system's text for e (or "Unknown error") in this thread's buffer. */
RQ_API const char *dx_errnogetstr(int e) RQ_NOEXCEPT;
/* "A.01.02" */
RQ_API const char *errlog_DxVersionGet(void) RQ_NOEXCEPT;

/* Opens path for append (created with mode 0666); with checkOverflow, a file
 * of DX_LOG_OVERFLOW_SIZE bytes or more is first renamed to
 * path ".overflow.log" and a fresh file opened.  A descriptor, or -1. */
RQ_API int DxOpen(const char *path, U32 checkOverflow) RQ_NOEXCEPT;
/* The date line of records written in a signal handler:
 * "Sat Nov 21 19:27:04 2026\n" for `when` seconds since 1970 (UTC). */
RQ_API char *DxLogSignalAsyncSafeGetTime(int64_t when, char *dst, U32 size) RQ_NOEXCEPT;

/* ---- writing ---- */
/* One error record for `errlogId`: "ERROR CODE -> 0x<code>" and `message`.
 * Never fails towards the caller. */
RQ_API void WriteErrLog(U32 errlogId, U32 code, const char *message) RQ_NOEXCEPT;
/* The same record, without notes, on standard error whatever the state. */
RQ_API void WriteStderr(U32 code, const char *message) RQ_NOEXCEPT;
/* An info record (as DX_LogPrintInfoLog). */
RQ_API void DumpErrLog(U32 errlogId, const char *format, ...) RQ_NOEXCEPT;
/* The record head and the formatted message on standard error. */
RQ_API void DumpStderr(const char *format, ...) RQ_NOEXCEPT;

/* enterExit: 0, 1 entering, 2 exiting; severity: 0, 1 warning, 2 error. */
RQ_API void DX_LogVargPrintLog(const char *functionName, U32 errlogId, U32 msgType, U32 enterExit, U32 severity, U32 code, const char *format, va_list args) RQ_NOEXCEPT;
RQ_API void DX_LogPrintInfoLog(U32 errlogId, const char *format, ...) RQ_NOEXCEPT;
RQ_API void DX_LogPrintWarningLog(const char *functionName, U32 errlogId, U32 code, const char *format, ...) RQ_NOEXCEPT;
RQ_API void DX_LogPrintErrorLog(const char *functionName, U32 errlogId, U32 code, const char *format, ...) RQ_NOEXCEPT;
RQ_API void DX_LogPrintActivityLog(const char *functionName, U32 errlogId, const char *format, ...) RQ_NOEXCEPT;
RQ_API void DX_LogPrintStateLog(const char *functionName, U32 errlogId, const char *format, ...) RQ_NOEXCEPT;
RQ_API void DX_LogPrintDebugLog(const char *functionName, U32 errlogId, const char *format, ...) RQ_NOEXCEPT;
RQ_API void DX_LogPrintTraceLog(const char *functionName, U32 errlogId, const char *format, ...) RQ_NOEXCEPT;
RQ_API void DX_LogPrintTraceLogEntering(const char *functionName, U32 errlogId, const char *format, ...) RQ_NOEXCEPT;
RQ_API void DX_LogPrintTraceLogExiting(const char *functionName, U32 errlogId, const char *format, ...) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
