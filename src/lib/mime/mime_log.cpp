#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_log"
#include "internal/rq_mem.h"

#include "mime_internal.h"
#include "rqcore/log.h"

namespace rq::mime {

namespace {
constexpr U32 kErrlogId = 2;
}

void trace(const MIME_CONTEXT *context, const char *function) noexcept
{
    if ((context->flags & MIME_TRACE) != 0)
        WriteErrLog(kErrlogId, 0, function != nullptr ? function : "");
}

U32 fail(const MIME_CONTEXT *context, const char *function, U32 code, const char *detail) noexcept
{
    if (context != nullptr && (context->flags & MIME_LOG_ERRORS) != 0) {
        char text[256];
        SIS_CrtSNPrintf(text, sizeof text, "%s: %s", function != nullptr ? function : "",
                        detail != nullptr ? detail : "");
        WriteErrLog(kErrlogId, code, text);
    }
    return code;
}

U32 tell(STREAM *stream, U32 *position) noexcept
{
    U32 status = STREAM_seek(stream, 0, STREAM_SEEK_CUR, position);
    return status == 0 || status == 1 ? 0 : status;
}

U32 seekTo(STREAM *stream, U32 target, U32 *previous) noexcept
{
    U32 status = STREAM_seek(stream, static_cast<S32>(target), STREAM_SEEK_SET, previous);
    if (status != 0 && status != 1)
        return status;
    U32 now = 0;
    status = tell(stream, &now);
    if (status != 0)
        return status;
    return now == target ? 0 : 1;
}

U32 writeAll(STREAM *stream, const char *bytes, U32 length) noexcept
{
    while (length != 0) {
        U32 written = 0;
        U32 status = STREAM_write(stream, bytes, length, &written);
        if (status != 0)
            return status;
        if (written == 0 || written > length)
            return STREAM_EOF;
        bytes += written;
        length -= written;
    }
    return 0;
}

}  // namespace rq::mime
