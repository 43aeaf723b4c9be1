/*
 * rqcore NLS: message catalogs and the formatting primitives.
 *
 * A catalog is a profile file (profiles.h) loaded into memory: a DX_List with
 * one element per section, identified by the section name (33 bytes: up to 32
 * characters and a NUL) and carrying the HLIST of that section's keyword list
 * (33-byte keys, 800-byte values, as DX_GetProfileSection returns them).  The
 * date and time printers take their names and layouts from the sections
 * "datef" and "timef" of a catalog.
 *
 * The formatting primitives write into a caller's buffer and count the places
 * left in an unsigned counter owned by the caller.  Each character written
 * uses one place; when none is left the write position stops moving, so
 * further characters overwrite the last position and the text is cut, never
 * overflowing.  The terminating NUL uses no place: the buffer must hold one
 * byte more than the counter.
 */
#ifndef RQCORE_NLS_H
#define RQCORE_NLS_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_CODES {
    NLS_ERR_NO_ELEMENT = 0x15B01,   /* DX_NLSGetElement: the list value has too few elements */
    NLS_ERR_NO_SECTION = 0x15B04,   /* section not in the catalog */
    NLS_ERR_NO_KEY = 0x15B05,       /* key not in the section */
    NLS_ERR_DUP_SECTION = 0x15B06,  /* the catalog file defines a section twice */
    NLS_ERR_DUP_KEY = 0x15B07,      /* a section defines a key twice */
    NLS_ERR_NULL_POINTER = 0x15B10, /* a required pointer argument is NULL */
    NLS_ERR_NO_MEMORY = 0x15B11,    /* out of memory (growing strings, formatting) */
    NLS_ERR_VALUE = 0x15B12,        /* a name or value cannot be written in profile syntax */
    NLS_ERR_WRITE = 0x15B13,        /* the catalog file cannot be written */
    NLS_ERR_FORMAT = 0x15B14,       /* message format refers to a missing argument, or is malformed */
    NLS_ERR_TRUNCATED = 0x15B15     /* the formatted message did not fit and was cut */
};

/* Sizes of a catalog's records. */
#define NLS_SECTION_NAME_SIZE 33u /* catalog identifier: up to 32 characters and a NUL */
#define NLS_VALUE_SIZE 800u       /* keyword values, as the profile reader keeps them */
#define NLS_ELEMENT_SIZE 151u     /* one element of a list value: 150 characters and a NUL */

/* Catalog creation modes. */
#define NLS_MODE_PLAIN 0u    /* the catalog carries list flag 0x08 */
#define NLS_MODE_PRIORITY 1u /* flag 0x10: every lookup moves the found section (and key) to the front */

/* ---- formatting primitives ----
 * A NULL counter counts as full (nothing but the NUL is written).  A NULL
 * buffer writes nothing and is returned as is.  A NULL text is the empty text. */

/* 1 when the counter is 0 (no place left); otherwise takes one place and returns 0. */
RQ_API U32 DX_FormatEmpty(U32 *remaining) RQ_NOEXCEPT;
/* Reads decimal digits into *value (modulo 65536); returns the position after
 * them.  No digit: *value = 0 and text is returned unchanged.  value may be NULL. */
RQ_API const char *DX_FormatReadU16(const char *text, U16 *value) RQ_NOEXCEPT;
/* An optional "-" or "+", then decimal digits; "-" negates the 16-bit result.
 * "-" or "+" with no digit after it is not consumed. */
RQ_API const char *DX_FormatReadS16(const char *text, S16 *value) RQ_NOEXCEPT;
/* Writes value in decimal, or text, in a field of |width| places: width > 0
 * right-aligns (blanks first), width < 0 left-aligns (blanks after), 0 or a
 * width smaller than the text writes the text alone, never cut by the width.
 * Then a NUL that uses no place; returns the position of that NUL. */
RQ_API char *DX_FormatWriteU32F(char *buffer, U32 *remaining, U32 value, S16 width) RQ_NOEXCEPT;
RQ_API char *DX_FormatWriteStrF(char *buffer, U32 *remaining, const char *text, S16 width) RQ_NOEXCEPT;
/* When text starts with "{" and size is not 0: copies what lies up to the
 * matching "}" (nested braces counted and copied) into out, cut to size-1
 * characters, and returns the position after the matching "}" (the end of
 * the text when it never closes).  Otherwise copies defaultText (NULL: "")
 * into out, at most size bytes, and returns text unchanged.  out may be NULL
 * to skip an argument. */
RQ_API const char *DX_FormatArgumentGet(const char *text, char *out, U32 size, const char *defaultText) RQ_NOEXCEPT;

/* ---- catalogs ----
 * Constructors set *catalog only on success; on failure the partly built
 * catalog is destroyed.  Statuses of the profile reader (0x152xx) and of the
 * list (0x150xx) are passed through, except duplicates (0x15B06, 0x15B07). */

/* Loads every section of the profile file path.  Section names are those
 * of DX_GetProfileSections, each then read with DX_GetProfileSection: a
 * header with blanks inside its brackets ("[ a ]", "[a b]") names no section
 * that can be read back, and the load fails with 0x15202. */
RQ_API U32 DX_NLSListCreate(HLIST *catalog, U32 mode, const char *path) RQ_NOEXCEPT;
/* Loads the sections named in sections (a list of section names such as
 * DX_GetProfileSections returns); a name given twice is 0x15B06. */
RQ_API U32 DX_NLSListCreateFromSections(HLIST *catalog, U32 mode, const char *path, HLIST sections) RQ_NOEXCEPT;
/* Destroys every section list and the catalog, and sets *catalog to 0.
 * NULL or 0: 0x15040 (no list). */
RQ_API U32 DX_NLSListDestroy(HLIST *catalog) RQ_NOEXCEPT;
/* Copies the value of key in section into out (at most size bytes, always
 * terminated when size > 0).  On failure out receives "" (when size > 0). */
RQ_API U32 DX_NLSGet(HLIST catalog, char *out, U32 size, const char *section, const char *key) RQ_NOEXCEPT;
/* Reads the value as a profile list "{a, b, ...}" and copies its element at
 * 0-based index into out.  Too few elements: 0x15B01; not a list: 0x1520B.
 * On failure out receives "" (when size > 0). */
RQ_API U32 DX_NLSGetElement(HLIST catalog, char *out, U32 size, const char *section, const char *key, U32 index) RQ_NOEXCEPT;

/* ---- growing strings ----
 * A text that grows as pieces are appended, its memory from the platform
 * allocator.  After ZOL_ExtstrInit, text always holds a terminated string of
 * length characters (capacity bytes are allocated); free it with
 * ZOL_ExtstrFree, which leaves an empty record.  A failed append leaves the
 * string as it was. */
typedef struct ZOL_EXTSTR {
    char *text;
    U32 length;
    U32 capacity;
} ZOL_EXTSTR;

/* Starts an empty string with room for initialSize characters (0: a small default). */
RQ_API U32 ZOL_ExtstrInit(ZOL_EXTSTR *string, U32 initialSize) RQ_NOEXCEPT;
/* Appends a terminated text. */
RQ_API U32 ZOL_ExtstrAdd(ZOL_EXTSTR *string, const char *text) RQ_NOEXCEPT;
/* Appends length bytes of text (text may be NULL when length is 0). */
RQ_API U32 ZOL_ExtstrAddLen(ZOL_EXTSTR *string, const char *text, U32 length) RQ_NOEXCEPT;
RQ_API U32 ZOL_ExtstrFree(ZOL_EXTSTR *string) RQ_NOEXCEPT;

/* ---- messages ----
 * A message text is copied as it is, except for these sequences:
 *   %%        one "%"
 *   %N        argument N (a digit 1 to 9), as given
 *   %(W)N     argument N in a field of W places (a signed decimal width as
 *             DX_FormatWriteStrF takes it: W > 0 right-aligns, W < 0
 *             left-aligns, a short width never cuts)
 * Arguments are numbered from 1 in the order the caller passes them, so a
 * translation may use them in any order, any number of times, or not at all:
 *   en: "Cannot open %1: %2"        fr: "Impossible d'ouvrir %1 : %2"
 *   en: "%1 of %2 messages"          xx: "%2 messages, %1 read"
 *   "|%(6)1|%(-6)2|" with "ab", "cd" gives "|    ab|cd    |"
 * Any other character after "%", an unclosed "(", or an argument number above
 * count is NLS_ERR_FORMAT.  A NULL entry of args is the empty text.
 * Message texts come from a catalog: write them quoted in the file when they
 * start with "{" or hold "#" or "\"" (the catalog writers do so). */

/* *size = the bytes the formatted message needs, its NUL included. */
RQ_API U32 FormatSizeGet(const char *format, const char *const *args, U32 count, U32 *size) RQ_NOEXCEPT;
/* Writes the formatted message into out (size bytes).  When it does not fit,
 * out holds its first size-1 bytes and the status is NLS_ERR_TRUNCATED.  On a
 * format error out receives "" (when size > 0). */
RQ_API U32 FormatPrint(char *out, U32 size, const char *format, const char *const *args, U32 count) RQ_NOEXCEPT;
/* FormatPrint of the message at (section, key) of catalog. */
RQ_API U32 DX_NLSFormat(HLIST catalog, char *out, U32 size, const char *section, const char *key, const char *const *args, U32 count) RQ_NOEXCEPT;
/* Appends the formatted message at (section, key) to a growing string; on
 * failure the string is left as it was. */
RQ_API U32 DX_NLSFormatCat(HLIST catalog, ZOL_EXTSTR *string, const char *section, const char *key, const char *const *args, U32 count) RQ_NOEXCEPT;

/* ---- writing catalogs ----
 * A catalog is built or changed in memory, then written whole to a profile
 * file that the profile reader and DX_NLSListCreate read back unchanged.
 * Names and values that the reader cannot give back are refused with
 * NLS_ERR_VALUE before anything is changed or written:
 *   - section names: 1 to 31 characters, none of blank, tab, "]", or a
 *     control character;
 *   - keys: 1 to 31 characters, no "=", no control character, no blank at
 *     either end, not starting with "[", "#" or "/";
 *   - values: up to 799 characters, no carriage return.  A value is written
 *     bare when it reads back so, a list value "{...}" bare and, when its line
 *     would be longer than the reader's 214 characters, broken after commas
 *     onto indented lines; any other value is quoted with \", \\, \n and
 *     \t escapes.  A quoted value (or a list holding "=" or "#") that does not
 *     fit on one line is refused.
 * Comments of a file read with DX_NLSListCreate are not kept by a rewrite. */

/* Writes every section in catalog order, each key in its section's order. */
RQ_API U32 DX_NLSWriteToAFile(HLIST catalog, const char *path) RQ_NOEXCEPT;
/* Adds an empty section at the end; an existing name is 0x15B06. */
RQ_API U32 DX_NLSAddSection(HLIST catalog, const char *section) RQ_NOEXCEPT;
/* Adds key = value at the end of section (0x15B04 when absent); an existing key is 0x15B07. */
RQ_API U32 DX_NLSAddEntry(HLIST catalog, const char *section, const char *key, const char *value) RQ_NOEXCEPT;
/* Replaces the value of an existing key (0x15B04, 0x15B05 when absent). */
RQ_API U32 DX_NLSUpdateEntry(HLIST catalog, const char *section, const char *key, const char *value) RQ_NOEXCEPT;
/* Loads path (a missing file is an empty catalog), adds the section if it is
 * new, adds or updates key = value and writes the file back. */
RQ_API U32 DX_NLSCreateOrUpdateFile(const char *path, const char *section, const char *key, const char *value) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
