// List stores, lists from text, the number conversion, and the 16-bit
// checksum of arrays and files.
#include "rqtest.h"

#include "rqcore/cksum.h"
#include "rqcore/lists.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

// ---- checksums ---------------------------------------------------------------

// The bitwise reflected CRC (poly 0x8408), independent of the library's tables.
U16 bitwise(U16 c, const U8 *p, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k)
            c = (c & 1) != 0 ? static_cast<U16>((c >> 1) ^ 0x8408) : static_cast<U16>(c >> 1);
    }
    return c;
}

std::vector<U8> randomBytes(size_t n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<U8> v(n);
    for (U8 &b : v) b = static_cast<U8>(rng());
    return v;
}

TEST(Cksum, StepAgreesWithBitwiseDefinitionAndCatalogueCheckValues)
{
    const U8 *digits = reinterpret_cast<const U8 *>("123456789");
    EXPECT_EQ(bitwise(0xFFFF, digits, 9), 0x6F91);  // CRC-16/MCRF4XX
    EXPECT_EQ(bitwise(0x0000, digits, 9), 0x2189);  // CRC-16/KERMIT
    for (U32 c = 0; c < 0x10000; c += 0x101) {
        for (U32 b = 0; b < 256; ++b) {
            U8 byte = static_cast<U8>(b);
            ASSERT_EQ(DX_CksumAdd(static_cast<U16>(c), byte), bitwise(static_cast<U16>(c), &byte, 1)) << c << " " << b;
        }
    }
}

TEST(Cksum, SlicedPathIsBitIdenticalToBitwiseAtEveryLengthAndAlignment)
{
    std::vector<U8> data = randomBytes(65536 + 64, 7);
    std::mt19937 rng(11);
    for (size_t align = 0; align < 16; ++align) {
        for (size_t n = 0; n <= 200; ++n) {
            U16 init = static_cast<U16>(rng());
            const U8 *p = data.data() + align;
            ASSERT_EQ(DX_CksumArrayLong(init, p, static_cast<U32>(n)), bitwise(init, p, n)) << align << " " << n;
            ASSERT_EQ(DX_CksumArray(init, p, static_cast<U16>(n)), bitwise(init, p, n)) << align << " " << n;
        }
    }
    // A long run past the short form's count: many four-lane folds, then single-lane folds and a table tail.
    size_t n = data.size() - 3 - 16 * 3 - 7;
    EXPECT_EQ(DX_CksumArrayLong(0x1D0F, data.data() + 3, static_cast<U32>(n)), bitwise(0x1D0F, data.data() + 3, n));
    // The short form's count is 16-bit: 65536 covers nothing.
    EXPECT_EQ(DX_CksumArray(0xFFFF, data.data(), static_cast<U16>(65536)), 0xFFFF);
}

TEST(Cksum, Array32RunsLowHalfForwardAndHighHalfBackward)
{
    std::vector<U8> data = randomBytes(100003, 5);
    for (size_t n : {0, 1, 15, 16, 17, 127, 128, 129, 4099, 100003}) {
        std::vector<U8> reversed(data.rbegin() + static_cast<long>(data.size() - n), data.rend());
        U32 high = bitwise(0x1234, reversed.data(), n), low = bitwise(0xABCD, data.data(), n);
        EXPECT_EQ(DX_CksumArray32(0x1234ABCD, data.data(), static_cast<U32>(n)), (high << 16) + low) << n;
    }
}

TEST(Cksum, FileChecksums)
{
    rqtest::LeakCheck leaks;
    rqtest::TempDir dir;
    std::string big;
    for (U8 b : randomBytes(5000, 9)) big += static_cast<char>(b);  // several 1024-byte blocks and a tail
    auto sum = [](const std::string &s) { return bitwise(0xFFFF, reinterpret_cast<const U8 *>(s.data()), s.size()); };
    struct Case { const char *name; std::string bytes; U32 status; U16 checksum; } cases[] = {
        {"digits", "123456789", 0, 0x6F91},
        {"empty", "", 0, 0xFFFF},
        {"big", big, 0, sum(big)},
        {"block", std::string(1024, 'q'), 0, sum(std::string(1024, 'q'))},
        {"missing", "", DX_CKSUM_ERR_OPEN, 0x5555},
        {".", "", DX_CKSUM_ERR_READ, 0x5555},  // a directory opens but does not read
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = std::strcmp(c.name, ".") == 0 ? dir.path() : dir.file(c.name);
        if (c.status == 0)
            rqtest::writeFile(path, c.bytes);
        U16 got = 0x5555;
        EXPECT_EQ(DX_CkSumFileCalc(path.c_str(), &got), c.status);
        EXPECT_EQ(got, c.checksum);
        U32 equal = 7, unequal = 7;
        EXPECT_EQ(DX_CkSumFileEqual(path.c_str(), c.checksum, &equal), c.status);
        EXPECT_EQ(DX_CkSumFileEqual(path.c_str(), static_cast<U16>(c.checksum ^ 1), &unequal), c.status);
        EXPECT_EQ(equal * 10 + unequal, c.status == 0 ? 10u : 77u);
    }
    U16 got = 0;
    std::string digits = dir.file("digits");
    EXPECT_EQ(DX_CksumFile(digits.c_str(), 0, &got), 0u);
    EXPECT_EQ(got, 0x2189);
    EXPECT_EQ(DX_CksumFile(nullptr, 0, &got), DX_CKSUM_ERR_OPEN);
    rqtest::allocationSweep([&] { return DX_CksumFile(digits.c_str(), 0xFFFF, nullptr); }, DX_CKSUM_ERR_NO_MEMORY);
}

// ---- list stores -----------------------------------------------------------------

// A store over a vector of (id, data) records; it logs every call.
struct Store {
    std::vector<std::pair<U32, U32>> records;
    size_t next = 0;
    std::string log;
    U32 failOpen = 0, failClose = 0, failRecord = 0;
    size_t failAt = 1000;

    static Store &of(void *c) { return *static_cast<Store *>(c); }
    static U32 open(void *c, U32 mode)
    {
        return of(c).log.append("open").append(std::to_string(mode)).append(" "), of(c).failOpen;
    }
    static U32 close(void *c) { return of(c).log += "close ", of(c).failClose; }
    static U32 read(void *c, void *id, U32 idSize, void *data, U32 dataSize)
    {
        Store &s = of(c);
        EXPECT_TRUE(idSize == 4 && dataSize == 4);
        if (s.next == s.failAt || s.next >= s.records.size())
            return s.next == s.failAt ? s.failRecord : DX_LIST_STORE_END;
        std::memcpy(id, &s.records[s.next].first, 4);
        std::memcpy(data, &s.records[s.next++].second, 4);
        return 0;
    }
    static U32 write(void *c, const void *id, U32 idSize, const void *data, U32 dataSize)
    {
        Store &s = of(c);
        EXPECT_TRUE(idSize == 4 && dataSize == 4);
        if (s.records.size() == s.failAt)
            return s.failRecord;
        std::pair<U32, U32> &r = s.records.emplace_back();
        std::memcpy(&r.first, id, 4);
        std::memcpy(&r.second, data, 4);
        return s.log += "w ", 0;
    }
    DX_LIST_STORE descriptor() { return {this, open, close, read, write}; }
};

struct List {
    HLIST h = 0;
    explicit List(U32 flags = 0) { EXPECT_EQ(DX_ListCreate(&h, 4, 4, flags, nullptr, nullptr), 0u); }
    ~List() { DX_ListDestroy(&h); }
    std::vector<std::pair<U32, U32>> cells() const
    {
        std::vector<std::pair<U32, U32>> out;
        std::pair<U32, U32> c;
        for (U32 s = DX_ListGetFirst(h, &c.first, &c.second); s == 0; s = DX_ListGetNext(h, &c.first, &c.second))
            out.push_back(c);
        return out;
    }
};

TEST(ListStore, ArgumentChecksNameTheReaderForBothDirections)
{
    List list;
    Store s;
    // The writer is not checked: an empty list is written through a store without one.
    DX_LIST_STORE cases[] = {{&s, nullptr, Store::close, Store::read, Store::write},
                             {&s, Store::open, Store::close, nullptr, Store::write},
                             {&s, Store::open, Store::close, Store::read, nullptr}};
    for (const DX_LIST_STORE &c : cases) {
        bool ok = c.writeRecord == nullptr;
        SCOPED_TRACE(&c - cases);
        s.log.clear();
        EXPECT_EQ(DX_ListFileWrite(list.h, &c, 2), ok ? 0u : DX_LIST_ERR_WRITE_ARGUMENT);
        EXPECT_EQ(DX_ListFileRead(list.h, &c), ok ? 0u : DX_LIST_ERR_READ_ARGUMENT);
        EXPECT_EQ(s.log, ok ? "open2 close open1 close " : "");
    }
    DX_LIST_STORE d = s.descriptor();
    EXPECT_EQ(DX_ListFileWrite(0, &d, 2), DX_LIST_ERR_WRITE_ARGUMENT);
    s.log.clear();
    EXPECT_EQ(DX_ListFileRead(0, &d), DX_LIST_ERR_VALUE_LOCK);
    EXPECT_EQ(s.log, "");
    for (U32 mode : {1u, 3u, 5u})
        EXPECT_EQ(DX_ListFileWrite(list.h, &d, mode), DX_LIST_ERR_WRITE_MODE) << mode;
    // A writer missing while the walk has records is refused, not called.
    U32 one = 1;
    ASSERT_EQ(DX_ListAddLast(list.h, &one, &one), 0u);
    EXPECT_EQ(DX_ListFileWrite(list.h, &cases[2], 4), DX_LIST_ERR_WRITE_ARGUMENT);
}

TEST(ListStore, WriteAndReadBackUntilTheFirstFailure)
{
    rqtest::LeakCheck leaks;
    struct Case { const char *what; U32 failOpen, failClose, failRecord; size_t failAt; U32 expected;
                  const char *writeLog, *readLog; size_t readCells; } cases[] = {
        {"none", 0, 0, 0, 1000, 0, "open4 w w w close ", "open1 close ", 3},
        {"open", 0x777, 0, 0, 1000, 0x777, "open4 ", "open1 ", 0},
        {"close", 0, 0x778, 0, 1000, 0x778, "open4 w w w close ", "open1 close ", 3},
        {"second record", 0, 0, 0x779, 1, 0x779, "open4 w ", "open1 ", 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        List out, in;
        for (U32 i : {5u, 3u, 9u}) {
            U32 d = i * 10;
            ASSERT_EQ(DX_ListAddLast(out.h, &i, &d), 0u);
        }
        Store s{{}, 0, {}, c.failOpen, c.failClose, c.failRecord, c.failAt};
        DX_LIST_STORE d = s.descriptor();
        EXPECT_EQ(DX_ListFileWrite(out.h, &d, 4), c.expected);
        EXPECT_EQ(s.log, c.writeLog);
        // Reading back the same records: those before the failure stay, in order.
        s.records = out.cells();
        s.log.clear();
        EXPECT_EQ(DX_ListFileRead(in.h, &d), c.expected);
        EXPECT_EQ(s.log, c.readLog);
        std::vector<std::pair<U32, U32>> kept = out.cells();
        kept.resize(c.readCells);
        EXPECT_EQ(in.cells(), kept);
    }
    // A unique list refuses a repeated record: the status comes back, the records before it stay, no close.
    Store s;
    s.records = {{5, 50}, {3, 30}, {9, 90}, {3, 1}};
    DX_LIST_STORE d = s.descriptor();
    List unique(DX_LIST_UNIQUE);
    EXPECT_EQ(DX_ListFileRead(unique.h, &d), DX_LIST_ERR_DUPLICATE);
    EXPECT_EQ(unique.cells().size(), 3u);
    EXPECT_EQ(s.log, "open1 ");
}

TEST(ListStore, AllocationFailures)
{
    List list;
    for (U32 i : {1u, 2u, 3u})
        ASSERT_EQ(DX_ListAddLast(list.h, &i, &i), 0u);
    Store s;
    DX_LIST_STORE d = s.descriptor();
    rqtest::allocationSweep([&] { return s.records.clear(), DX_ListFileWrite(list.h, &d, 2); },
                            DX_LIST_ERR_ALLOC_NO_MEMORY);
    rqtest::allocationSweep(
        [&] {
            HLIST in = 0;
            U32 status = DX_ListCreate(&in, 4, 4, 0, nullptr, nullptr);
            s.next = 0;
            if (status == 0)
                status = DX_ListFileRead(in, &d);
            DX_ListDestroy(&in);
            return status;
        },
        [](U32 status) {
            EXPECT_TRUE(status == DX_LIST_ERR_CREATE_NO_MEMORY || status == DX_LIST_ERR_ALLOC_NO_MEMORY ||
                        status == DX_LIST_ERR_ADDFIRST_ELEMENT || status == DX_LIST_ERR_ELEMENT_NO_MEMORY)
                << std::hex << status;
        });
}

// ---- lists from text ----------------------------------------------------------------

TEST(ListFromStr, RecordsFieldsAndTypes)
{
    // cells: "id=data," in chain order (DX_ListAddTo adds at the front); types 1 text, 2 number.
    struct Case { const char *text; U16 idType, dataType; U32 dataSize, status; const char *cells; } cases[] = {
        {"a=1;b", 1, 1, 8, DX_LIST_ERR_TEXT, "a=1,"},     // second record short
        {"a=1=2", 1, 1, 8, DX_LIST_ERR_TEXT, ""},         // a field too many
        {"a=1;", 1, 1, 8, 0, "a=1,"},                     // trailing record separator
        {"k=12z", 1, 2, 4, 0, "k=#12,"},                  // converted up to the bad character
        {"k=", 1, 2, 4, 0, "k=#0,"},                      // empty last number field
        {"7=x;8=y", 2, 1, 8, 0, "#8=y,#7=x,"},
        {"a=1;b=2", 3, 1, 8, 0, ""},                      // unknown types add nothing, report nothing
        {"a=1;b=2", 1, 0, 8, 0, ""},
        {"a;b;c", 1, 0, 0, 0, "c,b,a,"},                  // no data: identifiers only
        {"longidentifier=v", 1, 1, 8, 0, "longide=v,"},   // cut at the identifier size (8 with the NUL)
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        rqtest::LeakCheck leaks;
        std::string text = c.text;
        U32 flags = (c.idType == 1 ? DX_LIST_STRING_ID : 0) | (c.dataType == 1 ? DX_LIST_STRING_DATA : 0);
        HLIST list = 0;
        EXPECT_EQ(DX_ListCreateFromStr(&list, c.idType, c.idType == 2 ? 4 : 8, c.dataType, c.dataSize, flags,
                                       text.data(), ';', '='),
                  c.status);
        ASSERT_NE(list, 0u);
        std::string got;
        auto show = [](U16 type, const char *bytes) {
            U32 n;
            return type == 2 ? (std::memcpy(&n, bytes, 4), std::string("#").append(std::to_string(n)))
                             : std::string(bytes);
        };
        char id[9] = {}, data[9] = {};
        for (U32 s = DX_ListGetFirst(list, id, data); s == 0; s = DX_ListGetNext(list, id, data)) {
            got.append(show(c.idType, id)).append(c.dataSize != 0 ? "=" : "");
            got.append(c.dataSize != 0 ? show(c.dataType, data) : "").append(",");
        }
        EXPECT_EQ(got, c.cells);
        DX_ListDestroy(&list);
    }
}

TEST(ListFromStr, ErrorsAndAllocationFailures)
{
    HLIST list = 5;
    char text[] = "a=1", dup[] = "a=1;a=2";
    EXPECT_EQ(DX_ListCreateFromStr(&list, 1, 0, 1, 8, 0, text, ';', '='), DX_LIST_ERR_CREATE_ID_SIZE);
    EXPECT_EQ(list, 0u);
    EXPECT_EQ(DX_ListCreateFromStr(&list, 1, 8, 1, 8, 0, nullptr, ';', '='), 0u);
    DX_ListDestroy(&list);
    // A unique list reports the repeated identifier.
    EXPECT_EQ(DX_ListCreateFromStr(&list, 1, 8, 1, 8, DX_LIST_UNIQUE | DX_LIST_STRING_ID, dup, ';', '='),
              DX_LIST_ERR_DUPLICATE);
    DX_ListDestroy(&list);
    rqtest::allocationSweep(
        [&] {
            char t[] = "a=1;b=2;c=3";
            HLIST l = 0;
            U32 status = DX_ListCreateFromStr(&l, 1, 8, 2, 4, DX_LIST_STRING_ID, t, ';', '=');
            DX_ListDestroy(&l);
            return status;
        },
        [](U32 status) {
            EXPECT_TRUE(status == DX_LIST_ERR_CREATE_NO_MEMORY || status == DX_LIST_ERR_ALLOC_NO_MEMORY ||
                        status == DX_LIST_ERR_ADDFIRST_ELEMENT)
                << std::hex << status;
        });
}

TEST(ListFromStr, NumberConversion)
{
    struct Case { std::string text; U32 status, value; } cases[] = {  // text may hold a leading NUL
        {std::string("0x1F"), DX_LIST_ERR_TEXT, 0},  // the 'x' is not a decimal digit
        {std::string("\0x1F", 4), 0, 31},
        {std::string("\0XaB", 4), 0, 0xAB},
        {std::string("\0x1G", 4), DX_LIST_ERR_TEXT, 1},
        {std::string("\0y12", 4), 0, 0},  // NUL first and no 'x': an empty decimal
        {std::string("12z4"), DX_LIST_ERR_TEXT, 12},
        {std::string("4294967295"), 0, 4294967295u},
        {std::string("4294967296"), 0, 0},  // wraps
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text.c_str() + (c.text[0] == 0));
        std::string buffer = c.text + std::string(2, '\0');
        U32 value = 0xDEAD;
        EXPECT_EQ(FromStrToU32(&value, buffer.data()), c.status);
        EXPECT_EQ(value, c.value);
    }
    U32 value;
    EXPECT_EQ(FromStrToU32(nullptr, "1"), DX_LIST_ERR_TEXT);
    EXPECT_EQ(FromStrToU32(&value, nullptr), DX_LIST_ERR_TEXT);
}

TEST(ListFromStr, VersionKeepsItsMismatchedMinor)
{
    U32 letter = 0, major = 0, minor = 0;
    char name[4] = "xyz", version[16];
    rqtest::fillJunk(version, sizeof version);
    EXPECT_EQ(DX_ListGetVersion(&letter, &major, &minor, name, version), 0u);
    EXPECT_TRUE(letter == 65 && major == 1 && minor == 5 && name[0] == 0) << minor;  // 5 beside the text's "06"
    EXPECT_STREQ(version, "A.01.06");
}

}  // namespace
