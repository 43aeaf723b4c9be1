// Catalogs and formatting: the bounded writers and readers, braced
// arguments, catalogs loaded from profile files and the shipped samples.
#include "rqtest.h"

#include "rqcore/lists.h"
#include "rqcore/nls.h"
#include "rqcore/profiles.h"

#include <cstring>
#include <string>

namespace {

using rqtest::writeFile;

// ---- primitives ----

TEST(Format, FieldsAndCounter)
{
    // text nullptr: the number.
    struct Case { const char *text; U32 number; S16 width; U32 places; std::string expected; U32 left; } cases[] = {
        {nullptr, 42, 5, 100, "   42", 95},       {nullptr, 42, 1, 100, "42", 98},
        {nullptr, 0, 0, 100, "0", 99},
        {nullptr, 4294967295u, 0, 100, "4294967295", 90},
        {nullptr, 42, 0, 0, "", 0},               {nullptr, 12345, -8, 3, "123", 0},
        {"abcdef", 0, 0, 3, "abc", 0},            {"abcdef", 0, 0, 6, "abcdef", 0},
        {"ab", 0, 4, 3, "  a", 0},                {"ab", 0, -4, 3, "ab ", 0},
        {"", 0, -3, 10, "   ", 7},
        {"xyz", 0, 32767, 40000, std::string(32764, ' ').append("xyz"), 40000 - 32767},
        {"xyz", 0, -32768, 40000, std::string("xyz").append(32765, ' '), 40000 - 32768},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.text ? c.text : "number") + " width " + std::to_string(c.width) + " places " +
                     std::to_string(c.places));
        std::string buffer(c.places + 1 + 16, '\0');
        rqtest::fillJunk(buffer.data(), buffer.size());
        U32 places = c.places;
        char *end = c.text != nullptr ? DX_FormatWriteStrF(buffer.data(), &places, c.text, c.width)
                                      : DX_FormatWriteU32F(buffer.data(), &places, c.number, c.width);
        EXPECT_EQ(places, c.left);
        ASSERT_EQ(*end, '\0');
        std::string got(buffer.data(), end);
        EXPECT_EQ(got.size(), std::strlen(buffer.c_str()));
        EXPECT_EQ(got, c.expected);
    }
}

TEST(Format, NullArgumentsAndEmptyCounter)
{
    U32 places = 0;
    EXPECT_EQ(DX_FormatEmpty(&places), 1u);
    EXPECT_EQ(DX_FormatEmpty(nullptr), 1u);  // no counter counts as full
    places = 2;
    EXPECT_EQ(DX_FormatEmpty(&places), 0u);
    EXPECT_EQ(places, 1u);
    char buffer[8] = "junk";
    EXPECT_EQ(DX_FormatWriteStrF(nullptr, &places, "x", 3), nullptr);
    EXPECT_EQ(places, 1u);
    EXPECT_EQ(DX_FormatWriteStrF(buffer, nullptr, "abc", 0), buffer);  // only the NUL
    EXPECT_STREQ(buffer, "");
    places = 5;
    EXPECT_EQ(DX_FormatWriteStrF(buffer, &places, nullptr, 2), buffer + 2);
    EXPECT_STREQ(buffer, "  ");
}

TEST(Format, ReadWidths)
{
    // 16-bit arithmetic: digits beyond the range wrap modulo 65536.
    struct Case { const char *text; S16 s16; U16 u16; size_t s16Used; size_t u16Used; } cases[] = {
        {"-12x", -12, 0, 3, 0},        {"+7", 7, 0, 2, 0},             {"x", 0, 0, 0, 0},
        {"123abc", 123, 123, 3, 3},    {"-", 0, 0, 0, 0},              {"32767", 32767, 32767, 5, 5},
        {"-32768", -32768, 0, 6, 0},   {"65535", -1, 65535, 5, 5},     {"65536", 0, 0, 5, 5},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        S16 s = 99;
        U16 u = 99;
        EXPECT_EQ(DX_FormatReadS16(c.text, &s), c.text + c.s16Used);
        EXPECT_EQ(s, c.s16);
        EXPECT_EQ(DX_FormatReadU16(c.text, &u), c.text + c.u16Used);
        EXPECT_EQ(u, c.u16);
    }
    U16 u = 99;
    EXPECT_EQ(DX_FormatReadU16(nullptr, &u), nullptr);
    EXPECT_EQ(u, 0);
    const char *t = "12";
    EXPECT_EQ(DX_FormatReadS16(t, nullptr), t + 2);
}

TEST(Format, BracedArgument)
{
    struct Case { const char *text; U32 size; const char *expected; size_t used; } cases[] = {
        {"{a{b}c}rest", 20, "a{b}c", 7}, {"{}x", 20, "", 2},
        {"{abc}x", 3, "ab", 5},     // cut to size-1, still walks to the brace
        {"{abc}x", 1, "", 5},
        {"{ab{c}", 20, "ab{c}", 6},  // never closed: stops at the end
        {"abc", 20, "dflt", 0},      // no brace: default, position unchanged
        {"{abc}", 0, nullptr, 0},    // size 0: nothing written
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        char out[32];
        rqtest::fillJunk(out, sizeof out);
        char before = out[0];
        EXPECT_EQ(DX_FormatArgumentGet(c.text, out, c.size, "dflt"), c.text + c.used);
        if (c.expected != nullptr)
            EXPECT_STREQ(out, c.expected);
        else
            EXPECT_EQ(out[0], before);
    }
    char out[8] = "junk";
    EXPECT_EQ(DX_FormatArgumentGet("x", out, sizeof out, nullptr), std::string("x"));
    EXPECT_STREQ(out, "");
    const char *skip = "{a}b";
    EXPECT_EQ(DX_FormatArgumentGet(skip, nullptr, 5, "d"), skip + 3);
    EXPECT_EQ(DX_FormatArgumentGet(nullptr, out, sizeof out, "d"), nullptr);
    EXPECT_STREQ(out, "d");
}

// ---- catalogs ----

constexpr const char *kCatalog =
    "[datef]\n"
    "day = {Sunday,Monday}\n"
    "quoted = \"a, b\"\n"
    "empty = {}\n"
    "[other]\n";

class Catalog : public ::testing::Test {
protected:
    rqtest::TempDir dir;
    std::string path = dir.file("c.profile");
};

TEST_F(Catalog, GetAndElements)
{
    writeFile(path, kCatalog);
    rqtest::LeakCheck leaks;
    for (U32 mode : {NLS_MODE_PLAIN, NLS_MODE_PRIORITY}) {
        SCOPED_TRACE(mode);
        HLIST catalog = 0;
        ASSERT_EQ(DX_NLSListCreate(&catalog, mode, path.c_str()), 0u);
        U32 flags = 0, count = 0;
        DX_ListGetFlags(catalog, &flags);
        DX_ListGetElemNum(catalog, &count);
        EXPECT_EQ(flags & 0xFDu, mode == NLS_MODE_PRIORITY ? 0x34u : 0x2Cu);
        EXPECT_EQ(count, 2u);
        // index ~0u: the whole value
        struct Case { const char *section, *key; U32 index, size, status; const char *expected; } cases[] = {
            {"datef", "day", ~0u, 64, 0, "{Sunday,Monday}"}, {"datef", "day", 0, 64, 0, "Sunday"},
            {"datef", "day", 1, 64, 0, "Monday"}, {"datef", "day", 2, 64, NLS_ERR_NO_ELEMENT, ""},
            {"datef", "day", 0xFFFFFFFEu, 64, NLS_ERR_NO_ELEMENT, ""}, {"datef", "day", 1, 4, 0, "Mon"},
            {"datef", "day", ~0u, 1, 0, ""}, {"datef", "empty", 0, 64, 0, ""},
            {"datef", "quoted", ~0u, 64, 0, "a, b"}, {"datef", "quoted", 0, 64, PROFIL_ERR_SYNTAX, ""},
            {"datef", "Day", 0, 64, NLS_ERR_NO_KEY, ""}, {"Datef", "day", ~0u, 64, NLS_ERR_NO_SECTION, ""},
            {"other", "x", ~0u, 64, NLS_ERR_NO_KEY, ""},
            {"a-section-name-that-is-far-too-long-to-exist", "x", ~0u, 64, NLS_ERR_NO_SECTION, ""},
            {"datef", "a-key-name-that-is-far-too-long-to-exist", ~0u, 64, NLS_ERR_NO_KEY, ""},
        };
        for (const Case &c : cases) {
            SCOPED_TRACE(std::string(c.section) + "/" + c.key + "/" + std::to_string(c.index));
            char out[64];
            rqtest::fillJunk(out, sizeof out);
            U32 rc = c.index == ~0u ? DX_NLSGet(catalog, out, c.size, c.section, c.key)
                                    : DX_NLSGetElement(catalog, out, c.size, c.section, c.key, c.index);
            EXPECT_EQ(rc, c.status);
            EXPECT_STREQ(out, c.expected);
        }
        char junk[4] = "abc";
        EXPECT_EQ(DX_NLSGet(catalog, junk, 0, "datef", "day"), 0u);
        EXPECT_STREQ(junk, "abc");
        EXPECT_EQ(DX_NLSGet(catalog, nullptr, 8, "datef", "day"), NLS_ERR_NULL_POINTER);
        EXPECT_EQ(DX_NLSGetElement(catalog, junk, 4, "datef", nullptr, 0), NLS_ERR_NULL_POINTER);
        EXPECT_EQ(junk[0], '\0');
        std::strcpy(junk, "abc");
        EXPECT_EQ(DX_NLSGet(0, junk, 4, "datef", "day"), DX_LIST_ERR_FIND_LOCK);  // no catalog
        EXPECT_EQ(junk[0], '\0');
        EXPECT_EQ(DX_NLSListDestroy(&catalog), 0u);
        EXPECT_EQ(catalog, 0u);
    }
    HLIST none = 0;
    EXPECT_EQ(DX_NLSListDestroy(&none), DX_LIST_ERR_NO_LIST);
}

// What a file loads to, or why it does not.  A catalog is read in one pass
// when that reads what one pass per section would; the files with a value
// are where the two could part, and must not.  A refused file leaves the
// caller's handle alone.
TEST_F(Catalog, LoadOrRefuse)
{
    struct Case { const char *text; U32 status, sections; const char *section, *key, *value; } cases[] = {
        // a list line that starts with "[" is a header for the section reader
        {"[a]\nk={x,\n[b]\ny}\n[c]\nj=1\n", 0, 3, "a", "k", "{x,[b]y}"},
        {"[a]\nk={x,\n[b]\ny}\n", 0, 2, "b", "y}", nullptr},
        {"junk=1\n[a]\nk=1\n", 0, 1, "a", "k", "1"},  // before the first header
        {"[a]  \t] x\nk=1\n[b]\n", 0, 2, "a", "k", "1"},
        {"", 0, 0, nullptr, nullptr, nullptr},
        {"[a]\nk=1\n[b]\n[a]\n", NLS_ERR_DUP_SECTION, 0, nullptr, nullptr, nullptr},
        {"[a]\nk=1\nk=2\n[ b ]\n", NLS_ERR_DUP_KEY, 0, nullptr, nullptr, nullptr},
        {"[a]\nk={1,\n2\n", PROFIL_ERR_SYNTAX, 0, nullptr, nullptr, nullptr},
        {"[a]\nk=1\n[c]\nk=\"x\n", PROFIL_ERR_QUOTING, 0, nullptr, nullptr, nullptr},
        {"[0123456789012345678901234567890123]\nk=1\n", PROFIL_ERR_NO_SECTION, 0, nullptr, nullptr, nullptr},
        // The section reader lists "[ a ]" under the empty name, which no
        // header matches: such a file cannot be loaded as a catalog.
        {"[ a ]\nk=1\n", PROFIL_ERR_NO_SECTION, 0, nullptr, nullptr, nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        writeFile(path, c.text);
        rqtest::LeakCheck leaks;
        HLIST catalog = 0xBEEF;
        ASSERT_EQ(DX_NLSListCreate(&catalog, NLS_MODE_PLAIN, path.c_str()), c.status);
        if (c.status != 0) {
            EXPECT_EQ(catalog, 0xBEEFu);
            continue;
        }
        U32 count = 0;
        DX_ListGetElemNum(catalog, &count);
        EXPECT_EQ(count, c.sections);
        char out[64] = "";
        if (c.section != nullptr) {
            EXPECT_EQ(DX_NLSGet(catalog, out, sizeof out, c.section, c.key), c.value ? 0u : NLS_ERR_NO_KEY);
        }
        EXPECT_STREQ(out, c.value ? c.value : "");
        DX_NLSListDestroy(&catalog);
    }
    HLIST catalog = 0;
    EXPECT_EQ(DX_NLSListCreate(nullptr, 0, path.c_str()), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(DX_NLSListCreate(&catalog, 0, nullptr), PROFIL_ERR_NO_FILE_NAME);
    EXPECT_EQ(DX_NLSListCreate(&catalog, 0, dir.file("absent").c_str()), PROFIL_ERR_OPEN);
    EXPECT_EQ(catalog, 0u);
}

TEST_F(Catalog, FromSectionsPicksAndRefusesRepeats)
{
    writeFile(path, kCatalog);
    rqtest::LeakCheck leaks;
    HLIST names = 0;
    ASSERT_EQ(DX_ListCreate(&names, 40, 0, 0x20, nullptr, nullptr), 0u);
    DX_ListAddLast(names, "other", nullptr);
    HLIST catalog = 0;
    ASSERT_EQ(DX_NLSListCreateFromSections(&catalog, NLS_MODE_PRIORITY, path.c_str(), names), 0u);
    U32 count = 0, flags = 0;
    DX_ListGetElemNum(catalog, &count);
    EXPECT_EQ(count, 1u);
    HLIST keys = 0;
    ASSERT_EQ(DX_ListGetFirst(catalog, nullptr, &keys), 0u);
    DX_ListGetFlags(keys, &flags);
    EXPECT_NE(flags & DX_LIST_PRIORITY, 0u);  // section lists follow the catalog's mode
    DX_NLSListDestroy(&catalog);

    DX_ListAddLast(names, "missing", nullptr);
    catalog = 0;
    EXPECT_EQ(DX_NLSListCreateFromSections(&catalog, 0, path.c_str(), names), PROFIL_ERR_NO_SECTION);
    EXPECT_EQ(catalog, 0u);
    DX_ListDestroy(&names);
    ASSERT_EQ(DX_ListCreate(&names, 40, 0, 0x20, nullptr, nullptr), 0u);
    DX_ListAddLast(names, "datef", nullptr);
    DX_ListAddLast(names, "datef", nullptr);
    EXPECT_EQ(DX_NLSListCreateFromSections(&catalog, 0, path.c_str(), names), NLS_ERR_DUP_SECTION);
    EXPECT_EQ(DX_NLSListCreateFromSections(&catalog, 0, path.c_str(), 0), DX_LIST_ERR_VALUE_LOCK);
    DX_ListDestroy(&names);
    EXPECT_EQ(catalog, 0u);
}

TEST_F(Catalog, AllocationSweep)
{
    // The second file is read one section at a time (see above).
    for (const char *text : {kCatalog, "[a]\nk={x,\n[b]\ny}\n[c]\nj=1\n"}) {
        SCOPED_TRACE(text);
        writeFile(path, text);
        auto load = [&] {
            HLIST catalog = 0;
            U32 rc = DX_NLSListCreate(&catalog, NLS_MODE_PRIORITY, path.c_str());
            DX_NLSListDestroy(&catalog);
            return rc;
        };
        EXPECT_GT(rqtest::allocationSweep(load, [](U32 rc) { EXPECT_NE(rc, 0u); }), 4);
    }
}

// ---- growing strings and messages ----

TEST(Extstr, GrowsAndKeepsOnFailure)
{
    rqtest::LeakCheck leaks;
    ZOL_EXTSTR s;
    ASSERT_EQ(ZOL_ExtstrInit(&s, 0), 0u);
    EXPECT_STREQ(s.text, "");
    ASSERT_EQ(ZOL_ExtstrAddLen(&s, "xyz", 2), 0u);
    ASSERT_EQ(ZOL_ExtstrAddLen(&s, nullptr, 0), 0u);
    EXPECT_EQ(ZOL_ExtstrAdd(&s, nullptr), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(ZOL_ExtstrAddLen(&s, nullptr, 1), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(ZOL_ExtstrAddLen(&s, "a", 0xFFFFFFF0u), NLS_ERR_NO_MEMORY);
    EXPECT_EQ(std::string(s.text), "xy");
    EXPECT_EQ(s.length, 2u);
    EXPECT_EQ(ZOL_ExtstrFree(&s), 0u);
    EXPECT_EQ(s.text, nullptr);
    EXPECT_EQ(ZOL_ExtstrAdd(&s, "a"), NLS_ERR_NULL_POINTER);  // freed: refused, not reused
    EXPECT_EQ(ZOL_ExtstrInit(nullptr, 4), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(ZOL_ExtstrFree(nullptr), NLS_ERR_NULL_POINTER);
    std::string tens;
    for (int i = 0; i < 50; ++i) tens += "0123456789";
    rqtest::allocationSweep(
        [&] {
            ZOL_EXTSTR t;
            U32 rc = ZOL_ExtstrInit(&t, 1);
            for (int i = 0; rc == 0 && i < 50; ++i)  // crosses several doublings
                rc = ZOL_ExtstrAdd(&t, "0123456789");
            if (t.text != nullptr) {  // a failed append kept the text whole
                EXPECT_EQ(std::string(t.text), tens.substr(0, rc == 0 ? tens.size() : t.length));
                EXPECT_EQ(t.length, rc == 0 ? tens.size() : t.length / 10 * 10);
                ZOL_ExtstrFree(&t);
            }
            return rc;
        },
        NLS_ERR_NO_MEMORY);
}

TEST(Message, PositionalArguments)
{
    const char *args[] = {"ab", "cd", nullptr};
    struct Case { const char *format; U32 count; U32 size; U32 status; const char *expected; } cases[] = {
        {"Cannot open %1: %2", 2, 64, 0, "Cannot open ab: cd"},
        {"%2 then %1, %1 again", 2, 64, 0, "cd then ab, ab again"}, {"|%(6)1|%(-6)2|", 2, 64, 0, "|    ab|cd    |"},
        {"%(1)1%(+3)2", 2, 64, 0, "ab cd"}, {"100%% of %1", 1, 64, 0, "100% of ab"},
        {"[%3]", 3, 64, 0, "[]"},             // a NULL argument is empty
        {"no arguments", 0, 64, 0, "no arguments"}, {"%1%2", 2, 4, NLS_ERR_TRUNCATED, "abc"},
        {"abcdef", 0, 1, NLS_ERR_TRUNCATED, ""}, {"%(5)1", 1, 3, NLS_ERR_TRUNCATED, "  "},
        {"%3", 2, 64, NLS_ERR_FORMAT, ""},    // beyond the arguments given
        {"%0", 2, 64, NLS_ERR_FORMAT, ""}, {"50%", 2, 64, NLS_ERR_FORMAT, ""}, {"%(5", 2, 64, NLS_ERR_FORMAT, ""},
        {"%()1", 2, 64, NLS_ERR_FORMAT, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.format);
        char out[64];
        rqtest::fillJunk(out, sizeof out);
        EXPECT_EQ(FormatPrint(out, c.size, c.format, args, c.count), c.status);
        EXPECT_STREQ(out, c.expected);
        U32 size = 0;
        U32 rc = FormatSizeGet(c.format, args, c.count, &size);
        if (c.status == NLS_ERR_FORMAT)
            EXPECT_EQ(rc, NLS_ERR_FORMAT);
        else if (c.status == 0)
            EXPECT_EQ(size, std::strlen(c.expected) + 1);
        else
            EXPECT_GT(size, c.size);
    }
    char out[4] = "abc";
    EXPECT_EQ(FormatPrint(out, 0, "x", nullptr, 0), NLS_ERR_TRUNCATED);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(FormatPrint(nullptr, 4, "x", nullptr, 0), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(FormatPrint(out, 4, nullptr, nullptr, 0), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(FormatPrint(out, 4, "%1", nullptr, 1), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(FormatSizeGet("x", nullptr, 0, nullptr), NLS_ERR_NULL_POINTER);
    U32 size = 0;
    EXPECT_EQ(FormatSizeGet("%(32767)1%(-32768)1", args, 1, &size), 0u);
    EXPECT_EQ(size, 32767u + 32768u + 1u);
}

// ---- writing catalogs ----

TEST_F(Catalog, WriteAndReadBack)
{
    rqtest::LeakCheck leaks;
    std::string longList = "{item0", edgeList = "{x";
    for (int i = 1; i < 60; ++i) longList.append(",item").append(std::to_string(i));
    for (int i = 0; i < 102; ++i) edgeList += ",x";  // one character past a line once written as "edge = {...}"
    longList += "}", edgeList += "}";
    struct Entry { const char *section; const char *key; std::string value; } entries[] = {
        {"datef", "day", "{Sunday,Monday}"}, {"datef", "long", longList},
        {"datef", "edge", edgeList}, {"datef", "quoted list", "{\"a, b\",c d, \"e\"}"},
        {"msg", "hash", "50% # not a comment"},
        {"msg", "quote", "say \"hi\" \\o/"}, {"msg", "blanks", "  padded\t"}, {"msg", "lines", "one\ntwo\tthree"},
        {"msg", "empty", ""}, {"msg", "brace", "{not closed"}, {"msg", "braces", "} and {"},
        {"msg", "max", std::string(799, 'x')},
    };
    HLIST catalog = 0;
    writeFile(path, "");
    ASSERT_EQ(DX_NLSListCreate(&catalog, 0, path.c_str()), 0u);
    ASSERT_EQ(DX_NLSAddSection(catalog, "datef"), 0u);
    ASSERT_EQ(DX_NLSAddSection(catalog, "msg"), 0u);
    for (const Entry &e : entries) {
        SCOPED_TRACE(e.key);
        U32 rc = DX_NLSAddEntry(catalog, e.section, e.key, e.value.c_str());
        // 799 characters only fit on one line as a list.
        EXPECT_EQ(rc, std::strcmp(e.key, "max") == 0 ? NLS_ERR_VALUE : 0u);
    }
    ASSERT_EQ(DX_NLSWriteToAFile(catalog, path.c_str()), 0u);
    DX_NLSListDestroy(&catalog);

    ASSERT_EQ(DX_NLSListCreate(&catalog, 0, path.c_str()), 0u);
    for (const Entry &e : entries) {
        if (std::strcmp(e.key, "max") == 0)
            continue;
        SCOPED_TRACE(e.key);
        char out[NLS_VALUE_SIZE];
        EXPECT_EQ(DX_NLSGet(catalog, out, sizeof out, e.section, e.key), 0u);
        EXPECT_EQ(std::string(out), e.value);
        EXPECT_EQ(DX_GetProfileStr(path.c_str(), e.section, e.key, out, sizeof out, "dflt"), 0u);
        EXPECT_EQ(std::string(out), e.value);
    }
    HLIST list = 0;  // the long list read back as a list by the profile reader
    U32 count = 0;
    ASSERT_EQ(DX_GetProfileStrList(path.c_str(), "datef", "long", &list, 0), 0u);
    DX_ListGetElemNum(list, &count);
    EXPECT_EQ(count, 60u);
    DX_ListDestroy(&list);
    // Every line fits the reader's line buffer, and sections keep their order.
    std::string text = rqtest::readFile(path);
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        EXPECT_LE(nl - start + 1, 214u) << text.substr(start, nl - start);
    EXPECT_LT(text.find("[datef]"), text.find("[msg]"));

    // Rewriting what was read gives the same file.
    ASSERT_EQ(DX_NLSWriteToAFile(catalog, path.c_str()), 0u);
    EXPECT_EQ(rqtest::readFile(path), text);
    DX_NLSListDestroy(&catalog);
}

TEST_F(Catalog, WritersRefuse)
{
    rqtest::LeakCheck leaks;
    HLIST catalog = 0;
    writeFile(path, "[a]\nk = 1\n");
    ASSERT_EQ(DX_NLSListCreate(&catalog, NLS_MODE_PRIORITY, path.c_str()), 0u);
    struct Case { const char *section; const char *key; const char *value; U32 status; } adds[] = {
        {"a", "k", "2", NLS_ERR_DUP_KEY}, {"b", "k", "2", NLS_ERR_NO_SECTION}, {"a", "", "v", NLS_ERR_VALUE},
        {"a", " k", "v", NLS_ERR_VALUE}, {"a", "k=", "v", NLS_ERR_VALUE}, {"a", "[k", "v", NLS_ERR_VALUE},
        {"a", "#k", "v", NLS_ERR_VALUE}, {"a", "0123456789012345678901234567890x", "v", NLS_ERR_VALUE},
        {"a", "cr", "a\rb", NLS_ERR_VALUE}, {"a", "x", nullptr, NLS_ERR_NULL_POINTER},
        {"a", "0123456789012345678901234567890", "v", 0},
    };
    for (const Case &c : adds) {
        SCOPED_TRACE(c.key);
        EXPECT_EQ(DX_NLSAddEntry(catalog, c.section, c.key, c.value), c.status);
    }
    EXPECT_EQ(DX_NLSUpdateEntry(catalog, "a", "missing", "v"), NLS_ERR_NO_KEY);
    EXPECT_EQ(DX_NLSUpdateEntry(catalog, "a", "k", "a\rb"), NLS_ERR_VALUE);
    EXPECT_EQ(DX_NLSUpdateEntry(catalog, "a", "k", "new"), 0u);
    char out[8];
    DX_NLSGet(catalog, out, sizeof out, "a", "k");
    EXPECT_STREQ(out, "new");
    for (const char *bad : {"", "a b", "a]", "0123456789012345678901234567890x"})
        EXPECT_EQ(DX_NLSAddSection(catalog, bad), NLS_ERR_VALUE) << bad;
    EXPECT_EQ(DX_NLSAddSection(catalog, "a"), NLS_ERR_DUP_SECTION);
    EXPECT_EQ(DX_NLSAddSection(catalog, nullptr), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(DX_NLSAddSection(catalog, "b"), 0u);
    HLIST keys = 0;
    U32 flags = 0;
    DX_ListGetLast(catalog, nullptr, &keys);
    DX_ListGetFlags(keys, &flags);
    EXPECT_NE(flags & DX_LIST_PRIORITY, 0u);
    EXPECT_EQ(DX_NLSWriteToAFile(catalog, nullptr), NLS_ERR_NULL_POINTER);
    EXPECT_EQ(DX_NLSWriteToAFile(catalog, dir.file("no/such/dir").c_str()), NLS_ERR_WRITE);
    DX_NLSListDestroy(&catalog);
}

TEST_F(Catalog, CreateOrUpdateFile)
{
    rqtest::LeakCheck leaks;
    ASSERT_EQ(DX_NLSCreateOrUpdateFile(path.c_str(), "s", "k", "one"), 0u);
    ASSERT_EQ(DX_NLSCreateOrUpdateFile(path.c_str(), "s", "j", "{x, y}"), 0u);
    ASSERT_EQ(DX_NLSCreateOrUpdateFile(path.c_str(), "t", "k", "three"), 0u);
    ASSERT_EQ(DX_NLSCreateOrUpdateFile(path.c_str(), "s", "k", "two"), 0u);
    EXPECT_EQ(rqtest::readFile(path), "[s]\nk = two\nj = {x, y}\n\n[t]\nk = three\n");
    EXPECT_EQ(DX_NLSCreateOrUpdateFile(path.c_str(), "s", "k", "a\rb"), NLS_ERR_VALUE);
    EXPECT_EQ(DX_NLSCreateOrUpdateFile(path.c_str(), "s s", "k", "v"), NLS_ERR_VALUE);
    EXPECT_EQ(DX_NLSCreateOrUpdateFile(nullptr, "s", "k", "v"), NLS_ERR_NULL_POINTER);
    writeFile(path, "[s]\nk=1\nk=2\n");
    EXPECT_EQ(DX_NLSCreateOrUpdateFile(path.c_str(), "s", "k", "v"), NLS_ERR_DUP_KEY);
    EXPECT_EQ(rqtest::readFile(path), "[s]\nk=1\nk=2\n");  // a file that cannot be read is left alone
}

TEST_F(Catalog, FormatFromCatalog)
{
    rqtest::LeakCheck leaks;
    writeFile(path, "[msg]\nopen = \"Impossible d'ouvrir %1 : %2\"\nbad = \"%7\"\n");
    HLIST catalog = 0;
    ASSERT_EQ(DX_NLSListCreate(&catalog, 0, path.c_str()), 0u);
    const char *args[] = {"f.txt", "refus\xC3\xA9"};
    char out[64];
    EXPECT_EQ(DX_NLSFormat(catalog, out, sizeof out, "msg", "open", args, 2), 0u);
    EXPECT_STREQ(out, "Impossible d'ouvrir f.txt : refus\xC3\xA9");
    EXPECT_EQ(DX_NLSFormat(catalog, out, sizeof out, "msg", "none", args, 2), NLS_ERR_NO_KEY);
    EXPECT_STREQ(out, "");
    ZOL_EXTSTR s;
    ASSERT_EQ(ZOL_ExtstrInit(&s, 0), 0u);
    ZOL_ExtstrAdd(&s, "> ");
    EXPECT_EQ(DX_NLSFormatCat(catalog, &s, "msg", "open", args, 2), 0u);
    EXPECT_EQ(DX_NLSFormatCat(catalog, &s, "msg", "bad", args, 2), NLS_ERR_FORMAT);
    EXPECT_STREQ(s.text, "> Impossible d'ouvrir f.txt : refus\xC3\xA9");
    rqtest::allocationSweep(
        [&] {
            ZOL_EXTSTR t;
            U32 rc = ZOL_ExtstrInit(&t, 0);
            if (rc == 0)
                rc = DX_NLSFormatCat(catalog, &t, "msg", "open", args, 2);
            ZOL_ExtstrFree(&t);
            return rc;
        },
        NLS_ERR_NO_MEMORY);
    ZOL_ExtstrFree(&s);
    DX_NLSListDestroy(&catalog);
}

// The shipped catalogs hold seven day names and twelve month names in both
// forms (their layouts are printed by the date and time tests).
TEST(CatalogSamples, NamesAndLayouts)
{
    struct Sample { const char *file; const char *sunday; const char *december; const char *august; } samples[] = {
        {"en_US.profile", "Sunday", "December", "Aug"},
        {"fr_FR.profile", "dimanche", "d\xC3\xA9" "cembre", "ao\xC3\xBBt"},
    };
    for (const Sample &s : samples) {
        SCOPED_TRACE(s.file);
        std::string path = std::string(RQ_DATA_DIR) + "/nls/" + s.file;
        HLIST catalog = 0;
        ASSERT_EQ(DX_NLSListCreate(&catalog, NLS_MODE_PLAIN, path.c_str()), 0u);
        struct Names { const char *key; U32 count; } names[] = {{"day", 7}, {"DAY", 7}, {"month", 12}, {"MONTH", 12}};
        char out[NLS_ELEMENT_SIZE];
        for (const Names &n : names) {
            SCOPED_TRACE(n.key);
            for (U32 i = 0; i < n.count; ++i) {
                EXPECT_EQ(DX_NLSGetElement(catalog, out, sizeof out, "datef", n.key, i), 0u);
                EXPECT_NE(out[0], '\0');
            }
            EXPECT_EQ(DX_NLSGetElement(catalog, out, sizeof out, "datef", n.key, n.count), NLS_ERR_NO_ELEMENT);
        }
        std::string picked;
        for (auto [key, index] : {std::pair{"DAY", 0}, std::pair{"MONTH", 11}, std::pair{"month", 7}})
            picked.append(DX_NLSGetElement(catalog, out, sizeof out, "datef", key, index) == 0 ? out : "?").append("|");
        EXPECT_EQ(picked, std::string(s.sunday) + "|" + s.december + "|" + s.august + "|");
        DX_NLSListDestroy(&catalog);
    }
}

}  // namespace
