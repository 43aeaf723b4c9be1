// Code tables: packing, the 6-bit alphabet, blocks, information lines and
// whole files, with every count and checksum of a code file untrusted.
#include "rqtest.h"

#include "rqcore/cksum.h"
#include "rqcore/code.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<U8>;

Bytes randomBytes(size_t n, unsigned seed, int alphabet = 256)
{
    std::mt19937 rng(seed);
    Bytes v(n);
    for (U8 &b : v) b = static_cast<U8>(rng() % static_cast<unsigned>(alphabet));
    return v;
}

Bytes pack(const Bytes &in)
{
    Bytes out(in.size() * 2 + 16);
    U16 cap = static_cast<U16>(out.size());
    EXPECT_EQ(DX_CodePack(in.data(), static_cast<U16>(in.size()), out.data(), &cap), 0u);
    out.resize(cap);
    return out;
}

Bytes unpack(const Bytes &in, U16 room, U32 *status)
{
    Bytes out(room + 1u, 0xEE);
    U16 cap = room;
    *status = DX_CodeUnpack(in.data(), static_cast<U16>(in.size()), out.data(), &cap);
    EXPECT_EQ(out[room], 0xEE) << "wrote past the capacity";
    out.resize(cap);
    return out;
}

std::string toChar(const Bytes &in, bool packed, DX_CODE_STATE &state)
{
    std::string out(in.size() * 3 + 32, '\0');
    Bytes packing(in.size() * 2 + 16);
    U16 cap = static_cast<U16>(out.size());
    EXPECT_EQ(DX_CodeToChar(&state, in.data(), static_cast<U16>(in.size()), out.data(), &cap,
                            packed ? packing.data() : nullptr, static_cast<U16>(packing.size())),
              0u);
    out.resize(cap);
    return out;
}

TEST(Code, HexFields)
{
    struct Case { U32 value, digits; const char *text; U32 back; } cases[] = {
        {0x15A, 4, "015A", 0x15A}, {0xABCDEF12, 8, "ABCDEF12", 0xABCDEF12}, {0x12345, 4, "2345", 0x2345}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        char out[10] = "#########";
        DX_CodeToHex(c.value, out, c.digits);
        EXPECT_EQ(std::string(out, c.digits + 1), std::string(c.text).append("#"));  // no NUL
        EXPECT_EQ(DX_CodeFromHex(c.text, c.digits), c.back);
    }
    // Lower case is read as (character - '7'): 'a' counts 42.
    EXPECT_EQ(DX_CodeFromHex("0a", 2), 42u);
    EXPECT_EQ(DX_CodeFromHex(nullptr, 4), 0u);
}

TEST(Code, PackRules)
{
    struct Case { const char *what; Bytes in, out; } cases[] = {
        {"four equal: the last byte stays out of the run", {0x41, 0x41, 0x41, 0x41}, {7, 3, 0x41, 0x41}},
        {"three equal with only three left are not a run", {5, 5, 5}, {5, 5, 5}},
        {"two escape bytes", {7, 7}, {7, 1, 7, 1}},
        {"run of escape bytes", {7, 7, 7, 7, 7}, {7, 4, 7, 7, 1}},
        {"run then others", {1, 2, 2, 2, 2, 3}, {1, 7, 4, 2, 3}},
        {"empty", {}, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(pack(c.in), c.out);
    }
    // A run takes at most 250 bytes.
    EXPECT_EQ(pack(Bytes(600, 0)), (Bytes{7, 250, 0, 7, 250, 0, 7, 99, 0, 0}));
    // The worst case: two escape bytes and another, repeated (5 bytes for 3).
    Bytes worst;
    for (int i = 0; i < 300; ++i) worst.insert(worst.end(), {7, 7, 1});
    EXPECT_EQ(pack(worst).size(), 1500u);
}

TEST(Code, PackAndUnpackCapacities)
{
    Bytes in(100), out(400);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<U8>(10 + i % 5);  // no escape byte, no run
    // The capacity must exceed 100 * 1.7 + 10 = 180.
    for (U16 cap : {U16{180}, U16{181}}) {
        U16 c = cap;
        EXPECT_EQ(DX_CodePack(in.data(), 100, out.data(), &c), cap == 180 ? DX_CODE_ERR_PACK_SPACE : 0u) << cap;
        EXPECT_EQ(c, cap == 180 ? 0 : 100);
    }
    // Unpacking needs at least 17 / 1.7 + 10 = 20 and room for what the data holds;
    // then data that ends inside an escape.
    Bytes plain(in.begin(), in.begin() + 17), packed = {7, 30, 9, 4};
    struct Case { Bytes in; U16 room; U32 status; size_t size; } cases[] = {
        {plain, 19, DX_CODE_ERR_UNPACK_SPACE, 0}, {plain, 20, 0, 17},
        {packed, 30, DX_CODE_ERR_UNPACK_SPACE, 0}, {packed, 31, 0, 31},
        {{1, 7}, 40, DX_CODE_ERR_UNPACK_CUT, 0},  {{7, 5}, 40, DX_CODE_ERR_UNPACK_CUT, 0}};
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        U32 status;
        EXPECT_EQ(unpack(c.in, c.room, &status).size(), c.size);
        EXPECT_EQ(status, c.status);
    }
    U16 c = 10;
    EXPECT_EQ(DX_CodePack(nullptr, 1, out.data(), &c), DX_CODE_ERR_NULL);
    EXPECT_EQ(DX_CodeUnpack(in.data(), 1, out.data(), nullptr), DX_CODE_ERR_NULL);
}

TEST(Code, AlphabetAndLines)
{
    DX_CODE_STATE s{};
    EXPECT_EQ(toChar({0, 0, 0}, false, s), "0000");
    EXPECT_TRUE(s.type == '-' && s.version == '1');
    EXPECT_EQ(toChar({0xFF}, false, s), "o`");  // values 63 and 48
    EXPECT_EQ(toChar({0xFF, 0xFF}, false, s), "ool");
    EXPECT_EQ(s.count, 3);
}

TEST(Code, EncodeCapacitiesAndLimits)
{
    DX_CODE_STATE s{};
    std::string out(70000, '\0');
    Bytes packing(65535);
    struct Case { size_t length; bool packed; U16 capacity; U32 status; } cases[] = {
        {100, false, 145, DX_CODE_ERR_ENCODE_SPACE},  // must exceed 100 * 1.35 + 10 = 145
        {100, false, 146, 0},
        {100, true, 240, DX_CODE_ERR_ENCODE_SPACE},   // must exceed 100 * 2.3 + 10 = 240
        {100, true, 241, 0},
        {28490, true, 65535, DX_CODE_ERR_ENCODE_SIZE},  // 28490 * 2.3 + 10 = 65537
        {28489, true, 65535, 0},
        {48541, false, 65535, DX_CODE_ERR_ENCODE_SIZE},  // 65540
        {48537, false, 65535, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.length);
        Bytes data(c.length, 3);
        U16 cap = c.capacity;
        EXPECT_EQ(DX_CodeToChar(&s, data.data(), static_cast<U16>(c.length), out.data(), &cap,
                                c.packed ? packing.data() : nullptr, 65535),
                  c.status);
        EXPECT_TRUE(c.status != DX_CODE_ERR_ENCODE_SPACE || cap == 0);
    }
    // The packing buffer's own check.
    U16 cap = 1000;
    EXPECT_EQ(DX_CodeToChar(&s, packing.data(), 100, out.data(), &cap, out.data() + 1000, 180), DX_CODE_ERR_PACK_SPACE);
    EXPECT_EQ(DX_CodeToChar(nullptr, packing.data(), 100, out.data(), &cap, nullptr, 0), DX_CODE_ERR_NULL);
}

TEST(Code, BlockRoundTripsAtEveryLength)
{
    // Plain, then packed over runs, escape bytes and random bytes; packing stays inside its bound.
    for (int alphabet : {0, 2, 8, 256}) {
        bool packed = alphabet != 0;
        for (size_t n = 0; n <= 300; ++n) {
            SCOPED_TRACE(std::to_string(alphabet) + " " + std::to_string(n));
            Bytes in = randomBytes(n, static_cast<unsigned>(n), packed ? alphabet : 256);
            ASSERT_LT(pack(in).size(), n * 17 / 10 + 10);
            DX_CODE_STATE s{};
            std::string chars = toChar(in, packed, s);
            ASSERT_EQ(s.count, chars.size());
            Bytes out(n + 16, 0xEE), scratch(n * 2 + 16);
            U16 cap = static_cast<U16>(out.size());
            ASSERT_EQ(DX_CodeToBin(&s, chars.data(), s.count, out.data(), &cap, packed ? scratch.data() : nullptr,
                                   static_cast<U16>(scratch.size())),
                      0u);
            out.resize(cap);
            ASSERT_EQ(out, in);
        }
    }
}

TEST(Code, LinesChecksumAndDecodeRefusals)
{
    // 120 bytes give 160 values: a newline after the 79th character of each line.
    DX_CODE_STATE good{};
    std::string chars = toChar(randomBytes(120, 4), false, good);
    ASSERT_TRUE(chars.size() == 162 && chars.find('\n') == 79 && chars.rfind('\n') == 159) << chars;
    EXPECT_EQ(good.count, 162);
    EXPECT_EQ(chars.find_first_not_of("0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmno\n"),
              std::string::npos);
    // The checksum runs over the values and the newlines, not the characters.
    std::string values = chars;
    for (char &c : values) c = c == '\n' ? '\n' : static_cast<char>(c - '0');
    EXPECT_EQ(good.checksum, DX_CksumArray(0, values.data(), static_cast<U16>(values.size())));
    auto put = [&](size_t at, const char *text, size_t drop) { return std::string(chars).replace(at, drop, text); };
    struct Case { const char *what; char version, type; std::string text; int checksumDelta; U16 capacity; bool scratch;
                  U32 status; } cases[] = {
        {"version", '2', '-', chars, 0, 200, false, DX_CODE_ERR_VERSION},
        {"U with scratch", '1', 'U', chars, 0, 200, true, DX_CODE_ERR_DECODE_TYPE},
        {"U without scratch", '1', 'U', chars, 0, 200, false, 0},
        {"checksum", '1', '-', chars, 1, 200, false, DX_CODE_ERR_CHECKSUM},
        {"below the alphabet", '1', '-', put(0, "/", 1), 0, 200, false, DX_CODE_ERR_CHARACTER},
        {"above the alphabet", '1', '-', put(5, "p", 1), 0, 200, false, DX_CODE_ERR_CHARACTER},
        {"two newlines", '1', '-', put(79, "\n", 0), 0, 200, false, DX_CODE_ERR_CHARACTER},
        {"129 below 162 / 1.35 + 10", '1', '-', chars, 0, 129, false, DX_CODE_ERR_DECODE_SPACE},
        {"130 and 120 bytes fit", '1', '-', chars, 0, 130, false, 0},
        {"80 is 162 / 2.3 + 10 for P, 120 bytes do not fit", '1', 'P', chars, 0, 80, false, DX_CODE_ERR_DECODE_SPACE},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        DX_CODE_STATE s = good;
        s.version = c.version, s.type = c.type, s.checksum = static_cast<U16>(s.checksum + c.checksumDelta);
        Bytes out(c.capacity + 1u, 0xEE), scratch(400);
        U16 cap = c.capacity;
        EXPECT_EQ(DX_CodeToBin(&s, c.text.data(), static_cast<U16>(c.text.size()), out.data(), &cap,
                               c.scratch ? scratch.data() : nullptr, 400),
                  c.status);
        EXPECT_EQ(cap, c.status == 0 ? 120 : 0);
        EXPECT_EQ(out[c.capacity], 0xEE);
    }
}

TEST(Code, PlainBlockWithScratchIsUnpackedAnyway)
{
    // Kept: with a scratch buffer a '-' block is unpacked too.
    DX_CODE_STATE s{};
    std::string chars = toChar({1, 7, 3, 2, 9}, false, s);
    Bytes out(40), scratch(40);
    U16 cap = 40;
    EXPECT_EQ(DX_CodeToBin(&s, chars.data(), s.count, out.data(), &cap, scratch.data(), 40), 0u);
    out.resize(cap);
    EXPECT_EQ(out, (Bytes{1, 2, 2, 2, 9}));
}

// A temporary stream holding bytes, rewound, closed with the object.
struct Stream {
    FILE *f = std::tmpfile();
    explicit Stream(const std::string &bytes = "") { std::fwrite(bytes.data(), 1, bytes.size(), f), std::rewind(f); }
    ~Stream() { std::fclose(f); }
    std::string contents() const
    {
        std::string s(4096, '\0');
        std::rewind(f);
        s.resize(std::fread(s.data(), 1, s.size(), f));
        return std::rewind(f), s;
    }
};

TEST(Code, InformationLine)
{
    DX_CODE_STATE s{'1', 'P', 0x15A, 0x3F2C, 0, 0};
    Stream out;
    EXPECT_EQ(DX_CodeWriteInfo(&s, out.f), 0u);
    EXPECT_EQ(out.contents(), std::string("\n\n1 P 015A 3F2C\n"));
    struct Case { std::string line; U32 status; } cases[] = {
        {"\n\n1 P 015A 3F2C\n", 0}, {"xx1-U-00FFyFFFFz", 0},  // only the version is checked here
        {"\n\n2 P 015A 3F2C\n", DX_CODE_ERR_VERSION}, {"\n\n1 P 015A 3F2C", DX_CODE_ERR_READ}, {"", DX_CODE_ERR_READ}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.line);
        Stream in(c.line);
        DX_CODE_STATE r{};
        EXPECT_EQ(DX_CodeReadInfo(&r, in.f), c.status);
        EXPECT_TRUE(c.status != 0 || (r.version == '1' && r.type == c.line[4] &&
                                      r.count == DX_CodeFromHex(c.line.data() + 6, 4) &&
                                      r.checksum == DX_CodeFromHex(c.line.data() + 11, 4)));
    }
    FILE *ro = std::fopen("/dev/null", "r");  // a stream that refuses writes
    ASSERT_NE(ro, nullptr);
    EXPECT_EQ(DX_CodeWriteInfo(&s, ro), DX_CODE_ERR_WRITE);
    std::fclose(ro);
}

TEST(Code, StreamBlocks)
{
    // Kept: a 256-byte piece that packs to more than about 418 bytes is
    // written, but the reader's size checks refuse it.
    Bytes worst, out(256);
    while (worst.size() < 255) worst.insert(worst.end(), {7, 7, 1});
    worst.push_back(1);
    struct Case { Bytes in; U32 write, read; } cases[] = {
        {randomBytes(256, 5), 0, 0},
        {worst, 0, DX_CODE_ERR_DECODE_SPACE},
        {Bytes(258), DX_CODE_ERR_ENCODE_SPACE, 0},  // over 256 bytes does not fit the fixed buffers
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        Stream f;
        DX_CODE_STATE s{};
        U16 count = 0, cap = 256, readCount = 0;
        EXPECT_EQ(DX_CodeWrite(&s, f.f, c.in.data(), static_cast<U16>(c.in.size()), &count), c.write);
        if (c.write == 0) {
            EXPECT_EQ(f.contents().size(), 16u + count);
            EXPECT_EQ(DX_CodeRead(&s, f.f, out.data(), &cap, &readCount), c.read);
            EXPECT_TRUE(c.read != 0 || (readCount == count && out == c.in && cap == 256));
        }
    }
    // A count over the largest block is refused before anything is read.
    Stream big(std::string("\n\n1 P 0259 0000\n").append(700, '0'));
    DX_CODE_STATE r{};
    U16 cap = 256;
    EXPECT_EQ(DX_CodeRead(&r, big.f, out.data(), &cap, nullptr), DX_CODE_ERR_COUNT);
    EXPECT_EQ(cap, 0);
}

struct Files {
    rqtest::TempDir dir;
    std::string bin = dir.file("data.bin"), code = dir.file("data.cod"), back = dir.file("back.bin");
};

TEST(Code, WholeFilesRoundTrip)
{
    for (size_t n : {0, 255, 256, 257, 1000}) {
        SCOPED_TRACE(n);
        Files f;
        Bytes data = randomBytes(n, static_cast<unsigned>(n), n == 1000 ? 3 : 256);
        rqtest::writeFile(f.bin, std::string(data.begin(), data.end()));
        // Nothing is allocated either way: the sweeps find no allocation to fail.
        EXPECT_EQ(rqtest::allocationSweep([&] { return DX_CodeBinFileToCharFile(f.bin.c_str(), f.code.c_str()); }, 0u),
                  0);
        std::string code = rqtest::readFile(f.code);
        // Blocks: one per 256 bytes and one more for the remainder, empty or not.
        size_t blocks = 0;
        for (size_t at = 0; (at = code.find("\n\n1 P ", at)) != std::string::npos; ++at)
            ++blocks;
        EXPECT_EQ(blocks, n / 256 + 1);
        EXPECT_EQ(code[8], '\n');
        EXPECT_EQ(code.size(), 8 + 16 * blocks + DX_CodeFromHex(code.data(), 8));
        EXPECT_EQ(rqtest::allocationSweep([&] { return DX_CodeCharFileToBinFile(f.code.c_str(), f.back.c_str()); }, 0u),
                  0);
        EXPECT_EQ(rqtest::readFile(f.back), std::string(data.begin(), data.end()));
    }
}

TEST(Code, WholeFileOpenFailures)
{
    Files f;
    rqtest::writeFile(f.bin, "abc");
    ASSERT_EQ(DX_CodeBinFileToCharFile(f.bin.c_str(), f.code.c_str()), 0u);
    std::string missing = f.dir.file("missing"), badDir = f.dir.file("no/such/file");
    struct Case { const char *what; bool toChar; std::string from, to; U32 status; } cases[] = {
        {"binary missing", true, missing, f.code, DX_CODE_ERR_BINARY_FILE},
        {"code not creatable", true, f.bin, badDir, DX_CODE_ERR_TEXT_FILE},
        {"both bad", true, missing, badDir, DX_CODE_ERR_BINARY_FILE},
        {"code missing", false, missing, f.back, DX_CODE_ERR_TEXT_FILE},
        {"binary not creatable", false, f.code, badDir, DX_CODE_ERR_BINARY_FILE},
        {"both bad, the code file wins", false, missing, badDir, DX_CODE_ERR_TEXT_FILE},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.toChar ? DX_CodeBinFileToCharFile(c.from.c_str(), c.to.c_str())
                           : DX_CodeCharFileToBinFile(c.from.c_str(), c.to.c_str()),
                  c.status);
    }
    EXPECT_EQ(DX_CodeBinFileToCharFile(nullptr, f.code.c_str()), DX_CODE_ERR_NULL);
    EXPECT_EQ(DX_CodeCharFileToBinFile(f.code.c_str(), nullptr), DX_CODE_ERR_NULL);
}

// Every truncation and every single-bit flip of a small valid code file
// gives a documented status (or, for flips that keep the file valid, the
// right bytes), never a crash or an over-read.
TEST(Code, HostileCodeFiles)
{
    Files f;
    Bytes data = randomBytes(300, 77);
    data[10] = data[11] = data[12] = data[13] = 7;  // a run and escapes
    rqtest::writeFile(f.bin, std::string(data.begin(), data.end()));
    ASSERT_EQ(DX_CodeBinFileToCharFile(f.bin.c_str(), f.code.c_str()), 0u);
    const std::string code = rqtest::readFile(f.code);
    const std::string expected(data.begin(), data.end());
    const std::set<U32> documented = {DX_CODE_ERR_DECODE_SPACE, DX_CODE_ERR_DECODE_SIZE, DX_CODE_ERR_DECODE_TYPE,
        DX_CODE_ERR_UNPACK_SPACE, DX_CODE_ERR_UNPACK_CUT, DX_CODE_ERR_READ, DX_CODE_ERR_CHARACTER, DX_CODE_ERR_CHECKSUM,
        DX_CODE_ERR_VERSION, DX_CODE_ERR_COUNT};
    for (size_t cut = 0; cut < code.size(); ++cut) {
        rqtest::writeFile(f.code, code.substr(0, cut));
        ASSERT_EQ(DX_CodeCharFileToBinFile(f.code.c_str(), f.back.c_str()), DX_CODE_ERR_READ) << cut;
    }
    // Bytes that no reader checks: the information lines' newlines, spaces
    // and type (any type but 'U' is decoded and unpacked alike).
    std::set<size_t> unchecked, hexStart;
    for (size_t line = 0; (line = code.find("\n\n1 P ", line)) != std::string::npos; ++line) {
        for (size_t off : {0, 1, 3, 4, 5, 10, 15})
            unchecked.insert(line + off);
        hexStart.insert(line + 6);
        hexStart.insert(line + 11);
    }
    // The lenient hexadecimal reading: a leading digit that reads as a
    // multiple of 16 vanishes from a 16-bit field.
    auto sameField = [&](const std::string &flipped, size_t at) {
        for (size_t start : hexStart)
            if (at >= start && at < start + 4)
                return static_cast<U16>(DX_CodeFromHex(flipped.data() + start, 4)) ==
                       static_cast<U16>(DX_CodeFromHex(code.data() + start, 4));
        return false;
    };
    int accepted = 0;
    for (size_t at = 0; at < code.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string flipped = code;
            flipped[at] = static_cast<char>(flipped[at] ^ (1 << bit));
            rqtest::writeFile(f.code, flipped);
            U32 status = DX_CodeCharFileToBinFile(f.code.c_str(), f.back.c_str());
            if (status == 0) {
                ++accepted;
                // Only the total (a larger total reads on to the end and
                // fails) or an unchecked byte may change and still pass.
                EXPECT_TRUE(at < 8 || unchecked.count(at) == 1 || sameField(flipped, at)) << at << " " << bit;
                std::string back = rqtest::readFile(f.back);
                EXPECT_TRUE(back == expected || back.size() < expected.size()) << at << " " << bit;
            } else {
                ASSERT_TRUE(documented.count(status) == 1) << std::hex << status << " at " << std::dec << at;
            }
        }
    }
    EXPECT_GT(accepted, 0);
}

}  // namespace
