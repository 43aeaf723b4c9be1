#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_parse"
#include "internal/rq_mem.h"

#include "mime_internal.h"

#include <algorithm>
#include <new>

// The parser: reads a whole message line by line and builds a wrapper whose
// parts record where their bodies lie in the stream.  Nested multiparts are
// flattened into the one part list.  Everything the input controls is
// bounded: a logical header line by the header buffer, a physical line by
// the line buffer, nesting by the boundary stack; there is no recursion,
// and parts are appended at a kept tail, so the work grows with the length
// of the message and not with the square of its part count.

using namespace rq::mime;

namespace {

constexpr U32 kHeaderSize = 10240;
constexpr U32 kLineSize = 256;
constexpr U32 kStackDepth = 16;
constexpr U32 kBoundaryKept = 128;  // "--" and the boundary, in all

enum State { kHeaders = 1, kBody = 2 };

// Reads one physical line (at most 255 bytes; a longer line comes in
// several reads) into a 256-byte buffer, always terminated.
U32 readLine(STREAM *stream, char *line) noexcept
{
    U32 count = 0;
    U32 status = STREAM_read(stream, line, kLineSize - 1, &count);
    line[status == 0 && count < kLineSize ? count : 0] = '\0';
    return status;
}

bool allWhite(const char *line) noexcept
{
    for (; *line != '\0'; ++line)
        if (!isSpace(*line))
            return false;
    return true;
}

// Where the parser's lines come from.  Memory and file streams are read in
// large blocks and split into lines here, by each kind's own line rules, so
// that a line costs no call into the stream (and a file line no system
// call); any other stream (a pipe, a caller's own kind) is read line by line
// in its line mode.  Both ways give the same lines and positions, and leave
// the stream where line reads would have left it.
//   memory kind: CR, LF or CR LF end a line; NUL bytes are data.
//   file kind: CR or LF end a line; after a CR every further CR and then one
//   more byte belong to the line end (so CR LF, CR CR LF, and a lone CR with
//   the byte after it); NUL bytes are dropped.
// Both stop a read after 255 stored bytes, leaving the line end for the next
// read.  The kind is told by a seek of 0 from the end: a memory stream
// reports without moving (0), a file stream moves and reports success as 1.
class LineSource {
public:
    static constexpr U32 kBlock = 64 * 1024;

    U32 start(STREAM *in) noexcept
    {
        in_ = in;
        U32 before = 0;
        U32 status = STREAM_seek(in, 0, STREAM_SEEK_END, &before);
        if (status == 1) {
            // A file stream moved to its end: go back.
            if (STREAM_seek(in, static_cast<S32>(before), STREAM_SEEK_SET, nullptr) == 1)
                mode_ = kFile;
        } else if (status == 0) {
            mode_ = kMemory;
        }
        base_ = before;
        if (mode_ != kLines)
            return STREAM_unsetFlags(in, STREAM_LINE_MODE, nullptr);  // blocks are read whole
        return 0;
    }

    U32 position(U32 *position) noexcept
    {
        if (mode_ == kLines)
            return tell(in_, position);
        *position = base_ + offset_;
        return 0;
    }

    // Bytes of line end that the last read consumed after the line's text.
    U32 lineEnd() const noexcept { return lineEnd_; }

    // Reads one line into a 256-byte buffer, always terminated.
    U32 read(char *line) noexcept
    {
        lineEnd_ = 0;
        if (mode_ == kLines)
            return readLines(line);
        if (mode_ == kFile)
            return readFileLine(line);
        if (available() == 0 && !ended_)
            refill();
        if (available() == 0) {
            line[0] = '\0';
            return STREAM_EOF;
        }
        if (available() <= kLineSize && !ended_)
            refill();  // a whole line and the byte after it are in the block
        const char *p = block_ + offset_;
        U32 limit = std::min<U32>(available(), kLineSize - 1);
        U32 length = limit;
        bool ended = false;
        if (const void *lf = std::memchr(p, '\n', limit)) {
            length = static_cast<U32>(static_cast<const char *>(lf) - p);
            ended = true;
        }
        if (const void *cr = std::memchr(p, '\r', length)) {
            length = static_cast<U32>(static_cast<const char *>(cr) - p);
            ended = true;
        }
        std::memcpy(line, p, length);
        line[length] = '\0';
        offset_ += length;
        if (ended) {
            char end = block_[offset_++];
            lineEnd_ = 1;
            if (end == '\r' && available() != 0 && block_[offset_] == '\n') {
                ++offset_;
                lineEnd_ = 2;
            }
        }
        return 0;
    }

    // Leaves the stream where line reads would have left it.
    void settle() noexcept
    {
        if (mode_ != kLines) {
            STREAM_seek(in_, static_cast<S32>(base_ + offset_), STREAM_SEEK_SET, nullptr);
            STREAM_setFlags(in_, STREAM_LINE_MODE, nullptr);
        }
    }

private:
    enum Mode { kLines, kMemory, kFile };

    U32 available() const noexcept { return length_ - offset_; }

    // A stream of another kind, in its line mode: the line end is what the
    // position moved by beyond the text (0 when positions are unknown).
    U32 readLines(char *line) noexcept
    {
        U32 before = 0, after = 0;
        bool known = tell(in_, &before) == 0;
        U32 status = readLine(in_, line);
        if (status == 0 && known && tell(in_, &after) == 0) {
            size_t text = std::strlen(line);
            if (after >= before && after - before > text)
                lineEnd_ = static_cast<U32>(after - before - text);
        }
        return status;
    }

    // The next byte, or -1 at the end of the data.
    int next() noexcept
    {
        if (available() == 0 && !ended_)
            refill();
        if (available() == 0)
            return -1;
        return static_cast<unsigned char>(block_[offset_++]);
    }

    U32 readFileLine(char *line) noexcept
    {
        if (available() <= kLineSize && !ended_)
            refill();
        // Fast path: a line without NUL bytes that ends in LF (or in a CR
        // whose line end the byte loop below then finishes) or fills a read.
        U32 limit = std::min<U32>(available(), kLineSize - 1);
        const char *p = block_ + offset_;
        U32 length = limit;
        if (const void *lf = std::memchr(p, '\n', limit))
            length = static_cast<U32>(static_cast<const char *>(lf) - p);
        if (const void *cr = std::memchr(p, '\r', length))
            length = static_cast<U32>(static_cast<const char *>(cr) - p);
        if (std::memchr(p, '\0', length) == nullptr && (length < limit || limit == kLineSize - 1)) {
            std::memcpy(line, p, length);
            line[length] = '\0';
            offset_ += length;
            if (length == limit)
                return 0;  // a full read: the line end stays for the next one
            lineEnd_ = 1;
            if (block_[offset_++] == '\n')
                return 0;
            for (int c = next(); c >= 0; c = next()) {
                ++lineEnd_;
                if (c != '\r')
                    break;
            }  // a CR run and the byte after it end the line
            return 0;
        }
        U32 stored = 0;
        bool inLineEnd = false;
        for (;;) {
            int c = next();
            if (c < 0)
                break;
            if (inLineEnd) {
                ++lineEnd_;
                if (c != '\r')
                    break;  // the byte after a CR run belongs to the line end
                continue;
            }
            if (c == '\r' || c == '\n') {
                inLineEnd = true;
                lineEnd_ = 1;
                if (c == '\n')
                    break;
                continue;
            }
            if (c != '\0')
                line[stored++] = static_cast<char>(c);
            if (stored >= kLineSize - 1)
                break;
        }
        line[stored] = '\0';
        return stored == 0 && !inLineEnd ? U32{STREAM_EOF} : 0;
    }

    void refill() noexcept
    {
        // Keep the unread bytes at the front, then fill the rest.
        U32 keep = available();
        std::memmove(block_, block_ + offset_, keep);
        base_ += offset_;
        offset_ = 0;
        length_ = keep;
        while (!ended_ && length_ < kBlock) {
            U32 got = 0;
            U32 status = STREAM_read(in_, block_ + length_, kBlock - length_, &got);
            if (status != 0 || got == 0) {
                ended_ = true;  // the end of the data (any failure ends the lines too)
                break;
            }
            length_ += got;
        }
    }

    STREAM *in_ = nullptr;
    Mode mode_ = kLines;
    bool ended_ = false;
    U32 base_ = 0;    // stream position of block_[0]
    U32 offset_ = 0;  // next unread byte
    U32 length_ = 0;  // bytes in the block
    U32 lineEnd_ = 0;
    char block_[kBlock];
};

struct Parse {
    Parse(MIME_CONTEXT *c, STREAM *s, MIME_WRAPPER *w) noexcept : context(c), in(s), wrapper(w), rfc(rfcMode(c)) {}

    MIME_CONTEXT *context;
    STREAM *in;
    MIME_WRAPPER *wrapper;
    bool rfc;  // MIME_FLAG_RFC
    MIME_PART *part = nullptr;
    MIME_PART *tail = nullptr;  // the wrapper's last part: appending never walks the list
    char *stack[kStackDepth] = {};
    U32 depth = 0;
    U32 savedFlags = 0;
    U32 status = 0;
    bool done = false;
    int state = kHeaders;
    char header[kHeaderSize];
    char line[kLineSize];
    LineSource source;

    // A read that fails ends the parse; the end of the data is the normal end.
    void noteRead(U32 readStatus) noexcept
    {
        if (readStatus != 0) {
            done = true;
            if (readStatus != STREAM_EOF && status == 0)
                status = readStatus;
        }
    }

    U32 finish() noexcept
    {
        if (part != nullptr)
            appendPart(context, wrapper, part, &tail);
        part = nullptr;
        source.settle();
        STREAM_setFlags(in, savedFlags, nullptr);
        for (U32 i = 0; i < depth; ++i)
            RQ_FREE(stack[i]);
        depth = 0;
        return status == STREAM_EOF ? 0 : status;
    }

    void startBody() noexcept
    {
        state = kBody;
        U32 position = 0;
        if (source.position(&position) == 0)
            part->bodyStart = position;
    }

    void processHeader() noexcept
    {
        // A line with no headers at all ends nothing: skip it quietly.
        if (header[0] == '\0')
            return;
        if (MIME_stripComments(context, header) != 0) {
            fail(context, "MIME_parseMessageFromStream()", MIME_ERR_FIELD_NO_NAME, "Field has no name.");
            return;
        }
        char *colon = std::strchr(header, ':');
        if (colon == nullptr) {
            fail(context, "MIME_parseMessageFromStream()", MIME_ERR_FIELD_NO_VALUE, "Field has no value.");
            return;
        }
        *colon = '\0';
        char *value = colon + 1;
        while (isSpace(*value))
            ++value;
        // Under MIME_FLAG_RFC the field splitter removes the quotes itself,
        // once it knows which ";" and "=" they protect.
        if (MIME_stripNonMachineText(context, value) == 0 && !rfc)
            MIME_stripDQuotesAndBackslashes(context, value);
        // MIME_grokField logs its own failures with the failing step; no
        // header error stops the parse.
        MIME_grokField(context, stack, &depth, wrapper, part, header, value);
    }

    // State 1: the header buffer holds the start of a header; returns a
    // status only for the fatal over-long header.
    U32 readHeaders() noexcept
    {
        // An empty first line of a header block is the blank line itself.
        if (header[0] == '\0')
            startBody();
        // The header's length is kept as lines are joined: measuring it again
        // for every continuation line would cost the square of its length.
        size_t have = std::strlen(header);
        if (rfc && header[0] == '\0')
            readFirstBodyLine();
        for (; !(rfc && state == kBody);) {
            U32 readStatus = source.read(line);
            if (readStatus != 0) {
                noteRead(readStatus);
                line[0] = '\0';
                break;
            }
            if (line[0] != '\0' && !isSpace(line[0]))
                break;  // a new header, or the first body line
            if (rfc && allWhite(line)) {
                // The body starts right after the first blank line.
                startBody();
                readFirstBodyLine();
                break;
            }
            if (line[0] == '\0') {
                // Further empty lines move the body start past them.
                startBody();
                continue;
            }
            if (allWhite(line)) {
                line[0] = '\0';
                startBody();
                break;
            }
            // A continuation line, joined with nothing between (its own
            // leading white space is kept).
            size_t add = std::strlen(line);
            if (have + add > kHeaderSize - 1)
                return MIME_ERR_HEADER_TOO_LONG;
            std::memcpy(header + have, line, add + 1);
            have += add;
        }
        processHeader();
        std::memcpy(header, line, std::strlen(line) + 1);
        return 0;
    }

    void readFirstBodyLine() noexcept
    {
        U32 readStatus = source.read(line);
        if (readStatus != 0) {
            noteRead(readStatus);
            line[0] = '\0';
        }
    }

    // Under MIME_FLAG_RFC: the boundary stack entry (or, for the wrapper's
    // own unstacked boundary, `depth`) that the line delimits, or -1.  A
    // delimiter line is the boundary, "--" if it closes, and blanks only.
    int delimiter(bool *closing) const noexcept
    {
        if (line[0] != '-')
            return -1;
        auto matches = [&](const char *boundary) {
            size_t length = std::strlen(boundary);
            if (length == 0 || std::strncmp(line, boundary, length) != 0)
                return false;
            const char *rest = line + length;
            *closing = rest[0] == '-' && rest[1] == '-';
            if (*closing)
                rest += 2;
            for (; *rest == ' ' || *rest == '\t'; ++rest) {
            }
            return *rest == '\0';
        };
        if (depth > 0 && std::strcmp(wrapper->boundary, stack[depth - 1]) != 0 && matches(wrapper->boundary))
            return static_cast<int>(depth);
        for (U32 level = depth; level-- > 0;)
            if (matches(stack[level]))
                return static_cast<int>(level);
        if (depth == 0 && matches(wrapper->boundary))
            return 0;
        return -1;
    }

    // State 2 under MIME_FLAG_RFC.  The line end before a delimiter line
    // belongs to the delimiter; a delimiter of an enclosing multipart closes
    // the inner ones; after a closing delimiter comes an epilogue, a body
    // without headers.
    U32 readBodyRfc() noexcept
    {
        U32 textEnd = part->bodyStart;  // where the last body line's text ends
        for (;;) {
            bool closing = false;
            int level = delimiter(&closing);
            if (level >= 0) {
                part->bodyLength = textEnd > part->bodyStart ? textEnd - part->bodyStart : 0;
                appendPart(context, wrapper, part, &tail);
                part = nullptr;
                // The entries that stay open; the wrapper's unstacked boundary
                // (past the nesting limit) leaves the stack as it is.
                bool unstacked = static_cast<U32>(level) == depth;
                U32 keep = unstacked ? depth : static_cast<U32>(level) + (closing ? 0 : 1);
                while (depth > keep)
                    RQ_FREE(stack[--depth]);
                if (!unstacked || closing) {
                    if (depth > 0)
                        std::strcpy(wrapper->boundary, stack[depth - 1]);
                    else
                        wrapper->boundary[0] = '\0';
                }
                U32 created = MIME_createPart(context, &part);
                if (created != 0)
                    return created;
                part->stream = in;
                if (closing) {
                    startBody();
                    textEnd = part->bodyStart;
                    part->bodyLength = 0;
                } else {
                    state = kHeaders;
                    noteRead(source.read(header));
                    if (done)
                        header[0] = '\0';
                    return 0;
                }
            } else {
                U32 position = 0;
                if (source.position(&position) == 0 && position >= part->bodyStart) {
                    part->bodyLength = position - part->bodyStart;
                    textEnd = position - std::min(source.lineEnd(), part->bodyLength);
                }
            }
            noteRead(source.read(line));
            if (done)
                return 0;
        }
    }

    // State 2, with the last line read in the line buffer.
    U32 readBody() noexcept
    {
        if (rfc)
            return readBodyRfc();
        U32 bodyLength = 0;
        for (;;) {
            size_t boundaryLength = std::strlen(wrapper->boundary);
            if (line[0] == '-' && boundaryLength != 0) {
                if (std::strncmp(line, wrapper->boundary, boundaryLength) == 0) {
                    part->bodyLength = bodyLength;
                    appendPart(context, wrapper, part, &tail);
                    part = nullptr;
                    if (line[boundaryLength] == '-' && line[boundaryLength + 1] == '-') {
                        if (depth > 0)
                            RQ_FREE(stack[--depth]);
                        if (depth > 0)
                            std::strcpy(wrapper->boundary, stack[depth - 1]);
                        else
                            wrapper->boundary[0] = '\0';
                    }
                    state = kHeaders;
                    noteRead(source.read(header));
                    if (done)
                        header[0] = '\0';
                    U32 created = MIME_createPart(context, &part);
                    if (created != 0)
                        return created;
                    part->stream = in;
                    return 0;
                }
                // A "-" line that is not the boundary changes nothing: a body
                // whose last line starts with "-" ends before that line, and
                // callers rely on these lengths.
            } else {
                U32 position = 0;
                if (source.position(&position) == 0 && position >= part->bodyStart)
                    bodyLength = position - part->bodyStart;
                part->bodyLength = bodyLength;
            }
            noteRead(source.read(line));
            if (done)
                return 0;
        }
    }
};

// Under MIME_FLAG_RFC: a known type whose subtype the table does not name
// keeps its type, with MIME_SUBTYPE_UNKNOWN (so that any multipart splits).
U32 setKnownType(MIME_CONTEXT *context, MIME_PART *part, const char *text) noexcept
{
    std::string_view whole(text);
    size_t slash = whole.find('/');
    U32 type = 0;
    if (slash == std::string_view::npos || identify(whole.substr(0, slash), MIME_CLASS_TYPE, &type) != 0 ||
        trim(whole.substr(slash + 1)).empty())
        return MIME_REJECTED;
    return MIME_setPartType(context, part, type, MIME_SUBTYPE_UNKNOWN);
}

}  // namespace

extern "C" {

RQ_API U32 MIME_grokField(MIME_CONTEXT *context, char **boundaryStack, U32 *depth, MIME_WRAPPER *wrapper, MIME_PART *part, char *name, char *value) noexcept
{
    MIME_ENTER(context, "MIME_grokField()");
    if (boundaryStack == nullptr || depth == nullptr || wrapper == nullptr || part == nullptr || name == nullptr ||
        value == nullptr)
        return nullParameter(context, "MIME_grokField()");
    MIME_FIELD *field = nullptr;
    U32 status = MIME_parseAsMimeField(context, &field, name, value);
    if (status != 0)
        return fail(context, "MIME_grokField()", status, "MIME_addFieldToPart()");
    MIME_addFieldToPart(context, part, field);

    switch (field->nameId) {
    case MIME_FIELD_MIME_VERSION:
        status = MIME_setWrapperVersion(context, wrapper, field->valueId);
        return status == 0 ? 0 : fail(context, "MIME_grokField()", status, "MIME_setWrapperVersion()");

    case MIME_FIELD_CONTENT_TYPE: {
        status = MIME_setPartTypeByString(context, part, field->value);
        if (status != 0 && rfcMode(context))
            status = setKnownType(context, part, field->value);
        if (status != 0)
            return fail(context, "MIME_grokField()", status, "MIME_addFieldToPart()");
        const char *text = nullptr;
        // Under MIME_FLAG_RFC a boundary means something on a multipart only.
        bool split = !rfcMode(context) || part->type == MIME_TYPE_MULTIPART;
        if (split && MIME_getFieldParameterValue(context, field, MIME_PARAM_BOUNDARY, &text) == 0) {
            wrapper->boundary[0] = '-';
            wrapper->boundary[1] = '-';
            size_t kept = strnlen(text, kBoundaryKept - 2);
            std::memcpy(wrapper->boundary + 2, text, kept);
            wrapper->boundary[2 + kept] = '\0';
            if (*depth < kStackDepth) {
                char *copy = RQ_STRDUP(wrapper->boundary);
                if (copy == nullptr)
                    return fail(context, "MIME_grokField()", MIME_ERR_NO_MEMORY, "Out of memory.");
                boundaryStack[(*depth)++] = copy;
            } else {
                // The part keeps its type and the wrapper the new boundary,
                // but the stack does not grow.
                status = fail(context, "MIME_grokField()", MIME_ERR_NESTED_TOO_DEEPLY,
                              "MIME multiparts are nested too deeply");
            }
        }
        if (MIME_getFieldParameterValue(context, field, MIME_PARAM_CHARSET, &text) == 0)
            MIME_setPartCharsetByString(context, part, text);
        return status;
    }

    case MIME_FIELD_CONTENT_TRANSFER_ENCODING:
        status = MIME_setPartEncoding(context, part, field->valueId);
        return status == 0 ? 0 : fail(context, "MIME_grokField()", status, "MIME_setPartEncoding()");

    case MIME_FIELD_CONTENT_ID:
        status = MIME_setPartCID(context, part, field->value);
        return status == 0 ? 0 : fail(context, "MIME_grokField()", status, "MIME_setPartCID()");

    default:
        return 0;
    }
}

RQ_API U32 MIME_parseMessageFromStream(MIME_CONTEXT *context, STREAM *in, MIME_WRAPPER **out) noexcept
{
    MIME_ENTER(context, "MIME_parseMessageFromStream()");
    if (in == nullptr || out == nullptr)
        return MIME_ERR_NULL_PARAMETER;  // not logged
    *out = nullptr;
    MIME_WRAPPER *wrapper = nullptr;
    U32 status = MIME_createWrapper(context, &wrapper);
    if (status != 0)
        return status;
    *out = wrapper;

    // About 10.5 KB of buffers: kept off the caller's stack.
    rq::Block<Parse> block(RQ_MALLOC(sizeof(Parse)));
    if (!block)
        return fail(context, "MIME_parseMessageFromStream()", MIME_ERR_NO_MEMORY, "Out of memory.");
    Parse &p = *new (block.get()) Parse(context, in, wrapper);

    status = STREAM_setFlags(in, STREAM_LINE_MODE, &p.savedFlags);
    if (status != 0)
        return status;
    status = p.source.start(in);
    if (status != 0)
        return status;
    p.noteRead(p.source.read(p.header));
    if (p.done)
        p.header[0] = '\0';
    status = MIME_createPart(context, &p.part);
    if (status != 0) {
        p.status = status;
        return p.finish();
    }
    p.part->stream = in;

    while (!p.done) {
        if (p.state == kHeaders) {
            status = p.readHeaders();
            if (status != 0) {
                // Fatal: the header is too long.  The part in hand is handed
                // to the wrapper so that the caller can free everything.
                p.status = status;
                return p.finish();
            }
        } else {
            status = p.readBody();
            if (status != 0) {
                p.status = status;
                return p.finish();
            }
        }
    }
    return p.finish();
}

}  // extern "C"
