// The definition-file reader behind DX_LdStrCreate: "[section]" lines,
// "key = text" lines with escapes and continuations, remarks; then a
// verification pass that reads every key back from the new table.
#define RQ_SOURCE_TAG "src/lib/core/lib/gen/ldstr_define"
#include "internal/rq_mem.h"

#include "ldstr_internal.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

using namespace rq::ldstr;

struct Report {
    char *text;  // LDSTR_REPORT_SIZE bytes, or nullptr
    U32 set(U32 code, const char *format, U32 a = 0, U32 b = 0) const noexcept
    {
        if (text != nullptr)
            std::snprintf(text, LDSTR_REPORT_SIZE, format, a, b);
        return code;
    }
};

// One (key, text) pair handed on by the reader; a non-zero status stops it.
class Sink {
public:
    virtual U32 take(U32 key, const char *text, size_t length) noexcept = 0;

protected:
    ~Sink() = default;
};

bool blank(char c) noexcept { return c == ' ' || c == '\t'; }

int hexValue(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// The bytes of one line, without its LF and a CR before it.
std::string_view lineAt(std::string_view all, size_t *pos) noexcept
{
    size_t start = *pos;
    size_t end = all.find('\n', start);
    size_t next = end == std::string_view::npos ? all.size() : end + 1;
    if (end == std::string_view::npos)
        end = all.size();
    *pos = next;
    std::string_view line = all.substr(start, end - start);
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

std::string_view skipBlanks(std::string_view s) noexcept
{
    while (!s.empty() && blank(s.front()))
        s.remove_prefix(1);
    return s;
}

// Parses a decimal or 0x key; false on anything else, 0 or overflow.
bool parseKey(std::string_view *s, U32 *key) noexcept
{
    uint64_t v = 0;
    size_t i = 0;
    int base = 10;
    if (s->size() >= 2 && (*s)[0] == '0' && ((*s)[1] == 'x' || (*s)[1] == 'X')) {
        base = 16;
        i = 2;
    }
    size_t digits = 0;
    for (; i < s->size(); ++i, ++digits) {
        int d = base == 16 ? hexValue((*s)[i]) : ((*s)[i] >= '0' && (*s)[i] <= '9' ? (*s)[i] - '0' : -1);
        if (d < 0)
            break;
        v = v * static_cast<unsigned>(base) + static_cast<unsigned>(d);
        if (v > 0xFFFFFFFFu)
            return false;
    }
    if (digits == 0 || v == 0)
        return false;
    s->remove_prefix(i);
    *key = static_cast<U32>(v);
    return true;
}

// Decodes one line's text into out; *more is set when it ends with the
// continuation backslash.  Returns nullptr or what is wrong.
const char *decodeText(std::string_view s, char *out, size_t *n, bool *more) noexcept
{
    *more = false;
    for (size_t i = 0; i < s.size(); ++i) {
        char c = s[i];
        if (c == '\0')
            return "NUL byte in text";
        if (c != '\\') {
            out[(*n)++] = c;
            continue;
        }
        if (++i == s.size()) {
            *more = true;
            return nullptr;
        }
        switch (s[i]) {
        case 'n': out[(*n)++] = '\n'; break;
        case 'r': out[(*n)++] = '\r'; break;
        case 't': out[(*n)++] = '\t'; break;
        case 's': out[(*n)++] = ' '; break;
        case '\\': out[(*n)++] = '\\'; break;
        case 'x': {
            int hi = i + 1 < s.size() ? hexValue(s[i + 1]) : -1;
            int lo = i + 2 < s.size() ? hexValue(s[i + 2]) : -1;
            if (hi < 0 || lo < 0)
                return "bad \\x escape";
            if (hi == 0 && lo == 0)
                return "NUL byte in text";
            out[(*n)++] = static_cast<char>(hi * 16 + lo);
            i += 2;
            break;
        }
        default:
            return "unknown escape";
        }
    }
    return nullptr;
}

// Reads the definition in `all`, handing each pair to sink.  scratch holds at
// least all.size() + 1 bytes (decoding never lengthens a text).
U32 readDefinition(std::string_view all, char *scratch, Sink &sink, const Report &report) noexcept
{
    bool inSection = false;
    size_t pos = 0;
    U32 lineNo = 0;
    while (pos < all.size()) {
        std::string_view line = skipBlanks(lineAt(all, &pos));
        ++lineNo;
        if (line.empty() || line.front() == '#' || line.front() == ';')
            continue;
        if (line.front() == '[') {
            size_t close = line.find(']');
            if (close == std::string_view::npos)
                return report.set(LDSTR_ERR_DEFINITION, "ERROR: line %u: section without ] \n", lineNo);
            if (!skipBlanks(line.substr(close + 1)).empty())
                return report.set(LDSTR_ERR_DEFINITION, "ERROR: line %u: text after ] \n", lineNo);
            inSection = true;
            continue;
        }
        if (!inSection)
            return report.set(LDSTR_ERR_DEFINITION, "ERROR: Missing section declarator \n");
        U32 key = 0;
        if (!parseKey(&line, &key))
            return report.set(LDSTR_ERR_DEFINITION, "ERROR: line %u: bad key \n", lineNo);
        line = skipBlanks(line);
        if (line.empty() || line.front() != '=')
            return report.set(LDSTR_ERR_DEFINITION, "ERROR: line %u: missing = \n", lineNo);
        line = skipBlanks(line.substr(1));
        const U32 keyLine = lineNo;
        size_t n = 0;
        bool more = false;
        for (;;) {
            if (const char *what = decodeText(line, scratch, &n, &more); what != nullptr) {
                if (report.text != nullptr)
                    std::snprintf(report.text, LDSTR_REPORT_SIZE, "ERROR: line %u: %s \n", lineNo, what);
                return LDSTR_ERR_DEFINITION;
            }
            if (!more || pos >= all.size())
                break;
            line = skipBlanks(lineAt(all, &pos));
            ++lineNo;
        }
        scratch[n] = '\0';
        U32 rc = sink.take(key, scratch, n);
        if (rc == LDSTR_ERR_ADD_DUP)
            return report.set(LDSTR_ERR_DEFINITION, "ERROR: line %u: key %u defined twice \n", keyLine, key);
        if (rc != 0)
            return rc;
    }
    return 0;
}

class Writer final : public Sink {
public:
    Writer(DX_LDSTR *h, const Report &r) noexcept : h_(h), report_(r) {}
    U32 take(U32 key, const char *text, size_t /*length*/) noexcept override
    {
        U32 rc = DX_LdStrAddTo(h_, key, 0, text);
        if (rc != 0 && rc != LDSTR_ERR_ADD_DUP)
            report_.set(rc, "ERROR: Cannot add key %u to the table (0x%X) \n", key, rc);
        return rc;
    }
    U32 keys = 0;

private:
    DX_LDSTR *h_;
    const Report &report_;
};

class Verifier final : public Sink {
public:
    Verifier(DX_LDSTR *h, const Report &r) noexcept : h_(h), report_(r) {}
    U32 take(U32 key, const char *text, size_t length) noexcept override
    {
        ++keys;
        U32 stored = 0;
        U32 rc = DX_LdStrTextLength(h_, key, &stored);
        if (rc == 0 && stored != length)
            rc = LDSTR_ERR_DEFINITION;
        if (rc == 0) {
            rq::Block<char> buffer(RQ_MALLOC(length + 1));
            if (!buffer)
                return report_.set(LDSTR_ERR_HT_MEMORY, "ERROR: Out of memory \n");
            rc = DX_LdStrLoad(h_, key, buffer.get(), nullptr, 0);
            if (rc == 0 && std::memcmp(buffer.get(), text, length) != 0)
                rc = LDSTR_ERR_DEFINITION;
        }
        if (rc != 0)
            return report_.set(LDSTR_ERR_DEFINITION, "ERROR: Verification failed for key %u \n", key);
        return 0;
    }
    U32 keys = 0;

private:
    DX_LDSTR *h_;
    const Report &report_;
};

// The whole definition file in one block with a NUL after it.
U32 readWhole(const char *path, rq::Block<char> *out, size_t *size, const Report &report) noexcept
{
    rq::File f(path != nullptr ? std::fopen(path, "rb") : nullptr);
    struct stat st;
    if (!f || fstat(fileno(f.get()), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < 0 ||
        static_cast<uint64_t>(st.st_size) >= SIZE_MAX / 2)
        return report.set(LDSTR_ERR_DEFINITION, "ERROR: Cannot read definition file \n");
    *size = static_cast<size_t>(st.st_size);
    out->reset(RQ_MALLOC(*size + 1));
    if (!*out)
        return report.set(LDSTR_ERR_HT_MEMORY, "ERROR: Out of memory \n");
    if (std::fread(out->get(), 1, *size, f.get()) != *size)
        return report.set(LDSTR_ERR_DEFINITION, "ERROR: Cannot read definition file \n");
    (*out)[*size] = '\0';
    return 0;
}

U32 compile(const char *definitionPath, const char *tablePath, const Report &report) noexcept
{
    rq::Block<char> text;
    size_t size = 0;
    if (U32 rc = readWhole(definitionPath, &text, &size, report); rc != 0)
        return rc;
    rq::Block<char> scratch(RQ_MALLOC(size + 1));
    if (!scratch)
        return report.set(LDSTR_ERR_HT_MEMORY, "ERROR: Out of memory \n");
    const std::string_view all(text.get(), size);

    DX_LDSTR h;
    if (U32 rc = DX_LdStrOpen(&h, tablePath, 0, LDSTR_MODE_CREATE); rc != 0)
        return report.set(rc, "ERROR: Cannot create table file (0x%X) \n", rc);
    Writer writer(&h, report);
    U32 rc = readDefinition(all, scratch.get(), writer, report);
    if (rc == 0 && (rc = DX_LdStrClose(&h)) != 0)
        report.set(rc, "ERROR: Cannot write table file (0x%X) \n", rc);
    DX_LdStrRelease(&h);
    if (rc != 0)
        return rc;

    if ((rc = DX_LdStrOpen(&h, tablePath, 0, LDSTR_MODE_READ)) == LDSTR_ERR_HT_MEMORY)
        return report.set(rc, "ERROR: Out of memory \n");
    if (rc != 0)
        return report.set(LDSTR_ERR_DEFINITION, "ERROR: Verification cannot open the table (0x%X) \n", rc);
    Verifier verifier(&h, report);
    rc = readDefinition(all, scratch.get(), verifier, report);
    if (rc == 0 && verifier.keys != h.count)
        rc = report.set(LDSTR_ERR_DEFINITION, "ERROR: Verification found %u keys for %u \n", h.count,
                        verifier.keys);
    DX_LdStrRelease(&h);
    return rc;
}

}  // namespace

U32 DX_LdStrCreate(const char *definitionPath, const char *tablePath, char *report) noexcept
{
    const Report r{report};
    if (report != nullptr)
        report[0] = '\0';
    U32 rc = compile(definitionPath, tablePath, r);
    // A table that failed to build or verify is not left for a reader to trust.
    if (rc != 0 && rc != LDSTR_ERR_OPEN_CREATE && tablePath != nullptr)
        std::remove(tablePath);
    return rc;
}
