// Shared by the fuzz targets: a guard that stops the run when an input
// leaves platform blocks behind, and the writing of an input to a scratch
// file for the readers that take a path.
#ifndef RQ_FUZZ_SUPPORT_H
#define RQ_FUZZ_SUPPORT_H

#include "rqcore/encode.h"
#include "rqsis/rqsis_test.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Counts the live blocks when made and again when it goes; a difference is
// a leak, reported and turned into a crash so that libFuzzer keeps the input.
// The encoded-word converters kept between calls are released before each
// count: they are a cache, not a leak.
class LeakGuard {
public:
    LeakGuard() noexcept
    {
        ENCODE_ReleaseCachedConverters();
        SIS_TestLiveGet(&before_, nullptr);
    }
    ~LeakGuard()
    {
        ENCODE_ReleaseCachedConverters();
        uint64_t after = 0;
        SIS_TestLiveGet(&after, nullptr);
        if (after != before_) {
            std::fprintf(stderr, "leaked %llu blocks\n", static_cast<unsigned long long>(after - before_));
            std::abort();
        }
    }
    LeakGuard(const LeakGuard &) = delete;
    LeakGuard &operator=(const LeakGuard &) = delete;

private:
    uint64_t before_ = 0;
};

// Writes the input to `path`; false when the file cannot be written.
inline bool writeInput(const char *path, const uint8_t *data, size_t size)
{
    FILE *f = std::fopen(path, "wb");
    if (f == nullptr)
        return false;
    bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

}  // namespace fuzz

#endif
