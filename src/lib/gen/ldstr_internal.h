// Internal to the loaded-string-table family: the probe walk and the
// soundness test that every table read from a file must pass.
#ifndef RQ_GEN_LDSTR_INTERNAL_H
#define RQ_GEN_LDSTR_INTERNAL_H

#include "rqcore/ldstr.h"

namespace rq::ldstr {

constexpr U32 kHeaderSize = 12;
constexpr U32 kSlotSize = 12;
constexpr unsigned char kMarker = 0x01;

static_assert(sizeof(DX_LDSTR_SLOT) == kSlotSize, "a slot is three 32-bit words in the file");

// The slot holding key or the first free one on key's walk; nullptr when
// `slots` slots were walked without either (or no table).
DX_LDSTR_SLOT *findPos(U32 key, DX_LDSTR_SLOT *table, U32 slots) noexcept;

// A table read from a file: power-of-two size, every used key reachable at
// its own slot (no repeats, nothing out of place), `count` used slots and at
// least one free.
bool soundTable(DX_LDSTR_SLOT *table, U32 slots, U32 count) noexcept;

// Whether a table of `slots` slots has bytes that fit in 32 bits.
constexpr bool sizeFits(U32 slots) noexcept { return slots != 0 && slots <= 0xFFFFFFFFu / kSlotSize; }

}  // namespace rq::ldstr

#endif
