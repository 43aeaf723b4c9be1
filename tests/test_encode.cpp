// Content encodings: base64 and quoted-printable.
#include "rqtest.h"

#include "rqcore/encode.h"
#include "rqcore/frame.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::string;

// Owns a buffer the library handed out.
struct Owned { char *p = nullptr; ~Owned() { if (p != nullptr) RQCORE_free(p); } };

struct Decoded { U32 status; Bytes data; };

// Also checks the decoder's buffer: (strlen/4)*3 + 1 bytes, all zero after
// the data, so the fast path's wide stores leave nothing behind.
Decoded fromBase64(const Bytes &text)
{
    Owned out;
    U32 length = 0xA5A5A5A5u;
    U32 status = ENCODE_convertFromBase64(text.c_str(), &length, &out.p);
    if (out.p == nullptr)
        return {status, "<null>"};
    for (size_t i = length; i < std::strlen(text.c_str()) / 4 * 3 + 1; ++i)
        EXPECT_EQ(out.p[i], '\0') << "decoder buffer at " << i;
    return {status, Bytes(out.p, length)};
}

// Also checks the encoder's buffer: length*4/3 + 5 bytes, zero after the text.
Bytes toBase64(const Bytes &data)
{
    Owned out;
    EXPECT_EQ(ENCODE_convertToBase64(data.data(), static_cast<U32>(data.size()), &out.p), 0u);
    if (out.p == nullptr)
        return "<null>";
    size_t text = std::strlen(out.p);
    EXPECT_EQ(text, (data.size() + 2) / 3 * 4);
    for (size_t i = text; i < data.size() * 4 / 3 + 5; ++i)
        EXPECT_EQ(out.p[i], '\0') << "encoder buffer at " << i;
    return Bytes(out.p);
}

Bytes randomBytes(std::mt19937 &rng, size_t n)
{
    Bytes b(n, '\0');
    for (auto &c : b)
        c = static_cast<char>(rng() & 0xFF);
    return b;
}

// Python's binascii/quopri/base64 as an independent oracle: `expr` sees the input as d.
Bytes runPython(const rqtest::TempDir &dir, const Bytes &input, const std::string &expr)
{
    rqtest::writeFile(dir.file("py.in"), input);
    return rqtest::commandOutput(std::string("python3 -c \"import sys, binascii, quopri, base64; d = open(sys.argv[1], "
                                             "'rb').read(); sys.stdout.buffer.write(")
                                     .append(expr).append(")\" ").append(dir.file("py.in")));
}

// Sweeps one allocating call: every failure gives 0x18C01 and hands out nothing.
void sweep(const std::function<U32(char **)> &call)
{
    char *seen = nullptr;
    rqtest::allocationSweep(
        [&] {
            char *out = nullptr;
            U32 status = call(&out);
            RQCORE_free(seen = out);
            return status;
        },
        [&](U32 status) { EXPECT_EQ(status, ENCODE_ERR_NOMEM); EXPECT_EQ(seen, nullptr); });
}

// ---- Base64 ---------------------------------------------------------------

TEST(Base64, StandardVectorsAndTheTolerantDecodersRules)
{
    struct Case { Bytes text; U32 status; Bytes data; bool encodes = false; };
    // Rows marked true: RFC 4648 section 10, then `basenc --base64 -w0`
    // output, checked both ways.  The others are the decoder's documented
    // rules: skip outside the alphabet (0x18C02), stop at the first '=',
    // 0x18C04 for an unfinished group, bytes looked up by their low 7 bits.
    const Case cases[] = {
        {"", 0, "", true}, {"Zg==", 0, "f", true}, {"Zm8=", 0, "fo", true}, {"Zm9v", 0, "foo", true},
        {"AAA=", 0, Bytes(2, '\0'), true}, {"//79AAGA", 0, "\xff\xfe\xfd" + Bytes(1, '\0') + "\x01\x80", true},
        {"QU JD", ENCODE_WARN_SKIPPED, "ABC"}, {"QUJ", ENCODE_ERR_INCOMPLETE, "AB"}, {"QUJ=", 0, "AB"},
        {"QQ==QUJD", 0, "A"}, {"=QUJD", 0, ""}, {"QUJD=garbage!!", 0, "ABC"}, {"Q===", 0, ""},
        {"Q J", ENCODE_ERR_INCOMPLETE, "@"},  // the incomplete status replaces the skip warning
        {"QUJD\r\nQUJD\r\n", ENCODE_WARN_SKIPPED, "ABCABC"},
        {"\xD1UJD", 0, "ABC"},                            // 0xD1 is looked up as 'Q'
        {"QUJD\xBDQUJD", ENCODE_WARN_SKIPPED, "ABCABC"},  // 0xBD is not '=': skipped
        {"QUJDQU.JDQUJD", ENCODE_WARN_SKIPPED, "ABCABCABC"},  // skip inside the fast path's 8-character step
        {"QUJDQUJ=QUJD", 0, "ABCAB"},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        Decoded d = fromBase64(c.text);
        EXPECT_EQ(d.status, c.status);
        EXPECT_EQ(d.data, c.data);
        if (c.encodes) {
            EXPECT_EQ(toBase64(c.data), c.text);
        }
    }
}

TEST(Base64, RoundTripsRandomDataWithAndWithoutLineBreaks)
{
    rqtest::LeakCheck leaks;
    std::mt19937 rng(12345);
    for (size_t n = 0; n < 400; n += (n < 40 ? 1 : 37)) {
        SCOPED_TRACE(n);
        Bytes data = randomBytes(rng, n);
        Bytes text = toBase64(data);
        EXPECT_EQ(fromBase64(text).data, data);
        // MIME bodies: 76-column lines with CRLF are skipped and flagged,
        // but only line ends before the first '=' are seen.
        Bytes folded;
        for (size_t i = 0; i < text.size(); i += 76)
            folded += text.substr(i, 76) + "\r\n";
        Decoded d = fromBase64(folded);
        EXPECT_EQ(d.data, data);
        EXPECT_EQ(d.status, folded.find('\r') < folded.find('=') ? U32{ENCODE_WARN_SKIPPED} : 0u);
    }
}

TEST(Base64, StringChecksUseTheValiditySet)
{
    struct Case { const char *text; U32 valid; const char *stripped; U32 strip; };
    const Case cases[] = {
        {"", 0, "", 0},         {"QQ==", 0, "QQ==", 0}, {"QUJD\r\nQQ==", 1, "QUJDQQ==", 0},
        {"QUJ", 0, "QUJ", 1},   {"a-b_c", 1, "abc", 1},
        {"\xD1UJD", 1, "UJD", 1},  // the string checks look at whole bytes
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(ENCODE_isBase64String(c.text), c.valid);
        std::string s = c.text;
        EXPECT_EQ(ENCODE_stripBase64String(s.data()), c.strip);
        EXPECT_STREQ(s.c_str(), c.stripped);
    }
}

TEST(Encode, RefusesNullArguments)
{
    char *out = reinterpret_cast<char *>(0x1);
    U32 length = 0;
    for (U32 status : {ENCODE_convertToBase64(nullptr, 0, &out), ENCODE_convertToBase64("a", 1, nullptr),
                       ENCODE_convertFromBase64(nullptr, &length, &out), ENCODE_convertFromBase64("QQ==", nullptr, &out),
                       ENCODE_convertFromBase64("QQ==", &length, nullptr), ENCODE_isBase64String(nullptr),
                       ENCODE_stripBase64String(nullptr), ENCODE_fileConvertToBase64(nullptr, stdout, nullptr),
                       ENCODE_fileConvertFromBase64(stdin, nullptr), ENCODE_toQP(nullptr, 0, &out, &length, 0),
                       ENCODE_toQP("a", 1, &out, nullptr, 0), ENCODE_convertToQuotedPrintable("a", &out, nullptr),
                       ENCODE_fromQP(nullptr, 0, &out, &length, 0), ENCODE_fromQP("a", 1, &out, nullptr, 0),
                       ENCODE_convertFromQuotedPrintable(nullptr, &out, &length),
                       ENCODE_convertFromQuotedPrintable("a", nullptr, &length)})
        EXPECT_EQ(status, ENCODE_ERR_BADARG);
    EXPECT_EQ(out, reinterpret_cast<char *>(0x1)) << "a refused call leaves the output alone";
}

// ---- Base64 files -----------------------------------------------------------

struct FileRun { U32 status; Bytes output; };

FileRun convertFile(const rqtest::TempDir &dir, const Bytes &input, bool encode, const char *lineEnd = nullptr)
{
    std::string in = dir.file("in"), out = dir.file("out");
    rqtest::writeFile(in, input);
    FILE *fin = std::fopen(in.c_str(), "rb");
    FILE *fout = std::fopen(out.c_str(), "wb");
    U32 status = encode ? ENCODE_fileConvertToBase64(fin, fout, lineEnd) : ENCODE_fileConvertFromBase64(fin, fout);
    std::fclose(fin);
    std::fclose(fout);
    return {status, rqtest::readFile(out)};
}

TEST(Base64Files, ConvertIn54ByteLinesAndReportTheEmptyRead)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::mt19937 rng(3);
    struct Case { Bytes data; const char *lineEnd; U32 status; };
    // 54 bytes per 72-character line (CRLF by default); a length that is a
    // multiple of 54 (0 included) ends with an empty read: 0x18C05 after a
    // complete conversion.
    const Case cases[] = {{"", nullptr, ENCODE_ERR_READ},      {"abc", "", 0},
                          {randomBytes(rng, 55), nullptr, 0}, {randomBytes(rng, 108), "\n", ENCODE_ERR_READ},
                          {randomBytes(rng, 4321), nullptr, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.data.size());
        Bytes expected;
        for (size_t i = 0; i < c.data.size(); i += 54)
            expected += toBase64(c.data.substr(i, 54)) + (c.lineEnd ? c.lineEnd : "\r\n");
        FileRun r = convertFile(dir, c.data, true, c.lineEnd);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.output, expected);
        EXPECT_EQ(convertFile(dir, r.output, false).output, c.data);
    }
    EXPECT_EQ(convertFile(dir, "", false).status, ENCODE_ERR_READ);
    // An unfinished last group is not written: its chunk decodes to 0x18C04.
    FileRun bad = convertFile(dir, "QUJDQUJ", false);
    EXPECT_EQ(bad.status, ENCODE_ERR_INCOMPLETE);
    EXPECT_EQ(bad.output, "");
    // An output stream open for reading refuses the first write: 0x18C06.
    rqtest::writeFile(dir.file("in"), "QUJD");
    for (bool encode : {true, false}) {
        FILE *fin = std::fopen(dir.file("in").c_str(), "rb"), *readOnly = std::fopen(dir.file("in").c_str(), "rb");
        EXPECT_EQ(encode ? ENCODE_fileConvertToBase64(fin, readOnly, nullptr)
                         : ENCODE_fileConvertFromBase64(fin, readOnly), ENCODE_ERR_WRITE);
        std::fclose(fin);
        std::fclose(readOnly);
    }
}

// ---- Quoted-printable encoders ------------------------------------------

struct QpResult { U32 status; Bytes text; };

QpResult toQP(const Bytes &data, U32 flags)
{
    Owned out;
    U32 length = 0xA5A5A5A5u;
    U32 status = ENCODE_toQP(data.data(), static_cast<U32>(data.size()), &out.p, &length, flags);
    if (out.p == nullptr)
        return {status, "<null>"};
    EXPECT_EQ(std::strlen(out.p) + 1, length) << "the counted length includes the NUL";
    return {status, Bytes(out.p)};
}

Bytes fromQP(const Bytes &text, U32 lineLength = 256)
{
    Owned out;
    U32 length = 0xA5A5A5A5u;
    EXPECT_EQ(ENCODE_fromQP(text.data(), static_cast<U32>(text.size()), &out.p, &length, lineLength), 0u);
    if (out.p == nullptr)
        return "<null>";
    EXPECT_EQ(out.p[length], '\0');
    return Bytes(out.p, length);
}

TEST(QuotedPrintable, ToQPEscapesAndWraps)
{
    const Bytes a72(72, 'a'), a73(73, 'a'), a74(74, 'a'), a75(75, 'a');
    struct Case { const char *what; Bytes data; U32 flags; Bytes expected; };
    // The encoder's rules: '=' always escaped, upper-case hex, '~' literal,
    // CR/LF literal only with flag 4; flag 2 wraps at 76 with soft breaks.
    const Case cases[] = {
        {"escapes", "a=b~\t\x7f\xff", 0, "a=3Db~\t=7F=FF"},
        {"crlf escaped", "a\r\nb", 2, "a=0D=0Ab"},
        {"crlf literal", "a\r\nb", 4, "a\r\nb"},
        {"blank before line end", "x \r\n", 6, "x=20\r\n"},
        {"escape reaching 75", a72 + "\xff" + "b", 2, a72 + "=FF=\r\nb"},
        {"escape at 73", a73 + "\xff" + "b", 2, a73 + "=\r\n=FFb"},
        {"escape at 73 before line end", a73 + "\xff\r\n", 6, a73 + "=FF\r\n"},
        {"blank at 74", a74 + " b", 2, a74 + " =\r\nb"},
        {"byte at 75 before line end", a75 + "b\r\nc", 6, a75 + "b\r\nc"},
        {"byte at 75", a75 + "bc", 2, a75 + "=\r\nbc"},
        {"blank at 75 before line end", a75 + " \r\n", 6, a75 + "=\r\n=20\r\n"},
        {"trailing blank", "ab ", 2, "ab ="},
        {"trailing blank unwrapped", "ab ", 0, "ab "},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        QpResult r = toQP(c.data, c.flags);
        EXPECT_EQ(r.status, 0u);
        EXPECT_EQ(r.text, c.expected);
    }
}

TEST(QuotedPrintable, WrappedLinesStayWithin76AndRoundTrip)
{
    rqtest::LeakCheck leaks;
    std::mt19937 rng(21);
    const char alphabet[] = "abc =\t\xe9~.";
    for (int round = 0; round < 200; ++round) {
        Bytes data;
        for (size_t i = 0, n = rng() % 600; i < n; ++i)
            data += (rng() % 40 == 0) ? Bytes("\r\n") : Bytes(1, alphabet[rng() % (sizeof alphabet - 1)]);
        for (U32 flags : {2u, 6u}) {
            QpResult r = toQP(data, flags);
            ASSERT_EQ(r.status, 0u);
            for (size_t start = 0, end = 0; end != Bytes::npos; start = end + 2) {
                end = r.text.find("\r\n", start);
                Bytes line = r.text.substr(start, end == Bytes::npos ? Bytes::npos : end - start);
                EXPECT_LE(line.size(), 76u) << line;
                EXPECT_TRUE(line.empty() || (line.back() != ' ' && line.back() != '\t')) << line;
            }
            EXPECT_EQ(fromQP(r.text, 0), data);
        }
    }
}

TEST(QuotedPrintable, RequiredSizeFollowsThe76ColumnEstimate)
{
    struct Case { Bytes data; U32 size; };
    // 3 + 1 per literal + 3 per escape + 2 per line; an escape that passes
    // column 75 moves to the next line; a final blank adds 1.
    const Case cases[] = {
        {"", 3}, {"a ", 6}, {"a=", 7}, {Bytes(76, 'a'), 81}, {Bytes(26, '\xff'), 83},
        {Bytes(75, 'a') + " ", 3 + 75 + 1 + 2 + 1 + 1},  // the blank is counted again on the new line
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.data.size());
        EXPECT_EQ(enc_qpGetReqBufferSize(c.data.data(), static_cast<U32>(c.data.size()), nullptr), c.size);
    }
}

TEST(QuotedPrintable, OldEncoderFoldsWithALeadingBlank)
{
    struct Case { Bytes text; U32 column; Bytes expected; U32 columnAfter; };
    // Escapes: '=', TAB, '~' and everything from 0x7F; "=\r\n " once the
    // column passes 71, after which it restarts at 1.
    const Case cases[] = {
        {"", 5, "", 5}, {"~\t\x80", 0, "=7E=09=80", 9}, {"a=", 69, "a=3D=\r\n ", 1},
        {Bytes(71, 'a'), 0, Bytes(71, 'a'), 71},
        {Bytes(72, 'a'), 0, Bytes(72, 'a') + "=\r\n ", 1},
        {Bytes(73, 'a'), 0, Bytes(72, 'a') + "=\r\n a", 2},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        Owned out;
        U32 column = c.column;
        ASSERT_EQ(ENCODE_convertToQuotedPrintable(c.text.c_str(), &out.p, &column), 0u);
        EXPECT_EQ(Bytes(out.p), c.expected);
        EXPECT_EQ(column, c.columnAfter);
    }
}

// ---- Quoted-printable decoders ------------------------------------------

TEST(QuotedPrintable, DecoderFollowsTheRobustReadersAdvice)
{
    struct Case { const char *what; Bytes text; Bytes expected; U32 lineLength = 256; };
    // RFC 2045 section 6.7 and its notes on robust decoders; a run of blanks
    // longer than the line length cannot be transport padding (0: no bound).
    const Case cases[] = {
        {"escapes, any case", "a=3Db=3d=e9=Ff", "a=b=\xe9\xff"},
        {"soft breaks crlf, lf, cr", "ab=\r\ncd=\nef=\rg", "abcdefg"},
        {"padding after soft break", "ab= \t\r\ncd", "abcd"},
        {"padding before line end", "ab \t\r\ncd  \ne", "ab\r\ncd\ne"},
        {"encoded blank kept", "ab=20\r\ncd=09 \r\n", "ab \r\ncd\t\r\n"},
        {"blank between escape and line end", "a =20 \r\n", "a  \r\n"},
        {"padding at the end", "abc  \t", "abc"},
        {"final equals with padding", "abc=  ", "abc"},
        {"lone equals", "=", ""},           {"bad hex kept", "a=4Gb", "a=4Gb"},
        {"equals then escape", "==41", "=A"}, {"truncated escape", "ab=4", "ab=4"},
        {"equals blank text", "a= b", "a= b"},
        {"high bytes and nul copied", Bytes("\xe9\0=\r\n\x80", 6), Bytes("\xe9\0\x80", 3)},
        {"the same deep in a long text",  // past the decoder's 64-byte windows
         Bytes(200, 'a') + " \t\r\n" + Bytes(100, 'b') + "=41=\r\n=3d==\n" + Bytes(100, 'c') + "\r\r\n\n",
         Bytes(200, 'a') + "\r\n" + Bytes(100, 'b') + "A==" + Bytes(100, 'c') + "\r\r\n\n"},
        {"padding within the line length", "a    \r\n", "a\r\n", 4},
        {"blanks beyond the line length", "a     \r\n", "a     \r\n", 4},
        {"no bound", "a     \r\n", "a\r\n", 0},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(fromQP(c.text, c.lineLength), c.expected);
        // The NUL-terminated entry point is the unbounded decoder.
        Owned out;
        U32 length = 0;
        ASSERT_EQ(ENCODE_convertFromQuotedPrintable(c.text.c_str(), &out.p, &length), 0u);
        EXPECT_EQ(Bytes(out.p, length), fromQP(Bytes(c.text.c_str()), 0));
    }
}

TEST(Encode, AgreesWithPython)
{
    if (std::system("python3 -c 'import binascii' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "python3 not available";
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::mt19937 rng(5);
    Bytes data = randomBytes(rng, 5000);
    EXPECT_EQ(toBase64(data) + "\n", runPython(dir, data, "binascii.b2a_base64(d)"));
    Decoded d = fromBase64(runPython(dir, data, "base64.encodebytes(d)"));  // 76-column lines
    EXPECT_EQ(d.status, ENCODE_WARN_SKIPPED);
    EXPECT_EQ(d.data, data);
    // Text with line ends, blanks and 8-bit bytes, as mail bodies carry.
    Bytes text, crlf;
    for (int i = 0; i < 3000; ++i) {
        unsigned r = rng() % 100;
        text += r < 3 ? '\n' : r < 15 ? ' ' : r < 18 ? '=' : r < 22 ? static_cast<char>(0x80 + rng() % 128)
                                                                   : static_cast<char>('a' + rng() % 26);
    }
    text += "\n";
    EXPECT_EQ(fromQP(runPython(dir, text, "quopri.encodestring(d)")), text);
    for (char c : text)
        crlf += c == '\n' ? Bytes("\r\n") : Bytes(1, c);
    EXPECT_EQ(runPython(dir, toQP(crlf, 6).text, "binascii.a2b_qp(d)"), crlf);
}

TEST(QuotedPrintable, HexHelpers)
{
    struct Digit { int c; S32 value; };
    for (Digit d : std::vector<Digit>{{'0', 0}, {'9', 9}, {'A', 10}, {'f', 15}, {'g', -1}, {'G', -1}, {256 + '1', -1}, {-1, -1}})
        EXPECT_EQ(ENCODE__getCharValue(d.c), d.value) << d.c;
    struct Number { const char *text; U32 count; U32 base; S32 value; };
    for (Number n : std::vector<Number>{{"1aF", 3, 16, 0x1AF}, {"3Dxyz", 2, 16, 0x3D}, {"19", 2, 8, -1},
                                        {"7FFFFFFF", 8, 16, 0x7FFFFFFF}, {"80000000", 8, 16, -1},
                                        {"1", 0, 16, 0}, {"1", 5, 16, -1}, {"1", 1, 17, -1}, {nullptr, 1, 16, -1}})
        EXPECT_EQ(ENCODE_strntol(n.text, n.count, n.base), n.value) << (n.text ? n.text : "null");
}

// ---- Out of memory ---------------------------------------------------------

TEST(Encode, AllocationFailuresReportNotEnoughCore)
{
    const Bytes text = Bytes(300, 'a') + " \xe9=\r\n";
    const U32 size = static_cast<U32>(text.size());
    U32 length = 0, column = 0;
    sweep([&](char **out) { return ENCODE_convertToBase64("abc", 3, out); });
    sweep([&](char **out) { return ENCODE_convertFromBase64("QUJD", &length, out); });
    for (U32 flags : {0u, 6u})
        sweep([&](char **out) { return ENCODE_toQP(text.data(), size, out, &length, flags); });
    sweep([&](char **out) { return ENCODE_convertToQuotedPrintable(text.c_str(), out, &column); });
    sweep([&](char **out) { return ENCODE_fromQP(text.data(), size, out, &length, 256); });

    rqtest::TempDir dir;
    sweep([&](char **) { return convertFile(dir, "QUJDQUJD\r\nQUJD\r\n", false).status; });
}

}  // namespace
