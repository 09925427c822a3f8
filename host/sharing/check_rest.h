// host/sharing/check_rest.h: how long a run rests between two comparisons of its folders with their rows.
#ifndef QUORVANE_HOST_SHARING_CHECK_REST_H_
#define QUORVANE_HOST_SHARING_CHECK_REST_H_

#include <algorithm>
#include <chrono>

namespace quorvane::host {

inline constexpr std::chrono::seconds kShortestRest{3};
inline constexpr std::chrono::seconds kLongestRest{60};
inline constexpr int kTimesOfCheck = 200;

// After one that took so much of a processor's time: two hundred times that, which is half a percent of it,
// but no less and no more than these. What it waited for others on a busy machine doesn't count. One that
// found something is followed by the next soon.
constexpr std::chrono::steady_clock::duration RestAfterCheck(std::chrono::steady_clock::duration took,
                                                             bool isClean)
{
    return isClean ? std::clamp<std::chrono::steady_clock::duration>(kTimesOfCheck * took, kShortestRest,
                                                                     kLongestRest)
                   : kShortestRest;
}

// The same after a look at the mailbox's folders, which somebody may be waiting for.
constexpr std::chrono::steady_clock::duration RestAfterLook(std::chrono::steady_clock::duration took)
{
    return std::clamp<std::chrono::steady_clock::duration>(kTimesOfCheck * took, std::chrono::seconds(1),
                                                           kLongestRest);
}

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_CHECK_REST_H_
