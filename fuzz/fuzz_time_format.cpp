// Arbitrary time and local-time formats, zone names and instants through the
// two printers at every buffer size from 0 up to past the text's length, each
// in a heap block of exactly that size.  A crash, sanitizer report, leak, an
// unterminated or non-empty text on failure, or a size at which the printed
// text differs from the unbounded one is a finding.
//
// Input: 4 bytes of time ID, 1 byte of local-time type, the zone name up to
// the first newline, then the format.
#include "rqcore/lists.h"
#include "rqcore/nls.h"
#include "rqcore/time.h"
#include "fuzz_support.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// The sample catalog beside the sources, when it is there.
HLIST catalog()
{
    static const HLIST nls = [] {
        std::string path(__FILE__);
        path = path.substr(0, path.rfind('/')) + "/../data/nls/en_US.profile";
        HLIST h = 0;
        if (FILE *f = std::fopen(path.c_str(), "r")) {
            std::fclose(f);
            if (DX_NLSListCreate(&h, 0, path.c_str()) != 0)
                h = 0;
        }
        return h;
    }();
    return nls;
}

template <typename Print>
void sweep(const char *format, Print &&print)
{
    char full[2048];
    U32 fullStatus = print(full, sizeof full, format);
    size_t length = std::strlen(full);
    if (fullStatus != 0 && length != 0)
        std::abort();
    size_t limit = length + 3;
    for (size_t size = 0; size <= limit; ++size) {
        char *buffer = static_cast<char *>(std::malloc(size == 0 ? 0 : size));
        if (size > 0)
            std::memset(buffer, 'Z', size);
        U32 status = print(buffer, static_cast<U32>(size), format);
        if (size > 0) {
            if (std::memchr(buffer, '\0', size) == nullptr)
                std::abort();
            if (status != 0 && buffer[0] != '\0')
                std::abort();
            if (status == 0 && (fullStatus != 0 || std::strcmp(buffer, full) != 0))
                std::abort();
        } else if (status == 0) {
            std::abort();
        }
        std::free(buffer);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 5 || size > 512)
        return 0;
    HLIST nls = catalog();  // loaded once, before the blocks are counted
    fuzz::LeakGuard leaks;

    U32 id = 0;
    std::memcpy(&id, data, 4);
    DX_LOCALTIME local;
    std::memset(&local, 0, sizeof local);
    if (DX_TimeSetFromTimeId(&local.time, id) != 0)
        std::abort();
    local.type = 9u + data[4] % 5u;  // 9..13: the three types and two others
    std::string rest(reinterpret_cast<const char *>(data + 5), size - 5);
    size_t newline = rest.find('\n');
    std::string zone = newline == std::string::npos ? std::string() : rest.substr(0, newline);
    std::string format = newline == std::string::npos ? rest : rest.substr(newline + 1);
    DX_MemStrnCopy(local.zoneName, zone.c_str(), sizeof local.zoneName);

    sweep(format.c_str(), [&](char *b, U32 n, const char *f) { return DX_TimeFormat(b, n, f, &local.time, nls); });
    sweep(format.c_str(),
          [&](char *b, U32 n, const char *f) { return DX_LocalTimeFormat(b, n, f, &local, nls, nullptr); });

    return 0;
}
