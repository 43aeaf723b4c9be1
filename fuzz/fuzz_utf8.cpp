// UTF-8 to Unicode: arbitrary bytes converted whole and with small
// destinations; the pieces must add up to the whole, and a converted text
// must come back unchanged through UTF-8.
#include "rqcore/unicode.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static UNICODE_CONVERTER *utf8 = [] {
        UNICODE_CONVERTER *c = nullptr;
        if (UNICODE_Initialize(0) != 0 || UNICODE_NewConverter(&c, UNICODE_TYPE_UTF8, 0) != 0)
            __builtin_trap();
        return c;
    }();
    if (size == 0)
        return 0;
    const U32 room = 2 * (2 + data[0] % 16);  // at least one character and the terminator
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    text = text.c_str();  // up to the first NUL

    UNICODE_CHAR *whole = nullptr;
    const char *wholeEnd = nullptr;
    U32 rc = UNICODE_ConvertToUnicodeBufferExt(utf8, text.c_str(), &whole, &wholeEnd, 0);
    if ((rc == 0) != (whole != nullptr))
        __builtin_trap();

    // The same text through a small destination, called again from sourceEnd.
    std::vector<UNICODE_CHAR> pieces;
    const char *at = text.c_str();
    U32 pieceRc = 0;
    for (;;) {
        std::vector<UNICODE_CHAR> out(room / 2 + 1, 0xA5A5);
        U32 n = room;
        const char *end = nullptr;
        pieceRc = UNICODE_ConvertToUnicode(utf8, at, out.data(), &n, &end, 0);
        if (n > room || out[n / 2] != 0)
            __builtin_trap();
        pieces.insert(pieces.end(), out.begin(), out.begin() + n / 2);
        if (pieceRc != UNICODE_DESTINATION_FULL)
            break;
        if (end == at && n == 0)
            __builtin_trap();  // room for a character and no progress
        at = end;
    }
    // An overlong form of NUL (C0 80) decodes to U+0000, which ends the
    // text for every later step: compare up to it.
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (pieces[i] == 0) {
            pieces.resize(i);
            break;
        }
    }
    if (rc == 0) {
        if (pieceRc != 0 || pieces.size() != std::char_traits<char16_t>::length(reinterpret_cast<char16_t *>(whole)) ||
            (!pieces.empty() && std::memcmp(pieces.data(), whole, pieces.size() * 2) != 0))
            __builtin_trap();
        // Through UTF-8 and back: the same characters.
        char *encoded = nullptr;
        if (UNICODE_ConvertFromUnicodeBuffer(utf8, whole, &encoded, 0) != 0)
            __builtin_trap();
        UNICODE_CHAR *again = nullptr;
        if (UNICODE_ConvertToUnicodeBuffer(utf8, encoded, &again, 0) != 0 ||
            std::char_traits<char16_t>::compare(reinterpret_cast<char16_t *>(again), reinterpret_cast<char16_t *>(whole),
                                                pieces.size() + 1) != 0)
            __builtin_trap();
        UNICODE_BufferFree(reinterpret_cast<void **>(&again));
        UNICODE_BufferFree(reinterpret_cast<void **>(&encoded));
        UNICODE_BufferFree(reinterpret_cast<void **>(&whole));
    } else if (pieceRc != rc) {
        __builtin_trap();
    }
    return 0;
}
