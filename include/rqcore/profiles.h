/*
 * rqcore profiles: reading configuration files.
 *
 * A profile is a line-oriented text file of "[section]" headers and
 * "key = value" lines.  Every getter opens, reads and closes the file on each
 * call; nothing is cached.  Lists come back as DX_List handles that the
 * caller destroys (DX_ListDestroy, or DX_ProfileSectionListDestroy for a
 * section list).
 *
 * Syntax, as the file getters read it:
 *   - lines are read 214 characters at a time; the rest of a longer line is
 *     read as a line of its own;
 *   - a header has "[" in column 0; blanks may surround the name;
 *   - keys and section names are compared over the wanted name's length,
 *     case-sensitively, then only blanks may come before "=" (or "]");
 *   - a value is unquoted ("#" starts a comment; a '"' inside is an error),
 *     quoted (escapes \n, \t, \<any>) or a brace block "{...}" that may run
 *     over several lines until one ends with "}";
 *   - lists are brace values: "{a, "b,c", d}"; "{}" is one empty element.
 */
#ifndef RQCORE_PROFILES_H
#define RQCORE_PROFILES_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_CODES {
    PROFIL_ERR_OPEN = 0x15201,             /* profile file cannot be opened */
    PROFIL_ERR_NO_SECTION = 0x15202,       /* section not found; NULL keyword list */
    PROFIL_ERR_NO_KEY = 0x15203,           /* key not found */
    PROFIL_ERR_NEGATIVE = 0x15204,         /* negative value for an unsigned number */
    PROFIL_ERR_NOT_A_NUMBER = 0x15205,     /* not a number, or empty */
    PROFIL_ERR_NOT_A_BOOLEAN = 0x15207,    /* not TRUE, true, FALSE or false */
    PROFIL_ERR_NO_MORE_SECTIONS = 0x15208, /* next-section search reached the end */
    PROFIL_ERR_QUOTING = 0x15209,          /* unterminated quote, or a quote in an unquoted value */
    PROFIL_ERR_WRITE = 0x1520A,            /* write failed */
    PROFIL_ERR_SYNTAX = 0x1520B,           /* unterminated brace block, bad list, bad time, no leading section */
    PROFIL_ERR_ENUM_MODE = 0x1520C,        /* bad enumeration mode */
    PROFIL_ERR_NO_FILE_NAME = 0x1520D,     /* no file name */
    PROFIL_ERR_NO_SECTION_NAME = 0x1520E,  /* no section name */
    PROFIL_ERR_DUP_SECTION = 0x1520F,      /* section defined multiple times */
    PROFIL_ERR_DUP_KEY = 0x15210,          /* key defined multiple times */
    PROFIL_ERR_SEEK = 0x15211,             /* seek failed */
    PROFIL_ERR_BAD_ARGUMENT = 0x15213,     /* bad argument (a NULL output) */
    PROFIL_ERR_SECTION_MODE = 0x15214,     /* bad section-search mode */
    PROFIL_ERR_SIZE = 0x15215,             /* file size cannot be told */
    PROFIL_ERR_NO_MEMORY = 0x15218,        /* out of memory */
    PROFIL_ERR_ENUM_EOF = 0x1521A,         /* end of file while enumerating */
    PROFIL_ERR_ENUM_UNEXPECTED = 0x1521B,  /* unexpected item while enumerating */

    PARSESTRING_ERR_NEGATIVE = 0x1C401,    /* minus sign on an unsigned number */
    PARSESTRING_ERR_NOT_A_NUMBER = 0x1C402,/* empty or not a number */
    PARSESTRING_ERR_RANGE = 0x1C403,       /* out of range for 16 bits */
    PARSESTRING_ERR_NULL = 0x1C404,        /* NULL output */
    PARSESTRING_ERR_TIME = 0x1C405,        /* bad time */
    PARSESTRING_ERR_NO_MEMORY = 0x1C406    /* out of memory */
};

/* Sizes of the records in the returned lists. */
#define PROFIL_SECTION_NAME_SIZE 32u  /* section names (key field) */
#define PROFIL_KEY_NAME_SIZE 33u      /* keyword names; at most 31 characters are kept */
#define PROFIL_VALUE_SIZE 800u        /* keyword values */
#define PROFIL_ELEMENT_SIZE 151u      /* string-list elements: 150 characters and a NUL */

/* Keeps a section of DX_GetProfileSectionList when it returns non-zero. */
typedef int (*PROFIL_CONSTRAINTPROCPTR)(const char *sectionName);

/* Comparison passed through to DX_ListCreate by the Ext list getters. */
typedef S32 (*PROFIL_LISTCMPPROCPTR)(const void *a, const void *b, U32 size);

/* The in-memory profile of DX_ProfileList*: one block holding the kept lines. */
typedef struct DX_PROFILELIST DX_PROFILELIST;

/* ---- single values from a file ----
 * On any failure the output receives the default.  Path and section both NULL:
 * the default and status 0. */
RQ_API U32 DX_GetProfileStr(const char *path, const char *section, const char *key, char *dst, U32 len, const char *dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU16(const char *path, const char *section, const char *key, U16 *out, U16 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU32(const char *path, const char *section, const char *key, U32 *out, U32 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS16(const char *path, const char *section, const char *key, S16 *out, S16 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS32(const char *path, const char *section, const char *key, S32 *out, S32 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileInt(const char *path, const char *section, const char *key, S32 *out, S32 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileUInt(const char *path, const char *section, const char *key, U32 *out, U32 dflt) RQ_NOEXCEPT;
/* Only "TRUE", "true", "FALSE" and "false" are booleans (1 or 0). */
RQ_API U32 DX_GetProfileBool(const char *path, const char *section, const char *key, U32 *out, U32 dflt) RQ_NOEXCEPT;
/* Copies "A.01.02" into dst (nothing if dst is NULL); always 0. */
RQ_API U32 DX_GetProfileVersion(char *dst) RQ_NOEXCEPT;

/* ---- lists from a file, from a brace text, from a keyword list ----
 * flags are the list's flags (0x01 sorted: elements are added in order;
 * otherwise in file order).  On failure the partly built list is destroyed and
 * *listOut is not set; a NULL listOut builds and discards the list. */
RQ_API U32 DX_GetProfileStrList(const char *path, const char *section, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileStrListExt(const char *path, const char *section, const char *key, HLIST *listOut, U32 flags, PROFIL_LISTCMPPROCPTR idCompare, PROFIL_LISTCMPPROCPTR dataCompare) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU32List(const char *path, const char *section, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU16List(const char *path, const char *section, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS16List(const char *path, const char *section, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS32List(const char *path, const char *section, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileBoolList(const char *path, const char *section, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;

RQ_API U32 DX_GetProfileStrListFromStr(const char *text, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileStrListFromStrExt(const char *text, HLIST *listOut, U32 flags, PROFIL_LISTCMPPROCPTR idCompare, PROFIL_LISTCMPPROCPTR dataCompare) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU32ListFromStr(const char *text, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU16ListFromStr(const char *text, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS16ListFromStr(const char *text, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS32ListFromStr(const char *text, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileBoolListFromStr(const char *text, HLIST *listOut, U32 flags) RQ_NOEXCEPT;

RQ_API U32 DX_GetProfileStrListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU32ListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU16ListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS16ListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS32ListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileBoolListFromList(HLIST keywords, const char *key, HLIST *listOut, U32 flags) RQ_NOEXCEPT;

/* The list tokenizer: mode 1 starts (the text must begin with "{"), 2
 * continues.  Writes the next element (150 characters at most) into dst and
 * advances *cursor; sets *done to 1 when the text is exhausted. */
RQ_API U32 DX_EnumProfileStr(char *dst, char **cursor, U32 mode, U32 *done) RQ_NOEXCEPT;

/* ---- whole sections ---- */
RQ_API U32 DX_GetProfileSections(const char *path, HLIST *listOut) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileNumericSections(const char *path, HLIST *listOut) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileSection(const char *path, const char *section, HLIST *listOut) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileSectionList(const char *path, HLIST *listOut, PROFIL_CONSTRAINTPROCPTR constraint) RQ_NOEXCEPT;
RQ_API U32 DX_ProfileSectionListDestroy(HLIST *list) RQ_NOEXCEPT;
RQ_API int DX_ProfileConstraintNumeric(const char *name) RQ_NOEXCEPT;
RQ_API U32 DX_IsAProfileSection(const char *path, const char *section, U32 *found) RQ_NOEXCEPT;

/* ---- single values from a keyword list ---- */
RQ_API U32 DX_GetProfileStrFromList(HLIST keywords, const char *key, char *dst, U32 len, const char *dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU16FromList(HLIST keywords, const char *key, U16 *out, U16 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileU32FromList(HLIST keywords, const char *key, U32 *out, U32 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS16FromList(HLIST keywords, const char *key, S16 *out, S16 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileS32FromList(HLIST keywords, const char *key, S32 *out, S32 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileIntFromList(HLIST keywords, const char *key, S32 *out, S32 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileUIntFromList(HLIST keywords, const char *key, U32 *out, U32 dflt) RQ_NOEXCEPT;
RQ_API U32 DX_GetProfileBoolFromList(HLIST keywords, const char *key, U32 *out, U32 dflt) RQ_NOEXCEPT;
/* Minutes since midnight ("7h30", "23:59"). */
RQ_API U32 DX_GetProfileTimeFromList(HLIST keywords, const char *key, U32 *out, U32 dflt) RQ_NOEXCEPT;

/* ---- the in-memory profile ---- */
RQ_API U32 DX_ProfileListOpen(DX_PROFILELIST **handleOut, const char *path) RQ_NOEXCEPT;
RQ_API U32 DX_ProfileListGetStr(DX_PROFILELIST *handle, const char *section, const char *key, char *dst, U32 len, const char *dflt) RQ_NOEXCEPT;
RQ_API U32 DX_ProfileListGetU32(DX_PROFILELIST *handle, const char *section, const char *key, U32 *out, U32 dflt) RQ_NOEXCEPT;
/* *cursor is a byte position inside the block (0 to start); 0x15020 at the end. */
RQ_API U32 DX_ProfileListGetSection(DX_PROFILELIST *handle, U32 *cursor, char *dst, U32 len) RQ_NOEXCEPT;
RQ_API U32 DX_ProfileListGetKeyword(DX_PROFILELIST *handle, U32 *cursor, const char *section, char *keyDst, U32 keyLen, char *valDst, U32 valLen) RQ_NOEXCEPT;
RQ_API U32 DX_IsAProfileListSection(DX_PROFILELIST *handle, const char *section, U32 *found) RQ_NOEXCEPT;
RQ_API U32 DX_ProfileListClose(DX_PROFILELIST **handle) RQ_NOEXCEPT;

/* ---- string parsers ---- */
RQ_API char *SkipBlanks(const char *s) RQ_NOEXCEPT;
RQ_API char *SkipZeros(const char *s) RQ_NOEXCEPT;
RQ_API char *TrimStr(char *s) RQ_NOEXCEPT;
RQ_API int AllDigits(const char *s) RQ_NOEXCEPT;
RQ_API int IsHexNum(const char *s) RQ_NOEXCEPT;
RQ_API U32 GetUnsigned32FromStr(const char *s, U32 *out) RQ_NOEXCEPT;
RQ_API U32 GetUnsigned16FromStr(const char *s, U16 *out) RQ_NOEXCEPT;
RQ_API U32 GetSigned32FromStr(const char *s, S32 *out) RQ_NOEXCEPT;
RQ_API U32 GetSigned16FromStr(const char *s, S16 *out) RQ_NOEXCEPT;
RQ_API U32 GetTimeFromStr(const char *s, U32 *minutesOut) RQ_NOEXCEPT;
RQ_API U32 MapParsestringErrorToProfilError(U32 code) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
