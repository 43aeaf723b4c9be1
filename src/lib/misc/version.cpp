// Version labels: splitting "B.05.12 text" and ordering by letter, major and
// minor number.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/version"
#include "rqcore/lists.h"
#include "rqcore/version.h"

namespace {

constexpr size_t kMaxLength = 137;  // a label of 138 characters or more is refused

bool isDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

// The label's length if it is at most kMaxLength, else kMaxLength + 1 (the
// scan stops there: labels are untrusted and may be long).
size_t boundedLength(const char *s) noexcept
{
    size_t n = 0;
    while (n <= kMaxLength && s[n] != '\0')
        ++n;
    return n;
}

struct Parts {
    U32 letter;
    U32 major;
    U32 minor;
};

U32 split(const char *label, Parts *out) noexcept
{
    if (label == nullptr)
        return DX_VERSION_ERR_NULL;
    // The dots are looked for at fixed places before anything else, so
    // "B.5.12" is a dots error: callers rely on this order of checks.
    size_t len = boundedLength(label);
    if (len < 5 || label[1] != '.' || label[4] != '.')
        return DX_VERSION_ERR_DOTS;
    if (len > kMaxLength)
        return DX_VERSION_ERR_LENGTH;
    char c = label[0];
    if (c >= 'a' && c <= 'z')
        c = static_cast<char>(c - 'a' + 'A');
    if (c < 'A' || c > 'Z')
        return DX_VERSION_ERR_LETTER;
    if (!isDigit(label[2]) || !isDigit(label[3]))
        return DX_VERSION_ERR_MAJOR;
    if (len < 7 || !isDigit(label[5]) || !isDigit(label[6]))
        return DX_VERSION_ERR_MINOR;
    out->letter = static_cast<U32>(c - 'A');
    out->major = static_cast<U32>((label[2] - '0') * 10 + (label[3] - '0'));
    out->minor = static_cast<U32>((label[5] - '0') * 10 + (label[6] - '0'));
    return 0;
}

U32 key(const Parts &p) noexcept
{
    return p.letter * 10000 + p.major * 100 + p.minor;
}

}  // namespace

RQ_API U32 DX_VersionSplit(U32, const char *label, U32 *letter, U32 *major, U32 *minor, char *text) noexcept
{
    Parts p{};
    if (U32 rc = split(label, &p))
        return rc;
    if (letter != nullptr)
        *letter = p.letter;
    if (major != nullptr)
        *major = p.major;
    if (minor != nullptr)
        *minor = p.minor;
    if (text != nullptr)
        DX_MemStrnCopyUntil(text, DX_MemStrSkip(label + 7, " \t"), DX_VERSION_TEXT_SIZE, "\n\r");
    return 0;
}

RQ_API U32 DX_VersionCompare(U32, const char *a, const char *b, U32 *result) noexcept
{
    if (a == nullptr || b == nullptr)
        return DX_VERSION_ERR_NULL;
    Parts pa{};
    Parts pb{};
    if (U32 rc = split(a, &pa))
        return rc;
    if (U32 rc = split(b, &pb))
        return rc;
    if (result != nullptr)
        *result = key(pa) > key(pb) ? 1u : key(pa) == key(pb) ? 0u : 0xFFFFFFFFu;
    return 0;
}
