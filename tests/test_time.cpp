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

// "YYYY-MM-DD hh:mm:ss" with the month 1-based, as Python prints it, both ways.
DX_TIME at(const char *text)
{
    U16 y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
    DX_DATE date;
    DX_TIME t;
    std::memset(&t, 0x5A, sizeof t);
    EXPECT_EQ(std::sscanf(text, "%hu-%hu-%hu %hu:%hu:%hu", &y, &mo, &d, &h, &mi, &s), 6) << text;
    EXPECT_EQ(DX_DateSet(&date, d, static_cast<U16>(mo - 1), y), 0u) << text;
    EXPECT_EQ(DX_TimeSet(&t, &date, h, mi, s), 0u) << text;
    return t;
}

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
    return rqtest::splitLines(rqtest::commandOutput(std::string("python3 -c \"").append(script).append("\" 2>/dev/null")));
}

TEST(Time, SetValidatesInOrderAndResetsTheCallersDate)
{
    // A refused time resets the caller's own date to 1 January 1991 and the
    // time's seconds to 0; the checks run hour, minute, second.
    struct Case { U16 h, mi, s; U32 status; } cases[] = {
        {0, 0, 0, 0}, {23, 59, 59, 0}, {24, 60, 60, 0x15C01}, {23, 60, 60, 0x15C02}, {23, 59, 60, 0x15C03},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.h << ":" << c.mi << ":" << c.s);
        DX_DATE d, back;
        DX_DateSet(&d, 29, 1, 2004);
        DX_TIME t = at("2005-06-05 07:08:09");
        U16 h = 99, mi = 99, s = 99;
        EXPECT_EQ(DX_TimeSet(&t, &d, c.h, c.mi, c.s), c.status);
        EXPECT_EQ(DX_TimeGet(&t, &back, &h, &mi, &s), 0u);
        EXPECT_EQ(d.day * 100000 + d.month * 10000 + d.year, c.status == 0 ? 2912004 : 101991);
        EXPECT_EQ(back.day * 10000 + back.year, c.status == 0 ? 292004 : 52005);  // a refused time keeps its own date
        EXPECT_EQ(h * 10000 + mi * 100 + s, c.status == 0 ? c.h * 10000 + c.mi * 100 + c.s : 0);
    }
    DX_TIME t = at("2000-01-01 01:01:01");
    EXPECT_EQ(DX_TimeGet(&t, nullptr, nullptr, nullptr, nullptr), 0u);  // every output is optional
}

TEST(Time, MissingRecordsAreRefusedByEveryCall)
{
    DX_DATE d;
    DX_TIME t = at("2000-01-01 01:01:01");
    DX_LOCALTIME l{};
    U32 id = 0;
    char b[8] = "";
    std::vector<U32> codes = {
        DX_TimeSet(nullptr, &d, 0, 0, 0), DX_TimeSet(&t, nullptr, 0, 0, 0),
        DX_TimeGet(nullptr, &d, nullptr, nullptr, nullptr), DX_TimeGetTimeId(&t, nullptr), DX_TimeGetTimeId(nullptr, &id),
        DX_TimeGetTimeIdInMinutes(nullptr, &id), DX_TimeSetFromTimeId(nullptr, 0), DX_TimeOffset(nullptr, 1),
        DX_TimeFormat(nullptr, 10, "x", &t, 0), DX_TimeFormat(b, sizeof b, "x", nullptr, 0),
        DX_LocalTimeFormat(b, sizeof b, "x", nullptr, 0, nullptr), DX_LocalTimeSet(nullptr, &t, nullptr, 11, 0),
        DX_LocalTimeSet(&l, nullptr, nullptr, 11, 0), DX_LocalTimeGet(nullptr, nullptr, nullptr, nullptr, nullptr),
        DX_LocalTimeSetFromUTC(&l, nullptr, nullptr, 0), DX_LocalTimeGetUTC(&l, nullptr, 0), DX_LocalTimeOffset(nullptr, 60, 0),
        (std::strcpy(b, "junk"), DX_TimeFormat(b, sizeof b, nullptr, &t, 0)),  // last: it empties the buffer
    };
    EXPECT_EQ(codes, std::vector<U32>(codes.size(), 0x15605u));
    EXPECT_STREQ(b, "");
}

TEST(Time, TimeIdEdges)
{
    // The largest time ID is 7 February 2127 06:28:15; the next second wraps.
    EXPECT_EQ(timeIdOf(at("2127-02-07 06:28:16")), 0u);
    DX_TIME t = at("2000-12-31 23:59:59");
    U32 minutes = 0, id = 77;
    EXPECT_EQ(DX_TimeGetTimeIdInMinutes(&t, &minutes), 0u);
    EXPECT_EQ(minutes, timeIdOf(t) / 60);
    // Before 1991 there is no time ID: the date code, and 0.
    t = at("1990-12-31 23:59:59");
    EXPECT_EQ(DX_TimeGetTimeId(&t, &id), 0x1560Cu);
    EXPECT_EQ(DX_TimeGetTimeIdInMinutes(&t, &minutes), 0x1560Cu);
    EXPECT_EQ(id + minutes, 0u);
}

TEST(Time, TimeIdsAgreeWithPythonDatetime)
{
    // The edges and 2000 random instants over the whole 32-bit range: the true
    // date and time, and the date that the day count gives.  From 32768 days
    // on it goes through a signed 16-bit offset and runs backwards from 1991
    // (callers rely on this exact result): timedelta(days=days - 65536).
    std::vector<std::string> lines = pythonLines(
        "import random, datetime as d\n"
        "random.seed(1991); e = d.datetime(1991, 1, 1)\n"
        "for i in range(2004):\n"
        "  n = [0, 32768 * 86400 - 1, 32768 * 86400, 2**32 - 1][i] if i < 4 else "
        "random.randrange(2**32) if i % 2 else random.randrange(32768 * 86400)\n"
        "  days = n // 86400; s = n % 86400\n"
        "  w = e + d.timedelta(days=days - 65536 if days >= 32768 else days, seconds=s)\n"
        "  t = e + d.timedelta(seconds=n)\n"
        "  print(n, t.strftime('%Y-%m-%d %H:%M:%S'), w.strftime('%Y-%m-%d %H:%M:%S'))\n");
    if (lines.empty())
        GTEST_SKIP() << "python3 not available";
    ASSERT_EQ(lines.size(), 2004u);
    for (const std::string &line : lines) {
        SCOPED_TRACE(line);
        unsigned long long n = std::stoull(line);
        EXPECT_EQ(show(fromId(static_cast<U32>(n))), line.substr(line.size() - 19));
        // The other way: the true date and time give back the time ID.
        EXPECT_EQ(timeIdOf(at(line.substr(line.find(' ') + 1).c_str())), n);
    }
}

TEST(Time, OffsetMovesByElapsedSecondsAndNeverFailsBeforeTheEpoch)
{
    // Before the epoch the sum is taken as an unsigned time ID: 0x15C04 is
    // noted but overwritten, so the call succeeds (callers rely on it).
    struct Case { const char *from; S32 by; const char *to; U32 status; } cases[] = {
        {"1999-12-31 23:59:59", 1, "2000-01-01 00:00:00", 0}, {"2004-03-01 00:00:00", -1, "2004-02-29 23:59:59", 0},
        {"1991-01-01 00:00:10", -20, "1947-09-03 06:28:06", 0}, {"1990-12-31 00:00:00", 1, "1990-12-31 00:00:00", 0x1560C},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.from);
        DX_TIME t = at(c.from);
        EXPECT_EQ(DX_TimeOffset(&t, c.by), c.status);
        EXPECT_EQ(show(t), c.to);
    }
}

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
    Catalog looping("[timef]\ntime = %ti\n");
    // "ti" prints its layout into 100 bytes, "TI" into 200: five 20-wide
    // hours need 105 free places.
    Catalog wide("[timef]\ntime = %-20h2%-20h2%-20h2%-20h2%-20h2\nTIME = %-20h2%-20h2%-20h2%-20h2%-20h2\n");
    Catalog en(rqtest::readFile(std::string(RQ_DATA_DIR).append("/nls/en_US.profile")));
    Catalog fr(rqtest::readFile(std::string(RQ_DATA_DIR).append("/nls/fr_FR.profile")));
    const std::string nine = std::string("9").append(19, ' ');
    const char *morning = "2005-01-05 09:05:07";
    struct Case { HLIST nls; const char *format, *t; U32 status; std::string text; } cases[] = {
        {catalog.nls, "%h1 %ap|%h2", "2005-01-05 00:00:00", 0, "12 AM|0"},
        {catalog.nls, "%h1 %ap", "2005-01-05 12:00:00", 0, "12 PM"},
        {catalog.nls, "%h1 %ap", "2005-01-05 11:59:59", 0, "11 AM"},
        {catalog.nls, "%h1 %ap|%h2|%ti", "2005-01-05 23:40:50", 0, "11 PM|23|11:40 PM"},
        {catalog.nls, "%pa %h1|%*h2|%-*h1|%*ap|%-4ap|%3h2", morning, 0, "AM 9| 9|9 |AM|AM  |  9"},
        // Minutes and seconds are always two digits, whatever the width.
        {catalog.nls, "%mi:%se|%5mi|%-5se|%*mi", morning, 0, "05:07|05|07|05"},
        // Date words pass down and are written with the time field's width;
        // "*" means width 0 for them, not the date printer's own.
        {catalog.nls, "%*dm|%3dm|%-3md|%YE|%dn|%da", morning, 0, "5|  5|5  |2005|Wednesday|5/0"},
        {catalog.nls, "[%12ti]|%TI", morning, 0, "[     9:05 AM]|Wednesday 9:05 AM:07"},
        {en.nls, "%ti|%TI", morning, 0, "9:05 AM|9:05:07"}, {fr.nls, "%ti|%TI", morning, 0, "9:05|9:05:07"},
        // Unknown words fail with the date printer's code; a lone backslash
        // at the end with the time code; the output is cut to empty.
        {catalog.nls, "ok %xx", morning, 0x16001, ""}, {catalog.nls, "ok %", morning, 0x16001, ""},
        {catalog.nls, "ok \\", morning, 0x15D01, ""},
        // Layouts need their catalog entry; nested layouts stop at a fixed depth.
        {looping.nls, "x%TI", morning, NLS_ERR_NO_KEY, ""}, {looping.nls, "%ti", morning, 0x15D01, ""},
        {wide.nls, "%ti", morning, 0x15D02, ""}, {wide.nls, "%TI", morning, 0, nine + nine + nine + nine + nine},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.format);
        U32 status = 0;
        EXPECT_EQ(timeText(c.format, at(c.t), c.nls, &status), c.text);
        EXPECT_EQ(status, c.status);
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
        EXPECT_EQ(print(buffer.data(), size, format), size >= needed ? 0u : fullCode);
        EXPECT_EQ(std::string(size == 0 ? "" : buffer.data()), size >= needed ? expected : "");
        if (size == 0) {
            EXPECT_EQ(buffer[0], sentinel);
        }
    }
}

TEST(TimeFormat, FreePlaceAccountingAndCat)
{
    DX_TIME t = at("2005-01-05 09:05:07");
    auto print = [&](char *b, U32 size, const char *format) { return DX_TimeFormat(b, size, format, &t, 0); };
    // A field costs its characters plus one, and the NUL one more: "%YE"
    // needs 4 + 1 + 1 (literals cost two, as the date walker's sweep shows).
    capacitySweep("%YE", "2005", 0x15D02, 6, print);
    char buffer[12] = "at ";
    EXPECT_EQ(DX_TimeFormatCat(buffer, sizeof buffer, "%h2:%mi", &t, 0), 0u);
    // Full: the appended part is cut, the earlier text stays.
    EXPECT_EQ(DX_TimeFormatCat(buffer, sizeof buffer, "%h2:%mi", &t, 0), 0x15D02u);
    EXPECT_EQ(std::string(buffer), "at 9:05");
    char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(DX_TimeFormatCat(unterminated, sizeof unterminated, "x", &t, 0), 0x15D02u);
}

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
    DX_TIME t = at("2005-01-05 21:05:07");
    struct Case { const char *zone; U32 type; const char *format; U32 status; const char *text; } cases[] = {
        {"EST5EDT", 10, "%h2:%mi %tz (%TZ)|%2h2|%4YE|%ap", 0, "21:05 EST (EST5EDT)|21|2005|PM"},
        {"EST5EDT", 11, "%tz|%zt|%-5tz|%6TZ", 0, "EDT|EDT|EDT  |EST5EDT"},
        {"EST5EDT", 12, "[%tz]", 0, "[]"}, {"EST5", 11, "[%tz]", 0, "[]"},
        // Daylight time skips only capitals then digits: a sign or minutes in
        // the offset leave an empty text (callers rely on it), whereas the
        // zone rules read the offset whole.
        {"CET-1CEST", 11, "[%tz]", 0, "[]"}, {"CET-1CEST", 10, "[%tz]", 0, "[CET]"},
        {"ABCDEFGHIJKLMNOPQRS", 10, "%tz", 0, "ABCDEFGHIJKLMNOPQRS"},
        // "*" is not read here, so "%*TZ" hands "*T" down, where it is refused.
        {"EST5EDT", 10, "%*TZ", 0x16001, ""}, {"EST5EDT", 10, "x\\", 0x15F01, ""},
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

TEST(LocalTime, SetChecksTheTypeInForceAndRefusalsChangeNothing)
{
    Zone zone;
    ASSERT_EQ(zone.status, 0u);
    // 27 March and 30 October 2005 are the last Sundays of their months.
    struct Case { const char *t; U32 type; U32 status; } cases[] = {
        {"2005-03-27 01:59:59", 10, 0}, {"2005-03-27 01:59:59", 11, 0x16101},
        {"2005-03-27 02:00:00", 10, 0x15704}, {"2005-03-27 02:59:59", 11, 0x15704},  // the skipped hour
        {"2005-03-27 03:00:00", 11, 0}, {"2005-03-27 03:00:00", 10, 0x16101},
        {"2005-10-30 02:00:00", 10, 0}, {"2005-10-30 02:59:00", 11, 0},  // the doubled hour takes either
        {"2005-10-30 02:30:00", 12, 0}, {"2005-10-30 03:00:00", 11, 0x16101},
        {"1995-01-01 12:00:00", 10, 0x15709},  // no entry covers 1995
        {"1990-12-31 12:00:00", 10, 0x1560C},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.t << " type " << c.type);
        DX_LOCALTIME l = makeLocal("old", 10, at("2000-01-01 00:00:00"));
        DX_TIME t = at(c.t);
        EXPECT_EQ(DX_LocalTimeSet(&l, &t, "CET-1CEST", c.type, zone.rules), c.status);
        EXPECT_EQ(show(l.time), c.status == 0 ? c.t : "2000-01-01 00:00:00");
        EXPECT_STREQ(l.zoneName, c.status == 0 ? "CET-1CEST" : "old");
        EXPECT_EQ(l.type, c.status == 0 ? c.type : 10u);
    }
    // A null zone name keeps the record's own zone.
    DX_LOCALTIME l = makeLocal("CET-1CEST", 10, at("2000-01-01 00:00:00"));
    DX_TIME summer = at("2005-07-01 12:00:00"), utc = at("2000-01-01 00:00:00");
    EXPECT_EQ(DX_LocalTimeSet(&l, &summer, nullptr, 11, zone.rules), 0u);
    EXPECT_STREQ(l.zoneName, "CET-1CEST");
    EXPECT_EQ(DX_LocalTimeSet(&l, &summer, "XYZ0", 11, zone.rules), 0x15705u);
    // Refused conversions leave the result alone (the conversions themselves
    // are checked against zoneinfo below).
    DX_LOCALTIME both = makeLocal("CET-1CEST", 12, at("2005-10-30 02:30:00"));
    l = makeLocal("CET-1CEST", 10, at("2005-07-15 12:00:00"));  // the wrong type
    EXPECT_EQ(DX_LocalTimeGetUTC(&both, &utc, zone.rules), 0x15703u);
    EXPECT_EQ(DX_LocalTimeOffset(&both, 60, zone.rules), 0x15703u);
    EXPECT_EQ(show(both.time), "2005-10-30 02:30:00");
    EXPECT_EQ(DX_LocalTimeGetUTC(&l, &utc, zone.rules), 0x15702u);
    EXPECT_EQ(show(utc), "2000-01-01 00:00:00");
    EXPECT_EQ(DX_LocalTimeSetFromUTC(&l, &utc, "NOPE0", zone.rules), 0x15705u);
    EXPECT_EQ(show(l.time), "2005-07-15 12:00:00");
}

TEST(LocalTime, AgreesWithPythonZoneinfo)
{
    // 1000 UTC instants from 1996 to 2037, half of them within a day of a
    // change of clocks: Berlin's wall-clock time and whether DST is in force,
    // then and an hour later (an offset is elapsed time across a change).
    std::vector<std::string> lines = pythonLines(
        "import random, datetime as d, zoneinfo\n"
        "random.seed(2005); z = zoneinfo.ZoneInfo('Europe/Berlin'); u = d.timezone.utc\n"
        "e = d.datetime(1991, 1, 1, tzinfo=u); lo = d.datetime(1996, 1, 1, tzinfo=u)\n"
        "for i in range(1000):\n"
        "  t = lo + d.timedelta(seconds=random.randrange(int((d.datetime(2037, 12, 1, tzinfo=u) - lo).total_seconds())))\n"
        "  if i % 2:\n"
        "    y = t.year; m = random.choice([3, 10]); last = d.datetime(y, m, 31, 1, tzinfo=u)\n"
        "    last -= d.timedelta(days=(last.weekday() + 1) % 7)\n"
        "    t = last + d.timedelta(seconds=random.randrange(-86400, 86400))\n"
        "  w = t.astimezone(z); h = (t + d.timedelta(hours=1)).astimezone(z)\n"
        "  print(int((t - e).total_seconds()), *[x.strftime('%Y-%m-%d %H:%M:%S ') + ('11' if x.dst() else '10') for x in (w, h)])\n");
    if (lines.empty())
        GTEST_SKIP() << "python3 with zoneinfo and tzdata not available";
    ASSERT_EQ(lines.size(), 1000u);
    Zone zone;
    ASSERT_EQ(zone.status, 0u);
    for (const std::string &line : lines) {
        SCOPED_TRACE(line);
        unsigned long long id = std::stoull(line);
        DX_TIME utc = fromId(static_cast<U32>(id)), back;
        DX_LOCALTIME l = makeLocal("", 0, utc), again = makeLocal("", 0, utc);
        U32 wallId = 0;
        ASSERT_EQ(DX_LocalTimeSetFromUTC(&l, &utc, "CET-1CEST", zone.rules), 0u);
        EXPECT_EQ(show(l.time).append(" ").append(std::to_string(l.type)), line.substr(line.find(' ') + 1, 22));
        // and back again: the type picks the right side of the doubled hour
        ASSERT_EQ(DX_LocalTimeGetUTC(&l, &back, zone.rules), 0u);
        EXPECT_EQ(timeIdOf(back), id);
        // The zone's own type is the one setting accepts.
        EXPECT_EQ(DX_LocalTimeGetTimeId(&l, &wallId), 0u);
        EXPECT_EQ(DX_LocalTimeSetFromTimeId(&again, wallId, "CET-1CEST", l.type, zone.rules), 0u);
        EXPECT_EQ(show(again.time), show(l.time));
        ASSERT_EQ(DX_LocalTimeOffset(&l, 3600, zone.rules), 0u);
        EXPECT_EQ(show(l.time).append(" ").append(std::to_string(l.type)), line.substr(line.size() - 22));
    }
}

TEST(LocalTime, NothingLeaksWhenAllocationsFail)
{
    // Whichever allocation fails, nothing stays live (the zones' year table
    // may do without its block, so a failed allocation need not fail the call).
    rqtest::LeakCheck leaks;
    int allocations = rqtest::allocationSweep(
        [] {
            Zone zone;
            DX_TIME utc = at("2005-10-30 01:30:00");
            DX_LOCALTIME l = makeLocal("", 0, utc);
            char text[64];
            U32 rc = zone.status != 0 ? zone.status : DX_LocalTimeSetFromUTC(&l, &utc, "CET-1CEST", zone.rules);
            rc = rc != 0 ? rc : DX_LocalTimeOffset(&l, 3600, zone.rules);
            return rc != 0 ? rc : DX_LocalTimeFormat(text, sizeof text, "%h2:%mi %tz %TZ", &l, 0, nullptr);
        },
        [](U32) {});
    EXPECT_GT(allocations, 0);
}

}  // namespace
