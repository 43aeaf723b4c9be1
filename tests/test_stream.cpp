// Streams: the generic object, the fixed and growing memory kinds, files.
#include "rqtest.h"

#include "rqcore/frame.h"
#include "rqcore/log.h"
#include "rqcore/stream.h"

#include <cstring>
#include <fcntl.h>
#include <functional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::string;

struct Line { U32 status; Bytes text; };

// Reads once into a junk-filled buffer of `size` bytes (plus a guard) and
// checks that nothing beyond `size` was touched.
Line readOnce(STREAM *s, U32 size)
{
    std::vector<char> buffer(size + 8);
    rqtest::fillJunk(buffer.data(), buffer.size());
    U32 count = 0xA5A5A5A5u;
    U32 status = STREAM_read(s, buffer.data(), size, &count);
    for (size_t i = size; i < buffer.size(); ++i)
        EXPECT_EQ(static_cast<unsigned char>(buffer[i]), 0xA5u) << "byte " << i << " beyond the buffer";
    if (status != 0)
        return {status, ""};
    EXPECT_LE(count, size);
    return {status, Bytes(buffer.data(), count)};
}

// Every failed run of `attach` gives 0x197F4 and leaves nothing behind.
void sweepAttach(const std::function<U32(STREAM **)> &attach)
{
    rqtest::allocationSweep(
        [&] {
            STREAM *s = nullptr;
            U32 status = attach(&s);
            if (status == 0)
                STREAM_destroy(&s);
            return status;
        },
        STREAM_ERR_NOMEM);
}

U32 failingInit(STREAM *, void *) noexcept { return 0x197F2; }
U32 okInit(STREAM *s, void *p) noexcept { return s->privateData = p, 0u; }
U32 okDestroy(STREAM *) noexcept { return 0; }
U32 okRead(STREAM *, char *, U32, U32 *) noexcept { return 0; }
U32 okWrite(STREAM *, const char *, U32, U32 *) noexcept { return 0; }
U32 okSeek(STREAM *, S32, U32, U32 *) noexcept { return 0; }

TEST(Stream, GenericEntryPointsCheckPointersFlagsAndOperations)
{
    rqtest::LeakCheck leaks;
    int state = 0;
    char data[8] = "abc", buffer[8], *text = nullptr;
    U32 n = 0, old = 0;
    STREAM *s = nullptr;
    for (U32 status : {STREAM_new(nullptr, 0, 1, okInit, okDestroy, okRead, okWrite, okSeek, &state),
                       STREAM_new(&s, 0, 1, nullptr, okDestroy, okRead, okWrite, okSeek, &state),
                       STREAM_new(&s, 0, 1, okInit, okDestroy, okRead, okWrite, nullptr, &state),
                       STREAM_new(&s, 0, 1, okInit, okDestroy, okRead, okWrite, okSeek, nullptr),
                       STREAM_read(nullptr, buffer, 1, &n), STREAM_write(nullptr, "a", 1, &n),
                       STREAM_seek(nullptr, 0, 1, &n), STREAM_setFlags(nullptr, 1, &old),
                       STREAM_unsetFlags(nullptr, 1, &old), STREAM_destroy(nullptr), STREAM_destroy(&s),
                       STREAM_attachToBuffer(nullptr, data, 4, 0), STREAM_attachToBuffer(&s, nullptr, 4, 0),
                       STREAM_attachToGrowingBuffer(nullptr, &text, 4, 0), STREAM_attachToGrowingBuffer(&s, nullptr, 4, 0),
                       STREAM_attachToFilename(&s, nullptr, STREAM_READ)})
        EXPECT_EQ(status, STREAM_ERR_NULL);
    ASSERT_EQ(STREAM_new(&s, 0, 7, okInit, okDestroy, okRead, okWrite, okSeek, &state), 0u);
    EXPECT_EQ(s->flags, 0x18u) << "no mode: reading and writing";
    EXPECT_EQ(s->privateData, &state);
    EXPECT_EQ(STREAM_destroy(&s), 0u);
    EXPECT_EQ(s, nullptr);
    // A failing init leaves the object for the caller to destroy.
    EXPECT_EQ(STREAM_new(&s, 0, 1, failingInit, okDestroy, okRead, okWrite, okSeek, &state), 0x197F2u);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(STREAM_destroy(&s), 0u);

    ASSERT_EQ(STREAM_attachToBuffer(&s, data, 3, STREAM_WRITE | STREAM_LOG_ERRORS), 0u);
    EXPECT_EQ(STREAM_read(s, buffer, sizeof buffer, &n), STREAM_ERR_NOT_ALLOWED);
    EXPECT_EQ(STREAM_read(s, nullptr, 1, &n), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_write(s, nullptr, 1, &n), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_setFlags(s, STREAM_READ, &old), 0u);
    EXPECT_EQ(old, U32{STREAM_WRITE | STREAM_LOG_ERRORS}) << "flags with a mode get no default";
    EXPECT_EQ(STREAM_unsetFlags(s, STREAM_WRITE, &old), 0u);
    EXPECT_EQ(old, U32{STREAM_READ | STREAM_WRITE | STREAM_LOG_ERRORS});
    EXPECT_EQ(STREAM_write(s, "x", 1, &n), STREAM_ERR_NOT_ALLOWED);
    EXPECT_EQ(STREAM_setFlags(s, STREAM_WRITE, nullptr), 0u);
    // A missing operation is a corrupt stream; one without destroy is not freed.
    STREAM saved = *s;
    *s = STREAM{};
    s->flags = saved.flags;
    for (U32 status : {STREAM_write(s, "x", 1, &n), STREAM_read(s, buffer, 1, &n), STREAM_seek(s, 0, 1, &n),
                       STREAM_destroy(&s)})
        EXPECT_EQ(status, STREAM_ERR_CORRUPT);
    ASSERT_NE(s, nullptr);
    *s = saved;
    EXPECT_EQ(STREAM_destroy(&s), 0u);
}

// A fixed buffer terminates only when there is room; a growing one grows only
// when a write starts at its end.
TEST(Stream, MemoryWrites)
{
    rqtest::LeakCheck leaks;
    char data[6], text[] = "AB\nCD", buffer[4];
    rqtest::fillJunk(data, sizeof data);
    STREAM *w = nullptr, *r = nullptr;
    U32 n = 0;
    ASSERT_EQ(STREAM_attachToBuffer(&w, data, 4, 0), 0u);
    EXPECT_EQ(STREAM_write(w, "ab", 2, &n), 0u);
    EXPECT_EQ(Bytes(data, 3), Bytes("ab\0", 3)) << "a NUL follows while there is room";
    EXPECT_EQ(STREAM_write(w, "cdef", 4, &n), 0u);
    EXPECT_EQ(n, 2u) << "a short count, status 0";
    EXPECT_EQ(Bytes(data, 5), "abcd\xA5") << "no NUL beyond the capacity";
    EXPECT_EQ(STREAM_write(w, "g", 1, &n), STREAM_EOF);
    // Straight through the kind's operation: STREAM_read clears the buffer first.
    ASSERT_EQ(STREAM_attachToBuffer(&r, text, 5, STREAM_READ | STREAM_LINE_MODE), 0u);
    rqtest::fillJunk(buffer, sizeof buffer);
    ASSERT_EQ(r->read(r, buffer, 3, &n), 0u);
    EXPECT_EQ(Bytes(buffer, 3), Bytes("AB\0", 3)) << "the line end becomes a NUL";
    rqtest::fillJunk(buffer, sizeof buffer);
    ASSERT_EQ(r->read(r, buffer, 2, &n), 0u);
    EXPECT_EQ(Bytes(buffer, 3), "CD\xA5") << "size bytes copied: nothing stored after";
    STREAM_destroy(&w);
    STREAM_destroy(&r);
    // A growing buffer: room left, only what fits, status 0; full: grow by the
    // step (4) or by length + 10 when that is more.
    char *grown = nullptr;
    U32 where = 0;
    ASSERT_EQ(STREAM_attachToGrowingBuffer(&w, &grown, 4, 0), 0u);
    EXPECT_STREQ(grown, "");
    struct Step { U32 length; char c; U32 written; };
    for (Step step : {Step{6, 'a', 4}, Step{2, 'e', 2}, Step{100, 'x', 2}, Step{100, 'y', 100}, Step{20, 'z', 10}}) {
        SCOPED_TRACE(step.c);
        EXPECT_EQ(STREAM_write(w, Bytes(step.length, step.c).c_str(), step.length, &n), 0u);
        EXPECT_EQ(n, step.written);
    }
    EXPECT_EQ(STREAM_seek(w, 0, STREAM_SEEK_END, &where), 0u);
    EXPECT_EQ(where, 118u);
    EXPECT_EQ(STREAM_destroy(&w), 0u);
    EXPECT_EQ(Bytes(grown), "aaaaeexx" + Bytes(100, 'y') + Bytes(10, 'z')) << "the text outlives the stream";
    RQCORE_free(grown);
}

TEST(Stream, MemoryReadsLinesAndChunks)
{
    struct Case { const char *what; Bytes data; U32 flags; U32 size; std::vector<Bytes> lines; };  // then STREAM_EOF
    // The memory kinds' line ends: CR LF, CR or LF; CR CR LF is two.
    const U32 line = STREAM_READ | STREAM_LINE_MODE;
    const Case cases[] = {
        {"cr lf, cr, lf, empty line", "A\r\nB\rC\n\nD\n", line, 80, {"A", "B", "C", "", "D"}},
        {"cr cr lf is two line ends", "A\r\r\nB", line, 80, {"A", "", "B"}},
        {"cr at the capacity", "A\r", line, 80, {"A"}},
        {"long line split by size", "ABCDE\n", line, 3, {"ABC", "DE"}},
        {"line end at size", "AB\nC", line, 3, {"AB", "C"}},
        {"chunks", "ABCDE\nF", STREAM_READ, 4, {"ABCD", "E\nF"}},
        {"nul is data", Bytes("A\0B", 3), line, 80, {Bytes("A\0B", 3)}},
        {"empty", "", line, 80, {}},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        // A read past the capacity would show the trailing "\nZZZ".
        Bytes block = c.data + "\nZZZ";
        STREAM *s = nullptr;
        ASSERT_EQ(STREAM_attachToBuffer(&s, block.data(), static_cast<U32>(c.data.size()), c.flags), 0u);
        for (const Bytes &expected : c.lines) {
            Line l = readOnce(s, c.size);
            EXPECT_EQ(l.status, 0u);
            EXPECT_EQ(l.text, expected);
        }
        EXPECT_EQ(readOnce(s, c.size).status, STREAM_EOF);
        STREAM_destroy(&s);
    }
}

// Failures are logged under STREAM_LOG_ERRORS; the bare 1 (a seek out of
// bounds) and the end of data are outcomes the caller handles, not failures.
TEST(Stream, MemorySeekBoundsAndLoggedFailures)
{
    rqtest::TempDir dir;
    const std::string log = dir.file("stream.log");
    ASSERT_EQ(DX_ErrLogInitializeTLS(), 0u);  // this thread's logging state outlives the test
    rqtest::LeakCheck leaks;
    ASSERT_EQ(EnableLogging(nullptr), 0u);
    ASSERT_EQ(SetLog(2, 1, log.c_str()), 0u);  // the family's errlog id
    char data[] = "0123456789";
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_attachToBuffer(&s, data, 10, STREAM_READ | STREAM_LOG_ERRORS), 0u);
    struct Case { S32 offset; U32 whence; U32 status; U32 previous; };
    // From the end moves back from the current position.
    const Case cases[] = {
        {4, STREAM_SEEK_SET, 0, 0},   {3, STREAM_SEEK_CUR, 0, 4},   {-2, STREAM_SEEK_END, 0, 7},
        {1, STREAM_SEEK_END, 1, 5},   {-6, STREAM_SEEK_END, 1, 5},  {11, STREAM_SEEK_SET, 1, 5},
        {-1, STREAM_SEEK_SET, 1, 5},  {10, STREAM_SEEK_SET, 0, 5},  {1, STREAM_SEEK_CUR, 1, 10},
        {-11, STREAM_SEEK_CUR, 1, 10}, {0, 4, STREAM_ERR_NOT_ALLOWED, 10},
        {2, STREAM_SEEK_SET, 0, 10},  {0, STREAM_SEEK_END, 0, 2},  // whence 3 with offset 0 only reports
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        U32 previous = 0xA5A5A5A5u;
        EXPECT_EQ(STREAM_seek(s, c.offset, c.whence, &previous), c.status);
        EXPECT_EQ(previous, c.previous);
    }
    EXPECT_EQ(readOnce(s, 3).text, "234");
    EXPECT_EQ(readOnce(s, 8).text, "56789");
    EXPECT_EQ(readOnce(s, 8).status, STREAM_EOF);
    STREAM_destroy(&s);
    DisableLogging();
    const std::string text = rqtest::readFile(log);
    EXPECT_EQ(text.find("ERROR CODE"), text.rfind("ERROR CODE")) << "one record:\n" << text;
    EXPECT_NE(text.find("ERROR CODE    -> 0x197F3\nSTREAM_seek(): STREAM seek function\n"), std::string::npos) << text;
}

TEST(Stream, ConstructorsSurviveAllocationFailure)
{
    char data[4] = {};
    char *text = nullptr;
    STREAM *s = nullptr;
    rqtest::TempDir dir;
    std::string path = dir.file("f");
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    sweepAttach([&](STREAM **out) { return STREAM_attachToBuffer(out, data, 4, 0); });
    sweepAttach([&](STREAM **out) { return STREAM_attachToFilename(out, path.c_str(), STREAM_WRITE); });
    sweepAttach([&](STREAM **out) { return STREAM_attachToFile(out, fds[0], STREAM_READ); });
    EXPECT_EQ(fcntl(fds[0], F_GETFD), 0) << "a failed attach leaves the caller's descriptor open";
    close(fds[0]);
    close(fds[1]);
    sweepAttach([&](STREAM **out) {
        text = nullptr;
        U32 status = STREAM_attachToGrowingBuffer(out, &text, 4, 0);
        EXPECT_EQ(text == nullptr, status != 0) << "a failed constructor hands out no text";
        if (status == 0) {  // the text outlives the stream
            STREAM_destroy(out);
            RQCORE_free(text);
        }
        return status;
    });
    // A growing write whose reallocation fails keeps the old text.
    U32 n = 0;
    ASSERT_EQ(STREAM_attachToGrowingBuffer(&s, &text, 2, 0), 0u);
    ASSERT_EQ(STREAM_write(s, "ab", 2, &n), 0u);
    rqtest::allocationSweep(
        [&] {
            U32 status = STREAM_write(s, "c", 1, &n);
            if (status == 0)
                STREAM_seek(s, 2, STREAM_SEEK_SET, nullptr);
            return status;
        },
        [&](U32 status) {
            EXPECT_EQ(status, STREAM_ERR_NOMEM);
            EXPECT_STREQ(text, "ab");
        });
    STREAM_destroy(&s);
    RQCORE_free(text);
}

TEST(StreamFile, OpensByFlags)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::string path = dir.file("a.txt");
    STREAM *s = reinterpret_cast<STREAM *>(0x1);
    EXPECT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_LINE_MODE), STREAM_ERR_NO_MODE);
    EXPECT_EQ(s, nullptr) << "*out is cleared first";
    EXPECT_NE(access(path.c_str(), F_OK), 0) << "nothing opened";
    EXPECT_EQ(STREAM_attachToFilename(&s, (dir.path() + "/no/such/dir").c_str(), STREAM_WRITE), 1u);
    EXPECT_EQ(STREAM_attachToFile(&s, -1, 0), 1u);
    U32 n = 0;
    for (U32 flags : {U32{STREAM_WRITE}, U32{STREAM_WRITE | STREAM_APPEND}}) {
        ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), flags), 0u);
        EXPECT_EQ(STREAM_write(s, "hello\n", 6, &n), 0u);
        EXPECT_EQ(n, 6u);
        STREAM_destroy(&s);
    }
    ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_READ), 0u);
    EXPECT_EQ(readOnce(s, 8).text, "hello\nhe") << "read-only opening does not truncate";
    EXPECT_EQ(readOnce(s, 8).text, "llo\n");
    EXPECT_EQ(readOnce(s, 8).status, STREAM_EOF);
    EXPECT_EQ(STREAM_write(s, "x", 1, &n), STREAM_ERR_NOT_ALLOWED);
    STREAM_destroy(&s);
    ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_WRITE), 0u);
    STREAM_destroy(&s);
    EXPECT_EQ(rqtest::readFile(path), "") << "writing truncates";
}

TEST(StreamFile, SeekReportsOneOnSuccessAndLineReadsFollowIt)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    int fd = open(dir.file("s").c_str(), O_RDWR | O_CREAT, 0600);
    STREAM *s = nullptr;
    U32 n = 0, previous = 0;
    char c;
    ASSERT_EQ(STREAM_attachToFile(&s, fd, STREAM_READ | STREAM_WRITE | STREAM_LINE_MODE), 0u);
    ASSERT_EQ(STREAM_write(s, "first\nsecond\nthird\n", 19, &n), 0u);
    struct Seek { S32 offset; U32 whence, previous; const char *line; } const seeks[] = {
        {0, STREAM_SEEK_SET, 19, "first"}, {7, STREAM_SEEK_CUR, 6, "third"}, {-6, STREAM_SEEK_END, 19, "third"}};
    for (const Seek &k : seeks) {
        EXPECT_EQ(STREAM_seek(s, k.offset, k.whence, &previous), 1u) << "the reversed result is kept";
        EXPECT_EQ(previous, k.previous);
        EXPECT_EQ(readOnce(s, 80).text, k.line);
    }
    EXPECT_EQ(read(fd, &c, 1), 0) << "the line took its LF and nothing more";
    lseek(fd, 0, SEEK_SET);  // the read-ahead starts wherever the descriptor is, each time
    EXPECT_EQ(readOnce(s, 80).text, "first");
    EXPECT_EQ(STREAM_seek(s, -100, STREAM_SEEK_SET, &previous), 0u) << "a failed lseek gives 0";
    EXPECT_EQ(STREAM_seek(s, 0, 9, &previous), STREAM_ERR_NOT_ALLOWED);
    STREAM_destroy(&s);
    close(fd);
    // Over its own descriptor, a write or a plain read after a line read
    // starts right after that line, not after the bytes read ahead.
    ASSERT_EQ(STREAM_attachToFilename(&s, dir.file("s").c_str(), STREAM_READ | STREAM_WRITE | STREAM_LINE_MODE), 0u);
    ASSERT_EQ(STREAM_write(s, "first\nsecond\nthird\n", 19, &n), 0u);
    STREAM_seek(s, 0, STREAM_SEEK_SET, nullptr);
    EXPECT_EQ(readOnce(s, 80).text, "first");
    ASSERT_EQ(STREAM_write(s, "S", 1, &n), 0u);
    EXPECT_EQ(readOnce(s, 80).text, "econd");
    STREAM_unsetFlags(s, STREAM_LINE_MODE, nullptr);
    EXPECT_EQ(readOnce(s, 3).text, "thi");
    STREAM_destroy(&s);
    EXPECT_EQ(rqtest::readFile(dir.file("s")), "first\nSecond\nthird\n");
    // A pipe has no position to report.
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(STREAM_attachToFile(&s, fds[0], STREAM_READ), 0u);
    EXPECT_EQ(STREAM_seek(s, 0, STREAM_SEEK_CUR, &previous), STREAM_ERR_NOT_ALLOWED);
    EXPECT_EQ(STREAM_seek(s, 0, STREAM_SEEK_CUR, nullptr), 0u);
    STREAM_destroy(&s);
    EXPECT_EQ(fcntl(fds[0], F_GETFD), 0) << "a caller's descriptor stays open";
    close(fds[0]);
    close(fds[1]);
}

TEST(StreamFile, ShortWriteIsSticky)
{
    int fd = open("/dev/full", O_WRONLY);
    if (fd < 0)
        GTEST_SKIP() << "no /dev/full";
    rqtest::LeakCheck leaks;
    STREAM *s = nullptr;
    U32 n = 0xA5A5A5A5u, previous = 0;
    char buffer[4];
    ASSERT_EQ(STREAM_attachToFile(&s, fd, STREAM_READ | STREAM_WRITE), 0u);
    EXPECT_EQ(STREAM_write(s, "abc", 3, &n), 1u);
    EXPECT_EQ(n, 0u);
    for (U32 status : {STREAM_read(s, buffer, 4, &n), STREAM_write(s, "abc", 3, &n),
                       STREAM_seek(s, 0, STREAM_SEEK_SET, &previous), STREAM_write(s, "", 0, &n)})
        EXPECT_EQ(status, 1u);
    STREAM_destroy(&s);
    close(fd);
}

TEST(StreamFile, LineReadsOnFilesAndPipesStopAfterTheirLineEnd)
{
    struct Expected { Bytes text; off_t offset; };  // offset: file position after the read
    struct Case { const char *what; Bytes content; U32 size; std::vector<Expected> lines; };  // then STREAM_EOF
    // The file kind's line ends: CR LF, CR CR LF and LF are one; a lone CR
    // swallows the next byte; NULs are dropped; the line end is never counted.
    const Bytes big(40000, 'q'), x255(255, 'x');
    const Case cases[] = {
        {"line ends and nuls", Bytes("one\r\ntwo\nthree\r\r\nfour\rXfive\0six\n\nlast", 37), 80,
         {{"one", 5}, {"two", 9}, {"three", 17}, {"four", 23}, {"fivesix", 32}, {"", 33}, {"last", 37}}},
        {"longer than the buffer", "abcdefg\nhi", 3, {{"abc", 3}, {"def", 6}, {"g", 8}, {"hi", 10}}},
        {"longer than the read-ahead", big + "\r\nz\n", 50000, {{big, 40002}, {"z", 40004}}},
        {"crlf across the first 256-byte block", x255 + "\r\nz", 300, {{x255, 257}, {"z", 258}}},
        {"lone cr ending the first block", x255 + "\rXy\n", 300, {{x255, 257}, {"y", 259}}},
    };
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        rqtest::writeFile(dir.file("lines"), c.content);
        int fd = open(dir.file("lines").c_str(), O_RDONLY);
        STREAM *s = nullptr;
        ASSERT_EQ(STREAM_attachToFile(&s, fd, STREAM_READ | STREAM_LINE_MODE), 0u);
        for (const auto &e : c.lines) {
            EXPECT_EQ(readOnce(s, c.size).text, e.text);
            EXPECT_EQ(lseek(fd, 0, SEEK_CUR), e.offset);
        }
        EXPECT_EQ(readOnce(s, c.size).status, STREAM_EOF);
        STREAM_destroy(&s);
        close(fd);
        // A stream that opened the file itself keeps its read-ahead between
        // lines: the same lines in a row, and the same positions when a seek
        // asks for them between lines.
        for (bool ask : {false, true}) {
            ASSERT_EQ(STREAM_attachToFilename(&s, dir.file("lines").c_str(), STREAM_READ | STREAM_LINE_MODE), 0u);
            for (const auto &e : c.lines) {
                EXPECT_EQ(readOnce(s, c.size).text, e.text);
                U32 here = static_cast<U32>(e.offset);
                if (ask)
                    STREAM_seek(s, 0, STREAM_SEEK_CUR, &here);
                EXPECT_EQ(here, static_cast<U32>(e.offset));
            }
            EXPECT_EQ(readOnce(s, c.size).status, STREAM_EOF);
            STREAM_destroy(&s);
        }
        // On a pipe carrying the content and a tail, a plain read after all
        // lines but the last (which would run into the tail) starts exactly
        // where they stopped.
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        Bytes sent = c.content + "|TAIL";
        ASSERT_EQ(write(fds[1], sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
        close(fds[1]);
        ASSERT_EQ(STREAM_attachToFile(&s, fds[0], STREAM_READ | STREAM_LINE_MODE), 0u);
        for (size_t i = 0; i + 1 < c.lines.size(); ++i)
            EXPECT_EQ(readOnce(s, c.size).text, c.lines[i].text);
        EXPECT_EQ(rqtest::readFile(std::string("/proc/self/fd/").append(std::to_string(fds[0]))), sent.substr(static_cast<size_t>(c.lines[c.lines.size() - 2].offset)));
        STREAM_destroy(&s);
        close(fds[0]);
    }
}

}  // namespace
