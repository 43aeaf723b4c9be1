// The static character-set table: every alias the library knows without a
// "charmap.config", with its set's identifier, canonical name and converter
// type.  Searched linearly from the first row; the first match wins.

#define RQ_SOURCE_TAG "src/lib/core/lib/charmap/charmap_table"
#include "internal/rq_mem.h"
#include "lib/charmap/charmap_internal.h"

#include <array>

namespace rq::charmap {
namespace {

constexpr U32 k8BIT = CHARMAP_TYPE_8BIT;
constexpr U32 kMBCS = CHARMAP_TYPE_MBCS;
constexpr U32 kUTF8 = CHARMAP_TYPE_UTF8;
constexpr U32 kISO2022JP = CHARMAP_TYPE_ISO2022JP;
constexpr U32 kISO2022CN = CHARMAP_TYPE_ISO2022CN;

// Rows are grouped by set, and every row of a group carries the same
// identifier, canonical name and type.
constexpr std::array<Row, 196> kTable{{
    // Row 0: the name "UNKNOWN" is a set known to be unknown; the lookups
    // hand the caller's own name back for it.
    {"UNKNOWN", 0, "UNKNOWN", k8BIT},

    {"UTF8", 106, "UTF-8", kUTF8},
    {"UNICODEUTF8", 106, "UTF-8", kUTF8},
    {"UNICODE11UTF8", 106, "UTF-8", kUTF8},
    {"UNICODE20UTF8", 106, "UTF-8", kUTF8},

    {"ISO885911987", 4, "ISO-8859-1", k8BIT},
    {"ISO88591", 4, "ISO-8859-1", k8BIT},
    {"LATIN1", 4, "ISO-8859-1", k8BIT},
    {"ISOIR100", 4, "ISO-8859-1", k8BIT},
    {"L1", 4, "ISO-8859-1", k8BIT},
    {"IBM819", 4, "ISO-8859-1", k8BIT},
    {"CP819", 4, "ISO-8859-1", k8BIT},
    {"CSISOLATIN1", 4, "ISO-8859-1", k8BIT},

    {"ANSIX341968", 3, "US-ASCII", k8BIT},
    {"ISOIR6", 3, "US-ASCII", k8BIT},
    {"ANSIX341986", 3, "US-ASCII", k8BIT},
    {"ISO646IRV1991", 3, "US-ASCII", k8BIT},
    {"ASCII", 3, "US-ASCII", k8BIT},
    {"USASCII", 3, "US-ASCII", k8BIT},
    {"ISO646US", 3, "US-ASCII", k8BIT},
    {"US", 3, "US-ASCII", k8BIT},
    {"IBM367", 3, "US-ASCII", k8BIT},

    {"ISO885921987", 5, "ISO-8859-2", k8BIT},
    {"ISO88592", 5, "ISO-8859-2", k8BIT},
    {"ISOIR101", 5, "ISO-8859-2", k8BIT},
    {"LATIN2", 5, "ISO-8859-2", k8BIT},
    {"L2", 5, "ISO-8859-2", k8BIT},
    {"CSISOLATIN2", 5, "ISO-8859-2", k8BIT},

    {"ISO885931988", 6, "ISO-8859-3", k8BIT},
    {"ISO88593", 6, "ISO-8859-3", k8BIT},
    {"ISOIR109", 6, "ISO-8859-3", k8BIT},
    {"LATIN3", 6, "ISO-8859-3", k8BIT},
    {"L3", 6, "ISO-8859-3", k8BIT},
    {"CSISOLATIN3", 6, "ISO-8859-3", k8BIT},

    {"ISO885941988", 7, "ISO-8859-4", k8BIT},
    {"ISO88594", 7, "ISO-8859-4", k8BIT},
    {"ISOIR110", 7, "ISO-8859-4", k8BIT},
    {"LATIN4", 7, "ISO-8859-4", k8BIT},
    {"L4", 7, "ISO-8859-4", k8BIT},
    {"CSISOLATIN4", 7, "ISO-8859-4", k8BIT},

    {"ISO885951988", 8, "ISO-8859-5", k8BIT},
    {"ISO88595", 8, "ISO-8859-5", k8BIT},
    {"ISOIR144", 8, "ISO-8859-5", k8BIT},
    {"CYRILLIC", 8, "ISO-8859-5", k8BIT},
    {"CSISOLATINCYRILLIC", 8, "ISO-8859-5", k8BIT},

    {"ISO885961987", 9, "ISO-8859-6", k8BIT},
    {"ISO88596", 9, "ISO-8859-6", k8BIT},
    {"ECMA114", 9, "ISO-8859-6", k8BIT},
    {"ASMO708", 9, "ISO-8859-6", k8BIT},
    {"ARABIC", 9, "ISO-8859-6", k8BIT},
    {"CSISOLATINARABIC", 9, "ISO-8859-6", k8BIT},

    {"ISO885971987", 10, "ISO-8859-7", k8BIT},
    {"ISO88597", 10, "ISO-8859-7", k8BIT},
    {"ISOIR126", 10, "ISO-8859-7", k8BIT},
    {"ELOT928", 10, "ISO-8859-7", k8BIT},
    {"ECMA118", 10, "ISO-8859-7", k8BIT},
    {"GREEK", 10, "ISO-8859-7", k8BIT},
    {"CSISOLATINGREEK", 10, "ISO-8859-7", k8BIT},

    {"ISO885981988", 11, "ISO-8859-8", k8BIT},
    {"ISO88598", 11, "ISO-8859-8", k8BIT},
    {"ISOIR138", 11, "ISO-8859-8", k8BIT},
    {"HEBREW", 11, "ISO-8859-8", k8BIT},
    {"CSISOLATINHEBREW", 11, "ISO-8859-8", k8BIT},

    {"ISO885991989", 12, "ISO-8859-9", k8BIT},
    {"ISO88599", 12, "ISO-8859-9", k8BIT},
    {"ISOIR148", 12, "ISO-8859-9", k8BIT},
    {"LATIN5", 12, "ISO-8859-9", k8BIT},
    {"L5", 12, "ISO-8859-9", k8BIT},
    {"CSISOLATIN5", 12, "ISO-8859-9", k8BIT},

    {"ARABIC8", 5001, "hp-arabic8", k8BIT},
    {"HPARABIC8", 5001, "hp-arabic8", k8BIT},

    {"GREEK8", 5002, "hp-greek8", k8BIT},
    {"HPGREEK8", 5002, "hp-greek8", k8BIT},

    {"HEBREW8", 5003, "hp-hebrew8", k8BIT},
    {"HPHEBREW8", 5003, "hp-hebrew8", k8BIT},

    {"KANA8", 5004, "hp-kana8", k8BIT},
    {"HPKANA8", 5004, "hp-kana8", k8BIT},

    {"ROMAN8", 5005, "hp-roman8", k8BIT},
    {"HPROMAN8", 5005, "hp-roman8", k8BIT},

    {"HPROMAN", 5010, "hp-roman", k8BIT},

    {"TURKISH8", 5006, "hp-turkish8", k8BIT},
    {"HPTURKISH8", 5006, "hp-turkish8", k8BIT},

    {"SHIFTJIS", 17, "Shift_JIS", kMBCS},
    {"SJIS", 17, "Shift_JIS", kMBCS},
    {"MSKANJI", 17, "Shift_JIS", kMBCS},
    {"CSSHIFTJIS", 17, "Shift_JIS", kMBCS},

    {"BIG5", 2026, "Big5", k8BIT},
    {"CSBIG5", 2026, "Big5", k8BIT},

    {"5601", 36, "5601", kMBCS},

    {"EUCKR", 38, "EUC-KR", kMBCS},
    {"CSEUCKR", 38, "EUC-KR", kMBCS},

    {"EUCJP", 18, "EUC-JP", kMBCS},
    {"EUCJIS", 18, "EUC-JP", kMBCS},

    {"EUCCN", 5009, "EUC-CN", kMBCS},

    {"EUCTW", 5007, "EUC-TW", k8BIT},

    {"TIS620", 5008, "tis620", k8BIT},

    {"T61", 76, "T61", kMBCS},
    {"T618BIT", 76, "T61", kMBCS},

    // tis620 continues here, split from its first row by T61; the row order
    // is kept whole so that every lookup answers as it always has.
    {"THAI8", 5008, "tis620", k8BIT},

    {"1250", 5100, "MSCP1250", k8BIT},
    {"MS1250", 5100, "MSCP1250", k8BIT},
    {"MSCP1250", 5100, "MSCP1250", k8BIT},

    {"1251", 5101, "MSCP1251", k8BIT},
    {"MS1251", 5101, "MSCP1251", k8BIT},
    {"MSCP1251", 5101, "MSCP1251", k8BIT},

    {"1252", 5102, "MSCP1252", k8BIT},
    {"MS1252", 5102, "MSCP1252", k8BIT},
    {"MSCP1252", 5102, "MSCP1252", k8BIT},

    {"1253", 5103, "MSCP1253", k8BIT},
    {"MS1253", 5103, "MSCP1253", k8BIT},
    {"MSCP1253", 5103, "MSCP1253", k8BIT},

    {"1254", 5104, "MSCP1254", k8BIT},
    {"MS1254", 5104, "MSCP1254", k8BIT},
    {"MSCP1254", 5104, "MSCP1254", k8BIT},

    {"1255", 5105, "MSCP1255", k8BIT},
    {"MS1255", 5105, "MSCP1255", k8BIT},
    {"MSCP1255", 5105, "MSCP1255", k8BIT},

    {"1256", 5106, "MSCP1256", k8BIT},
    {"MS1256", 5106, "MSCP1256", k8BIT},
    {"MSCP1256", 5106, "MSCP1256", k8BIT},

    {"1257", 5107, "MSCP1257", k8BIT},
    {"MS1257", 5107, "MSCP1257", k8BIT},
    {"MSCP1257", 5107, "MSCP1257", k8BIT},

    {"1258", 5108, "MSCP1258", k8BIT},
    {"MS1258", 5108, "MSCP1258", k8BIT},
    {"MSCP1258", 5108, "MSCP1258", k8BIT},

    {"932", 5109, "MSCP932", kMBCS},
    {"CP932", 5109, "MSCP932", kMBCS},
    {"MSCP932", 5109, "MSCP932", kMBCS},

    {"936", 5110, "MSCP936", kMBCS},
    {"CP936", 5110, "MSCP936", kMBCS},
    {"MSCP936", 5110, "MSCP936", kMBCS},

    {"949", 5111, "MSCP949", kMBCS},
    {"CP949", 5111, "MSCP949", kMBCS},
    {"MSCP949", 5111, "MSCP949", kMBCS},

    {"950", 5112, "MSCP950", kMBCS},
    {"CP950", 5112, "MSCP950", kMBCS},
    {"MSCP950", 5112, "MSCP950", kMBCS},

    {"MACROMAN", 5501, "MAC-ROMAN", k8BIT},
    {"MACINTOSH", 5501, "MAC-ROMAN", k8BIT},
    {"XMACROMAN", 5501, "MAC-ROMAN", k8BIT},
    {"WESTERNMACOSROMAN", 5501, "MAC-ROMAN", k8BIT},

    {"MACJAPANESE", 5516, "MAC-JAPANESE", kMBCS},
    {"XMACJAPANESE", 5516, "MAC-JAPANESE", kMBCS},
    {"JAPANESEMACOS", 5516, "MAC-JAPANESE", kMBCS},
    {"MACJAPAN", 5516, "MAC-JAPANESE", kMBCS},

    {"MACCNTEURO", 5503, "MAC-CNTEURO", k8BIT},
    {"XMACCENTRALEURROMAN", 5503, "MAC-CNTEURO", k8BIT},
    {"CENTRALEUROPEANMACOS", 5503, "MAC-CNTEURO", k8BIT},

    {"MACCROATIAN", 5504, "MAC-CROATIAN", k8BIT},
    {"XMACCROATIAN", 5504, "MAC-CROATIAN", k8BIT},
    {"CROATIANMACOS", 5504, "MAC-CROATIAN", k8BIT},

    {"MACCYRILLIC", 5505, "MAC-CYRILLIC", k8BIT},
    {"XMACCYRILLIC", 5505, "MAC-CYRILLIC", k8BIT},
    {"CYRILLICMACOS", 5505, "MAC-CYRILLIC", k8BIT},

    {"MACGREEK", 5507, "MAC-GREEK", k8BIT},
    {"XMACGREEK", 5507, "MAC-GREEK", k8BIT},
    {"GREEKMACOS", 5507, "MAC-GREEK", k8BIT},

    {"MACICELAND", 5509, "MAC-ICELAND", k8BIT},
    {"XMACICELANDIC", 5509, "MAC-ICELAND", k8BIT},
    {"ICELANDICMACOS", 5509, "MAC-ICELAND", k8BIT},

    {"MACTURKISH", 5513, "MAC-TURKISH", k8BIT},
    {"XMACTURKISH", 5513, "MAC-TURKISH", k8BIT},
    {"TURKISHMACOS", 5513, "MAC-TURKISH", k8BIT},

    {"MACUKRAINE", 5514, "MAC-UKRAINE", k8BIT},
    {"XMACUKRAINIAN", 5514, "MAC-UKRAINE", k8BIT},
    {"UKRAINIANMACOS", 5514, "MAC-UKRAINE", k8BIT},

    {"GSM0338", 5515, "GSM0338", k8BIT},
    {"GSM", 5515, "GSM0338", k8BIT},

    {"437", 2011, "MSCP437", k8BIT},
    {"CP437", 2011, "MSCP437", k8BIT},
    {"MSCP437", 2011, "MSCP437", k8BIT},

    {"TELEPATHSMSC", 5517, "TELEPATHSMSC", k8BIT},

    {"JISX0201", 15, "JIS_X0201", k8BIT},
    {"X0201", 15, "JIS_X0201", k8BIT},
    {"CSHALFWIDTHKATAKANA", 15, "JIS_X0201", k8BIT},

    {"JISC62261983", 63, "JIS_C6226-1983", kMBCS},
    {"X0208", 63, "JIS_C6226-1983", kMBCS},
    {"JISX0208", 63, "JIS_C6226-1983", kMBCS},
    {"CSISO87JISX0208", 63, "JIS_C6226-1983", kMBCS},

    {"ISOIR42", 49, "JIS_C6226-1978", kMBCS},
    {"JISC62261978", 49, "JIS_C6226-1978", kMBCS},
    {"CSISO42JISC62261978", 49, "JIS_C6226-1978", kMBCS},

    {"ISO2022JP", 39, "ISO-2022-JP", kISO2022JP},
    {"CSISO2022JP", 39, "ISO-2022-JP", kISO2022JP},

    // Big5 again, as a multibyte set: never reached, since the rows above
    // match first and callers rely on Big5 being reported as 8-bit.
    {"BIG5", 2026, "Big5", kMBCS},
    {"CSBIG5", 2026, "Big5", kMBCS},

    {"GB231280", 57, "GB2312-80", kMBCS},
    {"CHINESE", 57, "GB2312-80", kMBCS},
    {"CSISO58GB231280", 57, "GB2312-80", kMBCS},

    {"ISO2022CN", 104, "ISO-2022-CN", kISO2022CN},

    {"CNGB", 5532, "CN-GB", kMBCS},

    {"CNBIG5", 5533, "CN-BIG5", kMBCS},

    {"CNS11643P1", 5530, "CNS11643-P1", kMBCS},

    {"CNS11643P2", 5531, "CNS11643-P2", kMBCS},

    {"HP15CN", 5534, "HP15CN", kMBCS},
}};

constexpr bool aliasesAreSquished()
{
    for (const Row &row : kTable)
        for (char c : row.alias)
            if (squishByte(static_cast<unsigned char>(c)) != c)
                return false;
    return true;
}
static_assert(aliasesAreSquished(), "every alias is stored squished");
static_assert(kTable[0].id == 0, "row 0 is the unknown set");

}  // namespace

const Row *findByAlias(std::string_view squished) noexcept
{
    for (const Row &row : kTable)
        if (row.alias == squished)
            return &row;
    return nullptr;
}

const Row *findById(U32 id) noexcept
{
    for (const Row &row : kTable)
        if (row.id == id)
            return &row;
    return nullptr;
}

}  // namespace rq::charmap
