// host/base/stop_signals.h: how a run is told from outside to come to its end.
#ifndef QUORVANE_HOST_BASE_STOP_SIGNALS_H_
#define QUORVANE_HOST_BASE_STOP_SIGNALS_H_

#include <chrono>

namespace quorvane::host {

// What asks the process to end: SIGINT and SIGTERM; on Windows the console's Ctrl-C and Ctrl-Break, its
// window being closed, and the end of the user's session. They are kept from ending the process and asked for
// instead. One at a time, made before any thread.
class StopSignals {
public:
    // Throws a HostError.
    StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    // On Windows the system then ends the process, if it wanted to.
    ~StopSignals();

    // Waits for at most `time`. True once a signal came.
    bool Wait(std::chrono::milliseconds time);

private:
    bool stopped_ = false;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_STOP_SIGNALS_H_
