// Calendar dates: validation, the day ID and its 16-bit wrap, weeks, moving by
// days, months and years, comparison, and agreement with Python's datetime.
#include "rqtest.h"

#include "rqcore/date.h"
#include "rqcore/lists.h"
#include "rqcore/nls.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

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
    struct Case { U16 day, month, year; U32 status; } cases[] = {
        {29, 1, 1900, 0x15604}, {29, 1, 2000, 0},  {40, 12, 2000, 0x15602}, {0, 0, 2000, 0x15601},
        {32, 0, 2000, 0x15601}, {31, 3, 2000, 0x15604}, {31, 11, 0, 0}, {29, 1, 0, 0}, {31, 0, 65535, 0},
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
    // Every day from 1991 to the wrap after 5 June 2170 is checked against
    // Python below; here the ends and the cache flag.
    struct Case { U16 day, month, year; U32 status; U16 id; } cases[] = {  // id 0xBEEF: the variable untouched
        {31, 11, 1990, 0x1560C, 0xBEEF}, {6, 5, 2170, 0, 0xBEEF}, {31, 11, 65535, 0, 9590},
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
    d = make(31, 11, 1990);
    EXPECT_EQ(DX_DateGetDayOfWeek(&d, &dow), 0x1560Cu);
    EXPECT_EQ(dow, 5);
}

TEST(Date, WeeksOfYearAndMonth)
{
    // Weeks of the year are checked against Python for every day below; here
    // the cache they fill, and the refusal before 1991.
    DX_DATE d = make(1, 0, 2005);
    U16 week = 0;
    EXPECT_EQ(DX_DateGetWeekOfYear(&d, &week), 0u);
    EXPECT_EQ(d.weekOfYear * 100 + week, 5353);
    EXPECT_TRUE(d.flags & DX_DATE_HAS_WEEK_OF_YEAR);
    d = make(31, 11, 1990);
    EXPECT_EQ(DX_DateGetWeekOfYear(&d, nullptr), 0x1560Cu);
    // Weeks of the month count Sundays from 0.  June 2008 starts on a Sunday,
    // May 2008 on a Thursday, August 2008 on a Friday.
    struct Month { U16 day, month, year, week; } months[] = {
        {7, 5, 2008, 0}, {8, 5, 2008, 1}, {3, 4, 2008, 0}, {4, 4, 2008, 1}, {31, 7, 2008, 5}};
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
    struct Case { U16 day, month, year; S32 days; const char *expected; } cases[] = {
        // Python checks years 1..9999; these are the year-0 and 16-bit-year
        // wraps and the ends of the 16- and 32-bit counts.
        {1, 0, 1, -1, "0-12-31"},          {1, 0, 0, -1, "65535-12-31"},           {31, 11, 65535, 1, "0-1-1"},
        {15, 6, 1900, 32767, "1990-4-1"},  {15, 6, 1900, -32768, "1810-10-27"},
        {1, 0, 2000, 2147483647, "48906-8-23"}, {1, 0, 2000, -2147483647 - 1, "20629-5-10"},
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
    struct Case { U32 (*op)(DX_DATE *); U16 day, month, year; const char *expected; } cases[] = {
        {DX_DatePrevMonth, 31, 2, 2004, "2004-2-29"},       {DX_DatePrevMonth, 15, 0, 2005, "2004-12-15"},
        {DX_DateNextMonth, 31, 11, 2005, "2006-1-31"},      {DX_DateNextMonth, 31, 0, 2005, "2005-2-28"},
        {DX_DateYesterday, 1, 2, 2004, "2004-2-29"},        {DX_DateYesterday, 1, 0, 1991, "1990-12-31"},
        {DX_DateTomorrow, 31, 11, 65535, "0-1-1"},          {DX_DateSetToLastDayOfMonth, 3, 1, 2000, "2000-2-29"},
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
    // expected: the result record, also when the move fails
    struct Case { U16 day, month, year, amount, unit; U32 status; const char *expected; } cases[] = {
        {31, 0, 2005, 1, 3, 0, "2005-2-28"},       {31, 0, 2004, 1, 3, 0, "2004-2-29"},
        {15, 11, 2004, 65535, 3, 0, "7466-3-15"},  {29, 1, 2004, 1, 4, 0x15604, "2004-2-29"},
        {1, 0, 2000, 65535, 4, 0, "1999-1-1"},
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
    struct Case { U16 da, ma, ya, db, mb, yb; S16 diff; } cases[] = {
        {1, 0, 2005, 1, 0, 2003, 2},  {31, 11, 2004, 1, 0, 2005, -1}, {1, 11, 2005, 1, 0, 2005, 11},
        {9, 3, 2005, 1, 3, 2005, 8},  {9, 3, 2005, 9, 3, 2005, 0},    {1, 0, 65535, 1, 0, 0, -1},  // 16 bits
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
    EXPECT_EQ(DX_DateCopy(nullptr, &a), 0u);
}

TEST(Date, NullPointersAndSmallGetters)
{
    DX_DATE d = make(1, 0, 2000);
    U16 v = 0;
    S16 s = 0;
    EXPECT_EQ(DX_DateGet(nullptr, &v, &v, &v), 0x15605u);
    EXPECT_EQ(DX_DateGet(&d, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(DX_DateGetDayId(&d, nullptr), 0x15605u);
    EXPECT_EQ(DX_DateCompare(&d, nullptr, &s), 0x15605u);
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
    U32 id = 0, flags = 0, data = 0;
    DX_ListGetValue(list, &id, DX_LIST_VALUE_ID_SIZE);
    DX_ListGetValue(list, &flags, DX_LIST_VALUE_FLAGS);
    EXPECT_EQ(id * 100 + (flags & 0x08u), 208u);
    DX_ListDestroy(&list);
    ASSERT_EQ(DX_DateListOfWeekDaysCreate(&list, 24), 0u);  // the argument is the data size
    DX_ListGetValue(list, &data, DX_LIST_VALUE_DATA_SIZE);
    EXPECT_EQ(data, 24u);
    DX_ListDestroy(&list);
    rqtest::allocationSweep(
        [] {
            HLIST l = 0;
            U32 rc = DX_DateListOfWeekDaysCreate(&l, 0);
            if (rc == 0)
                DX_ListDestroy(&l);
            return rc;
        },
        0x15041u);
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

}  // namespace

TEST(DateReference, EveryDayFrom1991To2170)
{
    rqtest::TempDir dir;
    rqtest::writeFile(dir.file("dates.py"), kReferenceScript);
    std::vector<std::string> lines = rqtest::splitLines(
        rqtest::commandOutput(std::string("python3 ").append(dir.file("dates.py")).append(" 2>/dev/null")));
    if (lines.empty())
        GTEST_SKIP() << "python3 not available";
    U16 expectedId = 0;
    int wrapped = 0, offsets = 0;
    DX_DATE walker = make(1, 0, 1991);
    std::string disagreements;
    for (const std::string &line : lines) {
        unsigned y, m, d, a, b, y2, m2, d2;
        int n;
        if (std::sscanf(line.c_str(), "D %u %u %u %u %u", &y, &m, &d, &a, &b) == 5) {  // a: day of week, b: week
            DX_DATE date = make((U16)d, (U16)(m - 1), (U16)y);
            U16 id = 0, dow = 9, week = 0;
            ASSERT_EQ(DX_DateGetDayId(&date, &id), 0u);
            ASSERT_EQ(id, ++expectedId) << line;
            ASSERT_EQ(DX_DateGetDayOfWeek(&date, &dow), 0u);
            ASSERT_EQ(dow, a) << line;
            ASSERT_EQ(DX_DateGetWeekOfYear(&date, &week), 0u);
            if (week != b)
                disagreements.append(line).append(": ours ").append(std::to_string(week)).append("\n");
            // The walk by DX_DateTomorrow meets the same dates.
            ASSERT_EQ(text(walker), text(date));
            ASSERT_EQ(DX_DateTomorrow(&walker), 0u);
        } else if (std::sscanf(line.c_str(), "W %u %u %u %u", &y, &m, &d, &a) == 4) {
            // Past 5 June 2170 the 16-bit ID wraps; an ID of 0 is never written out.
            DX_DATE date = make((U16)d, (U16)(m - 1), (U16)y);
            U16 got = 0xBEEF;
            ASSERT_EQ(DX_DateGetDayId(&date, &got), 0u);
            ASSERT_EQ(got, a == 0 ? 0xBEEF : a) << line;
            ++wrapped;
        } else if (std::sscanf(line.c_str(), "O %u %u %u %d %u %u %u", &y, &m, &d, &n, &y2, &m2, &d2) == 7) {
            DX_DATE date = make((U16)d, (U16)(m - 1), (U16)y), far = date;
            std::string expected = text(make((U16)d2, (U16)(m2 - 1), (U16)y2));
            ASSERT_EQ(DX_DateOffsetFar(&far, n), 0u) << line;
            ASSERT_EQ(text(far), expected) << line;
            if (n >= -32768 && n <= 32767) {
                ASSERT_EQ(DX_DateOffset(&date, (S16)n), 0u);
                ASSERT_EQ(text(date), expected) << line;
            }
            ++offsets;
        }
    }
    EXPECT_EQ(expectedId, 65535);
    EXPECT_EQ(disagreements, "");  // the week rule and ISO 8601 agree on every day
    EXPECT_GT(wrapped, 28000);
    EXPECT_GT(offsets, 15000);
}

// ---- printing ----

namespace {

// The sample catalog (data/nls/en_US.profile) for the names and layouts.
class DateFormat : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(DX_NLSListCreate(&nls, 0, RQ_DATA_DIR "/nls/en_US.profile"), 0u); }
    void TearDown() override { DX_NLSListDestroy(&nls); }

    // Prints into an exact-size heap buffer pre-filled with junk.
    // Size 0 must write nothing, not even the sentinel's place.
    std::string print(const char *format, DX_DATE date, U32 size, U32 *status, HLIST catalog = ~0u)
    {
        std::vector<char> buffer(size + 1);
        rqtest::fillJunk(buffer.data(), size + 1);
        char sentinel = buffer[0];
        *status = DX_DateFormat(buffer.data(), size, format, &date, catalog == ~0u ? nls : catalog);
        if (size == 0)
            return buffer[0] == sentinel ? "(size 0)" : "(written)";
        const char *end = static_cast<const char *>(std::memchr(buffer.data(), '\0', size));
        return end ? std::string(static_cast<const char *>(buffer.data()), end) : "(unterminated)";
    }

    HLIST nls = 0;
    DX_DATE jan5 = make(5, 0, 2005);  // a Wednesday; January 2005 starts on a Saturday
};

}  // namespace

TEST_F(DateFormat, FieldsWidthsAndEscapes)
{
    DX_DATE year0 = make(1, 0, 0), year65535 = make(31, 11, 65535), poked = jan5;
    poked.month = 12;
    DX_DATE day32 = jan5;
    day32.day = 32;
    const char signedPair[] = {'%', '\x9C', '\x93', '\0'};  // (-100) * (-109) = 'd' * 'm' with signed chars
    struct Case { const char *format; const DX_DATE *date; U32 status; const char *out; } cases[] = {
        {"%md.%ym.%EY", &jan5, 0, "5.0.2005"},  // either order of the letters; the month prints 0-based
        {"%dn %DN %mn %MN", &jan5, 0, "Wed Wednesday Jan January"},
        {"%X}|%B[|%U4", &jan5, 0, "Wed|January|Wednesday, January 5, 2005"},  // same products
        {"[%da] [%DA]", &jan5, 0, "[Jan 5, 2005] [Wednesday, January 5, 2005]"},
        {"%dw %*dw %wm %*wm %ye %*ye %YE", &jan5, 0, "3 3 1 1 5  5 2005"},
        {"%5dm|%-5dm|%+5dm|%-*dm|%+*dm|%1YE|%-*DN|", &jan5, 0, "    5|5    |    5|5 | 5|2005|Wednesday|"},
        {"%--3dm|%-+3dm|%007dm", &jan5, 0, "  5|5  |      5"},
        {"%14da|%-14da|", &jan5, 0, "   Jan 5, 2005|Jan 5, 2005   |"},
        {"a\\nb\\tc\\%\\\\d\\q", &jan5, 0, "a\nb\tc%\\dq"}, {signedPair, &jan5, 0, "5"},
        {"%YE %ye %dm %my", &year65535, 0, "65535 35 31 11"}, {"%YE %ye", &year0, 0, "0 0"},
        {"%dm %my", &poked, 0, "5 12"}, {"%dm", &day32, 0, "32"},
        // failures: the output is always cut to nothing
        {"abc%xx", &jan5, 0x16001, ""}, {"abc\\", &jan5, 0x16001, ""}, {"abc%-5", &jan5, 0x16001, ""},
        {"%dw", &year0, 0x1560C, ""},   // no day of week before 1991
        {"%mn", &poked, 0x15B01, ""},   // no 13th month name
        {"%wm", &poked, 0x15602, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.format);
        U32 status = 0;
        EXPECT_EQ(print(c.format, *c.date, 200, &status), c.out);
        EXPECT_EQ(status, c.status);
    }
}

TEST_F(DateFormat, EveryBufferSize)
{
    // A literal character uses two places and a field its length plus one,
    // out of size - 1: " 5/ 0/2005" needs 3 + 2 + 3 + 2 + 5 = 15 places, so
    // 16 bytes.  "%DA" needs 26 + 1 places.
    struct Case { const char *format; U32 needed; const char *out; } cases[] = {
        {"%*dm/%*my/%*YE", 16, " 5/ 0/2005"}, {"ab", 5, "ab"}, {"%DA", 28, "Wednesday, January 5, 2005"}, {"", 1, ""},
    };
    for (const auto &c : cases) {
        for (U32 size = 0; size <= c.needed + 2; ++size) {
            SCOPED_TRACE(::testing::Message() << c.format << " size " << size);
            U32 status = 0;
            std::string out = print(c.format, jan5, size, &status);
            EXPECT_EQ(status, size < c.needed ? 0x16002u : 0u);
            EXPECT_EQ(out, size == 0 ? "(size 0)" : size < c.needed ? "" : c.out);
        }
    }
}

TEST_F(DateFormat, ExtremeWidths)
{
    // 32767 blanks-and-digit places plus the closing place; "32768" reads as
    // -32768 in 16 bits, and negating it leaves it there: both left-align.
    U32 status = 0;
    EXPECT_EQ(print("%32767dm", jan5, 32769, &status), std::string(32766, ' ') + "5");
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(print("%32767dm", jan5, 32768, &status), "");
    EXPECT_EQ(status, 0x16002u);
    for (const char *format : {"%-32768dm", "%32768dm"}) {
        SCOPED_TRACE(format);
        EXPECT_EQ(print(format, jan5, 32770, &status), std::string("5").append(32767, ' '));
        EXPECT_EQ(status, 0u);
    }
}

TEST_F(DateFormat, CatalogLayoutsAndNulls)
{
    rqtest::TempDir dir;
    rqtest::writeFile(dir.file("odd.profile"), "[datef]\ndate = \"%da\"\nDATE = \"%60dm%60dm\"\n");
    HLIST odd = 0;
    ASSERT_EQ(DX_NLSListCreate(&odd, 0, dir.file("odd.profile").c_str()), 0u);
    U32 status = 0;
    EXPECT_EQ(print("x%da", jan5, 200, &status, odd), "");  // a layout naming itself stops
    EXPECT_EQ(status, 0x16001u);
    EXPECT_EQ(print("x%DA", jan5, 200, &status, odd), "");  // the layout's 100-byte area is full
    EXPECT_EQ(status, 0x16002u);
    EXPECT_EQ(print("x%dn", jan5, 200, &status, odd), "");  // no day list: the catalog's code
    EXPECT_EQ(status, 0x15B05u);
    DX_NLSListDestroy(&odd);
    EXPECT_EQ(print("%dm", jan5, 200, &status, 0), "5");  // no catalog needed for numbers
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(print("%dn", jan5, 200, &status, 0), "");
    EXPECT_NE(status, 0u);

    char buffer[16] = "x";
    EXPECT_EQ(DX_DateFormat(nullptr, 16, "%dm", &jan5, nls), 0x15605u);
    EXPECT_EQ(DX_DateFormat(buffer, 16, nullptr, &jan5, nls), 0x15605u);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(DX_DateFormat(buffer, 16, "%dm", nullptr, nls), 0x15605u);
    // Cat appends after the text there and keeps it on failure.
    std::strcpy(buffer, "on ");
    EXPECT_EQ(DX_DateFormatCat(buffer, sizeof buffer, "%mn %dm", &jan5, nls), 0u);
    EXPECT_STREQ(buffer, "on Jan 5");
    EXPECT_EQ(DX_DateFormatCat(buffer, sizeof buffer, "%xx", &jan5, nls), 0x16001u);
    EXPECT_STREQ(buffer, "on Jan 5");
    EXPECT_EQ(DX_DateFormatCat(buffer, 9, "%dm", &jan5, nls), 0x16002u);  // no place after the 8 characters
    EXPECT_STREQ(buffer, "on Jan 5");
    std::memset(buffer, 'J', sizeof buffer);
    EXPECT_EQ(DX_DateFormatCat(buffer, sizeof buffer, "%dm", &jan5, nls), 0x16002u);  // unterminated: no room
    EXPECT_EQ(buffer[15], 'J');
}
