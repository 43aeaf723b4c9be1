// Code tables: hexadecimal fields and the run-length packing of blocks.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/code_pack"
#include "internal/rq_mem.h"

#include "code_internal.h"

namespace rq::code {
namespace {

constexpr U8 kEscape = 7;
constexpr size_t kLongestRun = 250;

}  // namespace

bool unpackInto(const U8 *in, size_t length, Sink &out) noexcept
{
    size_t i = 0;
    while (i < length) {
        U8 b = in[i++];
        if (b != kEscape) {
            out.put(b);
            continue;
        }
        if (i >= length)
            return false;
        U8 count = in[i++];
        if (count == 1) {
            out.put(kEscape);
            continue;
        }
        if (i >= length)
            return false;
        U8 value = in[i++];
        // A count the packer never writes (0, 2) is taken as it stands.
        for (U8 k = 0; k < count && !out.overflowed(); ++k)
            out.put(value);
    }
    return true;
}

}  // namespace rq::code

using rq::code::Sink;

extern "C" {

RQ_API void DX_CodeToHex(U32 value, char *output, U32 digits) noexcept
{
    if (output == nullptr)
        return;
    for (U32 i = digits; i > 0; --i) {
        output[i - 1] = "0123456789ABCDEF"[value & 0xFu];
        value >>= 4;
    }
}

RQ_API U32 DX_CodeFromHex(const char *text, U32 digits) noexcept
{
    if (text == nullptr)
        return 0;
    U32 value = 0;
    for (U32 i = 0; i < digits; ++i) {
        U32 c = static_cast<U8>(text[i]);
        // Upper case only, and no check: callers rely on the plain formula.
        value = value * 16u + (c < ':' ? c - '0' : c - '7');
    }
    return value;
}

RQ_API U32 DX_CodePack(const void *input, U16 length, void *output, U16 *capacity) noexcept
{
    if ((input == nullptr && length != 0) || output == nullptr || capacity == nullptr)
        return DX_CODE_ERR_NULL;
    // length * 1.7 + 10 in the integer form callers' buffer sizes follow.
    U32 needed = static_cast<U32>(length) * 125u * 136u / 10000u + 10u;
    if (*capacity <= needed) {
        *capacity = 0;
        return DX_CODE_ERR_PACK_SPACE;
    }
    const U8 *in = static_cast<const U8 *>(input);
    Sink out(static_cast<U8 *>(output), *capacity);
    size_t i = 0;
    const size_t n = length;
    while (i < n) {
        U8 b = in[i];
        if (n - i > 3 && in[i + 1] == b && in[i + 2] == b) {
            // A run stops before the last byte of the input and at 250.
            size_t run = 3;
            while (run < rq::code::kLongestRun && i + run < n - 1 && in[i + run] == b)
                ++run;
            out.put(rq::code::kEscape);
            out.put(static_cast<U8>(run));
            out.put(b);
            i += run;
            continue;
        }
        out.put(b);
        if (b == rq::code::kEscape)
            out.put(1);
        ++i;
    }
    // The bound above covers every input (at most 5 bytes for 3 in the
    // middle, 6 for the last 3); the sink is the second line of defence.
    if (out.overflowed()) {
        *capacity = 0;
        return DX_CODE_ERR_PACK_SPACE;
    }
    *capacity = static_cast<U16>(out.length());
    return 0;
}

RQ_API U32 DX_CodeUnpack(const void *input, U16 length, void *output, U16 *capacity) noexcept
{
    if ((input == nullptr && length != 0) || output == nullptr || capacity == nullptr)
        return DX_CODE_ERR_NULL;
    U32 needed = static_cast<U32>(length) * 10000u / 17000u + 10u;
    if (*capacity < needed) {
        *capacity = 0;
        return DX_CODE_ERR_UNPACK_SPACE;
    }
    Sink out(static_cast<U8 *>(output), *capacity);
    bool whole = rq::code::unpackInto(static_cast<const U8 *>(input), length, out);
    if (out.overflowed() || !whole) {
        *capacity = 0;
        return out.overflowed() ? DX_CODE_ERR_UNPACK_SPACE : DX_CODE_ERR_UNPACK_CUT;
    }
    *capacity = static_cast<U16>(out.length());
    return 0;
}

}  // extern "C"
