// persist/debug_timer.h: how long something took, for the log of a debug build.
#ifndef QUORVANE_ENGINE_PERSIST_DEBUG_TIMER_H_
#define QUORVANE_ENGINE_PERSIST_DEBUG_TIMER_H_

#include <chrono>

namespace quorvane {

#ifdef NDEBUG
inline constexpr bool kDebugBuild = false;
#else
inline constexpr bool kDebugBuild = true;
#endif

// Runs from its making on.
class DebugTimer {
public:
    int Milliseconds() const noexcept
    {
        const auto elapsed = std::chrono::steady_clock::now() - start_;
        return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
    }

private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_DEBUG_TIMER_H_
