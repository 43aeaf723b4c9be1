// The converter framework and the 8-bit, built-in, UTF-8 and multibyte
// converters: registry rules, conversion contracts, map files, the kept
// oddities, every destination size and every failed allocation.
#include "rqtest.h"

#include "rqcore/charmap.h"
#include "rqcore/unicode.h"
#include "rqsis/rqsis_test.h"

#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using U16String = std::u16string;

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
    explicit Converter(U32 type, uintptr_t parameter = 0)
    {
        EXPECT_EQ(UNICODE_NewConverter(&c, type, parameter), 0u);
    }
    ~Converter()
    {
        if (c != nullptr)
            UNICODE_DestroyConverter(c);
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;
    operator UNICODE_CONVERTER *() const { return c; }
};

void writeFile(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

U32 addMapping(UNICODE_CONVERTER *c, std::vector<U32> native, std::vector<U32> unicode)
{
    native.push_back(0);
    unicode.push_back(0);
    return UNICODE_AddMapping(c, native.data(), unicode.data());
}

// Whole conversions through the buffer functions.
U16String toUnicode(UNICODE_CONVERTER *c, const std::string &text, U32 *status = nullptr)
{
    UNICODE_CHAR *out = nullptr;
    U32 rc = UNICODE_ConvertToUnicodeBuffer(c, text.c_str(), &out, 0);
    if (status != nullptr)
        *status = rc;
    U16String result = u16(out);
    if (out != nullptr)
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
    if (out != nullptr)
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

TEST_F(Unicode, RegistryBoundsAndDefaults)
{
    EXPECT_EQ(UNICODE_RegisterConverterTypeExt(128, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0), 0x18360u);
    EXPECT_EQ(UNICODE_RegisterConverterType(-1, nullptr, nullptr, nullptr, nullptr, nullptr), 0x18360u);
    EXPECT_EQ(UNICODE_ConverterDataGet(-1, nullptr, nullptr), 0x18360u);
    EXPECT_EQ(UNICODE_ConverterDataGet(128, nullptr, nullptr), 0x18360u);
    EXPECT_EQ(UNICODE_ConverterDataGet(127, nullptr, nullptr), 0u) << "either pointer may be null";

    // The ISO-2022 types carry the map-directory flag; the built-in type a
    // pointer to its set index (pointer-sized on every target).
    struct Case {
        int type;
        U32 flags;
        bool hasParameter;
    } cases[] = {{1, 0, false}, {2, 0, false}, {3, 0, true}, {6, 0, false}, {7, 1, false}, {8, 1, false}};
    for (const Case &k : cases) {
        SCOPED_TRACE(k.type);
        U32 flags = 99;
        uintptr_t parameter = 99;
        ASSERT_EQ(UNICODE_ConverterDataGet(k.type, &flags, &parameter), 0u);
        EXPECT_EQ(flags, k.flags);
        EXPECT_EQ(parameter != 0, k.hasParameter);
        if (k.hasParameter) {
            EXPECT_EQ(*reinterpret_cast<const U32 *>(parameter), 0u);
        }
    }
    EXPECT_EQ(UNICODE_InitUnicodeData(), 0u);
    EXPECT_EQ(UNICODE_UsesInternalData(), 1u);
    EXPECT_EQ(UNICODE_AutoConvert(), 0x18392u);
}

TEST_F(Unicode, NewConverterRefusals)
{
    rqtest::LeakCheck leaks;
    EXPECT_EQ(UNICODE_NewConverter(nullptr, 1, 0), 0x183FEu);
    // Free slots, the ISO-2022 slots without a create operation, and types
    // beyond the registry are all "unregistered"; *out is nulled first.
    for (U32 type : {0u, 4u, 5u, 7u, 8u, 127u, 128u, 4000u}) {
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
    EXPECT_EQ(UNICODE_AddMapping(nullptr, nullptr, nullptr), 0x183FEu);
}

TEST_F(Unicode, ClearAndReRegister)
{
    UNICODE__ClearConverters();
    UNICODE_CONVERTER *c = nullptr;
    EXPECT_EQ(UNICODE_NewConverter(&c, 1, 0), 0x18341u) << "cleared slots are free";
    // A custom type in a free slot, then overwritten by a second registration.
    ASSERT_EQ(UNICODE_RegisterConverterTypeExt(40, 5, UNICODE_NewConverter_utf8, nullptr, nullptr, nullptr,
                                               nullptr, 77),
              0u);
    ASSERT_EQ(UNICODE_RegisterConverterType(40, UNICODE_NewConverter_8bit, UNICODE_AddMapping_8bit,
                                            UNICODE_ConvertToUnicode_8bit, UNICODE_ConvertFromUnicode_8bit,
                                            UNICODE_DestroyConverter_8bit),
              0u);
    U32 flags = 9;
    uintptr_t parameter = 9;
    UNICODE_ConverterDataGet(40, &flags, &parameter);
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(parameter, 0u);
    Converter custom(40);
    EXPECT_EQ(toUnicode(custom, "ab"), U16String(2, u'\xFFFD')) << "an empty 8-bit table";
    // Initialising again clears and refills the registry.
    ASSERT_EQ(UNICODE_Initialize(0), 0u);
    EXPECT_EQ(UNICODE_NewConverter(&c, 40, 0), 0x18341u);
}

// ---- helpers ---------------------------------------------------------------

TEST(UnicodeHelpers, BestSplit)
{
    // Expected values worked out by hand from the rule "longest prefix that
    // fits with its terminator without cutting a character".
    struct Case {
        const char *text;
        int max;
        int expected;
    } cases[] = {
        {"abcdef", 3, 2},       {"abcdef", 10, 6},     {"abcdef", 7, 6},    {"abcdef", 6, 5},
        {"ab\xC3\xA9" "d", 4, 2}, {"ab\xC3\xA9" "d", 5, 4}, {"\xE2\x82\xAC", 3, 0}, {"\xE2\x82\xAC", 4, 3},
        {"", 1, 0},             {"abc", -1, 0},        {nullptr, 5, 0},     {"abc", 0, 0},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(std::string(k.text != nullptr ? k.text : "(null)") + " max " + std::to_string(k.max));
        EXPECT_EQ(UTF8_getBestSplit(k.text, k.max), k.expected);
    }
}

TEST(UnicodeHelpers, MaybeSwitchByteOrder)
{
    U16String swapped = u"\xFFFE\x4100\x4200";
    std::vector<UNICODE_CHAR> text(swapped.begin(), swapped.end());
    text.push_back(0);
    EXPECT_EQ(UNICODE_MaybeSwitchByteOrder(text.data()), 1);
    EXPECT_EQ(u16(text.data()), U16String(u"\xFEFF" u"AB"));
    EXPECT_EQ(UNICODE_MaybeSwitchByteOrder(text.data()), 0) << "a proper byte-order mark stays";
    EXPECT_EQ(u16(text.data()), U16String(u"\xFEFF" u"AB"));
    EXPECT_EQ(UNICODE_MaybeSwitchByteOrder(nullptr), 0);
}

TEST(UnicodeHelpers, DecompositionTable)
{
    // Values from the Unicode Character Database (UnicodeData.txt, field 5,
    // expanded) and the Hangul algorithm of chapter 3.12.
    struct Case {
        UNICODE_CHAR c;
        U16String expected;
    } cases[] = {
        {0x00E9, u"e\x0301"},        {0x1E69, u"s\x0323\x0307"}, {0x212B, u"A\x030A"},
        {0xAC00, u"\x1100\x1161"},   {0xAC01, u"\x1100\x1161\x11A8"}, {0xD7A3, u"\x1112\x1175\x11C2"},
        {0x0041, u""},               {0xFB01, u""} /* compatibility only */, {0x0301, u""},
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

struct Utf8Case {
    const char *input;
    U32 status;
    U16String output;
    size_t consumed;  // sourceEnd - input
};

TEST_F(Unicode, Utf8Decoding)
{
    // From the converter's rules: two- and three-byte forms, overlong forms
    // accepted, F0-FF standing for themselves, invalid bytes stopping.
    const Utf8Case cases[] = {
        {"\xC3\xA9", 0, u"\xE9", 2},
        {"\xE2\x82\xAC", 0, u"\x20AC", 3},
        {"a\xEF\xBF\xBD" "b", 0, u"a\xFFFD" "b", 5},
        {"\xA9", 0x18393, u"", 0},
        {"\xF0\x9F\x98\x80", 0x18393, u"\xF0", 1},
        {"\xFF" "A", 0, u"\xFF" "A", 2},
        {"\xC1\x81", 0, u"A", 2},                    // overlong
        {"\xE0\x80\xB1", 0, u"1", 3},                // overlong
        {"A\xE2\x82", 0, u"A", 1},                   // truncated at the end: left unconverted
        {"A\xC3", 0, u"A", 1},
        {"\xE2\xC3\xA9", 0x18393, u"", 0},           // a lead byte inside a character
        {"\xC3" "A", 0x18393, u"", 0},               // ASCII inside a character
        {"\xE2\x82\xE2\x82\xAC", 0x18393, u"", 0},
        {"abcdefghijklmnopqrstuvwxyz0123456789\xC3\xA9", 0, u"abcdefghijklmnopqrstuvwxyz0123456789\xE9", 38},
        {"abcdefghijklmnopqrstuvwxyz\x80", 0x18393, u"abcdefghijklmnopqrstuvwxyz", 26},
    };
    Converter utf8(UNICODE_TYPE_UTF8);
    for (const Utf8Case &k : cases) {
        SCOPED_TRACE(k.input);
        UNICODE_CHAR out[64];
        rqtest::fillJunk(out, sizeof out);
        U32 size = sizeof out;
        const char *end = nullptr;
        EXPECT_EQ(UNICODE_ConvertToUnicode(utf8, k.input, out, &size, &end, 0), k.status);
        EXPECT_EQ(u16(out), k.output);
        EXPECT_EQ(size, k.output.size() * 2);
        EXPECT_EQ(static_cast<size_t>(end - k.input), k.consumed);
    }
    UNICODE_CHAR out[4];
    U32 size = sizeof out;
    const char *end = nullptr;
    EXPECT_EQ(UNICODE_ConvertToUnicode_utf8(nullptr, "a", nullptr, &size, &end, 0), 0x183FBu)
        << "a null destination is not a scan request here";
    EXPECT_EQ(UNICODE_ConvertToUnicode_utf8(nullptr, nullptr, out, &size, &end, 0), 0x183FBu);
    U32 convertible = 7;
    EXPECT_EQ(UNICODE_ConvertibleSizeGet(utf8, "abc", &convertible), 0x183FBu);
    EXPECT_EQ(convertible, 0u);
}

TEST_F(Unicode, Utf8Encoding)
{
    struct Case {
        U16String input;
        U32 size;
        U32 status;
        std::string output;
        size_t consumed;
    } cases[] = {
        // From RFC 3629's table; surrogates are written one by one.
        {u"A\xE9\x20AC", 64, 0, "A\xC3\xA9\xE2\x82\xAC", 3},
        {u"\xD83D\xDE00", 64, 0, "\xED\xA0\xBD\xED\xB8\x80", 2},
        {u"\x20AC", 3, 0x18370, "", 0},  // the NUL needs the fourth byte
        {u"\x20AC", 4, 0, "\xE2\x82\xAC", 1},
        {u"ab\xE9", 4, 0x18370, "ab", 2},
        {u"ab\xE9", 5, 0, "ab\xC3\xA9", 3},
        {u"\x7F\x80\x7FF\x800\xFFFF", 64, 0, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", 5},
    };
    Converter utf8(UNICODE_TYPE_UTF8);
    for (const Case &k : cases) {
        SCOPED_TRACE(k.size);
        char out[64];
        rqtest::fillJunk(out, sizeof out);
        U32 size = k.size;
        const UNICODE_CHAR *end = nullptr;
        EXPECT_EQ(UNICODE_ConvertFromUnicode_utf8(nullptr, uc(k.input), out, &size, &end, 0), k.status);
        EXPECT_EQ(std::string(out), k.output);
        EXPECT_EQ(size, k.output.size());
        EXPECT_EQ(static_cast<size_t>(end - uc(k.input)), k.consumed);
        // The framework's call reports 0 whatever the operation returned.
        size = k.size;
        EXPECT_EQ(UNICODE_ConvertFromUnicode(utf8, uc(k.input), out, &size, &end, 0), 0u);
    }
    char out[8];
    U32 size = 0;
    const UNICODE_CHAR *end = nullptr;
    rqtest::fillJunk(out, sizeof out);
    EXPECT_EQ(UNICODE_ConvertFromUnicode_utf8(nullptr, uc(u"a"), out, &size, &end, 0), 0x18370u);
    EXPECT_EQ(static_cast<unsigned char>(out[0]), 0xA5u) << "size 0: not even the NUL is written";
}

TEST_F(Unicode, Utf8RandomRoundTrip)
{
    rqtest::LeakCheck leaks;
    Converter utf8(UNICODE_TYPE_UTF8);
    std::mt19937 random(20240601);
    for (int round = 0; round < 300; ++round) {
        // Characters from every encoded length, NUL excluded.
        U16String text;
        size_t length = random() % 200;
        for (size_t i = 0; i < length; ++i) {
            switch (random() % 4) {
            case 0: text.push_back(static_cast<char16_t>(1 + random() % 0x7F)); break;
            case 1: text.push_back(static_cast<char16_t>(0x80 + random() % 0x780)); break;
            default: text.push_back(static_cast<char16_t>(0x800 + random() % 0xF7FF)); break;
            }
        }
        U32 status = 1;
        std::string encoded = fromUnicode(utf8, text, 0, &status);
        ASSERT_EQ(status, 0u);
        ASSERT_EQ(toUnicode(utf8, encoded, &status), text);
        ASSERT_EQ(status, 0u);
        ASSERT_EQ(fromUnicode(utf8, toUnicode(utf8, encoded)), encoded) << "UTF-8 unchanged through Unicode";
    }
}

// ---- 8-bit and built-in --------------------------------------------------------

TEST_F(Unicode, EightBitWithoutMappings)
{
    rqtest::LeakCheck leaks;
    Converter empty(UNICODE_TYPE_8BIT);
    EXPECT_EQ(toUnicode(empty, "\x01\x41\xFF"), U16String(3, u'\xFFFD'));
    EXPECT_EQ(fromUnicode(empty, u"A\xE9\x20AC"), "\x1A\x1A\x1A");
}

TEST_F(Unicode, BuiltinIsLatin1BothWays)
{
    rqtest::LeakCheck leaks;
    Converter latin1(UNICODE_TYPE_BUILTIN);  // no parameter: set 0
    U32 set0 = 0;
    Converter explicit0(UNICODE_TYPE_BUILTIN, reinterpret_cast<uintptr_t>(&set0));
    std::string bytes;
    U16String chars;
    for (int b = 1; b < 256; ++b) {
        bytes.push_back(static_cast<char>(b));
        chars.push_back(static_cast<char16_t>(b));
    }
    EXPECT_EQ(toUnicode(latin1, bytes), chars);
    EXPECT_EQ(fromUnicode(explicit0, chars), bytes);
    EXPECT_EQ(fromUnicode(latin1, u"\x100\x20AC"), "\x1A\x1A");
}

TEST_F(Unicode, EightBitMappingsAndDecomposition)
{
    rqtest::LeakCheck leaks;
    Converter c(UNICODE_TYPE_8BIT);
    EXPECT_EQ(addMapping(c, {0x100}, {0x41}), 0x18360u);
    EXPECT_EQ(addMapping(c, {0x41}, {0x10000}), 0x18360u);
    EXPECT_EQ(UNICODE_AddMapping(c, nullptr, nullptr), 0x183FBu);
    ASSERT_EQ(addMapping(c, {0x65}, {0x65}), 0u);      // e
    ASSERT_EQ(addMapping(c, {0x81}, {0x0301}), 0u);    // combining acute
    ASSERT_EQ(addMapping(c, {0x82}, {0x00C5}), 0u);
    ASSERT_EQ(addMapping(c, {0x83}, {0x00C5}), 0u);    // a later mapping wins from Unicode
    ASSERT_EQ(addMapping(c, {0x1A}, {0x0041}), 0u);    // A maps to the SUB byte itself
    ASSERT_EQ(addMapping(c, {0x84}, {0x0100}), 0u);
    ASSERT_EQ(addMapping(c, {0x84}, {0x0101}), 0u);    // and to Unicode
    EXPECT_EQ(toUnicode(c, "\x82\x83\x84\x1A"), U16String(u"\xC5\xC5\x101" u"A"));
    EXPECT_EQ(fromUnicode(c, u"\xC5\x100\x101"), "\x83\x84\x84");

    struct Case {
        U16String input;
        U32 flags;
        std::string expected;
    } cases[] = {
        {u"\xE9", 0, "\x1A"},
        {u"\xE9", 1, "e\x81"},                // decomposed: both parts mapped
        {u"\x1E17", 1, "e\x1A\x81"},          // e + macron (unmapped) + acute
        {u"\x20AC", 1, "\x1A"},               // no decomposition
        {u"A", 1, "\x1A"},                    // mapped to SUB: indistinguishable, kept so
        {u"e\xE9" "e", 1, "ee\x81" "e"},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.expected);
        EXPECT_EQ(fromUnicode(c, k.input, k.flags), k.expected);
    }
    // A decomposition must fit with one byte to spare beyond its own length:
    // "e" + U+0301 (two bytes) for U+00E9 needs a size of 5.
    void *state = UNICODE_NewConverter_8bit(1, 0);
    ASSERT_NE(state, nullptr);
    const U32 e[] = {0x65, 0}, acute[] = {0x81, 0}, ue[] = {0x65, 0}, uacute[] = {0x301, 0};
    UNICODE_AddMapping_8bit(state, e, ue);
    UNICODE_AddMapping_8bit(state, acute, uacute);
    for (U32 size = 0; size <= 5; ++size) {
        SCOPED_TRACE(size);
        char out[8];
        rqtest::fillJunk(out, sizeof out);
        U32 n = size;
        const UNICODE_CHAR *end = nullptr;
        const U16String text = u"\xE9";
        U32 rc = UNICODE_ConvertFromUnicode_8bit(state, uc(text), out, &n, &end, 1);
        EXPECT_EQ(rc, size < 5 ? 0x18370u : 0u);
        EXPECT_EQ(n, size < 5 ? 0u : 2u);
        EXPECT_EQ(end, uc(text) + (size < 5 ? 0 : 1));
        if (size != 0) {
            EXPECT_EQ(std::string(out), size < 5 ? "" : "e\x81");
        }
    }
    UNICODE_DestroyConverter_8bit(state);
}

TEST_F(Unicode, EightBitAgreesWithAPlainModel)
{
    // A plain model of the 8-bit tables (256 characters one way, a map the
    // other) against the converter's grouped fast paths: random tables that
    // are near the identity, random texts at every alignment.
    rqtest::LeakCheck leaks;
    std::mt19937 random(99);
    for (int round = 0; round < 40; ++round) {
        Converter c(UNICODE_TYPE_8BIT);
        std::vector<UNICODE_CHAR> to(256, 0xFFFD);
        std::map<U32, unsigned char> from;
        int changes = static_cast<int>(random() % 4);
        for (U32 b = 1; b < 256; ++b) {
            U32 u = b;
            if (round % 3 != 0 && random() % 64 < static_cast<unsigned>(changes))
                u = 0x100 + random() % 0x300;  // a few bytes mapped elsewhere
            ASSERT_EQ(addMapping(c, {b}, {u}), 0u);
            to[b] = static_cast<UNICODE_CHAR>(u);
            from[u] = static_cast<unsigned char>(b);
        }
        if (round % 5 == 1) {  // break the identity, then restore it
            ASSERT_EQ(addMapping(c, {0x41}, {0x42}), 0u);
            ASSERT_EQ(addMapping(c, {0x41}, {0x41}), 0u);
            ASSERT_EQ(addMapping(c, {0x42}, {0x42}), 0u);
            from[0x41] = 0x41;
            from[0x42] = 0x42;
            to[0x41] = 0x41;
            to[0x42] = 0x42;
        }
        for (int t = 0; t < 20; ++t) {
            std::string bytes;
            size_t length = random() % 100;
            for (size_t i = 0; i < length; ++i)
                bytes.push_back(static_cast<char>(random() % 3 == 0 ? 0x80 + random() % 0x80 : 0x20 + random() % 0x60));
            std::string padded = std::string(random() % 16, 'x') + bytes;  // every alignment
            U16String expected;
            for (unsigned char b : padded)
                expected.push_back(static_cast<char16_t>(to[b]));
            ASSERT_EQ(toUnicode(c, padded), expected);
            U16String chars;
            for (size_t i = 0; i < length; ++i)
                chars.push_back(static_cast<char16_t>(random() % 4 == 0 ? random() % 0x400 + 1 : 0x20 + random() % 0x60));
            std::string back;
            for (char16_t ch : chars) {
                auto it = from.find(ch);
                back.push_back(it != from.end() ? static_cast<char>(it->second) : '\x1A');
            }
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
    EXPECT_EQ(UNICODE_AddMapping(c, nullptr, nullptr), 0x183FBu);
    EXPECT_EQ(addMapping(c, {1, 2, 3, 4, 5, 6, 7, 8}, {0x4E00}), 0u) << "eight bytes are allowed";
    EXPECT_EQ(addMapping(c, {0x81}, {0x1F600}), 0u) << "beyond U+FFFF: skipped";
    EXPECT_EQ(toUnicode(c, "\x81"), U16String(u"\xFFFD"));
    EXPECT_EQ(toUnicode(c, std::string("\x01\x02\x03\x04\x05\x06\x07\x08")), U16String(u"\x4E00"));
    EXPECT_EQ(fromUnicode(c, u"\x4E00"), "\x01\x02\x03\x04\x05\x06\x07\x08");
    EXPECT_EQ(UNICODE_DestroyConverter_mbcs(nullptr), 0x183FEu);
}

TEST_F(Unicode, MbcsDecodingRules)
{
    rqtest::LeakCheck leaks;
    struct Case {
        const char *name;
        std::vector<std::pair<std::vector<U32>, U32>> mappings;
        std::string input;
        U16String output;
        size_t consumed;
    } cases[] = {
        {"a sequence, then an unmapped single byte", {{{0x82, 0xA0}, 0x3000}}, "\x82\xA0\x41", u"\x3000\xFFFD", 3},
        {"a broken sequence: lead alone, trail dropped", {{{0x82, 0xA0}, 0x3000}, {{0x41}, 0x41}}, "\x82\x41",
         u"\xFFFD", 2},
        {"a broken sequence keeps the lead's own meaning", {{{0x82, 0xA0}, 0x3000}, {{0x82}, 0x2082}, {{0x41}, 0x41}},
         "\x82\x41\x41", u"\x2082" "A", 3},
        {"three bytes", {{{0x8F, 0xA2, 0xAF}, 0x02D8}, {{0x41}, 0x41}}, "A\x8F\xA2\xAF" "A", u"A\x2D8" "A", 5},
        {"three bytes broken at the third", {{{0x8F, 0xA2, 0xAF}, 0x02D8}}, "\x8F\xA2\x41", u"\xFFFD\xFFFD", 3},
        {"incomplete at the end: left unconverted", {{{0x82, 0xA0}, 0x3000}, {{0x41}, 0x41}}, "A\x82", u"A", 1},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.name);
        Converter c(UNICODE_TYPE_MBCS);
        for (const auto &[native, unicode] : k.mappings)
            ASSERT_EQ(addMapping(c, native, {unicode}), 0u);
        UNICODE_CHAR out[32];
        rqtest::fillJunk(out, sizeof out);
        U32 size = sizeof out;
        const char *end = nullptr;
        EXPECT_EQ(UNICODE_ConvertToUnicode(c, k.input.c_str(), out, &size, &end, 0), 0u);
        EXPECT_EQ(u16(out), k.output);
        EXPECT_EQ(size, k.output.size() * 2);
        EXPECT_EQ(static_cast<size_t>(end - k.input.c_str()), k.consumed);
        U32 convertible = 99;
        EXPECT_EQ(UNICODE_ConvertibleSizeGet(c, k.input.c_str(), &convertible), 0u);
        EXPECT_EQ(convertible, k.consumed) << "measuring stops where converting does";
    }
    Converter c(UNICODE_TYPE_MBCS);
    const char *end = nullptr;
    U32 size = 4;
    UNICODE_CHAR out[2];
    EXPECT_EQ(UNICODE_ConvertToUnicode_mbcs(nullptr, "a", out, &size, &end, 0), 0x183FEu);
    EXPECT_EQ(UNICODE_ConvertToUnicode(c, "a", out, nullptr, &end, 0), 0x183FBu);
    EXPECT_EQ(UNICODE_ConvertToUnicode(c, "a", out, &size, nullptr, 0), 0x183FBu);
}

TEST_F(Unicode, MbcsRowsWidenAndKeepEntries)
{
    rqtest::LeakCheck leaks;
    Converter c(UNICODE_TYPE_MBCS);
    ASSERT_EQ(addMapping(c, {0x41}, {0x0041}), 0u);
    ASSERT_EQ(addMapping(c, {0x81, 0x40}, {0x0042}), 0u);   // same row, wider
    ASSERT_EQ(addMapping(c, {0x43}, {0x0043}), 0u);         // one byte in a wide row
    ASSERT_EQ(addMapping(c, {0x90, 0x91, 0x92}, {0x3001}), 0u);
    ASSERT_EQ(addMapping(c, {0x44}, {0x3001}), 0u);         // later mapping wins from Unicode only
    EXPECT_EQ(fromUnicode(c, u"ABC\x3001"), "A\x81\x40" "C\x44");
    EXPECT_EQ(toUnicode(c, "\x90\x91\x92\x44"), U16String(u"\x3001\x3001"));
    EXPECT_EQ(fromUnicode(c, u"\x20AC\x00E9"), "\x1A\x1A") << "no row, and a never-mapped entry";
}

TEST_F(Unicode, MbcsDebugDumpListsBothTables)
{
    rqtest::LeakCheck leaks;
    void *state = UNICODE_NewConverter_mbcs(UNICODE_TYPE_MBCS, 0);
    const U32 native[] = {0x82, 0xA0, 0}, unicode[] = {0x3000, 0};
    ASSERT_EQ(UNICODE_AddMapping_mbcs(state, native, unicode), 0u);
    testing::internal::CaptureStdout();
    UNICODE_debug_dump_mbcs(state);
    UNICODE_DestroyConverter_mbcs(state);
    std::string dump = testing::internal::GetCapturedStdout();
    EXPECT_NE(dump.find("U+3000 -> 82 A0"), std::string::npos) << dump;
    EXPECT_NE(dump.find(" 82 A0 -> U+3000"), std::string::npos) << dump;
}

// ---- byte-level steps --------------------------------------------------------------

TEST_F(Unicode, ByteLevelSteps)
{
    rqtest::LeakCheck leaks;
    // The limit is the last writable position: at it a write succeeds,
    // past it the step reports a full destination and leaves the cursor.
    UNICODE_CHAR wide[3];
    rqtest::fillJunk(wide, sizeof wide);
    UNICODE_CHAR *cursor = wide;
    EXPECT_EQ(AppendUnicodeChar(&cursor, wide + 1, 0x41), 0u);
    EXPECT_EQ(AppendUnicodeChar(&cursor, wide + 1, 0x42), 0u);
    EXPECT_EQ(AppendUnicodeChar(&cursor, wide + 1, 0x43), 0x18370u);
    EXPECT_EQ(cursor, wide + 2);
    EXPECT_EQ(wide[1], 0x42);

    char bytes[4];
    rqtest::fillJunk(bytes, sizeof bytes);
    char *at = bytes;
    EXPECT_EQ(AppendToDest(&at, bytes + 2, "ab", 2), 0u);
    EXPECT_EQ(AppendToDest(&at, bytes + 2, "cd", 2), 0x18370u);
    EXPECT_EQ(at, bytes + 2) << "the cursor moves only on success";
    EXPECT_EQ(std::string(bytes, 3), "abc") << "the bytes before the limit stay written";

    void *eight = UNICODE_NewConverter_8bit(1, 0);
    const U32 n[] = {0xC9, 0}, u[] = {0xE9, 0};
    ASSERT_EQ(UNICODE_AddMapping_8bit(eight, n, u), 0u);
    char out = 1;
    EXPECT_EQ(UnicodeTo8Bits(eight, 0xE9, &out), 0u);
    EXPECT_EQ(static_cast<unsigned char>(out), 0xC9u);
    out = 0;
    EXPECT_EQ(UnicodeTo8Bits(eight, 0xE9, &out), 0u);
    EXPECT_EQ(out, 0) << "a zero byte asks without writing";
    EXPECT_EQ(UnicodeTo8Bits(eight, 0x20AC, &out), 0x18393u);
    UNICODE_DestroyConverter_8bit(eight);

    void *mbcs = UNICODE_NewConverter_mbcs(2, 0);
    const U32 n1[] = {0x82, 0xA0, 0}, u1[] = {0x3000, 0}, n2[] = {0x41, 0}, u2[] = {0x41, 0};
    ASSERT_EQ(UNICODE_AddMapping_mbcs(mbcs, n1, u1), 0u);
    ASSERT_EQ(UNICODE_AddMapping_mbcs(mbcs, n2, u2), 0u);
    struct Case {
        const char *input;
        U32 status;
        UNICODE_CHAR c;
        size_t consumed;
    } cases[] = {{"\x82\xA0z", 0, 0x3000, 2}, {"Az", 0, 0x41, 1}, {"\x82" "A", 0x18393, 0, 2}, {"\x82", 0x18393, 0, 1},
                 {"\x90", 0x18393, 0, 1}};
    for (const Case &k : cases) {
        SCOPED_TRACE(k.input);
        const char *p = k.input;
        UNICODE_CHAR c = 0;
        EXPECT_EQ(MBCSCharToUnicode(mbcs, &p, &c), k.status);
        EXPECT_EQ(static_cast<size_t>(p - k.input), k.consumed);
        if (k.status == 0) {
            EXPECT_EQ(c, k.c);
        }
    }
    char native[4];
    rqtest::fillJunk(native, sizeof native);
    at = native;
    EXPECT_EQ(UnicodeToMBCS(mbcs, 0x3000, &at, native + 4), 0u);
    EXPECT_EQ(UnicodeToMBCS(mbcs, 0x4E00, &at, native + 4), 0u) << "no row: SUB";
    EXPECT_EQ(UnicodeToMBCS(mbcs, 0x3000, &at, native + 4), 0x18360u) << "one byte left for two";
    EXPECT_EQ(std::string(native, 3), "\x82\xA0\x1A");
    UNICODE_DestroyConverter_mbcs(mbcs);
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
        for (int calls = 0;; ++calls) {
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
    Converter utf8(UNICODE_TYPE_UTF8), latin1(UNICODE_TYPE_BUILTIN), mbcs(UNICODE_TYPE_MBCS);
    ASSERT_EQ(addMapping(mbcs, {0x41}, {0x41}), 0u);
    ASSERT_EQ(addMapping(mbcs, {0x82, 0xA0}, {0x3000}), 0u);
    ASSERT_EQ(addMapping(mbcs, {0x8F, 0xA2, 0xAF}, {0x02D8}), 0u);

    const std::string utf8Text = "a\xC3\xA9\xE2\x82\xAC" "bcdefghijklmnopqrstuvwxyz0123456789\xE3\x81\x82z";
    const std::string latinText = "caf\xE9 na\xEFve abcdefghijklmnopqrstuvwxyz";
    const std::string mbcsText = "A\x82\xA0\x8F\xA2\xAF\x82\x41\x41\x8F\xA2\x41" "AAAAAAAAAA\x82\xA0";
    struct ToCase {
        const char *name;
        UNICODE_CONVERTER *c;
        std::string text;
        size_t minimum;  // bytes for the largest step plus the terminator
    } toCases[] = {{"utf-8", utf8, utf8Text, 4}, {"8-bit", latin1, latinText, 4}, {"mbcs", mbcs, mbcsText, 6}};
    for (const ToCase &k : toCases) {
        SCOPED_TRACE(k.name);
        std::u16string whole = toUnicode(k.c, k.text);
        ASSERT_FALSE(whole.empty());
        everySize(k.text, whole, k.minimum, [&](const char *at, char16_t *out, U32 *n, const char **end) {
            return UNICODE_ConvertToUnicode(k.c, at, reinterpret_cast<UNICODE_CHAR *>(out), n, end, 0);
        });
    }
    struct FromCase {
        const char *name;
        void *state;
        UNICODE_FROMUNICODE_PROC op;
        U16String text;
        size_t minimum;
    };
    void *latinState = UNICODE_NewConverter_builtin(3, 0);
    void *mbcsState = UNICODE_NewConverter_mbcs(2, 0);
    const U32 n1[] = {0x82, 0xA0, 0}, u1[] = {0x3000, 0}, n2[] = {0x41, 0}, u2[] = {0x41, 0};
    UNICODE_AddMapping_mbcs(mbcsState, n1, u1);
    UNICODE_AddMapping_mbcs(mbcsState, n2, u2);
    const FromCase fromCases[] = {
        {"utf-8", nullptr, UNICODE_ConvertFromUnicode_utf8, u"a\xE9\x20AC" "bcdefghij\x3042z", 4},
        {"8-bit", latinState, UNICODE_ConvertFromUnicode_8bit, u"caf\xE9 na\xEFve\x20AC" "abcdefghijkl", 2},
        {"mbcs", mbcsState, UNICODE_ConvertFromUnicode_mbcs, u"A\x3000\x20AC" "AAAAAAAAA\x3000", 3},
    };
    for (const FromCase &k : fromCases) {
        SCOPED_TRACE(k.name);
        std::string whole;
        {
            std::vector<char> out(256);
            U32 n = static_cast<U32>(out.size());
            const UNICODE_CHAR *end = nullptr;
            ASSERT_EQ(k.op(k.state, uc(k.text), out.data(), &n, &end, 0), 0u);
            whole.assign(out.data(), n);
        }
        everySize(k.text, whole, k.minimum, [&](const char16_t *at, char *out, U32 *n, const char16_t **end) {
            return k.op(k.state, reinterpret_cast<const UNICODE_CHAR *>(at), out, n,
                        reinterpret_cast<const UNICODE_CHAR **>(end), 0);
        });
    }
    UNICODE_DestroyConverter_8bit(latinState);
    UNICODE_DestroyConverter_mbcs(mbcsState);
}

// ---- map files ---------------------------------------------------------------------

TEST_F(Unicode, MapFileLines)
{
    rqtest::TempDir dir;
    const std::string path = dir.file("TEST.MAP");
    std::string thirtyOne = "41";
    for (int i = 1; i < 31; ++i)
        thirtyOne += "+41";
    const std::string thirtyTwo = thirtyOne + "+41";
    // The line rules: "%X" numbers joined by "+", junk bytes skipped without
    // ending a number, "#" ending the line, at most 31 numbers a side.
    struct Case {
        const char *name;
        std::string text;
        U32 status;
        std::string probe;       // bytes converted after loading (status 0)
        U16String expected;
    } cases[] = {
        {"plain", "41 0041\n42\t0042\n", 0, "AB", u"AB"},
        {"prefixes", "0x41 U+00C4\n  0x42 0x0042 # comment\n", 0, "AB", u"\xC4" "B"},
        {"comments and blanks", "# header\n\n   \n\t# indented\n43 0043 LATIN C\n", 0, "C", u"C"},
        {"junk inside a number", "4z1 0G0H4H1\n", 0, "A", u"A"},
        {"31 numbers", "41 " + thirtyOne + "\n", 0, "A", u"A"},
        {"32 numbers", "41 " + thirtyTwo + "\n", 0x18361, "", u""},
        {"32 native numbers", thirtyTwo + " 0041\n", 0x18361, "", u""},
        {"no second side", "41\n", 0x18361, "", u""},
        {"no second side before a comment", "41 # 0041\n", 0x18361, "", u""},
        {"comment glued to the first side", "41# 0041\n", 0x18361, "", u""},
        {"second side without a number", "41 xyz\n", 0x18361, "", u""},
        {"dangling plus", "41+ 0041\n", 0x18361, "", u""},
        {"number too large", "41 100000000\n", 0x18361, "", u""},
        {"out of range for 8-bit", "100 0041\n", 0x18360, "", u""},
        {"CR LF lines", "41 0041\r\n42 0042\r\n", 0, "AB", u"AB"},
        {"a line beyond 1023 characters", "41 0041 # " + std::string(2000, 'x') + " 42 0043\n42 0042\n", 0, "AB", u"AB"},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.name);
        writeFile(path, k.text);
        Converter c(UNICODE_TYPE_8BIT);
        EXPECT_EQ(UNICODE_LoadConverter(c, path.c_str()), k.status);
        if (k.status == 0) {
            EXPECT_EQ(toUnicode(c, k.probe), k.expected);
        }
    }
    Converter c(UNICODE_TYPE_8BIT);
    EXPECT_EQ(UNICODE_LoadConverter(c, dir.file("MISSING.MAP").c_str()), 0x18342u);
    EXPECT_EQ(UNICODE_LoadConverter(c, (dir.path() + "/no/such/dir/X.MAP").c_str()), 0x18342u);
    EXPECT_EQ(UNICODE_LoadConverter(c, nullptr), 0x183FBu);
    EXPECT_EQ(UNICODE_LoadConverter(nullptr, path.c_str()), 0x183FEu);

    // The second reader skips what the first refuses.
    writeFile(path, "41 0041\n41\n100 0042\n42 xyz\n43 0043\n");
    Converter tolerant(UNICODE_TYPE_8BIT), strict(UNICODE_TYPE_8BIT);
    EXPECT_EQ(UNICODE_LoadConverter2(tolerant, path.c_str()), 0u);
    EXPECT_EQ(toUnicode(tolerant, "ABC"), U16String(u"A\xFFFD" "C"));
    EXPECT_EQ(UNICODE_LoadConverter(strict, path.c_str()), 0x18361u);
    EXPECT_EQ(UNICODE_LoadConverter2(nullptr, path.c_str()), 0x183FEu);

    // Multibyte maps: nine bytes and byte values above 255 are refused.
    struct MbcsCase {
        std::string text;
        U32 status;
    } mbcsCases[] = {
        {"81+40 3000\n", 0}, {"1+2+3+4+5+6+7+8 4E00\n", 0}, {"1+2+3+4+5+6+7+8+9 4E00\n", 0x183FD},
        {"81+140 3000\n", 0x183FC}, {"0 3000\n", 0x183FA},
    };
    for (const MbcsCase &k : mbcsCases) {
        SCOPED_TRACE(k.text);
        writeFile(path, k.text);
        Converter m(UNICODE_TYPE_MBCS);
        EXPECT_EQ(UNICODE_LoadConverter(m, path.c_str()), k.status);
    }
}

// ---- buffers and the automatic conversion ---------------------------------------------

U32 gFirstRoom = 0;

U32 spyFromUnicode(void *state, const UNICODE_CHAR *source, char *destination, U32 *size,
                   const UNICODE_CHAR **sourceEnd, U32 flags)
{
    if (gFirstRoom == 0)
        gFirstRoom = *size;
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
        gFirstRoom = 0;
        EXPECT_EQ(fromUnicode(spy, u"0123456789"), "0123456789");
        EXPECT_EQ(gFirstRoom, 33u);
    }
    ASSERT_EQ(UNICODE_Initialize(0), 0u);

    // Growth: an 8-bit buffer starts at one byte a character and must grow
    // when decompositions take more.
    Converter c(UNICODE_TYPE_8BIT);
    ASSERT_EQ(addMapping(c, {0x65}, {0x65}), 0u);
    ASSERT_EQ(addMapping(c, {0x81}, {0x301}), 0u);
    EXPECT_EQ(fromUnicode(c, u"\xE9", 1), "e\x81");
    EXPECT_EQ(fromUnicode(c, u"\xE9\xE9\xE9\xE9", 1), "e\x81" "e\x81" "e\x81" "e\x81");

    Converter utf8(UNICODE_TYPE_UTF8);
    UNICODE_CHAR *out = nullptr;
    const char *end = nullptr;
    const char *text = "ok\xE2\x82";
    EXPECT_EQ(UNICODE_ConvertToUnicodeBufferExt(utf8, text, &out, &end, 0), 0u);
    EXPECT_EQ(u16(out), U16String(u"ok"));
    EXPECT_EQ(end, text + 2) << "the truncated tail is reported, not converted";
    EXPECT_EQ(UNICODE_BufferFree(reinterpret_cast<void **>(&out)), 0u);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(UNICODE_BufferFree(reinterpret_cast<void **>(&out)), 0x183FBu);
    EXPECT_EQ(UNICODE_BufferFree(nullptr), 0x183FBu);
    EXPECT_EQ(UNICODE_ConvertToUnicodeBuffer(utf8, "a\x80", &out, 0), 0x18393u);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(UNICODE_ConvertToUnicodeBuffer(nullptr, "a", &out, 0), 0x183FEu);
    EXPECT_EQ(UNICODE_ConvertToUnicodeBuffer(utf8, nullptr, &out, 0), 0x183FBu);
    char *bytes = nullptr;
    EXPECT_EQ(UNICODE_ConvertFromUnicodeBuffer(nullptr, uc(u"a"), &bytes, 0), 0x183FEu);
    EXPECT_EQ(UNICODE_ConvertFromUnicodeBuffer(utf8, nullptr, &bytes, 0), 0x183FBu);
    EXPECT_EQ(toUnicode(utf8, ""), U16String());

    // The forwarding calls: a null converter.
    UNICODE_CHAR small[4];
    U32 size = sizeof small;
    end = text;
    EXPECT_EQ(UNICODE_ConvertToUnicode(nullptr, "a", small, &size, &end, 0), 0x183FEu);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(UNICODE_ConvertFromUnicode(nullptr, uc(u"a"), bytes, &size, nullptr, 0), 0x183FEu);
    EXPECT_EQ(UNICODE_ConvertibleSizeGet(nullptr, "a", &size), 0x183FEu);
    EXPECT_EQ(UNICODE_ConvertibleSizeGet(c, nullptr, &size), 0x183FBu);
    EXPECT_EQ(UNICODE_ConvertibleSizeGet(c, "abc", &size), 0u);
    EXPECT_EQ(size, 3u);
}

TEST_F(Unicode, FullyAutoConvert)
{
    rqtest::LeakCheck leaks;
    Converter utf8(UNICODE_TYPE_UTF8), latin1(UNICODE_TYPE_BUILTIN);
    char *out = nullptr;
    const char *end = nullptr;
    const char *text = "caf\xC3\xA9 \xE2\x82\xAC";
    ASSERT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, text, latin1, &out, &end), 0u);
    EXPECT_STREQ(out, "caf\xE9 \x1A");
    EXPECT_EQ(end, text + std::strlen(text));
    UNICODE_BufferFree(reinterpret_cast<void **>(&out));

    // To Unicode only: the result is the Unicode text.
    ASSERT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, "ab", nullptr, &out, nullptr), 0u);
    EXPECT_EQ(u16(reinterpret_cast<UNICODE_CHAR *>(out)), U16String(u"ab"));
    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
    // From Unicode only: the source is taken as Unicode text.
    ASSERT_EQ(UNICODE_FullyAutoConvert(0, 0, nullptr, reinterpret_cast<const char *>(uc(u"\xE9")), utf8, &out, nullptr),
              0u);
    EXPECT_STREQ(out, "\xC3\xA9");
    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
    // No converter at all: the source itself comes back, not a copy.
    ASSERT_EQ(UNICODE_FullyAutoConvert(0, 0, nullptr, text, nullptr, &out, nullptr), 0u);
    EXPECT_EQ(out, text);
    // No result wanted: nothing is left behind.
    EXPECT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, text, latin1, nullptr, nullptr), 0u);

    EXPECT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, nullptr, nullptr, &out, nullptr), 0x183FBu);
    EXPECT_EQ(UNICODE_FullyAutoConvert(1, 0, utf8, text, nullptr, &out, nullptr), 0x18390u);
    EXPECT_EQ(UNICODE_FullyAutoConvert(0, 0, utf8, "\xA9", latin1, &out, nullptr), 0x18393u)
        << "invalid input passes through unchanged";
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
    struct Case {
        const char *name;
        U32 status;
        std::string probe;
        U16String expected;
    } cases[] = {
        {"latin1", 0, "A\xE9\x80", u"A\xE9\xFFFD"},
        {"csShiftJIS", 0, "A\x82\xA0", u"A\x3042"},
        {"utf_8", 0, "\xE2\x82\xAC", u"\x20AC"},            // no map file needed
        {"klingon", 0x18391, "", u""},
        {"UNKNOWN", 0x18391, "", u""},                      // the set known to be unknown
        {"latin2", 0x18342, "", u""},                       // ISO88592.MAP is missing
        {"T61", 0x183FD, "", u""},                          // add-mapping's own failure...
        {"ISO-2022-JP", 0x18360, "", u""},                  // registered without create
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.name);
        UNICODE_CONVERTER *c = reinterpret_cast<UNICODE_CONVERTER *>(&c);
        U32 rc = UNICODE_AutoConverterCreate(0, &c, dir.path().c_str(), k.name);
        // ...is not among the statuses handed back unchanged: it becomes 0x18360.
        EXPECT_EQ(rc, k.status == 0x183FDu ? 0x18360u : k.status);
        if (rc != 0)
            continue;
        EXPECT_EQ(toUnicode(c, k.probe), k.expected);
        EXPECT_EQ(UNICODE_AutoConverterDestroy(0, &c), 0u);
        EXPECT_EQ(c, nullptr);
    }
    UNICODE_CONVERTER *c = nullptr;
    EXPECT_EQ(UNICODE_AutoConverterCreate(1, &c, dir.path().c_str(), "latin1"), 0x18390u);
    EXPECT_EQ(UNICODE_AutoConverterCreate(0, nullptr, dir.path().c_str(), "latin1"), 0x183FBu);
    EXPECT_EQ(UNICODE_AutoConverterCreate(0, &c, nullptr, "latin1"), 0x183FBu);
    EXPECT_EQ(UNICODE_AutoConverterCreate(0, &c, dir.path().c_str(), nullptr), 0x183FBu);
    EXPECT_EQ(UNICODE_AutoConverterCreate(0, &c, (dir.path() + "/missing").c_str(), "latin1"), 0x18342u)
        << "a missing map directory";
    EXPECT_EQ(UNICODE_AutoConverterDestroy(0, nullptr), 0x183FBu);
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
    const std::string eightBit = dir.file("E.MAP"), multi = dir.file("M.MAP");
    writeFile(eightBit, "41 0041\n42 0042\nC9 00C9\n80 20AC\n");
    writeFile(multi, "41 0041\n82+A0 3000\n8F+A2+AF 02D8\n82+A1 3001\n43 0043\n");

    // A failed shrink of a finished buffer keeps the larger block: success.
    auto shrinkMayFail = [](U32 status) { EXPECT_TRUE(status == 0x18340u || status == 0u) << status; };
    for (U32 type : {1u, 2u, 3u, 6u}) {
        SCOPED_TRACE(type);
        rqtest::allocationSweep(
            [type] {
                UNICODE_CONVERTER *c = nullptr;
                U32 rc = UNICODE_NewConverter(&c, type, 0);
                if (rc == 0)
                    UNICODE_DestroyConverter(c);
                return rc;
            },
            0x18340u);
    }
    for (const auto &[type, path] : {std::pair{1u, eightBit}, std::pair{2u, multi}}) {
        SCOPED_TRACE(path);
        rqtest::allocationSweep(
            [type = type, path = path] {
                UNICODE_CONVERTER *c = nullptr;
                U32 rc = UNICODE_NewConverter(&c, type, 0);
                if (rc != 0)
                    return rc;
                rc = UNICODE_LoadConverter(c, path.c_str());
                char *out = nullptr;
                if (rc == 0)
                    rc = UNICODE_FullyAutoConvert(0, 1, c, "AB\x82\xA0\xC9\x80", c, &out, nullptr);
                if (rc == 0)
                    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
                UNICODE_DestroyConverter(c);
                return rc;
            },
            shrinkMayFail);
    }
    Converter latin1(UNICODE_TYPE_8BIT);
    ASSERT_EQ(addMapping(latin1, {0x65}, {0x65}), 0u);
    ASSERT_EQ(addMapping(latin1, {0x81}, {0x301}), 0u);
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
