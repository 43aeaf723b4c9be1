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

RQ_END_DECLS

#endif
