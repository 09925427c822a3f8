#include <systemd/sd-daemon.h>

#include <cstdint>
#include <cstdlib>

#include "host/service/service_manager.h"

namespace quorvane::host {

ServiceManager::ServiceManager()
{
    const char* const socket = std::getenv("NOTIFY_SOCKET");
    isThere_ = socket && *socket;
    std::uint64_t watchdog = 0;
    if (isThere_ && sd_watchdog_enabled(0, &watchdog) > 0)
        watchdog_ = std::chrono::microseconds(watchdog);
}

void ServiceManager::Tell(const std::string& state) const
{
    sd_notify(0, state.c_str());
}

}  // namespace quorvane::host
