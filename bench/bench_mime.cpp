// MIME parsing, body extraction and generation, beside GMime 3 parsing the
// same bytes.  Messages of 1 MB and 50 MB: multipart/mixed with alternating
// quoted-printable text parts and base64 attachments; and messages of many
// tiny parts (40 bytes each) or deeply nested multiparts, whose cost must
// grow with the number of parts and levels, not with its square.
#include <benchmark/benchmark.h>

#include "rqcore/encode.h"
#include "rqcore/frame.h"
#include "rqcore/mime.h"
#include "rqcore/stream.h"

#include <gmime/gmime.h>

#include <fcntl.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <unistd.h>

namespace {

struct Sample {
    std::string message;
    std::string path;
    std::string attachment;  // the raw bytes of one attachment, for the encoder baseline
};

std::string buildMessage(size_t target, std::string *attachment)
{
    MIME_CONTEXT *ctx = nullptr;
    MIME_createContext(&ctx);
    char *text = nullptr;
    STREAM *out = nullptr;
    STREAM_attachToGrowingBuffer(&out, &text, 1 << 20, STREAM_WRITE | STREAM_READ);
    const U32 names[] = {MIME_PARAM_BOUNDARY};
    const char *values[] = {"bench-boundary-0123456789"};
    MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_SUBJECT, "benchmark", nullptr, nullptr, 0);
    MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_MIME_VERSION, "1.0", nullptr, nullptr, 0);
    MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_CONTENT_TYPE, "multipart/mixed", names, values, 1);
    MIME_outputBodyToStream(ctx, out, "", 0, MIME_ENCODING_7BIT);
    MIME_outputBoundaryToStream(ctx, out, values[0]);
    std::mt19937 rng(42);
    std::string binary(48 * 1024, '\0');
    for (char &c : binary)
        c = static_cast<char>(rng());
    *attachment = binary;
    std::string prose;
    while (prose.size() < 16 * 1024)
        prose += "Le caf\xe9 de la r\xe9union est servi \xe0 9h; agenda = bilan & projets.\r\n";
    U32 position = 0;
    for (int i = 0; position < target; ++i) {
        if (i % 2 == 0)
            MIME_outputAttachmentToStream(ctx, out, prose.data(), static_cast<U32>(prose.size()), MIME_TYPE_TEXT,
                                          MIME_SUBTYPE_PLAIN, MIME_ENCODING_QUOTED_PRINTABLE, nullptr, "ISO-8859-1",
                                          nullptr, values[0]);
        else
            MIME_outputAttachmentToStream(ctx, out, binary.data(), static_cast<U32>(binary.size()),
                                          MIME_TYPE_APPLICATION, MIME_SUBTYPE_POSTSCRIPT, MIME_ENCODING_BASE64,
                                          nullptr, nullptr, "data.ps", values[0]);
        STREAM_seek(out, 0, STREAM_SEEK_END, &position);
    }
    // The last attachment opened a part; close the multipart after it.
    MIME_outputBodyToStream(ctx, out, "", 0, MIME_ENCODING_7BIT);
    MIME_outputTerminatingBoundaryToStream(ctx, out, values[0]);
    STREAM_seek(out, 0, STREAM_SEEK_END, &position);
    std::string message(text, position);
    STREAM_destroy(&out);
    RQCORE_free(text);
    MIME_destroyContext(&ctx);
    return message;
}

std::map<size_t, Sample> samples;

const Sample &sample(size_t megabytes)
{
    auto it = samples.find(megabytes);
    if (it != samples.end())
        return it->second;
    Sample s;
    s.message = buildMessage(megabytes << 20, &s.attachment);
    s.path = "/tmp/bench_mime." + std::to_string(getpid()) + "." + std::to_string(megabytes) + ".eml";
    FILE *f = std::fopen(s.path.c_str(), "wb");
    std::fwrite(s.message.data(), 1, s.message.size(), f);
    std::fclose(f);
    return samples.emplace(megabytes, std::move(s)).first->second;
}

void parseOnce(benchmark::State &state, STREAM *in, bool bodies)
{
    MIME_CONTEXT *ctx = nullptr;
    MIME_createContext(&ctx);
    MIME_WRAPPER *w = nullptr;
    if (MIME_parseMessageFromStream(ctx, in, &w) != 0 || w->partCount < 3)
        state.SkipWithError("parse failed");
    if (bodies) {
        for (MIME_PART *p = w->parts; p != nullptr; p = p->next) {
            char *body = nullptr;
            U32 length = 0;
            if (MIME_getPartBodyBuffer(ctx, p, &body, &length) == 0)
                RQCORE_free(body);
        }
    }
    MIME_destroyWrapper(ctx, &w);
    MIME_destroyContext(&ctx);
}

void BM_RqParseBuffer(benchmark::State &state)
{
    const Sample &s = sample(static_cast<size_t>(state.range(0)));
    std::string copy = s.message;
    for (auto _ : state) {
        STREAM *in = nullptr;
        STREAM_attachToBuffer(&in, copy.data(), static_cast<U32>(copy.size()), STREAM_READ);
        parseOnce(state, in, state.range(1) != 0);
        STREAM_destroy(&in);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.message.size()));
}

void BM_RqParseFile(benchmark::State &state)
{
    const Sample &s = sample(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        STREAM *in = nullptr;
        STREAM_attachToFilename(&in, s.path.c_str(), STREAM_READ);
        parseOnce(state, in, state.range(1) != 0);
        STREAM_destroy(&in);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.message.size()));
}

void decodeGMimePart(GMimeObject *, GMimeObject *part, gpointer)
{
    if (!GMIME_IS_PART(part))
        return;
    GMimeDataWrapper *content = g_mime_part_get_content(GMIME_PART(part));
    if (content == nullptr)
        return;
    GMimeStream *sink = g_mime_stream_mem_new();
    g_mime_data_wrapper_write_to_stream(content, sink);
    g_object_unref(sink);
}

void gmimeOnce(benchmark::State &state, GMimeStream *stream, bool bodies)
{
    GMimeParser *parser = g_mime_parser_new_with_stream(stream);
    GMimeMessage *message = g_mime_parser_construct_message(parser, nullptr);
    if (message == nullptr)
        state.SkipWithError("GMime parse failed");
    else if (bodies)
        g_mime_message_foreach(message, decodeGMimePart, nullptr);
    if (message != nullptr)
        g_object_unref(message);
    g_object_unref(parser);
}

void BM_GMimeParseBuffer(benchmark::State &state)
{
    const Sample &s = sample(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        GMimeStream *stream = g_mime_stream_mem_new_with_buffer(s.message.data(), s.message.size());
        gmimeOnce(state, stream, state.range(1) != 0);
        g_object_unref(stream);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.message.size()));
}

void BM_GMimeParseFile(benchmark::State &state)
{
    const Sample &s = sample(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        GMimeStream *stream = g_mime_stream_fs_open(s.path.c_str(), O_RDONLY, 0644, nullptr);
        gmimeOnce(state, stream, state.range(1) != 0);
        g_object_unref(stream);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.message.size()));
}

// The generator's base64 output (76-character lines) beside the raw encoder
// on the same bytes.
void BM_RqGenerateBase64(benchmark::State &state)
{
    const Sample &s = sample(1);
    std::string body;
    while (body.size() < (8u << 20))
        body += s.attachment;
    MIME_CONTEXT *ctx = nullptr;
    MIME_createContext(&ctx);
    char *text = nullptr;
    STREAM *out = nullptr;
    STREAM_attachToGrowingBuffer(&out, &text, 12u << 20, STREAM_WRITE);
    for (auto _ : state) {
        U32 previous = 0;
        STREAM_seek(out, 0, STREAM_SEEK_SET, &previous);
        MIME_outputBodyToStream(ctx, out, body.data(), static_cast<U32>(body.size()), MIME_ENCODING_BASE64);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
    STREAM_destroy(&out);
    RQCORE_free(text);
    MIME_destroyContext(&ctx);
}

void BM_RawBase64Encoder(benchmark::State &state)
{
    const Sample &s = sample(1);
    std::string body;
    while (body.size() < (8u << 20))
        body += s.attachment;
    for (auto _ : state) {
        char *encoded = nullptr;
        ENCODE_convertToBase64(body.data(), static_cast<U32>(body.size()), &encoded);
        benchmark::DoNotOptimize(encoded);
        RQCORE_free(encoded);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}

// The generator writing the whole message (parts of the 1 MB and 50 MB
// samples) to a growing buffer.
void BM_RqGenerateMessage(benchmark::State &state)
{
    const Sample &s = sample(static_cast<size_t>(state.range(0)));
    size_t bytes = 0;
    for (auto _ : state) {
        std::string ignored;
        std::string built = buildMessage(s.message.size(), &ignored);
        bytes += built.size();
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

// Many tiny parts: "--b", a Content-Type line, a blank line and one body
// line, 40 bytes in all.
std::string manyParts(int64_t count)
{
    std::string m = "Content-Type: multipart/mixed; boundary=b\r\n\r\n";
    m.reserve(m.size() + static_cast<size_t>(count) * 40 + 8);
    for (int64_t i = 0; i < count; ++i)
        m += "--b\r\nContent-Type: text/plain\r\n\r\nhello\r\n";
    m += "--b--\r\n";
    return m;
}

// Every part a multipart holding the next one, each level with its own
// boundary (the parser flattens them all into one part list).
std::string nestedParts(int64_t levels)
{
    std::string m = "Content-Type: multipart/mixed; boundary=b0\r\n\r\n";
    for (int64_t i = 0; i < levels; ++i)
        m += "--b" + std::to_string(i) + "\r\nContent-Type: multipart/mixed; boundary=b" + std::to_string(i + 1) +
             "\r\n\r\n";
    return m;
}

void rqParseCount(benchmark::State &state, const std::string &message)
{
    std::string copy = message;
    for (auto _ : state) {
        STREAM *in = nullptr;
        STREAM_attachToBuffer(&in, copy.data(), static_cast<U32>(copy.size()), STREAM_READ);
        MIME_CONTEXT *ctx = nullptr;
        MIME_createContext(&ctx);
        MIME_WRAPPER *w = nullptr;
        if (MIME_parseMessageFromStream(ctx, in, &w) != 0 || w->partCount < static_cast<U32>(state.range(0)))
            state.SkipWithError("parse failed");
        MIME_destroyWrapper(ctx, &w);
        MIME_destroyContext(&ctx);
        STREAM_destroy(&in);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * message.size()));
    state.counters["parts"] = static_cast<double>(state.range(0));
}

void BM_RqParseManyParts(benchmark::State &state)
{
    rqParseCount(state, manyParts(state.range(0)));
}

void BM_RqParseNested(benchmark::State &state)
{
    rqParseCount(state, nestedParts(state.range(0)));
}

void BM_GMimeParseManyParts(benchmark::State &state)
{
    std::string message = manyParts(state.range(0));
    for (auto _ : state) {
        GMimeStream *stream = g_mime_stream_mem_new_with_buffer(message.data(), message.size());
        gmimeOnce(state, stream, false);
        g_object_unref(stream);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * message.size()));
    state.counters["parts"] = static_cast<double>(state.range(0));
}

// Writing and freeing a parsed message of many tiny parts.
void BM_RqGenerateAndDestroyManyParts(benchmark::State &state)
{
    std::string message = manyParts(state.range(0));
    MIME_CONTEXT *ctx = nullptr;
    MIME_createContext(&ctx);
    std::string sink(message.size() * 2, '\0');
    for (auto _ : state) {
        state.PauseTiming();
        STREAM *in = nullptr;
        STREAM_attachToBuffer(&in, message.data(), static_cast<U32>(message.size()), STREAM_READ);
        MIME_WRAPPER *w = nullptr;
        MIME_parseMessageFromStream(ctx, in, &w);
        STREAM *out = nullptr;
        STREAM_attachToBuffer(&out, sink.data(), static_cast<U32>(sink.size()), STREAM_WRITE);
        state.ResumeTiming();
        if (MIME_outputWrapperToStream(ctx, out, w) != 0)
            state.SkipWithError("output failed");
        MIME_destroyWrapper(ctx, &w);
        state.PauseTiming();
        STREAM_destroy(&out);
        STREAM_destroy(&in);
        state.ResumeTiming();
    }
    MIME_destroyContext(&ctx);
    state.counters["parts"] = static_cast<double>(state.range(0));
}

}  // namespace

BENCHMARK(BM_RqParseBuffer)->ArgsProduct({{1, 50}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GMimeParseBuffer)->ArgsProduct({{1, 50}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();
// Line-mode file reads take one byte per read(2): a few iterations suffice.
BENCHMARK(BM_RqParseFile)->ArgsProduct({{1, 50}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_GMimeParseFile)->ArgsProduct({{1, 50}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RqGenerateBase64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawBase64Encoder)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RqGenerateMessage)->Arg(1)->Arg(50)->Unit(benchmark::kMillisecond)->UseRealTime();
// Tiny parts and nesting: the time per part must stay flat as the count grows.
BENCHMARK(BM_RqParseManyParts)->RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GMimeParseManyParts)->RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RqParseNested)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RqGenerateAndDestroyManyParts)->RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char **argv)
{
    g_mime_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (const auto &entry : samples)
        std::remove(entry.second.path.c_str());
    g_mime_shutdown();
    return 0;
}
