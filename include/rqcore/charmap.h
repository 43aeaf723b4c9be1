/*
 * rqcore character-set names and the charmap configuration.
 *
 * Turns the many spellings of a character-set name into one canonical name,
 * a numeric character-set identifier and a converter type, and derives the
 * name of the map file a converter for the set is loaded from.  A site can
 * override the built-in table with "charmap.config" in a configuration
 * directory (CHARMAP_setConfigDirectory); without one the static table is
 * used.
 *
 * Output texts are copied with at most len-1 characters and always
 * terminated (nothing is written when len is 0).  A negative length gives
 * CHARMAP_ERR_NEGATIVE_LENGTH, a null required pointer
 * CHARMAP_ERR_NULL_ARGUMENT.
 */
#ifndef RQCORE_CHARMAP_H
#define RQCORE_CHARMAP_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_CODES {
    CHARMAP_ERR_NO_CONFIG = 0x18A01,        /* no configuration directory, or "charmap.config" cannot be opened */
    CHARMAP_ERR_NOT_FOUND = 0x18A02,        /* not in the static table; locale character set unknown */
    CHARMAP_ERR_DEFAULT_MAP = 0x18A03,      /* unknown set: "DEFAULT.MAP" given instead */
    CHARMAP_ERR_NOT_RECOGNISED = 0x18A04,   /* name not recognised (or the "UNKNOWN" row): caller's name passed through */
    CHARMAP_ERR_NO_MEMORY = 0x18A05,        /* allocation failed */
    CHARMAP_ERR_NOT_IN_CONFIG = 0x18A06,    /* name or identifier not in "charmap.config" */
    CHARMAP_ERR_BUFFER_TOO_SMALL = 0x18A07, /* output buffer too small */
    CHARMAP_ERR_NULL_ARGUMENT = 0x18A08,    /* null argument */
    CHARMAP_ERR_NEGATIVE_LENGTH = 0x18A09   /* negative length */
};

/* Converter type codes; in "charmap.config" the words "8BIT", "MBCS", "16BIT",
 * "EUC", "UTF8", "ISO2022JP", "ISO2022CN" and "OTHER" (any case). */
RQ_CODES {
    CHARMAP_TYPE_UNKNOWN = 0,
    CHARMAP_TYPE_8BIT = 1,
    CHARMAP_TYPE_MBCS = 2,
    CHARMAP_TYPE_BUILTIN = 3, /* the converters' built-in tables; no configuration word */
    CHARMAP_TYPE_16BIT = 4,
    CHARMAP_TYPE_EUC = 5,
    CHARMAP_TYPE_UTF8 = 6,
    CHARMAP_TYPE_ISO2022JP = 7,
    CHARMAP_TYPE_ISO2022CN = 8,
    CHARMAP_TYPE_OTHER = 255
};

/* Buffer sizes that always hold the results: a canonical name from the table
 * or "charmap.config" (64 characters) and a map-file name (68 characters). */
#define CHARMAP_CANONICAL_SIZE 65
#define CHARMAP_MAP_FILE_SIZE 69

/* The configuration directory: replaced by a copy of dir; null removes it. */
RQ_API U32 CHARMAP_setConfigDirectory(const char *dir) RQ_NOEXCEPT;

/* In place: digits and upper-case letters kept, lower-case letters raised,
 * every other byte dropped ("iso_8859-1" -> "ISO88591"). */
RQ_API U32 CHARMAP_squishCharacterSetName(char *name) RQ_NOEXCEPT;

/* Lookups in "charmap.config" of the configuration directory (fileName is not
 * used).  The identifier variant takes a null type. */
RQ_API U32 CHARMAP_getCharacterSetFromFile(const char *fileName, const char *name, char *canonical, int canonicalLen, U32 *id, char *mapFile, int mapFileLen, U32 *type) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getCharacterSetFromIdFromFile(const char *fileName, U32 id, char *canonical, int canonicalLen, char *mapFile, int mapFileLen, U32 *type) RQ_NOEXCEPT;

/* Lookups in the static table.  The identifier variant takes a null
 * canonical (then only the type is returned). */
RQ_API U32 CHARMAP_getCharacterSetFromStatic(const char *name, char *canonical, int len, U32 *id, U32 *type) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getCharacterSetFromIdFromStatic(U32 id, char *canonical, int len, U32 *type) RQ_NOEXCEPT;

/* "charmap.config" when a directory is set, then the static table. */
RQ_API U32 CHARMAP_getCharacterSetName(const char *name, char *canonical, int len, U32 *id) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getCharacterSetFromId(U32 id, char *canonical, int len, U32 *type) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getCharacterSetID(const char *name, U32 *id) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getCharacterSetType(const char *name, U32 *type) RQ_NOEXCEPT;

/* The map file of a set: the configured one, else the canonical name squished
 * with ".MAP" ("ISO88591.MAP"), else "DEFAULT.MAP" (CHARMAP_ERR_DEFAULT_MAP). */
RQ_API U32 CHARMAP_generateCharacterSetFileName(const char *name, char *fileName, int len) RQ_NOEXCEPT;

/* The character set of the process's locale (sets LC_CTYPE from the
 * environment), and its canonical name and identifier. */
RQ_API U32 CHARMAP_getLocaleCharacterSet(char *name, int len) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getLocaleCharacterSetID(char *canonical, int len, U32 *id) RQ_NOEXCEPT;

/* The locale lookup of the other platforms, kept beside the one in use. */
RQ_API U32 CHARMAP_getLocaleCharacterSet_win32(char *name, int len) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getLocaleCharacterSet_hpux(char *name, int len) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getLocaleCharacterSet_solaris(char *name, int len) RQ_NOEXCEPT;
RQ_API U32 CHARMAP_getLocaleCharacterSet_fallback(char *name, int len) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
