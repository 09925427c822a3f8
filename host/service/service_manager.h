// host/service/service_manager.h: what has started the program as a service, and wants to be told how it is.
//
// Off Windows that is systemd, or whatever else names a socket in NOTIFY_SOCKET (sd_notify(3)). Without it,
// and on Windows, nothing is ever told and no call costs anything.
#ifndef QUORVANE_HOST_SERVICE_SERVICE_MANAGER_H_
#define QUORVANE_HOST_SERVICE_SERVICE_MANAGER_H_

#include <chrono>
#include <string>

namespace quorvane::host {

// For one thread. What can't be told as nobody is there any more is lost, and no reason to end. One that is
// there and takes in nothing, so that its socket is full, holds up whoever tells it something.
class ServiceManager {
public:
    // Takes NOTIFY_SOCKET, and WATCHDOG_USEC where it is meant for this process, as they are.
    ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // Whether anybody listens.
    bool IsThere() const noexcept { return isThere_; }
    // How long may pass from one Pulse to the next, with some to spare; a day where nobody wants them.
    std::chrono::milliseconds PulseInterval() const noexcept;

    // The service does its work: READY=1. Once; more calls tell nothing.
    void TellReady();
    // What it does, in one line: STATUS=. Tells it where it is another one than before, at most once a
    // second.
    void TellStatus(const std::string& line);
    // It does go on: WATCHDOG=1, where that is wanted, and no more often than needed.
    void Pulse();
    // It comes to its end: STOPPING=1. Once.
    void TellStopping();

private:
    using Clock = std::chrono::steady_clock;

    void Tell(const std::string& state) const;

    bool isThere_ = false;
    std::chrono::microseconds watchdog_{};  // 0: nobody wants pulses
    bool isReady_ = false;
    bool isStopping_ = false;
    std::string status_;
    Clock::time_point nextStatus_{};
    Clock::time_point nextPulse_{};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SERVICE_SERVICE_MANAGER_H_
