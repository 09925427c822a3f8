#include "host/base/progress.h"

#include <cstdio>

#include "host/base/output.h"
#include "host/base/terminal.h"

namespace quorvane::host {

Progress::Progress(std::string what) : what_(std::move(what)), terminal_(HasTerminal()) {}

Progress::~Progress()
{
    if (shown_)
        std::fputs("\r\033[K", stderr);
}

void Progress::Show(unsigned long long done, unsigned long long total, const std::string& text)
{
    const auto now = std::chrono::steady_clock::now();
    if (!terminal_ || now < next_)
        return;
    next_ = now + std::chrono::milliseconds(100);
    shown_ = true;
    if (total > 0)
        std::fprintf(stderr, "\r\033[K%s: %3llu %%  %s", what_.c_str(), done * 100 / total,
                     Printable(text).c_str());
    else
        std::fprintf(stderr, "\r\033[K%s: %s", what_.c_str(), Printable(text).c_str());
    std::fflush(stderr);
}

}  // namespace quorvane::host
