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

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

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

U16 tableUpdate(U16 c, const U8 *p, size_t n) noexcept
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

}  // namespace

#if defined(__x86_64__) || defined(__i386__)
namespace {

// Carry-less multiplication path.  The 16-bit checksum of polynomial P is
// the low half of the reflected 32-bit CRC of Q = P * x^16 (the remainder
// modulo Q is the one modulo P shifted up by 16), so the well-known 32-bit
// folding applies with Q's constants: fold four 128-bit lanes by 512 bits,
// then one lane by 128 bits, then 128 to 64 bits and a Barrett step.
// Folding is plain arithmetic modulo Q and does not need Q irreducible.

constexpr uint64_t kQ = 0x110210000ull;  // x^32 + x^28 + x^21 + x^16

constexpr uint64_t xPowMod(U32 e) noexcept
{
    uint64_t r = 1;
    for (U32 i = 0; i < e; ++i) {
        r <<= 1;
        if ((r >> 32) & 1)
            r ^= kQ;
    }
    return r;
}

constexpr uint64_t reflect(uint64_t v, int bits) noexcept
{
    uint64_t r = 0;
    for (int i = 0; i < bits; ++i)
        if ((v >> i) & 1)
            r |= uint64_t{1} << (bits - 1 - i);
    return r;
}

// floor(x^64 / Q), 33 bits.
constexpr uint64_t muQ() noexcept
{
    // Long division of x^64 by Q with a 65-bit dividend kept as high bit + 64 bits.
    uint64_t q = 0;
    uint64_t rem = 0;  // the running remainder, below x^33
    for (int i = 64; i >= 0; --i) {
        rem = (rem << 1) | (i == 64 ? 1u : 0u);
        if ((rem >> 32) & 1) {
            rem ^= kQ;
            q |= uint64_t{1} << i;
        }
    }
    return q;
}

constexpr uint64_t fold(U32 e) noexcept { return reflect(xPowMod(e), 32) << 1; }

alignas(16) constexpr uint64_t kK1K2[2] = {fold(4 * 128 + 32), fold(4 * 128 - 32)};
alignas(16) constexpr uint64_t kK3K4[2] = {fold(128 + 32), fold(128 - 32)};
alignas(16) constexpr uint64_t kK5[2] = {fold(64), 0};
alignas(16) constexpr uint64_t kPolyMu[2] = {reflect(kQ, 33), reflect(muQ(), 33)};

// The same constants worked out by hand with arbitrary-precision polynomials.
static_assert(kPolyMu[0] == 0x10811 && kPolyMu[1] == 0x11C581911, "reflected Q and floor(x^64 / Q)");
static_assert(kK1K2[0] == 0x19A3C && kK1K2[1] == 0x14FF2 && kK3K4[0] == 0x8E10 && kK3K4[1] == 0x189AE &&
                  kK5[0] == 0x114AA,
              "folding constants");

#define RQ_CLMUL_TARGET __attribute__((target("pclmul,sse4.1")))

RQ_CLMUL_TARGET inline __m128i load(const U8 *p) noexcept
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

// x moved on by the distance k stands for, plus the next lane.
RQ_CLMUL_TARGET inline __m128i foldInto(__m128i x, __m128i k, __m128i next) noexcept
{
    __m128i lo = _mm_clmulepi64_si128(x, k, 0x00);
    __m128i hi = _mm_clmulepi64_si128(x, k, 0x11);
    return _mm_xor_si128(_mm_xor_si128(hi, lo), next);
}

// n is at least 64 and a multiple of 16.
RQ_CLMUL_TARGET U16 clmulUpdate(U16 c, const U8 *buf, size_t n) noexcept
{
    __m128i x1 = _mm_xor_si128(load(buf), _mm_cvtsi32_si128(c));
    __m128i x2 = load(buf + 16), x3 = load(buf + 32), x4 = load(buf + 48);
    __m128i k = _mm_load_si128(reinterpret_cast<const __m128i *>(kK1K2));
    buf += 64;
    n -= 64;
    while (n >= 64) {
        x1 = foldInto(x1, k, load(buf));
        x2 = foldInto(x2, k, load(buf + 16));
        x3 = foldInto(x3, k, load(buf + 32));
        x4 = foldInto(x4, k, load(buf + 48));
        buf += 64;
        n -= 64;
    }
    k = _mm_load_si128(reinterpret_cast<const __m128i *>(kK3K4));
    x1 = foldInto(x1, k, x2);
    x1 = foldInto(x1, k, x3);
    x1 = foldInto(x1, k, x4);
    while (n >= 16) {
        x1 = foldInto(x1, k, load(buf));
        buf += 16;
        n -= 16;
    }
    // 128 to 64 bits.
    const __m128i low32 = _mm_setr_epi32(~0, 0, ~0, 0);
    x2 = _mm_clmulepi64_si128(x1, k, 0x10);
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), x2);
    k = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(kK5));
    x2 = _mm_srli_si128(x1, 4);
    x1 = _mm_clmulepi64_si128(_mm_and_si128(x1, low32), k, 0x00);
    x1 = _mm_xor_si128(x1, x2);
    // Barrett reduction to 32 bits; the checksum is the low half.
    k = _mm_load_si128(reinterpret_cast<const __m128i *>(kPolyMu));
    x2 = _mm_clmulepi64_si128(_mm_and_si128(x1, low32), k, 0x10);
    x2 = _mm_clmulepi64_si128(_mm_and_si128(x2, low32), k, 0x00);
    x1 = _mm_xor_si128(x1, x2);
    return static_cast<U16>(_mm_extract_epi32(x1, 1));
}

bool detectClmul() noexcept
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
}

const bool kHaveClmul = detectClmul();

}  // namespace
#endif

U16 update(U16 c, const U8 *p, size_t n) noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    // Below a few blocks the fold's set-up costs more than the tables.
    if (n >= 128 && kHaveClmul) {
        size_t bulk = n & ~size_t{15};
        c = clmulUpdate(c, p, bulk);
        p += bulk;
        n -= bulk;
    }
#endif
    return tableUpdate(c, p, n);
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
