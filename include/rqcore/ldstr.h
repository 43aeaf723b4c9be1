/*
 * rqcore loaded string tables: files that map 32-bit keys to texts.
 *
 * File layout (unsigned 32-bit numbers in the machine's byte order):
 *   offset 0:  table offset, slot count, key count (12 bytes);
 *   offset 12: records, each a marker byte 0x01 and the text's bytes (no NUL);
 *   table offset: one DX_LDSTR_SLOT (record offset, key, length) per slot.
 * A slot whose key is 0 is free, so key 0 cannot be stored.  Open addressing:
 * first position key mod N, step ((key >> 1) + 77777) mod N made odd.  The
 * table doubles after an add that leaves more than N*95/100 keys, and is
 * rebuilt after every delete, halved first when (count - 1) < N*95/200 in
 * unsigned arithmetic (so never at count 0).
 *
 * Every field of a file is untrusted.  An opened table must name a power of
 * two of slots (the only sizes growth and shrinking make) whose bytes fit in
 * 32 bits, and lie whole inside the file after the header; every used slot must be
 * reachable from its key (no key twice, no key out of place), the key count
 * must equal the used slots and one slot at least must be free.  A table that
 * fails any of these gives the mode's table-read code (0x15106 / 0x15110)
 * before anything is allocated for it.  Probe walks stop after N slots.  A
 * record whose marker or text runs past the end of the file gives 0x15143 /
 * 0x15144 at load, with nothing written to the caller's buffer.
 *
 * A failed open closes what it opened and leaves the handle holding nothing,
 * with its error flag set.  Failures of adding (other than a key already
 * present, which leaves the record's bytes as dead space) and of closing, and
 * every failure of DX_LdStrLoadCat but an absent key, set the error flag.  A
 * handle in error is refused by most operations, and DX_LdStrClose does not
 * close it; DX_LdStrRelease (beyond the product's set) closes and frees any
 * handle without writing.  Key 0 counts as always present (free slots hold
 * it): adding it gives 0x15130, finding it 0x15171.  A NULL handle gets the
 * operation's handle-in-error code (open: the mode's open code); a NULL path
 * the mode's open code; a NULL text to add 0x15135 with nothing written; a
 * NULL destination to DX_LdStrLoadCat 0x15146.
 *
 * Definition files (DX_LdStrCreate): lines of text, read byte for byte.
 *   # or ; in the first non-blank column starts a remark line; blank lines
 *     are skipped;
 *   [name]        opens a section; every key belongs to the section above it
 *                 (a key before any section is an error); sections only
 *                 group keys, and a name may repeat;
 *   key = text    key is decimal (1 to 4294967295) or 0x hexadecimal; blanks
 *                 around the key and after "=" are skipped; the text runs to
 *                 the end of the line, trailing blanks included;
 *   escapes in the text: \n line feed, \r carriage return, \t tab, \\ a
 *                 backslash, \xHH any byte from 01 to FF, \s a blank (to keep
 *                 a leading blank), and a backslash as the last byte of a line
 *                 joins the next line to the text (the next line's leading
 *                 blanks are skipped).  A text may not contain NUL.
 * Lines may end in LF or CRLF.  Example:
 *
 *   # labels of the mail screens
 *   [mail]
 *   1001 = Inbox
 *   1002 = Caf\xC3\xA9 menu\n
 *   0x3F0 = first line\n\
 *           second line
 *   [errors]
 *   2001 = \s indented text
 *
 * A key defined twice, a missing "=", a bad key or escape, or a section line
 * without "]" is reported as "ERROR: line <n>: <what> \n" with 0x15180 (a key
 * before any section: "ERROR: Missing section declarator \n").  After the
 * table is written it is reopened and every key is read back and compared
 * with its text ("ERROR: Verification failed for key <k> \n", 0x15180).  On
 * any failure the new table file is removed.
 */
#ifndef RQCORE_LDSTR_H
#define RQCORE_LDSTR_H

#include <stdio.h>

#include "types.h"

RQ_BEGIN_DECLS

RQ_CODES {
    LDSTR_ERR_OPEN_READ = 0x15101,      /* open failed (read) */
    LDSTR_ERR_OPEN_CREATE = 0x15103,    /* open failed (create) */
    LDSTR_ERR_OPEN_UPDATE = 0x15104,    /* open failed (update) */
    LDSTR_ERR_READ_HEADER = 0x15105,    /* read mode: header short read */
    LDSTR_ERR_READ_TABLE = 0x15106,     /* read mode: table short read or unsound */
    LDSTR_ERR_UPD_HEADER = 0x15109,     /* update mode: header short read */
    LDSTR_ERR_UPD_TABLE = 0x15110,      /* update mode: table short read or unsound */
    LDSTR_ERR_READ_SEEK = 0x15111,      /* read mode: seek to table */
    LDSTR_ERR_UPD_SEEK = 0x15113,       /* update mode: seek to table */
    LDSTR_ERR_UPD_SEEK_END = 0x15114,   /* update mode: seek to end */
    LDSTR_ERR_CREATE_HEADER = 0x15115,  /* create mode: header write */
    LDSTR_ERR_CREATE_TELL = 0x15116,    /* create mode: position query */
    LDSTR_ERR_MODE = 0x15117,           /* unknown open mode */
    LDSTR_ERR_CLOSE = 0x15120,          /* close failed */
    LDSTR_ERR_CLOSE_TABLE = 0x15121,    /* close: table write */
    LDSTR_ERR_CLOSE_HEADER = 0x15122,   /* close: header write */
    LDSTR_ERR_CLOSE_STATE = 0x15123,    /* close: handle in error */
    LDSTR_ERR_CLOSE_SEEK = 0x15124,     /* close: seek */
    LDSTR_ERR_ADD_DUP = 0x15130,        /* add: key already present */
    LDSTR_ERR_ADD_STATE = 0x15131,      /* add: handle in error */
    LDSTR_ERR_ADD_SEEK = 0x15132,       /* add: seek */
    LDSTR_ERR_ADD_TELL = 0x15133,       /* add: record position */
    LDSTR_ERR_ADD_TELL_END = 0x15134,   /* add: new write position */
    LDSTR_ERR_ADD_WRITE = 0x15135,      /* add: write */
    LDSTR_ERR_ADD_MODE = 0x15136,       /* add: not opened for changes */
    LDSTR_ERR_LOAD_ABSENT = 0x15140,    /* load: key absent, or its record marked 0 */
    LDSTR_ERR_LOAD_STATE = 0x15141,     /* load: handle in error */
    LDSTR_ERR_LOAD_SEEK = 0x15142,      /* load: seek */
    LDSTR_ERR_LOAD_MARKER = 0x15143,    /* load: marker read */
    LDSTR_ERR_LOAD_TEXT = 0x15144,      /* load: text read */
    LDSTR_ERR_LOAD_MODE = 0x15145,      /* load: not opened for reading */
    LDSTR_ERR_LOAD_BUFFER = 0x15146,    /* load: no buffer */
    LDSTR_ERR_CAT_STATE = 0x15151,      /* load-and-append: handle in error */
    LDSTR_ERR_CAT_MEMORY = 0x15152,     /* load-and-append: no memory */
    LDSTR_ERR_DEL_STATE = 0x15160,      /* delete: handle in error */
    LDSTR_ERR_DEL_MODE = 0x15162,       /* delete: not opened for changes */
    LDSTR_ERR_HT_PRESENT = 0x15170,     /* table: key present */
    LDSTR_ERR_HT_ABSENT = 0x15171,      /* table: key absent (or no slot reached) */
    LDSTR_ERR_HT_MEMORY = 0x15172,      /* table: no memory */
    LDSTR_ERR_DEFINITION = 0x15180      /* definition file malformed, or verification failed */
};

/* Open modes: bit 0 permits loading, bit 1 adding and deleting. */
#define LDSTR_MODE_READ 1u    /* "rb" */
#define LDSTR_MODE_CREATE 10u /* "wb" */
#define LDSTR_MODE_UPDATE 6u  /* "rb+" */

/* The size a DX_LdStrCreate error report buffer must have. */
#define LDSTR_REPORT_SIZE 256u

/* One slot of the hash table, as in the file: 12 bytes. */
typedef struct DX_LDSTR_SLOT {
    U32 offset; /* offset of the record's marker byte */
    U32 key;    /* 0: free */
    U32 length; /* text length in bytes */
} DX_LDSTR_SLOT;

/* The caller's handle, filled by DX_LdStrOpen.  The fields after `error` are
 * the library's own (a read-mode mapping of the file and the buffer the last
 * DX_LdStrLoadCat kept); leave them alone. */
typedef struct DX_LDSTR {
    U32 mode;             /* open mode */
    const char *path;     /* the path given to open (not copied) */
    FILE *file;           /* the open file stream */
    U32 writePos;         /* where the next record, and the table, goes */
    U32 reserved;         /* 0 */
    DX_LDSTR_SLOT *table; /* hash table (owned) */
    U32 slots;            /* number of slots */
    U32 count;            /* number of keys */
    U32 error;            /* 1 after a failure */
    const unsigned char *map; /* read mode: the file mapped, or NULL */
    U32 mapSize;
    char *catBuffer;          /* last DX_LdStrLoadCat buffer, kept */
} DX_LDSTR;

/* ---- the hash table ----
 * Tables come from the platform allocator; free one with RQCORE_free. */
RQ_API U32 DX_LdStrHTCreate(U32 slots, DX_LDSTR_SLOT **result) RQ_NOEXCEPT;
/* h1 and h2; both give 0 for N = 0. */
RQ_API U32 DX_LdStrHashFonction1(U32 key, U32 slots) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrHashFonction2(U32 key, U32 slots) RQ_NOEXCEPT;
/* Stores the slot holding the key or the first free one on its walk; 0x15171
 * (position NULL) when N slots were walked without either, or no table. */
RQ_API U32 DX_LdStrHTFindPos(U32 key, DX_LDSTR_SLOT *table, DX_LDSTR_SLOT **position, U32 slots) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrHTFind(U32 key, DX_LDSTR_SLOT *copy, DX_LDSTR_SLOT *table, U32 slots) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrHTAdd(U32 position, U32 key, U32 length, DX_LDSTR_SLOT *table, U32 slots) RQ_NOEXCEPT;
/* Rebuilds into a new table of newSlots and frees the old one; out of memory
 * (0x15172) keeps the old table and leaves *newTable alone. */
RQ_API U32 DX_LdStrHTCopy(DX_LDSTR_SLOT *oldTable, DX_LDSTR_SLOT **newTable, U32 oldSlots, U32 newSlots) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrHTDelete(U32 key, DX_LDSTR_SLOT **table, U32 *slots, U32 *count) RQ_NOEXCEPT;

/* ---- files ---- */
RQ_API U32 DX_LdStrOpen(DX_LDSTR *handle, const char *path, U32 ignored, U32 mode) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrAddTo(DX_LDSTR *handle, U32 key, U32 ignored, const char *text) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrLoad(DX_LDSTR *handle, U32 key, char *buffer, const char *suffix, U32 length) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrLoadCat(DX_LDSTR *handle, U32 key, char *destination, const char *suffix, U32 length) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrDeleteFrom(DX_LDSTR *handle, U32 key) RQ_NOEXCEPT;
RQ_API U32 DX_LdStrClose(DX_LDSTR *handle) RQ_NOEXCEPT;
/* Closes the file and frees the table and buffers without writing anything,
 * whatever the handle's state; the handle is then cleared.  NULL: nothing. */
RQ_API void DX_LdStrRelease(DX_LDSTR *handle) RQ_NOEXCEPT;
/* Stores the stored length of the key's text in *length (beyond the
 * product's set: lets a caller size the buffer of DX_LdStrLoad).  Codes as
 * DX_LdStrLoad's checks: 0x15141, 0x15145, 0x15146 (NULL length), 0x15140. */
RQ_API U32 DX_LdStrTextLength(const DX_LDSTR *handle, U32 key, U32 *length) RQ_NOEXCEPT;
/* Calls visit(context, key, length) for every used slot in slot order (a
 * non-zero return stops the walk and is returned); beyond the product's set,
 * for listing tools.  0x15141 / 0x15145 as DX_LdStrLoad; NULL visit 0x15146. */
typedef U32 (*LDSTR_VISITPROCPTR)(void *context, U32 key, U32 length);
RQ_API U32 DX_LdStrForEach(const DX_LDSTR *handle, LDSTR_VISITPROCPTR visit, void *context) RQ_NOEXCEPT;

/* Compiles a definition file into a table file, then verifies it.  report
 * (LDSTR_REPORT_SIZE bytes, may be NULL) receives "" or the error text. */
RQ_API U32 DX_LdStrCreate(const char *definitionPath, const char *tablePath, char *report) RQ_NOEXCEPT;

RQ_API U32 DX_LdStrGetVersion(char *version, U32 *letter, U32 *major, U32 *minor) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
