/*
 * rqcore Unicode converters.
 *
 * Text moves between a character set and 16-bit Unicode (UCS-2) through
 * converters.  Each kind of converter is a converter type: five operations
 * held in a registry of 128 slots indexed by the type code (1 8-bit table,
 * 2 multibyte table, 3 built-in table, 6 UTF-8, 7 ISO-2022-JP,
 * 8 ISO-2022-CN).  UNICODE_Initialize fills the registry; converters are made
 * from it, filled from character-set map files, used by one thread at a time
 * and destroyed.
 *
 * Conversion contract (every type): `size` holds the free bytes of the
 * destination on entry and the bytes written on return; `sourceEnd` receives
 * where conversion stopped; UNICODE_DESTINATION_FULL means "call again from
 * sourceEnd with more room".
 */
#ifndef RQCORE_UNICODE_H
#define RQCORE_UNICODE_H

#include "types.h"

RQ_BEGIN_DECLS

/* A Unicode character; Unicode text is a zero-terminated array of them. */
typedef U16 UNICODE_CHAR;

/* A converter: an instance of a converter type with its own state. */
typedef struct UNICODE_CONVERTER UNICODE_CONVERTER;

/* The five operations of a converter type.  The create parameter may carry a
 * pointer, so it is pointer-sized. */
typedef void *(*UNICODE_CREATE_PROC)(int type, uintptr_t createParameter);
typedef U32 (*UNICODE_ADDMAPPING_PROC)(void *state, const U32 *native, const U32 *unicode);
typedef U32 (*UNICODE_TOUNICODE_PROC)(void *state, const char *source, UNICODE_CHAR *destination, U32 *size,
                                      const char **sourceEnd, U32 flags);
typedef U32 (*UNICODE_FROMUNICODE_PROC)(void *state, const UNICODE_CHAR *source, char *destination, U32 *size,
                                        const UNICODE_CHAR **sourceEnd, U32 flags);
typedef U32 (*UNICODE_DESTROY_PROC)(void *state);

/* Converter type codes registered by UNICODE_Initialize. */
RQ_CODES {
    UNICODE_TYPE_8BIT = 1,
    UNICODE_TYPE_MBCS = 2,
    UNICODE_TYPE_BUILTIN = 3,
    UNICODE_TYPE_UTF8 = 6,
    UNICODE_TYPE_ISO2022JP = 7,
    UNICODE_TYPE_ISO2022CN = 8,
    UNICODE_MAX_TYPES = 128
};

/* Flags of a converter type and of the from-Unicode conversions. */
RQ_CODES {
    /* Type flag: the create parameter defaults to the map directory. */
    UNICODE_TYPEFLAG_MAPDIR_PARAMETER = 0x1,
    /* Conversion flag: an unmapped character is written through its
     * canonical decomposition when every part of it is mapped. */
    UNICODE_FLAG_DECOMPOSE = 0x1
};

/* Status codes of the converter family. */
RQ_CODES {
    UNICODE_ERR_MEMORY = 0x18340,          /* "Memory allocation error" */
    UNICODE_ERR_UNREGISTERED = 0x18341,    /* "Unregistered converter requested" */
    UNICODE_ERR_MAP_ACCESS = 0x18342,      /* map file cannot be opened */
    UNICODE_ERR_OUT_OF_BOUNDS = 0x18360,   /* "Converter ID number is out of bounds"; generic failure */
    UNICODE_ERR_MAP_SYNTAX = 0x18361,      /* malformed map-file line */
    UNICODE_DESTINATION_FULL = 0x18370,    /* call again from sourceEnd with more room */
    UNICODE_ERR_RESERVED = 0x18390,        /* reserved argument not 0 */
    UNICODE_ERR_UNKNOWN_CHARSET = 0x18391, /* character set unknown */
    UNICODE_ERR_NOT_AVAILABLE = 0x18392,   /* UNICODE_AutoConvert */
    UNICODE_ERR_INVALID_INPUT = 0x18393,   /* invalid sequence or unmappable character */
    UNICODE_ERR_NO_TRIE = 0x183F9,         /* multibyte state without its trie */
    UNICODE_ERR_EMPTY_SIDE = 0x183FA,      /* one side of a mapping empty */
    UNICODE_ERR_NULL = 0x183FB,            /* null argument; "Already NULL" */
    UNICODE_ERR_BYTE_RANGE = 0x183FC,      /* native byte value above 255 */
    UNICODE_ERR_SEQUENCE_LENGTH = 0x183FD, /* native sequence longer than 8 bytes */
    UNICODE_ERR_NO_CONVERTER = 0x183FE,    /* no converter given */
    UNICODE_ERR_NOT_INITIALIZED = 0x183FF  /* "Unicode library was not initialized" */
};

/* ---- registry -------------------------------------------------------------- */

RQ_API U32 UNICODE_Initialize(U32 ignored) RQ_NOEXCEPT;
RQ_API U32 UNICODE_InitUnicodeData(void) RQ_NOEXCEPT;
RQ_API U32 UNICODE_UsesInternalData(void) RQ_NOEXCEPT;
RQ_API U32 UNICODE_RegisterConverterType(int type, UNICODE_CREATE_PROC create, UNICODE_ADDMAPPING_PROC addMapping, UNICODE_TOUNICODE_PROC toUnicode, UNICODE_FROMUNICODE_PROC fromUnicode, UNICODE_DESTROY_PROC destroy) RQ_NOEXCEPT;
RQ_API U32 UNICODE_RegisterConverterTypeExt(int type, U32 flags, UNICODE_CREATE_PROC create, UNICODE_ADDMAPPING_PROC addMapping, UNICODE_TOUNICODE_PROC toUnicode, UNICODE_FROMUNICODE_PROC fromUnicode, UNICODE_DESTROY_PROC destroy, uintptr_t createParameter) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConverterDataGet(int type, U32 *flags, uintptr_t *createParameter) RQ_NOEXCEPT;
RQ_API void UNICODE__ClearConverters(void) RQ_NOEXCEPT;

/* ---- converters ------------------------------------------------------------ */

RQ_API U32 UNICODE_NewConverter(UNICODE_CONVERTER **out, U32 type, uintptr_t createParameter) RQ_NOEXCEPT;
RQ_API U32 UNICODE_DestroyConverter(UNICODE_CONVERTER *converter) RQ_NOEXCEPT;
RQ_API U32 UNICODE_AddMapping(UNICODE_CONVERTER *converter, const U32 *native, const U32 *unicode) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertToUnicode(UNICODE_CONVERTER *converter, const char *source, UNICODE_CHAR *destination, U32 *size, const char **sourceEnd, U32 flags) RQ_NOEXCEPT;
/* Returns 0 whatever the conversion did (only a null converter is refused);
 * callers that need the status use UNICODE_ConvertFromUnicodeBuffer. */
RQ_API U32 UNICODE_ConvertFromUnicode(UNICODE_CONVERTER *converter, const UNICODE_CHAR *source, char *destination, U32 *size, const UNICODE_CHAR **sourceEnd, U32 flags) RQ_NOEXCEPT;

/* Whole-buffer conversions; the caller frees *out with UNICODE_BufferFree. */
RQ_API U32 UNICODE_ConvertToUnicodeBuffer(UNICODE_CONVERTER *converter, const char *source, UNICODE_CHAR **out, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertToUnicodeBufferExt(UNICODE_CONVERTER *converter, const char *source, UNICODE_CHAR **out, const char **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertFromUnicodeBuffer(UNICODE_CONVERTER *converter, const UNICODE_CHAR *source, char **out, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_BufferFree(void **buffer) RQ_NOEXCEPT;

/* Map files: one mapping a line, "native unicode", each side hexadecimal
 * numbers joined by "+", "#" starts a comment.  UNICODE_LoadConverter stops at
 * the first bad line; UNICODE_LoadConverter2 skips bad lines and loads the
 * rest. */
RQ_API U32 UNICODE_LoadConverter(UNICODE_CONVERTER *converter, const char *mapFilePath) RQ_NOEXCEPT;
RQ_API U32 UNICODE_LoadConverter2(UNICODE_CONVERTER *converter, const char *mapFilePath) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertibleSizeGet(UNICODE_CONVERTER *converter, const char *source, U32 *size) RQ_NOEXCEPT;

/* ---- automatic converters --------------------------------------------------- */

RQ_API U32 UNICODE_AutoConverterCreate(U32 reserved, UNICODE_CONVERTER **out, const char *mapDirectory, const char *charsetName) RQ_NOEXCEPT;
RQ_API U32 UNICODE_AutoConverterDestroy(U32 reserved, UNICODE_CONVERTER **converter) RQ_NOEXCEPT;
/* With no converter at all, *out is `source` itself (not a copy). */
RQ_API U32 UNICODE_FullyAutoConvert(U32 reserved, U32 flags, UNICODE_CONVERTER *toUnicode, const char *source, UNICODE_CONVERTER *fromUnicode, char **out, const char **sourceEnd) RQ_NOEXCEPT;
RQ_API U32 UNICODE_AutoConvert(void) RQ_NOEXCEPT;

/* ---- helpers ------------------------------------------------------------------ */

RQ_API int UTF8_getBestSplit(const char *text, int max) RQ_NOEXCEPT;
RQ_API int UNICODE_MaybeSwitchByteOrder(UNICODE_CHAR *text) RQ_NOEXCEPT;
RQ_API void UNICODE_LogError(const char *function, U32 code, const char *detail) RQ_NOEXCEPT;

/* Canonical decompositions (BMP): UNICODE_iscanonical is non-zero when c has
 * no canonical decomposition; UNICODE_GetDecomposition writes the full
 * decomposition of c (zero-terminated when room allows) and returns its
 * length in characters, 0 when c has none. */
RQ_API int UNICODE_iscanonical(UNICODE_CHAR c) RQ_NOEXCEPT;
RQ_API U32 UNICODE_GetDecomposition(UNICODE_CHAR c, UNICODE_CHAR *out, U32 max) RQ_NOEXCEPT;

/* ---- the converter types' operations ----------------------------------------- */

/* 8-bit table (type 1) and built-in table (type 3, create parameter: a
 * pointer to the U32 index of the built-in set; only set 0, ISO-8859-1). */
RQ_API void *UNICODE_NewConverter_8bit(int type, uintptr_t createParameter) RQ_NOEXCEPT;
RQ_API void *UNICODE_NewConverter_builtin(int type, uintptr_t createParameter) RQ_NOEXCEPT;
RQ_API U32 UNICODE_AddMapping_8bit(void *state, const U32 *native, const U32 *unicode) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertToUnicode_8bit(void *state, const char *source, UNICODE_CHAR *destination, U32 *size, const char **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertFromUnicode_8bit(void *state, const UNICODE_CHAR *source, char *destination, U32 *size, const UNICODE_CHAR **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_DestroyConverter_8bit(void *state) RQ_NOEXCEPT;

/* UTF-8 (type 6). */
RQ_API void *UNICODE_NewConverter_utf8(int type, uintptr_t createParameter) RQ_NOEXCEPT;
RQ_API U32 UNICODE_AddMapping_utf8(void *state, const U32 *native, const U32 *unicode) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertToUnicode_utf8(void *state, const char *source, UNICODE_CHAR *destination, U32 *size, const char **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertFromUnicode_utf8(void *state, const UNICODE_CHAR *source, char *destination, U32 *size, const UNICODE_CHAR **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_DestroyConverter_utf8(void *state) RQ_NOEXCEPT;

/* Multibyte table (type 2): native sequences of one to eight bytes. */
RQ_API void *UNICODE_NewConverter_mbcs(int type, uintptr_t createParameter) RQ_NOEXCEPT;
RQ_API U32 UNICODE_AddMapping_mbcs(void *state, const U32 *native, const U32 *unicode) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertToUnicode_mbcs(void *state, const char *source, UNICODE_CHAR *destination, U32 *size, const char **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertFromUnicode_mbcs(void *state, const UNICODE_CHAR *source, char *destination, U32 *size, const UNICODE_CHAR **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_DestroyConverter_mbcs(void *state) RQ_NOEXCEPT;
/* Prints the converter's tables to standard output, for debugging. */
RQ_API void UNICODE_debug_dump_mbcs(void *state) RQ_NOEXCEPT;

/* ISO-2022-JP (type 7) and ISO-2022-CN (type 8): the create parameter is
 * the map directory, from which the two-byte sets are loaded
 * ("JISC62261983.MAP"; "GB231280.MAP", "CNS11643P1.MAP", "CNS11643P2.MAP").
 * Add-mapping accepts and ignores every mapping.  To Unicode: a cell without
 * a character gives U+FFFD; an unknown escape sequence, a byte above 0x7F,
 * a shift to an undesignated set or a broken two-byte character stops with
 * 0x18393 at its first byte; a sequence cut by the end of the text is left
 * unconverted (sourceEnd points at it).  From Unicode: a character without
 * a mapping (and ESC, SO, SI) is written as SUB (26) in ASCII, and the text
 * ends back in ASCII.  A conversion stopped by 0x18370 keeps its shift state
 * in the converter for the call that continues from its sourceEnd; a call
 * from any other position starts a new text in the initial state. */
RQ_API void *UNICODE_NewConverter_iso2022jp(int type, uintptr_t createParameter) RQ_NOEXCEPT;
RQ_API void *UNICODE_NewConverter_iso2022cn(int type, uintptr_t createParameter) RQ_NOEXCEPT;
RQ_API U32 UNICODE_AddMapping_iso2022(void *state, const U32 *native, const U32 *unicode) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertToUnicode_iso2022(void *state, const char *source, UNICODE_CHAR *destination, U32 *size, const char **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_ConvertFromUnicode_iso2022(void *state, const UNICODE_CHAR *source, char *destination, U32 *size, const UNICODE_CHAR **sourceEnd, U32 flags) RQ_NOEXCEPT;
RQ_API U32 UNICODE_DestroyConverter_iso2022(void *state) RQ_NOEXCEPT;

/* Byte-level steps shared by the multibyte and ISO-2022 converters.  `limit`
 * is the last position that may be written. */
RQ_API U32 AppendUnicodeChar(UNICODE_CHAR **cursor, UNICODE_CHAR *limit, UNICODE_CHAR c) RQ_NOEXCEPT;
RQ_API U32 AppendToDest(char **cursor, char *limit, const void *bytes, U32 n) RQ_NOEXCEPT;
/* The byte of c in an 8-bit converter's state; 0x18393 when unmapped.  The
 * byte is stored only where *out is not 0. */
RQ_API U32 UnicodeTo8Bits(const void *state8bit, UNICODE_CHAR c, char *out) RQ_NOEXCEPT;
/* One native character at *cursor (advanced past the bytes examined) to
 * *out; 0x18393 when the bytes form no mapped sequence. */
RQ_API U32 MBCSCharToUnicode(const void *stateMbcs, const char **cursor, UNICODE_CHAR *out) RQ_NOEXCEPT;
/* The native bytes of c written at *cursor (advanced) before limit (one past
 * the last byte); an unmapped character gives the byte 26; too little room
 * gives 0x18360. */
RQ_API U32 UnicodeToMBCS(const void *stateMbcs, UNICODE_CHAR c, char **cursor, char *limit) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
