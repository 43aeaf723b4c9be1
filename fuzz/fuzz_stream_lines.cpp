// Line-mode reading: a fixed-buffer stream and a file stream (a seekable
// file and a pipe) against plain models of their line rules, with the file
// position after every line.
#include "rqcore/stream.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

void check(bool ok)
{
    if (!ok)
        std::abort();
}

struct Line {
    U32 status;
    std::string text;
    size_t end;  // bytes consumed after this read
};

// File rules: CR or LF ends a line; after a line end, bytes are taken while
// the last one was a CR; NULs are dropped; EOF with nothing stored is the end.
std::vector<Line> fileModel(const std::string &in, U32 size)
{
    std::vector<Line> lines;
    size_t i = 0;
    for (;;) {
        std::string text;
        bool ended = false;
        while (text.size() < size && i < in.size()) {
            char c = in[i++];
            if (c == '\r' || c == '\n') {
                char last = c;
                while (last == '\r' && i < in.size())
                    last = in[i++];
                ended = true;
                break;
            }
            if (c != '\0')
                text += c;
        }
        if (!ended && text.empty() && size != 0) {
            lines.push_back({STREAM_EOF, "", i});
            return lines;
        }
        lines.push_back({0, text, i});
        if (size == 0 || lines.size() > in.size() + 1)
            return lines;
    }
}

// Memory rules: CR (with a following LF) or LF ends a line; NULs are data.
std::vector<Line> memoryModel(const std::string &in, U32 size)
{
    std::vector<Line> lines;
    size_t i = 0;
    for (;;) {
        if (i >= in.size()) {
            lines.push_back({STREAM_EOF, "", i});
            return lines;
        }
        std::string text;
        while (text.size() < size && i < in.size()) {
            char c = in[i++];
            if (c == '\r' || c == '\n') {
                if (c == '\r' && i < in.size() && in[i] == '\n')
                    ++i;
                break;
            }
            text += c;
        }
        lines.push_back({0, text, i});
        if (size == 0)
            return lines;
    }
}

void readAndCompare(STREAM *s, U32 size, const std::vector<Line> &expected, int fd)
{
    std::vector<char> buffer(size + 1);
    for (const Line &want : expected) {
        U32 count = 0;
        U32 status = STREAM_read(s, buffer.data(), size, &count);
        check(status == want.status);
        if (status == 0) {
            check(count <= size);
            check(std::string(buffer.data(), count) == want.text);
        }
        if (fd >= 0)
            check(lseek(fd, 0, SEEK_CUR) == static_cast<off_t>(want.end));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1 || size > 60000)
        return 0;
    U32 readSize = 1 + data[0] % 64;
    std::string in(reinterpret_cast<const char *>(data + 1), size - 1);

    // Fixed buffer: the bytes sit in a larger block that ends in a line end,
    // so reading past the capacity would show.
    std::string block = in + "\nZZ";
    STREAM *s = nullptr;
    check(STREAM_attachToBuffer(&s, block.data(), static_cast<U32>(in.size()), STREAM_READ | STREAM_LINE_MODE) == 0);
    readAndCompare(s, readSize, memoryModel(in, readSize), -1);
    STREAM_destroy(&s);

    std::vector<Line> expected = fileModel(in, readSize);

    // A seekable file: same lines, and the position just after each line.
    int fd = memfd_create("lines", 0);
    check(fd >= 0);
    check(write(fd, in.data(), in.size()) == static_cast<ssize_t>(in.size()));
    lseek(fd, 0, SEEK_SET);
    check(STREAM_attachToFile(&s, fd, STREAM_READ | STREAM_LINE_MODE) == 0);
    readAndCompare(s, readSize, expected, fd);
    STREAM_destroy(&s);
    close(fd);

    // A pipe: one byte at a time, the same lines.
    int fds[2];
    check(pipe(fds) == 0);
    fcntl(fds[1], F_SETPIPE_SZ, 65536);
    check(write(fds[1], in.data(), in.size()) == static_cast<ssize_t>(in.size()));
    close(fds[1]);
    check(STREAM_attachToFile(&s, fds[0], STREAM_READ | STREAM_LINE_MODE) == 0);
    readAndCompare(s, readSize, expected, -1);
    STREAM_destroy(&s);
    close(fds[0]);
    return 0;
}
