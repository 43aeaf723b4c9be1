// Loaded string tables: layout, hashing with growth and shrinking, every mode
// and code, hostile files (bit flips, named cases), the definition reader.
#include "rqtest.h"

#include "rqcore/frame.h"
#include "rqcore/ldstr.h"

#include <unistd.h>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using rqtest::writeFile;
std::vector<U32> words(const std::string &bytes, size_t from, size_t n)
{
    std::vector<U32> out(n);
    std::memcpy(out.data(), bytes.data() + from, n * 4);
    return out;
}
void putWord(std::string *bytes, size_t at, U32 v) { std::memcpy(&(*bytes)[at], &v, 4); }

// Builds a table file with the pairs, added in order.
void build(const std::string &path, const std::vector<std::pair<U32, std::string>> &pairs)
{
    DX_LDSTR h;
    ASSERT_EQ(DX_LdStrOpen(&h, path.c_str(), 0, LDSTR_MODE_CREATE), 0u);
    for (const auto &[k, t] : pairs)
        ASSERT_EQ(DX_LdStrAddTo(&h, k, 0, t.c_str()), 0u) << k;
    ASSERT_EQ(DX_LdStrClose(&h), 0u);
}

// A status as load() shows it (append: g++ 12 -O3 gives a false -Wrestrict on "text" + temporary).
std::string codeText(U32 rc) { return std::string("<").append(std::to_string(rc)).append(">"); }

// A key's text through a read handle ("<status>" when it fails).
std::string load(DX_LDSTR *h, U32 key)
{
    char buffer[256];
    rqtest::fillJunk(buffer, sizeof buffer);
    U32 rc = DX_LdStrLoad(h, key, buffer, nullptr, 0);
    return rc == 0 ? std::string(buffer) : codeText(rc);
}

TEST(LdStrTable, HashesFromKeyAndSize)
{
    struct Case { U32 key, slots, h1, h2; } const cases[] = {
        {10, 8, 2, 7}, {13, 8, 5, 7}, {2, 8, 2, 3},  // (5 + 77777) % 8 = 6: made odd; 7 odd already; 2: made 3
        {0xFFFFFFFF, 2, 1, 1},                       // step 0 made 1; no overflow in the sum
        {5, 1, 0, 1}, {5, 0, 0, 0},                  // no slots: both 0 rather than a division by zero
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.key << " / " << c.slots);
        EXPECT_EQ(DX_LdStrHashFonction1(c.key, c.slots), c.h1);
        EXPECT_EQ(DX_LdStrHashFonction2(c.key, c.slots), c.h2);
    }
}

TEST(LdStrTable, GrowsPastNinetyFivePercent)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    // Slots after n adds from a new 2-slot file: doubled when n > N*95/100 (rounded down).
    const std::map<U32, U32> expected = {{1, 2}, {2, 4}, {30, 32}, {31, 64}, {60, 64}, {61, 128}};
    DX_LDSTR h;
    ASSERT_EQ(DX_LdStrOpen(&h, dir.file("t").c_str(), 0, LDSTR_MODE_CREATE), 0u);
    for (U32 n = 1; n <= 61; ++n) {
        ASSERT_EQ(DX_LdStrAddTo(&h, n * 7919u, 0, "x"), 0u);
        EXPECT_EQ(h.slots, expected.count(n) != 0 ? expected.at(n) : h.slots) << n;
    }
    ASSERT_EQ(DX_LdStrClose(&h), 0u);
    DX_LDSTR_SLOT *table = nullptr;
    ASSERT_EQ(DX_LdStrHTCreate(4, &table), 0u);
    ASSERT_EQ(DX_LdStrHTAdd(1, 7919u, 1, table, 4), 0u);
    EXPECT_EQ(DX_LdStrHTAdd(9, 7919u, 9, table, 4), static_cast<U32>(LDSTR_ERR_HT_PRESENT));
    EXPECT_EQ(DX_LdStrHTAdd(9, 0, 9, table, 4), static_cast<U32>(LDSTR_ERR_HT_PRESENT));  // free slots hold 0
    EXPECT_EQ(DX_LdStrHTFind(0, nullptr, table, 4), static_cast<U32>(LDSTR_ERR_HT_ABSENT));
    RQCORE_free(table);
}

TEST(LdStrTable, DeleteShrinksBelowHalfOfNinetyFivePercent)
{
    rqtest::LeakCheck leaks;
    struct Case { U32 slots, keys, slotsAfter; } const cases[] = {
        {4, 2, 2},                   // 1 left: 0 < 4*95/200 = 1
        {4, 1, 4},                   // 0 left: 0 - 1 wraps, the test fails
        {64, 31, 32}, {64, 32, 64},  // 30 left: 29 < 30; 31 left: 30 < 30 is false
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.slots << " slots, " << c.keys << " keys");
        DX_LDSTR_SLOT *table = nullptr;
        ASSERT_EQ(DX_LdStrHTCreate(c.slots, &table), 0u);
        for (U32 k = 1; k <= c.keys; ++k)
            ASSERT_EQ(DX_LdStrHTAdd(k * 100, k, k, table, c.slots), 0u);
        U32 slots = c.slots, count = c.keys;
        ASSERT_EQ(DX_LdStrHTDelete(1, &table, &slots, &count), 0u);
        EXPECT_EQ(slots, c.slotsAfter);
        EXPECT_EQ(count, c.keys - 1);
        EXPECT_EQ(DX_LdStrHTDelete(1, &table, &slots, &count), static_cast<U32>(LDSTR_ERR_HT_ABSENT));
        DX_LDSTR_SLOT copy{};
        for (U32 k = 2; k <= c.keys; ++k)  // the rebuild mended every walk
            EXPECT_TRUE(DX_LdStrHTFind(k, &copy, table, slots) == 0 && copy.offset == k * 100) << k;
        RQCORE_free(table);
    }
}

TEST(LdStrTable, WalkOfAFullOrEmptyTableEnds)
{
    DX_LDSTR_SLOT full[4] = {{1, 4, 1}, {1, 5, 1}, {1, 6, 1}, {1, 7, 1}};
    DX_LDSTR_SLOT *pos = full;
    EXPECT_EQ(DX_LdStrHTFindPos(8, full, &pos, 4), static_cast<U32>(LDSTR_ERR_HT_ABSENT));
    EXPECT_EQ(pos, nullptr);
    EXPECT_EQ(DX_LdStrHTFind(8, nullptr, full, 4), static_cast<U32>(LDSTR_ERR_HT_ABSENT));
    EXPECT_EQ(DX_LdStrHTAdd(1, 8, 1, full, 4), static_cast<U32>(LDSTR_ERR_HT_ABSENT));
    EXPECT_EQ(DX_LdStrHTFindPos(8, full, &pos, 0), static_cast<U32>(LDSTR_ERR_HT_ABSENT));
    EXPECT_EQ(DX_LdStrHTFindPos(8, nullptr, &pos, 4), static_cast<U32>(LDSTR_ERR_HT_ABSENT));
    DX_LDSTR_SLOT *t = nullptr;
    EXPECT_EQ(DX_LdStrHTCreate(0, &t), static_cast<U32>(LDSTR_ERR_HT_MEMORY));
    EXPECT_EQ(DX_LdStrHTCreate(0x15555556u, &t), static_cast<U32>(LDSTR_ERR_HT_MEMORY));  // 12 x N past 32 bits
    EXPECT_EQ(t, nullptr);
}

TEST(LdStrFile, LayoutOfHeaderRecordsAndTable)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    const std::string path = dir.file("t.ldstr");
    build(path, {});  // a new empty file: header and two free slots
    std::string bytes = rqtest::readFile(path);
    ASSERT_EQ(bytes.size(), 36u);
    EXPECT_EQ(words(bytes, 0, 9), (std::vector<U32>{12, 2, 0, 0, 0, 0, 0, 0, 0}));
    // Records 0x01 "ab" at 12 and 0x01 at 15; the second add doubled the
    // table to 4 slots: key 10 at 10 % 4 = 2, key 11 at 3.
    build(path, {{10, "ab"}, {11, ""}});
    bytes = rqtest::readFile(path);
    ASSERT_EQ(bytes.size(), 16u + 48u);
    EXPECT_EQ(bytes.substr(12, 4), std::string("\x01" "ab\x01", 4));
    EXPECT_EQ(words(bytes, 0, 3), (std::vector<U32>{16, 4, 2}));
    EXPECT_EQ(words(bytes, 16, 12), (std::vector<U32>{0, 0, 0, 0, 0, 0, 12, 10, 2, 15, 11, 0}));
}

TEST(LdStrFile, RoundTripThroughEveryMode)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    const std::string path = dir.file("t.ldstr");
    std::vector<std::pair<U32, std::string>> pairs;
    for (U32 k = 1; k <= 200; ++k)
        pairs.emplace_back(k * 2654435761u, "text " + std::to_string(k) + std::string(k % 7, '\xE9'));
    build(path, pairs);

    DX_LDSTR h;
    ASSERT_EQ(DX_LdStrOpen(&h, path.c_str(), 0, LDSTR_MODE_UPDATE), 0u);
    const U32 oldTable = h.writePos;
    EXPECT_EQ(DX_LdStrAddTo(&h, 7, 0, "seven"), 0u);
    EXPECT_EQ(DX_LdStrAddTo(&h, 7, 0, "again"), static_cast<U32>(LDSTR_ERR_ADD_DUP));
    EXPECT_EQ(h.error, 0u);  // a duplicate leaves the handle usable
    EXPECT_EQ(DX_LdStrDeleteFrom(&h, pairs[0].first), 0u);
    EXPECT_EQ(DX_LdStrDeleteFrom(&h, pairs[0].first), static_cast<U32>(LDSTR_ERR_HT_ABSENT));
    EXPECT_EQ(h.writePos, oldTable + 1 + 5 + 1 + 5);  // the first record overwrote the old table
    ASSERT_EQ(DX_LdStrClose(&h), 0u);

    ASSERT_EQ(DX_LdStrOpen(&h, path.c_str(), 0, LDSTR_MODE_READ), 0u);
    EXPECT_EQ(h.count, 200u);
    EXPECT_EQ(load(&h, 7), "seven");
    EXPECT_EQ(load(&h, pairs[0].first), codeText(LDSTR_ERR_LOAD_ABSENT));
    for (size_t i = 1; i < pairs.size(); ++i)
        ASSERT_EQ(load(&h, pairs[i].first), pairs[i].second) << i;
    EXPECT_EQ(DX_LdStrAddTo(&h, 8, 0, "x"), static_cast<U32>(LDSTR_ERR_ADD_MODE));
    EXPECT_EQ(DX_LdStrDeleteFrom(&h, 7), static_cast<U32>(LDSTR_ERR_DEL_MODE));
    EXPECT_EQ(DX_LdStrLoad(&h, 7, nullptr, nullptr, 0), static_cast<U32>(LDSTR_ERR_LOAD_BUFFER));
    ASSERT_EQ(DX_LdStrClose(&h), 0u);
}

TEST(LdStrFile, SuffixAndLoadCat)
{
    rqtest::TempDir dir;
    const std::string path = dir.file("t.ldstr");
    build(path, {{1, "abc"}, {2, ""}});
    rqtest::LeakCheck leaks;
    DX_LDSTR h;
    ASSERT_EQ(DX_LdStrOpen(&h, path.c_str(), 0, LDSTR_MODE_READ), 0u);
    struct Case { U32 key; const char *suffix; U32 length; const char *load, *cat; } const cases[] = {
        {1, "!?", 10, "abc!?", "[abc!?"}, {1, "!?", 1, "abc!", "[a"},  // strncat bounds the suffix, then the result
        {1, nullptr, 10, "abc", "[abc"},  {2, "xy", 10, "xy", "[xy"},  {1, "", 0, "abc", "["},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.key << " " << (c.suffix ? c.suffix : "null") << " " << c.length);
        char buffer[32];
        rqtest::fillJunk(buffer, sizeof buffer);
        ASSERT_EQ(DX_LdStrLoad(&h, c.key, buffer, c.suffix, c.length), 0u);
        EXPECT_STREQ(buffer, c.load);
        char dest[32] = "[";
        ASSERT_EQ(DX_LdStrLoadCat(&h, c.key, dest, c.suffix, c.length), 0u);
        EXPECT_STREQ(dest, c.cat);
    }
    // The buffer of the last LoadCat stays live until close.
    const rqtest::Live before = rqtest::live();
    char dest[8] = "";
    EXPECT_EQ(DX_LdStrLoadCat(&h, 9, dest, nullptr, 4), static_cast<U32>(LDSTR_ERR_LOAD_ABSENT));
    EXPECT_EQ(h.error, 0u);  // an absent key does not put the handle in error
    EXPECT_EQ(rqtest::live().blocks, before.blocks);
    EXPECT_EQ(DX_LdStrLoadCat(&h, 1, nullptr, nullptr, 4), static_cast<U32>(LDSTR_ERR_LOAD_BUFFER));
    EXPECT_EQ(h.error, 1u);
    EXPECT_EQ(DX_LdStrLoadCat(&h, 1, dest, nullptr, 4), static_cast<U32>(LDSTR_ERR_CAT_STATE));
    EXPECT_EQ(DX_LdStrLoad(&h, 1, dest, nullptr, 4), static_cast<U32>(LDSTR_ERR_LOAD_STATE));
    EXPECT_EQ(DX_LdStrClose(&h), static_cast<U32>(LDSTR_ERR_CLOSE_STATE));
    EXPECT_NE(h.file, nullptr);  // a handle in error is not closed
    DX_LdStrRelease(&h);
    EXPECT_EQ(h.file, nullptr);
}

TEST(LdStrFile, OpenFailuresAndModes)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    const std::string good = dir.file("good"), shortHeader = dir.file("short"), pastEnd = dir.file("past");
    build(good, {{1, "a"}});
    writeFile(shortHeader, std::string("\x0c\0\0\0\x02", 5));
    std::string bytes = rqtest::readFile(good);
    putWord(&bytes, 0, 0x7FFFFFF0u);  // table offset far past the end
    writeFile(pastEnd, bytes);
    const std::string missing = dir.file("missing"), noDir = dir.file("no/such/dir/t");
    struct Case { const std::string *path; U32 mode, code; } const cases[] = {
        {&missing, LDSTR_MODE_READ, LDSTR_ERR_OPEN_READ}, {&missing, LDSTR_MODE_UPDATE, LDSTR_ERR_OPEN_UPDATE},
        {&noDir, LDSTR_MODE_CREATE, LDSTR_ERR_OPEN_CREATE},
        {&shortHeader, LDSTR_MODE_READ, LDSTR_ERR_READ_HEADER}, {&shortHeader, LDSTR_MODE_UPDATE, LDSTR_ERR_UPD_HEADER},
        {&pastEnd, LDSTR_MODE_READ, LDSTR_ERR_READ_TABLE},      {&pastEnd, LDSTR_MODE_UPDATE, LDSTR_ERR_UPD_TABLE},
        {&good, 0, LDSTR_ERR_MODE},  {&good, 2, LDSTR_ERR_MODE},  {&good, 5, LDSTR_ERR_MODE},
        {&good, 7, LDSTR_ERR_MODE},  {&good, 11, LDSTR_ERR_MODE}, {&good, 0xFFFFFFFFu, LDSTR_ERR_MODE},
        {nullptr, LDSTR_MODE_READ, LDSTR_ERR_OPEN_READ},   {nullptr, LDSTR_MODE_CREATE, LDSTR_ERR_OPEN_CREATE},
        {nullptr, LDSTR_MODE_UPDATE, LDSTR_ERR_OPEN_UPDATE},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << (c.path ? *c.path : "null") << " mode " << c.mode);
        DX_LDSTR h;
        std::memset(&h, 0xA5, sizeof h);
        EXPECT_EQ(DX_LdStrOpen(&h, c.path ? c.path->c_str() : nullptr, 0, c.mode), c.code);
        EXPECT_EQ(h.error, 1u);
        EXPECT_EQ(h.mode, c.mode);
        EXPECT_TRUE(h.file == nullptr && h.table == nullptr) << "a failed open holds nothing";
        EXPECT_EQ(DX_LdStrClose(&h), static_cast<U32>(LDSTR_ERR_CLOSE_STATE));
        EXPECT_EQ(DX_LdStrOpen(nullptr, c.path ? c.path->c_str() : nullptr, 0, c.mode), c.mode == 1 ? 0x15101u
                  : c.mode == 10 ? 0x15103u : c.mode == 6 ? 0x15104u : 0x15117u);
    }
    EXPECT_EQ(DX_LdStrAddTo(nullptr, 1, 0, "a"), static_cast<U32>(LDSTR_ERR_ADD_STATE));
    EXPECT_EQ(DX_LdStrLoad(nullptr, 1, nullptr, nullptr, 0), static_cast<U32>(LDSTR_ERR_LOAD_STATE));
    EXPECT_EQ(DX_LdStrLoadCat(nullptr, 1, nullptr, nullptr, 0), static_cast<U32>(LDSTR_ERR_CAT_STATE));
    EXPECT_EQ(DX_LdStrDeleteFrom(nullptr, 1), static_cast<U32>(LDSTR_ERR_DEL_STATE));
    EXPECT_EQ(DX_LdStrClose(nullptr), static_cast<U32>(LDSTR_ERR_CLOSE_STATE));
    DX_LdStrRelease(nullptr);
}

TEST(LdStrFile, AddOnCreateHandleWithNullTextWritesNothing)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    DX_LDSTR h;
    ASSERT_EQ(DX_LdStrOpen(&h, dir.file("t").c_str(), 0, LDSTR_MODE_CREATE), 0u);
    EXPECT_EQ(DX_LdStrAddTo(&h, 1, 0, nullptr), static_cast<U32>(LDSTR_ERR_ADD_WRITE));
    EXPECT_EQ(h.writePos, 12u);
    DX_LdStrRelease(&h);
    ASSERT_EQ(DX_LdStrOpen(&h, dir.file("t").c_str(), 0, LDSTR_MODE_CREATE), 0u);
    EXPECT_EQ(DX_LdStrAddTo(&h, 0, 0, "zero"), static_cast<U32>(LDSTR_ERR_ADD_DUP));  // key 0 is never stored
    EXPECT_EQ(h.count, 0u);
    EXPECT_EQ(DX_LdStrLoad(&h, 0, nullptr, nullptr, 0), static_cast<U32>(LDSTR_ERR_LOAD_MODE));
    EXPECT_EQ(DX_LdStrClose(&h), 0u);
}

// A small valid file: three keys, 8 slots.
std::string smallFile(const rqtest::TempDir &dir)
{
    const std::string path = dir.file("small");
    build(path, {{3, "three"}, {0x10000, "big"}, {77, ""}, {5, "five"}});
    return rqtest::readFile(path);
}

// Opens bytes in read mode and loads every key of the small file; checks
// that codes are documented ones and that no byte past the text is written.
void probe(const std::string &path, const std::string &bytes)
{
    writeFile(path, bytes);
    DX_LDSTR h;
    U32 rc = DX_LdStrOpen(&h, path.c_str(), 0, LDSTR_MODE_READ);
    ASSERT_TRUE(rc == 0 || rc == LDSTR_ERR_READ_TABLE || rc == LDSTR_ERR_READ_SEEK) << std::hex << rc;
    if (rc == 0) {
        for (U32 key : {3u, 0x10000u, 77u, 5u, 1u}) {
            std::vector<char> buffer(bytes.size() + 2, 'J');
            U32 length = 0, lr = DX_LdStrLoad(&h, key, buffer.data(), nullptr, 0);
            ASSERT_TRUE(lr == 0 || lr == LDSTR_ERR_LOAD_ABSENT || lr == LDSTR_ERR_LOAD_SEEK ||
                        lr == LDSTR_ERR_LOAD_MARKER || lr == LDSTR_ERR_LOAD_TEXT) << std::hex << lr;
            ASSERT_TRUE(lr != 0 || DX_LdStrTextLength(&h, key, &length) == 0);
            EXPECT_EQ(std::string(&buffer[lr == 0 ? length : 0], 2), lr == 0 ? std::string("\0J", 2) : "JJ")
                << "a failed load writes nothing";
        }
        EXPECT_EQ(DX_LdStrClose(&h), 0u);
        DX_LdStrRelease(&h);
    }
    rc = DX_LdStrOpen(&h, path.c_str(), 0, LDSTR_MODE_UPDATE);
    ASSERT_TRUE(rc == 0 || rc == LDSTR_ERR_UPD_TABLE || rc == LDSTR_ERR_UPD_SEEK) << std::hex << rc;
    if (rc == 0) {
        for (U32 key : {3u, 0x10000u, 77u, 5u})
            DX_LdStrDeleteFrom(&h, key);
        for (U32 key = 100; key < 120; ++key) {  // a flipped key may already be one of these
            U32 ar = DX_LdStrAddTo(&h, key, 0, "n");
            EXPECT_TRUE(ar == 0 || ar == LDSTR_ERR_ADD_DUP) << std::hex << ar;
        }
        EXPECT_EQ(DX_LdStrClose(&h), 0u);
        DX_LdStrRelease(&h);
        ASSERT_EQ(DX_LdStrOpen(&h, path.c_str(), 0, LDSTR_MODE_READ), 0u);
        EXPECT_EQ(load(&h, 119), "n");
        EXPECT_EQ(DX_LdStrClose(&h), 0u);
    }
}

TEST(LdStrHostile, EverySingleBitFlipOfHeaderAndTable)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    const std::string good = smallFile(dir);
    const U32 tableOffset = words(good, 0, 1)[0];
    ASSERT_EQ(words(good, 4, 1)[0], 8u);
    for (size_t at = 0; at < good.size(); at = at == 11 ? tableOffset : at + 1) {  // header, then table
        for (int bit = 0; bit < 8; ++bit) {
            SCOPED_TRACE(testing::Message() << "byte " << at << " bit " << bit);
            std::string bytes = good;
            bytes[at] = static_cast<char>(bytes[at] ^ (1 << bit));
            probe(dir.file("flip"), bytes);
            if (testing::Test::HasFatalFailure())
                return;
        }
    }
}

TEST(LdStrHostile, NamedCases)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    const std::string good = smallFile(dir);
    const U32 t = words(good, 0, 1)[0];
    // Where keys 3 and 5 sit (the rebuilds move them off their first positions).
    auto slotOf = [&](U32 key) {
        for (size_t at = t; at < good.size(); at += 12)
            if (words(good, at + 4, 1)[0] == key)
                return at;
        return size_t{0};
    };
    const size_t slot3 = slotOf(3), slot5 = slotOf(5);
    ASSERT_NE(slot3, 0u);
    ASSERT_NE(slot5, 0u);
    // No free slot: all 8 slots used and counted; key 8 + i sits at (8 + i) % 8 = i.
    std::vector<std::pair<size_t, U32>> full = {{8, 8}};
    for (U32 i = 0; i < 24; ++i) full.emplace_back(t + i * 4, i % 3 == 0 ? 12 : i % 3 == 1 ? 8 + i / 3 : 1);
    struct Case { const char *name; std::vector<std::pair<size_t, U32>> words; U32 open, load3; } const cases[] = {
        {"valid", {}, 0, 0},
        {"slot count 0", {{4, 0}}, LDSTR_ERR_READ_TABLE, 0},
        {"slot count whose bytes pass 32 bits", {{4, 0x40000000u}}, LDSTR_ERR_READ_TABLE, 0},
        {"slot count not a power of two", {{4, 7}}, LDSTR_ERR_READ_TABLE, 0},
        {"key count one short", {{8, 3}}, LDSTR_ERR_READ_TABLE, 0},
        {"table offset inside the header", {{0, 4}}, LDSTR_ERR_READ_TABLE, 0},
        {"table offset past 2^31", {{0, 0x80000000u}}, LDSTR_ERR_READ_SEEK, 0},
        {"key repeated", {{slot5 + 4, 3}}, LDSTR_ERR_READ_TABLE, 0},
        {"record offset past the end", {{slot3, 5000}}, 0, LDSTR_ERR_LOAD_MARKER},
        {"record offset past 2^31", {{slot3, 0x80000001u}}, 0, LDSTR_ERR_LOAD_SEEK},
        {"length past the end", {{slot3 + 8, 0xFFFFFFFFu}}, 0, LDSTR_ERR_LOAD_TEXT},
        {"length one past the end", {{slot3 + 8, static_cast<U32>(good.size() - 12)}}, 0, LDSTR_ERR_LOAD_TEXT},
        {"marker 0", {{12, 0x68742000u}}, 0, LDSTR_ERR_LOAD_ABSENT},
        {"a full table", full, LDSTR_ERR_READ_TABLE, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::string bytes = good;
        for (const auto &[at, v] : c.words)
            putWord(&bytes, at, v);
        writeFile(dir.file("h"), bytes);
        DX_LDSTR h;
        ASSERT_EQ(DX_LdStrOpen(&h, dir.file("h").c_str(), 0, LDSTR_MODE_READ), c.open);
        if (c.open == 0) {
            EXPECT_EQ(load(&h, 3), c.load3 == 0 ? "three" : codeText(c.load3));
            // The appending load sizes its buffer only from records inside the file.
            char dest[8] = "";
            EXPECT_EQ(DX_LdStrLoadCat(&h, 3, dest, nullptr, 4), c.load3);
            EXPECT_STREQ(dest, c.load3 == 0 ? "thre" : "");
            DX_LdStrRelease(&h);
        }
    }
}

TEST(LdStrDefinition, ReadsSectionsKeysEscapesAndContinuations)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    const std::string def = dir.file("def"), table = dir.file("table");
    writeFile(def, "# remark\r\n  ; another\n\n[mail]\n1001 = Inbox\n"
                   "1002=Caf\\xC3\\xA9 menu\\n\r\n0x3F0 = first\\n\\\n        second  \n\t[errors]  \n"
                   "  2001 = \\s indented \\\\ \\t\\r\n2002 =\n4294967295 = top");
    char report[LDSTR_REPORT_SIZE];
    rqtest::fillJunk(report, sizeof report);
    ASSERT_EQ(DX_LdStrCreate(def.c_str(), table.c_str(), report), 0u) << report;
    EXPECT_STREQ(report, "");
    DX_LDSTR h;
    ASSERT_EQ(DX_LdStrOpen(&h, table.c_str(), 0, LDSTR_MODE_READ), 0u);
    EXPECT_EQ(h.count, 6u);
    for (const auto &[key, text] : std::map<U32, std::string>{{1001, "Inbox"}, {1002, "Caf\xC3\xA9 menu\n"},
             {0x3F0, "first\nsecond  "}, {2001, "  indented \\ \t\r"}, {2002, ""}, {4294967295u, "top"}})
        EXPECT_EQ(load(&h, key), text) << key;
    EXPECT_EQ(DX_LdStrClose(&h), 0u);
}

TEST(LdStrDefinition, ReportsEachMalformation)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    struct Case { const char *text, *report; } const cases[] = {
        {"# r\n\n2 = b\n[s]\n", "ERROR: Missing section declarator \n"},
        {"[s\n1 = a\n", "ERROR: line 1: section without ] \n"}, {"[s] x\n", "ERROR: line 1: text after ] \n"},
        {"[s]\n1 a\n", "ERROR: line 2: missing = \n"},
        {"[s]\n0 = a\n", "ERROR: line 2: bad key \n"},
        {"[s]\n4294967296 = a\n", "ERROR: line 2: bad key \n"}, {"[s]\nkey = a\n", "ERROR: line 2: bad key \n"},
        {"[s]\n0x100000000 = a\n", "ERROR: line 2: bad key \n"},
        {"[s]\n1 = a\\q\n", "ERROR: line 2: unknown escape \n"},
        {"[s]\n1 = a\\x4\n", "ERROR: line 2: bad \\x escape \n"},
        {"[s]\n1 = a\\x00\n", "ERROR: line 2: NUL byte in text \n"},
        {"[s]\n1 = a\\\nb\\x0g\n", "ERROR: line 3: bad \\x escape \n"},
        {"[s]\n1 = a\n[t]\n0x1 = b\n", "ERROR: line 4: key 1 defined twice \n"},
    };
    const std::string def = dir.file("def"), t = dir.file("t");
    const U32 bad = LDSTR_ERR_DEFINITION, cannotCreate = LDSTR_ERR_OPEN_CREATE;
    char report[LDSTR_REPORT_SIZE];
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        writeFile(def, c.text);
        rqtest::fillJunk(report, sizeof report);
        EXPECT_EQ(DX_LdStrCreate(def.c_str(), t.c_str(), report), bad);
        EXPECT_STREQ(report, c.report);
        EXPECT_NE(access(t.c_str(), F_OK), 0);  // a failed table is removed
    }
    writeFile(def, std::string("[s]\n1 = a\0b\n", 12));
    EXPECT_EQ(DX_LdStrCreate(def.c_str(), t.c_str(), nullptr), bad);
    writeFile(t, "kept");
    EXPECT_EQ(DX_LdStrCreate(dir.file("missing").c_str(), t.c_str(), report), bad);
    EXPECT_STREQ(report, "ERROR: Cannot read definition file \n");
    EXPECT_EQ(rqtest::readFile(t), "kept");  // not this call's file: left alone
    EXPECT_EQ(DX_LdStrCreate(nullptr, t.c_str(), nullptr), bad);
    writeFile(def, "[s]\n1 = a\n");
    EXPECT_EQ(DX_LdStrCreate(def.c_str(), nullptr, report), cannotCreate);
    EXPECT_EQ(DX_LdStrCreate(def.c_str(), dir.file("no/dir/t").c_str(), report), cannotCreate);
}

TEST(LdStrMemory, AllocationSweepOverEveryOperation)
{
    rqtest::TempDir dir;
    const std::string def = dir.file("def"), table = dir.file("t");
    std::string text = "[s]\n";
    for (int k = 1; k <= 40; ++k)
        text.append(std::to_string(k)).append(" = text ").append(std::to_string(k)).append("\n");
    writeFile(def, text);
    int n = rqtest::allocationSweep(
        [&] { return DX_LdStrCreate(def.c_str(), table.c_str(), nullptr); },
        [](U32 rc) { EXPECT_EQ(rc, static_cast<U32>(LDSTR_ERR_HT_MEMORY)); });
    EXPECT_GT(n, 5);

    rqtest::allocationSweep(
        [&] {
            DX_LDSTR h;
            U32 rc = DX_LdStrOpen(&h, table.c_str(), 0, LDSTR_MODE_UPDATE);
            for (U32 k = 100; rc == 0 && k < 140; ++k)
                rc = DX_LdStrAddTo(&h, k, 0, "more");
            for (U32 k = 1; rc == 0 && k <= 40; ++k)
                rc = DX_LdStrDeleteFrom(&h, k);
            if (rc == 0)
                rc = DX_LdStrClose(&h);
            DX_LdStrRelease(&h);
            return rc;
        },
        [](U32 rc) { EXPECT_EQ(rc, static_cast<U32>(LDSTR_ERR_HT_MEMORY)); });

    rqtest::allocationSweep(
        [&] {
            DX_LDSTR h;
            U32 rc = DX_LdStrOpen(&h, table.c_str(), 0, LDSTR_MODE_READ);
            char dest[64] = "";
            if (rc == 0)
                rc = DX_LdStrLoadCat(&h, 2, dest, "!", 32);
            if (rc == 0)
                rc = std::strcmp(dest, "text 2!") != 0 ? 1 : DX_LdStrClose(&h);
            DX_LdStrRelease(&h);
            return rc;
        },
        [](U32 rc) { EXPECT_TRUE(rc == LDSTR_ERR_HT_MEMORY || rc == LDSTR_ERR_CAT_MEMORY) << std::hex << rc; });
}

TEST(LdStrVersion, ReturnsTheFixedValues)
{
    char version[16];
    rqtest::fillJunk(version, sizeof version);
    U32 letter = 0, major = 0, minor = 0;
    EXPECT_EQ(DX_LdStrGetVersion(version, &letter, &major, &minor), 0u);
    EXPECT_STREQ(version, "A.01.01");
    EXPECT_EQ(std::vector<U32>({letter, major, minor}), (std::vector<U32>{88, 1, 1}));  // X, beside the A of the text
    EXPECT_EQ(DX_LdStrGetVersion(nullptr, nullptr, nullptr, nullptr), 0u);
}

}  // namespace
