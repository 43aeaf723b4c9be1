// The time-zone definition file: a profile with one section per zone, read
// whole or one section at a time, each entry line parsed into a DX_TZENTRY.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/tz_read"
#include "internal/rq_mem.h"
#include "tz_internal.h"
#include "rqcore/profiles.h"

#include <cstring>

namespace rq::tz {
namespace {

constexpr U32 kValueChars = 80;  // entry values, names and countries
constexpr U32 kMaxNumber = 0xFFFF;
// '0' + n must stay a character: keys end at "begin\xFF" (n = 207).
constexpr U32 kMaxKeyNumber = 255 - '0';

bool isBlank(char c) noexcept { return c == ' ' || c == '\t'; }
bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// Decimal digits at p (none: 0), saturated at 65535.
U32 readNumber(const char *&p) noexcept
{
    U32 value = 0;
    for (; isDigit(*p); ++p) {
        value = value * 10 + static_cast<U32>(*p - '0');
        if (value > kMaxNumber)
            value = kMaxNumber;
    }
    return value;
}

struct Range {
    U32 first;
    U32 second;
};

// A field: blanks, a number, and optionally "-" and a second number.  A
// character that is neither ends the field without being taken, so the
// fields after it read as 0 (and a day or month of 0 then fails the read).
Range readField(const char *&p) noexcept
{
    while (isBlank(*p))
        ++p;
    Range r{};
    r.first = readNumber(p);
    r.second = r.first;
    if (*p == '-') {
        ++p;
        r.second = readNumber(p);
    }
    return r;
}

// Which numbered key a keyword names: 1 for "begin1" ... 207; 0 for none.
U32 keyNumber(const char *key, const char *word) noexcept
{
    size_t n = std::strlen(word);
    if (std::strncmp(key, word, n) != 0 || key[n] == '\0' || key[n + 1] != '\0')
        return 0;
    U32 c = static_cast<unsigned char>(key[n]);
    return c > '0' ? c - '0' : 0;
}

// The entries of one section, gathered in one walk of its keywords: slot n
// holds the parse of key n (begin or end) and its status.
struct Gathered {
    char name[DX_TZ_NAME_SIZE];
    char country[DX_TZ_NAME_SIZE];
    bool present[2][kMaxKeyNumber + 1];
    U32 status[2][kMaxKeyNumber + 1];
    DX_TZENTRY entries[2][kMaxKeyNumber + 1];
};

// The value of a keyword as DX_GetProfileStrFromList would give it with an
// 81-byte buffer.
void copyValue(char *dst, const char *value) noexcept
{
    size_t n = strnlen(value, kValueChars);
    std::memcpy(dst, value, n);
    dst[n] = '\0';
}

U32 gather(HLIST keywords, Gathered &g) noexcept
{
    char key[PROFIL_KEY_NAME_SIZE];
    char value[PROFIL_VALUE_SIZE + 1];
    U32 status = DX_ListGetFirst(keywords, key, value);
    for (; status == 0; status = DX_ListGetNext(keywords, key, value)) {
        key[PROFIL_KEY_NAME_SIZE - 1] = '\0';
        value[PROFIL_VALUE_SIZE] = '\0';
        if (std::strcmp(key, "name") == 0) {
            copyValue(g.name, value);
            continue;
        }
        if (std::strcmp(key, "country") == 0) {
            copyValue(g.country, value);
            continue;
        }
        for (int list = 0; list < 2; ++list) {
            U32 n = keyNumber(key, list == 0 ? "begin" : "end");
            if (n == 0)
                continue;
            char text[kValueChars + 1];
            copyValue(text, value);
            g.present[list][n] = true;
            g.status[list][n] = ParseEntry(text, &g.entries[list][n]);
        }
    }
    return status == DX_LIST_END ? 0 : status;
}

// Appends entries 1.. up to the first missing key to a list; stops at the
// first entry that did not parse.
U32 appendEntries(const Gathered &g, int list, HLIST entries) noexcept
{
    for (U32 n = 1; n <= kMaxKeyNumber && g.present[list][n]; ++n) {
        if (g.status[list][n] != 0)
            return g.status[list][n];
        if (U32 status = DX_ListAlwaysAddLast(entries, &g.entries[list][n], nullptr); status != 0)
            return status;
    }
    return 0;
}

}  // namespace

S16 readAdjust(const char *text, const char **end) noexcept
{
    const char *p = text;
    bool negative = *p == '-';
    if (negative)
        ++p;
    U32 minutes = readNumber(p) * 60;
    if (*p == ':') {
        ++p;
        minutes += readNumber(p);
    }
    if (end != nullptr)
        *end = p;
    // Taken in 16 bits, as the record holds it.
    U16 bits = static_cast<U16>(negative ? 0u - minutes : minutes);
    return static_cast<S16>(bits);
}

U32 ParseEntry(const char *text, DX_TZENTRY *entry) noexcept
{
    const char *p = text;
    Range minute = readField(p);
    Range hour = readField(p);
    Range day = readField(p);
    Range month = readField(p);
    Range year = readField(p);
    Range weekday = readField(p);
    while (isBlank(*p))
        ++p;
    while (*p >= 'A' && *p <= 'Z')
        ++p;
    // The adjust follows the abbreviation directly: a blank between them
    // makes it 0, and callers' files rely on nothing more being checked.
    S16 adjust = readAdjust(p, nullptr);

    DX_TZENTRY e{};
    // Months are written 1..12; month 0 becomes 65535 and fails as month 13 does.
    if (U32 status = DX_DateSet(&e.from, static_cast<U16>(day.first), static_cast<U16>(month.first - 1),
                                static_cast<U16>(year.first));
        status != 0)
        return status;
    if (U32 status = DX_DateSet(&e.to, static_cast<U16>(day.second), static_cast<U16>(month.second - 1),
                                static_cast<U16>(year.second));
        status != 0)
        return status;
    e.time = static_cast<U16>(hour.first * 60 + minute.first);
    e.weekday = weekday.first == weekday.second ? static_cast<U16>(weekday.first) : U16{DX_TZ_NO_WEEKDAY};
    e.adjust = adjust;
    *entry = e;
    return 0;
}

U32 ReadOneSection(HLIST rules, const char *sectionName, HLIST keywords) noexcept
{
    Block<Gathered> g(RQ_MALLOC(sizeof(Gathered)));
    if (!g)
        return DX_TZ_ERR_NO_MEMORY;
    // Only what gather() reads before writing is cleared.
    std::memset(g.get()->name, 0, sizeof g.get()->name);
    std::memset(g.get()->country, 0, sizeof g.get()->country);
    std::memset(g.get()->present, 0, sizeof g.get()->present);
    if (U32 status = gather(keywords, *g.get()); status != 0)
        return status;
    DX_TZRULE *rule = nullptr;
    if (U32 status = DX_TZCreateTZRule(&rule, g.get()->name, g.get()->country); status != 0)
        return status;
    // The numbered keys are read from 1 until the first missing one, the
    // number being the one character '0' + n: after begin9 comes "begin:"
    // and begin10 is never read.  Callers' files rely on it.
    U32 status = appendEntries(*g.get(), 0, rule->begin);
    if (status == 0)
        status = appendEntries(*g.get(), 1, rule->end);
    if (status == 0)
        status = DX_TZAddTZRule(rules, sectionName, rule);
    if (status != 0)
        DX_TZDestroyTZRule(&rule);
    return status;
}

}  // namespace rq::tz

using namespace rq::tz;

extern "C" {

RQ_API U32 DX_TZRulesCreate(HLIST *rules, const char *fileName, const char *sectionName) noexcept
{
    if (rules == nullptr)
        return DX_TZ_ERR_NULL;
    *rules = 0;
    HLIST set = 0;
    if (U32 status = DX_TZCreateTZRulesEmpty(&set); status != 0)
        return status;
    U32 status = 0;
    if (sectionName != nullptr) {
        HLIST keywords = 0;
        status = DX_GetProfileSection(fileName, sectionName, &keywords);
        if (status == PROFIL_ERR_NO_SECTION)
            status = DX_TZ_ERR_NOT_FOUND;
        if (status == 0)
            status = ReadOneSection(set, sectionName, keywords);
        if (keywords != 0)
            DX_ListDestroy(&keywords);
    } else {
        HLIST sections = 0;
        status = DX_GetProfileSectionList(fileName, &sections, nullptr);
        if (status == 0) {
            char name[PROFIL_SECTION_NAME_SIZE];
            HLIST keywords = 0;
            U32 walk = DX_ListGetFirst(sections, name, &keywords);
            for (; walk == 0 && status == 0; walk = DX_ListGetNext(sections, name, &keywords))
                status = ReadOneSection(set, name, keywords);
            if (status == 0 && walk != DX_LIST_END)
                status = walk;
        }
        if (sections != 0)
            DX_ProfileSectionListDestroy(&sections);
    }
    if (status != 0) {
        DX_TZRulesDestroy(&set);
        return status;
    }
    *rules = set;
    return 0;
}

}  // extern "C"
