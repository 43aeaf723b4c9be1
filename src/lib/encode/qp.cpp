// Quoted-printable: the two encoders (ENCODE_toQP for the MIME generator,
// the older ENCODE_convertToQuotedPrintable for header text) and the
// decoders with their hexadecimal-digit helpers.

#define RQ_SOURCE_TAG "src/lib/core/lib/encode/qp"
#include "internal/rq_mem.h"
#include "rqcore/encode.h"

#include <array>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr char kHex[] = "0123456789ABCDEF";

// Byte-class tables: 'x' = written as it is, '=' = written as "=XX".
enum class Table { Old, Default, LiteralCrLf };

constexpr std::array<char, 257> makeTable(Table which)
{
    std::array<char, 257> t{};
    for (int c = 0; c < 256; ++c) {
        bool literal = false;
        switch (which) {
        case Table::Old:
            literal = (c >= 0x20 && c <= 0x3C) || (c >= 0x3E && c <= 0x7D);
            break;
        case Table::Default:
            literal = c == 0x09 || (c >= 0x20 && c <= 0x3C) || (c >= 0x3E && c <= 0x7E);
            break;
        case Table::LiteralCrLf:
            literal = c == 0x09 || c == 0x0A || c == 0x0D || (c >= 0x20 && c <= 0x3C) || (c >= 0x3E && c <= 0x7E);
            break;
        }
        t[c] = literal ? 'x' : '=';
    }
    return t;
}
constexpr auto kOldTable = makeTable(Table::Old);
constexpr auto kDefaultTable = makeTable(Table::Default);
constexpr auto kCrLfTable = makeTable(Table::LiteralCrLf);

constexpr std::array<int8_t, 256> makeHexValues()
{
    std::array<int8_t, 256> t{};
    for (auto &v : t)
        v = -1;
    for (int i = 0; i < 10; ++i)
        t['0' + i] = static_cast<int8_t>(i);
    for (int i = 0; i < 6; ++i) {
        t['A' + i] = static_cast<int8_t>(10 + i);
        t['a' + i] = static_cast<int8_t>(10 + i);
    }
    return t;
}
constexpr auto kHexValue = makeHexValues();

inline bool isBlank(unsigned char c) noexcept
{
    return c == ' ' || c == '\t';
}

// The end of the run of literal bytes that starts at i.  The two tables of
// ENCODE_toQP are classified 16 bytes at a time.
U32 literalRun(const unsigned char *in, U32 i, U32 length, const char *table) noexcept
{
#if defined(__SSE2__)
    bool crlf = table == kCrLfTable.data();
    if (crlf || table == kDefaultTable.data()) {
        const __m128i low = _mm_set1_epi8(0x1F);
        const __m128i high = _mm_set1_epi8(0x7F);
        const __m128i eq = _mm_set1_epi8('=');
        const __m128i tab = _mm_set1_epi8('\t');
        const __m128i cr = _mm_set1_epi8(crlf ? '\r' : '\t');
        const __m128i lf = _mm_set1_epi8(crlf ? '\n' : '\t');
        while (length - i >= 16) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + i));
            // Printable (signed: bytes from 0x80 are negative), not '=', or TAB/CR/LF.
            __m128i printable = _mm_and_si128(_mm_cmpgt_epi8(v, low), _mm_cmplt_epi8(v, high));
            __m128i literal = _mm_andnot_si128(_mm_cmpeq_epi8(v, eq), printable);
            literal = _mm_or_si128(literal, _mm_or_si128(_mm_cmpeq_epi8(v, tab),
                                                         _mm_or_si128(_mm_cmpeq_epi8(v, cr), _mm_cmpeq_epi8(v, lf))));
            unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(literal)) ^ 0xFFFFu;
            if (mask != 0)
                return i + static_cast<U32>(__builtin_ctz(mask));
            i += 16;
        }
    }
#endif
    while (i < length && table[in[i]] == 'x')
        ++i;
    return i;
}

// The size estimate of ENCODE_toQP: 76-column lines with a 2-byte break.
// An escape that passes column 75 moves to a new line and is counted again
// there; a literal blank or TAB that reaches column 76 is counted again on
// the new line; a final literal blank or TAB adds 1.  Runs of literal bytes
// are counted a line at a time.
U32 requiredSize(const unsigned char *in, U32 length, const char *table) noexcept
{
    uint64_t size = 3;
    U32 column = 0;
    U32 i = 0;
    while (i < length) {
        unsigned char c = in[i];
        if (table[c] != 'x') {
            size += 3;
            column += 3;
            if (column > 75) {
                size -= isBlank(c) ? 2 : 3;
                size += 2;
                column = 0;
                continue;  // the same byte again, on the new line
            }
            ++i;
            continue;
        }
        U32 j = literalRun(in, i + 1, length, table);
        while (i < j) {
            U32 take = j - i < 76 - column ? j - i : 76 - column;
            size += take;
            column += take;
            i += take;
            if (column == 76) {
                size += 2;
                column = 0;
                if (isBlank(in[i - 1]))
                    --i;
            }
        }
    }
    if (length > 0 && table[in[length - 1]] == 'x' && isBlank(in[length - 1]))
        size += 1;
    return size > UINT32_MAX ? UINT32_MAX : static_cast<U32>(size);
}

// The generic 7-bit engine with prefix "=", two hexadecimal digits: copies
// literal bytes, escapes the rest, writes and counts a NUL.  Returns the
// bytes written, or 0 when the output space ran out first.
size_t escapeInto(const unsigned char *in, U32 length, const char *table, char *out, size_t room) noexcept
{
    char *o = out;
    char *limit = out + room;
    U32 i = 0;
    while (i < length) {
        U32 j = literalRun(in, i, length, table);
        if (static_cast<size_t>(limit - o) < j - i)
            return 0;
        std::memcpy(o, in + i, j - i);
        o += j - i;
        if (j == length)
            break;
        if (limit - o < 3)
            return 0;
        unsigned char c = in[j];
        o[0] = '=';
        o[1] = kHex[c >> 4];
        o[2] = kHex[c & 15];
        o += 3;
        i = j + 1;
    }
    if (o == limit)
        return 0;
    *o++ = '\0';
    return static_cast<size_t>(o - out);
}

// Copies the unwrapped text `u` (n bytes, no NUL) into lines of at most 76
// characters including the soft-break '='.  With Count it only counts.
// Returns the bytes written, NUL included.
template <bool Count>
size_t wrapInto(const char *u, size_t n, char *out) noexcept
{
    size_t w = 0;
    auto put = [&](char c) {
        if constexpr (!Count)
            out[w] = c;
        ++w;
    };
    auto softBreak = [&] {
        put('=');
        put('\r');
        put('\n');
    };
    auto crlfAt = [&](size_t j) { return j + 1 < n && u[j] == '\r' && u[j + 1] == '\n'; };
    unsigned column = 0;
    size_t i = 0;
    while (i < n) {
        // Plain bytes well inside the line are copied as they come.
        if (column < 74) {
            // The last byte is left to the exact rules, so u[j + 1] exists.
            size_t limit = n - 1 - i < 74 - column ? n - 1 : i + (74 - column);
            size_t j = i;
#if defined(__SSE2__)
            // 16 at a time: stop at '=', CR, or a blank before a CR.
            while (limit - j >= 16 && n - j >= 17) {
                __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(u + j));
                __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i *>(u + j + 1));
                __m128i blank = _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(' ')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\t')));
                __m128i stop = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('=')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\r'))),
                                            _mm_and_si128(blank, _mm_cmpeq_epi8(next, _mm_set1_epi8('\r'))));
                unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(stop));
                if (mask != 0) {
                    j += static_cast<unsigned>(__builtin_ctz(mask));
                    break;
                }
                j += 16;
            }
#endif
            while (j < limit) {
                unsigned char b = static_cast<unsigned char>(u[j]);
                unsigned stop = static_cast<unsigned>(b == '=') | static_cast<unsigned>(b == '\r') |
                                (static_cast<unsigned>(isBlank(b)) & static_cast<unsigned>(u[j + 1] == '\r'));
                if (stop != 0)
                    break;
                ++j;
            }
            if constexpr (!Count)
                std::memcpy(out + w, u + i, j - i);
            w += j - i;
            column += static_cast<unsigned>(j - i);
            i = j;
            if (i == n)
                break;
        }
        unsigned char c = static_cast<unsigned char>(u[i]);
        if (crlfAt(i)) {
            put('\r');
            put('\n');
            i += 2;
            column = 0;
        } else if (isBlank(c) && crlfAt(i + 1)) {
            // A line never ends in white space.
            if (column > 73)
                softBreak();
            put('=');
            put(kHex[c >> 4]);
            put(kHex[c & 15]);
            put('\r');
            put('\n');
            i += 3;
            column = 0;
        } else if (c == '=' && i + 2 < n) {
            // An escape is never split across lines.
            if (column == 73 && crlfAt(i + 3)) {
                for (int k = 0; k < 5; ++k)
                    put(u[i + k]);
                i += 5;
                column = 0;
                continue;
            }
            if (column >= 73) {
                softBreak();
                column = 0;
            }
            put(u[i]);
            put(u[i + 1]);
            put(u[i + 2]);
            i += 3;
            column += 3;
        } else if (column == 74 && isBlank(c)) {
            put(static_cast<char>(c));
            softBreak();
            ++i;
            column = 0;
        } else if (column >= 75) {
            if (crlfAt(i + 1)) {
                put(static_cast<char>(c));
                put('\r');
                put('\n');
                i += 3;
                column = 0;
            } else {
                softBreak();
                put(static_cast<char>(c));
                ++i;
                column = 1;
            }
        } else {
            put(static_cast<char>(c));
            ++i;
            ++column;
        }
    }
    // Trailing white space at the very end is protected by a final soft break.
    if (n > 0 && isBlank(static_cast<unsigned char>(u[n - 1])))
        put('=');
    put('\0');
    return w;
}

// ---- Decoding -----------------------------------------------------------

// Decodes in[0..length) into out (room for length + 1 bytes); returns the
// decoded length.  See the rules in encode.h.
size_t decodeInto(const unsigned char *in, size_t length, unsigned char *out, U32 lineLength) noexcept
{
    const unsigned char *p = in;
    const unsigned char *end = in + length;
    unsigned char *o = out;
    unsigned char *floor = out;  // trailing white space below this is content
    for (;;) {
#if defined(__SSE2__)
        // Copy 16 bytes at a time up to the next '=', CR or LF, and settle the
        // common cases (a valid escape, a soft break, a line end after a
        // non-blank) without leaving the loop.  The store stays inside the
        // buffer: the output never runs ahead of the input.
        const __m128i eq = _mm_set1_epi8('=');
        const __m128i cr = _mm_set1_epi8('\r');
        const __m128i lf = _mm_set1_epi8('\n');
        auto specials = [&](const unsigned char *q) -> uint64_t {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(q));
            __m128i hit = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, eq), _mm_cmpeq_epi8(v, cr)),
                                       _mm_cmpeq_epi8(v, lf));
            return static_cast<uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(hit)));
        };
        auto copy64 = [](unsigned char *to, const unsigned char *from) {
            for (int k = 0; k < 64; k += 16)
                _mm_storeu_si128(reinterpret_cast<__m128i *>(to + k),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + k)));
        };
        // Windows of 64 bytes: one mask for the window, then its specials in
        // turn, each followed by a fresh copy of what comes after it.  The
        // copies read at most 130 bytes past the window start.
        while (end - p >= 160) {
            const unsigned char *window = p;
            uint64_t mask = specials(p) | specials(p + 16) << 16 | specials(p + 32) << 32 | specials(p + 48) << 48;
            copy64(o, p);
            bool settled = true;
            while (mask != 0) {
                const unsigned char *at = window + __builtin_ctzll(mask);
                o += at - p;
                p = at;
                int hi = kHexValue[p[1]];
                int lo = kHexValue[p[2]];
                if (*p == '=' && (hi | lo) >= 0) {
                    *o++ = static_cast<unsigned char>(hi << 4 | lo);
                    p += 3;
                } else if (*p == '=' && p[1] == '\r' && p[2] == '\n') {
                    p += 3;
                } else if (*p != '=' && !(o > floor && isBlank(o[-1]))) {
                    // A line end after a non-blank: CR LF in one step.
                    size_t n = (p[0] == '\r' && p[1] == '\n') ? 2 : 1;
                    o[0] = p[0];
                    o[1] = p[1];
                    o += n;
                    p += n;
                } else {
                    settled = false;
                    break;
                }
                floor = o;
                size_t done = static_cast<size_t>(p - window);
                mask = done >= 64 ? 0 : mask & (~uint64_t{0} << done);
                copy64(o, p);
            }
            if (!settled)
                break;
            if (p < window + 64) {
                o += window + 64 - p;
                p = window + 64;
            }
        }
        while (end - p >= 16) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
            __m128i hit = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, eq), _mm_cmpeq_epi8(v, cr)),
                                       _mm_cmpeq_epi8(v, lf));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(o), v);
            unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(hit));
            if (mask == 0) {
                p += 16;
                o += 16;
                continue;
            }
            unsigned k = static_cast<unsigned>(__builtin_ctz(mask));
            p += k;
            o += k;
            if (end - p < 3)
                break;  // the lookahead below needs two more bytes
            if (*p == '=') {
                int hi = kHexValue[p[1]];
                int lo = kHexValue[p[2]];
                if ((hi | lo) >= 0) {
                    *o++ = static_cast<unsigned char>(hi << 4 | lo);
                    p += 3;
                    floor = o;
                    continue;
                }
                if (p[1] == '\r' && p[2] == '\n') {
                    p += 3;
                    floor = o;
                    continue;
                }
                break;
            }
            if (o > floor && isBlank(o[-1]))
                break;
            // CR LF in one step (the LF is inside the 16 bytes loaded).
            if (p[0] == '\r' && p[1] == '\n') {
                o[0] = '\r';
                o[1] = '\n';
                o += 2;
                p += 2;
            } else {
                *o++ = *p++;
            }
            floor = o;
        }
#endif
        while (p < end && *p != '=' && *p != '\r' && *p != '\n')
            *o++ = *p++;
        if (p == end)
            break;
        unsigned char c = *p;
        if (c == '\r' || c == '\n') {
            // White space before a line end is transport padding.
            unsigned char *t = o;
            while (t > floor && isBlank(t[-1]))
                --t;
            if (lineLength == 0 || static_cast<size_t>(o - t) <= lineLength)
                o = t;
            *o++ = c;
            ++p;
            floor = o;
            continue;
        }
        // c == '='
        if (end - p >= 3 && kHexValue[p[1]] >= 0 && kHexValue[p[2]] >= 0) {
            *o++ = static_cast<unsigned char>(kHexValue[p[1]] << 4 | kHexValue[p[2]]);
            p += 3;
            floor = o;
            continue;
        }
        // A soft break: '=', optional white space, then a line end or the end
        // of the text.
        const unsigned char *q = p + 1;
        while (q < end && isBlank(*q))
            ++q;
        if (q == end) {
            p = q;
            floor = o;  // the soft break protects the white space before it
            break;
        }
        if (*q == '\n') {
            p = q + 1;
            floor = o;
            continue;
        }
        if (*q == '\r') {
            p = q + 1 < end && q[1] == '\n' ? q + 2 : q + 1;
            floor = o;
            continue;
        }
        // Not a valid escape: the '=' is kept and what follows is read as text.
        *o++ = '=';
        ++p;
    }
    // The end of the text ends the last line.
    unsigned char *t = o;
    while (t > floor && isBlank(t[-1]))
        --t;
    if (lineLength == 0 || static_cast<size_t>(o - t) <= lineLength)
        o = t;
    return static_cast<size_t>(o - out);
}

U32 decodeToNew(const unsigned char *in, size_t length, char **output, U32 *output_length, U32 lineLength) noexcept
{
    auto *buffer = length < SIZE_MAX ? static_cast<unsigned char *>(RQ_MALLOC(length + 1)) : nullptr;
    if (buffer == nullptr) {
        ENCODE_logError("ENCODE_fromQP()", ENCODE_ERR_NOMEM, "Not enough core");
        return ENCODE_ERR_NOMEM;
    }
    size_t n = decodeInto(in, length, buffer, lineLength);
    buffer[n] = 0;
    *output = reinterpret_cast<char *>(buffer);
    if (output_length != nullptr)
        *output_length = static_cast<U32>(n);
    return 0;
}

}  // namespace

extern "C" {

RQ_API U32 enc_qpGetReqBufferSize(const void *input, U32 length, const char *table) noexcept
{
    if (input == nullptr && length != 0)
        return 3;
    return requiredSize(static_cast<const unsigned char *>(input), length,
                        table != nullptr ? table : kDefaultTable.data());
}

RQ_API U32 ENCODE_toQP(const void *input, U32 length, char **output, U32 *output_length, U32 flags) noexcept
{
    if (input == nullptr || output == nullptr || output_length == nullptr)
        return ENCODE_ERR_BADARG;
    const auto *in = static_cast<const unsigned char *>(input);
    // Sized with the default table even when CR and LF will be literal: the
    // literal table never needs more.
    U32 size = requiredSize(in, length, kDefaultTable.data());
    const char *table = (flags & ENCODE_QP_LITERAL_CRLF) != 0 ? kCrLfTable.data() : kDefaultTable.data();
    rq::Block<char> result(RQ_MALLOC(size));
    if (!result) {
        ENCODE_logError("ENCODE_toQP()", ENCODE_ERR_NOMEM, "Not enough core");
        return ENCODE_ERR_NOMEM;
    }
    if ((flags & ENCODE_QP_WRAP) == 0) {
        size_t n = escapeInto(in, length, table, result.get(), size);
        if (n == 0)
            return ENCODE_ERR_NOSPACE;
        *output = result.release();
        *output_length = static_cast<U32>(n);
        return 0;
    }
    rq::Block<char> flat(RQ_MALLOC(size));
    if (!flat) {
        *output = nullptr;
        ENCODE_logError("ENCODE_toQP()", ENCODE_ERR_NOMEM, "Not enough core");
        return ENCODE_ERR_NOMEM;
    }
    size_t n = escapeInto(in, length, table, flat.get(), size);
    if (n == 0)
        return ENCODE_ERR_NOSPACE;
    // The estimate counts 76 characters and a 2-byte break per line; wrapped
    // lines hold 75 and a 3-byte soft break, so long text needs more room.
    size_t need = wrapInto<true>(flat.get(), n - 1, nullptr);
    if (need > size) {
        void *bigger = RQ_REALLOC(result.get(), need);
        if (bigger == nullptr) {
            *output = nullptr;
            ENCODE_logError("ENCODE_toQP()", ENCODE_ERR_NOMEM, "Not enough core");
            return ENCODE_ERR_NOMEM;
        }
        result.release();
        result.reset(bigger);
    }
    size_t w = wrapInto<false>(flat.get(), n - 1, result.get());
    *output = result.release();
    *output_length = static_cast<U32>(w);
    return 0;
}

RQ_API U32 ENCODE_convertToQuotedPrintable(const char *text, char **output, U32 *column) noexcept
{
    if (text == nullptr || output == nullptr || column == nullptr)
        return ENCODE_ERR_BADARG;
    const auto *in = reinterpret_cast<const unsigned char *>(text);
    size_t size = 1;
    U32 col = *column;
    for (const unsigned char *p = in; *p != 0; ++p) {
        unsigned width = kOldTable[*p] == 'x' ? 1 : 3;
        size += width;
        col += width;
        if (col > 71) {
            size += 4;
            col = 1;
        }
    }
    char *buffer = static_cast<char *>(RQ_MALLOC(size));
    if (buffer == nullptr) {
        ENCODE_logError("ENCODE_convertToQuotedPrintable()", ENCODE_ERR_NOMEM, "Not enough core");
        return ENCODE_ERR_NOMEM;
    }
    char *o = buffer;
    col = *column;
    for (const unsigned char *p = in; *p != 0; ++p) {
        unsigned char c = *p;
        if (kOldTable[c] == 'x') {
            *o++ = static_cast<char>(c);
            col += 1;
        } else {
            o[0] = '=';
            o[1] = kHex[c >> 4];
            o[2] = kHex[c & 15];
            o += 3;
            col += 3;
        }
        if (col > 71) {
            // The continuation starts with a blank so that it is also a
            // folded header line; header writers rely on it.
            std::memcpy(o, "=\r\n ", 4);
            o += 4;
            col = 1;
        }
    }
    *o = '\0';
    *output = buffer;
    *column = col;
    return 0;
}

RQ_API U32 ENCODE_fromQP(const void *input, U32 length, char **output, U32 *output_length, U32 line_length) noexcept
{
    if (input == nullptr || output == nullptr || output_length == nullptr)
        return ENCODE_ERR_BADARG;
    return decodeToNew(static_cast<const unsigned char *>(input), length, output, output_length, line_length);
}

RQ_API U32 ENCODE_convertFromQuotedPrintable(const char *text, char **output, U32 *output_length) noexcept
{
    if (text == nullptr || output == nullptr)
        return ENCODE_ERR_BADARG;
    return decodeToNew(reinterpret_cast<const unsigned char *>(text), std::strlen(text), output, output_length, 0);
}

RQ_API S32 ENCODE__getCharValue(int c) noexcept
{
    return c >= 0 && c < 256 ? kHexValue[static_cast<unsigned>(c)] : -1;
}

RQ_API S32 ENCODE_strntol(const char *text, U32 count, U32 base) noexcept
{
    if (text == nullptr || base < 2 || base > 16)
        return -1;
    uint32_t value = 0;
    for (U32 i = 0; i < count; ++i) {
        S32 digit = ENCODE__getCharValue(static_cast<unsigned char>(text[i]));
        if (digit < 0 || static_cast<U32>(digit) >= base)
            return -1;
        value = value * base + static_cast<U32>(digit);
        if (value > 0x7FFFFFFFu)
            return -1;
    }
    return static_cast<S32>(value);
}

}  // extern "C"
