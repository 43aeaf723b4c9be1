// Code tables: one block between binary bytes and 6-bit characters.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/code_block"
#include "internal/rq_mem.h"

#include "cksum_internal.h"
#include "code_internal.h"

using rq::code::Sink;

namespace {

constexpr U8 kNewline = 0x0A;
constexpr U8 kFirst = '0';
constexpr U8 kLast = '0' + 63;

// Expected sizes in the integer forms callers size their buffers by.
constexpr U32 encodedPacked(U32 n) { return n * 23000u / 10000u + 10u; }
constexpr U32 encodedPlain(U32 n) { return n * 13500u / 10000u + 10u; }
constexpr U32 decodedPacked(U32 n) { return n * 10000u / 23000u + 10u; }
constexpr U32 decodedPlain(U32 n) { return n * 10000u / 13500u + 10u; }

// The values of bytes, three bytes to four values; a short tail gives two
// or three values with nothing marking the padding.
void encode(DX_CODE_STATE *state, const U8 *in, size_t n, char *out, U16 *position) noexcept
{
    size_t i = 0;
    for (; n - i >= 3; i += 3) {
        U8 a = in[i], b = in[i + 1], c = in[i + 2];
        DX_CodeSet(state, out, position, static_cast<U8>(a >> 2));
        DX_CodeSet(state, out, position, static_cast<U8>(((a & 3) << 4) | (b >> 4)));
        DX_CodeSet(state, out, position, static_cast<U8>(((b & 15) << 2) | (c >> 6)));
        DX_CodeSet(state, out, position, static_cast<U8>(c & 63));
    }
    if (n - i == 1) {
        DX_CodeSet(state, out, position, static_cast<U8>(in[i] >> 2));
        DX_CodeSet(state, out, position, static_cast<U8>((in[i] & 3) << 4));
    } else if (n - i == 2) {
        U8 a = in[i], b = in[i + 1];
        DX_CodeSet(state, out, position, static_cast<U8>(a >> 2));
        DX_CodeSet(state, out, position, static_cast<U8>(((a & 3) << 4) | (b >> 4)));
        DX_CodeSet(state, out, position, static_cast<U8>((b & 15) << 2));
    }
}

// count characters to bytes; the checksum runs over the values and the
// newlines.  Returns 0 or the decode's code.
U32 decode(const U8 *chars, size_t count, Sink &out, U16 *checksum) noexcept
{
    U16 c = 0;
    U8 group[4];
    int have = 0;
    bool afterNewline = false;
    for (size_t i = 0; i < count; ++i) {
        U8 ch = chars[i];
        if (ch == kNewline) {
            if (afterNewline)
                return DX_CODE_ERR_CHARACTER;  // lines are never empty
            afterNewline = true;
            c = DX_CksumAdd(c, kNewline);
            continue;
        }
        afterNewline = false;
        if (ch < kFirst || ch > kLast)
            return DX_CODE_ERR_CHARACTER;
        U8 v = static_cast<U8>(ch - kFirst);
        c = DX_CksumAdd(c, v);
        group[have++] = v;
        if (have == 4) {
            out.put(static_cast<U8>((group[0] << 2) | (group[1] >> 4)));
            out.put(static_cast<U8>((group[1] << 4) | (group[2] >> 2)));
            out.put(static_cast<U8>((group[2] << 6) | group[3]));
            have = 0;
        }
    }
    if (have == 1) {
        out.put(static_cast<U8>(group[0] << 2));
    } else if (have >= 2) {
        out.put(static_cast<U8>((group[0] << 2) | (group[1] >> 4)));
        if (have == 3)
            out.put(static_cast<U8>((group[1] << 4) | (group[2] >> 2)));
    }
    *checksum = c;
    return 0;
}

}  // namespace

extern "C" {

RQ_API U32 DX_CodeSet(DX_CODE_STATE *state, char *output, U16 *position, U8 value) noexcept
{
    if (state == nullptr || output == nullptr || position == nullptr)
        return 0;
    if (++state->column == DX_CODE_LINE + 1) {
        output[(*position)++] = static_cast<char>(kNewline);
        state->running = DX_CksumAdd(state->running, kNewline);
        state->column = 1;
    }
    output[(*position)++] = static_cast<char>(kFirst + (value & 63));
    state->running = DX_CksumAdd(state->running, static_cast<U8>(value & 63));
    return 0;
}

RQ_API U32 DX_CodeToChar(DX_CODE_STATE *state, const void *input, U16 length, char *output, U16 *capacity,
                         void *packing, U16 packingCapacity) noexcept
{
    if (state == nullptr || (input == nullptr && length != 0) || output == nullptr || capacity == nullptr)
        return DX_CODE_ERR_NULL;
    state->version = DX_CODE_VERSION;
    state->type = packing != nullptr ? DX_CODE_PACKED : DX_CODE_PLAIN;
    U32 expected = packing != nullptr ? encodedPacked(length) : encodedPlain(length);
    if (expected >= 0x10000u)
        return DX_CODE_ERR_ENCODE_SIZE;
    if (*capacity <= expected) {
        *capacity = 0;
        return DX_CODE_ERR_ENCODE_SPACE;
    }
    const U8 *bytes = static_cast<const U8 *>(input);
    U16 n = length;
    if (packing != nullptr) {
        U16 packed = packingCapacity;
        U32 status = DX_CodePack(input, length, packing, &packed);
        if (status != 0) {
            *capacity = 0;
            return status;
        }
        bytes = static_cast<const U8 *>(packing);
        n = packed;
    }
    // Packing gives at most 5 bytes for 3, so the characters stay below
    // the expected count checked above.
    state->column = 0;
    state->running = 0;
    U16 position = 0;
    encode(state, bytes, n, output, &position);
    state->count = position;
    state->checksum = state->running;
    *capacity = position;
    return 0;
}

RQ_API U32 DX_CodeToBin(DX_CODE_STATE *state, const char *characters, U16 count, void *output, U16 *capacity,
                        void *scratch, U16 scratchCapacity) noexcept
{
    if (state == nullptr || (characters == nullptr && count != 0) || output == nullptr || capacity == nullptr)
        return DX_CODE_ERR_NULL;
    U16 room = *capacity;
    *capacity = 0;
    if (state->version != DX_CODE_VERSION)
        return DX_CODE_ERR_VERSION;
    if (state->type == DX_CODE_UNPACKED && scratch != nullptr)
        return DX_CODE_ERR_DECODE_TYPE;
    U32 expected = state->type == DX_CODE_PACKED ? decodedPacked(count) : decodedPlain(count);
    if (room < expected)
        return DX_CODE_ERR_DECODE_SPACE;
    if (expected > 0xFFFFu)
        return DX_CODE_ERR_DECODE_SIZE;
    const U8 *chars = reinterpret_cast<const U8 *>(characters);
    U16 checksum = 0;
    if (scratch == nullptr) {
        Sink out(static_cast<U8 *>(output), room);
        U32 status = decode(chars, count, out, &checksum);
        if (status == 0 && out.overflowed())
            status = DX_CODE_ERR_DECODE_SPACE;
        if (status == 0 && checksum != state->checksum)
            status = DX_CODE_ERR_CHECKSUM;
        if (status == 0)
            *capacity = static_cast<U16>(out.length());
        return status;
    }
    // With a scratch buffer the decoded bytes are always unpacked, whatever
    // the block's type: callers rely on it.
    Sink decoded(static_cast<U8 *>(scratch), scratchCapacity);
    U32 status = decode(chars, count, decoded, &checksum);
    if (status == 0 && decoded.overflowed())
        status = DX_CODE_ERR_DECODE_SPACE;
    if (status == 0 && checksum != state->checksum)
        status = DX_CODE_ERR_CHECKSUM;
    if (status != 0)
        return status;
    U16 unpacked = room;
    status = DX_CodeUnpack(scratch, static_cast<U16>(decoded.length()), output, &unpacked);
    if (status == 0)
        *capacity = unpacked;
    return status;
}

}  // extern "C"
