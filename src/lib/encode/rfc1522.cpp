// Encoded words in header values ("=?charset?B?...?=" and "=?charset?Q?...?="):
// decoding a whole value to UTF-8 and writing UTF-8 text as words.
#define RQ_SOURCE_TAG "src/lib/core/lib/encode/rfc1522"
#include "internal/rq_mem.h"
#include "internal/rq_spin.h"
#include "lib/encode/encode_internal.h"
#include "lib/unicode/unicode_internal.h"
#include "rqcore/encode.h"
#include "rqcore/unicode.h"

#include <cstdint>
#include <cstring>
#include <string_view>

namespace {

constexpr size_t kMaxWord = 75;     // longest encoded word written
constexpr size_t kMaxCharset = 64;  // longest character-set name looked up
constexpr size_t kCacheSize = 4;    // converters kept during one call

bool isSpace(unsigned char c) noexcept
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (x >= 'a' && x <= 'z')
            x = static_cast<unsigned char>(x - 32);
        if (y >= 'a' && y <= 'z')
            y = static_cast<unsigned char>(y - 32);
        if (x != y)
            return false;
    }
    return true;
}

// A growing output buffer from the platform allocator.
class Text {
public:
    Text() = default;
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    ~Text() { RQ_FREE(data_); }

    bool append(const void *bytes, size_t n) noexcept
    {
        if (!reserve(n))
            return false;
        if (n != 0)
            std::memcpy(data_ + size_, bytes, n);
        size_ += n;
        data_[size_] = '\0';
        return true;
    }
    bool append(std::string_view s) noexcept { return append(s.data(), s.size()); }
    bool put(char c) noexcept { return append(&c, 1); }
    // Counts n bytes written in place after reserve(n).
    void grow(size_t n) noexcept
    {
        size_ += n;
        data_[size_] = '\0';
    }
    // Room for n more bytes and the NUL.
    bool reserve(size_t n) noexcept
    {
        if (data_ != nullptr && size_ + n < capacity_)
            return true;
        size_t want = capacity_ < 64 ? 64 : capacity_;
        while (want <= size_ + n)
            want *= 2;
        auto *grown = static_cast<char *>(RQ_REALLOC(data_, want));
        if (grown == nullptr)
            return false;
        data_ = grown;
        capacity_ = want;
        data_[size_] = '\0';
        return true;
    }
    char *data() noexcept { return data_; }
    size_t size() const noexcept { return size_; }
    void clear() noexcept
    {
        size_ = 0;
        if (data_ != nullptr)
            data_[0] = '\0';
    }
    char *release() noexcept
    {
        if (!reserve(0))
            return nullptr;
        char *p = data_;
        data_ = nullptr;
        size_ = capacity_ = 0;
        return p;
    }

private:
    char *data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// Converters kept between calls.  Making one finds its set's map file and
// reads it (0.1 to 0.6 ms), far more than decoding a header, so converters
// outlive the call that made them.  A call takes a converter out of the pool
// and puts it back when it returns, so no two threads ever convert with the
// same one.  ENCODE_ReleaseCachedConverters empties the pool.
class ConverterPool {
public:
    static constexpr size_t kSize = 16;

    // A pooled converter for (directory, name), taken out; null when none.
    UNICODE_CONVERTER *take(const char *directory, std::string_view name) noexcept
    {
        rq::SpinGuard guard(lock_);
        for (Entry &e : entries_) {
            if (e.converter != nullptr && equalsIgnoringCase(std::string_view(e.name, e.length), name) &&
                std::strcmp(e.directory, directory) == 0) {
                UNICODE_CONVERTER *c = e.converter;
                RQ_FREE(e.directory);
                e = Entry{};
                return c;
            }
        }
        return nullptr;
    }

    // Puts a converter back (or destroys it when it cannot be kept).
    void give(const char *directory, std::string_view name, UNICODE_CONVERTER *converter) noexcept
    {
        char *copy = RQ_STRDUP(directory);
        Entry evicted;
        if (copy != nullptr) {
            rq::SpinGuard guard(lock_);
            Entry *slot = nullptr;
            for (Entry &e : entries_)
                if (e.converter == nullptr) {
                    slot = &e;
                    break;
                }
            if (slot == nullptr) {
                slot = &entries_[next_];
                next_ = (next_ + 1) % kSize;
                evicted = *slot;
            }
            slot->directory = copy;
            slot->converter = converter;
            std::memcpy(slot->name, name.data(), name.size());
            slot->name[name.size()] = '\0';
            slot->length = name.size();
            converter = nullptr;
        }
        // Destroyed outside the lock.
        if (converter != nullptr)
            UNICODE_AutoConverterDestroy(0, &converter);
        release(evicted);
    }

    void clear() noexcept
    {
        Entry all[kSize];
        {
            rq::SpinGuard guard(lock_);
            for (size_t i = 0; i < kSize; ++i) {
                all[i] = entries_[i];
                entries_[i] = Entry{};
            }
        }
        for (Entry &e : all)
            release(e);
    }

    ~ConverterPool() { clear(); }

private:
    struct Entry {
        char *directory = nullptr;
        UNICODE_CONVERTER *converter = nullptr;
        char name[kMaxCharset + 1] = {};
        size_t length = 0;
    };
    static void release(Entry &e) noexcept
    {
        if (e.converter != nullptr)
            UNICODE_AutoConverterDestroy(0, &e.converter);
        RQ_FREE(e.directory);
        e.directory = nullptr;
    }
    rq::SpinLock lock_;
    Entry entries_[kSize];
    size_t next_ = 0;
};

ConverterPool gPool;

// Converters by character-set name for one call: a value of many words in a
// few sets takes each converter once.  A name the framework cannot make a
// converter for is remembered too (converter null).  The converters go back
// to the pool when the call ends.
class ConverterCache {
public:
    ConverterCache(const char *mapDirectory) noexcept : mapDirectory_(mapDirectory) {}
    ConverterCache(const ConverterCache &) = delete;
    ConverterCache &operator=(const ConverterCache &) = delete;
    ~ConverterCache()
    {
        for (Entry &e : entries_)
            putBack(e);
    }

    // 0 with *out set (null when the set is unknown), or ENCODE_ERR_NOMEM.
    U32 get(std::string_view name, UNICODE_CONVERTER **out) noexcept
    {
        for (Entry &e : entries_) {
            if (e.used && equalsIgnoringCase(std::string_view(e.name, e.length), name)) {
                *out = e.converter;
                return 0;
            }
        }
        Entry &e = entries_[next_];
        next_ = (next_ + 1) % kCacheSize;
        putBack(e);
        e.used = false;
        std::memcpy(e.name, name.data(), name.size());
        e.name[name.size()] = '\0';
        e.length = name.size();
        UNICODE_CONVERTER *made = gPool.take(mapDirectory_, name);
        if (made == nullptr) {
            U32 rc = UNICODE_AutoConverterCreate(0, &made, mapDirectory_, e.name);
            if (rc == UNICODE_ERR_MEMORY)
                return ENCODE_ERR_NOMEM;
            if (rc != 0)
                made = nullptr;
        }
        e.converter = made;
        e.used = true;
        *out = e.converter;
        return 0;
    }

private:
    struct Entry {
        char name[kMaxCharset + 1] = {};
        size_t length = 0;
        UNICODE_CONVERTER *converter = nullptr;
        bool used = false;
    };
    void putBack(Entry &e) noexcept
    {
        if (e.converter != nullptr)
            gPool.give(mapDirectory_, std::string_view(e.name, e.length), e.converter);
        e.converter = nullptr;
    }
    const char *mapDirectory_;
    Entry entries_[kCacheSize];
    size_t next_ = 0;
};

// One encoded word found in the text.
struct Word {
    size_t end;                // index after the closing "?="
    std::string_view charset;  // the name without an RFC 2231 "*language"
    char encoding;             // 'B' or 'Q'
    std::string_view payload;  // the encoded text
};

// Reads the word starting at text[at] ("=?").  An encoded word holds no white
// space; its text runs to the first "?=" (a '?' inside it is taken as text, as
// common readers do).  When the text part has no "?=" before white space or
// the end, *noCloserUntil receives where that run ends: no word starting
// before it can close either, which keeps the scan linear.
bool readWord(std::string_view text, size_t at, Word *word, size_t *noCloserUntil) noexcept
{
    size_t i = at + 2;
    size_t n = text.size();
    size_t csStart = i;
    while (i < n && text[i] != '?' && !isSpace(static_cast<unsigned char>(text[i])))
        ++i;
    if (i >= n || text[i] != '?' || i == csStart)
        return false;
    std::string_view charset = text.substr(csStart, i - csStart);
    size_t star = charset.find('*');
    if (star != std::string_view::npos)
        charset = charset.substr(0, star);
    if (charset.empty() || charset.size() > kMaxCharset)
        return false;
    ++i;
    if (i + 1 >= n || text[i + 1] != '?')
        return false;
    char e = text[i];
    if (e == 'b' || e == 'q')
        e = static_cast<char>(e - 32);
    if (e != 'B' && e != 'Q')
        return false;
    i += 2;
    size_t payloadStart = i;
    while (i + 1 < n && !(text[i] == '?' && text[i + 1] == '=')) {
        if (isSpace(static_cast<unsigned char>(text[i])))
            break;
        ++i;
    }
    if (i + 1 >= n || text[i] != '?' || text[i + 1] != '=') {
        *noCloserUntil = i + 1 >= n ? n : i;
        return false;
    }
    *word = {i + 2, charset, e, text.substr(payloadStart, i - payloadStart)};
    return true;
}

// Appends the bytes a word's text stands for.  Q: '_' is a blank, "=XX" a
// byte (either case of hexadecimal digit), anything else itself.  B: the
// tolerant base64 decoder; a short last group gives the bytes it completes.
bool decodePayload(const Word &w, Text &bytes) noexcept
{
    const auto *p = reinterpret_cast<const unsigned char *>(w.payload.data());
    size_t n = w.payload.size();
    if (w.encoding == 'B') {
        if (!bytes.reserve((n / 4) * 3 + 6))
            return false;
        U32 status = 0;
        size_t got = rq::encode::base64DecodeInto(p, n, reinterpret_cast<unsigned char *>(bytes.data() + bytes.size()),
                                                  &status);
        bytes.grow(got);
        return true;
    }
    if (!bytes.reserve(n))
        return false;
    for (size_t i = 0; i < n; ++i) {
        char c = static_cast<char>(p[i]);
        if (c == '_') {
            c = ' ';
        } else if (c == '=' && i + 2 < n && ENCODE__getCharValue(p[i + 1]) >= 0 &&
                   ENCODE__getCharValue(p[i + 2]) >= 0) {
            c = static_cast<char>(ENCODE__getCharValue(p[i + 1]) * 16 + ENCODE__getCharValue(p[i + 2]));
            i += 2;
        }
        bytes.put(c);
    }
    return true;
}

// Converts a run of words of one character set and appends the result; the
// run's source text is appended as it stands when the set is unknown or the
// bytes are not valid in it.  Bytes after a NUL are not converted.
U32 flushRun(ConverterCache &cache, std::string_view charset, Text &bytes, std::string_view source,
             UNICODE_CONVERTER *utf8, Text &out, bool *converted) noexcept
{
    *converted = false;
    UNICODE_CONVERTER *from = nullptr;
    U32 rc = cache.get(charset, &from);
    if (rc != 0)
        return rc;
    if (from != nullptr && bytes.reserve(0)) {
        char *result = nullptr;
        rc = UNICODE_FullyAutoConvert(0, 0, from, bytes.data(), utf8, &result, nullptr);
        if (rc == UNICODE_ERR_MEMORY)
            return ENCODE_ERR_NOMEM;
        if (rc == 0) {
            *converted = true;
            bool ok = out.append(std::string_view(result));
            UNICODE_BufferFree(reinterpret_cast<void **>(&result));
            return ok ? 0u : static_cast<U32>(ENCODE_ERR_NOMEM);
        }
    } else if (from != nullptr) {
        return ENCODE_ERR_NOMEM;
    }
    return out.append(source) ? 0u : static_cast<U32>(ENCODE_ERR_NOMEM);
}

U32 decodeText(const char *mapDirectory, std::string_view text, Text &out) noexcept
{
    ConverterCache cache(mapDirectory);
    UNICODE_CONVERTER *utf8 = nullptr;
    if (cache.get("UTF-8", &utf8) != 0)
        return ENCODE_ERR_NOMEM;
    if (utf8 == nullptr)
        return ENCODE_ERR_UNKNOWN_CHARSET;
    Text bytes;                   // the decoded bytes of the current run
    std::string_view runCharset;  // its character set (empty: no run)
    size_t runStart = 0, runEnd = 0;
    size_t noCloserUntil = 0;
    size_t copied = 0;  // text before this index is in `out` or in the run
    size_t i = 0;
    const size_t n = text.size();
    while (i + 1 < n) {
        if (text[i] != '=' || text[i + 1] != '?' || i < noCloserUntil) {
            ++i;
            continue;
        }
        Word w{};
        if (!readWord(text, i, &w, &noCloserUntil)) {
            ++i;
            continue;
        }
        // Between two words, white space alone is dropped and the words
        // join; anything else ends the run.
        bool joins = !runCharset.empty();
        for (size_t k = runEnd; joins && k < i; ++k)
            joins = isSpace(static_cast<unsigned char>(text[k]));
        if (!runCharset.empty() && !(joins && equalsIgnoringCase(runCharset, w.charset))) {
            bool converted = false;
            U32 rc = flushRun(cache, runCharset, bytes, text.substr(runStart, runEnd - runStart), utf8, out,
                              &converted);
            if (rc != 0)
                return rc;
            bytes.clear();
            runCharset = {};
            copied = runEnd;
            // White space between decoded words of two sets is dropped too;
            // next to a word kept as it stands it stays.
            UNICODE_CONVERTER *next = nullptr;
            if (cache.get(w.charset, &next) != 0)
                return ENCODE_ERR_NOMEM;
            if (joins && converted && next != nullptr)
                copied = i;
        }
        if (runCharset.empty()) {
            if (!out.append(text.substr(copied, i - copied)))
                return ENCODE_ERR_NOMEM;
            runCharset = w.charset;
            runStart = i;
        }
        if (!decodePayload(w, bytes))
            return ENCODE_ERR_NOMEM;
        runEnd = w.end;
        copied = w.end;
        i = w.end;
    }
    if (!runCharset.empty()) {
        bool converted = false;
        U32 rc = flushRun(cache, runCharset, bytes, text.substr(runStart, runEnd - runStart), utf8, out, &converted);
        if (rc != 0)
            return rc;
        copied = runEnd;
    }
    return out.append(text.substr(copied)) ? 0u : static_cast<U32>(ENCODE_ERR_NOMEM);
}

// Well-formed UTF-8: no stray continuation byte, overlong form, surrogate
// or value above U+10FFFF (the converter reads some of these as Latin-1).
bool isUtf8(const unsigned char *p) noexcept
{
    while (*p != 0) {
        unsigned c = *p;
        if (c < 0x80) {
            ++p;
            continue;
        }
        size_t more = c >= 0xC2 && c <= 0xDF ? 1 : c >= 0xE0 && c <= 0xEF ? 2 : c >= 0xF0 && c <= 0xF4 ? 3 : 0;
        if (more == 0)
            return false;
        unsigned lo = 0x80, hi = 0xBF;  // range of the second byte
        if (c == 0xE0)
            lo = 0xA0;
        else if (c == 0xED)
            hi = 0x9F;
        else if (c == 0xF0)
            lo = 0x90;
        else if (c == 0xF4)
            hi = 0x8F;
        if (p[1] < lo || p[1] > hi)
            return false;
        for (size_t k = 2; k <= more; ++k)
            if ((p[k] & 0xC0) != 0x80)
                return false;
        p += more + 1;
    }
    return true;
}

bool qLiteral(unsigned char c) noexcept
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '!' || c == '*' ||
           c == '+' || c == '-' || c == '/';
}

size_t encodedLength(const unsigned char *bytes, size_t n, char encoding) noexcept
{
    if (encoding == 'B')
        return (n + 2) / 3 * 4;
    size_t length = 0;
    for (size_t i = 0; i < n; ++i)
        length += qLiteral(bytes[i]) || bytes[i] == ' ' ? 1 : 3;
    return length;
}

// Writes one word holding `bytes`.
bool writeWord(Text &out, std::string_view charset, char encoding, const unsigned char *bytes, size_t n) noexcept
{
    static constexpr char kHex[] = "0123456789ABCDEF";
    if (out.size() != 0 && !out.put(' '))
        return false;
    if (!out.append("=?") || !out.append(charset) || !out.put('?') || !out.put(encoding) || !out.put('?'))
        return false;
    if (encoding == 'B') {
        size_t length = encodedLength(bytes, n, 'B');
        if (!out.reserve(length))
            return false;
        char *at = out.data() + out.size();
        rq::encode::base64EncodeInto(bytes, n, at);
        out.grow(length);
    } else {
        for (size_t i = 0; i < n; ++i) {
            unsigned char c = bytes[i];
            bool ok = c == ' '      ? out.put('_')
                      : qLiteral(c) ? out.put(static_cast<char>(c))
                                    : out.put('=') && out.put(kHex[c >> 4]) && out.put(kHex[c & 15]);
            if (!ok)
                return false;
        }
    }
    return out.append("?=");
}

U32 encodeText(const char *mapDirectory, const char *utf8, std::string_view charset, char encoding, Text &out) noexcept
{
    ConverterCache cache(mapDirectory);
    UNICODE_CONVERTER *fromUtf8 = nullptr, *to = nullptr;
    if (cache.get("UTF-8", &fromUtf8) != 0 || cache.get(charset, &to) != 0)
        return ENCODE_ERR_NOMEM;
    if (fromUtf8 == nullptr || to == nullptr)
        return ENCODE_ERR_UNKNOWN_CHARSET;
    if (!isUtf8(reinterpret_cast<const unsigned char *>(utf8)))
        return ENCODE_ERR_BADTEXT;
    const size_t room = kMaxWord - 7 - charset.size();  // "=?" cs "?" E "?" ... "?="
    UNICODE_CHAR *unicode = nullptr;
    U32 rc = UNICODE_ConvertToUnicodeBuffer(fromUtf8, utf8, &unicode, 0);
    if (rc == UNICODE_ERR_MEMORY)
        return ENCODE_ERR_NOMEM;
    if (rc != 0)
        return ENCODE_ERR_BADTEXT;
    rq::Block<UNICODE_CHAR> owned(unicode);
    // A converter with shift states (ISO-2022) writes a character's escape
    // sequences again at every call.  For such a set a word is converted as
    // one run, so that it switches sets once per run of text and ends back
    // in its initial state, as every encoded word must; the run is converted
    // again for each character added, which words of at most 75 bytes keep
    // linear in the text.
    const bool shifting = to->fromUnicode == UNICODE_ConvertFromUnicode_iso2022;
    // Converts [from, end) and appends the bytes to `into`; false with
    // *status set when that fails (ENCODE_ERR_LONG_CHARSET: more bytes than
    // any word holds).
    auto convert = [&](const UNICODE_CHAR *from, const UNICODE_CHAR *end, Text &into, U32 *status) noexcept {
        UNICODE_CHAR run[2 * kMaxWord + 3];
        size_t units = static_cast<size_t>(end - from);
        if (units >= sizeof run / sizeof run[0]) {
            *status = ENCODE_ERR_LONG_CHARSET;
            return false;
        }
        std::memcpy(run, from, units * sizeof(UNICODE_CHAR));
        run[units] = 0;
        unsigned char bytes[4 * kMaxWord];
        U32 size = sizeof bytes;
        const UNICODE_CHAR *stop = nullptr;
        U32 converted = UNICODE_ConvertFromUnicode(to, run, reinterpret_cast<char *>(bytes), &size, &stop, 0);
        if (converted != 0) {
            *status = converted == UNICODE_ERR_MEMORY ? U32{ENCODE_ERR_NOMEM} : U32{ENCODE_ERR_BADTEXT};
            return false;
        }
        if (stop != nullptr && stop < run + units) {
            *status = ENCODE_ERR_LONG_CHARSET;
            return false;
        }
        size_t got = size;
        while (got > 0 && bytes[got - 1] == 0)
            --got;
        if (!into.append(bytes, got)) {
            *status = ENCODE_ERR_NOMEM;
            return false;
        }
        return true;
    };
    Text word;  // the target-set bytes of the word being filled
    Text next;  // the word with one more character
    const UNICODE_CHAR *wordStart = unicode;
    for (const UNICODE_CHAR *u = unicode; *u != 0;) {
        // One character at a time, a surrogate pair as one, so no word ends
        // inside a character.
        size_t units = u[0] >= 0xD800 && u[0] < 0xDC00 && u[1] >= 0xDC00 && u[1] < 0xE000 ? 2 : 1;
        next.clear();
        U32 status = 0;
        bool ok = shifting ? convert(wordStart, u + units, next, &status)
                           : next.append(word.data(), word.size()) && convert(u, u + units, next, &status);
        if (!ok && status == 0)
            return ENCODE_ERR_NOMEM;
        if (!ok && status != ENCODE_ERR_LONG_CHARSET)
            return status;
        const auto *nextBytes = reinterpret_cast<const unsigned char *>(next.data());
        if (!ok || encodedLength(nextBytes, next.size(), encoding) > room) {
            if (word.size() == 0)
                return ENCODE_ERR_LONG_CHARSET;  // not even one character fits
            if (!writeWord(out, charset, encoding, reinterpret_cast<const unsigned char *>(word.data()), word.size()))
                return ENCODE_ERR_NOMEM;
            wordStart = u;
            next.clear();
            if (!convert(u, u + units, next, &status))
                return status;
            nextBytes = reinterpret_cast<const unsigned char *>(next.data());
            if (encodedLength(nextBytes, next.size(), encoding) > room)
                return ENCODE_ERR_LONG_CHARSET;
        }
        word.clear();
        if (!word.append(next.data(), next.size()))
            return ENCODE_ERR_NOMEM;
        u += units;
    }
    if (word.size() != 0 &&
        !writeWord(out, charset, encoding, reinterpret_cast<const unsigned char *>(word.data()), word.size()))
        return ENCODE_ERR_NOMEM;
    return 0;
}

}  // namespace

extern "C" {

RQ_API U32 ENCODE_FromRFC1522(const char *mapDirectory, const char *text, char **utf8) noexcept
{
    if (mapDirectory == nullptr || text == nullptr || utf8 == nullptr)
        return ENCODE_ERR_BADARG;
    Text out;
    U32 rc = decodeText(mapDirectory, text, out);
    if (rc != 0)
        return rc;
    char *result = out.release();
    if (result == nullptr)
        return ENCODE_ERR_NOMEM;
    *utf8 = result;
    return 0;
}

RQ_API void ENCODE_ReleaseCachedConverters(void) noexcept
{
    gPool.clear();
}

RQ_API U32 ENCODE_ToRFC1522(const char *mapDirectory, const char *utf8, const char *charset, char encoding,
                            char **text) noexcept
{
    if (mapDirectory == nullptr || utf8 == nullptr || charset == nullptr || text == nullptr)
        return ENCODE_ERR_BADARG;
    if (encoding == 'b' || encoding == 'q')
        encoding = static_cast<char>(encoding - 32);
    if (encoding != 'B' && encoding != 'Q')
        return ENCODE_ERR_BADARG;
    std::string_view name(charset);
    if (name.empty() || name.size() > kMaxCharset)
        return ENCODE_ERR_UNKNOWN_CHARSET;
    for (char c : name)
        if (c == '?' || isSpace(static_cast<unsigned char>(c)))
            return ENCODE_ERR_UNKNOWN_CHARSET;
    Text out;
    U32 rc = encodeText(mapDirectory, utf8, name, encoding, out);
    if (rc != 0)
        return rc;
    char *result = out.release();
    if (result == nullptr)
        return ENCODE_ERR_NOMEM;
    *text = result;
    return 0;
}

}  // extern "C"
