// Profile lookups beside GLib's GKeyFile (load the same file, look the key
// up), and error records per second.  Profiles hold 10, 1,000 and 10,000
// keys in sections of 10; lookups go for the last key of the last section.
#include "rqcore/lists.h"
#include "rqcore/log.h"
#include "rqcore/profiles.h"

#include <benchmark/benchmark.h>
#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace {

std::string tempDir()
{
    static const std::string dir = [] {
        char pattern[] = "/tmp/bench_profiles.XXXXXX";
        return std::string(mkdtemp(pattern));
    }();
    return dir;
}

const std::string &profile(int keys)
{
    static std::map<int, std::string> paths;
    auto it = paths.find(keys);
    if (it != paths.end())
        return it->second;
    std::string path = tempDir() + "/p" + std::to_string(keys) + ".ini";
    std::ofstream out(path);
    out << "# generated\n";
    for (int k = 0; k < keys; ++k) {
        if (k % 10 == 0)
            out << "[section" << k / 10 << "]\n";
        out << "key" << k << " = value number " << k << "  # comment\n";
    }
    return paths[keys] = path;
}

std::string lastSection(int keys) { return "section" + std::to_string((keys - 1) / 10); }
std::string lastKey(int keys) { return "key" + std::to_string(keys - 1); }

void BM_DX_GetProfileStr(benchmark::State &state)
{
    int n = static_cast<int>(state.range(0));
    const std::string &path = profile(n);
    std::string s = lastSection(n), k = lastKey(n);
    char value[215];
    for (auto _ : state) {
        if (DX_GetProfileStr(path.c_str(), s.c_str(), k.c_str(), value, sizeof value, "") != 0)
            state.SkipWithError("lookup failed");
        benchmark::DoNotOptimize(value);
    }
}

void BM_GKeyFile_GetString(benchmark::State &state)
{
    int n = static_cast<int>(state.range(0));
    const std::string &path = profile(n);
    std::string s = lastSection(n), k = lastKey(n);
    for (auto _ : state) {
        GKeyFile *kf = g_key_file_new();
        g_key_file_load_from_file(kf, path.c_str(), G_KEY_FILE_NONE, nullptr);
        gchar *v = g_key_file_get_string(kf, s.c_str(), k.c_str(), nullptr);
        if (v == nullptr)
            state.SkipWithError("lookup failed");
        g_free(v);
        g_key_file_free(kf);
    }
}

void BM_DX_GetProfileSection(benchmark::State &state)
{
    int n = static_cast<int>(state.range(0));
    const std::string &path = profile(n);
    std::string s = lastSection(n);
    for (auto _ : state) {
        HLIST list = 0;
        if (DX_GetProfileSection(path.c_str(), s.c_str(), &list) != 0)
            state.SkipWithError("section failed");
        DX_ListDestroy(&list);
    }
}

void BM_GKeyFile_GetSection(benchmark::State &state)
{
    int n = static_cast<int>(state.range(0));
    const std::string &path = profile(n);
    std::string s = lastSection(n);
    for (auto _ : state) {
        GKeyFile *kf = g_key_file_new();
        g_key_file_load_from_file(kf, path.c_str(), G_KEY_FILE_NONE, nullptr);
        gsize count = 0;
        gchar **keys = g_key_file_get_keys(kf, s.c_str(), &count, nullptr);
        for (gsize i = 0; i < count; ++i)
            g_free(g_key_file_get_string(kf, s.c_str(), keys[i], nullptr));
        g_strfreev(keys);
        g_key_file_free(kf);
    }
}

void BM_DX_GetProfileSectionList(benchmark::State &state)
{
    int n = static_cast<int>(state.range(0));
    const std::string &path = profile(n);
    for (auto _ : state) {
        HLIST list = 0;
        if (DX_GetProfileSectionList(path.c_str(), &list, nullptr) != 0)
            state.SkipWithError("section list failed");
        DX_ProfileSectionListDestroy(&list);
    }
}

void BM_GKeyFile_AllSections(benchmark::State &state)
{
    int n = static_cast<int>(state.range(0));
    const std::string &path = profile(n);
    for (auto _ : state) {
        GKeyFile *kf = g_key_file_new();
        g_key_file_load_from_file(kf, path.c_str(), G_KEY_FILE_NONE, nullptr);
        gchar **groups = g_key_file_get_groups(kf, nullptr);
        for (gchar **g = groups; *g != nullptr; ++g) {
            gchar **keys = g_key_file_get_keys(kf, *g, nullptr, nullptr);
            for (gchar **k = keys; *k != nullptr; ++k)
                g_free(g_key_file_get_string(kf, *g, *k, nullptr));
            g_strfreev(keys);
        }
        g_strfreev(groups);
        g_key_file_free(kf);
    }
}

std::string gLog;
U32 gId = 300, gOn = 1;
char *gFileName;
void provider(U32 *count, U32 **ids, U32 **logits, char ***files)
{
    gFileName = gLog.data();
    *count = 1, *ids = &gId, *logits = &gOn, *files = &gFileName;
}

void BM_WriteErrLog(benchmark::State &state)
{
    gLog = tempDir() + "/errlog.log";
    EnableLogging(provider);
    for (auto _ : state)
        WriteErrLog(300, 0x15203, "DX_GetProfileStr(): key not found in the profile");
    DisableLogging();
    state.SetItemsProcessed(state.iterations());
    std::filesystem::remove(gLog);
}

}  // namespace

BENCHMARK(BM_DX_GetProfileStr)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(BM_GKeyFile_GetString)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(BM_DX_GetProfileSection)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(BM_GKeyFile_GetSection)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(BM_DX_GetProfileSectionList)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(BM_GKeyFile_AllSections)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(BM_WriteErrLog);

// The generated profiles go when the program ends.
struct RemoveTempDir {
    RemoveTempDir() { tempDir(); }  // built first, so it outlives this object
    ~RemoveTempDir() { std::filesystem::remove_all(tempDir()); }
} gRemoveTempDir;

BENCHMARK_MAIN();
