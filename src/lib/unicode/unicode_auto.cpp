// The automatic converters: from a character-set name to a ready converter
// in one call, and a whole conversion between two sets through Unicode.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/unicode_auto"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"
#include "rqcore/charmap.h"

namespace {

constexpr int kMaxMapFileName = 68;  // 67 characters and the NUL

// Statuses that the automatic functions hand back unchanged and unlogged.
bool passesThroughCreate(U32 rc) noexcept
{
    switch (rc) {
    case UNICODE_ERR_MEMORY:
    case UNICODE_ERR_MAP_ACCESS:
    case UNICODE_ERR_MAP_SYNTAX:
    case UNICODE_ERR_UNKNOWN_CHARSET:
    case UNICODE_ERR_NOT_INITIALIZED:
    case UNICODE_ERR_RESERVED:
    case UNICODE_ERR_NULL:
        return true;
    default:
        return false;
    }
}

bool passesThroughConvert(U32 rc) noexcept
{
    switch (rc) {
    case UNICODE_ERR_NOT_INITIALIZED:
    case UNICODE_ERR_INVALID_INPUT:
    case UNICODE_ERR_NULL:
    case UNICODE_ERR_RESERVED:
    case UNICODE_ERR_MEMORY:
        return true;
    default:
        return false;
    }
}

bool loadsMapFile(U32 type) noexcept
{
    return type != UNICODE_TYPE_UTF8 && type != UNICODE_TYPE_ISO2022JP && type != UNICODE_TYPE_ISO2022CN;
}

// One step of UNICODE_AutoConverterCreate; `step` names it in the log.
U32 createConverter(UNICODE_CONVERTER **out, const char *mapDirectory, const char *charsetName,
                    const char **step) noexcept
{
    char canonical[CHARMAP_CANONICAL_SIZE];
    U32 id = 0;
    *step = "CHARMAP_getCharacterSetName";
    U32 rc = CHARMAP_getCharacterSetName(charsetName, canonical, sizeof canonical, &id);
    if (rc == CHARMAP_ERR_NOT_FOUND || rc == CHARMAP_ERR_NOT_RECOGNISED)
        return UNICODE_ERR_UNKNOWN_CHARSET;
    if (rc != 0)
        return rc;
    U32 type = 0;
    *step = "CHARMAP_getCharacterSetType";
    rc = CHARMAP_getCharacterSetType(charsetName, &type);
    if (rc != 0)
        return rc;
    if (static_cast<S32>(id) < 0 || static_cast<S32>(type) < 0) {
        UNICODE_LogError("UNICODE_AutoConverterCreate", UNICODE_ERR_OUT_OF_BOUNDS, "Negative charsetId or charsetType");
        *step = nullptr;  // logged already
        return UNICODE_ERR_OUT_OF_BOUNDS;
    }

    rq::Block<char> path;
    if (loadsMapFile(type)) {
        char fileName[kMaxMapFileName];
        *step = "CHARMAP_generateCharacterSetFileName";
        rc = CHARMAP_generateCharacterSetFileName(charsetName, fileName, sizeof fileName);
        if (rc != 0)
            return rc;
        *step = "Allocating charsetFilePath";
        size_t length = std::strlen(mapDirectory) + 1 + std::strlen(fileName) + 1;
        path.reset(RQ_MALLOC(length));
        if (!path)
            return UNICODE_ERR_MEMORY;
        SIS_CrtSNPrintf(path.get(), length, "%s/%s", mapDirectory, fileName);
    }

    U32 flags = 0;
    uintptr_t parameter = 0;
    *step = "UNICODE_ConverterDataGet";
    rc = UNICODE_ConverterDataGet(static_cast<int>(type), &flags, &parameter);
    if (rc != 0)
        return rc;
    if (parameter == 0 && (flags & UNICODE_TYPEFLAG_MAPDIR_PARAMETER) != 0)
        parameter = reinterpret_cast<uintptr_t>(mapDirectory);
    UNICODE_CONVERTER *converter = nullptr;
    *step = "UNICODE_NewConverter";
    rc = UNICODE_NewConverter(&converter, type, parameter);
    if (rc != 0)
        return rc;
    if (path) {
        *step = "UNICODE_LoadConverter";
        rc = UNICODE_LoadConverter(converter, path.get());
        if (rc != 0) {
            UNICODE_DestroyConverter(converter);
            return rc;
        }
    }
    *out = converter;
    return 0;
}

}  // namespace

extern "C" {

RQ_API U32 UNICODE_AutoConverterCreate(U32 reserved, UNICODE_CONVERTER **out, const char *mapDirectory,
                                       const char *charsetName) noexcept
{
    if (out == nullptr || mapDirectory == nullptr || charsetName == nullptr)
        return UNICODE_ERR_NULL;
    if (reserved != 0)
        return UNICODE_ERR_RESERVED;
    const char *step = "";
    U32 rc = createConverter(out, mapDirectory, charsetName, &step);
    if (rc == 0 || passesThroughCreate(rc))
        return rc;
    if (step != nullptr)
        UNICODE_LogError("UNICODE_AutoConverterCreate", rc, step);
    return UNICODE_ERR_OUT_OF_BOUNDS;
}

RQ_API U32 UNICODE_AutoConverterDestroy(U32 reserved, UNICODE_CONVERTER **converter) noexcept
{
    (void)reserved;
    if (converter == nullptr)
        return UNICODE_ERR_NULL;
    U32 rc = UNICODE_DestroyConverter(*converter);
    *converter = nullptr;
    if (rc == 0)
        return 0;
    UNICODE_LogError("UNICODE_AutoConverterDestroy", rc, "UNICODE_DestroyConverter");
    return UNICODE_ERR_OUT_OF_BOUNDS;
}

RQ_API U32 UNICODE_FullyAutoConvert(U32 reserved, U32 flags, UNICODE_CONVERTER *toUnicode, const char *source,
                                    UNICODE_CONVERTER *fromUnicode, char **out, const char **sourceEnd) noexcept
{
    if (source == nullptr && (toUnicode != nullptr || fromUnicode != nullptr))
        return UNICODE_ERR_NULL;
    if (reserved != 0)
        return UNICODE_ERR_RESERVED;
    rq::Block<UNICODE_CHAR> unicode;
    const UNICODE_CHAR *text = reinterpret_cast<const UNICODE_CHAR *>(source);
    if (toUnicode != nullptr) {
        UNICODE_CHAR *converted = nullptr;
        U32 rc = UNICODE_ConvertToUnicodeBufferExt(toUnicode, source, &converted, sourceEnd, flags);
        if (rc != 0) {
            if (passesThroughConvert(rc))
                return rc;
            UNICODE_LogError("UNICODE_FullyAutoConvert", rc, "UNICODE_ConvertToUnicodeBuffer");
            return UNICODE_ERR_OUT_OF_BOUNDS;
        }
        unicode.reset(converted);
        text = converted;
    }
    char *result = reinterpret_cast<char *>(const_cast<UNICODE_CHAR *>(text));
    if (fromUnicode != nullptr) {
        U32 rc = UNICODE_ConvertFromUnicodeBuffer(fromUnicode, text, &result, flags);
        if (rc != 0) {
            if (passesThroughConvert(rc))
                return rc;
            UNICODE_LogError("UNICODE_FullyAutoConvert", rc, "UNICODE_ConvertFromUnicodeBuffer");
            return UNICODE_ERR_OUT_OF_BOUNDS;
        }
    } else {
        // Without a from-Unicode converter the Unicode text is the result
        // (with no converter at all, the caller's own source: kept so).
        unicode.release();
    }
    if (out != nullptr) {
        *out = result;
    } else if (result != source) {
        RQ_FREE(result);
    }
    return 0;
}

}  // extern "C"
