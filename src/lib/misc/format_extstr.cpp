// The growing string: a terminated text in one block of the platform
// allocator that doubles when an append does not fit.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/format_extstr"
#include "internal/rq_mem.h"
#include "rqcore/nls.h"

namespace rq::format {
namespace {

constexpr U32 kDefaultCapacity = 64;
constexpr U32 kMaxCapacity = 0x7FFFFFFFu;

// Makes room for `more` characters after the text and its NUL.
U32 reserve(ZOL_EXTSTR *s, U32 more) noexcept
{
    if (more >= kMaxCapacity - s->length)
        return NLS_ERR_NO_MEMORY;
    U32 needed = s->length + more + 1;
    if (needed <= s->capacity)
        return 0;
    U32 capacity = s->capacity < kDefaultCapacity ? kDefaultCapacity : s->capacity;
    while (capacity < needed)
        capacity = capacity > kMaxCapacity / 2 ? kMaxCapacity : capacity * 2;
    void *grown = RQ_REALLOC(s->text, capacity);
    if (grown == nullptr)
        return NLS_ERR_NO_MEMORY;
    s->text = static_cast<char *>(grown);
    s->capacity = capacity;
    return 0;
}

}  // namespace
}  // namespace rq::format

extern "C" {

RQ_API U32 ZOL_ExtstrInit(ZOL_EXTSTR *string, U32 initialSize) noexcept
{
    if (string == nullptr)
        return NLS_ERR_NULL_POINTER;
    *string = ZOL_EXTSTR{};
    U32 rc = rq::format::reserve(string, initialSize);
    if (rc == 0)
        string->text[0] = '\0';
    return rc;
}

RQ_API U32 ZOL_ExtstrAddLen(ZOL_EXTSTR *string, const char *text, U32 length) noexcept
{
    if (string == nullptr || (text == nullptr && length != 0))
        return NLS_ERR_NULL_POINTER;
    if (string->text == nullptr || string->length >= string->capacity)
        return NLS_ERR_NULL_POINTER;  // not initialised, or already freed
    U32 rc = rq::format::reserve(string, length);
    if (rc != 0)
        return rc;
    if (length != 0)
        std::memcpy(string->text + string->length, text, length);
    string->length += length;
    string->text[string->length] = '\0';
    return 0;
}

RQ_API U32 ZOL_ExtstrAdd(ZOL_EXTSTR *string, const char *text) noexcept
{
    if (text == nullptr)
        return NLS_ERR_NULL_POINTER;
    size_t n = std::strlen(text);
    if (n >= 0x7FFFFFFFu)
        return NLS_ERR_NO_MEMORY;
    return ZOL_ExtstrAddLen(string, text, static_cast<U32>(n));
}

RQ_API U32 ZOL_ExtstrFree(ZOL_EXTSTR *string) noexcept
{
    if (string == nullptr)
        return NLS_ERR_NULL_POINTER;
    if (string->text != nullptr)
        RQ_FREE(string->text);
    *string = ZOL_EXTSTR{};
    return 0;
}

}  // extern "C"
