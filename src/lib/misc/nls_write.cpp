// Catalog maintenance: sections and entries added or changed in memory, and
// the whole catalog written as a profile file that the profile reader reads
// back unchanged.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/nls_write"
#include "internal/rq_mem.h"
#include "nls_internal.h"
#include "rqcore/lists.h"
#include "rqcore/profiles.h"

#include <cerrno>
#include <cstdio>
#include <string_view>

namespace rq::nls {
namespace {

// The reader takes at most 214 characters per line, the newline included.
constexpr size_t kLineChars = 213;
constexpr size_t kNameChars = PROFIL_SECTION_NAME_SIZE - 1;  // names the section reader keeps whole
constexpr size_t kKeyChars = PROFIL_KEY_NAME_SIZE - 2;
constexpr U32 kKeywordsFlags = 0x64;  // as the profile reader builds them
constexpr std::string_view kIndent = "  ";

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }
bool isBlank(char c) { return c == ' ' || c == '\t'; }

// A section name that DX_GetProfileSections lists whole and DX_GetProfileSection
// finds again: the former stops at blanks, tabs and "]", and keeps 31 characters.
bool validSection(std::string_view name) noexcept
{
    if (name.empty() || name.size() > kNameChars)
        return false;
    for (char c : name)
        if (isControl(c) || c == ' ' || c == ']')
            return false;
    return true;
}

// A key that the enumerating readers keep whole (31 characters, trimmed,
// cut at the first "=") and that is not read as a header or a comment.
bool validKey(std::string_view key) noexcept
{
    if (key.empty() || key.size() > kKeyChars || isBlank(key.front()) || isBlank(key.back()))
        return false;
    if (key.front() == '[' || key.front() == '#' || key.front() == '/')
        return false;
    for (char c : key)
        if (isControl(c) || c == '=')
            return false;
    return true;
}

// Appends to out; a NULL out only validates.
struct Writer {
    ZOL_EXTSTR *out;
    U32 rc = 0;
    void put(std::string_view t) noexcept
    {
        if (out != nullptr && rc == 0)
            rc = ZOL_ExtstrAddLen(out, t.data(), static_cast<U32>(t.size()));
    }
};

// Read back as it stands: the unquoted form keeps everything but a comment,
// surrounding blanks and quotes.
bool bare(std::string_view v) noexcept
{
    if (v.empty() || v.front() == '{' || isBlank(v.front()) || isBlank(v.back()))
        return false;
    for (char c : v)
        if (isControl(c) || c == '"' || c == '#' || c == '\\')
            return false;
    return true;
}

// A list value kept in brace form: the reader cuts comments ("#") and reads
// further lines until one ends with "}".
bool braced(std::string_view v) noexcept
{
    if (v.size() < 2 || v.front() != '{' || v.back() != '}')
        return false;
    for (char c : v)
        if (isControl(c) || c == '#')
            return false;
    return true;
}

// Breaks a long brace value after commas followed by a non-blank, so that
// no blank is lost where the reader joins the lines.  Continuation lines are
// indented (never a header) and a value holding "=" is not broken, since a
// continuation line must not look like a key to the key getters.
U32 putBraced(Writer &w, std::string_view head, std::string_view v) noexcept
{
    if (head.size() + v.size() <= kLineChars) {
        w.put(head);
        w.put(v);
        w.put("\n");
        return 0;
    }
    if (v.find('=') != std::string_view::npos)
        return NLS_ERR_VALUE;
    size_t room = kLineChars - head.size();
    std::string_view lead = head;
    while (v.size() > room) {
        size_t cut = 0;
        for (size_t i = 0; i + 1 < v.size() && i < room; ++i)
            if (v[i] == ',' && !isBlank(v[i + 1]))
                cut = i + 1;
        if (cut == 0)
            return NLS_ERR_VALUE;
        w.put(lead);
        w.put(v.substr(0, cut));
        w.put("\n");
        v.remove_prefix(cut);
        lead = kIndent;
        room = kLineChars - kIndent.size();
    }
    w.put(lead);
    w.put(v);
    w.put("\n");
    return 0;
}

U32 putQuoted(Writer &w, std::string_view head, std::string_view v) noexcept
{
    size_t length = head.size() + 2;
    for (char c : v) {
        if (c == '\r')
            return NLS_ERR_VALUE;  // no escape gives it back
        length += (c == '"' || c == '\\' || c == '\n' || c == '\t') ? 2 : 1;
    }
    if (length > kLineChars)
        return NLS_ERR_VALUE;
    w.put(head);
    w.put("\"");
    size_t run = 0;
    for (size_t i = 0; i < v.size(); ++i) {
        const char *escape = v[i] == '"' ? "\\\"" : v[i] == '\\' ? "\\\\" : v[i] == '\n' ? "\\n" : v[i] == '\t' ? "\\t" : nullptr;
        if (escape == nullptr)
            continue;
        w.put(v.substr(run, i - run));
        w.put(escape);
        run = i + 1;
    }
    w.put(v.substr(run));
    w.put("\"\n");
    return 0;
}

}  // namespace

// Renders one "key = value" entry (one or more lines) onto out, or only
// checks that it can be written when out is NULL.
U32 renderEntry(const char *key, const char *value, ZOL_EXTSTR *out) noexcept
{
    if (!validKey(key) || strnlen(value, NLS_VALUE_SIZE) >= NLS_VALUE_SIZE)
        return NLS_ERR_VALUE;
    std::string_view v(value);
    char head[PROFIL_KEY_NAME_SIZE + 3];
    int n = std::snprintf(head, sizeof head, "%s = ", key);
    std::string_view h(head, static_cast<size_t>(n));
    Writer w{out};
    U32 rc = 0;
    if (bare(v) && h.size() + v.size() <= kLineChars) {
        w.put(h);
        w.put(v);
        w.put("\n");
    } else if (braced(v)) {
        rc = putBraced(w, h, v);
    } else {
        rc = putQuoted(w, h, v);
    }
    return rc != 0 ? rc : w.rc;
}

namespace {

U32 render(HLIST catalog, ZOL_EXTSTR *out) noexcept
{
    char section[NLS_SECTION_NAME_SIZE];
    char key[PROFIL_KEY_NAME_SIZE];
    char value[NLS_VALUE_SIZE];
    HLIST keys = 0;
    U32 rc = DX_ListGetFirst(catalog, section, &keys);
    for (bool first = true; rc == 0; rc = DX_ListGetNext(catalog, section, &keys), first = false) {
        if (!validSection(section))
            return NLS_ERR_VALUE;
        Writer w{out};
        w.put(first ? "[" : "\n[");
        w.put(section);
        w.put("]\n");
        if (w.rc != 0)
            return w.rc;
        U32 k = DX_ListGetFirst(keys, key, value);
        for (; k == 0; k = DX_ListGetNext(keys, key, value))
            if (U32 e = renderEntry(key, value, out); e != 0)
                return e;
        if (k != DX_LIST_END)
            return k;
    }
    return rc == DX_LIST_END ? 0 : rc;
}

U32 writeWhole(const char *path, const ZOL_EXTSTR &text) noexcept
{
    size_t n = std::strlen(path);
    rq::Block<char> temp(RQ_MALLOC(n + 5));
    if (!temp)
        return NLS_ERR_NO_MEMORY;
    std::memcpy(temp.get(), path, n);
    std::memcpy(temp.get() + n, ".new", 5);
    // Written beside the file and renamed over it, so that a reader never
    // sees half a catalog and a failed write leaves the old file whole.
    rq::Fd fd(::open(temp.get(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd.ok())
        return NLS_ERR_WRITE;
    for (U32 done = 0; done < text.length;) {
        ssize_t w = ::write(fd.get(), text.text + done, text.length - done);
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0) {
            fd.close();
            ::unlink(temp.get());
            return NLS_ERR_WRITE;
        }
        done += static_cast<U32>(w);
    }
    if (fd.close() != 0 || std::rename(temp.get(), path) != 0) {
        ::unlink(temp.get());
        return NLS_ERR_WRITE;
    }
    return 0;
}

U32 addEntry(HLIST catalog, const char *section, const char *key, const char *value, bool update) noexcept
{
    if (section == nullptr || key == nullptr || value == nullptr)
        return NLS_ERR_NULL_POINTER;
    HLIST keys = 0;
    U32 rc = findSection(catalog, section, &keys);
    if (rc != 0)
        return rc;
    rc = renderEntry(key, value, nullptr);
    if (rc != 0)
        return rc;
    char id[PROFIL_KEY_NAME_SIZE] = {};
    char data[NLS_VALUE_SIZE] = {};
    DX_MemStrnCopy(id, key, sizeof id);
    DX_MemStrnCopy(data, value, sizeof data);
    if (update) {
        rc = DX_ListChangeData(keys, id, nullptr, data);
        return rc == DX_LIST_ERR_NOT_FOUND ? NLS_ERR_NO_KEY : rc;
    }
    rc = DX_ListAddLast(keys, id, data);
    return rc == DX_LIST_ERR_DUPLICATE ? NLS_ERR_DUP_KEY : rc;
}

}  // namespace
}  // namespace rq::nls

using namespace rq::nls;

extern "C" {

RQ_API U32 DX_NLSWriteToAFile(HLIST catalog, const char *path) noexcept
{
    if (path == nullptr)
        return NLS_ERR_NULL_POINTER;
    ZOL_EXTSTR text;
    U32 rc = ZOL_ExtstrInit(&text, 1024);
    if (rc != 0)
        return rc;
    rc = render(catalog, &text);
    if (rc == 0)
        rc = writeWhole(path, text);
    ZOL_ExtstrFree(&text);
    return rc;
}

RQ_API U32 DX_NLSAddSection(HLIST catalog, const char *section) noexcept
{
    if (section == nullptr)
        return NLS_ERR_NULL_POINTER;
    if (!validSection(section))
        return NLS_ERR_VALUE;
    U32 flags = 0;
    U32 rc = DX_ListGetFlags(catalog, &flags);
    if (rc != 0)
        return rc;
    HLIST keys = 0;
    rc = DX_ListCreate(&keys, PROFIL_KEY_NAME_SIZE, NLS_VALUE_SIZE, kKeywordsFlags | (flags & DX_LIST_PRIORITY), nullptr,
                       nullptr);
    if (rc != 0)
        return rc;
    char id[NLS_SECTION_NAME_SIZE] = {};
    DX_MemStrnCopy(id, section, sizeof id);
    rc = DX_ListAddLast(catalog, id, &keys);
    if (rc != 0) {
        DX_ListDestroy(&keys);
        return rc == DX_LIST_ERR_DUPLICATE ? NLS_ERR_DUP_SECTION : rc;
    }
    return 0;
}

RQ_API U32 DX_NLSAddEntry(HLIST catalog, const char *section, const char *key, const char *value) noexcept
{
    return addEntry(catalog, section, key, value, false);
}

RQ_API U32 DX_NLSUpdateEntry(HLIST catalog, const char *section, const char *key, const char *value) noexcept
{
    return addEntry(catalog, section, key, value, true);
}

RQ_API U32 DX_NLSCreateOrUpdateFile(const char *path, const char *section, const char *key, const char *value) noexcept
{
    if (path == nullptr || section == nullptr || key == nullptr || value == nullptr)
        return NLS_ERR_NULL_POINTER;
    if (!validSection(section) || renderEntry(key, value, nullptr) != 0)
        return NLS_ERR_VALUE;
    HLIST catalog = 0;
    U32 rc = DX_NLSListCreate(&catalog, NLS_MODE_PLAIN, path);
    if (rc == PROFIL_ERR_OPEN && ::access(path, F_OK) != 0 && errno == ENOENT)
        rc = createCatalog(&catalog, NLS_MODE_PLAIN);  // a new file
    if (rc != 0)
        return rc;
    rq::ScopeExit destroy([&catalog] { DX_NLSListDestroy(&catalog); });
    HLIST keys = 0;
    rc = findSection(catalog, section, &keys);
    if (rc == NLS_ERR_NO_SECTION)
        rc = DX_NLSAddSection(catalog, section);
    if (rc == 0)
        rc = DX_NLSAddEntry(catalog, section, key, value);
    if (rc == NLS_ERR_DUP_KEY)
        rc = DX_NLSUpdateEntry(catalog, section, key, value);
    if (rc == 0)
        rc = DX_NLSWriteToAFile(catalog, path);
    return rc;
}

}  // extern "C"
