/*
 * rqcore system services: thread-local storage, stopwatch timers, running a
 * command without a shell, sleeping, file sizes, truncation, paths and
 * temporary names.
 */
#ifndef RQCORE_SYS_H
#define RQCORE_SYS_H

#include "types.h"

RQ_BEGIN_DECLS

#define ZOL_TLS_NO_KEY 0xFFFFFFFFu /* a key not yet allocated */

RQ_CODES {
    ZOL_ERR_TLS_NO_MEMORY = 0x16C18,       /* the thread's block could not be allocated */
    ZOL_ERR_TLS_NULL_POINTER = 0x16C26,    /* a required pointer argument was null */
    ZOL_ERR_TLS_BAD_KEY = 0x16C29,         /* key invalid, not created, or no value here */
    ZOL_ERR_TRUNCATE_NO_FILE = 0x16C12,    /* ZOL_truncate: no file name */
    ZOL_ERR_TRUNCATE_FAILED = 0x16C28,     /* ZOL_truncate: the system call failed */
    ZOL_ERR_FILESIZE_OPEN = 0x13801,       /* FileSizeGet: the file cannot be opened */
    ZOL_ERR_FILESIZE_NO_PATH = 0x13802,    /* FileSizeGet: no path (or no result pointer) */
    ZOL_ERR_FILESIZE_SEEK = 0x13803        /* FileSizeGet: the end of the file cannot be sought */
};

typedef void (*ZOL_TLS_DESTRUCTOR)(void *);

/* Lower layer: POSIX thread-specific keys directly. */
RQ_API U32 ZOL_TLS_Impl_AllocKey(U32 *key, ZOL_TLS_DESTRUCTOR destructor) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLS_Impl_SetValue(U32 key, void *value) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLS_Impl_GetValue(U32 key, void **value) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLS_Impl_FreeKey(U32 key) RQ_NOEXCEPT;

/* Upper layer: through the platform, with a block per thread.  A caller keeps
 * one static key (initially ZOL_TLS_NO_KEY) and calls ZOL_TLSAlloc in each
 * thread that needs its block. */
RQ_API U32 ZOL_TLSAlloc(U32 *key, U32 size, ZOL_TLS_DESTRUCTOR destructor) RQ_NOEXCEPT;
RQ_API void *ZOL_TLSGetValue(U32 key) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLSSetValue(U32 key, void *value) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLSFree(U32 key, U32 freeKey) RQ_NOEXCEPT;

/* Process times in clock ticks, as times() gives them. */
typedef struct ZOL_PROCTIMES {
    U32 user;
    U32 system;
    U32 childUser;
    U32 childSystem;
} ZOL_PROCTIMES;

/* A stopwatch owned by the caller; 40 bytes on every platform. */
typedef struct ZOL_TIMER {
    U32 startTicks;        /* times() at start */
    U32 stopTicks;         /* times() at stop */
    ZOL_PROCTIMES start;
    ZOL_PROCTIMES stop;
} ZOL_TIMER;

/* Timers.  A null timer is ignored; either result pointer may be null; the
 * results are 0 for a null timer or when the tick rate is unknown.  cpu is the
 * process's own user and system time, its children's not counted. */
RQ_API void ZOL_TimerStart(ZOL_TIMER *timer) RQ_NOEXCEPT;
RQ_API void ZOL_TimerStop(ZOL_TIMER *timer) RQ_NOEXCEPT;
RQ_API void ZOL_TimerDataGet(const ZOL_TIMER *timer, double *real, double *cpu) RQ_NOEXCEPT;

/* Starts the timer and writes "Start <name>" ("Start a Timer" for a null
 * name) into buffer when one is given.  size is not consulted: the buffer
 * must hold the name and 7 more bytes. */
RQ_API void ZOL_BeginTimerCall(char *buffer, U32 size, const char *name, ZOL_TIMER *timer) RQ_NOEXCEPT;

/* Stops the timer and, when buffer is given and size is at least 49, writes
 * "Stop  <name>:    <real> (real) <cpu> (cpu)" with the name right-aligned in
 * size - 48 columns (48 being the room of the rest of the line).  The text is
 * cut to size bytes with its NUL. */
RQ_API void ZOL_StopTimerCall(char *buffer, U16 size, const char *name, ZOL_TIMER *timer) RQ_NOEXCEPT;

/* Runs a program without a shell: the command is split at runs of spaces into
 * the program and at most 18 arguments (no quoting).  Returns 1 for a null,
 * empty or all-blank command; -1 when memory, fork or the wait failed, or
 * when words past the 18th argument were dropped (the program still runs);
 * otherwise 0 once the child is reaped, whatever its exit status (a program
 * that cannot be found runs as a child that exits with 127). */
RQ_API S32 ZOL_system(const char *command) RQ_NOEXCEPT;

/* Sleeps milliseconds / 1000 seconds, then the remainder in microseconds when
 * it is not 0; returns the result of the last call (sleep or usleep). */
RQ_API S32 ZOL_MilliSleep(U32 milliseconds) RQ_NOEXCEPT;

RQ_API S32 ZOL_Getpid(void) RQ_NOEXCEPT;
RQ_API void ZOL_Exit(S32 status) RQ_NOEXCEPT;
RQ_API void ZOL_Abort(void) RQ_NOEXCEPT;

/* Files and paths. */
RQ_API U32 ZOL_truncate(const char *file, U32 length) RQ_NOEXCEPT;

/* Copies path, unchanged (not made absolute), into output when both are given
 * and size exceeds the path's length; returns output, or null. */
RQ_API char *ZOL_fullpath(char *output, const char *path, U32 size) RQ_NOEXCEPT;

/* The size of a file in bytes, found by seeking to its end; 0 on a failed
 * seek.  A file of 4 GB or more reports 0xFFFFFFFF. */
RQ_API U32 FileSizeGet(const char *path, U32 *size) RQ_NOEXCEPT;

/* Byte-wise comparison (paths are case-sensitive), as strcmp; a null path
 * sorts before any other, two nulls are equal. */
RQ_API S32 ZOL_PathCmp(const char *a, const char *b) RQ_NOEXCEPT;

/* A temporary file name from tempnam (directory and prefix may be null);
 * release it with sys_tempnam_free, which hands it back to the C library. */
RQ_API char *sys_tempnam_alloc(const char *directory, const char *prefix) RQ_NOEXCEPT;
RQ_API void sys_tempnam_free(char *name) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
