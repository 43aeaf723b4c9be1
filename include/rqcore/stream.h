/*
 * rqcore streams: byte channels over a fixed buffer, a growing buffer or a file.
 *
 * A stream is a small object with a table of five operations; the MIME
 * parser and generator read and write message text through it without
 * knowing where the text lives.  One stream is used by one thread at a time.
 *
 * Memory kinds (kind 1):
 *   - fixed buffer: the caller's `size` bytes; a write past the end copies
 *     what fits; a write starting at the end is STREAM_EOF.  Capacity, not a
 *     terminating NUL, bounds the data.
 *   - growing buffer: the library allocates the text and keeps the caller's
 *     pointer variable up to date after every reallocation; destroying the
 *     stream never frees the text (the caller frees it with RQCORE_free).
 *     The buffer grows only when a write starts at the end, so a write that
 *     starts with room left copies what fits and reports the short count with
 *     status 0; the next write grows the buffer.
 *   - line mode: a read stops after CR, LF or CR LF; the line end is not
 *     counted and a NUL is stored in its place.
 *   - seek from the end moves back from the current position, so whence 3
 *     with offset 0 reports the current position without moving.
 *
 * File kind (kind 3):
 *   - a read in line mode returns one line without its end; CR LF, CR CR LF
 *     and LF are each one line end, NUL bytes are dropped, and a lone CR
 *     also consumes the byte after it.  The descriptor is left just after
 *     the bytes consumed, so a plain read or lseek continues there.
 *   - a successful seek returns 1 and a failed one 0: callers that only want
 *     the current position pass `previous` and do not test the status.
 *   - a short write makes every later operation return 1; a failed read(2)
 *     returns 1 with a count of 0.
 *
 * Logging (STREAM_LOG_ERRORS): the generic entry points record their own
 * refusals and the kinds' failures; end of data (STREAM_EOF) and the bare 1
 * (bounds, open, short write, and a successful file seek) are outcomes the
 * caller handles and are not recorded.
 */
#ifndef RQCORE_STREAM_H
#define RQCORE_STREAM_H

#include "types.h"

RQ_BEGIN_DECLS

/* Status codes of the stream family.  Open failures, negative descriptors,
 * out-of-bounds seeks and short file writes return the bare value 1. */
RQ_CODES {
    STREAM_ERR_NULL = 0x197F1,        /* null stream, handle, buffer or operation ("Null pointer") */
    STREAM_ERR_CORRUPT = 0x197F2,     /* no state or a missing operation ("Stream corrupt") */
    STREAM_ERR_NOT_ALLOWED = 0x197F3, /* not permitted by the flags, bad whence ("Operation not allowed") */
    STREAM_ERR_NOMEM = 0x197F4,       /* allocation failed ("Out of memory") */
    STREAM_EOF = 0x197F5,             /* end of data on read; fixed buffer full on write */
    STREAM_ERR_NO_MODE = 0x197F6      /* file stream asked for neither reading nor writing */
};

/* Stream flags: one word, given to every constructor. */
RQ_CODES {
    STREAM_TRACE = 0x01,      /* every entry point writes its name to the trace log */
    STREAM_LOG_ERRORS = 0x02, /* a failing generic entry point writes a log record */
    STREAM_READ = 0x08,       /* reading allowed */
    STREAM_WRITE = 0x10,      /* writing allowed */
    STREAM_LINE_MODE = 0x20,  /* a read returns at most one line, without its line end */
    STREAM_APPEND = 0x40      /* file kind only: append instead of truncating */
};

/* Kinds and seek origins. */
RQ_CODES {
    STREAM_KIND_MEMORY = 1,
    STREAM_KIND_FILE = 3,
    STREAM_SEEK_SET = 1, /* from the start */
    STREAM_SEEK_CUR = 2, /* from the current position */
    STREAM_SEEK_END = 3  /* from the end (memory kinds: back from the current position) */
};

typedef struct STREAM STREAM;

typedef U32 (*STREAM_INIT_PROC)(STREAM *stream, void *privateData);
typedef U32 (*STREAM_DESTROY_PROC)(STREAM *stream);
typedef U32 (*STREAM_WRITE_PROC)(STREAM *stream, const char *bytes, U32 length, U32 *written);
typedef U32 (*STREAM_READ_PROC)(STREAM *stream, char *buffer, U32 size, U32 *count);
typedef U32 (*STREAM_SEEK_PROC)(STREAM *stream, S32 offset, U32 whence, U32 *previous);

/* The generic object.  A kind's init operation stores its state in
 * privateData; the object keeps write before read. */
struct STREAM {
    U16 kind;
    U32 flags;
    void *privateData;
    STREAM_INIT_PROC init;
    STREAM_DESTROY_PROC destroy;
    STREAM_WRITE_PROC write;
    STREAM_READ_PROC read;
    STREAM_SEEK_PROC seek;
};

/* ---- Generic ------------------------------------------------------------ */

/* Allocates a stream of `kind` with the five operations (note the order:
 * read before write here) and calls init(stream, privateData), returning
 * its status.  Flags without STREAM_READ and STREAM_WRITE get both.  Every
 * pointer must be non-null (STREAM_ERR_NULL).  When init fails the object
 * stays allocated in *out; the caller destroys it. */
RQ_API U32 STREAM_new(STREAM **out, U32 flags, U16 kind, STREAM_INIT_PROC init, STREAM_DESTROY_PROC destroy, STREAM_READ_PROC read, STREAM_WRITE_PROC write, STREAM_SEEK_PROC seek, void *privateData) RQ_NOEXCEPT;

/* Calls the destroy operation, frees the object, nulls *stream and returns
 * destroy's status.  STREAM_ERR_NULL, STREAM_ERR_CORRUPT (not freed). */
RQ_API U32 STREAM_destroy(STREAM **stream) RQ_NOEXCEPT;

/* Store the previous flags in *old (optional), then set or clear `bits`. */
RQ_API U32 STREAM_setFlags(STREAM *stream, U32 bits, U32 *old) RQ_NOEXCEPT;
RQ_API U32 STREAM_unsetFlags(STREAM *stream, U32 bits, U32 *old) RQ_NOEXCEPT;

/* Writes `length` bytes; *written receives the number the kind took. */
RQ_API U32 STREAM_write(STREAM *stream, const char *bytes, U32 length, U32 *written) RQ_NOEXCEPT;

/* Clears the first `size` bytes of buffer, then reads up to `size` bytes;
 * *count receives the number stored.  STREAM_EOF at the end of the data. */
RQ_API U32 STREAM_read(STREAM *stream, char *buffer, U32 size, U32 *count) RQ_NOEXCEPT;

/* Moves the position (whence STREAM_SEEK_SET/CUR/END); *previous (optional)
 * receives the position before the move. */
RQ_API U32 STREAM_seek(STREAM *stream, S32 offset, U32 whence, U32 *previous) RQ_NOEXCEPT;

/* Writes `text` ("" when NULL) to the error log's trace at level 2. */
RQ_API void STREAM_trace(const char *text) RQ_NOEXCEPT;

/* Writes "%s: %s" (function, detail; at most 255 characters) with `code` to
 * the error log at level 2. */
RQ_API void STREAM_logError(const char *function, U32 code, const char *detail) RQ_NOEXCEPT;

/* ---- Constructors ------------------------------------------------------- */

/* A fixed buffer of `size` bytes, position 0. */
RQ_API U32 STREAM_attachToBuffer(STREAM **out, char *buffer, U32 size, U32 flags) RQ_NOEXCEPT;

/* A growing buffer: allocates initialSize+1 bytes (an empty text) into
 * *bufferVar and keeps *bufferVar current.  The caller owns the text. */
RQ_API U32 STREAM_attachToGrowingBuffer(STREAM **out, char **bufferVar, U32 initialSize, U32 flags) RQ_NOEXCEPT;

/* Opens `path` (mode 0600, always created; appended with STREAM_APPEND, else
 * truncated when writing).  1 when the open fails, STREAM_ERR_NO_MODE when
 * the flags ask for neither reading nor writing. */
RQ_API U32 STREAM_attachToFilename(STREAM **out, const char *path, U32 flags) RQ_NOEXCEPT;

/* Wraps a descriptor the caller keeps (not closed on destroy); 1 when fd is
 * negative. */
RQ_API U32 STREAM_attachToFile(STREAM **out, int fd, U32 flags) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
