// Profile reading: the line syntax, the value forms, numbers and lists, the
// enumerating readers, the in-memory profile and the string parsers.
#include "rqtest.h"

#include "rqcore/lists.h"
#include "rqcore/log.h"
#include "rqcore/profiles.h"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using rqtest::writeFile;

// A list's ids as text: string elements of `size` bytes, or numbers of type T.
std::vector<std::string> strings(HLIST list, U32 size = PROFIL_ELEMENT_SIZE)
{
    std::vector<std::string> out;
    std::vector<char> id(size);
    for (U32 rc = DX_ListGetFirst(list, id.data(), nullptr); rc == 0; rc = DX_ListGetNext(list, id.data(), nullptr))
        out.emplace_back(id.data());
    return out;
}

template <typename T>
std::vector<std::string> values(HLIST list)
{
    std::vector<std::string> out;
    T v{};
    for (U32 rc = DX_ListGetFirst(list, &v, nullptr); rc == 0; rc = DX_ListGetNext(list, &v, nullptr))
        out.push_back(std::to_string(v));
    return out;
}

U32 elemNum(HLIST list)
{
    U32 n = 0xA5A5;
    DX_ListGetElemNum(list, &n);
    return n;
}

// ---- the parsers ----

// The four number parsers behind one signature, the output pre-set to junk.
template <typename T, U32 (*Parse)(const char *, T *) noexcept>
U32 parseAs(const char *s, long long *out)
{
    T v = static_cast<T>(0xA5A5A5A5u);
    U32 rc = Parse(s, &v);
    *out = v;
    return rc;
}

TEST(Parsestring, NumbersAndTimes)
{
    constexpr auto u32 = parseAs<U32, GetUnsigned32FromStr>, u16 = parseAs<U16, GetUnsigned16FromStr>;
    constexpr auto s32 = parseAs<S32, GetSigned32FromStr>, s16 = parseAs<S16, GetSigned16FromStr>;
    constexpr auto time = parseAs<U32, GetTimeFromStr>;
    constexpr long long kJunk = 0xA5A5A5A5u;  // a failed time stores nothing
    // Worked out by hand from the reading rules: all-digit text is decimal,
    // anything else hexadecimal; blanks count as digits; a failure stores 0,
    // except the 16-bit unsigned overflow, which stores the maximum. Times are
    // hours and minutes split at ':', 'h' or 'H'; a minutes half that is not a
    // number counts as 0.
    struct Case { U32 (*parse)(const char *, long long *); const char *in; U32 status; long long value; } cases[] = {
        {u32, "0x1F", 0, 31},       {u32, "x1F", 0, 31},        {u32, "1F", 0, 31},          {u32, "001f", 0, 31},
        {u32, "00xFf", 0, 255},     {u32, "010", 0, 10},        {u32, "ff", 0, 255},         {u32, "  + 7", 0, 7},
        {u32, "4294967296", 0, 0},  {u32, "-1", 0x1C401, 0},    {u32, "", 0x1C402, 0},       {u32, "  ", 0x1C402, 0},
        {u32, "0xZ", 0x1C402, 0},   {u32, "1.5", 0x1C402, 0},
        {u32, "1 2", 0, 4294967238u},  // (1*10 + ' '-48)*10 + 2: callers rely on this reading
        {u16, "65535", 0, 65535},   {u16, "65536", 0x1C403, 65535}, {u16, "-1", 0x1C401, 0},
        {s16, "-32768", 0, -32768}, {s16, "-32769", 0x1C403, 0}, {s16, "32768", 0x1C403, 0}, {s16, "g", 0x1C402, 0},
        {s32, "-+5", 0, -5},        {s32, "--5", 0x1C401, 0},   {s32, "-0x10", 0, -16},      {s32, "ffffffff", 0, -1},
        {time, "7h30", 0, 450},          {time, "9h", 0, 540},              {time, "9:xx", 0, 540},
        {time, "23:59", 0, 1439},        {time, " 7 : 30 ", 0, 450},        {time, "0H0", 0, 0},
        {time, "24:00", 0x1C405, kJunk}, {time, "7:60", 0x1C405, kJunk},    {time, "730", 0x1C405, kJunk},
        {time, "xx:10", 0x1C405, kJunk}, {time, "24h", 0x1C405, kJunk},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << "case " << (&c - cases) << ": \"" << c.in << "\"");
        long long v = 0;
        EXPECT_EQ(c.parse(c.in, &v), c.status);
        EXPECT_EQ(v, c.value);
    }
    EXPECT_EQ(GetUnsigned32FromStr("1", nullptr), 0x1C404u);
    EXPECT_EQ(GetTimeFromStr("1:00", nullptr), 0x1C404u);
    rqtest::allocationSweep(
        [] {
            U32 m = 0;
            return GetTimeFromStr("7h30", &m);
        },
        0x1C406u);
    // The mapping onto the profile codes; 0x1C403 passes through unmapped.
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
    const char *p = path.c_str();
    std::string get(const char *section, const char *key, U32 *status, U32 len = 215)
    {
        std::vector<char> dst(len);
        rqtest::fillJunk(dst.data(), dst.size());
        *status = DX_GetProfileStr(p, section, key, dst.data(), len, "DFLT");
        return std::string(dst.data());
    }
};

TEST_F(ProfileFile, HeadersKeysAndValues)
{
    std::string longValue(207, 'v');  // fills the first 214-character piece exactly
    writeFile(path, "top=0\n [Indented]\nk=indented\n[Mailer]\nPort=1\n[ Mail ]  trailing text\n"
                    "#Port=2\nPortNumber=3\nPort X=4\n  Port   = 10 # the port\nPort=11\n"
                    "hash = a\\#b # note\nquoted = \"a#b\" # note\nescapes = \"line1\\nline2\\t\\\"q\\\\\"\n"
                    "inner = a\"b\nopen = \"abc\ncrlf = value\r\nempty =\nnul = ab" + std::string(1, '\0') + "cd\n"
                    "list = {a, b, # first\n   c} # done\nlong = " + longValue + "x=after\n"
                    "[Next]\nafter = next\nopen = {never closed\n");
    // Expected values follow the reading rules: the first match wins, a
    // comment ends at '#', quotes keep '#', the line buffer holds 214.
    struct Case { const char *section; const char *key; U32 status; std::string value; } cases[] = {
        {"Mail", "Port", 0, "10"},           {"Mail", "PortNumber", 0, "3"},
        {"Mailer", "Port", 0, "1"},          {"Mail", "hash", 0, "a\\#b"},
        {"Mail", "quoted", 0, "a#b"},        {"Mail", "escapes", 0, "line1\nline2\t\"q\\"},
        {"Mail", "inner", 0x15209, "DFLT"},  {"Mail", "open", 0x15209, "DFLT"},
        {"Mail", "crlf", 0, "value"},        {"Mail", "empty", 0, ""},
        {"Mail", "nul", 0, "ab"},            {"Mail", "list", 0, "{a, b,c}"},
        {"Mail", "long", 0, longValue},      {"Mail", "x", 0, "after"},  // the rest of the long line is a line of its own
        {"Mail", "after", 0x15203, "DFLT"},  {"Mail", "top", 0x15203, "DFLT"},
        {"Indented", "k", 0x15202, "DFLT"},  {"Mai", "Port", 0x15202, "DFLT"},
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
    std::string missing = dir.file("missing");
    // A directory reads as an empty file; no file name means "use the default".
    struct Case { const char *path, *section, *key; U32 status; } cases[] = {
        {nullptr, nullptr, "k", 0},      {nullptr, "S", "k", 0x1520D},     {p, nullptr, "k", 0x1520E},
        {p, "S", nullptr, 0x15203},      {missing.c_str(), "S", "k", 0x15201}, {dir.path().c_str(), "S", "k", 0x15202},
    };
    char dst[16];
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << "case " << (&c - cases));
        rqtest::fillJunk(dst, sizeof dst);
        EXPECT_EQ(DX_GetProfileStr(c.path, c.section, c.key, dst, sizeof dst, "D"), c.status);
        EXPECT_STREQ(dst, "D");
    }
    std::string binary;
    for (int i = 0; i < 4096; ++i)
        binary += static_cast<char>((i * 7919) & 0xFF);
    writeFile(path, binary);
    U32 n = 7;
    EXPECT_EQ(DX_GetProfileU32(p, "S", "k", &n, 42), 0x15202u);
    EXPECT_EQ(n, 42u);
    char version[8];
    EXPECT_EQ(DX_GetProfileVersion(version), 0u);
    EXPECT_STREQ(version, "A.01.02");
}

template <typename T>
class ProfileNumbers : public ProfileFile {};
using NumberTypes = ::testing::Types<U16, U32, S16, S32>;
TYPED_TEST_SUITE(ProfileNumbers, NumberTypes);

U32 getNumber(const char *p, const char *s, const char *k, U16 *out, U16 d) { return DX_GetProfileU16(p, s, k, out, d); }
U32 getNumber(const char *p, const char *s, const char *k, U32 *out, U32 d) { return DX_GetProfileU32(p, s, k, out, d); }
U32 getNumber(const char *p, const char *s, const char *k, S16 *out, S16 d) { return DX_GetProfileS16(p, s, k, out, d); }
U32 getNumber(const char *p, const char *s, const char *k, S32 *out, S32 d) { return DX_GetProfileS32(p, s, k, out, d); }

TYPED_TEST(ProfileNumbers, ReadsParsesAndFallsBack)
{
    using T = TypeParam;
    writeFile(this->path, "[N]\ndec=10\nhex=0x10\nff=ff\nneg=-1\nbig=70000\nempty=\nword=zz\n");
    constexpr bool isSigned = std::is_signed_v<T>;
    constexpr bool is16 = sizeof(T) == 2;
    // Outcomes from the parsers' rules; 0x1C403 reaches the caller unmapped.
    struct Case { const char *key; U32 status; long long value; } cases[] = {
        {"dec", 0, 10},         {"hex", 0, 16},          {"ff", 0, 255},
        {"neg", isSigned ? 0u : 0x15204u, isSigned ? -1 : 42},
        {"big", is16 ? 0x1C403u : 0u, is16 ? 42 : 70000},
        {"empty", 0x15205, 42}, {"word", 0x15205, 42},   {"missing", 0x15203, 42},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key);
        T out = 7;
        EXPECT_EQ(getNumber(this->p, "N", c.key, &out, T{42}), c.status);
        EXPECT_EQ(static_cast<long long>(out), c.value);
    }
    T out = 7;
    EXPECT_EQ(getNumber(nullptr, nullptr, "dec", &out, T{42}), 0u);
    EXPECT_EQ(out, T{42});
}

TEST_F(ProfileFile, Booleans)
{
    writeFile(path, "[B]\na=TRUE\nb=true\nc=FALSE\nd=false\ne=True\nf=1\n");
    struct Case { const char *key; U32 dflt, status, value; } cases[] = {
        {"a", 0, 0, 1},       {"b", 0, 0, 1},       {"c", 1, 0, 0},       {"d", 1, 0, 0},
        {"e", 1, 0x15207, 1}, {"f", 0, 0x15207, 0}, {"x", 1, 0x15203, 1}, {"x", 0, 0x15203, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key);
        U32 out = 9;
        EXPECT_EQ(DX_GetProfileBool(p, "B", c.key, &out, c.dflt), c.status);
        EXPECT_EQ(out, c.value);
    }
}

// ---- lists ----

TEST(ProfileLists, ListsFromText)
{
    rqtest::LeakCheck leaks;
    using Get = U32 (*)(const char *, HLIST *, U32);
    using Read = std::vector<std::string> (*)(HLIST);
    Get str = DX_GetProfileStrListFromStr, u32 = DX_GetProfileU32ListFromStr, u16 = DX_GetProfileU16ListFromStr,
        s16 = DX_GetProfileS16ListFromStr, s32 = DX_GetProfileS32ListFromStr, boolean = DX_GetProfileBoolListFromStr;
    Read text = [](HLIST l) { return strings(l); };
    // From the list syntax: braces required, quotes keep ',' and '"', an
    // element holds 150 characters; numbers parse as single values do.
    struct Case { Get get; Read read; std::string text; U32 flags, status; std::vector<std::string> elements; };
    const Case cases[] = {
        {str, text, "{}", 0, 0, {""}},
        {str, text, "{a,b,}", 0, 0, {"a", "b", ""}},
        {str, text, "  { a , \"b,c\" , \"q\\\"\" ,d\t}  ", 0, 0, {"a", "b,c", "q\"", "d"}},
        {str, text, std::string("{").append(160, 'e').append("}"), 0, 0, {std::string(150, 'e')}},  // append: g++ 12 -O3 false -Wrestrict
        {str, text, "{c,a,b}", 0x01, 0, {"a", "b", "c"}},    // sorted list
        {str, text, "{a,a}", 0x04, 0x15001, {}},              // the list's duplicate refusal
        {str, text, "{a} x", 0, 0x1520B, {}},   {str, text, "a,b", 0, 0x1520B, {}},   {str, text, "", 0, 0x1520B, {}},
        {str, text, "{a", 0, 0x1520B, {}},      {str, text, "{\"a}", 0, 0x1520B, {}}, {str, text, "{\"a\" b}", 0, 0x1520B, {}},
        {u32, values<U32>, "{1, 0x10, ff}", 0, 0, {"1", "16", "255"}}, {u16, values<U16>, "{1,65535}", 0, 0, {"1", "65535"}},
        {s16, values<S16>, "{-1,2}", 0, 0, {"-1", "2"}},              {s32, values<S32>, "{-70000}", 0, 0, {"-70000"}},
        {boolean, values<U32>, "{TRUE,false}", 0, 0, {"1", "0"}},
        {u32, values<U32>, "{1,-2}", 0, 0x15204, {}},   {u16, values<U16>, "{70000}", 0, 0x1C403, {}},
        {boolean, values<U32>, "{yes}", 0, 0x15207, {}},
        {u32, values<U32>, "{}", 0, 0x15205, {}},  // the empty element is not a number
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        HLIST list = 0xA5A5;
        EXPECT_EQ(c.get(c.text.c_str(), &list, c.flags), c.status);
        if (c.status != 0) {
            EXPECT_EQ(list, 0xA5A5u) << "the output is left alone on failure";
            continue;
        }
        EXPECT_EQ(c.read(list), c.elements);
        DX_ListDestroy(&list);
    }
    EXPECT_EQ(DX_GetProfileStrListFromStr("{a}", nullptr, 0), 0u);
    char element[PROFIL_ELEMENT_SIZE];
    char *cursor = const_cast<char *>("{a}");
    U32 done = 0;
    EXPECT_EQ(DX_EnumProfileStr(element, &cursor, 3, &done), 0x1520Cu);
}

// ---- enumerating readers ----

TEST_F(ProfileFile, SectionNames)
{
    rqtest::LeakCheck leaks;
    writeFile(path, "[A]\nk=1\n[B]x\n[ Mail ]\n[123]\n[45x]\n  [C]\n");
    HLIST list = 0;
    ASSERT_EQ(DX_GetProfileSections(p, &list), 0u);
    // DX_ListAddTo on an unsorted list adds at the front: newest first.
    EXPECT_EQ(strings(list, PROFIL_SECTION_NAME_SIZE), (std::vector<std::string>{"45x", "123", "", "B", "A"}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileNumericSections(p, &list), 0u);
    EXPECT_EQ(strings(list, PROFIL_SECTION_NAME_SIZE), std::vector<std::string>{"123"});
    DX_ListDestroy(&list);
    U32 found = 9;
    EXPECT_EQ(DX_IsAProfileSection(p, "Mail", &found), 0u);
    EXPECT_EQ(found, 1u);
    EXPECT_EQ(DX_IsAProfileSection(p, "C", &found), 0u);
    EXPECT_EQ(found, 0u) << "a header must start in column 0";
    EXPECT_EQ(DX_IsAProfileSection(dir.file("none").c_str(), "A", &found), 0x15201u);
}

TEST_F(ProfileFile, KeywordsListsAndTheirGetters)
{
    rqtest::LeakCheck leaks;
    writeFile(path, "[S]\n# comment\n/ slash comment = x\nx\n=novalue\n  first = 1 # c\n" + std::string(40, 'k') +
                        "=long\nq=\"a b\"\nb={1,\n2}\nbig=70000\nneg=40000\nt=7:60\nok=7h30\n"
                        "[T]\nnames = {alpha,\n  \"be ta\", # c\n  gamma}\nbad=x\n[Empty]\n");
    HLIST kw = 0;
    ASSERT_EQ(DX_GetProfileSection(p, "S", &kw), 0u);
    std::vector<std::pair<std::string, std::string>> got;
    char key[PROFIL_KEY_NAME_SIZE], value[PROFIL_VALUE_SIZE];
    for (U32 rc = DX_ListGetFirst(kw, key, value); rc == 0; rc = DX_ListGetNext(kw, key, value))
        got.emplace_back(key, value);
    // File order; "/" lines are comments; keys keep at most 31 characters.
    EXPECT_EQ(got, (std::vector<std::pair<std::string, std::string>>{{"first", "1"}, {std::string(31, 'k'), "long"},
                                                                     {"q", "a b"}, {"b", "{1,2}"}, {"big", "70000"},
                                                                     {"neg", "40000"}, {"t", "7:60"}, {"ok", "7h30"}}));
    // The getters keep what the parser stored, except the time getter.
    U16 u16 = 1;
    EXPECT_EQ(DX_GetProfileU16FromList(kw, "big", &u16, 5), 0x1C403u);
    EXPECT_EQ(u16, 65535);
    S16 s16 = 1;
    EXPECT_EQ(DX_GetProfileS16FromList(kw, "neg", &s16, 5), 0x1C403u);
    EXPECT_EQ(s16, 0);
    U32 u32 = 1;
    EXPECT_EQ(DX_GetProfileU32FromList(kw, "q", &u32, 5), 0x15205u);
    EXPECT_EQ(u32, 0u);
    U32 t = 1;
    EXPECT_EQ(DX_GetProfileTimeFromList(kw, "t", &t, 99), 0x1520Bu);
    EXPECT_EQ(t, 99u) << "the time parser stores nothing";
    EXPECT_EQ(DX_GetProfileTimeFromList(kw, "ok", &t, 99), 0u);
    EXPECT_EQ(t, 450u);
    EXPECT_EQ(DX_GetProfileU32FromList(0, "big", &u32, 5), 0x15202u);
    EXPECT_EQ(u32, 5u);
    char dst[8];
    rqtest::fillJunk(dst, sizeof dst);
    EXPECT_EQ(DX_GetProfileStrFromList(kw, "nope", dst, sizeof dst, "D"), 0x15203u);
    EXPECT_STREQ(dst, "D");
    // Lists read from the file and from the keyword list, spread over lines.
    HLIST list = 0;
    ASSERT_EQ(DX_GetProfileStrList(p, "T", "names", &list, 0), 0u);
    EXPECT_EQ(strings(list), (std::vector<std::string>{"alpha", "be ta", "gamma"}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileU32List(p, "S", "b", &list, 0), 0u);
    EXPECT_EQ(values<U32>(list), (std::vector<std::string>{"1", "2"}));
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_GetProfileS32ListFromList(kw, "b", &list, 0), 0u);
    EXPECT_EQ(values<S32>(list), (std::vector<std::string>{"1", "2"}));
    DX_ListDestroy(&list);
    EXPECT_EQ(DX_GetProfileStrList(p, "T", "bad", &list, 0), 0x1520Bu);
    EXPECT_EQ(DX_GetProfileStrList(p, "T", "none", &list, 0), 0x15203u);
    EXPECT_EQ(DX_GetProfileStrListFromList(kw, "none", &list, 0), 0x15203u);
    EXPECT_EQ(DX_GetProfileStrListFromList(0, "b", &list, 0), 0x15202u);
    DX_ListDestroy(&kw);
    ASSERT_EQ(DX_GetProfileSection(p, "Empty", &kw), 0u);
    EXPECT_EQ(elemNum(kw), 0u);
    DX_ListDestroy(&kw);
    EXPECT_EQ(DX_GetProfileSection(p, "Nope", &kw), 0x15202u);
}

int keepOnlyNumeric(const char *name) { return DX_ProfileConstraintNumeric(name); }

TEST_F(ProfileFile, SectionList)
{
    rqtest::LeakCheck leaks;
    writeFile(path, "# lead comment\n[10]\na=1\n[skip]\nbad=\"open\n[20]\nb=2\nc={x,\ny}\n");
    HLIST sections = 0;
    ASSERT_EQ(DX_GetProfileSectionList(p, &sections, keepOnlyNumeric), 0u) << "a rejected section's lines are not parsed";
    std::vector<std::string> names;  // each with its number of keywords
    char name[PROFIL_SECTION_NAME_SIZE];
    HLIST inner = 0;
    for (U32 rc = DX_ListGetFirst(sections, name, &inner); rc == 0; rc = DX_ListGetNext(sections, name, &inner))
        names.push_back(std::string(name).append(":").append(std::to_string(elemNum(inner))));
    EXPECT_EQ(names, (std::vector<std::string>{"10:1", "20:2"}));
    EXPECT_EQ(DX_ProfileSectionListDestroy(&sections), 0u);
    EXPECT_EQ(sections, 0u);
    EXPECT_EQ(DX_GetProfileSectionList(p, &sections, nullptr), 0x15209u);
    writeFile(path, "k=v\n[A]\n");
    EXPECT_EQ(DX_GetProfileSectionList(p, &sections, nullptr), 0x1520Bu);
    EXPECT_EQ(DX_ProfileConstraintNumeric(""), 1);
    EXPECT_EQ(DX_ProfileConstraintNumeric(nullptr), 0);
    EXPECT_EQ(DX_ProfileConstraintNumeric("1a"), 0);
}

TEST_F(ProfileFile, DuplicatesAreRefusedAndLogged)
{
    ASSERT_EQ(DX_ErrLogInitializeTLS(), 0u);  // this thread's logging state outlives the test
    rqtest::LeakCheck leaks;
    std::string log = dir.file("err.log");
    ASSERT_EQ(EnableLogging(nullptr), 0u);
    ASSERT_EQ(SetLog(2, 1, log.c_str()), 0u);
    // Enough names to grow the duplicate index several times.
    std::string sections, keys = "[big]\n";
    for (int i = 0; i < 300; ++i) {
        sections += "[s" + std::to_string(i) + "]\nk=" + std::to_string(i) + "\n";
        keys += "key" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    }
    HLIST list = 0;
    writeFile(path, sections);
    ASSERT_EQ(DX_GetProfileSectionList(p, &list, nullptr), 0u);
    EXPECT_EQ(elemNum(list), 300u);
    DX_ProfileSectionListDestroy(&list);
    writeFile(path, keys);
    ASSERT_EQ(DX_GetProfileSection(p, "big", &list), 0u);
    EXPECT_EQ(elemNum(list), 300u);
    DX_ListDestroy(&list);
    list = 0xA5A5;
    writeFile(path, sections + "[s299]\n");
    EXPECT_EQ(DX_GetProfileSectionList(p, &list, nullptr), 0x1520Fu);
    EXPECT_EQ(DX_GetProfileSections(p, &list), 0x1520Fu);
    writeFile(path, keys + "key150=again\n");
    EXPECT_EQ(DX_GetProfileSection(p, "big", &list), 0x15210u);
    EXPECT_EQ(list, 0xA5A5u);
    DisableLogging();
    std::string text = rqtest::readFile(log);
    EXPECT_NE(text.find("ERROR CODE    -> 0x1520F\nSection defined multiple times. Please correct ini file.\n"),
              std::string::npos) << text;
    EXPECT_NE(text.find("ERROR CODE    -> 0x15210\nKey defined multiple times. Please correct ini file.\n"),
              std::string::npos) << text;
}

// ---- the in-memory profile ----

TEST_F(ProfileFile, InMemoryProfile)
{
    rqtest::LeakCheck leaks;
    std::string text = "  # comment\n\r\n[ Mail ]  \nport = 25 # smtp\nlist={a,\n b}\njunk line\n[Other]\nport=2\n";
    writeFile(path, text);
    DX_PROFILELIST *h = nullptr;
    ASSERT_EQ(DX_ProfileListOpen(&h, p), 0u);
    U32 size = 0;
    std::memcpy(&size, h, 4);
    EXPECT_EQ(size, text.size());
    char dst[32];
    rqtest::fillJunk(dst, sizeof dst);
    EXPECT_EQ(DX_ProfileListGetStr(h, " Mail", "port", dst, sizeof dst, "D"), 0u) << "kept as \"[ Mail\"";
    EXPECT_STREQ(dst, "25");
    EXPECT_EQ(DX_ProfileListGetStr(h, "Mail", "port", dst, sizeof dst, "D"), 0x15202u);
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
    ASSERT_EQ(DX_ProfileListOpen(&h, p), 0u);
    EXPECT_EQ(DX_ProfileListGetStr(h, "A", "b", dst, sizeof dst, "D"), 0x15202u);
    DX_ProfileListClose(&h);
}

// ---- out of memory ----

TEST_F(ProfileFile, AllocationFailureSweeps)
{
    writeFile(path, "[A]\na=1\nb={x,y}\n[B]\nc=3\n[C]\n");
    // Each reader with the function that frees what it built.
    struct Reader { std::function<U32(HLIST *)> read; U32 (*destroy)(HLIST *); } readers[] = {
        {[this](HLIST *l) { return DX_GetProfileSectionList(p, l, nullptr); }, DX_ProfileSectionListDestroy},
        {[this](HLIST *l) { return DX_GetProfileSection(p, "A", l); }, DX_ListDestroy},
        {[this](HLIST *l) { return DX_GetProfileSections(p, l); }, DX_ListDestroy},
        {[this](HLIST *l) { return DX_GetProfileStrList(p, "A", "b", l, 0); }, DX_ListDestroy},
    };
    for (const auto &r : readers)
        rqtest::allocationSweep(
            [&r] {
                HLIST l = 0;
                U32 rc = r.read(&l);
                if (rc == 0)
                    r.destroy(&l);
                return rc;
            },
            [](U32 status) {
                EXPECT_TRUE(status == 0x15041 || status == 0x15002 || status == 0x15019 || status == 0x1500A ||
                            status == 0x1500B || status == 0x15003 || status == 0x15018 || status == 0x15218)
                    << std::hex << status;
            });
    rqtest::allocationSweep(
        [this] {
            DX_PROFILELIST *h = nullptr;
            U32 rc = DX_ProfileListOpen(&h, p);
            DX_ProfileListClose(&h);
            return rc;
        },
        0x15218u);
}

}  // namespace
