// The DX_Mem byte and text helpers: the default compare functions of lists
// and the bounded text copies that string lists store with.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/list_mem"
#include "internal/rq_mem.h"
#include "rqcore/lists.h"

#include <cstring>

namespace {

inline const unsigned char *bytes(const void *p) noexcept { return static_cast<const unsigned char *>(p); }

}  // namespace

extern "C" {

RQ_API S32 DX_MemCmp(const void *a, const void *b, U32 n) noexcept
{
    if (n == 0 || std::memcmp(a, b, n) == 0)
        return 0;
    const unsigned char *pa = bytes(a), *pb = bytes(b);
    while (*pa == *pb) {
        ++pa;
        ++pb;
    }
    // Callers rely on the byte difference itself, not just its sign.
    return static_cast<S32>(*pa) - static_cast<S32>(*pb);
}

RQ_API S32 DX_MemStrnCmp(const void *a, const void *b, U32 n) noexcept
{
    const unsigned char *pa = bytes(a), *pb = bytes(b);
    for (U32 i = 0; i < n; ++i) {
        if (pa[i] != pb[i])
            return static_cast<S32>(pa[i]) - static_cast<S32>(pb[i]);
        if (pa[i] == 0)
            return 0;
    }
    return 0;
}

RQ_API void DX_MemCopy(void *destination, const void *source, U32 n) noexcept
{
    if (n != 0)
        std::memmove(destination, source, n);
}

RQ_API void DX_MemSet(void *destination, U8 byte, U32 n) noexcept
{
    if (n != 0)
        std::memset(destination, byte, n);
}

RQ_API void DX_MemStrnCopy(void *destination, const void *source, U32 n) noexcept
{
    if (n == 0)
        return;
    char *dest = static_cast<char *>(destination);
    size_t len = strnlen(static_cast<const char *>(source), n);
    if (len < n) {
        std::memmove(dest, source, len + 1);
        std::memset(dest + len + 1, 0, n - len - 1);
    } else {
        // Too long: the text is cut so that it stays terminated within n.
        std::memmove(dest, source, n - 1);
        dest[n - 1] = '\0';
    }
}

RQ_API void DX_MemStrnCat(char *destination, const char *source, U32 n) noexcept
{
    size_t len = strnlen(destination, n);
    if (len < n)
        DX_MemStrnCopy(destination + len, source, static_cast<U32>(n - len));
}

RQ_API U32 DX_MemStrCharIsIn(char c, const char *set) noexcept
{
    // The terminator is always "in": scans stop at the end of the text.
    if (c == '\0')
        return 1;
    return set != nullptr && std::strchr(set, c) != nullptr ? 1 : 0;
}

RQ_API char *DX_MemStrCopyUntil(char *destination, const char *source, const char *set) noexcept
{
    char *d = destination;
    while (DX_MemStrCharIsIn(*source, set) == 0)
        *d++ = *source++;
    *d = '\0';
    return destination;
}

RQ_API char *DX_MemStrnCopyUntil(char *destination, const char *source, U32 n, const char *set) noexcept
{
    if (n == 0)
        return destination;
    U32 i = 0;
    while (i + 1 < n && DX_MemStrCharIsIn(source[i], set) == 0) {
        destination[i] = source[i];
        ++i;
    }
    std::memset(destination + i, 0, n - i);
    return destination;
}

RQ_API char *DX_MemStrSkip(const char *text, const char *set) noexcept
{
    return const_cast<char *>(text + (set != nullptr ? std::strspn(text, set) : 0));
}

RQ_API char *DX_MemStrSkipTrailling(char *text, const char *set) noexcept
{
    size_t len = std::strlen(text);
    while (len > 0 && set != nullptr && std::strchr(set, text[len - 1]) != nullptr)
        text[--len] = '\0';
    return text;
}

RQ_API S32 DX_MemS16Cmp(const void *a, const void *b, U32) noexcept
{
    S16 x, y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return x < y ? -1 : (x > y ? 1 : 0);
}

RQ_API S32 DX_MemS32Cmp(const void *a, const void *b, U32) noexcept
{
    S32 x, y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return x < y ? -1 : (x > y ? 1 : 0);
}

}  // extern "C"
