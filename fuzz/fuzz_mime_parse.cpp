// Fuzzes the MIME parser from a fixed-buffer stream and from a file stream
// over the same bytes, with its own rules and under MIME_FLAG_RFC; both
// streams must agree on the part count.
#include "rqcore/mime.h"
#include "rqcore/stream.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

// The parts' count; every body must lie inside the input.
U32 partCount(MIME_CONTEXT *ctx, STREAM *s, size_t size, U32 *status)
{
    MIME_WRAPPER *w = nullptr;
    *status = MIME_parseMessageFromStream(ctx, s, &w);
    U32 count = w != nullptr ? w->partCount : 0;
    for (MIME_PART *p = w != nullptr ? w->parts : nullptr; p != nullptr; p = p->next)
        if (p->bodyStart > size || p->bodyLength > size - p->bodyStart)
            std::abort();
    if (w != nullptr && MIME_destroyWrapper(ctx, &w) != 0)
        std::abort();
    return count;
}

std::string tempPath()
{
    return "/tmp/fuzz_mime_parse." + std::to_string(getpid());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MIME_CONTEXT *ctx = nullptr;
    if (MIME_createContext(&ctx) != 0)
        return 0;
    for (U32 mode : {0u, static_cast<U32>(MIME_FLAG_RFC)}) {
        MIME_unsetContextFlags(ctx, MIME_FLAG_RFC);
        MIME_setContextFlags(ctx, MIME_LOG_ERRORS | mode);
        std::string copy(reinterpret_cast<const char *>(data), size);
        STREAM *s = nullptr;
        U32 bufferStatus = 0, fileStatus = 0;
        U32 fromBuffer = 0, fromFile = 0;
        if (STREAM_attachToBuffer(&s, copy.data(), static_cast<U32>(size), STREAM_READ) == 0)
            fromBuffer = partCount(ctx, s, size, &bufferStatus);
        STREAM_destroy(&s);

        std::string path = tempPath();
        if (FILE *f = std::fopen(path.c_str(), "wb")) {
            std::fwrite(data, 1, size, f);
            std::fclose(f);
            if (STREAM_attachToFilename(&s, path.c_str(), STREAM_READ) == 0)
                fromFile = partCount(ctx, s, size, &fileStatus);
            STREAM_destroy(&s);
            std::remove(path.c_str());
            // The two stream kinds read lines alike except for NUL bytes and a
            // lone CR, which the file kind treats differently.
            if (std::memchr(data, '\0', size) == nullptr && std::memchr(data, '\r', size) == nullptr &&
                bufferStatus == 0 && fileStatus == 0 && fromBuffer != fromFile)
                std::abort();
        }
    }
    MIME_destroyContext(&ctx);
    return 0;
}
