// host/base/stop_signals.h: how a run is told from outside to come to its end.
#ifndef QUORVANE_HOST_BASE_STOP_SIGNALS_H_
#define QUORVANE_HOST_BASE_STOP_SIGNALS_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

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

    // Whether a signal came. Any thread.
    bool IsAsked() const noexcept;
    // Waits for at most `time`. True once a signal came. Any thread.
    bool Wait(std::chrono::milliseconds time) const noexcept;

    // Whatever is under way: so long after a signal `last` is called, on another thread, and the process ends
    // with exit code 0, without undoing anything.
    void EndWithin(std::chrono::milliseconds time, std::function<void()> last);
    // Takes that back. Doesn't return once `last` is called.
    void EndInOrder();

    // What a system call may wait for besides: a descriptor that can be read, or on Windows an event that is
    // set, once a signal came.
    std::intptr_t Handle() const noexcept { return asked_; }

private:
    void Watch();
    void EndWhenOverdue(std::unique_lock<std::mutex> lock);

    std::intptr_t asked_ = -1;
    std::intptr_t ended_ = -1;    // tells the watcher that the object goes
    std::intptr_t signals_ = -1;  // what the signals are read from; not on Windows
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isEnding_ = false;  // the object goes
    std::chrono::milliseconds limit_{};
    std::function<void()> last_;
    std::thread watcher_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_STOP_SIGNALS_H_
