// The 8-bit table converter (type 1): 256 Unicode characters for the native
// bytes, and 256-byte pages of native bytes for the Unicode characters.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/conv_8bit"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"

#include <array>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

using rq::unicode::EightBitState;
using rq::unicode::kSub;

namespace {

constexpr std::array<unsigned char, 256> makeSubPage()
{
    std::array<unsigned char, 256> page{};
    page.fill(kSub);
    return page;
}

// The page every unmapped high byte shares: no mapping anywhere in it.
constexpr std::array<unsigned char, 256> kSubPage = makeSubPage();

// True when any of the eight bytes of v is zero.
inline bool hasZeroByte(uint64_t v) noexcept
{
    return ((v - 0x0101010101010101ull) & ~v & 0x8080808080808080ull) != 0;
}

// Translates aligned groups of eight bytes that hold no NUL while eight
// characters fit; returns where it stopped.  An aligned group never crosses a
// page, so reading the whole group that holds the NUL is safe even though
// some of its bytes lie past the text (hence no address checking here).
__attribute__((no_sanitize("address"))) const unsigned char *translateAligned(const UNICODE_CHAR *table,
                                                                            const unsigned char *s,
                                                                            UNICODE_CHAR **dp,
                                                                            UNICODE_CHAR *limit) noexcept
{
    typedef uint64_t __attribute__((may_alias)) Word;
    UNICODE_CHAR *d = *dp;
    while (limit - d >= 8) {
        uint64_t v = *reinterpret_cast<const Word *>(s);
        if (hasZeroByte(v))
            break;
        d[0] = table[s[0]];
        d[1] = table[s[1]];
        d[2] = table[s[2]];
        d[3] = table[s[3]];
        d[4] = table[s[4]];
        d[5] = table[s[5]];
        d[6] = table[s[6]];
        d[7] = table[s[7]];
        d += 8;
        s += 8;
    }
    *dp = d;
    return s;
}

#if defined(__SSE2__)
// For tables that map ASCII to itself: aligned groups of sixteen bytes
// without a byte above 0x7F (any group at all when the whole table is the
// identity) are widened at once, the others looked up byte by byte.  Stops
// before a group that holds a NUL or does not fit.
__attribute__((no_sanitize("address"))) const unsigned char *widenAscii(const UNICODE_CHAR *table,
                                                                      const unsigned char *s, UNICODE_CHAR **dp,
                                                                      UNICODE_CHAR *limit, bool identity) noexcept
{
    UNICODE_CHAR *d = *dp;
    const __m128i zero = _mm_setzero_si128();
    while (limit - d >= 16) {
        __m128i v = _mm_load_si128(reinterpret_cast<const __m128i *>(s));
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(v, zero)) != 0)
            break;
        if (identity || _mm_movemask_epi8(v) == 0) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(d), _mm_unpacklo_epi8(v, zero));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(d + 8), _mm_unpackhi_epi8(v, zero));
        } else {
            for (int i = 0; i < 16; ++i)
                d[i] = table[s[i]];
        }
        s += 16;
        d += 16;
    }
    *dp = d;
    return s;
}

// The other direction: aligned groups of eight characters, all below 0x80
// except those looked up one by one; stops at a NUL, at a character that
// needs the decomposition path, or when eight bytes do not fit.
__attribute__((no_sanitize("address"))) const UNICODE_CHAR *narrowAscii(const unsigned char *const *pages,
                                                                      const UNICODE_CHAR *s, unsigned char **dp,
                                                                      unsigned char *limit, bool decompose,
                                                                      bool identity) noexcept
{
    unsigned char *d = *dp;
    const __m128i zero = _mm_setzero_si128();
    // Characters that the group copy may take as they are.
    const __m128i highBits = _mm_set1_epi16(static_cast<short>(identity ? 0xFF00 : 0xFF80));
    while (limit - d >= 8) {
        __m128i v = _mm_load_si128(reinterpret_cast<const __m128i *>(s));
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(v, zero)) != 0)
            break;
        unsigned ascii = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, highBits), zero)));
        if (ascii != 0xFFFF && !decompose) {
            for (int i = 0; i < 8; ++i)
                d[i] = pages[s[i] >> 8][s[i] & 0xFF];
        } else if (ascii != 0xFFFF) {
            unsigned char bytes[8];
            bool fallBack = false;
            for (int i = 0; i < 8; ++i) {
                UNICODE_CHAR c = s[i];
                bytes[i] = pages[c >> 8][c & 0xFF];
                fallBack |= decompose && bytes[i] == rq::unicode::kSub;
            }
            if (fallBack)
                break;
            std::memcpy(d, bytes, 8);
        } else {
            _mm_storel_epi64(reinterpret_cast<__m128i *>(d), _mm_packus_epi16(v, v));
        }
        s += 8;
        d += 8;
    }
    *dp = d;
    return s;
}
#endif

}  // namespace

extern "C" {

RQ_API U32 AppendUnicodeChar(UNICODE_CHAR **cursor, UNICODE_CHAR *limit, UNICODE_CHAR c) noexcept
{
    if (*cursor > limit)
        return UNICODE_DESTINATION_FULL;
    *(*cursor)++ = c;
    return 0;
}

RQ_API U32 AppendToDest(char **cursor, char *limit, const void *bytes, U32 n) noexcept
{
    char *p = *cursor;
    const auto *from = static_cast<const char *>(bytes);
    for (U32 i = 0; i < n; ++i) {
        // The bytes before stay written; the cursor moves only on success.
        if (p > limit)
            return UNICODE_DESTINATION_FULL;
        *p++ = from[i];
    }
    *cursor = p;
    return 0;
}

RQ_API U32 UnicodeTo8Bits(const void *opaque, UNICODE_CHAR c, char *out) noexcept
{
    const auto *state = static_cast<const EightBitState *>(opaque);
    unsigned char b = state->pages[c >> 8][c & 0xFF];
    if (b == kSub)
        return UNICODE_ERR_INVALID_INPUT;
    // Stored only over a non-zero byte: callers use a zero byte to ask
    // whether the character is mapped without writing it.
    if (*out != 0)
        *out = static_cast<char>(b);
    return 0;
}

RQ_API void *UNICODE_NewConverter_8bit(int type, uintptr_t createParameter) noexcept
{
    (void)type;
    (void)createParameter;
    rq::Block<EightBitState> state(RQ_MALLOC(sizeof(EightBitState)));
    rq::Block<UNICODE_CHAR> toUnicode(RQ_MALLOC(256 * sizeof(UNICODE_CHAR)));
    if (!state || !toUnicode) {
        UNICODE_LogError("UNICODE_NewConverter_8bit", UNICODE_ERR_MEMORY, "Memory allocation error");
        return nullptr;
    }
    for (int i = 0; i < 256; ++i) {
        toUnicode[i] = rq::unicode::kReplacement;
        state[0].pages[i] = kSubPage.data();
        state[0].owned[i] = false;
    }
    state[0].toUnicode = toUnicode.release();
    state[0].toAsciiBreaks = 127;
    state[0].fromAsciiBreaks = 126;  // the SUB character itself maps to SUB
    state[0].toHighBreaks = 128;
    state[0].fromHighBreaks = 128;
    return state.release();
}

RQ_API U32 UNICODE_AddMapping_8bit(void *opaque, const U32 *native, const U32 *unicode) noexcept
{
    auto *state = static_cast<EightBitState *>(opaque);
    if (state == nullptr || native == nullptr || unicode == nullptr)
        return UNICODE_ERR_NULL;
    // Only the first value of each side counts.
    U32 n = native[0];
    U32 u = unicode[0];
    if (n > 0xFF || u > 0xFFFF) {
        UNICODE_LogError("UNICODE_AddMapping_8bit", UNICODE_ERR_OUT_OF_BOUNDS, "Character mapping is out of bounds");
        return UNICODE_ERR_OUT_OF_BOUNDS;
    }
    U32 high = u >> 8;
    if (!state->owned[high]) {
        auto *page = static_cast<unsigned char *>(RQ_MALLOC(256));
        if (page == nullptr) {
            UNICODE_LogError("UNICODE_AddMapping_8bit", UNICODE_ERR_MEMORY, "Memory allocation error");
            return UNICODE_ERR_MEMORY;
        }
        std::memset(page, kSub, 256);
        state->pages[high] = page;
        state->owned[high] = true;
    }
    unsigned char &slot = const_cast<unsigned char *>(state->pages[high])[u & 0xFF];
    U32 &fromBreaks = u < 0x80 ? state->fromAsciiBreaks : state->fromHighBreaks;
    if (u >= 1 && u < 0x100)
        fromBreaks += (slot == u ? 1 : 0) - (n == u ? 1 : 0);
    U32 &toBreaks = n < 0x80 ? state->toAsciiBreaks : state->toHighBreaks;
    if (n >= 1)
        toBreaks += (state->toUnicode[n] == n ? 1 : 0) - (u == n ? 1 : 0);
    slot = static_cast<unsigned char>(n);
    state->toUnicode[n] = static_cast<UNICODE_CHAR>(u);
    return 0;
}

RQ_API U32 UNICODE_DestroyConverter_8bit(void *opaque) noexcept
{
    auto *state = static_cast<EightBitState *>(opaque);
    if (state == nullptr)
        return 0;
    RQ_FREE(state->toUnicode);
    for (int i = 0; i < 256; ++i)
        if (state->owned[i])
            RQ_FREE(const_cast<unsigned char *>(state->pages[i]));
    RQ_FREE(state);
    return 0;
}

RQ_API U32 UNICODE_ConvertToUnicode_8bit(void *opaque, const char *source, UNICODE_CHAR *destination, U32 *size,
                                         const char **sourceEnd, U32 flags) noexcept
{
    (void)flags;
    auto *state = static_cast<EightBitState *>(opaque);
    if (state == nullptr || source == nullptr || sourceEnd == nullptr)
        return UNICODE_ERR_NULL;
    if (destination == nullptr) {
        // A scan: how far the source reaches.
        *sourceEnd = source + std::strlen(source);
        return 0;
    }
    if (size == nullptr)
        return UNICODE_ERR_NULL;
    const UNICODE_CHAR *table = state->toUnicode;
    const auto *s = reinterpret_cast<const unsigned char *>(source);
    // Two bytes are kept for the terminator.
    size_t room = *size >= 2 ? (*size - 2) / 2 : 0;
    UNICODE_CHAR *d = destination;
    UNICODE_CHAR *const limit = destination + room;
    U32 rc = 0;
    for (;;) {
        // A group a step while no NUL is among them and they all fit.
#if defined(__SSE2__)
        if ((reinterpret_cast<uintptr_t>(s) & 15) == 0 && state->toAsciiBreaks == 0)
            s = widenAscii(table, s, &d, limit, state->toHighBreaks == 0);
        else
#endif
        if ((reinterpret_cast<uintptr_t>(s) & 7) == 0)
            s = translateAligned(table, s, &d, limit);
        if (*s == 0)
            break;
        if (d == limit) {
            rc = UNICODE_DESTINATION_FULL;
            break;
        }
        *d++ = table[*s++];
    }
    if (*size >= 2)  // the terminator needs its two bytes
        *d = 0;
    *size = static_cast<U32>(d - destination) * 2;
    *sourceEnd = reinterpret_cast<const char *>(s);
    return rc;
}

RQ_API U32 UNICODE_ConvertFromUnicode_8bit(void *opaque, const UNICODE_CHAR *source, char *destination, U32 *size,
                                           const UNICODE_CHAR **sourceEnd, U32 flags) noexcept
{
    auto *state = static_cast<EightBitState *>(opaque);
    if (state == nullptr || source == nullptr || destination == nullptr || size == nullptr || sourceEnd == nullptr)
        return UNICODE_ERR_NULL;
    // One byte is kept for the NUL.
    size_t room = *size >= 1 ? *size - 1 : 0;
    const UNICODE_CHAR *s = source;
    auto *d = reinterpret_cast<unsigned char *>(destination);
    unsigned char *const limit = d + room;
    const unsigned char *const *pages = state->pages;
    const bool decompose = (flags & UNICODE_FLAG_DECOMPOSE) != 0;
    U32 rc = 0;
#if defined(__SSE2__)
    const bool groups = state->fromAsciiBreaks == 0;
#endif
    for (;;) {
#if defined(__SSE2__)
        if (groups && (reinterpret_cast<uintptr_t>(s) & 15) == 0)
            s = narrowAscii(pages, s, &d, limit, decompose, state->fromHighBreaks == 0);
#endif
        UNICODE_CHAR c = *s;
        if (c == 0)
            break;
        if (d == limit) {
            rc = UNICODE_DESTINATION_FULL;
            break;
        }
        unsigned char b = pages[c >> 8][c & 0xFF];
        // A character mapped to SUB itself also takes this path: kept so.
        if (b == kSub && decompose && !UNICODE_iscanonical(c)) {
            UNICODE_CHAR parts[32];
            if (UNICODE_GetDecomposition(c, parts, 32) != 0) {
                char scratch[128];
                U32 length = sizeof scratch;
                const UNICODE_CHAR *partsEnd = parts;
                UNICODE_ConvertFromUnicode_8bit(state, parts, scratch, &length, &partsEnd, 0);
                // The count includes this character's own byte, so a
                // decomposition needs one byte more than its length.
                size_t count = static_cast<size_t>(d - reinterpret_cast<unsigned char *>(destination)) + 1;
                if (count + length >= room) {
                    rc = UNICODE_DESTINATION_FULL;
                    break;
                }
                std::memcpy(d, scratch, length);
                d += length;
                ++s;
                continue;
            }
        }
        *d++ = b;
        ++s;
    }
    if (*size >= 1)
        *d = 0;
    *size = static_cast<U32>(d - reinterpret_cast<unsigned char *>(destination));
    *sourceEnd = s;
    return rc;
}

}  // extern "C"
