// Arbitrary file contents through every kind of profile getter, the
// in-memory profile and the list parsers.  Any leak of a platform block,
// crash or sanitizer report is a finding.
#include "rqcore/lists.h"
#include "rqcore/profiles.h"
#include "fuzz_support.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const std::string &profilePath()
{
    static const std::string path = [] {
        char name[] = "/tmp/fuzz_profile.XXXXXX";
        int fd = mkstemp(name);
        if (fd >= 0)
            close(fd);
        return std::string(name);
    }();
    return path;
}

void destroy(HLIST *list)
{
    if (*list != 0)
        DX_ListDestroy(list);
}

void fileGetters(const char *path)
{
    static const char *const kSections[] = {"S", "Mail", "", "0", " "};
    static const char *const kKeys[] = {"k", "Port", "", "a b"};
    char text[215];
    for (const char *s : kSections) {
        for (const char *k : kKeys) {
            DX_GetProfileStr(path, s, k, text, sizeof text, "d");
            U16 u16;
            S16 s16;
            U32 u32;
            S32 s32;
            DX_GetProfileU16(path, s, k, &u16, 1);
            DX_GetProfileS16(path, s, k, &s16, 1);
            DX_GetProfileU32(path, s, k, &u32, 1);
            DX_GetProfileS32(path, s, k, &s32, 1);
            DX_GetProfileBool(path, s, k, &u32, 1);
            HLIST list = 0;
            DX_GetProfileStrList(path, s, k, &list, 0);
            destroy(&list);
            DX_GetProfileU32List(path, s, k, &list, 0x01);
            destroy(&list);
            DX_GetProfileBoolList(path, s, k, &list, 0);
            destroy(&list);
        }
        U32 found = 0;
        DX_IsAProfileSection(path, s, &found);
        HLIST keywords = 0;
        if (DX_GetProfileSection(path, s, &keywords) == 0) {
            for (const char *k : kKeys) {
                U32 t = 0;
                DX_GetProfileTimeFromList(keywords, k, &t, 0);
                HLIST list = 0;
                DX_GetProfileS16ListFromList(keywords, k, &list, 0);
                destroy(&list);
            }
            DX_ListDestroy(&keywords);
        }
    }
    HLIST list = 0;
    DX_GetProfileSections(path, &list);
    destroy(&list);
    DX_GetProfileNumericSections(path, &list);
    destroy(&list);
    if (DX_GetProfileSectionList(path, &list, nullptr) == 0)
        DX_ProfileSectionListDestroy(&list);
    if (DX_GetProfileSectionList(path, &list, DX_ProfileConstraintNumeric) == 0)
        DX_ProfileSectionListDestroy(&list);
}

void inMemory(const char *path)
{
    DX_PROFILELIST *h = nullptr;
    if (DX_ProfileListOpen(&h, path) != 0)
        return;
    char section[64], key[40], value[80];
    U32 cursor = 0;
    int guard = 0;
    while (DX_ProfileListGetSection(h, &cursor, section, sizeof section) == 0 && ++guard < 10000) {
        U32 kc = 0;
        int inner = 0;
        while (DX_ProfileListGetKeyword(h, &kc, section, key, sizeof key, value, sizeof value) == 0 && ++inner < 10000)
            DX_ProfileListGetStr(h, section, key, value, sizeof value, "d");
    }
    U32 n = 0;
    DX_ProfileListGetU32(h, "S", "k", &n, 0);
    DX_ProfileListClose(&h);
}

void fromText(const std::string &text)
{
    HLIST list = 0;
    DX_GetProfileStrListFromStr(text.c_str(), &list, 0);
    destroy(&list);
    DX_GetProfileU16ListFromStr(text.c_str(), &list, 0x05);
    destroy(&list);
    DX_GetProfileS32ListFromStr(text.c_str(), &list, 0);
    destroy(&list);
    char element[PROFIL_ELEMENT_SIZE];
    char *cursor = const_cast<char *>(text.c_str());
    U32 done = 0;
    for (U32 mode = 1; DX_EnumProfileStr(element, &cursor, mode, &done) == 0 && done == 0; mode = 2) {
        if (std::strlen(element) > 150)
            std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 64 * 1024)
        return 0;
    fuzz::LeakGuard leaks;
    const std::string &path = profilePath();
    if (!fuzz::writeInput(path.c_str(), data, size))
        return 0;
    fileGetters(path.c_str());
    inMemory(path.c_str());
    fromText(std::string(reinterpret_cast<const char *>(data), size));
    return 0;
}
