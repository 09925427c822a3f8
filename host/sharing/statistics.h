// host/sharing/statistics.h: what a run counts.
#ifndef QUORVANE_HOST_SHARING_STATISTICS_H_
#define QUORVANE_HOST_SHARING_STATISTICS_H_

#include <atomic>
#include <chrono>
#include <cstdint>

namespace quorvane::host {

struct Statistics {
    std::atomic<std::uint64_t> itemsSent{0};
    std::atomic<std::uint64_t> deletionsSent{0};
    std::atomic<std::uint64_t> itemsApplied{0};
    std::atomic<std::uint64_t> deletionsApplied{0};
    std::atomic<std::uint64_t> itemsIgnored{0};  // received in a version that is older than what is here
    std::atomic<std::uint64_t> flagsSent{0};     // items whose flags were sent, where members share them
    std::atomic<std::uint64_t> flagsTaken{0};    // items of whose flags something new was heard
    std::atomic<std::uint64_t> packagesSent{0};
    std::atomic<std::uint64_t> packagesReceived{0};
    std::atomic<std::uint64_t> packagesRejected{0};
    std::atomic<std::uint64_t> echoes{0};  // changes reported that were another member's, applied here
    // When anything was last reported or done, in ticks of the steady clock.
    std::atomic<std::chrono::steady_clock::rep> lastActivity{0};

    void Touch() noexcept { lastActivity = std::chrono::steady_clock::now().time_since_epoch().count(); }
    std::chrono::milliseconds Quiet() const noexcept
    {
        const std::chrono::steady_clock::time_point last{
            std::chrono::steady_clock::duration(lastActivity.load())};
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - last);
    }
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_STATISTICS_H_
