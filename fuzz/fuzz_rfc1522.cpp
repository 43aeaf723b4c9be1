// Encoded words: the decoder on any header value (always 0, text without
// "=?" unchanged, no leaks), and the writer's words (at most 75 characters,
// decoding back to the text) for every input that is valid UTF-8.
#include "fuzz_support.h"

#include "rqcore/charmap.h"
#include "rqcore/encode.h"
#include "rqcore/frame.h"
#include "rqcore/unicode.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void check(bool ok)
{
    if (!ok)
        std::abort();
}

// The shipped maps, found beside this source file.
const std::string &mapDirectory()
{
    static const std::string dir = [] {
        std::string file = __FILE__;
        return file.substr(0, file.rfind('/')) + "/../data/charmaps";
    }();
    return dir;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    check(UNICODE_Initialize(0) == 0);
    check(CHARMAP_setConfigDirectory(mapDirectory().c_str()) == 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    fuzz::LeakGuard guard;
    const char *maps = mapDirectory().c_str();
    const char *charsets[] = {"UTF-8", "ISO-8859-1", "Shift_JIS", "windows-1252",
                              "ISO-2022-JP", "EUC-JP", "ISO-2022-JP", "UTF-8"};
    const char *charset = charsets[(data[0] & 3) | ((data[0] >> 1) & 4)];
    char encoding = (data[0] & 4) != 0 ? 'B' : 'Q';
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    text = text.substr(0, text.find('\0'));

    char *out = nullptr;
    check(ENCODE_FromRFC1522(maps, text.c_str(), &out) == 0);
    if (text.find("=?") == std::string::npos)
        check(text == out);
    RQCORE_free(out);

    char *words = nullptr;
    U32 rc = ENCODE_ToRFC1522(maps, text.c_str(), charset, encoding, &words);
    check(rc == 0 || rc == ENCODE_ERR_BADTEXT);
    if (rc != 0)
        return 0;
    std::string written = words;
    RQCORE_free(words);
    size_t start = 0;
    while (start < written.size()) {
        size_t end = written.find(' ', start);
        if (end == std::string::npos)
            end = written.size();
        check(end - start <= 75);
        start = end + 1;
    }
    check(ENCODE_FromRFC1522(maps, written.c_str(), &out) == 0);
    // UTF-8 holds every character, so the words give the text back.
    if (charset[0] == 'U')
        check(text == out);
    RQCORE_free(out);
    return 0;
}
