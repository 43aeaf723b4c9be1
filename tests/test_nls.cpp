// Catalogs and formatting: the bounded writers and readers, braced
// arguments, catalogs loaded from profile files and the shipped samples.
#include "rqtest.h"

#include "rqcore/lists.h"
#include "rqcore/nls.h"
#include "rqcore/profiles.h"

#include <cstring>
#include <fstream>
#include <string>

namespace {

void writeFile(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

// ---- primitives ----

TEST(Format, FieldsAndCounter)
{
    // Worked out from the alignment rules: positive widths pad on the left,
    // negative on the right, and a short width never cuts; the counter cuts,
    // the overflow landing on the first place past it and the NUL last.
    struct Case {
        const char *text;  // nullptr: the number 42 / 0 / 4294967295 below
        U32 number;
        S16 width;
        U32 places;
        const char *expected;
        U32 left;
    } cases[] = {
        {nullptr, 42, 5, 100, "   42", 95},       {nullptr, 42, -5, 100, "42   ", 95},
        {nullptr, 42, 1, 100, "42", 98},          {nullptr, 0, 0, 100, "0", 99},
        {nullptr, 4294967295u, 0, 100, "4294967295", 90},
        {nullptr, 42, 0, 0, "", 0},               {nullptr, 12345, -8, 3, "123", 0},
        {"abcdef", 0, 0, 3, "abc", 0},            {"abcdef", 0, 0, 6, "abcdef", 0},
        {"ab", 0, 4, 3, "  a", 0},                {"ab", 0, -4, 3, "ab ", 0},
        {"", 0, -3, 10, "   ", 7},                {"", 0, 0, 10, "", 10},
        {"ab", 0, 32767, 4, "    ", 0},           {"ab", 0, -32768, 4, "ab  ", 0},
        {"xyz", 0, 32767, 40000, nullptr, 40000 - 32767},
        {"xyz", 0, -32768, 40000, nullptr, 40000 - 32768},
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
        if (c.expected != nullptr) {
            EXPECT_EQ(got, c.expected);
        } else {  // long fields: blanks and the text in the right order
            size_t field = static_cast<size_t>(c.width < 0 ? -c.width : c.width);
            ASSERT_EQ(got.size(), field);
            EXPECT_EQ(got.find(c.text), c.width > 0 ? field - 3 : 0);
        }
    }
}

TEST(Format, NullArgumentsAndEmptyCounter)
{
    U32 places = 0;
    EXPECT_EQ(DX_FormatEmpty(&places), 1u);
    EXPECT_EQ(DX_FormatEmpty(nullptr), 1u);
    places = 2;
    EXPECT_EQ(DX_FormatEmpty(&places), 0u);
    EXPECT_EQ(places, 1u);
    char buffer[8] = "junk";
    EXPECT_EQ(DX_FormatWriteStrF(nullptr, &places, "x", 3), nullptr);
    EXPECT_EQ(places, 1u);
    // No counter counts as full: only the NUL is written.
    EXPECT_EQ(DX_FormatWriteStrF(buffer, nullptr, "abc", 0), buffer);
    EXPECT_STREQ(buffer, "");
    places = 5;
    EXPECT_EQ(DX_FormatWriteStrF(buffer, &places, nullptr, 2), buffer + 2);
    EXPECT_STREQ(buffer, "  ");
}

TEST(Format, ReadWidths)
{
    // 16-bit arithmetic: digits beyond the range wrap modulo 65536.
    struct Case {
        const char *text;
        S16 s16;
        U16 u16;
        size_t s16Used;
        size_t u16Used;
    } cases[] = {
        {"-12x", -12, 0, 3, 0},    {"+7", 7, 0, 2, 0},           {"x", 0, 0, 0, 0},
        {"123abc", 123, 123, 3, 3}, {"-", 0, 0, 0, 0},           {"+x", 0, 0, 0, 0},
        {"32767", 32767, 32767, 5, 5}, {"-32768", -32768, 0, 6, 0}, {"65535", -1, 65535, 5, 5},
        {"65536", 0, 0, 5, 5},     {"", 0, 0, 0, 0},             {"007", 7, 7, 3, 3},
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
    struct Case {
        const char *text;
        U32 size;
        const char *expected;
        size_t used;
    } cases[] = {
        {"{a{b}c}rest", 20, "a{b}c", 7},
        {"{}x", 20, "", 2},
        {"{abc}x", 3, "ab", 5},     // cut to size-1, still walks to the brace
        {"{abc}x", 1, "", 5},
        {"{ab{c}", 20, "ab{c}", 6},  // never closed: stops at the end
        {"{abc", 20, "abc", 4},
        {"abc", 20, "dflt", 0},      // no brace: default, position unchanged
        {"{abc}", 0, nullptr, 0},    // size 0: nothing written
        {"", 20, "dflt", 0},
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
    "[timef]\n"
    "time = %h2:%mi\n"
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
        EXPECT_EQ(count, 3u);
        struct Case {
            const char *section;
            const char *key;
            U32 index;  // ~0u: the whole value
            U32 size;
            U32 status;
            const char *expected;
        } cases[] = {
            {"datef", "day", ~0u, 64, 0, "{Sunday,Monday}"},
            {"datef", "day", 0, 64, 0, "Sunday"},
            {"datef", "day", 1, 64, 0, "Monday"},
            {"datef", "day", 2, 64, NLS_ERR_NO_ELEMENT, ""},
            {"datef", "day", 0xFFFFFFFEu, 64, NLS_ERR_NO_ELEMENT, ""},
            {"datef", "day", 1, 4, 0, "Mon"},
            {"datef", "day", ~0u, 1, 0, ""},
            {"datef", "empty", 0, 64, 0, ""},
            {"datef", "empty", 1, 64, NLS_ERR_NO_ELEMENT, ""},
            {"datef", "quoted", ~0u, 64, 0, "a, b"},
            {"datef", "quoted", 0, 64, PROFIL_ERR_SYNTAX, ""},
            {"datef", "Day", 0, 64, NLS_ERR_NO_KEY, ""},
            {"datef", "dayX", ~0u, 64, NLS_ERR_NO_KEY, ""},
            {"Datef", "day", ~0u, 64, NLS_ERR_NO_SECTION, ""},
            {"timef", "time", ~0u, 64, 0, "%h2:%mi"},
            {"timef", "time", 0, 64, PROFIL_ERR_SYNTAX, ""},
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
        EXPECT_EQ(DX_NLSGet(catalog, junk, 4, nullptr, "day"), NLS_ERR_NULL_POINTER);
        EXPECT_EQ(junk[0], '\0');
        EXPECT_EQ(DX_NLSGetElement(catalog, junk, 4, "datef", nullptr, 0), NLS_ERR_NULL_POINTER);
        EXPECT_EQ(DX_NLSListDestroy(&catalog), 0u);
        EXPECT_EQ(catalog, 0u);
    }
    EXPECT_EQ(DX_NLSListDestroy(nullptr), DX_LIST_ERR_NO_LIST);
    HLIST none = 0;
    EXPECT_EQ(DX_NLSListDestroy(&none), DX_LIST_ERR_NO_LIST);
}

TEST_F(Catalog, CreateFailures)
{
    struct Case {
        const char *text;
        U32 status;
    } cases[] = {
        {"[a]\nk=1\n[b]\n[a]\n", NLS_ERR_DUP_SECTION},
        {"[a]\nk=1\nk=2\n", NLS_ERR_DUP_KEY},
        {"[a]\nk={1,\n2\n", PROFIL_ERR_SYNTAX},
        {"[a]\nk=\"x\n", PROFIL_ERR_QUOTING},
        {"", 0},
        {"k=1\n[a]\n", 0},  // lines before the first header are not read
        // The section reader lists "[ a ]" under the empty name, which no
        // header matches: such a file cannot be loaded as a catalog.
        {"[ a ]\nk=1\n", PROFIL_ERR_NO_SECTION},
        {"[a b]\nk=1\n", PROFIL_ERR_NO_SECTION},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        writeFile(path, c.text);
        rqtest::LeakCheck leaks;
        HLIST catalog = 0xBEEF;
        EXPECT_EQ(DX_NLSListCreate(&catalog, NLS_MODE_PLAIN, path.c_str()), c.status);
        if (c.status == 0)
            EXPECT_EQ(DX_NLSListDestroy(&catalog), 0u);
        else
            EXPECT_EQ(catalog, 0xBEEFu);
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
    writeFile(path, kCatalog);
    int allocations = rqtest::allocationSweep(
        [&] {
            HLIST catalog = 0;
            U32 rc = DX_NLSListCreate(&catalog, NLS_MODE_PRIORITY, path.c_str());
            if (rc == 0)
                DX_NLSListDestroy(&catalog);
            return rc;
        },
        [](U32 rc) { EXPECT_NE(rc, 0u); });
    EXPECT_GT(allocations, 4);
}

// The shipped catalogs hold seven day names and twelve month names in both
// forms, and the layouts of the date and time printers.
TEST(CatalogSamples, NamesAndLayouts)
{
    struct Sample {
        const char *file;
        const char *sunday;
        const char *december;
        const char *august;
    } samples[] = {
        {"en_US.profile", "Sunday", "December", "Aug"},
        {"fr_FR.profile", "dimanche", "d\xC3\xA9" "cembre", "ao\xC3\xBBt"},
    };
    for (const Sample &s : samples) {
        SCOPED_TRACE(s.file);
        std::string path = std::string(RQ_DATA_DIR) + "/nls/" + s.file;
        HLIST catalog = 0;
        ASSERT_EQ(DX_NLSListCreate(&catalog, NLS_MODE_PLAIN, path.c_str()), 0u);
        struct Names {
            const char *key;
            U32 count;
        } names[] = {{"day", 7}, {"DAY", 7}, {"month", 12}, {"MONTH", 12}};
        char out[NLS_ELEMENT_SIZE];
        for (const Names &n : names) {
            SCOPED_TRACE(n.key);
            for (U32 i = 0; i < n.count; ++i) {
                EXPECT_EQ(DX_NLSGetElement(catalog, out, sizeof out, "datef", n.key, i), 0u);
                EXPECT_NE(out[0], '\0');
            }
            EXPECT_EQ(DX_NLSGetElement(catalog, out, sizeof out, "datef", n.key, n.count), NLS_ERR_NO_ELEMENT);
        }
        DX_NLSGetElement(catalog, out, sizeof out, "datef", "DAY", 0);
        EXPECT_STREQ(out, s.sunday);
        DX_NLSGetElement(catalog, out, sizeof out, "datef", "MONTH", 11);
        EXPECT_STREQ(out, s.december);
        DX_NLSGetElement(catalog, out, sizeof out, "datef", "month", 7);
        EXPECT_STREQ(out, s.august);
        for (const char *key : {"date", "DATE"}) {
            ASSERT_EQ(DX_NLSGet(catalog, out, sizeof out, "datef", key), 0u);
            EXPECT_NE(std::strstr(out, "%"), nullptr);
            EXPECT_EQ(std::strstr(out, "da"), nullptr);
            EXPECT_EQ(std::strstr(out, "DA"), nullptr);
        }
        for (const char *key : {"time", "TIME"})
            EXPECT_EQ(DX_NLSGet(catalog, out, sizeof out, "timef", key), 0u);
        DX_NLSListDestroy(&catalog);
    }
}

}  // namespace
