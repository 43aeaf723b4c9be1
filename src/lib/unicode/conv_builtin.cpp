// The built-in converter (type 3): an 8-bit converter filled from a table
// compiled into the library instead of a map file.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/conv_builtin"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"

#include <array>

namespace {

struct Pair {
    U32 native;
    U32 unicode;
};

constexpr U32 kEndOfBlock = 0xFFFFFFFFu;
constexpr size_t kBlockPairs = 512;

// Block 0, the only built-in set: bytes 0-255 are U+0000-U+00FF
// (ISO-8859-1), then the end mark.
constexpr std::array<Pair, kBlockPairs> makeLatin1Block()
{
    std::array<Pair, kBlockPairs> block{};
    for (U32 n = 0; n < 256; ++n)
        block[n] = Pair{n, n};
    block[256] = Pair{kEndOfBlock, 0};
    return block;
}

constexpr std::array<Pair, kBlockPairs> kBlock0 = makeLatin1Block();

}  // namespace

extern "C" {

RQ_API void *UNICODE_NewConverter_builtin(int type, uintptr_t createParameter) noexcept
{
    // The parameter points at the set's index; no parameter means set 0.
    const U32 *index = reinterpret_cast<const U32 *>(createParameter);
    if (index != nullptr && *index != 0) {
        UNICODE_LogError("UNICODE_NewConverter_builtin", UNICODE_ERR_OUT_OF_BOUNDS,
                         "Unknown static character set converter");
        return nullptr;
    }
    void *state = UNICODE_NewConverter_8bit(type, 0);
    if (state == nullptr)
        return nullptr;
    for (const Pair &pair : kBlock0) {
        if (pair.native == kEndOfBlock)
            break;
        if (UNICODE_AddMapping_8bit(state, &pair.native, &pair.unicode) != 0) {
            UNICODE_LogError("UNICODE_NewConverter_builtin", UNICODE_ERR_OUT_OF_BOUNDS,
                             "Character set converter is incomplete");
            UNICODE_DestroyConverter_8bit(state);
            return nullptr;
        }
    }
    return state;
}

}  // extern "C"
