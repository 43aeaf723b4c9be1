// Thread-local storage in two layers: the lower speaks to POSIX threads
// directly, the upper goes through the platform layer and owns a block per
// thread.

#define RQ_SOURCE_TAG "src/lib/core/lib/zolsys/tls"
#include "internal/rq_mem.h"
#include "rqcore/sys.h"

#include <pthread.h>

extern "C" {

RQ_API U32 ZOL_TLS_Impl_AllocKey(U32 *key, ZOL_TLS_DESTRUCTOR destructor) noexcept
{
    if (key == nullptr)
        return ZOL_ERR_TLS_NULL_POINTER;
    pthread_key_t k;
    if (pthread_key_create(&k, destructor) != 0)
        return ZOL_ERR_TLS_BAD_KEY;
    *key = static_cast<U32>(k);
    return *key != ZOL_TLS_NO_KEY ? 0u : U32{ZOL_ERR_TLS_BAD_KEY};
}

RQ_API U32 ZOL_TLS_Impl_SetValue(U32 key, void *value) noexcept
{
    if (key == ZOL_TLS_NO_KEY)
        return ZOL_ERR_TLS_BAD_KEY;
    // The POSIX result is deliberately not looked at: callers treat a set on
    // a valid key as infallible.
    (void)pthread_setspecific(static_cast<pthread_key_t>(key), value);
    return 0;
}

RQ_API U32 ZOL_TLS_Impl_GetValue(U32 key, void **value) noexcept
{
    if (value == nullptr)
        return ZOL_ERR_TLS_NULL_POINTER;
    if (key == ZOL_TLS_NO_KEY)
        return ZOL_ERR_TLS_BAD_KEY;
    void *v = pthread_getspecific(static_cast<pthread_key_t>(key));
    if (v == nullptr)
        return ZOL_ERR_TLS_BAD_KEY;  // *value left as the caller had it
    *value = v;
    return 0;
}

RQ_API U32 ZOL_TLS_Impl_FreeKey(U32 key) noexcept
{
    (void)pthread_key_delete(static_cast<pthread_key_t>(key));
    return 0;
}

RQ_API U32 ZOL_TLSAlloc(U32 *key, U32 size, ZOL_TLS_DESTRUCTOR destructor) noexcept
{
    if (key == nullptr)
        return ZOL_ERR_TLS_NULL_POINTER;
    // Not locked: the caller allocates its static key before threads race
    // for it; a key already allocated is reused.
    if (*key == ZOL_TLS_NO_KEY) {
        U32 rc = SIS_ThreadTsdAllocKey(key, destructor);
        if (rc != 0)
            return rc;
    }
    if (*key == ZOL_TLS_NO_KEY)
        return ZOL_ERR_TLS_BAD_KEY;
    void *block = RQ_MALLOC(size);
    if (block == nullptr)
        return ZOL_ERR_TLS_NO_MEMORY;
    U32 rc = SIS_ThreadTsdSetValue(*key, block);
    if (rc != 0)
        RQ_FREE(block);
    return rc;
}

RQ_API void *ZOL_TLSGetValue(U32 key) noexcept
{
    void *value = nullptr;
    return SIS_ThreadTsdGetValue(key, &value) == 0 ? value : nullptr;
}

RQ_API U32 ZOL_TLSSetValue(U32 key, void *value) noexcept
{
    return SIS_ThreadTsdSetValue(key, value);
}

RQ_API U32 ZOL_TLSFree(U32 key, U32 freeKey) noexcept
{
    void *value = nullptr;
    U32 rc = SIS_ThreadTsdGetValue(key, &value);
    if (rc != 0)
        return rc;
    SIS_ThreadTsdSetValue(key, nullptr);
    if (value != nullptr)
        RQ_FREE(value);
    if (freeKey != 0)
        return SIS_ThreadTsdFreeKey(&key);
    return 0;
}

}  // extern "C"
