// Recurrence generation: the kept odd rules, exclusions, bad input, out of
// memory, linear work, and agreement with dateutil.
#include "rqtest.h"

#include "rqcore/date.h"
#include "rqcore/lists.h"
#include "rqsis/rqsis_test.h"

#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

struct Ymd { U16 y, m, d; };  // month 1-based here, for readable tables

DX_DATE date(Ymd v)
{
    DX_DATE r{};
    EXPECT_EQ(DX_DateSet(&r, v.d, static_cast<U16>(v.m - 1), v.y), 0u);
    return r;
}

HLIST codes(const std::vector<U16> &list, U32 idSize = 2, U32 dataSize = 0, DX_LIST_CMPFCT compare = nullptr)
{
    HLIST h = 0;
    EXPECT_EQ(DX_ListCreate(&h, idSize, dataSize, 8, compare, nullptr), 0u);
    for (U32 wide : list) {  // little-endian: the code in the first bytes
        EXPECT_EQ(DX_ListAddLast(h, &wide, nullptr), 0u);
    }
    return h;
}

std::string text(const DX_DATE &d)
{
    char b[16];
    std::snprintf(b, sizeof b, "%04u%02u%02u", d.year, d.month + 1u, d.day);
    return b;
}

// The dates of an output list as YYYYMMDD, checking the sequence numbers.
std::string dates(HLIST out)
{
    std::string s;
    U16 id = 0, expected = 1;
    DX_DATE d;
    for (U32 rc = DX_ListGetFirst(out, &id, &d); rc == 0; rc = DX_ListGetNext(out, &id, &d), ++expected) {
        EXPECT_EQ(id, expected);
        s.append(s.empty() ? "" : " ").append(text(d));
    }
    return s;
}

struct Recur {
    DX_RECUR r{};
    std::vector<HLIST> owned;
    Recur(U16 kind, U16 interval, Ymd start, Ymd end, std::vector<U16> days = {}, std::vector<U16> excludedWd = {})
    {
        r.kind = kind;
        r.interval = interval;
        r.start = date(start);
        r.end = date(end);
        if (!days.empty())
            owned.push_back(r.days = codes(days));
        if (!excludedWd.empty())
            owned.push_back(r.excludedWeekdays = codes(excludedWd));
    }
    ~Recur()
    {
        for (HLIST &h : owned)
            DX_ListDestroy(&h);
    }
};

// Runs with flag 1 and returns status and dates; the list is destroyed.
U32 run(const DX_RECUR &r, std::string *out, U32 maxCount = 0, U32 flags = 1)
{
    HLIST list = 0;
    U32 rc = DX_DateGenRecur(flags, &r, &list, maxCount);
    *out = rc == 0 ? dates(list) : "";
    EXPECT_EQ(rc != 0, list == 0) << "a list created by a failed call is destroyed";
    DX_ListDestroy(&list);
    return rc;
}

// Rules the dateutil comparison cannot reach; 3 January 2005 was a Monday.
TEST(Recur, PeriodsAndKeptRules)
{
    struct Case { const char *what; U16 kind, interval; Ymd start, end; std::vector<U16> days; const char *expected; };
    Case cases[] = {
        {"sliding month", 3, 1, {2005, 1, 15}, {2005, 3, 20}, {0, 14}, "20050115 20050201 20050215 20050301 20050315"},
        // 31 Jan -> 28 Feb -> 28 Mar, each period ending the day before the next anchor.
        {"anchor drift", 3, 1, {2005, 1, 31}, {2005, 4, 30}, {27, 30}, "20050131 20050228 20050328 20050331 20050428"},
        {"interval 0: the first period only", 2, 0, {2005, 1, 3}, {2005, 3, 1}, {1, 2}, "20050103 20050104"},
        {"end before start: daily runs the first period", 1, 1, {2005, 1, 9}, {2005, 1, 1}, {}, "20050109"},
        {"end before start: weekly cut at once", 2, 1, {2005, 1, 9}, {2005, 1, 1}, {0, 1}, ""},
        {"yearly up to 65535", 5, 10000, {40000, 6, 1}, {65535, 12, 31}, {}, "400000601 500000601 600000601"},
        // The comparison's 16-bit year difference: 2000 - 65535 reads as 2001, "after the end".
        {"years too far apart for the comparison", 5, 1, {2000, 6, 1}, {65535, 12, 31}, {}, "20000601"},
        {"daily up to 65535", 1, 1, {65535, 12, 30}, {65535, 12, 31}, {}, "655351230 655351231"},
        {"sliding month up to 65535", 3, 1, {65535, 12, 1}, {65535, 12, 31}, {30}, "655351231"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        rqtest::LeakCheck leaks;
        Recur r(c.kind, c.interval, c.start, c.end, c.days);
        std::string got;
        EXPECT_EQ(run(r.r, &got), 0u);
        EXPECT_EQ(got, c.expected);
    }
}

// Excluded dates as whole records (so each produced record is what DX_DateSet
// makes of a zeroed record, with the start's reserved word), as their first 14
// bytes (flags to year), and compared as text (the flags word starts with a
// NUL, so every record matches).
TEST(Recur, ProducedRecordsAndExcludedDates)
{
    rqtest::LeakCheck leaks;
    Recur r(2, 1, {2005, 1, 3}, {2005, 1, 16}, {1, 3, 6});
    r.r.start.reserved = 0x01020304;
    HLIST whole = codes({}, 24), prefix = codes({}, 14), textIds = codes({}, 24, 0, DX_MemStrnCmp);
    for (Ymd v : {Ymd{2005, 1, 3}, Ymd{2005, 1, 15}, Ymd{2005, 1, 4}}) {
        DX_DATE x = date(v);
        x.reserved = 0x01020304;
        DX_ListAddLast(whole, &x, nullptr);
    }
    DX_DATE x = date({2005, 1, 8});
    x.reserved = 0x01020304;
    x.dayId = 77;  // past the 14 bytes
    DX_ListAddLast(prefix, &x, nullptr);
    DX_ListAddLast(textIds, &x, nullptr);
    struct Case { U32 flags; HLIST list; const char *expected; } cases[] = {
        {1, whole, "20050103 20050105 20050108 20050110 20050112 20050115"},  // flag 4 not given
        {1 | 4, whole, "20050105 20050108 20050110 20050112"},
        {1 | 4, prefix, "20050103 20050105 20050110 20050112 20050115"},
        {1 | 4, textIds, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.flags);
        r.r.excludedDates = c.list;
        std::string got;
        EXPECT_EQ(run(r.r, &got, 0, c.flags), 0u);
        EXPECT_EQ(got, c.expected);
    }
    for (HLIST *h : {&whole, &prefix, &textIds})
        DX_ListDestroy(h);
    // Kind 5 moves the year field alone: a cached day ID stays, so 2005's
    // Monday is tested in 2006 and 2007.
    Recur y(5, 1, {2005, 1, 3}, {2007, 1, 3}, {}, {1});
    std::string got;
    EXPECT_EQ(run(y.r, &got), 0u);
    EXPECT_EQ(got, "20060103 20070103");
    U16 id = 0;
    DX_DateGetDayId(&y.r.start, &id);
    EXPECT_EQ(run(y.r, &got), 0u);
    EXPECT_EQ(got, "");
}

TEST(Recur, BadInput)
{
    rqtest::LeakCheck leaks;
    Recur daily(1, 1, {2005, 1, 1}, {2005, 1, 3}), weeklyNoDays(2, 1, {2005, 1, 1}, {2005, 1, 31});
    Recur weeklyWide(2, 1, {2005, 1, 1}, {2005, 1, 31}), unknown(7, 1, {2005, 1, 1}, {2005, 1, 31});
    weeklyWide.owned.push_back(weeklyWide.r.days = codes({1, 2, 3}, 4));
    Recur old(4, 1, {1990, 12, 1}, {1991, 2, 1}, {0}), badStart(1, 1, {2005, 1, 1}, {2005, 3, 1});
    badStart.r.start.day = 31;
    badStart.r.start.month = 1;  // 31 February
    HLIST good = codes({}, 2, 24), data8 = codes({}, 2, 8), none = 0;
    struct Case { const char *what; const DX_RECUR *r; U32 flags; HLIST list; U32 status; const char *expected; };
    Case cases[] = {
        {"flags 0", &daily.r, 0, 0, 0x15607, ""},
        {"reused list of 8-byte data", &daily.r, 2, data8, 0x15609, ""},
        {"reused handle 0", &daily.r, 2, none, 0x15608, ""},
        {"flag 1 wins over a bad reused list", &daily.r, 3, data8, 0, "20050101 20050102 20050103"},
        {"unknown kind, created list: ends with the unit's code", &unknown.r, 1, 0, 0x15606, ""},
        {"no days list, list ready: goes on, no day", &weeklyNoDays.r, 1, 0, 0, ""},
        {"4-byte days ids, list ready: no day", &weeklyWide.r, 1, 0, 0, ""},
        {"weekday before 1991", &old.r, 1, 0, 0x1560C, ""},
        {"start 31 February", &badStart.r, 1, 0, 0x15604, ""},
    };
    for (const auto &c : cases) {  // run() checks that a created list is destroyed on failure
        SCOPED_TRACE(c.what);
        HLIST list = c.list;
        std::string got;
        EXPECT_EQ((c.flags & 1) != 0 ? run(*c.r, &got, 0, c.flags) : DX_DateGenRecur(c.flags, c.r, &list, 0), c.status);
        EXPECT_EQ(got, c.expected);
    }
    HLIST out = 0;
    EXPECT_EQ(DX_DateGenRecur(1, nullptr, &out, 0), 0x15605u);
    EXPECT_EQ(DX_DateGenRecur(1, &daily.r, nullptr, 0), 0x15605u);
    EXPECT_EQ(out, 0u);
    // A reused list is emptied first and keeps what a failing run produced.
    ASSERT_EQ(DX_DateGenRecur(2, &daily.r, &good, 0), 0u);
    ASSERT_EQ(DX_DateGenRecur(2, &daily.r, &good, 0), 0u);
    EXPECT_EQ(dates(good), "20050101 20050102 20050103");
    SIS_TestFailAfter(2);
    EXPECT_EQ(DX_DateGenRecur(2, &daily.r, &good, 0), 0x15002u);
    SIS_TestFailAfter(-1);
    EXPECT_EQ(dates(good), "20050101 20050102");
    // The 16-bit sequence numbers wrap after 65535 dates (dates() follows them).
    Recur many(1, 1, {1991, 1, 1}, {2170, 12, 31});
    ASSERT_EQ(DX_DateGenRecur(2, &many.r, &good, 0), 0u);
    U32 n = 0;
    DX_ListGetElemNum(good, &n);
    EXPECT_EQ(n, 65744u);  // from Python: (date(2170, 12, 31) - date(1991, 1, 1)).days + 1
    EXPECT_EQ(dates(good).size(), 65744u * 9 - 1);
    for (HLIST *h : {&good, &data8})
        DX_ListDestroy(h);
}

// A failed allocation ends with the list's code and destroys the list; the
// excluded-dates copy falls back to lookups in the list when it fails.  The
// allocations of a run: the list, one per date and one block for the copy of
// the excluded dates, nothing per period or per excluded date.
TEST(Recur, OutOfMemoryAndLinearWork)
{
    auto sweep = [](U16 years) {
        Recur r(4, 1, {2005, 1, 1}, {static_cast<U16>(2005 + years - 1), 12, 31}, {29});
        r.owned.push_back(r.r.excludedDates = codes({}, 24));
        std::string full, got;
        EXPECT_EQ(run(r.r, &full), 0u);
        DX_DATE x = date({2005, 1, 31});  // the first date, excluded
        EXPECT_EQ(text(x), full.substr(0, 8));
        for (U16 y = 2005; y < 2005 + years; x = date({++y, 1, 1}))  // never a last Monday
            DX_ListAddLast(r.r.excludedDates, &x, nullptr);
        return rqtest::allocationSweep([&] { return run(r.r, &got, 0, 5); },
                                       [&](U32 status) {
                                           if (status == 0)
                                               EXPECT_EQ(got, full.substr(9));
                                           else
                                               EXPECT_TRUE(status == 0x15041 || status == 0x15002) << std::hex << status;
                                       });
    };
    EXPECT_EQ(sweep(10), 2 + 120 - 1);
    EXPECT_EQ(sweep(100), 2 + 1200 - 1);
}

// Random rules (fixed seed) against tests/data/recur_reference.py, which
// models the defined differences from rrule (count after whole periods, the
// last-weekday codes, the week's start); kind 3 only from the 1st of a month
// (the sliding month is not rrule's), ends drawn after starts.
TEST(Recur, AgreesWithDateutil)
{
    if (std::system("python3 -c 'import dateutil.rrule' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "python3 with dateutil not available";
    std::mt19937 rng(20050629);
    auto pick = [&](int lo, int hi) { return static_cast<U16>(std::uniform_int_distribution<int>(lo, hi)(rng)); };
    auto add = [](std::string &list, const std::string &item) { list = list == "-" ? item : list + "," + item; };
    auto code = [&](std::vector<U16> &v, std::string &list, U16 x) { v.push_back(x), add(list, std::to_string(x)); };
    std::vector<std::string> lines, ours;
    std::string input;
    for (int i = 0; i < 400; ++i) {
        U16 kind = static_cast<U16>(1 + i % 5), len = 0;
        Ymd s{pick(1991, 2120), pick(1, 12), 1};
        DX_DateGetNumDaysInMonth(static_cast<U16>(s.m - 1), s.y, &len);
        s.d = kind == 3 ? 1 : pick(1, len);
        if (kind == 5 && i % 20 == 4)
            s = {static_cast<U16>(pick(498, 524) * 4), 2, 29};  // 29 February anchors (1992..2096)
        DX_DATE end = date(s);
        DX_DateOffsetFar(&end, pick(0, kind == 1 ? 400 : kind == 2 ? 900 : kind == 5 ? 20000 : 2500));
        std::vector<U16> days, wd;
        std::string daysText = "-", wdText = "-", excluded = "-";
        for (int k = pick(1, 4); k > 0 && kind >= 2 && kind <= 4; --k)
            code(days, daysText, pick(0, kind == 2 ? 6 : kind == 3 ? 30 : 34));
        if (pick(0, 3) == 0)
            code(wd, wdText, pick(0, 6));
        U16 interval = kind == 5 ? pick(1, 8) : pick(1, 4);
        U32 maxCount = pick(0, 2) == 0 ? pick(1, 12) : 0;
        Recur r(kind, interval, s, {end.year, static_cast<U16>(end.month + 1), end.day}, days, wd);
        r.owned.push_back(r.r.excludedDates = codes({}, 24));
        for (int k = pick(0, 6); k > 0; --k) {  // excluded dates in the range, as DX_DateSet records
            DX_DATE x = r.r.start;
            DX_DateOffsetFar(&x, pick(0, 400));
            x = date({x.year, static_cast<U16>(x.month + 1), x.day});
            DX_ListAddLast(r.r.excludedDates, &x, nullptr);
            add(excluded, text(x));
        }
        ours.emplace_back();
        EXPECT_EQ(run(r.r, &ours.back(), maxCount, 1 | 4), 0u);
        lines.push_back(std::to_string(kind) + " " + std::to_string(interval) + " " + text(r.r.start) + " " +
                        text(r.r.end) + " " + std::to_string(maxCount) + " " + daysText + " " + wdText + " " + excluded);
        input.append(lines.back()).append("\n");
    }
    rqtest::TempDir dir;
    rqtest::writeFile(dir.file("in"), input);
    std::string output = rqtest::commandOutput(
        std::string("python3 '" RQ_TEST_DATA_DIR "/recur_reference.py' < '").append(dir.file("in")).append("'"));
    std::vector<std::string> want = rqtest::splitLines(output);
    ASSERT_EQ(want.size(), ours.size());
    for (size_t i = 0; i < ours.size(); ++i) {
        SCOPED_TRACE(lines[i]);
        EXPECT_EQ(ours[i], want[i]);
    }
    EXPECT_GT(output.size(), 5000u * 9);  // the sample is not trivially empty
}

}  // namespace
