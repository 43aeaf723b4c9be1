/*
 * rqcore versions: reading and ordering short version labels.
 *
 * A label is a letter (case ignored), ".", two digits (major), ".", two
 * digits (minor), then optional free text: "B.05.12 first release".  Blanks
 * and tabs before the free text are skipped; it ends at the first carriage
 * return or line feed.  A label is shorter than 138 characters.  The order
 * is letter, then major, then minor; the free text takes no part in it.
 */
#ifndef RQCORE_VERSION_H
#define RQCORE_VERSION_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_CODES {
    DX_VERSION_ERR_MINOR = 0x15401,  /* the minor number is not two digits */
    DX_VERSION_ERR_MAJOR = 0x15402,  /* the major number is not two digits */
    DX_VERSION_ERR_LETTER = 0x15403, /* the first character is not a letter */
    DX_VERSION_ERR_DOTS = 0x15404,   /* positions 1 and 4 are not both "." */
    DX_VERSION_ERR_LENGTH = 0x15405, /* the label is 138 characters or longer */
    DX_VERSION_ERR_NULL = 0x15406    /* a label is null */
};

/* Size of the free-text buffer of DX_VersionSplit. */
#define DX_VERSION_TEXT_SIZE 128u

/* Checks, in order: null label, the dots, the length, the letter, the major,
 * the minor digits.  On success writes the outputs that are not null: letter
 * 0 (A) .. 25 (Z), major, minor, and the free text (up to 127 characters,
 * the rest of the 128-byte buffer zero-filled).  On failure writes nothing.
 * reserved is not used. */
RQ_API U32 DX_VersionSplit(U32 reserved, const char *label, U32 *letter, U32 *major, U32 *minor, char *text) RQ_NOEXCEPT;
/* *result (may be null) = 1 when a orders after b, 0 when equal, 0xFFFFFFFF
 * when before.  A's errors are reported before b's. */
RQ_API U32 DX_VersionCompare(U32 reserved, const char *a, const char *b, U32 *result) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
