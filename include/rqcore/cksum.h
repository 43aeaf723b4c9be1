/*
 * rqcore checksums: the 16-bit checksum of arrays and whole files.
 *
 * The checksum is the reflected CRC-16 of polynomial 0x1021 (0x8408
 * reflected), with no final XOR.  Over the nine ASCII digits "123456789" it
 * gives 0x6F91 from 0xFFFF (the catalogue's CRC-16/MCRF4XX) and 0x2189 from
 * 0 (CRC-16/KERMIT).  Files are checksummed from 0xFFFF.
 */
#ifndef RQCORE_CKSUM_H
#define RQCORE_CKSUM_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_CODES {
    DX_CKSUM_ERR_OPEN = 0x15901,      /* file checksum: the file cannot be opened */
    DX_CKSUM_ERR_NO_MEMORY = 0x15902, /* file checksum: no memory for the read block */
    DX_CKSUM_ERR_READ = 0x15903       /* file checksum: a read failed part way */
};

/* One update step with one byte. */
RQ_API U16 DX_CksumAdd(U16 checksum, U8 byte) RQ_NOEXCEPT;
/* length bytes from initial; the count is 16-bit, so at most 65535 bytes. */
RQ_API U16 DX_CksumArray(U16 initial, const void *bytes, U16 length) RQ_NOEXCEPT;
RQ_API U16 DX_CksumArrayLong(U16 initial, const void *bytes, U32 length) RQ_NOEXCEPT;
/* Two checksums in one value: the low half runs forward over the bytes from
 * initial's low half, the high half backward (last byte first) from initial's
 * high half. */
RQ_API U32 DX_CksumArray32(U32 initial, const void *bytes, U32 length) RQ_NOEXCEPT;
/* Every byte of the file from initial; checksum may be null. */
RQ_API U32 DX_CksumFile(const char *path, U16 initial, U16 *checksum) RQ_NOEXCEPT;
/* DX_CksumFile from 0xFFFF. */
RQ_API U32 DX_CkSumFileCalc(const char *path, U16 *checksum) RQ_NOEXCEPT;
/* *equal = 1 when the file's checksum from 0xFFFF is expected, else 0;
 * untouched on failure; equal may be null. */
RQ_API U32 DX_CkSumFileEqual(const char *path, U16 expected, U32 *equal) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
