// System services: timers, running commands, sleeping, files and paths.
#include "rqtest.h"

#include "rqcore/sys.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// The library's sleep and usleep calls land here, so that the split of a
// sleep can be checked without sleeping (or timing anything).
namespace {
std::vector<std::pair<char, unsigned long>> gSleeps;
}
extern "C" unsigned int sleep(unsigned int seconds)
{
    gSleeps.emplace_back('s', seconds);
    return 0;
}
extern "C" int usleep(useconds_t microseconds)
{
    gSleeps.emplace_back('u', microseconds);
    return 0;
}

namespace {

bool exists(const std::string &path)
{
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0;
}

// ---- timers -----------------------------------------------------------------

TEST(Timers, RealAndCpuFromTicksWithoutChildren)
{
    const long rate = sysconf(_SC_CLK_TCK);
    ASSERT_GT(rate, 0);
    const U32 r = static_cast<U32>(rate);
    ZOL_TIMER t{};
    t.startTicks = 0xFFFFFFFFu - r;  // the tick counter wraps between start and stop
    t.stopTicks = 2 * r - 1;         // 3 s later
    t.start = {10, 20, 0, 0};
    t.stop = {10 + r, 20 + r / 2, 50 * r, 50 * r};  // children's time is not counted
    double real = -1, cpu = -1;
    ZOL_TimerDataGet(&t, &real, &cpu);
    EXPECT_DOUBLE_EQ(real, 3.0);
    EXPECT_DOUBLE_EQ(cpu, static_cast<double>(r + r / 2) / rate);
    ZOL_TimerDataGet(&t, nullptr, &cpu);  // either result may be left out
    ZOL_TimerDataGet(&t, &real, nullptr);
    real = cpu = -1;
    ZOL_TimerDataGet(nullptr, &real, &cpu);
    EXPECT_EQ(real, 0.0);
    EXPECT_EQ(cpu, 0.0);
    ZOL_TimerStart(nullptr);
    ZOL_TimerStop(nullptr);
}

TEST(Timers, StartAndStopLines)
{
    ZOL_TIMER t{};
    char buffer[128];
    rqtest::fillJunk(buffer, sizeof buffer);
    ZOL_BeginTimerCall(buffer, 0, nullptr, &t);  // the size is not looked at for this line
    EXPECT_STREQ(buffer, "Start a Timer");
    ZOL_BeginTimerCall(buffer, 0, "load", &t);
    EXPECT_STREQ(buffer, "Start load");
    ZOL_BeginTimerCall(nullptr, 0, "load", &t);

    struct Case {
        U16 size;
        const char *name;
        const char *pattern;  // empty: the buffer is left alone
    };
    const Case cases[] = {
        {48, "load", ""},  // 48 columns are the rest of the line: no room for a name
        {0, "load", ""},
        {60, "load", "^Stop  {9}load:    [0-9]{3}\\.[0-9]{3} \\(real\\) [0-9]{2}\\.[0-9]{5} \\(cpu\\)$"},
        {49, "x", "^Stop  x:    [0-9.]{7} \\(real\\) [0-9.]{8} \\(cpu\\)$"},
        {60, "a-name-longer-than-12", "^Stop  a-name-longer-than-12:    [0-9.]{7} \\(real\\) [0-9.]{3}"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.size) + " " + c.name);
        rqtest::fillJunk(buffer, sizeof buffer);
        ZOL_StopTimerCall(buffer, c.size, c.name, &t);
        if (c.pattern[0] == '\0') {
            EXPECT_EQ(static_cast<unsigned char>(buffer[0]), 0xA5);
            continue;
        }
        ASSERT_LT(std::strlen(buffer), size_t{c.size}) << "the line stays inside size";
        EXPECT_TRUE(std::regex_search(buffer, std::regex(c.pattern))) << buffer;
    }
    ZOL_StopTimerCall(nullptr, 60, "x", &t);
}

// ---- commands ---------------------------------------------------------------

TEST(System, CodesAndWordLimit)
{
    rqtest::LeakCheck leaks;
    rqtest::TempDir dir;
    // Built with append: g++ 12 at -O3 reports a false -Wrestrict on "text" + temporary.
    auto numbered = [&](int i) { return dir.file(std::string("f").append(std::to_string(i))); };
    auto touchCommand = [&](int files, const char *gap) {
        std::string cmd = std::string(gap) + "touch";
        for (int i = 0; i < files; ++i)
            cmd.append(gap).append(numbered(i));
        return cmd + gap;
    };
    struct Case {
        std::string command;
        bool null;
        S32 expected;
        int created;  // files f0, f1, ... that must exist afterwards (-1: not looked at)
    };
    const Case cases[] = {
        {"", true, 1, -1},
        {"", false, 1, -1},
        {"    ", false, 1, -1},                      // all blank: nothing to run
        {"/nonexistent/program arg", false, 0, -1},  // the child exits 127 and is reaped
        {"false", false, 0, -1},                     // the exit status is not returned
        {touchCommand(2, "   "), false, 0, 2},       // runs of spaces are one separator
        {touchCommand(18, " "), false, 0, 18},       // program + 18 arguments fit
        {touchCommand(19, " "), false, -1, 18},      // a 19th is dropped, the rest still runs
        {touchCommand(30, "  "), false, -1, 18},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.null ? "null" : c.command);
        for (int i = 0; i < 30; ++i)
            ::unlink(numbered(i).c_str());
        EXPECT_EQ(ZOL_system(c.null ? nullptr : c.command.c_str()), c.expected);
        if (c.created < 0)
            continue;
        for (int i = 0; i < 30; ++i)
            EXPECT_EQ(exists(numbered(i)), i < c.created) << i;
    }
}

TEST(System, AllocationFailure)
{
    rqtest::TempDir dir;
    std::string cmd = "touch " + dir.file("made");
    rqtest::allocationSweep([&] { return static_cast<U32>(ZOL_system(cmd.c_str())); },
                            [&](U32 status) {
                                EXPECT_EQ(status, 0xFFFFFFFFu);
                                EXPECT_FALSE(exists(dir.file("made"))) << "nothing runs without the copy";
                            });
    EXPECT_TRUE(exists(dir.file("made")));
}

TEST(MilliSleep, SecondsThenMicroseconds)
{
    struct Case {
        U32 ms;
        std::vector<std::pair<char, unsigned long>> calls;
    };
    const Case cases[] = {
        {2500, {{'s', 2}, {'u', 500000}}},
        {3000, {{'s', 3}}},  // no microsecond call for a whole number of seconds
        {999, {{'s', 0}, {'u', 999000}}},
        {0, {{'s', 0}}},
        {0xFFFFFFFFu, {{'s', 4294967}, {'u', 295000}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.ms);
        gSleeps.clear();
        EXPECT_EQ(ZOL_MilliSleep(c.ms), 0);
        EXPECT_EQ(gSleeps, c.calls);
    }
}

TEST(Process, IdentityAndEnd)
{
    EXPECT_EQ(ZOL_Getpid(), static_cast<S32>(getpid()));
    EXPECT_EXIT(ZOL_Exit(3), ::testing::ExitedWithCode(3), "");
    EXPECT_EXIT(ZOL_Abort(), ::testing::KilledBySignal(SIGABRT), "");
}

// ---- files and paths --------------------------------------------------------

TEST(Files, SizeAndTruncate)
{
    rqtest::TempDir dir;
    const std::string file = dir.file("data");
    FILE *f = std::fopen(file.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("twelve bytes", f);
    std::fclose(f);

    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    const std::string pipePath = "/proc/self/fd/" + std::to_string(pipeFds[0]);

    struct Case {
        const char *path;
        bool nullSize;
        U32 expected;
        U32 size;  // 0xA5A5A5A5: untouched
    };
    const Case cases[] = {
        {file.c_str(), false, 0, 12},
        {nullptr, false, 0x13802, 0xA5A5A5A5},
        {file.c_str(), true, 0x13802, 0xA5A5A5A5},
        {"/nonexistent/file", false, 0x13801, 0xA5A5A5A5},
        {pipePath.c_str(), false, 0x13803, 0},  // a pipe has no end to seek to
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.path != nullptr ? c.path : "null");
        U32 size = 0xA5A5A5A5;
        EXPECT_EQ(FileSizeGet(c.path, c.nullSize ? nullptr : &size), c.expected);
        EXPECT_EQ(size, c.size);
    }
    ::close(pipeFds[0]);
    ::close(pipeFds[1]);

    U32 size = 0;
    EXPECT_EQ(ZOL_truncate(file.c_str(), 3), 0u);
    EXPECT_EQ(FileSizeGet(file.c_str(), &size), 0u);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(rqtest::readFile(file), "twe");
    EXPECT_EQ(ZOL_truncate(file.c_str(), 4096), 0u);
    EXPECT_EQ(FileSizeGet(file.c_str(), &size), 0u);
    EXPECT_EQ(size, 4096u);
    EXPECT_EQ(ZOL_truncate(nullptr, 0), 0x16C12u);
    EXPECT_EQ(ZOL_truncate(dir.file("missing").c_str(), 0), 0x16C28u);
    EXPECT_EQ(ZOL_truncate(dir.path().c_str(), 0), 0x16C28u) << "a directory cannot be truncated";
}

TEST(Paths, FullPathCopiesUnchanged)
{
    struct Case {
        const char *path;
        U32 size;
        bool nullOutput;
        bool copied;
    };
    const Case cases[] = {
        {"rel/../x", 9, false, true},  // not made absolute
        {"rel/../x", 8, false, false},  // size equal to the length: no room for the NUL
        {"", 1, false, true},
        {"", 0, false, false},
        {nullptr, 64, false, false},
        {"a", 64, true, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.path != nullptr ? c.path : "null");
        char out[64];
        rqtest::fillJunk(out, sizeof out);
        char *got = ZOL_fullpath(c.nullOutput ? nullptr : out, c.path, c.size);
        EXPECT_EQ(got, c.copied ? out : nullptr);
        if (c.copied) {
            EXPECT_STREQ(out, c.path);
        }
    }
}

TEST(Paths, CompareIsCaseSensitive)
{
    struct Case {
        const char *a;
        const char *b;
        int sign;
    };
    const Case cases[] = {
        {"/a/b", "/a/b", 0}, {"/a/B", "/a/b", -1}, {"/a/b", "/a/b/", -1},
        {nullptr, "", -1},   {"", nullptr, 1},     {nullptr, nullptr, 0},
    };
    for (const Case &c : cases) {
        S32 r = ZOL_PathCmp(c.a, c.b);
        EXPECT_EQ((r > 0) - (r < 0), c.sign) << (c.a ? c.a : "null") << " " << (c.b ? c.b : "null");
    }
}

TEST(Paths, TemporaryNames)
{
    rqtest::TempDir dir;
    char *a = sys_tempnam_alloc(dir.path().c_str(), "rq");
    char *b = sys_tempnam_alloc(dir.path().c_str(), "rq");
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(std::string(a).rfind(dir.path() + "/rq", 0), 0u) << a;
    EXPECT_STRNE(a, b);
    EXPECT_FALSE(exists(a)) << "only a name: no file is made";
    sys_tempnam_free(a);
    sys_tempnam_free(b);
    sys_tempnam_free(nullptr);
}

}  // namespace
