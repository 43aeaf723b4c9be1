// Fuzzes the MIME parser from a fixed-buffer stream and from a file stream
// over the same bytes; both must agree on the part count.
#include "rqcore/mime.h"
#include "rqcore/stream.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

U32 partCount(MIME_CONTEXT *ctx, STREAM *s, U32 *status)
{
    MIME_WRAPPER *w = nullptr;
    *status = MIME_parseMessageFromStream(ctx, s, &w);
    U32 count = w != nullptr ? w->partCount : 0;
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
    MIME_setContextFlags(ctx, MIME_LOG_ERRORS);
    std::string copy(reinterpret_cast<const char *>(data), size);
    STREAM *s = nullptr;
    U32 bufferStatus = 0, fileStatus = 0;
    U32 fromBuffer = 0, fromFile = 0;
    if (STREAM_attachToBuffer(&s, copy.data(), static_cast<U32>(size), STREAM_READ) == 0)
        fromBuffer = partCount(ctx, s, &bufferStatus);
    STREAM_destroy(&s);

    std::string path = tempPath();
    if (FILE *f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
        if (STREAM_attachToFilename(&s, path.c_str(), STREAM_READ) == 0)
            fromFile = partCount(ctx, s, &fileStatus);
        STREAM_destroy(&s);
        std::remove(path.c_str());
        // The two stream kinds read lines alike except for NUL bytes and a
        // lone CR, which the file kind treats differently.
        if (std::memchr(data, '\0', size) == nullptr && std::memchr(data, '\r', size) == nullptr &&
            bufferStatus == 0 && fileStatus == 0 && fromBuffer != fromFile)
            std::abort();
    }
    MIME_destroyContext(&ctx);
    return 0;
}
