// host/sharing/run_observer.h: who wants to know that a run goes on.
#ifndef QUORVANE_HOST_SHARING_RUN_OBSERVER_H_
#define QUORVANE_HOST_SHARING_RUN_OBSERVER_H_

#include <chrono>
#include <string>

namespace quorvane::host {

// Called on the run's thread, and never amid something that may hang.
class RunObserver {
public:
    RunObserver() = default;
    RunObserver(const RunObserver&) = delete;
    RunObserver& operator=(const RunObserver&) = delete;
    virtual ~RunObserver() = default;

    // It has looked at all there is to do, and done what it could. state: what it did so far and does, in one
    // line.
    virtual void HasTurned(const std::string& state) = 0;
    // A piece of work that takes longer goes on: an item of a folder was looked at.
    virtual void GoesOn() = 0;
    // It turns no more, and brings what is under way to its end.
    virtual void IsEnding() = 0;
    // How long it may rest between two turns while there is nothing to do.
    virtual std::chrono::milliseconds LongestRest() const = 0;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RUN_OBSERVER_H_
