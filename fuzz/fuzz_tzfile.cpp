// Arbitrary files through the time-zone reader: the whole file and one
// section, then enumeration, look-ups, copies and conversions at instants
// taken from the input, in every zone read.  Any leak of a platform block,
// crash or sanitizer report is a finding.
#include "rqcore/tz.h"
#include "fuzz_support.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const std::string &zonePath()
{
    static const std::string path = [] {
        char name[] = "/tmp/fuzz_tzfile.XXXXXX";
        int fd = mkstemp(name);
        if (fd >= 0)
            close(fd);
        return std::string(name);
    }();
    return path;
}

void checkText(const char *text, size_t size)
{
    if (strnlen(text, size) >= size)
        std::abort();  // not terminated inside its buffer
}

// Conversions in one zone at instants spread over the minute range and
// near the ends of it, plus a few read from the input.
void convert(HLIST rules, const char *zone, const uint8_t *data, size_t size)
{
    U32 instants[12] = {0, 1, 59, 60, 1440, 7358400, 24441u * 1440u, 0xFFFFFFFFu, 0xFFFFFF00u, 0, 0, 0};
    for (size_t i = 0; i < 3 && i * 4 + 4 <= size; ++i)
        std::memcpy(&instants[9 + i], data + i * 4, 4);
    for (U32 t : instants) {
        U32 local = 0, type = 0, utc = 0;
        char abbr[6];
        std::memset(abbr, 'x', sizeof abbr);
        if (DX_TZFromUTCToLocalTime(rules, zone, &local, &type, t, abbr, sizeof abbr) == 0) {
            checkText(abbr, sizeof abbr);
            if (type != DX_TZ_STANDARD && type != DX_TZ_DAYLIGHT)
                std::abort();
            DX_TZFromLocalTimeToUTC(rules, zone, &utc, local, type);
        }
        for (U32 asked : {0u, DX_TZ_STANDARD, DX_TZ_DAYLIGHT})
            DX_TZFromLocalTimeToUTC(rules, zone, &utc, t, asked);
        DX_TZGetLocalType(rules, zone, &type, t);
    }
}

void exercise(HLIST rules, const uint8_t *data, size_t size)
{
    char zone[DX_TZ_ZONE_SIZE], name[DX_TZ_NAME_SIZE], country[5];
    U32 atEnd = 0;
    int zones = 0;
    for (U32 mode = DX_TZ_ENUM_FIRST;
         zones < 16 && DX_TZEnum(rules, mode, zone, sizeof zone, name, sizeof name, country, sizeof country, &atEnd) == 0 &&
         atEnd == 0;
         mode = DX_TZ_ENUM_NEXT, ++zones) {
        checkText(zone, sizeof zone);
        checkText(name, sizeof name);
        checkText(country, sizeof country);
        if (DX_TZFind(rules, zone, name, sizeof name, country, sizeof country) != 0)
            std::abort();  // every enumerated zone can be found
        convert(rules, zone, data, size);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 64 * 1024)
        return 0;
    fuzz::LeakGuard leaks;
    const std::string &path = zonePath();
    if (!fuzz::writeInput(path.c_str(), data, size))
        return 0;

    HLIST rules = 0;
    if (DX_TZRulesCreate(&rules, path.c_str(), nullptr) == 0) {
        exercise(rules, data, size);
        HLIST copy = 0;
        if (DX_TZRulesCopy(rules, &copy) == 0)
            exercise(copy, data, size);
        DX_TZRulesDestroy(&copy);
        char zone[DX_TZ_ZONE_SIZE];
        U32 atEnd = 0;
        if (DX_TZEnum(rules, DX_TZ_ENUM_FIRST, zone, sizeof zone, nullptr, 0, nullptr, 0, &atEnd) == 0 && atEnd == 0) {
            HLIST one = 0;
            if (DX_TZRulesCreate(&one, path.c_str(), zone) == 0)
                exercise(one, data, size);
            DX_TZRulesDestroy(&one);
        }
    } else if (rules != 0) {
        std::abort();  // a failed read leaves no handle
    }
    DX_TZRulesDestroy(&rules);
    HLIST one = 0;
    if (DX_TZRulesCreate(&one, path.c_str(), "CET-1CEST") == 0)
        exercise(one, data, size);
    DX_TZRulesDestroy(&one);

    return 0;
}
