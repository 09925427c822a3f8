// host/base/progress.h: live progress of long work, on a terminal.
#ifndef QUORVANE_HOST_BASE_PROGRESS_H_
#define QUORVANE_HOST_BASE_PROGRESS_H_

#include <chrono>
#include <string>

namespace quorvane::host {

// One line on standard error that is written over as the work goes on; nothing where standard error is no
// terminal. For one thread.
class Progress {
public:
    // what: the work, as in "importing".
    explicit Progress(std::string what);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Wipes the line.
    ~Progress();

    // Shows "what: text" and, for a total above zero, the share that is done. Writes at most ten times a
    // second.
    void Show(unsigned long long done, unsigned long long total, const std::string& text);

private:
    std::string what_;
    bool terminal_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point next_{};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_PROGRESS_H_
