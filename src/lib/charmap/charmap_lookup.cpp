// Character-set lookups: squishing, by name and by identifier in
// "charmap.config" and in the static table, the two-step lookups that try
// the file first, and map-file names.

#define RQ_SOURCE_TAG "src/lib/core/lib/charmap/charmap_lookup"
#include "internal/rq_mem.h"
#include "lib/charmap/charmap_internal.h"

namespace rq::charmap {

size_t squishInto(const char *name, size_t limit, char *out) noexcept
{
    size_t n = 0;
    for (size_t i = 0; i < limit && name[i] != 0; ++i) {
        char c = squishByte(static_cast<unsigned char>(name[i]));
        if (c != 0)
            out[n++] = c;
    }
    out[n] = 0;
    return n;
}

void copyOut(char *out, int len, std::string_view text) noexcept
{
    if (len <= 0)
        return;
    size_t n = text.size() < static_cast<size_t>(len) - 1 ? text.size() : static_cast<size_t>(len) - 1;
    std::memmove(out, text.data(), n);  // the caller's name may be the output buffer
    out[n] = 0;
}

namespace {

// How much of a name each lookup squishes.
constexpr size_t kFileNameLimit = 63;
constexpr size_t kStaticNameLimit = 64;

U32 fromFile(const char *name, char *canonical, int canonicalLen, U32 *id, char *mapFile, int mapFileLen,
             U32 *type) noexcept
{
    char squished[kFileNameLimit + 1];
    size_t n = squishInto(name, kFileNameLimit, squished);
    ConfigEntry entry;
    U32 status = configLookup({std::string_view(squished, n), 0, false}, &entry);
    if (status != 0)
        return status;
    copyOut(canonical, canonicalLen, entry.canonical);
    *id = entry.id;
    copyOut(mapFile, mapFileLen, entry.mapFile);
    *type = entry.type;
    return 0;
}

U32 fromIdFromFile(U32 id, char *canonical, int canonicalLen, char *mapFile, int mapFileLen, U32 *type) noexcept
{
    ConfigEntry entry;
    U32 status = configLookup({{}, id, true}, &entry);
    if (status != 0)
        return status;
    copyOut(canonical, canonicalLen, entry.canonical);
    copyOut(mapFile, mapFileLen, entry.mapFile);
    if (type != nullptr)
        *type = entry.type;
    return 0;
}

U32 fromStatic(const char *name, char *canonical, int len, U32 *id, U32 *type) noexcept
{
    char squished[kStaticNameLimit + 1];
    size_t n = squishInto(name, kStaticNameLimit, squished);
    const Row *row = findByAlias(std::string_view(squished, n));
    if (row == nullptr) {
        copyOut(canonical, len, "");
        *id = 0;
        *type = CHARMAP_TYPE_UNKNOWN;
        return CHARMAP_ERR_NOT_FOUND;
    }
    *id = row->id;
    *type = row->type;
    if (row->id == 0) {
        // The "UNKNOWN" row: callers rely on getting their own spelling back
        // with the not-recognised status.
        copyOut(canonical, len, name);
        return CHARMAP_ERR_NOT_RECOGNISED;
    }
    copyOut(canonical, len, row->canonical);
    return 0;
}

U32 fromIdFromStatic(U32 id, char *canonical, int len, U32 *type) noexcept
{
    const Row *row = findById(id);
    if (canonical != nullptr)
        copyOut(canonical, len, row != nullptr ? row->canonical : "");
    *type = row != nullptr ? row->type : U32{CHARMAP_TYPE_UNKNOWN};
    return row != nullptr ? 0u : U32{CHARMAP_ERR_NOT_FOUND};
}

// The file first, when a directory is set; any failure there falls back to
// the static table.
U32 byName(const char *name, char *canonical, int len, U32 *id, U32 *type) noexcept
{
    char mapFile[CHARMAP_MAP_FILE_SIZE];
    if (fromFile(name, canonical, len, id, mapFile, sizeof mapFile, type) == 0)
        return 0;
    return fromStatic(name, canonical, len, id, type);
}

}  // namespace
}  // namespace rq::charmap

using namespace rq::charmap;

extern "C" {

RQ_API U32 CHARMAP_squishCharacterSetName(char *name) noexcept
{
    if (name == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    size_t n = 0;
    for (const char *p = name; *p != 0; ++p) {
        char c = squishByte(static_cast<unsigned char>(*p));
        if (c != 0)
            name[n++] = c;
    }
    name[n] = 0;
    return 0;
}

RQ_API U32 CHARMAP_getCharacterSetFromFile(const char *, const char *name, char *canonical, int canonicalLen, U32 *id,
                                           char *mapFile, int mapFileLen, U32 *type) noexcept
{
    if (name == nullptr || canonical == nullptr || id == nullptr || mapFile == nullptr || type == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (canonicalLen < 0 || mapFileLen < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;
    return fromFile(name, canonical, canonicalLen, id, mapFile, mapFileLen, type);
}

RQ_API U32 CHARMAP_getCharacterSetFromIdFromFile(const char *, U32 id, char *canonical, int canonicalLen,
                                                 char *mapFile, int mapFileLen, U32 *type) noexcept
{
    if (canonical == nullptr || mapFile == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (canonicalLen < 0 || mapFileLen < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;
    return fromIdFromFile(id, canonical, canonicalLen, mapFile, mapFileLen, type);
}

RQ_API U32 CHARMAP_getCharacterSetFromStatic(const char *name, char *canonical, int len, U32 *id, U32 *type) noexcept
{
    if (name == nullptr || canonical == nullptr || id == nullptr || type == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (len < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;
    return fromStatic(name, canonical, len, id, type);
}

RQ_API U32 CHARMAP_getCharacterSetFromIdFromStatic(U32 id, char *canonical, int len, U32 *type) noexcept
{
    if (type == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (len < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;
    return fromIdFromStatic(id, canonical, len, type);
}

RQ_API U32 CHARMAP_getCharacterSetName(const char *name, char *canonical, int len, U32 *id) noexcept
{
    if (name == nullptr || canonical == nullptr || id == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (len < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;
    U32 type;
    return byName(name, canonical, len, id, &type);
}

RQ_API U32 CHARMAP_getCharacterSetFromId(U32 id, char *canonical, int len, U32 *type) noexcept
{
    if (type == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (len < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;
    char scratch[CHARMAP_CANONICAL_SIZE];
    char mapFile[CHARMAP_MAP_FILE_SIZE];
    char *fileCanonical = canonical != nullptr ? canonical : scratch;
    int fileLen = canonical != nullptr ? len : int{sizeof scratch};
    if (fromIdFromFile(id, fileCanonical, fileLen, mapFile, sizeof mapFile, type) == 0)
        return 0;
    return fromIdFromStatic(id, canonical, len, type);
}

RQ_API U32 CHARMAP_getCharacterSetID(const char *name, U32 *id) noexcept
{
    if (name == nullptr || id == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    *id = 0;
    char canonical[CHARMAP_CANONICAL_SIZE];
    U32 found = 0;
    U32 type;
    U32 status = byName(name, canonical, sizeof canonical, &found, &type);
    *id = found;
    return status;
}

RQ_API U32 CHARMAP_getCharacterSetType(const char *name, U32 *type) noexcept
{
    if (name == nullptr || type == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    *type = CHARMAP_TYPE_UNKNOWN;
    char canonical[CHARMAP_CANONICAL_SIZE];
    U32 id;
    U32 found = CHARMAP_TYPE_UNKNOWN;
    U32 status = byName(name, canonical, sizeof canonical, &id, &found);
    *type = found;
    return status;
}

RQ_API U32 CHARMAP_generateCharacterSetFileName(const char *name, char *fileName, int len) noexcept
{
    if (name == nullptr || fileName == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (len < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;

    // A map file named in "charmap.config" is the answer as it stands.
    char canonical[CHARMAP_CANONICAL_SIZE];
    char mapFile[CHARMAP_MAP_FILE_SIZE];
    U32 id;
    U32 type;
    if (fromFile(name, canonical, sizeof canonical, &id, mapFile, sizeof mapFile, &type) == 0) {
        size_t n = std::strlen(mapFile);
        if (n < static_cast<size_t>(len)) {
            copyOut(fileName, len, mapFile);
            return 0;
        }
        copyOut(fileName, len, "");
        return CHARMAP_ERR_BUFFER_TOO_SMALL;
    }

    // Otherwise the canonical name squished, with ".MAP".  The file has just
    // been read without an answer, so the static table is all that is left.
    if (fromStatic(name, canonical, sizeof canonical, &id, &type) == 0) {
        char squished[CHARMAP_CANONICAL_SIZE + 4];
        size_t n = squishInto(canonical, sizeof canonical, squished);
        if (static_cast<long>(n) <= static_cast<long>(len) - 5) {
            std::memcpy(squished + n, ".MAP", 5);
            copyOut(fileName, len, squished);
            return 0;
        }
        copyOut(fileName, len, "");
        return CHARMAP_ERR_BUFFER_TOO_SMALL;
    }

    if (len > 11) {
        copyOut(fileName, len, "DEFAULT.MAP");
        return CHARMAP_ERR_DEFAULT_MAP;
    }
    copyOut(fileName, len, "");
    return CHARMAP_ERR_BUFFER_TOO_SMALL;
}

}  // extern "C"
