// Time-zone rules: entry syntax and numbered keys, rule sets, skipped and
// doubled hours north and south, agreement with Python's zoneinfo, bad input.
#include "rqtest.h"

#include "rqcore/date.h"
#include "rqcore/lists.h"
#include "rqcore/tz.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using rqtest::writeFile;

// Minutes since 1 January 1991 of a wall-clock time (month 1..12).
U32 minutes(U16 year, U16 month, U16 day, U32 hour, U32 minute)
{
    DX_DATE d;
    EXPECT_EQ(DX_DateSet(&d, day, static_cast<U16>(month - 1), year), 0u);
    U16 id = 0;
    EXPECT_EQ(DX_DateGetDayId(&d, &id), 0u);
    return (id - 1u) * 1440u + hour * 60u + minute;
}

// Europe/Paris since 1996: last Sunday of March at 3:00 (after the change),
// last Sunday of October at 2:00.
const char *const kParis = "[CET-1CEST]\n"
                           "name = Paris\n"
                           "country = France\n"
                           "begin1 = 0 3 25-31 3 1996-2037 0 CEST-2\n"
                           "end1 = 0 2 25-31 10 1996-2037 0 CET-1\n";

// America/New_York since 2007.
const char *const kNewYork = "[EST5EDT]\n"
                             "name = New York\n"
                             "begin1 = 0 3 8-14 3 2007-2037 0 EDT4\n"
                             "end1 = 0 1 1-7 11 2007-2037 0 EST5\n";

// Australia/Sydney since 2008, written in calendar order: the April change
// (back to standard, 2:00 after it) is the begin entry, so the adjusts say
// the order is reversed and daylight time lies outside April..October.
const char *const kSydney = "[AEST-10AEDT]\n"
                            "begin1 = 0 2 1-7 4 2008-2037 0 AEST-10\n"
                            "end1 = 0 3 1-7 10 2008-2037 0 AEDT-11\n";

class Rules {
public:
    explicit Rules(const std::string &text, const char *section = nullptr)
    {
        writeFile(dir_.file("zones.profile"), text);
        status = DX_TZRulesCreate(&handle, dir_.file("zones.profile").c_str(), section);
    }
    ~Rules() { DX_TZRulesDestroy(&handle); }
    HLIST handle = 0xA5A5;
    U32 status = 0xA5A5;

private:
    rqtest::TempDir dir_;
};

struct Local { U32 status, minutes, type; };

Local toLocal(HLIST rules, const char *zone, U32 utc)
{
    Local l{0, 0xA5A5A5A5u, 0xA5A5A5A5u};
    l.status = DX_TZFromUTCToLocalTime(rules, zone, &l.minutes, &l.type, utc, nullptr, 0);
    return l;
}

DX_TZENTRY entry(U16 day, U16 month, U16 fromYear, U16 toYear, U16 time, U16 weekday, S16 adjust)
{
    DX_TZENTRY e{};
    EXPECT_EQ(DX_DateSet(&e.from, day, month, fromYear), 0u);
    EXPECT_EQ(DX_DateSet(&e.to, day, month, toYear), 0u);
    std::tie(e.time, e.weekday, e.adjust) = std::tuple(time, weekday, adjust);
    return e;
}

// The "XST3XDT" zone changes clocks without changing its offset: always standard.
const char *const kSameAdjust = "[XST3XDT]\n"
                                "begin1 = 0 3 25-31 3 1991-2100 0 XDT3\n"
                                "end1 = 0 2 25-31 10 1991-2100 0 XST3\n";

}  // namespace

TEST(TZ, LocalTypeAtSkippedAndDoubledHoursAndOutsideTheEntries)
{
    Rules r(std::string(kParis) + kNewYork + kSydney + kSameAdjust);
    ASSERT_EQ(r.status, 0u);
    // The minutes either side of each change are compared with glibc over
    // the shipped zones (test_tz_zoneinfo.cpp); here one of each outcome.
    struct Case { const char *zone; U16 y, mo, d; U32 h, mi, status, type; } cases[] = {
        // 27 March 2005 is the last Sunday of March: 2:00..2:59 does not exist.
        {"CET-1CEST", 2005, 3, 27, 2, 30, 0x15704, 0xA5},  // nothing written on failure
        {"EST5EDT", 2010, 11, 7, 1, 30, 0, DX_TZ_EITHER},  // first Sunday of November 2010
        {"EST5EDT", 2006, 7, 1, 0, 0, 0x15709, 0xA5}, {"EST5EDT", 2038, 1, 1, 0, 0, 0x15709, 0xA5},
        {"EST5EDT", 2037, 12, 31, 23, 59, 0, DX_TZ_STANDARD}, {"XST3XDT", 2005, 3, 27, 2, 30, 0, DX_TZ_STANDARD},
        {"XST3XDT", 2005, 7, 1, 0, 0, 0, DX_TZ_STANDARD}, {"XST3XDT", 2005, 10, 30, 2, 30, 0, DX_TZ_STANDARD},
        // Sydney's reversed order: first Sunday of April 2:00..2:59 twice,
        // first Sunday of October 2:00..2:59 skipped.
        {"AEST-10AEDT", 2010, 4, 4, 2, 0, 0, DX_TZ_EITHER}, {"AEST-10AEDT", 2010, 10, 3, 2, 59, 0x15704, 0xA5},
        {"NONE0", 1991, 1, 1, 0, 0, 0x15705, 0xA5},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.zone << " " << c.y * 10000 + c.mo * 100 + c.d << " " << c.h * 100 + c.mi);
        U32 type = 0xA5;
        EXPECT_EQ(DX_TZGetLocalType(r.handle, c.zone, &type, minutes(c.y, c.mo, c.d, c.h, c.mi)), c.status);
        EXPECT_EQ(type, c.type);
    }
}

TEST(TZ, LocalToUTCNeedsTheTypeInForceAndOneForTheDoubledHour)
{
    Rules r(std::string(kParis) + kNewYork + kSameAdjust);
    ASSERT_EQ(r.status, 0u);
    const U32 t = minutes(2010, 11, 7, 1, 30), july = minutes(2010, 7, 1, 12, 0);
    struct Case { const char *zone; U32 local; U32 type; U32 status; U32 utc; } cases[] = {
        {"EST5EDT", t, DX_TZ_EITHER, 0x15703, 0xA5},  // "either" does not decide
        // Outside the doubled hour the caller's type must be the one in force.
        {"EST5EDT", july, DX_TZ_STANDARD, 0x15702, 0xA5},
        {"XST3XDT", july, DX_TZ_STANDARD, 0, july + 180},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.zone << " " << c.local << " " << c.type);
        U32 utc = 0xA5;
        EXPECT_EQ(DX_TZFromLocalTimeToUTC(r.handle, c.zone, &utc, c.local, c.type), c.status);
        EXPECT_EQ(utc, c.utc);
    }
}

namespace {

// UTC to local and back against zoneinfo, for the instants a Python snippet
// prints (UTC minutes, local minutes, 1 when daylight time, 1 when the
// wall-clock time occurs twice).  Rows whose local time falls on or after
// `stop` are skipped.
void agreeWithZoneinfo(HLIST rules, const char *zone, const char *tzdata, const std::string &instants, U32 stop,
                       int minRows)
{
    SCOPED_TRACE(tzdata);
    std::string cmd = std::string("python3 -c \"\nimport datetime as d, zoneinfo as z, random\ntz = z.ZoneInfo('")
                          .append(tzdata)
                          .append("')\nE = d.datetime(1991, 1, 1, tzinfo=d.timezone.utc)\nfor u in ")
                          .append(instants)
                          .append(":\n l = u.astimezone(tz)\n n = l.replace(tzinfo=None)\n"
                                  " t = n.replace(tzinfo=tz, fold=1 - l.fold).utcoffset() != l.utcoffset()\n"
                                  " print((u - E) // d.timedelta(minutes=1), (n - d.datetime(1991, 1, 1)) // "
                                  "d.timedelta(minutes=1), 1 if l.dst() else 0, 1 if t else 0)\n\"");
    FILE *p = popen(cmd.c_str(), "r");
    ASSERT_NE(p, nullptr);
    unsigned long utc, local;
    int dst, twice, rows = 0, failures = 0;
    while (std::fscanf(p, "%lu %lu %d %d", &utc, &local, &dst, &twice) == 4 && failures < 5) {
        ++rows;
        if (local >= stop)
            continue;
        Local l = toLocal(rules, zone, static_cast<U32>(utc));
        U32 wantType = dst != 0 ? DX_TZ_DAYLIGHT : DX_TZ_STANDARD;
        U32 back = 0, plain = 0;
        U32 backStatus = DX_TZFromLocalTimeToUTC(rules, zone, &back, static_cast<U32>(local), wantType);
        U32 plainStatus = DX_TZFromLocalTimeToUTC(rules, zone, &plain, static_cast<U32>(local), 0);
        bool ok = l.status == 0 && l.minutes == local && l.type == wantType && backStatus == 0 && back == utc &&
                  plainStatus == (twice != 0 ? 0x15703u : 0u) && (twice != 0 || plain == utc);
        if (!ok) {
            ++failures;
            ADD_FAILURE() << "utc " << utc << ": local " << l.minutes << " (want " << local << ") type " << l.type
                          << " status " << l.status << ", back " << back << " status " << backStatus
                          << ", untyped status " << plainStatus;
        }
    }
    pclose(p);
    EXPECT_GE(rows, minRows);
}

bool haveZoneinfo()
{
    return std::system("python3 -c 'import zoneinfo; zoneinfo.ZoneInfo(\"Europe/Paris\")' >/dev/null 2>&1") == 0;
}

}  // namespace

// Every 30 minutes of a year north and south, up to the last year the
// entries cover (whose last local hours fall in 2038, which none covers); and
// random instants of 1991-2037 in a zone with two generations of rules, so
// that every year's interval (and the choice of entry) is exercised.
TEST(TZ, AgreesWithZoneinfo)
{
    if (!haveZoneinfo())
        GTEST_SKIP() << "python3 zoneinfo not available";
    Rules r(std::string(kParis) + kSydney +
            "[EST5EDT]\nbegin1 = 0 3 1-7 4 1991-2006 0 EDT4\nbegin2 = 0 3 8-14 3 2007-2037 0 EDT4\n"
            "end1 = 0 1 25-31 10 1991-2006 0 EST5\nend2 = 0 1 1-7 11 2007-2037 0 EST5\n");
    ASSERT_EQ(r.status, 0u);
    const char *year = "(d.datetime(%d, 1, 1, tzinfo=d.timezone.utc) + d.timedelta(minutes=30 * i) for i in range(17520))";
    char y2010[200], y2037[200];
    std::snprintf(y2010, sizeof y2010, year, 2010);
    std::snprintf(y2037, sizeof y2037, year, 2037);
    const U32 end = minutes(2038, 1, 1, 0, 0);
    agreeWithZoneinfo(r.handle, "AEST-10AEDT", "Australia/Sydney", y2010, end, 17520);
    agreeWithZoneinfo(r.handle, "CET-1CEST", "Europe/Paris", y2037, end, 17520);
    agreeWithZoneinfo(r.handle, "EST5EDT", "America/New_York",
                      "(lambda g: (E + d.timedelta(minutes=300 + g.randrange(17166 * 1440)) for i in range(20000)))"
                      "(random.Random(2005))",
                      end, 20000);
}

TEST(TZ, EntrySyntaxAndBadEntries)
{
    // Each value is begin1 of a zone whose end1 is fine; the status is that of
    // DX_TZRulesCreate, and `probe` the type at 12:00 on 1 July 2005 when it
    // succeeds (0x15709 when no entry covers 2005).
    struct Case { const char *value; U32 status; U32 probe; } cases[] = {
        {"0\t3  25-31\t3 1991-2037 0-6 CEST-2:00", 0, DX_TZ_DAYLIGHT},  // tabs; no weekday; ":00"
        {"0 3 25-31 3 1991-2037 0 CEST -2", 0, DX_TZ_STANDARD},  // a blank before the adjust makes it 0
        {"0 3 25-31 3 2037-1991 0 CEST-2", 0, 0x15709},          // a year range backwards covers nothing
        {"0 3 25 3", 0, 0x15709},                                // a missing year reads as 0
        {"0 3 0 3 2005 0 CEST-2", 0x15601, 0},                   // day 0
        {"0 3 25 13 2005 0 CEST-2", 0x15602, 0},                 // month 13
        {"0 3 30 2 2005 0 CEST-2", 0x15604, 0},                  // 30 February
        {"0 3 25-30 3-2 2005 0 CEST-2", 0x15604, 0},             // the to date is checked too
        {"abc", 0x15602, 0},                                     // nothing parses: month 0 is checked first
        {"30x 2 25 3 2005 0 CEST-2", 0x15602, 0},                // a stray character ends the fields
        {"0 99999 25 3 99999-99999 0 CEST-2", 0, 0x15709},       // numbers saturate at 65535
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value);
        rqtest::LeakCheck leaks;
        Rules r(std::string("[CET-1CEST]\nbegin1 = ") + c.value + "\nend1 = 0 2 25-31 10 1991-2037 0 CET-1\n");
        EXPECT_EQ(r.status, c.status);
        if (c.status != 0) {
            EXPECT_EQ(r.handle, 0u);
            continue;
        }
        U32 type = 0;
        U32 status = DX_TZGetLocalType(r.handle, "CET-1CEST", &type, minutes(2005, 7, 1, 12, 0));
        EXPECT_EQ(status == 0 ? type : status, c.probe);
    }
}

TEST(TZ, NumberedKeysStopAtTheFirstGapAndGoOnWithAColon)
{
    // begin1..begin9 cover 1991 only; "begin:" is the tenth key and covers
    // 2005; begin10 is never read, so 2006 has no begin entry.  begin< after a
    // gap would be bad but is never read either.
    std::string text = "[CET-1CEST]\n";
    for (int n = 1; n <= 9; ++n)
        text.append("begin").append(std::to_string(n)).append(" = 0 3 25-31 3 1991 0 CEST-2\n");
    text += "begin10 = 0 3 25-31 3 2006 0 CEST-2\n"
            "begin: = 0 3 25-31 3 2005 0 CEST-2\n"
            "begin< = 0 3 0 3 2005 0 CEST-2\n"
            "end1 = 0 2 25-31 10 1991-2037 0 CET-1\n"
            "end3 = 0 3 0 0 0 0 broken\n";
    Rules r(text);
    ASSERT_EQ(r.status, 0u);
    U32 type = 0;
    EXPECT_EQ(DX_TZGetLocalType(r.handle, "CET-1CEST", &type, minutes(2005, 7, 1, 12, 0)), 0u);
    EXPECT_EQ(type, DX_TZ_DAYLIGHT);
    EXPECT_EQ(DX_TZGetLocalType(r.handle, "CET-1CEST", &type, minutes(2006, 7, 1, 12, 0)), 0x15709u);
    EXPECT_EQ(DX_TZGetLocalType(r.handle, "CET-1CEST", &type, minutes(1992, 7, 1, 12, 0)), 0x15709u);
    // Once begin< is in reach (begin; present), its day 0 fails the read.
    Rules bad(text + "begin; = 0 3 25-31 3 1991 0 CEST-2\n");
    EXPECT_EQ(bad.status, 0x15601u);
}

TEST(TZ, FileLevelFailures)
{
    struct Case { const char *text; const char *section; U32 status; } cases[] = {
        {kParis, "EST5EDT", 0x15710},  // section missing
        {"[CET-1CEST]\nbegin1 = 0 3 25 3 2005 0 X-2\n[CET-1CEST]\n", nullptr, 0x1520F},
        // Two sections alike in their first 19 characters are one zone.
        {"[ABCDEFGHIJKLMNOPQRS1]\n[ABCDEFGHIJKLMNOPQRS2]\n", nullptr, 0x15001},
        {"[A]\nbegin1 = 0 3 25 3 2005 0 X-2\n[B]\nend1 = 0 3 25 0 2005 0 X-2\n", nullptr, 0x15602},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        rqtest::LeakCheck leaks;
        Rules r(c.text, c.section);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.handle, 0u);
    }
    HLIST rules = 0xA5;
    EXPECT_EQ(DX_TZRulesCreate(&rules, "/nonexistent/zones.profile", nullptr), 0x15201u);
    EXPECT_EQ(rules, 0u);
    EXPECT_EQ(DX_TZRulesCreate(&rules, nullptr, "CET-1CEST"), 0x1520Du);
    // A section read alone gets its own name; an empty file is an empty set.
    Rules one(std::string(kNewYork) + kParis, "CET-1CEST");
    EXPECT_EQ(one.status, 0u);
    EXPECT_EQ(DX_TZFind(one.handle, "CET-1CEST", nullptr, 0, nullptr, 0), 0u);
    EXPECT_EQ(DX_TZFind(one.handle, "EST5EDT", nullptr, 0, nullptr, 0), 0x15710u);
    Rules empty("");
    EXPECT_EQ(empty.status, 0u);
}

TEST(TZ, EnumAndFind)
{
    Rules r(std::string(kNewYork) + kParis + kSydney);
    ASSERT_EQ(r.status, 0u);
    std::vector<std::string> zones;
    U32 atEnd = 0;
    char zone[20], name[81], country[4];
    for (U32 mode = DX_TZ_ENUM_FIRST;; mode = DX_TZ_ENUM_NEXT) {
        rqtest::fillJunk(zone, sizeof zone);
        rqtest::fillJunk(name, sizeof name);
        rqtest::fillJunk(country, sizeof country);
        ASSERT_EQ(DX_TZEnum(r.handle, mode, zone, sizeof zone, name, sizeof name, country, sizeof country, &atEnd), 0u);
        if (atEnd != 0)
            break;
        zones.push_back(std::string(zone) + "|" + name + "|" + country);
    }
    EXPECT_EQ(std::string(zone) + name + country, "");  // emptied at the end
    EXPECT_EQ(zones, (std::vector<std::string>{"EST5EDT|New York|", "CET-1CEST|Paris|Fra", "AEST-10AEDT||"}));
    EXPECT_EQ(DX_TZEnum(r.handle, 15, zone, sizeof zone, nullptr, 0, nullptr, 0, &atEnd), 0x15701u);
    EXPECT_EQ(DX_TZEnum(r.handle, DX_TZ_ENUM_NEXT, zone, sizeof zone, nullptr, 0, nullptr, 0, &atEnd), 0u);
    EXPECT_STREQ(zone, "EST5EDT");  // after the end the walk starts again

    rqtest::fillJunk(country, sizeof country);
    EXPECT_EQ(DX_TZFind(r.handle, "CET-1CEST", name, sizeof name, country, sizeof country), 0u);
    EXPECT_STREQ(name, "Paris");
    EXPECT_STREQ(country, "Fra");
    rqtest::fillJunk(name, sizeof name);
    EXPECT_EQ(DX_TZFind(r.handle, "CET-1CES", name, sizeof name, country, sizeof country), 0x15710u);
    EXPECT_STREQ(name, "");
    EXPECT_STREQ(country, "");
    EXPECT_EQ(DX_TZFind(0, "CET-1CEST", name, sizeof name, nullptr, 0), 0x15710u);
    EXPECT_EQ(DX_TZFind(r.handle, nullptr, name, sizeof name, nullptr, 0), 0x15710u);
}

TEST(TZ, RulesCompareByEntriesAndARefusedRuleStaysWhole)
{
    rqtest::LeakCheck leaks;
    DX_TZENTRY b = entry(25, 2, 1996, 2037, 180, 0, -120), e = entry(25, 9, 1996, 2037, 120, 0, -60);
    DX_TZENTRY later = e;
    later.adjust = -30;
    HLIST rules = 0;
    ASSERT_EQ(DX_TZCreateTZRulesSimple(&rules, "CET-1CEST", "Paris", "France", &b, &e), 0u);
    DX_TZRULE *rule = nullptr, *other = nullptr;
    ASSERT_EQ(DX_TZCreateTZRule(&rule, "Other", nullptr), 0u);
    ASSERT_EQ(DX_TZCreateTZRule(&other, "Two", "B"), 0u);
    auto equal = [&](const DX_TZRULE *x, const DX_TZRULE *y) {
        U32 result = 9;
        EXPECT_EQ(DX_TZRuleEquals(x, y, &result), 0u);
        return result;
    };
    EXPECT_EQ(equal(rule, other), 1u);  // both empty, names differ
    ASSERT_EQ(DX_TZAddTZEntry(rule, &b, &e), 0u);
    EXPECT_EQ(equal(rule, other), 0u);  // counts differ
    DX_TZAddTZEntry(other, &b, &later);
    EXPECT_EQ(equal(rule, other), 0u);  // the end adjusts differ
    U32 result = 0;
    EXPECT_EQ(DX_TZRuleEquals(rule, nullptr, &result), DX_TZ_ERR_NULL);
    DX_TZDestroyTZRule(&other);
    // The name is cut to 19 characters before it is compared.
    EXPECT_EQ(DX_TZAddTZRule(rules, "CET-1CEST", rule), 0x15001u);
    EXPECT_EQ(DX_TZAddTZRule(rules, "CET-1CESTxxxxxxxxxx", rule), 0u);
    rule = nullptr;  // freed by the set
    ASSERT_EQ(DX_TZCreateTZRule(&rule, "Third", nullptr), 0u);
    EXPECT_EQ(DX_TZAddTZRule(rules, "CET-1CESTxxxxxxxxxxYYY", rule), 0x15001u);
    // The refused rule is whole: it takes entries and compares equal to a copy.
    EXPECT_EQ(DX_TZAddTZEntry(rule, &b, &e), 0u);
    DX_TZRULE copy;
    ASSERT_EQ(DX_TZRuleCopy(rule, &copy), 0u);
    EXPECT_EQ(equal(rule, &copy), 1u);
    DX_ListDestroy(&copy.begin);
    DX_ListDestroy(&copy.end);
    EXPECT_EQ(DX_TZDestroyTZRule(&rule), 0u);
    EXPECT_EQ(rule, nullptr);
    EXPECT_EQ(DX_TZDestroyTZRule(&rule), 0u);
    char name[81];
    EXPECT_EQ(DX_TZFind(rules, "CET-1CESTxxxxxxxxxxZZZ", name, sizeof name, nullptr, 0), 0u);
    EXPECT_STREQ(name, "Other");
    EXPECT_EQ(DX_TZRulesDestroy(&rules), 0u);
    EXPECT_EQ(rules, 0u);
    EXPECT_EQ(DX_TZRulesDestroy(&rules), 0u);
    EXPECT_EQ(DX_TZRulesDestroy(nullptr), 0u);
}

TEST(TZ, CopiesAndWrappedLists)
{
    rqtest::LeakCheck leaks;
    HLIST copy = 0;
    {
        Rules r(std::string(kNewYork) + kParis);
        ASSERT_EQ(r.status, 0u);
        ASSERT_EQ(DX_TZRulesCopy(r.handle, &copy), 0u);
    }
    // The copy outlives its source and converts the same way.
    Local l = toLocal(copy, "CET-1CEST", minutes(2005, 3, 27, 1, 30));
    EXPECT_EQ(l.minutes, minutes(2005, 3, 27, 3, 30));
    DX_TZRulesDestroy(&copy);
    EXPECT_EQ(DX_TZRulesCopy(0, &copy), DX_LIST_ERR_NO_LIST);
    EXPECT_EQ(copy, 0u);

    // A bare list of rules: the first of two equal names wins, as a list search finds it.
    HLIST list = 0;
    ASSERT_EQ(DX_ListCreate(&list, DX_TZ_ZONE_SIZE, sizeof(DX_TZRULE), DX_LIST_STRING_ID, nullptr, nullptr), 0u);
    for (const char *name : {"First", "Second"}) {
        DX_TZRULE *rule = nullptr;
        ASSERT_EQ(DX_TZCreateTZRule(&rule, name, nullptr), 0u);
        DX_TZENTRY b = entry(25, 2, 1996, 2037, 180, 0, -120), e = entry(25, 9, 1996, 2037, 120, 0, -60);
        DX_TZAddTZEntry(rule, &b, &e);
        char key[DX_TZ_ZONE_SIZE] = "CET-1CEST";
        ASSERT_EQ(DX_ListAddLast(list, key, rule), 0u);
        rule->begin = rule->end = 0;  // the list's element owns them now
        DX_TZDestroyTZRule(&rule);
    }
    HLIST rules = 0;
    ASSERT_EQ(DX_TZRulesCreateFromList(&rules, list), 0u);
    char name[81];
    EXPECT_EQ(DX_TZFind(rules, "CET-1CEST", name, sizeof name, nullptr, 0), 0u);
    EXPECT_STREQ(name, "First");
    EXPECT_EQ(toLocal(rules, "CET-1CEST", minutes(2005, 7, 1, 10, 0)).minutes, minutes(2005, 7, 1, 12, 0));
    EXPECT_EQ(DX_TZRulesDestroy(&rules), 0u);

    HLIST wrong = 0;
    ASSERT_EQ(DX_ListCreate(&wrong, DX_TZ_ZONE_SIZE, 100, DX_LIST_STRING_ID, nullptr, nullptr), 0u);
    EXPECT_EQ(DX_TZRulesCreateFromList(&rules, wrong), DX_LIST_ERR_TYPE_DIFFERS);
    EXPECT_EQ(rules, 0u);
    EXPECT_EQ(DX_TZRulesListDestroy(&wrong), 0u);
    EXPECT_EQ(wrong, 0u);
}

TEST(TZ, UTCToLocalAbbreviationsAndNullArguments)
{
    Rules r(std::string(kParis) + kNewYork + kSameAdjust +
            "[EST5]\nbegin1 = 0 3 8-14 3 2007-2037 0 EDT4\nend1 = 0 1 1-7 11 2007-2037 0 EST5\n");
    ASSERT_EQ(r.status, 0u);
    const U32 summer = minutes(2005, 7, 1, 10, 0);
    struct Case { const char *zone; U32 utc; U32 size; U32 status; const char *abbreviation; } cases[] = {
        {"CET-1CEST", summer, 8, 0, "CEST"},
        {"CET-1CEST", summer, 3, 0, "CE"},
        {"CET-1CEST", summer, 1, 0, ""},
        {"CET-1CEST", minutes(2005, 1, 1, 0, 0), 8, 0, "CET"},
        {"XST3XDT", summer, 8, 0, "XST"},
        {"EST5", minutes(2010, 7, 1, 0, 0), 8, 0, "EST"},  // nothing after the offset: the leading capitals
        // A local time before 1991 or past the 32-bit range has no minutes.
        {"EST5EDT", 0, 8, 0x15709, ""},
        {"CET-1CEST", 0xFFFFFFFFu, 8, 0x15709, ""},
        {"NONE0", 0, 8, 0x15705, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.zone << " " << c.utc << " " << c.size);
        char abbr[8];
        rqtest::fillJunk(abbr, sizeof abbr);
        EXPECT_EQ(DX_TZFromUTCToLocalTime(r.handle, c.zone, nullptr, nullptr, c.utc, abbr, c.size), c.status);
        EXPECT_STREQ(abbr, c.abbreviation);
    }
    HLIST none = 0xA5;
    std::vector<U32> codes = {
        DX_TZCreateTZRulesEmpty(nullptr), DX_TZCreateTZRule(nullptr, "x", "y"), DX_TZAddTZEntry(nullptr, nullptr, nullptr),
        DX_TZAddTZRule(r.handle, "X", nullptr), DX_TZCreateTZRulesSimple(&none, nullptr, "x", "y", nullptr, nullptr),
        DX_TZEnum(r.handle, DX_TZ_ENUM_FIRST, nullptr, 0, nullptr, 0, nullptr, 0, nullptr), DX_TZRulesCreate(nullptr, "x", nullptr),
    };
    EXPECT_EQ(codes, std::vector<U32>(codes.size(), DX_TZ_ERR_NULL));
    EXPECT_EQ(none, 0u);
    EXPECT_EQ(DX_TZGetLocalType(0, "CET-1CEST", nullptr, summer), 0x15705u);
    EXPECT_EQ(DX_TZGetLocalType(r.handle, nullptr, nullptr, summer), 0x15705u);
    EXPECT_EQ(DX_TZGetLocalType(r.handle, "CET-1CEST", nullptr, summer), 0u);  // outputs are optional
    // A list handle is not a rule set.
    HLIST list = 0;
    ASSERT_EQ(DX_ListCreate(&list, 4, 0, 0, nullptr, nullptr), 0u);
    EXPECT_EQ(DX_TZGetLocalType(list, "CET-1CEST", nullptr, summer), 0x15705u);
    DX_ListDestroy(&list);
}

TEST(TZ, AThousandZonesAllFound)
{
    std::string text;
    for (int n = 0; n < 1000; ++n)
        text.append("[Z").append(std::to_string(n)).append("-1ZD]\nname = zone ").append(std::to_string(n))
            .append("\nbegin1 = 0 3 25-31 3 1996-2037 0 ZD-2\nend1 = 0 2 25-31 10 1996-2037 0 Z-1\n");
    Rules r(text);
    ASSERT_EQ(r.status, 0u);
    for (int n = 0; n < 1000; ++n) {
        std::string zone = std::string("Z").append(std::to_string(n)).append("-1ZD");
        char name[81];
        ASSERT_EQ(DX_TZFind(r.handle, zone.c_str(), name, sizeof name, nullptr, 0), 0u);
        EXPECT_EQ(std::string(name), std::string("zone ").append(std::to_string(n)));
        EXPECT_EQ(toLocal(r.handle, zone.c_str(), minutes(2005, 7, 1, 10, 0)).minutes, minutes(2005, 7, 1, 12, 0));
    }
}

TEST(TZ, SharedBetweenThreads)
{
    Rules r(std::string(kParis) + kNewYork + kSydney);
    ASSERT_EQ(r.status, 0u);
    const char *zones[] = {"CET-1CEST", "EST5EDT", "AEST-10AEDT"};
    std::vector<U32> want;
    {
        // Reference answers from a private copy, so the shared set's table starts empty.
        HLIST own = 0;
        ASSERT_EQ(DX_TZRulesCopy(r.handle, &own), 0u);
        for (U32 i = 0; i < 3000; ++i)
            want.push_back(toLocal(own, zones[i % 3], 8000000u + i * 4001u).minutes);
        DX_TZRulesDestroy(&own);
    }
    std::vector<std::thread> threads;
    std::vector<int> wrong(4, 0);
    for (int k = 0; k < 4; ++k)
        threads.emplace_back([&, k] {
            for (U32 i = 0; i < 3000; ++i) {
                U32 j = (i + k * 750) % 3000, local = 0xA5A5A5A5u;
                DX_TZFromUTCToLocalTime(r.handle, zones[j % 3], &local, nullptr, 8000000u + j * 4001u, nullptr, 0);
                wrong[k] += local != want[j];
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(TZ, OutOfMemoryLeavesNothing)
{
    rqtest::TempDir dir;
    writeFile(dir.file("z.profile"), std::string(kParis) + kNewYork + kSydney);
    std::string path = dir.file("z.profile");
    std::set<U32> seen;
    // A set read, copied and used, then one built from entries: every
    // allocation of both ways of making a set fails once.
    rqtest::allocationSweep(
        [&] {
            HLIST rules = 0xA5, copy = 0, simple = 0;
            U32 status = DX_TZRulesCreate(&rules, path.c_str(), nullptr);
            EXPECT_TRUE(status == 0 || rules == 0u);
            if (status == 0)
                status = DX_TZRulesCopy(rules, &copy);
            if (status == 0) {
                // A conversion whose year table cannot be had still answers.
                EXPECT_EQ(toLocal(copy, "CET-1CEST", minutes(2005, 7, 1, 10, 0)).minutes, minutes(2005, 7, 1, 12, 0));
                DX_TZENTRY b = entry(25, 2, 1996, 2037, 180, 0, -120), e = entry(25, 9, 1996, 2037, 120, 0, -60);
                simple = 0xA5;
                status = DX_TZCreateTZRulesSimple(&simple, "CET-1CEST", "Paris", nullptr, &b, &e);
                EXPECT_TRUE(status == 0 || simple == 0u);
            }
            DX_TZRulesDestroy(&simple);
            DX_TZRulesDestroy(&copy);
            DX_TZRulesDestroy(&rules);
            return status;
        },
        [&](U32 status) { seen.insert(status); });
    // Every failure is the family's or the list's or the profile reader's
    // out-of-memory code; 0 where only a year table could not be had.
    for (U32 status : seen)
        EXPECT_TRUE(status == 0 || status == DX_TZ_ERR_NO_MEMORY || status == DX_LIST_ERR_CREATE_NO_MEMORY ||
                    status == DX_LIST_ERR_ADDFIRST_ELEMENT || status == 0x15218)
            << std::hex << status;
}
