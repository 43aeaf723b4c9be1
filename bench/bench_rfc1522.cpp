// Encoded words in header values beside GMime's header text functions, in
// the same run: decoding a header of words in ISO-8859-1 (Q), Shift_JIS (B)
// and ISO-2022-JP (B), and writing Japanese text as ISO-2022-JP words.
// "cold" releases the library's kept converters before every call, which is
// what each call cost when converters were made per call.
#include <benchmark/benchmark.h>

#include "rqcore/charmap.h"
#include "rqcore/encode.h"
#include "rqcore/frame.h"
#include "rqcore/unicode.h"

#include <gmime/gmime.h>

#include <string>

namespace {

const std::string &maps()
{
    static const std::string directory = std::string(RQ_DATA_DIR) + "/charmaps";
    return directory;
}

const char *const kHeaders[] = {
    "Re: =?ISO-8859-1?Q?caf=E9_cr=E8me?= et suite",
    "=?Shift_JIS?B?k/qWe4zqgsyDZYNMg1iDZ4LFgreB?=",
    "=?ISO-2022-JP?B?GyRCRnxLXDhsJE4lRiUtJTklSCRHJDkbKEI=?=",
};

// UTF-8 for "Japanese text, a long subject line test".
const char *const kJapanese =
    "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE3\x83\x86\xE3\x82\xAD\xE3\x82\xB9\xE3\x83\x88\xE3\x80\x81"
    "\xE9\x95\xB7\xE3\x81\x84\xE4\xBB\xB6\xE5\x90\x8D\xE3\x81\xAE\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88";

void setUp()
{
    static bool done = [] {
        UNICODE_Initialize(0);
        CHARMAP_setConfigDirectory(maps().c_str());
        g_mime_init();
        return true;
    }();
    (void)done;
}

void BM_RqDecode(benchmark::State &state)
{
    setUp();
    const char *header = kHeaders[state.range(0)];
    bool cold = state.range(1) != 0;
    for (auto _ : state) {
        if (cold)
            ENCODE_ReleaseCachedConverters();
        char *out = nullptr;
        ENCODE_FromRFC1522(maps().c_str(), header, &out);
        benchmark::DoNotOptimize(out);
        RQCORE_free(out);
    }
}

void BM_GMimeDecode(benchmark::State &state)
{
    setUp();
    const char *header = kHeaders[state.range(0)];
    for (auto _ : state) {
        char *out = g_mime_utils_header_decode_text(nullptr, header);
        benchmark::DoNotOptimize(out);
        g_free(out);
    }
}

void BM_RqEncodeIso2022Jp(benchmark::State &state)
{
    setUp();
    for (auto _ : state) {
        char *out = nullptr;
        ENCODE_ToRFC1522(maps().c_str(), kJapanese, "ISO-2022-JP", 'B', &out);
        benchmark::DoNotOptimize(out);
        RQCORE_free(out);
    }
}

void BM_GMimeEncodeIso2022Jp(benchmark::State &state)
{
    setUp();
    for (auto _ : state) {
        char *out = g_mime_utils_header_encode_text(nullptr, kJapanese, "iso-2022-jp");
        benchmark::DoNotOptimize(out);
        g_free(out);
    }
}

}  // namespace

BENCHMARK(BM_RqDecode)->ArgsProduct({{0, 1, 2}, {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GMimeDecode)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RqEncodeIso2022Jp)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GMimeEncodeIso2022Jp)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
