// host/base/progress.h: live progress of long work, on a terminal.
#ifndef QUORVANE_HOST_BASE_PROGRESS_H_
#define QUORVANE_HOST_BASE_PROGRESS_H_

#include <chrono>
#include <string>

#include "host/base/rate.h"

namespace quorvane::host {

// Tells a person something: lines on standard error, folded where that is a terminal, which a progress that
// is shown there gives way to. For any thread.
void Tell(const std::string& line);
// Wipes a progress that is shown, before something else is printed there. For any thread.
void WipeProgress();

// One line on standard error that is written over as the work goes on, no longer than the terminal is wide;
// nothing where standard error is no terminal. For one thread.
class Progress {
public:
    // What its work is counted in.
    enum class Unit { kItems, kBytes };

    // what: the work, as in "importing".
    explicit Progress(std::string what, Unit unit = Unit::kItems);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Wipes the line.
    ~Progress();

    // Shows "what: text" and, for a total above zero, the share that is done, how fast it goes on, and how
    // long it will still take. Writes at most ten times a second. Where the total changes, or less is done
    // than before, another piece of work has begun.
    void Show(unsigned long long done, unsigned long long total, const std::string& text);

    // The line that is shown for work that is counted by `rate`.
    static std::string Line(const std::string& what, Unit unit, unsigned long long done,
                            unsigned long long total, const std::string& text, const RateMeter& rate);

private:
    std::string what_;
    const Unit unit_;
    const bool isOnTerminal_;
    RateMeter rate_;
    unsigned long long done_ = 0;
    unsigned long long total_ = 0;
    std::chrono::steady_clock::time_point next_{};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_PROGRESS_H_
