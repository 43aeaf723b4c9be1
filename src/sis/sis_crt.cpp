// C-runtime wrappers.  Each is the C library's own call; the allocating
// sprintf takes its result from the accounting allocator so that callers free
// it with SIS_MemFree like every other block.

#include "rqsis/rqsis.h"

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {

int SIS_CrtOpen(const char *path, int flags, int mode) noexcept
{
    if (path == nullptr)
        return -1;
    return open(path, flags, mode);
}

int64_t SIS_CrtLSeek(int fd, int64_t offset, int whence) noexcept
{
    return static_cast<int64_t>(lseek64(fd, static_cast<off64_t>(offset), whence));
}

int SIS_CrtStat(const char *path, struct stat *buffer) noexcept
{
    if (path == nullptr || buffer == nullptr)
        return -1;
    return stat(path, buffer);
}

int SIS_CrtFStat(int fd, struct stat *buffer) noexcept
{
    if (buffer == nullptr)
        return -1;
    return fstat(fd, buffer);
}

SIS_STATUS SIS_FileRm(void *, const char *path) noexcept
{
    if (path == nullptr)
        return 1;
    return unlink(path) == 0 ? 0 : 1;
}

int SIS_CrtSNPrintf(char *buffer, size_t size, const char *format, ...) noexcept
{
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buffer, size, format, args);
    va_end(args);
    return n;
}

int SIS_CrtASPrintf(char **result, const char *format, ...) noexcept
{
    if (result == nullptr || format == nullptr)
        return -1;
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (n < 0) {
        va_end(again);
        return -1;
    }
    char *text = static_cast<char *>(
        SIS_MemMalloc(nullptr, static_cast<size_t>(n) + 1, 0, 0, "src/sis/sis_crt", "NO-VERSION-INFO", __LINE__));
    if (text == nullptr) {
        va_end(again);
        return -1;
    }
    std::vsnprintf(text, static_cast<size_t>(n) + 1, format, again);
    va_end(again);
    *result = text;
    return n;
}

char *SIS_CrtCTime(const time_t *when, char *buffer, size_t size) noexcept
{
    // ctime_r needs 26 bytes; callers pass 64.
    if (when == nullptr || buffer == nullptr || size < 26)
        return nullptr;
    return ctime_r(when, buffer);
}

struct tm *SIS_CrtLocalTime(const time_t *when, struct tm *result) noexcept
{
    if (when == nullptr || result == nullptr)
        return nullptr;
    return localtime_r(when, result);
}

int SIS_CrtRand(unsigned int *seed) noexcept
{
    return seed != nullptr ? rand_r(seed) : 0;
}

int SIS_CrtStrCaseCmp(const char *a, const char *b) noexcept
{
    return strcasecmp(a, b);
}

char *SIS_CrtStrTok(char *text, const char *delimiters, char **save) noexcept
{
    return strtok_r(text, delimiters, save);
}

}  // extern "C"
