// Critical sections: a POSIX mutex built in place inside the caller's record.

#include "rqsis/rqsis.h"

#include <pthread.h>

static_assert(sizeof(pthread_mutex_t) <= sizeof(SIS_CRITICAL_SECTION), "mutex does not fit");
static_assert(alignof(pthread_mutex_t) <= alignof(SIS_CRITICAL_SECTION), "mutex alignment");

namespace {

pthread_mutex_t *mutexOf(SIS_CRITICAL_SECTION *section) noexcept
{
    return reinterpret_cast<pthread_mutex_t *>(section->u.bytes);
}

}  // namespace

extern "C" {

SIS_STATUS SIS_SyncCriticalSectionInit(SIS_CRITICAL_SECTION *section) noexcept
{
    if (section == nullptr)
        return 1;
    return pthread_mutex_init(mutexOf(section), nullptr) == 0 ? 0 : 1;
}

SIS_STATUS SIS_SyncCriticalSectionEnter(SIS_CRITICAL_SECTION *section) noexcept
{
    if (section == nullptr)
        return 1;
    return pthread_mutex_lock(mutexOf(section)) == 0 ? 0 : 1;
}

SIS_STATUS SIS_SyncCriticalSectionLeave(SIS_CRITICAL_SECTION *section) noexcept
{
    if (section == nullptr)
        return 1;
    return pthread_mutex_unlock(mutexOf(section)) == 0 ? 0 : 1;
}

SIS_STATUS SIS_SyncCriticalSectionUnInit(SIS_CRITICAL_SECTION *section) noexcept
{
    if (section == nullptr)
        return 1;
    return pthread_mutex_destroy(mutexOf(section)) == 0 ? 0 : 1;
}

}  // extern "C"
