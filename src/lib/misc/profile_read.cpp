// The profile getters: single values and lists, from a file, from a brace
// text or from a keyword list.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/profile_read"
#include "internal/rq_mem.h"
#include "profile_internal.h"
#include "rqcore/lists.h"

#include <type_traits>

namespace rq::profile {
namespace {

constexpr U32 kListSorted = 0x01;
constexpr U32 kListStringId = 0x20;

// Finds section, then key, and reads the value; the file is closed on every
// path out.
U32 findValue(const char *path, const char *section, const char *key, char *dst, size_t cap) noexcept
{
    rq::Fd fd(openProfile(path));
    if (!fd.ok())
        return PROFIL_ERR_OPEN;
    LineReader reader(fd.get());
    char line[kLineBuffer];
    if (!skipToSection(reader, line, section))
        return PROFIL_ERR_NO_SECTION;
    if (key == nullptr)
        return PROFIL_ERR_NO_KEY;
    std::string_view k(key);
    while (reader.next(line)) {
        if (line[0] == '[')
            return PROFIL_ERR_NO_KEY;  // the next section ends the search
        if (const char *value = keyMatches(line, k))
            return parseValue(value, &reader, dst, cap);  // the first match wins
    }
    return PROFIL_ERR_NO_KEY;
}

U32 parseBool(const char *s, U32 *out) noexcept
{
    // Only these four spellings are booleans; callers rely on "True" and "1" failing.
    if (std::strcmp(s, "TRUE") == 0 || std::strcmp(s, "true") == 0) {
        *out = 1;
        return 0;
    }
    if (std::strcmp(s, "FALSE") == 0 || std::strcmp(s, "false") == 0) {
        *out = 0;
        return 0;
    }
    return PROFIL_ERR_NOT_A_BOOLEAN;
}

// One reader for every element type: how a text becomes a T, and how big its
// list element is.
template <typename T>
struct Kind;
template <>
struct Kind<U16> {
    static U32 parse(const char *s, U16 *out) noexcept { return GetUnsigned16FromStr(s, out); }
};
template <>
struct Kind<U32> {
    static U32 parse(const char *s, U32 *out) noexcept { return GetUnsigned32FromStr(s, out); }
};
template <>
struct Kind<S16> {
    static U32 parse(const char *s, S16 *out) noexcept { return GetSigned16FromStr(s, out); }
};
template <>
struct Kind<S32> {
    static U32 parse(const char *s, S32 *out) noexcept { return GetSigned32FromStr(s, out); }
};
struct Bool {
    U32 v;
};
template <>
struct Kind<Bool> {
    static U32 parse(const char *s, Bool *out) noexcept { return parseBool(s, &out->v); }
};
struct Str {
    char text[PROFIL_ELEMENT_SIZE];
};
template <>
struct Kind<Str> {
    static U32 parse(const char *s, Str *out) noexcept
    {
        copyBounded(out->text, sizeof out->text, s);
        return 0;
    }
};

template <typename T>
U32 parseMapped(const char *s, T *out) noexcept
{
    return MapParsestringErrorToProfilError(Kind<T>::parse(s, out));
}

template <typename T>
U32 getNumber(const char *path, const char *section, const char *key, T *out, T dflt) noexcept
{
    if (path == nullptr && section == nullptr) {
        if (out != nullptr)
            *out = dflt;
        return 0;
    }
    if (out == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    char text[kLineBuffer];
    U32 rc = DX_GetProfileStr(path, section, key, text, sizeof text, "");
    T value{};
    if (rc == 0)
        rc = parseMapped(text, &value);
    *out = rc == 0 ? value : dflt;
    return rc;
}

// Builds a list of T from a brace text.
template <typename T>
U32 buildList(const char *text, HLIST *listOut, U32 flags, PROFIL_LISTCMPPROCPTR a = nullptr,
              PROFIL_LISTCMPPROCPTR b = nullptr) noexcept
{
    if (text == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    constexpr bool isStr = std::is_same_v<T, Str>;
    constexpr U32 idSize = isStr ? PROFIL_ELEMENT_SIZE : sizeof(T);
    HLIST list = 0;
    U32 rc = DX_ListCreate(&list, idSize, 0, isStr ? (flags | kListStringId) : flags, a, b);
    if (rc != 0)
        return rc;
    rq::ScopeExit destroy([&list] { DX_ListDestroy(&list); });
    U32 err = 0;
    bool sorted = DX_ListFlagDetect(list, kListSorted, &err) != 0;
    char element[PROFIL_ELEMENT_SIZE];
    char *cursor = const_cast<char *>(text);
    U32 done = 0;
    for (U32 mode = 1;; mode = 2) {
        rc = DX_EnumProfileStr(element, &cursor, mode, &done);
        if (rc != 0)
            return rc;
        if (done != 0)
            break;
        T value{};
        rc = parseMapped(element, &value);
        if (rc != 0)
            return rc;
        rc = sorted ? DX_ListAddTo(list, &value, nullptr) : DX_ListAddLast(list, &value, nullptr);
        if (rc != 0)
            return rc;
    }
    if (listOut != nullptr) {
        destroy.dismiss();
        *listOut = list;
    }
    return 0;
}

template <typename T>
U32 fileList(const char *path, const char *section, const char *key, HLIST *listOut, U32 flags,
             PROFIL_LISTCMPPROCPTR a = nullptr, PROFIL_LISTCMPPROCPTR b = nullptr) noexcept
{
    char raw[kRawListValue];
    U32 rc = DX_GetProfileStr(path, section, key, raw, sizeof raw, "");
    if (rc != 0)
        return rc;
    return buildList<T>(raw, listOut, flags, a, b);
}

// The value of key in a keyword list (as DX_GetProfileSection builds them).
U32 valueFromList(HLIST keywords, const char *key, char *value) noexcept
{
    if (keywords == 0)
        return PROFIL_ERR_NO_SECTION;
    if (key == nullptr)
        return PROFIL_ERR_NO_KEY;
    char id[PROFIL_KEY_NAME_SIZE] = {};
    std::strncpy(id, key, sizeof id - 1);
    U32 rc = DX_ListGet(keywords, id, value);
    return rc == DX_LIST_ERR_NOT_FOUND ? U32{PROFIL_ERR_NO_KEY} : rc;
}

template <typename T>
U32 numberFromList(HLIST keywords, const char *key, T *out, T dflt) noexcept
{
    if (out != nullptr)
        *out = dflt;
    char value[PROFIL_VALUE_SIZE];
    U32 rc = valueFromList(keywords, key, value);
    if (rc != 0 || out == nullptr)
        return rc;
    // A value that does not parse leaves what the parser stored; callers rely on it.
    T parsed = *out;
    rc = parseMapped(value, &parsed);
    *out = parsed;
    return rc;
}

template <typename T>
U32 listFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) noexcept
{
    char value[PROFIL_VALUE_SIZE];
    U32 rc = valueFromList(keywords, key, value);
    return rc != 0 ? rc : buildList<T>(value, listOut, flags);
}

}  // namespace
}  // namespace rq::profile

using namespace rq::profile;

extern "C" {

RQ_API U32 DX_GetProfileStr(const char *path, const char *section, const char *key, char *dst, U32 len,
                            const char *dflt) noexcept
{
    if (dst == nullptr || len == 0)
        return path == nullptr && section == nullptr ? 0u : U32{PROFIL_ERR_BAD_ARGUMENT};
    U32 rc = 0;
    if (path == nullptr && section == nullptr)
        rc = 0;
    else if (path == nullptr)
        rc = PROFIL_ERR_NO_FILE_NAME;
    else if (section == nullptr)
        rc = PROFIL_ERR_NO_SECTION_NAME;
    else if ((rc = findValue(path, section, key, dst, len)) == 0)
        return 0;
    copyBounded(dst, len, dflt);
    return rc;
}

RQ_API U32 DX_GetProfileU16(const char *path, const char *section, const char *key, U16 *out, U16 dflt) noexcept
{
    return getNumber(path, section, key, out, dflt);
}

RQ_API U32 DX_GetProfileU32(const char *path, const char *section, const char *key, U32 *out, U32 dflt) noexcept
{
    return getNumber(path, section, key, out, dflt);
}

RQ_API U32 DX_GetProfileS16(const char *path, const char *section, const char *key, S16 *out, S16 dflt) noexcept
{
    return getNumber(path, section, key, out, dflt);
}

RQ_API U32 DX_GetProfileS32(const char *path, const char *section, const char *key, S32 *out, S32 dflt) noexcept
{
    return getNumber(path, section, key, out, dflt);
}

RQ_API U32 DX_GetProfileInt(const char *path, const char *section, const char *key, S32 *out, S32 dflt) noexcept
{
    return getNumber(path, section, key, out, dflt);
}

RQ_API U32 DX_GetProfileUInt(const char *path, const char *section, const char *key, U32 *out, U32 dflt) noexcept
{
    return getNumber(path, section, key, out, dflt);
}

RQ_API U32 DX_GetProfileBool(const char *path, const char *section, const char *key, U32 *out, U32 dflt) noexcept
{
    if (out == nullptr)
        return path == nullptr && section == nullptr ? 0u : U32{PROFIL_ERR_BAD_ARGUMENT};
    char text[kLineBuffer];
    U32 rc = DX_GetProfileStr(path, section, key, text, sizeof text, dflt != 0 ? "TRUE" : "FALSE");
    // A missing key yields the default string, which is read like a value.
    if (parseBool(text, out) != 0) {
        *out = dflt != 0;
        if (rc == 0)
            rc = PROFIL_ERR_NOT_A_BOOLEAN;
    }
    return rc;
}

RQ_API U32 DX_GetProfileVersion(char *dst) noexcept
{
    if (dst != nullptr)
        std::memcpy(dst, "A.01.02", 8);
    return 0;
}

RQ_API U32 DX_GetProfileStrList(const char *path, const char *section, const char *key, HLIST *listOut,
                                U32 flags) noexcept
{
    return fileList<Str>(path, section, key, listOut, flags);
}

RQ_API U32 DX_GetProfileStrListExt(const char *path, const char *section, const char *key, HLIST *listOut,
                                   U32 flags, PROFIL_LISTCMPPROCPTR idCompare,
                                   PROFIL_LISTCMPPROCPTR dataCompare) noexcept
{
    return fileList<Str>(path, section, key, listOut, flags, idCompare, dataCompare);
}

RQ_API U32 DX_GetProfileU32List(const char *path, const char *section, const char *key, HLIST *listOut,
                                U32 flags) noexcept
{
    return fileList<U32>(path, section, key, listOut, flags);
}

RQ_API U32 DX_GetProfileU16List(const char *path, const char *section, const char *key, HLIST *listOut,
                                U32 flags) noexcept
{
    return fileList<U16>(path, section, key, listOut, flags);
}

RQ_API U32 DX_GetProfileS16List(const char *path, const char *section, const char *key, HLIST *listOut,
                                U32 flags) noexcept
{
    return fileList<S16>(path, section, key, listOut, flags);
}

RQ_API U32 DX_GetProfileS32List(const char *path, const char *section, const char *key, HLIST *listOut,
                                U32 flags) noexcept
{
    return fileList<S32>(path, section, key, listOut, flags);
}

RQ_API U32 DX_GetProfileBoolList(const char *path, const char *section, const char *key, HLIST *listOut,
                                 U32 flags) noexcept
{
    return fileList<Bool>(path, section, key, listOut, flags);
}

RQ_API U32 DX_GetProfileStrListFromStr(const char *text, HLIST *listOut, U32 flags) noexcept
{
    return buildList<Str>(text, listOut, flags);
}

RQ_API U32 DX_GetProfileStrListFromStrExt(const char *text, HLIST *listOut, U32 flags,
                                          PROFIL_LISTCMPPROCPTR idCompare,
                                          PROFIL_LISTCMPPROCPTR dataCompare) noexcept
{
    return buildList<Str>(text, listOut, flags, idCompare, dataCompare);
}

RQ_API U32 DX_GetProfileU32ListFromStr(const char *text, HLIST *listOut, U32 flags) noexcept
{
    return buildList<U32>(text, listOut, flags);
}

RQ_API U32 DX_GetProfileU16ListFromStr(const char *text, HLIST *listOut, U32 flags) noexcept
{
    return buildList<U16>(text, listOut, flags);
}

RQ_API U32 DX_GetProfileS16ListFromStr(const char *text, HLIST *listOut, U32 flags) noexcept
{
    return buildList<S16>(text, listOut, flags);
}

RQ_API U32 DX_GetProfileS32ListFromStr(const char *text, HLIST *listOut, U32 flags) noexcept
{
    return buildList<S32>(text, listOut, flags);
}

RQ_API U32 DX_GetProfileBoolListFromStr(const char *text, HLIST *listOut, U32 flags) noexcept
{
    return buildList<Bool>(text, listOut, flags);
}

RQ_API U32 DX_GetProfileStrListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) noexcept
{
    return listFromList<Str>(keywords, key, listOut, flags);
}

RQ_API U32 DX_GetProfileU32ListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) noexcept
{
    return listFromList<U32>(keywords, key, listOut, flags);
}

RQ_API U32 DX_GetProfileU16ListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) noexcept
{
    return listFromList<U16>(keywords, key, listOut, flags);
}

RQ_API U32 DX_GetProfileS16ListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) noexcept
{
    return listFromList<S16>(keywords, key, listOut, flags);
}

RQ_API U32 DX_GetProfileS32ListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) noexcept
{
    return listFromList<S32>(keywords, key, listOut, flags);
}

RQ_API U32 DX_GetProfileBoolListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) noexcept
{
    return listFromList<Bool>(keywords, key, listOut, flags);
}

RQ_API U32 DX_GetProfileStrFromList(HLIST keywords, const char *key, char *dst, U32 len, const char *dflt) noexcept
{
    char value[PROFIL_VALUE_SIZE];
    U32 rc = valueFromList(keywords, key, value);
    copyBounded(dst, len, rc == 0 ? value : dflt);
    return rc;
}

RQ_API U32 DX_GetProfileU16FromList(HLIST keywords, const char *key, U16 *out, U16 dflt) noexcept
{
    return numberFromList(keywords, key, out, dflt);
}

RQ_API U32 DX_GetProfileU32FromList(HLIST keywords, const char *key, U32 *out, U32 dflt) noexcept
{
    return numberFromList(keywords, key, out, dflt);
}

RQ_API U32 DX_GetProfileS16FromList(HLIST keywords, const char *key, S16 *out, S16 dflt) noexcept
{
    return numberFromList(keywords, key, out, dflt);
}

RQ_API U32 DX_GetProfileS32FromList(HLIST keywords, const char *key, S32 *out, S32 dflt) noexcept
{
    return numberFromList(keywords, key, out, dflt);
}

RQ_API U32 DX_GetProfileIntFromList(HLIST keywords, const char *key, S32 *out, S32 dflt) noexcept
{
    return numberFromList(keywords, key, out, dflt);
}

RQ_API U32 DX_GetProfileUIntFromList(HLIST keywords, const char *key, U32 *out, U32 dflt) noexcept
{
    return numberFromList(keywords, key, out, dflt);
}

RQ_API U32 DX_GetProfileBoolFromList(HLIST keywords, const char *key, U32 *out, U32 dflt) noexcept
{
    if (out != nullptr)
        *out = dflt != 0;
    char value[PROFIL_VALUE_SIZE];
    U32 rc = valueFromList(keywords, key, value);
    if (rc != 0 || out == nullptr)
        return rc;
    return parseBool(value, out);
}

RQ_API U32 DX_GetProfileTimeFromList(HLIST keywords, const char *key, U32 *out, U32 dflt) noexcept
{
    if (out != nullptr)
        *out = dflt;
    char value[PROFIL_VALUE_SIZE];
    U32 rc = valueFromList(keywords, key, value);
    if (rc != 0 || out == nullptr)
        return rc;
    // The time parser stores nothing on failure, so the default stays.
    return MapParsestringErrorToProfilError(GetTimeFromStr(value, out));
}

}  // extern "C"
