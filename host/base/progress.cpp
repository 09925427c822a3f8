#include "host/base/progress.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "host/base/output.h"
#include "host/base/terminal.h"

namespace quorvane::host {

namespace {

// "12 s", "3 min", "2 h": more is never known.
std::string TimeLeft(std::int64_t seconds)
{
    constexpr std::int64_t kMinute = 60, kHour = 3600;
    if (seconds < 2 * kMinute)
        return std::to_string(seconds) + " s";
    if (seconds < 2 * kHour)
        return std::to_string((seconds + kMinute - 1) / kMinute) + " min";
    return std::to_string((seconds + kHour - 1) / kHour) + " h";
}

std::string RateText(double perSecond, Progress::Unit unit)
{
    constexpr double kMegabyte = 1e6;
    if (unit == Progress::Unit::kItems)
        return std::to_string(static_cast<std::int64_t>(perSecond)) + " a second";
    const auto tenths = static_cast<std::int64_t>(perSecond / kMegabyte * 10);
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " MB/s";
}

// The last line of standard error, which is told on and shown by several.
class LastLine {
public:
    // line: without an end.
    void Show(const std::string& line)
    {
        const std::lock_guard lock(mutex_);
        std::fprintf(stderr, "\r\033[K%s", line.c_str());
        std::fflush(stderr);
        isShown_ = true;
    }
    // text: whole lines.
    void Tell(const std::string& text)
    {
        const std::lock_guard lock(mutex_);
        Wipe();
        std::fputs(text.c_str(), stderr);
    }
    void Clear()
    {
        const std::lock_guard lock(mutex_);
        Wipe();
    }

private:
    void Wipe()
    {
        if (isShown_)
            std::fputs("\r\033[K", stderr);
        isShown_ = false;
    }

    std::mutex mutex_;
    bool isShown_ = false;  // what is to be wiped
};

LastLine& TheLastLine()
{
    static LastLine line;
    return line;
}

}  // namespace

void Tell(const std::string& line)
{
    constexpr std::size_t kIndent = 2;  // of what doesn't fit into the first line
    TheLastLine().Tell(Folded(Printable(line), ErrorWidth(), kIndent) + "\n");
}

void WipeProgress()
{
    TheLastLine().Clear();
}

Progress::Progress(std::string what, Unit unit)
    : what_(std::move(what)), unit_(unit), isOnTerminal_(ErrorWidth() > 0)
{}

Progress::~Progress()
{
    WipeProgress();
}

std::string Progress::Line(const std::string& what, Unit unit, unsigned long long done,
                           unsigned long long total, const std::string& text, const RateMeter& rate)
{
    if (total == 0)
        return what + ": " + text;
    const std::string share = std::to_string(std::min(done, total) * 100 / total);
    std::string line = what + ": " + std::string(3 - share.size(), ' ') + share + " %  " + text;
    const std::int64_t left = rate.SecondsLeft(static_cast<std::int64_t>(total));
    return left < 0 ? line : line + ", " + RateText(rate.PerSecond(), unit) + ", " + TimeLeft(left) + " left";
}

void Progress::Show(unsigned long long done, unsigned long long total, const std::string& text)
{
    if (!isOnTerminal_)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (total != total_ || done < done_)
        rate_.Reset();
    done_ = done;
    total_ = total;
    rate_.Note(static_cast<std::int64_t>(done), now);
    if (now < next_)
        return;
    next_ = now + std::chrono::milliseconds(100);
    // In the last column the cursor would go to the next line, which nobody wipes.
    TheLastLine().Show(Shortened(Printable(Line(what_, unit_, done, total, text, rate_)),
                                 std::max(ErrorWidth(), std::size_t{2}) - 1));
}

}  // namespace quorvane::host
