// The converters beside glibc iconv and ICU on the same 16 MB texts:
// UTF-8 <-> UCS-2 (ASCII text and a mixed Japanese text), ISO-8859-1 and
// windows-1252 <-> UCS-2, Shift_JIS, EUC-KR and ISO-2022-JP <-> UCS-2.  Every side writes
// into a buffer allocated once, outside the timed loop; bytes processed are
// the input bytes of each direction.
#include <benchmark/benchmark.h>

#include "rqcore/unicode.h"

#include <iconv.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr size_t kTextBytes = 16u << 20;

std::string iconvAll(const char *from, const char *to, const std::string &input)
{
    iconv_t cd = iconv_open(to, from);
    std::string out(input.size() * 4 + 16, '\0');
    char *in = const_cast<char *>(input.data());
    size_t inLeft = input.size();
    char *o = out.data();
    size_t outLeft = out.size();
    iconv(cd, &in, &inLeft, &o, &outLeft);
    iconv(cd, nullptr, nullptr, &o, &outLeft);  // a stateful set returns to its initial state
    iconv_close(cd);
    out.resize(out.size() - outLeft);
    return out;
}

std::u16string fromUcs2(const std::string &bytes)
{
    return std::u16string(reinterpret_cast<const char16_t *>(bytes.data()), bytes.size() / 2);
}

// Texts of about 16 MB in Unicode first; each set's bytes come from iconv.
std::u16string makeText(const char *kind)
{
    std::mt19937 random(7);
    std::u16string text;
    const std::u16string words[] = {u"the ", u"quick ", u"brown ", u"fox ", u"jumps ", u"over ", u"lazy ", u"dog. ",
                                    u"calendar ", u"meeting\n"};
    const std::u16string latin[] = {u"caf\xE9 ", u"na\xEFve ", u"r\xE9sum\xE9 ", u"gr\xFC\xDF" u"e ", u"ni\xF1o ",
                                    u"the ", u"meeting ", u"\xE0 ", u"d\xE9j\xE0 ", u"vu\n"};
    const std::u16string latin1252[] = {u"\x201C" u"quoted\x201D ", u"caf\xE9 ", u"na\xEFve ", u"\x20AC" u"5 ",
                                        u"r\xE9sum\xE9 ", u"the ", u"meeting\x2026 ", u"ni\xF1o ", u"vu\n", u"\x2019s "};
    const std::u16string kana = u"\x3042\x3044\x3046\x3048\x304A\x304B\x304D\x304F\x3051\x3053\x65E5\x672C\x8A9E\x4F1A\x8B70\x4E88\x5B9A";
    const std::u16string hangul = u"\xD55C\xAD6D\xC5B4\xD68C\xC758\xC77C\xC815\xB2EC\xB825\xC2DC\xAC04";
    while (text.size() < kTextBytes / 2) {
        std::string k = kind;
        if (k == "ascii") {
            text += words[random() % 10];
        } else if (k == "latin1") {
            text += latin[random() % 10];
        } else if (k == "1252") {
            text += latin1252[random() % 10];
        } else if (k == "japanese") {
            // Mostly kana and kanji with some ASCII words, as in real mail.
            for (int i = 0; i < 12; ++i)
                text.push_back(kana[random() % kana.size()]);
            if (random() % 3 == 0)
                text += words[random() % 10];
            text += u"\x3002";
        } else {
            for (int i = 0; i < 8; ++i)
                text.push_back(hangul[random() % hangul.size()]);
            text += u" ";
        }
    }
    return text;
}

std::string mapFromIconv(const char *set, bool multibyte)
{
    iconv_t cd = iconv_open("UCS-2LE", set);
    std::ostringstream map;
    auto emit = [&](const std::string &native) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        char out[8];
        char *in = const_cast<char *>(native.data());
        size_t inLeft = native.size();
        char *o = out;
        size_t outLeft = sizeof out;
        if (iconv(cd, &in, &inLeft, &o, &outLeft) == static_cast<size_t>(-1) || o - out != 2)
            return;
        char line[48];
        unsigned c = static_cast<unsigned char>(out[0]) | static_cast<unsigned char>(out[1]) << 8;
        std::string hex;
        for (unsigned char b : native) {
            std::snprintf(line, sizeof line, "%s%02X", hex.empty() ? "" : "+", b);
            hex += line;
        }
        std::snprintf(line, sizeof line, " %04X\n", c);
        map << hex << line;
    };
    for (int b = 1; b < 256; ++b)
        emit(std::string(1, static_cast<char>(b)));
    if (multibyte)
        for (int lead = 0x80; lead < 256; ++lead)
            for (int trail = 0x21; trail < 256; ++trail)
                emit(std::string{static_cast<char>(lead), static_cast<char>(trail)});
    iconv_close(cd);
    return map.str();
}

// A converter for the set: the shipped map when there is one, else a table
// built from iconv.
UNICODE_CONVERTER *converterFor(const char *mapName, const char *iconvName, U32 type)
{
    UNICODE_Initialize(0);
    UNICODE_CONVERTER *c = nullptr;
    static const std::string maps = std::string(RQ_DATA_DIR) + "/charmaps";
    if (type == UNICODE_TYPE_ISO2022JP || type == UNICODE_TYPE_ISO2022CN) {
        // These load their own maps from the directory.
        UNICODE_NewConverter(&c, type, reinterpret_cast<uintptr_t>(maps.c_str()));
        return c;
    }
    UNICODE_NewConverter(&c, type, 0);
    if (type == UNICODE_TYPE_UTF8)
        return c;
    std::string path = std::string(RQ_DATA_DIR) + "/charmaps/" + mapName;
    if (!std::filesystem::exists(path)) {
        path = std::string("/tmp/rq_bench_") + mapName;
        std::ofstream(path) << mapFromIconv(iconvName, type == UNICODE_TYPE_MBCS);
    }
    if (UNICODE_LoadConverter(c, path.c_str()) != 0)
        std::fprintf(stderr, "cannot load %s\n", path.c_str());
    return c;
}

struct Case {
    const char *name;
    const char *kind;
    const char *iconvName;
    const char *icuName;  // null: UTF-8 through u_strFromUTF8 / u_strToUTF8
    const char *mapName;
    U32 type;
};

const Case kCases[] = {
    {"utf8_ascii", "ascii", "UTF-8", nullptr, "", UNICODE_TYPE_UTF8},
    {"utf8_japanese", "japanese", "UTF-8", nullptr, "", UNICODE_TYPE_UTF8},
    {"iso8859_1", "latin1", "ISO-8859-1", "ISO-8859-1", "ISO88591.MAP", UNICODE_TYPE_8BIT},
    {"windows_1252", "1252", "CP1252", "windows-1252", "MSCP1252.MAP", UNICODE_TYPE_8BIT},
    {"shift_jis", "japanese", "SHIFT_JIS", "Shift_JIS", "SHIFTJIS.MAP", UNICODE_TYPE_MBCS},
    {"euc_kr", "korean", "EUC-KR", "EUC-KR", "EUCKR.MAP", UNICODE_TYPE_MBCS},
    {"iso2022_jp", "japanese", "ISO-2022-JP", "ISO_2022,locale=ja,version=0", "", UNICODE_TYPE_ISO2022JP},
};

struct Prepared {
    std::string native;       // the text in the set, NUL-terminated by std::string
    std::u16string unicode;   // the same text in UCS-2
    UNICODE_CONVERTER *converter;
};

Prepared &prepared(const Case &k)
{
    static std::vector<std::pair<const Case *, Prepared *>> cache;
    for (auto &[c, p] : cache)
        if (c == &k)
            return *p;
    auto *p = new Prepared;
    std::u16string text = makeText(k.kind);
    std::string ucs2(reinterpret_cast<const char *>(text.data()), text.size() * 2);
    p->native = iconvAll("UCS-2LE", k.iconvName, ucs2);
    p->unicode = fromUcs2(iconvAll(k.iconvName, "UCS-2LE", p->native));
    p->converter = converterFor(k.mapName, k.iconvName, k.type);
    cache.emplace_back(&k, p);
    return *p;
}

void rqToUnicode(benchmark::State &state, const Case *k)
{
    Prepared &p = prepared(*k);
    std::vector<UNICODE_CHAR> out(p.native.size() + 1);
    for (auto _ : state) {
        U32 size = static_cast<U32>(out.size() * 2);
        const char *end = nullptr;
        U32 rc = UNICODE_ConvertToUnicode(p.converter, p.native.c_str(), out.data(), &size, &end, 0);
        if (rc != 0 || size != p.unicode.size() * 2)
            state.SkipWithError("conversion differs");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * p.native.size()));
}

void rqFromUnicode(benchmark::State &state, const Case *k)
{
    Prepared &p = prepared(*k);
    std::vector<char> out(p.unicode.size() * 3 + 1);
    for (auto _ : state) {
        U32 size = static_cast<U32>(out.size());
        const UNICODE_CHAR *end = nullptr;
        UNICODE_ConvertFromUnicode(p.converter, reinterpret_cast<const UNICODE_CHAR *>(p.unicode.c_str()), out.data(),
                                   &size, &end, 0);
        if (size != p.native.size())
            state.SkipWithError("conversion differs");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * p.unicode.size() * 2));
}

void iconvRun(benchmark::State &state, const Case *k, bool toUnicode)
{
    Prepared &p = prepared(*k);
    iconv_t cd = toUnicode ? iconv_open("UCS-2LE", k->iconvName) : iconv_open(k->iconvName, "UCS-2LE");
    const std::string input = toUnicode ? p.native
                                        : std::string(reinterpret_cast<const char *>(p.unicode.data()),
                                                      p.unicode.size() * 2);
    std::string out(input.size() * 3 + 16, '\0');
    for (auto _ : state) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        char *in = const_cast<char *>(input.data());
        size_t inLeft = input.size();
        char *o = out.data();
        size_t outLeft = out.size();
        iconv(cd, &in, &inLeft, &o, &outLeft);
        if (inLeft != 0)
            state.SkipWithError("iconv stopped");
        benchmark::DoNotOptimize(out.data());
    }
    iconv_close(cd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input.size()));
}

void icuRun(benchmark::State &state, const Case *k, bool toUnicode)
{
    Prepared &p = prepared(*k);
    UErrorCode err = U_ZERO_ERROR;
    UConverter *cnv = k->icuName != nullptr ? ucnv_open(k->icuName, &err) : nullptr;
    std::vector<UChar> wide(p.native.size() + 1);
    std::string narrow(p.unicode.size() * 3 + 1, '\0');
    const UChar *unicode = reinterpret_cast<const UChar *>(p.unicode.data());
    const int32_t unicodeLength = static_cast<int32_t>(p.unicode.size());
    for (auto _ : state) {
        err = U_ZERO_ERROR;
        int32_t n = 0;
        if (cnv == nullptr && toUnicode)
            u_strFromUTF8(wide.data(), static_cast<int32_t>(wide.size()), &n, p.native.data(),
                          static_cast<int32_t>(p.native.size()), &err);
        else if (cnv == nullptr)
            u_strToUTF8(narrow.data(), static_cast<int32_t>(narrow.size()), &n, unicode, unicodeLength, &err);
        else if (toUnicode)
            n = ucnv_toUChars(cnv, wide.data(), static_cast<int32_t>(wide.size()), p.native.data(),
                              static_cast<int32_t>(p.native.size()), &err);
        else
            n = ucnv_fromUChars(cnv, narrow.data(), static_cast<int32_t>(narrow.size()), unicode, unicodeLength,
                                &err);
        if (U_FAILURE(err))
            state.SkipWithError("ICU failed");
        benchmark::DoNotOptimize(n);
    }
    if (cnv != nullptr)
        ucnv_close(cnv);
    state.SetBytesProcessed(
        static_cast<int64_t>(state.iterations() * (toUnicode ? p.native.size() : p.unicode.size() * 2)));
}

int registerAll()
{
    for (const Case &k : kCases) {
        std::string n = k.name;
        benchmark::RegisterBenchmark((n + "/to_ucs2/rqcore").c_str(), rqToUnicode, &k)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((n + "/to_ucs2/iconv").c_str(), iconvRun, &k, true)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((n + "/to_ucs2/icu").c_str(), icuRun, &k, true)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((n + "/from_ucs2/rqcore").c_str(), rqFromUnicode, &k)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((n + "/from_ucs2/iconv").c_str(), iconvRun, &k, false)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((n + "/from_ucs2/icu").c_str(), icuRun, &k, false)->Unit(benchmark::kMillisecond);
    }
    return 0;
}

const int registered = registerAll();

}  // namespace

BENCHMARK_MAIN();
