// Line reading from a file stream beside getline(3), and from a memory
// stream, over a file of mail-like lines.
#include <benchmark/benchmark.h>

#include "rqcore/stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace {

// A temporary file of `bytes` bytes of CRLF lines of 20 to 100 characters.
struct LineFile {
    std::string path;
    std::string content;
    size_t lines = 0;
    explicit LineFile(size_t bytes)
    {
        char name[] = "/tmp/rqbench.XXXXXX";
        int fd = mkstemp(name);
        path = name;
        std::mt19937 rng(3);
        while (content.size() < bytes) {
            size_t n = 20 + rng() % 81;
            for (size_t i = 0; i < n; ++i)
                content += static_cast<char>('a' + rng() % 26);
            content += "\r\n";
            ++lines;
        }
        if (write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
            std::abort();
        close(fd);
    }
    ~LineFile() { unlink(path.c_str()); }
};

void BM_Lines_STREAM_file(benchmark::State &state)
{
    LineFile file(static_cast<size_t>(state.range(0)));
    char buffer[1024];
    for (auto _ : state) {
        STREAM *s = nullptr;
        STREAM_attachToFilename(&s, file.path.c_str(), STREAM_READ | STREAM_LINE_MODE);
        size_t lines = 0;
        U32 count = 0;
        while (STREAM_read(s, buffer, sizeof buffer, &count) == 0)
            ++lines;
        STREAM_destroy(&s);
        if (lines != file.lines)
            state.SkipWithError("wrong line count");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(file.content.size()));
}

void BM_Lines_getline(benchmark::State &state)
{
    LineFile file(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        FILE *f = std::fopen(file.path.c_str(), "r");
        char *line = nullptr;
        size_t capacity = 0;
        size_t lines = 0;
        while (getline(&line, &capacity, f) >= 0)
            ++lines;
        std::free(line);
        std::fclose(f);
        if (lines != file.lines)
            state.SkipWithError("wrong line count");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(file.content.size()));
}

void BM_Lines_STREAM_buffer(benchmark::State &state)
{
    LineFile file(static_cast<size_t>(state.range(0)));
    char buffer[1024];
    for (auto _ : state) {
        STREAM *s = nullptr;
        STREAM_attachToBuffer(&s, file.content.data(), static_cast<U32>(file.content.size()),
                              STREAM_READ | STREAM_LINE_MODE);
        size_t lines = 0;
        U32 count = 0;
        while (STREAM_read(s, buffer, sizeof buffer, &count) == 0)
            ++lines;
        STREAM_destroy(&s);
        if (lines != file.lines)
            state.SkipWithError("wrong line count");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(file.content.size()));
}

}  // namespace

BENCHMARK(BM_Lines_STREAM_file)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Lines_getline)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Lines_STREAM_buffer)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
