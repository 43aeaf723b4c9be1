// Character-set names: squishing, the static table and its kept
// irregularities, "charmap.config" with its scan widths and fallback, map-file
// names, the locale lookups, and the shipped map files.
#include "rqtest.h"

#include "rqcore/charmap.h"
#include "rqsis/rqsis_test.h"

#include <atomic>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr char kJunk = static_cast<char>(0xA5);

// Sets and clears the configuration directory around a test.
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

struct NameResult {
    U32 status;
    std::string canonical;
    U32 id;
    U32 type;
};

NameResult fromStatic(const char *name, int len = CHARMAP_CANONICAL_SIZE)
{
    char canonical[CHARMAP_CANONICAL_SIZE + 8];
    rqtest::fillJunk(canonical, sizeof canonical);
    NameResult r{};
    r.id = r.type = 0xDEADBEEF;
    r.status = CHARMAP_getCharacterSetFromStatic(name, canonical, len, &r.id, &r.type);
    r.canonical = len > 0 ? canonical : "<untouched>";
    return r;
}

struct FileResult {
    U32 status;
    std::string canonical;
    U32 id;
    std::string mapFile;
    U32 type;
};

FileResult fromFile(const char *name)
{
    char canonical[CHARMAP_CANONICAL_SIZE];
    char mapFile[CHARMAP_MAP_FILE_SIZE];
    rqtest::fillJunk(canonical, sizeof canonical);
    rqtest::fillJunk(mapFile, sizeof mapFile);
    FileResult r{};
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

// ---- squishing -----------------------------------------------------------

TEST(CharmapSquish, KeepsDigitsAndRaisesLetters)
{
    // Expected values from the squishing rule: A-Z and 0-9 kept, a-z raised,
    // every other byte dropped.
    struct Case {
        const char *in;
        const char *out;
    } cases[] = {
        {"ISO-8859-1", "ISO88591"},      {"iso_8859-1", "ISO88591"},   {"Iso 8859 1", "ISO88591"},
        {"utf-8\r\n", "UTF8"},           {"x.mac\troman", "XMACROMAN"}, {"\xC3\xA9t\xE9", "T"},
        {"", ""},                        {"---", ""},                  {"Big5-HKSCS:2004", "BIG5HKSCS2004"},
        {"\x7F@[`{~", ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.in);
        char buf[64];
        std::strcpy(buf, c.in);
        EXPECT_EQ(CHARMAP_squishCharacterSetName(buf), 0u);
        EXPECT_STREQ(buf, c.out);
    }
    EXPECT_EQ(CHARMAP_squishCharacterSetName(nullptr), U32{CHARMAP_ERR_NULL_ARGUMENT});
}

// ---- the static table ----------------------------------------------------

TEST(CharmapStatic, NamesFromTheTable)
{
    // Expected values from the library's character-set table.
    struct Case {
        const char *name;
        U32 status;
        const char *canonical;
        U32 id;
        U32 type;
    } cases[] = {
        {"latin-1", 0, "ISO-8859-1", 4, CHARMAP_TYPE_8BIT},
        {"ISO_8859-1:1987", 0, "ISO-8859-1", 4, CHARMAP_TYPE_8BIT},
        {"utf_8", 0, "UTF-8", 106, CHARMAP_TYPE_UTF8},
        {"UNICODE-1-1-UTF-8", 0, "UTF-8", 106, CHARMAP_TYPE_UTF8},
        {"ANSI_X3.4-1968", 0, "US-ASCII", 3, CHARMAP_TYPE_8BIT},
        {"ibm367", 0, "US-ASCII", 3, CHARMAP_TYPE_8BIT},
        {"csShiftJIS", 0, "Shift_JIS", 17, CHARMAP_TYPE_MBCS},
        {"ms_kanji", 0, "Shift_JIS", 17, CHARMAP_TYPE_MBCS},
        {"hp-roman", 0, "hp-roman", 5010, CHARMAP_TYPE_8BIT},
        {"hp-roman8", 0, "hp-roman8", 5005, CHARMAP_TYPE_8BIT},
        {"x-mac-roman", 0, "MAC-ROMAN", 5501, CHARMAP_TYPE_8BIT},
        {"Western (Mac OS Roman)", 0, "MAC-ROMAN", 5501, CHARMAP_TYPE_8BIT},
        {"ISO-2022-JP", 0, "ISO-2022-JP", 39, CHARMAP_TYPE_ISO2022JP},
        {"iso-2022-cn", 0, "ISO-2022-CN", 104, CHARMAP_TYPE_ISO2022CN},
        {"ms-1252", 0, "MSCP1252", 5102, CHARMAP_TYPE_8BIT},
        {"950", 0, "MSCP950", 5112, CHARMAP_TYPE_MBCS},
        {"cns11643-p2", 0, "CNS11643-P2", 5531, CHARMAP_TYPE_MBCS},
        {"HP15CN", 0, "HP15CN", 5534, CHARMAP_TYPE_MBCS},
        {"T.61-8bit", 0, "T61", 76, CHARMAP_TYPE_MBCS},
        {"ebcdic", CHARMAP_ERR_NOT_FOUND, "", 0, 0},
        {"windows-1252", CHARMAP_ERR_NOT_FOUND, "", 0, 0},  // only 1252, MS1252, MSCP1252
        {"cp1252", CHARMAP_ERR_NOT_FOUND, "", 0, 0},
        {"", CHARMAP_ERR_NOT_FOUND, "", 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        NameResult r = fromStatic(c.name);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.canonical, c.canonical);
        EXPECT_EQ(r.id, c.id);
        EXPECT_EQ(r.type, c.type);
        U32 id = 0xDEADBEEF;
        EXPECT_EQ(CHARMAP_getCharacterSetID(c.name, &id), c.status);
        EXPECT_EQ(id, c.id);
    }
}

TEST(CharmapStatic, KeptIrregularities)
{
    // Big5 stands twice; the first group (8-bit) wins, by name and by id.
    U32 type = 0xDEADBEEF;
    EXPECT_EQ(CHARMAP_getCharacterSetType("big5", &type), 0u);
    EXPECT_EQ(type, U32{CHARMAP_TYPE_8BIT});
    NameResult big5 = fromStatic("csBig5");
    EXPECT_EQ(big5.canonical, "Big5");
    EXPECT_EQ(big5.type, U32{CHARMAP_TYPE_8BIT});
    char canonical[16];
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromStatic(2026, canonical, sizeof canonical, &type), 0u);
    EXPECT_STREQ(canonical, "Big5");
    EXPECT_EQ(type, U32{CHARMAP_TYPE_8BIT});

    // tis620 is split around T61: both halves answer as the same set.
    for (const char *name : {"TIS-620", "thai8"}) {
        SCOPED_TRACE(name);
        NameResult r = fromStatic(name);
        EXPECT_EQ(r.status, 0u);
        EXPECT_EQ(r.canonical, "tis620");
        EXPECT_EQ(r.id, 5008u);
        EXPECT_EQ(r.type, U32{CHARMAP_TYPE_8BIT});
    }

    // Row 0: the name "UNKNOWN" is found, and the caller's spelling comes back.
    NameResult unknown = fromStatic("Unknown");
    EXPECT_EQ(unknown.status, U32{CHARMAP_ERR_NOT_RECOGNISED});
    EXPECT_EQ(unknown.canonical, "Unknown");
    EXPECT_EQ(unknown.id, 0u);
    EXPECT_EQ(unknown.type, U32{CHARMAP_TYPE_8BIT});
    char out[16];
    U32 id = 99;
    EXPECT_EQ(CHARMAP_getCharacterSetName("UNKNOWN", out, sizeof out, &id), U32{CHARMAP_ERR_NOT_RECOGNISED});
    EXPECT_STREQ(out, "UNKNOWN");
    EXPECT_EQ(id, 0u);
    // The caller's own buffer may be the name itself.
    std::strcpy(out, "un-known");
    EXPECT_EQ(CHARMAP_getCharacterSetName(out, out, sizeof out, &id), U32{CHARMAP_ERR_NOT_RECOGNISED});
    EXPECT_STREQ(out, "un-known");
    // By identifier, 0 is the UNKNOWN row like any other.
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromStatic(0, out, sizeof out, &type), 0u);
    EXPECT_STREQ(out, "UNKNOWN");
}

TEST(CharmapStatic, EveryIdentifierRoundTripsThroughItsCanonicalName)
{
    // 66 groups in the table, of which Big5 and tis620 stand twice.
    std::set<U32> ids;
    for (U32 id = 0; id < 6000; ++id) {
        char canonical[CHARMAP_CANONICAL_SIZE];
        U32 type = 0xDEADBEEF;
        U32 status = CHARMAP_getCharacterSetFromIdFromStatic(id, canonical, sizeof canonical, &type);
        if (status == U32{CHARMAP_ERR_NOT_FOUND}) {
            EXPECT_STREQ(canonical, "");
            EXPECT_EQ(type, 0u);
            continue;
        }
        ASSERT_EQ(status, 0u);
        ids.insert(id);
        SCOPED_TRACE(canonical);
        NameResult back = fromStatic(canonical);
        EXPECT_EQ(back.status, id == 0 ? U32{CHARMAP_ERR_NOT_RECOGNISED} : 0u);
        EXPECT_EQ(back.id, id);
        EXPECT_EQ(back.type, type);
        EXPECT_EQ(back.canonical, canonical);
    }
    EXPECT_EQ(ids.size(), 64u);
    U32 type = 7;
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromStatic(0xFFFFFFFF, nullptr, 0, &type), U32{CHARMAP_ERR_NOT_FOUND});
    EXPECT_EQ(type, 0u);
}

TEST(CharmapStatic, NameIsSquishedFromItsFirst64Characters)
{
    std::string fits = std::string(60, '-') + "utf8";   // 64 characters
    std::string cut = std::string(61, '-') + "utf8";    // the 8 falls beyond
    EXPECT_EQ(fromStatic(fits.c_str()).id, 106u);
    EXPECT_EQ(fromStatic(cut.c_str()).status, U32{CHARMAP_ERR_NOT_FOUND});
}

TEST(CharmapStatic, OutputsAreCutAndTerminated)
{
    NameResult r = fromStatic("latin1", 4);
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(r.canonical, "ISO");
    r = fromStatic("latin1", 1);
    EXPECT_EQ(r.canonical, "");
    r = fromStatic("latin1", 0);
    EXPECT_EQ(r.status, 0u) << "length 0 writes no text but still answers";
    EXPECT_EQ(r.id, 4u);
    // canonical may be null for the identifier lookup: only the type.
    U32 type = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromStatic(17, nullptr, 5, &type), 0u);
    EXPECT_EQ(type, U32{CHARMAP_TYPE_MBCS});
}

TEST(CharmapArguments, NullAndNegative)
{
    char buf[16];
    U32 id, type;
    const U32 null = CHARMAP_ERR_NULL_ARGUMENT, negative = CHARMAP_ERR_NEGATIVE_LENGTH;
    EXPECT_EQ(CHARMAP_getCharacterSetFromStatic(nullptr, buf, 16, &id, &type), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromStatic("a", nullptr, 16, &id, &type), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromStatic("a", buf, 16, nullptr, &type), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromStatic("a", buf, 16, &id, nullptr), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromStatic("a", buf, -1, &id, &type), negative);
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromStatic(4, buf, 16, nullptr), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromStatic(4, buf, -1, &type), negative);
    EXPECT_EQ(CHARMAP_getCharacterSetFromFile(nullptr, nullptr, buf, 16, &id, buf, 16, &type), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromFile(nullptr, "a", buf, 16, &id, nullptr, 16, &type), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromFile(nullptr, "a", buf, 16, &id, buf, -1, &type), negative);
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 4, nullptr, 16, buf, 16, &type), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 4, buf, -2, buf, 16, &type), negative);
    EXPECT_EQ(CHARMAP_getCharacterSetName(nullptr, buf, 16, &id), null);
    EXPECT_EQ(CHARMAP_getCharacterSetName("a", buf, 16, nullptr), null);
    EXPECT_EQ(CHARMAP_getCharacterSetName("a", buf, INT_MIN, &id), negative);
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(4, buf, 16, nullptr), null);
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(4, buf, -1, &type), negative);
    EXPECT_EQ(CHARMAP_getCharacterSetID(nullptr, &id), null);
    EXPECT_EQ(CHARMAP_getCharacterSetType("a", nullptr), null);
    EXPECT_EQ(CHARMAP_generateCharacterSetFileName(nullptr, buf, 16), null);
    EXPECT_EQ(CHARMAP_generateCharacterSetFileName("a", nullptr, 16), null);
    EXPECT_EQ(CHARMAP_generateCharacterSetFileName("a", buf, -1), negative);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSet(nullptr, 16), null);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSet(buf, -1), negative);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSetID(buf, 16, nullptr), null);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSetID(buf, -1, &id), negative);
    for (auto variant : {CHARMAP_getLocaleCharacterSet_win32, CHARMAP_getLocaleCharacterSet_hpux,
                         CHARMAP_getLocaleCharacterSet_solaris, CHARMAP_getLocaleCharacterSet_fallback}) {
        EXPECT_EQ(variant(nullptr, 16), null);
        EXPECT_EQ(variant(buf, -1), negative);
    }
}

// ---- charmap.config ------------------------------------------------------

TEST(CharmapConfig, EntryFoundAndMissingNamesFallBack)
{
    rqtest::LeakCheck leaks;
    ConfigDir config("ISO-8859-15 111 LATIN9 8BIT latin9.map\n");
    FileResult r = fromFile("Latin-9");
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(r.canonical, "ISO-8859-15");
    EXPECT_EQ(r.id, 111u);
    EXPECT_EQ(r.mapFile, "latin9.map");
    EXPECT_EQ(r.type, U32{CHARMAP_TYPE_8BIT});
    EXPECT_EQ(fromFile("latin-1").status, U32{CHARMAP_ERR_NOT_IN_CONFIG});

    // The two-step lookups take the file's answer, else the table's.
    char canonical[CHARMAP_CANONICAL_SIZE];
    U32 id = 0, type = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetName("latin_9", canonical, sizeof canonical, &id), 0u);
    EXPECT_STREQ(canonical, "ISO-8859-15");
    EXPECT_EQ(id, 111u);
    EXPECT_EQ(CHARMAP_getCharacterSetName("latin-1", canonical, sizeof canonical, &id), 0u);
    EXPECT_STREQ(canonical, "ISO-8859-1");
    EXPECT_EQ(id, 4u);
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(111, canonical, sizeof canonical, &type), 0u);
    EXPECT_STREQ(canonical, "ISO-8859-15");
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(17, canonical, sizeof canonical, &type), 0u);
    EXPECT_STREQ(canonical, "Shift_JIS");
    EXPECT_EQ(type, U32{CHARMAP_TYPE_MBCS});
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(111, nullptr, 0, &type), 0u);
    EXPECT_EQ(type, U32{CHARMAP_TYPE_8BIT});
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(4242, canonical, sizeof canonical, &type),
              U32{CHARMAP_ERR_NOT_FOUND});

    char mapFile[CHARMAP_MAP_FILE_SIZE];
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 111, canonical, sizeof canonical, mapFile,
                                                    sizeof mapFile, nullptr), 0u)
        << "the type is optional";
    EXPECT_STREQ(mapFile, "latin9.map");
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 4, canonical, sizeof canonical, mapFile,
                                                    sizeof mapFile, &type),
              U32{CHARMAP_ERR_NOT_IN_CONFIG});
}

TEST(CharmapConfig, LineSyntax)
{
    // Each line of this file exercises one rule of the reader; the expected
    // answers follow from the five-field scan "%64s %d %64s %64s %68s".
    std::string longCanonical64(64, 'C'), longCanonical65(65, 'C');
    std::string map68(68, 'm'), map69(69, 'n');
    std::string text =
        "# COMMENTED 1 COMMENT 8BIT c.map\n"
        "  \t# INDENTED 2 INDENTCOMMENT 8BIT c.map\n"
        "\n"
        "   \t  \n"
        "\t  Tabbed 3 TABBED mbcs tabbed.map\n"
        "FOUR 4 FOURFIELDS 8BIT\n"
        "Wordy x WORDY 8BIT w.map\n"
        "First 5 Dup 8BIT first.map\n"
        "Second 6 DUP 8BIT second.map\n"
        "Crlf 7 CRLF utf8 crlf.map\r\n"
        "Neg -1 NEGATIVE other n.map\n"
        "Odd 8 ODDTYPE bogus o.map\n"
        "J 9 JP Iso2022Jp j.map\n"
        "K 10 KOREAN euc k.map\n"
        "Wide 11 WIDE 16bit w.map\n"
        "CN 12 CNALIAS ISO2022CN cn.map\n" +
        longCanonical64 + " 20 CAN64 8BIT c64.map\n" +
        longCanonical65 + " 21 CAN65 8BIT c65.map\n" +
        "M 22 MAP68 8BIT " + map68 + "\n" +
        "M 23 MAP69 8BIT " + map69 + "\n" +
        "Sp 24 Spaced-Alias_Name 8BIT s.map\n" +
        "Last 25 LAST 8BIT last.map";  // no line end at the end of the file
    ConfigDir config(text);
    struct Case {
        const char *name;
        U32 status;
        const char *canonical;
        U32 id;
        U32 type;
        std::string mapFile;
    } cases[] = {
        {"commented", CHARMAP_ERR_NOT_IN_CONFIG, "", 0, 0, ""},
        {"indentcomment", CHARMAP_ERR_NOT_IN_CONFIG, "", 0, 0, ""},
        {"tabbed", 0, "Tabbed", 3, CHARMAP_TYPE_MBCS, "tabbed.map"},
        {"fourfields", CHARMAP_ERR_NOT_IN_CONFIG, "", 0, 0, ""},
        {"wordy", CHARMAP_ERR_NOT_IN_CONFIG, "", 0, 0, ""},
        {"dup", 0, "First", 5, CHARMAP_TYPE_8BIT, "first.map"},
        {"crlf", 0, "Crlf", 7, CHARMAP_TYPE_UTF8, "crlf.map"},
        {"negative", 0, "Neg", 0xFFFFFFFF, CHARMAP_TYPE_OTHER, "n.map"},
        {"oddtype", 0, "Odd", 8, CHARMAP_TYPE_UNKNOWN, "o.map"},
        {"jp", 0, "J", 9, CHARMAP_TYPE_ISO2022JP, "j.map"},
        {"korean", 0, "K", 10, CHARMAP_TYPE_EUC, "k.map"},
        {"wide", 0, "Wide", 11, CHARMAP_TYPE_16BIT, "w.map"},
        {"cnalias", 0, "CN", 12, CHARMAP_TYPE_ISO2022CN, "cn.map"},
        {"can64", 0, longCanonical64.c_str(), 20, CHARMAP_TYPE_8BIT, "c64.map"},
        {"can65", CHARMAP_ERR_NOT_IN_CONFIG, "", 0, 0, ""},  // the 65th character is no number
        {"map68", 0, "M", 22, CHARMAP_TYPE_8BIT, map68},
        {"map69", 0, "M", 23, CHARMAP_TYPE_8BIT, map69.substr(0, 68)},  // the scan stops at 68
        {"spaced alias name", 0, "Sp", 24, CHARMAP_TYPE_8BIT, "s.map"},
        {"last", 0, "Last", 25, CHARMAP_TYPE_8BIT, "last.map"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        FileResult r = fromFile(c.name);
        EXPECT_EQ(r.status, c.status);
        if (c.status != 0)
            continue;
        EXPECT_EQ(r.canonical, c.canonical);
        EXPECT_EQ(r.id, c.id);
        EXPECT_EQ(r.type, c.type);
        EXPECT_EQ(r.mapFile, c.mapFile);
    }
    // By identifier the first entry carrying it wins, whatever its alias.
    char canonical[CHARMAP_CANONICAL_SIZE], mapFile[CHARMAP_MAP_FILE_SIZE];
    U32 type;
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 6, canonical, sizeof canonical, mapFile,
                                                    sizeof mapFile, &type), 0u);
    EXPECT_STREQ(canonical, "Second");
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 1, canonical, sizeof canonical, mapFile,
                                                    sizeof mapFile, &type), U32{CHARMAP_ERR_NOT_IN_CONFIG})
        << "comment lines carry no entry";
    // Outputs are cut to the caller's lengths.
    U32 id;
    EXPECT_EQ(CHARMAP_getCharacterSetFromFile(nullptr, "tabbed", canonical, 4, &id, mapFile, 7, &type), 0u);
    EXPECT_STREQ(canonical, "Tab");
    EXPECT_STREQ(mapFile, "tabbed");
}

TEST(CharmapConfig, LinesAreReadTo255Characters)
{
    // An entry whose map file starts beyond the 255th character lacks its
    // fifth field; the rest of a long line is not read as a line of its own.
    std::string padded = "Pad 30 PADDED 8BIT" + std::string(240, ' ') + "pad.map\n";
    std::string tail = "#" + std::string(260, 'x') + " Tail 31 TAIL 8BIT tail.map\n";
    std::string justFits = "Fits 32 FITS 8BIT" + std::string(255 - 17 - 8, ' ') + "fits.map\n";
    ASSERT_EQ(justFits.size(), 256u);
    ConfigDir config(padded + tail + justFits);
    EXPECT_EQ(fromFile("padded").status, U32{CHARMAP_ERR_NOT_IN_CONFIG});
    EXPECT_EQ(fromFile("tail").status, U32{CHARMAP_ERR_NOT_IN_CONFIG});
    EXPECT_EQ(fromFile("fits").mapFile, "fits.map");
}

TEST(CharmapConfig, FileNameIsSquishedFromItsFirst63Characters)
{
    ConfigDir config("U 106 UTF8 UTF8 utf8.map\n");
    std::string fits = std::string(59, '-') + "utf8";  // 63 characters
    std::string cut = std::string(60, '-') + "utf8";
    EXPECT_EQ(fromFile(fits.c_str()).mapFile, "utf8.map");
    EXPECT_EQ(fromFile(cut.c_str()).status, U32{CHARMAP_ERR_NOT_IN_CONFIG});
    // The static table squishes one character more, so the name lookup still
    // finds the set there.
    U32 id = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetID(cut.c_str(), &id), 0u);
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
    // A directory whose path cannot be formed counts as one without the file.
    std::string tooLong(PATH_MAX, 'd');
    ASSERT_EQ(CHARMAP_setConfigDirectory(tooLong.c_str()), 0u);
    EXPECT_EQ(fromFile("latin1").status, U32{CHARMAP_ERR_NO_CONFIG});
    ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);
    EXPECT_EQ(fromFile("latin1").status, U32{CHARMAP_ERR_NO_CONFIG}) << "null removes the directory";
}

TEST(CharmapConfig, SettingTheDirectory)
{
    rqtest::LeakCheck leaks;
    ConfigDir config("A 1 ALPHA 8BIT a.map\n");
    // The same text again takes no memory at all.
    std::string same = config.path();
    SIS_TestFailAfter(0);
    EXPECT_EQ(CHARMAP_setConfigDirectory(same.c_str()), 0u);
    EXPECT_EQ(SIS_TestFailFired(), 0);
    // Lookups allocate nothing either.
    EXPECT_EQ(fromFile("alpha").mapFile, "a.map");
    U32 status;
    EXPECT_EQ(fileName("alpha", 20, &status), "a.map");
    EXPECT_EQ(SIS_TestFailFired(), 0);
    SIS_TestFailAfter(-1);

    // A copy that cannot be made leaves the directory in force.
    SIS_TestFailAfter(0);
    EXPECT_EQ(CHARMAP_setConfigDirectory("/nonexistent/elsewhere"), U32{CHARMAP_ERR_NO_MEMORY});
    SIS_TestFailAfter(-1);
    EXPECT_EQ(fromFile("alpha").mapFile, "a.map");
    ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);
    rqtest::allocationSweep(
        [] {
            U32 s = CHARMAP_setConfigDirectory("/nonexistent/elsewhere");
            CHARMAP_setConfigDirectory(nullptr);
            return s;
        },
        CHARMAP_ERR_NO_MEMORY);
    // The caller's text is copied, not kept.
    std::string changing = config.path();
    ASSERT_EQ(CHARMAP_setConfigDirectory(changing.c_str()), 0u);
    changing.assign(changing.size(), 'x');
    EXPECT_EQ(fromFile("alpha").status, 0u);
}

TEST(CharmapConfig, DirectoryChangesWhileOtherThreadsLookUp)
{
    rqtest::LeakCheck leaks;
    rqtest::TempDir a, b;
    std::ofstream(a.file("charmap.config")) << "A 1 SHARED 8BIT a.map\n";
    std::ofstream(b.file("charmap.config")) << "B 2 SHARED MBCS b.map\n";
    std::vector<std::thread> readers;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 3; ++t)
        readers.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                FileResult r = fromFile("shared");
                bool ok = r.status == U32{CHARMAP_ERR_NO_CONFIG} || (r.id == 1 && r.mapFile == "a.map") ||
                          (r.id == 2 && r.mapFile == "b.map");
                if (!ok)
                    ++wrong;
            }
        });
    for (int i = 0; i < 300; ++i)
        CHARMAP_setConfigDirectory(i % 3 == 0 ? a.path().c_str() : i % 3 == 1 ? b.path().c_str() : nullptr);
    for (auto &t : readers)
        t.join();
    CHARMAP_setConfigDirectory(nullptr);
    EXPECT_EQ(wrong.load(), 0);
}

// ---- map-file names ------------------------------------------------------

TEST(CharmapFileName, FromTheTable)
{
    // Expected values: the canonical name squished, with ".MAP"; unknown sets
    // get "DEFAULT.MAP" when it fits.
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
        {"latin1", 64, 0, "ISO88591.MAP"},
        {"hp-roman8", 64, 0, "HPROMAN8.MAP"},
        {"big5", 9, 0, "BIG5.MAP"},
        {"thai8", 64, 0, "TIS620.MAP"},
        {"x0208", 64, 0, "JISC62261983.MAP"},
        {"5601", 64, 0, "5601.MAP"},
        {"latin1", 0, CHARMAP_ERR_BUFFER_TOO_SMALL, "<untouched>"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.len));
        U32 status;
        EXPECT_EQ(fileName(c.name, c.len, &status), c.out);
        EXPECT_EQ(status, c.status);
    }
}

TEST(CharmapFileName, ConfiguredMapFileComesFirst)
{
    ConfigDir config("ISO-8859-15 111 LATIN9 8BIT latin9.map\nX 5 OVERRIDE 8BIT a-very-long-name.map\n");
    U32 status;
    EXPECT_EQ(fileName("Latin-9", 11, &status), "latin9.map");
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(fileName("Latin-9", 10, &status), "") << "a configured name is never cut";
    EXPECT_EQ(status, U32{CHARMAP_ERR_BUFFER_TOO_SMALL});
    EXPECT_EQ(fileName("latin-1", 20, &status), "ISO88591.MAP") << "not in the file: from the table";
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(fileName("override", 64, &status), "a-very-long-name.map") << "taken as it stands";
}

// ---- the locale ----------------------------------------------------------

class CharmapLocale : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char *old = std::getenv("LC_ALL");
        saved_ = old != nullptr ? std::optional<std::string>(old) : std::nullopt;
    }
    void TearDown() override
    {
        if (saved_)
            setenv("LC_ALL", saved_->c_str(), 1);
        else
            unsetenv("LC_ALL");
        std::setlocale(LC_CTYPE, "C");
    }
    std::optional<std::string> saved_;
};

TEST_F(CharmapLocale, CodesetOfTheEnvironmentsLocale)
{
    // Expected values: glibc's nl_langinfo(CODESET) for the C and C.UTF-8 locales.
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
        rqtest::fillJunk(name, sizeof name);
        EXPECT_EQ(CHARMAP_getLocaleCharacterSetID(name, sizeof name, &id), c.idStatus);
        EXPECT_STREQ(name, c.canonical);
        EXPECT_EQ(id, c.id);
    }
    setenv("LC_ALL", "C.UTF-8", 1);
    char shortName[4];
    EXPECT_EQ(CHARMAP_getLocaleCharacterSet(shortName, sizeof shortName), 0u);
    EXPECT_STREQ(shortName, "UTF");
}

TEST_F(CharmapLocale, OtherPlatformsVariants)
{
    setenv("LC_ALL", "C.UTF-8", 1);
    char name[64];
    rqtest::fillJunk(name, sizeof name);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSet_win32(name, sizeof name), 0u);
    EXPECT_EQ(name[0], kJunk) << "the win32 variant writes nothing";

    // No HP-UX locale configuration and no Solaris charmap files here.
    if (!std::filesystem::exists("/usr/lib/nls/config")) {
        EXPECT_EQ(CHARMAP_getLocaleCharacterSet_hpux(name, sizeof name), U32{CHARMAP_ERR_NOT_FOUND});
        EXPECT_STREQ(name, "UNKNOWN");
    }
    if (!std::filesystem::exists("/usr/lib/locale/C.UTF-8/LC_CTYPE/charmap")) {
        EXPECT_EQ(CHARMAP_getLocaleCharacterSet_solaris(name, sizeof name), U32{CHARMAP_ERR_NOT_FOUND});
        EXPECT_STREQ(name, "UNKNOWN");
    }
    // "locale charmap" answers with its line end, which squishing removes.
    if (std::system("locale charmap >/dev/null 2>&1") == 0) {
        EXPECT_EQ(CHARMAP_getLocaleCharacterSet_fallback(name, sizeof name), 0u);
        EXPECT_STREQ(name, "UTF-8\n");
        U32 id = 0;
        EXPECT_EQ(CHARMAP_getCharacterSetID(name, &id), 0u);
        EXPECT_EQ(id, 106u);
    }
}

// ---- the shipped map files -----------------------------------------------

// Reads one map file by the loader's rules and returns what is wrong with it.
std::vector<std::string> checkMapFile(const std::string &path, size_t *entries)
{
    std::vector<std::string> problems;
    std::ifstream in(path);
    std::string line;
    std::set<std::vector<unsigned>> natives;
    int number = 0;
    *entries = 0;
    auto side = [](const std::string &text, std::vector<unsigned> *values) {
        std::stringstream s(text);
        std::string item;
        while (std::getline(s, item, '+')) {
            if (item.empty() || item.size() > 4 || item.find_first_not_of("0123456789ABCDEF") != std::string::npos)
                return false;
            values->push_back(std::stoul(item, nullptr, 16));
        }
        return !values->empty() && values->size() <= 31;
    };
    while (std::getline(in, line)) {
        ++number;
        if (line.size() > 1023)
            problems.push_back("line " + std::to_string(number) + " too long");
        size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line[start] == '#')
            continue;
        std::stringstream fields(line);
        std::string native, unicode, rest;
        fields >> native >> unicode >> rest;
        std::vector<unsigned> n, u;
        if (!side(native, &n) || !side(unicode, &u) || !rest.empty()) {
            problems.push_back("line " + std::to_string(number) + " malformed: " + line);
            continue;
        }
        for (unsigned b : n)
            if (b > 0xFF)
                problems.push_back("line " + std::to_string(number) + ": native value above a byte");
        if (!natives.insert(n).second)
            problems.push_back("line " + std::to_string(number) + ": byte sequence repeated: " + native);
        ++*entries;
    }
    return problems;
}

TEST(CharmapData, ShippedMapFilesAreWellFormedAndNamedByTheLibrary)
{
    // Names and contents as written by tools/gen_charmaps.py.
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
        EXPECT_TRUE(problems.empty()) << problems.size() << " problems, first: " << problems.front();
        EXPECT_GE(entries, 100u);
        // The first line names the set: "# <FILE>: <canonical> (character-set identifier <id>), ...".
        std::string first;
        std::getline(std::ifstream(entry.path()) >> std::ws, first);
        size_t colon = first.find(": "), paren = first.find(" (character-set identifier ");
        ASSERT_NE(paren, std::string::npos) << first;
        std::string canonical = first.substr(colon + 2, paren - colon - 2);
        U32 status;
        EXPECT_EQ(fileName(canonical.c_str(), 64, &status), name) << "the library names this set's map so";
        EXPECT_EQ(status, 0u);
        U32 id = 0;
        EXPECT_EQ(CHARMAP_getCharacterSetID(canonical.c_str(), &id), 0u);
        EXPECT_EQ(std::to_string(id), first.substr(paren + 27, first.find(')') - paren - 27));
    }
    CHARMAP_setConfigDirectory(nullptr);
    // The sets the demos and the converter tests load.
    for (const char *needed : {"ISO88591.MAP", "USASCII.MAP", "MSCP1252.MAP", "SHIFTJIS.MAP", "BIG5.MAP",
                               "EUCJP.MAP", "EUCKR.MAP", "EUCCN.MAP", "ISO885915.MAP"})
        EXPECT_EQ(files.count(needed), 1u) << needed;
}

TEST(CharmapData, SampleMappingsAgreeWithTheUnicodeTables)
{
    // Expected lines from the Unicode Consortium's mapping tables
    // (ISO8859/8859-1.TXT, VENDORS/MICSFT/WINDOWS/CP1252.TXT, OBSOLETE/EASTASIA
    // JIS/SHIFTJIS.TXT and OTHER/BIG5.TXT).
    struct Case {
        const char *file;
        const char *line;
    } cases[] = {
        {"ISO88591.MAP", "E9 00E9"},   {"MSCP1252.MAP", "80 20AC"}, {"SHIFTJIS.MAP", "82+A0 3042"},
        {"BIG5.MAP", "A4+40 4E00"},    {"EUCJP.MAP", "A4+A2 3042"}, {"JISC62261983.MAP", "24+22 3042"},
        {"KOI8R.MAP", "C1 0430"},      {"ISO885915.MAP", "A4 20AC"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.file);
        std::string text = rqtest::readFile(std::string(RQ_DATA_DIR) + "/charmaps/" + c.file);
        EXPECT_NE(text.find(std::string("\n") + c.line + "\n"), std::string::npos) << c.line;
    }
}

TEST(CharmapData, SampleConfigNamesShippedMaps)
{
    std::string dir = std::string(RQ_DATA_DIR) + "/charmaps";
    std::ifstream in(dir + "/charmap.config");
    std::string line;
    int entries = 0;
    while (std::getline(in, line)) {
        std::stringstream s(line);
        std::string canonical, alias, type, map;
        long id;
        if (line.empty() || line[0] == '#' || !(s >> canonical >> id >> alias >> type >> map))
            continue;
        ++entries;
        EXPECT_TRUE(std::filesystem::exists(dir + "/" + map)) << map;
    }
    EXPECT_GT(entries, 10);
    // The sample makes Big5 the multibyte set that it is.
    ASSERT_EQ(CHARMAP_setConfigDirectory(dir.c_str()), 0u);
    U32 type = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetType("big5", &type), 0u);
    EXPECT_EQ(type, U32{CHARMAP_TYPE_MBCS});
    CHARMAP_setConfigDirectory(nullptr);
}

}  // namespace
