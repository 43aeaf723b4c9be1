/*
 * rqcore frame: start-up, the version banner, the library's release
 * function and the memory-handle layer under the containers.
 */
#ifndef RQCORE_FRAME_H
#define RQCORE_FRAME_H

#include "types.h"

RQ_BEGIN_DECLS

/* Starts the platform layer once per load; 0 on success, and 0 again (doing
 * nothing) on every later call. */
RQ_API U32 runInitCode(void) RQ_NOEXCEPT;

/* Releases a block that an rqcore function allocated for its caller. */
RQ_API U32 RQCORE_free(void *block) RQ_NOEXCEPT;

/* The library's identification banner; a constant, not to be freed. */
RQ_API const char *GetRqCoreVerID(void) RQ_NOEXCEPT;

/* 32-bit memory handles.  On i386 a handle is the block's address; on 64-bit
 * targets it is an index into a table, so records that hold handles keep one
 * size everywhere.  0 is never a valid handle.  Every access to a handle's
 * block is bracketed by MemLock and MemUnlock. */
RQ_API RQHANDLE MemAlloc(U32 size) RQ_NOEXCEPT;
RQ_API void *MemLock(RQHANDLE handle) RQ_NOEXCEPT;
RQ_API void MemUnlock(void) RQ_NOEXCEPT;
RQ_API U32 MemFree(RQHANDLE handle) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
