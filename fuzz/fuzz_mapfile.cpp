// Map-file reader: arbitrary file contents loaded into an 8-bit and a
// multibyte converter with both readers, then a probe converted both ways.
#include "fuzz_support.h"
#include "rqcore/unicode.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool initialized = UNICODE_Initialize(0) == 0;
    if (!initialized)
        __builtin_trap();
    static const std::string path = "/tmp/fuzz_mapfile_" + std::to_string(getpid()) + ".MAP";
    if (!fuzz::writeInput(path.c_str(), data, size))
        return 0;
    for (U32 type : {UNICODE_TYPE_8BIT, UNICODE_TYPE_MBCS}) {
        for (int reader = 0; reader < 2; ++reader) {
            UNICODE_CONVERTER *c = nullptr;
            if (UNICODE_NewConverter(&c, type, 0) != 0)
                __builtin_trap();
            U32 rc = reader == 0 ? UNICODE_LoadConverter(c, path.c_str()) : UNICODE_LoadConverter2(c, path.c_str());
            (void)rc;
            UNICODE_CHAR *wide = nullptr;
            if (UNICODE_ConvertToUnicodeBuffer(c, "A\x81\x40\x82\xA0\x8F\xA2\xAF\xFF", &wide, 0) == 0) {
                char *back = nullptr;
                if (UNICODE_ConvertFromUnicodeBuffer(c, wide, &back, 1) == 0)
                    UNICODE_BufferFree(reinterpret_cast<void **>(&back));
                UNICODE_BufferFree(reinterpret_cast<void **>(&wide));
            }
            if (UNICODE_DestroyConverter(c) != 0)
                __builtin_trap();
        }
    }
    return 0;
}
