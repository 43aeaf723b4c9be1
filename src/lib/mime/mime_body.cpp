#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_body"
#include "internal/rq_mem.h"

#include "mime_internal.h"
#include "rqcore/encode.h"

// Body extraction: read a part's bytes from its stream and decode them.

using namespace rq::mime;

namespace {

constexpr const char *kFunction = "MIME_getPartBodyBuffer()";
constexpr U32 kQpLineLength = 256;

// Reads up to `length` bytes; a stream that ends early yields what it held.
U32 readBody(STREAM *stream, char *buffer, U32 length, U32 *count) noexcept
{
    *count = 0;
    while (*count < length) {
        U32 got = 0;
        U32 status = STREAM_read(stream, buffer + *count, length - *count, &got);
        if (status == STREAM_EOF)
            break;
        if (status != 0)
            return status;
        if (got == 0)
            break;
        *count += got;
    }
    return 0;
}

}  // namespace

extern "C" RQ_API U32 MIME_getPartBodyBuffer(MIME_CONTEXT *context, MIME_PART *part, char **body, U32 *length) noexcept
{
    MIME_ENTER(context, kFunction);
    if (part == nullptr || body == nullptr || length == nullptr || part->stream == nullptr)
        return nullParameter(context, kFunction);
    *body = nullptr;
    *length = 0;
    STREAM *stream = part->stream;

    rq::Block<char> raw(RQ_MALLOC(size_t{part->bodyLength} + 1));
    if (!raw)
        return fail(context, kFunction, MIME_ERR_NO_MEMORY, "Out of memory.");

    U32 previous = 0;
    U32 status = seekTo(stream, part->bodyStart, &previous);
    if (status != 0)
        return fail(context, kFunction, status, "STREAM_seek() start of body.");

    U32 savedFlags = 0;
    status = STREAM_unsetFlags(stream, STREAM_LINE_MODE, &savedFlags);
    if (status != 0)
        return fail(context, kFunction, status, "STREAM_unsetFlags()");
    // The stream's flags come back on every path out, whatever failed.
    rq::ScopeExit restoreFlags([&] { STREAM_setFlags(stream, savedFlags, nullptr); });

    U32 count = 0;
    if (part->bodyLength != 0) {  // an empty body needs no read (which would report the end)
        status = readBody(stream, raw.get(), part->bodyLength, &count);
        if (status != 0)
            return fail(context, kFunction, status, "STREAM_read()");
    }
    raw[count] = '\0';

    if (part->encoding == MIME_ENCODING_BASE64) {
        char *decoded = nullptr;
        U32 decodedLength = 0;
        U32 decodeStatus = ENCODE_convertFromBase64(raw.get(), &decodedLength, &decoded);
        // Skipped characters and a short last group still yield a buffer,
        // which replaces the raw bytes; without one the raw bytes are kept.
        if (decoded != nullptr) {
            raw.reset(decoded);
            count = decodedLength;
            raw[count] = '\0';
        } else {
            fail(context, kFunction, decodeStatus, "ENCODE_convertFromBase64()");
        }
    } else if (part->encoding == MIME_ENCODING_QUOTED_PRINTABLE) {
        char *decoded = nullptr;
        U32 decodedLength = 0;
        U32 decodeStatus = ENCODE_fromQP(raw.get(), count, &decoded, &decodedLength, kQpLineLength);
        if (decodeStatus == 0 && decoded != nullptr) {
            raw.reset(decoded);
            count = decodedLength;
            raw[count] = '\0';
        } else {
            if (decoded != nullptr)
                RQ_FREE(decoded);
            fail(context, kFunction, decodeStatus, "ENCODE_fromQP()");
        }
    }

    status = seekTo(stream, previous, nullptr);
    if (status != 0)
        return fail(context, kFunction, status, "STREAM_seek() reset");
    *body = raw.release();
    *length = count;
    return 0;
}
