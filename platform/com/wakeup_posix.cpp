#include "platform/com/wakeup.h"

namespace quorvane {

std::shared_ptr<Wakeup> Wakeup::OfThisThread()
{
    thread_local const auto wakeup = std::make_shared<Wakeup>();
    return wakeup;
}

void Wakeup::Signal() noexcept
{
    const MutexLock lock(mutex_);
    signalled_ = true;
    changed_.NotifyOne();
}

bool Wakeup::SleepUntil(Clock::time_point deadline) noexcept
{
    const MutexLock lock(mutex_);
    while (!signalled_) {
        // Without a limit, as some libraries overflow when they convert the last moment of a clock.
        if (deadline == Clock::time_point::max())
            changed_.Wait(mutex_);
        else if (!changed_.WaitUntil(mutex_, deadline) && !signalled_)
            return false;
    }
    signalled_ = false;
    return true;
}

}  // namespace quorvane
