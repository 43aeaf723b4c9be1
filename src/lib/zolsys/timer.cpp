// Stopwatch timers over times(): wall-clock ticks and the process's own CPU
// time, with the one-line start and stop reports that callers print.

#define RQ_SOURCE_TAG "src/lib/core/lib/zolsys/timer"
#include "internal/rq_mem.h"
#include "rqcore/sys.h"

#include <sys/times.h>
#include <unistd.h>

static_assert(sizeof(ZOL_TIMER) == 40, "the timer record is the same on every platform");

namespace rq::zolsys {
namespace {

// Tick counts are kept in 32 bits; differences stay right across a wrap.
void sample(U32 &ticks, ZOL_PROCTIMES &times)
{
    struct tms t{};
    ticks = static_cast<U32>(::times(&t));
    times.user = static_cast<U32>(t.tms_utime);
    times.system = static_cast<U32>(t.tms_stime);
    times.childUser = static_cast<U32>(t.tms_cutime);
    times.childSystem = static_cast<U32>(t.tms_cstime);
}

}  // namespace
}  // namespace rq::zolsys

extern "C" {

RQ_API void ZOL_TimerStart(ZOL_TIMER *timer) noexcept
{
    if (timer != nullptr)
        rq::zolsys::sample(timer->startTicks, timer->start);
}

RQ_API void ZOL_TimerStop(ZOL_TIMER *timer) noexcept
{
    if (timer != nullptr)
        rq::zolsys::sample(timer->stopTicks, timer->stop);
}

RQ_API void ZOL_TimerDataGet(const ZOL_TIMER *timer, double *real, double *cpu) noexcept
{
    double r = 0.0;
    double c = 0.0;
    long rate = ::sysconf(_SC_CLK_TCK);
    if (timer != nullptr && rate > 0) {
        const double perTick = 1.0 / static_cast<double>(rate);
        r = static_cast<U32>(timer->stopTicks - timer->startTicks) * perTick;
        // Children's times are left out: the timer measures this process.
        U32 used = static_cast<U32>(timer->stop.user - timer->start.user) +
                   static_cast<U32>(timer->stop.system - timer->start.system);
        c = used * perTick;
    }
    if (real != nullptr)
        *real = r;
    if (cpu != nullptr)
        *cpu = c;
}

RQ_API void ZOL_BeginTimerCall(char *buffer, U32 size, const char *name, ZOL_TIMER *timer) noexcept
{
    (void)size;  // callers rely on the start line ignoring size: they size for the name
    ZOL_TimerStart(timer);
    if (buffer != nullptr)
        std::sprintf(buffer, "Start %s", name != nullptr ? name : "a Timer");
}

RQ_API void ZOL_StopTimerCall(char *buffer, U16 size, const char *name, ZOL_TIMER *timer) noexcept
{
    ZOL_TimerStop(timer);
    double real = 0.0;
    double cpu = 0.0;
    ZOL_TimerDataGet(timer, &real, &cpu);
    // 48 columns are the rest of the line; a smaller buffer gets nothing.
    if (buffer == nullptr || size < 49)
        return;
    std::snprintf(buffer, size, "Stop  %*s:    %07.03f (real) %08.05f (cpu)", static_cast<int>(size - 48),
                  name != nullptr ? name : "", real, cpu);
}

}  // extern "C"
