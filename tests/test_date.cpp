// Calendar dates: validation, the day ID and its 16-bit wrap, weeks, moving by
// days, months and years, comparison, and agreement with Python's datetime.
#include "rqtest.h"

#include "rqcore/date.h"
#include "rqcore/lists.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

DX_DATE make(U16 day, U16 month, U16 year)
{
    DX_DATE d;
    std::memset(&d, 0xA5, sizeof d);  // junk in the cache fields: DX_DateSet must clear the flags
    EXPECT_EQ(DX_DateSet(&d, day, month, year), 0u) << day << "/" << month << "/" << year;
    return d;
}

std::string text(const DX_DATE &d)
{
    char s[32];
    std::snprintf(s, sizeof s, "%u-%u-%u", d.year, d.month + 1u, d.day);
    return s;
}

}  // namespace

TEST(Date, SetValidatesInOrder)
{
    // Month first, then 1..31, then the month's length (Gregorian rule).
    struct Case {
        U16 day, month, year;
        U32 status;
    } cases[] = {
        {29, 1, 1900, 0x15604}, {29, 1, 2000, 0},       {29, 1, 2004, 0},       {29, 1, 2100, 0x15604},
        {0, 12, 2000, 0x15602}, {40, 12, 2000, 0x15602}, {0, 0, 2000, 0x15601},  {32, 0, 2000, 0x15601},
        {31, 3, 2000, 0x15604}, {31, 11, 0, 0},         {29, 1, 0, 0},          {31, 0, 65535, 0},
        {30, 1, 2000, 0x15604}, {1, 65535, 2000, 0x15602},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << c.day << "/" << c.month << "/" << c.year);
        DX_DATE d;
        std::memset(&d, 0x5A, sizeof d);
        DX_DATE before = d;
        EXPECT_EQ(DX_DateSet(&d, c.day, c.month, c.year), c.status);
        EXPECT_EQ(DX_DateSet(nullptr, c.day, c.month, c.year), c.status);  // a null record only validates
        if (c.status != 0) {
            EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
        } else {
            EXPECT_EQ(d.flags, 0u);
            EXPECT_EQ(d.reserved, before.reserved);
            EXPECT_EQ(d.day * 10000000u + d.month * 100000u + d.year, c.day * 10000000u + c.month * 100000u + c.year);
        }
    }
}

TEST(Date, DayIdAndItsWrap)
{
    // From the epoch rule: 1 January 1991 is 1, 365 days in 1991, 5 June 2170
    // is the last day a 16-bit ID names; the day after wraps to 0, which is
    // never written out.
    struct Case {
        U16 day, month, year;
        U32 status;
        U16 id;  // 0xBEEF: the caller's variable untouched
    } cases[] = {
        {1, 0, 1991, 0, 1},          {31, 11, 1991, 0, 365},       {1, 0, 1992, 0, 366},
        {31, 11, 1990, 0x1560C, 0xBEEF}, {1, 0, 0, 0x1560C, 0xBEEF}, {5, 5, 2170, 0, 65535},
        {6, 5, 2170, 0, 0xBEEF},     {7, 5, 2170, 0, 1},           {31, 11, 65535, 0, 9590},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << c.day << "/" << c.month << "/" << c.year);
        DX_DATE d = make(c.day, c.month, c.year);
        U16 id = 0xBEEF;
        EXPECT_EQ(DX_DateGetDayId(&d, &id), c.status);
        EXPECT_EQ(id, c.id);
        EXPECT_EQ((d.flags & DX_DATE_HAS_DAY_ID) != 0, c.status == 0);
    }
    // The cache is trusted once filled.
    DX_DATE d = make(1, 0, 1991);
    d.flags = DX_DATE_HAS_DAY_ID;
    d.dayId = 77;
    U16 id = 0;
    EXPECT_EQ(DX_DateGetDayId(&d, &id), 0u);
    EXPECT_EQ(id, 77);
}

TEST(Date, DayOfWeekReadsButDoesNotFillItsCache)
{
    DX_DATE d = make(1, 0, 1991);
    U16 dow = 9;
    EXPECT_EQ(DX_DateGetDayOfWeek(&d, &dow), 0u);
    EXPECT_EQ(dow, 2);  // a Tuesday
    EXPECT_EQ(d.flags, (U32)DX_DATE_HAS_DAY_ID);
    d.flags |= DX_DATE_HAS_DAY_OF_WEEK;
    d.dayOfWeek = 5;
    EXPECT_EQ(DX_DateGetDayOfWeek(&d, &dow), 0u);
    EXPECT_EQ(dow, 5);
    DX_DATE old = make(31, 11, 1990);
    dow = 9;
    EXPECT_EQ(DX_DateGetDayOfWeek(&old, &dow), 0x1560Cu);
    EXPECT_EQ(dow, 9);
}

TEST(Date, WeeksOfYearAndMonth)
{
    // ISO 8601 weeks checked against `date +%V`; weeks of the month count
    // Sundays from 0.
    struct Case {
        U16 day, month, year, week;
    } years[] = {
        {1, 0, 2005, 53}, {29, 11, 2003, 1}, {31, 11, 2004, 53}, {1, 0, 1991, 1}, {31, 11, 2008, 1},
        {1, 0, 2010, 53}, {3, 0, 2010, 53}, {4, 0, 2010, 1},    {1, 0, 2012, 52}, {31, 11, 2012, 1},
    };
    for (const auto &c : years) {
        DX_DATE d = make(c.day, c.month, c.year);
        SCOPED_TRACE(text(d));
        U16 week = 0;
        EXPECT_EQ(DX_DateGetWeekOfYear(&d, &week), 0u);
        EXPECT_EQ(week, c.week);
        EXPECT_EQ(d.weekOfYear, c.week);
        EXPECT_TRUE(d.flags & DX_DATE_HAS_WEEK_OF_YEAR);
    }
    DX_DATE d = make(1, 0, 1990);
    EXPECT_EQ(DX_DateGetWeekOfYear(&d, nullptr), 0x1560Cu);
    // June 2008 starts on a Sunday, May 2008 on a Thursday, August 2008 on a Friday.
    struct Month {
        U16 day, month, year, week;
    } months[] = {{1, 5, 2008, 0}, {7, 5, 2008, 0}, {8, 5, 2008, 1}, {30, 5, 2008, 4},
                  {1, 4, 2008, 0}, {3, 4, 2008, 0}, {4, 4, 2008, 1}, {31, 4, 2008, 4}, {31, 7, 2008, 5}};
    for (const auto &c : months) {
        DX_DATE m = make(c.day, c.month, c.year);
        SCOPED_TRACE(text(m));
        U16 week = 99;
        EXPECT_EQ(DX_DateGetWeekOfMonth(&m, &week), 0u);
        EXPECT_EQ(week, c.week);
    }
}

TEST(Date, OffsetsWalkMonthByMonth)
{
    struct Case {
        U16 day, month, year;
        S32 days;
        const char *expected;
    } cases[] = {
        {31, 0, 2005, 1, "2005-2-1"},       {1, 2, 2004, -1, "2004-2-29"},    {5, 2, 2005, -5, "2005-2-28"},
        {31, 11, 1990, 1, "1991-1-1"},      {1, 0, 1, -1, "0-12-31"},         {1, 0, 0, -1, "65535-12-31"},
        {31, 11, 65535, 1, "0-1-1"},        {15, 6, 1900, 32767, "1990-4-1"}, {15, 6, 1900, -32768, "1810-10-27"},
        {1, 0, 1800, 146097 * 3 + 59, "3000-3-1"}, {1, 2, 3000, -(146097 * 3 + 59), "1800-1-1"},
        {1, 0, 1991, 65534, "2170-6-5"},    {1, 0, 2000, 2147483647, "48906-8-23"}, {1, 0, 2000, -2147483647 - 1, "20629-5-10"},
    };
    for (const auto &c : cases) {
        DX_DATE d = make(c.day, c.month, c.year);
        SCOPED_TRACE(text(d) + " + " + std::to_string(c.days));
        U32 rc = (c.days >= -32768 && c.days <= 32767) ? DX_DateOffset(&d, (S16)c.days) : DX_DateOffsetFar(&d, c.days);
        EXPECT_EQ(rc, 0u);
        EXPECT_EQ(text(d), c.expected);
        DX_DATE far = make(c.day, c.month, c.year);
        EXPECT_EQ(DX_DateOffsetFar(&far, c.days), 0u);
        EXPECT_EQ(text(far), c.expected);
    }
    // 0 days changes nothing, the cache included.
    DX_DATE d = make(3, 3, 2003);
    d.flags = 7;
    EXPECT_EQ(DX_DateOffset(&d, 0), 0u);
    EXPECT_EQ(d.flags, 7u);
}

TEST(Date, MonthStepsClampTheDay)
{
    struct Case {
        U32 (*op)(DX_DATE *);
        U16 day, month, year;
        const char *expected;
    } cases[] = {
        {DX_DatePrevMonth, 31, 2, 2004, "2004-2-29"},       {DX_DatePrevMonth, 15, 0, 2005, "2004-12-15"},
        {DX_DateNextMonth, 31, 11, 2005, "2006-1-31"},      {DX_DateNextMonth, 31, 0, 2005, "2005-2-28"},
        {DX_DateYesterday, 1, 2, 2004, "2004-2-29"},        {DX_DateYesterday, 1, 0, 1991, "1990-12-31"},
        {DX_DateTomorrow, 28, 1, 2100, "2100-3-1"},         {DX_DateSetToLastDayOfMonth, 3, 1, 2000, "2000-2-29"},
        {DX_DateSetToFirstDayOfMonth, 30, 3, 2000, "2000-4-1"},
    };
    for (const auto &c : cases) {
        DX_DATE d = make(c.day, c.month, c.year);
        SCOPED_TRACE(text(d));
        EXPECT_EQ(c.op(&d), 0u);
        EXPECT_EQ(text(d), c.expected);
        EXPECT_EQ(c.op(nullptr), 0x15605u);
    }
    DX_DATE bad = make(1, 0, 2000);
    bad.month = 12;
    EXPECT_EQ(DX_DatePrevMonth(&bad), 0x15602u);
    EXPECT_EQ(DX_DateNextMonth(&bad), 0x15602u);
    EXPECT_EQ(DX_DateSetToLastDayOfMonth(&bad), 0x15603u);
}

TEST(Date, Compute)
{
    struct Case {
        U16 day, month, year, amount, unit;
        U32 status;
        const char *expected;  // the result record, also when the move fails
    } cases[] = {
        {31, 0, 2005, 1, 3, 0, "2005-2-28"},       {31, 0, 2004, 1, 3, 0, "2004-2-29"},
        {31, 0, 2004, 25, 3, 0, "2006-2-28"},      {15, 11, 2004, 65535, 3, 0, "7466-3-15"},
        {29, 1, 2004, 1, 4, 0x15604, "2004-2-29"}, {29, 1, 2004, 4, 4, 0, "2008-2-29"},
        {1, 0, 2000, 65535, 4, 0, "1999-1-1"},     {1, 0, 2000, 2, 2, 0, "2000-1-15"},
        {1, 0, 2000, 40000, 1, 0, "1930-2-1"},    // amounts above 32767 move back
        {1, 0, 2000, 9363, 2, 0, "2000-1-6"},      // 9363 * 7 = 65541, 5 in 16 bits
        {1, 0, 2000, 5000, 2, 0, "1916-5-25"},     // 35000 days, -30536 as a signed count
        {1, 0, 2000, 1, 5, 0x15606, "2000-1-1"},   {1, 0, 2000, 1, 0, 0x15606, "2000-1-1"},
    };
    for (const auto &c : cases) {
        DX_DATE src = make(c.day, c.month, c.year);
        SCOPED_TRACE(text(src) + " + " + std::to_string(c.amount) + " unit " + std::to_string(c.unit));
        DX_DATE out;
        std::memset(&out, 0x11, sizeof out);
        EXPECT_EQ(DX_DateCompute(&src, c.amount, c.unit, &out), c.status);
        EXPECT_EQ(text(out), c.expected);
        EXPECT_EQ(DX_DateCompute(&src, c.amount, c.unit, &src), c.status);  // in place
        EXPECT_EQ(text(src), c.expected);
    }
    DX_DATE d = make(1, 0, 2000);
    EXPECT_EQ(DX_DateCompute(nullptr, 1, 1, &d), 0x15605u);
    EXPECT_EQ(DX_DateCompute(&d, 1, 1, nullptr), 0x15605u);
}

TEST(Date, CompareIsARawDifference)
{
    struct Case {
        U16 da, ma, ya, db, mb, yb;
        S16 diff;
    } cases[] = {
        {1, 0, 2005, 1, 0, 2003, 2},  {31, 11, 2004, 1, 0, 2005, -1}, {1, 11, 2005, 1, 0, 2005, 11},
        {9, 3, 2005, 1, 3, 2005, 8},  {9, 3, 2005, 9, 3, 2005, 0},    {1, 0, 65535, 1, 0, 0, -1},  // 16 bits
        {1, 0, 40000, 1, 0, 0, 40000 - 65536},
    };
    for (const auto &c : cases) {
        DX_DATE a = make(c.da, c.ma, c.ya), b = make(c.db, c.mb, c.yb);
        SCOPED_TRACE(text(a) + " vs " + text(b));
        S16 diff = 123;
        U16 same = 7;
        EXPECT_EQ(DX_DateCompare(&a, &b, &diff), 0u);
        EXPECT_EQ(diff, c.diff);
        EXPECT_EQ(DX_DateIdentical(&a, &b, &same), 0u);
        EXPECT_EQ(same, c.diff == 0 ? 1 : 0);
    }
    DX_DATE a = make(1, 0, 2000);
    a.flags = 5;
    a.reserved = 0x12345678;
    DX_DATE b;
    EXPECT_EQ(DX_DateCopy(&b, &a), 0u);
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
    EXPECT_EQ(DX_DateCopy(nullptr, &a), 0u);
}

TEST(Date, NullPointersAndSmallGetters)
{
    DX_DATE d = make(1, 0, 2000);
    U16 v = 0;
    S16 s = 0;
    EXPECT_EQ(DX_DateGet(nullptr, &v, &v, &v), 0x15605u);
    EXPECT_EQ(DX_DateGet(&d, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(DX_DateGetDayId(nullptr, &v), 0x15605u);
    EXPECT_EQ(DX_DateGetDayId(&d, nullptr), 0x15605u);
    EXPECT_EQ(DX_DateGetDayOfWeek(&d, nullptr), 0x15605u);
    EXPECT_EQ(DX_DateGetWeekOfYear(nullptr, &v), 0x15605u);
    EXPECT_EQ(DX_DateGetWeekOfMonth(&d, nullptr), 0x15605u);
    EXPECT_EQ(DX_DateCompare(&d, nullptr, &s), 0x15605u);
    EXPECT_EQ(DX_DateCompare(&d, &d, nullptr), 0x15605u);
    EXPECT_EQ(DX_DateIdentical(&d, &d, nullptr), 0x15605u);
    EXPECT_EQ(DX_DateOffset(nullptr, 1), 0x15605u);
    EXPECT_EQ(DX_DateLeapYear(2000, nullptr), 0u);
    EXPECT_EQ(DX_DateGetNumDaysInYear(2000, nullptr), 0x15605u);
    v = 42;
    EXPECT_EQ(DX_DateGetNumDaysInMonth(12, 2000, &v), 0x15603u);
    EXPECT_EQ(v, 42);
    EXPECT_EQ(DX_DateGetNumDaysInMonth(1, 1900, &v), 0u);
    EXPECT_EQ(v, 28);
    EXPECT_EQ(DX_DateGetNumDaysInYear(2400, &v), 0u);
    EXPECT_EQ(v, 366);
    EXPECT_EQ(DX_DateLeapYear(0, &v), 0u);
    EXPECT_EQ(v, 1);
}

TEST(Date, WeekdayList)
{
    rqtest::LeakCheck leaks;
    HLIST list = 0;
    ASSERT_EQ(DX_DateListOfWeekDaysCreate(&list, 0), 0u);
    U32 v = 0;
    EXPECT_EQ(DX_ListGetValue(list, &v, DX_LIST_VALUE_ID_SIZE), 0u);
    EXPECT_EQ(v, 2u);
    EXPECT_EQ(DX_ListGetValue(list, &v, DX_LIST_VALUE_FLAGS), 0u);
    EXPECT_EQ(v & 0x08u, 0x08u);
    U16 sunday = 0;
    EXPECT_EQ(DX_ListAddLast(list, &sunday, nullptr), 0u);
    EXPECT_EQ(DX_ListDestroy(&list), 0u);
    ASSERT_EQ(DX_DateListOfWeekDaysCreate(&list, 24), 0u);  // the argument is the data size
    EXPECT_EQ(DX_ListGetValue(list, &v, DX_LIST_VALUE_DATA_SIZE), 0u);
    EXPECT_EQ(v, 24u);
    EXPECT_EQ(DX_ListDestroy(&list), 0u);
}

// ---- agreement with Python's datetime ----

namespace {

// Python writes, computed from its own calendar:
//   "D y m d dow week" for every day from 1 January 1991 to 5 June 2170 (day
//       IDs 1..65535 in order; dow 0 = Sunday; week from isocalendar());
//   "W y m d id" for every 97th day from there to 9999, the ID taken modulo
//       2^16;
//   "O y m d n y2 m2 d2" for random dates of years 1..9999 moved by n days.
const char *kReferenceScript = R"(
import datetime as t, random
d = t.date(1991, 1, 1); e = t.date(2170, 6, 5); o = []
while d <= e:
    o.append('D %d %d %d %d %d' % (d.year, d.month, d.day, d.isoweekday() % 7, d.isocalendar()[1])); d += t.timedelta(1)
d = t.date(2170, 6, 6); one = t.date(1991, 1, 1).toordinal() - 1
while d < t.date(9999, 9, 1):
    o.append('W %d %d %d %d' % (d.year, d.month, d.day, (d.toordinal() - one) % 65536)); d += t.timedelta(97)
r = random.Random(7)
for i in range(20000):
    a = t.date.fromordinal(r.randint(1, t.date(9999, 12, 31).toordinal())); n = r.choice([r.randint(-32768, 32767), r.randint(-60, 60), r.randint(-3000000, 3000000)])
    try: b = a + t.timedelta(n)
    except OverflowError: continue
    o.append('O %d %d %d %d %d %d %d' % (a.year, a.month, a.day, n, b.year, b.month, b.day))
print('\n'.join(o))
)";

struct Reference {
    bool ok = false;
    std::string path;
};

const Reference &reference()
{
    static Reference ref = [] {
        Reference r;
        static rqtest::TempDir dir;
        r.path = dir.file("dates.txt");
        std::string script = dir.file("dates.py");
        FILE *f = std::fopen(script.c_str(), "w");
        if (f == nullptr)
            return r;
        std::fputs(kReferenceScript, f);
        std::fclose(f);
        std::string cmd = "python3 " + script + " > " + r.path + " 2>/dev/null";
        r.ok = std::system(cmd.c_str()) == 0;
        return r;
    }();
    return ref;
}

}  // namespace

TEST(DateReference, EveryDayFrom1991To2170)
{
    const Reference &ref = reference();
    if (!ref.ok)
        GTEST_SKIP() << "python3 not available";
    FILE *f = std::fopen(ref.path.c_str(), "r");
    ASSERT_NE(f, nullptr);
    unsigned y, m, d, dow, week;
    U16 expectedId = 0;
    DX_DATE walker = make(1, 0, 1991);
    std::string disagreements;
    while (std::fscanf(f, " D %u %u %u %u %u", &y, &m, &d, &dow, &week) == 5) {
        ++expectedId;
        DX_DATE date = make((U16)d, (U16)(m - 1), (U16)y);
        U16 id = 0, ourDow = 9, ourWeek = 0;
        ASSERT_EQ(DX_DateGetDayId(&date, &id), 0u);
        ASSERT_EQ(id, expectedId) << text(date);
        ASSERT_EQ(DX_DateGetDayOfWeek(&date, &ourDow), 0u);
        ASSERT_EQ(ourDow, dow) << text(date);
        ASSERT_EQ(DX_DateGetWeekOfYear(&date, &ourWeek), 0u);
        if (ourWeek != week) {
            // Which step of the week rule decided: 3 (the plain count), 4
            // (week 0: last week of the year before) or 5 (week 53 into week 1).
            DX_DATE jan1 = make(1, 0, (U16)y);
            U16 j = 0, w = 0;
            DX_DateGetDayId(&jan1, &j);
            DX_DateGetDayOfWeek(&jan1, &w);
            int start = w == 0 ? j + 1 : w <= 4 ? j - w + 1 : j - w + 8;
            int plain = (id - start + 7) / 7;
            disagreements += text(date) + ": ours " + std::to_string(ourWeek) + ", ISO " + std::to_string(week) +
                             ", step " + (plain == 0 ? "4" : plain == 53 ? "5" : "3") + "\n";
        }
        // The walk by DX_DateTomorrow meets the same dates.
        ASSERT_EQ(text(walker), text(date));
        ASSERT_EQ(DX_DateTomorrow(&walker), 0u);
    }
    EXPECT_EQ(expectedId, 65535);
    EXPECT_EQ(disagreements, "");  // the week rule and ISO 8601 agree on every day
    // Past 5 June 2170 the 16-bit ID wraps; an ID of 0 is never written out.
    unsigned id;
    int wrapped = 0;
    while (std::fscanf(f, " W %u %u %u %u", &y, &m, &d, &id) == 4) {
        DX_DATE date = make((U16)d, (U16)(m - 1), (U16)y);
        U16 got = 0xBEEF;
        ASSERT_EQ(DX_DateGetDayId(&date, &got), 0u);
        ASSERT_EQ(got, id == 0 ? 0xBEEF : id) << text(date);
        ++wrapped;
    }
    EXPECT_GT(wrapped, 28000);
    int offsets = 0;
    int n;
    unsigned y2, m2, d2;
    while (std::fscanf(f, " O %u %u %u %d %u %u %u", &y, &m, &d, &n, &y2, &m2, &d2) == 7) {
        DX_DATE date = make((U16)d, (U16)(m - 1), (U16)y);
        DX_DATE expected = make((U16)d2, (U16)(m2 - 1), (U16)y2);
        DX_DATE far = date;
        ASSERT_EQ(DX_DateOffsetFar(&far, n), 0u) << text(date) << " + " << n;
        ASSERT_EQ(text(far), text(expected)) << text(date) << " + " << n;
        if (n >= -32768 && n <= 32767) {
            ASSERT_EQ(DX_DateOffset(&date, (S16)n), 0u);
            ASSERT_EQ(text(date), text(expected)) << n;
        }
        ++offsets;
    }
    EXPECT_GT(offsets, 15000);
    std::fclose(f);
}
