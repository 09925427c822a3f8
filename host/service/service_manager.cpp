#include "host/service/service_manager.h"

#include "host/base/output.h"

namespace quorvane::host {

namespace {

constexpr std::chrono::milliseconds kNobodyWaits = std::chrono::hours(24);
constexpr auto kBetweenStatuses = std::chrono::seconds(1);

}  // namespace

// A third: one that comes a little late, and is followed by the next, is still in time.
std::chrono::milliseconds ServiceManager::PulseInterval() const noexcept
{
    return watchdog_.count() == 0 ? kNobodyWaits
                                  : std::chrono::duration_cast<std::chrono::milliseconds>(watchdog_ / 3);
}

void ServiceManager::TellReady()
{
    if (!isThere_ || isReady_)
        return;
    isReady_ = true;
    Tell("READY=1");
}

void ServiceManager::TellStatus(const std::string& line)
{
    const auto now = Clock::now();
    if (!isThere_ || line == status_ || now < nextStatus_)
        return;
    status_ = line;
    nextStatus_ = now + kBetweenStatuses;
    Tell("STATUS=" + Printable(line));
}

void ServiceManager::Pulse()
{
    const auto now = Clock::now();
    if (watchdog_.count() == 0 || now < nextPulse_)
        return;
    nextPulse_ = now + PulseInterval() / 2;
    Tell("WATCHDOG=1");
}

void ServiceManager::TellStopping()
{
    if (!isThere_ || isStopping_)
        return;
    isStopping_ = true;
    Tell("STOPPING=1");
}

}  // namespace quorvane::host
