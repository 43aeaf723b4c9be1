// Base64: the fast decoder against a one-character-at-a-time model of the
// tolerant rules, encode/decode round trips, and the string checks.
#include "rqcore/encode.h"
#include "rqcore/frame.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int value(unsigned char c)
{
    const char *hit = c == 0 ? nullptr : std::strchr(kAlphabet, c & 0x7F);
    return hit == nullptr || (c & 0x7F) == 0 ? -1 : static_cast<int>(hit - kAlphabet);
}

// The documented rules, plainly.
U32 model(const std::string &text, std::string &out)
{
    U32 status = 0;
    unsigned bits = 0, nbits = 0, valid = 0;
    for (unsigned char c : text) {
        if (c == 0)
            break;
        if (c == '=')
            return status;
        int v = value(c);
        if (v < 0) {
            status = 0x18C02;
            continue;
        }
        ++valid;
        bits = (bits << 6) | static_cast<unsigned>(v);
        nbits += 6;
        if (nbits >= 8) {
            nbits -= 8;
            out.push_back(static_cast<char>((bits >> nbits) & 0xFF));
        }
    }
    return valid % 4 != 0 ? 0x18C04 : status;
}

void check(bool ok)
{
    if (!ok)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    std::string cut = text.substr(0, text.find('\0'));

    // Decode: same bytes and status as the model; NUL after the data.
    char *out = nullptr;
    U32 length = 0;
    U32 status = ENCODE_convertFromBase64(cut.c_str(), &length, &out);
    check(out != nullptr);
    std::string expected;
    check(status == model(cut, expected));
    check(std::string(out, length) == expected);
    check(out[length] == '\0');
    RQCORE_free(out);

    // Encode the raw bytes and decode them back.
    char *encoded = nullptr;
    check(ENCODE_convertToBase64(data, static_cast<U32>(size), &encoded) == 0);
    check(std::strlen(encoded) == (size + 2) / 3 * 4);
    check(ENCODE_isBase64String(encoded) == 0);
    check(ENCODE_convertFromBase64(encoded, &length, &out) == 0);
    check(length == size && (size == 0 || std::memcmp(out, data, size) == 0));
    RQCORE_free(out);
    RQCORE_free(encoded);

    // Stripping leaves only valid characters, in order.
    std::string stripped = cut;
    U32 odd = ENCODE_stripBase64String(stripped.data());
    stripped.resize(std::strlen(stripped.c_str()));
    check(ENCODE_isBase64String(stripped.c_str()) == 0);
    check(odd == (stripped.size() % 4 != 0 ? 1u : 0u));
    return 0;
}
