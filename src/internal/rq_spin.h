// A spin lock for the few-instruction critical sections of the allocator and
// the handle table, where an uncontended mutex costs more than the work it
// guards.  A waiter that spins too long yields its processor, so a holder
// that was preempted is not starved.
#ifndef RQ_INTERNAL_SPIN_H
#define RQ_INTERNAL_SPIN_H

#include <sched.h>
#include <atomic>

namespace rq {

class SpinLock {
public:
    void lock() noexcept
    {
        for (unsigned spins = 0;; ++spins) {
            if (!locked_.exchange(true, std::memory_order_acquire))
                return;
            while (locked_.load(std::memory_order_relaxed)) {
                if (++spins > 64) {
                    sched_yield();
                    spins = 0;
                } else {
                    __builtin_ia32_pause();
                }
            }
        }
    }
    void unlock() noexcept { locked_.store(false, std::memory_order_release); }

private:
    std::atomic<bool> locked_{false};
};

class SpinGuard {
public:
    explicit SpinGuard(SpinLock &lock) noexcept : lock_(lock) { lock_.lock(); }
    ~SpinGuard() { lock_.unlock(); }
    SpinGuard(const SpinGuard &) = delete;
    SpinGuard &operator=(const SpinGuard &) = delete;

private:
    SpinLock &lock_;
};

}  // namespace rq

#endif
