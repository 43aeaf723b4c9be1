// Profile reading: the line syntax, the value forms, numbers and lists, the
// enumerating readers, the in-memory profile and the string parsers.
#include "rqtest.h"

#include "rqcore/lists.h"
#include "rqcore/log.h"
#include "rqcore/profiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

void writeFile(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::vector<std::string> strings(HLIST list, U32 size)
{
    std::vector<std::string> out;
    std::vector<char> id(size);
    for (U32 rc = DX_ListGetFirst(list, id.data(), nullptr); rc == 0; rc = DX_ListGetNext(list, id.data(), nullptr))
        out.emplace_back(id.data());
    return out;
}

template <typename T>
std::vector<T> values(HLIST list)
{
    std::vector<T> out;
    T v{};
    for (U32 rc = DX_ListGetFirst(list, &v, nullptr); rc == 0; rc = DX_ListGetNext(list, &v, nullptr))
        out.push_back(v);
    return out;
}

// ---- the parsers ----

TEST(Parsestring, Unsigned32)
{
    // Expected values worked out by hand from the reading rules: all-digit
    // text is decimal, anything else hexadecimal; blanks count as digits.
    struct Case {
        const char *in;
        U32 status;
        U32 value;
    } cases[] = {
        {"0x1F", 0, 31},        {"x1F", 0, 31},         {"1F", 0, 31},   {"001f", 0, 31},
        {"010", 0, 10},         {"ff", 0, 255},         {"  + 7", 0, 7}, {"4294967296", 0, 0},
        {"1 2", 0, 4294967238u},  // (1*10 + ' '-48)*10 + 2, kept as the product reads it
        {"-1", 0x1C401, 0},     {"", 0x1C402, 0},       {"  ", 0x1C402, 0}, {"0xZ", 0x1C402, 0},
        {"1.5", 0x1C402, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.in);
        U32 v = 0xA5A5A5A5;
        EXPECT_EQ(GetUnsigned32FromStr(c.in, &v), c.status);
        EXPECT_EQ(v, c.value);
    }
    EXPECT_EQ(GetUnsigned32FromStr("1", nullptr), 0x1C404u);
}

TEST(Parsestring, SixteenBitParsersDifferOnOverflow)
{
    U16 u = 1;
    EXPECT_EQ(GetUnsigned16FromStr("70000", &u), 0x1C403u);
    EXPECT_EQ(u, 65535);
    EXPECT_EQ(GetUnsigned16FromStr("65535", &u), 0u);
    EXPECT_EQ(u, 65535);
    S16 s = 1;
    EXPECT_EQ(GetSigned16FromStr("40000", &s), 0x1C403u);
    EXPECT_EQ(s, 0);
    EXPECT_EQ(GetSigned16FromStr("-32768", &s), 0u);
    EXPECT_EQ(s, -32768);
    EXPECT_EQ(GetSigned16FromStr("-32769", &s), 0x1C403u);
    S32 l = 0;
    EXPECT_EQ(GetSigned32FromStr("-+5", &l), 0u);
    EXPECT_EQ(l, -5);
    EXPECT_EQ(GetSigned32FromStr("--5", &l), 0x1C401u);
    EXPECT_EQ(GetSigned32FromStr("-0x10", &l), 0u);
    EXPECT_EQ(l, -16);
}

TEST(Parsestring, Times)
{
    struct Case {
        const char *in;
        U32 status;
        U32 minutes;  // 999 = left as it was
    } cases[] = {
        {"7h30", 0, 450},   {"9h", 0, 540},          {"9:xx", 0, 540},        {"23:59", 0, 1439},
        {" 7 : 30 ", 0, 450}, {"0H0", 0, 0},         {"24:00", 0x1C405, 999}, {"7:60", 0x1C405, 999},
        {"730", 0x1C405, 999}, {"xx:10", 0x1C405, 999}, {"24h", 0x1C405, 999},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.in);
        U32 m = 999;
        EXPECT_EQ(GetTimeFromStr(c.in, &m), c.status);
        EXPECT_EQ(m, c.minutes);
    }
    EXPECT_EQ(GetTimeFromStr("1:00", nullptr), 0x1C404u);
    rqtest::allocationSweep(
        [] {
            U32 m = 0;
            return GetTimeFromStr("7h30", &m);
        },
        0x1C406u);
}

TEST(Parsestring, HelpersAndMapping)
{
    char text[] = " \t a b \t ";
    EXPECT_STREQ(TrimStr(text), "a b");
    EXPECT_STREQ(SkipZeros("0012"), "12");
    EXPECT_TRUE(AllDigits("1 2\t3"));
    EXPECT_FALSE(AllDigits("12a"));
    EXPECT_TRUE(IsHexNum("00xFf"));
    EXPECT_FALSE(IsHexNum("0xx1"));
    const U32 map[][2] = {{0x1C401, 0x15204}, {0x1C402, 0x15205}, {0x1C403, 0x1C403}, {0x1C404, 0x15213},
                          {0x1C405, 0x1520B}, {0x1C406, 0x15218}, {0, 0},             {0x15203, 0x15203}};
    for (const auto &m : map)
        EXPECT_EQ(MapParsestringErrorToProfilError(m[0]), m[1]);
}

// ---- file syntax ----

class ProfileFile : public ::testing::Test {
protected:
    rqtest::TempDir dir;
    std::string path = dir.file("test.ini");
    std::string get(const char *section, const char *key, U32 *status, U32 len = 215)
    {
        std::vector<char> dst(len);
        rqtest::fillJunk(dst.data(), dst.size());
        *status = DX_GetProfileStr(path.c_str(), section, key, dst.data(), len, "DFLT");
        return std::string(dst.data());
    }
};

TEST_F(ProfileFile, HeadersKeysAndValues)
{
    std::string longValue(207, 'v');  // fills the first 214-character piece exactly
    writeFile(path, "top=0\n"
                    " [Indented]\nk=indented\n"
                    "[Mailer]\nPort=1\n"
                    "[ Mail ]  trailing text\n"
                    "#Port=2\n"
                    "PortNumber=3\n"
                    "Port X=4\n"
                    "  Port   = 10 # the port\n"
                    "Port=11\n"
                    "hash = a\\#b # note\n"
                    "quoted = \"a#b\" # note\n"
                    "escapes = \"line1\\nline2\\t\\\"q\\\\\"\n"
                    "inner = a\"b\n"
                    "open = \"abc\n"
                    "crlf = value\r\n"
                    "empty =\n"
                    "nul = ab" + std::string(1, '\0') + "cd\n"
                    "list = {a, b, # first\n"
                    "   c} # done\n"
                    "long = " + longValue + "x=after\n"
                    "[Next]\n"
                    "after = next\n"
                    "open = {never closed\n");
    // Expected values follow the reading rules: the first match wins, a
    // comment ends at '#', quotes keep '#', the line buffer holds 214.
    struct Case {
        const char *section;
        const char *key;
        U32 status;
        std::string value;
    } cases[] = {
        {"Mail", "Port", 0, "10"},
        {"Mail", "PortNumber", 0, "3"},
        {"Mailer", "Port", 0, "1"},
        {"Mail", "hash", 0, "a\\#b"},
        {"Mail", "quoted", 0, "a#b"},
        {"Mail", "escapes", 0, "line1\nline2\t\"q\\"},
        {"Mail", "inner", 0x15209, "DFLT"},
        {"Mail", "open", 0x15209, "DFLT"},
        {"Mail", "crlf", 0, "value"},
        {"Mail", "empty", 0, ""},
        {"Mail", "nul", 0, "ab"},
        {"Mail", "list", 0, "{a, b,c}"},
        {"Mail", "long", 0, std::string(214 - 7, 'v')},
        {"Mail", "x", 0, "after"},  // the rest of the long line reads as a line of its own
        {"Mail", "after", 0x15203, "DFLT"},
        {"Mail", "top", 0x15203, "DFLT"},
        {"Indented", "k", 0x15202, "DFLT"},
        {"Mai", "Port", 0x15202, "DFLT"},
        {"Next", "open", 0x1520B, "DFLT"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.section) + "/" + c.key);
        U32 status = 0;
        EXPECT_EQ(get(c.section, c.key, &status), c.value);
        EXPECT_EQ(status, c.status);
    }
    U32 status = 0;
    EXPECT_EQ(get("Mail", "quoted", &status, 3), "a#");
    EXPECT_EQ(status, 0u);
}

TEST_F(ProfileFile, ArgumentsAndUnreadableFiles)
{
    writeFile(path, "[S]\nk=v\n");
    char dst[16];
    rqtest::fillJunk(dst, sizeof dst);
    EXPECT_EQ(DX_GetProfileStr(nullptr, nullptr, "k", dst, sizeof dst, "D"), 0u);
    EXPECT_STREQ(dst, "D");
    EXPECT_EQ(DX_GetProfileStr(nullptr, "S", "k", dst, sizeof dst, "D"), 0x1520Du);
    EXPECT_EQ(DX_GetProfileStr(path.c_str(), nullptr, "k", dst, sizeof dst, "D"), 0x1520Eu);
    EXPECT_EQ(DX_GetProfileStr(path.c_str(), "S", nullptr, dst, sizeof dst, "D"), 0x15203u);
    EXPECT_EQ(DX_GetProfileStr(dir.file("missing").c_str(), "S", "k", dst, sizeof dst, "D"), 0x15201u);
    EXPECT_STREQ(dst, "D");
    EXPECT_EQ(DX_GetProfileStr(dir.path().c_str(), "S", "k", dst, sizeof dst, "D"), 0x15202u) << "a directory reads as empty";
    if (geteuid() != 0) {
        chmod(path.c_str(), 0);
        EXPECT_EQ(DX_GetProfileStr(path.c_str(), "S", "k", dst, sizeof dst, "D"), 0x15201u);
        chmod(path.c_str(), 0600);
    }
    std::string binary;
    for (int i = 0; i < 4096; ++i)
        binary += static_cast<char>((i * 7919) & 0xFF);
    writeFile(path, binary);
    U32 n = 7;
    EXPECT_EQ(DX_GetProfileU32(path.c_str(), "S", "k", &n, 42), 0x15202u);
    EXPECT_EQ(n, 42u);
    char version[8];
    EXPECT_EQ(DX_GetProfileVersion(version), 0u);
    EXPECT_STREQ(version, "A.01.02");
}

template <typename T>
class ProfileNumbers : public ProfileFile {};
using NumberTypes = ::testing::Types<U16, U32, S16, S32>;
TYPED_TEST_SUITE(ProfileNumbers, NumberTypes);

template <typename T>
U32 getNumber(const char *p, const char *s, const char *k, T *out, T d);
template <>
U32 getNumber(const char *p, const char *s, const char *k, U16 *out, U16 d) { return DX_GetProfileU16(p, s, k, out, d); }
template <>
U32 getNumber(const char *p, const char *s, const char *k, U32 *out, U32 d) { return DX_GetProfileU32(p, s, k, out, d); }
template <>
U32 getNumber(const char *p, const char *s, const char *k, S16 *out, S16 d) { return DX_GetProfileS16(p, s, k, out, d); }
template <>
U32 getNumber(const char *p, const char *s, const char *k, S32 *out, S32 d) { return DX_GetProfileS32(p, s, k, out, d); }

TYPED_TEST(ProfileNumbers, ReadsParsesAndFallsBack)
{
    using T = TypeParam;
    writeFile(this->path, "[N]\ndec=10\nhex=0x10\nff=ff\nneg=-1\nbig=70000\nempty=\nword=zz\n");
    constexpr bool isSigned = std::is_signed_v<T>;
    constexpr bool is16 = sizeof(T) == 2;
    const T d = 42;
    // Outcomes from the parsers' rules; 0x1C403 reaches the caller unmapped.
    struct Case {
        const char *key;
        U32 status;
        long long value;
    } cases[] = {
        {"dec", 0, 10},
        {"hex", 0, 16},
        {"ff", 0, 255},
        {"neg", isSigned ? 0u : 0x15204u, isSigned ? -1 : 42},
        {"big", is16 ? 0x1C403u : 0u, is16 ? 42 : 70000},
        {"empty", 0x15205, 42},
        {"word", 0x15205, 42},
        {"missing", 0x15203, 42},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key);
        T out = 7;
        EXPECT_EQ(getNumber<T>(this->path.c_str(), "N", c.key, &out, d), c.status);
        EXPECT_EQ(static_cast<long long>(out), c.value);
    }
    T out = 7;
    EXPECT_EQ(getNumber<T>(nullptr, nullptr, "dec", &out, d), 0u);
    EXPECT_EQ(out, d);
}

TEST_F(ProfileFile, Booleans)
{
    writeFile(path, "[B]\na=TRUE\nb=true\nc=FALSE\nd=false\ne=True\nf=1\n");
    struct Case {
        const char *key;
        U32 dflt;
        U32 status;
        U32 value;
    } cases[] = {{"a", 0, 0, 1},       {"b", 0, 0, 1},       {"c", 1, 0, 0},       {"d", 1, 0, 0},
                 {"e", 1, 0x15207, 1}, {"f", 0, 0x15207, 0}, {"x", 1, 0x15203, 1}, {"x", 0, 0x15203, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key);
        U32 out = 9;
        EXPECT_EQ(DX_GetProfileBool(path.c_str(), "B", c.key, &out, c.dflt), c.status);
        EXPECT_EQ(out, c.value);
    }
}

// ---- lists ----

TEST(ProfileLists, StringListsFromText)
{
    rqtest::LeakCheck leaks;
    struct Case {
        const char *text;
        U32 status;
        std::vector<std::string> elements;
    } cases[] = {
        {"{}", 0, {""}},
        {"{a,b,}", 0, {"a", "b", ""}},
        {"  { a , \"b,c\" , \"q\\\"\" ,d\t}  ", 0, {"a", "b,c", "q\"", "d"}},
        {"{a} x", 0x1520B, {}},
        {"a,b", 0x1520B, {}},
        {"", 0x1520B, {}},
        {"{a", 0x1520B, {}},
        {"{\"a}", 0x1520B, {}},
        {"{\"a\" b}", 0x1520B, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        HLIST list = 0xA5A5;
        U32 rc = DX_GetProfileStrListFromStr(c.text, &list, 0);
        EXPECT_EQ(rc, c.status);
        if (rc != 0) {
            EXPECT_EQ(list, 0xA5A5u) << "the output is left alone on failure";
            continue;
        }
        EXPECT_EQ(strings(list, PROFIL_ELEMENT_SIZE), c.elements);
        DX_ListDestroy(&list);
    }
    HLIST list = 0;
    std::string longElement = "{" + std::string(160, 'e') + "}";
    ASSERT_EQ(DX_GetProfileStrListFromStr(longElement.c_str(), &list, 0), 0u);
    EXPECT_EQ(strings(list, PROFIL_ELEMENT_SIZE), std::vector<std::string>{std::string(150, 'e')});
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileStrListFromStr("{c,a,b}", &list, 0x01), 0u);
    EXPECT_EQ(strings(list, PROFIL_ELEMENT_SIZE), (std::vector<std::string>{"a", "b", "c"})) << "sorted list";
    DX_ListDestroy(&list);
    EXPECT_EQ(DX_GetProfileStrListFromStr("{a,a}", &list, 0x04), 0x15001u) << "the list's duplicate refusal";
    EXPECT_EQ(DX_GetProfileStrListFromStr("{a}", nullptr, 0), 0u);
    char element[PROFIL_ELEMENT_SIZE];
    char *cursor = const_cast<char *>("{a}");
    U32 done = 0;
    EXPECT_EQ(DX_EnumProfileStr(element, &cursor, 3, &done), 0x1520Cu);
}

TEST(ProfileLists, NumberAndBoolLists)
{
    rqtest::LeakCheck leaks;
    HLIST list = 0;
    ASSERT_EQ(DX_GetProfileU32ListFromStr("{1, 0x10, ff}", &list, 0), 0u);
    EXPECT_EQ(values<U32>(list), (std::vector<U32>{1, 16, 255}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileU16ListFromStr("{1,65535}", &list, 0), 0u);
    EXPECT_EQ(values<U16>(list), (std::vector<U16>{1, 65535}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileS16ListFromStr("{-1,2}", &list, 0), 0u);
    EXPECT_EQ(values<S16>(list), (std::vector<S16>{-1, 2}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileS32ListFromStr("{-70000}", &list, 0), 0u);
    EXPECT_EQ(values<S32>(list), (std::vector<S32>{-70000}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileBoolListFromStr("{TRUE,false}", &list, 0), 0u);
    EXPECT_EQ(values<U32>(list), (std::vector<U32>{1, 0}));
    DX_ListDestroy(&list);
    EXPECT_EQ(DX_GetProfileU32ListFromStr("{1,-2}", &list, 0), 0x15204u);
    EXPECT_EQ(DX_GetProfileU16ListFromStr("{70000}", &list, 0), 0x1C403u);
    EXPECT_EQ(DX_GetProfileBoolListFromStr("{yes}", &list, 0), 0x15207u);
    EXPECT_EQ(DX_GetProfileU32ListFromStr("{}", &list, 0), 0x15205u) << "the empty element is not a number";
}

TEST_F(ProfileFile, ListsFromFileAndKeywordList)
{
    rqtest::LeakCheck leaks;
    writeFile(path, "[L]\nnames = {alpha,\n  \"be ta\", # c\n  gamma}\nnums={1,2}\nbad=x\n");
    HLIST list = 0;
    ASSERT_EQ(DX_GetProfileStrList(path.c_str(), "L", "names", &list, 0), 0u);
    EXPECT_EQ(strings(list, PROFIL_ELEMENT_SIZE), (std::vector<std::string>{"alpha", "be ta", "gamma"}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileU32List(path.c_str(), "L", "nums", &list, 0), 0u);
    EXPECT_EQ(values<U32>(list), (std::vector<U32>{1, 2}));
    DX_ListDestroy(&list);
    EXPECT_EQ(DX_GetProfileStrList(path.c_str(), "L", "bad", &list, 0), 0x1520Bu);
    EXPECT_EQ(DX_GetProfileStrList(path.c_str(), "L", "none", &list, 0), 0x15203u);

    HLIST keywords = 0;
    ASSERT_EQ(DX_GetProfileSection(path.c_str(), "L", &keywords), 0u);
    ASSERT_EQ(DX_GetProfileS32ListFromList(keywords, "nums", &list, 0), 0u);
    EXPECT_EQ(values<S32>(list), (std::vector<S32>{1, 2}));
    DX_ListDestroy(&list);
    EXPECT_EQ(DX_GetProfileStrListFromList(keywords, "none", &list, 0), 0x15203u);
    EXPECT_EQ(DX_GetProfileStrListFromList(0, "nums", &list, 0), 0x15202u);
    DX_ListDestroy(&keywords);
}

// ---- enumerating readers ----

TEST_F(ProfileFile, SectionNamesAndDuplicates)
{
    ASSERT_EQ(DX_ErrLogInitializeTLS(), 0u);  // this thread's logging state outlives the test
    rqtest::LeakCheck leaks;
    writeFile(path, "[A]\nk=1\n[B]x\n[ Mail ]\n[123]\n[45x]\n  [C]\n");
    HLIST list = 0;
    ASSERT_EQ(DX_GetProfileSections(path.c_str(), &list), 0u);
    // DX_ListAddTo on an unsorted list adds at the front: newest first.
    EXPECT_EQ(strings(list, PROFIL_SECTION_NAME_SIZE), (std::vector<std::string>{"45x", "123", "", "B", "A"}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileNumericSections(path.c_str(), &list), 0u);
    EXPECT_EQ(strings(list, PROFIL_SECTION_NAME_SIZE), std::vector<std::string>{"123"});
    DX_ListDestroy(&list);
    U32 found = 9;
    EXPECT_EQ(DX_IsAProfileSection(path.c_str(), "Mail", &found), 0u);
    EXPECT_EQ(found, 1u);
    EXPECT_EQ(DX_IsAProfileSection(path.c_str(), "C", &found), 0u);
    EXPECT_EQ(found, 0u) << "a header must start in column 0";
    EXPECT_EQ(DX_IsAProfileSection(dir.file("none").c_str(), "A", &found), 0x15201u);

    // A duplicate is refused and logged as an error record.
    std::string log = dir.file("err.log");
    ASSERT_EQ(EnableLogging(nullptr), 0u);
    ASSERT_EQ(SetLog(2, 1, log.c_str()), 0u);
    writeFile(path, "[A]\n[B]\n[A]\n");
    list = 0xA5A5;
    EXPECT_EQ(DX_GetProfileSections(path.c_str(), &list), 0x1520Fu);
    EXPECT_EQ(list, 0xA5A5u);
    writeFile(path, "[S]\nk=1\nk=2\n");
    EXPECT_EQ(DX_GetProfileSection(path.c_str(), "S", &list), 0x15210u);
    DisableLogging();
    std::string text = rqtest::readFile(log);
    EXPECT_NE(text.find("ERROR CODE    -> 0x1520F\nSection defined multiple times. Please correct ini file.\n"),
              std::string::npos) << text;
    EXPECT_NE(text.find("ERROR CODE    -> 0x15210\nKey defined multiple times. Please correct ini file.\n"),
              std::string::npos) << text;
}

TEST_F(ProfileFile, OneSectionsKeywords)
{
    rqtest::LeakCheck leaks;
    std::string key40(40, 'k');
    writeFile(path, "[S]\n# comment\n/ slash comment = x\nx\n=novalue\n  first = 1 # c\n" + key40 +
                        "=long\nq=\"a b\"\nb={1,\n2}\n[T]\nt=2\n[Empty]\n");
    HLIST keywords = 0;
    ASSERT_EQ(DX_GetProfileSection(path.c_str(), "S", &keywords), 0u);
    std::vector<std::pair<std::string, std::string>> got;
    char key[PROFIL_KEY_NAME_SIZE], value[PROFIL_VALUE_SIZE];
    for (U32 rc = DX_ListGetFirst(keywords, key, value); rc == 0; rc = DX_ListGetNext(keywords, key, value))
        got.emplace_back(key, value);
    // File order; "/" lines are comments; keys keep at most 31 characters.
    EXPECT_EQ(got, (std::vector<std::pair<std::string, std::string>>{
                       {"first", "1"}, {std::string(31, 'k'), "long"}, {"q", "a b"}, {"b", "{1,2}"}}));
    U16 u16 = 0;
    EXPECT_EQ(DX_GetProfileU16FromList(keywords, "first", &u16, 5), 0u);
    EXPECT_EQ(u16, 1);
    char dst[8];
    rqtest::fillJunk(dst, sizeof dst);
    EXPECT_EQ(DX_GetProfileStrFromList(keywords, "nope", dst, sizeof dst, "D"), 0x15203u);
    EXPECT_STREQ(dst, "D");
    DX_ListDestroy(&keywords);
    ASSERT_EQ(DX_GetProfileSection(path.c_str(), "Empty", &keywords), 0u);
    U32 n = 9;
    DX_ListGetElemNum(keywords, &n);
    EXPECT_EQ(n, 0u);
    DX_ListDestroy(&keywords);
    EXPECT_EQ(DX_GetProfileSection(path.c_str(), "Nope", &keywords), 0x15202u);
}

TEST_F(ProfileFile, KeywordListGettersKeepWhatTheParserStored)
{
    rqtest::LeakCheck leaks;
    writeFile(path, "[S]\nbig=70000\nneg=40000\nt=7:60\nok=7h30\nyes=TRUE\nword=zz\n");
    HLIST kw = 0;
    ASSERT_EQ(DX_GetProfileSection(path.c_str(), "S", &kw), 0u);
    U16 u16 = 1;
    EXPECT_EQ(DX_GetProfileU16FromList(kw, "big", &u16, 5), 0x1C403u);
    EXPECT_EQ(u16, 65535);
    S16 s16 = 1;
    EXPECT_EQ(DX_GetProfileS16FromList(kw, "neg", &s16, 5), 0x1C403u);
    EXPECT_EQ(s16, 0);
    U32 u32 = 1;
    EXPECT_EQ(DX_GetProfileU32FromList(kw, "word", &u32, 5), 0x15205u);
    EXPECT_EQ(u32, 0u);
    U32 t = 1;
    EXPECT_EQ(DX_GetProfileTimeFromList(kw, "t", &t, 99), 0x1520Bu);
    EXPECT_EQ(t, 99u) << "the time parser stores nothing";
    EXPECT_EQ(DX_GetProfileTimeFromList(kw, "ok", &t, 99), 0u);
    EXPECT_EQ(t, 450u);
    U32 b = 0;
    EXPECT_EQ(DX_GetProfileBoolFromList(kw, "yes", &b, 0), 0u);
    EXPECT_EQ(b, 1u);
    EXPECT_EQ(DX_GetProfileU32FromList(0, "big", &u32, 5), 0x15202u);
    EXPECT_EQ(u32, 5u);
    DX_ListDestroy(&kw);
}

int keepOnlyNumeric(const char *name) { return DX_ProfileConstraintNumeric(name); }

TEST_F(ProfileFile, SectionList)
{
    rqtest::LeakCheck leaks;
    writeFile(path, "# lead comment\n[10]\na=1\n[skip]\nbad=\"open\n[20]\nb=2\nc={x,\ny}\n");
    HLIST sections = 0;
    ASSERT_EQ(DX_GetProfileSectionList(path.c_str(), &sections, keepOnlyNumeric), 0u)
        << "a rejected section's lines are not parsed";
    std::vector<std::string> names;
    char name[PROFIL_SECTION_NAME_SIZE];
    HLIST inner = 0;
    std::vector<U32> counts;
    for (U32 rc = DX_ListGetFirst(sections, name, &inner); rc == 0; rc = DX_ListGetNext(sections, name, &inner)) {
        names.emplace_back(name);
        U32 n = 0;
        DX_ListGetElemNum(inner, &n);
        counts.push_back(n);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"10", "20"}));
    EXPECT_EQ(counts, (std::vector<U32>{1, 2}));
    EXPECT_EQ(DX_ProfileSectionListDestroy(&sections), 0u);
    EXPECT_EQ(sections, 0u);

    EXPECT_EQ(DX_GetProfileSectionList(path.c_str(), &sections, nullptr), 0x15209u);
    writeFile(path, "k=v\n[A]\n");
    EXPECT_EQ(DX_GetProfileSectionList(path.c_str(), &sections, nullptr), 0x1520Bu);
    writeFile(path, "[A]\na=1\n[A]\nb=2\n");
    EXPECT_EQ(DX_GetProfileSectionList(path.c_str(), &sections, nullptr), 0x1520Fu);
    EXPECT_EQ(DX_ProfileConstraintNumeric(""), 1);
    EXPECT_EQ(DX_ProfileConstraintNumeric(nullptr), 0);
    EXPECT_EQ(DX_ProfileConstraintNumeric("1a"), 0);
}

TEST_F(ProfileFile, DuplicatesFoundInLargeFiles)
{
    // Enough names to grow the duplicate index several times.
    ASSERT_EQ(DX_ErrLogInitializeTLS(), 0u);
    rqtest::LeakCheck leaks;
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += "[s" + std::to_string(i) + "]\nk=" + std::to_string(i) + "\n";
    writeFile(path, text);
    HLIST list = 0;
    ASSERT_EQ(DX_GetProfileSectionList(path.c_str(), &list, nullptr), 0u);
    U32 n = 0;
    DX_ListGetElemNum(list, &n);
    EXPECT_EQ(n, 300u);
    DX_ProfileSectionListDestroy(&list);
    writeFile(path, text + "[s299]\n");
    EXPECT_EQ(DX_GetProfileSectionList(path.c_str(), &list, nullptr), 0x1520Fu);
    EXPECT_EQ(DX_GetProfileSections(path.c_str(), &list), 0x1520Fu);
    text = "[big]\n";
    for (int i = 0; i < 300; ++i)
        text += "key" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    writeFile(path, text + "key150=again\n");
    EXPECT_EQ(DX_GetProfileSection(path.c_str(), "big", &list), 0x15210u);
    writeFile(path, text);
    ASSERT_EQ(DX_GetProfileSection(path.c_str(), "big", &list), 0u);
    DX_ListGetElemNum(list, &n);
    EXPECT_EQ(n, 300u);
    DX_ListDestroy(&list);
}

// ---- the in-memory profile ----

TEST_F(ProfileFile, InMemoryProfile)
{
    rqtest::LeakCheck leaks;
    std::string text = "  # comment\n\r\n[ Mail ]  \nport = 25 # smtp\nlist={a,\n b}\njunk line\n[Other]\nport=2\n";
    writeFile(path, text);
    DX_PROFILELIST *h = nullptr;
    ASSERT_EQ(DX_ProfileListOpen(&h, path.c_str()), 0u);
    U32 size = 0;
    std::memcpy(&size, h, 4);
    EXPECT_EQ(size, text.size());
    char dst[32];
    rqtest::fillJunk(dst, sizeof dst);
    EXPECT_EQ(DX_ProfileListGetStr(h, " Mail", "port", dst, sizeof dst, "D"), 0u) << "kept as \"[ Mail\"";
    EXPECT_STREQ(dst, "25");
    EXPECT_EQ(DX_ProfileListGetStr(h, "Mail", "port", dst, sizeof dst, "D"), 0x15202u);
    EXPECT_EQ(DX_ProfileListGetStr(h, " Mail", "list", dst, sizeof dst, "D"), 0u);
    EXPECT_STREQ(dst, "{a,b}");
    EXPECT_EQ(DX_ProfileListGetStr(h, " Mail", "none", dst, sizeof dst, "D"), 0x15203u);
    EXPECT_STREQ(dst, "D");
    EXPECT_EQ(DX_ProfileListGetStr(h, nullptr, "port", dst, sizeof dst, "D"), 0x1520Eu);
    U32 port = 0;
    EXPECT_EQ(DX_ProfileListGetU32(h, "Other", "port", &port, 0), 0u);
    EXPECT_EQ(port, 2u);

    std::vector<std::string> sections;
    U32 cursor = 0;
    while (DX_ProfileListGetSection(h, &cursor, dst, sizeof dst) == 0)
        sections.emplace_back(dst);
    EXPECT_EQ(sections, (std::vector<std::string>{" Mail", "Other"}));
    EXPECT_EQ(DX_ProfileListGetSection(h, &cursor, dst, sizeof dst), 0x15020u);

    std::vector<std::string> pairs;
    char key[16], value[16];
    cursor = 0;
    U32 rc;
    while ((rc = DX_ProfileListGetKeyword(h, &cursor, " Mail", key, sizeof key, value, sizeof value)) == 0)
        pairs.push_back(std::string(key) + "|" + value);
    EXPECT_EQ(rc, 0x15020u);
    EXPECT_EQ(pairs, (std::vector<std::string>{"port|25", "list|{a,b}"}));
    U32 found = 0;
    EXPECT_EQ(DX_IsAProfileListSection(h, "Other", &found), 0u);
    EXPECT_EQ(found, 1u);
    EXPECT_EQ(DX_ProfileListClose(&h), 0u);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(DX_ProfileListOpen(&h, dir.file("none").c_str()), 0x15201u);
    writeFile(path, "");
    ASSERT_EQ(DX_ProfileListOpen(&h, path.c_str()), 0u);
    EXPECT_EQ(DX_ProfileListGetStr(h, "A", "b", dst, sizeof dst, "D"), 0x15202u);
    DX_ProfileListClose(&h);
}

// ---- out of memory ----

TEST_F(ProfileFile, AllocationFailureSweeps)
{
    writeFile(path, "[A]\na=1\nb={x,y}\n[B]\nc=3\n[C]\n");
    auto listCodes = [](U32 status) {
        EXPECT_TRUE(status == 0x15041 || status == 0x15002 || status == 0x15019 || status == 0x1500A ||
                    status == 0x1500B || status == 0x15003 || status == 0x15018 || status == 0x15218)
            << std::hex << status;
    };
    rqtest::allocationSweep(
        [this] {
            HLIST l = 0;
            U32 rc = DX_GetProfileSectionList(path.c_str(), &l, nullptr);
            if (rc == 0)
                DX_ProfileSectionListDestroy(&l);
            return rc;
        },
        listCodes);
    rqtest::allocationSweep(
        [this] {
            HLIST l = 0;
            U32 rc = DX_GetProfileSection(path.c_str(), "A", &l);
            if (rc == 0)
                DX_ListDestroy(&l);
            return rc;
        },
        listCodes);
    rqtest::allocationSweep(
        [this] {
            HLIST l = 0;
            U32 rc = DX_GetProfileSections(path.c_str(), &l);
            if (rc == 0)
                DX_ListDestroy(&l);
            return rc;
        },
        listCodes);
    rqtest::allocationSweep(
        [this] {
            HLIST l = 0;
            U32 rc = DX_GetProfileStrList(path.c_str(), "A", "b", &l, 0);
            if (rc == 0)
                DX_ListDestroy(&l);
            return rc;
        },
        listCodes);
    rqtest::allocationSweep(
        [this] {
            DX_PROFILELIST *h = nullptr;
            U32 rc = DX_ProfileListOpen(&h, path.c_str());
            DX_ProfileListClose(&h);
            return rc;
        },
        0x15218u);
}

}  // namespace
