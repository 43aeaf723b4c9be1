// File sizes, truncation, path copies and comparison, temporary names.

#define RQ_SOURCE_TAG "src/lib/core/lib/zolsys/files"
#include "internal/rq_mem.h"
#include "rqcore/sys.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

extern "C" {

RQ_API U32 ZOL_truncate(const char *file, U32 length) noexcept
{
    if (file == nullptr)
        return ZOL_ERR_TRUNCATE_NO_FILE;
    if (::truncate(file, static_cast<off_t>(length)) != 0)
        return ZOL_ERR_TRUNCATE_FAILED;
    return 0;
}

RQ_API char *ZOL_fullpath(char *output, const char *path, U32 size) noexcept
{
    if (output == nullptr || path == nullptr)
        return nullptr;
    size_t length = std::strlen(path);
    if (size <= length)
        return nullptr;
    // Callers rely on the path coming back as given, not made absolute.
    std::memcpy(output, path, length + 1);
    return output;
}

RQ_API U32 FileSizeGet(const char *path, U32 *size) noexcept
{
    if (path == nullptr || size == nullptr)
        return ZOL_ERR_FILESIZE_NO_PATH;
    rq::Fd fd(::open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok())
        return ZOL_ERR_FILESIZE_OPEN;
    int64_t end = SIS_CrtLSeek(fd.get(), 0, SEEK_END);
    if (end < 0) {
        *size = 0;
        return ZOL_ERR_FILESIZE_SEEK;
    }
    *size = end > INT64_C(0xFFFFFFFF) ? 0xFFFFFFFFu : static_cast<U32>(end);
    return 0;
}

RQ_API S32 ZOL_PathCmp(const char *a, const char *b) noexcept
{
    if (a == nullptr || b == nullptr)
        return (a != nullptr) - (b != nullptr);
    return std::strcmp(a, b);
}

RQ_API char *sys_tempnam_alloc(const char *directory, const char *prefix) noexcept
{
    return ::tempnam(directory, prefix);
}

RQ_API void sys_tempnam_free(char *name) noexcept
{
    std::free(name);  // tempnam's text belongs to the C library's allocator
}

}  // extern "C"
