// The checksum of a whole file, read through a buffered binary reader in
// blocks of 1024 bytes taken from the platform allocator.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/cksum_file"
#include "internal/rq_mem.h"

#include "cksum_internal.h"

#include <cstdio>

namespace {

constexpr size_t kBlock = 1024;

}  // namespace

extern "C" {

RQ_API U32 DX_CksumFile(const char *path, U16 initial, U16 *checksum) noexcept
{
    if (path == nullptr)
        return DX_CKSUM_ERR_OPEN;
    rq::File file(std::fopen(path, "rb"));
    if (!file)
        return DX_CKSUM_ERR_OPEN;
    rq::Block<U8> block(RQ_MALLOC(kBlock));
    if (!block)
        return DX_CKSUM_ERR_NO_MEMORY;
    U16 c = initial;
    for (;;) {
        size_t got = std::fread(block.get(), 1, kBlock, file.get());
        c = rq::cksum::update(c, block.get(), got);
        if (got < kBlock)
            break;
    }
    // A directory opens but does not read; a failing disk stops part way.
    if (std::ferror(file.get()))
        return DX_CKSUM_ERR_READ;
    if (checksum != nullptr)
        *checksum = c;
    return 0;
}

RQ_API U32 DX_CkSumFileCalc(const char *path, U16 *checksum) noexcept
{
    return DX_CksumFile(path, 0xFFFF, checksum);
}

RQ_API U32 DX_CkSumFileEqual(const char *path, U16 expected, U32 *equal) noexcept
{
    U16 c = 0;
    U32 status = DX_CksumFile(path, 0xFFFF, &c);
    if (status == 0 && equal != nullptr)
        *equal = c == expected ? 1u : 0u;
    return status;
}

}  // extern "C"
