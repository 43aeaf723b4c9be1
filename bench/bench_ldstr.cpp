// String-table lookups beside tinycdb: a 50,000-key table opened once, then
// 100,000 lookups of random keys of it per iteration, each copying the text
// out (DX_LdStrLoad; cdb_find and cdb_read on a cdb file of the same pairs).
#include "rqcore/ldstr.h"

#include <benchmark/benchmark.h>
#include <cdb.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kKeys = 50000;
constexpr int kLookups = 100000;

struct Data {
    std::string dir, table, cdb;
    std::vector<U32> keys, lookups;
};

std::string text(U32 key) { return "label number " + std::to_string(key) + " of the mail screens"; }

const Data &data()
{
    static const Data d = [] {
        Data out;
        char pattern[] = "/tmp/bench_ldstr.XXXXXX";
        out.dir = mkdtemp(pattern);
        out.table = out.dir + "/t.ldstr";
        out.cdb = out.dir + "/t.cdb";
        std::mt19937 rng(12345);
        for (int i = 0; i < kKeys; ++i)
            out.keys.push_back(static_cast<U32>(rng()) | 1u);  // never 0; repeats are rare and refused alike
        DX_LDSTR h;
        if (DX_LdStrOpen(&h, out.table.c_str(), 0, LDSTR_MODE_CREATE) != 0)
            std::abort();
        int fd = open(out.cdb.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        struct cdb_make cm;
        if (fd < 0 || cdb_make_start(&cm, fd) != 0)
            std::abort();
        for (U32 k : out.keys) {
            const std::string t = text(k);
            if (DX_LdStrAddTo(&h, k, 0, t.c_str()) == 0)
                cdb_make_add(&cm, &k, sizeof k, t.data(), static_cast<unsigned>(t.size()));
        }
        if (DX_LdStrClose(&h) != 0 || cdb_make_finish(&cm) != 0)
            std::abort();
        close(fd);
        for (int i = 0; i < kLookups; ++i)
            out.lookups.push_back(out.keys[rng() % kKeys]);
        return out;
    }();
    return d;
}

void BM_DX_LdStrLoad(benchmark::State &state)
{
    const Data &d = data();
    DX_LDSTR h;
    if (DX_LdStrOpen(&h, d.table.c_str(), 0, LDSTR_MODE_READ) != 0) {
        state.SkipWithError("open");
        return;
    }
    char buffer[128];
    for (auto _ : state) {
        for (U32 k : d.lookups) {
            if (DX_LdStrLoad(&h, k, buffer, nullptr, 0) != 0)
                std::abort();
            benchmark::DoNotOptimize(buffer);
        }
    }
    state.SetItemsProcessed(state.iterations() * kLookups);
    DX_LdStrClose(&h);
}
BENCHMARK(BM_DX_LdStrLoad)->Unit(benchmark::kMillisecond);

void BM_tinycdb_find(benchmark::State &state)
{
    const Data &d = data();
    int fd = open(d.cdb.c_str(), O_RDONLY);
    struct cdb c;
    if (fd < 0 || cdb_init(&c, fd) != 0) {
        state.SkipWithError("open");
        return;
    }
    char buffer[128];
    for (auto _ : state) {
        for (U32 k : d.lookups) {
            if (cdb_find(&c, &k, sizeof k) <= 0)
                std::abort();
            cdb_read(&c, buffer, cdb_datalen(&c), cdb_datapos(&c));
            buffer[cdb_datalen(&c)] = '\0';
            benchmark::DoNotOptimize(buffer);
        }
    }
    state.SetItemsProcessed(state.iterations() * kLookups);
    cdb_free(&c);
    close(fd);
}
BENCHMARK(BM_tinycdb_find)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
