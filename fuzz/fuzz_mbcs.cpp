// Multibyte to Unicode: arbitrary bytes through a converter with one-, two-
// and three-byte sequences, whole and with small destinations; the pieces
// must add up to the whole and the measuring walk must stop where the
// conversion does.
#include "rqcore/unicode.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

UNICODE_CONVERTER *makeConverter()
{
    UNICODE_CONVERTER *c = nullptr;
    if (UNICODE_Initialize(0) != 0 || UNICODE_NewConverter(&c, UNICODE_TYPE_MBCS, 0) != 0)
        __builtin_trap();
    auto add = [c](std::vector<U32> native, U32 unicode) {
        native.push_back(0);
        const U32 u[] = {unicode, 0};
        if (UNICODE_AddMapping(c, native.data(), u) != 0)
            __builtin_trap();
    };
    for (U32 b = 0x20; b < 0x7F; ++b)
        add({b}, b);
    for (U32 lead = 0x81; lead < 0x85; ++lead)
        for (U32 trail = 0x40; trail < 0xFD; trail += 3)
            add({lead, trail}, 0x4E00 + lead * 256 + trail);
    add({0x82}, 0x2082);
    add({0x8F, 0xA2, 0xAF}, 0x02D8);
    add({0x8F, 0xA2, 0xB0, 0xB1}, 0x02D9);
    add({0xA1}, 0xFF61);
    return c;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static UNICODE_CONVERTER *mbcs = makeConverter();
    if (size == 0)
        return 0;
    const U32 room = 2 * (1 + data[0] % 12);
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    text = text.c_str();

    UNICODE_CHAR *whole = nullptr;
    const char *wholeEnd = nullptr;
    if (UNICODE_ConvertToUnicodeBufferExt(mbcs, text.c_str(), &whole, &wholeEnd, 0) != 0)
        __builtin_trap();  // every byte string converts
    U32 measured = 0;
    if (UNICODE_ConvertibleSizeGet(mbcs, text.c_str(), &measured) != 0 ||
        text.c_str() + measured != wholeEnd)
        __builtin_trap();

    std::vector<UNICODE_CHAR> pieces;
    const char *at = text.c_str();
    for (;;) {
        std::vector<UNICODE_CHAR> out(room / 2 + 1, 0xA5A5);
        U32 n = room;
        const char *end = nullptr;
        U32 rc = UNICODE_ConvertToUnicode(mbcs, at, out.data(), &n, &end, 0);
        if (n > room || out[n / 2] != 0 || (rc != 0 && rc != UNICODE_DESTINATION_FULL))
            __builtin_trap();
        pieces.insert(pieces.end(), out.begin(), out.begin() + n / 2);
        if (rc == 0) {
            if (end != wholeEnd)
                __builtin_trap();
            break;
        }
        if (end == at && n == 0)
            break;  // a broken sequence wants more room than this
        at = end;
    }
    size_t length = std::char_traits<char16_t>::length(reinterpret_cast<char16_t *>(whole));
    if (at == wholeEnd || pieces.size() == length) {
        if (pieces.size() != length || (length != 0 && std::memcmp(pieces.data(), whole, length * 2) != 0))
            __builtin_trap();
    }
    UNICODE_BufferFree(reinterpret_cast<void **>(&whole));
    return 0;
}
