// Date formats of arbitrary text, printed into exact-size heap buffers of
// every size from 0 up to what the format needs (and a few around it), with
// the sample catalog loaded when it is there.  Any write past the buffer, an
// unterminated result, a failed print that leaves text, a size that succeeds
// where a larger one failed, or a leak is a finding.
//
// Input: 8 bytes of record (day, month, year and a cache word, little
// endian, stored as is so odd records are printed too), then the format.
#include "rqcore/date.h"
#include "rqcore/lists.h"
#include "rqcore/nls.h"
#include "fuzz_support.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

HLIST catalog()
{
    static HLIST nls = [] {
        std::string path = __FILE__;
        path = path.substr(0, path.rfind('/')) + "/../data/nls/en_US.profile";
        HLIST h = 0;
        if (DX_NLSListCreate(&h, 0, path.c_str()) != 0)
            h = 0;
        return h;
    }();
    return nls;
}

U16 u16(const uint8_t *p)
{
    return static_cast<U16>(p[0] | (p[1] << 8));
}

constexpr U32 kLarge = 1u << 20;
constexpr U32 kSweep = 600;  // every size up to here, then only around the needed size

// Prints into a heap buffer of exactly size bytes and checks what every size must give.
U32 printAt(U32 size, const std::string &format, DX_DATE date, HLIST nls, bool cat, std::string *out)
{
    char *buffer = size != 0 ? static_cast<char *>(std::malloc(size)) : nullptr;
    char dummy = 'J';
    char *b = buffer != nullptr ? buffer : &dummy;  // size 0 must write nothing at all
    if (buffer != nullptr)
        std::memset(buffer, 'J', size);
    if (cat && size > 2) {
        buffer[0] = 'p';  // earlier text that the appending print keeps
        buffer[1] = '\0';
    } else if (cat && size > 0) {
        buffer[0] = '\0';
    }
    U32 rc = cat ? DX_DateFormatCat(b, size, format.c_str(), &date, nls) : DX_DateFormat(b, size, format.c_str(), &date, nls);
    if (size == 0) {
        if (rc != DX_DATE_ERR_FULL || dummy != 'J')
            std::abort();
        return rc;
    }
    const char *end = static_cast<const char *>(std::memchr(buffer, '\0', size));
    if (end == nullptr)
        std::abort();  // not terminated inside the buffer
    std::string text(static_cast<const char *>(buffer), end);
    if (cat && size > 2) {
        if (text.compare(0, 1, "p") != 0)
            std::abort();  // the text already there is kept
        text.erase(0, 1);
    }
    if (rc != 0 && !text.empty())
        std::abort();  // a failed print leaves an empty string
    *out = text;
    std::free(buffer);
    return rc;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 8 || size > 300)
        return 0;
    DX_DATE date;
    std::memset(&date, 0, sizeof date);
    date.day = u16(data);
    date.month = u16(data + 2);
    date.year = u16(data + 4);
    date.flags = data[6] & 7u;
    date.dayOfWeek = data[7] % 9u;
    date.dayId = u16(data + 6);
    date.weekOfYear = data[7];
    std::string format(reinterpret_cast<const char *>(data + 8), size - 8);
    format = format.c_str();  // up to the first NUL
    HLIST nls = catalog();

    fuzz::LeakGuard leaks;
    std::string full;
    U32 rcFull = printAt(kLarge, format, date, nls, false, &full);
    // The needed size: the smallest that succeeds (any status but "full" is
    // the same at every size that lets the walk get as far).
    U32 needed = 0;
    for (U32 s = 0; s <= kSweep + 2; ++s) {
        std::string text;
        U32 rc = printAt(s, format, date, nls, false, &text);
        if (rc == 0) {
            if (rcFull != 0 || text != full)
                std::abort();
            if (needed == 0)
                needed = s;
        } else if (needed != 0) {
            std::abort();  // failed at a size larger than one that succeeded
        }
        std::string catText;
        U32 rcCat = printAt(s, format, date, nls, true, &catText);
        if (s > 2 && rcCat == 0 && catText != full)
            std::abort();
    }
    if (rcFull == 0 && needed == 0) {
        // Long output: the sizes around the needed one, found by halving.
        U32 lo = kSweep, hi = kLarge;
        std::string text;
        while (hi - lo > 1) {
            U32 mid = lo + (hi - lo) / 2;
            if (printAt(mid, format, date, nls, false, &text) == 0)
                hi = mid;
            else
                lo = mid;
        }
        if (printAt(lo, format, date, nls, false, &text) == 0 || printAt(hi, format, date, nls, false, &text) != 0 ||
            text != full)
            std::abort();
    }
    return 0;
}
