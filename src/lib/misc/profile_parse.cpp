// The parsestring module: numbers and times from profile values, and the
// mapping of its codes onto the profile codes.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/profile_parse"
#include "internal/rq_mem.h"
#include "rqcore/profiles.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHex(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

}  // namespace

extern "C" {

RQ_API char *SkipBlanks(const char *s) noexcept
{
    if (s == nullptr)
        return nullptr;
    while (isBlank(*s))
        ++s;
    return const_cast<char *>(s);
}

RQ_API char *SkipZeros(const char *s) noexcept
{
    if (s == nullptr)
        return nullptr;
    while (*s == '0')
        ++s;
    return const_cast<char *>(s);
}

RQ_API char *TrimStr(char *s) noexcept
{
    if (s == nullptr)
        return nullptr;
    s = SkipBlanks(s);
    size_t n = std::strlen(s);
    while (n > 0 && isBlank(s[n - 1]))
        s[--n] = '\0';
    return s;
}

RQ_API int AllDigits(const char *s) noexcept
{
    if (s == nullptr)
        return 0;
    for (; *s != '\0'; ++s)
        if (!isDigit(*s) && !isBlank(*s))
            return 0;
    return 1;
}

RQ_API int IsHexNum(const char *s) noexcept
{
    if (s == nullptr)
        return 0;
    s = SkipZeros(s);
    if (*s == 'x' || *s == 'X')
        ++s;
    for (; *s != '\0'; ++s)
        if (!isHex(*s))
            return 0;
    return 1;
}

RQ_API U32 GetUnsigned32FromStr(const char *s, U32 *out) noexcept
{
    if (out == nullptr)
        return PARSESTRING_ERR_NULL;
    *out = 0;
    if (s == nullptr)
        return PARSESTRING_ERR_NOT_A_NUMBER;
    const char *p = SkipBlanks(s);
    if (*p == '-')
        return PARSESTRING_ERR_NEGATIVE;
    if (*p == '+')
        p = SkipBlanks(p + 1);
    if (*p == '\0')
        return PARSESTRING_ERR_NOT_A_NUMBER;
    U32 value = 0;
    if (AllDigits(p)) {
        // Blanks inside or after the digits are accumulated as digits of
        // value (code - 48); callers rely on the number being read this way.
        for (; *p != '\0'; ++p)
            value = value * 10u + static_cast<U32>(static_cast<unsigned char>(*p) - 48u);
    } else if (IsHexNum(p)) {
        p = SkipZeros(p);
        if (*p == 'x' || *p == 'X')
            ++p;
        for (; *p != '\0'; ++p) {
            unsigned c = static_cast<unsigned char>(*p);
            unsigned digit = isDigit(*p) ? c - 48u : (c & ~0x20u) - 55u;
            value = value * 16u + digit;
        }
    } else {
        return PARSESTRING_ERR_NOT_A_NUMBER;
    }
    *out = value;
    return 0;
}

RQ_API U32 GetUnsigned16FromStr(const char *s, U16 *out) noexcept
{
    if (out == nullptr)
        return PARSESTRING_ERR_NULL;
    U32 value = 0;
    U32 rc = GetUnsigned32FromStr(s, &value);
    if (rc != 0) {
        *out = 0;
        return rc;
    }
    if (value >= 0x10000u) {
        // Unlike the signed parser this stores the maximum; callers rely on it.
        *out = 65535;
        return PARSESTRING_ERR_RANGE;
    }
    *out = static_cast<U16>(value);
    return 0;
}

RQ_API U32 GetSigned32FromStr(const char *s, S32 *out) noexcept
{
    if (out == nullptr)
        return PARSESTRING_ERR_NULL;
    *out = 0;
    if (s == nullptr)
        return PARSESTRING_ERR_NOT_A_NUMBER;
    const char *p = SkipBlanks(s);
    bool negative = *p == '-';
    if (negative)
        ++p;  // the unsigned reader then also takes an optional '+': "-+5" is -5
    U32 value = 0;
    U32 rc = GetUnsigned32FromStr(p, &value);
    if (rc != 0)
        return rc;
    *out = static_cast<S32>(negative ? 0u - value : value);
    return 0;
}

RQ_API U32 GetSigned16FromStr(const char *s, S16 *out) noexcept
{
    if (out == nullptr)
        return PARSESTRING_ERR_NULL;
    S32 value = 0;
    U32 rc = GetSigned32FromStr(s, &value);
    if (rc == 0 && (value < -32768 || value > 32767))
        rc = PARSESTRING_ERR_RANGE;
    *out = rc == 0 ? static_cast<S16>(value) : S16{0};
    return rc;
}

RQ_API U32 GetTimeFromStr(const char *s, U32 *minutesOut) noexcept
{
    if (minutesOut == nullptr || s == nullptr)
        return PARSESTRING_ERR_NULL;
    rq::Block<char> copy(RQ_STRDUP(s));
    if (!copy)
        return PARSESTRING_ERR_NO_MEMORY;
    char *split = std::strpbrk(copy.get(), ":hH");
    if (split == nullptr)
        return PARSESTRING_ERR_TIME;
    *split = '\0';
    U32 hours = 0;
    U32 minutes = 0;
    if (GetUnsigned32FromStr(TrimStr(copy.get()), &hours) != 0)
        return PARSESTRING_ERR_TIME;
    if (GetUnsigned32FromStr(TrimStr(split + 1), &minutes) == 0) {
        if (hours > 23 || minutes > 59)
            return PARSESTRING_ERR_TIME;
        *minutesOut = hours * 60 + minutes;
        return 0;
    }
    // A minutes half that is not a number is ignored: "9h" and "9:xx" are 9:00.
    if (hours >= 24)
        return PARSESTRING_ERR_TIME;
    *minutesOut = hours * 60;
    return 0;
}

RQ_API U32 MapParsestringErrorToProfilError(U32 code) noexcept
{
    switch (code) {
    case PARSESTRING_ERR_NEGATIVE:
        return PROFIL_ERR_NEGATIVE;
    case PARSESTRING_ERR_NOT_A_NUMBER:
        return PROFIL_ERR_NOT_A_NUMBER;
    case PARSESTRING_ERR_NULL:
        return PROFIL_ERR_BAD_ARGUMENT;
    case PARSESTRING_ERR_TIME:
        return PROFIL_ERR_SYNTAX;
    case PARSESTRING_ERR_NO_MEMORY:
        return PROFIL_ERR_NO_MEMORY;
    default:
        return code;  // 0x1C403 among them: passed through unmapped
    }
}

}  // extern "C"
