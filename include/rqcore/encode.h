/*
 * rqcore content encodings: base64 and quoted-printable.
 *
 * Every buffer these functions hand back is allocated by the library and
 * freed by the caller with RQCORE_free().
 *
 * Base64
 *   The encoder writes RFC 2045's alphabet, pads the last group with '=' and
 *   inserts no line breaks.  The decoder is tolerant: it skips characters
 *   outside the alphabet (status ENCODE_WARN_SKIPPED, the output is still
 *   complete), looks bytes above 127 up by their low 7 bits, and stops at the
 *   first '=' (everything after it is ignored).
 *
 * Quoted-printable
 *   ENCODE_toQP is the encoder of the MIME generator; the older
 *   ENCODE_convertToQuotedPrintable folds with "=\r\n " (a leading blank, so
 *   the continuation is also a folded header line).
 *
 *   Both decoders follow RFC 2045 section 6.7's advice for a robust reader:
 *   - "=XX" with two hexadecimal digits becomes the byte; lower-case digits
 *     are accepted as well as upper-case ones;
 *   - a soft break ('=' then CR LF, a bare LF, a bare CR, or the end of the
 *     text) is dropped, and so is white space between that '=' and the line
 *     end (transport padding); a body that ends in "=" thus has no final
 *     line end;
 *   - white space (blanks and TABs) directly before a line end or the end of
 *     the text is transport padding and is dropped, provided the run is no
 *     longer than the decoder's line length (0 = no limit): a longer run
 *     cannot have been added to one encoded line, so it is kept as text;
 *     white space produced by "=20" or "=09" is always kept;
 *   - an '=' that starts neither a valid "=XX" nor a soft break is copied as
 *     it is, and what follows is read as text ("=4G" stays "=4G");
 *   - line ends (CR LF, bare LF, bare CR) and every other byte are copied
 *     unchanged.
 *   The decoded text is never longer than the input; it is NUL-terminated
 *   after the data (the terminator is not counted).
 */
#ifndef RQCORE_ENCODE_H
#define RQCORE_ENCODE_H

#include <stdio.h>

#include "types.h"

RQ_BEGIN_DECLS

/* Status codes of the encode family. */
RQ_CODES {
    ENCODE_ERR_NOMEM = 0x18C01,      /* not enough memory ("Not enough core") */
    ENCODE_WARN_SKIPPED = 0x18C02,   /* decoder skipped characters outside the alphabet */
    ENCODE_ERR_BADARG = 0x18C03,     /* a required pointer was NULL */
    ENCODE_ERR_INCOMPLETE = 0x18C04, /* base64 text ended inside a group without '=' */
    ENCODE_ERR_READ = 0x18C05,       /* reading the input file returned nothing */
    ENCODE_ERR_WRITE = 0x18C06,      /* writing the output file failed */
    ENCODE_ERR_UNKNOWN_CHARSET = 0x18C07, /* no converter for the character set (or for UTF-8) */
    ENCODE_ERR_BADTEXT = 0x18C08,    /* text not valid UTF-8, or not writable in the set */
    ENCODE_ERR_LONG_CHARSET = 0x18C09, /* a 75-character word cannot hold one character */
    ENCODE_ERR_NOSPACE = 0x18C0C     /* output space exhausted during encoding */
};

/* ENCODE_toQP flags. */
RQ_CODES {
    ENCODE_QP_WRAP = 0x02,        /* break the result into lines of at most 76 characters */
    ENCODE_QP_LITERAL_CRLF = 0x04 /* write CR and LF as they are (text with line ends) */
};

/* Writes "%s:  %s" (function, two blanks, message) as an error record with
 * errlog id 2; the message alone without a function name; "ENCODELIB error"
 * without a message. */
RQ_API void ENCODE_logError(const char *function_name, U32 code, const char *message) RQ_NOEXCEPT;

/* ---- Base64 ------------------------------------------------------------- */

/* 0 if every character of `str` is a base64 letter, digit, '+', '/' or '=',
 * 1 at the first that is not; ENCODE_ERR_BADARG for NULL. "" is valid. */
RQ_API U32 ENCODE_isBase64String(const char *str) RQ_NOEXCEPT;

/* Removes in place every character outside that set; returns 1 if the
 * remaining length is not a multiple of 4, else 0; ENCODE_ERR_BADARG for NULL. */
RQ_API U32 ENCODE_stripBase64String(char *str) RQ_NOEXCEPT;

/* Encodes `length` bytes into a new NUL-terminated text in *out.
 * 0, ENCODE_ERR_BADARG (data or out NULL), ENCODE_ERR_NOMEM (logged). */
RQ_API U32 ENCODE_convertToBase64(const void *data, U32 length, char **out) RQ_NOEXCEPT;

/* Decodes a NUL-terminated text into a new buffer in *out (NUL-terminated
 * after the data), its length in *out_length.  0, ENCODE_WARN_SKIPPED,
 * ENCODE_ERR_INCOMPLETE, ENCODE_ERR_BADARG, ENCODE_ERR_NOMEM (logged). */
RQ_API U32 ENCODE_convertFromBase64(const char *text, U32 *out_length, char **out) RQ_NOEXCEPT;

/* Encodes a whole file as lines of 72 characters (54 input bytes), each
 * followed by `line_end` ("\r\n" when NULL).  A read that returns nothing
 * ends with ENCODE_ERR_READ, so a fully converted file whose length is a
 * multiple of 54 (the empty file included) reports ENCODE_ERR_READ;
 * ENCODE_ERR_WRITE when a write fails. */
RQ_API U32 ENCODE_fileConvertToBase64(FILE *in, FILE *out, const char *line_end) RQ_NOEXCEPT;

/* Decodes a whole base64 file in chunks of 72 kept characters; the result is
 * the status of the last chunk's decoding, ENCODE_ERR_READ when a read
 * returns nothing, ENCODE_ERR_WRITE when a write fails. */
RQ_API U32 ENCODE_fileConvertFromBase64(FILE *in, FILE *out) RQ_NOEXCEPT;

/* ---- Quoted-printable --------------------------------------------------- */

/* Encodes `length` bytes; *output receives a new buffer and *output_length
 * the bytes written including the terminating NUL.  Flags ENCODE_QP_WRAP and
 * ENCODE_QP_LITERAL_CRLF.  0, ENCODE_ERR_BADARG, ENCODE_ERR_NOMEM,
 * ENCODE_ERR_NOSPACE. */
RQ_API U32 ENCODE_toQP(const void *input, U32 length, char **output, U32 *output_length, U32 flags) RQ_NOEXCEPT;

/* The buffer size ENCODE_toQP allocates for `input` with the byte-class
 * `table` (256 entries, 'x' = written as it is; NULL = the encoder's default
 * table). */
RQ_API U32 enc_qpGetReqBufferSize(const void *input, U32 length, const char *table) RQ_NOEXCEPT;

/* The older encoder: NUL-terminated text in, a new text in *output; *column
 * is the output column on entry and the column reached on return.  Folds
 * with "=\r\n " after column 71.  0, ENCODE_ERR_BADARG, ENCODE_ERR_NOMEM. */
RQ_API U32 ENCODE_convertToQuotedPrintable(const char *text, char **output, U32 *column) RQ_NOEXCEPT;

/* Decodes `length` bytes of quoted-printable text into a new buffer in
 * *output, its length (without the NUL) in *output_length.  `line_length` is
 * the longest encoded line expected (the MIME layer passes 256; 0 = no limit):
 * see the header comment.  0, ENCODE_ERR_BADARG, ENCODE_ERR_NOMEM. */
RQ_API U32 ENCODE_fromQP(const void *input, U32 length, char **output, U32 *output_length, U32 line_length) RQ_NOEXCEPT;

/* The older decoder: NUL-terminated text in, otherwise as ENCODE_fromQP
 * with no line-length limit.  `output_length` may be NULL. */
RQ_API U32 ENCODE_convertFromQuotedPrintable(const char *text, char **output, U32 *output_length) RQ_NOEXCEPT;

/* The value 0-15 of a hexadecimal digit (either case), -1 otherwise. */
RQ_API S32 ENCODE__getCharValue(int c) RQ_NOEXCEPT;

/* The value of the first `count` characters of `text` as digits in `base`
 * (2 to 16, either case); -1 if one of them is not such a digit, if text is
 * NULL, the base is out of range or the value does not fit in 31 bits. */
RQ_API S32 ENCODE_strntol(const char *text, U32 count, U32 base) RQ_NOEXCEPT;

/* ---- Encoded words in header values ------------------------------------- */

/* Encoded words ("=?charset?B?text?=" and "=?charset?Q?text?=", RFC 2047)
 * need the converters: UNICODE_Initialize must have run; `mapDirectory` is
 * where the character-set map files are (as for UNICODE_AutoConverterCreate).
 *
 * ENCODE_FromRFC1522 decodes every encoded word of a header value into a new
 * UTF-8 text in *utf8.
 *   - A word is "=?", a character-set name, "?", B or Q (either case), "?",
 *     text without white space, "?=".  The text runs to the first "?=", so a
 *     '?' inside it is text.  A "*language" suffix of the name is ignored.
 *   - Q: '_' is a blank, "=XX" a byte (either case), every other character
 *     itself.  B: base64 as ENCODE_convertFromBase64 reads it (missing
 *     padding accepted).
 *   - White space between two decoded words is dropped (kept next to a word
 *     left as it stands); adjacent words of one set are converted together,
 *     so a character split across two words survives.
 *   - A malformed word, a word whose set has no converter, and a run of words
 *     whose bytes the set's converter refuses stay as they stand (so does
 *     UTF-8 holding a character beyond U+FFFF: the converters are 16-bit);
 *     a NUL produced by decoding ends that run's text.
 *   - Everything outside words is copied unchanged (no unfolding).
 * 0, ENCODE_ERR_BADARG, ENCODE_ERR_NOMEM, ENCODE_ERR_UNKNOWN_CHARSET (no
 * UTF-8 converter: the converters are not initialized).  Work is linear in
 * the length of the text.
 *
 * ENCODE_ToRFC1522 writes `utf8` in `charset` as encoded words of `encoding`
 * ('B' or 'Q', either case) into a new text in *text: words of at most 75
 * characters, separated by one blank (the caller folds between words), each
 * holding whole characters only.  Q writes letters, digits and "!*+-/" as
 * they are, a blank as '_', every other byte as "=XX".  A character the set
 * cannot hold is written as the converter's substitute.  "" gives "".
 * 0, ENCODE_ERR_BADARG (NULL, or an encoding other than B or Q),
 * ENCODE_ERR_UNKNOWN_CHARSET (no converter, or a name that is empty, longer
 * than 64 characters or holds '?' or white space), ENCODE_ERR_BADTEXT (not
 * well-formed UTF-8: stray bytes, overlong forms, surrogates; or a character
 * beyond U+FFFF),
 * ENCODE_ERR_LONG_CHARSET, ENCODE_ERR_NOMEM. */
RQ_API U32 ENCODE_FromRFC1522(const char *mapDirectory, const char *text, char **utf8) RQ_NOEXCEPT;
RQ_API U32 ENCODE_ToRFC1522(const char *mapDirectory, const char *utf8, const char *charset, char encoding, char **text) RQ_NOEXCEPT;
/* Both functions keep the converters they made (up to 16) for later calls:
 * making one reads its map file.  A converter is used by one call at a time.
 * This releases them all, for a program that changes the map files or the
 * character-set configuration, or that wants every block freed. */
RQ_API void ENCODE_ReleaseCachedConverters(void) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
