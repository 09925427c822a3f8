#include "host/base/stop_signals.h"

#include <csignal>
#include <ctime>

namespace quorvane::host {

namespace {

sigset_t StopSet()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

}  // namespace

StopSignals::StopSignals()
{
    const sigset_t set = StopSet();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

StopSignals::~StopSignals() = default;

bool StopSignals::Wait(std::chrono::milliseconds time)
{
    const sigset_t set = StopSet();
    const std::timespec limit{static_cast<std::time_t>(time.count() / 1000),
                              static_cast<long>(time.count() % 1000) * 1'000'000};
    stopped_ = stopped_ || sigtimedwait(&set, nullptr, &limit) > 0;
    return stopped_;
}

}  // namespace quorvane::host
