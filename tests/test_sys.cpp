// System services: timers, running commands, sleeping, files and paths.
#include "rqtest.h"

#include "rqcore/sys.h"

#include <csignal>
#include <cstring>
#include <fstream>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

// The library's sleep and usleep land here: the split of a sleep is checked without sleeping.
namespace {
std::vector<std::pair<char, unsigned long>> gSleeps;
}
extern "C" unsigned int sleep(unsigned int s) { return gSleeps.emplace_back('s', s), 0; }
extern "C" int usleep(useconds_t us) { return gSleeps.emplace_back('u', us), 0; }

namespace {

bool exists(const std::string &path) { return ::access(path.c_str(), F_OK) == 0; }

// Real and CPU time from ticks, without the children's; the start and stop lines.
TEST(Timers, TimesAndLines)
{
    const long rate = sysconf(_SC_CLK_TCK);
    ASSERT_GT(rate, 0);
    const U32 r = static_cast<U32>(rate);
    ZOL_TIMER t{};
    t.startTicks = 0xFFFFFFFFu - r;  // the tick counter wraps: 3 s later
    t.stopTicks = 2 * r - 1;
    t.start = {10, 20, 0, 0};
    t.stop = {10 + r, 20 + r / 2, 50 * r, 50 * r};  // children's time is not counted
    double real = -1, cpu = -1;
    ZOL_TimerDataGet(&t, &real, &cpu);
    EXPECT_DOUBLE_EQ(real, 3.0);
    EXPECT_DOUBLE_EQ(cpu, static_cast<double>(r + r / 2) / rate);
    ZOL_TimerDataGet(&t, nullptr, &cpu);
    ZOL_TimerDataGet(&t, &real, nullptr);
    ZOL_TimerDataGet(nullptr, &real, &cpu);
    EXPECT_TRUE(real == 0.0 && cpu == 0.0);
    ZOL_TimerStart(nullptr);
    ZOL_TimerStop(nullptr);
    char buffer[128];
    rqtest::fillJunk(buffer, sizeof buffer);
    ZOL_BeginTimerCall(buffer, 0, nullptr, &t);  // the size is not looked at for this line
    EXPECT_STREQ(buffer, "Start a Timer");
    ZOL_BeginTimerCall(buffer, 0, "load", &t);
    EXPECT_STREQ(buffer, "Start load");
    ZOL_BeginTimerCall(nullptr, 0, "load", &t);
    ZOL_StopTimerCall(nullptr, 60, "x", &t);
    struct Case { U16 size; const char *name, *pattern; } const cases[] = {  // empty pattern: buffer left alone
        {48, "load", ""}, {0, "load", ""},  // 48 columns are the rest of the line: no room for a name
        {60, "load", "^Stop  {9}load:    [0-9]{3}\\.[0-9]{3} \\(real\\) [0-9]{2}\\.[0-9]{5} \\(cpu\\)$"},
        {49, "x", "^Stop  x:    [0-9.]{7} \\(real\\) [0-9.]{8} \\(cpu\\)$"},
        {60, "a-name-longer-than-12", "^Stop  a-name-longer-than-12:    [0-9.]{7} \\(real\\) [0-9.]{3}"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.size).append(c.name));
        rqtest::fillJunk(buffer, sizeof buffer);
        ZOL_StopTimerCall(buffer, c.size, c.name, &t);
        if (c.pattern[0] == '\0') {
            EXPECT_EQ(static_cast<unsigned char>(buffer[0]), 0xA5);
            continue;
        }
        ASSERT_LT(std::strlen(buffer), size_t{c.size}) << "the line stays inside size";
        EXPECT_TRUE(std::regex_search(buffer, std::regex(c.pattern))) << buffer;
    }
}

TEST(System, CodesAndWordLimit)
{
    rqtest::LeakCheck leaks;
    rqtest::TempDir dir;
    auto numbered = [&](int i) { return dir.file(std::string("f").append(std::to_string(i))); };
    auto touch = [&](int files, const char *gap) {
        std::string cmd = std::string(gap).append("touch");
        for (int i = 0; i < files; ++i)
            cmd.append(gap).append(numbered(i));
        return cmd.append(gap);
    };
    struct Case { std::string command; S32 expected; int created; } const cases[] = {  // created -1: not looked at
        {"\x01", 1, -1}, {"", 1, -1}, {"    ", 1, -1},  // "\x01" stands for null; all blank: nothing to run
        {"/nonexistent/program arg", 0, -1},  // the child exits 127 and is reaped
        {"false", 0, -1},                     // the exit status is not returned
        {touch(2, "   "), 0, 2},              // runs of spaces are one separator
        {touch(18, " "), 0, 18},              // program + 18 arguments fit
        {touch(19, " "), -1, 18},             // a 19th is dropped, the rest still runs
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.command);
        for (int i = 0; i < 19; ++i)
            ::unlink(numbered(i).c_str());
        EXPECT_EQ(ZOL_system(c.command == "\x01" ? nullptr : c.command.c_str()), c.expected);
        for (int i = 0; c.created >= 0 && i < 19; ++i)
            EXPECT_EQ(exists(numbered(i)), i < c.created) << i;
    }
    const std::string made = dir.file("made"), cmd = std::string("touch ").append(made);
    rqtest::allocationSweep([&] { return static_cast<U32>(ZOL_system(cmd.c_str())); }, [&](U32 status) {
        EXPECT_EQ(status, 0xFFFFFFFFu);
        EXPECT_FALSE(exists(made)) << "nothing runs without the copy";
    });
    EXPECT_TRUE(exists(made));
}

TEST(Process, SleepIdentityAndEnd)
{
    struct Case { U32 ms; std::vector<std::pair<char, unsigned long>> calls; } const cases[] = {
        {3000, {{'s', 3}}}, {0, {{'s', 0}}},  // no microsecond call for whole seconds
        {999, {{'s', 0}, {'u', 999000}}}, {0xFFFFFFFFu, {{'s', 4294967}, {'u', 295000}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.ms);
        gSleeps.clear();
        EXPECT_EQ(ZOL_MilliSleep(c.ms), 0);
        EXPECT_EQ(gSleeps, c.calls);
    }
    EXPECT_EQ(ZOL_Getpid(), static_cast<S32>(getpid()));
    EXPECT_EXIT(ZOL_Exit(3), ::testing::ExitedWithCode(3), "");
    EXPECT_EXIT(ZOL_Abort(), ::testing::KilledBySignal(SIGABRT), "");
}

TEST(Files, SizeAndTruncate)
{
    rqtest::TempDir dir;
    const std::string file = dir.file("data");
    std::ofstream(file) << "twelve bytes";
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    const std::string pipePath = std::string("/proc/self/fd/").append(std::to_string(fds[0]));
    struct Case { const char *path; bool nullSize; U32 expected, size; } const cases[] = {  // 0xA5A5A5A5: untouched
        {file.c_str(), false, 0, 12},   {nullptr, false, 0x13802, 0xA5A5A5A5},
        {file.c_str(), true, 0x13802, 0xA5A5A5A5}, {"/nonexistent/file", false, 0x13801, 0xA5A5A5A5},
        {pipePath.c_str(), false, 0x13803, 0},  // a pipe has no end to seek to
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.path != nullptr ? c.path : "null");
        U32 size = 0xA5A5A5A5;
        EXPECT_EQ(FileSizeGet(c.path, c.nullSize ? nullptr : &size), c.expected);
        EXPECT_EQ(size, c.size);
    }
    ::close(fds[0]);
    ::close(fds[1]);
    EXPECT_EQ(ZOL_truncate(file.c_str(), 3), 0u);
    EXPECT_EQ(ZOL_truncate(file.c_str(), 4096), 0u);
    EXPECT_EQ(rqtest::readFile(file), std::string("twe").append(4093, '\0'));
    EXPECT_EQ(ZOL_truncate(nullptr, 0), 0x16C12u);
    EXPECT_EQ(ZOL_truncate(dir.file("missing").c_str(), 0), 0x16C28u);
    EXPECT_EQ(ZOL_truncate(dir.path().c_str(), 0), 0x16C28u) << "a directory cannot be truncated";
}

TEST(Paths, CopyCompareAndTemporaryNames)
{
    struct Case { const char *path; U32 size; bool nullOutput, copied; } const cases[] = {
        {"rel/../x", 9, false, true}, {"rel/../x", 8, false, false},  // not made absolute; no room for the NUL
        {"", 1, false, true}, {"", 0, false, false}, {nullptr, 64, false, false}, {"a", 64, true, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.path != nullptr ? c.path : "null");
        char out[64];
        rqtest::fillJunk(out, sizeof out);
        EXPECT_EQ(ZOL_fullpath(c.nullOutput ? nullptr : out, c.path, c.size), c.copied ? out : nullptr);
        if (c.copied) {
            EXPECT_STREQ(out, c.path);
        }
    }
    struct Pair { const char *a, *b; int sign; } const pairs[] = {  // case-sensitive, null first
        {"/a/b", "/a/b", 0}, {"/a/B", "/a/b", -1}, {"/a/b", "/a/b/", -1}, {nullptr, "", -1}, {"", nullptr, 1},
        {nullptr, nullptr, 0},
    };
    for (const Pair &p : pairs) {
        S32 r = ZOL_PathCmp(p.a, p.b);
        EXPECT_EQ((r > 0) - (r < 0), p.sign) << (p.a ? p.a : "null") << " " << (p.b ? p.b : "null");
    }
    rqtest::TempDir dir;
    char *a = sys_tempnam_alloc(dir.path().c_str(), "rq"), *b = sys_tempnam_alloc(dir.path().c_str(), "rq");
    ASSERT_TRUE(a != nullptr && b != nullptr);
    EXPECT_EQ(std::string(a).rfind(std::string(dir.path()).append("/rq"), 0), 0u) << a;
    EXPECT_STRNE(a, b);
    EXPECT_FALSE(exists(a)) << "only a name: no file is made";
    sys_tempnam_free(a);
    sys_tempnam_free(b);
    sys_tempnam_free(nullptr);
}

}  // namespace
