// The zone index of a rule set: a hash of the zone names over Zone records
// that carry copies of each rule and its entries.  Adding a zone and finding
// one cost the same whatever the number of zones, so that reading a file of
// n zones is linear in n (the list's own duplicate check walks the list, which
// made large files quadratic).

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/tz_index"
#include "internal/rq_mem.h"
#include "tz_internal.h"
#include "rqcore/frame.h"

#include <cstring>
#include <new>

namespace rq::tz {
namespace {

U32 hashKey(const char *key) noexcept
{
    U32 h = 2166136261u;  // FNV-1a
    for (U32 i = 0; i < kZoneKeySize && key[i] != '\0'; ++i)
        h = (h ^ static_cast<unsigned char>(key[i])) * 16777619u;
    return h;
}

bool isCapital(char c) noexcept { return c >= 'A' && c <= 'Z'; }

// The abbreviations and standard offset that the zone name spells.
void readZoneName(Zone &zone) noexcept
{
    const char *name = zone.key;
    const char *p = name;
    while (isCapital(*p))
        ++p;
    zone.standardAbbrLength = static_cast<U16>(p - name);
    const char *end = p;
    zone.standardOffset = readAdjust(p, &end);
    zone.hasDaylightPart = *end != '\0';
    const char *q = end;
    while (isCapital(*q))
        ++q;
    zone.daylightAbbrStart = static_cast<U16>(end - name);
    zone.daylightAbbrLength = static_cast<U16>(q - end);
}

// Copies the items of one entry list into entries; *count receives how many.
U32 entryCount(HLIST list, U32 *count) noexcept
{
    *count = 0;
    if (list == 0)
        return 0;
    U32 size = 0;
    if (U32 status = DX_ListGetIdSize(list, &size); status != 0)
        return status;
    if (size != kEntrySize)
        return DX_LIST_ERR_TYPE_DIFFERS;
    return DX_ListGetElemNum(list, count);
}

U32 copyEntries(HLIST list, DX_TZENTRY *entries, U32 count) noexcept
{
    for (U32 i = 0; i < count; ++i) {
        U32 status = i == 0 ? DX_ListGetFirst(list, &entries[i], nullptr) : DX_ListGetNext(list, &entries[i], nullptr);
        if (status != 0)
            return status;
    }
    return 0;
}

bool grow(Index &index, U32 slots) noexcept
{
    auto *fresh = static_cast<U32 *>(RQ_CALLOC(slots, sizeof(U32)));
    if (fresh == nullptr)
        return false;
    for (U32 n = 0; n < index.count; ++n) {
        U32 i = index.zones[n]->hash & (slots - 1);
        while (fresh[i] != 0)
            i = (i + 1) & (slots - 1);
        fresh[i] = n + 1;
    }
    if (index.slots != nullptr)
        RQ_FREE(index.slots);
    index.slots = fresh;
    index.slotCount = slots;
    return true;
}

}  // namespace

void zoneKey(const char *name, char key[kZoneKeySize]) noexcept
{
    std::memset(key, 0, kZoneKeySize);
    if (name != nullptr)
        std::memcpy(key, name, strnlen(name, kZoneKeySize - 1));
}

SetLock::SetLock(HLIST rules) noexcept
{
    if (rules == 0)
        return;
    void *p = MemLock(rules);
    if (p == nullptr)
        return;
    locked_ = true;
    auto *set = static_cast<Set *>(p);
    if (set->magic == kSetMagic)
        set_ = set;
}

SetLock::~SetLock()
{
    if (locked_)
        MemUnlock();
}

const Zone *findZone(const Set &set, const char *zoneName) noexcept
{
    const Index &index = set.index;
    if (zoneName == nullptr || index.slotCount == 0)
        return nullptr;
    char key[kZoneKeySize];
    zoneKey(zoneName, key);
    U32 mask = index.slotCount - 1;
    for (U32 i = hashKey(key) & mask; index.slots[i] != 0; i = (i + 1) & mask) {
        const Zone *zone = index.zones[index.slots[i] - 1];
        if (std::memcmp(zone->key, key, kZoneKeySize) == 0)
            return zone;
    }
    return nullptr;
}

U32 makeZone(const char key[kZoneKeySize], const DX_TZRULE &rule, Zone **zone) noexcept
{
    *zone = nullptr;
    U32 beginCount = 0, endCount = 0;
    if (U32 status = entryCount(rule.begin, &beginCount); status != 0)
        return status;
    if (U32 status = entryCount(rule.end, &endCount); status != 0)
        return status;
    size_t entries = static_cast<size_t>(beginCount) + endCount;
    // Counts come from lists in memory; a size that overflows cannot be met.
    if (entries > (SIZE_MAX - sizeof(Zone)) / kEntrySize)
        return DX_TZ_ERR_NO_MEMORY;
    void *block = RQ_MALLOC(sizeof(Zone) + entries * kEntrySize);
    if (block == nullptr)
        return DX_TZ_ERR_NO_MEMORY;
    Zone *z = new (block) Zone{};
    std::memcpy(z->key, key, kZoneKeySize);
    z->hash = hashKey(key);
    z->rule = rule;
    z->beginCount = beginCount;
    z->endCount = endCount;
    z->entries = reinterpret_cast<DX_TZENTRY *>(z + 1);
    U32 status = copyEntries(rule.begin, z->entries, beginCount);
    if (status == 0)
        status = copyEntries(rule.end, z->entries + beginCount, endCount);
    if (status != 0) {
        freeZone(z);
        return status;
    }
    readZoneName(*z);
    *zone = z;
    return 0;
}

void freeZone(Zone *zone) noexcept
{
    if (zone == nullptr)
        return;
    YearSlot *years = zone->years.load(std::memory_order_acquire);
    if (years != nullptr)
        RQ_FREE(years);
    zone->~Zone();
    RQ_FREE(zone);
}

U32 reserveZone(Index &index) noexcept
{
    if (index.count == index.capacity) {
        U32 more = index.capacity == 0 ? 16 : index.capacity * 2;
        if (more <= index.capacity)
            return DX_TZ_ERR_NO_MEMORY;
        void *grown = RQ_REALLOC(index.zones, static_cast<size_t>(more) * sizeof(Zone *));
        if (grown == nullptr)
            return DX_TZ_ERR_NO_MEMORY;
        index.zones = static_cast<Zone **>(grown);
        index.capacity = more;
    }
    if ((index.count + 1) * 2 > index.slotCount && !grow(index, index.slotCount == 0 ? 32 : index.slotCount * 2))
        return DX_TZ_ERR_NO_MEMORY;
    return 0;
}

void commitZone(Index &index, Zone *zone) noexcept
{
    U32 mask = index.slotCount - 1;
    U32 i = zone->hash & mask;
    while (index.slots[i] != 0)
        i = (i + 1) & mask;
    index.zones[index.count++] = zone;
    index.slots[i] = index.count;
}

void freeIndex(Index &index) noexcept
{
    for (U32 n = 0; n < index.count; ++n)
        freeZone(index.zones[n]);
    if (index.zones != nullptr)
        RQ_FREE(index.zones);
    if (index.slots != nullptr)
        RQ_FREE(index.slots);
    index = Index{};
}

U32 addRule(Set &set, const char *zoneName, const DX_TZRULE &rule) noexcept
{
    char key[kZoneKeySize];
    zoneKey(zoneName, key);
    if (findZone(set, key) != nullptr)
        return DX_LIST_ERR_DUPLICATE;
    if (U32 status = reserveZone(set.index); status != 0)
        return status;
    Zone *zone = nullptr;
    if (U32 status = makeZone(key, rule, &zone); status != 0)
        return status;
    // The index has checked uniqueness: the list takes the element at its
    // tail without searching.
    if (U32 status = DX_ListAlwaysAddLast(set.list, key, &rule); status != 0) {
        freeZone(zone);
        return status;
    }
    commitZone(set.index, zone);
    return 0;
}

}  // namespace rq::tz
