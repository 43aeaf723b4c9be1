// Rule sets, zone rules and their entries: making, adding, copying,
// comparing, enumerating, finding and destroying them.

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/tz_rules"
#include "internal/rq_mem.h"
#include "tz_internal.h"
#include "rqcore/frame.h"

#include <cstring>

namespace rq::tz {
namespace {

// Copies a text into a caller's buffer of size bytes (nothing when size is 0).
void copyOut(char *buffer, U32 size, const char *text) noexcept
{
    if (buffer != nullptr && size != 0)
        DX_MemStrnCopy(buffer, text, size);
}

void copyName(char *dest, const char *text) noexcept
{
    std::memset(dest, 0, DX_TZ_NAME_SIZE);
    if (text != nullptr)
        std::memcpy(dest, text, strnlen(text, DX_TZ_NAME_SIZE - 1));
}

// Destroys the entry lists of every rule of a list, then the list.
U32 destroyRuleList(HLIST *list) noexcept
{
    if (list == nullptr || *list == 0)
        return 0;
    U32 size = 0;
    if (DX_ListGetDataSize(*list, &size) == 0 && size == kRuleSize) {
        DX_TZRULE rule;
        for (U32 s = DX_ListGetFirst(*list, nullptr, &rule); s == 0; s = DX_ListGetNext(*list, nullptr, &rule)) {
            if (rule.begin != 0)
                DX_ListDestroy(&rule.begin);
            if (rule.end != 0)
                DX_ListDestroy(&rule.end);
        }
    }
    return DX_ListDestroy(list);
}

// A fresh set block around a list (not yet indexed).
U32 newSet(HLIST list, HLIST *rules) noexcept
{
    RQHANDLE handle = MemAlloc(sizeof(Set));
    if (handle == 0)
        return DX_TZ_ERR_NO_MEMORY;
    auto *set = static_cast<Set *>(MemLock(handle));
    if (set == nullptr) {
        MemFree(handle);
        return DX_TZ_ERR_NO_MEMORY;
    }
    *set = Set{};
    set->magic = kSetMagic;
    set->list = list;
    MemUnlock();
    *rules = handle;
    return 0;
}

bool sameDate(const DX_DATE &a, const DX_DATE &b) noexcept
{
    return a.day == b.day && a.month == b.month && a.year == b.year;
}

bool sameEntry(const DX_TZENTRY &a, const DX_TZENTRY &b) noexcept
{
    return sameDate(a.from, b.from) && sameDate(a.to, b.to) && a.time == b.time && a.weekday == b.weekday &&
           a.adjust == b.adjust;
}

U32 sameEntries(HLIST a, HLIST b, bool *same) noexcept
{
    *same = false;
    U32 countA = 0, countB = 0;
    if (a != 0)
        if (U32 status = DX_ListGetElemNum(a, &countA); status != 0)
            return status;
    if (b != 0)
        if (U32 status = DX_ListGetElemNum(b, &countB); status != 0)
            return status;
    if (countA != countB)
        return 0;
    for (U32 i = 0; i < countA; ++i) {
        DX_TZENTRY x, y;
        U32 sa = i == 0 ? DX_ListGetFirst(a, &x, nullptr) : DX_ListGetNext(a, &x, nullptr);
        if (sa != 0)
            return sa;
        U32 sb = i == 0 ? DX_ListGetFirst(b, &y, nullptr) : DX_ListGetNext(b, &y, nullptr);
        if (sb != 0)
            return sb;
        if (!sameEntry(x, y))
            return 0;
    }
    *same = true;
    return 0;
}

}  // namespace
}  // namespace rq::tz

using namespace rq::tz;

extern "C" {

RQ_API U32 DX_TZCreateTZRulesEmpty(HLIST *rules) noexcept
{
    if (rules == nullptr)
        return DX_TZ_ERR_NULL;
    *rules = 0;
    HLIST list = 0;
    if (U32 status = DX_ListCreate(&list, kZoneKeySize, kRuleSize, kRuleListFlags, nullptr, nullptr); status != 0)
        return status;
    if (U32 status = newSet(list, rules); status != 0) {
        DX_ListDestroy(&list);
        return status;
    }
    return 0;
}

RQ_API U32 DX_TZRulesCreateFromList(HLIST *rules, HLIST list) noexcept
{
    if (rules == nullptr)
        return DX_TZ_ERR_NULL;
    *rules = 0;
    U32 idSize = 0, dataSize = 0, count = 0;
    if (U32 status = DX_ListGetIdSize(list, &idSize); status != 0)
        return status;
    if (U32 status = DX_ListGetDataSize(list, &dataSize); status != 0)
        return status;
    if (idSize != kZoneKeySize || dataSize != kRuleSize)
        return DX_LIST_ERR_TYPE_DIFFERS;
    if (U32 status = DX_ListGetElemNum(list, &count); status != 0)
        return status;
    HLIST handle = 0;
    if (U32 status = newSet(list, &handle); status != 0)
        return status;
    U32 status = 0;
    {
        SetLock set(handle);
        char key[kZoneKeySize];
        DX_TZRULE rule;
        for (U32 i = 0; i < count && status == 0; ++i) {
            status = i == 0 ? DX_ListGetFirst(list, key, &rule) : DX_ListGetNext(list, key, &rule);
            key[kZoneKeySize - 1] = '\0';
            if (status != 0 || findZone(*set.get(), key) != nullptr)
                continue;  // a name met again: the first one wins, as a list search finds it
            status = reserveZone(set->index);
            Zone *zone = nullptr;
            if (status == 0)
                status = makeZone(key, rule, &zone);
            if (status == 0)
                commitZone(set->index, zone);
        }
        if (status != 0) {
            // The list stays the caller's.
            freeIndex(set->index);
            set->magic = 0;
        }
    }
    if (status != 0) {
        MemFree(handle);
        return status;
    }
    *rules = handle;
    return 0;
}

RQ_API U32 DX_TZRulesDestroy(HLIST *rules) noexcept
{
    if (rules == nullptr || *rules == 0)
        return 0;
    HLIST list = 0;
    {
        SetLock set(*rules);
        if (!set)
            return DX_LIST_ERR_NO_LIST;
        list = set->list;
        freeIndex(set->index);
        set->magic = 0;
    }
    MemFree(*rules);
    *rules = 0;
    return destroyRuleList(&list);
}

RQ_API U32 DX_TZRulesListDestroy(HLIST *list) noexcept
{
    return destroyRuleList(list);
}

RQ_API U32 DX_TZCreateTZRule(DX_TZRULE **rule, const char *name, const char *country) noexcept
{
    if (rule == nullptr)
        return DX_TZ_ERR_NULL;
    *rule = nullptr;
    rq::Block<DX_TZRULE> r(RQ_CALLOC(1, sizeof(DX_TZRULE)));
    if (!r)
        return DX_TZ_ERR_NO_MEMORY;
    copyName(r.get()->name, name);
    copyName(r.get()->country, country);
    if (U32 status = DX_ListCreate(&r.get()->begin, kEntrySize, 0, kEntryListFlags, nullptr, nullptr); status != 0)
        return status;
    if (U32 status = DX_ListCreate(&r.get()->end, kEntrySize, 0, kEntryListFlags, nullptr, nullptr); status != 0) {
        DX_ListDestroy(&r.get()->begin);
        return status;
    }
    *rule = r.release();
    return 0;
}

RQ_API U32 DX_TZAddTZEntry(DX_TZRULE *rule, const DX_TZENTRY *beginEntry, const DX_TZENTRY *endEntry) noexcept
{
    if (rule == nullptr)
        return DX_TZ_ERR_NULL;
    if (beginEntry != nullptr)
        if (U32 status = DX_ListAlwaysAddLast(rule->begin, beginEntry, nullptr); status != 0)
            return status;
    if (endEntry != nullptr) {
        if (U32 status = DX_ListAlwaysAddLast(rule->end, endEntry, nullptr); status != 0) {
            // Take the begin entry back, so the two lists stay in step.
            if (beginEntry != nullptr && DX_ListGetLast(rule->begin, nullptr, nullptr) == 0)
                DX_ListDeleteCurrent(rule->begin);
            return status;
        }
    }
    return 0;
}

RQ_API U32 DX_TZDestroyTZRule(DX_TZRULE **rule) noexcept
{
    if (rule == nullptr || *rule == nullptr)
        return 0;
    DX_TZRULE *r = *rule;
    if (r->begin != 0)
        DX_ListDestroy(&r->begin);
    if (r->end != 0)
        DX_ListDestroy(&r->end);
    RQ_FREE(r);
    *rule = nullptr;
    return 0;
}

RQ_API U32 DX_TZAddTZRule(HLIST rules, const char *zoneName, DX_TZRULE *rule) noexcept
{
    if (rule == nullptr || zoneName == nullptr)
        return DX_TZ_ERR_NULL;
    {
        SetLock set(rules);
        if (!set)
            return DX_LIST_ERR_NO_LIST;
        if (U32 status = addRule(*set.get(), zoneName, *rule); status != 0)
            return status;
    }
    // The set owns the lists now: clear them so that freeing the rule leaves them.
    rule->begin = 0;
    rule->end = 0;
    return DX_TZDestroyTZRule(&rule);
}

RQ_API U32 DX_TZCreateTZRulesSimple(HLIST *rules, const char *zoneName, const char *name, const char *country,
                                    const DX_TZENTRY *beginEntry, const DX_TZENTRY *endEntry) noexcept
{
    if (rules == nullptr)
        return DX_TZ_ERR_NULL;
    *rules = 0;
    HLIST set = 0;
    if (U32 status = DX_TZCreateTZRulesEmpty(&set); status != 0)
        return status;
    DX_TZRULE *rule = nullptr;
    U32 status = DX_TZCreateTZRule(&rule, name, country);
    if (status == 0)
        status = DX_TZAddTZEntry(rule, beginEntry, endEntry);
    if (status == 0) {
        status = DX_TZAddTZRule(set, zoneName, rule);
        if (status == 0)
            rule = nullptr;  // freed by the set
    }
    if (status != 0) {
        DX_TZDestroyTZRule(&rule);
        DX_TZRulesDestroy(&set);
        return status;
    }
    *rules = set;
    return 0;
}

RQ_API U32 DX_TZRuleCopy(const DX_TZRULE *source, DX_TZRULE *copy) noexcept
{
    if (source == nullptr || copy == nullptr)
        return DX_TZ_ERR_NULL;
    DX_TZRULE made = *source;
    made.begin = 0;
    made.end = 0;
    U32 status = source->begin != 0 ? DX_ListCopy(&made.begin, source->begin) : 0;
    if (status == 0 && source->end != 0)
        status = DX_ListCopy(&made.end, source->end);
    if (status != 0) {
        if (made.begin != 0)
            DX_ListDestroy(&made.begin);
        if (made.end != 0)
            DX_ListDestroy(&made.end);
        made.begin = made.end = 0;
    }
    *copy = made;
    return status;
}

RQ_API U32 DX_TZRulesCopy(HLIST source, HLIST *copy) noexcept
{
    if (copy == nullptr)
        return DX_TZ_ERR_NULL;
    *copy = 0;
    HLIST made = 0;
    U32 status = 0;
    {
        SetLock from(source);
        if (!from)
            return DX_LIST_ERR_NO_LIST;
        if (status = DX_TZCreateTZRulesEmpty(&made); status != 0)
            return status;
        SetLock to(made);
        for (U32 n = 0; n < from->index.count && status == 0; ++n) {
            const Zone &zone = *from->index.zones[n];
            DX_TZRULE rule;
            status = DX_TZRuleCopy(&zone.rule, &rule);
            if (status == 0) {
                status = addRule(*to.get(), zone.key, rule);
                if (status != 0) {
                    DX_ListDestroy(&rule.begin);
                    DX_ListDestroy(&rule.end);
                }
            }
        }
    }
    if (status != 0) {
        DX_TZRulesDestroy(&made);
        return status;
    }
    *copy = made;
    return 0;
}

RQ_API U32 DX_TZRuleEquals(const DX_TZRULE *ruleA, const DX_TZRULE *ruleB, U32 *equal) noexcept
{
    if (ruleA == nullptr || ruleB == nullptr || equal == nullptr)
        return DX_TZ_ERR_NULL;
    *equal = 0;
    bool same = false;
    if (U32 status = sameEntries(ruleA->begin, ruleB->begin, &same); status != 0 || !same)
        return status;
    if (U32 status = sameEntries(ruleA->end, ruleB->end, &same); status != 0 || !same)
        return status;
    *equal = 1;
    return 0;
}

RQ_API U32 DX_TZEnum(HLIST rules, U32 mode, char *zoneBuffer, U32 zoneSize, char *nameBuffer, U32 nameSize,
                     char *countryBuffer, U32 countrySize, U32 *atEnd) noexcept
{
    if (mode != DX_TZ_ENUM_FIRST && mode != DX_TZ_ENUM_NEXT)
        return DX_TZ_ERR_ENUM_MODE;
    if (atEnd == nullptr)
        return DX_TZ_ERR_NULL;
    HLIST list = 0;
    {
        SetLock set(rules);
        if (!set)
            return DX_LIST_ERR_NO_LIST;
        list = set->list;
    }
    char key[kZoneKeySize] = {};
    DX_TZRULE rule{};
    U32 status = mode == DX_TZ_ENUM_FIRST ? DX_ListGetFirst(list, key, &rule) : DX_ListGetNext(list, key, &rule);
    if (status != 0) {
        std::memset(key, 0, sizeof key);
        rule = DX_TZRULE{};
    }
    key[kZoneKeySize - 1] = '\0';
    rule.name[DX_TZ_NAME_SIZE - 1] = '\0';
    rule.country[DX_TZ_NAME_SIZE - 1] = '\0';
    copyOut(zoneBuffer, zoneSize, key);
    copyOut(nameBuffer, nameSize, rule.name);
    copyOut(countryBuffer, countrySize, rule.country);
    *atEnd = status == DX_LIST_END ? 1 : 0;
    return status == DX_LIST_END ? 0 : status;
}

RQ_API U32 DX_TZFind(HLIST rules, const char *zoneName, char *nameBuffer, U32 nameSize, char *countryBuffer,
                     U32 countrySize) noexcept
{
    SetLock set(rules);
    const Zone *zone = set ? findZone(*set.get(), zoneName) : nullptr;
    if (zone == nullptr) {
        copyOut(nameBuffer, nameSize, "");
        copyOut(countryBuffer, countrySize, "");
        return DX_TZ_ERR_NOT_FOUND;
    }
    char text[DX_TZ_NAME_SIZE];
    std::memcpy(text, zone->rule.name, sizeof text);
    text[DX_TZ_NAME_SIZE - 1] = '\0';
    copyOut(nameBuffer, nameSize, text);
    std::memcpy(text, zone->rule.country, sizeof text);
    text[DX_TZ_NAME_SIZE - 1] = '\0';
    copyOut(countryBuffer, countrySize, text);
    return 0;
}

}  // extern "C"
