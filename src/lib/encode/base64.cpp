// Base64 of memory buffers and whole files, and the encode family's error
// logger.
//
// The encoder turns 24 input bytes into 32 characters per step through a
// table of 4096 character pairs (one entry per 12 bits).  The decoder takes
// 8 characters per step through four pre-shifted tables and drops to the
// exact one-character rules only around a character outside the alphabet,
// an '=' or the end of the text, so line ends cost little and the tolerant
// semantics stay exact.

#define RQ_SOURCE_TAG "src/lib/core/lib/encode/base64"
#include "internal/rq_mem.h"
#include "lib/encode/encode_internal.h"
#include "rqcore/encode.h"
#include "rqcore/log.h"

#include <array>
#include <cstdint>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The set the string checks accept: the 64 letters and '='.
constexpr char kValidity[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+/=";

constexpr std::array<bool, 256> makeValiditySet()
{
    std::array<bool, 256> set{};
    for (const char *p = kValidity; *p != '\0'; ++p)
        set[static_cast<unsigned char>(*p)] = true;
    return set;
}
constexpr auto kIsValid = makeValiditySet();

// Value of a character by its low 7 bits, -1 outside the alphabet: a byte
// above 127 decodes as the character its low 7 bits name.
constexpr std::array<int32_t, 128> makeDecodeTable()
{
    std::array<int32_t, 128> t{};
    for (auto &v : t)
        v = -1;
    for (int i = 0; i < 64; ++i)
        t[static_cast<unsigned char>(kAlphabet[i])] = i;
    return t;
}
constexpr auto kDecode = makeDecodeTable();

// Two characters for every 12-bit value, in memory order.
constexpr std::array<uint16_t, 4096> makePairTable()
{
    std::array<uint16_t, 4096> t{};
    for (unsigned v = 0; v < 4096; ++v)
        t[v] = static_cast<uint16_t>(static_cast<unsigned char>(kAlphabet[v >> 6]) |
                                     (static_cast<unsigned char>(kAlphabet[v & 63]) << 8));
    return t;
}
constexpr auto kPairs = makePairTable();

// The four tables of the fast decoder: the value of the character at each
// place of a group, already shifted into its 24-bit place; a character
// outside the alphabet (and '=', and NUL) sets the top byte.
constexpr uint32_t kBad = 0xFF000000u;
constexpr std::array<std::array<uint32_t, 256>, 4> makeShiftedTables()
{
    std::array<std::array<uint32_t, 256>, 4> t{};
    for (int place = 0; place < 4; ++place)
        for (int c = 0; c < 256; ++c) {
            int32_t v = kDecode[c & 0x7F];
            t[place][c] = v < 0 ? kBad : static_cast<uint32_t>(v) << (18 - 6 * place);
        }
    return t;
}
constexpr auto kShifted = makeShiftedTables();

inline uint64_t load64(const unsigned char *p) noexcept
{
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Six input bytes (read as eight) -> eight characters, a pair per store.
inline void encodeSix(const unsigned char *in, char *out) noexcept
{
    uint64_t a = __builtin_bswap64(load64(in));
    std::memcpy(out, &kPairs[a >> 52], 2);
    std::memcpy(out + 2, &kPairs[(a >> 40) & 0xFFF], 2);
    std::memcpy(out + 4, &kPairs[(a >> 28) & 0xFFF], 2);
    std::memcpy(out + 6, &kPairs[(a >> 16) & 0xFFF], 2);
}

// Writes the 4*ceil(length/3) characters of `data` to `out` (no NUL).
size_t encodeInto(const unsigned char *in, size_t length, char *out) noexcept
{
    char *o = out;
    size_t i = 0;
    // 24 input bytes -> 32 characters; the last 8-byte load ends 2 bytes
    // past the 24.
    for (; i + 26 <= length; i += 24, o += 32) {
        encodeSix(in + i, o);
        encodeSix(in + i + 6, o + 8);
        encodeSix(in + i + 12, o + 16);
        encodeSix(in + i + 18, o + 24);
    }
    for (; i + 3 <= length; i += 3, o += 4) {
        uint32_t v = uint32_t{in[i]} << 16 | uint32_t{in[i + 1]} << 8 | in[i + 2];
        std::memcpy(o, &kPairs[v >> 12], 2);
        std::memcpy(o + 2, &kPairs[v & 0xFFF], 2);
    }
    size_t rest = length - i;
    if (rest == 1) {
        o[0] = kAlphabet[in[i] >> 2];
        o[1] = kAlphabet[(in[i] & 3) << 4];
        o[2] = '=';
        o[3] = '=';
        o += 4;
    } else if (rest == 2) {
        o[0] = kAlphabet[in[i] >> 2];
        o[1] = kAlphabet[((in[i] & 3) << 4) | (in[i + 1] >> 4)];
        o[2] = kAlphabet[(in[i + 1] & 15) << 2];
        o[3] = '=';
        o += 4;
    }
    return static_cast<size_t>(o - out);
}

struct DecodeResult {
    size_t length;
    U32 status;
};

// Decodes `text` (`length` characters before its NUL) into `out`, which has
// room for (length/4)*3 + 6 bytes.
DecodeResult decodeInto(const unsigned char *text, size_t length, unsigned char *out) noexcept
{
    const unsigned char *p = text;
    const unsigned char *end = text + length;
    unsigned char *o = out;
    U32 status = 0;
    unsigned phase = 0;  // valid characters of the current group seen
    unsigned acc = 0;
    for (;;) {
        // Fast path at a group boundary: 8 characters, 6 bytes.  The 8-byte
        // store stays inside the buffer: at most 3/4 of the characters read
        // so far have become bytes, and 8 more characters remain.
        if (phase == 0) {
            while (end - p >= 8) {
                uint32_t v = kShifted[0][p[0]] | kShifted[1][p[1]] | kShifted[2][p[2]] | kShifted[3][p[3]];
                uint32_t w = kShifted[0][p[4]] | kShifted[1][p[5]] | kShifted[2][p[6]] | kShifted[3][p[7]];
                if (((v | w) & kBad) != 0) {
                    if ((v & kBad) != 0)
                        break;
                    o[0] = static_cast<unsigned char>(v >> 16);
                    o[1] = static_cast<unsigned char>(v >> 8);
                    o[2] = static_cast<unsigned char>(v);
                    o += 3;
                    p += 4;
                    break;
                }
                uint64_t bytes = __builtin_bswap64((uint64_t{v} << 40) | (uint64_t{w} << 16));
                std::memcpy(o, &bytes, 8);
                o += 6;
                p += 8;
            }
            if (end - p >= 4) {
                uint32_t v = kShifted[0][p[0]] | kShifted[1][p[1]] | kShifted[2][p[2]] | kShifted[3][p[3]];
                if ((v & kBad) == 0) {
                    o[0] = static_cast<unsigned char>(v >> 16);
                    o[1] = static_cast<unsigned char>(v >> 8);
                    o[2] = static_cast<unsigned char>(v);
                    o += 3;
                    p += 4;
                    continue;
                }
            }
        }
        // The exact rules, one character at a time.
        if (p == end)
            break;
        unsigned char c = *p++;
        if (c == '=')
            return {static_cast<size_t>(o - out), status};  // '=' ends the text; the rest is ignored
        int32_t v = kDecode[c & 0x7F];
        if (v < 0) {
            status = ENCODE_WARN_SKIPPED;
            continue;
        }
        switch (phase) {
        case 0:
            acc = static_cast<unsigned>(v);
            break;
        case 1:
            *o++ = static_cast<unsigned char>((acc << 2) | (static_cast<unsigned>(v) >> 4));
            acc = static_cast<unsigned>(v) & 0x0F;
            break;
        case 2:
            *o++ = static_cast<unsigned char>((acc << 4) | (static_cast<unsigned>(v) >> 2));
            acc = static_cast<unsigned>(v) & 0x03;
            break;
        default:
            *o++ = static_cast<unsigned char>((acc << 6) | static_cast<unsigned>(v));
            break;
        }
        phase = (phase + 1) & 3;
    }
    if (phase != 0)
        status = ENCODE_ERR_INCOMPLETE;  // replaces the skip warning
    return {static_cast<size_t>(o - out), status};
}

bool isBase64Letter(int c) noexcept
{
    return c >= 0 && c < 128 && kDecode[c] >= 0;
}

}  // namespace

namespace rq::encode {

size_t base64EncodeInto(const unsigned char *in, size_t length, char *out) noexcept
{
    return encodeInto(in, length, out);
}

size_t base64DecodeInto(const unsigned char *text, size_t length, unsigned char *out, U32 *status) noexcept
{
    DecodeResult r = decodeInto(text, length, out);
    *status = r.status;
    return r.length;
}

}  // namespace rq::encode

extern "C" {

RQ_API void ENCODE_logError(const char *function_name, U32 code, const char *message) noexcept
{
    if (message == nullptr)
        message = "ENCODELIB error";
    if (function_name == nullptr) {
        WriteErrLog(2, code, message);
        return;
    }
    char text[512];
    SIS_CrtSNPrintf(text, sizeof text, "%s:  %s", function_name, message);
    WriteErrLog(2, code, text);
}

RQ_API U32 ENCODE_isBase64String(const char *str) noexcept
{
    if (str == nullptr)
        return ENCODE_ERR_BADARG;
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(str); *p != 0; ++p)
        if (!kIsValid[*p])
            return 1;
    return 0;
}

RQ_API U32 ENCODE_stripBase64String(char *str) noexcept
{
    if (str == nullptr)
        return ENCODE_ERR_BADARG;
    char *w = str;
    for (const char *r = str; *r != '\0'; ++r)
        if (kIsValid[static_cast<unsigned char>(*r)])
            *w++ = *r;
    *w = '\0';
    return (w - str) % 4 != 0 ? 1u : 0u;
}

RQ_API U32 ENCODE_convertToBase64(const void *data, U32 length, char **out) noexcept
{
    if (data == nullptr || out == nullptr)
        return ENCODE_ERR_BADARG;
    // length*4/3 + 5 bytes, all zero after the text.
    uint64_t size = uint64_t{length} * 4 / 3 + 5;
    char *buffer = size <= SIZE_MAX ? static_cast<char *>(RQ_MALLOC(static_cast<size_t>(size))) : nullptr;
    if (buffer == nullptr) {
        ENCODE_logError("ENCODE_convertToBase64()", ENCODE_ERR_NOMEM, "Not enough core");
        return ENCODE_ERR_NOMEM;
    }
    size_t n = encodeInto(static_cast<const unsigned char *>(data), length, buffer);
    std::memset(buffer + n, 0, static_cast<size_t>(size) - n);
    *out = buffer;
    return 0;
}

RQ_API U32 ENCODE_convertFromBase64(const char *text, U32 *out_length, char **out) noexcept
{
    if (text == nullptr || out_length == nullptr || out == nullptr)
        return ENCODE_ERR_BADARG;
    size_t length = std::strlen(text);
    size_t cleared = (length / 4) * 3 + 1;
    auto *buffer = static_cast<unsigned char *>(RQ_MALLOC(cleared + 5));
    if (buffer == nullptr) {
        // The decoder reports under the encoder's name; log readers match on it.
        ENCODE_logError("ENCODE_convertToBase64()", ENCODE_ERR_NOMEM, "Not enough core");
        return ENCODE_ERR_NOMEM;
    }
    DecodeResult r = decodeInto(reinterpret_cast<const unsigned char *>(text), length, buffer);
    // Everything after the data up to the cleared size is zero, the NUL
    // included (a short last group can end beyond that size).
    if (r.length < cleared)
        std::memset(buffer + r.length, 0, cleared - r.length);
    else
        buffer[r.length] = 0;
    *out = reinterpret_cast<char *>(buffer);
    *out_length = static_cast<U32>(r.length);
    return r.status;
}

RQ_API U32 ENCODE_fileConvertToBase64(FILE *in, FILE *out, const char *line_end) noexcept
{
    if (in == nullptr || out == nullptr)
        return ENCODE_ERR_BADARG;
    if (line_end == nullptr)
        line_end = "\r\n";
    size_t endLength = std::strlen(line_end);
    unsigned char chunk[54];
    char line[72];
    while (!std::feof(in)) {
        size_t got = std::fread(chunk, 1, sizeof chunk, in);
        // A read that returns nothing ends the conversion with 0x18C05, even at
        // the end of a file whose length is a multiple of 54; callers rely on it.
        if (got == 0)
            return ENCODE_ERR_READ;
        size_t n = encodeInto(chunk, got, line);
        if (std::fwrite(line, 1, n, out) != n ||
            (endLength != 0 && std::fwrite(line_end, 1, endLength, out) != endLength))
            return ENCODE_ERR_WRITE;
    }
    return 0;
}

RQ_API U32 ENCODE_fileConvertFromBase64(FILE *in, FILE *out) noexcept
{
    if (in == nullptr || out == nullptr)
        return ENCODE_ERR_BADARG;
    U32 status = 0;
    char chunk[73];
    while (!std::feof(in)) {
        size_t got = std::fread(chunk, 1, 72, in);
        if (got == 0)
            return ENCODE_ERR_READ;
        size_t kept = 0;
        for (size_t i = 0; i < got; ++i) {
            unsigned char c = static_cast<unsigned char>(chunk[i]);
            if (isBase64Letter(c) || c == '=')
                chunk[kept++] = static_cast<char>(c);
        }
        // Top the chunk up to as many kept characters as the read returned.
        while (kept < got) {
            int c = std::fgetc(in);
            if (c == EOF)
                break;
            if (isBase64Letter(c) || c == '=')
                chunk[kept++] = static_cast<char>(c);
        }
        chunk[kept] = '\0';
        U32 decodedLength = 0;
        char *decoded = nullptr;
        status = ENCODE_convertFromBase64(chunk, &decodedLength, &decoded);
        if (status == 0 || status == ENCODE_WARN_SKIPPED) {
            size_t written = std::fwrite(decoded, 1, decodedLength, out);
            RQ_FREE(decoded);
            if (written != decodedLength)
                return ENCODE_ERR_WRITE;
        } else if (decoded != nullptr) {
            RQ_FREE(decoded);
        }
        if (status == ENCODE_ERR_NOMEM)
            return status;
    }
    return status;
}

}  // extern "C"
