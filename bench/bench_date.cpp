// Day IDs and ISO weeks of random dates (1991..2170): DX_Date beside a
// closed-form civil-day computation (days from civil in the style of Howard
// Hinnant's algorithms) and GLib's GDate, in the same run.
//
// Each DX_Date iteration starts from a record with empty caches, as a freshly
// set date has, so the computation is measured, not the cache.  The closed
// form is the target: DX_Date should stay within twice its time.
#include <benchmark/benchmark.h>
#include <glib.h>

#include "rqcore/date.h"

#include <cstdint>
#include <random>
#include <vector>

namespace {

struct Ymd {
    int y;
    unsigned m, d;  // m 1..12
};

std::vector<Ymd> randomDates(size_t n)
{
    std::mt19937 rng(2005);
    std::vector<Ymd> out;
    while (out.size() < n) {
        Ymd v{static_cast<int>(1991 + rng() % 179), static_cast<unsigned>(1 + rng() % 12), 0};
        U16 length = 31;
        DX_DateGetNumDaysInMonth(static_cast<U16>(v.m - 1), static_cast<U16>(v.y), &length);
        v.d = static_cast<unsigned>(1 + rng() % length);
        out.push_back(v);
    }
    return out;
}

std::vector<DX_DATE> records(const std::vector<Ymd> &dates)
{
    std::vector<DX_DATE> out(dates.size());
    for (size_t i = 0; i < dates.size(); ++i)
        DX_DateSet(&out[i], static_cast<U16>(dates[i].d), static_cast<U16>(dates[i].m - 1), static_cast<U16>(dates[i].y));
    return out;
}

// Days since 1970-01-01 of a proleptic Gregorian date (Hinnant's days_from_civil).
constexpr int daysFromCivil(int y, unsigned m, unsigned d) noexcept
{
    y -= m <= 2;
    const int era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int>(doe) - 719468;
}

constexpr int kEpoch = daysFromCivil(1991, 1, 1) - 1;  // day ID 1 = 1 January 1991

// ISO week from the closed form: the Thursday of the date's week decides the year.
unsigned isoWeek(const Ymd &v) noexcept
{
    int days = daysFromCivil(v.y, v.m, v.d);
    int weekday = (days + 3) % 7;  // 0 = Monday (1970-01-01 was a Thursday)
    if (weekday < 0)
        weekday += 7;
    int thursday = days - weekday + 3;
    // The year of that Thursday: its 1 January is in the same or the previous year.
    int y = v.y + 1;
    while (daysFromCivil(y, 1, 1) > thursday)
        --y;
    return static_cast<unsigned>((thursday - daysFromCivil(y, 1, 1)) / 7 + 1);
}

const std::vector<Ymd> &dates()
{
    static const std::vector<Ymd> d = randomDates(4096);
    return d;
}

void BM_DayId_DXDate(benchmark::State &state)
{
    const std::vector<DX_DATE> recs = records(dates());
    size_t i = 0;
    for (auto _ : state) {
        DX_DATE d = recs[i++ & 4095];
        U16 id = 0;
        DX_DateGetDayId(&d, &id);
        benchmark::DoNotOptimize(id);
    }
}
BENCHMARK(BM_DayId_DXDate);

void BM_DayId_ClosedForm(benchmark::State &state)
{
    const std::vector<Ymd> &ds = dates();
    size_t i = 0;
    for (auto _ : state) {
        const Ymd &v = ds[i++ & 4095];
        U16 id = static_cast<U16>(daysFromCivil(v.y, v.m, v.d) - kEpoch);
        benchmark::DoNotOptimize(id);
    }
}
BENCHMARK(BM_DayId_ClosedForm);

void BM_DayId_GDate(benchmark::State &state)
{
    const std::vector<Ymd> &ds = dates();
    size_t i = 0;
    for (auto _ : state) {
        const Ymd &v = ds[i++ & 4095];
        GDate g;
        g_date_clear(&g, 1);
        g_date_set_dmy(&g, static_cast<GDateDay>(v.d), static_cast<GDateMonth>(v.m), static_cast<GDateYear>(v.y));
        benchmark::DoNotOptimize(g_date_get_julian(&g));
    }
}
BENCHMARK(BM_DayId_GDate);

void BM_WeekOfYear_DXDate(benchmark::State &state)
{
    const std::vector<DX_DATE> recs = records(dates());
    size_t i = 0;
    for (auto _ : state) {
        DX_DATE d = recs[i++ & 4095];
        U16 week = 0;
        DX_DateGetWeekOfYear(&d, &week);
        benchmark::DoNotOptimize(week);
    }
}
BENCHMARK(BM_WeekOfYear_DXDate);

void BM_WeekOfYear_ClosedForm(benchmark::State &state)
{
    const std::vector<Ymd> &ds = dates();
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(isoWeek(ds[i++ & 4095]));
}
BENCHMARK(BM_WeekOfYear_ClosedForm);

void BM_WeekOfYear_GDate(benchmark::State &state)
{
    const std::vector<Ymd> &ds = dates();
    size_t i = 0;
    for (auto _ : state) {
        const Ymd &v = ds[i++ & 4095];
        GDate g;
        g_date_clear(&g, 1);
        g_date_set_dmy(&g, static_cast<GDateDay>(v.d), static_cast<GDateMonth>(v.m), static_cast<GDateYear>(v.y));
        benchmark::DoNotOptimize(g_date_get_iso8601_week_of_year(&g));
    }
}
BENCHMARK(BM_WeekOfYear_GDate);

// The two computations agree before anything is timed.
[[maybe_unused]] const bool kChecked = [] {
    for (const DX_DATE &r : records(dates())) {
        DX_DATE d = r;
        U16 id = 0, week = 0;
        DX_DateGetDayId(&d, &id);
        DX_DateGetWeekOfYear(&d, &week);
        Ymd v{d.year, d.month + 1u, d.day};
        if (id != static_cast<U16>(daysFromCivil(v.y, v.m, v.d) - kEpoch) || week != isoWeek(v))
            std::abort();
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
