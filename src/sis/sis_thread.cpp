// Start and end of the layer, thread-specific data and identities.

#include "rqsis/rqsis.h"
#include "rqsis/rqsis_test.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <atomic>

namespace {

std::atomic<uint32_t> gInitDepth{0};

}  // namespace

extern "C" {

SIS_STATUS SIS_InitBegin(void *) noexcept
{
    gInitDepth.fetch_add(1);
    return 0;
}

SIS_STATUS SIS_InitEnd(void *) noexcept
{
    uint32_t depth = gInitDepth.load();
    while (depth != 0 && !gInitDepth.compare_exchange_weak(depth, depth - 1)) {
    }
    return depth != 0 ? 0 : 1;
}

uint32_t SIS_TestInitDepth(void) noexcept
{
    return gInitDepth.load();
}

SIS_STATUS SIS_ThreadTsdAllocKey(SIS_TSD_KEY *key, void (*destructor)(void *)) noexcept
{
    if (key == nullptr)
        return 1;
    pthread_key_t k;
    if (pthread_key_create(&k, destructor) != 0)
        return 1;
    *key = static_cast<SIS_TSD_KEY>(k);
    return 0;
}

SIS_STATUS SIS_ThreadTsdSetValue(SIS_TSD_KEY key, void *value) noexcept
{
    return pthread_setspecific(static_cast<pthread_key_t>(key), value) == 0 ? 0 : 1;
}

SIS_STATUS SIS_ThreadTsdGetValue(SIS_TSD_KEY key, void **value) noexcept
{
    if (value == nullptr || key == 0xFFFFFFFFu)
        return 1;
    void *v = pthread_getspecific(static_cast<pthread_key_t>(key));
    if (v == nullptr)
        return 1;
    *value = v;
    return 0;
}

SIS_STATUS SIS_ThreadTsdFreeKey(SIS_TSD_KEY *key) noexcept
{
    if (key == nullptr || *key == 0xFFFFFFFFu)
        return 1;
    int rc = pthread_key_delete(static_cast<pthread_key_t>(*key));
    *key = 0xFFFFFFFFu;
    return rc == 0 ? 0 : 1;
}

SIS_STATUS SIS_ThreadIdGet(uint32_t *id) noexcept
{
    if (id == nullptr)
        return 1;
    *id = static_cast<uint32_t>(syscall(SYS_gettid));
    return 0;
}

SIS_STATUS SIS_ProcessIdGet(uint32_t *id) noexcept
{
    if (id == nullptr)
        return 1;
    *id = static_cast<uint32_t>(getpid());
    return 0;
}

SIS_STATUS SIS_ProcessRealIdGet(uint32_t *id) noexcept
{
    if (id == nullptr)
        return 1;
    *id = static_cast<uint32_t>(getpid());
    return 0;
}

}  // extern "C"
