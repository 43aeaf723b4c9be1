#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_output"
#include "internal/rq_mem.h"

#include "mime_internal.h"
#include "rqcore/encode.h"

// The generator: header fields, boundaries, encoded bodies, attachments,
// parts and wrappers.  Every line end written is CR LF.

using namespace rq::mime;

namespace {

constexpr std::string_view kCrLf = "\r\n";
constexpr U32 kBase64LineBytes = 57;  // 76 characters a line
constexpr U32 kBase64LinesPerBlock = 64;
constexpr U32 kQpChunk = 1024;

// A header line is assembled in a 256-byte buffer; a longer line is written
// in pieces rather than cut, so nothing of a long value is lost.
class LineWriter {
public:
    explicit LineWriter(STREAM *stream) noexcept : stream_(stream) {}

    U32 add(std::string_view text) noexcept
    {
        if (status_ != 0)
            return status_;
        while (!text.empty()) {
            if (used_ == sizeof buffer_ && (status_ = flush()) != 0)
                return status_;
            size_t n = std::min(text.size(), sizeof buffer_ - used_);
            std::memcpy(buffer_ + used_, text.data(), n);
            used_ += n;
            text.remove_prefix(n);
        }
        return 0;
    }

    U32 flush() noexcept
    {
        if (status_ == 0 && used_ != 0)
            status_ = writeAll(stream_, buffer_, static_cast<U32>(used_));
        used_ = 0;
        return status_;
    }

private:
    STREAM *stream_;
    char buffer_[256];
    size_t used_ = 0;
    U32 status_ = 0;
};

const char *textOr(U32 id, const char *own) noexcept
{
    const char *text = tokenText(id);
    return text != nullptr ? text : own;
}

U32 writeBase64(MIME_CONTEXT *context, STREAM *out, const char *body, U32 length) noexcept
{
    // Whole blocks of 57-byte lines are encoded at once: 57 bytes make 76
    // characters with no padding, so the text is the same as line by line.
    char lines[kBase64LinesPerBlock * 78];
    while (length != 0) {
        U32 take = std::min(length, kBase64LineBytes * kBase64LinesPerBlock);
        char *encoded = nullptr;
        U32 status = ENCODE_convertToBase64(body, take, &encoded);
        if (status != 0)
            return fail(context, "MIME_outputBodyToStream()", status, "ENCODE_convertToBase64()");
        size_t textLength = std::strlen(encoded);
        size_t used = 0;
        for (size_t at = 0; at < textLength; at += 76) {
            size_t n = std::min<size_t>(76, textLength - at);
            std::memcpy(lines + used, encoded + at, n);
            lines[used + n] = '\r';
            lines[used + n + 1] = '\n';
            used += n + 2;
        }
        RQ_FREE(encoded);
        status = writeAll(out, lines, static_cast<U32>(used));
        if (status != 0)
            return fail(context, "MIME_outputBodyToStream()", status, "STREAM_write()");
        body += take;
        length -= take;
    }
    return 0;
}

U32 writeQuotedPrintable(MIME_CONTEXT *context, STREAM *out, const char *body, U32 length) noexcept
{
    // Chunk joins are not line breaks: only the encoder's own ones are.
    while (length != 0) {
        U32 take = std::min(length, kQpChunk);
        char *encoded = nullptr;
        U32 encodedLength = 0;
        U32 status = ENCODE_toQP(body, take, &encoded, &encodedLength, 4);
        if (status != 0) {
            if (encoded != nullptr)
                RQ_FREE(encoded);
            return fail(context, "MIME_outputBodyToStream()", status, "ENCODE_toQP()");
        }
        // The encoder counts its terminating NUL.
        status = writeAll(out, encoded, encodedLength != 0 ? encodedLength - 1 : 0);
        RQ_FREE(encoded);
        if (status != 0)
            return fail(context, "MIME_outputBodyToStream()", status, "STREAM_write()");
        body += take;
        length -= take;
    }
    return 0;
}

}  // namespace

extern "C" {

RQ_API U32 MIME_outputFieldToStream(MIME_CONTEXT *context, STREAM *out, MIME_FIELD *field) noexcept
{
    MIME_ENTER(context, "MIME_outputFieldToStream()");
    if (out == nullptr || field == nullptr)
        return nullParameter(context, "MIME_outputFieldToStream()");
    LineWriter line(out);
    // The table's spelling replaces the field's own ("cc" is written "CC").
    // The two blanks after the colon are deliberate; readers rely on them.
    line.add(textOr(field->nameId, field->name));
    line.add(":  ");
    line.add(textOr(field->valueId, field->value));
    for (const MIME_PARAMETER *p = field->parameters; p != nullptr; p = p->next) {
        line.add(";\r\n ");
        line.add(textOr(p->nameId, p->name));
        line.add("=\"");
        line.add(textOr(p->valueId, p->value));  // every parameter value is quoted
        line.add("\"");
    }
    line.add(kCrLf);
    U32 status = line.flush();
    return status == 0 ? 0 : fail(context, "MIME_outputFieldToStream()", status, "STREAM_write()");
}

RQ_API U32 MIME_outputSimpleFieldToStream(MIME_CONTEXT *context, STREAM *out, U32 nameId, const char *value, const U32 *paramNameIds, const char **paramValues, U32 paramCount) noexcept
{
    constexpr const char *kFunction = "MIME_outputSimpleFieldToStream()";
    MIME_ENTER(context, kFunction);
    if (out == nullptr || value == nullptr)
        return nullParameter(context, kFunction);
    const char *name = tokenText(nameId);
    if (name == nullptr)
        return fail(context, kFunction, MIME_ERR_NOT_FOUND, "MIME_getTokenString()");
    MIME_FIELD *field = nullptr;
    U32 status = MIME_createField(context, &field, name, value);
    if (status != 0)
        return fail(context, kFunction, status, "MIME_createField()");
    if (paramNameIds != nullptr && paramValues != nullptr) {
        for (U32 i = 0; i < paramCount && status == 0; ++i) {
            const char *parameterName = tokenText(paramNameIds[i]);
            if (parameterName == nullptr)
                status = fail(context, kFunction, MIME_ERR_NOT_FOUND, "MIME_getTokenString()");
            else if (paramValues[i] == nullptr)
                status = nullParameter(context, kFunction);
            else
                status = MIME_addParameterToField(context, field, parameterName, paramValues[i]);
        }
    }
    if (status == 0)
        status = MIME_outputFieldToStream(context, out, field);
    MIME_destroyField(context, &field);
    return status;
}

RQ_API U32 MIME_outputBoundaryToStreamCore(MIME_CONTEXT *context, STREAM *out, const char *boundary, U32 terminating) noexcept
{
    // A null context is a null parameter here, unlike everywhere else.
    if (context == nullptr || out == nullptr || boundary == nullptr)
        return context == nullptr ? U32{MIME_ERR_NULL_PARAMETER} : nullParameter(context, "MIME_outputBoundaryToStream()");
    trace(context, "MIME_outputBoundaryToStreamCore()");
    LineWriter line(out);
    line.add("--");
    line.add(boundary);
    if (terminating != 0)
        line.add("--");
    line.add(kCrLf);
    U32 status = line.flush();
    return status == 0 ? 0 : fail(context, "MIME_outputBoundaryToStream()", status, "STREAM_write()");
}

RQ_API U32 MIME_outputBoundaryToStream(MIME_CONTEXT *context, STREAM *out, const char *boundary) noexcept
{
    return MIME_outputBoundaryToStreamCore(context, out, boundary, 0);
}

RQ_API U32 MIME_outputTerminatingBoundaryToStream(MIME_CONTEXT *context, STREAM *out, const char *boundary) noexcept
{
    return MIME_outputBoundaryToStreamCore(context, out, boundary, 1);
}

RQ_API U32 MIME_outputBodyToStream(MIME_CONTEXT *context, STREAM *out, const char *body, U32 length, U32 encodingId) noexcept
{
    constexpr const char *kFunction = "MIME_outputBodyToStream()";
    MIME_ENTER(context, kFunction);
    if (out == nullptr || (body == nullptr && length != 0))
        return nullParameter(context, kFunction);
    U32 status = writeText(out, kCrLf);  // the blank line that ends the headers
    if (status != 0)
        return fail(context, kFunction, status, "STREAM_write()");
    switch (encodingId) {
    case MIME_ENCODING_BASE64:
        status = writeBase64(context, out, body, length);
        break;
    case MIME_ENCODING_8BIT:
    case MIME_ENCODING_BINARY:
    case MIME_ENCODING_7BIT:
        status = writeAll(out, body, length);
        if (status != 0)
            fail(context, kFunction, status, "STREAM_write()");
        break;
    case MIME_ENCODING_QUOTED_PRINTABLE:
        status = writeQuotedPrintable(context, out, body, length);
        break;
    default:
        return fail(context, kFunction, MIME_ERR_UNKNOWN_ENCODING, "Unknown transfer encoding");
    }
    if (status != 0)
        return status;
    status = writeText(out, kCrLf);
    return status == 0 ? 0 : fail(context, kFunction, status, "STREAM_write()");
}

RQ_API U32 MIME_outputAttachmentToStream(MIME_CONTEXT *context, STREAM *out, const char *body, U32 length, U32 typeId, U32 subtypeId, U32 encodingId, const char *contentId, const char *charsetName, const char *fileName, const char *boundary) noexcept
{
    constexpr const char *kFunction = "MIME_outputAttachmentToStream()";
    MIME_ENTER(context, kFunction);
    if (out == nullptr || body == nullptr || boundary == nullptr)
        return nullParameter(context, kFunction);

    // Content-Type: a type missing from the table makes it "text/plain".
    char type[64] = "text/plain";
    const char *typeText = tokenText(typeId);
    const char *subtypeText = tokenText(subtypeId);
    if (typeText != nullptr && subtypeText != nullptr)
        SIS_CrtSNPrintf(type, sizeof type, "%s/%s", typeText, subtypeText);
    U32 names[2];
    const char *values[2];
    U32 count = 0;
    if (charsetName != nullptr) {
        names[count] = MIME_PARAM_CHARSET;
        values[count++] = charsetName;
    }
    if (fileName != nullptr) {
        names[count] = MIME_PARAM_NAME;
        values[count++] = fileName;
    }
    U32 status = MIME_outputSimpleFieldToStream(context, out, MIME_FIELD_CONTENT_TYPE, type, names, values, count);

    if (status == 0 && encodingId != 0) {
        const char *encoding = tokenText(encodingId);
        if (encoding == nullptr) {
            encoding = "base64";
            encodingId = MIME_ENCODING_BASE64;
        }
        status = MIME_outputSimpleFieldToStream(context, out, MIME_FIELD_CONTENT_TRANSFER_ENCODING, encoding,
                                                nullptr, nullptr, 0);
    }
    if (status == 0 && fileName != nullptr) {
        const U32 filename = MIME_PARAM_FILENAME;
        status = MIME_outputSimpleFieldToStream(context, out, MIME_FIELD_CONTENT_DISPOSITION, "attachment",
                                                &filename, &fileName, 1);
    }
    if (status == 0 && contentId != nullptr)
        status = MIME_outputSimpleFieldToStream(context, out, MIME_FIELD_CONTENT_ID, contentId, nullptr, nullptr, 0);
    // An encoding of 0 fails here, after the headers: callers name one.
    if (status == 0)
        status = MIME_outputBodyToStream(context, out, body, length, encodingId);
    if (status == 0)
        status = MIME_outputBoundaryToStream(context, out, boundary);
    return status;
}

RQ_API U32 MIME_outputPartToStream(MIME_CONTEXT *context, STREAM *out, MIME_PART *part) noexcept
{
    constexpr const char *kFunction = "MIME_outputPartToStream()";
    MIME_ENTER(context, kFunction);
    if (out == nullptr || part == nullptr)
        return nullParameter(context, kFunction);
    char *body = nullptr;
    U32 length = 0;
    U32 status = MIME_getPartBodyBuffer(context, part, &body, &length);
    if (status != 0)
        return fail(context, kFunction, status, "MIME_getPartBodyBuffer()");
    rq::Block<char> owned(body);
    // Fields in list order: the reverse of their addition, which after a
    // parse is the reverse of the message's order.
    for (MIME_FIELD *field = part->fields; field != nullptr && status == 0; field = field->next)
        status = MIME_outputFieldToStream(context, out, field);
    // The body goes out decoded, as it is: it is not encoded again.
    if (status == 0)
        status = writeText(out, kCrLf);
    if (status == 0)
        status = writeAll(out, body, length);
    return status == 0 ? 0 : fail(context, kFunction, status, "STREAM_write()");
}

RQ_API U32 MIME_outputWrapperToStream(MIME_CONTEXT *context, STREAM *out, MIME_WRAPPER *wrapper) noexcept
{
    MIME_ENTER(context, "MIME_outputWrapperToStream()");
    if (out == nullptr || wrapper == nullptr)
        return nullParameter(context, "MIME_outputMessageToStream()");
    for (MIME_PART *part = wrapper->parts; part != nullptr; part = part->next) {
        U32 status = MIME_outputPartToStream(context, out, part);
        if (status != 0)
            return fail(context, "MIME_outputWrapperToStream()", status, "MIME_outputPartToStream()");
        // The boundary as the wrapper holds it (after a parse, with its
        // leading "--"), after every part, the last included; no closing
        // boundary is written.
        if (wrapper->partCount > 1) {
            status = writeText(out, wrapper->boundary);
            if (status == 0)
                status = writeText(out, kCrLf);
            if (status != 0)
                return fail(context, "MIME_outputWrapperToStream()", status, "STREAM_write()");
        }
    }
    return 0;
}

}  // extern "C"
