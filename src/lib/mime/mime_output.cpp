#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_output"
#include "internal/rq_mem.h"

#include "mime_internal.h"
#include "rqcore/encode.h"

#include <cstdint>

// The generator: header fields, boundaries, encoded bodies, attachments,
// parts and wrappers.  Every line end written is CR LF.

using namespace rq::mime;

namespace {

constexpr std::string_view kCrLf = "\r\n";
constexpr U32 kBase64LineBytes = 57;  // 76 characters a line
constexpr U32 kBase64LinesPerBlock = 26;  // about 2 KB: the block stays in the first-level cache while it is copied
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

// Base64 bodies go out in lines of 76 characters (57 bytes each), encoded
// straight into a small block that is written with one stream write: the
// text is exactly what the base64 encoder gives for each 57-byte chunk,
// without an allocation per chunk.
constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Two output characters for every 12-bit value.
struct Base64Pairs {
    char text[4096 * 2];
};

constexpr Base64Pairs makePairs() noexcept
{
    Base64Pairs p{};
    for (int v = 0; v < 4096; ++v) {
        p.text[2 * v] = kBase64Alphabet[v >> 6];
        p.text[2 * v + 1] = kBase64Alphabet[v & 63];
    }
    return p;
}

constexpr Base64Pairs kPairs = makePairs();

inline uint64_t loadBigEndian64(const unsigned char *p) noexcept
{
    uint64_t v;
    std::memcpy(&v, p, 8);
    return __builtin_bswap64(v);
}

// The pair for the low 12 bits of `bits`, as a little-endian 16-bit value.
inline uint64_t pair(uint64_t bits) noexcept
{
    uint16_t v;
    std::memcpy(&v, kPairs.text + 2 * (bits & 0xFFF), 2);
    return v;
}

inline void putPair(char *out, U32 twelveBits) noexcept
{
    std::memcpy(out, kPairs.text + 2 * twelveBits, 2);
}

char *encodeBase64Line(const unsigned char *in, U32 n, char *out) noexcept
{
    U32 i = 0;
    // 12 bytes make 16 characters; each 8-byte load supplies 6 bytes.
    for (; i + 16 <= n; i += 12, out += 16) {
        uint64_t a = loadBigEndian64(in + i);
        uint64_t b = loadBigEndian64(in + i + 6);
        uint64_t x = pair(a >> 52) | pair(a >> 40) << 16 | pair(a >> 28) << 32 | pair(a >> 16) << 48;
        uint64_t y = pair(b >> 52) | pair(b >> 40) << 16 | pair(b >> 28) << 32 | pair(b >> 16) << 48;
        std::memcpy(out, &x, 8);  // both targets are little-endian
        std::memcpy(out + 8, &y, 8);
    }
    for (; i + 3 <= n; i += 3, out += 4) {
        U32 v = (U32{in[i]} << 16) | (U32{in[i + 1]} << 8) | in[i + 2];
        putPair(out, v >> 12);
        putPair(out + 2, v & 0xFFF);
    }
    if (i < n) {
        U32 v = U32{in[i]} << 16;
        if (i + 1 < n)
            v |= U32{in[i + 1]} << 8;
        out[0] = kBase64Alphabet[v >> 18];
        out[1] = kBase64Alphabet[(v >> 12) & 63];
        out[2] = i + 1 < n ? kBase64Alphabet[(v >> 6) & 63] : '=';
        out[3] = '=';
        out += 4;
    }
    out[0] = '\r';
    out[1] = '\n';
    return out + 2;
}

// A whole 57-byte line: nine 6-byte groups (the last 8-byte load ends at
// byte 56, inside the line) and one 3-byte group, with no length tests.
inline char *encodeFullBase64Line(const unsigned char *in, char *out) noexcept
{
    for (int g = 0; g < 9; ++g) {
        uint64_t a = loadBigEndian64(in + 6 * g);
        uint64_t x = pair(a >> 52) | pair(a >> 40) << 16 | pair(a >> 28) << 32 | pair(a >> 16) << 48;
        std::memcpy(out + 8 * g, &x, 8);  // both targets are little-endian
    }
    U32 v = (U32{in[54]} << 16) | (U32{in[55]} << 8) | in[56];
    putPair(out + 72, v >> 12);
    putPair(out + 74, v & 0xFFF);
    out[76] = '\r';
    out[77] = '\n';
    return out + 78;
}

U32 writeBase64(MIME_CONTEXT *context, STREAM *out, const char *body, U32 length) noexcept
{
    char lines[kBase64LinesPerBlock * 78];
    const auto *in = reinterpret_cast<const unsigned char *>(body);
    while (length != 0) {
        char *end = lines;
        U32 full = std::min(length / kBase64LineBytes, kBase64LinesPerBlock);
        for (U32 line = 0; line < full; ++line, in += kBase64LineBytes)
            end = encodeFullBase64Line(in, end);
        length -= full * kBase64LineBytes;
        if (full < kBase64LinesPerBlock && length != 0) {
            end = encodeBase64Line(in, length, end);
            length = 0;
        }
        U32 status = writeAll(out, lines, static_cast<U32>(end - lines));
        if (status != 0)
            return fail(context, "MIME_outputBodyToStream()", status, "STREAM_write()");
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
