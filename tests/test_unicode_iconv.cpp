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

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
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
    std::string line;
    auto hex = [](std::string token) -> U32 {
        token.erase(std::remove_if(token.begin(), token.end(), [](char c) { return !std::isxdigit(static_cast<unsigned char>(c)) && c != 'x' && c != 'X'; }), token.end());
        return static_cast<U32>(std::stoul(token, nullptr, 16));
    };
    while (std::getline(in, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream fields(line);
        std::string native, unicode;
        if (!(fields >> native >> unicode))
            continue;
        Entry e;
        std::istringstream bytes(native);
        std::string b;
        while (std::getline(bytes, b, '+'))
            e.native.push_back(static_cast<char>(hex(b)));
        std::string first = unicode.substr(0, unicode.find('+', 2));
        if (first.rfind("U+", 0) == 0 || first.rfind("u+", 0) == 0)
            first = first.substr(2);
        e.unicode = hex(first);
        entries.push_back(e);
    }
    return entries;
}

class Iconv {
public:
    Iconv(const std::string &from, const std::string &to) : cd_(iconv_open(to.c_str(), from.c_str())) {}
    ~Iconv()
    {
        if (ok())
            iconv_close(cd_);
    }
    Iconv(const Iconv &) = delete;
    Iconv &operator=(const Iconv &) = delete;
    bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
    // The whole input converted, or nothing when iconv refuses any of it.
    std::optional<std::string> operator()(const std::string &input) const
    {
        iconv(cd_, nullptr, nullptr, nullptr, nullptr);
        std::string out(input.size() * 4 + 16, '\0');
        char *in = const_cast<char *>(input.data());
        size_t inLeft = input.size();
        char *o = out.data();
        size_t outLeft = out.size();
        if (iconv(cd_, &in, &inLeft, &o, &outLeft) == static_cast<size_t>(-1) || inLeft != 0)
            return std::nullopt;
        if (iconv(cd_, nullptr, nullptr, &o, &outLeft) == static_cast<size_t>(-1))
            return std::nullopt;
        out.resize(out.size() - outLeft);
        return out;
    }

private:
    iconv_t cd_;
};

std::string ucs2(const std::u16string &s)
{
    return std::string(reinterpret_cast<const char *>(s.data()), s.size() * 2);
}

// iconv's name for the set a shipped map file stands for.
std::string iconvNameFor(const std::string &stem)
{
    static const std::map<std::string, std::string> names = {
        {"USASCII", "ASCII"},        {"SHIFTJIS", "SHIFT_JIS"},   {"EUCKR", "EUC-KR"},
        {"EUCJP", "EUC-JP"},         {"EUCCN", "EUC-CN"},         {"T61", "T.61-8BIT"},
        {"MSCP932", "CP932"},        {"MSCP936", "CP936"},        {"MSCP949", "CP949"},
        {"MSCP950", "CP950"},        {"MSCP437", "CP437"},        {"BIG5", "BIG5"},
        {"MACROMAN", "MACINTOSH"},   {"MACCYRILLIC", "MAC-CYRILLIC"}, {"MACUKRAINE", "MAC-UK"},
        {"MACCNTEURO", "MAC-CENTRALEUROPE"}, {"MACICELAND", "MAC-IS"}, {"MACTURKISH", "MACTURKISH"},
        {"MACGREEK", "MACGREEK"},    {"MACCROATIAN", "MACCROATIAN"}, {"HPROMAN8", "HP-ROMAN8"},
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

struct Report {
    std::map<std::string, int> allowed;
    std::vector<std::string> unexplained;
    int compared = 0;
};

std::string hexOf(const std::string &bytes)
{
    std::string s;
    char b[4];
    for (unsigned char c : bytes) {
        std::snprintf(b, sizeof b, "%02X ", c);
        s += b;
    }
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
    auto code = [&native] {
        U32 v = 0;
        for (unsigned char b : native)
            v = v << 8 | b;
        return v;
    }();
    if (set == "CP950")
        return native.size() == 2 && code >= 0xC6A1 && code <= 0xC8FE;
    if (set == "MAC-CYRILLIC")
        return code == 0xA2;
    if (set == "T.61-8BIT")
        return native.size() == 1 && code >= 0xC1 && code <= 0xCF;
    return false;
}

void compareMap(const std::string &path, const std::string &set, Report &report)
{
    std::vector<Entry> entries = readMap(path);
    ASSERT_FALSE(entries.empty()) << path;
    bool multibyte = std::any_of(entries.begin(), entries.end(), [](const Entry &e) { return e.native.size() > 1; });
    UNICODE_CONVERTER *c = nullptr;
    ASSERT_EQ(UNICODE_NewConverter(&c, multibyte ? UNICODE_TYPE_MBCS : UNICODE_TYPE_8BIT, 0), 0u);
    ASSERT_EQ(UNICODE_LoadConverter(c, path.c_str()), 0u) << path;
    Iconv decode(set, "UCS-2LE"), encode("UCS-2LE", set);
    ASSERT_TRUE(decode.ok() && encode.ok()) << set;

    auto ours = [&](const std::string &native) {
        UNICODE_CHAR *out = nullptr;
        U32 rc = UNICODE_ConvertToUnicodeBuffer(c, native.c_str(), &out, 0);
        std::u16string s;
        for (UNICODE_CHAR *p = out; p != nullptr && *p != 0; ++p)
            s.push_back(static_cast<char16_t>(*p));
        if (out != nullptr)
            UNICODE_BufferFree(reinterpret_cast<void **>(&out));
        return rc == 0 ? ucs2(s) : std::string("(status)");
    };
    auto oursBack = [&](char16_t ch) {
        const char16_t text[2] = {ch, 0};
        char *out = nullptr;
        U32 rc = UNICODE_ConvertFromUnicodeBuffer(c, reinterpret_cast<const UNICODE_CHAR *>(text), &out, 0);
        std::string s = rc == 0 && out != nullptr ? out : "(status)";
        if (out != nullptr)
            UNICODE_BufferFree(reinterpret_cast<void **>(&out));
        return s;
    };
    auto note = [&](const std::string &what) { report.unexplained.push_back(set + ": " + what); };

    std::map<U32, std::vector<std::string>> nativesOf;
    std::map<U32, std::string> lastNative;
    for (const Entry &e : entries) {
        nativesOf[e.unicode].push_back(e.native);
        lastNative[e.unicode] = e.native;
    }
    std::set<std::string> decoded;  // natives the map gives a mapping
    std::string allNatives;
    for (const Entry &e : entries) {
        if (e.native.find('\0') != std::string::npos || e.unicode == 0)
            continue;  // NUL ends every text
        ++report.compared;
        decoded.insert(e.native);
        std::optional<std::string> theirs = decode(e.native);
        std::string mine = ours(e.native);
        if (e.unicode > 0xFFFF) {
            ++report.allowed["above-bmp"];
            continue;
        }
        if (mapDataDiffers(set, e.native)) {
            ++report.allowed["map-data"];
            continue;
        }
        if (!theirs || *theirs != mine)
            note("decode " + hexOf(e.native) + "ours " + hexOf(mine) + "iconv " + (theirs ? hexOf(*theirs) : "refused"));
        else
            allNatives += e.native;
        // From Unicode: the map's last line for the character.
        std::string back = oursBack(static_cast<char16_t>(e.unicode));
        std::optional<std::string> theirsBack = encode(ucs2(std::u16string(1, static_cast<char16_t>(e.unicode))));
        if (back != lastNative[e.unicode])
            note("encode U+" + hexOf(std::string{static_cast<char>(e.unicode >> 8), static_cast<char>(e.unicode)}) +
                 "ours " + hexOf(back));
        if (theirsBack && *theirsBack != back) {
            const auto &all = nativesOf[e.unicode];
            if (std::find(all.begin(), all.end(), *theirsBack) != all.end())
                ++report.allowed["duplicate"];
            else
                note("encode differs from iconv for " + hexOf(e.native));
        }
    }
    // The whole map in one text: sequences must not disturb each other.
    if (!allNatives.empty() && set != "CP1258" && set != "T.61-8BIT") {
        std::optional<std::string> theirs = decode(allNatives);
        EXPECT_TRUE(theirs && *theirs == ours(allNatives)) << set << ": the whole map as one text";
    }
    if (!multibyte) {
        for (int b = 1; b < 256; ++b) {
            std::string byte(1, static_cast<char>(b));
            if (decoded.count(byte) != 0)
                continue;
            std::optional<std::string> theirs = decode(byte);
            if (!theirs && ours(byte) == ucs2(u"\xFFFD"))
                ++report.allowed["unmapped-byte"];
            else
                note("byte " + hexOf(byte) + "not in the map; iconv " + (theirs ? hexOf(*theirs) : "refused"));
        }
    } else {
        // A lead byte followed by a mapped single byte that continues nothing.
        for (const Entry &e : entries) {
            if (e.native.size() != 2 || mapDataDiffers(set, e.native.substr(0, 1)))
                continue;
            std::string broken = e.native.substr(0, 1) + "\x01" + "A";
            if (decoded.count(std::string("A")) == 0 || decoded.count(e.native.substr(0, 1) + "\x01") != 0)
                break;
            std::optional<std::string> theirs = decode(broken);
            std::string single = decoded.count(e.native.substr(0, 1)) != 0 ? ours(e.native.substr(0, 1))
                                                                            : ucs2(u"\xFFFD");
            if (!theirs && ours(broken) == single + ucs2(u"A"))
                ++report.allowed["dropped-trail"];
            else
                note("broken sequence " + hexOf(broken));
            break;
        }
    }
    // A character no set here maps (a private-use one): SUB.
    if (!encode(ucs2(u"\xE000")) && oursBack(u'\xE000') == "\x1A")
        ++report.allowed["sub-byte"];
    UNICODE_DestroyConverter(c);
}

void printReport(const std::string &what, const Report &r)
{
    std::printf("%s: %d mappings compared", what.c_str(), r.compared);
    for (const auto &[rule, count] : r.allowed)
        std::printf(", %s %d", rule.c_str(), count);
    std::printf("\n");
}

class UnicodeIconv : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(UNICODE_Initialize(0), 0u); }
};

TEST_F(UnicodeIconv, ShippedMapsAgreeWithIconv)
{
    const std::string dir = std::string(RQ_DATA_DIR) + "/charmaps";
    ASSERT_TRUE(std::filesystem::is_directory(dir)) << "no shipped maps under " << dir;
    int maps = 0;
    std::vector<std::string> skipped;
    for (const auto &file : std::filesystem::directory_iterator(dir)) {
        if (file.path().extension() != ".MAP")
            continue;
        std::string stem = file.path().stem().string();
        std::string set = iconvNameFor(stem);
        if (!Iconv(set, "UCS-2LE").ok()) {
            skipped.push_back(stem);
            continue;
        }
        SCOPED_TRACE(file.path().string());
        Report report;
        compareMap(file.path().string(), set, report);
        printReport(stem + " vs iconv " + set, report);
        EXPECT_TRUE(report.unexplained.empty()) << report.unexplained.size() << " differences, first: "
                                                << report.unexplained.front();
        ++maps;
    }
    for (const std::string &stem : skipped)
        std::printf("%s: iconv has no such set, not compared\n", stem.c_str());
    EXPECT_GT(maps, 0);
}

}  // namespace
