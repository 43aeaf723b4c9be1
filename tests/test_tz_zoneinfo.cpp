// The shipped time-zone file against the system's own conversions: every zone
// of data/tz/zones.profile (the section's tz name and the other tz names its
// comment lists) is converted from UTC to local time and back over 1991-2037
// and compared with glibc's localtime_r under TZ=<tz name>: the offset and the
// standard/daylight type at every instant sampled, every local time of a
// skipped hour refused, every local time of a doubled hour resolved by type.
// Sampling: every hour for three zones; for every other section every 25 hours
// (so every hour of the day is met); for the other tz names every 241 hours;
// and, for all of them, every 15 minutes for 2.5 hours either side of each
// change the system makes, with the minute of the change and its neighbours.
#include "rqtest.h"

#include "rqcore/lists.h"
#include "rqcore/tz.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

const std::string kZoneFile = std::string(RQ_DATA_DIR) + "/tz/zones.profile";
constexpr long long kEpoch = 662688000;  // 1991-01-01 00:00 UTC in Unix seconds
constexpr long long kFirst = 24 * 60;                  // 1991-01-02 00:00, minutes
constexpr long long kLast = 17165LL * 24 * 60;  // 2037-12-30 00:00
const char *const kHourly[] = {"America/New_York", "Europe/Paris", "Australia/Sydney"};

struct Zone {
    std::string zone;               // section name
    std::vector<std::string> names; // the section's tz name first, then the names it stands for
};

// The sections in file order, each with the tz names of its "name" key and of
// the "# also:" comment (and its "#   " continuation lines) above it.
std::vector<Zone> readZones(HLIST rules)
{
    std::vector<Zone> zones;
    std::vector<std::string> also;
    bool inAlso = false;
    for (const std::string &s : rqtest::splitLines(rqtest::readFile(kZoneFile))) {
        bool first = s.rfind("# also:", 0) == 0;
        inAlso = first || (inAlso && s.rfind("#   ", 0) == 0);
        std::istringstream words(inAlso ? s.substr(first ? 7 : 1) : std::string());
        for (std::string w; inAlso && words >> w;)
            also.push_back(w);
        if (inAlso || s.size() <= 2 || s[0] != '[')
            continue;
        Zone z{s.substr(1, s.find(']') - 1), {}};
        char name[DX_TZ_NAME_SIZE] = "";
        EXPECT_EQ(DX_TZFind(rules, z.zone.c_str(), name, sizeof name, nullptr, 0), 0u) << z.zone;
        z.names.push_back(name);
        z.names.insert(z.names.end(), also.begin(), also.end());
        also.clear();
        zones.push_back(z);
    }
    return zones;
}

struct State {
    long long offset;  // local - UTC in minutes
    bool daylight;
    bool operator==(const State &o) const { return offset == o.offset && daylight == o.daylight; }
};

State systemState(long long utc)
{
    time_t t = static_cast<time_t>(kEpoch + utc * 60);
    struct tm tm {};
    localtime_r(&t, &tm);
    return State{tm.tm_gmtoff / 60, tm.tm_isdst > 0};
}

std::string when(long long minutes)
{
    time_t t = static_cast<time_t>(kEpoch + minutes * 60);
    struct tm tm {};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M", &tm);
    return buf;
}

class Checker {
public:
    Checker(HLIST rules, const Zone &zone, const std::string &name)
        : rules_(rules), zone_(zone.zone), name_(name)
    {
    }

    // UTC to local and back with the type the library gave.
    void utc(long long u)
    {
        ++checks;
        State want = systemState(u);
        U32 local = 0, type = 0;
        U32 rc = DX_TZFromUTCToLocalTime(rules_, zone_.c_str(), &local, &type, static_cast<U32>(u), nullptr, 0);
        U32 wantType = want.daylight ? DX_TZ_DAYLIGHT : DX_TZ_STANDARD;
        if (rc != 0 || local != static_cast<U32>(u + want.offset) || type != wantType) {
            fail("UTC", when(u), "library rc", rc, "local", when(local), "type", type, "system", when(u + want.offset),
                 want.daylight ? "daylight" : "standard");
            return;
        }
        U32 back = 0;
        rc = DX_TZFromLocalTimeToUTC(rules_, zone_.c_str(), &back, local, type);
        if (rc != 0 || back != static_cast<U32>(u))
            fail("local", when(local), "type", type, "back to UTC: rc", rc, when(back), "want", when(u));
    }

    // Local wall-clock minute l near a change at UTC minute t from before to after.
    void local(long long l, long long t, State before, State after)
    {
        ++checks;
        long long u1 = l - before.offset, u2 = l - after.offset;
        bool has1 = u1 < t, has2 = u2 >= t;
        U32 out = 0;
        U32 rc = DX_TZFromLocalTimeToUTC(rules_, zone_.c_str(), &out, static_cast<U32>(l), 0);
        if (!has1 && !has2) {
            if (rc != DX_TZ_ERR_SKIPPED)
                fail("local", when(l), "skipped by the system, library rc", rc, "UTC", when(out));
            return;
        }
        if (has1 && has2) {
            if (rc != DX_TZ_ERR_NO_TYPE)
                fail("local", when(l), "doubled by the system, library rc", rc, "without a type");
            long long dstUtc = before.daylight ? u1 : u2, stdUtc = before.daylight ? u2 : u1;
            U32 a = 0, b = 0;
            U32 rcA = DX_TZFromLocalTimeToUTC(rules_, zone_.c_str(), &a, static_cast<U32>(l), DX_TZ_DAYLIGHT);
            U32 rcB = DX_TZFromLocalTimeToUTC(rules_, zone_.c_str(), &b, static_cast<U32>(l), DX_TZ_STANDARD);
            if (rcA != 0 || rcB != 0 || a != static_cast<U32>(dstUtc) || b != static_cast<U32>(stdUtc))
                fail("local", when(l), "doubled: library", when(a), "and", when(b), "system", when(dstUtc), "and", when(stdUtc));
            return;
        }
        long long want = has1 ? u1 : u2;
        if (rc != 0 || out != static_cast<U32>(want))
            fail("local", when(l), "library rc", rc, "UTC", when(out), "system", when(want));
    }

    // Every 15 minutes 2.5 hours either side of a change, and the minutes
    // around it, in UTC and in local time.
    void around(long long t, State before, State after)
    {
        for (long long d = -150; d <= 150; d += 15)
            utc(t + d);
        utc(t - 1);
        utc(t + 1);
        long long lo = t + std::min(before.offset, after.offset), hi = t + std::max(before.offset, after.offset);
        for (long long l = lo - 150; l <= hi + 150; l += 15)
            local(l, t, before, after);
        for (long long l : {lo - 1, lo, lo + 1, hi - 1, hi, hi + 1})
            local(l, t, before, after);
    }

    // The whole span: samples every step minutes, each change found by
    // bisection between two samples that differ.
    void sweep(long long step)
    {
        State prev = systemState(kFirst);
        for (long long u = kFirst; u < kLast; u += step) {
            State cur = systemState(u);
            if (!(cur == prev)) {
                long long lo = u - step, hi = u;  // state(lo) == prev, state(hi) != prev
                while (hi - lo > 1) {
                    long long mid = lo + (hi - lo) / 2;
                    (systemState(mid) == prev ? lo : hi) = mid;
                }
                around(hi, prev, systemState(hi));
                ++changes;
            }
            utc(u);
            prev = cur;
        }
    }

    long long checks = 0;
    long long changes = 0;
    std::string first;  // the first disagreement: it tells the entry at fault
    long long failed = 0;

private:
    template <typename... Parts>
    void fail(const Parts &...parts)
    {
        std::ostringstream text;
        text << zone_ << " " << name_ << ":";
        ((text << " " << parts), ...);
        if (failed++ == 0)
            first = text.str();
    }

    HLIST rules_;
    std::string zone_, name_;
};

// TZ as it was before the test, put back at the end.
struct ScopedTZ {
    ~ScopedTZ()
    {
        if (old.has_value())
            setenv("TZ", old->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    std::optional<std::string> old = std::getenv("TZ") ? std::optional<std::string>(std::getenv("TZ")) : std::nullopt;
};

TEST(TZZoneinfo, EveryShippedZoneConvertsAsTheSystemDoes)
{
    if (access("/usr/share/zoneinfo/America/New_York", R_OK) != 0)
        GTEST_SKIP() << "no tz database in /usr/share/zoneinfo";
    HLIST rules = 0;
    ASSERT_EQ(DX_TZRulesCreate(&rules, kZoneFile.c_str(), nullptr), 0u);
    std::vector<Zone> zones = readZones(rules);
    ASSERT_GT(zones.size(), 50u);

    ScopedTZ tz;
    long long checks = 0, changes = 0, names = 0;
    for (const Zone &zone : zones) {
        for (size_t i = 0; i < zone.names.size(); ++i) {
            const std::string &name = zone.names[i];
            if (access(std::string("/usr/share/zoneinfo/").append(name).c_str(), R_OK) != 0)
                continue;  // a tz database older than the one the file was made from
            setenv("TZ", name.c_str(), 1);
            tzset();
            bool hourly = false;
            for (const char *h : kHourly)
                hourly = hourly || name == h;
            Checker c(rules, zone, name);
            c.sweep(hourly ? 60 : i == 0 ? 25 * 60 : 241 * 60);
            if (c.failed != 0)
                ADD_FAILURE() << c.first << " (" << c.failed << " disagreements in all)";
            checks += c.checks;
            changes += c.changes;
            ++names;
        }
    }
    EXPECT_GT(names, 300);
    std::printf("%lld tz names, %lld changes, %lld conversions checked\n", names, changes, checks);
    DX_TZRulesDestroy(&rules);
}

}  // namespace
