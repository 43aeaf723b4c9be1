// The charmap configuration: the process-wide configuration directory and
// the reader of its "charmap.config".
//
// An entry is one line of five fields separated by white space: canonical
// name, decimal identifier, alias, type word and map-file name, e.g.
//     ISO-8859-15 111 LATIN9 8BIT latin9.map
// Leading blanks and tabs are skipped, empty lines and "#" lines ignored,
// and a line that does not give all five fields is skipped.  The file is
// read from the start on every lookup: nothing is cached, so a site may
// edit it while servers run.

#define RQ_SOURCE_TAG "src/lib/core/lib/charmap/charmap_config"
#include "internal/rq_mem.h"
#include "lib/charmap/charmap_internal.h"
#include "rqcore/log.h"

#include <climits>
#include <strings.h>

namespace rq::charmap {
namespace {

// Scan widths of the five fields; each buffer holds its width and a NUL.
constexpr int kCanonicalWidth = 64;
constexpr int kAliasWidth = 64;
constexpr int kTypeWidth = 64;
constexpr int kMapFileWidth = 68;
constexpr size_t kLineMax = 255;

static_assert(sizeof(ConfigEntry::canonical) == kCanonicalWidth + 1);
static_assert(sizeof(ConfigEntry::mapFile) == kMapFileWidth + 1);

constexpr U32 kErrlogId = 2;

struct FamilyState {
    SIS_CRITICAL_SECTION section;
    char *directory = nullptr;

    FamilyState() noexcept { SIS_SyncCriticalSectionInit(&section); }
    ~FamilyState()
    {
        // At unload: the directory goes back to the allocator so that the
        // accounting sees no block left behind.
        rq::CriticalSection lock(&section);
        if (directory != nullptr)
            RQ_FREE(directory);
        directory = nullptr;
    }
};

FamilyState &familyState() noexcept
{
    static FamilyState state;
    return state;
}

struct TypeWord {
    const char *word;
    U32 type;
};

constexpr TypeWord kTypeWords[] = {
    {"8BIT", CHARMAP_TYPE_8BIT},           {"MBCS", CHARMAP_TYPE_MBCS},
    {"16BIT", CHARMAP_TYPE_16BIT},         {"EUC", CHARMAP_TYPE_EUC},
    {"UTF8", CHARMAP_TYPE_UTF8},           {"ISO2022JP", CHARMAP_TYPE_ISO2022JP},
    {"ISO2022CN", CHARMAP_TYPE_ISO2022CN}, {"OTHER", CHARMAP_TYPE_OTHER},
};

U32 typeOfWord(const char *word) noexcept
{
    for (const TypeWord &w : kTypeWords)
        if (strcasecmp(word, w.word) == 0)
            return w.type;
    return CHARMAP_TYPE_UNKNOWN;
}

// Formats directory + "/" + "charmap.config" under the family's lock.
// 0 with the path, CHARMAP_ERR_NO_CONFIG without a directory, 1 when the path
// does not fit (then nothing can be opened).
U32 configPath(char (&path)[PATH_MAX]) noexcept
{
    FamilyState &state = familyState();
    rq::CriticalSection lock(&state.section);
    if (state.directory == nullptr)
        return CHARMAP_ERR_NO_CONFIG;
    int n = SIS_CrtSNPrintf(path, sizeof path, "%s%s%s", state.directory, "/", "charmap.config");
    return n >= 0 && static_cast<size_t>(n) < sizeof path ? 0u : 1u;
}

}  // namespace

SIS_CRITICAL_SECTION *familySection() noexcept
{
    return &familyState().section;
}

U32 configLookup(const ConfigKey &key, ConfigEntry *entry) noexcept
{
    char path[PATH_MAX];
    U32 status = configPath(path);
    if (status == CHARMAP_ERR_NO_CONFIG)
        return status;
    rq::Fd fd(status == 0 ? SIS_CrtOpen(path, O_RDONLY | O_CLOEXEC, 0) : -1);
    if (!fd.ok()) {
        WriteErrLog(kErrlogId, CHARMAP_ERR_NO_CONFIG, "Could not open config file");
        return CHARMAP_ERR_NO_CONFIG;
    }

    // "%64s %d %64s %64s %68s", built from the template so that the widths
    // and the buffers below cannot drift apart.
    char format[48];
    SIS_CrtSNPrintf(format, sizeof format, "%%%ds %%d %%%ds %%%ds %%%ds", kCanonicalWidth, kAliasWidth,
                    kTypeWidth, kMapFileWidth);

    bool found = forEachLine<kLineMax>(fd.get(), [&](const char *line, size_t) {
        while (*line == ' ' || *line == '\t')
            ++line;
        if (*line == '#' || *line == 0)
            return false;
        char canonical[kCanonicalWidth + 1];
        char alias[kAliasWidth + 1];
        char typeWord[kTypeWidth + 1];
        char mapFile[kMapFileWidth + 1];
        int id = 0;
        if (std::sscanf(line, format, canonical, &id, alias, typeWord, mapFile) != 5)
            return false;
        if (key.byId) {
            if (static_cast<U32>(id) != key.id)
                return false;
        } else {
            char squished[kAliasWidth + 1];
            size_t n = squishInto(alias, kAliasWidth, squished);
            if (std::string_view(squished, n) != key.squished)
                return false;
        }
        std::memcpy(entry->canonical, canonical, std::strlen(canonical) + 1);
        entry->id = static_cast<U32>(id);
        std::memcpy(entry->mapFile, mapFile, std::strlen(mapFile) + 1);
        entry->type = typeOfWord(typeWord);
        return true;
    });
    return found ? 0u : U32{CHARMAP_ERR_NOT_IN_CONFIG};
}

}  // namespace rq::charmap

extern "C" RQ_API U32 CHARMAP_setConfigDirectory(const char *dir) noexcept
{
    using namespace rq::charmap;
    FamilyState &state = familyState();
    rq::CriticalSection lock(&state.section);
    if (dir == nullptr) {
        if (state.directory != nullptr)
            RQ_FREE(state.directory);
        state.directory = nullptr;
        return 0;
    }
    if (state.directory != nullptr && std::strcmp(state.directory, dir) == 0)
        return 0;
    char *copy = RQ_STRDUP(dir);
    if (copy == nullptr)
        return CHARMAP_ERR_NO_MEMORY;  // the directory in force stays
    if (state.directory != nullptr)
        RQ_FREE(state.directory);
    state.directory = copy;
    return 0;
}
