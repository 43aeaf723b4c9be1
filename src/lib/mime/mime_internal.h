// Internal to the MIME family: tracing, failure records, stream position
// helpers and the small text helpers the model, parser and generator share.
#ifndef RQ_MIME_INTERNAL_H
#define RQ_MIME_INTERNAL_H

#include "rqcore/mime.h"

#include <cctype>
#include <string_view>

namespace rq::mime {

// Under MIME_TRACE: the entry point's name to the trace log.
void trace(const MIME_CONTEXT *context, const char *function) noexcept;

// Under MIME_LOG_ERRORS: "function: detail" with `code` at errlog id 2.
// Returns `code` so that a failure can be logged and returned in one line.
U32 fail(const MIME_CONTEXT *context, const char *function, U32 code, const char *detail) noexcept;

inline U32 nullParameter(const MIME_CONTEXT *context, const char *function) noexcept
{
    return fail(context, function, MIME_ERR_NULL_PARAMETER, "NULL parameter pointer.");
}

inline bool isSpace(char c) noexcept
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

inline std::string_view trim(std::string_view text) noexcept
{
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

// Token lookups without the context checks of the exported functions.
// identify: 0 and the identifier, or MIME_ERR_NOT_FOUND with *id =
// MIME_TOKEN_UNKNOWN.  tokenText: the row's text or null.
U32 identify(std::string_view text, U32 classFilter, U32 *id) noexcept;
const char *tokenText(U32 id) noexcept;

// Pushes a parameter whose name and value are taken as given (no trimming),
// identified as MIME_addParameterToField does.
U32 addParameter(MIME_CONTEXT *context, MIME_FIELD *field, std::string_view name, std::string_view value) noexcept;

inline bool rfcMode(const MIME_CONTEXT *context) noexcept
{
    return (context->flags & MIME_FLAG_RFC) != 0;
}

// MIME_addPartToWrapper for a caller that keeps the list's tail: *tail is
// null or the last part of the wrapper's list, and receives the part.  The
// parser appends every part of a message through this, so that appending
// costs the same for the millionth part as for the first.
U32 appendPart(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, MIME_PART *part, MIME_PART **tail) noexcept;

// A stream's current position.  File streams report a successful seek as 1
// and memory streams as 0, so both count as success here.
U32 tell(STREAM *stream, U32 *position) noexcept;
// Moves to `target` from the start and checks that the stream got there;
// *previous receives the position before the move.
U32 seekTo(STREAM *stream, U32 target, U32 *previous) noexcept;
// Writes all `length` bytes: a growing buffer copies only what fits in one
// call and expects the caller to write the rest.
U32 writeAll(STREAM *stream, const char *bytes, U32 length) noexcept;
inline U32 writeText(STREAM *stream, std::string_view text) noexcept
{
    return writeAll(stream, text.data(), static_cast<U32>(text.size()));
}

}  // namespace rq::mime

// The entry of every exported MIME function: the null-context check (never
// logged) and the trace record.
#define MIME_ENTER(context, name)                    \
    do {                                             \
        if ((context) == nullptr)                    \
            return MIME_ERR_NULL_CONTEXT;            \
        ::rq::mime::trace((context), name);          \
    } while (0)

#endif
