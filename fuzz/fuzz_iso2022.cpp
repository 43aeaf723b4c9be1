// ISO-2022-JP and ISO-2022-CN both ways: arbitrary bytes decoded whole and
// in pieces of a small capacity (the pieces must add up to the whole and
// never pass the capacity); what decodes is written again, whole and in
// pieces, and must read back as itself; arbitrary UCS-2 is written in
// pieces that must add up to the whole.
#include "fuzz_support.h"
#include "rqcore/unicode.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

UNICODE_CONVERTER *make(U32 type)
{
    UNICODE_CONVERTER *c = nullptr;
    static const char kMaps[] = RQ_DATA_DIR "/charmaps";
    if (UNICODE_Initialize(0) != 0 || UNICODE_NewConverter(&c, type, reinterpret_cast<uintptr_t>(kMaps)) != 0)
        __builtin_trap();
    return c;
}

using U16s = std::basic_string<UNICODE_CHAR>;

std::string encodeWhole(UNICODE_CONVERTER *c, const U16s &text)
{
    char *out = nullptr;
    if (UNICODE_ConvertFromUnicodeBuffer(c, text.c_str(), &out, 0) != 0)
        __builtin_trap();  // every character can be written
    std::string result = out;
    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
    return result;
}

// Writes text with `capacity` bytes a call; the pieces, or nothing when a
// call can make no progress.
void encodePieces(UNICODE_CONVERTER *c, const U16s &text, U32 capacity, const std::string &whole)
{
    std::string pieces;
    const UNICODE_CHAR *at = text.c_str();
    for (;;) {
        std::vector<char> out(capacity + 8, '\x5A');
        U32 n = capacity;
        const UNICODE_CHAR *end = nullptr;
        U32 rc = UNICODE_ConvertFromUnicode(c, at, out.data(), &n, &end, 0);
        if (rc != 0 || n + 1 > capacity || out[n] != 0)
            __builtin_trap();
        for (U32 i = capacity; i < capacity + 8; ++i)
            if (out[i] != '\x5A')
                __builtin_trap();  // written past the capacity
        pieces.append(out.data(), n);
        if (*end == 0 && pieces.size() == whole.size())
            break;
        if (end == at && n == 0)
            return;  // the next character and what announces it need more room
        at = end;
    }
    if (pieces != whole)
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static UNICODE_CONVERTER *converters[2] = {make(UNICODE_TYPE_ISO2022JP), make(UNICODE_TYPE_ISO2022CN)};
    if (size == 0)
        return 0;
    fuzz::LeakGuard guard;
    UNICODE_CONVERTER *c = converters[data[0] & 1];
    const U32 capacity = 2 * (2 + (data[0] >> 1) % 12);  // room for one character and the terminator
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    text = text.c_str();

    UNICODE_CHAR *whole = nullptr;
    const char *wholeEnd = nullptr;
    U32 status = UNICODE_ConvertToUnicodeBufferExt(c, text.c_str(), &whole, &wholeEnd, 0);
    if (status != 0 && status != UNICODE_ERR_INVALID_INPUT)
        __builtin_trap();
    U32 measured = 0;
    UNICODE_ConvertibleSizeGet(c, text.c_str(), &measured);
    if (status == 0 && text.c_str() + measured != wholeEnd)
        __builtin_trap();

    // Decoded in pieces.
    U16s pieces;
    const char *at = text.c_str();
    U32 last = 0;
    for (;;) {
        std::vector<UNICODE_CHAR> out(capacity / 2 + 4, 0xA5A5);
        U32 n = capacity;
        const char *end = nullptr;
        last = UNICODE_ConvertToUnicode(c, at, out.data(), &n, &end, 0);
        if (n > capacity - 2 || out[n / 2] != 0)
            __builtin_trap();
        for (size_t i = capacity / 2; i < out.size(); ++i)
            if (out[i] != 0xA5A5)
                __builtin_trap();
        pieces.append(out.data(), n / 2);
        if (last != UNICODE_DESTINATION_FULL)
            break;
        if (end == at)
            __builtin_trap();  // every character fits in one call
        at = end;
    }
    if (last != status)
        __builtin_trap();
    if (status == 0) {
        U16s decoded(whole);
        if (pieces != decoded)
            __builtin_trap();
        // Written again, it reads back as itself (a cell without a
        // character came back as U+FFFD, which is written as SUB).
        for (UNICODE_CHAR &ch : decoded)
            if (ch == 0xFFFD)
                ch = 0x1A;
        const std::string again = encodeWhole(c, decoded);
        UNICODE_CHAR *reread = nullptr;
        if (UNICODE_ConvertToUnicodeBuffer(c, again.c_str(), &reread, 0) != 0 || U16s(reread) != decoded)
            __builtin_trap();
        UNICODE_BufferFree(reinterpret_cast<void **>(&reread));
        encodePieces(c, decoded, capacity / 2 + (data[0] >> 5), again);
    }
    if (whole != nullptr)
        UNICODE_BufferFree(reinterpret_cast<void **>(&whole));

    // The bytes taken as UCS-2.
    U16s wide;
    for (size_t i = 1; i + 1 < size; i += 2) {
        UNICODE_CHAR ch = static_cast<UNICODE_CHAR>(data[i] | data[i + 1] << 8);
        if (ch == 0)
            break;
        wide.push_back(ch);
    }
    encodePieces(c, wide, capacity / 2 + (data[0] >> 5), encodeWhole(c, wide));
    return 0;
}
