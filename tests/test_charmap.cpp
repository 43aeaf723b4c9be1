// Character-set names: squishing, the static table and its kept
// irregularities, "charmap.config" with its scan widths and fallback, map-file
// names, the locale lookup, and the shipped map files.
#include "rqtest.h"

#include "rqcore/charmap.h"
#include "rqcore/log.h"
#include "rqsis/rqsis_test.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

const U32 kNotFound = CHARMAP_ERR_NOT_FOUND, kNotInConfig = CHARMAP_ERR_NOT_IN_CONFIG, kNoConfig = CHARMAP_ERR_NO_CONFIG,
          kTooSmall = CHARMAP_ERR_BUFFER_TOO_SMALL, kNotRecognised = CHARMAP_ERR_NOT_RECOGNISED;
const U32 k8Bit = CHARMAP_TYPE_8BIT, kMbcs = CHARMAP_TYPE_MBCS;

// Sets a directory holding `contents` as "charmap.config"; clears it at the end.
struct ConfigDir {
    rqtest::TempDir dir;
    explicit ConfigDir(const std::string &contents)
    {
        std::ofstream(dir.file("charmap.config"), std::ios::binary) << contents;
        EXPECT_EQ(CHARMAP_setConfigDirectory(dir.path().c_str()), 0u);
    }
    ~ConfigDir() { CHARMAP_setConfigDirectory(nullptr); }
};

// The whole answer of one lookup, compared at once.
struct Result {
    U32 status, id, type;
    std::string canonical, mapFile;
    bool operator==(const Result &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Result &r)
{
    return out << std::hex << "{0x" << r.status << std::dec << ", " << r.id << ", " << r.type << ", \""
               << r.canonical << "\", \"" << r.mapFile << "\"}";
}

Result fromStatic(const char *name, int len = CHARMAP_CANONICAL_SIZE)
{
    char canonical[CHARMAP_CANONICAL_SIZE];
    rqtest::fillJunk(canonical, sizeof canonical);
    Result r{0, 0xDEADBEEF, 0xDEADBEEF, "", ""};
    r.status = CHARMAP_getCharacterSetFromStatic(name, canonical, len, &r.id, &r.type);
    r.canonical = len > 0 ? canonical : "<untouched>";
    return r;
}

// Failures leave id and type 0 so that a table can give them.
Result fromFile(const char *name)
{
    char canonical[CHARMAP_CANONICAL_SIZE], mapFile[CHARMAP_MAP_FILE_SIZE];
    rqtest::fillJunk(canonical, sizeof canonical);
    rqtest::fillJunk(mapFile, sizeof mapFile);
    Result r{};
    r.status = CHARMAP_getCharacterSetFromFile(nullptr, name, canonical, sizeof canonical, &r.id, mapFile,
                                               sizeof mapFile, &r.type);
    return r.status == 0 ? Result{0, r.id, r.type, canonical, mapFile} : r;
}

// The status and the text of a map-file name.
std::pair<U32, std::string> fileName(const char *name, int len)
{
    char out[128];
    rqtest::fillJunk(out, sizeof out);
    U32 status = CHARMAP_generateCharacterSetFileName(name, out, len);
    return {status, len > 0 ? out : "<untouched>"};
}

TEST(CharmapSquish, KeepsDigitsAndRaisesLetters)
{
    // Expected values from the rule: A-Z and 0-9 kept, a-z raised, all else dropped.
    const char *cases[][2] = {{"iso_8859-1", "ISO88591"}, {"utf-8\r\n", "UTF8"}, {"\xC3\xA9t\xE9", "T"}, {"@[`{ -", ""}};
    for (auto &c : cases) {
        char buf[32];
        std::strcpy(buf, c[0]);
        EXPECT_EQ(CHARMAP_squishCharacterSetName(buf), 0u);
        EXPECT_STREQ(buf, c[1]) << c[0];
    }
    EXPECT_EQ(CHARMAP_squishCharacterSetName(nullptr), U32{CHARMAP_ERR_NULL_ARGUMENT});
}

TEST(CharmapStatic, TableAndItsKeptIrregularities)
{
    // Expected values from the library's character-set table.
    struct Case {
        const char *name;
        Result want;
    } cases[] = {
        {"ANSI_X3.4-1968", {0, 3, k8Bit, "US-ASCII", ""}},
        {"Western (Mac OS Roman)", {0, 5501, k8Bit, "MAC-ROMAN", ""}},
        {"csBig5", {0, 2026, k8Bit, "Big5", ""}},                // the first of Big5's two groups wins
        {"thai8", {0, 5008, k8Bit, "tis620", ""}},               // tis620's second half, after T61
        {"Unknown", {kNotRecognised, 0, k8Bit, "Unknown", ""}},  // row 0: the caller's spelling
        {"cp1252", {kNotFound, 0, 0, "", ""}},                   // only 1252, MS1252 and MSCP1252
        {"", {kNotFound, 0, 0, "", ""}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(fromStatic(c.name), c.want) << c.name;
        U32 type = 0xDEADBEEF;  // with no directory set the two-step lookups agree
        EXPECT_EQ(CHARMAP_getCharacterSetType(c.name, &type), c.want.status) << c.name;
        EXPECT_EQ(type, c.want.type) << c.name;
    }
    // 64 characters are squished; length 0 writes no text but still answers.
    std::string fits = std::string(60, '-') + "utf8";
    EXPECT_EQ(fromStatic(fits.c_str()).id, 106u);
    EXPECT_EQ(fromStatic(("-" + fits).c_str()).status, kNotFound);
    EXPECT_EQ(fromStatic("latin1", 4).canonical, "ISO");
    EXPECT_EQ(fromStatic("latin1", 0).id, 4u);
    EXPECT_EQ(fromStatic("latin1", -1).status, U32{CHARMAP_ERR_NEGATIVE_LENGTH});
    char out[16] = "un-known";  // the caller's name may be the output buffer
    U32 id = 99;
    EXPECT_EQ(CHARMAP_getCharacterSetName(out, out, sizeof out, &id), kNotRecognised);
    EXPECT_STREQ(out, "un-known");
}

TEST(CharmapStatic, EveryIdentifierRoundTripsThroughItsCanonicalName)
{
    int found = 0;
    for (U32 id = 0; id < 6000; ++id) {
        char canonical[CHARMAP_CANONICAL_SIZE];
        U32 type = 0xDEADBEEF;
        U32 status = CHARMAP_getCharacterSetFromIdFromStatic(id, canonical, sizeof canonical, &type);
        if (status != 0) {
            ASSERT_TRUE(status == kNotFound && canonical[0] == 0 && type == 0) << id;
            continue;
        }
        ++found;  // Big5 by identifier is its first group too
        EXPECT_EQ(fromStatic(canonical), (Result{id == 0 ? kNotRecognised : 0u, id, type, canonical, ""}));
    }
    EXPECT_EQ(found, 64) << "66 groups, Big5 and tis620 standing twice";
}

TEST(CharmapConfig, LineRulesAndScanWidths)
{
    // Each line exercises one rule of the reader; the answers follow from the
    // scan "%64s %d %64s %64s %68s" of at most 255 characters a line.
    std::string c64(64, 'C'), c65(65, 'C'), m68(68, 'm'), m69(69, 'n');
    ConfigDir config("ISO-8859-15 111 LATIN9 8BIT latin9.map\n"
                     "# COMMENTED 1 COMMENT 8BIT c.map\n  \t# INDENTED 2 INDENTED 8BIT c.map\n\n   \t  \n"
                     "\t  Tabbed 3 TABBED mbcs tabbed.map\nFOUR 4 FOURFIELDS 8BIT\nWordy x WORDY 8BIT w.map\n"
                     "First 5 Dup 8BIT first.map\nSecond 6 DUP 8BIT second.map\n"
                     "Crlf 7 CRLF utf8 crlf.map\r\nNeg -1 NEGATIVE other n.map\nOdd 8 ODD bogus o.map\n" +
                     c64 + " 20 CAN64 8BIT c64.map\n" + c65 + " 21 CAN65 8BIT c65.map\n" + "M 22 MAP68 8BIT " +
                     m68 + "\nM 23 MAP69 8BIT " + m69 + "\n" + "Pad 30 PADDED 8BIT" + std::string(240, ' ') +
                     "pad.map\n#" + std::string(260, 'x') + " Tail 31 TAIL 8BIT tail.map\n" +
                     "Fits 32 FITS 8BIT" + std::string(230, ' ') + "fits.map\n" +
                     "Sp 24 Spaced-Alias_Name 8BIT s.map\nLast 25 LAST 8BIT last.map");  // no final line end
    struct Case {
        const char *name;
        Result want;
    } accepted[] = {
        {"Latin-9", {0, 111, k8Bit, "ISO-8859-15", "latin9.map"}},
        {"tabbed", {0, 3, kMbcs, "Tabbed", "tabbed.map"}},  // type words in any case
        {"dup", {0, 5, k8Bit, "First", "first.map"}},
        {"crlf", {0, 7, CHARMAP_TYPE_UTF8, "Crlf", "crlf.map"}},
        {"negative", {0, 0xFFFFFFFF, CHARMAP_TYPE_OTHER, "Neg", "n.map"}},
        {"odd", {0, 8, CHARMAP_TYPE_UNKNOWN, "Odd", "o.map"}},
        {"can64", {0, 20, k8Bit, c64, "c64.map"}},
        {"map68", {0, 22, k8Bit, "M", m68}},
        {"map69", {0, 23, k8Bit, "M", m69.substr(0, 68)}},
        {"fits", {0, 32, k8Bit, "Fits", "fits.map"}},
        {"spaced alias name", {0, 24, k8Bit, "Sp", "s.map"}},
        {"last", {0, 25, k8Bit, "Last", "last.map"}},
    };
    for (const Case &c : accepted)
        EXPECT_EQ(fromFile(c.name), c.want) << c.name;
    // can65: its 65th character is read as the number; padded: its map file
    // starts beyond the 255th character; tail: the rest of a long line is no
    // line of its own.
    for (const char *name : {"comment", "indented", "fourfields", "wordy", "can65", "padded", "tail", "latin1"})
        EXPECT_EQ(fromFile(name).status, kNotInConfig) << name;
    // By identifier the first entry carrying it wins, whatever its alias;
    // the type is optional and outputs are cut to the caller's lengths.
    char canonical[CHARMAP_CANONICAL_SIZE], mapFile[8];
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 6, canonical, 4, mapFile, 7, nullptr), 0u);
    EXPECT_STREQ(canonical, "Sec");
    EXPECT_STREQ(mapFile, "second");
    EXPECT_EQ(CHARMAP_getCharacterSetFromIdFromFile(nullptr, 1, canonical, 9, mapFile, 8, nullptr), kNotInConfig);
}

TEST(CharmapConfig, TwoStepLookupsAndMapFileNamesTryTheFileThenTheTable)
{
    rqtest::LeakCheck leaks;
    ConfigDir config("U 106 UTF8 UTF8 utf8.map\nMine 4 LATIN1 MBCS mine.map\n");
    char canonical[CHARMAP_CANONICAL_SIZE];
    U32 id = 0, type = 0;
    EXPECT_EQ(CHARMAP_getCharacterSetName("latin_1", canonical, sizeof canonical, &id), 0u);
    EXPECT_STREQ(canonical, "Mine") << "the file overrides the table";
    EXPECT_EQ(CHARMAP_getCharacterSetName("ISO_8859-1", canonical, sizeof canonical, &id), 0u);
    EXPECT_STREQ(canonical, "ISO-8859-1") << "the table answers what the file does not know";
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(4, canonical, sizeof canonical, &type), 0u);
    EXPECT_EQ(std::string(canonical) + " " + std::to_string(type), "Mine 2");
    EXPECT_EQ(CHARMAP_getCharacterSetFromId(17, nullptr, 5, &type), 0u) << "canonical is optional";
    EXPECT_EQ(type, kMbcs);
    // The file squishes 63 characters of a name, the table 64.
    std::string fits = std::string(59, '-') + "utf8";
    EXPECT_EQ(fromFile(fits.c_str()).mapFile, "utf8.map");
    EXPECT_EQ(fromFile(("-" + fits).c_str()).status, kNotInConfig);
    EXPECT_EQ(CHARMAP_getCharacterSetID(("-" + fits).c_str(), &id), 0u);
    EXPECT_EQ(id, 106u);
    // Map files: the configured one as it stands, else the canonical name
    // squished with ".MAP", else "DEFAULT.MAP" when it fits.
    struct Case {
        const char *name;
        int len;
        std::pair<U32, std::string> want;
    } cases[] = {
        {"csShiftJIS", 13, {0, "SHIFTJIS.MAP"}},
        {"csShiftJIS", 12, {kTooSmall, ""}},
        {"klingon", 12, {CHARMAP_ERR_DEFAULT_MAP, "DEFAULT.MAP"}},
        {"klingon", 11, {kTooSmall, ""}},
        {"UNKNOWN", 64, {CHARMAP_ERR_DEFAULT_MAP, "DEFAULT.MAP"}},
        {"ms-1252", 0, {kTooSmall, "<untouched>"}},
        {"latin1", 9, {0, "mine.map"}},
        {"latin1", 8, {kTooSmall, ""}},  // a configured name is never cut
    };
    for (const Case &c : cases)
        EXPECT_EQ(fileName(c.name, c.len), c.want) << c.name << " " << c.len;
}

TEST(CharmapConfig, NoDirectoryOrNoFileAndTheLoggedFailures)
{
    rqtest::TempDir empty;
    std::string log = empty.file("charmap.log");
    ASSERT_EQ(DX_ErrLogInitializeTLS(), 0u);
    ASSERT_EQ(EnableLogging(nullptr), 0u);
    ASSERT_EQ(SetLog(2, 1, log.c_str()), 0u);  // the family's errlog id
    {
        rqtest::LeakCheck leaks;
        EXPECT_EQ(fromFile("latin1").status, kNoConfig);
        EXPECT_EQ(rqtest::readFile(log), "") << "no directory set is no failure to report";
        ASSERT_EQ(CHARMAP_setConfigDirectory(empty.path().c_str()), 0u);
        EXPECT_EQ(fromFile("latin1").status, kNoConfig) << "no charmap.config in it";
        std::string tooLong(PATH_MAX, 'd');  // its path cannot be formed
        ASSERT_EQ(CHARMAP_setConfigDirectory(tooLong.c_str()), 0u);
        EXPECT_EQ(fromFile("latin1").status, kNoConfig);
        ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);
    }
    DisableLogging();
    std::string text = rqtest::readFile(log), record = "ERROR CODE    -> 0x18A01\nCould not open config file\n";
    int records = 0;
    for (size_t at = 0; (at = text.find(record, at)) != std::string::npos; ++at)
        ++records;
    EXPECT_EQ(records, 2) << "one for each failed open:\n" << text;
}

TEST(CharmapConfig, SettingTheDirectory)
{
    rqtest::LeakCheck leaks;
    rqtest::TempDir dir;
    std::ofstream(dir.file("charmap.config")) << "A 1 ALPHA 8BIT a.map\n";
    std::string text = dir.path();
    ASSERT_EQ(CHARMAP_setConfigDirectory(text.c_str()), 0u);
    text.assign(text.size(), 'x');  // the caller's text is copied, not kept
    SIS_TestFailAfter(0);
    EXPECT_EQ(fileName("alpha", 20).second, "a.map");
    EXPECT_EQ(SIS_TestFailFired(), 0) << "lookups take no memory";
    EXPECT_EQ(CHARMAP_setConfigDirectory("/elsewhere"), U32{CHARMAP_ERR_NO_MEMORY});
    SIS_TestFailAfter(-1);
    EXPECT_EQ(fromFile("alpha").mapFile, "a.map") << "a copy that cannot be made leaves the directory in force";
    ASSERT_EQ(CHARMAP_setConfigDirectory(nullptr), 0u);
    rqtest::allocationSweep([] {
        U32 s = CHARMAP_setConfigDirectory("/elsewhere");
        CHARMAP_setConfigDirectory(nullptr);
        return s;
    }, CHARMAP_ERR_NO_MEMORY);
}

TEST(CharmapConfig, DirectoryChangesWhileOtherThreadsLookUp)
{
    rqtest::LeakCheck leaks;
    rqtest::TempDir a, b;
    std::ofstream(a.file("charmap.config")) << "A 1 SHARED 8BIT a.map\n";
    std::ofstream(b.file("charmap.config")) << "B 2 SHARED MBCS b.map\n";
    const Result answers[] = {{kNoConfig, 0, 0, "", ""}, {0, 1, k8Bit, "A", "a.map"}, {0, 2, kMbcs, "B", "b.map"}};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t)
        readers.emplace_back([&] {
            for (int i = 0; i < 300; ++i)
                wrong += std::count(std::begin(answers), std::end(answers), fromFile("shared")) != 1;
        });
    for (int i = 0; i < 300; ++i)
        CHARMAP_setConfigDirectory(i % 3 == 0 ? a.path().c_str() : i % 3 == 1 ? b.path().c_str() : nullptr);
    for (auto &t : readers)
        t.join();
    CHARMAP_setConfigDirectory(nullptr);
    EXPECT_EQ(wrong.load(), 0);
}

TEST(CharmapLocale, CodesetOfTheEnvironmentsLocale)
{
    // Expected values: glibc's nl_langinfo(CODESET) for C.UTF-8; a locale
    // the C library lacks gives "UNKNOWN", which the table does not know.
    char name[64];
    U32 id = 0xDEADBEEF;
    setenv("LC_ALL", "C.UTF-8", 1);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSetID(name, sizeof name, &id), 0u);
    EXPECT_EQ(std::string(name) + " " + std::to_string(id), "UTF-8 106");
    setenv("LC_ALL", "xx_NOWHERE.KLINGON", 1);
    rqtest::fillJunk(name, sizeof name);
    EXPECT_EQ(CHARMAP_getLocaleCharacterSet(name, sizeof name), kNotFound);
    EXPECT_STREQ(name, "UNKNOWN");
    EXPECT_EQ(CHARMAP_getLocaleCharacterSetID(name, 4, &id), kNotRecognised);
    EXPECT_EQ(std::string(name) + " " + std::to_string(id), "UNK 0");
    unsetenv("LC_ALL");
    std::setlocale(LC_CTYPE, "C");
}

// A side of a map-file line: 1 to 31 numbers of lo to hi upper-case
// hexadecimal digits joined by "+".
bool wellFormedSide(const std::string &side, size_t lo, size_t hi)
{
    size_t numbers = 0;
    for (size_t at = 0; at <= side.size(); ++numbers) {
        size_t end = std::min(side.find('+', at), side.size());
        if (end - at < lo || end - at > hi || side.find_first_not_of("0123456789ABCDEF", at) < end)
            return false;
        at = end + 1;
    }
    return numbers <= 31;
}

TEST(CharmapData, ShippedMapFilesAreWellFormedAndNamedByTheLibrary)
{
    // Each file is written by tools/gen_charmaps.py and begins
    // "# <FILE>: <canonical> (character-set identifier <id>), ...".
    std::string dir = std::string(RQ_DATA_DIR) + "/charmaps";
    ASSERT_EQ(CHARMAP_setConfigDirectory(dir.c_str()), 0u) << "with the sample charmap.config";
    struct Clear { ~Clear() { CHARMAP_setConfigDirectory(nullptr); } } clear;
    std::set<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(dir)) {
        std::string name = entry.path().filename(), line;
        if (entry.path().extension() != ".MAP" || !files.insert(name).second)
            continue;
        SCOPED_TRACE(name);
        std::ifstream in(entry.path());
        std::set<std::string> natives;
        for (int number = 1; std::getline(in, line); ++number) {
            std::stringstream fields(line);
            std::string native, unicode, rest;
            if (!(fields >> native) || native[0] == '#')
                continue;
            fields >> unicode >> rest;
            ASSERT_TRUE(line.size() < 1024 && wellFormedSide(native, 2, 2) && wellFormedSide(unicode, 1, 4) &&
                        rest.empty() && natives.insert(native).second)
                << number << ": " << line;
        }
        EXPECT_GE(natives.size(), 100u);
        std::getline(std::ifstream(entry.path()), line);
        char file[80], canonical[80];
        U32 id = 0, libraryId = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "# %79[^:]: %79s (character-set identifier %u)", file, canonical, &id), 3);
        EXPECT_EQ(file, name);
        EXPECT_EQ(fileName(canonical, 64).second, name) << "the library names this set's map so";
        EXPECT_EQ(CHARMAP_getCharacterSetID(canonical, &libraryId), 0u);
        EXPECT_EQ(libraryId, id);
    }
    std::ifstream config(dir + "/charmap.config");
    for (std::string line, canonical, id, alias, word, map; std::getline(config, line);) {
        bool entry = line[0] != '#' && std::stringstream(line) >> canonical >> id >> alias >> word >> map;
        EXPECT_TRUE(!entry || files.count(map) == 1) << "charmap.config names " << map;
    }
}

}  // namespace
