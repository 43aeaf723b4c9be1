// The UTF-8 converter (type 6).  It needs no table; its state is a copy of
// the text "UTF8" so that create has something non-null to hand back.
//
// Decoding keeps the converter's long-standing rules: two- and three-byte
// forms only (overlong forms accepted), bytes 0xF0-0xFF taken as the
// characters U+00F0-U+00FF, and an invalid byte stopping the conversion.
// ASCII runs go through a fast path that copies a whole aligned group a step.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/conv_utf8"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// Copies the ASCII bytes at s (up to the first NUL or byte >= 0x80) into
// *dp while they fit below limit; returns where it stopped.  Whole aligned
// groups are read at once: an aligned group never crosses a page, so the
// group that holds the NUL is safe to read although part of it lies past the
// text (hence no address checking in this function).
__attribute__((no_sanitize("address"))) const unsigned char *copyAscii(const unsigned char *s, UNICODE_CHAR **dp,
                                                                     UNICODE_CHAR *limit) noexcept
{
    UNICODE_CHAR *d = *dp;
    for (;;) {
#if defined(__SSE2__)
        if ((reinterpret_cast<uintptr_t>(s) & 15) == 0 && limit - d >= 16) {
            const __m128i zero = _mm_setzero_si128();
            __m128i v = _mm_load_si128(reinterpret_cast<const __m128i *>(s));
            unsigned stop = static_cast<unsigned>(_mm_movemask_epi8(v) | _mm_movemask_epi8(_mm_cmpeq_epi8(v, zero)));
            if (stop == 0) {
                _mm_storeu_si128(reinterpret_cast<__m128i *>(d), _mm_unpacklo_epi8(v, zero));
                _mm_storeu_si128(reinterpret_cast<__m128i *>(d + 8), _mm_unpackhi_epi8(v, zero));
                s += 16;
                d += 16;
                continue;
            }
            for (unsigned n = static_cast<unsigned>(__builtin_ctz(stop)); n != 0; --n)
                *d++ = *s++;
            break;
        }
#else
        if ((reinterpret_cast<uintptr_t>(s) & 7) == 0 && limit - d >= 8) {
            typedef uint64_t __attribute__((may_alias)) Word;
            uint64_t v = *reinterpret_cast<const Word *>(s);
            bool stops = ((v | ((v - 0x0101010101010101ull) & ~v)) & 0x8080808080808080ull) != 0;
            if (!stops) {
                for (int i = 0; i < 8; ++i)
                    d[i] = s[i];
                s += 8;
                d += 8;
                continue;
            }
        }
#endif
        unsigned b = *s;
        if (b == 0 || b >= 0x80 || d == limit)
            break;
        *d++ = static_cast<UNICODE_CHAR>(b);
        ++s;
    }
    *dp = d;
    return s;
}

inline bool isTrail(unsigned char b) noexcept
{
    return (b & 0xC0) == 0x80;
}

}  // namespace

extern "C" {

RQ_API void *UNICODE_NewConverter_utf8(int type, uintptr_t createParameter) noexcept
{
    (void)createParameter;
    if (type != UNICODE_TYPE_UTF8)
        return nullptr;
    char *state = RQ_STRDUP("UTF8");
    if (state == nullptr)
        UNICODE_LogError("UNICODE_NewConverter_utf8", UNICODE_ERR_MEMORY, "Memory allocation error");
    return state;
}

RQ_API U32 UNICODE_AddMapping_utf8(void *state, const U32 *native, const U32 *unicode) noexcept
{
    (void)state;
    (void)native;
    (void)unicode;
    return 0;
}

RQ_API U32 UNICODE_DestroyConverter_utf8(void *state) noexcept
{
    if (state != nullptr)
        RQ_FREE(state);
    return 0;
}

RQ_API U32 UNICODE_ConvertToUnicode_utf8(void *state, const char *source, UNICODE_CHAR *destination, U32 *size,
                                         const char **sourceEnd, U32 flags) noexcept
{
    (void)state;
    (void)flags;
    // A null destination is refused here, not taken as a scan.
    if (source == nullptr || destination == nullptr || size == nullptr)
        return UNICODE_ERR_NULL;
    const size_t capacity = *size / 2;
    // One character is kept for the terminator.
    UNICODE_CHAR *d = destination;
    UNICODE_CHAR *const limit = destination + (capacity != 0 ? capacity - 1 : 0);
    const auto *s = reinterpret_cast<const unsigned char *>(source);
    const unsigned char *complete = s;  // after the last complete character
    U32 pendingBits = 0;
    U32 value = 0;
    U32 rc = 0;
    for (;;) {
        if (pendingBits == 0) {
            s = copyAscii(s, &d, limit);
            complete = s;
        }
        const unsigned b = *s;
        if (b == 0)
            break;
        if (d == limit) {
            rc = UNICODE_DESTINATION_FULL;
            break;
        }
        if ((b & 0xF0) == 0xE0) {
            if (pendingBits != 0) {
                rc = UNICODE_ERR_INVALID_INPUT;
                break;
            }
            // The common whole character in one step; the same result as the
            // byte-by-byte walk below.
            if (isTrail(s[1]) && isTrail(s[2])) {
                *d++ = static_cast<UNICODE_CHAR>(((b & 0x0F) << 12) | ((s[1] & 0x3Fu) << 6) | (s[2] & 0x3Fu));
                s += 3;
                complete = s;
                continue;
            }
            value = (b & 0x0F) << 12;
            pendingBits = 12;
        } else if ((b & 0xE0) == 0xC0) {
            if (pendingBits != 0) {
                rc = UNICODE_ERR_INVALID_INPUT;
                break;
            }
            if (isTrail(s[1])) {
                *d++ = static_cast<UNICODE_CHAR>(((b & 0x1F) << 6) | (s[1] & 0x3Fu));
                s += 2;
                complete = s;
                continue;
            }
            value = (b & 0x1F) << 6;
            pendingBits = 6;
        } else if (isTrail(static_cast<unsigned char>(b))) {
            if (pendingBits == 0) {
                rc = UNICODE_ERR_INVALID_INPUT;
                break;
            }
            pendingBits -= 6;
            value |= (b & 0x3F) << pendingBits;
            if (pendingBits == 0) {
                *d++ = static_cast<UNICODE_CHAR>(value);
                complete = s + 1;
            }
        } else {
            // 0xF0-0xFF are not decoded as longer forms: they stand for
            // themselves, as callers of this converter have always seen.
            if (pendingBits != 0) {
                rc = UNICODE_ERR_INVALID_INPUT;
                break;
            }
            *d++ = static_cast<UNICODE_CHAR>(b);
            complete = s + 1;
        }
        ++s;
    }
    if (capacity != 0)
        *d = 0;
    *size = static_cast<U32>(d - destination) * 2;
    if (sourceEnd != nullptr)
        *sourceEnd = reinterpret_cast<const char *>(complete);
    return rc;
}

RQ_API U32 UNICODE_ConvertFromUnicode_utf8(void *state, const UNICODE_CHAR *source, char *destination, U32 *size,
                                           const UNICODE_CHAR **sourceEnd, U32 flags) noexcept
{
    (void)state;
    (void)flags;
    if (source == nullptr || destination == nullptr || size == nullptr)
        return UNICODE_ERR_NULL;
    const size_t total = *size;
    size_t written = 0;
    auto *d = reinterpret_cast<unsigned char *>(destination);
    const UNICODE_CHAR *s = source;
    U32 rc = 0;
    for (;;) {
        const U32 c = *s;
        if (c == 0)
            break;
        // A character is written only when one byte stays free for the NUL.
        if (c < 0x80) {
            if (written + 1 >= total) {
                rc = UNICODE_DESTINATION_FULL;
                break;
            }
            d[written++] = static_cast<unsigned char>(c);
        } else if (c < 0x800) {
            if (written + 2 >= total) {
                rc = UNICODE_DESTINATION_FULL;
                break;
            }
            d[written] = static_cast<unsigned char>(0xC0 | (c >> 6));
            d[written + 1] = static_cast<unsigned char>(0x80 | (c & 0x3F));
            written += 2;
        } else {
            // Surrogates are written one by one as three-byte forms.
            if (written + 3 >= total) {
                rc = UNICODE_DESTINATION_FULL;
                break;
            }
            d[written] = static_cast<unsigned char>(0xE0 | (c >> 12));
            d[written + 1] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
            d[written + 2] = static_cast<unsigned char>(0x80 | (c & 0x3F));
            written += 3;
        }
        ++s;
    }
    if (total != 0)
        d[written] = 0;
    *size = static_cast<U32>(written);
    if (sourceEnd != nullptr)
        *sourceEnd = s;
    return rc;
}

}  // extern "C"
