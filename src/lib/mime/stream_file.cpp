// File streams: a file the stream opens and owns, or a caller's descriptor.
//
// Line mode on a caller's descriptor reads ahead in blocks where the
// descriptor can seek and puts it back just after the bytes the line
// consumed, so the caller sees the same positions as with one read(2) per
// byte.  A descriptor the stream opened itself is seen by nobody else: its
// line reads keep the read-ahead block between calls, and every other
// operation (seek, write, a plain read) first moves the descriptor back
// over the bytes not yet handed out, so the positions the stream reports
// stay the same.  Pipes and sockets are read one byte at a time.

#define RQ_SOURCE_TAG "src/lib/core/lib/mime/stream_file"
#include "internal/rq_mem.h"
#include "rqcore/stream.h"

#include <cerrno>
#include <cstdint>

namespace {

enum LastOp : U32 { kOpRead = 1, kOpWrite = 2, kOpSeek = 3, kOpOpened = 4 };

constexpr U32 kAheadSize = 32768;

struct FileState {
    int fd;
    U32 ownsFd;    // 1 = close on destroy
    U32 sticky;    // 0, or the status every later operation returns at once
    U32 seekable;  // line-mode read-ahead: 0 = not yet known, 1 = yes, 2 = no
    U32 lastOp;
    U32 spare2;
    char name[4096];
    // Line-mode read-ahead kept between calls (owned descriptors only):
    // ahead[aheadPos, aheadEnd) has been read from the file but not handed out.
    char *ahead;
    U32 aheadPos;
    U32 aheadEnd;
};

void trace(const STREAM *s, const char *name) noexcept
{
    if ((s->flags & STREAM_TRACE) != 0)
        STREAM_trace(name);
}

FileState *stateOf(STREAM *s) noexcept
{
    return static_cast<FileState *>(s->privateData);
}

ssize_t readSome(int fd, void *buffer, size_t size) noexcept
{
    ssize_t r;
    do
        r = ::read(fd, buffer, size);
    while (r < 0 && errno == EINTR);
    return r;
}

// The line scanner shared by both reading strategies.  Bytes are fed one at
// a time; it stores data bytes, drops NULs, and after a line end keeps
// consuming while the last byte taken was a CR (so CR LF, CR CR LF and LF
// are one line end, and a lone CR swallows the byte after it).
struct LineScanner {
    char *buffer;
    U32 size;
    U32 stored = 0;
    bool inLineEnd = false;
    bool done = false;

    void feed(char c) noexcept
    {
        if (inLineEnd) {
            if (c != '\r')
                done = true;
            return;
        }
        if (c == '\r' || c == '\n') {
            inLineEnd = true;
            if (c == '\n')
                done = true;
            return;
        }
        if (c != '\0')
            buffer[stored++] = c;
        if (stored >= size)
            done = true;
    }
};

U32 finishLine(const LineScanner &line, U32 *count) noexcept
{
    if (count != nullptr)
        *count = line.stored;
    if (!line.inLineEnd && line.stored < line.size) {
        // End of file without a line end.
        line.buffer[line.stored] = '\0';
        if (line.stored == 0)
            return STREAM_EOF;
    }
    return 0;
}

U32 readLineByBytes(int fd, LineScanner &line, U32 *count) noexcept
{
    while (!line.done) {
        char c;
        if (readSome(fd, &c, 1) <= 0)
            break;
        line.feed(c);
    }
    return finishLine(line, count);
}

U32 readLineAhead(int fd, LineScanner &line, U32 *count) noexcept
{
    char block[16384];
    size_t want = 256;  // most lines are short; grow for long ones
    while (!line.done) {
        ssize_t got = readSome(fd, block, want);
        if (got <= 0)
            break;
        ssize_t i = 0;
        while (i < got && !line.done)
            line.feed(block[i++]);
        // Leave the descriptor just after the bytes the line took.
        if (i < got && SIS_CrtLSeek(fd, i - got, SEEK_CUR) < 0)
            return 1;
        if (want < sizeof block)
            want *= 2;
    }
    return finishLine(line, count);
}

// Line reads from the kept read-ahead block.  Runs of plain bytes are
// copied whole; line ends, NULs and the byte after a line end go through
// the scanner, so the result is the scanner's byte for byte.
U32 readLineKept(FileState *st, LineScanner &line, U32 *count) noexcept
{
    char *ahead = st->ahead;
    U32 pos = st->aheadPos;
    U32 end = st->aheadEnd;
    while (!line.done) {
        if (pos == end) {
            ssize_t got = readSome(st->fd, ahead, kAheadSize);
            if (got <= 0)
                break;
            pos = 0;
            end = static_cast<U32>(got);
        }
        if (!line.inLineEnd) {
            U32 room = line.size - line.stored;
            U32 n = end - pos < room ? end - pos : room;
            const char *p = ahead + pos;
            U32 k = 0;
            while (k < n && p[k] != '\r' && p[k] != '\n' && p[k] != '\0')
                ++k;
            std::memcpy(line.buffer + line.stored, p, k);
            line.stored += k;
            pos += k;
            if (line.stored >= line.size) {
                line.done = true;
                break;
            }
            if (pos == end)
                continue;
        }
        line.feed(ahead[pos++]);
    }
    st->aheadPos = pos;
    st->aheadEnd = end;
    return finishLine(line, count);
}

// Gives the file back the bytes read ahead but not handed out, so that the
// descriptor stands where the caller's reads so far have brought it.
bool returnReadAhead(FileState *st) noexcept
{
    U32 unread = st->aheadEnd - st->aheadPos;
    st->aheadPos = st->aheadEnd = 0;
    return unread == 0 || SIS_CrtLSeek(st->fd, -static_cast<S32>(unread), SEEK_CUR) >= 0;
}

U32 STREAM_file_init(STREAM *s, void *privateData) noexcept
{
    if (s == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_file_init()");
    if (privateData == nullptr)
        return STREAM_ERR_CORRUPT;
    s->privateData = privateData;
    stateOf(s)->lastOp = kOpOpened;
    return 0;
}

U32 STREAM_file_destroy(STREAM *s) noexcept
{
    if (s == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_file_destroy()");
    FileState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    if (st->ownsFd == 1 && st->fd >= 0)
        ::close(st->fd);
    if (st->ahead != nullptr)
        RQ_FREE(st->ahead);
    RQ_FREE(st);
    s->privateData = nullptr;
    return 0;
}

U32 STREAM_file_write(STREAM *s, const char *bytes, U32 length, U32 *written) noexcept
{
    if (s == nullptr || bytes == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_file_write()");
    FileState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    if (st->sticky != 0)
        return st->sticky;
    if (!returnReadAhead(st))
        return 1;
    st->lastOp = kOpWrite;
    // Each attempt writes the whole buffer from its start; a partial write
    // therefore ends as a short write below.
    int64_t total = 0;
    ssize_t last = 0;
    while (total < int64_t{length}) {
        last = ::write(st->fd, bytes, length);
        if (last <= 0) {
            if (errno == EINTR && last < 0)
                continue;
            break;
        }
        total += last;
    }
    if (length == 0)
        last = 0;
    if (written != nullptr)
        *written = last > 0 ? static_cast<U32>(last) : 0;
    if (last != static_cast<ssize_t>(length)) {
        st->sticky = 1;  // every later operation now fails at once
        return 1;
    }
    return 0;
}

U32 STREAM_file_read(STREAM *s, char *buffer, U32 size, U32 *count) noexcept
{
    if (s == nullptr || buffer == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_file_read()");
    FileState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    if (st->sticky != 0)
        return st->sticky;
    st->lastOp = kOpRead;
    if ((s->flags & STREAM_LINE_MODE) == 0) {
        if (!returnReadAhead(st))
            return 1;
        ssize_t got = readSome(st->fd, buffer, size);
        if (got == 0) {
            if (count != nullptr)
                *count = 0;
            return STREAM_EOF;
        }
        if (count != nullptr)
            *count = got > 0 ? static_cast<U32>(got) : 0;
        // A failed read(2) is the stream family's bare failure, never a count.
        return got > 0 ? 0u : 1u;
    }
    LineScanner line{buffer, size};
    if (size == 0) {
        if (count != nullptr)
            *count = 0;
        return 0;
    }
    // Whether a descriptor can seek does not change; it is asked once.
    if (st->seekable == 0)
        st->seekable = SIS_CrtLSeek(st->fd, 0, SEEK_CUR) < 0 ? 2 : 1;
    if (st->seekable == 2)
        return readLineByBytes(st->fd, line, count);
    if (st->ownsFd == 1 && st->ahead == nullptr)
        st->ahead = static_cast<char *>(RQ_MALLOC(kAheadSize));  // without it, the per-line way below
    if (st->ownsFd == 1 && st->ahead != nullptr)
        return readLineKept(st, line, count);
    return readLineAhead(st->fd, line, count);
}

U32 STREAM_file_seek(STREAM *s, S32 offset, U32 whence, U32 *previous) noexcept
{
    if (s == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_file_seek()");
    FileState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    if (st->sticky != 0)
        return st->sticky;
    if (!returnReadAhead(st))
        return 0;
    st->lastOp = kOpSeek;
    if (previous != nullptr) {
        int64_t here = SIS_CrtLSeek(st->fd, 0, SEEK_CUR);
        if (here == -1)
            return STREAM_ERR_NOT_ALLOWED;
        *previous = static_cast<U32>(here);
    }
    int how;
    switch (whence) {
    case STREAM_SEEK_SET:
        how = SEEK_SET;
        break;
    case STREAM_SEEK_CUR:
        how = SEEK_CUR;
        break;
    case STREAM_SEEK_END:
        how = SEEK_END;
        break;
    default:
        return STREAM_ERR_NOT_ALLOWED;
    }
    // 1 on success and 0 on failure: callers that only want the position
    // pass `previous` and never test this result.
    return SIS_CrtLSeek(st->fd, offset, how) == -1 ? 0u : 1u;
}

U32 attach(STREAM **out, int fd, U32 owns, const char *path, U32 flags) noexcept
{
    auto *st = static_cast<FileState *>(RQ_CALLOC(1, sizeof(FileState)));
    if (st == nullptr)
        return STREAM_ERR_NOMEM;
    st->fd = fd;
    st->ownsFd = owns;
    if (path != nullptr) {
        std::strncpy(st->name, path, sizeof st->name - 1);
        st->name[sizeof st->name - 1] = '\0';
    }
    U32 status = STREAM_new(out, flags, STREAM_KIND_FILE, STREAM_file_init, STREAM_file_destroy, STREAM_file_read,
                            STREAM_file_write, STREAM_file_seek, st);
    if (status == STREAM_ERR_NOMEM || status == STREAM_ERR_NULL) {
        RQ_FREE(st);
        return status;
    }
    return status;
}

}  // namespace

extern "C" {

RQ_API U32 STREAM_attachToFilename(STREAM **out, const char *path, U32 flags) noexcept
{
    if (out == nullptr || path == nullptr)
        return STREAM_ERR_NULL;
    *out = nullptr;
    bool reading = (flags & STREAM_READ) != 0;
    bool writing = (flags & STREAM_WRITE) != 0;
    if (!reading && !writing)
        return STREAM_ERR_NO_MODE;
    int how = O_CREAT;
    if ((flags & STREAM_APPEND) != 0)
        how |= O_APPEND;
    else if (writing)
        how |= O_TRUNC;
    if (reading && writing)
        how |= O_RDWR;
    else if (writing)
        how |= O_WRONLY;
    rq::Fd fd(SIS_CrtOpen(path, how, 0600));
    if (!fd.ok())
        return 1;
    U32 status = attach(out, fd.get(), 1, path, flags);
    if (status != STREAM_ERR_NOMEM && status != STREAM_ERR_NULL)
        fd.release();  // the stream owns it now
    return status;
}

RQ_API U32 STREAM_attachToFile(STREAM **out, int fd, U32 flags) noexcept
{
    if (out == nullptr)
        return STREAM_ERR_NULL;
    if (fd < 0)
        return 1;
    return attach(out, fd, 0, nullptr, flags);
}

}  // extern "C"
