#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_clean"
#include "internal/rq_mem.h"

#include "mime_internal.h"

// In-place clean-ups of header values, and the splitting of a value into a
// field and its parameters.  The parser keeps only the machine-readable text
// of every header.

using namespace rq::mime;

namespace {

// Under MIME_FLAG_RFC: a comment is not recognised inside a quoted string, a
// backslash there escapes the next character, and a ")" with no open "(" is
// text.
U32 stripCommentsRfc(char *text) noexcept
{
    U32 depth = 0;
    bool quoted = false;
    char *write = text;
    for (const char *read = text; *read != '\0'; ++read) {
        char c = *read;
        if (depth == 0 && c == '"')
            quoted = !quoted;
        if ((quoted || depth > 0) && c == '\\' && read[1] != '\0') {
            if (depth == 0) {
                *write++ = c;
                *write++ = read[1];
            }
            ++read;
            continue;
        }
        if (!quoted && c == '(') {
            ++depth;
            continue;
        }
        if (!quoted && c == ')' && depth > 0) {
            --depth;
            continue;
        }
        if (depth == 0)
            *write++ = c;
    }
    *write = '\0';
    return depth == 0 ? 0 : U32{MIME_ERR_UNBALANCED};
}

// The next ";" outside a quoted string, or the terminator.
char *nextSemicolon(char *text) noexcept
{
    bool quoted = false;
    for (; *text != '\0'; ++text) {
        if (*text == '"')
            quoted = !quoted;
        else if (quoted && *text == '\\' && text[1] != '\0')
            ++text;
        else if (!quoted && *text == ';')
            break;
    }
    return text;
}

// Removes the quotes of a trimmed parameter value in place, the backslash of
// each quoted pair too; what lies inside the quotes, blanks included, stays.
std::string_view unquote(char *begin, size_t length) noexcept
{
    bool quoted = false;
    char *write = begin;
    for (size_t i = 0; i < length; ++i) {
        char c = begin[i];
        if (c == '"') {
            quoted = !quoted;
            continue;
        }
        if (quoted && c == '\\' && i + 1 < length)
            c = begin[++i];
        *write++ = c;
    }
    return {begin, static_cast<size_t>(write - begin)};
}

// MIME_parseAsMimeField under MIME_FLAG_RFC: the value still holds its
// quotes.  ";" splits only outside quotes; a parameter's name is the text
// before its first "=", its value the rest, trimmed and then unquoted.
U32 parseFieldRfc(MIME_CONTEXT *context, MIME_FIELD **out, char *name, char *value) noexcept
{
    char *rest = nextSemicolon(value);
    bool more = *rest == ';';
    *rest = '\0';
    MIME_stripDQuotesAndBackslashes(context, value);  // the field value reads as without the flag
    MIME_FIELD *field = nullptr;
    U32 status = MIME_createField(context, &field, name, value);
    if (status != 0)
        return status;
    while (more) {
        char *segment = rest + 1;
        rest = nextSemicolon(segment);
        more = *rest == ';';
        *rest = '\0';
        if (!more && trim(segment).empty())
            break;  // a trailing ";" adds nothing
        char *equals = segment;
        while (*equals != '\0' && *equals != '=')
            ++equals;
        std::string_view parameterValue = "";
        if (*equals == '=') {
            *equals = '\0';
            std::string_view raw = trim(equals + 1);
            parameterValue = unquote(const_cast<char *>(raw.data()), raw.size());
        }
        status = addParameter(context, field, trim(segment), parameterValue);
        if (status != 0) {
            MIME_destroyField(context, &field);
            return status;
        }
    }
    *out = field;
    return 0;
}

}  // namespace

extern "C" {

RQ_API U32 MIME_stripComments(MIME_CONTEXT *context, char *text) noexcept
{
    MIME_ENTER(context, "MIME_stripComments()");
    if (text == nullptr)
        return nullParameter(context, "MIME_stripComments()");
    if (rfcMode(context))
        return stripCommentsRfc(text);
    // Quotes do not protect a "(".  A ")" with no open "(" is kept and makes
    // the unsigned count wrap, so everything after it is dropped until a
    // later "(" brings the count back to zero; callers rely on this.
    U32 depth = 0;
    char *write = text;
    for (const char *read = text; *read != '\0'; ++read) {
        char c = *read;
        if (c == '(')
            ++depth;
        if (depth == 0)
            *write++ = c;
        if (c == ')')
            --depth;
    }
    *write = '\0';
    return depth == 0 ? 0 : U32{MIME_ERR_UNBALANCED};
}

RQ_API U32 MIME_stripDQuotesAndBackslashes(MIME_CONTEXT *context, char *text) noexcept
{
    MIME_ENTER(context, "MIME_stripDQuotesAndBackslashes()");
    if (text == nullptr)
        return nullParameter(context, "MIME_stripDQuotesAndBackslashes()");
    bool quoted = false;
    char *write = text;
    for (const char *read = text; *read != '\0'; ++read) {
        char c = *read;
        if (c == '"') {
            quoted = !quoted;
            continue;
        }
        if (c == '\\' && read[1] != '\0') {
            if (quoted)
                *write++ = c;  // inside quotes the backslash stays with its character
            *write++ = *++read;
            continue;
        }
        if (c == '\\')
            continue;  // a lone backslash at the end
        *write++ = c;
    }
    *write = '\0';
    return 0;
}

RQ_API U32 MIME_stripNonMachineText(MIME_CONTEXT *context, char *text) noexcept
{
    MIME_ENTER(context, "MIME_stripNonMachineText()");
    if (text == nullptr)
        return nullParameter(context, "MIME_stripNonMachineText()");

    // 1. Up to the first ";" outside quotes: count the "<" and find the
    //    text after the last one.
    U32 opens = 0;
    bool closes = false;
    char *afterOpen = nullptr;
    bool quoted = false;
    for (char *p = text; *p != '\0'; ++p) {
        char c = *p;
        if (c == '\\') {
            if (p[1] == '\0')
                break;
            ++p;
            continue;
        }
        if (c == '"') {
            quoted = !quoted;
            continue;
        }
        if (quoted)
            continue;
        if (c == ';')
            break;
        if (c == '<') {
            ++opens;
            afterOpen = p + 1;
        } else if (c == '>') {
            closes = true;
        }
    }
    if (opens > 1)
        return MIME_REJECTED;
    if (opens == 0)
        return closes ? U32{MIME_REJECTED} : 0;

    // 2. Keep the address between the angle brackets and any parameters
    //    after the next ";".  Every header value goes through this, so a
    //    subject "Fwd <x>" becomes "x": deliberate, only machine text stays.
    char *write = text;
    char *read = afterOpen;
    while (isSpace(*read))
        ++read;
    quoted = false;
    for (; *read != '\0'; ++read) {
        char c = *read;
        if (c == '"') {
            quoted = !quoted;
        } else if (c == '\\') {
            *write++ = c;
            if (read[1] == '\0')
                break;
            c = *++read;
        } else if (!quoted && c == '>') {
            break;
        } else if (!quoted && c == '<') {
            *write = '\0';
            return MIME_REJECTED;
        }
        *write++ = c;
    }
    if (*read == '>') {
        const char *semicolon = std::strchr(read, ';');
        if (semicolon != nullptr) {
            size_t rest = std::strlen(semicolon);
            std::memmove(write, semicolon, rest);
            write += rest;
        }
    }
    while (write > text && isSpace(write[-1]))
        --write;
    *write = '\0';
    return 0;
}

RQ_API U32 MIME_parseAsMimeField(MIME_CONTEXT *context, MIME_FIELD **out, char *name, char *value) noexcept
{
    MIME_ENTER(context, "MIME_parseAsMimeField()");
    if (out == nullptr || name == nullptr || value == nullptr)
        return nullParameter(context, "MIME_parseAsMimeField()");
    *out = nullptr;
    if (rfcMode(context))
        return parseFieldRfc(context, out, name, value);
    char *rest = std::strchr(value, ';');
    if (rest != nullptr)
        *rest++ = '\0';
    MIME_FIELD *field = nullptr;
    U32 status = MIME_createField(context, &field, name, value);
    if (status != 0)
        return status;
    // Quotes are gone by now, so a ";" inside a quoted value splits too.
    while (rest != nullptr) {
        char *segment = rest;
        rest = std::strchr(segment, ';');
        if (rest != nullptr)
            *rest++ = '\0';
        else if (trim(segment).empty())
            break;  // a trailing ";" adds nothing
        // The name is the text before the first "=", the value the text
        // after the last one.
        const char *parameterValue = "";
        for (char *p = segment; *p != '\0'; ++p) {
            if (*p == '=') {
                *p = '\0';
                parameterValue = p + 1;
            }
        }
        status = MIME_addParameterToField(context, field, segment, parameterValue);
        if (status != 0) {
            MIME_destroyField(context, &field);
            return status;
        }
    }
    *out = field;
    return 0;
}

}  // extern "C"
