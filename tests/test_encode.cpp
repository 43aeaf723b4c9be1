// Content encodings: base64 and quoted-printable.
#include "rqtest.h"

#include "rqcore/encode.h"
#include "rqcore/frame.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::string;

// Owns a buffer the library handed out.
struct Owned {
    char *p = nullptr;
    ~Owned()
    {
        if (p != nullptr)
            RQCORE_free(p);
    }
};

struct Decoded {
    U32 status;
    Bytes data;
};

Decoded fromBase64(const Bytes &text)
{
    Owned out;
    U32 length = 0xA5A5A5A5u;
    U32 status = ENCODE_convertFromBase64(text.c_str(), &length, &out.p);
    if (out.p == nullptr)
        return {status, "<null>"};
    EXPECT_EQ(out.p[length], '\0') << "decoded data is NUL-terminated";
    return {status, Bytes(out.p, length)};
}

Bytes toBase64(const Bytes &data)
{
    Owned out;
    EXPECT_EQ(ENCODE_convertToBase64(data.data(), static_cast<U32>(data.size()), &out.p), 0u);
    return out.p != nullptr ? Bytes(out.p) : "<null>";
}

Bytes randomBytes(std::mt19937 &rng, size_t n)
{
    Bytes b(n, '\0');
    for (auto &c : b)
        c = static_cast<char>(rng() & 0xFF);
    return b;
}

Bytes allBytes()
{
    Bytes b;
    for (int i = 0; i < 256; ++i)
        b.push_back(static_cast<char>(i));
    return b;
}

// Runs a shell command with `input` in a temporary file named by {} and
// returns its output, or nullopt-like "\x01" when the tool is missing.
bool havePython()
{
    return std::system("python3 -c 'import binascii' >/dev/null 2>&1") == 0;
}

Bytes runPython(const rqtest::TempDir &dir, const Bytes &input, const std::string &expr)
{
    std::string in = dir.file("py.in");
    FILE *f = std::fopen(in.c_str(), "wb");
    std::fwrite(input.data(), 1, input.size(), f);
    std::fclose(f);
    std::string command = "python3 -c \"import sys, binascii, quopri; d = open(sys.argv[1], 'rb').read(); "
                          "sys.stdout.buffer.write(" + expr + ")\" '" + in + "'";
    FILE *p = popen(command.c_str(), "r");
    Bytes out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0)
        out.append(buffer, n);
    EXPECT_EQ(pclose(p), 0) << command;
    return out;
}

// ---- Base64 ---------------------------------------------------------------

TEST(Base64, EncodesTheStandardVectors)
{
    struct Case {
        Bytes data;
        const char *text;
    };
    // RFC 4648 section 10, then `basenc --base64 -w0` output.
    const std::vector<Case> cases = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {Bytes(1, '\0'), "AA=="},
        {Bytes(2, '\0'), "AAA="},
        {"hello, world!", "aGVsbG8sIHdvcmxkIQ=="},
        {"\xff\xfe\xfd" + Bytes(1, '\0') + "\x01\x80", "//79AAGA"},
        {allBytes(),
         "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4OTo7PD0+P0BBQkNERUZHSElKS0xNTk9Q"
         "UVJTVFVWV1hZWltcXV5fYGFiY2RlZmdoaWprbG1ub3BxcnN0dXZ3eHl6e3x9fn+AgYKDhIWGh4iJiouMjY6PkJGSk5SVlpeYmZqbnJ2en6Ch"
         "oqOkpaanqKmqq6ytrq+wsbKztLW2t7i5uru8vb6/wMHCw8TFxsfIycrLzM3Oz9DR0tPU1dbX2Nna29zd3t/g4eLj5OXm5+jp6uvs7e7v8PHy"
         "8/T19vf4+fr7/P3+/w=="},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(toBase64(c.data), c.text);
        Decoded d = fromBase64(c.text);
        EXPECT_EQ(d.status, 0u);
        EXPECT_EQ(d.data, c.data);
    }
}

TEST(Base64, EncoderBufferIsZeroAfterTheText)
{
    // The buffer holds length*4/3 + 5 bytes, all zero after the text.
    std::mt19937 rng(7);
    for (U32 n : {0u, 1u, 2u, 3u, 4u, 5u, 47u, 48u, 49u, 1000u}) {
        Bytes data = randomBytes(rng, n);
        Owned out;
        ASSERT_EQ(ENCODE_convertToBase64(data.data(), n, &out.p), 0u);
        size_t size = n * 4 / 3 + 5;
        size_t text = std::strlen(out.p);
        EXPECT_EQ(text, (n + 2) / 3 * 4);
        for (size_t i = text; i < size; ++i)
            ASSERT_EQ(out.p[i], '\0') << "n=" << n << " i=" << i;
    }
}

TEST(Base64, TolerantDecoderKeepsItsRules)
{
    struct Case {
        Bytes text;
        U32 status;
        Bytes data;
    };
    // The decoder's documented rules: skip outside the alphabet (0x18C02),
    // stop at the first '=', 0x18C04 for an unfinished group, low 7 bits.
    const std::vector<Case> cases = {
        {"QU JD", ENCODE_WARN_SKIPPED, "ABC"},
        {"QUJ", ENCODE_ERR_INCOMPLETE, "AB"},
        {"QUJ=", 0, "AB"},
        {"QQ==QUJD", 0, "A"},
        {"=QUJD", 0, ""},
        {"QUJD=garbage!!", 0, "ABC"},
        {"Q", ENCODE_ERR_INCOMPLETE, ""},
        {"Q===", 0, ""},
        {"Q J", ENCODE_ERR_INCOMPLETE, "@"},  // the incomplete status replaces the skip warning
        {"QUJD\r\nQUJD\r\n", ENCODE_WARN_SKIPPED, "ABCABC"},
        {"\r\n\r\n", ENCODE_WARN_SKIPPED, ""},
        {"\xD1UJD", 0, "ABC"},                      // 0xD1 is looked up as 'Q'
        {"QUJD\xBDQUJD", ENCODE_WARN_SKIPPED, "ABCABC"},  // 0xBD is not '=': skipped
        {"QU\x80JD", ENCODE_WARN_SKIPPED, "ABC"},
        {"QUJDQU.JDQUJD", ENCODE_WARN_SKIPPED, "ABCABCABC"},  // skip inside the fast path's 8-character step
        {"QUJDQUJ=QUJD", 0, "ABCAB"},
        {"", 0, ""},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        Decoded d = fromBase64(c.text);
        EXPECT_EQ(d.status, c.status);
        EXPECT_EQ(d.data, c.data);
    }
}

TEST(Base64, DecoderBufferIsZeroAfterTheData)
{
    // (strlen/4)*3 + 1 bytes are cleared: the fast path's wide stores leave
    // nothing behind.
    for (const Bytes &text : {Bytes("QUJDQUJDQUJDQUJD"), Bytes("QUJDQUJDQUJDQU=="), Bytes("QUJDQUJD!!!!!!!!!!!!!!!!")}) {
        Owned out;
        U32 length = 0;
        ENCODE_convertFromBase64(text.c_str(), &length, &out.p);
        ASSERT_NE(out.p, nullptr);
        for (size_t i = length; i < text.size() / 4 * 3 + 1; ++i)
            EXPECT_EQ(out.p[i], '\0') << text << " at " << i;
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
        // MIME bodies: 76-column lines with CRLF are skipped and flagged.
        Bytes folded;
        for (size_t i = 0; i < text.size(); i += 76)
            folded += text.substr(i, 76) + "\r\n";
        Decoded d = fromBase64(folded);
        EXPECT_EQ(d.data, data);
        // Only line ends before the first '=' are seen.
        bool skipped = folded.find('\r') < folded.find('=');
        EXPECT_EQ(d.status, skipped ? U32{ENCODE_WARN_SKIPPED} : 0u);
    }
}

TEST(Base64, AgreesWithPython)
{
    if (!havePython())
        GTEST_SKIP() << "python3 not available";
    rqtest::TempDir dir;
    std::mt19937 rng(99);
    Bytes data = randomBytes(rng, 5000);
    EXPECT_EQ(toBase64(data) + "\n", runPython(dir, data, "binascii.b2a_base64(d)"));
    // Python's MIME encoder folds at 76 columns; our decoder skips the breaks.
    Bytes folded = runPython(dir, data, "__import__('base64').encodebytes(d)");
    Decoded d = fromBase64(folded);
    EXPECT_EQ(d.status, ENCODE_WARN_SKIPPED);
    EXPECT_EQ(d.data, data);
}

TEST(Base64, RefusesNullArguments)
{
    char *out = reinterpret_cast<char *>(0x1);
    U32 length = 0;
    EXPECT_EQ(ENCODE_convertToBase64(nullptr, 0, &out), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertToBase64("a", 1, nullptr), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertFromBase64(nullptr, &length, &out), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertFromBase64("QQ==", nullptr, &out), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertFromBase64("QQ==", &length, nullptr), ENCODE_ERR_BADARG);
    EXPECT_EQ(out, reinterpret_cast<char *>(0x1)) << "a refused call leaves the output alone";
    EXPECT_EQ(ENCODE_isBase64String(nullptr), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_stripBase64String(nullptr), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_fileConvertToBase64(nullptr, stdout, nullptr), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_fileConvertFromBase64(stdin, nullptr), ENCODE_ERR_BADARG);
}

TEST(Base64, StringChecksUseTheValiditySet)
{
    struct Case {
        const char *text;
        U32 valid;
        const char *stripped;
        U32 strip;
    };
    const std::vector<Case> cases = {
        {"", 0, "", 0},
        {"QUJD", 0, "QUJD", 0},
        {"QQ==", 0, "QQ==", 0},
        {"QUJD\r\nQQ==", 1, "QUJDQQ==", 0},
        {"QU JD", 1, "QUJD", 0},
        {"QUJ", 0, "QUJ", 1},
        {"a-b_c", 1, "abc", 1},
        {"\xD1UJD", 1, "UJD", 1},  // the string checks look at whole bytes
        {" \t\r\n", 1, "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(ENCODE_isBase64String(c.text), c.valid);
        std::string s = c.text;
        EXPECT_EQ(ENCODE_stripBase64String(s.data()), c.strip);
        EXPECT_STREQ(s.c_str(), c.stripped);
    }
}

TEST(Base64, AllocationFailuresReportNotEnoughCore)
{
    rqtest::allocationSweep(
        [] {
            char *out = nullptr;
            U32 status = ENCODE_convertToBase64("abc", 3, &out);
            if (out != nullptr)
                RQCORE_free(out);
            return status;
        },
        ENCODE_ERR_NOMEM);
    rqtest::allocationSweep(
        [] {
            char *out = nullptr;
            U32 length = 0;
            U32 status = ENCODE_convertFromBase64("QUJD", &length, &out);
            if (out != nullptr)
                RQCORE_free(out);
            return status;
        },
        ENCODE_ERR_NOMEM);
}

// ---- Base64 files -----------------------------------------------------------

struct FileRun {
    U32 status;
    Bytes output;
};

FileRun convertFile(const rqtest::TempDir &dir, const Bytes &input, bool encode, const char *lineEnd = nullptr)
{
    std::string in = dir.file("in"), out = dir.file("out");
    FILE *f = std::fopen(in.c_str(), "wb");
    std::fwrite(input.data(), 1, input.size(), f);
    std::fclose(f);
    FILE *fin = std::fopen(in.c_str(), "rb");
    FILE *fout = std::fopen(out.c_str(), "wb");
    U32 status = encode ? ENCODE_fileConvertToBase64(fin, fout, lineEnd) : ENCODE_fileConvertFromBase64(fin, fout);
    std::fclose(fin);
    std::fclose(fout);
    return {status, rqtest::readFile(out)};
}

TEST(Base64Files, EncoderWritesLinesOf72AndReportsTheEmptyRead)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::mt19937 rng(3);
    Bytes b54 = randomBytes(rng, 54), b55 = randomBytes(rng, 55), b108 = randomBytes(rng, 108);
    struct Case {
        Bytes data;
        const char *lineEnd;
        U32 status;
        Bytes expected;
    };
    // A length that is a multiple of 54 (0 included) ends with an empty
    // read: 0x18C05 after a complete conversion.
    const std::vector<Case> cases = {
        {"", nullptr, ENCODE_ERR_READ, ""},
        {"abc", nullptr, 0, "YWJj\r\n"},
        {b54, nullptr, ENCODE_ERR_READ, toBase64(b54) + "\r\n"},
        {b55, nullptr, 0, toBase64(b55.substr(0, 54)) + "\r\n" + toBase64(b55.substr(54)) + "\r\n"},
        {b108, "\n", ENCODE_ERR_READ, toBase64(b108.substr(0, 54)) + "\n" + toBase64(b108.substr(54)) + "\n"},
        {"abc", "", 0, "YWJj"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.data.size());
        FileRun r = convertFile(dir, c.data, true, c.lineEnd);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.output, c.expected);
        if (c.data.size() >= 54) {
            EXPECT_EQ(r.output.find_first_of("\r\n"), 72u);
        }
    }
}

TEST(Base64Files, DecoderRestoresWhatTheEncoderWrote)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::mt19937 rng(4);
    for (size_t n : {1u, 53u, 100u, 1000u, 4321u}) {
        SCOPED_TRACE(n);
        Bytes data = randomBytes(rng, n);
        FileRun enc = convertFile(dir, data, true);
        FileRun dec = convertFile(dir, enc.output, false);
        EXPECT_EQ(dec.output, data);
        EXPECT_TRUE(dec.status == 0 || dec.status == ENCODE_ERR_READ) << std::hex << dec.status;
    }
    // An empty file: the first read returns nothing.
    EXPECT_EQ(convertFile(dir, "", false).status, ENCODE_ERR_READ);
    // An unfinished last group is not written: its chunk decodes to 0x18C04.
    FileRun bad = convertFile(dir, "QUJDQUJ", false);
    EXPECT_EQ(bad.status, ENCODE_ERR_INCOMPLETE);
    EXPECT_EQ(bad.output, "");
}

// ---- Quoted-printable encoders ------------------------------------------

struct QpResult {
    U32 status;
    U32 length;
    Bytes text;
};

QpResult toQP(const Bytes &data, U32 flags)
{
    Owned out;
    U32 length = 0xA5A5A5A5u;
    U32 status = ENCODE_toQP(data.data(), static_cast<U32>(data.size()), &out.p, &length, flags);
    if (out.p == nullptr)
        return {status, length, "<null>"};
    EXPECT_EQ(out.p[length - 1], '\0') << "the counted length includes the NUL";
    return {status, length, Bytes(out.p, length - 1)};
}

TEST(QuotedPrintable, ToQPEscapesAndWraps)
{
    const Bytes a72(72, 'a'), a73(73, 'a'), a74(74, 'a'), a75(75, 'a');
    struct Case {
        const char *what;
        Bytes data;
        U32 flags;
        Bytes expected;
    };
    // The encoder's rules: '=' always escaped, upper-case hex, '~' literal,
    // CR/LF literal only with flag 4; flag 2 wraps at 76 with soft breaks.
    const std::vector<Case> cases = {
        {"empty", "", 0, ""},
        {"equals", "a=b", 0, "a=3Db"},
        {"tilde and tab", "~\t\x7f\xff", 0, "~\t=7F=FF"},
        {"crlf escaped", "a\r\nb", 0, "a=0D=0Ab"},
        {"crlf literal", "a\r\nb", 4, "a\r\nb"},
        {"crlf without 4 is no line break", "a\r\nb", 2, "a=0D=0Ab"},
        {"100 letters", Bytes(100, 'a'), 2, Bytes(75, 'a') + "=\r\n" + Bytes(25, 'a')},
        {"blank before line end", "x \r\n", 6, "x=20\r\n"},
        {"tab before line end", "x\t\r\ny", 6, "x=09\r\ny"},
        {"escape reaching 75", a72 + "\xff" + "b", 2, a72 + "=FF=\r\nb"},
        {"escape at 73", a73 + "\xff" + "b", 2, a73 + "=\r\n=FFb"},
        {"escape at 73 before line end", a73 + "\xff\r\n", 6, a73 + "=FF\r\n"},
        {"escape at 74", a74 + "\xff", 2, a74 + "=\r\n=FF"},
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
        EXPECT_EQ(r.length, c.expected.size() + 1);
    }
}

TEST(QuotedPrintable, WrappedLinesStayWithin76)
{
    rqtest::LeakCheck leaks;
    std::mt19937 rng(21);
    const char alphabet[] = "abc =\t\xe9~.";
    for (int round = 0; round < 200; ++round) {
        Bytes data;
        size_t n = rng() % 600;
        for (size_t i = 0; i < n; ++i)
            data += (rng() % 40 == 0) ? Bytes("\r\n") : Bytes(1, alphabet[rng() % (sizeof alphabet - 1)]);
        for (U32 flags : {2u, 6u}) {
            QpResult r = toQP(data, flags);
            ASSERT_EQ(r.status, 0u);
            size_t start = 0;
            while (start <= r.text.size()) {
                size_t end = r.text.find("\r\n", start);
                Bytes line = r.text.substr(start, end == Bytes::npos ? Bytes::npos : end - start);
                EXPECT_LE(line.size(), 76u) << line;
                if (!line.empty()) {
                    EXPECT_TRUE(line.back() != ' ' && line.back() != '\t') << line;
                }
                if (end == Bytes::npos)
                    break;
                start = end + 2;
            }
            Owned back;
            U32 length = 0;
            ASSERT_EQ(ENCODE_fromQP(r.text.data(), static_cast<U32>(r.text.size()), &back.p, &length, 0), 0u);
            EXPECT_EQ(Bytes(back.p, length), data);
        }
    }
}

TEST(QuotedPrintable, RequiredSizeFollowsThe76ColumnEstimate)
{
    struct Case {
        Bytes data;
        U32 size;
    };
    // 3 + 1 per literal + 3 per escape + 2 per line; an escape that passes
    // column 75 moves to the next line; a final blank adds 1.
    const std::vector<Case> cases = {
        {"", 3},
        {"a", 4},
        {"a ", 6},
        {"a=", 7},
        {Bytes(76, 'a'), 81},
        {Bytes(100, 'a'), 105},
        {Bytes(26, '\xff'), 83},
        {Bytes(75, 'a') + " ", 3 + 75 + 1 + 2 + 1 + 1},  // the blank is counted again on the new line
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.data.size());
        EXPECT_EQ(enc_qpGetReqBufferSize(c.data.data(), static_cast<U32>(c.data.size()), nullptr), c.size);
    }
}

TEST(QuotedPrintable, OldEncoderFoldsWithALeadingBlank)
{
    struct Case {
        Bytes text;
        U32 column;
        Bytes expected;
        U32 columnAfter;
    };
    // Escapes: '=', TAB, '~' and everything from 0x7F; "=\r\n " once the
    // column passes 71, after which it restarts at 1.
    const std::vector<Case> cases = {
        {"", 5, "", 5},
        {"a=b", 0, "a=3Db", 5},
        {"~\t\x80", 0, "=7E=09=80", 9},
        {Bytes(71, 'a'), 0, Bytes(71, 'a'), 71},
        {Bytes(72, 'a'), 0, Bytes(72, 'a') + "=\r\n ", 1},
        {"ab", 70, "ab=\r\n ", 1},
        {"a=", 69, "a=3D=\r\n ", 1},
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

TEST(QuotedPrintable, DecoderFollowsTheRobustReadersAdvice)
{
    struct Case {
        const char *what;
        Bytes text;
        Bytes expected;
    };
    // RFC 2045 section 6.7 and its notes on robust decoders.
    const std::vector<Case> cases = {
        {"escape", "a=3Db", "a=b"},
        {"lower-case digits", "=3d=e9=Ff", "=\xe9\xff"},
        {"soft break crlf", "ab=\r\ncd", "abcd"},
        {"soft break lf", "ab=\ncd", "abcd"},
        {"soft break bare cr", "ab=\rcd", "abcd"},
        {"padding after soft break", "ab= \t\r\ncd", "abcd"},
        {"padding before line end", "ab \t\r\ncd  \ne", "ab\r\ncd\ne"},
        {"encoded blank kept", "ab=20\r\ncd=09 \r\n", "ab \r\ncd\t\r\n"},
        {"blank between escape and line end", "a =20 \r\n", "a  \r\n"},
        {"padding at the end", "abc  \t", "abc"},
        {"final equals", "abc=", "abc"},
        {"final equals with padding", "abc=  ", "abc"},
        {"lone equals", "=", ""},
        {"bad hex kept", "a=4Gb", "a=4Gb"},
        {"equals then escape", "==41", "=A"},
        {"truncated escape", "ab=4", "ab=4"},
        {"equals blank text", "a= b", "a= b"},
        {"inner blanks kept", "a  b\tc", "a  b\tc"},
        {"high bytes copied", "\xe9\xff=\r\n\x80", "\xe9\xff\x80"},
        {"nul copied", Bytes("a\0b", 3), Bytes("a\0b", 3)},
        {"long clean run", Bytes(100, 'x') + "=41" + Bytes(50, 'y'), Bytes(100, 'x') + "A" + Bytes(50, 'y')},
        {"empty", "", ""},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(fromQP(c.text), c.expected);
        Owned out;
        U32 length = 0;
        ASSERT_EQ(ENCODE_convertFromQuotedPrintable(Bytes(c.text.c_str()).c_str(), &out.p, &length), 0u);
        EXPECT_EQ(Bytes(out.p, length), fromQP(Bytes(c.text.c_str()), 0));
    }
}

TEST(QuotedPrintable, LineLengthBoundsTransportPadding)
{
    // A run of blanks longer than a line cannot be padding added to it.
    EXPECT_EQ(fromQP("a    \r\n", 4), "a\r\n");
    EXPECT_EQ(fromQP("a     \r\n", 4), "a     \r\n");
    EXPECT_EQ(fromQP("a     \r\n", 0), "a\r\n");
}

TEST(QuotedPrintable, AgreesWithPython)
{
    if (!havePython())
        GTEST_SKIP() << "python3 not available";
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::mt19937 rng(5);
    // Text with LF line ends, blanks and 8-bit bytes, as Python's encoder
    // sees mail bodies.
    Bytes text;
    for (int i = 0; i < 3000; ++i) {
        unsigned r = rng() % 100;
        text += r < 3 ? '\n' : r < 15 ? ' ' : r < 18 ? '=' : r < 22 ? static_cast<char>(0x80 + rng() % 128)
                                                                   : static_cast<char>('a' + rng() % 26);
    }
    text += "\n";
    EXPECT_EQ(fromQP(runPython(dir, text, "quopri.encodestring(d)")), text);
    // Our wrapped output (flags 2|4) decodes with Python's a2b_qp.
    Bytes crlf;
    for (char c : text)
        crlf += c == '\n' ? Bytes("\r\n") : Bytes(1, c);
    QpResult ours = toQP(crlf, 6);
    EXPECT_EQ(runPython(dir, ours.text, "binascii.a2b_qp(d)"), crlf);
}

TEST(QuotedPrintable, HexHelpers)
{
    struct Digit {
        int c;
        S32 value;
    };
    for (Digit d : std::vector<Digit>{{'0', 0}, {'9', 9}, {'A', 10}, {'f', 15}, {'F', 15}, {'g', -1}, {'G', -1},
                                      {' ', -1}, {256 + '1', -1}, {-1, -1}, {0, -1}})
        EXPECT_EQ(ENCODE__getCharValue(d.c), d.value) << d.c;
    struct Number {
        const char *text;
        U32 count;
        U32 base;
        S32 value;
    };
    for (Number n : std::vector<Number>{{"1aF", 3, 16, 0x1AF},
                                        {"3D", 2, 16, 0x3D},
                                        {"3Dxyz", 2, 16, 0x3D},
                                        {"12", 2, 8, 10},
                                        {"19", 2, 8, -1},
                                        {"7FFFFFFF", 8, 16, 0x7FFFFFFF},
                                        {"80000000", 8, 16, -1},
                                        {"1", 0, 16, 0},
                                        {"1", 5, 16, -1},
                                        {"1", 1, 17, -1},
                                        {nullptr, 1, 16, -1}})
        EXPECT_EQ(ENCODE_strntol(n.text, n.count, n.base), n.value) << (n.text ? n.text : "null");
}

TEST(QuotedPrintable, RefusesNullArguments)
{
    char *out = reinterpret_cast<char *>(0x1);
    U32 length = 0, column = 0;
    EXPECT_EQ(ENCODE_toQP(nullptr, 0, &out, &length, 0), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_toQP("a", 1, nullptr, &length, 0), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_toQP("a", 1, &out, nullptr, 0), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertToQuotedPrintable(nullptr, &out, &column), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertToQuotedPrintable("a", nullptr, &column), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertToQuotedPrintable("a", &out, nullptr), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_fromQP(nullptr, 0, &out, &length, 0), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_fromQP("a", 1, nullptr, &length, 0), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_fromQP("a", 1, &out, nullptr, 0), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertFromQuotedPrintable(nullptr, &out, &length), ENCODE_ERR_BADARG);
    EXPECT_EQ(ENCODE_convertFromQuotedPrintable("a", nullptr, &length), ENCODE_ERR_BADARG);
    EXPECT_EQ(out, reinterpret_cast<char *>(0x1));
}

TEST(QuotedPrintable, AllocationFailuresReportNotEnoughCore)
{
    const Bytes text = Bytes(300, 'a') + " \xe9=\r\n";
    for (U32 flags : {0u, 2u, 4u, 6u}) {
        SCOPED_TRACE(flags);
        char *sentinel = nullptr;
        rqtest::allocationSweep(
            [&] {
                char *out = nullptr;
                U32 length = 0;
                U32 status = ENCODE_toQP(text.data(), static_cast<U32>(text.size()), &out, &length, flags);
                sentinel = out;
                if (out != nullptr)
                    RQCORE_free(out);
                return status;
            },
            [&](U32 status) {
                EXPECT_EQ(status, ENCODE_ERR_NOMEM);
                EXPECT_EQ(sentinel, nullptr);
            });
    }
    rqtest::allocationSweep(
        [&] {
            char *out = nullptr;
            U32 column = 0;
            U32 status = ENCODE_convertToQuotedPrintable(text.c_str(), &out, &column);
            if (out != nullptr)
                RQCORE_free(out);
            return status;
        },
        ENCODE_ERR_NOMEM);
    rqtest::allocationSweep(
        [&] {
            char *out = nullptr;
            U32 length = 0;
            U32 status = ENCODE_fromQP(text.data(), static_cast<U32>(text.size()), &out, &length, 256);
            if (out != nullptr)
                RQCORE_free(out);
            return status;
        },
        ENCODE_ERR_NOMEM);
    rqtest::allocationSweep(
        [&] {
            char *out = nullptr;
            U32 status = ENCODE_convertFromQuotedPrintable(text.c_str(), &out, nullptr);
            if (out != nullptr)
                RQCORE_free(out);
            return status;
        },
        ENCODE_ERR_NOMEM);
}

TEST(Base64Files, AllocationFailureStopsTheDecoder)
{
    rqtest::TempDir dir;
    std::string in = dir.file("in"), out = dir.file("out");
    FILE *f = std::fopen(in.c_str(), "wb");
    std::fputs("QUJDQUJD\r\nQUJD\r\n", f);
    std::fclose(f);
    rqtest::allocationSweep(
        [&] {
            FILE *fin = std::fopen(in.c_str(), "rb");
            FILE *fout = std::fopen(out.c_str(), "wb");
            U32 status = ENCODE_fileConvertFromBase64(fin, fout);
            std::fclose(fin);
            std::fclose(fout);
            return status;
        },
        ENCODE_ERR_NOMEM);
}

}  // namespace
