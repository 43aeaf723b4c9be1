#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_tokens"
#include "internal/rq_mem.h"

#include "mime_internal.h"

#include <array>

namespace rq::mime {

namespace {

struct Token {
    std::string_view text;
    U32 id;
};

// The token table.  Searches take the first matching row, so two rows are
// deliberately irregular and callers rely on both: "Reply-To" and
// "Resent-Reply-To" share one identifier (its text is "Reply-To"), and
// "text" is both a type and a subtype, told apart only by the class filter.
constexpr std::array<Token, 60> kTokens{{
    {"Return-Path", MIME_FIELD_RETURN_PATH},
    {"Received", MIME_FIELD_RECEIVED},
    {"Reply-To", MIME_FIELD_REPLY_TO},
    {"Resent-Reply-To", MIME_FIELD_REPLY_TO},
    {"From", MIME_FIELD_FROM},
    {"Resent-From", MIME_FIELD_RESENT_FROM},
    {"Sender", MIME_FIELD_SENDER},
    {"Resent-Sender", MIME_FIELD_RESENT_SENDER},
    {"Date", MIME_FIELD_DATE},
    {"Resent-Date", MIME_FIELD_RESENT_DATE},
    {"To", MIME_FIELD_TO},
    {"Resent-To", MIME_FIELD_RESENT_TO},
    {"CC", MIME_FIELD_CC},
    {"Resent-CC", MIME_FIELD_RESENT_CC},
    {"BCC", MIME_FIELD_BCC},
    {"Resent-BCC", MIME_FIELD_RESENT_BCC},
    {"Message-ID", MIME_FIELD_MESSAGE_ID},
    {"Resent-Message-ID", MIME_FIELD_RESENT_MESSAGE_ID},
    {"In-Reply-To", MIME_FIELD_IN_REPLY_TO},
    {"References", MIME_FIELD_REFERENCES},
    {"Keywords", MIME_FIELD_KEYWORDS},
    {"Subject", MIME_FIELD_SUBJECT},
    {"Comments", MIME_FIELD_COMMENTS},
    {"MIME-Version", MIME_FIELD_MIME_VERSION},
    {"Content-Type", MIME_FIELD_CONTENT_TYPE},
    {"Content-Transfer-Encoding", MIME_FIELD_CONTENT_TRANSFER_ENCODING},
    {"Content-ID", MIME_FIELD_CONTENT_ID},
    {"Content-Description", MIME_FIELD_CONTENT_DESCRIPTION},
    {"Content-Disposition", MIME_FIELD_CONTENT_DISPOSITION},
    {"charset", MIME_PARAM_CHARSET},
    {"method", MIME_PARAM_METHOD},
    {"boundary", MIME_PARAM_BOUNDARY},
    {"filename", MIME_PARAM_FILENAME},
    {"component", MIME_PARAM_COMPONENT},
    {"name", MIME_PARAM_NAME},
    {"base64", MIME_ENCODING_BASE64},
    {"quoted-printable", MIME_ENCODING_QUOTED_PRINTABLE},
    {"7bit", MIME_ENCODING_7BIT},
    {"8bit", MIME_ENCODING_8BIT},
    {"binary", MIME_ENCODING_BINARY},
    {"1.0", MIME_VERSION_1_0},
    {"attachment", MIME_VALUE_ATTACHMENT},
    {"text", MIME_TYPE_TEXT},
    {"image", MIME_TYPE_IMAGE},
    {"audio", MIME_TYPE_AUDIO},
    {"video", MIME_TYPE_VIDEO},
    {"application", MIME_TYPE_APPLICATION},
    {"multipart", MIME_TYPE_MULTIPART},
    {"message", MIME_TYPE_MESSAGE},
    {"plain", MIME_SUBTYPE_PLAIN},
    {"mixed", MIME_SUBTYPE_MIXED},
    {"html", MIME_SUBTYPE_HTML},
    {"gif", MIME_SUBTYPE_GIF},
    {"jpeg", MIME_SUBTYPE_JPEG},
    {"postscript", MIME_SUBTYPE_POSTSCRIPT},
    {"rtf", MIME_SUBTYPE_RTF},
    {"text", MIME_SUBTYPE_TEXT},
    {"calendar", MIME_SUBTYPE_CALENDAR},
    {"calendar+xml", MIME_SUBTYPE_CALENDAR_XML},
    {"x-vcard", MIME_SUBTYPE_X_VCARD},
}};

static_assert(kTokens[3].id == kTokens[2].id, "Reply-To and Resent-Reply-To share an identifier");
static_assert(kTokens[42].text == kTokens[56].text && kTokens[42].id != kTokens[56].id);

constexpr char lower(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool equalNoCase(std::string_view a, std::string_view b) noexcept
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i]))
            return false;
    return true;
}

}  // namespace

U32 identify(std::string_view text, U32 classFilter, U32 *id) noexcept
{
    *id = MIME_TOKEN_UNKNOWN;
    text = trim(text);
    for (const Token &row : kTokens) {
        if ((classFilter == 0 || (row.id & 0xFFFF0000u) == classFilter) && equalNoCase(row.text, text)) {
            *id = row.id;
            return 0;
        }
    }
    // An extension word ("X-..." longer than two characters) whatever the
    // filter: an extension header name keeps this identifier.
    if (text.size() > 2 && (text[0] == 'X' || text[0] == 'x') && text[1] == '-') {
        *id = MIME_TOKEN_EXTENSION;
        return 0;
    }
    return MIME_ERR_NOT_FOUND;
}

const char *tokenText(U32 id) noexcept
{
    for (const Token &row : kTokens)
        if (row.id == id)
            return row.text.data();  // the literals are NUL-terminated
    return nullptr;
}

}  // namespace rq::mime

using namespace rq::mime;

extern "C" {

RQ_API U32 MIME_getTokenString(MIME_CONTEXT *context, U32 id, const char **text) noexcept
{
    MIME_ENTER(context, "MIME_getTokenString()");
    if (text == nullptr)
        return nullParameter(context, "MIME_getTokenString()");
    *text = "UNKNOWN";
    const char *found = tokenText(id);
    if (found == nullptr)
        return MIME_ERR_NOT_FOUND;
    *text = found;
    return 0;
}

RQ_API U32 MIME_identifyToken(MIME_CONTEXT *context, const char *text, U32 classFilter, U32 *id) noexcept
{
    MIME_ENTER(context, "MIME_identifyToken()");
    if (text == nullptr || id == nullptr)
        return nullParameter(context, "MIME_identifyToken()");
    return identify(text, classFilter, id);
}

}  // extern "C"
