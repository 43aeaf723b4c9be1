#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_charset_interim"
#include "internal/rq_mem.h"

#include "rqcore/types.h"

#include <strings.h>

// Interim character-set lookup, replaced by the character-set family's own
// (a strong definition) as soon as that family is built into the library.
extern "C" U32 CHARMAP_getCharacterSetID(const char *name, U32 *id) noexcept;

extern "C" __attribute__((weak)) U32 CHARMAP_getCharacterSetID(const char *name, U32 *id) noexcept
{
    *id = 0;
    if (strcasecmp(name, "us-ascii") == 0)
        *id = 3;
    else if (strcasecmp(name, "iso-8859-1") == 0)
        *id = 4;
    else if (strcasecmp(name, "utf-8") == 0)
        *id = 106;
    return *id != 0 ? 0 : 0x18A02;
}
