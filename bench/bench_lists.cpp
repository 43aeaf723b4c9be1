// DX_List beside GLib's GSList doing the same work: append, a walk, find by
// identifier, sorted insert and sort, on 10^3, 10^4 and 10^5 elements of a
// 32-bit identifier with 32-bit data.
//
// GLib gets its best case: the cell is packed into the node's pointer
// (one allocation per element, as DX_List has), appends are prepends plus
// one reverse, and g_slist_sort is a merge sort.  Sorted insert and find
// are linear per operation in both, so the largest sorted-insert case runs
// once.  "per_elem" is the time per element (per lookup for find).
#include <benchmark/benchmark.h>
#include <glib.h>

#include "rqcore/lists.h"

#include <cstdint>
#include <random>
#include <vector>

namespace {

std::vector<int32_t> randomIds(int64_t n, uint32_t seed = 1991)
{
    std::mt19937 rng(seed);
    std::vector<int32_t> ids(static_cast<size_t>(n));
    for (auto &id : ids)
        id = static_cast<int32_t>(rng() % static_cast<uint32_t>(n * 4));
    return ids;
}

gpointer pack(int32_t id, int32_t data)
{
    return GSIZE_TO_POINTER((static_cast<gsize>(static_cast<uint32_t>(id)) << 32) | static_cast<uint32_t>(data));
}

int32_t idOf(gconstpointer p) { return static_cast<int32_t>(GPOINTER_TO_SIZE(p) >> 32); }

gint compareCells(gconstpointer a, gconstpointer b)
{
    // Identifier, then data: the order of a DX_List cell comparison.
    gsize x = GPOINTER_TO_SIZE(a) ^ 0x8000000080000000ull, y = GPOINTER_TO_SIZE(b) ^ 0x8000000080000000ull;
    return x < y ? -1 : (x > y ? 1 : 0);
}

gint compareId(gconstpointer element, gconstpointer key)
{
    return idOf(element) == *static_cast<const int32_t *>(key) ? 0 : 1;
}

HLIST makeList(const std::vector<int32_t> &ids, U32 flags = 0)
{
    HLIST h = 0;
    DX_ListCreate(&h, 4, 4, flags, DX_MemS32Cmp, DX_MemS32Cmp);
    for (size_t i = 0; i < ids.size(); ++i) {
        int32_t data = static_cast<int32_t>(i);
        DX_ListAlwaysAddLast(h, &ids[i], &data);
    }
    return h;
}

GSList *makeSList(const std::vector<int32_t> &ids)
{
    GSList *l = nullptr;
    for (size_t i = 0; i < ids.size(); ++i)
        l = g_slist_prepend(l, pack(ids[i], static_cast<int32_t>(i)));
    return g_slist_reverse(l);
}

void perElement(benchmark::State &state, int64_t perIteration)
{
    state.counters["per_elem"] =
        benchmark::Counter(static_cast<double>(perIteration),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// ---- append ----------------------------------------------------------------

void BM_DX_Append(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    for (auto _ : state) {
        HLIST h = 0;
        DX_ListCreate(&h, 4, 4, 0, DX_MemS32Cmp, DX_MemS32Cmp);
        for (size_t i = 0; i < ids.size(); ++i)
            DX_ListAddLast(h, &ids[i], &ids[i]);
        DX_ListDestroy(&h);
    }
    perElement(state, state.range(0));
}

void BM_GSList_Append(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    for (auto _ : state) {
        GSList *l = makeSList(ids);
        benchmark::DoNotOptimize(l);
        g_slist_free(l);
    }
    perElement(state, state.range(0));
}

// ---- walk ------------------------------------------------------------------------
// One call per element (DX_ListGetFirst/DX_ListGetNext copying the cell out)
// against GLib's inline loop over the links.

void BM_DX_Walk(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    HLIST h = makeList(ids);
    for (auto _ : state) {
        int32_t id, data;
        int64_t sum = 0;
        for (U32 s = DX_ListGetFirst(h, &id, &data); s == 0; s = DX_ListGetNext(h, &id, &data))
            sum += id + data;
        benchmark::DoNotOptimize(sum);
    }
    DX_ListDestroy(&h);
    perElement(state, state.range(0));
}

void BM_GSList_Walk(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    GSList *l = makeSList(ids);
    for (auto _ : state) {
        int64_t sum = 0;
        for (GSList *e = l; e != nullptr; e = e->next) {
            gsize cell = GPOINTER_TO_SIZE(e->data);
            sum += static_cast<int32_t>(cell >> 32) + static_cast<int32_t>(cell & 0xFFFFFFFFu);
        }
        benchmark::DoNotOptimize(sum);
    }
    g_slist_free(l);
    perElement(state, state.range(0));
}

// ---- find by identifier -------------------------------------------------------

constexpr int kLookups = 64;

void BM_DX_Find(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    auto keys = randomIds(kLookups, 7);
    HLIST h = makeList(ids);
    int32_t data;
    for (auto _ : state)
        for (int32_t key : keys)
            benchmark::DoNotOptimize(DX_ListAlwaysGet(h, &key, &data));
    DX_ListDestroy(&h);
    perElement(state, kLookups);
}

void BM_GSList_Find(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    auto keys = randomIds(kLookups, 7);
    GSList *l = makeSList(ids);
    for (auto _ : state)
        for (int32_t key : keys)
            benchmark::DoNotOptimize(g_slist_find_custom(l, &key, compareId));
    g_slist_free(l);
    perElement(state, kLookups);
}

// ---- sorted insert --------------------------------------------------------------

void BM_DX_SortedInsert(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    for (auto _ : state) {
        HLIST h = 0;
        DX_ListCreate(&h, 4, 4, DX_LIST_SORTED, DX_MemS32Cmp, DX_MemS32Cmp);
        for (size_t i = 0; i < ids.size(); ++i)
            DX_ListAddTo(h, &ids[i], &ids[i]);
        DX_ListDestroy(&h);
    }
    perElement(state, state.range(0));
}

void BM_GSList_SortedInsert(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    for (auto _ : state) {
        GSList *l = nullptr;
        for (int32_t id : ids)
            l = g_slist_insert_sorted(l, pack(id, id), compareCells);
        g_slist_free(l);
    }
    perElement(state, state.range(0));
}

// ---- sort ----------------------------------------------------------------------------

void BM_DX_QuickSort(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        HLIST h = makeList(ids);
        state.ResumeTiming();
        benchmark::DoNotOptimize(DX_ListQuickSort(h, nullptr, nullptr));
        state.PauseTiming();
        DX_ListDestroy(&h);
        state.ResumeTiming();
    }
    perElement(state, state.range(0));
}

void BM_GSList_Sort(benchmark::State &state)
{
    auto ids = randomIds(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        GSList *l = makeSList(ids);
        state.ResumeTiming();
        l = g_slist_sort(l, compareCells);
        state.PauseTiming();
        g_slist_free(l);
        state.ResumeTiming();
    }
    perElement(state, state.range(0));
}

void sizes(benchmark::internal::Benchmark *b)
{
    b->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
}

}  // namespace

BENCHMARK(BM_DX_Append)->Apply(sizes);
BENCHMARK(BM_GSList_Append)->Apply(sizes);
BENCHMARK(BM_DX_Walk)->Apply(sizes);
BENCHMARK(BM_GSList_Walk)->Apply(sizes);
BENCHMARK(BM_DX_Find)->Apply(sizes);
BENCHMARK(BM_GSList_Find)->Apply(sizes);
BENCHMARK(BM_DX_SortedInsert)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DX_SortedInsert)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GSList_SortedInsert)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GSList_SortedInsert)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DX_QuickSort)->Apply(sizes);
BENCHMARK(BM_GSList_Sort)->Apply(sizes);

BENCHMARK_MAIN();
