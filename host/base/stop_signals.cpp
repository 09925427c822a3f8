#include "host/base/stop_signals.h"

#include <cstdlib>

namespace quorvane::host {

bool StopSignals::IsAsked() const noexcept
{
    return Wait(std::chrono::milliseconds(0));
}

void StopSignals::EndWithin(std::chrono::milliseconds time, std::function<void()> last)
{
    const std::lock_guard lock(mutex_);
    limit_ = time;
    last_ = std::move(last);
    changed_.notify_all();
}

void StopSignals::EndInOrder()
{
    EndWithin({}, {});
}

// The watcher's, once a signal came.
void StopSignals::EndWhenOverdue()
{
    const auto asked = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    while (!isEnding_) {
        if (!last_) {
            changed_.wait(lock);
            continue;
        }
        if (changed_.wait_until(lock, asked + limit_) == std::cv_status::timeout && last_ && !isEnding_) {
            last_();
            std::_Exit(0);
        }
    }
}

}  // namespace quorvane::host
