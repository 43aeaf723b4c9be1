// The generic stream: construction, destruction, flags and the three data
// entry points that check the flags, dispatch to the kind's operation and
// log failures under STREAM_LOG_ERRORS.

#define RQ_SOURCE_TAG "src/lib/core/lib/mime/stream_core"
#include "internal/rq_mem.h"
#include "rqcore/log.h"
#include "rqcore/stream.h"

namespace {

constexpr U32 kErrlogId = 2;

void trace(U32 flags, const char *name) noexcept
{
    if ((flags & STREAM_TRACE) != 0)
        STREAM_trace(name);
}

void logFailure(U32 flags, const char *function, U32 code, const char *detail) noexcept
{
    if ((flags & STREAM_LOG_ERRORS) != 0)
        STREAM_logError(function, code, detail);
}

// End of data and the bare 1 (open, bounds, short write, and a successful
// file seek) are outcomes the caller handles, not failures worth a record.
bool worthLogging(U32 status) noexcept
{
    return status != 0 && status != 1 && status != STREAM_EOF;
}

}  // namespace

extern "C" {

RQ_API void STREAM_trace(const char *text) noexcept
{
    WriteErrLog(kErrlogId, 0, text != nullptr ? text : "");
}

RQ_API void STREAM_logError(const char *function, U32 code, const char *detail) noexcept
{
    char text[256];
    SIS_CrtSNPrintf(text, sizeof text, "%s: %s", function != nullptr ? function : "",
                    detail != nullptr ? detail : "");
    WriteErrLog(kErrlogId, code, text);
}

RQ_API U32 STREAM_new(STREAM **out, U32 flags, U16 kind, STREAM_INIT_PROC init, STREAM_DESTROY_PROC destroy,
                      STREAM_READ_PROC read, STREAM_WRITE_PROC write, STREAM_SEEK_PROC seek,
                      void *privateData) noexcept
{
    trace(flags, "STREAM_new()");
    if (out == nullptr || init == nullptr || destroy == nullptr || read == nullptr || write == nullptr ||
        seek == nullptr || privateData == nullptr) {
        logFailure(flags, "STREAM_new()", STREAM_ERR_NULL, "Null pointer");
        return STREAM_ERR_NULL;
    }
    auto *s = static_cast<STREAM *>(RQ_CALLOC(1, sizeof(STREAM)));
    if (s == nullptr) {
        logFailure(flags, "STREAM_new()", STREAM_ERR_NOMEM, "Out of memory");
        return STREAM_ERR_NOMEM;
    }
    if ((flags & (STREAM_READ | STREAM_WRITE)) == 0)
        flags |= STREAM_READ | STREAM_WRITE;
    s->kind = kind;
    s->flags = flags;
    s->init = init;
    s->destroy = destroy;
    s->write = write;
    s->read = read;
    s->seek = seek;
    *out = s;
    // When init fails the object stays in *out for the caller to destroy.
    U32 status = init(s, privateData);
    if (status != 0)
        logFailure(flags, "STREAM_new()", status, "STREAM init function");
    return status;
}

RQ_API U32 STREAM_destroy(STREAM **stream) noexcept
{
    if (stream == nullptr || *stream == nullptr)
        return STREAM_ERR_NULL;
    STREAM *s = *stream;
    trace(s->flags, "STREAM_destroy()");
    if (s->destroy == nullptr) {
        logFailure(s->flags, "STREAM_destroy()", STREAM_ERR_CORRUPT, "Stream corrupt");
        return STREAM_ERR_CORRUPT;
    }
    U32 flags = s->flags;
    U32 status = s->destroy(s);
    if (status != 0)
        logFailure(flags, "STREAM_destroy()", status, "STREAM destroy function");
    RQ_FREE(s);
    *stream = nullptr;
    return status;
}

RQ_API U32 STREAM_setFlags(STREAM *stream, U32 bits, U32 *old) noexcept
{
    if (stream == nullptr)
        return STREAM_ERR_NULL;
    trace(stream->flags, "STREAM_setFlags()");
    if (old != nullptr)
        *old = stream->flags;
    stream->flags |= bits;
    return 0;
}

RQ_API U32 STREAM_unsetFlags(STREAM *stream, U32 bits, U32 *old) noexcept
{
    if (stream == nullptr)
        return STREAM_ERR_NULL;
    trace(stream->flags, "STREAM_unsetFlags()");
    if (old != nullptr)
        *old = stream->flags;
    stream->flags &= ~bits;
    return 0;
}

RQ_API U32 STREAM_write(STREAM *stream, const char *bytes, U32 length, U32 *written) noexcept
{
    if (stream == nullptr)
        return STREAM_ERR_NULL;
    U32 flags = stream->flags;
    trace(flags, "STREAM_write()");
    U32 status = 0;
    const char *detail = nullptr;
    if (bytes == nullptr) {
        status = STREAM_ERR_NULL;
        detail = "Null pointer";
    } else if ((flags & STREAM_WRITE) == 0) {
        status = STREAM_ERR_NOT_ALLOWED;
        detail = "Operation not allowed";
    } else if (stream->write == nullptr) {
        status = STREAM_ERR_CORRUPT;
        detail = "Stream corrupt";
    } else {
        status = stream->write(stream, bytes, length, written);
        if (!worthLogging(status))
            return status;
        detail = "STREAM write function";
    }
    logFailure(flags, "STREAM_write()", status, detail);
    return status;
}

RQ_API U32 STREAM_read(STREAM *stream, char *buffer, U32 size, U32 *count) noexcept
{
    if (stream == nullptr)
        return STREAM_ERR_NULL;
    U32 flags = stream->flags;
    trace(flags, "STREAM_read()");
    U32 status = 0;
    const char *detail = nullptr;
    if (buffer == nullptr) {
        status = STREAM_ERR_NULL;
        detail = "Null pointer";
    } else if ((flags & STREAM_READ) == 0) {
        status = STREAM_ERR_NOT_ALLOWED;
        detail = "Operation not allowed";
    } else if (stream->read == nullptr) {
        status = STREAM_ERR_CORRUPT;
        detail = "Stream corrupt";
    } else {
        // A read that stores fewer bytes leaves the buffer terminated.
        std::memset(buffer, 0, size);
        status = stream->read(stream, buffer, size, count);
        if (!worthLogging(status))
            return status;
        detail = "STREAM read function";
    }
    logFailure(flags, "STREAM_read()", status, detail);
    return status;
}

RQ_API U32 STREAM_seek(STREAM *stream, S32 offset, U32 whence, U32 *previous) noexcept
{
    if (stream == nullptr)
        return STREAM_ERR_NULL;
    U32 flags = stream->flags;
    trace(flags, "STREAM_seek()");
    if (stream->seek == nullptr) {
        logFailure(flags, "STREAM_seek()", STREAM_ERR_CORRUPT, "Stream corrupt");
        return STREAM_ERR_CORRUPT;
    }
    U32 status = stream->seek(stream, offset, whence, previous);
    if (worthLogging(status))
        logFailure(flags, "STREAM_seek()", status, "STREAM seek function");
    return status;
}

}  // extern "C"
