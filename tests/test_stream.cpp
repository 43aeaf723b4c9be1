// Streams: the generic object, the fixed and growing memory kinds and the
// file kind.
#include "rqtest.h"

#include "rqcore/frame.h"
#include "rqcore/stream.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::string;

struct Line {
    U32 status;
    Bytes text;
};

// Reads one line/chunk into a junk-filled buffer of `size` bytes (plus a
// guard) and checks that nothing beyond `size` was touched.
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

std::vector<Line> readAll(STREAM *s, U32 size)
{
    std::vector<Line> lines;
    for (int guard = 0; guard < 1000; ++guard) {
        Line l = readOnce(s, size);
        lines.push_back(l);
        if (l.status != 0)
            break;
    }
    return lines;
}

// ---- Generic ----------------------------------------------------------------

U32 failingInit(STREAM *, void *) noexcept { return 0x197F2; }
U32 okInit(STREAM *s, void *p) noexcept
{
    s->privateData = p;
    return 0;
}
U32 okDestroy(STREAM *) noexcept { return 0; }
U32 okRead(STREAM *, char *, U32, U32 *) noexcept { return 0; }
U32 okWrite(STREAM *, const char *, U32, U32 *) noexcept { return 0; }
U32 okSeek(STREAM *, S32, U32, U32 *) noexcept { return 0; }

TEST(Stream, NewAddsReadAndWriteAndChecksEveryPointer)
{
    rqtest::LeakCheck leaks;
    int state = 0;
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_new(&s, 0, 7, okInit, okDestroy, okRead, okWrite, okSeek, &state), 0u);
    EXPECT_EQ(s->flags, 0x18u);
    EXPECT_EQ(s->kind, 7u);
    EXPECT_EQ(s->read, okRead);
    EXPECT_EQ(s->write, okWrite);
    EXPECT_EQ(s->privateData, &state);
    EXPECT_EQ(STREAM_destroy(&s), 0u);
    EXPECT_EQ(s, nullptr);

    ASSERT_EQ(STREAM_new(&s, STREAM_READ | STREAM_LINE_MODE, 1, okInit, okDestroy, okRead, okWrite, okSeek, &state), 0u);
    EXPECT_EQ(s->flags, U32{STREAM_READ | STREAM_LINE_MODE}) << "flags with a mode get no default";
    STREAM_destroy(&s);

    EXPECT_EQ(STREAM_new(nullptr, 0, 1, okInit, okDestroy, okRead, okWrite, okSeek, &state), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_new(&s, 0, 1, nullptr, okDestroy, okRead, okWrite, okSeek, &state), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_new(&s, 0, 1, okInit, okDestroy, okRead, okWrite, nullptr, &state), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_new(&s, 0, 1, okInit, okDestroy, okRead, okWrite, okSeek, nullptr), STREAM_ERR_NULL);
    EXPECT_EQ(s, nullptr);

    // A failing init leaves the object for the caller to destroy.
    EXPECT_EQ(STREAM_new(&s, 0, 1, failingInit, okDestroy, okRead, okWrite, okSeek, &state), 0x197F2u);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(STREAM_destroy(&s), 0u);
}

TEST(Stream, GenericEntryPointsCheckInOrder)
{
    rqtest::LeakCheck leaks;
    char data[8] = "abc";
    char buffer[8];
    U32 n = 0, old = 0;
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_attachToBuffer(&s, data, 3, STREAM_WRITE | STREAM_LOG_ERRORS), 0u);
    EXPECT_EQ(STREAM_read(s, buffer, sizeof buffer, &n), STREAM_ERR_NOT_ALLOWED);
    EXPECT_EQ(STREAM_read(s, nullptr, 1, &n), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_write(s, nullptr, 1, &n), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_read(nullptr, buffer, 1, &n), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_write(nullptr, "a", 1, &n), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_seek(nullptr, 0, 1, &n), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_setFlags(nullptr, 1, &old), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_unsetFlags(nullptr, 1, &old), STREAM_ERR_NULL);

    EXPECT_EQ(STREAM_setFlags(s, STREAM_READ, &old), 0u);
    EXPECT_EQ(old, U32{STREAM_WRITE | STREAM_LOG_ERRORS});
    EXPECT_EQ(STREAM_unsetFlags(s, STREAM_WRITE, &old), 0u);
    EXPECT_EQ(old, U32{STREAM_READ | STREAM_WRITE | STREAM_LOG_ERRORS});
    EXPECT_EQ(STREAM_write(s, "x", 1, &n), STREAM_ERR_NOT_ALLOWED);
    EXPECT_EQ(STREAM_setFlags(s, STREAM_WRITE, nullptr), 0u);

    // A missing operation is a corrupt stream; one without destroy is not freed.
    auto write = s->write;
    auto read = s->read;
    auto seek = s->seek;
    auto destroy = s->destroy;
    s->write = nullptr;
    s->read = nullptr;
    s->seek = nullptr;
    s->destroy = nullptr;
    EXPECT_EQ(STREAM_write(s, "x", 1, &n), STREAM_ERR_CORRUPT);
    EXPECT_EQ(STREAM_read(s, buffer, 1, &n), STREAM_ERR_CORRUPT);
    EXPECT_EQ(STREAM_seek(s, 0, 1, &n), STREAM_ERR_CORRUPT);
    EXPECT_EQ(STREAM_destroy(&s), STREAM_ERR_CORRUPT);
    ASSERT_NE(s, nullptr);
    s->write = write;
    s->read = read;
    s->seek = seek;
    s->destroy = destroy;
    EXPECT_EQ(STREAM_destroy(&s), 0u);
    EXPECT_EQ(STREAM_destroy(&s), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_destroy(nullptr), STREAM_ERR_NULL);
}

// ---- Memory kinds -------------------------------------------------------

TEST(Stream, FixedBufferWritesWhatFits)
{
    rqtest::LeakCheck leaks;
    char data[6];
    rqtest::fillJunk(data, sizeof data);
    STREAM *s = nullptr;
    U32 n = 0;
    ASSERT_EQ(STREAM_attachToBuffer(&s, data, 4, 0), 0u);
    EXPECT_EQ(STREAM_write(s, "ab", 2, &n), 0u);
    EXPECT_EQ(n, 2u);
    EXPECT_EQ(Bytes(data, 3), Bytes("ab\0", 3)) << "a NUL follows while there is room";
    EXPECT_EQ(STREAM_write(s, "cdef", 4, &n), 0u);
    EXPECT_EQ(n, 2u) << "a short count, status 0";
    EXPECT_EQ(Bytes(data, 4), "abcd");
    EXPECT_EQ(static_cast<unsigned char>(data[4]), 0xA5u) << "no NUL beyond the capacity";
    EXPECT_EQ(STREAM_write(s, "g", 1, &n), STREAM_EOF);
    STREAM_destroy(&s);
}

TEST(Stream, MemoryReadsLinesAndChunks)
{
    struct Case {
        const char *what;
        Bytes data;
        U32 flags;
        U32 size;
        std::vector<Line> expected;
    };
    const U32 line = STREAM_READ | STREAM_LINE_MODE;
    const std::vector<Case> cases = {
        {"crlf", "A\r\nB", line, 80, {{0, "A"}, {0, "B"}, {STREAM_EOF, ""}}},
        {"cr, lf, empty line", "A\rB\n\nC\n", line, 80, {{0, "A"}, {0, "B"}, {0, ""}, {0, "C"}, {STREAM_EOF, ""}}},
        {"cr cr lf is two line ends", "A\r\r\nB", line, 80, {{0, "A"}, {0, ""}, {0, "B"}, {STREAM_EOF, ""}}},
        {"cr at the capacity", "A\r", line, 80, {{0, "A"}, {STREAM_EOF, ""}}},
        {"long line split by size", "ABCDE\n", line, 3, {{0, "ABC"}, {0, "DE"}, {STREAM_EOF, ""}}},
        {"line end at size", "AB\nC", line, 3, {{0, "AB"}, {0, "C"}, {STREAM_EOF, ""}}},
        {"chunks", "ABCDE\nF", STREAM_READ, 4, {{0, "ABCD"}, {0, "E\nF"}, {STREAM_EOF, ""}}},
        {"nul is data", Bytes("A\0B", 3), line, 80, {{0, Bytes("A\0B", 3)}, {STREAM_EOF, ""}}},
        {"empty", "", line, 80, {{STREAM_EOF, ""}}},
    };
    rqtest::LeakCheck leaks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        // The data sits in a larger block so that a read past the capacity
        // would be seen as the trailing 'Z's.
        Bytes block = c.data + "\nZZZ";
        STREAM *s = nullptr;
        ASSERT_EQ(STREAM_attachToBuffer(&s, block.data(), static_cast<U32>(c.data.size()), c.flags), 0u);
        std::vector<Line> got = readAll(s, c.size);
        ASSERT_EQ(got.size(), c.expected.size());
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(got[i].status, c.expected[i].status) << i;
            EXPECT_EQ(got[i].text, c.expected[i].text) << i;
        }
        STREAM_destroy(&s);
    }
}

TEST(Stream, MemoryReadTerminatesOnlyWhenThereIsRoom)
{
    rqtest::LeakCheck leaks;
    char data[] = "AB\nCD";
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_attachToBuffer(&s, data, 5, STREAM_READ | STREAM_LINE_MODE), 0u);
    // Reads straight through the kind's operation: STREAM_read would clear
    // the buffer first.
    char buffer[4];
    rqtest::fillJunk(buffer, sizeof buffer);
    U32 n = 0;
    ASSERT_EQ(s->read(s, buffer, 3, &n), 0u);
    EXPECT_EQ(n, 2u);
    EXPECT_EQ(Bytes(buffer, 3), Bytes("AB\0", 3)) << "the line end becomes a NUL";
    rqtest::fillJunk(buffer, sizeof buffer);
    ASSERT_EQ(s->read(s, buffer, 2, &n), 0u);
    EXPECT_EQ(Bytes(buffer, 2), "CD");
    EXPECT_EQ(static_cast<unsigned char>(buffer[2]), 0xA5u) << "size bytes copied: nothing stored after";
    STREAM_destroy(&s);
}

TEST(Stream, GrowingBufferGrowsOnlyWhenAWriteStartsAtTheEnd)
{
    rqtest::LeakCheck leaks;
    char *text = nullptr;
    STREAM *s = nullptr;
    U32 n = 0;
    ASSERT_EQ(STREAM_attachToGrowingBuffer(&s, &text, 4, 0), 0u);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(STREAM_write(s, "abcdef", 6, &n), 0u);
    EXPECT_EQ(n, 4u) << "room was left: only what fits, status 0";
    EXPECT_EQ(STREAM_write(s, "ef", 2, &n), 0u);
    EXPECT_EQ(n, 2u);
    EXPECT_STREQ(text, "abcdef");
    // Capacity is 8 now; 2 bytes of room, so a 100-byte write is short.
    EXPECT_EQ(STREAM_write(s, Bytes(100, 'x').c_str(), 100, &n), 0u);
    EXPECT_EQ(n, 2u);
    // Full: a 100-byte write grows by 100 + 10 (more than the step of 4).
    EXPECT_EQ(STREAM_write(s, Bytes(100, 'y').c_str(), 100, &n), 0u);
    EXPECT_EQ(n, 100u);
    EXPECT_EQ(STREAM_write(s, Bytes(20, 'z').c_str(), 20, &n), 0u);
    EXPECT_EQ(n, 10u) << "capacity 118";
    EXPECT_EQ(std::strlen(text), 118u);
    U32 where = 0;
    EXPECT_EQ(STREAM_seek(s, 0, STREAM_SEEK_END, &where), 0u);
    EXPECT_EQ(where, 118u);
    EXPECT_EQ(STREAM_destroy(&s), 0u);
    EXPECT_EQ(Bytes(text), "abcdefxx" + Bytes(100, 'y') + Bytes(10, 'z')) << "the text outlives the stream";
    RQCORE_free(text);
}

TEST(Stream, MemorySeekBounds)
{
    rqtest::LeakCheck leaks;
    char data[] = "0123456789";
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_attachToBuffer(&s, data, 10, 0), 0u);
    struct Case {
        S32 offset;
        U32 whence;
        U32 status;
        U32 previous;
    };
    // From the end moves back from the current position.
    const std::vector<Case> cases = {
        {4, STREAM_SEEK_SET, 0, 0},   {3, STREAM_SEEK_CUR, 0, 4},   {0, STREAM_SEEK_END, 0, 7},
        {-2, STREAM_SEEK_END, 0, 7},  {1, STREAM_SEEK_END, 1, 5},   {-6, STREAM_SEEK_END, 1, 5},
        {11, STREAM_SEEK_SET, 1, 5},  {-1, STREAM_SEEK_SET, 1, 5},  {10, STREAM_SEEK_SET, 0, 5},
        {1, STREAM_SEEK_CUR, 1, 10},  {-11, STREAM_SEEK_CUR, 1, 10}, {0, 4, STREAM_ERR_NOT_ALLOWED, 10},
        {0, 0, STREAM_ERR_NOT_ALLOWED, 10},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        U32 previous = 0xA5A5A5A5u;
        EXPECT_EQ(STREAM_seek(s, cases[i].offset, cases[i].whence, &previous), cases[i].status);
        EXPECT_EQ(previous, cases[i].previous);
    }
    U32 previous = 0;
    EXPECT_EQ(STREAM_seek(s, 2, STREAM_SEEK_SET, nullptr), 0u);
    EXPECT_EQ(STREAM_seek(s, 0, STREAM_SEEK_END, &previous), 0u);
    EXPECT_EQ(previous, 2u) << "whence 3 with offset 0 only reports";
    EXPECT_EQ(readOnce(s, 3).text, "234");
    STREAM_destroy(&s);
}

TEST(Stream, ConstructorsRefuseNullsAndSurviveAllocationFailure)
{
    char data[4] = {};
    char *text = nullptr;
    STREAM *s = nullptr;
    EXPECT_EQ(STREAM_attachToBuffer(nullptr, data, 4, 0), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_attachToBuffer(&s, nullptr, 4, 0), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_attachToGrowingBuffer(nullptr, &text, 4, 0), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_attachToGrowingBuffer(&s, nullptr, 4, 0), STREAM_ERR_NULL);
    EXPECT_EQ(STREAM_attachToFilename(&s, nullptr, STREAM_READ), STREAM_ERR_NULL);

    rqtest::allocationSweep(
        [&] {
            U32 status = STREAM_attachToBuffer(&s, data, 4, 0);
            if (status == 0)
                STREAM_destroy(&s);
            return status;
        },
        STREAM_ERR_NOMEM);
    rqtest::allocationSweep(
        [&] {
            text = nullptr;
            U32 status = STREAM_attachToGrowingBuffer(&s, &text, 4, 0);
            if (status == 0) {
                STREAM_destroy(&s);
                RQCORE_free(text);
            } else {
                EXPECT_EQ(text, nullptr) << "a failed constructor hands out no text";
            }
            return status;
        },
        STREAM_ERR_NOMEM);
    rqtest::TempDir dir;
    std::string path = dir.file("f");
    rqtest::allocationSweep(
        [&] {
            U32 status = STREAM_attachToFilename(&s, path.c_str(), STREAM_WRITE);
            if (status == 0)
                STREAM_destroy(&s);
            return status;
        },
        STREAM_ERR_NOMEM);
    // A growing write whose reallocation fails keeps the old text.
    ASSERT_EQ(STREAM_attachToGrowingBuffer(&s, &text, 2, 0), 0u);
    U32 n = 0;
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

// ---- File kind --------------------------------------------------------------

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
    ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_WRITE), 0u);
    EXPECT_EQ(s->kind, 3u);
    EXPECT_EQ(STREAM_write(s, "hello\n", 6, &n), 0u);
    EXPECT_EQ(n, 6u);
    STREAM_destroy(&s);
    ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_WRITE | STREAM_APPEND), 0u);
    EXPECT_EQ(STREAM_write(s, "world\n", 6, &n), 0u);
    STREAM_destroy(&s);
    EXPECT_EQ(rqtest::readFile(path), "hello\nworld\n");
    ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_READ), 0u);
    EXPECT_EQ(readOnce(s, 100).text, "hello\nworld\n") << "read-only opening does not truncate";
    EXPECT_EQ(readOnce(s, 100).status, STREAM_EOF);
    EXPECT_EQ(STREAM_write(s, "x", 1, &n), STREAM_ERR_NOT_ALLOWED);
    STREAM_destroy(&s);
    ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_WRITE), 0u);
    STREAM_destroy(&s);
    EXPECT_EQ(rqtest::readFile(path), "") << "writing truncates";
}

TEST(StreamFile, SeekReportsOneOnSuccessAndZeroOnFailure)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::string path = dir.file("s.txt");
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_READ | STREAM_WRITE), 0u);
    U32 n = 0, previous = 0;
    ASSERT_EQ(STREAM_write(s, "0123456789", 10, &n), 0u);
    EXPECT_EQ(STREAM_seek(s, 2, STREAM_SEEK_SET, &previous), 1u) << "the reversed result is kept";
    EXPECT_EQ(previous, 10u);
    EXPECT_EQ(STREAM_seek(s, 3, STREAM_SEEK_CUR, &previous), 1u);
    EXPECT_EQ(previous, 2u);
    EXPECT_EQ(STREAM_seek(s, -1, STREAM_SEEK_END, &previous), 1u);
    EXPECT_EQ(previous, 5u);
    EXPECT_EQ(readOnce(s, 10).text, "9");
    EXPECT_EQ(STREAM_seek(s, -100, STREAM_SEEK_SET, &previous), 0u) << "a failed lseek gives 0";
    EXPECT_EQ(STREAM_seek(s, 0, 9, &previous), STREAM_ERR_NOT_ALLOWED);
    STREAM_destroy(&s);

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
    ASSERT_EQ(STREAM_attachToFile(&s, fd, STREAM_READ | STREAM_WRITE), 0u);
    EXPECT_EQ(STREAM_write(s, "abc", 3, &n), 1u);
    EXPECT_EQ(n, 0u);
    char buffer[4];
    EXPECT_EQ(STREAM_read(s, buffer, 4, &n), 1u);
    EXPECT_EQ(STREAM_write(s, "abc", 3, &n), 1u);
    EXPECT_EQ(STREAM_seek(s, 0, STREAM_SEEK_SET, &previous), 1u);
    EXPECT_EQ(STREAM_write(s, "", 0, &n), 1u);
    STREAM_destroy(&s);
    close(fd);
}

// Line mode on a seekable file and on a pipe: the same lines, and the
// descriptor left just after the bytes each line consumed.
struct Expected {
    U32 status;
    Bytes text;
    off_t offset;  // file position after the read
};

void checkLines(const Bytes &content, U32 size, const std::vector<Expected> &expected)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::string path = dir.file("lines");
    FILE *f = std::fopen(path.c_str(), "wb");
    std::fwrite(content.data(), 1, content.size(), f);
    std::fclose(f);

    int fd = open(path.c_str(), O_RDONLY);
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_attachToFile(&s, fd, STREAM_READ | STREAM_LINE_MODE), 0u);
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE("file read " + std::to_string(i));
        Line l = readOnce(s, size);
        EXPECT_EQ(l.status, expected[i].status);
        EXPECT_EQ(l.text, expected[i].text);
        EXPECT_EQ(lseek(fd, 0, SEEK_CUR), expected[i].offset);
    }
    STREAM_destroy(&s);
    close(fd);

    // The pipe carries the content and a tail: what is left for a plain
    // read after the lines must start exactly where the lines stopped.
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    Bytes tail = "|TAIL";
    ASSERT_EQ(write(fds[1], content.data(), content.size()), static_cast<ssize_t>(content.size()));
    ASSERT_EQ(write(fds[1], tail.data(), tail.size()), static_cast<ssize_t>(tail.size()));
    close(fds[1]);
    ASSERT_EQ(STREAM_attachToFile(&s, fds[0], STREAM_READ | STREAM_LINE_MODE), 0u);
    // The last line runs into the tail on the pipe, so it is left out.
    size_t lines = 0;
    while (lines < expected.size() && expected[lines].status == 0)
        ++lines;
    off_t last = 0;
    for (size_t i = 0; i + 1 < lines; ++i) {
        SCOPED_TRACE("pipe read " + std::to_string(i));
        Line l = readOnce(s, size);
        EXPECT_EQ(l.text, expected[i].text);
        last = expected[i].offset;
    }
    Bytes rest;
    char buffer[256];
    ssize_t got;
    while ((got = read(fds[0], buffer, sizeof buffer)) > 0)
        rest.append(buffer, static_cast<size_t>(got));
    EXPECT_EQ(rest, content.substr(static_cast<size_t>(last)) + tail);
    STREAM_destroy(&s);
    close(fds[0]);
}

TEST(StreamFile, LineEndsNulsAndPositions)
{
    // CR LF, CR CR LF and LF are one line end; a lone CR swallows the next
    // byte; NULs are dropped; the line end is never counted.
    const Bytes content = Bytes("one\r\ntwo\nthree\r\r\nfour\rXfive\0six\n\nlast", 37);
    checkLines(content, 80,
               {{0, "one", 5},
                {0, "two", 9},
                {0, "three", 17},
                {0, "four", 23},
                {0, "fivesix", 32},
                {0, "", 33},
                {0, "last", 37},
                {STREAM_EOF, "", 37}});
}

TEST(StreamFile, LinesLongerThanTheBuffer)
{
    checkLines("abcdefg\nhi", 3, {{0, "abc", 3}, {0, "def", 6}, {0, "g", 8}, {0, "hi", 10}, {STREAM_EOF, "", 10}});
    // Longer than every read-ahead block.
    Bytes big(40000, 'q');
    checkLines(big + "\r\nz\n", 50000, {{0, big, 40002}, {0, "z", 40004}, {STREAM_EOF, "", 40004}});
}

TEST(StreamFile, LineReadsFollowTheCallersSeeks)
{
    // The read-ahead starts wherever the descriptor is, each time.
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::string path = dir.file("seek");
    FILE *f = std::fopen(path.c_str(), "wb");
    std::fputs("first\nsecond\nthird\n", f);
    std::fclose(f);
    int fd = open(path.c_str(), O_RDONLY);
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_attachToFile(&s, fd, STREAM_READ | STREAM_LINE_MODE), 0u);
    EXPECT_EQ(readOnce(s, 80).text, "first");
    lseek(fd, 0, SEEK_SET);
    EXPECT_EQ(readOnce(s, 80).text, "first");
    EXPECT_EQ(STREAM_seek(s, 13, STREAM_SEEK_SET, nullptr), 1u);
    EXPECT_EQ(readOnce(s, 80).text, "third");
    char c;
    EXPECT_EQ(read(fd, &c, 1), 0) << "the line took its LF and nothing more";
    STREAM_destroy(&s);
    close(fd);
}

TEST(StreamFile, PlainReadReportsEndOfFile)
{
    rqtest::TempDir dir;
    rqtest::LeakCheck leaks;
    std::string path = dir.file("p");
    FILE *f = std::fopen(path.c_str(), "wb");
    std::fputs("abcdef", f);
    std::fclose(f);
    STREAM *s = nullptr;
    ASSERT_EQ(STREAM_attachToFilename(&s, path.c_str(), STREAM_READ), 0u);
    EXPECT_EQ(readOnce(s, 4).text, "abcd");
    EXPECT_EQ(readOnce(s, 4).text, "ef");
    EXPECT_EQ(readOnce(s, 4).status, STREAM_EOF);
    STREAM_destroy(&s);
}

}  // namespace
