/*
 * rqcore system services: thread-local storage.
 */
#ifndef RQCORE_SYS_H
#define RQCORE_SYS_H

#include "types.h"

RQ_BEGIN_DECLS

#define ZOL_TLS_NO_KEY 0xFFFFFFFFu /* a key not yet allocated */

RQ_CODES {
    ZOL_ERR_TLS_NO_MEMORY = 0x16C18,       /* the thread's block could not be allocated */
    ZOL_ERR_TLS_NULL_POINTER = 0x16C26,    /* a required pointer argument was null */
    ZOL_ERR_TLS_BAD_KEY = 0x16C29          /* key invalid, not created, or no value here */
};

typedef void (*ZOL_TLS_DESTRUCTOR)(void *);

/* Lower layer: POSIX thread-specific keys directly. */
RQ_API U32 ZOL_TLS_Impl_AllocKey(U32 *key, ZOL_TLS_DESTRUCTOR destructor) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLS_Impl_SetValue(U32 key, void *value) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLS_Impl_GetValue(U32 key, void **value) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLS_Impl_FreeKey(U32 key) RQ_NOEXCEPT;

/* Upper layer: through the platform, with a block per thread.  A caller keeps
 * one static key (initially ZOL_TLS_NO_KEY) and calls ZOL_TLSAlloc in each
 * thread that needs its block. */
RQ_API U32 ZOL_TLSAlloc(U32 *key, U32 size, ZOL_TLS_DESTRUCTOR destructor) RQ_NOEXCEPT;
RQ_API void *ZOL_TLSGetValue(U32 key) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLSSetValue(U32 key, void *value) RQ_NOEXCEPT;
RQ_API U32 ZOL_TLSFree(U32 key, U32 freeKey) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
