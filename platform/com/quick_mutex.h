// platform/com/quick_mutex.h: a lock for what is held for short times, and mostly by nobody else.
#ifndef QUORVANE_PLATFORM_COM_QUICK_MUTEX_H_
#define QUORVANE_PLATFORM_COM_QUICK_MUTEX_H_

#include <atomic>

#include "platform/com/mutex.h"

namespace quorvane {

// A lock that its holder may not take a second time. Where nobody waits, taking and leaving it is one
// exchange each, without a call of the C library.
class QV_CAPABILITY("mutex") QuickMutex {
public:
    QuickMutex() noexcept = default;
    QuickMutex(const QuickMutex&) = delete;
    QuickMutex& operator=(const QuickMutex&) = delete;

    void Lock() noexcept QV_ACQUIRE()
    {
        int free = kFree;
        if (!state_.compare_exchange_strong(free, kHeld, std::memory_order_acquire,
                                            std::memory_order_relaxed))
            Wait();
    }
    void Unlock() noexcept QV_RELEASE()
    {
        if (state_.exchange(kFree, std::memory_order_release) == kAwaited)
            state_.notify_one();
    }

private:
    static constexpr int kFree = 0;
    static constexpr int kHeld = 1;
    static constexpr int kAwaited = 2;  // and somebody may wait for it

    // Whoever has waited leaves it as awaited: others may wait too.
    void Wait() noexcept
    {
        while (state_.exchange(kAwaited, std::memory_order_acquire) != kFree)
            state_.wait(kAwaited, std::memory_order_relaxed);
    }

    std::atomic<int> state_{kFree};
};

using QuickMutexLock = ScopedLock<QuickMutex>;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_QUICK_MUTEX_H_
