// The DX_List container, its ordering and selection, and the DX_Mem helpers.
#include "rqtest.h"

#include "rqcore/frame.h"
#include "rqcore/lists.h"
#include "rqsis/rqsis_test.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Cell = std::pair<S32, S32>;
using Cells = std::vector<Cell>;

// A list of S32 identifiers and S32 data, ordered numerically.
struct List {
    HLIST h = 0;
    explicit List(U32 flags = 0, DX_LIST_CMPFCT dataCmp = DX_MemS32Cmp)
    {
        EXPECT_EQ(DX_ListCreate(&h, 4, 4, flags, DX_MemS32Cmp, dataCmp), 0u);
    }
    List(std::initializer_list<Cell> cells, U32 flags = 0) : List(flags)
    {
        for (const Cell &c : cells)
            EXPECT_EQ(DX_ListAlwaysAddLast(h, &c.first, &c.second), 0u);
    }
    ~List() { DX_ListDestroy(&h); }
    List(const List &) = delete;
    List &operator=(const List &) = delete;
};

// The cells in chain order, read from a copy so the list's walk stays put.
Cells cells(HLIST list)
{
    Cells out;
    HLIST copy = 0;
    EXPECT_EQ(DX_ListCopy(&copy, list), 0u);
    Cell c;
    for (U32 s = DX_ListGetFirst(copy, &c.first, &c.second); s == 0; s = DX_ListGetNext(copy, &c.first, &c.second))
        out.push_back(c);
    DX_ListDestroy(&copy);
    return out;
}

U32 count(HLIST list)
{
    U32 n = 0xDEAD;
    EXPECT_EQ(DX_ListGetElemNum(list, &n), 0u);
    return n;
}

S32 ignoreData(const void *, const void *, U32) { return 0; }

// ---- byte and text helpers --------------------------------------------------

TEST(ListMem, CompareReturnsTheByteDifference)
{
    // Expected values worked out by hand from the bytes.
    struct Case { const char *a, *b; U32 n; S32 cmp, strnCmp; } cases[] = {
        {"abc", "abd", 3, -1, -1}, {"ab\0x", "ab\0y", 4, 'x' - 'y', 0}, {"a\xff", "a\x01", 2, 0xfe, 0xfe},
        {"same", "same", 4, 0, 0}, {"xyz", "abc", 0, 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.a) + " / " + c.b);
        EXPECT_EQ(DX_MemCmp(c.a, c.b, c.n), c.cmp);
        EXPECT_EQ(DX_MemStrnCmp(c.a, c.b, c.n), c.strnCmp);
    }
    S16 s16[] = {-2, 7};
    S32 s32[] = {INT32_MIN, 5};
    EXPECT_EQ(DX_MemS16Cmp(&s16[0], &s16[1], 99), -1);
    EXPECT_EQ(DX_MemS32Cmp(&s32[1], &s32[0], 0), 1) << "signed, not a byte comparison";
    EXPECT_EQ(DX_MemS32Cmp(&s32[1], &s32[1], 0), 0);
}

TEST(ListMem, BoundedCopiesAlwaysTerminate)
{
    struct Case { const char *src; U32 n; const char *expected; U32 expectedBytes; } cases[] = {
        {"abc", 6, "abc\0\0\0", 6},        // short text: zero-filled to n
        {"abcdefghij", 8, "abcdefg\0", 8}, // long text: cut, last byte NUL
        {"", 3, "\0\0\0", 3},
        {"xy", 1, "\0", 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.src);
        char buf[16];
        rqtest::fillJunk(buf, sizeof buf);
        DX_MemStrnCopy(buf, c.src, c.n);
        EXPECT_EQ(std::memcmp(buf, c.expected, c.expectedBytes), 0);
        EXPECT_EQ(static_cast<unsigned char>(buf[c.n]), 0xA5u) << "wrote past n";
    }
    char cat[8] = "abc";
    DX_MemStrnCat(cat, "defghij", sizeof cat);
    EXPECT_STREQ(cat, "abcdefg");
    char full[4] = {'w', 'x', 'y', 'z'};
    DX_MemStrnCat(full, "q", sizeof full);
    EXPECT_EQ(std::memcmp(full, "wxyz", 4), 0) << "no terminator within n: no room";
}

TEST(ListMem, CharacterSets)
{
    EXPECT_TRUE(DX_MemStrCharIsIn('\0', "abc")) << "the terminator is always in";
    EXPECT_TRUE(DX_MemStrCharIsIn('b', "abc"));
    EXPECT_FALSE(DX_MemStrCharIsIn('z', "abc"));
    char buf[16];
    rqtest::fillJunk(buf, sizeof buf);
    EXPECT_STREQ(DX_MemStrCopyUntil(buf, "key=value", "=;"), "key");
    rqtest::fillJunk(buf, sizeof buf);
    DX_MemStrnCopyUntil(buf, "abcdefgh", 5, ";");
    EXPECT_EQ(std::memcmp(buf, "abcd\0", 5), 0);
    rqtest::fillJunk(buf, sizeof buf);
    DX_MemStrnCopyUntil(buf, "ab;cd", 6, ";");
    EXPECT_EQ(std::memcmp(buf, "ab\0\0\0\0", 6), 0) << "rest of n zero-filled";
    EXPECT_STREQ(DX_MemStrSkip(" \t x y", " \t"), "x y");
    char trail[] = "value \t ";
    EXPECT_STREQ(DX_MemStrSkipTrailling(trail, " \t"), "value");
}

// ---- creation, adding, flags ---------------------------------------------------

TEST(ListCore, CreateRules)
{
    rqtest::LeakCheck leaks;
    HLIST h = 77;
    EXPECT_EQ(DX_ListCreate(&h, 0, 4, 0, nullptr, nullptr), 0x15042u);
    EXPECT_EQ(h, 0u);
    ASSERT_EQ(DX_ListCreate(&h, 4, 0, DX_LIST_UNIQUE, nullptr, nullptr), 0u);
    U32 v;
    EXPECT_EQ(DX_ListGetFlags(h, &v), 0u);
    EXPECT_EQ(v, DX_LIST_UNIQUE | DX_LIST_NODATA);
    EXPECT_EQ(DX_ListGetValue(h, &v, 3), 0u);
    EXPECT_EQ(v, 4u);
    EXPECT_EQ(DX_ListDestroy(&h), 0u);
    EXPECT_EQ(h, 0u);
    EXPECT_EQ(DX_ListDestroy(&h), 0x15040u);
}

TEST(ListCore, NoListGivesEachFunctionsLockCode)
{
    // Handle 0 never locks; each function reports its own code.
    S32 id = 1, r;
    U32 u;
    struct Case { const char *name; U32 got, expected; } cases[] = {
        {"AddFirst", DX_ListAddFirst(0, &id, &id), 0x15003}, {"AddLast", DX_ListAddLast(0, &id, &id), 0x1500B},
        {"AddBefore", DX_ListAddBefore(0, &id, nullptr, &id, &id), 0x15006},
        {"AddAfter", DX_ListAddAfter(0, &id, nullptr, &id, &id), 0x15009},
        {"GetFirst", DX_ListGetFirst(0, &id, &id), 0x15025}, {"GetNext", DX_ListGetNext(0, &id, &id), 0x15023},
        {"GetPrev", DX_ListGetPrev(0, &id, &id), 0x1502C}, {"GetLast", DX_ListGetLast(0, &id, &id), 0x1502D},
        {"Find", DX_ListFind(0, &id, nullptr, nullptr, nullptr), 0x15021},
        {"PriorityGet", DX_ListPriorityGet(0, &id, &id), 0x1502E}, {"GetValue", DX_ListGetElemNum(0, &u), 0x15022},
        {"ChangeData", DX_ListChangeData(0, &id, nullptr, &id), 0x15015},
        {"UpdateCurrent", DX_ListUpdateCurrent(0, &id, &id), 0x1501B},
        {"DeleteCurrent", DX_ListDeleteCurrent(0), 0x1507C}, {"DeleteFrom", DX_ListDeleteFrom(0, &id, nullptr), 0x1507B},
        {"DeleteAll", DX_ListDeleteAll(0), 0x1507A}, {"SetFlag", DX_ListSetFlag(0, 1, 1), 0x15045},
        {"SetFlagBad", DX_ListSetFlag(0, DX_LIST_STRING_ID, 1), 0x15044}, {"SetFlagOn2", DX_ListSetFlag(0, 1, 2), 0x15044},
        {"VerifyType", DX_ListVerifyType(0, 0), 0x15060}, {"Compare", DX_ListCompare(0, 0, &r), 0x15060},
        {"Member", DX_ListMember(0, &id, nullptr, &u), 0x15050}, {"Copy", DX_ListCopy(&u, 0), 0x1506A},
        {"QuickSort", DX_ListQuickSort(0, nullptr, nullptr), 0x150A0},
        {"ChangeCmpFct", DX_ListChangeCmpFct(0, nullptr, nullptr), 0x15046},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.got, c.expected) << c.name;
}

TEST(ListCore, DuplicateRules)
{
    // Flag 0x04 refuses a second identifier, 0x80 drops it silently.
    struct Case { U32 flags; U32 secondStatus; U32 count; } cases[] = {
        {0, 0, 2}, {DX_LIST_UNIQUE, 0x15001, 1}, {DX_LIST_IGNORE_DUP, 0, 1},
        {DX_LIST_UNIQUE | DX_LIST_SORTED, 0x15001, 1}, {DX_LIST_IGNORE_DUP | DX_LIST_SORTED, 0, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.flags);
        rqtest::LeakCheck leaks;
        List l(c.flags);
        S32 id = 5, d1 = 1, d2 = 2;
        EXPECT_EQ(DX_ListAddTo(l.h, &id, &d1), 0u);
        EXPECT_EQ(DX_ListAddTo(l.h, &id, &d2), c.secondStatus);
        EXPECT_EQ(count(l.h), c.count);
        EXPECT_EQ(DX_ListAddPermission(l.h, &id), c.flags == 0 ? 0u : 0x1500Cu);
    }
}

TEST(ListCore, PlainAddsOnASortedListAreRefused)
{
    List l(DX_LIST_SORTED);
    S32 id = 1;
    EXPECT_EQ(DX_ListAddLast(l.h, &id, &id), 0x15013u);
    EXPECT_EQ(DX_ListAddBefore(l.h, &id, nullptr, &id, &id), 0x15010u);
    EXPECT_EQ(DX_ListAddAfter(l.h, &id, nullptr, &id, &id), 0x1500Du);
    EXPECT_EQ(DX_ListChangeData(l.h, &id, nullptr, &id), 0x15017u);
    EXPECT_EQ(DX_ListUpdateCurrent(l.h, &id, &id), 0x1501Cu);
    EXPECT_EQ(count(l.h), 0u);
}

TEST(ListCore, AddBeforeAndAfterFallBackToTheEnds)
{
    rqtest::LeakCheck leaks;
    List l{{1, 0}, {2, 0}, {3, 0}};
    S32 missing = 9, two = 2, three = 3, one = 1, d = 0;
    S32 a = 10, b = 11, c = 12, e = 13;
    EXPECT_EQ(DX_ListAddBefore(l.h, &missing, nullptr, &a, &d), 0u);  // not found: front
    EXPECT_EQ(DX_ListAddAfter(l.h, &missing, nullptr, &b, &d), 0u);   // not found: end
    EXPECT_EQ(DX_ListAddBefore(l.h, &two, nullptr, &c, &d), 0u);
    EXPECT_EQ(DX_ListAddAfter(l.h, &three, nullptr, &e, &d), 0u);
    S32 d1 = 1;
    EXPECT_EQ(DX_ListAddAfter(l.h, &one, &d1, &e, &d), 0u) << "reference data 1 matches nothing: end";
    EXPECT_EQ(cells(l.h), (Cells{{10, 0}, {1, 0}, {12, 0}, {2, 0}, {3, 0}, {13, 0}, {11, 0}, {13, 0}}));
}

// An appended element holds the very bytes of one DX_ListCreateElement
// makes: data (zeros when none), zero padding, identifier, zero spare bytes.
// Blocks of its size are dirtied and freed first, so that a byte the append
// leaves unwritten shows where the allocator hands the block back.
TEST(ListCore, AppendedElementsMatchCreatedOnes)
{
    struct Case { const char *name; U32 idSize, dataSize; bool withData; };
    const Case cases[] = {{"4/4", 4, 4, true}, {"4/4 no data", 4, 4, false}, {"4/3 padded", 4, 3, true},
                          {"8/5 padded", 8, 5, true}, {"2/none", 2, 0, true}, {"4/1 no data", 4, 1, false}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        rqtest::LeakCheck leaks;
        HLIST h = 0;
        ASSERT_EQ(DX_ListCreate(&h, c.idSize, c.dataSize, 0, nullptr, nullptr), 0u);
        unsigned char id[8], data[8];
        for (int i = 0; i < 8; ++i) {
            id[i] = static_cast<unsigned char>(0x11 + i);
            data[i] = static_cast<unsigned char>(0x21 + i);
        }
        const void *d = c.withData ? data : nullptr;
        U32 size = 4 + c.dataSize + (4 - c.dataSize % 4) % 4 + c.idSize + 8;
        RQHANDLE ref = 0;
        ASSERT_EQ(DX_ListCreateElement(h, &ref, id, d, 0), 0u);
        for (int k = 0; k < 4; ++k) {
            RQHANDLE dirty = MemAlloc(size);
            std::memset(MemLock(dirty), 0xFF, size);
            MemUnlock();
            MemFree(dirty);
        }
        ASSERT_EQ(DX_ListAddLast(h, id, d), 0u);
        RQHANDLE before = 0, found = 0;
        ASSERT_EQ(DX_ListFind(h, id, nullptr, &before, &found), 0u);
        EXPECT_EQ(std::memcmp(MemLock(found), MemLock(ref), size), 0);
        MemUnlock();
        MemUnlock();
        MemFree(ref);
        DX_ListDestroy(&h);
    }
}

TEST(ListCore, StringListsCapAndRebuild)
{
    rqtest::LeakCheck leaks;
    HLIST h = 0;
    ASSERT_EQ(DX_ListCreate(&h, 8, 6, DX_LIST_STRING_ID | DX_LIST_STRING_DATA, nullptr, nullptr), 0u);
    EXPECT_EQ(DX_ListAddLast(h, "abcdefghij", "v"), 0u);
    EXPECT_EQ(DX_ListAddLast(h, "k", "data"), 0u);
    char id[9], data[7];
    rqtest::fillJunk(id, sizeof id);
    EXPECT_EQ(DX_ListGetFirst(h, id, data), 0u);
    EXPECT_EQ(std::memcmp(id, "abcdefg\0", 8), 0) << "id size 8 keeps seven characters and a NUL";
    EXPECT_EQ(static_cast<unsigned char>(id[8]), 0xA5u);
    U32 n;
    EXPECT_EQ(DX_ListGetElemIdSize(h, &n, "abcdefghij"), 0u);
    EXPECT_EQ(n, 8u);
    EXPECT_EQ(DX_ListGetElemDataSize(h, &n, "ab"), 0u);
    EXPECT_EQ(n, 3u);
    // Longer data than the element was built for: rebuilt in place, the
    // walk position follows the new element.
    EXPECT_EQ(DX_ListChangeData(h, "abcdefg", nullptr, "longer text"), 0u);
    EXPECT_EQ(DX_ListGetCurrent(h, id, data), 0u);
    EXPECT_STREQ(data, "longe");
    EXPECT_EQ(DX_ListUpdateCurrent(h, "zz", nullptr), 0u);
    EXPECT_EQ(DX_ListAlwaysGet(h, "zz", data), 0u);
    EXPECT_STREQ(data, "longe") << "null data keeps the old data";
    EXPECT_EQ(DX_ListGetNext(h, id, data), 0u);
    EXPECT_STREQ(id, "k");
    EXPECT_EQ(DX_ListSetFlag(h, DX_LIST_SORTED, 1), 0x150ADu);
    EXPECT_FALSE(DX_ListFlagDetect(h, DX_LIST_SORTED, nullptr)) << "the flag stays off";
    EXPECT_EQ(DX_ListQuickSort(h, nullptr, nullptr), 0x150ADu);
    DX_ListDestroy(&h);
}

// ---- walking -------------------------------------------------------------------------

TEST(ListWalk, RestartsAfterTheEndAndClearsTheId)
{
    List l{{1, 10}, {2, 20}};
    S32 id, data;
    EXPECT_EQ(DX_ListGetNext(l.h, &id, &data), 0u) << "a fresh walk starts at the first";
    EXPECT_EQ(id, 1);
    EXPECT_EQ(DX_ListGetNext(l.h, &id, &data), 0u);
    id = 77;
    EXPECT_EQ(DX_ListGetNext(l.h, &id, &data), 0x15020u);
    EXPECT_EQ(id, 0) << "landing on nothing clears the identifier";
    EXPECT_EQ(DX_ListGetCurrent(l.h, &id, &data), 0x15020u);
    EXPECT_EQ(DX_ListGetPrev(l.h, &id, &data), 0u) << "back from the end";
    EXPECT_EQ(id, 2);
    EXPECT_EQ(DX_ListGetNext(l.h, &id, &data), 0x15020u);
    EXPECT_EQ(DX_ListGetNext(l.h, &id, &data), 0u);
    EXPECT_EQ(id, 1);
    EXPECT_EQ(DX_ListGetPrev(l.h, &id, &data), 0x15020u);
    EXPECT_EQ(DX_ListGetLast(l.h, &id, &data), 0u);
    EXPECT_EQ(data, 20);
}

TEST(ListWalk, BackOverEqualCellsLandsOnTheFirst)
{
    List l{{1, 0}, {5, 5}, {2, 0}, {5, 5}, {3, 0}};
    S32 id, data;
    DX_ListGetFirst(l.h, &id, &data);
    for (int i = 0; i < 4; ++i)
        DX_ListGetNext(l.h, &id, &data);  // on (3, 0)
    EXPECT_EQ(DX_ListGetPrev(l.h, &id, &data), 0u);
    EXPECT_EQ(id, 5);
    EXPECT_EQ(DX_ListGetNext(l.h, &id, &data), 0u);
    EXPECT_EQ(id, 2) << "the walk back landed on the first (5, 5)";
}

TEST(ListWalk, DeletingDuringAWalk)
{
    rqtest::LeakCheck leaks;
    List l{{1, 0}, {2, 0}, {3, 0}, {4, 0}};
    S32 id, data;
    EXPECT_EQ(DX_ListDeleteCurrent(l.h), 0x15020u);
    DX_ListGetFirst(l.h, &id, &data);
    DX_ListGetNext(l.h, &id, &data);  // on 2
    EXPECT_EQ(DX_ListDeleteCurrent(l.h), 0u);
    EXPECT_EQ(DX_ListDeleteCurrent(l.h), 0x1507Du);
    EXPECT_EQ(DX_ListUpdateCurrent(l.h, &id, &data), 0x1501Cu);
    EXPECT_EQ(DX_ListGetNext(l.h, &id, &data), 0u);
    EXPECT_EQ(id, 3) << "next after a delete is the element after the deleted one";
    S32 four = 4;
    EXPECT_EQ(DX_ListDeleteFrom(l.h, &four, nullptr), 0u);
    EXPECT_EQ(DX_ListDeleteCurrent(l.h), 0u) << "3 is current";
    S32 last;
    EXPECT_EQ(DX_ListGetLast(l.h, &last, &data), 0u);
    EXPECT_EQ(last, 1) << "the deleted last elements were replaced as last";
    EXPECT_EQ(DX_ListDeleteFrom(l.h, &four, nullptr), 0x15090u);
    EXPECT_EQ(DX_ListDeleteAll(l.h), 0u);
    EXPECT_EQ(DX_ListGetNext(l.h, &id, &data), 0x15020u);
}

TEST(ListWalk, PriorityGetOfTheLastKeepsTheWalkSound)
{
    rqtest::LeakCheck leaks;
    List l{{1, 10}, {2, 20}, {3, 30}};
    S32 id, data, three = 3;
    DX_ListGetLast(l.h, &id, &data);  // on 3
    EXPECT_EQ(DX_ListPriorityGet(l.h, &three, &data), 0u);
    EXPECT_EQ(data, 30);
    EXPECT_EQ(cells(l.h), (Cells{{3, 30}, {1, 10}, {2, 20}}));
    EXPECT_EQ(DX_ListGetLast(l.h, &id, &data), 0u);
    EXPECT_EQ(id, 2) << "its predecessor became the last";
    DX_ListGetFirst(l.h, &id, &data);
    DX_ListGetNext(l.h, &id, &data);  // on 1
    S32 two = 2;
    EXPECT_EQ(DX_ListPriorityGet(l.h, &two, &data), 0u);
    EXPECT_EQ(DX_ListDeleteCurrent(l.h), 0u) << "still on 1";
    EXPECT_EQ(cells(l.h), (Cells{{2, 20}, {3, 30}}));
}

// The walks go from an element to the block its link names; a link written
// by a caller through the element's handle is the one they must follow.
TEST(ListWalk, LinksRewrittenThroughTheHandleAreFollowed)
{
    rqtest::LeakCheck leaks;
    List l{{1, 10}, {2, 20}, {3, 30}, {4, 40}};
    S32 one = 1, two = 2, three = 3;
    RQHANDLE before = 0, first = 0, second = 0, third = 0;
    ASSERT_EQ(DX_ListFind(l.h, &one, nullptr, &before, &first), 0u);
    ASSERT_EQ(DX_ListFind(l.h, &two, nullptr, &before, &second), 0u);
    ASSERT_EQ(DX_ListFind(l.h, &three, nullptr, &before, &third), 0u);
    auto relink = [](RQHANDLE element, RQHANDLE next) {
        std::memcpy(MemLock(element), &next, sizeof next);
        MemUnlock();
    };
    relink(first, third);  // 2 is off the chain
    Cells walked;
    Cell c;
    for (U32 s = DX_ListGetFirst(l.h, &c.first, &c.second); s == 0; s = DX_ListGetNext(l.h, &c.first, &c.second))
        walked.push_back(c);
    EXPECT_EQ(walked, (Cells{{1, 10}, {3, 30}, {4, 40}}));
    // The ordered insert steps over the rewritten link as well.
    S32 thirtyFive = 35;
    EXPECT_EQ(DX_ListAddSort(l.h, &three, &thirtyFive), 0u);
    EXPECT_EQ(cells(l.h), (Cells{{1, 10}, {3, 30}, {3, 35}, {4, 40}}));
    S32 data = 0;
    EXPECT_EQ(DX_ListAlwaysGet(l.h, &two, &data), 0x15090u);
    EXPECT_EQ(DX_ListAlwaysGet(l.h, &three, &data), 0u);
    EXPECT_EQ(data, 30);
    relink(first, second);  // back on the chain, so that the list frees it
    EXPECT_EQ(DX_ListAlwaysGet(l.h, &two, &data), 0u);
    EXPECT_EQ(data, 20);
}

// Freeing follows the links too: a last element linked to itself is freed
// once and then reported, not read again.
TEST(ListWalk, ElementLinkedToItselfIsFreedOnce)
{
    rqtest::LeakCheck leaks;
    List l{{1, 10}, {2, 20}, {3, 30}};
    S32 three = 3;
    RQHANDLE before = 0, last = 0;
    ASSERT_EQ(DX_ListFind(l.h, &three, nullptr, &before, &last), 0u);
    std::memcpy(MemLock(last), &last, sizeof last);
    MemUnlock();
    EXPECT_EQ(DX_ListDeleteAll(l.h), 0x1507Au);
    EXPECT_EQ(count(l.h), 0u);
}

// ---- ordering, comparison, selection -----------------------------------------------------

TEST(ListOrder, SortedInsertPutsEqualsBeforeTheFirstEqual)
{
    // Data compare always 0: cells 5/a and 5/b are equal and tell apart by data.
    List l(DX_LIST_SORTED, ignoreData);
    S32 ids[] = {5, 3, 5}, data[] = {1, 2, 3};
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(DX_ListAddTo(l.h, &ids[i], &data[i]), 0u);
    Cells got;
    Cell c;
    for (U32 s = DX_ListGetFirst(l.h, &c.first, &c.second); s == 0; s = DX_ListGetNext(l.h, &c.first, &c.second))
        got.push_back(c);
    EXPECT_EQ(got, (Cells{{3, 2}, {5, 3}, {5, 1}}));
}

TEST(ListOrder, CompareAsSequenceAndAsSet)
{
    // Expected results from the definitions: first unequal cell, else length.
    struct Case { Cells a, b; int sign; U32 asSet; } cases[] = {
        {{{1, 0}, {2, 0}}, {{1, 0}, {2, 0}, {3, 0}}, -1, 0}, {{{1, 0}, {3, 0}}, {{1, 0}, {2, 0}, {3, 0}}, 1, 0},
        {{{1, 0}, {1, 0}, {2, 0}}, {{1, 0}, {2, 0}, {2, 0}}, -1, 0},
        {{{1, 0}, {2, 0}, {2, 0}}, {{2, 0}, {1, 0}, {2, 0}}, -1, 1}, {{}, {}, 0, 1}, {{{4, 1}}, {{4, 0}}, 1, 0},
    };
    for (const Case &c : cases) {
        List a, b;
        for (const Cell &x : c.a) DX_ListAddLast(a.h, &x.first, &x.second);
        for (const Cell &x : c.b) DX_ListAddLast(b.h, &x.first, &x.second);
        S32 r = 99;
        U32 eq = 99;
        EXPECT_EQ(DX_ListCompare(a.h, b.h, &r), 0u);
        EXPECT_EQ((r > 0) - (r < 0), c.sign);
        EXPECT_EQ(DX_ListCompareAsSet(a.h, b.h, &eq), 0u);
        EXPECT_EQ(eq, c.asSet);
    }
    List strings(0, DX_MemCmp);
    S32 r;
    EXPECT_EQ(DX_ListCompare(strings.h, List().h, &r), 0x15061u) << "different data compare functions";
}

TEST(ListOrder, SelectionMergeAndMembers)
{
    rqtest::LeakCheck leaks;
    List l{{1, 1}, {2, 2}, {1, 3}, {3, 4}};
    S32 one = 1;
    HLIST sel = 0;
    EXPECT_EQ(DX_ListGetIdSelection(&sel, l.h, &one), 0u);
    EXPECT_EQ(cells(sel), (Cells{{1, 1}, {1, 3}}));
    U32 n;
    EXPECT_EQ(DX_ListMember(l.h, &one, nullptr, &n), 0u);
    EXPECT_EQ(n, 2u);
    S32 three = 3;
    EXPECT_EQ(DX_ListMember(l.h, &one, &three, &n), 0u);
    EXPECT_EQ(n, 1u);
    EXPECT_EQ(DX_ListInclude(sel, l.h, &n), 0u);
    EXPECT_EQ(n, 1u);
    EXPECT_EQ(DX_ListInclude(l.h, sel, &n), 0u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(DX_ListMerge(l.h, l.h), 0u) << "merging a list into itself doubles it and ends";
    EXPECT_EQ(count(l.h), 8u);
    DX_ListDestroy(&sel);
    List unique(DX_LIST_UNIQUE);
    EXPECT_EQ(DX_ListMerge(unique.h, l.h), 0x15001u);
    EXPECT_EQ(cells(unique.h), (Cells{{1, 1}, {2, 2}})) << "the merge stops at the refused duplicate";
}

TEST(ListOrder, QuickSortAndItsRefusals)
{
    rqtest::LeakCheck leaks;
    List equal{{7, 7}, {7, 7}, {7, 7}};
    EXPECT_EQ(DX_ListQuickSort(equal.h, nullptr, nullptr), 0u);
    EXPECT_EQ(cells(equal.h), (Cells{{7, 7}, {7, 7}, {7, 7}}));
    List l{{3, 1}, {1, 2}, {2, 0}, {1, 1}};
    U32 sorted = 9;
    EXPECT_EQ(DX_ListIsSorted(l.h, nullptr, nullptr, &sorted), 0u);
    EXPECT_EQ(sorted, 0u);
    EXPECT_EQ(DX_ListQuickSort(l.h, nullptr, nullptr), 0u);
    EXPECT_EQ(cells(l.h), (Cells{{1, 1}, {1, 2}, {2, 0}, {3, 1}}));
    // Identifiers all equal for this one sort, so the data decides; the
    // list keeps its own functions.
    auto byData = [](const void *, const void *, U32) -> S32 { return 0; };
    EXPECT_EQ(DX_ListQuickSort(l.h, byData, nullptr), 0u);
    Cells now = cells(l.h);
    EXPECT_TRUE(std::is_sorted(now.begin(), now.end(), [](Cell a, Cell b) { return a.second < b.second; }));
    EXPECT_EQ(DX_ListIsSorted(l.h, byData, nullptr, &sorted), 0u);
    EXPECT_EQ(sorted, 1u);
    EXPECT_EQ(DX_ListSetFlag(l.h, DX_LIST_SORTED, 1), 0u);
    EXPECT_EQ(cells(l.h), (Cells{{1, 1}, {1, 2}, {2, 0}, {3, 1}}));
    EXPECT_EQ(DX_ListQuickSort(l.h, byData, nullptr), 0x150ADu) << "a sorted list keeps its own order";
    EXPECT_EQ(DX_ListIsSorted(l.h, nullptr, byData, &sorted), 0x150ADu);
}

TEST(ListOrder, KeyedSortOfCommonCellsMatchesTheQuicksort)
{
    // Lists of 32-bit cells under the library's own compare functions are
    // sorted as keys; the same functions called through a wrapper take the
    // quicksort.  Both must leave the same cells in the chain, for signed
    // and byte order, with and without data, negatives and repeats included.
    rqtest::LeakCheck leaks;
    auto s32 = [](const void *a, const void *b, U32 n) -> S32 { return DX_MemS32Cmp(a, b, n); };
    auto bytes = [](const void *a, const void *b, U32 n) -> S32 { return DX_MemCmp(a, b, n); };
    struct Order {
        DX_LIST_CMPFCT fn, wrapped;
    };
    const Order orders[] = {{DX_MemS32Cmp, s32}, {DX_MemCmp, bytes}};
    std::mt19937 rng(5);
    for (U32 dataSize : {4u, 0u}) {
        for (const Order &id : orders) {
            for (const Order &data : orders) {
                for (U32 n : {2u, 3u, 50u, 2000u}) {
                    SCOPED_TRACE(testing::Message() << dataSize << " " << n);
                    HLIST keyed = 0, quick = 0;
                    ASSERT_EQ(DX_ListCreate(&keyed, 4, dataSize, 0, id.fn, data.fn), 0u);
                    ASSERT_EQ(DX_ListCreate(&quick, 4, dataSize, 0, id.wrapped, data.wrapped), 0u);
                    for (U32 i = 0; i < n; ++i) {
                        // Few distinct identifiers, so that data decides often.
                        S32 cell[2] = {static_cast<S32>(rng() % 7) - 3 + static_cast<S32>(rng() % 2) * 0x7FFF0000,
                                       static_cast<S32>(rng())};
                        DX_ListAlwaysAddLast(keyed, &cell[0], &cell[1]);
                        DX_ListAlwaysAddLast(quick, &cell[0], &cell[1]);
                    }
                    ASSERT_EQ(DX_ListQuickSort(keyed, nullptr, nullptr), 0u);
                    ASSERT_EQ(DX_ListQuickSort(quick, nullptr, nullptr), 0u);
                    U32 sorted = 0;
                    EXPECT_EQ(DX_ListIsSorted(keyed, nullptr, nullptr, &sorted), 0u);
                    EXPECT_EQ(sorted, 1u);
                    Cells a = cells(keyed), b = cells(quick);
                    if (dataSize == 0) {  // no data to read back
                        for (Cells *c : {&a, &b})
                            for (Cell &cell : *c)
                                cell.second = 0;
                    }
                    EXPECT_EQ(a, b);
                    DX_ListDestroy(&keyed);
                    DX_ListDestroy(&quick);
                }
            }
        }
    }
}

TEST(ListOrder, UniquenessIsCheckedBeforeItIsPromised)
{
    rqtest::LeakCheck leaks;
    List l{{1, 0}, {2, 0}, {1, 5}};
    EXPECT_EQ(DX_ListSetFlag(l.h, DX_LIST_UNIQUE, 1), 0x15001u);
    EXPECT_EQ(DX_ListSetFlag(l.h, DX_LIST_IGNORE_DUP, 1), 0x15001u);
    EXPECT_FALSE(DX_ListFlagDetect(l.h, DX_LIST_UNIQUE, nullptr));
    S32 one = 1;
    EXPECT_EQ(DX_ListDeleteFrom(l.h, &one, nullptr), 0u);
    EXPECT_EQ(DX_ListSetFlag(l.h, DX_LIST_UNIQUE, 1), 0u);
    S32 three = 3;
    EXPECT_EQ(DX_ListAddLast(l.h, &three, &three), 0u);
    // A function that finds 2 and 3 equal is refused; the old one stays.
    auto coarse = [](const void *a, const void *b, U32) -> S32 {
        S32 x, y;
        std::memcpy(&x, a, 4);
        std::memcpy(&y, b, 4);
        return x / 2 - y / 2;
    };
    EXPECT_EQ(DX_ListChangeCmpFct(l.h, coarse, nullptr), 0x15001u);
    List plain;
    EXPECT_EQ(DX_ListVerifyType(l.h, plain.h), 0u) << "the previous functions are back";
}

// ---- allocation failures ----------------------------------------------------------------

// Runs `op` under the sweep; a successful run is undone (with failures off)
// so that every run starts from the same list.
void sweepKeepsList(HLIST list, const std::function<U32()> &op, const std::function<void()> &undo,
                    std::vector<U32> codes)
{
    Cells before = cells(list);
    rqtest::allocationSweep(
        [&] {
            U32 s = op();
            if (s == 0) {
                EXPECT_FALSE(SIS_TestFailFired()) << "a failed allocation went unreported";
                SIS_TestFailAfter(-1);
                undo();
            }
            return s;
        },
        [&](U32 s) {
            EXPECT_NE(std::find(codes.begin(), codes.end(), s), codes.end()) << std::hex << s;
            EXPECT_EQ(cells(list), before) << "a failed operation changed the list";
        });
}

TEST(ListAllocation, FailedAddsLeaveTheListUnchanged)
{
    List l{{1, 1}, {2, 2}, {3, 3}};
    List sorted({{1, 1}, {3, 3}}, 0);
    DX_ListSetFlag(sorted.h, DX_LIST_SORTED, 1);
    S32 two = 2, nine = 9;
    auto undo = [&] { DX_ListDeleteFrom(l.h, &nine, nullptr); };
    auto undoSorted = [&] { DX_ListDeleteFrom(sorted.h, &nine, nullptr); DX_ListDeleteFrom(sorted.h, &two, nullptr); };
    sweepKeepsList(l.h, [&] { return DX_ListAddFirst(l.h, &nine, &nine); }, undo, {0x15002});
    sweepKeepsList(l.h, [&] { return DX_ListAddLast(l.h, &nine, &nine); }, undo, {0x15002});
    sweepKeepsList(l.h, [&] { return DX_ListAddTo(l.h, &nine, &nine); }, undo, {0x15002});
    sweepKeepsList(l.h, [&] { return DX_ListAddBefore(l.h, &two, nullptr, &nine, &nine); }, undo, {0x15002});
    sweepKeepsList(l.h, [&] { return DX_ListAddAfter(l.h, &two, nullptr, &nine, &nine); }, undo, {0x15002});
    sweepKeepsList(sorted.h, [&] { return DX_ListAddTo(sorted.h, &two, &two); }, undoSorted, {0x15002});
    sweepKeepsList(sorted.h, [&] { return DX_ListAddSort(sorted.h, &nine, &nine); }, undoSorted, {0x15002});
    S32 one = 1;
    U32 members = 0;
    sweepKeepsList(l.h, [&] { return DX_ListMember(l.h, &one, nullptr, &members); }, [] {}, {});
    EXPECT_EQ(members, 1u);
}

TEST(ListAllocation, StringReplacementsLeaveTheListUnchanged)
{
    HLIST h = 0;
    ASSERT_EQ(DX_ListCreate(&h, 4, 4, DX_LIST_STRING_DATA, DX_MemS32Cmp, nullptr), 0u);
    S32 one = 1, two = 2;
    DX_ListAddLast(h, &one, "a");
    DX_ListAddLast(h, &two, "b");
    S32 id, data;
    DX_ListGetFirst(h, &id, &data);
    sweepKeepsList(h, [&] { return DX_ListChangeData(h, &two, nullptr, "xyz"); },
                   [&] { DX_ListChangeData(h, &two, nullptr, "b"); }, {0x15019});
    sweepKeepsList(h, [&] { return DX_ListUpdateCurrent(h, &one, "xyz"); },
                   [&] { DX_ListUpdateCurrent(h, &one, "a"); }, {0x15019});
    DX_ListDestroy(&h);
}

TEST(ListAllocation, AllocatingFunctionsReportAndLeakNothing)
{
    List l{{3, 0}, {1, 0}, {2, 0}, {1, 1}, {5, 0}};
    rqtest::allocationSweep([] { HLIST h = 0; U32 s = DX_ListCreate(&h, 4, 4, 0, nullptr, nullptr);
                                 DX_ListDestroy(&h); return s; }, 0x15041);
    auto copying = [&](auto fn, std::vector<U32> codes) {
        rqtest::allocationSweep([&] { HLIST h = 0; U32 s = fn(&h); DX_ListDestroy(&h); return s; },
                                [&](U32 s) { EXPECT_NE(std::find(codes.begin(), codes.end(), s), codes.end()); });
    };
    S32 one = 1;
    copying([&](HLIST *h) { return DX_ListCopy(h, l.h); }, {0x15041, 0x15002});
    copying([&](HLIST *h) { return DX_ListGetIdSelection(h, l.h, &one); }, {0x15041, 0x15002});
    copying(
        [&](HLIST *h) {
            U32 s = DX_ListCreate(h, 4, 4, 0, DX_MemS32Cmp, DX_MemS32Cmp);
            return s != 0 ? s : DX_ListMerge(*h, l.h);
        },
        {0x15041, 0x15002});
    // Sorting moves contents only: a failed sort leaves the same cells.
    Cells before = cells(l.h);
    std::sort(before.begin(), before.end());
    rqtest::allocationSweep([&] { return DX_ListQuickSort(l.h, nullptr, nullptr); }, [&](U32 s) {
        EXPECT_TRUE(s == 0x15041 || s == 0x15002) << std::hex << s;
        Cells now = cells(l.h);
        std::sort(now.begin(), now.end());
        EXPECT_EQ(now, before);
    });
    rqtest::allocationSweep([&] { return DX_ListSetFlag(l.h, DX_LIST_UNIQUE, 1); }, [&](U32 s) {
        EXPECT_TRUE(s == 0x15041 || s == 0x15002) << std::hex << s;
        EXPECT_FALSE(DX_ListFlagDetect(l.h, DX_LIST_UNIQUE, nullptr));
    });
    auto sortOnOff = [&] {
        U32 s = DX_ListSetFlag(l.h, DX_LIST_SORTED, 1);
        if (s == 0)
            DX_ListSetFlag(l.h, DX_LIST_SORTED, 0);
        return s;
    };
    rqtest::allocationSweep(sortOnOff, [&](U32 s) {
        EXPECT_TRUE(s == 0x15041 || s == 0x15002) << std::hex << s;
        EXPECT_FALSE(DX_ListFlagDetect(l.h, DX_LIST_SORTED, nullptr)) << "a failed sort promises no order";
    });
    List u({{1, 0}, {2, 0}}, DX_LIST_UNIQUE);
    rqtest::allocationSweep([&] { return DX_ListChangeCmpFct(u.h, DX_MemCmp, nullptr); }, [&](U32 s) {
        EXPECT_TRUE(s == 0x15041 || s == 0x15002) << std::hex << s;
        List plain;
        EXPECT_EQ(DX_ListVerifyType(u.h, plain.h), 0u) << "the old functions are back";
    });
    RQHANDLE element = 0;
    rqtest::allocationSweep([&] { U32 s = DX_ListCreateElement(l.h, &element, &one, &one, 0);
                                  MemFree(element); return s; }, 0x15019);
    RQHANDLE scratch = 0;
    void *p = nullptr;
    rqtest::allocationSweep([&] { U32 s = DX_ListAlloc(l.h, &scratch, &p, DX_LIST_ALLOC_ID);
                                  DX_ListFree(scratch); return s; }, 0x1505B);
    EXPECT_EQ(DX_ListAlloc(l.h, &scratch, &p, 2), 0x1505Au);
}

// ---- property test against a std model ---------------------------------------------------------

TEST(ListModel, RandomOperationsAgreeWithAVector)
{
    rqtest::LeakCheck leaks;
    std::mt19937 rng(20050629);  // fixed seed: reproducible
    List l;
    Cells model;
    int cur = -1;        // index of the current element, -1 for none
    bool deleted = false;  // the current element was deleted; cur is its predecessor
    auto find = [&](S32 id) {
        return std::find_if(model.begin(), model.end(), [id](const Cell &c) { return c.first == id; });
    };
    auto insertAt = [&](size_t k, Cell c) {
        model.insert(model.begin() + static_cast<long>(k), c);
        if (cur >= 0 && static_cast<int>(k) <= cur)
            ++cur;
    };
    for (int step = 0; step < 6000; ++step) {
        SCOPED_TRACE(step);
        bool sorted = step >= 3000;
        if (step == 3000) {
            ASSERT_EQ(DX_ListSetFlag(l.h, DX_LIST_SORTED, 1), 0u);
            std::stable_sort(model.begin(), model.end());  // contents move, the position index stays
        }
        Cell c{static_cast<S32>(rng() % 16) - 4, static_cast<S32>(rng() % 3)};
        S32 ref = static_cast<S32>(rng() % 16) - 4, got[2] = {0, 0};
        switch (rng() % (sorted ? 5 : 9)) {
        case 0:
            if (sorted) {
                ASSERT_EQ(DX_ListAddTo(l.h, &c.first, &c.second), 0u);
                insertAt(std::lower_bound(model.begin(), model.end(), c) - model.begin(), c);
            } else {
                ASSERT_EQ(DX_ListAddLast(l.h, &c.first, &c.second), 0u);
                insertAt(model.size(), c);
            }
            break;
        case 1: {  // walk one step
            U32 s = DX_ListGetNext(l.h, &got[0], &got[1]);
            cur = cur + 1 < static_cast<int>(model.size()) ? cur + 1 : -1;
            deleted = false;
            ASSERT_EQ(s, cur < 0 ? 0x15020u : 0u);
            if (cur >= 0) {
                ASSERT_EQ(Cell(got[0], got[1]), model[static_cast<size_t>(cur)]);
            }
            break;
        }
        case 2: {
            U32 s = DX_ListDeleteCurrent(l.h);
            ASSERT_EQ(s, cur < 0 ? 0x15020u : deleted ? 0x1507Du : 0u);
            if (s == 0) {
                model.erase(model.begin() + cur);
                --cur;
                deleted = cur >= 0;
            }
            break;
        }
        case 3: {
            auto it = find(ref);
            ASSERT_EQ(DX_ListAlwaysGet(l.h, &ref, &got[1]), it == model.end() ? 0x15090u : 0u);
            if (it != model.end()) {
                ASSERT_EQ(got[1], it->second);
            }
            break;
        }
        case 4: {  // delete every element with one identifier
            int removedBefore = 0;
            bool curGone = false;
            Cells kept;
            for (size_t i = 0; i < model.size(); ++i) {
                if (model[i].first == ref) {
                    if (static_cast<int>(i) < cur) ++removedBefore;
                    if (static_cast<int>(i) == cur) curGone = true;
                } else {
                    kept.push_back(model[i]);
                }
            }
            ASSERT_EQ(DX_ListDeleteFrom(l.h, &ref, nullptr), kept.size() == model.size() ? 0x15090u : 0u);
            if (cur >= 0) {
                cur -= removedBefore + (curGone ? 1 : 0);
                deleted = deleted || curGone;
                if (cur < 0)
                    deleted = false;
            }
            model = kept;
            break;
        }
        case 5:
            ASSERT_EQ(DX_ListAddFirst(l.h, &c.first, &c.second), 0u);
            insertAt(0, c);
            break;
        case 6: {
            auto it = find(ref);
            size_t k = it == model.end() || it == model.begin() ? 0 : static_cast<size_t>(it - model.begin());
            ASSERT_EQ(DX_ListAddBefore(l.h, &ref, nullptr, &c.first, &c.second), 0u);
            insertAt(k, c);
            break;
        }
        case 7: {
            auto it = find(ref);
            ASSERT_EQ(DX_ListPriorityGet(l.h, &ref, &got[1]), it == model.end() ? 0x15090u : 0u);
            if (it != model.end()) {
                int j = static_cast<int>(it - model.begin());
                std::rotate(model.begin(), it, it + 1);
                cur = cur == j ? 0 : (cur >= 0 && cur < j ? cur + 1 : cur);
            }
            break;
        }
        case 8:
            if (rng() % 20 == 0) {
                ASSERT_EQ(DX_ListQuickSort(l.h, nullptr, nullptr), 0u);
                std::stable_sort(model.begin(), model.end());
            }
            break;
        }
        ASSERT_EQ(count(l.h), model.size());
        if (step % 97 == 0) {
            ASSERT_EQ(cells(l.h), model);
        }
    }
    U32 isSorted = 0;
    EXPECT_EQ(DX_ListIsSorted(l.h, nullptr, nullptr, &isSorted), 0u);
    EXPECT_EQ(isSorted, 1u);
}

}  // namespace
