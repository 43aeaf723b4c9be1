// The in-memory hash table of a loaded string table: open addressing with a
// double hash, doubled when nearly full and rebuilt after every delete.
#define RQ_SOURCE_TAG "src/lib/core/lib/gen/ldstr_table"
#include "internal/rq_mem.h"
#include "ldstr_internal.h"

#include <cstdint>

namespace rq::ldstr {

DX_LDSTR_SLOT *findPos(U32 key, DX_LDSTR_SLOT *table, U32 slots) noexcept
{
    if (table == nullptr || slots == 0)
        return nullptr;
    U32 pos = DX_LdStrHashFonction1(key, slots);
    const U32 step = DX_LdStrHashFonction2(key, slots);
    // A file can hand us a table with no free slot: the walk stops after
    // visiting as many positions as there are slots.
    for (U32 i = 0; i < slots; ++i) {
        DX_LDSTR_SLOT *s = &table[pos];
        if (s->key == key || s->key == 0)
            return s;
        pos = static_cast<U32>((static_cast<uint64_t>(pos) + step) % slots);
    }
    return nullptr;
}

bool soundTable(DX_LDSTR_SLOT *table, U32 slots, U32 count) noexcept
{
    if (!sizeFits(slots) || (slots & (slots - 1)) != 0)
        return false;
    U32 used = 0;
    for (U32 i = 0; i < slots; ++i) {
        if (table[i].key == 0)
            continue;
        ++used;
        if (findPos(table[i].key, table, slots) != &table[i])
            return false;
    }
    return used == count && used < slots;
}

}  // namespace rq::ldstr

using rq::ldstr::findPos;

U32 DX_LdStrHTCreate(U32 slots, DX_LDSTR_SLOT **result) noexcept
{
    if (result == nullptr || !rq::ldstr::sizeFits(slots))
        return LDSTR_ERR_HT_MEMORY;
    void *p = RQ_CALLOC(slots, sizeof(DX_LDSTR_SLOT));
    if (p == nullptr)
        return LDSTR_ERR_HT_MEMORY;
    *result = static_cast<DX_LDSTR_SLOT *>(p);
    return 0;
}

U32 DX_LdStrHashFonction1(U32 key, U32 slots) noexcept
{
    return slots == 0 ? 0 : key % slots;
}

U32 DX_LdStrHashFonction2(U32 key, U32 slots) noexcept
{
    if (slots == 0)
        return 0;
    U32 step = static_cast<U32>((static_cast<uint64_t>(key >> 1) + 77777u) % slots);
    // An odd step walks every slot of a power-of-two table.
    if ((step & 1u) == 0)
        ++step;
    return step;
}

U32 DX_LdStrHTFindPos(U32 key, DX_LDSTR_SLOT *table, DX_LDSTR_SLOT **position, U32 slots) noexcept
{
    DX_LDSTR_SLOT *s = findPos(key, table, slots);
    if (position != nullptr)
        *position = s;
    return s == nullptr ? static_cast<U32>(LDSTR_ERR_HT_ABSENT) : 0u;
}

U32 DX_LdStrHTFind(U32 key, DX_LDSTR_SLOT *copy, DX_LDSTR_SLOT *table, U32 slots) noexcept
{
    // Free slots hold key 0, so it is never found.
    if (key == 0)
        return LDSTR_ERR_HT_ABSENT;
    const DX_LDSTR_SLOT *s = findPos(key, table, slots);
    if (s == nullptr || s->key != key)
        return LDSTR_ERR_HT_ABSENT;
    if (copy != nullptr)
        *copy = *s;
    return 0;
}

U32 DX_LdStrHTAdd(U32 position, U32 key, U32 length, DX_LDSTR_SLOT *table, U32 slots) noexcept
{
    // Free slots hold key 0: it counts as present and is never stored.
    if (key == 0)
        return LDSTR_ERR_HT_PRESENT;
    DX_LDSTR_SLOT *s = findPos(key, table, slots);
    if (s == nullptr)
        return LDSTR_ERR_HT_ABSENT;
    if (s->key == key)
        return LDSTR_ERR_HT_PRESENT;
    *s = DX_LDSTR_SLOT{position, key, length};
    return 0;
}

U32 DX_LdStrHTCopy(DX_LDSTR_SLOT *oldTable, DX_LDSTR_SLOT **newTable, U32 oldSlots, U32 newSlots) noexcept
{
    if (newTable == nullptr)
        return LDSTR_ERR_HT_MEMORY;
    DX_LDSTR_SLOT *fresh = nullptr;
    if (U32 rc = DX_LdStrHTCreate(newSlots, &fresh); rc != 0)
        return rc;
    if (oldTable != nullptr) {
        for (U32 i = 0; i < oldSlots; ++i) {
            const DX_LDSTR_SLOT &s = oldTable[i];
            if (s.key == 0)
                continue;
            if (U32 rc = DX_LdStrHTAdd(s.offset, s.key, s.length, fresh, newSlots); rc != 0) {
                RQ_FREE(fresh);
                return rc;
            }
        }
        RQ_FREE(oldTable);
    }
    *newTable = fresh;
    return 0;
}

U32 DX_LdStrHTDelete(U32 key, DX_LDSTR_SLOT **table, U32 *slots, U32 *count) noexcept
{
    if (table == nullptr || slots == nullptr || count == nullptr || key == 0)
        return LDSTR_ERR_HT_ABSENT;
    DX_LDSTR_SLOT *s = findPos(key, *table, *slots);
    if (s == nullptr || s->key != key)
        return LDSTR_ERR_HT_ABSENT;
    const DX_LDSTR_SLOT saved = *s;
    s->key = 0;
    const U32 n = *count - 1;
    U32 size = *slots;
    // Unsigned on purpose: with no key left, n - 1 wraps and the table keeps
    // its size; callers rely on a table never shrinking to nothing.
    if (n - 1 < static_cast<U32>(static_cast<uint64_t>(size) * 95u / 200u))
        size /= 2;
    // The rebuild also mends probe walks that passed through the freed slot.
    if (U32 rc = DX_LdStrHTCopy(*table, table, *slots, size); rc != 0) {
        *s = saved;
        return rc;
    }
    *slots = size;
    *count = n;
    return 0;
}
