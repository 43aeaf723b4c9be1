// Times and local times: time IDs against Python's datetime, the printers,
// and local times through an in-memory zone against Python's zoneinfo.
#include "rqtest.h"

#include "rqcore/date.h"
#include "rqcore/lists.h"
#include "rqcore/nls.h"
#include "rqcore/time.h"
#include "rqcore/tz.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

namespace {

DX_TIME makeTime(U16 day, U16 month, U16 year, U16 h, U16 mi, U16 s)
{
    DX_DATE d;
    DX_TIME t;
    std::memset(&t, 0x5A, sizeof t);
    EXPECT_EQ(DX_DateSet(&d, day, month, year), 0u);
    EXPECT_EQ(DX_TimeSet(&t, &d, h, mi, s), 0u);
    return t;
}

// "YYYY-MM-DD hh:mm:ss" with the month 1-based, as Python prints it.
std::string show(const DX_TIME &t)
{
    char text[40];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", t.date.year, t.date.month + 1u, t.date.day,
                  t.seconds / 3600, t.seconds / 60 % 60, t.seconds % 60);
    return text;
}

U32 timeIdOf(DX_TIME t)
{
    U32 id = 0xA5A5A5A5u;
    EXPECT_EQ(DX_TimeGetTimeId(&t, &id), 0u);
    return id;
}

DX_TIME fromId(U32 id)
{
    DX_TIME t;
    EXPECT_EQ(DX_TimeSetFromTimeId(&t, id), 0u);
    return t;
}

// The lines a Python script prints (none when python3 or a module is absent).
std::vector<std::string> pythonLines(const std::string &script)
{
    std::string command = std::string("python3 -c \"").append(script).append("\" 2>/dev/null");
    return rqtest::splitLines(rqtest::commandOutput(command));
}

// ---- times ----

TEST(Time, SetValidatesInOrderAndResetsTheCallersDate)
{
    // A refused time resets the caller's own date to 1 January 1991 and the
    // time's seconds to 0; the checks run hour, minute, second.
    struct Case { U16 h, mi, s; U32 status; } cases[] = {
        {0, 0, 0, 0}, {23, 59, 59, 0}, {24, 60, 60, 0x15C01}, {23, 60, 60, 0x15C02}, {23, 59, 60, 0x15C03},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.h << ":" << c.mi << ":" << c.s);
        DX_DATE d;
        DX_DateSet(&d, 29, 1, 2004);
        DX_TIME t = makeTime(5, 6, 2005, 7, 8, 9);
        EXPECT_EQ(DX_TimeSet(&t, &d, c.h, c.mi, c.s), c.status);
        if (c.status == 0) {  // and back through the getter
            DX_DATE back;
            U16 h = 99, mi = 99, s = 99;
            EXPECT_EQ(DX_TimeGet(&t, &back, &h, &mi, &s), 0u);
            EXPECT_EQ(back.day * 10000 + back.year, 292004);
            EXPECT_EQ(h * 10000 + mi * 100 + s, c.h * 10000 + c.mi * 100 + c.s);
        } else {
            EXPECT_EQ(t.seconds, 0u);
            EXPECT_EQ(d.day * 100000 + d.month * 10000 + d.year, 101991);
            EXPECT_EQ(t.date.year, 2005);  // the time's own date is not touched
        }
    }
    DX_DATE d;
    DX_TIME t = makeTime(1, 0, 2000, 1, 1, 1);
    EXPECT_EQ(DX_TimeSet(nullptr, &d, 0, 0, 0), 0x15605u);
    EXPECT_EQ(DX_TimeSet(&t, nullptr, 0, 0, 0), 0x15605u);
    EXPECT_EQ(DX_TimeGet(&t, nullptr, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(DX_TimeGet(nullptr, &d, nullptr, nullptr, nullptr), 0x15605u);
}

TEST(Time, TimeIdEdges)
{
    // Expected values from Python: datetime(1991, 1, 1) + timedelta(seconds=id).
    struct Case { U32 id; const char *when; } cases[] = {
        {0, "1991-01-01 00:00:00"}, {32767u * 86400 + 86399, "2080-09-17 23:59:59"},
        // From 32768 days on the day count goes through a signed 16-bit offset
        // and runs backwards from 1991 (callers rely on this exact result):
        // timedelta(days=days - 65536).
        {32768u * 86400, "1901-04-15 00:00:00"}, {4294967295u, "1947-09-03 06:28:15"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(show(fromId(c.id)), c.when) << c.id;
    // The largest time ID is 7 February 2127 06:28:15; the next second wraps.
    EXPECT_EQ(timeIdOf(makeTime(7, 1, 2127, 6, 28, 15)), 4294967295u);
    EXPECT_EQ(timeIdOf(makeTime(7, 1, 2127, 6, 28, 16)), 0u);
    DX_TIME t = makeTime(31, 11, 2000, 23, 59, 59);
    U32 minutes = 0;
    EXPECT_EQ(DX_TimeGetTimeIdInMinutes(&t, &minutes), 0u);
    EXPECT_EQ(minutes, timeIdOf(t) / 60);

    // Before 1991 there is no time ID: the date code, and 0.
    t = makeTime(31, 11, 1990, 23, 59, 59);
    U32 id = 77;
    minutes = 77;
    EXPECT_EQ(DX_TimeGetTimeId(&t, &id), 0x1560Cu);
    EXPECT_EQ(DX_TimeGetTimeIdInMinutes(&t, &minutes), 0x1560Cu);
    EXPECT_EQ(id + minutes, 0u);
    EXPECT_EQ(DX_TimeGetTimeId(&t, nullptr), 0x15605u);
    EXPECT_EQ(DX_TimeGetTimeId(nullptr, &id), 0x15605u);
    EXPECT_EQ(DX_TimeSetFromTimeId(nullptr, 0), 0x15605u);
}

TEST(Time, TimeIdsAgreeWithPythonDatetime)
{
    // 2000 random instants over the whole 32-bit range, computed by Python:
    // the true date and time, and the date that the 16-bit day offset gives.
    std::vector<std::string> lines = pythonLines(
        "import random, datetime as d\n"
        "random.seed(1991); e = d.datetime(1991, 1, 1)\n"
        "for i in range(2000):\n"
        "  n = random.randrange(2**32) if i % 2 else random.randrange(32768 * 86400)\n"
        "  days = n // 86400; s = n % 86400\n"
        "  w = e + d.timedelta(days=days - 65536 if days >= 32768 else days, seconds=s)\n"
        "  t = e + d.timedelta(seconds=n)\n"
        "  print(n, t.strftime('%Y-%m-%d %H:%M:%S'), w.strftime('%Y-%m-%d %H:%M:%S'))\n");
    if (lines.empty())
        GTEST_SKIP() << "python3 not available";
    ASSERT_EQ(lines.size(), 2000u);
    for (const std::string &line : lines) {
        SCOPED_TRACE(line);
        unsigned long long n = 0;
        int y, mo, d, h, mi, s;
        ASSERT_EQ(std::sscanf(line.c_str(), "%llu %d-%d-%d %d:%d:%d", &n, &y, &mo, &d, &h, &mi, &s), 7);
        EXPECT_EQ(show(fromId(static_cast<U32>(n))), line.substr(line.size() - 19));
        // The other way: the true date and time give back the time ID.
        EXPECT_EQ(timeIdOf(makeTime(d, mo - 1, y, h, mi, s)), n);
    }
}

TEST(Time, OffsetMovesByElapsedSecondsAndNeverFailsBeforeTheEpoch)
{
    struct Case { DX_TIME t; S32 by; const char *to; } cases[] = {
        {makeTime(31, 11, 1999, 23, 59, 59), 1, "2000-01-01 00:00:00"},
        {makeTime(1, 2, 2004, 0, 0, 0), -1, "2004-02-29 23:59:59"},
        // Before the epoch the sum is taken as an unsigned time ID: 0x15C04 is
        // noted but overwritten, so the call succeeds (callers rely on it).
        // 4294967286 s = 49710 days; through the 16-bit offset, -15826 days.
        {makeTime(1, 0, 1991, 0, 0, 10), -20, "1947-09-03 06:28:06"},
    };
    for (Case &c : cases) {
        SCOPED_TRACE(c.to);
        EXPECT_EQ(DX_TimeOffset(&c.t, c.by), 0u);
        EXPECT_EQ(show(c.t), c.to);
    }
    DX_TIME before = makeTime(31, 11, 1990, 0, 0, 0);
    EXPECT_EQ(DX_TimeOffset(&before, 1), 0x1560Cu);
    EXPECT_EQ(show(before), "1990-12-31 00:00:00");
    EXPECT_EQ(DX_TimeOffset(nullptr, 1), 0x15605u);
}

// ---- printing ----

// A catalog written for the test.
struct Catalog {
    explicit Catalog(const std::string &text)
    {
        rqtest::TempDir dir;
        rqtest::writeFile(dir.file("c.profile"), text);
        status = DX_NLSListCreate(&nls, 0, dir.file("c.profile").c_str());
    }
    ~Catalog() { DX_NLSListDestroy(&nls); }
    HLIST nls = 0;
    U32 status = 0;
};

std::string timeText(const char *format, DX_TIME t, HLIST nls, U32 *status)
{
    char buffer[300];
    rqtest::fillJunk(buffer, sizeof buffer);
    *status = DX_TimeFormat(buffer, sizeof buffer, format, &t, nls);
    return buffer;
}

TEST(TimeFormat, Words)
{
    Catalog catalog("[datef]\nday = {Sunday, Monday, Tuesday, Wednesday, Thursday, Friday, Saturday}\n"
                    "date = %dm/%my\n[timef]\ntime = %h1:%mi %ap\nTIME = %dn %ti:%se\n");
    ASSERT_EQ(catalog.status, 0u);
    DX_TIME morning = makeTime(5, 0, 2005, 9, 5, 7);  // a Wednesday
    struct Case { const char *format; DX_TIME t; U32 status; const char *text; } cases[] = {
        {"%h1 %ap", makeTime(5, 0, 2005, 0, 0, 0), 0, "12 AM"},
        {"%h1 %ap", makeTime(5, 0, 2005, 12, 0, 0), 0, "12 PM"},
        {"%h1 %ap", makeTime(5, 0, 2005, 11, 59, 59), 0, "11 AM"},
        {"%h1 %ap|%h2|%ti", makeTime(5, 0, 2005, 23, 40, 50), 0, "11 PM|23|11:40 PM"},
        {"%pa %h1", morning, 0, "AM 9"},  // the letters in either order
        {"%*h2|%-*h1|%*ap|%-4ap|%3h2", morning, 0, " 9|9 |AM|AM  |  9"},
        // Minutes and seconds are always two digits, whatever the width.
        {"%mi:%se|%5mi|%-5se|%*mi", morning, 0, "05:07|05|07|05"},
        // Date words pass down and are written with the time field's width;
        // "*" means width 0 for them, not the date printer's own.
        {"%*dm|%3dm|%-3md|%YE|%dn|%da", morning, 0, "5|  5|5  |2005|Wednesday|5/0"},
        {"[%12ti]|%TI", morning, 0, "[     9:05 AM]|Wednesday 9:05 AM:07"},
        {"a\\n\\tb\\%\\\\", morning, 0, "a\n\tb%\\"},
        // Unknown words fail with the date printer's code; a lone backslash
        // at the end with the time code; the output is cut to empty.
        {"ok %xx", morning, 0x16001, ""},
        {"ok %", morning, 0x16001, ""},
        {"ok \\", morning, 0x15D01, ""},
    };
    U32 status = 0;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.format);
        EXPECT_EQ(timeText(c.format, c.t, catalog.nls, &status), c.text);
        EXPECT_EQ(status, c.status);
    }
    // Layouts need their catalog entry; nested layouts stop at a fixed depth.
    EXPECT_EQ(timeText("x%ti", morning, 0, &status), "");
    EXPECT_NE(status, 0u);
    Catalog looping("[timef]\ntime = %ti\n");
    EXPECT_EQ(timeText("%ti", morning, looping.nls, &status), "");
    EXPECT_EQ(status, 0x15D01u);
    // "ti" prints its layout into 100 bytes, "TI" into 200: five 20-wide
    // hours need 105 free places.
    Catalog wide("[timef]\ntime = %-20h2%-20h2%-20h2%-20h2%-20h2\nTIME = %-20h2%-20h2%-20h2%-20h2%-20h2\n");
    EXPECT_EQ(timeText("%ti", morning, wide.nls, &status), "");
    EXPECT_EQ(status, 0x15D02u);
    EXPECT_EQ(timeText("%TI", morning, wide.nls, &status).size(), 100u);
    EXPECT_EQ(status, 0u);
    // The sample catalogs' layouts.
    for (auto [file, text] : {std::pair{"en_US", "9:05 AM|9:05:07"}, std::pair{"fr_FR", "9:05|9:05:07"}}) {
        HLIST nls = 0;
        ASSERT_EQ(DX_NLSListCreate(&nls, 0, (std::string(RQ_DATA_DIR) + "/nls/" + file + ".profile").c_str()), 0u);
        EXPECT_EQ(timeText("%ti|%TI", morning, nls, &status), text) << file;
        DX_NLSListDestroy(&nls);
    }
}

// The exact-capacity sweep: every size below the needed one fails with the
// full code and an empty text; size 0 leaves the buffer alone.
template <typename Format>
void capacitySweep(const char *format, const std::string &expected, U32 fullCode, U32 needed, Format &&print)
{
    SCOPED_TRACE(format);
    for (U32 size = 0; size <= needed + 1; ++size) {
        SCOPED_TRACE(size);
        std::vector<char> buffer(size + 1);
        rqtest::fillJunk(buffer.data(), buffer.size());
        char sentinel = buffer[0];
        U32 status = print(buffer.data(), size, format);
        EXPECT_EQ(status, size >= needed ? 0u : fullCode);
        EXPECT_EQ(std::string(size == 0 ? "" : buffer.data()), size >= needed ? expected : "");
        if (size == 0) {
            EXPECT_EQ(buffer[0], sentinel);
        }
    }
}

TEST(TimeFormat, FreePlaceAccountingAndCat)
{
    DX_TIME t = makeTime(5, 0, 2005, 9, 5, 7);
    auto print = [&](char *b, U32 size, const char *format) { return DX_TimeFormat(b, size, format, &t, 0); };
    // A literal costs two places, a field its characters plus one, and the
    // NUL one more: "ab" needs 2 + 2 + 1, "%h2" 1 + 1 + 1.
    capacitySweep("ab", "ab", 0x15D02, 5, print);
    capacitySweep("%h2", "9", 0x15D02, 3, print);
    capacitySweep("%YE", "2005", 0x15D02, 6, print);

    char buffer[12] = "at ";
    EXPECT_EQ(DX_TimeFormatCat(buffer, sizeof buffer, "%h2:%mi", &t, 0), 0u);
    EXPECT_EQ(std::string(buffer), "at 9:05");
    // Full: the appended part is cut, the earlier text stays.
    EXPECT_EQ(DX_TimeFormatCat(buffer, sizeof buffer, "%h2:%mi", &t, 0), 0x15D02u);
    EXPECT_EQ(std::string(buffer), "at 9:05");
    char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(DX_TimeFormatCat(unterminated, sizeof unterminated, "x", &t, 0), 0x15D02u);
    EXPECT_EQ(DX_TimeFormat(nullptr, 10, "x", &t, 0), 0x15605u);
    EXPECT_EQ(DX_TimeFormat(buffer, sizeof buffer, nullptr, &t, 0), 0x15605u);
    EXPECT_EQ(std::string(buffer), "");
    EXPECT_EQ(DX_TimeFormat(buffer, sizeof buffer, "x", nullptr, 0), 0x15605u);
}

// ---- local times ----

DX_LOCALTIME makeLocal(const char *zone, U32 type, DX_TIME t)
{
    DX_LOCALTIME l;
    std::memset(&l, 0, sizeof l);
    l.time = t;
    std::strncpy(l.zoneName, zone, sizeof l.zoneName - 1);
    l.type = type;
    return l;
}

TEST(LocalTimeFormat, ZoneWords)
{
    DX_TIME t = makeTime(5, 0, 2005, 21, 5, 7);
    struct Case { const char *zone; U32 type; const char *format; U32 status; const char *text; } cases[] = {
        {"EST5EDT", 10, "%h2:%mi %tz (%TZ)", 0, "21:05 EST (EST5EDT)"},
        {"EST5EDT", 11, "%tz|%zt|%-5tz|%6TZ", 0, "EDT|EDT|EDT  |EST5EDT"},
        {"EST5EDT", 12, "[%tz]", 0, "[]"},
        {"EST5", 11, "[%tz]", 0, "[]"},
        // Daylight time skips only capitals then digits: a sign or minutes in
        // the offset leave an empty text (callers rely on it), whereas the
        // zone rules read the offset whole.
        {"CET-1CEST", 11, "[%tz]", 0, "[]"},
        {"CET-1CEST", 10, "[%tz]", 0, "[CET]"},
        {"ABCDEFGHIJKLMNOPQRS", 10, "%tz", 0, "ABCDEFGHIJKLMNOPQRS"},
        // Time and date words pass down; "*" is not read here, so "%*TZ"
        // hands "*T" down, where it is refused.
        {"EST5EDT", 10, "%2h2|%4YE|%ap", 0, "21|2005|PM"},
        {"EST5EDT", 10, "%*TZ", 0x16001, ""},
        {"EST5EDT", 10, "x\\", 0x15F01, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.zone << " " << c.type << " " << c.format);
        DX_LOCALTIME l = makeLocal(c.zone, c.type, t);
        char buffer[300];
        rqtest::fillJunk(buffer, sizeof buffer);
        EXPECT_EQ(DX_LocalTimeFormat(buffer, sizeof buffer, c.format, &l, 0, nullptr), c.status);
        EXPECT_STREQ(buffer, c.text);
    }
    DX_LOCALTIME l = makeLocal("EST5EDT", 11, t);
    auto print = [&](char *b, U32 size, const char *format) { return DX_LocalTimeFormat(b, size, format, &l, 0, nullptr); };
    capacitySweep("%tz", "EDT", 0x15F02, 5, print);
    char buffer[20] = "t=";
    EXPECT_EQ(DX_LocalTimeFormatCat(buffer, sizeof buffer, "%TZ", &l, 0, nullptr), 0u);
    EXPECT_EQ(std::string(buffer), "t=EST5EDT");
    EXPECT_EQ(DX_LocalTimeFormat(buffer, sizeof buffer, "x", nullptr, 0, nullptr), 0x15605u);
}

// Central European time as the EU has kept it since 1996: daylight time from
// the last Sunday of March, 2:00 -> 3:00, to the last Sunday of October,
// 3:00 -> 2:00.  Entry times are the wall-clock times after each change.
struct Zone {
    Zone()
    {
        DX_TZENTRY begin{}, end{};
        DX_DateSet(&begin.from, 25, 2, 1996);
        DX_DateSet(&begin.to, 31, 2, 2037);
        DX_DateSet(&end.from, 25, 9, 1996);
        DX_DateSet(&end.to, 31, 9, 2037);
        std::tie(begin.time, begin.adjust, end.time, end.adjust) = std::tuple(3 * 60, -120, 2 * 60, -60);
        status = DX_TZCreateTZRulesSimple(&rules, "CET-1CEST", "Central Europe", "EU", &begin, &end);
    }
    ~Zone() { DX_TZRulesDestroy(&rules); }
    HLIST rules = 0;
    U32 status = 0;
};

TEST(LocalTime, SetChecksTheTypeInForce)
{
    Zone zone;
    ASSERT_EQ(zone.status, 0u);
    // 27 March and 30 October 2005 are the last Sundays of their months.
    struct Case { DX_TIME t; U32 type; U32 status; } cases[] = {
        {makeTime(27, 2, 2005, 1, 59, 59), 10, 0}, {makeTime(27, 2, 2005, 1, 59, 59), 11, 0x16101},
        {makeTime(27, 2, 2005, 2, 0, 0), 10, 0x15704},  // the skipped hour
        {makeTime(27, 2, 2005, 2, 59, 59), 11, 0x15704}, {makeTime(27, 2, 2005, 3, 0, 0), 11, 0},
        {makeTime(30, 9, 2005, 1, 59, 0), 11, 0},
        {makeTime(30, 9, 2005, 2, 0, 0), 10, 0},  // the doubled hour takes either
        {makeTime(30, 9, 2005, 2, 59, 0), 11, 0}, {makeTime(30, 9, 2005, 2, 30, 0), 12, 0},
        {makeTime(30, 9, 2005, 3, 0, 0), 10, 0}, {makeTime(30, 9, 2005, 3, 0, 0), 11, 0x16101},
        {makeTime(1, 0, 1995, 12, 0, 0), 10, 0x15709},  // no entry covers 1995
        {makeTime(31, 11, 1990, 12, 0, 0), 10, 0x1560C},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(show(c.t) + " type " + std::to_string(c.type));
        DX_LOCALTIME l = makeLocal("old", 10, makeTime(1, 0, 2000, 0, 0, 0));
        EXPECT_EQ(DX_LocalTimeSet(&l, &c.t, "CET-1CEST", c.type, zone.rules), c.status);
        // a refused set changes nothing
        EXPECT_EQ(show(l.time), c.status == 0 ? show(c.t) : "2000-01-01 00:00:00");
        EXPECT_STREQ(l.zoneName, c.status == 0 ? "CET-1CEST" : "old");
        EXPECT_EQ(l.type, c.status == 0 ? c.type : 10u);
    }
    // A null zone name keeps the record's own zone.
    DX_LOCALTIME l = makeLocal("CET-1CEST", 10, makeTime(1, 0, 2000, 0, 0, 0));
    DX_TIME summer = makeTime(1, 6, 2005, 12, 0, 0);
    EXPECT_EQ(DX_LocalTimeSet(&l, &summer, nullptr, 11, zone.rules), 0u);
    EXPECT_STREQ(l.zoneName, "CET-1CEST");
    EXPECT_EQ(DX_LocalTimeSet(&l, &summer, "XYZ0", 11, zone.rules), 0x15705u);
    EXPECT_EQ(DX_LocalTimeSet(nullptr, &summer, nullptr, 11, zone.rules), 0x15605u);
    EXPECT_EQ(DX_LocalTimeSet(&l, nullptr, nullptr, 11, zone.rules), 0x15605u);
    U32 id = 0;
    l = makeLocal("", 0, makeTime(1, 0, 2000, 0, 0, 0));
    EXPECT_EQ(DX_LocalTimeSetFromTimeId(&l, timeIdOf(summer), "CET-1CEST", 11, zone.rules), 0u);
    EXPECT_EQ(DX_LocalTimeGetTimeId(&l, &id), 0u);
    EXPECT_EQ(id, timeIdOf(summer));
    EXPECT_EQ(DX_LocalTimeGet(nullptr, nullptr, nullptr, nullptr, nullptr), 0x15605u);
}

TEST(LocalTime, ConversionsRefuseAndLeaveTheResult)
{
    // The conversions themselves are checked against zoneinfo below.
    Zone zone;
    ASSERT_EQ(zone.status, 0u);
    DX_TIME utc = makeTime(1, 0, 2000, 0, 0, 0);
    DX_LOCALTIME both = makeLocal("CET-1CEST", 12, makeTime(30, 9, 2005, 2, 30, 0));
    DX_LOCALTIME l = makeLocal("CET-1CEST", 10, makeTime(15, 6, 2005, 12, 0, 0));  // the wrong type
    EXPECT_EQ(DX_LocalTimeGetUTC(&both, &utc, zone.rules), 0x15703u);
    EXPECT_EQ(show(utc), "2000-01-01 00:00:00");
    EXPECT_EQ(DX_LocalTimeGetUTC(&l, &utc, zone.rules), 0x15702u);
    EXPECT_EQ(show(utc), "2000-01-01 00:00:00");
    EXPECT_EQ(DX_LocalTimeSetFromUTC(&l, &utc, "NOPE0", zone.rules), 0x15705u);
    EXPECT_EQ(show(l.time), "2005-07-15 12:00:00");
    EXPECT_EQ(DX_LocalTimeSetFromUTC(&l, nullptr, nullptr, zone.rules), 0x15605u);
    EXPECT_EQ(DX_LocalTimeGetUTC(&l, nullptr, zone.rules), 0x15605u);
}

TEST(LocalTime, OffsetIsElapsedTimeAcrossAChangeOfClocks)
{
    Zone zone;
    ASSERT_EQ(zone.status, 0u);
    struct Case { DX_TIME from; U32 type; S32 by; const char *to; U32 toType; } cases[] = {
        {makeTime(27, 2, 2005, 1, 30, 0), 10, 3600, "2005-03-27 03:30:00", 11},
        {makeTime(30, 9, 2005, 2, 30, 0), 11, 3600, "2005-10-30 02:30:00", 10},
        {makeTime(30, 9, 2005, 2, 30, 0), 10, -3600, "2005-10-30 02:30:00", 11},
        {makeTime(30, 9, 2005, 2, 30, 0), 12, 60, "2005-10-30 02:30:00", 12},  // 0x15703, unmoved
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(show(c.from) + " by " + std::to_string(c.by));
        DX_LOCALTIME l = makeLocal("CET-1CEST", c.type, c.from);
        EXPECT_EQ(DX_LocalTimeOffset(&l, c.by, zone.rules), c.type == 12 ? 0x15703u : 0u);
        EXPECT_EQ(show(l.time), c.to);
        EXPECT_EQ(l.type, c.toType);
    }
    EXPECT_EQ(DX_LocalTimeOffset(nullptr, 60, zone.rules), 0x15605u);
}

TEST(LocalTime, AgreesWithPythonZoneinfo)
{
    // 1000 UTC instants from 1996 to 2037, half of them within a day of a
    // change of clocks: Berlin's wall-clock time and whether DST is in force.
    std::vector<std::string> lines = pythonLines(
        "import random, datetime as d, zoneinfo\n"
        "random.seed(2005); z = zoneinfo.ZoneInfo('Europe/Berlin'); u = d.timezone.utc\n"
        "e = d.datetime(1991, 1, 1, tzinfo=u); lo = d.datetime(1996, 1, 1, tzinfo=u)\n"
        "hi = d.datetime(2037, 12, 1, tzinfo=u)\n"
        "for i in range(1000):\n"
        "  t = lo + d.timedelta(seconds=random.randrange(int((hi - lo).total_seconds())))\n"
        "  if i % 2:\n"
        "    y = t.year; m = random.choice([3, 10]); last = d.datetime(y, m, 31, 1, tzinfo=u)\n"
        "    last -= d.timedelta(days=(last.weekday() + 1) % 7)\n"
        "    t = last + d.timedelta(seconds=random.randrange(-86400, 86400))\n"
        "  w = t.astimezone(z)\n"
        "  print(int((t - e).total_seconds()), w.strftime('%Y-%m-%d %H:%M:%S'), 11 if w.dst() else 10)\n");
    if (lines.empty())
        GTEST_SKIP() << "python3 with zoneinfo and tzdata not available";
    ASSERT_EQ(lines.size(), 1000u);
    Zone zone;
    ASSERT_EQ(zone.status, 0u);
    for (const std::string &line : lines) {
        SCOPED_TRACE(line);
        unsigned long long id = std::stoull(line);
        DX_TIME utc = fromId(static_cast<U32>(id));
        DX_LOCALTIME l = makeLocal("", 0, utc);
        ASSERT_EQ(DX_LocalTimeSetFromUTC(&l, &utc, "CET-1CEST", zone.rules), 0u);
        EXPECT_EQ(show(l.time) + " " + std::to_string(l.type), line.substr(line.find(' ') + 1));
        // and back again: the type picks the right side of the doubled hour
        DX_TIME back;
        ASSERT_EQ(DX_LocalTimeGetUTC(&l, &back, zone.rules), 0u);
        EXPECT_EQ(timeIdOf(back), id);
    }
}

TEST(LocalTime, NothingLeaksWhenAllocationsFail)
{
    // Rule set made, used and destroyed inside the sweep: whichever
    // allocation fails, nothing stays live (the zones' year table may do
    // without its block, so a failed allocation need not fail the call).
    rqtest::LeakCheck leaks;
    int allocations = rqtest::allocationSweep(
        [] {
            Zone zone;
            if (zone.status != 0)
                return zone.status;
            DX_TIME utc = makeTime(30, 9, 2005, 1, 30, 0);
            DX_LOCALTIME l = makeLocal("", 0, utc);
            U32 rc = DX_LocalTimeSetFromUTC(&l, &utc, "CET-1CEST", zone.rules);
            if (rc == 0)
                rc = DX_LocalTimeOffset(&l, 3600, zone.rules);
            char text[64];
            if (rc == 0)
                rc = DX_LocalTimeFormat(text, sizeof text, "%h2:%mi %tz %TZ", &l, 0, nullptr);
            return rc;
        },
        [](U32) {});
    EXPECT_GT(allocations, 0);
}

}  // namespace
