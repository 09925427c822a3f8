#include "platform/event/event.h"

#include <algorithm>
#include <new>
#include <string>

#include "platform/com/message_pump_win.h"

namespace quorvane {

struct Event::State {
    HANDLE handle = nullptr;

    State() noexcept = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State()
    {
        if (handle)
            CloseHandle(handle);
    }
};

struct EventAccess {
    static HANDLE HandleOf(const Event& event) noexcept
    {
        return event.state_ ? event.state_->handle : nullptr;
    }
};

namespace {

// The moment at which a wait of some milliseconds ends.
class Deadline {
public:
    explicit Deadline(Timeout timeout) noexcept : forever_(timeout.count() >= INFINITE)
    {
        end_ = GetTickCount64() +
               static_cast<ULONGLONG>(std::max<Timeout::rep>(forever_ ? 0 : timeout.count(), 0));
    }

    DWORD Left() const noexcept
    {
        if (forever_)
            return INFINITE;
        const ULONGLONG now = GetTickCount64();
        return now >= end_ ? 0 : static_cast<DWORD>(end_ - now);
    }

private:
    bool forever_;
    ULONGLONG end_ = 0;
};

// WaitForMultipleObjects, with the thread's messages dispatched while it waits, up to the end of the program.
DWORD WaitAndPump(DWORD count, const HANDLE* handles, bool all, const Deadline& deadline) noexcept
{
    MessagePump pump;
    for (;;) {
        if (pump.SawQuit())
            return WaitForMultipleObjects(count, handles, all, deadline.Left());
        // "All" together with input would wait for input too, so both are looked at in turns.
        DWORD result = WaitForMultipleObjects(count, handles, all, 0);
        if (result != WAIT_TIMEOUT)
            return result;
        constexpr DWORD kTurn = 10;
        const DWORD left = deadline.Left();
        if (left == 0)
            return WAIT_TIMEOUT;
        result =
            MsgWaitForMultipleObjectsEx(all ? 0 : count, all ? nullptr : handles,
                                        all ? std::min(left, kTurn) : left, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
        if (result == WAIT_FAILED)
            return result;
        pump.Run();
    }
}

HRESULT WaitFor(std::span<const Event* const> events, bool all, Timeout timeout, size_t* index,
                WaitMode mode) noexcept
{
    const bool pumps = mode == WaitMode::KeepQueueAlive;
    HANDLE handles[MAXIMUM_WAIT_OBJECTS];
    if (events.empty() || events.size() > MAXIMUM_WAIT_OBJECTS - (pumps ? 1u : 0u))
        return E_INVALIDARG;
    for (size_t i = 0; i < events.size(); ++i) {
        handles[i] = events[i] ? EventAccess::HandleOf(*events[i]) : nullptr;
        if (!handles[i])
            return E_INVALIDARG;
    }
    const Deadline deadline(timeout);
    const auto count = static_cast<DWORD>(events.size());
    const DWORD result = pumps ? WaitAndPump(count, handles, all, deadline)
                               : WaitForMultipleObjects(count, handles, all, deadline.Left());
    if (result == WAIT_TIMEOUT)
        return S_FALSE;
    if (result >= WAIT_OBJECT_0 + count)
        return HRESULT_FROM_WIN32(GetLastError());
    if (index)
        *index = result - WAIT_OBJECT_0;
    return S_OK;
}

}  // namespace

HRESULT Event::Create(bool initiallySet, std::string_view name) noexcept
{
    state_.reset();
    try {
        auto made = std::make_shared<State>();
        const std::string text(name);
        made->handle = CreateEventA(nullptr, TRUE, initiallySet, text.empty() ? nullptr : text.c_str());
        if (!made->handle)
            return HRESULT_FROM_WIN32(GetLastError());
        state_ = std::move(made);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Event::Set() noexcept
{
    if (!state_)
        return E_HANDLE;
    return SetEvent(state_->handle) ? S_OK : HRESULT_FROM_WIN32(GetLastError());
}

HRESULT Event::Reset() noexcept
{
    if (!state_)
        return E_HANDLE;
    return ResetEvent(state_->handle) ? S_OK : HRESULT_FROM_WIN32(GetLastError());
}

bool Event::IsSet() const noexcept
{
    return state_ && WaitForSingleObject(state_->handle, 0) == WAIT_OBJECT_0;
}

bool Event::Wait(Timeout timeout, WaitMode mode) const noexcept
{
    const Event* const self = this;
    return WaitAny(std::span(&self, 1), timeout, nullptr, mode) == S_OK;
}

HRESULT WaitAny(std::span<const Event* const> events, Timeout timeout, size_t* index, WaitMode mode) noexcept
{
    return WaitFor(events, false, timeout, index, mode);
}

HRESULT WaitAll(std::span<const Event* const> events, Timeout timeout, WaitMode mode) noexcept
{
    return WaitFor(events, true, timeout, nullptr, mode);
}

void PumpingWait(ULONG microseconds) noexcept
{
    constexpr LONGLONG kTicksPerMicrosecond = 10;
    HANDLE const timer = CreateWaitableTimerW(nullptr, TRUE, nullptr);
    if (!timer)
        return;
    LARGE_INTEGER due;
    due.QuadPart = -(static_cast<LONGLONG>(microseconds) * kTicksPerMicrosecond);
    if (SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE))
        WaitAndPump(1, &timer, false, Deadline(kForever));
    CloseHandle(timer);
}

}  // namespace quorvane
