// Base64 and quoted-printable beside the coders a mail server would
// otherwise use: OpenSSL's EVP base64, GLib, GMime and libb64.
#include <benchmark/benchmark.h>

#include "rqcore/encode.h"
#include "rqcore/frame.h"

#include <glib.h>
#include <gmime/gmime.h>
#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

#if defined(RQ_HAVE_LIBB64)
extern "C" {
#include <b64/cdecode.h>
#include <b64/cencode.h>
}
#endif

namespace {

const std::vector<int64_t> kSizes = {1 << 10, 64 << 10, 1 << 20, 16 << 20};

std::string randomBytes(size_t n)
{
    std::mt19937 rng(1);
    std::string s(n, '\0');
    for (auto &c : s)
        c = static_cast<char>(rng() & 0xFF);
    return s;
}

// Mail text: words, CRLF every ~70 bytes.  Latin-1 text has 2% 8-bit
// letters and 1% '=' (an escape every ~22 encoded bytes); English text has
// 0.3% 8-bit letters and no '='.
std::string mailText(size_t n, bool latin = true)
{
    std::mt19937 rng(2);
    std::string s;
    size_t column = 0;
    unsigned eightBit = latin ? 200 : 30, equals = latin ? 100 : 0;
    while (s.size() < n) {
        unsigned r = rng() % 10000;
        if (column > 70) {
            s += "\r\n";
            column = 0;
            continue;
        }
        s += r < 1500                       ? ' '
             : r < 1500 + eightBit          ? static_cast<char>(0xE9)
             : r < 1500 + eightBit + equals ? '='
                                            : static_cast<char>('a' + r % 26);
        ++column;
    }
    s.resize(n);
    return s;
}

std::string base64Of(const std::string &data)
{
    char *out = nullptr;
    ENCODE_convertToBase64(data.data(), static_cast<U32>(data.size()), &out);
    std::string text(out);
    RQCORE_free(out);
    return text;
}

std::string folded76(const std::string &text)
{
    std::string folded;
    for (size_t i = 0; i < text.size(); i += 76)
        folded += text.substr(i, 76) + "\r\n";
    return folded;
}

std::string qpOf(const std::string &data)
{
    char *out = nullptr;
    U32 length = 0;
    ENCODE_toQP(data.data(), static_cast<U32>(data.size()), &out, &length, ENCODE_QP_WRAP | ENCODE_QP_LITERAL_CRLF);
    std::string text(out, length - 1);
    RQCORE_free(out);
    return text;
}

// ---- Base64 encode ----------------------------------------------------------

void BM_Base64Encode_rqcore(benchmark::State &state)
{
    std::string data = randomBytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        char *out = nullptr;
        ENCODE_convertToBase64(data.data(), static_cast<U32>(data.size()), &out);
        benchmark::DoNotOptimize(out);
        RQCORE_free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_Base64Encode_EVP_EncodeBlock(benchmark::State &state)
{
    std::string data = randomBytes(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> out(data.size() / 3 * 4 + 8);
    for (auto _ : state) {
        int n = EVP_EncodeBlock(out.data(), reinterpret_cast<const unsigned char *>(data.data()),
                                static_cast<int>(data.size()));
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_Base64Encode_glib(benchmark::State &state)
{
    std::string data = randomBytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        gchar *out = g_base64_encode(reinterpret_cast<const guchar *>(data.data()), data.size());
        benchmark::DoNotOptimize(out);
        g_free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

#if defined(RQ_HAVE_LIBB64)
void BM_Base64Encode_libb64(benchmark::State &state)
{
    std::string data = randomBytes(static_cast<size_t>(state.range(0)));
    std::vector<char> out(data.size() * 2 + 8);
    for (auto _ : state) {
        base64_encodestate s;
        base64_init_encodestate(&s);
        int n = base64_encode_block(data.data(), static_cast<int>(data.size()), out.data(), &s);
        n += base64_encode_blockend(out.data() + n, &s);
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
#endif

// ---- Base64 decode: clean text and 76-column CRLF text -------------------

std::string decodeInput(benchmark::State &state, bool fold)
{
    std::string text = base64Of(randomBytes(static_cast<size_t>(state.range(0))));
    return fold ? folded76(text) : text;
}

template <bool Fold>
void BM_Base64Decode_rqcore(benchmark::State &state)
{
    std::string text = decodeInput(state, Fold);
    for (auto _ : state) {
        char *out = nullptr;
        U32 length = 0;
        ENCODE_convertFromBase64(text.c_str(), &length, &out);
        benchmark::DoNotOptimize(out);
        RQCORE_free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void BM_Base64Decode_EVP_DecodeBlock(benchmark::State &state)
{
    std::string text = decodeInput(state, false);
    std::vector<unsigned char> out(text.size());
    for (auto _ : state) {
        int n = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char *>(text.data()),
                                static_cast<int>(text.size()));
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

template <bool Fold>
void BM_Base64Decode_EVP_DecodeUpdate(benchmark::State &state)
{
    std::string text = decodeInput(state, Fold);
    std::vector<unsigned char> out(text.size() + 64);
    EVP_ENCODE_CTX *ctx = EVP_ENCODE_CTX_new();
    for (auto _ : state) {
        EVP_DecodeInit(ctx);
        int n = 0, m = 0;
        EVP_DecodeUpdate(ctx, out.data(), &n, reinterpret_cast<const unsigned char *>(text.data()),
                         static_cast<int>(text.size()));
        EVP_DecodeFinal(ctx, out.data() + n, &m);
        benchmark::DoNotOptimize(n + m);
    }
    EVP_ENCODE_CTX_free(ctx);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

template <bool Fold>
void BM_Base64Decode_glib(benchmark::State &state)
{
    std::string text = decodeInput(state, Fold);
    for (auto _ : state) {
        gsize length = 0;
        guchar *out = g_base64_decode(text.c_str(), &length);
        benchmark::DoNotOptimize(out);
        g_free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

#if defined(RQ_HAVE_LIBB64)
template <bool Fold>
void BM_Base64Decode_libb64(benchmark::State &state)
{
    std::string text = decodeInput(state, Fold);
    std::vector<char> out(text.size());
    for (auto _ : state) {
        base64_decodestate s;
        base64_init_decodestate(&s);
        int n = base64_decode_block(text.data(), static_cast<int>(text.size()), out.data(), &s);
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
#endif

// ---- Quoted-printable ---------------------------------------------------------

template <U32 Flags>
void BM_QPEncode_rqcore(benchmark::State &state)
{
    std::string data = mailText(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        char *out = nullptr;
        U32 length = 0;
        ENCODE_toQP(data.data(), static_cast<U32>(data.size()), &out, &length, Flags);
        benchmark::DoNotOptimize(out);
        RQCORE_free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_QPEncode_gmime(benchmark::State &state)
{
    std::string data = mailText(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> out(data.size() * 4 + 64);
    for (auto _ : state) {
        int st = -1;
        guint32 save = 0;
        size_t n = g_mime_encoding_quoted_encode_close(reinterpret_cast<const unsigned char *>(data.data()),
                                                       data.size(), out.data(), &st, &save);
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

template <bool Latin>
void BM_QPDecode_rqcore(benchmark::State &state)
{
    std::string text = qpOf(mailText(static_cast<size_t>(state.range(0)), Latin));
    for (auto _ : state) {
        char *out = nullptr;
        U32 length = 0;
        ENCODE_fromQP(text.data(), static_cast<U32>(text.size()), &out, &length, 256);
        benchmark::DoNotOptimize(out);
        RQCORE_free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

template <bool Latin>
void BM_QPDecode_gmime(benchmark::State &state)
{
    std::string text = qpOf(mailText(static_cast<size_t>(state.range(0)), Latin));
    std::vector<unsigned char> out(text.size() + 64);
    for (auto _ : state) {
        int st = 0;
        guint32 save = 0;
        size_t n = g_mime_encoding_quoted_decode_step(reinterpret_cast<const unsigned char *>(text.data()),
                                                      text.size(), out.data(), &st, &save);
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void sizes(benchmark::internal::Benchmark *b)
{
    for (int64_t n : kSizes)
        b->Arg(n);
}

}  // namespace

BENCHMARK(BM_Base64Encode_rqcore)->Apply(sizes);
BENCHMARK(BM_Base64Encode_EVP_EncodeBlock)->Apply(sizes);
BENCHMARK(BM_Base64Encode_glib)->Apply(sizes);
#if defined(RQ_HAVE_LIBB64)
BENCHMARK(BM_Base64Encode_libb64)->Apply(sizes);
#endif
BENCHMARK(BM_Base64Decode_rqcore<false>)->Name("BM_Base64Decode_rqcore/clean")->Apply(sizes);
BENCHMARK(BM_Base64Decode_EVP_DecodeBlock)->Name("BM_Base64Decode_EVP_DecodeBlock/clean")->Apply(sizes);
BENCHMARK(BM_Base64Decode_EVP_DecodeUpdate<false>)->Name("BM_Base64Decode_EVP_DecodeUpdate/clean")->Apply(sizes);
BENCHMARK(BM_Base64Decode_glib<false>)->Name("BM_Base64Decode_glib/clean")->Apply(sizes);
BENCHMARK(BM_Base64Decode_rqcore<true>)->Name("BM_Base64Decode_rqcore/crlf76")->Apply(sizes);
BENCHMARK(BM_Base64Decode_EVP_DecodeUpdate<true>)->Name("BM_Base64Decode_EVP_DecodeUpdate/crlf76")->Apply(sizes);
BENCHMARK(BM_Base64Decode_glib<true>)->Name("BM_Base64Decode_glib/crlf76")->Apply(sizes);
#if defined(RQ_HAVE_LIBB64)
BENCHMARK(BM_Base64Decode_libb64<false>)->Name("BM_Base64Decode_libb64/clean")->Apply(sizes);
BENCHMARK(BM_Base64Decode_libb64<true>)->Name("BM_Base64Decode_libb64/crlf76")->Apply(sizes);
#endif
BENCHMARK(BM_QPEncode_rqcore<ENCODE_QP_LITERAL_CRLF>)->Name("BM_QPEncode_rqcore/flags4")->Apply(sizes);
BENCHMARK(BM_QPEncode_rqcore<ENCODE_QP_WRAP | ENCODE_QP_LITERAL_CRLF>)->Name("BM_QPEncode_rqcore/flags6")->Apply(sizes);
BENCHMARK(BM_QPEncode_gmime)->Apply(sizes);
BENCHMARK(BM_QPDecode_rqcore<true>)->Name("BM_QPDecode_rqcore/latin1")->Apply(sizes);
BENCHMARK(BM_QPDecode_gmime<true>)->Name("BM_QPDecode_gmime/latin1")->Apply(sizes);
BENCHMARK(BM_QPDecode_rqcore<false>)->Name("BM_QPDecode_rqcore/english")->Apply(sizes);
BENCHMARK(BM_QPDecode_gmime<false>)->Name("BM_QPDecode_gmime/english")->Apply(sizes);

BENCHMARK_MAIN();
