/*
 * rqcore: the fixed-width names, the status type and the export marker
 * shared by every public header of the library.
 */
#ifndef RQCORE_TYPES_H
#define RQCORE_TYPES_H

#include <stddef.h>
#include <stdint.h>

typedef uint8_t U8;
typedef uint16_t U16;
typedef uint32_t U32;
typedef int16_t S16;
typedef int32_t S32;

/* Every fallible function returns one of these; 0 is success. */
typedef U32 RQSTATUS;

/* A 32-bit memory handle: a list, a list element or a scratch block. */
typedef U32 HLIST;
typedef U32 RQHANDLE;

#if defined(RQCORE_BUILDING)
#define RQ_API __attribute__((visibility("default")))
#else
#define RQ_API
#endif

#ifdef __cplusplus
#define RQ_BEGIN_DECLS extern "C" {
#define RQ_END_DECLS }
#define RQ_NOEXCEPT noexcept
#define RQ_CODES enum : U32
#else
#define RQ_BEGIN_DECLS
#define RQ_END_DECLS
#define RQ_NOEXCEPT
#define RQ_CODES enum
#endif

/* Status codes are named constants: "RQ_CODES { NAME = 0x15001, ... };".
 * In C the constants are ints, which holds every code (all are below 2^31). */

#endif
