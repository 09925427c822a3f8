// platform/event/event.h: manual-reset events, and waits for one, any or all of several.
#ifndef QUORVANE_PLATFORM_EVENT_EVENT_H_
#define QUORVANE_PLATFORM_EVENT_EVENT_H_

#include <chrono>
#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

#include "platform/com/com.h"

namespace quorvane {

// How long a wait may take. Zero only tests.
using Timeout = std::chrono::milliseconds;
inline constexpr Timeout kForever = Timeout::max();

// Whether a waiting apartment answers calls from other threads (and, on Windows, window messages).
enum class WaitMode {
    Plain,           // the thread does nothing else
    KeepQueueAlive,  // it runs what comes in meanwhile; the same as Plain on a thread without a queue, and on
                     // Windows once WM_QUIT came, which is in the queue again after the wait
};

// One manual-reset event, or none. Any thread may call Set, Reset, IsSet and Wait; Create, moving and
// destruction are for one thread while no other uses the object (waiters in the midst of a wait keep
// the event itself alive).
class Event {
public:
    Event() noexcept = default;
    Event(Event&&) noexcept = default;
    Event& operator=(Event&&) noexcept = default;
    ~Event() = default;

    // Makes an event in place of what is held.
    //
    // initiallySet  [in]  its first state; not looked at when the name is known already.
    // name          [in]  empty, or a name under which every Event of the process finds the same event
    //                     (on Windows every process of the session).
    //
    // E_OUTOFMEMORY, or on Windows another failure of the system: nothing is held.
    [[nodiscard]] HRESULT Create(bool initiallySet, std::string_view name = {}) noexcept;
    bool Exists() const noexcept { return state_ != nullptr; }

    // E_HANDLE: there is no event. Setting what is set, or resetting what is reset, changes nothing.
    HRESULT Set() noexcept;
    HRESULT Reset() noexcept;

    // False when there is no event.
    bool IsSet() const noexcept;

    // True when the event was set within the time. False when it wasn't, or there is no event.
    bool Wait(Timeout timeout = kForever, WaitMode mode = WaitMode::Plain) const noexcept;

private:
    friend struct EventAccess;
    struct State;
    std::shared_ptr<State> state_;
};

// Waits until one of the events is set.
//
// events   [in]   at least one; none null; each exists. On Windows at most 64, or 63 with KeepQueueAlive.
// timeout  [in]   kForever for no limit.
// index    [out]  the lowest place of a set event; untouched otherwise. May be null.
//
// S_OK: one is set. S_FALSE: the time is up. E_INVALIDARG: `events` is not as told. E_OUTOFMEMORY.
[[nodiscard]] HRESULT WaitAny(std::span<const Event* const> events, Timeout timeout, size_t* index = nullptr,
                              WaitMode mode = WaitMode::Plain) noexcept;

// Waits until all of the events are set at the same time. As WaitAny.
[[nodiscard]] HRESULT WaitAll(std::span<const Event* const> events, Timeout timeout,
                              WaitMode mode = WaitMode::Plain) noexcept;

// Passes the time, in microseconds, and keeps the thread's queue alive meanwhile.
void PumpingWait(ULONG microseconds) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_EVENT_EVENT_H_
