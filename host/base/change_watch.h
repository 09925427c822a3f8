// host/base/change_watch.h: waits until something happens in directories.
#ifndef QUORVANE_HOST_BASE_CHANGE_WATCH_H_
#define QUORVANE_HOST_BASE_CHANGE_WATCH_H_

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>

#include "host/base/stop_signals.h"

namespace quorvane::host {

// For one thread. A place may tell nothing of what others do there (a share of another machine's): who waits
// looks there once in a while all the same.
class ChangeWatch {
public:
    enum class Woken { kStop, kChange, kOther, kTime };

    // Without the system's help nothing is ever told.
    ChangeWatch();
    ChangeWatch(const ChangeWatch&) = delete;
    ChangeWatch& operator=(const ChangeWatch&) = delete;
    ~ChangeWatch();

    // From now on it is told what is made, written, renamed and removed in a directory; on Windows below it
    // too. One that isn't there is passed over. Called again, it watches what has taken the place of the one
    // before.
    void Watch(const std::filesystem::path& directory);
    // Wait waits for that besides: a descriptor that can be read, or on Windows something that is signalled.
    // -1 is nothing. What came there is the caller's to take.
    void AlsoWaitFor(std::intptr_t other) noexcept { other_ = other; }
    // What happened so far isn't told any more.
    void Forget();
    // No directory is watched any more, which costs those who write there.
    void End();
    // Waits until something happens, there or in the directories, a signal comes, or the time is over.
    Woken Wait(const StopSignals& signals, std::chrono::milliseconds time);

private:
    std::intptr_t other_ = -1;
    std::intptr_t queue_ = -1;                                // not on Windows
    std::map<std::filesystem::path, std::intptr_t> watched_;  // on Windows
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_CHANGE_WATCH_H_
