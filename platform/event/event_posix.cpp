#include "platform/event/event.h"

#include <algorithm>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "platform/com/apartment.h"
#include "platform/com/mutex.h"
#include "platform/com/never_destroyed.h"
#include "platform/com/wakeup.h"

namespace quorvane {

namespace {

using Clock = Wakeup::Clock;

// One lock for all events of the process: what is seen of several events is then seen at one moment. It is
// held for a few instructions at a time.
Mutex& EventsMutex() noexcept
{
    static NeverDestroyed<Mutex> mutex;
    return *mutex;
}

}  // namespace

struct Event::State {
    bool isSet QV_GUARDED_BY(EventsMutex()) = false;
    // Each belongs to a wait under way.
    std::vector<Wakeup*> waiters QV_GUARDED_BY(EventsMutex());
};

struct EventAccess {
    using State = Event::State;
    static const std::shared_ptr<State>& StateOf(const Event& event) noexcept { return event.state_; }

    // Named events live as long as someone has them. Never destroyed.
    static std::map<std::string, std::weak_ptr<State>, std::less<>>& Names() noexcept
        QV_REQUIRES(EventsMutex())
    {
        static NeverDestroyed<std::map<std::string, std::weak_ptr<State>, std::less<>>> names;
        return *names;
    }
};

namespace {

using State = EventAccess::State;
using States = std::vector<std::shared_ptr<State>>;

void ForgetUnusedNames() QV_REQUIRES(EventsMutex())
{
    std::erase_if(EventAccess::Names(), [](const auto& entry) { return entry.second.expired(); });
}

Clock::time_point DeadlineIn(std::chrono::nanoseconds time) noexcept
{
    const Clock::time_point now = Clock::now();
    return time >= Clock::time_point::max() - now ? Clock::time_point::max() : now + time;
}

// A timeout is in milliseconds, and kForever of them doesn't fit into the clock's unit.
Clock::time_point DeadlineIn(Timeout time) noexcept
{
    constexpr auto kMost = std::chrono::duration_cast<Timeout>(std::chrono::nanoseconds::max());
    return time >= kMost ? Clock::time_point::max() : DeadlineIn(std::chrono::nanoseconds(time));
}

enum class Needed { Any, All };

// One wait of one thread for several events.
class Waiting {
public:
    Waiting(const States& states, Needed needed) noexcept : states_(states), needed_(needed) {}
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    ~Waiting() { Unregister(); }

    // S_OK, or S_FALSE when the time is up. Throws std::bad_alloc.
    HRESULT Run(Clock::time_point deadline, WaitMode mode)
    {
        if (IsSatisfied())
            return S_OK;
        wakeup_ = Wakeup::OfThisThread();
        Register();
        for (;;) {
            const bool ran = mode == WaitMode::KeepQueueAlive && PumpApartmentCalls();
            if (IsSatisfied())
                return S_OK;
            if (deadline != Clock::time_point::max() && Clock::now() >= deadline)
                return S_FALSE;
            if (!ran)
                wakeup_->SleepUntil(deadline);
        }
    }

    // The lowest place of an event that was set when the wait was satisfied.
    size_t First() const noexcept { return first_; }

private:
    bool IsSatisfied() noexcept
    {
        const MutexLock lock(EventsMutex());
        size_t set = 0;
        for (size_t i = 0; i < states_.size(); ++i) {
            if (!states_[i]->isSet)
                continue;
            ++set;
            if (needed_ == Needed::Any) {
                first_ = i;
                return true;
            }
        }
        return set == states_.size();
    }

    void Register()
    {
        const MutexLock lock(EventsMutex());
        for (const auto& state : states_) {
            state->waiters.push_back(wakeup_.get());
            ++registered_;
        }
    }

    // Takes away as many entries as Register made: a wait that this one runs in has entries of its own.
    void Unregister() noexcept
    {
        const MutexLock lock(EventsMutex());
        for (; registered_ > 0; --registered_) {
            std::vector<Wakeup*>& waiters = states_[registered_ - 1]->waiters;
            waiters.erase(std::next(std::find(waiters.rbegin(), waiters.rend(), wakeup_.get())).base());
        }
    }

    const States& states_;
    const Needed needed_;
    std::shared_ptr<Wakeup> wakeup_;
    size_t registered_ = 0;
    size_t first_ = 0;
};

HRESULT WaitFor(std::span<const Event* const> events, Needed needed, Timeout timeout, size_t* index,
                WaitMode mode) noexcept
{
    if (events.empty())
        return E_INVALIDARG;
    try {
        States states;
        states.reserve(events.size());
        for (const Event* const event : events) {
            if (!event || !event->Exists())
                return E_INVALIDARG;
            states.push_back(EventAccess::StateOf(*event));
        }
        Waiting waiting(states, needed);
        const HRESULT hr = waiting.Run(DeadlineIn(timeout), mode);
        if (hr == S_OK && index)
            *index = waiting.First();
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

HRESULT Event::Create(bool initiallySet, std::string_view name) noexcept
{
    state_.reset();
    try {
        auto made = std::make_shared<State>();
        const MutexLock lock(EventsMutex());
        made->isSet = initiallySet;
        if (!name.empty()) {
            ForgetUnusedNames();
            std::weak_ptr<State>& known = EventAccess::Names()[std::string(name)];
            if (auto existing = known.lock())
                made = std::move(existing);
            else
                known = made;
        }
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
    const MutexLock lock(EventsMutex());
    state_->isSet = true;
    for (Wakeup* const waiter : state_->waiters)
        waiter->Signal();
    return S_OK;
}

HRESULT Event::Reset() noexcept
{
    if (!state_)
        return E_HANDLE;
    const MutexLock lock(EventsMutex());
    state_->isSet = false;
    return S_OK;
}

bool Event::IsSet() const noexcept
{
    const MutexLock lock(EventsMutex());
    return state_ && state_->isSet;
}

bool Event::Wait(Timeout timeout, WaitMode mode) const noexcept
{
    const Event* const self = this;
    return WaitAny(std::span(&self, 1), timeout, nullptr, mode) == S_OK;
}

HRESULT WaitAny(std::span<const Event* const> events, Timeout timeout, size_t* index, WaitMode mode) noexcept
{
    return WaitFor(events, Needed::Any, timeout, index, mode);
}

HRESULT WaitAll(std::span<const Event* const> events, Timeout timeout, WaitMode mode) noexcept
{
    return WaitFor(events, Needed::All, timeout, nullptr, mode);
}

void PumpingWait(ULONG microseconds) noexcept
{
    const Clock::time_point end =
        DeadlineIn(std::chrono::nanoseconds(std::chrono::microseconds(microseconds)));
    try {
        const std::shared_ptr<Wakeup> wakeup = Wakeup::OfThisThread();
        do {
            if (!PumpApartmentCalls())
                wakeup->SleepUntil(end);
        } while (Clock::now() < end);
    } catch (const std::bad_alloc&) {
        // No time passes then, as when there is no timer.
    }
}

}  // namespace quorvane
