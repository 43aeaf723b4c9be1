// Fuzzes the "charmap.config" reader: the input is the file's contents.  Every
// lookup must end with a documented status and terminated outputs that fit
// their buffers, and squishing must leave only letters and digits.
#include "fuzz_support.h"
#include "rqcore/charmap.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

char gDirectory[] = "/tmp/fuzz_charmap.XXXXXX";

void removeDirectory()
{
    std::string file = std::string(gDirectory) + "/charmap.config";
    unlink(file.c_str());
    rmdir(gDirectory);
}

std::string configDirectory()
{
    if (mkdtemp(gDirectory) == nullptr)
        std::abort();
    std::atexit(removeDirectory);
    return gDirectory;
}

void check(bool ok)
{
    if (!ok)
        std::abort();
}

bool terminatedWithin(const char *text, size_t size)
{
    return std::memchr(text, 0, size) != nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const std::string dir = configDirectory();
    static const std::string path = dir + "/charmap.config";
    if (!fuzz::writeInput(path.c_str(), data, size))
        return 0;
    check(CHARMAP_setConfigDirectory(dir.c_str()) == 0);

    static const char *const names[] = {"latin9", "big5", "utf-8", "A", "unknown", ""};
    for (const char *name : names) {
        char canonical[CHARMAP_CANONICAL_SIZE];
        char mapFile[CHARMAP_MAP_FILE_SIZE];
        U32 id = 0, type = 0;
        U32 s = CHARMAP_getCharacterSetFromFile(nullptr, name, canonical, sizeof canonical, &id, mapFile,
                                                sizeof mapFile, &type);
        check(s == 0 || s == CHARMAP_ERR_NOT_IN_CONFIG);
        if (s == 0)
            check(terminatedWithin(canonical, sizeof canonical) && terminatedWithin(mapFile, sizeof mapFile) &&
                  std::strlen(mapFile) <= 68 && (type <= 8 || type == 255) && type != 3);
        s = CHARMAP_getCharacterSetName(name, canonical, 9, &id);
        check(s == 0 || s == CHARMAP_ERR_NOT_FOUND || s == CHARMAP_ERR_NOT_RECOGNISED);
        check(std::strlen(canonical) <= 8);
        char file[14];
        s = CHARMAP_generateCharacterSetFileName(name, file, sizeof file);
        check(s == 0 || s == CHARMAP_ERR_DEFAULT_MAP || s == CHARMAP_ERR_BUFFER_TOO_SMALL);
        check(terminatedWithin(file, sizeof file));
    }
    for (U32 id : {0u, 4u, 111u, 0xFFFFFFFFu}) {
        char canonical[5];
        U32 type = 0;
        U32 s = CHARMAP_getCharacterSetFromId(id, canonical, sizeof canonical, &type);
        check((s == 0 || s == CHARMAP_ERR_NOT_FOUND) && terminatedWithin(canonical, sizeof canonical));
    }

    std::string text(reinterpret_cast<const char *>(data), size);
    text.push_back(0);
    check(CHARMAP_squishCharacterSetName(text.data()) == 0);
    for (const char *p = text.c_str(); *p != 0; ++p)
        check((*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9'));
    return 0;
}
