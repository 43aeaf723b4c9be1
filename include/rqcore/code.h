/*
 * rqcore code tables: binary data carried through text files.
 *
 * A block of binary data is optionally run-length packed, cut into 6-bit
 * values written as the characters '0' + value (0x30 to 0x6F), broken into
 * lines of 79 characters, and protected by the 16-bit checksum of cksum.h
 * over the values and the line ends.  A 16-byte information line precedes
 * each block:
 *
 *     "\n\n1 P 015A 3F2C\n"    version '1', type ('P' packed, '-' not packed,
 *                              'U' recognised on reading), the block's
 *                              character count and checksum in hexadecimal
 *
 * A code file is 8 hexadecimal digits (the total of the blocks' character
 * counts) followed by the blocks of its binary file cut into pieces of 256
 * bytes; a file whose length is a multiple of 256 ends with an empty block.
 *
 *     0000015A
 *
 *     1 P 015A 3F2C
 *     <346 characters in lines of 79>
 *
 * Packed form: a run of three or more equal bytes (at most 250, never the
 * input's last byte, and only with more than three bytes left) becomes 7,
 * count, byte; a single 7 becomes 7, 1; other bytes stand as they are.
 *
 * Every buffer is the caller's; nothing is allocated.  Every count read
 * from a code file is checked before it is used; a failing decode sets the
 * output length to 0.
 */
#ifndef RQCORE_CODE_H
#define RQCORE_CODE_H

#include <stdio.h>

#include "types.h"

RQ_BEGIN_DECLS

#define DX_CODE_VERSION '1'
#define DX_CODE_PACKED 'P'
#define DX_CODE_PLAIN '-'
#define DX_CODE_UNPACKED 'U'
#define DX_CODE_INFO_SIZE 16u  /* the information line */
#define DX_CODE_LINE 79u       /* characters on a line before its newline */
#define DX_CODE_PIECE 256u     /* binary bytes per block in a code file */
#define DX_CODE_CHARS 600u     /* largest block DX_CodeWrite and DX_CodeRead handle */
#define DX_CODE_PACKING 447u   /* their packing and scratch buffer */

RQ_CODES {
    DX_CODE_ERR_DECODE_SPACE = 0x15311,    /* decode: output too small */
    DX_CODE_ERR_DECODE_SIZE = 0x15312,     /* decode: expected size over 65535 */
    DX_CODE_ERR_DECODE_TYPE = 0x15313,     /* decode: type 'U' with a scratch buffer */
    DX_CODE_ERR_ENCODE_SPACE = 0x15321,    /* encode: output too small */
    DX_CODE_ERR_ENCODE_SIZE = 0x15322,     /* encode: expected size 65536 or more */
    DX_CODE_ERR_PACK_SPACE = 0x15331,      /* pack: output too small */
    DX_CODE_ERR_UNPACK_SPACE = 0x15341,    /* unpack: output too small */
    DX_CODE_ERR_UNPACK_CUT = 0x15342,      /* unpack: the data ends inside an escape */
    DX_CODE_ERR_NULL = 0x15360,            /* a required pointer argument was null */
    DX_CODE_ERR_BINARY_FILE = 0x15364,     /* file conversion: open failed (see the two directions) */
    DX_CODE_ERR_TEXT_FILE = 0x15365,       /* file conversion: open failed (see the two directions) */
    DX_CODE_ERR_WRITE = 0x15366,           /* short write */
    DX_CODE_ERR_READ = 0x15367,            /* short read */
    DX_CODE_ERR_CHARACTER = 0x15368,       /* decode: character outside the alphabet, or two newlines */
    DX_CODE_ERR_CHECKSUM = 0x15369,        /* decode: checksum mismatch */
    DX_CODE_ERR_VERSION = 0x1536A,         /* information line: version other than '1' */
    DX_CODE_ERR_COUNT = 0x1536B            /* a block's character count over DX_CODE_CHARS */
};

/* The state of one block, filled by encoding and by DX_CodeReadInfo. */
typedef struct DX_CODE_STATE {
    char version;  /* always '1' */
    char type;     /* 'P', '-' or (reading) 'U' */
    U16 count;     /* characters of the block, newlines included */
    U16 checksum;  /* checksum of the block */
    U16 column;    /* position on the current line */
    U16 running;   /* running checksum */
} DX_CODE_STATE;

/* Exactly digits uppercase hexadecimal digits, most significant first, no NUL. */
RQ_API void DX_CodeToHex(U32 value, char *output, U32 digits) RQ_NOEXCEPT;
/* The value of digits characters: below ':' a decimal digit, otherwise an
 * uppercase letter (character - '7'); lower case is not supported and other
 * characters give meaningless values (wrapping in 32 bits). */
RQ_API U32 DX_CodeFromHex(const char *text, U32 digits) RQ_NOEXCEPT;

/* *capacity in: the output's size, which must exceed length * 1.7 + 10;
 * out: the packed length (0 on failure). */
RQ_API U32 DX_CodePack(const void *input, U16 length, void *output, U16 *capacity) RQ_NOEXCEPT;
/* *capacity must be at least length / 1.7 + 10, and hold what the data
 * unpacks to; out: the unpacked length (0 on failure). */
RQ_API U32 DX_CodeUnpack(const void *input, U16 length, void *output, U16 *capacity) RQ_NOEXCEPT;

/* Encodes a block: packed through packing (type 'P') when given, else type
 * '-'.  *capacity in: the output's size, which must exceed the expected
 * count (length * 2.3 + 10 packed, * 1.35 + 10 not); out: the character
 * count.  The count and checksum also go to state. */
RQ_API U32 DX_CodeToChar(DX_CODE_STATE *state, const void *input, U16 length, char *output, U16 *capacity, void *packing, U16 packingCapacity) RQ_NOEXCEPT;
/* Decodes count characters checked against state's version, type and
 * checksum.  *capacity in: the output's size, at least count / 2.3 + 10
 * ('P') or / 1.35 + 10; out: the byte count.  With a scratch buffer the
 * decoded bytes go there and are unpacked into output whatever the type
 * (a '-' block holding the byte 7 is then unpacked: callers rely on it);
 * without one they go straight to output. */
RQ_API U32 DX_CodeToBin(DX_CODE_STATE *state, const char *characters, U16 count, void *output, U16 *capacity, void *scratch, U16 scratchCapacity) RQ_NOEXCEPT;
/* Writes one value at output[*position] (a newline first when the line is
 * full), advancing *position and the state's column and checksum.  The
 * caller guarantees room for two bytes.  Always 0. */
RQ_API U32 DX_CodeSet(DX_CODE_STATE *state, char *output, U16 *position, U8 value) RQ_NOEXCEPT;

RQ_API U32 DX_CodeWriteInfo(const DX_CODE_STATE *state, FILE *stream) RQ_NOEXCEPT;
RQ_API U32 DX_CodeReadInfo(DX_CODE_STATE *state, FILE *stream) RQ_NOEXCEPT;
/* One block of at most 256 bytes, packed: the information line and the
 * characters; *count: the character count (count may be null). */
RQ_API U32 DX_CodeWrite(DX_CODE_STATE *state, FILE *stream, const void *data, U16 length, U16 *count) RQ_NOEXCEPT;
/* One block: *capacity in the output's size, out the byte count; *count the
 * block's character count (count may be null). */
RQ_API U32 DX_CodeRead(DX_CODE_STATE *state, FILE *stream, void *output, U16 *capacity, U16 *count) RQ_NOEXCEPT;

/* Whole files.  Binary to code: the binary file failing to open gives
 * 0x15364, the code file 0x15365.  Code to binary: both are opened first;
 * the binary file failing gives 0x15364 and the code file failing 0x15365,
 * which wins (the reverse of the other direction; callers rely on it). */
RQ_API U32 DX_CodeBinFileToCharFile(const char *binaryPath, const char *textPath) RQ_NOEXCEPT;
RQ_API U32 DX_CodeCharFileToBinFile(const char *textPath, const char *binaryPath) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
