// Message catalogs: a profile file loaded as a list of section lists, and
// the getters of values and list elements.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/nls_catalog"
#include "internal/rq_mem.h"
#include "nls_internal.h"
#include "profile_internal.h"
#include "rqcore/lists.h"
#include "rqcore/profiles.h"

namespace rq::nls {

U32 catalogFlags(U32 mode) noexcept
{
    // 0x08 means nothing to the list; it is set because callers test for it.
    return DX_LIST_STRING_ID | DX_LIST_UNIQUE | (mode == NLS_MODE_PRIORITY ? DX_LIST_PRIORITY : 0x08u);
}

U32 createCatalog(HLIST *catalog, U32 mode) noexcept
{
    return DX_ListCreate(catalog, NLS_SECTION_NAME_SIZE, sizeof(HLIST), catalogFlags(mode), nullptr, nullptr);
}

bool nameFits(const char *name, size_t cap) noexcept
{
    return strnlen(name, cap) < cap;
}

U32 findSection(HLIST catalog, const char *section, HLIST *keys) noexcept
{
    if (!nameFits(section, NLS_SECTION_NAME_SIZE))
        return NLS_ERR_NO_SECTION;  // longer than any name a catalog can hold
    char id[NLS_SECTION_NAME_SIZE] = {};
    DX_MemStrnCopy(id, section, sizeof id);
    U32 rc = DX_ListGet(catalog, id, keys);
    return rc == DX_LIST_ERR_NOT_FOUND ? NLS_ERR_NO_SECTION : rc;
}

U32 findValue(HLIST catalog, const char *section, const char *key, char *value) noexcept
{
    HLIST keys = 0;
    U32 rc = findSection(catalog, section, &keys);
    if (rc != 0)
        return rc;
    if (!nameFits(key, PROFIL_KEY_NAME_SIZE))
        return NLS_ERR_NO_KEY;
    char id[PROFIL_KEY_NAME_SIZE] = {};
    DX_MemStrnCopy(id, key, sizeof id);
    rc = DX_ListGet(keys, id, value);
    return rc == DX_LIST_ERR_NOT_FOUND ? NLS_ERR_NO_KEY : rc;
}

namespace {

// Reads one section of the file and adds it to the catalog under its name.
U32 addSectionFromFile(HLIST catalog, const char *path, const char *name, bool priority) noexcept
{
    HLIST keys = 0;
    U32 rc = DX_GetProfileSection(path, name, &keys);
    if (rc == PROFIL_ERR_DUP_KEY || rc == DX_LIST_ERR_DUPLICATE)
        return NLS_ERR_DUP_KEY;
    if (rc != 0)
        return rc;
    if (priority)
        rc = DX_ListSetFlag(keys, DX_LIST_PRIORITY, 1);
    char id[NLS_SECTION_NAME_SIZE] = {};
    DX_MemStrnCopy(id, name, sizeof id);
    if (rc == 0)
        rc = DX_ListAddLast(catalog, id, &keys);
    if (rc != 0) {
        DX_ListDestroy(&keys);
        return rc == DX_LIST_ERR_DUPLICATE ? NLS_ERR_DUP_SECTION : rc;
    }
    return 0;
}

// True when every header of the file is found again under the name the
// section reader lists it by ("[name]", blanks allowed only after the name,
// at most 31 characters): DX_GetProfileSection of each listed name then
// reads the section under that very header.
U32 headersNameThemselves(const char *path, bool *yes) noexcept
{
    rq::Fd fd(rq::profile::openProfile(path));
    if (!fd.ok())
        return PROFIL_ERR_OPEN;
    rq::profile::LineReader reader(fd.get());
    char line[rq::profile::kLineBuffer];
    *yes = true;
    while (reader.next(line)) {
        if (line[0] != '[')
            continue;
        size_t n = std::strcspn(line + 1, " ]\r\n\t");
        if (n > PROFIL_SECTION_NAME_SIZE - 1)
            n = PROFIL_SECTION_NAME_SIZE - 1;
        if (!rq::profile::headerMatches(line, std::string_view(line + 1, n))) {
            *yes = false;
            break;
        }
    }
    return 0;
}

constexpr U32 kNotSame = 1;  // the one-pass load might differ: read per section

// Loads the whole file in one pass (DX_GetProfileSectionList) instead of one
// pass per section, when that gives the same catalog: every header names
// itself, and no line inside a brace value starts with "[" (the section
// list then holds as many sections as there are names).  Otherwise, and on
// any error of the file's text (the per-section reading decides which one
// is reported, and skips text before the first header), kNotSame leaves it
// to the per-section reading.
U32 loadInOnePass(HLIST *catalog, U32 mode, const char *path, U32 nameCount) noexcept
{
    bool same = false;
    U32 rc = headersNameThemselves(path, &same);
    if (rc != 0 || !same)
        return rc != 0 ? rc : kNotSame;
    HLIST all = 0;
    rc = DX_GetProfileSectionList(path, &all, nullptr);
    if (rc != 0)
        return rc == PROFIL_ERR_NO_MEMORY || (rc & 0xFFFFFF00u) != 0x15200u ? rc : kNotSame;
    rq::ScopeExit dropAll([&all] { DX_ProfileSectionListDestroy(&all); });
    U32 count = 0;
    if ((rc = DX_ListGetElemNum(all, &count)) != 0)
        return rc;
    if (count != nameCount)
        return kNotSame;
    HLIST built = 0;
    if ((rc = createCatalog(&built, mode)) != 0)
        return rc;
    char name[PROFIL_SECTION_NAME_SIZE];
    HLIST keys = 0;
    for (rc = DX_ListGetFirst(all, name, &keys); rc == 0; rc = DX_ListGetNext(all, name, &keys)) {
        if (mode == NLS_MODE_PRIORITY && (rc = DX_ListSetFlag(keys, DX_LIST_PRIORITY, 1)) != 0)
            break;
        char id[NLS_SECTION_NAME_SIZE] = {};
        DX_MemStrnCopy(id, name, sizeof name);
        // The section list refused repeated names already.
        if ((rc = DX_ListAlwaysAddLast(built, id, &keys)) != 0)
            break;
    }
    if (rc != DX_LIST_END) {
        DX_ListDestroy(&built);  // the section lists still belong to `all`
        return rc;
    }
    // The section lists now belong to the catalog.
    dropAll.dismiss();
    DX_ListDestroy(&all);
    *catalog = built;
    return 0;
}

void clearOut(char *out, U32 size) noexcept
{
    if (out != nullptr && size != 0)
        out[0] = '\0';
}

}  // namespace
}  // namespace rq::nls

using namespace rq::nls;

extern "C" {

RQ_API U32 DX_NLSListCreateFromSections(HLIST *catalog, U32 mode, const char *path, HLIST sections) noexcept
{
    if (catalog == nullptr)
        return NLS_ERR_NULL_POINTER;
    if (path == nullptr)
        return PROFIL_ERR_NO_FILE_NAME;
    HLIST built = 0;
    U32 rc = createCatalog(&built, mode);
    if (rc != 0)
        return rc;
    rq::ScopeExit destroy([&built] { DX_NLSListDestroy(&built); });
    U32 nameSize = 0;
    rc = DX_ListGetIdSize(sections, &nameSize);
    if (rc != 0)
        return rc;
    // Names are read into a buffer of the list's own identifier size, so a
    // list of longer names is read whole and then cut to a catalog name.
    if (nameSize > 0x7FFFFFFEu)
        return NLS_ERR_NO_MEMORY;
    rq::Block<char> name(RQ_CALLOC(nameSize + 1u, 1));
    if (!name)
        return NLS_ERR_NO_MEMORY;
    bool priority = mode == NLS_MODE_PRIORITY;
    for (rc = DX_ListGetFirst(sections, name.get(), nullptr); rc == 0;
         rc = DX_ListGetNext(sections, name.get(), nullptr)) {
        name[nameSize] = '\0';
        rc = addSectionFromFile(built, path, name.get(), priority);
        if (rc != 0)
            return rc;
    }
    if (rc != DX_LIST_END)
        return rc;
    destroy.dismiss();
    *catalog = built;
    return 0;
}

RQ_API U32 DX_NLSListCreate(HLIST *catalog, U32 mode, const char *path) noexcept
{
    if (catalog == nullptr)
        return NLS_ERR_NULL_POINTER;
    HLIST sections = 0;
    U32 rc = DX_GetProfileSections(path, &sections);
    if (rc == PROFIL_ERR_DUP_SECTION || rc == DX_LIST_ERR_DUPLICATE)
        return NLS_ERR_DUP_SECTION;
    if (rc != 0)
        return rc;
    U32 nameCount = 0;
    rc = DX_ListGetElemNum(sections, &nameCount);
    if (rc == 0)
        rc = loadInOnePass(catalog, mode, path, nameCount);
    if (rc != kNotSame) {
        DX_ListDestroy(&sections);
        return rc;
    }
    // The section reader lists the newest section first; the catalog keeps
    // file order, so that a catalog written back keeps its sections in place.
    HLIST inOrder = 0;
    rc = DX_ListCreate(&inOrder, PROFIL_SECTION_NAME_SIZE, 0, DX_LIST_STRING_ID, nullptr, nullptr);
    char name[PROFIL_SECTION_NAME_SIZE];
    U32 walk = rc == 0 ? DX_ListGetFirst(sections, name, nullptr) : rc;
    for (; walk == 0; walk = DX_ListGetNext(sections, name, nullptr))
        if ((walk = DX_ListAddFirst(inOrder, name, nullptr)) != 0)
            break;
    DX_ListDestroy(&sections);
    if (walk == DX_LIST_END)
        rc = DX_NLSListCreateFromSections(catalog, mode, path, inOrder);
    else
        rc = walk;
    if (inOrder != 0)
        DX_ListDestroy(&inOrder);
    return rc;
}

RQ_API U32 DX_NLSListDestroy(HLIST *catalog) noexcept
{
    return DX_ProfileSectionListDestroy(catalog);
}

RQ_API U32 DX_NLSGet(HLIST catalog, char *out, U32 size, const char *section, const char *key) noexcept
{
    if (out == nullptr || section == nullptr || key == nullptr) {
        clearOut(out, size);
        return NLS_ERR_NULL_POINTER;
    }
    char value[NLS_VALUE_SIZE];
    U32 rc = findValue(catalog, section, key, value);
    if (rc != 0) {
        clearOut(out, size);
        return rc;
    }
    DX_MemStrnCopy(out, value, size);
    return 0;
}

RQ_API U32 DX_NLSGetElement(HLIST catalog, char *out, U32 size, const char *section, const char *key, U32 index) noexcept
{
    if (out == nullptr || section == nullptr || key == nullptr) {
        clearOut(out, size);
        return NLS_ERR_NULL_POINTER;
    }
    char value[NLS_VALUE_SIZE];
    U32 rc = findValue(catalog, section, key, value);
    char element[NLS_ELEMENT_SIZE];
    char *cursor = value;
    U32 done = 0;
    // Elements are counted from 0; the tokenizer runs to the wanted one.
    for (U32 i = 0, mode = 1; rc == 0; ++i, mode = 2) {
        rc = DX_EnumProfileStr(element, &cursor, mode, &done);
        if (rc == 0 && done != 0)
            rc = NLS_ERR_NO_ELEMENT;
        if (rc == 0 && i == index)
            break;
    }
    if (rc != 0) {
        clearOut(out, size);
        return rc;
    }
    DX_MemStrnCopy(out, element, size);
    return 0;
}

}  // extern "C"
