// The enumerating readers: section names, one section's keywords, and the
// whole file as a list of sections.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/profile_sections"
#include "internal/rq_mem.h"
#include "profile_internal.h"
#include "rqcore/lists.h"

namespace rq::profile {
namespace {

constexpr U32 kSectionNamesFlags = 0x24;  // unique, string key
constexpr U32 kKeywordsFlags = 0x64;      // unique, string key, string data
constexpr U32 kKeyChars = 31;             // characters of a key taken from its line

// A section name as the enumerators take it: directly after "[" (no blank
// skipping) up to the first space, "]", CR, LF or tab.  So "[ Mail ]" is
// listed under the empty name; callers rely on it.
void sectionName(const char *line, char *name) noexcept
{
    const char *p = line + 1;
    size_t n = std::strcspn(p, " ]\r\n\t");
    if (n > PROFIL_SECTION_NAME_SIZE - 1)
        n = PROFIL_SECTION_NAME_SIZE - 1;
    std::memset(name, 0, PROFIL_SECTION_NAME_SIZE);
    std::memcpy(name, p, n);
}

bool numericName(const char *name) noexcept
{
    if (*name == '\0')
        return false;
    for (; *name != '\0'; ++name)
        if (*name < '0' || *name > '9')
            return false;
    return true;
}

// Remembers the names put into a unique list so that a duplicate is found by
// hashing rather than by the list's linear search (which made large files
// quadratic); the list then takes each element without searching again.
class NameSet {
public:
    explicit NameSet(U32 width) noexcept : width_(width) {}
    ~NameSet()
    {
        if (names_ != nullptr)
            RQ_FREE(names_);
        if (slots_ != nullptr)
            RQ_FREE(slots_);
    }
    NameSet(const NameSet &) = delete;
    NameSet &operator=(const NameSet &) = delete;

    void clear() noexcept
    {
        count_ = 0;
        if (slots_ != nullptr)
            std::memset(slots_, 0, slotCount_ * sizeof *slots_);
    }

    // name holds width bytes, zero-padded.  0 when added, DX_LIST_ERR_DUPLICATE
    // when already present, PROFIL_ERR_NO_MEMORY.
    U32 insert(const char *name) noexcept
    {
        if ((count_ + 1) * 2 > slotCount_ && !rehash(slotCount_ == 0 ? 64 : slotCount_ * 2))
            return PROFIL_ERR_NO_MEMORY;
        if (count_ == nameCount_) {
            U32 more = nameCount_ == 0 ? 16 : nameCount_ * 2;
            void *grown = RQ_REALLOC(names_, static_cast<size_t>(more) * width_);
            if (grown == nullptr)
                return PROFIL_ERR_NO_MEMORY;
            names_ = static_cast<char *>(grown);
            nameCount_ = more;
        }
        U32 mask = slotCount_ - 1;
        for (U32 i = hash(name) & mask;; i = (i + 1) & mask) {
            if (slots_[i] == 0) {
                std::memcpy(names_ + static_cast<size_t>(count_) * width_, name, width_);
                slots_[i] = ++count_;
                return 0;
            }
            if (std::memcmp(at(slots_[i] - 1), name, width_) == 0)
                return DX_LIST_ERR_DUPLICATE;
        }
    }

private:
    const char *at(U32 index) const noexcept { return names_ + static_cast<size_t>(index) * width_; }

    U32 hash(const char *name) const noexcept
    {
        U32 h = 2166136261u;  // FNV-1a
        for (U32 i = 0; i < width_ && name[i] != '\0'; ++i)
            h = (h ^ static_cast<unsigned char>(name[i])) * 16777619u;
        return h;
    }

    bool rehash(U32 slots) noexcept
    {
        auto *fresh = static_cast<U32 *>(RQ_CALLOC(slots, sizeof(U32)));
        if (fresh == nullptr)
            return false;
        for (U32 n = 0; n < count_; ++n) {
            U32 i = hash(at(n)) & (slots - 1);
            while (fresh[i] != 0)
                i = (i + 1) & (slots - 1);
            fresh[i] = n + 1;
        }
        if (slots_ != nullptr)
            RQ_FREE(slots_);
        slots_ = fresh;
        slotCount_ = slots;
        return true;
    }

    U32 width_;
    char *names_ = nullptr;
    U32 count_ = 0;
    U32 nameCount_ = 0;
    U32 *slots_ = nullptr;
    U32 slotCount_ = 0;
};

// Turns the list's duplicate refusal into the profile's code, and logs it.
U32 duplicateAs(U32 rc, U32 code) noexcept
{
    if (rc != DX_LIST_ERR_DUPLICATE)
        return rc;
    logDuplicate(code);
    return code;
}

// Adds the keyword on a significant line to keywords; reads continuation
// lines of a brace block from reader.
U32 addKeyword(HLIST keywords, NameSet &seen, const char *line, LineReader &reader) noexcept
{
    const char *p = line + std::strspn(line, " =\t\n\r\b");
    const char *eq = std::strchr(p, '=');
    size_t n = static_cast<size_t>(eq - p);
    while (n > 0 && (p[n - 1] == ' ' || p[n - 1] == '\t' || p[n - 1] == '\n'))
        --n;
    if (n > kKeyChars)
        n = kKeyChars;
    char key[PROFIL_KEY_NAME_SIZE] = {};
    std::memcpy(key, p, n);
    char value[PROFIL_VALUE_SIZE];
    U32 rc = parseValue(eq + 1, &reader, value, sizeof value);
    if (rc == 0)
        rc = seen.insert(key);
    if (rc == 0)
        rc = DX_ListAlwaysAddLast(keywords, key, value);  // file order; uniqueness checked above
    return duplicateAs(rc, PROFIL_ERR_DUP_KEY);
}

// Reads keyword lines into a new list up to the next header (left in line,
// with *atHeader set) or the end of the file.
U32 readKeywords(LineReader &reader, NameSet &seen, char *line, bool *atHeader, HLIST *out) noexcept
{
    seen.clear();
    HLIST keywords = 0;
    U32 rc = DX_ListCreate(&keywords, PROFIL_KEY_NAME_SIZE, PROFIL_VALUE_SIZE, kKeywordsFlags, nullptr, nullptr);
    if (rc != 0)
        return rc;
    rq::ScopeExit destroy([&keywords] { DX_ListDestroy(&keywords); });
    *atHeader = false;
    while (reader.next(line)) {
        if (line[0] == '[') {
            *atHeader = true;
            break;
        }
        if (!significant(line))
            continue;
        rc = addKeyword(keywords, seen, line, reader);
        if (rc != 0)
            return rc;
    }
    destroy.dismiss();
    *out = keywords;
    return 0;
}

U32 sectionNames(const char *path, HLIST *listOut, bool numericOnly) noexcept
{
    if (path == nullptr)
        return PROFIL_ERR_NO_FILE_NAME;
    rq::Fd fd(openProfile(path));
    if (!fd.ok())
        return PROFIL_ERR_OPEN;
    HLIST list = 0;
    U32 rc = DX_ListCreate(&list, PROFIL_SECTION_NAME_SIZE, 0, kSectionNamesFlags, nullptr, nullptr);
    if (rc != 0)
        return rc;
    rq::ScopeExit destroy([&list] { DX_ListDestroy(&list); });
    LineReader reader(fd.get());
    NameSet seen(PROFIL_SECTION_NAME_SIZE);
    char line[kLineBuffer];
    char name[PROFIL_SECTION_NAME_SIZE];
    while (reader.next(line)) {
        if (line[0] != '[')
            continue;
        sectionName(line, name);
        if (numericOnly && !numericName(name))
            continue;
        // As DX_ListAddTo on this unsorted unique list: refused if present,
        // else put at the front; callers get the newest section first.
        rc = seen.insert(name);
        if (rc == 0)
            rc = DX_ListAddFirst(list, name, nullptr);
        rc = duplicateAs(rc, PROFIL_ERR_DUP_SECTION);
        if (rc != 0)
            return rc;
    }
    if (listOut != nullptr) {
        destroy.dismiss();
        *listOut = list;
    }
    return 0;
}

}  // namespace
}  // namespace rq::profile

using namespace rq::profile;

extern "C" {

RQ_API U32 DX_GetProfileSections(const char *path, HLIST *listOut) noexcept
{
    return sectionNames(path, listOut, false);
}

RQ_API U32 DX_GetProfileNumericSections(const char *path, HLIST *listOut) noexcept
{
    return sectionNames(path, listOut, true);
}

RQ_API U32 DX_GetProfileSection(const char *path, const char *section, HLIST *listOut) noexcept
{
    if (path == nullptr)
        return PROFIL_ERR_NO_FILE_NAME;
    if (section == nullptr)
        return PROFIL_ERR_NO_SECTION_NAME;
    rq::Fd fd(openProfile(path));
    if (!fd.ok())
        return PROFIL_ERR_OPEN;
    LineReader reader(fd.get());
    char line[kLineBuffer];
    if (!skipToSection(reader, line, section))
        return PROFIL_ERR_NO_SECTION;
    HLIST keywords = 0;
    bool atHeader = false;
    NameSet seen(PROFIL_KEY_NAME_SIZE);
    U32 rc = readKeywords(reader, seen, line, &atHeader, &keywords);
    if (rc != 0)
        return rc;
    if (listOut != nullptr)
        *listOut = keywords;
    else
        DX_ListDestroy(&keywords);
    return 0;
}

RQ_API U32 DX_ProfileSectionListDestroy(HLIST *list) noexcept
{
    if (list == nullptr || *list == 0)
        return DX_LIST_ERR_NO_LIST;
    HLIST inner = 0;
    for (U32 rc = DX_ListGetFirst(*list, nullptr, &inner); rc == 0; rc = DX_ListGetNext(*list, nullptr, &inner))
        DX_ListDestroy(&inner);
    return DX_ListDestroy(list);
}

RQ_API U32 DX_GetProfileSectionList(const char *path, HLIST *listOut, PROFIL_CONSTRAINTPROCPTR constraint) noexcept
{
    if (path == nullptr)
        return PROFIL_ERR_NO_FILE_NAME;
    rq::Fd fd(openProfile(path));
    if (!fd.ok())
        return PROFIL_ERR_OPEN;
    HLIST sections = 0;
    U32 rc = DX_ListCreate(&sections, PROFIL_SECTION_NAME_SIZE, sizeof(HLIST), kSectionNamesFlags, nullptr, nullptr);
    if (rc != 0)
        return rc;
    rq::ScopeExit destroy([&sections] { DX_ProfileSectionListDestroy(&sections); });
    LineReader reader(fd.get());
    char line[kLineBuffer];
    bool atHeader = false;
    // The first significant item must be a section header.
    while (reader.next(line)) {
        if (line[0] == '[') {
            atHeader = true;
            break;
        }
        if (significant(line))
            return PROFIL_ERR_SYNTAX;
    }
    char name[PROFIL_SECTION_NAME_SIZE];
    NameSet sectionsSeen(PROFIL_SECTION_NAME_SIZE);
    NameSet keysSeen(PROFIL_KEY_NAME_SIZE);
    while (atHeader) {
        sectionName(line, name);
        if (constraint != nullptr && constraint(name) == 0) {
            // A rejected section's lines are skipped without being parsed.
            atHeader = false;
            while (!atHeader && reader.next(line))
                atHeader = line[0] == '[';
            continue;
        }
        HLIST keywords = 0;
        rc = readKeywords(reader, keysSeen, line, &atHeader, &keywords);
        if (rc != 0)
            return rc;
        // Sections are kept in file order.
        rc = sectionsSeen.insert(name);
        if (rc == 0)
            rc = DX_ListAlwaysAddLast(sections, name, &keywords);
        if (rc != 0) {
            DX_ListDestroy(&keywords);
            return duplicateAs(rc, PROFIL_ERR_DUP_SECTION);
        }
    }
    if (listOut != nullptr) {
        destroy.dismiss();
        *listOut = sections;
    }
    return 0;
}

RQ_API int DX_ProfileConstraintNumeric(const char *name) noexcept
{
    if (name == nullptr)
        return 0;
    for (; *name != '\0'; ++name)
        if (*name < '0' || *name > '9')
            return 0;
    return 1;  // the empty name passes
}

RQ_API U32 DX_IsAProfileSection(const char *path, const char *section, U32 *found) noexcept
{
    if (path == nullptr)
        return PROFIL_ERR_NO_FILE_NAME;
    if (section == nullptr)
        return PROFIL_ERR_NO_SECTION_NAME;
    if (found == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    rq::Fd fd(openProfile(path));
    if (!fd.ok())
        return PROFIL_ERR_OPEN;
    LineReader reader(fd.get());
    char line[kLineBuffer];
    *found = skipToSection(reader, line, section) ? 1 : 0;
    return 0;
}

}  // extern "C"
