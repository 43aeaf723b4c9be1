// The multibyte table converter (type 2): native characters of one to eight
// bytes.  Native sequences decode through a trie of 256-way nodes; Unicode
// characters encode through rows of fixed-width entries, one row per high
// byte, as wide as the longest native sequence mapped into the row.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/conv_mbcs"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"

#include <cstdio>

namespace {

constexpr int kMaxBytes = 8;

struct Node {
    // The character that ends at this node with the given next byte, or
    // U+FFFD when none does.
    UNICODE_CHAR values[256];
    // 256 child pointers, null until a longer sequence passes through.
    Node **children;
};

struct MbcsState {
    unsigned char *rows[256];  // 256 entries of widths[row] bytes each
    unsigned char widths[256];
    Node *root;
};

Node *newNode() noexcept
{
    auto *node = static_cast<Node *>(RQ_MALLOC(sizeof(Node)));
    if (node == nullptr)
        return nullptr;
    for (UNICODE_CHAR &v : node->values)
        v = rq::unicode::kReplacement;
    node->children = nullptr;
    return node;
}

inline Node *childOf(const Node *node, unsigned char b) noexcept
{
    return node->children != nullptr ? node->children[b] : nullptr;
}

U32 logMemory() noexcept
{
    UNICODE_LogError("UNICODE_AddMapping_mbcs", UNICODE_ERR_MEMORY, "Memory allocation error");
    return UNICODE_ERR_MEMORY;
}

// Makes row `high` at least `width` bytes wide, keeping its entries.
U32 ensureRow(MbcsState *state, unsigned high, unsigned width) noexcept
{
    unsigned old = state->widths[high];
    if (state->rows[high] != nullptr && old >= width)
        return 0;
    auto *row = static_cast<unsigned char *>(RQ_CALLOC(256, width));
    if (row == nullptr)
        return logMemory();
    for (unsigned i = 0; i < 256; ++i) {
        if (state->rows[high] != nullptr)
            std::memcpy(row + i * width, state->rows[high] + i * old, old);
        else
            row[i * width] = rq::unicode::kSub;  // never mapped: SUB then zeros
    }
    if (state->rows[high] != nullptr)
        RQ_FREE(state->rows[high]);
    state->rows[high] = row;
    state->widths[high] = static_cast<unsigned char>(width);
    return 0;
}

}  // namespace

// Walks the trie over the source.  kMeasure: count only.  Stops at the NUL,
// or with UNICODE_DESTINATION_FULL when `room` characters are out; an
// unfinished sequence is left for the next call.
template <bool kMeasure>
U32 decode(const Node *root, const unsigned char *s, UNICODE_CHAR *destination, size_t room, const char **sourceEnd,
           size_t *count) noexcept
{
    const unsigned char *resume = s;
    unsigned char pending[kMaxBytes];
    unsigned npending = 0;
    size_t out = 0;
    const Node *node = root;
    static Node *const kNoChildren[256] = {};
    Node *const *const rootChildren = root->children != nullptr ? root->children : kNoChildren;
    U32 rc = 0;
    for (;;) {
        if (npending == 0) {
            // At the root: single bytes and two-byte sequences that end in a
            // leaf, one step each (the same result as the general walk
            // below).  No byte value 0 is ever mapped inside a sequence, so
            // a NUL second byte finds U+FFFD and leaves this loop.
            while (out < room) {
                const unsigned char b = *s;
                const Node *child = rootChildren[b];
                if (child == nullptr) {
                    if (b == 0)
                        break;
                    if (!kMeasure)
                        destination[out] = root->values[b];
                    ++out;
                    ++s;
                    continue;
                }
                if (child->children != nullptr)
                    break;
                const UNICODE_CHAR v = child->values[s[1]];
                if (v == rq::unicode::kReplacement)
                    break;
                if (!kMeasure)
                    destination[out] = v;
                ++out;
                s += 2;
            }
            resume = s;
        }
        const unsigned char b = *s;
        if (b == 0)
            break;
        if (out >= room) {
            rc = UNICODE_DESTINATION_FULL;
            break;
        }
        ++s;
        if (const Node *child = childOf(node, b); child != nullptr && npending < kMaxBytes) {
            pending[npending++] = b;
            node = child;
            continue;
        }
        const UNICODE_CHAR v = node->values[b];
        node = root;
        if (v != rq::unicode::kReplacement || npending == 0) {
            if (!kMeasure)
                destination[out] = v;
            ++out;
            resume = s;
            npending = 0;
            continue;
        }
        // A sequence broken off: each pending byte is taken alone.
        if (out + npending > room) {
            rc = UNICODE_DESTINATION_FULL;
            --s;
            break;
        }
        for (unsigned i = 0; i < npending; ++i) {
            if (!kMeasure)
                destination[out] = root->values[pending[i]];
            ++out;
        }
        npending = 0;
        // The byte that broke the sequence is dropped: callers have always
        // seen an invalid trail byte disappear.
        resume = s;
    }
    *sourceEnd = reinterpret_cast<const char *>(npending != 0 || rc != 0 ? resume : s);
    *count = out;
    return rc;
}

// Frees a node depth first: its children, their table, then the node.
// Returns the last non-zero status of a child, 1 for a null node.
static U32 __nuke_mbcs_node(Node *node) noexcept
{
    if (node == nullptr)
        return 1;
    U32 rc = 0;
    if (node->children != nullptr) {
        for (int i = 0; i < 256; ++i) {
            if (node->children[i] == nullptr)
                continue;
            U32 child = __nuke_mbcs_node(node->children[i]);
            if (child != 0)
                rc = child;
        }
        RQ_FREE(node->children);
    }
    RQ_FREE(node);
    return rc;
}

extern "C" {

RQ_API U32 MBCSCharToUnicode(const void *opaque, const char **cursor, UNICODE_CHAR *out) noexcept
{
    const auto *state = static_cast<const MbcsState *>(opaque);
    if (state == nullptr || state->root == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (cursor == nullptr || *cursor == nullptr || out == nullptr)
        return UNICODE_ERR_NULL;
    const auto *p = reinterpret_cast<const unsigned char *>(*cursor);
    const Node *node = state->root;
    for (int depth = 0; depth < kMaxBytes; ++depth) {
        unsigned char b = *p;
        if (b == 0)
            break;  // incomplete at the end of the text
        ++p;
        if (const Node *child = childOf(node, b)) {
            node = child;
            continue;
        }
        *cursor = reinterpret_cast<const char *>(p);
        *out = node->values[b];
        return node->values[b] == rq::unicode::kReplacement ? U32{UNICODE_ERR_INVALID_INPUT} : 0;
    }
    *cursor = reinterpret_cast<const char *>(p);
    return UNICODE_ERR_INVALID_INPUT;
}

RQ_API U32 UnicodeToMBCS(const void *opaque, UNICODE_CHAR c, char **cursor, char *limit) noexcept
{
    const auto *state = static_cast<const MbcsState *>(opaque);
    if (state == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (cursor == nullptr || *cursor == nullptr)
        return UNICODE_ERR_NULL;
    unsigned char bytes[kMaxBytes] = {rq::unicode::kSub};
    unsigned n = 1;
    if (const unsigned char *row = state->rows[c >> 8]) {
        unsigned width = state->widths[c >> 8];
        const unsigned char *entry = row + (c & 0xFF) * width;
        bytes[0] = entry[0];
        for (n = 1; n < width && entry[n] != 0; ++n)
            bytes[n] = entry[n];
    }
    if (limit - *cursor < static_cast<ptrdiff_t>(n)) {
        UNICODE_LogError("UnicodeToMBCS", UNICODE_ERR_OUT_OF_BOUNDS, "Destination buffer too small.");
        return UNICODE_ERR_OUT_OF_BOUNDS;
    }
    std::memcpy(*cursor, bytes, n);
    *cursor += n;
    return 0;
}

RQ_API void *UNICODE_NewConverter_mbcs(int type, uintptr_t createParameter) noexcept
{
    (void)type;
    (void)createParameter;
    rq::Block<MbcsState> state(RQ_CALLOC(1, sizeof(MbcsState)));
    Node *root = state ? newNode() : nullptr;
    if (root == nullptr) {
        UNICODE_LogError("UNICODE_NewConverter_mbcs", UNICODE_ERR_MEMORY, "Memory allocation error");
        return nullptr;
    }
    state[0].root = root;
    return state.release();
}

RQ_API U32 UNICODE_AddMapping_mbcs(void *opaque, const U32 *native, const U32 *unicode) noexcept
{
    auto *state = static_cast<MbcsState *>(opaque);
    if (state == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (state->root == nullptr)
        return UNICODE_ERR_NO_TRIE;
    if (native == nullptr || unicode == nullptr)
        return UNICODE_ERR_NULL;
    if ((native[0] == 0) != (unicode[0] == 0))
        return UNICODE_ERR_EMPTY_SIDE;
    // The whole sequence is checked before anything is built, so a refused
    // mapping leaves the trie as it was.
    unsigned count = 0;
    for (; native[count] != 0; ++count) {
        if (native[count] > 0xFF)
            return UNICODE_ERR_BYTE_RANGE;
        if (count == kMaxBytes)
            return UNICODE_ERR_SEQUENCE_LENGTH;
    }
    // Characters beyond U+FFFF have no 16-bit form: such a line is skipped.
    if (unicode[0] > 0xFFFF)
        return 0;
    const UNICODE_CHAR u = static_cast<UNICODE_CHAR>(unicode[0]);

    Node *node = state->root;
    for (unsigned i = 0; i + 1 < count; ++i) {
        if (node->children == nullptr) {
            node->children = static_cast<Node **>(RQ_CALLOC(256, sizeof(Node *)));
            if (node->children == nullptr)
                return logMemory();
        }
        Node *&child = node->children[native[i]];
        if (child == nullptr) {
            child = newNode();
            if (child == nullptr)
                return logMemory();
        }
        node = child;
    }
    if (count != 0)
        node->values[native[count - 1]] = u;

    const unsigned n = count != 0 ? count : 1;
    const unsigned high = u >> 8;
    if (U32 rc = ensureRow(state, high, n); rc != 0)
        return rc;
    const unsigned width = state->widths[high];
    unsigned char *entry = state->rows[high] + (u & 0xFF) * width;
    for (unsigned i = 0; i < n; ++i)
        entry[i] = static_cast<unsigned char>(native[i]);
    if (n < width)
        entry[n] = 0;
    return 0;
}

RQ_API U32 UNICODE_DestroyConverter_mbcs(void *opaque) noexcept
{
    auto *state = static_cast<MbcsState *>(opaque);
    if (state == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    for (unsigned char *row : state->rows)
        if (row != nullptr)
            RQ_FREE(row);
    if (state->root != nullptr)
        __nuke_mbcs_node(state->root);
    RQ_FREE(state);
    return 0;
}

RQ_API U32 UNICODE_ConvertToUnicode_mbcs(void *opaque, const char *source, UNICODE_CHAR *destination, U32 *size,
                                         const char **sourceEnd, U32 flags) noexcept
{
    (void)flags;
    const auto *state = static_cast<const MbcsState *>(opaque);
    if (state == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (source == nullptr || sourceEnd == nullptr || (destination != nullptr && size == nullptr))
        return UNICODE_ERR_NULL;
    if (state->root == nullptr)
        return UNICODE_ERR_NO_TRIE;
    const auto *s = reinterpret_cast<const unsigned char *>(source);
    if (destination == nullptr) {
        size_t ignored = 0;
        return decode<true>(state->root, s, nullptr, SIZE_MAX, sourceEnd, &ignored);
    }
    // One character is kept for the terminator.
    const size_t room = *size >= 2 ? *size / 2 - 1 : 0;
    size_t out = 0;
    U32 rc = decode<false>(state->root, s, destination, room, sourceEnd, &out);
    if (*size >= 2)
        destination[out] = 0;
    *size = static_cast<U32>(out * 2);
    return rc;
}

RQ_API U32 UNICODE_ConvertFromUnicode_mbcs(void *opaque, const UNICODE_CHAR *source, char *destination, U32 *size,
                                           const UNICODE_CHAR **sourceEnd, U32 flags) noexcept
{
    (void)flags;
    const auto *state = static_cast<const MbcsState *>(opaque);
    if (state == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (source == nullptr || destination == nullptr || size == nullptr || sourceEnd == nullptr)
        return UNICODE_ERR_NULL;
    // One byte is kept for the NUL.
    const size_t room = *size >= 1 ? *size - 1 : 0;
    auto *d = reinterpret_cast<unsigned char *>(destination);
    size_t written = 0;
    const UNICODE_CHAR *s = source;
    U32 rc = 0;
    // While the room holds the longest entry for every character of a
    // stretch, the stretch needs no room checks.
    for (size_t stretch = room / kMaxBytes; stretch != 0; stretch = (room - written) / kMaxBytes) {
        for (; stretch != 0; --stretch, ++s) {
            const UNICODE_CHAR c = *s;
            if (c == 0)
                goto finished;
            const unsigned char *row = state->rows[c >> 8];
            if (row == nullptr) {
                d[written++] = rq::unicode::kSub;
                continue;
            }
            const unsigned width = state->widths[c >> 8];
            const unsigned char *entry = row + (c & 0xFF) * width;
            d[written] = entry[0];
            if (width == 1) {
                ++written;
                continue;
            }
            d[written + 1] = entry[1];
            // Computed, not branched on: one- and two-byte characters mix
            // unpredictably in real text.
            unsigned n = 1 + static_cast<unsigned>(entry[1] != 0);
            if (width > 2) {
                for (n = 1; n < width && entry[n] != 0; ++n)
                    d[written + n] = entry[n];
            }
            written += n;
        }
    }
    for (; *s != 0; ++s) {
        const UNICODE_CHAR c = *s;
        const unsigned char *row = state->rows[c >> 8];
        if (row == nullptr) {
            if (written + 1 > room) {
                rc = UNICODE_DESTINATION_FULL;
                break;
            }
            d[written++] = rq::unicode::kSub;
            continue;
        }
        const unsigned width = state->widths[c >> 8];
        const unsigned char *entry = row + (c & 0xFF) * width;
        if (width <= 2 && written + 2 <= room) {
            // The common narrow rows: write both bytes, keep the length.
            d[written] = entry[0];
            unsigned n = 1;
            if (width == 2) {
                d[written + 1] = entry[1];
                n += entry[1] != 0;
            }
            written += n;
            continue;
        }
        unsigned n = 1;
        while (n < width && entry[n] != 0)
            ++n;
        if (written + n > room) {
            rc = UNICODE_DESTINATION_FULL;
            break;
        }
        for (unsigned i = 0; i < n; ++i)
            d[written + i] = entry[i];
        written += n;
    }
finished:
    if (*size >= 1)
        d[written] = 0;  // room for it was kept
    *size = static_cast<U32>(written);
    *sourceEnd = s;
    return rc;
}

RQ_API void UNICODE_debug_dump_mbcs(void *opaque) noexcept
{
    const auto *state = static_cast<const MbcsState *>(opaque);
    if (state == nullptr) {
        std::printf("mbcs converter: (null)\n");
        return;
    }
    std::printf("mbcs converter %p\nfrom-Unicode rows:\n", opaque);
    for (unsigned high = 0; high < 256; ++high) {
        const unsigned char *row = state->rows[high];
        if (row == nullptr)
            continue;
        unsigned width = state->widths[high];
        std::printf("  row %02X width %u\n", high, width);
        for (unsigned low = 0; low < 256; ++low) {
            const unsigned char *entry = row + low * width;
            if (entry[0] == rq::unicode::kSub && (width == 1 || entry[1] == 0))
                continue;
            std::printf("    U+%02X%02X ->", high, low);
            for (unsigned i = 0; i < width && (i == 0 || entry[i] != 0); ++i)
                std::printf(" %02X", entry[i]);
            std::printf("\n");
        }
    }
    std::printf("to-Unicode trie:\n");
    // Depth-first walk with an explicit path (at most eight bytes deep).
    struct Frame {
        const Node *node;
        unsigned next;
    };
    Frame stack[kMaxBytes + 1];
    unsigned char path[kMaxBytes + 1];
    int top = 0;
    stack[0] = Frame{state->root, 0};
    if (state->root == nullptr)
        return;
    while (top >= 0) {
        Frame &f = stack[top];
        if (f.next == 0) {
            for (unsigned b = 0; b < 256; ++b) {
                if (f.node->values[b] == rq::unicode::kReplacement)
                    continue;
                std::printf("   ");
                for (int i = 0; i < top; ++i)
                    std::printf(" %02X", path[i]);
                std::printf(" %02X -> U+%04X\n", b, f.node->values[b]);
            }
        }
        bool descended = false;
        while (f.next < 256 && !descended) {
            unsigned b = f.next++;
            const Node *child = childOf(f.node, static_cast<unsigned char>(b));
            if (child != nullptr && top < kMaxBytes) {
                path[top] = static_cast<unsigned char>(b);
                stack[++top] = Frame{child, 0};
                descended = true;
            }
        }
        if (!descended)
            --top;
    }
}

}  // extern "C"
