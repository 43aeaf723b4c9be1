// Opening a log file for one record, with the overflow rotation of files
// that reached DX_LOG_OVERFLOW_SIZE bytes.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/errlog_file"
#include "internal/rq_mem.h"
#include "errlog_internal.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

namespace {

constexpr char kOverflowSuffix[] = ".overflow.log";
constexpr int kOpenFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_LARGEFILE;

bool atLimit(int64_t size) noexcept
{
    return size >= static_cast<int64_t>(DX_LOG_OVERFLOW_SIZE);
}

// The size of a file by name; a size that does not fit the stat record
// (EOVERFLOW on 32-bit targets) is over the limit anyway.
bool nameAtLimit(const char *path) noexcept
{
    struct stat sb {};
    if (SIS_CrtStat(path, &sb) != 0)
        return errno == EOVERFLOW;
    return atLimit(static_cast<int64_t>(sb.st_size));
}

char *appendHex8(char *p, U32 v) noexcept
{
    constexpr char kDigits[] = "0123456789abcdef";
    for (int shift = 28; shift >= 0; shift -= 4)
        *p++ = kDigits[(v >> shift) & 0xF];
    return p;
}

// Moves the full file aside and opens a fresh one.  The unique name
// (path.<pid>.<tid>.overflow.log) keeps concurrent writers from renaming
// each other's files.
int rotate(const char *path, int fd) noexcept
{
    size_t n = std::strlen(path);
    rq::Block<char> unique(RQ_MALLOC(n + 2 * 9 + sizeof kOverflowSuffix));
    rq::Block<char> target(RQ_MALLOC(n + sizeof kOverflowSuffix));
    if (!unique || !target) {
        ::close(fd);
        return -1;  // ERRLOG_ERR_NO_MEMORY
    }
    uint32_t pid = 0, tid = 0;
    SIS_ProcessIdGet(&pid);
    SIS_ThreadIdGet(&tid);
    char *p = unique.get();
    std::memcpy(p, path, n);
    p += n;
    *p++ = '.';
    p = appendHex8(p, pid);
    *p++ = '.';
    p = appendHex8(p, tid);
    std::memcpy(p, kOverflowSuffix, sizeof kOverflowSuffix);
    std::memcpy(target.get(), path, n);
    std::memcpy(target.get() + n, kOverflowSuffix, sizeof kOverflowSuffix);

    if (std::rename(path, unique.get()) != 0) {
        ::close(fd);
        SIS_FileRm(nullptr, path);
        return -1;  // ERRLOG_ERR_RENAME
    }
    if (::close(fd) != 0)
        return -1;  // ERRLOG_ERR_CLOSE
    // Another writer may have rotated first; only a file still full is kept.
    if (nameAtLimit(unique.get()) && std::rename(unique.get(), target.get()) != 0) {
        SIS_FileRm(nullptr, path);
        return -1;  // ERRLOG_ERR_RENAME
    }
    int fresh = SIS_CrtOpen(path, kOpenFlags, 0666);
    SIS_FileRm(nullptr, unique.get());
    return fresh >= 0 ? fresh : -1;  // ERRLOG_ERR_REOPEN
}

}  // namespace

extern "C" RQ_API int DxOpen(const char *path, U32 checkOverflow) noexcept
{
    if (path == nullptr)
        return -1;
    int fd = SIS_CrtOpen(path, kOpenFlags, 0666);
    if (fd < 0)
        return -1;  // ERRLOG_ERR_OPEN
    if (checkOverflow == 0 || !atLimit(SIS_CrtLSeek(fd, 0, SEEK_END)))
        return fd;
    return rotate(path, fd);
}
