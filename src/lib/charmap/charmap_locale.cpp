// The character set of the process's locale, and the lookups of the other
// platforms kept beside the one in use (nl_langinfo).

#define RQ_SOURCE_TAG "src/lib/core/lib/charmap/charmap_locale"
#include "internal/rq_mem.h"
#include "lib/charmap/charmap_internal.h"

#include <climits>
#include <clocale>
#include <langinfo.h>

namespace rq::charmap {
namespace {

constexpr char kUnknown[] = "UNKNOWN";

U32 checkArguments(const char *name, int len) noexcept
{
    if (name == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (len < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;
    return 0;
}

// Sets the character-type locale from the environment and copies its name;
// false when the C library has none.  The locale is process-wide state, so
// the family's lock is held while it changes and is read.
bool environmentLocale(char (&locale)[256]) noexcept
{
    rq::CriticalSection lock(familySection());
    const char *current = std::setlocale(LC_CTYPE, "");
    if (current == nullptr || *current == 0)
        return false;
    copyOut(locale, sizeof locale, current);
    return true;
}

U32 unknown(char *name, int len) noexcept
{
    copyOut(name, len, kUnknown);
    return CHARMAP_ERR_NOT_FOUND;
}

// The first line of a file, its line end kept, cut to fit `line`; false when
// the file cannot be opened or is empty.
bool firstLine(const char *path, char (&line)[256]) noexcept
{
    rq::Fd fd(SIS_CrtOpen(path, O_RDONLY | O_CLOEXEC, 0));
    if (!fd.ok())
        return false;
    size_t n = 0;
    while (n < sizeof line - 1) {
        ssize_t got = ::read(fd.get(), line + n, sizeof line - 1 - n);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        n += static_cast<size_t>(got);
        if (std::memchr(line, '\n', n) != nullptr)
            break;
    }
    line[n] = 0;
    if (char *end = static_cast<char *>(std::memchr(line, '\n', n)); end != nullptr)
        end[1] = 0;
    return n > 0;
}

}  // namespace
}  // namespace rq::charmap

using namespace rq::charmap;

extern "C" {

RQ_API U32 CHARMAP_getLocaleCharacterSet(char *name, int len) noexcept
{
    if (U32 status = checkArguments(name, len); status != 0)
        return status;
    copyOut(name, len, kUnknown);
    rq::CriticalSection lock(familySection());
    const char *locale = std::setlocale(LC_CTYPE, "");
    if (locale == nullptr || *locale == 0)
        return CHARMAP_ERR_NOT_FOUND;
    const char *codeset = nl_langinfo(CODESET);
    if (codeset == nullptr || *codeset == 0)
        return CHARMAP_ERR_NOT_FOUND;
    copyOut(name, len, codeset);
    return 0;
}

RQ_API U32 CHARMAP_getLocaleCharacterSetID(char *canonical, int len, U32 *id) noexcept
{
    if (canonical == nullptr || id == nullptr)
        return CHARMAP_ERR_NULL_ARGUMENT;
    if (len < 0)
        return CHARMAP_ERR_NEGATIVE_LENGTH;
    char locale[64];
    if (CHARMAP_getLocaleCharacterSet(locale, sizeof locale) != 0) {
        *id = 0;
        copyOut(canonical, len, locale);
        return CHARMAP_ERR_NOT_RECOGNISED;
    }
    if (CHARMAP_getCharacterSetName(locale, canonical, len, id) != 0) {
        // The identifier stays as the name lookup left it.
        copyOut(canonical, len, locale);
        return CHARMAP_ERR_NOT_RECOGNISED;
    }
    return 0;
}

RQ_API U32 CHARMAP_getLocaleCharacterSet_win32(char *name, int len) noexcept
{
    // Windows keeps no code set in the C locale; the caller's text is left
    // as it is.
    return checkArguments(name, len);
}

RQ_API U32 CHARMAP_getLocaleCharacterSet_hpux(char *name, int len) noexcept
{
    if (U32 status = checkArguments(name, len); status != 0)
        return status;
    char locale[256];
    if (!environmentLocale(locale))
        return unknown(name, len);
    char path[PATH_MAX];
    int n = SIS_CrtSNPrintf(path, sizeof path, "%s/config", "/usr/lib/nls");
    if (n < 0 || static_cast<size_t>(n) >= sizeof path)
        return unknown(name, len);
    rq::Fd fd(SIS_CrtOpen(path, O_RDONLY | O_CLOEXEC, 0));
    if (!fd.ok())
        return unknown(name, len);

    // Lines "<number> <locale> <locale>.<code set>"; the first line naming
    // the current locale in either field decides.
    constexpr size_t kLineMax = 255;
    char codeset[kLineMax + 1];
    bool matched = false;
    bool haveCodeset = false;
    forEachLine<kLineMax>(fd.get(), [&](const char *line, size_t) {
        int number;
        char second[kLineMax + 1];
        char third[kLineMax + 1];
        if (std::sscanf(line, "%d %255s %255s ", &number, second, third) != 3)
            return false;
        if (std::strcmp(second, locale) != 0 && std::strcmp(third, locale) != 0)
            return false;
        matched = true;
        if (const char *dot = std::strchr(third, '.'); dot != nullptr) {
            copyOut(codeset, sizeof codeset, dot + 1);
            haveCodeset = true;
        }
        return true;
    });
    if (!matched || !haveCodeset)
        return unknown(name, len);
    copyOut(name, len, codeset);
    return 0;
}

RQ_API U32 CHARMAP_getLocaleCharacterSet_solaris(char *name, int len) noexcept
{
    if (U32 status = checkArguments(name, len); status != 0)
        return status;
    char locale[256];
    if (!environmentLocale(locale))
        return unknown(name, len);
    char path[PATH_MAX];
    int n = SIS_CrtSNPrintf(path, sizeof path, "%s/%s/LC_CTYPE/charmap", "/usr/lib/locale", locale);
    char line[256];
    if (n < 0 || static_cast<size_t>(n) >= sizeof path || !firstLine(path, line))
        return unknown(name, len);
    // The line end stays: every later lookup squishes it away.
    copyOut(name, len, line);
    return 0;
}

RQ_API U32 CHARMAP_getLocaleCharacterSet_fallback(char *name, int len) noexcept
{
    if (U32 status = checkArguments(name, len); status != 0)
        return status;
    FILE *pipe = popen("locale charmap", "re");
    if (pipe == nullptr)
        return unknown(name, len);
    char line[256];
    bool got = std::fgets(line, sizeof line, pipe) != nullptr && line[0] != 0;
    pclose(pipe);
    if (!got)
        return unknown(name, len);
    // The line end stays: every later lookup squishes it away.
    copyOut(name, len, line);
    return 0;
}

}  // extern "C"
