// The converter registry (128 type slots), converter lifecycle, the
// forwarding calls and the family's error logging.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/unicode_registry"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"
#include "rqcore/frame.h"
#include "rqcore/log.h"

namespace {

struct TypeSlot {
    int type;  // -1 while the slot is free
    U32 reserved;
    UNICODE_CREATE_PROC create;
    UNICODE_ADDMAPPING_PROC addMapping;
    UNICODE_TOUNICODE_PROC toUnicode;
    UNICODE_FROMUNICODE_PROC fromUnicode;
    UNICODE_DESTROY_PROC destroy;
    U32 flags;
    uintptr_t createParameter;
};

TypeSlot gRegistry[UNICODE_MAX_TYPES];
bool gInitialized = false;

// The critical section that guards registration, made (with the library's
// start-up) on the first UNICODE_Initialize.  A function-local static is
// constructed exactly once even when threads race to it.
SIS_CRITICAL_SECTION *registrySection() noexcept
{
    struct Section {
        SIS_CRITICAL_SECTION cs{};
        Section() noexcept
        {
            runInitCode();
            SIS_SyncCriticalSectionInit(&cs);
        }
    };
    static Section section;
    return &section.cs;
}

void clearSlots() noexcept
{
    for (TypeSlot &slot : gRegistry)
        slot = TypeSlot{-1, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0};
}

bool inRange(int type) noexcept
{
    return type >= 0 && type < static_cast<int>(UNICODE_MAX_TYPES);
}

}  // namespace

extern "C" {

RQ_API void UNICODE_LogError(const char *function, U32 code, const char *detail) noexcept
{
    char message[512];
    if (detail == nullptr)
        detail = "Unicode error";
    if (function == nullptr)
        SIS_CrtSNPrintf(message, sizeof message, "%s", detail);
    else
        SIS_CrtSNPrintf(message, sizeof message, "%s:  %s", function, detail);
    WriteErrLog(2, code, message);
}

RQ_API U32 UNICODE_RegisterConverterTypeExt(int type, U32 flags, UNICODE_CREATE_PROC create,
                                            UNICODE_ADDMAPPING_PROC addMapping, UNICODE_TOUNICODE_PROC toUnicode,
                                            UNICODE_FROMUNICODE_PROC fromUnicode, UNICODE_DESTROY_PROC destroy,
                                            uintptr_t createParameter) noexcept
{
    if (!inRange(type)) {
        UNICODE_LogError("UNICODE_RegisterConverterType", UNICODE_ERR_OUT_OF_BOUNDS,
                         "Converter ID number is out of bounds");
        return UNICODE_ERR_OUT_OF_BOUNDS;
    }
    gRegistry[type] = TypeSlot{type, 0, create, addMapping, toUnicode, fromUnicode, destroy, flags, createParameter};
    return 0;
}

RQ_API U32 UNICODE_RegisterConverterType(int type, UNICODE_CREATE_PROC create, UNICODE_ADDMAPPING_PROC addMapping,
                                         UNICODE_TOUNICODE_PROC toUnicode, UNICODE_FROMUNICODE_PROC fromUnicode,
                                         UNICODE_DESTROY_PROC destroy) noexcept
{
    return UNICODE_RegisterConverterTypeExt(type, 0, create, addMapping, toUnicode, fromUnicode, destroy, 0);
}

RQ_API U32 UNICODE_ConverterDataGet(int type, U32 *flags, uintptr_t *createParameter) noexcept
{
    if (!inRange(type)) {
        UNICODE_LogError("UNICODE_ConverterDataGet", UNICODE_ERR_OUT_OF_BOUNDS, "Converter ID number is out of bounds");
        return UNICODE_ERR_OUT_OF_BOUNDS;
    }
    if (flags != nullptr)
        *flags = gRegistry[type].flags;
    if (createParameter != nullptr)
        *createParameter = gRegistry[type].createParameter;
    return 0;
}

RQ_API void UNICODE__ClearConverters(void) noexcept
{
    clearSlots();
}

RQ_API U32 UNICODE_Initialize(U32 ignored) noexcept
{
    (void)ignored;
    static const U32 kBuiltinSet0 = 0;
    struct Registration {
        int type;
        U32 flags;
        UNICODE_CREATE_PROC create;
        UNICODE_ADDMAPPING_PROC addMapping;
        UNICODE_TOUNICODE_PROC toUnicode;
        UNICODE_FROMUNICODE_PROC fromUnicode;
        UNICODE_DESTROY_PROC destroy;
        uintptr_t createParameter;
        const char *logName;
    };
    const Registration registrations[] = {
        {UNICODE_TYPE_8BIT, 0, UNICODE_NewConverter_8bit, UNICODE_AddMapping_8bit, UNICODE_ConvertToUnicode_8bit,
         UNICODE_ConvertFromUnicode_8bit, UNICODE_DestroyConverter_8bit, 0, "UNICODE_Initialize"},
        {UNICODE_TYPE_MBCS, 0, UNICODE_NewConverter_mbcs, UNICODE_AddMapping_mbcs, UNICODE_ConvertToUnicode_mbcs,
         UNICODE_ConvertFromUnicode_mbcs, UNICODE_DestroyConverter_mbcs, 0, "UNICODE_Initialize"},
        {UNICODE_TYPE_BUILTIN, 0, UNICODE_NewConverter_builtin, UNICODE_AddMapping_8bit,
         UNICODE_ConvertToUnicode_8bit, UNICODE_ConvertFromUnicode_8bit, UNICODE_DestroyConverter_8bit,
         reinterpret_cast<uintptr_t>(&kBuiltinSet0), "UNICODE_Initialize"},
        {UNICODE_TYPE_UTF8, 0, UNICODE_NewConverter_utf8, UNICODE_AddMapping_utf8, UNICODE_ConvertToUnicode_utf8,
         UNICODE_ConvertFromUnicode_utf8, UNICODE_DestroyConverter_utf8, 0, "UNICODE_Initialize"},
        // The name logged for these two is "UNICODE_Initialized"; log readers match on it.
        {UNICODE_TYPE_ISO2022JP, UNICODE_TYPEFLAG_MAPDIR_PARAMETER, UNICODE_NewConverter_iso2022jp,
         UNICODE_AddMapping_iso2022, UNICODE_ConvertToUnicode_iso2022, UNICODE_ConvertFromUnicode_iso2022,
         UNICODE_DestroyConverter_iso2022, 0, "UNICODE_Initialized"},
        {UNICODE_TYPE_ISO2022CN, UNICODE_TYPEFLAG_MAPDIR_PARAMETER, UNICODE_NewConverter_iso2022cn,
         UNICODE_AddMapping_iso2022, UNICODE_ConvertToUnicode_iso2022, UNICODE_ConvertFromUnicode_iso2022,
         UNICODE_DestroyConverter_iso2022, 0, "UNICODE_Initialized"},
    };

    rq::CriticalSection guard(registrySection());
    clearSlots();
    for (const Registration &r : registrations) {
        U32 rc = UNICODE_RegisterConverterTypeExt(r.type, r.flags, r.create, r.addMapping, r.toUnicode,
                                                  r.fromUnicode, r.destroy, r.createParameter);
        if (rc != 0) {
            UNICODE_LogError(r.logName, rc, "Unicode initialization failed (serious)");
            return rc;
        }
    }
    gInitialized = true;
    return 0;
}

RQ_API U32 UNICODE_InitUnicodeData(void) noexcept
{
    return 0;
}

RQ_API U32 UNICODE_UsesInternalData(void) noexcept
{
    return 1;
}

RQ_API U32 UNICODE_NewConverter(UNICODE_CONVERTER **out, U32 type, uintptr_t createParameter) noexcept
{
    if (!gInitialized) {
        UNICODE_LogError("UNICODE_NewConverter", UNICODE_ERR_NOT_INITIALIZED, "Unicode library was not initialized");
        return UNICODE_ERR_NOT_INITIALIZED;
    }
    if (out == nullptr) {
        // Logged under the destroy function's name: log readers match on it.
        UNICODE_LogError("UNICODE_DestroyConverter", UNICODE_ERR_NO_CONVERTER, "No pointer to allocate a converter");
        return UNICODE_ERR_NO_CONVERTER;
    }
    *out = nullptr;
    // A type beyond the registry is as unregistered as a free slot.
    if (type >= UNICODE_MAX_TYPES || gRegistry[type].type == -1 || gRegistry[type].create == nullptr) {
        UNICODE_LogError("UNICODE_NewConverter", UNICODE_ERR_UNREGISTERED, "Unregistered converter requested");
        return UNICODE_ERR_UNREGISTERED;
    }
    const TypeSlot &slot = gRegistry[type];
    rq::Block<UNICODE_CONVERTER> converter(RQ_MALLOC(sizeof(UNICODE_CONVERTER)));
    if (!converter) {
        UNICODE_LogError("UNICODE_NewConverter", UNICODE_ERR_MEMORY, "Memory allocation error");
        return UNICODE_ERR_MEMORY;
    }
    void *state = slot.create(static_cast<int>(type), createParameter);
    if (state == nullptr) {
        UNICODE_LogError("UNICODE_NewConverter", UNICODE_ERR_MEMORY, "Memory allocation error");
        return UNICODE_ERR_MEMORY;
    }
    *converter.get() = UNICODE_CONVERTER{static_cast<int>(type), state, slot.create, slot.addMapping,
                                         slot.toUnicode, slot.fromUnicode, slot.destroy};
    *out = converter.release();
    return 0;
}

RQ_API U32 UNICODE_DestroyConverter(UNICODE_CONVERTER *converter) noexcept
{
    if (converter == nullptr) {
        UNICODE_LogError("UNICODE_DestroyConverter", UNICODE_ERR_NO_CONVERTER, rq::unicode::kNoConverterMessage);
        return UNICODE_ERR_NO_CONVERTER;
    }
    U32 rc = converter->destroy != nullptr ? converter->destroy(converter->state) : 0;
    RQ_FREE(converter);
    return rc;
}

RQ_API U32 UNICODE_AddMapping(UNICODE_CONVERTER *converter, const U32 *native, const U32 *unicode) noexcept
{
    if (converter == nullptr) {
        UNICODE_LogError("UNICODE_AddMapping", UNICODE_ERR_NO_CONVERTER, rq::unicode::kNoConverterMessage);
        return UNICODE_ERR_NO_CONVERTER;
    }
    if (native == nullptr || unicode == nullptr)
        return UNICODE_ERR_NULL;
    if (converter->addMapping == nullptr)
        return UNICODE_ERR_UNREGISTERED;
    return converter->addMapping(converter->state, native, unicode);
}

RQ_API U32 UNICODE_ConvertToUnicode(UNICODE_CONVERTER *converter, const char *source, UNICODE_CHAR *destination,
                                    U32 *size, const char **sourceEnd, U32 flags) noexcept
{
    if (converter == nullptr) {
        UNICODE_LogError("UNICODE_ConvertToUnicode", UNICODE_ERR_NO_CONVERTER, rq::unicode::kNoConverterMessage);
        if (sourceEnd != nullptr)
            *sourceEnd = nullptr;
        return UNICODE_ERR_NO_CONVERTER;
    }
    return converter->toUnicode(converter->state, source, destination, size, sourceEnd, flags);
}

RQ_API U32 UNICODE_ConvertFromUnicode(UNICODE_CONVERTER *converter, const UNICODE_CHAR *source, char *destination,
                                      U32 *size, const UNICODE_CHAR **sourceEnd, U32 flags) noexcept
{
    if (converter == nullptr) {
        UNICODE_LogError("UNICODE_ConvertFromUnicode", UNICODE_ERR_NO_CONVERTER, rq::unicode::kNoConverterMessage);
        return UNICODE_ERR_NO_CONVERTER;
    }
    // The operation's status is dropped: callers rely on this call returning 0.
    (void)converter->fromUnicode(converter->state, source, destination, size, sourceEnd, flags);
    return 0;
}

}  // extern "C"
