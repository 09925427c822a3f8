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

// The watcher's, once a signal came. `lock`: of mutex_.
void StopSignals::EndWhenOverdue(std::unique_lock<std::mutex> lock)
{
    const auto asked = std::chrono::steady_clock::now();
    while (!isEnding_) {
        if (!last_) {
            changed_.wait(lock);
        } else if (std::chrono::steady_clock::now() < asked + limit_) {
            changed_.wait_until(lock, asked + limit_);
        } else {
            last_();
            std::_Exit(0);
        }
    }
}

}  // namespace quorvane::host
