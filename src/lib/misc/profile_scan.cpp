// The profile syntax: reading lines, recognising headers and key lines,
// reading the three value forms, and the list tokenizer.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/profile_scan"
#include "internal/rq_mem.h"
#include "profile_internal.h"
#include "rqcore/log.h"

#include <cerrno>

namespace rq::profile {

LineReader::~LineReader() = default;

bool LineReader::fill() noexcept
{
    if (eof_)
        return false;
    ssize_t n;
    do
        n = ::read(fd_, block_, sizeof block_);
    while (n < 0 && errno == EINTR);
    if (n <= 0) {
        eof_ = true;
        return false;
    }
    pos_ = 0;
    end_ = static_cast<size_t>(n);
    return true;
}

bool LineReader::next(char *line) noexcept
{
    size_t len = 0;
    while (len < limit_) {
        if (pos_ == end_ && !fill())
            break;
        size_t want = limit_ - len;
        size_t avail = end_ - pos_;
        size_t take = avail < want ? avail : want;
        const char *src = block_ + pos_;
        const void *nl = std::memchr(src, '\n', take);
        if (nl != nullptr)
            take = static_cast<size_t>(static_cast<const char *>(nl) - src) + 1;
        std::memcpy(line + len, src, take);
        len += take;
        pos_ += take;
        if (nl != nullptr)
            break;
    }
    line[len] = '\0';
    return len > 0;
}

int openProfile(const char *path) noexcept
{
    return SIS_CrtOpen(path, O_RDONLY | O_CLOEXEC, 0);
}

void copyBounded(char *dst, size_t cap, const char *src) noexcept
{
    if (dst == nullptr || cap == 0)
        return;
    size_t n = src != nullptr ? std::strlen(src) : 0;
    if (n > cap - 1)
        n = cap - 1;
    if (n > 0)
        std::memmove(dst, src, n);
    dst[n] = '\0';
}

namespace {

// Appends to a bounded, always terminated destination.
class Sink {
public:
    Sink(char *dst, size_t cap) noexcept : dst_(dst), cap_(cap) { dst_[0] = '\0'; }
    void put(char c) noexcept
    {
        if (len_ + 1 < cap_) {
            dst_[len_++] = c;
            dst_[len_] = '\0';
        }
    }
    void put(std::string_view s) noexcept
    {
        for (char c : s)
            put(c);
    }

private:
    char *dst_;
    size_t cap_;
    size_t len_ = 0;
};

// The length of v before its comment: a '#' outside double quotes and not
// escaped by a backslash (which stays in the value).
size_t beforeComment(std::string_view v) noexcept
{
    bool quoted = false;
    for (size_t i = 0; i < v.size(); ++i) {
        char c = v[i];
        if (c == '\\')
            ++i;
        else if (c == '"')
            quoted = !quoted;
        else if (c == '#' && !quoted)
            return i;
    }
    return v.size();
}

std::string_view trimTrailing(std::string_view v) noexcept
{
    while (!v.empty() && (v.back() == ' ' || v.back() == '\t' || v.back() == '\n'))
        v.remove_suffix(1);
    return v;
}

std::string_view skipLeading(std::string_view v) noexcept
{
    while (!v.empty() && isBlank(v.front()))
        v.remove_prefix(1);
    return v;
}

// Text up to the first CR or LF, leading blanks skipped.
std::string_view valueLine(const char *text) noexcept
{
    return skipLeading(std::string_view(text, std::strcspn(text, "\r\n")));
}

std::string_view cleanPiece(std::string_view v) noexcept
{
    return trimTrailing(v.substr(0, beforeComment(v)));
}

char unescape(char c) noexcept
{
    return c == 'n' ? '\n' : c == 't' ? '\t' : c;
}

// A quoted run starting after its opening quote; returns the length consumed
// including the closing quote, or npos when there is none.
size_t readQuoted(std::string_view v, Sink &out) noexcept
{
    for (size_t i = 0; i < v.size(); ++i) {
        char c = v[i];
        if (c == '"')
            return i + 1;
        if (c == '\\') {
            if (++i == v.size())
                break;
            c = unescape(v[i]);
        }
        out.put(c);
    }
    return std::string_view::npos;
}

}  // namespace

U32 parseValue(const char *text, LineReader *more, char *dst, size_t cap) noexcept
{
    std::string_view v = valueLine(text);
    Sink out(dst, cap);
    if (!v.empty() && v.front() == '"') {
        // Whatever follows the closing quote (a comment, say) is ignored.
        return readQuoted(v.substr(1), out) == std::string_view::npos ? U32{PROFIL_ERR_QUOTING} : 0u;
    }
    if (!v.empty() && v.front() == '{') {
        std::string_view piece = cleanPiece(v);
        out.put(piece);
        char line[kLineBuffer];
        while (piece.empty() || piece.back() != '}') {
            if (more == nullptr || !more->next(line))
                return PROFIL_ERR_SYNTAX;
            piece = cleanPiece(valueLine(line));
            out.put(piece);  // no separator: "{a, b," + "c}" is "{a, b,c}"
        }
        return 0;
    }
    v = cleanPiece(v);
    if (v.find('"') != std::string_view::npos)
        return PROFIL_ERR_QUOTING;
    out.put(v);
    return 0;
}

bool headerMatches(const char *line, std::string_view section) noexcept
{
    if (line[0] != '[')
        return false;
    const char *p = SkipBlanks(line + 1);
    // The wanted name holds no NUL, so equality means the line holds it in full.
    if (std::strncmp(p, section.data(), section.size()) != 0)
        return false;
    p = SkipBlanks(p + section.size());
    return *p == ']';
}

bool skipToSection(LineReader &reader, char *line, const char *section) noexcept
{
    std::string_view wanted(section);
    while (reader.next(line))
        if (headerMatches(line, wanted))
            return true;
    return false;
}

const char *keyMatches(const char *line, std::string_view key) noexcept
{
    const char *p = SkipBlanks(line);
    if (std::strncmp(p, key.data(), key.size()) != 0)
        return nullptr;
    p = SkipBlanks(p + key.size());
    return *p == '=' ? p + 1 : nullptr;
}

bool significant(const char *line) noexcept
{
    // '=' is among the skipped leading characters, so "=x" has nothing to read.
    const char *p = line + std::strspn(line, " =\t\n\r\b");
    if (p[0] == '\0' || p[1] == '\0')
        return false;
    if (p[0] == '/' || p[0] == '#')
        return false;
    return std::strchr(p, '=') != nullptr;
}

void logDuplicate(U32 code) noexcept
{
    WriteErrLog(2, code,
                code == PROFIL_ERR_DUP_KEY ? "Key defined multiple times. Please correct ini file."
                                           : "Section defined multiple times. Please correct ini file.");
}

}  // namespace rq::profile

using namespace rq::profile;

extern "C" RQ_API U32 DX_EnumProfileStr(char *dst, char **cursor, U32 mode, U32 *done) noexcept
{
    if (dst == nullptr || cursor == nullptr || *cursor == nullptr || done == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    const char *p = *cursor;
    if (mode == 1) {
        p = SkipBlanks(p);
        if (*p != '{')
            return PROFIL_ERR_SYNTAX;
        ++p;
    } else if (mode != 2) {
        return PROFIL_ERR_ENUM_MODE;
    }
    *done = 0;
    p = SkipBlanks(p);
    // The list ends only when the text is exhausted: "{}" is one empty
    // element and "{a,}" ends with one; callers rely on it.
    if (*p == '\0') {
        *done = 1;
        *cursor = const_cast<char *>(p);
        return 0;
    }
    Sink out(dst, PROFIL_ELEMENT_SIZE);
    if (*p == '"') {
        std::string_view rest(p + 1);
        size_t used = readQuoted(rest, out);
        if (used == std::string_view::npos)
            return PROFIL_ERR_SYNTAX;
        p = SkipBlanks(p + 1 + used);
        if (*p != ',' && *p != '}')
            return PROFIL_ERR_SYNTAX;
    } else {
        const char *end = std::strpbrk(p, ",}");
        if (end == nullptr)
            return PROFIL_ERR_SYNTAX;
        out.put(trimTrailing(std::string_view(p, static_cast<size_t>(end - p))));
        p = end;
    }
    *cursor = const_cast<char *>(p + 1);
    return 0;
}
