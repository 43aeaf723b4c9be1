// Whole-buffer conversions, the convertible-size query and the small text
// helpers of the converter family.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/unicode_convert"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"

namespace {

size_t unicodeLength(const UNICODE_CHAR *text) noexcept
{
    size_t n = 0;
    while (text[n] != 0)
        ++n;
    return n;
}

// Shrinks a finished buffer to its content; a failed shrink keeps the larger
// block, which is still correct.
template <typename T>
T *shrinkTo(T *buffer, size_t bytes) noexcept
{
    void *smaller = RQ_REALLOC(buffer, bytes);
    return smaller != nullptr ? static_cast<T *>(smaller) : buffer;
}

}  // namespace

extern "C" {

RQ_API U32 UNICODE_ConvertToUnicodeBufferExt(UNICODE_CONVERTER *converter, const char *source, UNICODE_CHAR **out,
                                             const char **sourceEnd, U32 flags) noexcept
{
    if (converter == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (source == nullptr || out == nullptr)
        return UNICODE_ERR_NULL;
    *out = nullptr;
    rq::Block<UNICODE_CHAR> buffer;
    size_t used = 0;  // characters
    const char *position = source;
    for (;;) {
        size_t n = std::strlen(position);
        // Room for every remaining byte as one character, plus the terminator.
        size_t bytes = (n + used) * 2 + 2;
        void *grown = RQ_REALLOC(buffer.get(), bytes);
        if (grown == nullptr) {
            UNICODE_LogError("UNICODE_ConvertToUnicodeBuffer", UNICODE_ERR_MEMORY, "Memory allocation error");
            return UNICODE_ERR_MEMORY;
        }
        buffer.release();
        buffer.reset(grown);
        U32 size = static_cast<U32>(n * 2 + 2);
        const char *end = position;
        U32 rc = converter->toUnicode(converter->state, position, buffer.get() + used, &size, &end, flags);
        if (rc != 0 && rc != UNICODE_DESTINATION_FULL)
            return rc;
        used += size / 2;
        bool progressed = end != position || size != 0;
        if (end != nullptr)
            position = end;
        if (rc == 0)
            break;
        // A converter that stops with room to spare and nothing done would
        // be asked again for ever.
        if (!progressed)
            return UNICODE_DESTINATION_FULL;
    }
    buffer[used] = 0;
    *out = shrinkTo(buffer.release(), (used + 1) * sizeof(UNICODE_CHAR));
    if (sourceEnd != nullptr)
        *sourceEnd = position;
    return 0;
}

RQ_API U32 UNICODE_ConvertToUnicodeBuffer(UNICODE_CONVERTER *converter, const char *source, UNICODE_CHAR **out,
                                          U32 flags) noexcept
{
    return UNICODE_ConvertToUnicodeBufferExt(converter, source, out, nullptr, flags);
}

RQ_API U32 UNICODE_ConvertFromUnicodeBuffer(UNICODE_CONVERTER *converter, const UNICODE_CHAR *source, char **out,
                                            U32 flags) noexcept
{
    if (converter == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (source == nullptr || out == nullptr)
        return UNICODE_ERR_NULL;
    *out = nullptr;
    size_t perChar = 1;
    size_t extra = 0;
    switch (converter->type) {
    case UNICODE_TYPE_MBCS:
    case 4:
        perChar = 2;
        break;
    case UNICODE_TYPE_UTF8:
        perChar = 3;
        break;
    case UNICODE_TYPE_ISO2022JP:
        perChar = 3;
        extra = 6;  // its escape sequences
        break;
    default:
        break;
    }
    const size_t length = unicodeLength(source);
    size_t size = (length + 1) * perChar + extra;
    size_t written = 0;
    const UNICODE_CHAR *position = source;
    rq::Block<char> buffer;
    for (;;) {
        void *grown = RQ_REALLOC(buffer.get(), size);
        if (grown == nullptr) {
            UNICODE_LogError("UNICODE_ConvertFromUnicodeBuffer", UNICODE_ERR_MEMORY, "Memory allocation error");
            return UNICODE_ERR_MEMORY;
        }
        buffer.release();
        buffer.reset(grown);
        U32 room = static_cast<U32>(size - written);
        const UNICODE_CHAR *end = position;
        U32 rc = converter->fromUnicode(converter->state, position, buffer.get() + written, &room, &end, flags);
        if (rc != 0 && rc != UNICODE_DESTINATION_FULL)
            return rc;
        written += room;
        bool progressed = end != position || room != 0;
        if (end != nullptr)
            position = end;
        if (rc == 0)
            break;
        if (!progressed && size - written > 256)
            return UNICODE_DESTINATION_FULL;
        // Each retry allows one more byte per character of the whole text;
        // the room never shrinks below what is already written.
        ++perChar;
        size = length * perChar + 1;
        while (size <= written + 1)
            size = length * ++perChar + 1;
    }
    buffer[written] = '\0';
    *out = shrinkTo(buffer.release(), written + 1);
    return 0;
}

RQ_API U32 UNICODE_BufferFree(void **buffer) noexcept
{
    if (buffer == nullptr || *buffer == nullptr) {
        UNICODE_LogError("UNICODE_BufferFree", UNICODE_ERR_NULL, "Already NULL");
        return UNICODE_ERR_NULL;
    }
    RQ_FREE(*buffer);
    *buffer = nullptr;
    return 0;
}

RQ_API U32 UNICODE_ConvertibleSizeGet(UNICODE_CONVERTER *converter, const char *source, U32 *size) noexcept
{
    if (converter == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (source == nullptr || size == nullptr)
        return UNICODE_ERR_NULL;
    *size = 0;
    const char *end = source;
    U32 rc = converter->toUnicode(converter->state, source, nullptr, nullptr, &end, 0);
    if (end != nullptr && end >= source)
        *size = static_cast<U32>(end - source);
    return rc;
}

RQ_API U32 UNICODE_AutoConvert(void) noexcept
{
    return UNICODE_ERR_NOT_AVAILABLE;
}

RQ_API int UTF8_getBestSplit(const char *text, int max) noexcept
{
    if (text == nullptr || max < 0)
        return 0;
    size_t length = std::strlen(text);
    if (length < static_cast<size_t>(max))
        return static_cast<int>(length);
    int i = max - 1;
    while (i > 0 && (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80)
        --i;
    return i < 0 ? 0 : i;
}

RQ_API int UNICODE_MaybeSwitchByteOrder(UNICODE_CHAR *text) noexcept
{
    if (text == nullptr)
        return 0;
    size_t n = unicodeLength(text);
    bool swapped = false;
    for (size_t i = 0; i < n && !swapped; ++i)
        swapped = text[i] == 0xFFFE;
    if (!swapped)
        return 0;
    for (size_t i = 0; i < n; ++i)
        text[i] = static_cast<UNICODE_CHAR>((text[i] << 8) | (text[i] >> 8));
    return 1;
}

}  // extern "C"
