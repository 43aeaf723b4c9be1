// The ISO-2022-JP and ISO-2022-CN converters against Python's cjkencodings
// pairs and glibc iconv(3), bad input, and every output capacity.
#include "rqtest.h"

#include "rqcore/charmap.h"
#include "rqcore/unicode.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using U16String = std::u16string;

const std::string kMaps = std::string(RQ_DATA_DIR) + "/charmaps";
const std::string kCjk = "/usr/lib/python3.11/test/cjkencodings/";

using rqtest::fromUcs2;
using rqtest::Iconv;
using rqtest::toUcs2;

U16String utf8ToUcs2(const std::string &utf8) { return fromUcs2(*Iconv("UTF-8", "UTF-16LE")(utf8)); }

class Iso2022 : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(UNICODE_Initialize(0), 0u);
        for (auto [c, type] : {std::pair{&jp_, UNICODE_TYPE_ISO2022JP}, std::pair{&cn_, UNICODE_TYPE_ISO2022CN}})
            ASSERT_EQ(UNICODE_NewConverter(c, type, reinterpret_cast<uintptr_t>(kMaps.c_str())), 0u);
    }
    void TearDown() override { UNICODE_DestroyConverter(jp_), UNICODE_DestroyConverter(cn_); }
    UNICODE_CONVERTER *jp_ = nullptr;
    UNICODE_CONVERTER *cn_ = nullptr;
};

// Where two texts first differ, to name the character in a failure.
std::string firstDifference(const U16String &got, const U16String &expected)
{
    auto [g, e] = std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
    std::ostringstream out;
    out << "at " << g - got.begin() << std::hex << ": got " << (g != got.end() ? +*g : 0) << ", expected "
        << (e != expected.end() ? +*e : 0);
    return out.str();
}

// Whole-buffer conversions; the status comes back through rc.  The text is
// read from a block of its exact size, so that a read past its terminator
// shows under AddressSanitizer.
U16String decode(UNICODE_CONVERTER *c, const std::string &text, U32 *rc = nullptr, size_t *stop = nullptr)
{
    UNICODE_CHAR *out = nullptr;
    const char *end = nullptr;
    const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    U32 status = UNICODE_ConvertToUnicodeBufferExt(c, exact.data(), &out, &end, 0);
    if (rc != nullptr)
        *rc = status;
    if (status != 0)
        return U16String();
    U16String result = reinterpret_cast<const char16_t *>(out);
    if (stop != nullptr)
        *stop = static_cast<size_t>(end - exact.data());
    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
    return result;
}

std::string encode(UNICODE_CONVERTER *c, const U16String &text)
{
    char *out = nullptr;
    EXPECT_EQ(UNICODE_ConvertFromUnicodeBuffer(c, reinterpret_cast<const UNICODE_CHAR *>(text.c_str()), &out, 0), 0u);
    std::string result = out != nullptr ? out : "";
    UNICODE_BufferFree(reinterpret_cast<void **>(&out));
    return result;
}

// Every character of the maps, 40 to a line.
U16String mappedText(const std::vector<std::string> &maps)
{
    U16String text;
    std::string line, native, unicode;
    size_t n = 0;
    for (const std::string &map : maps) {
        std::ifstream in(kMaps + "/" + map);
        while (std::getline(in, line)) {
            std::istringstream fields(line.substr(0, line.find('#')));
            if (!(fields >> native >> unicode))
                continue;
            text.push_back(static_cast<char16_t>(std::stoul(unicode, nullptr, 16)));
            if (++n % 40 == 0)
                text.push_back(u'\n');
        }
    }
    return text;
}

TEST_F(Iso2022, PythonTestPairs)
{
    if (!std::filesystem::exists(kCjk + "iso2022_jp.txt"))
        GTEST_SKIP() << "libpython3.11-testsuite is not installed";
    const std::string jis = rqtest::readFile(kCjk + "iso2022_jp.txt");
    const U16String expected = utf8ToUcs2(rqtest::readFile(kCjk + "iso2022_jp-utf8.txt"));
    ASSERT_GT(expected.size(), 100u);
    EXPECT_EQ(decode(jp_, jis), expected);
    EXPECT_EQ(encode(jp_, expected), jis) << "the same escapes at the same places";

    // The Chinese pair carried into ISO-2022-CN by the system's iconv.
    const std::optional<std::string> cn = Iconv("GB2312", "ISO-2022-CN")(rqtest::readFile(kCjk + "gb2312.txt"));
    ASSERT_TRUE(cn.has_value());
    const U16String chinese = utf8ToUcs2(rqtest::readFile(kCjk + "gb2312-utf8.txt"));
    EXPECT_EQ(decode(cn_, *cn), chinese);
    EXPECT_EQ(encode(cn_, chinese), *cn);
}

TEST_F(Iso2022, EveryMappedCharacterAgainstIconv)
{
    struct Case { const char *iconvName; bool japanese; std::vector<std::string> maps; } cases[] = {
        {"ISO-2022-JP", true, {"JISC62261983.MAP"}},
        {"ISO-2022-CN", false, {"GB231280.MAP", "CNS11643P1.MAP", "CNS11643P2.MAP"}},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.iconvName);
        UNICODE_CONVERTER *c = k.japanese ? jp_ : cn_;
        const U16String text = u"ASCII \\~ " + mappedText(k.maps) + u"\n";
        ASSERT_GT(text.size(), 6000u);
        Iconv toIconv("UTF-16LE", k.iconvName), fromIconv(k.iconvName, "UTF-16LE");
        ASSERT_TRUE(toIconv.ok() && fromIconv.ok());
        // Ours read by iconv, iconv's read by us.
        const std::string ours = encode(c, text);
        const std::optional<std::string> back = fromIconv(ours);
        ASSERT_TRUE(back.has_value());
        EXPECT_TRUE(fromUcs2(*back) == text) << firstDifference(fromUcs2(*back), text);
        // glibc's ISO-2022-CN writer treats SS2 as a locking shift, so its
        // own reader does not give plane-2 runs back: a GB 2312 character
        // opening each line and after every character keeps SO in force.
        U16String given = k.japanese ? text : u"\x554A";
        for (char16_t ch : k.japanese ? U16String() : text)
            given.append(1, ch).append(1, u'\x554A');
        const std::optional<std::string> theirs = toIconv(toUcs2(given));
        ASSERT_TRUE(theirs.has_value());
        EXPECT_TRUE(decode(c, *theirs) == given) << firstDifference(decode(c, *theirs), given);
    }
    // JIS X 0201 Roman: read, and written for the two characters it alone has.
    EXPECT_EQ(decode(jp_, "\x1B(J\\~\x1B(B\\~"), u"\xA5\x203E\\~");
    EXPECT_EQ(encode(jp_, u"\xA5\x203E\\"), "\x1B(J\\~\x1B(B\\");
    EXPECT_EQ(fromUcs2(*Iconv("ISO-2022-JP", "UTF-16LE")("\x1B(J\\~\x1B(B")), u"\xA5\x203E");
    EXPECT_EQ(decode(jp_, "\x1B$@\x30\x21\x1B(B"), u"\x4E9C") << "JIS C 6226-1978 read as JIS X 0208";
}

TEST_F(Iso2022, BadInput)
{
    // stop: where conversion ends (status 0) or fails.
    struct Case { bool japanese; std::string text; U32 status; size_t stop; U16String expected; } cases[] = {
        {true, "a\x1B(Zb", 0x18393, 1, u""},                 // unknown escape
        {true, "a\x1B$(Db", 0x18393, 1, u""},                // JIS X 0212 is not part of the set
        {true, "a\x1B", 0, 1, u"a"},                         // escape cut after ESC
        {true, "a\x1B$", 0, 1, u"a"},                        // ... and after its second byte
        {true, "\x1B$B\x30", 0, 3, u""},                     // a two-byte character cut
        {false, "\x1B$)A\x0E\x30\x21\x30", 0, 7, u"\x554A"},  // ... in a run, no shift-in
        {true, "\x1B$B\x30\x0A", 0x18393, 3, u""},           // ... or broken
        {true, "\x1B$B\x22\x2F\x1B(B", 0, 8, u"\xFFFD"},     // a cell without a character
        {true, "\x1B$B\x30\x21\n", 0, 6, u"\x4E9C\n"},       // a line end in a two-byte mode stays itself
        {true, "a\xA4\xA2", 0x18393, 1, u""},                // 8-bit bytes
        {true, "a\x0E", 0x18393, 1, u""},                    // no shifts in ISO-2022-JP
        {false, "a\x0E\x30\x21", 0x18393, 1, u""},           // shift-out before any designation
        {false, "\x1B$)A\x0E\x30\x21\n\x0E\x30\x21", 0x18393, 8, u""},  // a line end forgets G1
        {false, "\x1BN\x21\x21", 0x18393, 0, u""},           // SS2 before G2 is designated
        {false, "\x1B$*H\x1BN\x21", 0, 4, u""},              // SS2 cut
        {false, "\x1B$)E\x0E", 0x18393, 0, u""},             // ISO-IR-165 is not part of the set
        {false, "\x1B$)", 0, 0, u""},                        // designation cut
        {false, "\x0F" "a", 0, 2, u"a"},                     // shift-in when not shifted
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(testing::PrintToString(k.text));
        UNICODE_CONVERTER *c = k.japanese ? jp_ : cn_;
        U32 rc = 0;
        size_t stop = 0;
        EXPECT_TRUE(decode(c, k.text, &rc, &stop) == k.expected);
        EXPECT_EQ(rc, k.status);
        // On failure the direct call says where, having converted what came before.
        UNICODE_CHAR out[32];
        U32 size = sizeof out;
        const char *end = k.text.c_str();
        if (rc != 0) {
            EXPECT_EQ(UNICODE_ConvertToUnicode(c, k.text.c_str(), out, &size, &end, 0), k.status);
        }
        EXPECT_EQ(rc == 0 ? stop : static_cast<size_t>(end - k.text.c_str()), k.stop);
        // A failure leaves no shift state behind for the next text.
        EXPECT_TRUE(decode(c, "\x30\x21") == u"\x30\x21");
    }
    // Characters without a mapping, and the shift controls, are written as SUB in ASCII.
    EXPECT_EQ(encode(jp_, u"\x4E9C\xAC00\x1B"), "\x1B$B\x30\x21\x1B(B\x1A\x1A");
    EXPECT_EQ(encode(cn_, u"\x554A\xAC00\x0E"), "\x1B$)A\x0E\x30\x21\x0F\x1A\x1A");
    // A line end shifts in and forgets the designations.
    EXPECT_EQ(encode(cn_, u"\x554A\n\x554A\x4E42"), "\x1B$)A\x0E\x30\x21\x0F\n\x1B$)A\x0E\x30\x21\x1B$*H\x1BN\x21\x21\x0F");
}

// Converts with the same capacity on every call, continuing from sourceEnd,
// into a destination guarded by bytes that must stay untouched.
TEST_F(Iso2022, EveryCapacityResumes)
{
    const U16String texts[] = {u"a\x4E9C" u"b\xA5\x203E\x4E9C\x4E9C\n\\~", u"\x554A\x4E42x\x4E42\x554A\n\x554A y \x4E00"};
    for (int variant = 0; variant < 2; ++variant) {
        UNICODE_CONVERTER *c = variant == 0 ? jp_ : cn_;
        const U16String &text = texts[variant];
        const std::string whole = encode(c, text);
        ASSERT_TRUE(decode(c, whole) == text);
        for (size_t capacity = 0; capacity <= whole.size() + 9; ++capacity) {
            SCOPED_TRACE(testing::Message() << variant << " capacity " << capacity);
            std::string pieces;  // from Unicode
            const UNICODE_CHAR *at = reinterpret_cast<const UNICODE_CHAR *>(text.c_str()), *end = nullptr;
            for (int calls = 0; calls < 200; ++calls, at = end) {
                std::string out(capacity + 16, '\xA5');
                U32 size = static_cast<U32>(capacity);
                ASSERT_EQ(UNICODE_ConvertFromUnicode(c, at, out.data(), &size, &end, 0), 0u);
                ASSERT_LE(size + (capacity != 0 ? 1 : 0), capacity);
                ASSERT_EQ(out.substr(capacity), std::string(16, '\xA5')) << "written past the end";
                ASSERT_TRUE(capacity == 0 || out[size] == '\0');
                pieces += out.substr(0, size);
                if ((*end == 0 && pieces.size() == whole.size()) || (size == 0 && end == at && capacity < 9))
                    break;  // done, or too small for the next character and what announces it
            }
            EXPECT_TRUE(capacity < 9 || pieces == whole) << "the pieces make up the whole";
            if (capacity % 2 != 0)
                continue;
            U16String chars;  // to Unicode
            const char *from = whole.c_str(), *stop = nullptr;
            for (int calls = 0; calls < 200; ++calls, from = stop) {
                std::vector<UNICODE_CHAR> out(capacity / 2 + 8, 0xA5A5);
                U32 size = static_cast<U32>(capacity);
                U32 rc = UNICODE_ConvertToUnicode(c, from, out.data(), &size, &stop, 0);
                ASSERT_TRUE(rc == 0 || rc == UNICODE_DESTINATION_FULL) << rc;
                ASSERT_EQ(std::count(out.begin() + capacity / 2, out.end(), 0xA5A5), 8) << "written past the end";
                chars.append(reinterpret_cast<const char16_t *>(out.data()), size / 2);
                if (rc == 0 || (stop == from && size == 0))
                    break;
            }
            EXPECT_TRUE(capacity < 4 || chars == text);
        }
    }
    // An unfinished encoding leaves no state for the next whole conversion.
    EXPECT_EQ(encode(jp_, u"a"), "a");
}

TEST_F(Iso2022, AutomaticConvertersAndConfiguration)
{
    rqtest::LeakCheck leaks;
    ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);
    for (const char *name : {"csISO2022JP", "ISO-2022-CN"}) {
        SCOPED_TRACE(name);
        UNICODE_CONVERTER *c = nullptr;
        ASSERT_EQ(UNICODE_AutoConverterCreate(0, &c, kMaps.c_str(), name), 0u);
        const U16String text = name[9] == 'J' ? u"\x65E5\x672C" : u"\x4E2D\x6587";
        EXPECT_TRUE(decode(c, encode(c, text)) == text);
        EXPECT_EQ(UNICODE_AutoConverterDestroy(0, &c), 0u);
    }
    // A site's configuration names them under its own aliases.
    rqtest::TempDir config;
    std::ofstream(config.file("charmap.config")) << "ISO-2022-JP 39 x-jis7 ISO2022JP -\n";
    ASSERT_EQ(CHARMAP_setConfigDirectory(config.path().c_str()), 0u);
    UNICODE_CONVERTER *c = nullptr;
    ASSERT_EQ(UNICODE_AutoConverterCreate(0, &c, kMaps.c_str(), "X-JIS7"), 0u);
    EXPECT_TRUE(decode(c, "\x1B$B\x46\x7C\x1B(B") == u"\x65E5");
    EXPECT_EQ(UNICODE_AutoConverterDestroy(0, &c), 0u);
    ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);

    // Out of memory while loading the maps fails cleanly.
    rqtest::allocationSweep(
        [] {
            UNICODE_CONVERTER *made = nullptr;
            U32 rc = UNICODE_NewConverter(&made, UNICODE_TYPE_ISO2022JP, reinterpret_cast<uintptr_t>(kMaps.c_str()));
            if (rc == 0)
                UNICODE_DestroyConverter(made);
            return rc;
        },
        0x18340u);
}

}  // namespace
