// Internal to the catalogs: lookups and the catalog's list layout, shared by
// the getters, the writers and the message formatter.
#ifndef RQ_NLS_INTERNAL_H
#define RQ_NLS_INTERNAL_H

#include "rqcore/nls.h"

#include <cstddef>

namespace rq::nls {

// The catalog list's flags for a creation mode.
U32 catalogFlags(U32 mode) noexcept;

// A new empty catalog list.
U32 createCatalog(HLIST *catalog, U32 mode) noexcept;

// True when name has fewer than cap characters.
bool nameFits(const char *name, size_t cap) noexcept;

// The keyword list of section: NLS_ERR_NO_SECTION when absent.
U32 findSection(HLIST catalog, const char *section, HLIST *keys) noexcept;

// The value of key in section into value (NLS_VALUE_SIZE bytes).
U32 findValue(HLIST catalog, const char *section, const char *key, char *value) noexcept;

}  // namespace rq::nls

#endif
