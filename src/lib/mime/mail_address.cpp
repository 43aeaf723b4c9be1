#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mail_address"
#include "internal/rq_mem.h"

#include "rqcore/mail.h"

// A recursive-descent recogniser for one RFC 822 mailbox.  Bytes are taken as
// signed 8-bit values, so every byte from 0x80 up counts as a value below 1
// and ends every lexical item: callers pass 7-bit addresses.

namespace {

inline int sbyte(const char *p) noexcept
{
    return static_cast<signed char>(*p);
}

inline bool isBlank(int c) noexcept
{
    return c == ' ' || c == '\t';
}

// The punctuation that ends an atom.  The slash does and the square brackets
// do not; callers rely on "a/b@host" failing and "a[b@host" passing.
inline bool isAtomStop(int c) noexcept
{
    switch (c) {
    case '(': case ')': case '<': case '>': case '@': case ',': case ';':
    case ':': case '\\': case '"': case '.': case '/':
        return true;
    default:
        return false;
    }
}

inline bool endsAtom(int c) noexcept
{
    return c < 1 || c <= 0x1F || c == 0x7F || c == ' ' || isAtomStop(c);
}

bool holdsAngle(const char *text) noexcept
{
    return std::strchr(text, '<') != nullptr;
}

}  // namespace

extern "C" {

RQ_API U32 LookForAtom(char **position) noexcept
{
    char *p = *position;
    while (!endsAtom(sbyte(p)))
        ++p;
    if (p == *position)
        return MAIL_SCAN_NOT_FOUND;
    *position = p;
    return MAIL_SCAN_FOUND;
}

RQ_API U32 LookForLinearWhiteSpace(char **position) noexcept
{
    char *p = *position;
    while (isBlank(*p))
        ++p;
    if (p == *position)
        return MAIL_SCAN_NOT_FOUND;
    *position = p;
    return MAIL_SCAN_FOUND;
}

RQ_API U32 LookForQuotedPair(char **position) noexcept
{
    char *p = *position;
    if (*p == '\0')
        return MAIL_SCAN_END;
    if (*p != '\\')
        return MAIL_SCAN_NOT_FOUND;
    int next = sbyte(p + 1);
    if (next >= 1) {  // 1..127
        *position = p + 2;
        return MAIL_SCAN_FOUND;
    }
    // A backslash before NUL or an 8-bit byte: only the backslash is taken.
    *position = p + 1;
    return MAIL_SCAN_NOT_FOUND;
}

RQ_API U32 LookForQtext(char **position) noexcept
{
    char *p = *position;
    for (;;) {
        int c = sbyte(p);
        if (c == '\0' || c == '\r' || c == '"')
            break;
        if (c < 1 && !isBlank(c))
            break;
        ++p;  // the backslash is not excluded: qtext runs over it
    }
    if (p == *position)
        return MAIL_SCAN_NOT_FOUND;
    *position = p;
    return MAIL_SCAN_FOUND;
}

RQ_API U32 LookForQuotedString(char **position) noexcept
{
    char *p = *position;
    if (*p != '"')
        return MAIL_SCAN_NOT_FOUND;
    ++p;
    while (*p != '"' && *p != '\0') {
        char *before = p;
        LookForQtext(&p);
        LookForQuotedPair(&p);
        // A CR or an 8-bit byte without a backslash is taken by neither
        // scanner; without this guard the loop would never end.  On every
        // text where the loop ends by itself the guard never fires.
        if (p == before)
            break;
    }
    *position = p;
    if (*p != '"')
        return MAIL_SCAN_NOT_FOUND;
    *position = p + 1;
    return MAIL_SCAN_FOUND;
}

RQ_API U32 LookForDtext(char **position) noexcept
{
    char *p = *position;
    if (*p == '\0')
        return MAIL_SCAN_END;
    for (;;) {
        int c = sbyte(p);
        if (c < 1 || c == '\r' || c == '[' || c == ']' || c == '\\')
            break;
        ++p;
    }
    if (p == *position)
        return MAIL_SCAN_NOT_FOUND;
    *position = p;
    return MAIL_SCAN_FOUND;
}

RQ_API U32 LookForDomainLiteral(char **position) noexcept
{
    char *p = *position;
    if (*p != '[')
        return MAIL_SCAN_NOT_FOUND;
    ++p;
    U32 status = MAIL_SCAN_NOT_FOUND;
    for (;;) {
        if (*p == ']') {
            ++p;
            status = MAIL_SCAN_FOUND;
            break;
        }
        U32 r = LookForDtext(&p);
        if (r == MAIL_SCAN_FOUND)
            continue;
        if (r == MAIL_SCAN_END)
            break;
        if (LookForQuotedPair(&p) != MAIL_SCAN_FOUND)
            break;
    }
    *position = p;
    return status;
}

RQ_API U32 LookForWord(char **position) noexcept
{
    if (LookForAtom(position) == MAIL_SCAN_FOUND)
        return MAIL_SCAN_FOUND;
    return LookForQuotedString(position);
}

RQ_API U32 LookForPhrase(char **position) noexcept
{
    U32 words = 0;
    while (LookForWord(position) == MAIL_SCAN_FOUND) {
        ++words;
        LookForLinearWhiteSpace(position);
    }
    return words != 0 ? U32{MAIL_SCAN_FOUND} : U32{MAIL_SCAN_NOT_FOUND};
}

RQ_API U32 ParseDomainRef(char **position) noexcept
{
    return LookForAtom(position) == MAIL_SCAN_FOUND ? 0 : U32{MAIL_ERR_BAD_SUBDOMAIN};
}

RQ_API U32 ParseSubDomain(char **position) noexcept
{
    if (**position == '\0')
        return MAIL_ERR_END_OF_TEXT;
    if (**position == '[')
        return LookForDomainLiteral(position) == MAIL_SCAN_FOUND ? 0 : U32{MAIL_ERR_BAD_SUBDOMAIN};
    return ParseDomainRef(position);
}

RQ_API U32 ParseDomain(char **position) noexcept
{
    for (;;) {
        U32 status = ParseSubDomain(position);
        if (status != 0)
            return status == MAIL_ERR_END_OF_TEXT ? U32{MAIL_ERR_END_OF_TEXT} : U32{MAIL_ERR_BAD_SUBDOMAIN};
        if (**position != '.')
            return 0;
        ++*position;
        if (**position == '\0')
            return MAIL_ERR_DOMAIN_DOT;
    }
}

RQ_API U32 ParseLocalPart(char **position) noexcept
{
    for (;;) {
        if (LookForWord(position) != MAIL_SCAN_FOUND)
            return MAIL_ERR_BAD_LOCAL_PART;
        if (**position != '.')
            return 0;
        ++*position;
    }
}

RQ_API U32 ParseAddrSpec(char **position) noexcept
{
    U32 status = ParseLocalPart(position);
    if (status != 0)
        return status;
    if (**position != '@')
        return **position == '\0' ? U32{MAIL_ERR_END_OF_TEXT} : U32{MAIL_ERR_UNEXPECTED};
    ++*position;
    return ParseDomain(position);
}

RQ_API U32 ParseRoute(char **position) noexcept
{
    if (**position != '@')
        return 0;  // no route
    ++*position;
    U32 status = ParseDomain(position);
    if (status != 0)
        return status;
    // Only one at-sign and domain are accepted before the colon.
    if (**position != ':')
        return **position == '\0' ? U32{MAIL_ERR_END_OF_TEXT} : U32{MAIL_ERR_UNEXPECTED};
    ++*position;
    return 0;
}

RQ_API U32 ParseRouteAddr(char **position) noexcept
{
    if (**position != '<')
        return **position == '\0' ? U32{MAIL_ERR_END_OF_TEXT} : U32{MAIL_ERR_UNEXPECTED};
    ++*position;
    U32 status = ParseRoute(position);
    if (status == 0)
        status = ParseAddrSpec(position);
    if (status != 0)
        return status;
    if (**position != '>')
        return MAIL_ERR_UNEXPECTED;
    ++*position;
    return 0;
}

RQ_API U32 ParseGroup(char **) noexcept
{
    return MAIL_ERR_GROUP;
}

RQ_API U32 ParseMailBox(char **position) noexcept
{
    if (!holdsAngle(*position))
        return ParseAddrSpec(position);
    // A route-addr must follow a phrase: a bare "<user@host>" is refused,
    // and callers rely on that.
    if (LookForPhrase(position) != MAIL_SCAN_FOUND || **position != '<')
        return MAIL_ERR_NO_PHRASE;
    return ParseRouteAddr(position);
}

RQ_API U32 ParseAddress(char **position) noexcept
{
    // Groups are not accepted: ParseGroup is never reached.
    return ParseMailBox(position);
}

RQ_API U32 CheckEMailAddress(const char *address, U32 *errorOffset) noexcept
{
    if (errorOffset != nullptr)
        *errorOffset = 0;
    if (address == nullptr)
        return MAIL_ERR_NO_ADDRESS;
    rq::Block<char> copy(RQ_STRDUP(address));
    if (!copy)
        return MAIL_ERR_NO_MEMORY;
    if (copy[0] == '\0')
        return MAIL_ERR_EMPTY;
    char *position = copy.get();
    U32 status = ParseAddress(&position);
    if (status == 0 && *position != '\0')
        status = MAIL_ERR_UNEXPECTED;
    if (status != 0 && errorOffset != nullptr)
        *errorOffset = static_cast<U32>(position - copy.get());
    return status;
}

}  // extern "C"
