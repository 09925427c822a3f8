// host/base/rate.h: how fast work goes on of late, and how long it will still take.
#ifndef QUORVANE_HOST_BASE_RATE_H_
#define QUORVANE_HOST_BASE_RATE_H_

#include <chrono>
#include <cstdint>
#include <deque>

namespace quorvane::host {

// For one thread.
class RateMeter {
public:
    using Time = std::chrono::steady_clock::time_point;

    // Forgets what was noted before.
    void Reset() { samples_.clear(); }
    // So much was done at that time; neither goes back.
    void Note(std::int64_t done, Time now);

    // Over the last few seconds; 0 while nothing is known.
    double PerSecond() const;
    // Until `total` is done; -1 while nothing is known.
    std::int64_t SecondsLeft(std::int64_t total) const;

private:
    struct Sample {
        Time time;
        std::int64_t done;
    };
    std::deque<Sample> samples_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_RATE_H_
