#include "msgstore/store/deadline_thread.h"

namespace quorvane {

DeadlineThread::~DeadlineThread()
{
    {
        const MutexLock lock(lock_);
        isEnding_ = true;
    }
    changed_.NotifyOne();
    thread_.join();
}

void DeadlineThread::Set(std::optional<Time> when) noexcept
{
    {
        const MutexLock lock(lock_);
        when_ = when;
    }
    // Where it is called off the thread sleeps to the former time, and finds nothing to do.
    if (when)
        changed_.NotifyOne();
}

void DeadlineThread::Run() noexcept
{
    MutexLock lock(lock_);
    while (!isEnding_) {
        if (!when_) {
            changed_.Wait(lock_);
        } else if (ConditionVariable::Clock::now() < *when_) {
            changed_.WaitUntil(lock_, *when_);
        } else {
            when_.reset();
            lock.Unlock();
            work_();
            lock.Lock();
        }
    }
}

}  // namespace quorvane
