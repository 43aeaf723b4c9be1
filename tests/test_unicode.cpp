// The converter framework and the 8-bit, built-in, UTF-8 and multibyte
// converters: registry rules, conversion contracts, map files, the kept
// oddities, every destination size and every failed allocation.
#include "rqtest.h"

#include "rqcore/charmap.h"
#include "rqcore/unicode.h"
#include "rqsis/rqsis_test.h"

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using U16String = std::u16string;
using Mappings = std::vector<std::pair<std::vector<U32>, U32>>;

const UNICODE_CHAR *uc(const U16String &s)
{
    return reinterpret_cast<const UNICODE_CHAR *>(s.c_str());
}

U16String u16(const UNICODE_CHAR *p)
{
    U16String s;
    while (p != nullptr && *p != 0)
        s.push_back(static_cast<char16_t>(*p++));
    return s;
}

struct Converter {
    UNICODE_CONVERTER *c = nullptr;
    explicit Converter(U32 type, uintptr_t parameter = 0) { EXPECT_EQ(UNICODE_NewConverter(&c, type, parameter), 0u); }
    ~Converter() { UNICODE_DestroyConverter(c); }  // a null converter is refused harmlessly
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;
    operator UNICODE_CONVERTER *() const { return c; }
};

// A converter's own state, for calling its operations directly.
struct RawState {
    void *s;
    UNICODE_DESTROY_PROC destroy;
    RawState(void *state, UNICODE_DESTROY_PROC d, UNICODE_ADDMAPPING_PROC add = nullptr, const Mappings &m = {})
        : s(state), destroy(d)
    {
        for (auto [native, unicode] : m) {
            native.push_back(0);
            const U32 u[] = {unicode, 0};
            EXPECT_EQ(add(s, native.data(), u), 0u);
        }
    }
    ~RawState() { destroy(s); }
    RawState(const RawState &) = delete;
    RawState &operator=(const RawState &) = delete;
};

using rqtest::writeFile;

U32 addMapping(UNICODE_CONVERTER *c, std::vector<U32> native, std::vector<U32> unicode)
{
    native.push_back(0);
    unicode.push_back(0);
    return UNICODE_AddMapping(c, native.data(), unicode.data());
}

void addMappings(UNICODE_CONVERTER *c, const Mappings &m)
{
    for (const auto &[native, unicode] : m)
        ASSERT_EQ(addMapping(c, native, {unicode}), 0u);
}

// Whole conversions through the buffer functions.
U16String toUnicode(UNICODE_CONVERTER *c, const std::string &text, U32 *status = nullptr)
{
    UNICODE_CHAR *out = nullptr;
    U32 rc = UNICODE_ConvertToUnicodeBuffer(c, text.c_str(), &out, 0);
    if (status != nullptr)
        *status = rc;
    U16String result = u16(out);
    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
    return result;
}

std::string fromUnicode(UNICODE_CONVERTER *c, const U16String &text, U32 flags = 0, U32 *status = nullptr)
{
    char *out = nullptr;
    U32 rc = UNICODE_ConvertFromUnicodeBuffer(c, uc(text), &out, flags);
    if (status != nullptr)
        *status = rc;
    std::string result = out != nullptr ? out : "";
    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
    return result;
}

// ---- before initialisation (first in the file: the registry starts empty) --

TEST(UnicodeRegistry, NewConverterBeforeInitializeIsRefused)
{
    UNICODE_CONVERTER *c = reinterpret_cast<UNICODE_CONVERTER *>(&c);
    EXPECT_EQ(UNICODE_NewConverter(&c, UNICODE_TYPE_UTF8, 0), 0x183FFu);
}

class Unicode : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(UNICODE_Initialize(0), 0u); }
};

// ---- registry ----------------------------------------------------------------

TEST_F(Unicode, Registry)
{
    rqtest::LeakCheck leaks;
    EXPECT_EQ(UNICODE_RegisterConverterType(128, nullptr, nullptr, nullptr, nullptr, nullptr), 0x18360u);
    EXPECT_EQ(UNICODE_ConverterDataGet(-1, nullptr, nullptr), 0x18360u);
    EXPECT_EQ(UNICODE_ConverterDataGet(127, nullptr, nullptr), 0u) << "either pointer may be null";
    // The ISO-2022 types carry the map-directory flag; the built-in type a
    // pointer to its set index (pointer-sized on every target).
    U32 flags = 99;
    uintptr_t parameter = 99;
    ASSERT_EQ(UNICODE_ConverterDataGet(UNICODE_TYPE_ISO2022CN, &flags, &parameter), 0u);
    EXPECT_EQ(flags + parameter, 1u);
    ASSERT_EQ(UNICODE_ConverterDataGet(UNICODE_TYPE_BUILTIN, &flags, &parameter), 0u);
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(*reinterpret_cast<const U32 *>(parameter), 0u);
    EXPECT_EQ(UNICODE_AutoConvert(), 0x18392u);
    // Free slots and types beyond the registry are "unregistered"; *out is
    // nulled first.
    for (U32 type : {0u, 4u, 127u, 4000u}) {
        SCOPED_TRACE(type);
        UNICODE_CONVERTER *c = reinterpret_cast<UNICODE_CONVERTER *>(&c);
        EXPECT_EQ(UNICODE_NewConverter(&c, type, 0), 0x18341u);
        EXPECT_EQ(c, nullptr);
    }
    // A built-in set other than 0 is unknown: create fails, reported as memory.
    U32 set1 = 1;
    UNICODE_CONVERTER *c = nullptr;
    EXPECT_EQ(UNICODE_NewConverter(&c, 3, reinterpret_cast<uintptr_t>(&set1)), 0x18340u);
    EXPECT_EQ(UNICODE_DestroyConverter(nullptr), 0x183FEu);

    // A cleared registry has free slots; a custom type registered in one is
    // overwritten by a second registration; initialising again clears it.
    UNICODE__ClearConverters();
    EXPECT_EQ(UNICODE_NewConverter(&c, 1, 0), 0x18341u);
    ASSERT_EQ(UNICODE_RegisterConverterTypeExt(40, 5, UNICODE_NewConverter_utf8, nullptr, nullptr, nullptr,
                                               nullptr, 77),
              0u);
    ASSERT_EQ(UNICODE_RegisterConverterType(40, UNICODE_NewConverter_8bit, UNICODE_AddMapping_8bit,
                                            UNICODE_ConvertToUnicode_8bit, UNICODE_ConvertFromUnicode_8bit,
                                            UNICODE_DestroyConverter_8bit),
              0u);
    UNICODE_ConverterDataGet(40, &flags, &parameter);
    EXPECT_EQ(flags + parameter, 0u);
    {
        Converter custom(40);
        EXPECT_EQ(toUnicode(custom, "ab"), U16String(2, u'\xFFFD')) << "an empty 8-bit table";
    }
    ASSERT_EQ(UNICODE_Initialize(0), 0u);
    EXPECT_EQ(UNICODE_NewConverter(&c, 40, 0), 0x18341u);
}

// ---- helpers ---------------------------------------------------------------

TEST(UnicodeHelpers, BestSplitAndByteOrder)
{
    // Worked out by hand from the rule "longest prefix that fits with its
    // terminator without cutting a character".
    struct Case { const char *text; int max, expected; } cases[] = {
        {"abcdef", 3, 2},         {"abcdef", 7, 6},         {"abcdef", 6, 5},        {"ab\xC3\xA9" "d", 4, 2},
        {"ab\xC3\xA9" "d", 5, 4}, {"\xE2\x82\xAC", 3, 0},   {"\xE2\x82\xAC", 4, 3},  {"abc", -1, 0},
        {nullptr, 5, 0},          {"abc", 0, 0},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(std::string(k.text != nullptr ? k.text : "(null)") + " max " + std::to_string(k.max));
        EXPECT_EQ(UTF8_getBestSplit(k.text, k.max), k.expected);
    }
    UNICODE_CHAR text[] = {0xFFFE, 0x4100, 0x4200, 0};
    EXPECT_EQ(UNICODE_MaybeSwitchByteOrder(text), 1);
    EXPECT_EQ(UNICODE_MaybeSwitchByteOrder(text), 0) << "a proper byte-order mark stays";
    EXPECT_EQ(u16(text), U16String(u"\xFEFF" u"AB"));
}

TEST(UnicodeHelpers, DecompositionTable)
{
    // Values from the Unicode Character Database (UnicodeData.txt, field 5,
    // expanded) and the Hangul algorithm of chapter 3.12.
    struct Case { UNICODE_CHAR c; U16String expected; } cases[] = {
        {0x00E9, u"e\x0301"},      {0x1E69, u"s\x0323\x0307"},      {0x212B, u"A\x030A"},
        {0xAC00, u"\x1100\x1161"}, {0xAC01, u"\x1100\x1161\x11A8"}, {0xD7A3, u"\x1112\x1175\x11C2"},
        {0x0041, u""},             {0xFB01, u""} /* compatibility only */,
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.c);
        UNICODE_CHAR out[8];
        rqtest::fillJunk(out, sizeof out);
        U32 n = UNICODE_GetDecomposition(k.c, out, 8);
        EXPECT_EQ(n, k.expected.size());
        EXPECT_EQ(UNICODE_iscanonical(k.c) != 0, k.expected.empty());
        if (n != 0) {
            EXPECT_EQ(u16(out), k.expected);
        }
    }
}

// ---- UTF-8 -----------------------------------------------------------------------

TEST_F(Unicode, Decoding)
{
    // UTF-8 by the converter's rules: overlong forms accepted, F0-FF standing
    // for themselves, invalid bytes stopping, a truncated tail left
    // unconverted.  Multibyte (from the mappings given): an unmapped byte is
    // U+FFFD, a lead byte followed by a byte that continues no sequence
    // takes the lead's own meaning and drops the trail.
    rqtest::LeakCheck leaks;
    const Mappings pair = {{{0x82, 0xA0}, 0x3000}, {{0x41}, 0x41}}, triple = {{{0x8F, 0xA2, 0xAF}, 0x2D8}};
    // No mappings: UTF-8.
    struct Case { Mappings mappings; std::string input; U32 status; U16String output; size_t consumed; } cases[] = {
        {{}, "a\xC3\xA9\xE2\x82\xAC\xEF\xBF\xBD" "b", 0, u"a\xE9\x20AC\xFFFD" "b", 10},
        {{}, "\xA9", 0x18393, u"", 0},
        {{}, "\xF0\x9F\x98\x80", 0x18393, u"\xF0", 1},
        {{}, "\xFF" "A", 0, u"\xFF" "A", 2},
        {{}, "\xC1\x81\xE0\x80\xB1", 0, u"A1", 5},     // overlong
        {{}, "A\xE2\x82", 0, u"A", 1},
        {{}, "\xE2\xC3\xA9", 0x18393, u"", 0},         // a lead byte inside a character
        {{}, "\xC3" "A", 0x18393, u"", 0},             // ASCII inside a character
        {{}, "abcdefghijklmnopqrstuvwxyz0123456789\xC3\xA9", 0, u"abcdefghijklmnopqrstuvwxyz0123456789\xE9", 38},
        {{}, "abcdefghijklmnopqrstuvwxyz\x80", 0x18393, u"abcdefghijklmnopqrstuvwxyz", 26},
        {{pair[0]}, "\x82\xA0\x42", 0, u"\x3000\xFFFD", 3},
        {pair, "\x82\x41", 0, u"\xFFFD", 2},
        {{pair[0], pair[1], {{0x82}, 0x2082}}, "\x82\x41\x41", 0, u"\x2082" "A", 3},
        {{triple[0], pair[1]}, "A\x8F\xA2\xAF" "A", 0, u"A\x2D8" "A", 5},
        {triple, "\x8F\xA2\x41", 0, u"\xFFFD\xFFFD", 3},
        {pair, "A\x82", 0, u"A", 1},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.input);
        Converter c(k.mappings.empty() ? UNICODE_TYPE_UTF8 : UNICODE_TYPE_MBCS);
        addMappings(c, k.mappings);
        UNICODE_CHAR out[64];
        rqtest::fillJunk(out, sizeof out);
        U32 size = sizeof out;
        const char *end = nullptr;
        EXPECT_EQ(UNICODE_ConvertToUnicode(c, k.input.c_str(), out, &size, &end, 0), k.status);
        EXPECT_EQ(u16(out), k.output);
        EXPECT_EQ(size, k.output.size() * 2);
        EXPECT_EQ(static_cast<size_t>(end - k.input.c_str()), k.consumed);
        // Measuring stops where converting does; UTF-8 does not measure.
        U32 convertible = 99;
        U32 rc = UNICODE_ConvertibleSizeGet(c, k.input.c_str(), &convertible);
        EXPECT_EQ(rc, k.mappings.empty() ? 0x183FBu : 0u);
        EXPECT_EQ(convertible, k.mappings.empty() ? 0 : k.consumed);
    }
    U32 size = 8;
    const char *end = nullptr;
    EXPECT_EQ(UNICODE_ConvertToUnicode_utf8(nullptr, "a", nullptr, &size, &end, 0), 0x183FBu)
        << "a null destination is not a scan request here";
}

TEST_F(Unicode, Utf8Encoding)
{
    // From RFC 3629's table; surrogates are written one by one.
    // The output with its NUL, when one fits.
    struct Case { U16String input; U32 size, status; std::string output; ptrdiff_t consumed; } cases[] = {
        {u"\x7F\x80\x7FF\x800\xFFFF\xD83D\xDE00", 64, 0,
         std::string("\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xED\xA0\xBD\xED\xB8\x80", 18), 7},
        {u"\x20AC", 3, 0x18370, std::string(1, '\0'), 0},  // the NUL needs the fourth byte
        {u"ab\xE9", 4, 0x18370, std::string("ab", 3), 2},
        {u"a", 0, 0x18370, "", 0},                         // size 0: not even the NUL is written
    };
    Converter utf8(UNICODE_TYPE_UTF8);
    for (const Case &k : cases) {
        SCOPED_TRACE(k.size);
        char out[64];
        rqtest::fillJunk(out, sizeof out);
        U32 size = k.size;
        const UNICODE_CHAR *end = nullptr;
        EXPECT_EQ(UNICODE_ConvertFromUnicode_utf8(nullptr, uc(k.input), out, &size, &end, 0), k.status);
        EXPECT_EQ(std::string(out, k.output.size() + 1), k.output + "\xA5");
        EXPECT_EQ(size + (k.size != 0), k.output.size());
        EXPECT_EQ(end - uc(k.input), k.consumed);
        // The framework's call reports 0 whatever the operation returned.
        size = k.size;
        EXPECT_EQ(UNICODE_ConvertFromUnicode(utf8, uc(k.input), out, &size, &end, 0), 0u);
    }
}

TEST_F(Unicode, Utf8RandomRoundTrip)
{
    rqtest::LeakCheck leaks;
    Converter utf8(UNICODE_TYPE_UTF8);
    std::mt19937 random(20240601);
    for (int round = 0; round < 300; ++round) {
        // Characters from every encoded length, NUL excluded.
        static const U32 first[] = {1, 0x80, 0x800, 0x800}, count[] = {0x7F, 0x780, 0xF7FF, 0xF7FF};
        U16String text;
        for (size_t i = random() % 200; i > 0; --i) {
            U32 length = random() % 4;
            text.push_back(static_cast<char16_t>(first[length] + random() % count[length]));
        }
        U32 status = 1;
        std::string encoded = fromUnicode(utf8, text, 0, &status);
        ASSERT_EQ(status, 0u);
        ASSERT_EQ(toUnicode(utf8, encoded, &status), text);
        ASSERT_EQ(status, 0u);
    }
}

// ---- 8-bit and built-in --------------------------------------------------------

TEST_F(Unicode, EightBitMappingsAndDecomposition)
{
    rqtest::LeakCheck leaks;
    Converter latin1(UNICODE_TYPE_BUILTIN), c(UNICODE_TYPE_8BIT);  // no parameter: set 0
    EXPECT_EQ(toUnicode(c, "\x01\xFF"), U16String(2, u'\xFFFD')) << "no mappings yet";
    std::string bytes;
    U16String chars;
    for (int b = 1; b < 256; ++b) {
        bytes.push_back(static_cast<char>(b));
        chars.push_back(static_cast<char16_t>(b));
    }
    EXPECT_EQ(toUnicode(latin1, bytes), chars);
    EXPECT_EQ(fromUnicode(latin1, chars + u"\x100\x20AC"), bytes + "\x1A\x1A");

    EXPECT_EQ(addMapping(c, {0x100}, {0x41}), 0x18360u);
    EXPECT_EQ(addMapping(c, {0x41}, {0x10000}), 0x18360u);
    EXPECT_EQ(UNICODE_AddMapping(c, nullptr, nullptr), 0x183FBu);
    // A later mapping wins from Unicode (83 for U+00C5) and to Unicode (84),
    // and A maps to the SUB byte itself.
    addMappings(c, {{{0x65}, 0x65}, {{0x81}, 0x301}, {{0x82}, 0xC5}, {{0x83}, 0xC5}, {{0x1A}, 0x41},
                    {{0x84}, 0x100}, {{0x84}, 0x101}});
    EXPECT_EQ(toUnicode(c, "\x82\x83\x84\x1A"), U16String(u"\xC5\xC5\x101" u"A"));
    EXPECT_EQ(fromUnicode(c, u"\xC5\x100\x101\xE9"), "\x83\x84\x84\x1A");
    // Decomposed (flag 1): e + macron (unmapped) + acute; A mapped to SUB
    // stays indistinguishable, kept so.
    EXPECT_EQ(fromUnicode(c, u"e\xE9\x1E17" "A", 1), "ee\x81" "e\x1A\x81\x1A");
    // A decomposition must fit with one byte to spare beyond its own length:
    // "e" + U+0301 (two bytes) for U+00E9 needs a size of 5.
    RawState state(UNICODE_NewConverter_8bit(1, 0), UNICODE_DestroyConverter_8bit, UNICODE_AddMapping_8bit,
                   {{{0x65}, 0x65}, {{0x81}, 0x301}});
    const U16String text = u"\xE9";
    for (U32 size : {4u, 5u}) {
        char out[8];
        rqtest::fillJunk(out, sizeof out);
        U32 n = size;
        const UNICODE_CHAR *end = nullptr;
        EXPECT_EQ(UNICODE_ConvertFromUnicode_8bit(state.s, uc(text), out, &n, &end, 1), size < 5 ? 0x18370u : 0u);
        EXPECT_EQ(end - uc(text), size < 5 ? 0 : 1);
        EXPECT_EQ(std::string(out, n + 1), size < 5 ? std::string(1, '\0') : std::string("e\x81", 3));
    }
}

TEST_F(Unicode, EightBitAgreesWithAPlainModel)
{
    // A plain model of the 8-bit tables (256 characters one way, a map the
    // other) against the converter's grouped fast paths: random tables near
    // the identity, random texts at every alignment.
    rqtest::LeakCheck leaks;
    std::mt19937 random(99);
    for (int round = 0; round < 40; ++round) {
        Converter c(UNICODE_TYPE_8BIT);
        std::vector<UNICODE_CHAR> to(256, 0xFFFD);
        std::map<U32, unsigned char> from;
        auto map = [&](U32 b, U32 u) {
            ASSERT_EQ(addMapping(c, {b}, {u}), 0u);
            to[b] = static_cast<UNICODE_CHAR>(u);
            from[u] = static_cast<unsigned char>(b);
        };
        unsigned changes = random() % 4;
        for (U32 b = 1; b < 256; ++b)
            map(b, round % 3 != 0 && random() % 64 < changes ? 0x100 + random() % 0x300 : b);
        if (round % 5 == 1) {  // break the identity, then restore it
            map(0x41, 0x42);
            map(0x41, 0x41);
            map(0x42, 0x42);
        }
        for (int t = 0; t < 20; ++t) {
            std::string bytes(random() % 16, 'x');  // every alignment
            U16String expected(bytes.size(), u'x'), chars;
            std::string back;
            for (size_t i = random() % 100; i > 0; --i) {
                bytes.push_back(static_cast<char>(random() % 3 == 0 ? 0x80 + random() % 0x80 : 0x20 + random() % 0x60));
                expected.push_back(static_cast<char16_t>(to[static_cast<unsigned char>(bytes.back())]));
                chars.push_back(static_cast<char16_t>(random() % 4 == 0 ? random() % 0x400 + 1 : 0x20 + random() % 0x60));
                auto it = from.find(chars.back());
                back.push_back(it != from.end() ? static_cast<char>(it->second) : '\x1A');
            }
            ASSERT_EQ(toUnicode(c, bytes), expected);
            ASSERT_EQ(fromUnicode(c, chars), back);
        }
    }
}

// ---- multibyte ---------------------------------------------------------------------

TEST_F(Unicode, MbcsMappingRules)
{
    rqtest::LeakCheck leaks;
    Converter c(UNICODE_TYPE_MBCS);
    // Refusals leave the trie unchanged: the 81 below stays a plain byte.
    EXPECT_EQ(addMapping(c, {0x81, 1, 2, 3, 4, 5, 6, 7, 8}, {0x3000}), 0x183FDu);
    EXPECT_EQ(addMapping(c, {0x81, 0x100}, {0x3000}), 0x183FCu);
    EXPECT_EQ(addMapping(c, {}, {0x3000}), 0x183FAu);
    EXPECT_EQ(addMapping(c, {0x81}, {}), 0x183FAu);
    EXPECT_EQ(UNICODE_AddMapping_mbcs(nullptr, nullptr, nullptr), 0x183FEu);
    EXPECT_EQ(addMapping(c, {1, 2, 3, 4, 5, 6, 7, 8}, {0x4E00}), 0u) << "eight bytes are allowed";
    EXPECT_EQ(addMapping(c, {0x81}, {0x1F600}), 0u) << "beyond U+FFFF: skipped";
    EXPECT_EQ(toUnicode(c, "\x81"), U16String(u"\xFFFD"));
    EXPECT_EQ(toUnicode(c, "\x01\x02\x03\x04\x05\x06\x07\x08"), U16String(u"\x4E00"));
    EXPECT_EQ(fromUnicode(c, u"\x4E00"), "\x01\x02\x03\x04\x05\x06\x07\x08");
    // Rows widen and keep their entries; a later mapping wins from Unicode only.
    addMappings(c, {{{0x41}, 0x41}, {{0x81, 0x40}, 0x42}, {{0x43}, 0x43}, {{0x90, 0x91, 0x92}, 0x3001},
                    {{0x44}, 0x3001}});
    EXPECT_EQ(fromUnicode(c, u"ABC\x3001"), "A\x81\x40" "C\x44");
    EXPECT_EQ(toUnicode(c, "\x90\x91\x92\x44"), U16String(u"\x3001\x3001"));
    EXPECT_EQ(fromUnicode(c, u"\x20AC\x00E9"), "\x1A\x1A") << "no row, and a never-mapped entry";
}

TEST_F(Unicode, StepsAndDebugDump)
{
    rqtest::LeakCheck leaks;
    // The limit is the last writable position; the cursor moves only on success.
    char bytes[4];
    rqtest::fillJunk(bytes, sizeof bytes);
    char *at = bytes;
    EXPECT_EQ(AppendToDest(&at, bytes + 2, "ab", 2), 0u);
    EXPECT_EQ(AppendToDest(&at, bytes + 2, "cd", 2), 0x18370u);
    EXPECT_EQ(at, bytes + 2);
    RawState eight(UNICODE_NewConverter_8bit(1, 0), UNICODE_DestroyConverter_8bit, UNICODE_AddMapping_8bit,
                   {{{0xC9}, 0xE9}});
    char out = 0;
    EXPECT_EQ(UnicodeTo8Bits(eight.s, 0xE9, &out), 0u);
    EXPECT_EQ(out, 0) << "a zero byte asks without writing";
    EXPECT_EQ(UnicodeTo8Bits(eight.s, 0x20AC, &out), 0x18393u);
    RawState mbcs(UNICODE_NewConverter_mbcs(2, 0), UNICODE_DestroyConverter_mbcs, UNICODE_AddMapping_mbcs,
                  {{{0x82, 0xA0}, 0x3000}, {{0x41}, 0x41}});
    const char *p = "\x82" "A";
    UNICODE_CHAR c = 0;
    EXPECT_EQ(MBCSCharToUnicode(mbcs.s, &p, &c), 0x18393u) << "a broken sequence, both bytes consumed";
    EXPECT_EQ(*p, '\0');
    at = bytes;
    EXPECT_EQ(UnicodeToMBCS(mbcs.s, 0x4E00, &at, bytes + 4), 0u) << "no row: SUB";
    EXPECT_EQ(UnicodeToMBCS(mbcs.s, 0x3000, &at, bytes + 4), 0u);
    EXPECT_EQ(UnicodeToMBCS(mbcs.s, 0x3000, &at, bytes + 4), 0x18360u) << "one byte left for two";
    EXPECT_EQ(std::string(bytes, 3), "\x1A\x82\xA0");
    testing::internal::CaptureStdout();
    UNICODE_debug_dump_mbcs(mbcs.s);
    std::string dump = testing::internal::GetCapturedStdout();
    EXPECT_NE(dump.find("U+3000 -> 82 A0"), std::string::npos) << dump;
    EXPECT_NE(dump.find(" 82 A0 -> U+3000"), std::string::npos) << dump;
}

// ---- every destination size --------------------------------------------------------

// Converts `input` with a fixed destination size, calling again from
// sourceEnd while the converter says the destination is full.  Sizes too
// small for one character make no progress; from `minimum` on, every size
// must give the whole conversion.
template <typename In, typename Out, typename Call>
void everySize(const std::basic_string<In> &input, const std::basic_string<Out> &whole, size_t minimum, Call call)
{
    for (size_t size = 0; size <= whole.size() * sizeof(Out) + 8; ++size) {
        SCOPED_TRACE("size " + std::to_string(size));
        std::basic_string<Out> collected;
        const In *at = input.c_str();
        for (;;) {
            std::vector<Out> out(size / sizeof(Out) + 4);
            rqtest::fillJunk(out.data(), out.size() * sizeof(Out));
            U32 n = static_cast<U32>(size);
            const In *end = nullptr;
            U32 rc = call(at, out.data(), &n, &end);
            const auto *bytes = reinterpret_cast<const unsigned char *>(out.data());
            for (size_t i = size; i < out.size() * sizeof(Out); ++i)
                ASSERT_EQ(bytes[i], 0xA5u) << "written past the destination at " << i;
            ASSERT_TRUE(rc == 0 || rc == 0x18370u) << rc;
            ASSERT_LE(n, size);
            ASSERT_EQ(n % sizeof(Out), 0u);
            if (size >= sizeof(Out)) {
                ASSERT_EQ(out[n / sizeof(Out)], Out{0}) << "terminated inside the destination";
            }
            collected.append(out.data(), n / sizeof(Out));
            if (rc == 0)
                break;
            if (end == at && n == 0) {
                ASSERT_LT(size, minimum) << "no progress with room for a character";
                break;
            }
            at = end;
        }
        if (size >= minimum) {
            EXPECT_EQ(collected, whole);
        }
    }
}

TEST_F(Unicode, EveryDestinationSizeLosesNothing)
{
    const Mappings mbcsMap = {{{0x41}, 0x41}, {{0x82, 0xA0}, 0x3000}, {{0x8F, 0xA2, 0xAF}, 0x2D8}};
    Converter utf8(UNICODE_TYPE_UTF8), latin1(UNICODE_TYPE_BUILTIN), mbcs(UNICODE_TYPE_MBCS);
    addMappings(mbcs, mbcsMap);
    // From Unicode through the operations themselves: the framework's call
    // hides the full-destination status.
    RawState latinState(UNICODE_NewConverter_builtin(3, 0), UNICODE_DestroyConverter_8bit);
    RawState mbcsState(UNICODE_NewConverter_mbcs(2, 0), UNICODE_DestroyConverter_mbcs, UNICODE_AddMapping_mbcs,
                       mbcsMap);
    // The minimum sizes: bytes for the largest step plus the terminator.
    struct Case {
        UNICODE_CONVERTER *c; std::string text; size_t minimum;
        void *state; UNICODE_FROMUNICODE_PROC from; U16String chars; size_t minimumFrom;
    } cases[] = {
        {utf8, "a\xC3\xA9\xE2\x82\xAC" "bcdefghijklmnopqrstuvwxyz0123456789\xE3\x81\x82z", 4, nullptr,
         UNICODE_ConvertFromUnicode_utf8, u"a\xE9\x20AC" "bcdefghij\x3042z", 4},
        {latin1, "caf\xE9 na\xEFve abcdefghijklmnopqrstuvwxyz", 4, latinState.s, UNICODE_ConvertFromUnicode_8bit,
         u"caf\xE9 na\xEFve\x20AC" "abcdefghijkl", 2},
        {mbcs, "A\x82\xA0\x8F\xA2\xAF\x82\x41\x41\x8F\xA2\x41" "AAAAAAAAAA\x82\xA0", 6, mbcsState.s,
         UNICODE_ConvertFromUnicode_mbcs, u"A\x3000\x20AC" "AAAAAAAAA\x3000\x2D8", 4},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.text);
        everySize(k.text, toUnicode(k.c, k.text), k.minimum,
                  [&](const char *at, char16_t *out, U32 *n, const char **end) {
                      return UNICODE_ConvertToUnicode(k.c, at, reinterpret_cast<UNICODE_CHAR *>(out), n, end, 0);
                  });
        everySize(k.chars, fromUnicode(k.c, k.chars), k.minimumFrom,
                  [&](const char16_t *at, char *out, U32 *n, const char16_t **end) {
                      return k.from(k.state, reinterpret_cast<const UNICODE_CHAR *>(at), out, n,
                                    reinterpret_cast<const UNICODE_CHAR **>(end), 0);
                  });
    }
}

// ---- map files ---------------------------------------------------------------------

TEST_F(Unicode, MapFileLines)
{
    rqtest::TempDir dir;
    const std::string path = dir.file("TEST.MAP");
    std::string thirtyOne = "41";
    for (int i = 1; i < 31; ++i)
        thirtyOne += "+41";
    // The line rules: "%X" numbers joined by "+", junk bytes skipped without
    // ending a number, "#" ending the line, at most 31 numbers a side, the
    // rest of a line beyond 1023 characters passed over.  Type 2 is the
    // multibyte converter: at most eight bytes, each at most FF.
    // `expected`: "ABC" converted after a load with status 0.
    struct Case { U32 type; std::string text; U32 status; U16String expected; } cases[] = {
        {1, "# x\n\n  0x41 U+00C4\r\n\t0x42 0x0042 # c\n43 0043 LATIN C\n", 0, u"\xC4" "BC"},
        {1, "4z1 0G0H4H1\n", 0, u"A\xFFFD\xFFFD"},
        {1, "41 " + thirtyOne + "\n", 0, u"A\xFFFD\xFFFD"},
        {1, "41 " + thirtyOne + "+41\n", 0x18361, u""},
        {1, thirtyOne + "+41 0041\n", 0x18361, u""},
        {1, "41\n", 0x18361, u""},
        {1, "41 # 0041\n", 0x18361, u""},
        {1, "41# 0041\n", 0x18361, u""},
        {1, "41 xyz\n", 0x18361, u""},
        {1, "41+ 0041\n", 0x18361, u""},
        {1, "41 100000000\n", 0x18361, u""},
        {1, "100 0041\n", 0x18360, u""},
        {1, "41 0041 # " + std::string(2000, 'x') + " 42 0043\n42 0042\n", 0, u"AB\xFFFD"},
        {2, "1+2+3+4+5+6+7+8 4E00\n43 0043\n", 0, u"\xFFFD\xFFFD" "C"},
        {2, "1+2+3+4+5+6+7+8+9 4E00\n", 0x183FD, u""},
        {2, "81+140 3000\n", 0x183FC, u""},
        {2, "0 3000\n", 0x183FA, u""},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.text.substr(0, 40));
        writeFile(path, k.text);
        Converter c(k.type);
        EXPECT_EQ(UNICODE_LoadConverter(c, path.c_str()), k.status);
        if (k.status == 0) {
            EXPECT_EQ(toUnicode(c, "ABC"), k.expected);
        }
    }
    // The second reader skips what the first refuses.
    writeFile(path, "41 0041\n41\n100 0042\n42 xyz\n43 0043\n");
    Converter tolerant(UNICODE_TYPE_8BIT);
    EXPECT_EQ(UNICODE_LoadConverter2(tolerant, path.c_str()), 0u);
    EXPECT_EQ(toUnicode(tolerant, "ABC"), U16String(u"A\xFFFD" "C"));
    EXPECT_EQ(UNICODE_LoadConverter(tolerant, dir.file("MISSING.MAP").c_str()), 0x18342u);
    EXPECT_EQ(UNICODE_LoadConverter(tolerant, (dir.path() + "/no/such/dir/X.MAP").c_str()), 0x18342u);
    EXPECT_EQ(UNICODE_LoadConverter(nullptr, path.c_str()), 0x183FEu);
}

// ---- buffers and the automatic conversion ---------------------------------------------

U32 gFirstRoom = 0;

U32 spyFromUnicode(void *state, const UNICODE_CHAR *source, char *destination, U32 *size,
                   const UNICODE_CHAR **sourceEnd, U32 flags)
{
    gFirstRoom = gFirstRoom != 0 ? gFirstRoom : *size;
    return UNICODE_ConvertFromUnicode_utf8(state, source, destination, size, sourceEnd, flags);
}

TEST_F(Unicode, BufferConversions)
{
    rqtest::LeakCheck leaks;
    // The UTF-8 buffer starts at three bytes a character plus the NUL.
    ASSERT_EQ(UNICODE_RegisterConverterType(UNICODE_TYPE_UTF8, UNICODE_NewConverter_utf8, UNICODE_AddMapping_utf8,
                                            UNICODE_ConvertToUnicode_utf8, spyFromUnicode,
                                            UNICODE_DestroyConverter_utf8),
              0u);
    {
        Converter spy(UNICODE_TYPE_UTF8);
        EXPECT_EQ(fromUnicode(spy, u"0123456789"), "0123456789");
        EXPECT_EQ(gFirstRoom, 33u);
    }
    ASSERT_EQ(UNICODE_Initialize(0), 0u);
    // Growth: an 8-bit buffer starts at one byte a character and must grow
    // when decompositions take more.
    Converter c(UNICODE_TYPE_8BIT), utf8(UNICODE_TYPE_UTF8), latin1(UNICODE_TYPE_BUILTIN);
    addMappings(c, {{{0x65}, 0x65}, {{0x81}, 0x301}});
    EXPECT_EQ(fromUnicode(c, u"\xE9\xE9\xE9\xE9", 1), "e\x81" "e\x81" "e\x81" "e\x81");

    UNICODE_CHAR *out = nullptr;
    const char *end = nullptr, *text = "ok\xE2\x82";
    EXPECT_EQ(UNICODE_ConvertToUnicodeBufferExt(utf8, text, &out, &end, 0), 0u);
    EXPECT_EQ(u16(out), U16String(u"ok"));
    EXPECT_EQ(end, text + 2) << "the truncated tail is reported, not converted";
    EXPECT_EQ(UNICODE_BufferFree(reinterpret_cast<void **>(&out)), 0u);
    EXPECT_EQ(UNICODE_BufferFree(reinterpret_cast<void **>(&out)), 0x183FBu) << "the pointer was nulled";
    EXPECT_EQ(UNICODE_ConvertToUnicodeBuffer(utf8, "a\x80", &out, 0), 0x18393u);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(toUnicode(utf8, ""), U16String());
    end = text;
    EXPECT_EQ(UNICODE_ConvertToUnicode(nullptr, "a", out, nullptr, &end, 0), 0x183FEu);
    EXPECT_EQ(end, nullptr) << "a null converter nulls sourceEnd";

    // The automatic conversion: both ways, one way, or the source itself.
    char *bytes = nullptr;
    text = "caf\xC3\xA9 \xE2\x82\xAC";
    ASSERT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, text, latin1, &bytes, &end), 0u);
    EXPECT_STREQ(bytes, "caf\xE9 \x1A");
    EXPECT_EQ(end, text + std::strlen(text));
    UNICODE_BufferFree(reinterpret_cast<void **>(&bytes));
    ASSERT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, "ab", nullptr, &bytes, nullptr), 0u);
    EXPECT_EQ(u16(reinterpret_cast<UNICODE_CHAR *>(bytes)), U16String(u"ab"));
    UNICODE_BufferFree(reinterpret_cast<void **>(&bytes));
    ASSERT_EQ(UNICODE_FullyAutoConvert(0, 0, nullptr, reinterpret_cast<const char *>(uc(u"\xE9")), utf8, &bytes,
                                       nullptr),
              0u);
    EXPECT_STREQ(bytes, "\xC3\xA9");
    UNICODE_BufferFree(reinterpret_cast<void **>(&bytes));
    ASSERT_EQ(UNICODE_FullyAutoConvert(0, 0, nullptr, text, nullptr, &bytes, nullptr), 0u);
    EXPECT_EQ(bytes, text) << "not a copy";
    EXPECT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, text, latin1, nullptr, nullptr), 0u) << "no result wanted";
    EXPECT_EQ(UNICODE_FullyAutoConvert(1, 0, utf8, text, nullptr, &bytes, nullptr), 0x18390u);
    EXPECT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, "\xA9", latin1, &bytes, nullptr), 0x18393u);
}

TEST_F(Unicode, AutoConverterFromCharacterSetNames)
{
    rqtest::LeakCheck leaks;
    rqtest::TempDir dir;
    // Map files named as the character-set names derive them (ISO-8859-1 ->
    // ISO88591.MAP, Shift_JIS -> SHIFTJIS.MAP, T61 -> T61.MAP).
    writeFile(dir.file("ISO88591.MAP"), "41 0041\nE9 00E9\n");
    writeFile(dir.file("SHIFTJIS.MAP"), "41 0041\n82+A0 3042\n");
    writeFile(dir.file("T61.MAP"), "41 0041\n41+41+41+41+41+41+41+41+41 0042\n");
    ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);
    struct Case { const char *name; U32 status; std::string probe; U16String expected; } cases[] = {
        {"latin1", 0, "A\xE9\x80", u"A\xE9\xFFFD"},
        {"csShiftJIS", 0, "A\x82\xA0", u"A\x3042"},
        {"utf_8", 0, "\xE2\x82\xAC", u"\x20AC"},  // no map file needed
        {"klingon", 0x18391, "", u""},
        {"UNKNOWN", 0x18391, "", u""},            // the set known to be unknown
        {"latin2", 0x18342, "", u""},             // ISO88592.MAP is missing
        {"T61", 0x18360, "", u""},                // add-mapping's nine-byte refusal becomes 0x18360
        {"ISO-2022-JP", 0x18340, "", u""},        // its JIS X 0208 map is missing: create fails
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.name);
        UNICODE_CONVERTER *c = reinterpret_cast<UNICODE_CONVERTER *>(&c);
        ASSERT_EQ(UNICODE_AutoConverterCreate(0, &c, dir.path().c_str(), k.name), k.status);
        if (k.status != 0)
            continue;
        EXPECT_EQ(toUnicode(c, k.probe), k.expected);
        EXPECT_EQ(UNICODE_AutoConverterDestroy(0, &c), 0u);
        EXPECT_EQ(c, nullptr);
    }
    UNICODE_CONVERTER *c = nullptr;  // reserved must be 0
    EXPECT_EQ(UNICODE_AutoConverterCreate(1, &c, dir.path().c_str(), "latin1"), 0x18390u);
    EXPECT_EQ(UNICODE_AutoConverterCreate(0, &c, (dir.path() + "/missing").c_str(), "latin1"), 0x18342u)
        << "a missing map directory";
    EXPECT_EQ(UNICODE_AutoConverterDestroy(0, &c), 0x18360u) << "destroying nothing fails";
    rqtest::allocationSweep(
        [&dir] {
            UNICODE_CONVERTER *made = nullptr;
            U32 rc = UNICODE_AutoConverterCreate(0, &made, dir.path().c_str(), "csShiftJIS");
            if (rc == 0)
                UNICODE_AutoConverterDestroy(0, &made);
            return rc;
        },
        [](U32 status) { EXPECT_TRUE(status == 0x18340u || status == 0x18360u) << status; });
}

// ---- allocation failures ------------------------------------------------------------------

TEST_F(Unicode, AllocationFailureSweep)
{
    rqtest::TempDir dir;
    writeFile(dir.file("1"), "41 0041\n42 0042\nC9 00C9\n80 20AC\n");
    writeFile(dir.file("2"), "41 0041\n82+A0 3000\n8F+A2+AF 02D8\n82+A1 3001\n43 0043\n");
    // A failed shrink of a finished buffer keeps the larger block: success.
    auto shrinkMayFail = [](U32 status) { EXPECT_TRUE(status == 0x18340u || status == 0u) << status; };
    // Types 1 and 2 also load a map and convert both ways through it.
    for (U32 type : {1u, 2u, 3u, 6u}) {
        SCOPED_TRACE(type);
        const std::string path = dir.file(std::to_string(type));
        rqtest::allocationSweep(
            [type, &path] {
                UNICODE_CONVERTER *c = nullptr;
                U32 rc = UNICODE_NewConverter(&c, type, 0);
                if (rc != 0)
                    return rc;
                char *out = nullptr;
                if (type <= 2 && (rc = UNICODE_LoadConverter(c, path.c_str())) == 0 &&
                    (rc = UNICODE_FullyAutoConvert(0, 1, c, "AB\x82\xA0\xC9\x80", c, &out, nullptr)) == 0)
                    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
                UNICODE_DestroyConverter(c);
                return rc;
            },
            shrinkMayFail);
    }
    Converter latin1(UNICODE_TYPE_8BIT);
    addMappings(latin1, {{{0x65}, 0x65}, {{0x81}, 0x301}});
    rqtest::allocationSweep(
        [&latin1] {
            char *out = nullptr;
            U32 rc = UNICODE_ConvertFromUnicodeBuffer(latin1, uc(u"\xE9\xE9\xE9"), &out, 1);
            if (rc == 0) {
                EXPECT_STREQ(out, "e\x81" "e\x81" "e\x81");
                UNICODE_BufferFree(reinterpret_cast<void **>(&out));
            }
            return rc;
        },
        shrinkMayFail);
}

}  // namespace
