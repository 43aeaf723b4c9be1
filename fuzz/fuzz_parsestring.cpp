// Arbitrary text through the number and time parsers: results must follow
// the documented codes, and nothing may crash or leak.
#include "rqcore/profiles.h"
#include "rqsis/rqsis_test.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    const char *s = text.c_str();
    uint64_t before = 0, bytes = 0;
    SIS_TestLiveGet(&before, &bytes);
    U32 u32 = 0;
    U32 rc = GetUnsigned32FromStr(s, &u32);
    if (rc != 0 && (u32 != 0 || (rc != 0x1C401 && rc != 0x1C402)))
        std::abort();
    U16 u16 = 0;
    rc = GetUnsigned16FromStr(s, &u16);
    if (rc == 0x1C403 && u16 != 65535)
        std::abort();
    S16 s16 = 0;
    rc = GetSigned16FromStr(s, &s16);
    if (rc != 0 && s16 != 0)
        std::abort();
    S32 s32 = 0;
    GetSigned32FromStr(s, &s32);
    U32 minutes = 12345;
    rc = GetTimeFromStr(s, &minutes);
    if ((rc == 0 && minutes >= 24 * 60) || (rc != 0 && minutes != 12345))
        std::abort();
    MapParsestringErrorToProfilError(rc);
    AllDigits(s);
    IsHexNum(s);
    TrimStr(text.data());
    uint64_t after = 0;
    SIS_TestLiveGet(&after, &bytes);
    if (after != before)
        std::abort();
    return 0;
}
