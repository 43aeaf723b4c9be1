// Fuzzes body extraction: every part of a parsed message is fetched and
// decoded; the decoded text is always terminated after its length.
#include "rqcore/frame.h"
#include "rqcore/mime.h"
#include "rqcore/stream.h"

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MIME_CONTEXT *ctx = nullptr;
    if (MIME_createContext(&ctx) != 0)
        return 0;
    std::string copy(reinterpret_cast<const char *>(data), size);
    STREAM *s = nullptr;
    MIME_WRAPPER *w = nullptr;
    if (STREAM_attachToBuffer(&s, copy.data(), static_cast<U32>(size), STREAM_READ) == 0 &&
        MIME_parseMessageFromStream(ctx, s, &w) == 0) {
        for (MIME_PART *p = w->parts; p != nullptr; p = p->next) {
            if (p->bodyStart > size || p->bodyLength > size - p->bodyStart)
                std::abort();  // a body always lies inside the message
            char *body = nullptr;
            U32 length = 0;
            if (MIME_getPartBodyBuffer(ctx, p, &body, &length) == 0) {
                if (body == nullptr || body[length] != '\0')
                    std::abort();
                RQCORE_free(body);
            }
        }
    }
    if (w != nullptr)
        MIME_destroyWrapper(ctx, &w);
    STREAM_destroy(&s);
    MIME_destroyContext(&ctx);
    return 0;
}
