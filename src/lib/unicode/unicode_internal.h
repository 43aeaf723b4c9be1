// Internal to librqcore: the converter record, the registry and the pieces
// that the converter types share (state layouts and byte-level steps).
#ifndef RQ_UNICODE_INTERNAL_H
#define RQ_UNICODE_INTERNAL_H

#include "rqcore/unicode.h"

struct UNICODE_CONVERTER {
    int type;
    void *state;
    // Copies of the type's operations, taken when the converter is made, so
    // that re-registering a slot leaves existing converters alone.
    UNICODE_CREATE_PROC create;
    UNICODE_ADDMAPPING_PROC addMapping;
    UNICODE_TOUNICODE_PROC toUnicode;
    UNICODE_FROMUNICODE_PROC fromUnicode;
    UNICODE_DESTROY_PROC destroy;
};

namespace rq::unicode {

// The family's message for a missing converter.
constexpr const char kNoConverterMessage[] = "No unicode converter specified";

// The substitute byte written for a character without a mapping.
constexpr unsigned char kSub = 26;
constexpr UNICODE_CHAR kReplacement = 0xFFFD;

// 8-bit table state.  A missing from-Unicode page is represented by a shared
// read-only page of SUB bytes, so a lookup never tests for null; `owned`
// says which pages belong to the state.
struct EightBitState {
    UNICODE_CHAR *toUnicode;           // 256 entries
    const unsigned char *pages[256];   // each 256 native bytes
    bool owned[256];
    // How many of the characters U+0001-U+007F (and U+0080-U+00FF) do not
    // map to the byte of the same value, in each direction; at 0 the fast
    // paths copy such runs a group at a time.
    U32 toAsciiBreaks;
    U32 fromAsciiBreaks;
    U32 toHighBreaks;
    U32 fromHighBreaks;
};

}  // namespace rq::unicode

#endif
