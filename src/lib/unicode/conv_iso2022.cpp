// The ISO-2022 converters: ISO-2022-JP (type 7: ASCII, JIS X 0201 Roman and
// JIS X 0208 designated into G0 by escape sequences) and ISO-2022-CN
// (type 8: ASCII, with GB 2312 or CNS 11643 plane 1 designated into G1 and
// reached by SO/SI, and CNS 11643 plane 2 designated into G2 and reached one
// character at a time by SS2).  The two-byte sets come from the 7-bit maps
// in the map directory given as the create parameter.
//
// The shift state lives in the converter between calls only while a
// conversion is unfinished: a call that stops because the destination is
// full keeps it for the call that continues from its sourceEnd; any other
// outcome, or a call from anywhere else, starts in the initial state.  The encoder never writes an escape sequence, shift or designation
// unless the character it announces fits after it.
#define RQ_SOURCE_TAG "src/lib/core/lib/unicode/conv_iso2022"
#include "internal/rq_mem.h"
#include "lib/unicode/unicode_internal.h"

#include <cstring>

namespace {

constexpr unsigned char kEsc = 0x1B;
constexpr unsigned char kSO = 0x0E;
constexpr unsigned char kSI = 0x0F;
constexpr size_t kCells = 94 * 94;

// Character sets, as stored in a shift state and in the from-Unicode table.
enum Set : unsigned char {
    kNone = 0,
    kAscii,
    kRoman,  // JIS X 0201 Roman
    kJis0208,
    kGb2312,
    kCns1,
    kCns2,
};

enum Variant : int { kJapanese, kChinese };

struct Mode {
    unsigned char g0;       // ISO-2022-JP: the set in use
    unsigned char g1;       // ISO-2022-CN: the set SO reaches (kNone until designated)
    unsigned char g2;       // ISO-2022-CN: the set SS2 reaches
    unsigned char shifted;  // ISO-2022-CN: after SO, before SI
};

constexpr Mode kInitial{kAscii, kNone, kNone, 0};

struct Iso2022State {
    int variant;
    // The two-byte sets, 94x94 cells each, U+FFFD where a cell is unmapped:
    // [0] JIS X 0208 or GB 2312, [1] CNS 11643 plane 1, [2] plane 2.
    UNICODE_CHAR *toUnicode[3];
    unsigned char toSet[3];
    // From Unicode: the set of each character (kNone when unmapped) and its
    // cell as (row << 8 | column), both 7-bit.
    unsigned char *fromSet;
    U16 *fromCode;
    Mode decode;
    Mode encode;
    // Where a conversion stopped by a full destination continues: a call
    // from anywhere else starts a new text in the initial state, so an
    // abandoned conversion does not colour the next one.
    const void *decodeResume;
    const void *encodeResume;
};

// The map being loaded, handed to the map reader as the state of a private
// converter whose add-mapping fills one set.
struct Loading {
    Iso2022State *state;
    int table;
};

bool inRange(U32 b) noexcept
{
    return b >= 0x21 && b <= 0x7E;
}

U32 addCell(void *opaque, const U32 *native, const U32 *unicode) noexcept
{
    auto *loading = static_cast<Loading *>(opaque);
    Iso2022State *state = loading->state;
    if (native[0] == 0 || native[1] == 0 || native[2] != 0 || !inRange(native[0]) || !inRange(native[1]))
        return UNICODE_ERR_BYTE_RANGE;
    // A line for a sequence of characters or one above the BMP has no place
    // in a 16-bit table: skipped.
    if (unicode[0] == 0 || unicode[0] > 0xFFFF || unicode[1] != 0)
        return 0;
    const auto u = static_cast<UNICODE_CHAR>(unicode[0]);
    state->toUnicode[loading->table][(native[0] - 0x21) * 94 + (native[1] - 0x21)] = u;
    // ASCII is always written as itself; otherwise the first set loaded
    // that has the character wins, and within a set its first cell.
    if (u >= 0x80 && state->fromSet[u] == kNone) {
        state->fromSet[u] = state->toSet[loading->table];
        state->fromCode[u] = static_cast<U16>(native[0] << 8 | native[1]);
    }
    return 0;
}

U32 loadSet(Iso2022State *state, const char *directory, const char *file, int table, unsigned char set) noexcept
{
    size_t length = std::strlen(directory) + 1 + std::strlen(file) + 1;
    rq::Block<char> path(static_cast<char *>(RQ_MALLOC(length)));
    if (!path)
        return UNICODE_ERR_MEMORY;
    SIS_CrtSNPrintf(path.get(), length, "%s/%s", directory, file);
    auto *cells = static_cast<UNICODE_CHAR *>(RQ_MALLOC(kCells * sizeof(UNICODE_CHAR)));
    if (cells == nullptr)
        return UNICODE_ERR_MEMORY;
    for (size_t i = 0; i < kCells; ++i)
        cells[i] = rq::unicode::kReplacement;
    state->toUnicode[table] = cells;
    state->toSet[table] = set;
    Loading loading{state, table};
    UNICODE_CONVERTER reader{};
    reader.type = state->variant == kJapanese ? UNICODE_TYPE_ISO2022JP : UNICODE_TYPE_ISO2022CN;
    reader.state = &loading;
    reader.addMapping = addCell;
    return UNICODE_LoadConverter(&reader, path.get());
}

void destroyState(Iso2022State *state) noexcept
{
    for (UNICODE_CHAR *cells : state->toUnicode)
        RQ_FREE(cells);
    RQ_FREE(state->fromSet);
    RQ_FREE(state->fromCode);
    RQ_FREE(state);
}

void *create(int variant, uintptr_t createParameter, const char *name) noexcept
{
    const auto *directory = reinterpret_cast<const char *>(createParameter);
    if (directory == nullptr)
        return nullptr;
    auto *state = static_cast<Iso2022State *>(RQ_CALLOC(1, sizeof(Iso2022State)));
    if (state == nullptr) {
        UNICODE_LogError(name, UNICODE_ERR_MEMORY, "Memory allocation error");
        return nullptr;
    }
    state->variant = variant;
    state->decode = kInitial;
    state->encode = kInitial;
    state->fromSet = static_cast<unsigned char *>(RQ_CALLOC(0x10000, 1));
    state->fromCode = static_cast<U16 *>(RQ_CALLOC(0x10000, sizeof(U16)));
    U32 rc = state->fromSet != nullptr && state->fromCode != nullptr ? 0u : static_cast<U32>(UNICODE_ERR_MEMORY);
    if (rc == 0 && variant == kJapanese) {
        rc = loadSet(state, directory, "JISC62261983.MAP", 0, kJis0208);
    } else if (rc == 0) {
        // GB 2312 first: a character in both GB 2312 and CNS 11643 is
        // written the way most mainland readers expect.
        rc = loadSet(state, directory, "GB231280.MAP", 0, kGb2312);
        if (rc == 0)
            rc = loadSet(state, directory, "CNS11643P1.MAP", 1, kCns1);
        if (rc == 0)
            rc = loadSet(state, directory, "CNS11643P2.MAP", 2, kCns2);
    }
    if (rc != 0) {
        if (rc == UNICODE_ERR_MEMORY)
            UNICODE_LogError(name, UNICODE_ERR_MEMORY, "Memory allocation error");
        destroyState(state);
        return nullptr;
    }
    return state;
}

int tableOf(unsigned char set) noexcept
{
    return set == kCns1 ? 1 : set == kCns2 ? 2 : 0;
}

// One cell of a two-byte set; U+FFFD for a cell without a character.
UNICODE_CHAR cellOf(const Iso2022State *state, unsigned char set, unsigned char a, unsigned char b) noexcept
{
    return state->toUnicode[tableOf(set)][(a - 0x21) * 94 + (b - 0x21)];
}

// Decodes the plain run at p, the common case, without the checks for
// escapes, shifts and line ends: two-byte characters in a two-byte mode,
// else printable ASCII.  Stops at anything else or when room is used up.
const unsigned char *decodeRun(const Iso2022State *state, const Mode &m, const unsigned char *p, UNICODE_CHAR *out,
                               size_t room, size_t *n) noexcept
{
    const bool japanese = state->variant == kJapanese;
    size_t i = *n;
    if (japanese ? m.g0 == kJis0208 : m.shifted != 0) {
        const UNICODE_CHAR *cells = state->toUnicode[tableOf(japanese ? m.g0 : m.g1)];
        while (i < room) {
            // The second byte is read only after the first is known not to
            // be the terminator.
            const unsigned a = p[0] - 0x21u;
            if (a >= 94)
                break;
            const unsigned b = p[1] - 0x21u;
            if (b >= 94)
                break;
            out[i++] = cells[a * 94 + b];
            p += 2;
        }
    } else if (m.g0 == kAscii) {
        while (i < room && p[0] - 0x20u < 0x60u)
            out[i++] = *p++;
    }
    *n = i;
    return p;
}

enum class Step { kOk, kIncomplete, kInvalid };

// An escape sequence at p: the mode it leaves and its length, or
// kIncomplete when the text ends inside it.  SS2 (ESC N) is not handled here.
Step readEscape(int variant, const unsigned char *p, Mode *mode, size_t *length) noexcept
{
    for (size_t i = 1; i < 3; ++i)
        if (p[i] == 0)
            return Step::kIncomplete;
    if (variant == kJapanese) {
        *length = 3;
        if (p[1] == '(' && p[2] == 'B')
            mode->g0 = kAscii;
        else if (p[1] == '(' && p[2] == 'J')
            mode->g0 = kRoman;
        else if (p[1] == '$' && (p[2] == 'B' || p[2] == '@'))  // JIS C 6226-1978 is read as JIS X 0208
            mode->g0 = kJis0208;
        else
            return Step::kInvalid;
        return Step::kOk;
    }
    if (p[1] != '$' || (p[2] != ')' && p[2] != '*'))
        return Step::kInvalid;
    if (p[3] == 0)
        return Step::kIncomplete;
    *length = 4;
    if (p[2] == ')' && p[3] == 'A')
        mode->g1 = kGb2312;
    else if (p[2] == ')' && p[3] == 'G')
        mode->g1 = kCns1;
    else if (p[2] == '*' && p[3] == 'H')
        mode->g2 = kCns2;
    else
        return Step::kInvalid;
    return Step::kOk;
}

// Decodes from s into out (room characters, or measures when out is null).
U32 decode(const Iso2022State *state, Mode *mode, const unsigned char *s, UNICODE_CHAR *out, size_t room,
           const char **sourceEnd, size_t *produced) noexcept
{
    const bool japanese = state->variant == kJapanese;
    Mode m = *mode;
    size_t n = 0;
    U32 rc = 0;
    const unsigned char *p = s;
    for (;;) {
        if (out != nullptr)
            p = decodeRun(state, m, p, out, room, &n);
        const unsigned char c = *p;
        if (c == 0)
            break;
        UNICODE_CHAR u;
        size_t length = 1;
        if (c == kEsc && !japanese && p[1] == 'N') {
            // SS2: one character of G2.
            if (p[2] == 0 || p[3] == 0)
                break;  // incomplete at the end: left unconverted
            if (m.g2 == kNone || !inRange(p[2]) || !inRange(p[3])) {
                rc = UNICODE_ERR_INVALID_INPUT;
                break;
            }
            u = cellOf(state, m.g2, p[2], p[3]);
            length = 4;
        } else if (c == kEsc) {
            Mode next = m;
            Step step = readEscape(state->variant, p, &next, &length);
            if (step == Step::kIncomplete)
                break;
            if (step == Step::kInvalid) {
                rc = UNICODE_ERR_INVALID_INPUT;
                break;
            }
            m = next;
            p += length;
            continue;
        } else if (c >= 0x80) {
            rc = UNICODE_ERR_INVALID_INPUT;
            break;
        } else if (c == kSO || c == kSI) {
            if (japanese || (c == kSO && m.g1 == kNone)) {
                rc = UNICODE_ERR_INVALID_INPUT;
                break;
            }
            m.shifted = c == kSO;
            ++p;
            continue;
        } else if (inRange(c) && (japanese ? m.g0 == kJis0208 : m.shifted != 0)) {
            if (p[1] == 0)
                break;
            if (!inRange(p[1])) {
                rc = UNICODE_ERR_INVALID_INPUT;
                break;
            }
            u = cellOf(state, japanese ? m.g0 : m.g1, c, p[1]);
            length = 2;
        } else {
            // ASCII, and the controls and blank in a two-byte mode.
            u = c;
            if (m.g0 == kRoman && c == 0x5C)
                u = 0x00A5;
            else if (m.g0 == kRoman && c == 0x7E)
                u = 0x203E;
            // A line end forgets the shift and designations of ISO-2022-CN.
            if (!japanese && c == '\n')
                m = kInitial;
        }
        if (out != nullptr) {
            if (n == room) {
                rc = UNICODE_DESTINATION_FULL;
                break;
            }
            out[n] = u;
        }
        ++n;
        p += length;
    }
    *sourceEnd = reinterpret_cast<const char *>(p);
    *produced = n;
    *mode = rc == UNICODE_DESTINATION_FULL ? m : kInitial;
    return rc;
}

// The bytes of one character: the set it needs and up to two bytes.
struct Target {
    unsigned char set;
    unsigned char bytes[2];
    unsigned char count;
};

Target targetOf(const Iso2022State *state, UNICODE_CHAR c) noexcept
{
    // ESC, SO and SI in the text would change the shift state of whoever
    // reads it: written as SUB like any character without a mapping.
    if (c < 0x80 && c != kEsc && c != kSO && c != kSI)
        return Target{kAscii, {static_cast<unsigned char>(c), 0}, 1};
    if (state->variant == kJapanese && c == 0x00A5)
        return Target{kRoman, {0x5C, 0}, 1};
    if (state->variant == kJapanese && c == 0x203E)
        return Target{kRoman, {0x7E, 0}, 1};
    const unsigned char set = state->fromSet[c];
    if (set == kNone)
        return Target{kAscii, {rq::unicode::kSub, 0}, 1};
    const U16 code = state->fromCode[c];
    return Target{set, {static_cast<unsigned char>(code >> 8), static_cast<unsigned char>(code & 0xFF)}, 2};
}

// The escape that designates a set: 3 bytes for ISO-2022-JP, 4 for -CN.
const char *designation(unsigned char set) noexcept
{
    switch (set) {
    case kAscii:
        return "\x1B(B";
    case kRoman:
        return "\x1B(J";
    case kJis0208:
        return "\x1B$B";
    case kGb2312:
        return "\x1B$)A";
    case kCns1:
        return "\x1B$)G";
    default:
        return "\x1B$*H";
    }
}

// Writes the bytes of c, with whatever announces them, when all fit in room.
bool encodeOne(const Iso2022State *state, Mode *m, UNICODE_CHAR c, unsigned char *d, size_t *written,
               size_t room) noexcept
{
    const Target t = targetOf(state, c);
    unsigned char buffer[12];
    size_t n = 0;
    auto put = [&](const char *bytes) {
        for (; *bytes != 0; ++bytes)
            buffer[n++] = static_cast<unsigned char>(*bytes);
    };
    Mode next = *m;
    if (state->variant == kJapanese) {
        if (t.set != m->g0)
            put(designation(t.set));
        next.g0 = t.set;
    } else if (t.set == kAscii) {
        if (m->shifted)
            buffer[n++] = kSI;
        next.shifted = 0;
        if (c == '\n') {
            next.g1 = kNone;
            next.g2 = kNone;
        }
    } else if (t.set == kCns2) {
        if (m->g2 != kCns2)
            put(designation(kCns2));
        next.g2 = kCns2;
        buffer[n++] = kEsc;
        buffer[n++] = 'N';
    } else {
        // A new designation is followed by SO even when already shifted
        // out: some readers (glibc's among them) apply a designation to G1
        // only at the next SO.
        if (m->g1 != t.set)
            put(designation(t.set));
        if (!m->shifted || m->g1 != t.set)
            buffer[n++] = kSO;
        next.g1 = t.set;
        next.shifted = 1;
    }
    buffer[n++] = t.bytes[0];
    if (t.count == 2)
        buffer[n++] = t.bytes[1];
    if (room - *written < n)
        return false;
    std::memcpy(d + *written, buffer, n);
    *written += n;
    *m = next;
    return true;
}

}  // namespace

extern "C" {

RQ_API void *UNICODE_NewConverter_iso2022jp(int type, uintptr_t createParameter) noexcept
{
    if (type != UNICODE_TYPE_ISO2022JP)
        return nullptr;
    return create(kJapanese, createParameter, "UNICODE_NewConverter_iso2022jp");
}

RQ_API void *UNICODE_NewConverter_iso2022cn(int type, uintptr_t createParameter) noexcept
{
    if (type != UNICODE_TYPE_ISO2022CN)
        return nullptr;
    return create(kChinese, createParameter, "UNICODE_NewConverter_iso2022cn");
}

RQ_API U32 UNICODE_AddMapping_iso2022(void *state, const U32 *native, const U32 *unicode) noexcept
{
    (void)state;
    (void)native;
    (void)unicode;
    return 0;
}

RQ_API U32 UNICODE_ConvertToUnicode_iso2022(void *opaque, const char *source, UNICODE_CHAR *destination, U32 *size,
                                            const char **sourceEnd, U32 flags) noexcept
{
    (void)flags;
    auto *state = static_cast<Iso2022State *>(opaque);
    if (state == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (source == nullptr || sourceEnd == nullptr || (destination != nullptr && size == nullptr))
        return UNICODE_ERR_NULL;
    const auto *s = reinterpret_cast<const unsigned char *>(source);
    size_t produced = 0;
    if (destination == nullptr) {
        // Measuring leaves the shift state of an unfinished conversion alone.
        Mode scratch = source == state->decodeResume ? state->decode : kInitial;
        return decode(state, &scratch, s, nullptr, 0, sourceEnd, &produced);
    }
    // One character is kept for the terminator.
    const size_t room = *size >= 2 ? *size / 2 - 1 : 0;
    if (source != state->decodeResume)
        state->decode = kInitial;
    U32 rc = decode(state, &state->decode, s, destination, room, sourceEnd, &produced);
    state->decodeResume = rc == UNICODE_DESTINATION_FULL ? *sourceEnd : nullptr;
    if (*size >= 2)
        destination[produced] = 0;
    *size = static_cast<U32>(produced * 2);
    return rc;
}

RQ_API U32 UNICODE_ConvertFromUnicode_iso2022(void *opaque, const UNICODE_CHAR *source, char *destination,
                                              U32 *size, const UNICODE_CHAR **sourceEnd, U32 flags) noexcept
{
    (void)flags;
    auto *state = static_cast<Iso2022State *>(opaque);
    if (state == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    if (source == nullptr || destination == nullptr || size == nullptr || sourceEnd == nullptr)
        return UNICODE_ERR_NULL;
    // One byte is kept for the NUL.
    const size_t room = *size >= 1 ? *size - 1 : 0;
    auto *d = reinterpret_cast<unsigned char *>(destination);
    size_t written = 0;
    Mode m = source == state->encodeResume ? state->encode : kInitial;
    U32 rc = 0;
    const UNICODE_CHAR *s = source;
    for (; *s != 0; ++s) {
        if (!encodeOne(state, &m, *s, d, &written, room)) {
            rc = UNICODE_DESTINATION_FULL;
            break;
        }
    }
    if (rc == 0) {
        // The text ends in its initial state: ASCII, shifted in.
        const char *back = nullptr;
        if (state->variant == kJapanese && m.g0 != kAscii)
            back = designation(kAscii);
        else if (state->variant == kChinese && m.shifted)
            back = "\x0F";
        const size_t n = back != nullptr ? std::strlen(back) : 0;
        if (room - written < n) {
            rc = UNICODE_DESTINATION_FULL;
        } else {
            if (n != 0)
                std::memcpy(d + written, back, n);
            written += n;
            m = kInitial;
        }
    }
    if (*size >= 1)
        d[written] = 0;
    *size = static_cast<U32>(written);
    *sourceEnd = s;
    state->encode = rc == UNICODE_DESTINATION_FULL ? m : kInitial;
    state->encodeResume = rc == UNICODE_DESTINATION_FULL ? s : nullptr;
    return rc;
}

RQ_API U32 UNICODE_DestroyConverter_iso2022(void *opaque) noexcept
{
    auto *state = static_cast<Iso2022State *>(opaque);
    if (state == nullptr)
        return UNICODE_ERR_NO_CONVERTER;
    destroyState(state);
    return 0;
}

}  // extern "C"
