// Canonical decompositions of the Basic Multilingual Plane, used by the
// 8-bit converter to write an unmapped accented letter as its base letter
// and combining marks.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/unicode_decomp"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"

#include <algorithm>
#include <iterator>

namespace {

#include "lib/unicode/unicode_decomp_table.inc"

// Hangul syllables decompose by arithmetic (Unicode chapter 3.12).
constexpr U32 kSBase = 0xAC00, kLBase = 0x1100, kVBase = 0x1161, kTBase = 0x11A7;
constexpr U32 kVCount = 21, kTCount = 28, kSCount = 11172;

int findIndex(UNICODE_CHAR c) noexcept
{
    const U16 *end = kDecompCodes + std::size(kDecompCodes);
    const U16 *at = std::lower_bound(kDecompCodes, end, c);
    return at != end && *at == c ? static_cast<int>(at - kDecompCodes) : -1;
}

}  // namespace

extern "C" {

RQ_API int UNICODE_iscanonical(UNICODE_CHAR c) noexcept
{
    if (c - kSBase < kSCount)
        return 0;
    return findIndex(c) < 0 ? 1 : 0;
}

RQ_API U32 UNICODE_GetDecomposition(UNICODE_CHAR c, UNICODE_CHAR *out, U32 max) noexcept
{
    UNICODE_CHAR parts[4];
    const UNICODE_CHAR *from = parts;
    U32 n = 0;
    if (c - kSBase < kSCount) {
        U32 s = c - kSBase;
        parts[n++] = static_cast<UNICODE_CHAR>(kLBase + s / (kVCount * kTCount));
        parts[n++] = static_cast<UNICODE_CHAR>(kVBase + (s % (kVCount * kTCount)) / kTCount);
        if (s % kTCount != 0)
            parts[n++] = static_cast<UNICODE_CHAR>(kTBase + s % kTCount);
    } else {
        int i = findIndex(c);
        if (i < 0)
            return 0;
        from = kDecompPool + kDecompStart[i];
        n = static_cast<U32>(kDecompStart[i + 1] - kDecompStart[i]);
    }
    if (out != nullptr) {
        U32 copy = std::min(n, max);
        std::copy(from, from + copy, out);
        if (copy < max)
            out[copy] = 0;
    }
    return n;
}

}  // extern "C"
