// platform/com/semaphore.h: how many may do something at a time.
//
// The library's own counting semaphore loses wake-ups where it can't rest on the kernel (GCC 12 on Windows).
#ifndef QUORVANE_PLATFORM_COM_SEMAPHORE_H_
#define QUORVANE_PLATFORM_COM_SEMAPHORE_H_

#include <cstddef>

#include "platform/com/mutex.h"

namespace quorvane {

// Any thread may call; who releases need not be who acquired.
class Semaphore {
public:
    explicit Semaphore(std::size_t count) noexcept : free_(count) {}
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // Waits without limit for a free place, and takes it.
    void Acquire()
    {
        const MutexLock lock(mutex_);
        while (free_ == 0)
            changed_.Wait(mutex_);
        --free_;
    }
    void Release()
    {
        const MutexLock lock(mutex_);
        ++free_;
        changed_.NotifyOne();
    }

private:
    Mutex mutex_;
    ConditionVariable changed_;
    std::size_t free_ QV_GUARDED_BY(mutex_);
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_SEMAPHORE_H_
