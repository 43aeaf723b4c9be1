// The 16-bit checksum beside a plain one-byte-at-a-time table loop (what a
// caller writes by hand) and beside zlib's crc32, on the same bytes.
#include <benchmark/benchmark.h>

#include "rqcore/cksum.h"

#include <zlib.h>

#include <array>
#include <random>
#include <vector>

namespace {

const std::vector<int64_t> kSizes = {4 << 10, 1 << 20, 64 << 20};

const std::vector<U8> &bytes(size_t n)
{
    static std::vector<U8> data;
    if (data.size() < n) {
        std::mt19937 rng(1);
        data.resize(n);
        for (U8 &b : data)
            b = static_cast<U8>(rng());
    }
    return data;
}

std::array<U16, 256> byteTable()
{
    std::array<U16, 256> t{};
    for (unsigned b = 0; b < 256; ++b)
        t[b] = DX_CksumAdd(0, static_cast<U8>(b));
    return t;
}

void BM_Cksum_Library(benchmark::State &state)
{
    size_t n = static_cast<size_t>(state.range(0));
    const U8 *p = bytes(n).data();
    for (auto _ : state)
        benchmark::DoNotOptimize(DX_CksumArrayLong(0xFFFF, p, static_cast<U32>(n)));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_Cksum_ByteLoop(benchmark::State &state)
{
    static const std::array<U16, 256> table = byteTable();
    size_t n = static_cast<size_t>(state.range(0));
    const U8 *p = bytes(n).data();
    for (auto _ : state) {
        U16 c = 0xFFFF;
        for (size_t i = 0; i < n; ++i)
            c = static_cast<U16>((c >> 8) ^ table[(c ^ p[i]) & 0xFF]);
        benchmark::DoNotOptimize(c);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_Cksum_ZlibCrc32(benchmark::State &state)
{
    size_t n = static_cast<size_t>(state.range(0));
    const U8 *p = bytes(n).data();
    for (auto _ : state)
        benchmark::DoNotOptimize(crc32(0, p, static_cast<uInt>(n)));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_Cksum_Array32(benchmark::State &state)
{
    size_t n = static_cast<size_t>(state.range(0));
    const U8 *p = bytes(n).data();
    for (auto _ : state)
        benchmark::DoNotOptimize(DX_CksumArray32(0xFFFFFFFF, p, static_cast<U32>(n)));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

}  // namespace

BENCHMARK(BM_Cksum_Library)->ArgsProduct({kSizes});
BENCHMARK(BM_Cksum_ByteLoop)->ArgsProduct({kSizes});
BENCHMARK(BM_Cksum_ZlibCrc32)->ArgsProduct({kSizes});
BENCHMARK(BM_Cksum_Array32)->ArgsProduct({kSizes});

BENCHMARK_MAIN();
