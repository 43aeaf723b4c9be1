// Time-zone conversions beside glibc: UTC to local time against localtime_r,
// local time to UTC against mktime, on the same 4096 random instants of
// 1991-2037 in one zone (Europe/Paris: CET-1CEST for rqcore, TZ=Europe/Paris
// for glibc).  With the shipped zone file (data/tz/zones.profile, or the file
// named by RQ_TZ_FILE) the conversions are also timed with each instant's
// zone drawn at random from every zone of the file; glibc has no such mode
// (it holds one zone per process), so those run alone.  "items" are
// conversions.
#include <benchmark/benchmark.h>

#include "rqcore/date.h"
#include "rqcore/tz.h"

#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr time_t kEpoch = 662688000;  // 1991-01-01 00:00:00 UTC
constexpr size_t kCount = 4096;

DX_TZENTRY entry(U16 day, U16 month, U16 time, S16 adjust)
{
    DX_TZENTRY e{};
    DX_DateSet(&e.from, day, month, 1991);
    DX_DateSet(&e.to, day, month, 2037);
    e.time = time;
    e.weekday = 0;
    e.adjust = adjust;
    return e;
}

struct Fixture {
    HLIST paris = 0;
    HLIST all = 0;
    std::vector<std::string> zones;
    std::vector<U32> utc;
    std::vector<U32> local;
    std::vector<U32> type;
    std::vector<struct tm> tms;
    std::vector<U32> pick;  // zone of each instant in the random-zone runs

    Fixture()
    {
        // Last Sunday of March, 3:00 after the change; last Sunday of October, 2:00.
        DX_TZENTRY b = entry(25, 2, 180, -120), e = entry(25, 9, 120, -60);
        DX_TZCreateTZRulesSimple(&paris, "CET-1CEST", "Europe/Paris", "France", &b, &e);
        setenv("TZ", "Europe/Paris", 1);
        tzset();
        std::mt19937 rng(2005);
        const U32 last = 24441u * 1440u;  // 30 November 2037
        for (size_t i = 0; i < kCount; ++i) {
            U32 u = rng() % last;
            U32 l = 0, t = 0;
            DX_TZFromUTCToLocalTime(paris, "CET-1CEST", &l, &t, u, nullptr, 0);
            utc.push_back(u);
            local.push_back(l);
            type.push_back(t);
            time_t s = kEpoch + static_cast<time_t>(u) * 60;
            struct tm tm {};
            localtime_r(&s, &tm);
            tms.push_back(tm);
        }
        const char *file = std::getenv("RQ_TZ_FILE");
        std::string path = file != nullptr ? file : RQ_DATA_DIR "/tz/zones.profile";
        if (DX_TZRulesCreate(&all, path.c_str(), nullptr) == 0) {
            char zone[DX_TZ_ZONE_SIZE];
            U32 atEnd = 0;
            for (U32 mode = DX_TZ_ENUM_FIRST;
                 DX_TZEnum(all, mode, zone, sizeof zone, nullptr, 0, nullptr, 0, &atEnd) == 0 && atEnd == 0;
                 mode = DX_TZ_ENUM_NEXT)
                zones.emplace_back(zone);
            for (size_t i = 0; i < kCount; ++i)
                pick.push_back(static_cast<U32>(rng() % zones.size()));
        }
    }
};

Fixture &fixture()
{
    static Fixture f;
    return f;
}

void BM_RqUtcToLocal(benchmark::State &state)
{
    Fixture &f = fixture();
    size_t i = 0;
    for (auto _ : state) {
        U32 l = 0, t = 0;
        benchmark::DoNotOptimize(DX_TZFromUTCToLocalTime(f.paris, "CET-1CEST", &l, &t, f.utc[i], nullptr, 0));
        benchmark::DoNotOptimize(l);
        i = (i + 1) % kCount;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_GlibcLocaltime(benchmark::State &state)
{
    Fixture &f = fixture();
    size_t i = 0;
    for (auto _ : state) {
        time_t s = kEpoch + static_cast<time_t>(f.utc[i]) * 60;
        struct tm tm;
        benchmark::DoNotOptimize(localtime_r(&s, &tm));
        i = (i + 1) % kCount;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_RqLocalToUtc(benchmark::State &state)
{
    Fixture &f = fixture();
    size_t i = 0;
    for (auto _ : state) {
        U32 u = 0;
        benchmark::DoNotOptimize(DX_TZFromLocalTimeToUTC(f.paris, "CET-1CEST", &u, f.local[i], f.type[i]));
        benchmark::DoNotOptimize(u);
        i = (i + 1) % kCount;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_GlibcMktime(benchmark::State &state)
{
    Fixture &f = fixture();
    size_t i = 0;
    for (auto _ : state) {
        struct tm tm = f.tms[i];  // mktime normalises its argument
        benchmark::DoNotOptimize(mktime(&tm));
        i = (i + 1) % kCount;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_RqUtcToLocalRandomZone(benchmark::State &state)
{
    Fixture &f = fixture();
    if (f.zones.empty()) {
        state.SkipWithError("no zone file");
        return;
    }
    size_t i = 0;
    for (auto _ : state) {
        U32 l = 0, t = 0;
        benchmark::DoNotOptimize(
            DX_TZFromUTCToLocalTime(f.all, f.zones[f.pick[i]].c_str(), &l, &t, f.utc[i], nullptr, 0));
        benchmark::DoNotOptimize(l);
        i = (i + 1) % kCount;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_RqLocalToUtcRandomZone(benchmark::State &state)
{
    Fixture &f = fixture();
    if (f.zones.empty()) {
        state.SkipWithError("no zone file");
        return;
    }
    size_t i = 0;
    for (auto _ : state) {
        U32 u = 0;
        // The instant's Paris wall-clock time, read in another zone: any type.
        benchmark::DoNotOptimize(DX_TZFromLocalTimeToUTC(f.all, f.zones[f.pick[i]].c_str(), &u, f.local[i], 0));
        benchmark::DoNotOptimize(u);
        i = (i + 1) % kCount;
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(BM_RqUtcToLocal);
BENCHMARK(BM_GlibcLocaltime);
BENCHMARK(BM_RqLocalToUtc);
BENCHMARK(BM_GlibcMktime);
BENCHMARK(BM_RqUtcToLocalRandomZone);
BENCHMARK(BM_RqLocalToUtcRandomZone);

BENCHMARK_MAIN();
