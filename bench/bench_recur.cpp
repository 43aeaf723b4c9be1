// Recurrence expansion beside libical 3's recurrence iterator: the same four
// rules (daily for 10 years; Monday and Wednesday every other week for 10
// years; the last Monday of each month for 10 years; yearly for 100 years),
// reported as time per produced date ("per_date").  DX_DateGenRecur builds
// and destroys its output list in every iteration; libical's dates are only
// counted, which favours the peer.
#include "rqcore/date.h"
#include "rqcore/lists.h"

#include <benchmark/benchmark.h>
#include <libical/ical.h>

namespace {

struct Rule {
    U16 kind;
    U16 interval;
    U16 codes[2];
    int ncodes;
    U16 startDay, startMonth0, startYear;
    U16 endDay, endMonth0, endYear;
    const char *rrule;  // the same rule for libical
    const char *dtstart;
};

constexpr Rule kRules[] = {
    {1, 1, {0, 0}, 0, 1, 0, 2005, 31, 11, 2014, "FREQ=DAILY;UNTIL=20141231", "20050101"},
    {2, 2, {1, 3}, 2, 3, 0, 2005, 31, 11, 2014, "FREQ=WEEKLY;INTERVAL=2;BYDAY=MO,WE;WKST=MO;UNTIL=20141231",
     "20050103"},
    {4, 1, {29, 0}, 1, 1, 0, 2005, 31, 11, 2014, "FREQ=MONTHLY;BYDAY=-1MO;UNTIL=20141231", "20050101"},
    {5, 1, {0, 0}, 0, 15, 5, 2005, 31, 11, 2104, "FREQ=YEARLY;UNTIL=21041231", "20050615"},
};

void setPerDate(benchmark::State &state, int64_t dates)
{
    state.counters["dates"] = static_cast<double>(dates);
    state.counters["per_date"] = benchmark::Counter(static_cast<double>(dates),
                                                    benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
}

void BM_DX_DateGenRecur(benchmark::State &state)
{
    const Rule &r = kRules[state.range(0)];
    HLIST days = 0;
    DX_DateListOfWeekDaysCreate(&days, 0);  // 2-byte codes
    for (int i = 0; i < r.ncodes; ++i)
        DX_ListAddLast(days, &r.codes[i], nullptr);
    DX_RECUR d{};
    d.interval = r.interval;
    d.kind = r.kind;
    d.days = r.ncodes > 0 ? days : 0;
    DX_DateSet(&d.start, r.startDay, r.startMonth0, r.startYear);
    DX_DateSet(&d.end, r.endDay, r.endMonth0, r.endYear);
    U32 produced = 0;
    for (auto _ : state) {
        HLIST out = 0;
        if (DX_DateGenRecur(1, &d, &out, 0) != 0)
            state.SkipWithError("generation failed");
        DX_ListGetElemNum(out, &produced);
        DX_ListDestroy(&out);
    }
    DX_ListDestroy(&days);
    setPerDate(state, produced);
}

void BM_libical_recur(benchmark::State &state)
{
    const Rule &r = kRules[state.range(0)];
    struct icalrecurrencetype rule = icalrecurrencetype_from_string(r.rrule);
    struct icaltimetype start = icaltime_from_string(r.dtstart);
    int64_t produced = 0;
    for (auto _ : state) {
        icalrecur_iterator *it = icalrecur_iterator_new(rule, start);
        if (it == nullptr) {
            state.SkipWithError("libical refused the rule");
            break;
        }
        produced = 0;
        for (struct icaltimetype t = icalrecur_iterator_next(it); !icaltime_is_null_time(t);
             t = icalrecur_iterator_next(it)) {
            benchmark::DoNotOptimize(t);
            ++produced;
        }
        icalrecur_iterator_free(it);
    }
    setPerDate(state, produced);
}

void ruleNames(benchmark::internal::Benchmark *b)
{
    b->ArgName("rule");
    for (int i = 0; i < 4; ++i)
        b->Arg(i);
}

}  // namespace

// rule 0 daily, 1 Mon+Wed every other week, 2 last Monday, 3 yearly.
BENCHMARK(BM_DX_DateGenRecur)->Apply(ruleNames);
BENCHMARK(BM_libical_recur)->Apply(ruleNames);

BENCHMARK_MAIN();
