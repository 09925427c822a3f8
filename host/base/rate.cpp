#include "host/base/rate.h"

#include <cmath>

namespace quorvane::host {

namespace {

constexpr auto kSpan = std::chrono::seconds(5);
constexpr auto kStep = std::chrono::milliseconds(200);

}  // namespace

void RateMeter::Note(std::int64_t done, Time now)
{
    // The newest sample moves with the time until it stands for a step of its own.
    if (samples_.size() > 1 && now - samples_[samples_.size() - 2].time < kStep)
        samples_.pop_back();
    samples_.push_back({now, done});
    while (samples_.size() > 2 && now - samples_[1].time >= kSpan)
        samples_.pop_front();
}

double RateMeter::PerSecond() const
{
    if (samples_.size() < 2)
        return 0;
    const std::chrono::duration<double> time = samples_.back().time - samples_.front().time;
    return time.count() > 0 ? static_cast<double>(samples_.back().done - samples_.front().done) / time.count()
                            : 0;
}

std::int64_t RateMeter::SecondsLeft(std::int64_t total) const
{
    const double rate = PerSecond();
    if (rate <= 0)
        return -1;
    return static_cast<std::int64_t>(std::ceil(static_cast<double>(total - samples_.back().done) / rate));
}

}  // namespace quorvane::host
