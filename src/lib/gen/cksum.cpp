// The 16-bit checksum of arrays: the reflected CRC-16 of polynomial 0x1021.
//
// DX_CksumAdd is the one-byte step callers know.  Arrays go sixteen bytes
// at a time through sixteen constexpr tables ("slicing"): table k holds the
// effect of a byte followed by k zero bytes, so the sixteen lookups of a
// block are independent of each other and the CPU overlaps them.  The
// result is bit-identical to the byte step.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/cksum"
#include "internal/rq_mem.h"

#include "cksum_internal.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace rq::cksum {
namespace {

constexpr U16 step(U16 c, U8 b) noexcept
{
    U32 x = (c ^ b) & 0xFFu;
    x ^= (x << 4) & 0xFFu;
    return static_cast<U16>(((x << 8) | (static_cast<U32>(c) >> 8)) ^ (x >> 4) ^ (x << 3));
}

constexpr int kSlices = 16;
using Tables = std::array<std::array<U16, 256>, kSlices>;

constexpr Tables makeTables() noexcept
{
    Tables t{};
    for (U32 b = 0; b < 256; ++b)
        t[0][b] = step(0, static_cast<U8>(b));
    for (int k = 1; k < kSlices; ++k)
        for (U32 b = 0; b < 256; ++b)
            t[k][b] = static_cast<U16>((t[k - 1][b] >> 8) ^ t[0][t[k - 1][b] & 0xFFu]);
    return t;
}

constexpr Tables kTables = makeTables();

static_assert(kTables[0][1] == 0x1189, "first entry of the reflected 0x1021 table");

}  // namespace

namespace {

// Eight bytes at p as a little-endian number: one load instead of eight.
inline uint64_t load8(const U8 *p) noexcept
{
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline U32 byteAt(uint64_t v, int i) noexcept { return static_cast<U32>(v >> (8 * i)) & 0xFFu; }

}  // namespace

U16 update(U16 c, const U8 *p, size_t n) noexcept
{
    static_assert(std::endian::native == std::endian::little, "byte order of the sliced loads");
    const auto &t = kTables;
    while (n >= kSlices) {
        uint64_t lo = load8(p) ^ c;
        uint64_t hi = load8(p + 8);
        U32 a = t[15][byteAt(lo, 0)] ^ t[14][byteAt(lo, 1)] ^ t[13][byteAt(lo, 2)] ^ t[12][byteAt(lo, 3)];
        U32 b = t[11][byteAt(lo, 4)] ^ t[10][byteAt(lo, 5)] ^ t[9][byteAt(lo, 6)] ^ t[8][byteAt(lo, 7)];
        U32 d = t[7][byteAt(hi, 0)] ^ t[6][byteAt(hi, 1)] ^ t[5][byteAt(hi, 2)] ^ t[4][byteAt(hi, 3)];
        U32 e = t[3][byteAt(hi, 4)] ^ t[2][byteAt(hi, 5)] ^ t[1][byteAt(hi, 6)] ^ t[0][byteAt(hi, 7)];
        c = static_cast<U16>(a ^ b ^ d ^ e);
        p += kSlices;
        n -= kSlices;
    }
    while (n-- > 0)
        c = static_cast<U16>((c >> 8) ^ t[0][(c ^ *p++) & 0xFFu]);
    return c;
}

U16 updateBackward(U16 c, const U8 *p, size_t n) noexcept
{
    // p + n is one past the first byte taken; bytes go last to first, so the
    // checksum meets the top bytes of each eight first.
    const auto &t = kTables;
    const U8 *q = p + n;
    while (n >= kSlices) {
        q -= kSlices;
        uint64_t hi = load8(q + 8) ^ (static_cast<uint64_t>(__builtin_bswap16(c)) << 48);
        uint64_t lo = load8(q);
        U32 a = t[15][byteAt(hi, 7)] ^ t[14][byteAt(hi, 6)] ^ t[13][byteAt(hi, 5)] ^ t[12][byteAt(hi, 4)];
        U32 b = t[11][byteAt(hi, 3)] ^ t[10][byteAt(hi, 2)] ^ t[9][byteAt(hi, 1)] ^ t[8][byteAt(hi, 0)];
        U32 d = t[7][byteAt(lo, 7)] ^ t[6][byteAt(lo, 6)] ^ t[5][byteAt(lo, 5)] ^ t[4][byteAt(lo, 4)];
        U32 e = t[3][byteAt(lo, 3)] ^ t[2][byteAt(lo, 2)] ^ t[1][byteAt(lo, 1)] ^ t[0][byteAt(lo, 0)];
        c = static_cast<U16>(a ^ b ^ d ^ e);
        n -= kSlices;
    }
    while (n-- > 0)
        c = static_cast<U16>((c >> 8) ^ t[0][(c ^ *--q) & 0xFFu]);
    return c;
}

}  // namespace rq::cksum

extern "C" {

RQ_API U16 DX_CksumAdd(U16 checksum, U8 byte) noexcept { return rq::cksum::step(checksum, byte); }

RQ_API U16 DX_CksumArray(U16 initial, const void *bytes, U16 length) noexcept
{
    if (bytes == nullptr)
        return initial;
    return rq::cksum::update(initial, static_cast<const U8 *>(bytes), length);
}

RQ_API U16 DX_CksumArrayLong(U16 initial, const void *bytes, U32 length) noexcept
{
    if (bytes == nullptr)
        return initial;
    return rq::cksum::update(initial, static_cast<const U8 *>(bytes), length);
}

RQ_API U32 DX_CksumArray32(U32 initial, const void *bytes, U32 length) noexcept
{
    if (bytes == nullptr)
        return initial;
    const U8 *p = static_cast<const U8 *>(bytes);
    U32 low = rq::cksum::update(static_cast<U16>(initial & 0xFFFFu), p, length);
    U32 high = rq::cksum::updateBackward(static_cast<U16>(initial >> 16), p, length);
    return (high << 16) + low;
}

}  // extern "C"
