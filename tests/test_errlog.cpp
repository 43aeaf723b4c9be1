// The error log: record layouts, file choice, the notes block, the formatter,
// the signal-safe date, rotation, concurrent writers, the control functions
// and their failure codes.
#include "rqtest.h"

#include "rqcore/lists.h"
#include "rqcore/log.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace {

const std::string kDashes = std::string(79, '-') + "\n";

// The provider's arrays: id 300 (and 0x1000001) write to `gFile`.
std::string gFile;
U32 gIds[] = {300, 0x1000001};
U32 gLogits[] = {1, 1};
char *gFiles[2];
void provider(U32 *count, U32 **ids, U32 **logits, char ***files)
{
    gFiles[0] = gFiles[1] = gFile.data();
    *count = 2;
    *ids = gIds;
    *logits = gLogits;
    *files = gFiles;
}

// Enables this thread's logging for the test, with id 300 to `file` (or to
// the file already set: threads must not assign it concurrently).
class Session {
public:
    explicit Session(const std::string *file = nullptr)
    {
        if (file != nullptr)
            gFile = *file;
        EXPECT_EQ(EnableLogging(provider), 0u);
    }
    ~Session() { DisableLogging(); }
};

std::vector<std::string> records(const std::string &text)
{
    std::vector<std::string> out;
    size_t at = 0;
    while ((at = text.find(kDashes, at)) != std::string::npos) {
        size_t next = text.find(kDashes, at + kDashes.size());
        out.push_back(text.substr(at, next == std::string::npos ? std::string::npos : next - at));
        at = next;
    }
    return out;
}

// The part of a record after its PID line.
std::string body(const std::string &record)
{
    size_t pid = record.find("PID = ");
    size_t eol = record.find('\n', pid);
    return pid == std::string::npos ? record : record.substr(eol + 1);
}

std::string headPattern(const char *dateLabel = "DATE = ")
{
    return "-{79}\n" + std::string(dateLabel) + "[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]?[0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}\n" +
           "PID = " + std::to_string(getpid()) + "; TID = [0-9]+\n";
}

// Each test runs in its own directory: records that fall back to the
// relative "console.log" land there.
class Errlog : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(DX_ErrLogInitializeTLS(), 0u);
        cwd_ = std::filesystem::current_path();
        std::filesystem::current_path(dir.path());
    }
    void TearDown() override { std::filesystem::current_path(cwd_); }
    std::filesystem::path cwd_;
    rqtest::TempDir dir;
    std::string log = dir.file("app.log");
};

const char *moduleName(U32 id) { return id == 300 ? "mailer" : "other"; }
void context(void *user, char *buffer, U32 size) { std::snprintf(buffer, size, "CONTEXT %s", static_cast<const char *>(user)); }

// Runs `write` with the standard error stream sent to `file`.
void withStderrTo(const std::string &file, void (*write)())
{
    int saved = dup(2);
    int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(fd, 2);
    write();
    dup2(saved, 2);
    close(fd);
    close(saved);
}

TEST_F(Errlog, RecordShapes)
{
    Session s(&log);
    ASSERT_EQ(DX_LogSetErrLogIdToNameCallback(moduleName), 0u);
    ASSERT_EQ(DX_LogSetLogInfoContextCallback(context, const_cast<char *>("info")), 0u);
    ASSERT_EQ(DX_LogSetLogTraceContextCallback(context, const_cast<char *>("trace")), 0u);
    ASSERT_EQ(DX_LogSetTraceLog(1, 0), 0u);
    ASSERT_EQ(DX_LogSetActivityLog(1, 0), 0u);
    // Line order from each record type's layout; "" = no record (state and
    // debug records are off by default).
    struct Case { const char *what; void (*write)(); bool toStderr; std::string body; } cases[] = {
        {"error with errno", [] { errno = ENOENT, WriteErrLog(300, 0x1C4AB, "hello"); }, false,
         "SYSTEM ERRNO  -> 2 (No such file or directory)\nERROR CODE    -> 0x1C4AB\nhello\n"},
        {"no message", [] { WriteErrLog(300, 0, nullptr); }, false, "ERROR CODE    -> 0x0\nWriteErrLog: errmesg is NULL\n"},
        {"info", [] { DX_LogPrintInfoLog(300, "info %d", 1); }, false, "CONTEXT info\ninfo 1\n"},
        {"warning", [] { DX_LogPrintWarningLog("fnW", 300, 0x5A, "warn"); }, false,
         "WARNING CODE  -> 0x5A\nFUNCTION NAME -> fnW\nwarn\n"},
        {"error", [] { DX_LogPrintErrorLog("fnE", 300, 0x7, "err"); }, false, "ERROR CODE    -> 0x7\nFUNCTION NAME -> fnE\nerr\n"},
        {"entering", [] { DX_LogPrintTraceLogEntering("fnT", 300, "in"); }, false,
         "CONTEXT trace\nLOG MODULE    -> mailer\nLOG TYPE      -> TRACE\nENTERING      -> fnT\nin\n"},
        {"exiting", [] { DX_LogPrintTraceLogExiting("fnT", 300, "out"); }, false,
         "CONTEXT trace\nLOG MODULE    -> mailer\nLOG TYPE      -> TRACE\nEXITING       -> fnT\nout\n"},
        {"trace", [] { DX_LogPrintTraceLog("fnT", 300, "plain"); }, false,
         "CONTEXT trace\nLOG MODULE    -> mailer\nLOG TYPE      -> TRACE\nFUNCTION NAME -> fnT\nplain\n"},
        {"activity", [] { DX_LogPrintActivityLog("fnA", 300, "act"); }, false,
         "LOG MODULE    -> mailer\nLOG TYPE      -> ACTIVITY\nFUNCTION NAME -> fnA\nact\n"},
        {"state", [] { DX_LogPrintStateLog("fnS", 300, "state is off"); }, false, ""},
        {"debug", [] { DX_LogPrintDebugLog("fnD", 300, "debug is off"); }, false, ""},
        {"dump", [] { DumpErrLog(300, "dump %s", "x"); }, false, "CONTEXT info\ndump x\n"},
        {"stderr", [] { WriteStderr(0xAB, "to stderr"); }, true, "ERROR CODE    -> 0xAB\nto stderr\n"},
        {"dump to stderr", [] { DumpStderr("dump %u", 5u); }, true, "dump 5\n"},
    };
    std::string err = dir.file("stderr");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove(log);
        errno = 0;
        c.toStderr ? withStderrTo(err, c.write) : c.write();
        EXPECT_EQ(errno, 0) << "errno is cleared after a record";
        auto recs = records(rqtest::readFile(c.toStderr ? err : log));
        EXPECT_EQ(recs.size(), c.body.empty() ? 0u : 1u);
        if (recs.size() == 1) {
            // Built with append: g++ 12 at -O3 reports a false -Wrestrict on "text" + temporary.
            EXPECT_TRUE(std::regex_search(recs[0], std::regex(std::string("^").append(headPattern())))) << recs[0];
            EXPECT_EQ(body(recs[0]), c.body);
        }
    }
    // Callbacks outlive disabling; these point into this test.
    DX_LogSetLogInfoContextCallback(nullptr, nullptr);
    DX_LogSetLogTraceContextCallback(nullptr, nullptr);
    DX_LogSetErrLogIdToNameCallback(nullptr);
}

TEST_F(Errlog, ChoosesFilesByIdLevelAndSecondaries)
{
    Session s(&log);
    // Routing worked out from the slot rules: own file, then id 3/4 with
    // level bit 2, then id 2 with level bit 4; console.log when none opened.
    // `files`: in the order of `names`.
    struct Case { const char *what; U32 id, level; bool id2On; const char *files; } cases[] = {
        {"unregistered, level 4, id 2 off", 400, 4, false, "console.log "},
        {"registered", 300, 4, false, "app.log "},
        {"level 4 adds id 2", 300, 4, true, "app.log two.log "},
        {"level 6 adds id 3 and id 2", 300, 6, true, "app.log two.log three.log "},
        {"above 0xFFFFFF uses id 4", 0x1000001, 2, false, "app.log four.log "},
        {"0x1000000 uses id 4", 0x1000000, 2, false, "four.log "},
        {"0xFFFFFF uses id 3", 0xFFFFFF, 2, false, "three.log "},
        {"id 3 with id 2", 3, 4, true, "two.log three.log "},
        {"id 3, level 0", 3, 0, true, "three.log "},
        {"unregistered below 256", 7, 4, true, "console.log "},
    };
    const char *names[] = {"console.log", "app.log", "two.log", "three.log", "four.log"};
    ASSERT_EQ(SetLog(3, 1, dir.file("three.log").c_str()), 0u);
    ASSERT_EQ(SetLog(4, 1, dir.file("four.log").c_str()), 0u);
    ASSERT_EQ(SetLog(2, 0, dir.file("two.log").c_str()), 0u);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(SetLogLevel(c.level), 0u);
        ASSERT_EQ(SetLog(2, c.id2On ? 1 : 0, nullptr), 0u);
        for (auto name : names)
            std::filesystem::remove(dir.file(name));
        WriteErrLog(c.id, 1, c.what);
        std::string got;
        for (auto name : names)
            if (rqtest::readFile(dir.file(name)).find(c.what) != std::string::npos)
                got += std::string(name) + " ";
        EXPECT_EQ(got, c.files);
    }
    EXPECT_NE(rqtest::readFile(dir.file("console.log")).find("LIST SYSTEM ERROR\n"), std::string::npos)
        << "id 7 is not registered";
}

TEST_F(Errlog, NotesNameEveryFileThatFailedToOpen)
{
    std::string base = dir.path() + "/missing/";
    std::string name128 = base + std::string(128 - base.size(), 'a');
    std::string name129 = base + std::string(129 - base.size(), 'b');
    {
        Session s(&name128);
        ASSERT_EQ(SetLog(3, 1, name129.c_str()), 0u);
        ASSERT_EQ(SetLog(2, 1, (base + "two").c_str()), 0u);
        ASSERT_EQ(SetLogLevel(6), 0u);
        errno = 0;
        WriteErrLog(300, 0x10, "m");
    }
    auto recs = records(rqtest::readFile(dir.file("console.log")));
    ASSERT_EQ(recs.size(), 1u);
    const std::string indent(24, ' ');
    EXPECT_EQ(body(recs[0]), "UNABLE TO OPEN LOG FILE -> \"" + name128 + "\"\n" + indent +
                                 "-> name too long to print\n" + indent + "-> \"" + base + "two\"\n" +
                                 "ERROR CODE    -> 0x10\nm\n");
}

// The message part of one record composed by the formatter.
std::string formatted(const char *fmt, ...)
{
    std::filesystem::remove(gFile);
    errno = 0;
    va_list ap;
    va_start(ap, fmt);
    DX_LogVargPrintLog(nullptr, 300, 4, 0, 0, 0, fmt, ap);
    va_end(ap);
    std::string b = body(rqtest::readFile(gFile));
    return b.empty() ? b : b.substr(0, b.size() - 1);
}

TEST_F(Errlog, FormatterDirectives)
{
    Session s(&log);
    // Expected texts are what printf gives for the same directives, except
    // for %H, whose layout is the library's own.
    EXPECT_EQ(formatted("%d|%5d|%-5d|%05d|%i", -42, 42, 42, -42, 7), "-42|   42|42   |-0042|7");
    EXPECT_EQ(formatted("%u %o %x %X %c %s %%", 4000000000u, 8u, 255u, 255u, 'z', "str"),
              "4000000000 10 ff FF z str %");
    EXPECT_EQ(formatted("%lu %lld %hd %llx", 5ul, -9000000000ll, 70000, 0x123456789abull),
              "5 -9000000000 4464 123456789ab");
    EXPECT_EQ(formatted("%s|%*d|%-*s|", static_cast<const char *>(nullptr), 4, 1, 3, "a"), "(null)|   1|a  |");
    EXPECT_EQ(formatted("%q %"), "%q %");
    unsigned char bytes[20];
    for (int i = 0; i < 20; ++i)
        bytes[i] = static_cast<unsigned char>(i * 17);
    EXPECT_EQ(formatted("%H", bytes, 20u),
              "00000000 00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF\n"
              "00000010 10 21 32 43" + std::string(12 * 3, ' ') + "\n");
    EXPECT_LT(formatted("%4000s%4000s", "a", "b").size(), DX_LOG_RECORD_SIZE) << "an over-long record is cut";
}

TEST_F(Errlog, SignalSafeDateAgreesWithTheCalendar)
{
    // Expected dates from Python's datetime (proleptic Gregorian, UTC).
    struct Case { int64_t when; const char *text; } cases[] = {
        {0, "Thu Jan 1 00:00:00 1970\n"},           {-1, "Wed Dec 31 23:59:59 1969\n"},
        {951782400, "Tue Feb 29 00:00:00 2000\n"},  {951868800, "Wed Mar 1 00:00:00 2000\n"},
        {4102444800, "Fri Jan 1 00:00:00 2100\n"},  {253402300799, "Fri Dec 31 23:59:59 9999\n"},
        {1234567890, "Fri Feb 13 23:31:30 2009\n"}, {-2207520000, "Thu Jan 18 00:00:00 1900\n"},
    };
    for (const auto &c : cases) {
        char text[64];
        rqtest::fillJunk(text, sizeof text);
        EXPECT_STREQ(DxLogSignalAsyncSafeGetTime(c.when, text, sizeof text), c.text);
    }
    char small[8];
    EXPECT_STREQ(DxLogSignalAsyncSafeGetTime(0, small, sizeof small), "Thu Jan");
}

std::atomic<int> gSignals{0};
void onSignal(int)
{
    int saved = errno;
    DX_LogEnterSignalHandler();
    WriteErrLog(300, 0x51, "from the signal handler");
    DX_LogLeaveSignalHandler();
    ++gSignals;
    errno = saved;
}

TEST_F(Errlog, RecordFromASignalHandlerWhileWriting)
{
    EXPECT_EQ(DX_LogLeaveSignalHandler(), 0x10109u) << "leaving a handler never entered";
    Session s(&log);
    struct sigaction sa {}, old {};
    sa.sa_handler = onSignal;
    sigaction(SIGUSR1, &sa, &old);
    gSignals = 0;
    pthread_t self = pthread_self();
    std::atomic<bool> done{false};
    std::thread killer([&] {
        for (int i = 0; i < 20; ++i) {
            pthread_kill(self, SIGUSR1);
            usleep(2000);
        }
        done = true;
    });
    int written = 0;
    while (!done || written < 50) {
        WriteErrLog(300, 0x52, "from the main thread");
        ++written;
    }
    killer.join();
    sigaction(SIGUSR1, &old, nullptr);
    EXPECT_EQ(DX_LogLeaveSignalHandler(), 0x10109u) << "every leave matched its enter";
    // Inside the handler the date is the signal-safe UTC one; outside it is back to normal.
    auto recs = records(rqtest::readFile(log));
    ASSERT_EQ(static_cast<int>(recs.size()), written + gSignals.load());
    std::regex handler(std::string("^").append(headPattern("DATE-UTC = ")) + "ERROR CODE    -> 0x51\nfrom the signal handler\n$");
    std::regex normal(std::string("^").append(headPattern()) + "ERROR CODE    -> 0x52\nfrom the main thread\n$");
    int fromHandler = 0;
    for (const auto &r : recs) {
        bool h = std::regex_match(r, handler);
        EXPECT_TRUE(h || std::regex_match(r, normal)) << r;
        fromHandler += h;
    }
    EXPECT_EQ(fromHandler, gSignals.load());
    EXPECT_GT(fromHandler, 0);
}

TEST_F(Errlog, ThreadsAndProcessesWriteWholeRecords)
{
    constexpr int kThreads = 4, kProcesses = 3, kEach = 150;
    auto writeMany = [](const std::string &tag) {
        for (int i = 0; i < kEach; ++i)
            WriteErrLog(300, 0x99, (tag + "-" + std::to_string(i) + std::string(200 + i, '.')).c_str());
    };
    // The processes are forked before any thread starts (a child of a
    // threaded parent could inherit a held allocator lock); all then run at once.
    std::vector<pid_t> children;
    std::vector<std::thread> threads;
    {
        Session s(&log);
        for (int p = 0; p < kProcesses; ++p) {
            pid_t pid = fork();
            if (pid == 0) {
                writeMany("P" + std::to_string(p));
                _exit(0);
            }
            children.push_back(pid);
        }
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                Session mine;  // each thread enables its own state
                writeMany(std::string("T").append(std::to_string(t)));
            });
        for (auto &t : threads)
            t.join();
        for (pid_t pid : children) {
            int status = 0;
            waitpid(pid, &status, 0);
            EXPECT_EQ(status, 0);
        }
    }
    std::map<std::string, int> seen;
    std::regex shape("^-{79}\nDATE = [^\n]+\nPID = [0-9]+; TID = [0-9]+\nERROR CODE    -> 0x99\n([TP][0-9]-[0-9]+)\\.+\n$");
    for (const auto &r : records(rqtest::readFile(log))) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(r, m, shape)) << r;
        ++seen[m[1]];
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>((kThreads + kProcesses) * kEach));
    for (const auto &[tag, count] : seen)
        EXPECT_EQ(count, 1) << tag;
}

TEST_F(Errlog, RotatesAtTwoBillionBytes)
{
    Session s(&log);
    WriteErrLog(300, 1, "fits");
    ASSERT_EQ(truncate(log.c_str(), DX_LOG_OVERFLOW_SIZE - 1), 0);
    WriteErrLog(300, 2, "one byte short");
    EXPECT_GT(std::filesystem::file_size(log), DX_LOG_OVERFLOW_SIZE - 1) << "not rotated";
    ASSERT_EQ(truncate(log.c_str(), DX_LOG_OVERFLOW_SIZE), 0);
    WriteErrLog(300, 3, "after rotation");
    auto recs = records(rqtest::readFile(log));
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_NE(recs[0].find("after rotation"), std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(log + ".overflow.log"), DX_LOG_OVERFLOW_SIZE);
    int entries = 0;
    for (auto &e : std::filesystem::directory_iterator(dir.path()))
        entries += e.is_regular_file();
    EXPECT_EQ(entries, 2) << "the unique intermediate name is gone";
    std::filesystem::remove(log + ".overflow.log");
    EXPECT_EQ(DxOpen(dir.file("no/such/dir").c_str(), 1), -1);
}

TEST_F(Errlog, MessageTypesOverridesAndSwitches)
{
    rqtest::LeakCheck leaks;
    Session s(&log);
    HLIST overrides = 0;
    ASSERT_EQ(DX_ListCreate(&overrides, 4, 4, 0, nullptr, nullptr), 0u);
    U32 pairs[][2] = {{300, 1}, {301, 0}, {300, 0}};
    for (auto &p : pairs)
        DX_ListAddLast(overrides, &p[0], &p[1]);
    ASSERT_EQ(DX_LogSetDebugLog(0, overrides), 0u);
    DX_ListDestroy(&overrides);
    EXPECT_EQ(gDX_LogDebugLogEnabled, 1u);
    EXPECT_EQ(DX_LogIsDebugLogEnabled(300), 1u) << "the first of repeated ids is taken";
    EXPECT_EQ(DX_LogIsDebugLogEnabled(301), 0u);
    EXPECT_EQ(DX_LogIsDebugLogEnabled(302), 0u);
    ASSERT_EQ(DX_LogSetDebugLog(1, 0), 0u);
    EXPECT_EQ(DX_LogIsDebugLogEnabled(301), 1u);
    EXPECT_EQ(DX_LogSetMsgTypeLog(4, 1, 0), 0x10108u);
    EXPECT_EQ(DX_LogIsMsgTypeLogEnabled(4, 300), 0u);
}

int dropAll(U32 code, const char *) { return code == 0x77; }

TEST_F(Errlog, Suppression)
{
    Session s(&log);
    ASSERT_EQ(FilterWriteErrLog(1), 0u);
    ASSERT_EQ(WriteErrLogFilterIt(dropAll), 0u);
    // The suppressed pairs of code and errno, the one suppressed message, and
    // the caller's filter (drops 0x77).
    struct Case { U32 code; int err; const char *message; bool dropped; } cases[] = {
        {0x11403, EPIPE, "a", true},      {0x11906, EPIPE, "b", true},     {0x11403, EIO, "c", false},
        {0x11905, ECONNRESET, "d", true}, {0x11402, ETIMEDOUT, "e", true}, {0x77, 0, "f", true},
        {0x11910, 0, "GetTrRequest: ReadTrHeader", true},  {0x11910, 0, "GetTrRequest: ReadTrHeader.", false},
    };
    for (const auto &c : cases) {
        errno = c.err;
        WriteErrLog(300, c.code, c.message);
    }
    ASSERT_EQ(FilterWriteErrLog(0), 0u);
    errno = EPIPE;
    WriteErrLog(300, 0x11403, "g");
    std::string text = rqtest::readFile(log);
    for (const auto &c : cases)
        EXPECT_EQ(text.find(std::string("\n").append(c.message).append("\n")) == std::string::npos, c.dropped) << c.message;
    EXPECT_NE(text.find("\ng\n"), std::string::npos) << "suppression is off again";
}

TEST_F(Errlog, ControlFailuresAndTheirTexts)
{
    // Not enabled: every set-up call is refused, the queries answer "off".
    EXPECT_EQ((std::vector<U32>{DisableLogging(), SetLogLevel(1), SetLog(300, 1, "x"), AddLog(300),
                                DX_LogSetTraceLog(1, 0), DX_LogSetLogDebugContextCallback(context, nullptr)}),
              std::vector<U32>(6, 0x10101u));
    EXPECT_EQ(DX_LogIsTraceLogEnabled(300), 0u);
    EXPECT_EQ(DX_LogGetLoggingState(), 1u);

    // Providers that enabling refuses, leaving the state as it was.
    struct Bad { std::vector<U32> ids, logits; std::vector<const char *> files; U32 status; } bad[] = {
        {{255}, {1}, {"f"}, 0x10103}, {{300}, {2}, {"f"}, 0x10107}, {{300}, {1}, {nullptr}, 0x10106},
        {{300, 300}, {1, 1}, {"a", "b"}, 0x10104}};
    static Bad *current;
    for (auto &b : bad) {
        current = &b;
        EXPECT_EQ(EnableLogging([](U32 *count, U32 **ids, U32 **logits, char ***files) {
                      *count = static_cast<U32>(current->ids.size()), *ids = current->ids.data();
                      *logits = current->logits.data(), *files = const_cast<char **>(current->files.data());
                  }),
                  b.status);
        EXPECT_EQ(DX_LogGetLoggingState(), 1u);
    }

    std::string f2 = dir.file("control.log");
    {
        Session s(&log);
        EXPECT_EQ(DX_LogGetLoggingState(), 2u);
        ASSERT_EQ(SetLog(2, 1, f2.c_str()), 0u);  // id 256's records reach id 2 at level 4
        EXPECT_EQ(EnableLogging(nullptr), 0x10102u);
        EXPECT_EQ(SetLog(999, 1, nullptr), 0x10103u);
        EXPECT_EQ(AddLog(500), 0u);
        EXPECT_EQ(AddLog(500), 0x15001u);
        EXPECT_EQ(SetLog(500, 7, nullptr), 0u) << "a log-it other than 0 or 1 is left alone";
        EXPECT_EQ(DX_LogIsMsgTypeLogEnabled(9, 300), 0u);
    }
    std::string text = rqtest::readFile(f2);
    for (const char *m : {"ERROR CODE    -> 0x10102\nDX_LogInternalEnableLogging: logging system already enabled\n",
                          "ERROR CODE    -> 0x10103\nSetLog: unknown errlogid\n",
                          "ERROR CODE    -> 0x10108\nDX_LogIsMsgTypeLogEnabled: invalid MsgType\n"})
        EXPECT_NE(text.find(m), std::string::npos) << m << "\nin:\n" << text;
    EXPECT_STREQ(dx_errnogetstr(99999), "Unknown error");
    EXPECT_STREQ(errlog_DxVersionGet(), "A.01.02");
}

TEST_F(Errlog, AllocationFailureSweepOfEnabling)
{
    gFile = log;
    HLIST overrides = 0;
    U32 id = 300, on = 1;
    ASSERT_EQ(DX_ListCreate(&overrides, 4, 4, 0, nullptr, nullptr), 0u);
    ASSERT_EQ(DX_ListAddLast(overrides, &id, &on), 0u);
    rqtest::allocationSweep(
        [overrides] {
            U32 rc = EnableLogging(provider);
            if (rc == 0)
                rc = DX_LogSetTraceLog(1, overrides);
            if (rc == 0)
                rc = SetLog(300, 1, "other.log");
            DisableLogging();
            return rc;
        },
        [](U32 status) {
            EXPECT_TRUE(status == 0x10105 || status == 0x15041 || status == 0x15002 || status == 0x1500A ||
                        status == 0x15019)
                << std::hex << status;
        });
    DX_ListDestroy(&overrides);
    EXPECT_EQ(DX_LogGetLoggingState(), 1u);
}

}  // namespace
