// Character-set names: squishing, the static table and its kept
// irregularities, "charmap.config" with its scan widths and fallback, map-file
// names, the locale lookups, and the shipped map files.
#include "rqtest.h"

#include "rqcore/charmap.h"
#include "rqsis/rqsis_test.h"

#include <atomic>
#include <cctype>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

const U32 kNull = CHARMAP_ERR_NULL_ARGUMENT, kNegative = CHARMAP_ERR_NEGATIVE_LENGTH;

// Sets a directory holding `contents` as "charmap.config"; clears it at the end.
class ConfigDir {
public:
    explicit ConfigDir(const std::string &contents)
    {
        std::ofstream(dir_.file("charmap.config"), std::ios::binary) << contents;
        EXPECT_EQ(CHARMAP_setConfigDirectory(dir_.path().c_str()), 0u);
    }
    ~ConfigDir() { CHARMAP_setConfigDirectory(nullptr); }
    const std::string &path() const { return dir_.path(); }

private:
    rqtest::TempDir dir_;
};

struct Result {
    U32 status;
    std::string canonical;
    U32 id;
    U32 type;
    std::string mapFile;
};

Result fromStatic(const char *name, int len = CHARMAP_CANONICAL_SIZE)
{
    char canonical[CHARMAP_CANONICAL_SIZE];
    rqtest::fillJunk(canonical, sizeof canonical);
    Result r{0, "", 0xDEADBEEF, 0xDEADBEEF, ""};
    r.status = CHARMAP_getCharacterSetFromStatic(name, canonical, len, &r.id, &r.type);
    r.canonical = len > 0 ? canonical : "<untouched>";
    return r;
}

Result fromFile(const char *name)
{
    char canonical[CHARMAP_CANONICAL_SIZE], mapFile[CHARMAP_MAP_FILE_SIZE];
    rqtest::fillJunk(canonical, sizeof canonical);
    rqtest::fillJunk(mapFile, sizeof mapFile);
    Result r{};
    r.status = CHARMAP_getCharacterSetFromFile(nullptr, name, canonical, sizeof canonical, &r.id, mapFile,
                                               sizeof mapFile, &r.type);
    if (r.status == 0) {
        r.canonical = canonical;
        r.mapFile = mapFile;
    }
    return r;
}

std::string fileName(const char *name, int len, U32 *status)
{
    char out[128];
    rqtest::fillJunk(out, sizeof out);
    *status = CHARMAP_generateCharacterSetFileName(name, out, len);
    return len > 0 ? std::string(out) : std::string("<untouched>");
}

TEST(CharmapSquish, KeepsDigitsAndRaisesLetters)
{
    // Expected values from the rule: A-Z and 0-9 kept, a-z raised, all else dropped.
    const char *cases[][2] = {
        {"ISO-8859-1", "ISO88591"}, {"iso_8859-1", "ISO88591"}, {"Iso 8859 1", "ISO88591"},
        {"utf-8\r\n", "UTF8"},      {"\xC3\xA9t\xE9", "T"},     {"\x7F@[`{~---", ""},
    };
    for (auto &c : cases) {
        char buf[32];
        std::strcpy(buf, c[0]);
        EXPECT_EQ(CHARMAP_squishCharacterSetName(buf), 0u);
        EXPECT_STREQ(buf, c[1]) << c[0];
    }
    EXPECT_EQ(CHARMAP_squishCharacterSetName(nullptr), kNull);
}

TEST(CharmapStatic, NamesFromTheTable)
{
    // Expected values from the library's character-set table, its kept
    // irregularities included.
    struct Case {
        const char *name;
        U32 status;
        const char *canonical;
        U32 id;
        U32 type;
    } cases[] = {
        {"latin-1", 0, "ISO-8859-1", 4, CHARMAP_TYPE_8BIT},
        {"utf_8", 0, "UTF-8", 106, CHARMAP_TYPE_UTF8},
        {"ANSI_X3.4-1968", 0, "US-ASCII", 3, CHARMAP_TYPE_8BIT},
        {"csShiftJIS", 0, "Shift_JIS", 17, CHARMAP_TYPE_MBCS},
        {"hp-roman", 0, "hp-roman", 5010, CHARMAP_TYPE_8BIT},
        {"Western (Mac OS Roman)", 0, "MAC-ROMAN", 5501, CHARMAP_TYPE_8BIT},
        {"ISO-2022-JP", 0, "ISO-2022-JP", 39, CHARMAP_TYPE_ISO2022JP},
        {"ms-1252", 0, "MSCP1252", 5102, CHARMAP_TYPE_8BIT},
        {"T.61-8bit", 0, "T61", 76, CHARMAP_TYPE_MBCS},
        {"csBig5", 0, "Big5", 2026, CHARMAP_TYPE_8BIT},  // the first of Big5's two groups wins
        {"TIS-620", 0, "tis620", 5008, CHARMAP_TYPE_8BIT},
        {"thai8", 0, "tis620", 5008, CHARMAP_TYPE_8BIT},  // tis620's second half, after T61
        {"Unknown", CHARMAP_ERR_NOT_RECOGNISED, "Unknown", 0, CHARMAP_TYPE_8BIT},  // row 0: the caller's spelling
        {"ebcdic", CHARMAP_ERR_NOT_FOUND, "", 0, 0},
        {"cp1252", CHARMAP_ERR_NOT_FOUND, "", 0, 0},  // only 1252, MS1252 and MSCP1252
        {"", CHARMAP_ERR_NOT_FOUND, "", 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Result r = fromStatic(c.name);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.canonical, c.canonical);
        EXPECT_EQ(r.id, c.id);
        EXPECT_EQ(r.type, c.type);
        U32 id = 0xDEADBEEF, type = 0xDEADBEEF;
        EXPECT_EQ(CHARMAP_getCharacterSetID(c.name, &id), c.status);
        EXPECT_EQ(CHARMAP_getCharacterSetType(c.name, &type), c.status);
        EXPECT_EQ(id, c.id);
        EXPECT_EQ(type, c.type);
    }
    // The caller's name may be the output buffer.
    char out[16] = "un-known";
    U32 id = 99;
    EXPECT_EQ(CHARMAP_getCharacterSetName(out, out, sizeof out, &id), U32{CHARMAP_ERR_NOT_RECOGNISED});
    EXPECT_STREQ(out, "un-known");
}

TEST(CharmapStatic, EveryIdentifierRoundTripsThroughItsCanonicalName)
{
    std::set<U32> ids;
    for (U32 id = 0; id < 6000; ++id) {
        char canonical[CHARMAP_CANONICAL_SIZE];
        U32 type = 0xDEADBEEF;
        U32 status = CHARMAP_getCharacterSetFromIdFromStatic(id, canonical, sizeof canonical, &type);
        if (status != 0) {
            ASSERT_EQ(status, U32{CHARMAP_ERR_NOT_FOUND});
            ASSERT_EQ(canonical[0], 0);
            ASSERT_EQ(type, 0u);
            continue;
        }
        ids.insert(id);
        SCOPED_TRACE(canonical);
        Result back = fromStatic(canonical);
        EXPECT_EQ(back.status, id == 0 ? U32{CHARMAP_ERR_NOT_RECOGNISED} : 0u);
        EXPECT_EQ(back.id, id);
        EXPECT_EQ(back.type, type) << "Big5 by id is the first group too";
        EXPECT_EQ(back.canonical, canonical);
    }
    EXPECT_EQ(ids.size(), 64u) << "66 groups, Big5 and tis620 standing twice";
}

TEST(CharmapStatic, NameLimitAndOutputLengths)
{
    std::string fits = std::string(60, '-') + "utf8";  // 64 characters are squished
    EXPECT_EQ(fromStatic(fits.c_str()).id, 106u);
    EXPECT_EQ(fromStatic(("-" + fits).c_str()).status, U32{CHARMAP_ERR_NOT_FOUND});
    EXPECT_EQ(fromStatic("latin1", 4).canonical, "ISO");
    Result r = fromStatic("latin1", 0);
    EXPECT_EQ(r.status, 0u) << "length 0 writes no text but still answers";
    EXPECT_EQ(r.id, 4u);
    U32 type = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromStatic(17, nullptr, 5, &type), 0u) << "canonical is optional";
    EXPECT_EQ(type, U32{CHARMAP_TYPE_MBCS});
}

TEST(CharmapArguments, NullAndNegative)
{
    char b[16];
    U32 id, t;
    EXPECT_EQ(CHARMAP_getCharacterSetFromStatic("a", b, 16, nullptr, &t), kNull);
    EXPECT_EQ(CHARMAP_getCharacterSetFromStatic("a", b, -1, &id, &t), kNegative);
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromStatic(4, b, 16, nullptr), kNull);
    EXPECT_EQ(CHARMAP_getCharacterSetFromFile(nullptr, "a", b, 16, &id, nullptr, 16, &t), kNull);
    EXPECT_EQ(CHARMAP_getCharacterSetFromFile(nullptr, "a", b, 16, &id, b, -1, &t), kNegative);
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 4, nullptr, 16, b, 16, &t), kNull);
    EXPECT_EQ(CHARMAP_getCharacterSetName(nullptr, b, 16, &id), kNull);
    EXPECT_EQ(CHARMAP_getCharacterSetName("a", b, INT_MIN, &id), kNegative);
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(4, b, -1, &t), kNegative);
    EXPECT_EQ(CHARMAP_getCharacterSetID(nullptr, &id), kNull);
    EXPECT_EQ(CHARMAP_generateCharacterSetFileName("a", nullptr, 16), kNull);
    EXPECT_EQ(CHARMAP_generateCharacterSetFileName("a", b, -1), kNegative);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSetID(b, 16, nullptr), kNull);
    for (auto f : {CHARMAP_getLocaleCharacterSet, CHARMAP_getLocaleCharacterSet_win32,
                   CHARMAP_getLocaleCharacterSet_hpux, CHARMAP_getLocaleCharacterSet_solaris,
                   CHARMAP_getLocaleCharacterSet_fallback}) {
        EXPECT_EQ(f(nullptr, 16), kNull);
        EXPECT_EQ(f(b, -1), kNegative);
    }
}

TEST(CharmapConfig, LineRulesAndScanWidths)
{
    // Each line exercises one rule of the reader; the answers follow from the
    // scan "%64s %d %64s %64s %68s" of at most 255 characters a line.
    std::string c64(64, 'C'), c65(65, 'C'), m68(68, 'm'), m69(69, 'n');
    ConfigDir config("ISO-8859-15 111 LATIN9 8BIT latin9.map\n"
                     "# COMMENTED 1 COMMENT 8BIT c.map\n  \t# INDENTED 2 INDENTED 8BIT c.map\n\n   \t  \n"
                     "\t  Tabbed 3 TABBED mbcs tabbed.map\n"
                     "FOUR 4 FOURFIELDS 8BIT\nWordy x WORDY 8BIT w.map\n"
                     "First 5 Dup 8BIT first.map\nSecond 6 DUP 8BIT second.map\n"
                     "Crlf 7 CRLF utf8 crlf.map\r\nNeg -1 NEGATIVE other n.map\nOdd 8 ODD bogus o.map\n"
                     "J 9 JP Iso2022Jp j.map\nK 10 KOREAN euc k.map\nW 11 WIDE 16bit w.map\n" +
                     c64 + " 20 CAN64 8BIT c64.map\n" + c65 + " 21 CAN65 8BIT c65.map\n" +
                     "M 22 MAP68 8BIT " + m68 + "\nM 23 MAP69 8BIT " + m69 + "\n" +
                     "Pad 30 PADDED 8BIT" + std::string(240, ' ') + "pad.map\n" +
                     "#" + std::string(260, 'x') + " Tail 31 TAIL 8BIT tail.map\n" +
                     "Fits 32 FITS 8BIT" + std::string(230, ' ') + "fits.map\n" +
                     "Sp 24 Spaced-Alias_Name 8BIT s.map\nLast 25 LAST 8BIT last.map");  // no final line end
    const U32 none = CHARMAP_ERR_NOT_IN_CONFIG;
    struct Case {
        const char *name;
        U32 status;
        std::string canonical;
        U32 id;
        U32 type;
        std::string mapFile;
    } cases[] = {
        {"Latin-9", 0, "ISO-8859-15", 111, CHARMAP_TYPE_8BIT, "latin9.map"},
        {"comment", none, "", 0, 0, ""},
        {"indented", none, "", 0, 0, ""},
        {"tabbed", 0, "Tabbed", 3, CHARMAP_TYPE_MBCS, "tabbed.map"},
        {"fourfields", none, "", 0, 0, ""},
        {"wordy", none, "", 0, 0, ""},
        {"dup", 0, "First", 5, CHARMAP_TYPE_8BIT, "first.map"},
        {"crlf", 0, "Crlf", 7, CHARMAP_TYPE_UTF8, "crlf.map"},
        {"negative", 0, "Neg", 0xFFFFFFFF, CHARMAP_TYPE_OTHER, "n.map"},
        {"odd", 0, "Odd", 8, CHARMAP_TYPE_UNKNOWN, "o.map"},
        {"jp", 0, "J", 9, CHARMAP_TYPE_ISO2022JP, "j.map"},
        {"korean", 0, "K", 10, CHARMAP_TYPE_EUC, "k.map"},
        {"wide", 0, "W", 11, CHARMAP_TYPE_16BIT, "w.map"},
        {"can64", 0, c64, 20, CHARMAP_TYPE_8BIT, "c64.map"},
        {"can65", none, "", 0, 0, ""},  // the 65th character is read as the number
        {"map68", 0, "M", 22, CHARMAP_TYPE_8BIT, m68},
        {"map69", 0, "M", 23, CHARMAP_TYPE_8BIT, m69.substr(0, 68)},
        {"padded", none, "", 0, 0, ""},  // its map file starts beyond the 255th character
        {"tail", none, "", 0, 0, ""},    // the rest of a long line is no line of its own
        {"fits", 0, "Fits", 32, CHARMAP_TYPE_8BIT, "fits.map"},
        {"spaced alias name", 0, "Sp", 24, CHARMAP_TYPE_8BIT, "s.map"},
        {"last", 0, "Last", 25, CHARMAP_TYPE_8BIT, "last.map"},
        {"latin-1", none, "", 0, 0, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Result r = fromFile(c.name);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.canonical, c.canonical);
        EXPECT_EQ(r.mapFile, c.mapFile);
        if (c.status == 0) {
            EXPECT_EQ(r.id, c.id);
            EXPECT_EQ(r.type, c.type);
        }
    }
    // By identifier the first entry carrying it wins, whatever its alias;
    // the type is optional and outputs are cut to the caller's lengths.
    char canonical[CHARMAP_CANONICAL_SIZE], mapFile[8];
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 6, canonical, 4, mapFile, 7, nullptr), 0u);
    EXPECT_STREQ(canonical, "Sec");
    EXPECT_STREQ(mapFile, "second");
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 1, canonical, 9, mapFile, 8, nullptr), none);
}

TEST(CharmapConfig, TwoStepLookupsFallBackToTheTable)
{
    rqtest::LeakCheck leaks;
    ConfigDir config("U 106 UTF8 UTF8 utf8.map\nISO-8859-15 111 LATIN9 8BIT latin9.map\n");
    char canonical[CHARMAP_CANONICAL_SIZE];
    U32 id = 0, type = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetName("latin_9", canonical, sizeof canonical, &id), 0u);
    EXPECT_STREQ(canonical, "ISO-8859-15");
    EXPECT_EQ(CHARMAP_getCharacterSetName("latin-1", canonical, sizeof canonical, &id), 0u);
    EXPECT_EQ(id, 4u);
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(111, nullptr, 0, &type), 0u);
    EXPECT_EQ(type, U32{CHARMAP_TYPE_8BIT});
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(17, canonical, sizeof canonical, &type), 0u);
    EXPECT_STREQ(canonical, "Shift_JIS");
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(4242, canonical, sizeof canonical, &type), U32{CHARMAP_ERR_NOT_FOUND});
    // The file squishes 63 characters of a name, the table 64.
    std::string fits = std::string(59, '-') + "utf8";
    EXPECT_EQ(fromFile(fits.c_str()).mapFile, "utf8.map");
    EXPECT_EQ(fromFile(("-" + fits).c_str()).status, U32{CHARMAP_ERR_NOT_IN_CONFIG});
    EXPECT_EQ(CHARMAP_getCharacterSetID(("-" + fits).c_str(), &id), 0u);
    EXPECT_EQ(id, 106u);
}

TEST(CharmapConfig, NoDirectoryOrNoFile)
{
    rqtest::LeakCheck leaks;
    EXPECT_EQ(fromFile("latin1").status, U32{CHARMAP_ERR_NO_CONFIG}) << "no directory set";
    rqtest::TempDir empty;
    ASSERT_EQ(CHARMAP_setConfigDirectory(empty.path().c_str()), 0u);
    EXPECT_EQ(fromFile("latin1").status, U32{CHARMAP_ERR_NO_CONFIG}) << "no charmap.config in it";
    U32 id = 0, type = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetID("latin1", &id), 0u) << "the table answers instead";
    EXPECT_EQ(id, 4u);
    EXPECT_EQ(CHARMAP_getCharacterSetType("sjis", &type), 0u);
    EXPECT_EQ(type, U32{CHARMAP_TYPE_MBCS});
    std::string tooLong(PATH_MAX, 'd');  // its path cannot be formed
    ASSERT_EQ(CHARMAP_setConfigDirectory(tooLong.c_str()), 0u);
    EXPECT_EQ(fromFile("latin1").status, U32{CHARMAP_ERR_NO_CONFIG});
    ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);
    EXPECT_EQ(fromFile("latin1").status, U32{CHARMAP_ERR_NO_CONFIG}) << "null removes the directory";
}

TEST(CharmapConfig, SettingTheDirectory)
{
    rqtest::LeakCheck leaks;
    ConfigDir config("A 1 ALPHA 8BIT a.map\n");
    // The same text again, and every lookup, take no memory at all.
    std::string same = config.path();
    SIS_TestFailAfter(0);
    EXPECT_EQ(CHARMAP_setConfigDirectory(same.c_str()), 0u);
    EXPECT_EQ(fromFile("alpha").mapFile, "a.map");
    U32 status;
    EXPECT_EQ(fileName("alpha", 20, &status), "a.map");
    EXPECT_EQ(SIS_TestFailFired(), 0);
    // A copy that cannot be made leaves the directory in force.
    EXPECT_EQ(CHARMAP_setConfigDirectory("/elsewhere"), U32{CHARMAP_ERR_NO_MEMORY});
    SIS_TestFailAfter(-1);
    EXPECT_EQ(fromFile("alpha").mapFile, "a.map");
    // The caller's text is copied, not kept.
    same.assign(same.size(), 'x');
    EXPECT_EQ(fromFile("alpha").status, 0u);
    ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);
    rqtest::allocationSweep(
        [] {
            U32 s = CHARMAP_setConfigDirectory("/elsewhere");
            CHARMAP_setConfigDirectory(nullptr);
            return s;
        },
        CHARMAP_ERR_NO_MEMORY);
}

TEST(CharmapConfig, DirectoryChangesWhileOtherThreadsLookUp)
{
    rqtest::LeakCheck leaks;
    rqtest::TempDir a, b;
    std::ofstream(a.file("charmap.config")) << "A 1 SHARED 8BIT a.map\n";
    std::ofstream(b.file("charmap.config")) << "B 2 SHARED MBCS b.map\n";
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t)
        readers.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                Result r = fromFile("shared");
                wrong += !(r.status == U32{CHARMAP_ERR_NO_CONFIG} || (r.id == 1 && r.mapFile == "a.map") ||
                           (r.id == 2 && r.mapFile == "b.map"));
            }
        });
    for (int i = 0; i < 300; ++i)
        CHARMAP_setConfigDirectory(i % 3 == 0 ? a.path().c_str() : i % 3 == 1 ? b.path().c_str() : nullptr);
    for (auto &t : readers)
        t.join();
    CHARMAP_setConfigDirectory(nullptr);
    EXPECT_EQ(wrong.load(), 0);
}

TEST(CharmapFileName, FromTheConfigurationOrTheTable)
{
    // Expected values: the configured file as it stands, else the canonical
    // name squished with ".MAP", else "DEFAULT.MAP" when it fits.
    ConfigDir config("ISO-8859-15 111 LATIN9 8BIT latin9.map\n");
    struct Case {
        const char *name;
        int len;
        U32 status;
        const char *out;
    } cases[] = {
        {"csShiftJIS", 13, 0, "SHIFTJIS.MAP"},
        {"csShiftJIS", 12, CHARMAP_ERR_BUFFER_TOO_SMALL, ""},
        {"klingon", 12, CHARMAP_ERR_DEFAULT_MAP, "DEFAULT.MAP"},
        {"klingon", 11, CHARMAP_ERR_BUFFER_TOO_SMALL, ""},
        {"UNKNOWN", 64, CHARMAP_ERR_DEFAULT_MAP, "DEFAULT.MAP"},
        {"hp-roman8", 64, 0, "HPROMAN8.MAP"},
        {"big5", 9, 0, "BIG5.MAP"},
        {"x0208", 64, 0, "JISC62261983.MAP"},
        {"latin1", 0, CHARMAP_ERR_BUFFER_TOO_SMALL, "<untouched>"},
        {"Latin-9", 11, 0, "latin9.map"},
        {"Latin-9", 10, CHARMAP_ERR_BUFFER_TOO_SMALL, ""},  // a configured name is never cut
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.len));
        U32 status;
        EXPECT_EQ(fileName(c.name, c.len, &status), c.out);
        EXPECT_EQ(status, c.status);
    }
}

class CharmapLocale : public ::testing::Test {
protected:
    void TearDown() override
    {
        unsetenv("LC_ALL");
        std::setlocale(LC_CTYPE, "C");
    }
};

TEST_F(CharmapLocale, CodesetOfTheEnvironmentsLocale)
{
    // Expected values: glibc's nl_langinfo(CODESET) for these locales.
    struct Case {
        const char *locale;
        U32 status;
        const char *name;
        U32 idStatus;
        const char *canonical;
        U32 id;
    } cases[] = {
        {"C.UTF-8", 0, "UTF-8", 0, "UTF-8", 106},
        {"C", 0, "ANSI_X3.4-1968", 0, "US-ASCII", 3},
        {"xx_NOWHERE.KLINGON", CHARMAP_ERR_NOT_FOUND, "UNKNOWN", CHARMAP_ERR_NOT_RECOGNISED, "UNKNOWN", 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.locale);
        setenv("LC_ALL", c.locale, 1);
        char name[64];
        rqtest::fillJunk(name, sizeof name);
        EXPECT_EQ(CHARMAP_getLocaleCharacterSet(name, sizeof name), c.status);
        EXPECT_STREQ(name, c.name);
        U32 id = 0xDEADBEEF;
        EXPECT_EQ(CHARMAP_getLocaleCharacterSetID(name, 4, &id), c.idStatus);
        EXPECT_EQ(std::string(name), std::string(c.canonical).substr(0, 3));
        EXPECT_EQ(id, c.id);
    }
}

TEST_F(CharmapLocale, OtherPlatformsVariants)
{
    setenv("LC_ALL", "C.UTF-8", 1);
    char name[64];
    rqtest::fillJunk(name, sizeof name);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSet_win32(name, sizeof name), 0u);
    EXPECT_EQ(name[0], static_cast<char>(0xA5)) << "the win32 variant writes nothing";
    if (!std::filesystem::exists("/usr/lib/nls/config")) {  // no HP-UX locale table here
        EXPECT_EQ(CHARMAP_getLocaleCharacterSet_hpux(name, sizeof name), U32{CHARMAP_ERR_NOT_FOUND});
        EXPECT_STREQ(name, "UNKNOWN");
    }
    if (!std::filesystem::exists("/usr/lib/locale/C.UTF-8/LC_CTYPE/charmap")) {  // nor Solaris charmaps
        EXPECT_EQ(CHARMAP_getLocaleCharacterSet_solaris(name, sizeof name), U32{CHARMAP_ERR_NOT_FOUND});
        EXPECT_STREQ(name, "UNKNOWN");
    }
    if (std::system("locale charmap >/dev/null 2>&1") == 0) {
        EXPECT_EQ(CHARMAP_getLocaleCharacterSet_fallback(name, sizeof name), 0u);
        EXPECT_STREQ(name, "UTF-8\n") << "the line end stays";
        U32 id = 0;
        EXPECT_EQ(CHARMAP_getCharacterSetID(name, &id), 0u);
        EXPECT_EQ(id, 106u);
    }
}

// Every line of a map file by the loader's rules: two sides of at most 31
// hexadecimal numbers joined by "+", native values bytes, no byte sequence twice.
bool wellFormedSide(const std::string &text, size_t digitsMin, size_t digitsMax)
{
    size_t numbers = 0, digits = 0;
    for (char c : text + "+") {
        if (c == '+') {
            if (digits < digitsMin || digits > digitsMax || ++numbers > 31)
                return false;
            digits = 0;
        } else if (std::isxdigit(static_cast<unsigned char>(c)) && !std::islower(static_cast<unsigned char>(c))) {
            ++digits;
        } else {
            return false;
        }
    }
    return true;
}

std::vector<std::string> checkMapFile(const std::string &path, size_t *entries)
{
    std::vector<std::string> problems;
    std::set<std::string> natives;
    std::ifstream in(path);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::stringstream fields(line);
        std::string native, unicode, rest;
        if (!(fields >> native) || native[0] == '#')
            continue;
        fields >> unicode >> rest;
        bool ok = line.size() < 1024 && wellFormedSide(native, 2, 2) && wellFormedSide(unicode, 1, 4) && rest.empty();
        if (!ok || !natives.insert(native).second)
            problems.push_back(std::to_string(number) + ": " + line);
    }
    *entries = natives.size();
    return problems;
}

TEST(CharmapData, ShippedMapFilesAreWellFormedAndNamedByTheLibrary)
{
    // Written by tools/gen_charmaps.py; each begins "# <FILE>: <canonical>
    // (character-set identifier <id>), ...".
    std::string dir = std::string(RQ_DATA_DIR) + "/charmaps";
    ASSERT_EQ(CHARMAP_setConfigDirectory(dir.c_str()), 0u) << "with the sample charmap.config";
    std::set<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(dir)) {
        if (entry.path().extension() != ".MAP")
            continue;
        std::string name = entry.path().filename();
        files.insert(name);
        SCOPED_TRACE(name);
        size_t entries = 0;
        std::vector<std::string> problems = checkMapFile(entry.path(), &entries);
        EXPECT_TRUE(problems.empty()) << problems.size() << " bad lines, first " << problems.front();
        EXPECT_GE(entries, 100u);
        std::string first;
        std::getline(std::ifstream(entry.path()), first);
        std::smatch m;
        ASSERT_TRUE(std::regex_match(first, m, std::regex("# (\\S+): (\\S+) \\(character-set identifier (\\d+)\\).*")));
        U32 status, id = 0;
        EXPECT_EQ(m[1], name);
        EXPECT_EQ(fileName(m[2].str().c_str(), 64, &status), name) << "the library names this set's map so";
        EXPECT_EQ(CHARMAP_getCharacterSetID(m[2].str().c_str(), &id), 0u);
        EXPECT_EQ(std::to_string(id), m[3]);
    }
    U32 type = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetType("big5", &type), 0u);
    EXPECT_EQ(type, U32{CHARMAP_TYPE_MBCS}) << "the sample makes Big5 the multibyte set it is";
    CHARMAP_setConfigDirectory(nullptr);
    std::ifstream config(dir + "/charmap.config");
    for (std::string line, canonical, id, alias, word, map; std::getline(config, line);) {
        bool entry = line[0] != '#' && std::stringstream(line) >> canonical >> id >> alias >> word >> map;
        EXPECT_TRUE(!entry || files.count(map) == 1) << "charmap.config names " << map;
    }
    for (const char *needed : {"ISO88591.MAP", "USASCII.MAP", "MSCP1252.MAP", "SHIFTJIS.MAP", "EUCJP.MAP"})
        EXPECT_EQ(files.count(needed), 1u) << needed;
}

TEST(CharmapData, SampleMappingsAgreeWithTheUnicodeTables)
{
    // Expected lines from the Unicode Consortium's mapping tables (8859-1.TXT,
    // CP1252.TXT, SHIFTJIS.TXT, BIG5.TXT, JIS0208.TXT, KOI8-R.TXT, 8859-15.TXT).
    const char *cases[][2] = {
        {"ISO88591.MAP", "E9 00E9"},         {"MSCP1252.MAP", "80 20AC"}, {"SHIFTJIS.MAP", "82+A0 3042"},
        {"BIG5.MAP", "A4+40 4E00"},          {"EUCJP.MAP", "A4+A2 3042"}, {"KOI8R.MAP", "C1 0430"},
        {"JISC62261983.MAP", "24+22 3042"}, {"ISO885915.MAP", "A4 20AC"},
    };
    for (auto &c : cases) {
        std::string text = rqtest::readFile(std::string(RQ_DATA_DIR) + "/charmaps/" + c[0]);
        EXPECT_NE(text.find(std::string("\n") + c[1] + "\n"), std::string::npos) << c[0] << ": " << c[1];
    }
}

}  // namespace
