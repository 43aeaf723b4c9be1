// Recurrence descriptions with arbitrary fields: kind, interval, start record
// (cached values included), flags, maxCount, days lists of any identifier
// size and contents, excluded weekdays and dates, reused output lists of any
// sizes.  End dates stay within ten years of the start so that runs stay
// short.  A crash, a sanitizer report, a leaked block, dates out of order or
// sequence numbers out of step are findings.
#include "rqcore/date.h"
#include "rqcore/lists.h"
#include "fuzz_support.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

class Input {
public:
    Input(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
    uint8_t u8() { return p_ < end_ ? *p_++ : 0; }
    uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }

private:
    const uint8_t *p_;
    const uint8_t *end_;
};

constexpr U32 kIdSizes[] = {2, 2, 2, 1, 4};

HLIST codeList(Input &in, unsigned maxItems)
{
    uint8_t shape = in.u8();
    if ((shape & 7) == 0)
        return 0;
    HLIST list = 0;
    if (DX_ListCreate(&list, kIdSizes[shape % 5], 0, (shape & 0x40) ? 0x20 : 8, nullptr, nullptr) != 0)
        return 0;
    unsigned n = in.u8() % maxItems;
    for (unsigned i = 0; i < n; ++i) {
        uint32_t id = in.u8() % 40;
        DX_ListAddLast(list, &id, nullptr);
    }
    return list;
}

HLIST dateList(Input &in, const DX_DATE &start)
{
    constexpr U32 kSizes[] = {24, 14, 8, 2, 30};
    uint8_t shape = in.u8();
    if ((shape & 3) == 0)
        return 0;
    HLIST list = 0;
    if (DX_ListCreate(&list, kSizes[shape % 5], 0, 8, (shape & 0x80) ? DX_MemStrnCmp : nullptr, nullptr) != 0)
        return 0;
    unsigned n = in.u8() % 24;
    for (unsigned i = 0; i < n; ++i) {
        unsigned char record[32] = {};
        DX_DATE d = start;
        std::memset(&d, 0, 8);
        DX_DateOffsetFar(&d, in.u8() * 3);
        std::memcpy(record, &d, sizeof d);
        DX_ListAddLast(list, record, nullptr);
    }
    return list;
}

void destroy(HLIST *list)
{
    if (*list != 0)
        DX_ListDestroy(list);
}

void check(HLIST out)
{
    DX_DATE prev{}, d{};
    U16 id = 0, expected = 1;
    bool first = true;
    for (U32 rc = DX_ListGetFirst(out, &id, &d); rc == 0; rc = DX_ListGetNext(out, &id, &d), ++expected) {
        if (id != expected)
            std::abort();
        if (!first) {
            bool later = d.year != prev.year ? d.year > prev.year
                         : d.month != prev.month ? d.month > prev.month
                                                 : d.day > prev.day;
            if (!later)
                std::abort();
        }
        first = false;
        prev = d;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096)
        return 0;
    fuzz::LeakGuard leaks;
    Input in(data, size);
    U32 flags = in.u8() & 7;
    DX_RECUR r{};
    r.kind = in.u8() % 8;
    r.interval = in.u16();
    r.start.flags = in.u8() & 7;
    r.start.day = in.u8();
    r.start.month = in.u8() % 14;
    r.start.year = in.u16();
    r.start.dayId = in.u16();
    r.start.dayOfWeek = in.u8();
    r.end.day = in.u8();
    r.end.month = in.u8() % 13;
    r.end.year = static_cast<U16>(r.start.year + in.u8() % 11 - 1);
    U32 maxCount = in.u8();
    uint8_t outShape = in.u8();
    r.days = codeList(in, 40);
    r.excludedWeekdays = codeList(in, 8);
    r.excludedDates = dateList(in, r.start);
    HLIST out = 0;
    if ((outShape & 3) != 0)
        DX_ListCreate(&out, (outShape & 4) ? 4 : 2, (outShape & 8) ? 8 : 24, 8, nullptr, nullptr);
    HLIST before = out;
    U32 rc = DX_DateGenRecur(flags, &r, &out, maxCount);
    if (rc == 0)
        check(out);
    if ((flags & 1) != 0 && rc != 0 && out != 0)
        std::abort();  // a list created by a failed call is destroyed
    if ((flags & 1) != 0 && before != 0)
        destroy(&before);
    destroy(&out);
    destroy(&r.days);
    destroy(&r.excludedWeekdays);
    destroy(&r.excludedDates);
    return 0;
}
