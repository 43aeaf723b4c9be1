// The table converters checked against an independent reference, glibc
// iconv(3): every mapped character of every shipped map (data/charmaps),
// both ways, each map also read as one text.
//
// Allowed differences, each explained by a rule of the converters:
//  - above-bmp:   a map line for a character above U+FFFF is skipped (the
//                 converters are 16-bit), so its native sequence does not
//                 decode to that character;
//  - unmapped-byte: a byte without a mapping in an 8-bit map decodes to
//                 U+FFFD where iconv refuses it;
//  - sub-byte:    a character without a mapping encodes as the byte 26 (SUB)
//                 where iconv refuses it;
//  - dropped-trail: a lead byte followed by a byte that continues no
//                 sequence decodes as the lead's single-byte meaning and the
//                 trail byte is dropped, where iconv refuses the pair;
//  - duplicate:   when a map gives several native sequences for one
//                 character, the last line wins from Unicode; iconv may
//                 prefer another of them.
// And two that are not the converters' at all: glibc's charmap files (from
// which the shipped maps are generated) and its iconv modules disagree on a
// few sets (map-data, listed below by byte range), and iconv's CP1258 and
// T.61 modules compose a base letter with a following combining mark, so
// the whole map read as one text is not compared for them.
#include "rqtest.h"

#include "rqcore/unicode.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Entry {
    std::string native;
    U32 unicode;
};

// A plain reader for well-formed map lines ("81+40 3000 # comment").
std::vector<Entry> readMap(const std::string &path)
{
    std::vector<Entry> entries;
    std::ifstream in(path);
    std::string line, native, unicode, b;
    auto hex = [](const std::string &token) {
        size_t at = token.size() > 2 && (token[1] == 'x' || token[1] == '+') ? 2 : 0;  // 0x, U+
        return static_cast<U32>(std::stoul(token.substr(at), nullptr, 16));
    };
    while (std::getline(in, line)) {
        std::istringstream fields(line.substr(0, line.find('#')));
        if (!(fields >> native >> unicode))
            continue;
        Entry e{"", hex(unicode.substr(0, unicode.find('+', 2)))};
        std::istringstream bytes(native);
        while (std::getline(bytes, b, '+'))
            e.native.push_back(static_cast<char>(hex(b)));
        entries.push_back(e);
    }
    return entries;
}

using rqtest::Iconv;
const auto ucs2 = rqtest::toUcs2;

// iconv's name for the set a shipped map file stands for.
std::string iconvNameFor(const std::string &stem)
{
    static const std::map<std::string, std::string> names = {
        {"USASCII", "ASCII"},        {"SHIFTJIS", "SHIFT_JIS"},   {"EUCKR", "EUC-KR"},
        {"EUCJP", "EUC-JP"},         {"EUCCN", "EUC-CN"},         {"T61", "T.61-8BIT"},
        {"MACROMAN", "MACINTOSH"},   {"MACCYRILLIC", "MAC-CYRILLIC"}, {"MACUKRAINE", "MAC-UK"},
        {"MACCNTEURO", "MAC-CENTRALEUROPE"}, {"MACICELAND", "MAC-IS"}, {"HPROMAN8", "HP-ROMAN8"},
        {"TIS620", "TIS-620"},       {"JISX0201", "JIS_X0201"},   {"KOI8R", "KOI8-R"},
        {"5601", "EUC-KR"},          {"HPGREEK8", "HP-GREEK8"},   {"HPTURKISH8", "HP-TURKISH8"},
    };
    if (auto it = names.find(stem); it != names.end())
        return it->second;
    if (stem.rfind("ISO8859", 0) == 0)
        return "ISO-8859-" + stem.substr(7);
    if (stem.rfind("MSCP", 0) == 0)
        return "CP" + stem.substr(4);
    return stem;
}

std::string hexOf(const std::string &bytes)
{
    std::string s;
    for (unsigned char c : bytes)
        s += {"0123456789ABCDEF"[c >> 4], "0123456789ABCDEF"[c & 15], ' '};
    return s;
}

// Where glibc's charmap and its iconv module give different characters for
// the same bytes (from the charmap sources: CP950's Eten extension rows hold
// kana and symbols in the charmap, private-use characters in the module;
// MacCyrillic's A2 is the cent sign in the charmap, Ukrainian GHE in the
// module; T.61's diacritic prefixes C1-CF stand alone as combining marks in
// the charmap, while the module takes them only before a letter).
bool mapDataDiffers(const std::string &set, const std::string &native)
{
    U32 code = 0;
    for (unsigned char b : native)
        code = code << 8 | b;
    if (set == "CP950")
        return native.size() == 2 && code >= 0xC6A1 && code <= 0xC8FE;
    if (set == "MAC-CYRILLIC")
        return code == 0xA2;
    return set == "T.61-8BIT" && native.size() == 1 && code >= 0xC1 && code <= 0xCF;
}

// Compares one map; returns the differences no rule explains and counts
// the allowed ones by rule.
std::vector<std::string> compareMap(const std::string &path, const std::string &set, std::map<std::string, int> &allowed)
{
    std::vector<std::string> unexplained;
    std::vector<Entry> entries = readMap(path);
    EXPECT_FALSE(entries.empty()) << path;
    bool multibyte = std::any_of(entries.begin(), entries.end(), [](const Entry &e) { return e.native.size() > 1; });
    UNICODE_CONVERTER *c = nullptr;
    EXPECT_EQ(UNICODE_NewConverter(&c, multibyte ? UNICODE_TYPE_MBCS : UNICODE_TYPE_8BIT, 0), 0u);
    EXPECT_EQ(UNICODE_LoadConverter(c, path.c_str()), 0u) << path;
    Iconv decode(set, "UCS-2LE"), encode("UCS-2LE", set);
    auto ours = [&](const std::string &native) {
        UNICODE_CHAR *out = nullptr;
        U32 rc = UNICODE_ConvertToUnicodeBuffer(c, native.c_str(), &out, 0);
        std::u16string s;
        for (UNICODE_CHAR *p = out; p != nullptr && *p != 0; ++p)
            s.push_back(static_cast<char16_t>(*p));
        UNICODE_BufferFree(reinterpret_cast<void **>(&out));
        return rc == 0 ? ucs2(s) : std::string("(status)");
    };
    auto oursBack = [&](char16_t ch) {
        const char16_t text[2] = {ch, 0};
        char *out = nullptr;
        U32 rc = UNICODE_ConvertFromUnicodeBuffer(c, reinterpret_cast<const UNICODE_CHAR *>(text), &out, 0);
        std::string s = rc == 0 && out != nullptr ? out : "(status)";
        UNICODE_BufferFree(reinterpret_cast<void **>(&out));
        return s;
    };
    std::map<U32, std::vector<std::string>> nativesOf;
    for (const Entry &e : entries)
        nativesOf[e.unicode].push_back(e.native);
    std::set<std::string> decoded;  // natives the map gives a mapping
    std::string allNatives;
    for (const Entry &e : entries) {
        if (e.native.find('\0') != std::string::npos || e.unicode == 0)
            continue;  // NUL ends every text
        ++allowed["(compared)"];
        decoded.insert(e.native);
        if (e.unicode > 0xFFFF || mapDataDiffers(set, e.native)) {
            ++allowed[e.unicode > 0xFFFF ? "above-bmp" : "map-data"];
            continue;
        }
        std::optional<std::string> theirs = decode(e.native);
        std::string mine = ours(e.native);
        if (!theirs || *theirs != mine)
            unexplained.push_back("decode " + hexOf(e.native) + "ours " + hexOf(mine) + "iconv " +
                                  (theirs ? hexOf(*theirs) : "refused"));
        else
            allNatives += e.native;
        // From Unicode: the map's last line for the character.
        const auto &all = nativesOf[e.unicode];
        std::string back = oursBack(static_cast<char16_t>(e.unicode));
        std::optional<std::string> theirsBack = encode(ucs2(std::u16string(1, static_cast<char16_t>(e.unicode))));
        if (back != all.back())
            unexplained.push_back("encode of " + hexOf(e.native) + "gives " + hexOf(back));
        if (theirsBack && *theirsBack != back) {
            if (std::find(all.begin(), all.end(), *theirsBack) != all.end())
                ++allowed["duplicate"];
            else
                unexplained.push_back("encode differs from iconv for " + hexOf(e.native));
        }
    }
    // The whole map in one text: sequences must not disturb each other.
    if (!allNatives.empty() && set != "CP1258" && set != "T.61-8BIT") {
        std::optional<std::string> theirs = decode(allNatives);
        EXPECT_TRUE(theirs && *theirs == ours(allNatives)) << set << ": the whole map as one text";
    }
    for (int b = 1; b < 256 && !multibyte; ++b) {
        std::string byte(1, static_cast<char>(b));
        if (decoded.count(byte) != 0)
            continue;
        std::optional<std::string> theirs = decode(byte);
        if (!theirs && ours(byte) == ucs2(u"\xFFFD"))
            ++allowed["unmapped-byte"];
        else
            unexplained.push_back("byte " + hexOf(byte) + "not in the map; iconv " + (theirs ? hexOf(*theirs) : "refused"));
    }
    // A lead byte followed by a mapped single byte that continues nothing.
    auto firstPair = std::find_if(entries.begin(), entries.end(), [&](const Entry &e) {
        return e.native.size() == 2 && !mapDataDiffers(set, e.native.substr(0, 1));
    });
    if (multibyte && firstPair != entries.end() && decoded.count("A") != 0 &&
        decoded.count(firstPair->native.substr(0, 1) + "\x01") == 0) {
        std::string lead = firstPair->native.substr(0, 1), broken = lead + "\x01" + "A";
        std::string single = decoded.count(lead) != 0 ? ours(lead) : ucs2(u"\xFFFD");
        if (!decode(broken) && ours(broken) == single + ucs2(u"A"))
            ++allowed["dropped-trail"];
        else
            unexplained.push_back("broken sequence " + hexOf(broken));
    }
    // A character no set here maps (a private-use one): SUB.
    if (!encode(ucs2(u"\xE000")) && oursBack(u'\xE000') == "\x1A")
        ++allowed["sub-byte"];
    UNICODE_DestroyConverter(c);
    return unexplained;
}

TEST(UnicodeIconv, ShippedMapsAgreeWithIconv)
{
    ASSERT_EQ(UNICODE_Initialize(0), 0u);
    const std::string dir = std::string(RQ_DATA_DIR) + "/charmaps";
    ASSERT_TRUE(std::filesystem::is_directory(dir)) << "no shipped maps under " << dir;
    int maps = 0;
    for (const auto &file : std::filesystem::directory_iterator(dir)) {
        std::string stem = file.path().stem().string(), set = iconvNameFor(stem);
        if (file.path().extension() != ".MAP")
            continue;
        if (!Iconv(set, "UCS-2LE").ok() || !Iconv("UCS-2LE", set).ok()) {
            std::printf("%s: iconv has no such set, not compared\n", stem.c_str());
            continue;
        }
        SCOPED_TRACE(file.path().string());
        std::map<std::string, int> allowed;
        std::vector<std::string> unexplained = compareMap(file.path().string(), set, allowed);
        std::printf("%s vs iconv %s:", stem.c_str(), set.c_str());
        for (const auto &[rule, count] : allowed)
            std::printf(" %s %d", rule.c_str(), count);
        std::printf("\n");
        EXPECT_TRUE(unexplained.empty()) << unexplained.size() << " differences, first: " << unexplained.front();
        ++maps;
    }
    EXPECT_GT(maps, 0);
}

}  // namespace
